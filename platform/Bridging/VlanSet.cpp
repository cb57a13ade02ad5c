// SPDX-License-Identifier: Apache-2.0
#include "Bridging/VlanSet.h"

#include <algorithm>

namespace Bridging {

namespace {

using Range = VlanSet::Range;

// The first range that does not end before `vlan`.
auto
reaching( auto & ranges, int vlan ) {
   return std::partition_point( ranges.begin(), ranges.end(),
                                [ & ]( Range const & range ) { return range.last < vlan; } );
}

} // namespace

std::size_t
VlanSet::size() const {
   std::size_t vlans = 0;
   for( auto const & range : ranges_ ) {
      vlans += range.last - range.first + 1u;
   }
   return vlans;
}

bool
VlanSet::has( VlanId vlan ) const {
   auto const range = reaching( ranges_, vlan.value() );
   return range != ranges_.end() && range->first <= vlan.value();
}

bool
VlanSet::insert( VlanId vlan ) {
   auto const number = vlan.value();
   auto const range = reaching( ranges_, number - 1 ); // one that ends right before it grows
   if( range == ranges_.end() || range->first > number + 1 ) {
      ranges_.insert( range, { number, number } );
      return true;
   }
   if( range->first <= number && number <= range->last ) {
      return false;
   }
   range->first = std::min( range->first, number );
   range->last = std::max( range->last, number );
   auto const next = range + 1;
   if( next != ranges_.end() && next->first == range->last + 1 ) {
      range->last = next->last;
      ranges_.erase( next );
   }
   return true;
}

bool
VlanSet::erase( VlanId vlan ) {
   auto const number = vlan.value();
   auto const range = reaching( ranges_, number );
   if( range == ranges_.end() || range->first > number ) {
      return false;
   }
   if( range->first == range->last ) {
      ranges_.erase( range );
   } else if( range->first == number ) {
      ++range->first;
   } else if( range->last == number ) {
      --range->last;
   } else {
      auto const below = static_cast< std::uint16_t >( number - 1 );
      ranges_.insert( range, { range->first, below } )[ 1 ].first =
            static_cast< std::uint16_t >( number + 1 );
   }
   return true;
}

VlanSet
VlanSet::intersected( VlanSet const & other ) const {
   VlanSet both;
   auto mine = ranges_.begin();
   auto theirs = other.ranges_.begin();
   while( mine != ranges_.end() && theirs != other.ranges_.end() ) {
      auto const first = std::max( mine->first, theirs->first );
      auto const last = std::min( mine->last, theirs->last );
      if( first <= last ) {
         both.ranges_.push_back( { first, last } );
      }
      ++( mine->last < theirs->last ? mine : theirs );
   }
   return both;
}

VlanSet
VlanSet::without( VlanSet const & other ) const {
   VlanSet rest;
   auto theirs = other.ranges_.begin();
   for( auto [ first, last ] : ranges_ ) {
      while( theirs != other.ranges_.end() && theirs->last < first ) {
         ++theirs;
      }
      // One that reaches beyond this range counts for the next one as well.
      for( auto cut = theirs; cut != other.ranges_.end() && cut->first <= last && first <= last;
           ++cut ) {
         if( cut->first > first ) {
            rest.ranges_.push_back( { first, static_cast< std::uint16_t >( cut->first - 1 ) } );
         }
         first = static_cast< std::uint16_t >( cut->last + 1 );
      }
      if( first <= last ) {
         rest.ranges_.push_back( { first, last } );
      }
   }
   return rest;
}

std::size_t
VlanSet::hash() const {
   std::uint64_t mixed = ranges_.size();
   for( auto const & range : ranges_ ) {
      mixed = mixed * 0x9e3779b97f4a7c15 + ( range.first << 16 | range.last );
   }
   return Kiv::hashOf( mixed );
}

void
VlanSet::print( std::string & out ) const {
   char const * separator = "";
   for( auto const & range : ranges_ ) {
      out += separator + Kiv::toText( range.first );
      if( range.last != range.first ) {
         out += '-' + Kiv::toText( range.last );
      }
      separator = ",";
   }
}

VlanSet
VlanSet::parse( std::string_view text ) {
   VlanSet vlans;
   while( !text.empty() ) {
      auto const end = text.find( ',' );
      auto const item = text.substr( 0, end );
      auto const dash = item.find( '-' );
      auto const first = VlanId::parse( item.substr( 0, dash ) );
      auto const last = dash == item.npos ? first : VlanId::parse( item.substr( dash + 1 ) );
      if( last < first || end + 1 == text.size() ) {
         Kiv::parseFailed( text, "a list of VLANs, such as 1-10,20" );
      }
      for( unsigned vlan = first.value(); vlan <= last.value(); ++vlan ) {
         vlans.insert( VlanId( vlan ) );
      }
      text.remove_prefix( end == text.npos ? text.size() : end + 1 );
   }
   return vlans;
}

} // namespace Bridging
