// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaL2AdjTypes.h"

#include "Hoba/HobaAssert.h"
#include "Kiv/Reflect.h"

#include <unordered_set>

KIV_DEFINE( Hoba::NextHopBackupCollection );
KIV_DEFINE( Hoba::ProxiedAdj );
KIV_DEFINE( Hoba::L2Adjacency );
KIV_DEFINE( Hoba::NextHopEntryList );
KIV_DEFINE( Hoba::FlattenedL2Adjs );
KIV_DEFINE( Hoba::NextHopCollBuildResult );
KIV_DEFINE( Hoba::AdjEntry );
KIV_DEFINE( Hoba::AdjEntryList );
KIV_DEFINE( Hoba::AdjStateCollection );
KIV_DEFINE( Hoba::L2AdjList );

namespace Hoba {

namespace {

constexpr TableType allTableTypes[] = { tableTypeUnknown, tableTypeLongestPrefix,
                                        tableTypeExactMatch, tableTypeLabelledFec };

// Adjacencies share parts of their way, so each is looked at once.
class Search {
 public:
   explicit Search( L2Adjacency const & wanted ) : wanted_( wanted ) {}

   bool finds( NextHopCollection const & collection ) {
      for( auto const & member : collection.nextHop() ) {
         auto const * next = member.key->hierarchicalNextLevelL2Adj.get();
         if( next && findsFrom( *next ) ) {
            return true;
         }
      }
      return false;
   }

 private:
   bool findsFrom( L2Adjacency const & adjacency ) {
      if( &adjacency == &wanted_ ) {
         return true;
      }
      if( !seen_.insert( &adjacency ).second ) {
         return false;
      }
      auto const backup = adjacency.backupVia();
      return finds( adjacency.nextHops() ) || ( backup && finds( *backup->nextHops() ) );
   }

