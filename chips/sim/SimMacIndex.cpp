// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimMacIndex.h"

#include <algorithm>

namespace HobaSim {

using Bridging::MacVlanPair;
using Pelt::IntfId;

void
MacIndex::is( MacVlanPair station, Place place ) {
   if( auto * const known = places_.find( station ) ) {
      if( known->intf == place.intf ) {
         place.at = known->at;
         *known = place;
         return;
      }
      del( station );
   }
   auto & stations = behind_[ place.intf ];
   place.at = static_cast< std::uint32_t >( stations.size() );
   places_.insertOrAssign( station, place );
   stations.push_back( station );
}

// The last one takes its place.
void
MacIndex::del( MacVlanPair station ) {
   auto const place = places_.extract( station );
   if( !place ) {
      return;
   }
   auto const group = behind_.find( place->intf );
   auto & stations = group->second;
   if( auto const last = stations.back(); last != station ) {
      stations[ place->at ] = last;
      places_.find( last )->at = place->at;
   }
   stations.pop_back();
   if( stations.empty() ) {
      behind_.erase( group );
   }
}

// From the back: what comes meanwhile is behind the walk, and what takes the place of another was visited.
void
MacIndex::gather( MacWalk & walk, std::size_t most, Stations & to ) const {
   while( !walk.isOver_ && most ) {
      auto const group =
            walk.isOfOne_ ? behind_.find( walk.intf_ ) : behind_.lower_bound( walk.intf_ );
      if( group == behind_.end() ) {
         walk.isOver_ = true;
         return;
      }
      if( group->first != walk.intf_ ) {
         walk.intf_ = group->first;
         walk.left_ = MacWalk::notBegun;
      }
      auto const & stations = group->second;
      walk.left_ = std::min( walk.left_, stations.size() );
      auto const count = std::min( most, walk.left_ );
      auto const end = stations.begin() + static_cast< std::ptrdiff_t >( walk.left_ );
      to.insert( to.end(), end - static_cast< std::ptrdiff_t >( count ), end );
      walk.left_ -= count;
      most -= count;
      if( walk.left_ == 0 ) {
         auto const next = std::next( group );
         walk.isOver_ = walk.isOfOne_ || next == behind_.end();
         walk.intf_ = walk.isOver_ ? IntfId() : next->first;
         walk.left_ = MacWalk::notBegun;
      }
   }
}

} // namespace HobaSim
