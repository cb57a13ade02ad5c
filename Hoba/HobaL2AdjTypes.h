// SPDX-License-Identifier: Apache-2.0
#pragma once

// From routes to the chip. A route resolves to next hops; those and their weights are a collection; what a
// chip programs once for all routes with that collection is a layer-2 adjacency; and each FEC (adjacency entry)
// refers to one.
//
//    NextHopEntryList       what a resolver found for one watched prefix
//    NextHopCollBuildResult what became of it: the collection, and what was left out
//    L2AdjKey, L2Adjacency  what is programmed once, and who uses it through which tables
//    AdjEntry               what a FEC refers to
//
// Who points at whom never goes in circles, or none of them would ever be freed: the key of an adjacency,
// which leads to the next ones, is made before it and does not change; a backup that leads back is refused.

#include "Glim/Fib.h"
#include "Hoba/HobaNextHopCollection.h"
#include "Kiv/Entity.h"

namespace Hoba {

using Glim::Fib::GlobalFecId;

// Equal collections are one object: comparing keys is comparing pointers.
struct L2AdjKey {
   KIV_VALUE( Hoba::L2AdjKey );
   KIV_FIELD( InternedNextHops, nextHops );
   // Where traffic goes when all of those are down; the default is nowhere.
   KIV_FIELD( InternedNextHops, backup );
};

class L2AdjKeyCollection : public Kiv::AccessedValue {
   KIV_ACCESSED_VALUE( Hoba::L2AdjKeyCollection );
   KIV_SET( L2AdjKey, l2AdjKey );
};

// What the chip was told of a layer-2 adjacency.
struct L2AdjStats {
   KIV_VALUE( Hoba::L2AdjStats );
   // How often it was brought in line with what is wanted, and how often that was refused.
   KIV_FIELD( std::uint64_t, programmed, 0 );
   KIV_FIELD( std::uint64_t, refused, 0 );
};

// The collection to which traffic goes when all next hops of an adjacency are down. It stays what it is.
class NextHopBackupCollection : public Kiv::Entity {
   KIV_ENTITY( Hoba::NextHopBackupCollection );
   KIV_ATTRIBUTE( InternedNextHops, nextHops );
   KIV_READ_ONLY( nextHops );

 public:
   explicit NextHopBackupCollection( InternedNextHops const & collection )
         : Entity( "backupVia" ), nextHops_( collection ) {}
   // Throws Kiv::Exception if it leads to that adjacency, over however many others.
   void checkOwner( L2Adjacency const & owner ) const;
};
using NextHopBackupCollectionPtr = Kiv::Ptr< NextHopBackupCollection >;

// The adjacency entry for which a layer-2 adjacency stands.
class ProxiedAdj : public Kiv::Entity {
   KIV_ENTITY( Hoba::ProxiedAdj );
   KIV_ATTRIBUTE( GlobalFecId, fecId );

 public:
   explicit ProxiedAdj( GlobalFecId fec = {} ) : Entity( "proxiedAdj" ), fecId_( fec ) {}
};

class L2Adjacency : public Kiv::Entity {
   KIV_ENTITY( Hoba::L2Adjacency );
   KIV_ATTRIBUTE( L2AdjState, state, l2AdjUnprogrammed );
   // The adjacency entries that use it. One that comes is handled, and what is known of one that goes is
   // forgotten, before anybody hears of it.
   KIV_SET( GlobalFecId, adjEntry );
   // Through which tables they use it; and how many do through each, which is so before anybody hears of it.
   KIV_COLLECTION( GlobalFecId, TableTypeBoolSet, adjEntryAndTableType );
   KIV_REFCOUNTS( TableType, adjTableType );
   KIV_READ_ONLY( adjTableType );
   // Those that have to look at it again.
   KIV_SET( GlobalFecId, reviewPendingAdj );
   KIV_CHILD( NextHopBackupCollection, backupVia );
   KIV_CHILD( ProxiedAdj, proxiedAdj );
   // The chip turns to the backup by itself.
   KIV_ATTRIBUTE( bool, useHwFastFailover, false );
   // An adjacency entry refers to it, not only an adjacency a level above.
   KIV_ATTRIBUTE( bool, isDirectlyOwnedByAdjEntry, false );
   KIV_ATTRIBUTE( std::uint8_t, maxPredictedHierarchyHeight, 0 );
   KIV_ATTRIBUTE( L2AdjStats, l2AdjStats );

 public:
   explicit L2Adjacency( L2AdjKey const & l2AdjKey ) : key_( l2AdjKey ) {}

   L2AdjKey const & key() const { return key_; }
   NextHopCollection const & nextHops() const { return *key_.nextHops; }
   bool potentialHierarchicalNextHop() const { return nextHops().potentialHierarchicalNextHop(); }
   bool hasAllocationIds() const { return nextHops().hasAllocationIds(); }
   // It has a backup, or the chip is to turn to one by itself.
   bool potentialHasBackup() const { return backupVia() || useHwFastFailover(); }

   // For an adjacency entry that has just been attached. One that is attached already is not handled again.
   void handleAdjEntry( GlobalFecId fecId );
   // The entry uses it through that table, from now on or no longer; and whether it does. A second time
   // changes nothing. These throw Kiv::Exception for a number that is no table type.
   void setTableTypeForAdj( GlobalFecId adjEntry, TableType tableType );
   void unsetTableTypeForAdj( GlobalFecId adjEntry, TableType tableType );
   bool isTableTypeSetForAdj( GlobalFecId adjEntry, TableType tableType ) const;
   // How it is used by all entries together.
   TableTypeBoolSet adjTableTypeBoolSet() const;

