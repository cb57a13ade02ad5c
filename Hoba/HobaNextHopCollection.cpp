// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaNextHopCollection.h"

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaL2AdjTypes.h"
#include "Zipline/Zipline.h"

#include <algorithm>

ZIPLINE_HANDLE( HobaNextHopCollection );

namespace Hoba {

namespace {

template< class Is >
bool
any( NextHopCollection const & collection, Is const & is ) {
   for( auto const & member : collection.nextHop() ) {
      if( is( *member.key ) ) {
         return true;
      }
   }
   return false;
}

// In whatever order they are added up.
std::size_t
memberHash( std::size_t nextHopHash, std::uint32_t weight ) {
   return Kiv::hashCombine( nextHopHash, weight );
}
template< class Bitmaps >
std::size_t
allHash( std::size_t sum, std::size_t count, Bitmaps const & bitmaps ) {
   return Kiv::hashCombine( Kiv::hashCombine( sum, count ),
                            bitmaps.empty() ? 0 : Kiv::hashOf( bitmaps ) );
}

constexpr bool
isDrop( NextHopType type ) {
   return type == nextHopDrop || type == nextHopRouteOverflowDrop;
}

} // namespace

NextHopCollection::NextHopCollection( Kiv::String const & text ) {
   HOBA_INVARIANT( !"No String constructor for NextHopCollection - has collection", text );
}

void
NextHopCollection::kivChanged( Kiv::AttributeId const & field, void const * ) {
   if( &field == &nextHopAttr ) {
      handleNextHopChanged();
   } else if( &field == &nextHopBitmapAttr ) {
      nextHopHash_ = 0;
   }
}

void
NextHopCollection::handleNextHopChanged() {
   totalWeightCache_ = unknownWeight;
   nextHopTypeCache_ = {};
   nextHopHash_ = 0;
}

void
NextHopCollection::updateCaches() const {
   std::uint64_t total = 0;
   auto type = nextHopDrop;
   for( auto const & [ nextHop, weight ] : nextHop_ ) {
      total += weight;
      type = std::min( type, nextHop->type );
   }
   totalWeightCache_ = total;
   nextHopTypeCache_ = { true, type };
}

std::uint64_t
NextHopCollection::totalWeight() const {
   if( totalWeightCache_ == unknownWeight ) {
      updateCaches();
   }
   return totalWeightCache_;
}

NextHopType
NextHopCollection::nextHopType() const {
   if( !nextHopTypeCache_.isValid ) {
      updateCaches();
   }
   return nextHopTypeCache_.type;
}

std::size_t
NextHopCollection::kivHash( std::size_t seed ) const {
   if( nextHopHash_ == 0 ) {
      std::size_t sum = 0;
      for( auto const & [ nextHop, weight ] : nextHop_ ) {
         sum += memberHash( nextHop.hash(), weight );
      }
      nextHopHash_ = allHash( sum, nextHop_.size(), nextHopBitmap_ );
   }
   return hashWith( nextHopHash_, seed );
}

std::size_t
NextHopCollection::hashWith( std::size_t nextHopHash, std::size_t seed ) const {
   auto const small = std::uint64_t{ type_ } | std::uint64_t{ tunnelType_ } << 8 |
                      std::uint64_t{ nextHopCollType_ } << 16 |
                      std::uint64_t{ mplsTtlMode_ } << 24 | std::uint64_t{ mplsPayloadType_ } << 32;
   auto const * info = nhgcRaw();
   std::uint64_t const words[] = {
         nextHopHash, small, flags_,
         std::uint64_t{ predictedHierarchyHeight_ } << 32 | std::uint64_t{ hierarchyHeight_ },
         info && !( *info == NextHopGroupInfoOrdinal() ) ? info->hash() : 0 };
   return Kiv::hashWords( words, seed );
}

bool
NextHopCollection::isLike( NextHopCollection const & other ) const {
   return type_ == other.type_ && flags_ == other.flags_ && tunnelType_ == other.tunnelType_ &&
          nhgInfo_ == other.nhgInfo_ && nextHopCollType_ == other.nextHopCollType_ &&
          predictedHierarchyHeight_ == other.predictedHierarchyHeight_ &&
          hierarchyHeight_ == other.hierarchyHeight_ && mplsTtlMode_ == other.mplsTtlMode_ &&
          mplsPayloadType_ == other.mplsPayloadType_ && nextHopBitmap_ == other.nextHopBitmap_;
}

InternedNextHops
NextHopCollection::with( std::span< WeightedNextHop const > nextHops ) const {
   HOBA_INVARIANT( nextHop_.empty(), "it has next hops of its own" );
   std::vector< std::size_t > hashes( nextHops.size() );
   std::size_t sum = 0;
   for( std::size_t i = 0; i < nextHops.size(); ++i ) {
      hashes[ i ] = nextHops[ i ].nextHop.hash();
      sum += memberHash( hashes[ i ], nextHops[ i ].weight );
   }
   auto const isThis = [ & ]( NextHopCollection const & other ) {
      auto const & held = other.nextHop_;
      if( held.size() != nextHops.size() || !isLike( other ) ) {
         return false;
      }
      std::vector< bool > taken( nextHops.size() );
      for( std::size_t i = 0; i < nextHops.size(); ++i ) {
         auto const & wanted = nextHops[ i ];
         auto const isHere = [ & ]( InternedNextHop const & key ) {
            return key.hash() == hashes[ i ] && *key == wanted.nextHop;
         };
         auto const * member = held.begin() + i;
         if( !isHere( member->key ) ) {
            member = held.findBy( hashes[ i ], isHere );
         }
         auto const at = static_cast< std::size_t >( member - held.begin() );
         if( !member || member->value != wanted.weight || taken[ at ] ) {
            return false;
         }
         taken[ at ] = true;
      }
      return true;
   };
   return InternedNextHops::findOrMake(
         hashWith( allHash( sum, nextHops.size(), nextHopBitmap_ ), 0 ), isThis, [ & ] {
            auto collection = *this;
            collection.nextHop_.reserve( static_cast< std::uint32_t >( nextHops.size() ) );
            for( std::size_t i = 0; i < nextHops.size(); ++i ) {
               collection.nextHopIs( InternedNextHop( nextHops[ i ].nextHop, hashes[ i ] ),
                                     nextHops[ i ].weight );
            }
            return collection;
         } );
}

// ---- What the next hops are like

bool
NextHopCollection::allDrop() const {
   return !any( *this, []( NextHop const & nextHop ) { return !isDrop( nextHop.type ); } );
}

bool
NextHopCollection::allArpRequired() const {
   return !nextHop_.empty() && !any( *this, []( NextHop const & nextHop ) {
      return nextHop.type != nextHopArpRequired;
   } );
}

bool
NextHopCollection::allNextHopWeightsAreOne() const {
   for( auto const & [ nextHop, weight ] : nextHop_ ) {
      if( weight != 1 ) {
         return false;
      }
   }
   return true;
}

bool
NextHopCollection::hasResolvedNextHops() const {
   return any( *this, []( NextHop const & nextHop ) { return isResolved( nextHop.type ); } );
}

bool
NextHopCollection::hasVxlanHFecTunnelL2Info() const {
   return any( *this, []( NextHop const & nextHop ) {
      return nextHop.hierarchicalNextLevelL2Adj && nextHop.tunnelL2Info != TunnelL2Info();
   } );
}

bool
NextHopCollection::potentialHierarchicalNextHop() const {
   return any( *this, []( NextHop const & nextHop ) {
      return nextHop.type == nextHopHierarchical || nextHop.hierarchicalNextLevelL2Adj;
   } );
}

bool
NextHopCollection::hasAllocationIds() const {
   return any( *this, []( NextHop const & nextHop ) { return bool( nextHop.allocationId ); } );
}

// ---- Groups

NextHopTunnelType
NextHopCollection::nextHopGroupTypeToTunnelType( std::uint32_t groupType ) {
   // The two enumerations order their kinds differently.
   constexpr NextHopTunnelType tunnelTypes[] = { tunnelNone,  ipInIp,      tunnelGre, mpls,
                                                 mplsOverGre, mplsOverUdp, vxlan,     tunnelIp };
   if( groupType >= std::size( tunnelTypes ) ) {
      ZTRACE( 1, "Invalid NexthopGroupType: ", groupType );
      HOBA_INVARIANT( !"Invalid NexthopGroupType", std::to_string( groupType ) );
   }
   return tunnelTypes[ groupType ];
}

std::vector< std::uint32_t >
NextHopCollection::getLogicalPositionIndexes() const {
   std::vector< std::uint32_t > all;
   for( auto const & [ nextHop, bitmap ] : nextHopBitmap_ ) {
      auto const positions = bitmap.positions();
      all.insert( all.end(), positions.begin(), positions.end() );
   }
   std::sort( all.begin(), all.end() );
   all.erase( std::unique( all.begin(), all.end() ), all.end() );
   return all;
}

void
NextHopCollection::verify() const {
   for( auto const & [ nh, weight ] : nextHop_ ) {
      HOBA_INVARIANT( nextHopBitmapHas( nh ), "nextHopBitmap missing entry " + Kiv::toText( nh ) );
   }
   for( auto const & [ nh, bitmap ] : nextHopBitmap_ ) {
      HOBA_INVARIANT( nextHopHas( nh ), "nextHop missing entry " + Kiv::toText( nh ) );
   }
}

} // namespace Hoba
