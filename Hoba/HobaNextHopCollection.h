// SPDX-License-Identifier: Apache-2.0
#pragma once

// The next hops among which a route's traffic is shared, with their weights, and what is said of them as a
// group. A value: compared, ordered and hashed as a whole, whatever the order in which next hops were added,
// so that it serves as a key.
//
// Equal next hops are one object (Kiv::Interned), and so are equal collections where they are kept: a next hop
// costs a collection two words. To change a collection that is kept, change a copy.

#include "Hoba/HobaNextHop.h"
#include "Kiv/Interned.h"
#include "Kiv/Shared.h"
#include "Routing/NexthopGroup.h"
#include "types/ViaBitmap.h"

#include <span>

namespace Hoba {

using InternedNextHop = Kiv::Interned< NextHop >;

// What a configured group of next hops says of the collection that came from it.
class NextHopGroupInfoOrdinal : public Kiv::AccessedValue {
   KIV_ACCESSED_VALUE( Hoba::NextHopGroupInfoOrdinal );
   KIV_ATTRIBUTE( NexthopGroupEntryCounterType, nexthopGroupEntryCounterType,
                  nexthopGroupEntryCounterNone );
   KIV_ATTRIBUTE( std::uint32_t, nextHopGroupSize, 0 );
   KIV_ATTRIBUTE( bool, nextHopGroupUnordered, false );
   KIV_ATTRIBUTE( bool, nextHopGroupAutoSized, false );
   KIV_ATTRIBUTE( std::uint32_t, ttl, 0 );
   KIV_ATTRIBUTE( Routing::NexthopGroup::TosValue, tos );
   KIV_ATTRIBUTE( Pelt::GreKeyType, greKeyType, Pelt::greKeyNone );
   KIV_COLLECTION( NextHopGroupEntryKey, NexthopPosition, nhgEntryKeyToPosition );
   // By the entry's index.
   KIV_ORDERED( std::uint32_t, NextHop, nextHopGroupEntryL2Info );
   KIV_ORDERED( std::uint32_t, TunnelResolutionInfo, nextHopGroupEntryResolution );
};

// What was found out about the next hops' types last.
struct NextHopTypeCacheType {
   KIV_VALUE( Hoba::NextHopTypeCacheType );
   KIV_FIELD( bool, isValid, false );
   KIV_FIELD( NextHopType, type, nextHopDrop );
};

struct WeightedNextHop {
   NextHop nextHop;
   std::uint32_t weight = 1;
};

class NextHopCollection : public Kiv::AccessedValue {
   KIV_ACCESSED_VALUE( Hoba::NextHopCollection );
   KIV_GIVEN( L2AdjType, type, l2AdjUnicast );
   KIV_ATTRIBUTE( std::uint32_t, flags, 0 );
   KIV_ATTRIBUTE( NextHopTunnelType, tunnelType, tunnelNone );
   // The weights; a next hop of weight 0 is a member that gets no traffic.
   KIV_FLAT( InternedNextHop, std::uint32_t, nextHop );
   // Of an ordered group: the positions that each next hop has.
   KIV_FLAT( InternedNextHop, HobaTypes::ViaBitmap, nextHopBitmap );
   KIV_DERIVED( NextHopTypeCacheType, nextHopTypeCache, updateCaches );
   KIV_ATTRIBUTE( Kiv::Shared< NextHopGroupInfoOrdinal >, nhgInfo );
   KIV_ATTRIBUTE( NextHopCollType, nextHopCollType, nextHopCollRoute );
   KIV_ATTRIBUTE( std::uint32_t, predictedHierarchyHeight, 0 );
   KIV_ATTRIBUTE( std::uint32_t, hierarchyHeight, 0 );
   KIV_DERIVED( std::uint64_t, totalWeightCache, updateCaches, unknownWeight );
   KIV_ATTRIBUTE( MplsTtlMode, mplsTtlMode, mplsTtlUniform );
   KIV_ATTRIBUTE( MplsPayloadType, mplsPayloadType, mplsPayloadIp );

 public:
   static constexpr std::uint64_t unknownWeight = ~0ull;

   explicit NextHopCollection( L2AdjType type = l2AdjUnicast ) : type_( type ) {}
   // It has no text to be read from: throws Kiv::Exception.
   explicit NextHopCollection( Kiv::String const & text );
   static NextHopCollection parse( std::string_view text ) {
      return NextHopCollection( Kiv::String( text ) );
   }

   // This collection, which has no next hops, with these; of equal ones, the last weight counts. Where there is one
   // like it, nothing is built: this is the way from the next hops of a route to the collection that it shares.
   Kiv::Interned< NextHopCollection > with( std::span< WeightedNextHop const > nextHops ) const;

   // The sum of the weights.
   std::uint64_t totalWeight() const;
   // The type that the next hops have; of several, the one that stands first in NextHopType. nextHopDrop for
   // no next hops.
   NextHopType nextHopType() const;
   // What was found out before is found out anew, when it is asked for or now.
   void handleNextHopChanged();
   void updateCaches() const;