   // For its declarations.
   void kivChanged( Kiv::AttributeId const & attribute, void const * key = nullptr );
   void kivMemberChanges( decltype( adjEntryAndTableTypeAttr ) const &, GlobalFecId const &,
                          TableTypeBoolSet const * before, TableTypeBoolSet const * ) {
      tablesBefore_ = before ? *before : TableTypeBoolSet();
   }

 private:
   void decrementTableTypeInternal( TableType tableType ) { adjTableTypeDec( tableType ); }

   L2AdjKey const key_;
   // Of an entry whose tables are changing: what they were.
   TableTypeBoolSet tablesBefore_;
};

// Whether traffic of the collection may come to the adjacency, at whatever level, or by a backup.
bool leadsTo( NextHopCollection const & collection, L2Adjacency const & adjacency );

// What a resolver found for one watched prefix.
class NextHopEntryList : public Kiv::Entity {
   KIV_ENTITY( Hoba::NextHopEntryList );
   KIV_COLLECTION( NextHopEntry, bool, nextHopEntry );
   KIV_COLLECTION( InternedNextHop, TunnelResolutionInfo, nextHopEntryInfo );

 public:
   // The watched address, of either family.
   explicit NextHopEntryList( VrfAndIpAddr const & watched )
         : watched_{ watched.vrfId, watched.addr } {}
   explicit NextHopEntryList( VrfAndIpGenAddr const & watched ) : watched_( watched ) {}
   VrfAndIpGenAddr const & watched() const { return watched_; }

   // By what was found, not by what it was found for.
   bool isEqual( NextHopEntryList const & other ) const;
   std::size_t hash() const;

 private:
   VrfAndIpGenAddr const watched_;
};

// The layer-2 adjacencies that a hierarchical collection is flattened into.
class FlattenedL2Adjs : public Kiv::Entity {
   KIV_ENTITY( Hoba::FlattenedL2Adjs );
   KIV_ATTRIBUTE( L2AdjKeyCollection, l2AdjKeys );

 public:
   explicit FlattenedL2Adjs( L2AdjKeyCollection const & keys )
         : Entity( "flattenedL2Adjs" ), l2AdjKeys_( keys ) {}
};

// What came of building a collection for a set of routes.
class NextHopCollBuildResult : public Kiv::Entity {
   KIV_ENTITY( Hoba::NextHopCollBuildResult );
   KIV_ATTRIBUTE( NextHopCollection, nextHops );
   // Only where there are any.
   KIV_CHILD( FlattenedL2Adjs, internalFlattenedL2Adjs );
   // The members that were left out.
   KIV_SET( Pelt::IntfId, trimmedL2Intf );
   KIV_SET( Pelt::IntfId, trimmedL3Intf );
   KIV_SET( TunnelKey, trimmedTunnelKey );
   // Something was not known of a next hop, whose traffic is dropped.
   KIV_ATTRIBUTE( bool, nhInfoMissingAndDrop, false );
   KIV_ATTRIBUTE( std::uint8_t, maxPredictedHierarchyHeight, 0 );
   KIV_ATTRIBUTE( bool, vxlanViaResurrected, false );
   KIV_ATTRIBUTE( RebaseState, rebaseState, notRebased );

 public:
   explicit NextHopCollBuildResult( NextHopCollection const & collection = NextHopCollection(),
                                    L2AdjKeyCollection const & flattened = {} );

   // Empty where there are none.
   L2AdjKeyCollection const & flattenedL2Adjs() const;
   void flattenedL2AdjsIs( L2AdjKeyCollection const & collection );
   // It is as that one.
   void updateNhCollBuildResult( NextHopCollBuildResult const & other );
};

// What a FEC refers to.
class AdjEntry : public Kiv::Entity {
   KIV_ENTITY( Hoba::AdjEntry );
   // Null while it is not resolved.
   KIV_ATTRIBUTE( Kiv::Ptr< L2Adjacency >, l2Adj );

 public:
   explicit AdjEntry( GlobalFecId fec ) : Entity( Kiv::toText( fec ) ), fecId_( fec ) {}
   GlobalFecId fecId() const { return fecId_; }

 private:
   GlobalFecId const fecId_;
};

class AdjEntryList : public Kiv::Entity {
   KIV_ENTITY( Hoba::AdjEntryList );
   KIV_CHILDREN( GlobalFecId, AdjEntry, adj );

 public:
   explicit AdjEntryList( Kiv::String const & listName = "adjEntryList" ) : Entity( listName ) {}
};

// Why adjacency entries are not resolved; what is, has no entry.
class AdjStateCollection : public Kiv::Entity {
   KIV_ENTITY( Hoba::AdjStateCollection );
   KIV_COLLECTION( GlobalFecId, AdjErrorStates, adjState );

 public:
   explicit AdjStateCollection( Kiv::String const & collectionName = "adjStates" )
         : Entity( collectionName ) {}
};

// The layer-2 adjacencies by what they are.
class L2AdjList : public Kiv::Entity {
   KIV_ENTITY( Hoba::L2AdjList );
   KIV_CHILDREN( L2AdjKey, L2Adjacency, l2Adj );

 public:
   explicit L2AdjList( Kiv::String const & listName = "l2AdjList" ) : Entity( listName ) {}
};

} // namespace Hoba