   L2Adjacency const & wanted_;
   std::unordered_set< L2Adjacency const * > seen_;
};

} // namespace

bool
leadsTo( NextHopCollection const & collection, L2Adjacency const & adjacency ) {
   return Search( adjacency ).finds( collection );
}

void
NextHopBackupCollection::checkOwner( L2Adjacency const & owner ) const {
   HOBA_INVARIANT( !leadsTo( *nextHops(), owner ), "a backup that leads back to its adjacency" );
}

// ---- Who uses an adjacency

void
L2Adjacency::kivChanged( Kiv::AttributeId const & attribute, void const * key ) {
   // Whoever hears of one of these writes may drop this adjacency.
   Kiv::Dispatch::Frame frame;
   if( &attribute == &adjEntryAttr ) {
      auto const fecId = *static_cast< GlobalFecId const * >( key );
      if( adjEntryHas( fecId ) ) {
         handleAdjEntry( fecId );
      } else {
         adjEntryAndTableTypeDel( fecId );
         reviewPendingAdjDel( fecId );
         isDirectlyOwnedByAdjEntryIs( !adjEntry().empty() );
      }
   } else if( &attribute == &adjEntryAndTableTypeAttr ) {
      auto const before = tablesBefore_;
      auto const after = adjEntryAndTableType( *static_cast< GlobalFecId const * >( key ) );
      for( auto const tableType : allTableTypes ) {
         auto const flag = tableTypeToBoolSet( tableType );
         if( ( before & flag ) && !( after & flag ) ) {
            decrementTableTypeInternal( tableType );
         } else if( ( after & flag ) && !( before & flag ) ) {
            adjTableTypeInc( tableType );
         }
      }
   }
   Entity::kivChanged( attribute, key );
}

void
L2Adjacency::handleAdjEntry( GlobalFecId ) {
   isDirectlyOwnedByAdjEntryIs( true );
}

void
L2Adjacency::setTableTypeForAdj( GlobalFecId adjEntry, TableType tableType ) {
   auto const flag = tableTypeToBoolSet( tableType );
   auto const recorded = adjEntryAndTableType( adjEntry );
   if( !( recorded & flag ) ) {
      adjEntryAndTableTypeIs( adjEntry, recorded | flag );
   }
}

void
L2Adjacency::unsetTableTypeForAdj( GlobalFecId adjEntry, TableType tableType ) {
   auto const flag = tableTypeToBoolSet( tableType );
   auto const recorded = adjEntryAndTableType( adjEntry );
   if( recorded == flag ) {
      adjEntryAndTableTypeDel( adjEntry );
   } else if( recorded & flag ) {
      adjEntryAndTableTypeIs( adjEntry, recorded.without( flag ) );
   }
}

bool
L2Adjacency::isTableTypeSetForAdj( GlobalFecId adjEntry, TableType tableType ) const {
   return bool( adjEntryAndTableType( adjEntry ) & tableTypeToBoolSet( tableType ) );
}

TableTypeBoolSet
L2Adjacency::adjTableTypeBoolSet() const {
   TableTypeBoolSet all;
   for( auto const & [ fecId, tables ] : adjEntryAndTableType() ) {
      all = all | tables;
   }
   return all;
}

// ---- What a resolver found, and what was built of it

bool
NextHopEntryList::isEqual( NextHopEntryList const & other ) const {
   return nextHopEntry() == other.nextHopEntry() && nextHopEntryInfo() == other.nextHopEntryInfo();
}

std::size_t
NextHopEntryList::hash() const {
   return Kiv::hashCombine( Kiv::hashOf( nextHopEntry() ), Kiv::hashOf( nextHopEntryInfo() ) );
}

NextHopCollBuildResult::NextHopCollBuildResult( NextHopCollection const & collection,
                                                L2AdjKeyCollection const & flattened )
      : Entity( "buildResult" ), nextHops_( collection ) {
   flattenedL2AdjsIs( flattened );
}

L2AdjKeyCollection const &
NextHopCollBuildResult::flattenedL2Adjs() const {
   auto const internal = internalFlattenedL2Adjs();
   return internal ? internal->l2AdjKeys() : Kiv::absentValue< L2AdjKeyCollection >();
}

void
NextHopCollBuildResult::flattenedL2AdjsIs( L2AdjKeyCollection const & collection ) {
   if( collection.l2AdjKey().empty() ) {
      internalFlattenedL2AdjsDel();
   } else {
      internalFlattenedL2AdjsIs( collection )->l2AdjKeysIs( collection );
   }
}

namespace {

// The members that are not in the other go, those that are come.
template< class Set, class Is, class Del >
void
takeOver( Set const & own, Set const & other, Is const & is, Del const & del ) {
   for( auto const & member : Kiv::keysOf( own ) ) {
      if( !other.has( member ) ) {
         del( member );
      }
   }
   for( auto const & member : Kiv::keysOf( other ) ) {
      is( member );
   }
}

} // namespace

void
NextHopCollBuildResult::updateNhCollBuildResult( NextHopCollBuildResult const & other ) {
   Kiv::Dispatch::Frame frame;
   nextHopsIs( other.nextHops() );
   flattenedL2AdjsIs( L2AdjKeyCollection( other.flattenedL2Adjs() ) );
   takeOver(
         trimmedL2Intf(), other.trimmedL2Intf(),
         [ & ]( auto const & intf ) { trimmedL2IntfIs( intf ); },
         [ & ]( auto const & intf ) { trimmedL2IntfDel( intf ); } );
   takeOver(
         trimmedL3Intf(), other.trimmedL3Intf(),
         [ & ]( auto const & intf ) { trimmedL3IntfIs( intf ); },
         [ & ]( auto const & intf ) { trimmedL3IntfDel( intf ); } );
   takeOver(
         trimmedTunnelKey(), other.trimmedTunnelKey(),
         [ & ]( auto const & key ) { trimmedTunnelKeyIs( key ); },
         [ & ]( auto const & key ) { trimmedTunnelKeyDel( key ); } );
   nhInfoMissingAndDropIs( other.nhInfoMissingAndDrop() );
   maxPredictedHierarchyHeightIs( other.maxPredictedHierarchyHeight() );
   vxlanViaResurrectedIs( other.vxlanViaResurrected() );
   rebaseStateIs( other.rebaseState() );
}

} // namespace Hoba