   // Packets get nowhere: no next hop does anything but drop them.
   bool allDrop() const;
   // There are next hops, and the address of each has to be found out first.
   bool allArpRequired() const;
   // Also when there are none.
   bool allNextHopWeightsAreOne() const;
   bool hasResolvedNextHops() const;
   // A next hop goes on at a further adjacency, into a VXLAN tunnel.
   bool hasVxlanHFecTunnelL2Info() const;
   // A next hop goes on at a further adjacency, or may once it is known.
   bool potentialHierarchicalNextHop() const;
   // A next hop's packets are counted.
   bool hasAllocationIds() const;

   // Of a configured group's type, 0 to 7, which are numbered otherwise. Throws Kiv::Exception for others.
   static NextHopTunnelType nextHopGroupTypeToTunnelType( std::uint32_t groupType );

   // The positions that are taken, in ascending order.
   std::vector< std::uint32_t > getLogicalPositionIndexes() const;
   // Of an ordered group: throws Kiv::Exception for a next hop without positions, and for positions without
   // a next hop.
   void verify() const;

   // ---- What the configured group says. Until something of it is set, there is nothing: nhgcRaw() is null
   // then, the others show the defaults.
   NextHopGroupInfoOrdinal const & nhgc() const { return *nhgInfo(); }
   NextHopGroupInfoOrdinal const * nhgcRaw() const { return nhgInfo().get(); }
   NextHopGroupInfoOrdinal const & nhgcRawOrDefault() const { return *nhgInfo(); }
   // To change it; other collections that share it keep it as it was. Good until this one is copied.
   NextHopGroupInfoOrdinal & nhgcMutate() { return nhgInfo_.mutate(); }

#define HOBA_OF_GROUP_( T, attr )                                                                  \
   T const & attr() const { return nhgc().attr(); }                                                \
   void attr##Is( Kiv::Param< T > value ) {                                                        \
      if( !( attr() == value ) ) {                                                                 \
         nhgcMutate().attr##Is( value );                                                           \
      }                                                                                            \
   }
#define HOBA_MEMBERS_OF_GROUP_( Key, T, attr )                                                     \
   auto const & attr() const { return nhgc().attr(); }                                             \
   T const & attr( Key const & key ) const { return nhgc().attr( key ); }                          \
   bool attr##Has( Key const & key ) const { return nhgc().attr##Has( key ); }                     \
   void attr##Is( Key const & key, T const & value ) {                                             \
      if( !attr##Has( key ) || !( attr( key ) == value ) ) {                                       \
         nhgcMutate().attr##Is( Key( key ), T( value ) );                                          \
      }                                                                                            \
   }                                                                                               \
   void attr##Del( Key const & key ) {                                                             \
      if( attr##Has( key ) ) {                                                                     \
         nhgcMutate().attr##Del( Key( key ) );                                                     \
      }                                                                                            \
   }                                                                                               \
   void attr##DelAll() {                                                                           \
      if( !attr().empty() ) {                                                                      \
         nhgcMutate().attr##DelAll();                                                              \
      }                                                                                            \
   }
   HOBA_OF_GROUP_( NexthopGroupEntryCounterType, nexthopGroupEntryCounterType )
   HOBA_OF_GROUP_( std::uint32_t, nextHopGroupSize )
   HOBA_OF_GROUP_( bool, nextHopGroupUnordered )
   HOBA_OF_GROUP_( bool, nextHopGroupAutoSized )
   HOBA_OF_GROUP_( std::uint32_t, ttl )
   HOBA_OF_GROUP_( Routing::NexthopGroup::TosValue, tos )
   HOBA_OF_GROUP_( Pelt::GreKeyType, greKeyType )
   HOBA_MEMBERS_OF_GROUP_( NextHopGroupEntryKey, NexthopPosition, nhgEntryKeyToPosition )
   HOBA_MEMBERS_OF_GROUP_( std::uint32_t, NextHop, nextHopGroupEntryL2Info )
   HOBA_MEMBERS_OF_GROUP_( std::uint32_t, TunnelResolutionInfo, nextHopGroupEntryResolution )
#undef HOBA_OF_GROUP_
#undef HOBA_MEMBERS_OF_GROUP_

   // For its declarations.
   void kivChanged( Kiv::AttributeId const & field, void const * key = nullptr );
   std::size_t kivHash( std::size_t seed ) const;
   void beforeInterning() const { updateCaches(); }

 private:
   std::size_t hashWith( std::size_t nextHopHash, std::size_t seed ) const;
   // All but the next hops.
   bool isLike( NextHopCollection const & other ) const;

   // That of the next hops and their positions; 0 while it is not known.
   mutable std::size_t nextHopHash_ = 0;
};

using InternedNextHops = Kiv::Interned< NextHopCollection >;

} // namespace Hoba
