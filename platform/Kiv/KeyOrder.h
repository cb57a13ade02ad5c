// SPDX-License-Identifier: Apache-2.0
#pragma once

// Keyed collections as values: their members in the order of the keys, and the order of collections.
// Neither depends on how a collection was filled.

#include "Kiv/Hash.h"

#include <algorithm>
#include <compare>
#include <concepts>
#include <memory>
#include <vector>

namespace Kiv {

// The key of what a walk over a map or a set shows.
template< class Key, class Member >
Key const &
memberKey( Member const & member ) {
   if constexpr( std::is_same_v< Key, Member > ) {
      return member;
   } else {
      return member.key;
   }
}

// Valid while nothing is removed. Keys that have no order stay as they stand.
template< KeyedCollection Collection >
auto
inKeyOrder( Collection const & collection ) {
   using Key = typename Collection::key_type;
   std::vector< decltype( std::addressof( *collection.begin() ) ) > members;
   members.reserve( collection.size() );
   for( auto const & member : collection ) {
      members.push_back( std::addressof( member ) );
   }
   if constexpr( std::totally_ordered< Key > ) {
      std::sort( members.begin(), members.end(), []( auto const * a, auto const * b ) {
         return memberKey< Key >( *a ) < memberKey< Key >( *b );
      } );
   }
   return members;
}

// As sequences of members in the order of their keys.
template< KeyedCollection Collection >
auto
compareCollections( Collection const & a, Collection const & b ) {
   using Key = typename Collection::key_type;
   auto const compareMembers = []( auto const * x, auto const * y ) {
      if constexpr( requires { x->value; } ) {
         using Order = std::common_comparison_category_t< decltype( x->key <=> y->key ),
                                                          decltype( x->value <=> y->value ) >;
         Order const order = x->key <=> y->key;
         return order != 0 ? order : Order( x->value <=> y->value );
      } else {
         return memberKey< Key >( *x ) <=> memberKey< Key >( *y );
      }
   };
   auto const left = inKeyOrder( a );
   auto const right = inKeyOrder( b );
   return std::lexicographical_compare_three_way( left.begin(), left.end(), right.begin(),
                                                  right.end(), compareMembers );
}

template< class Key, class Value >
class HashMap;
template< class Key >
class HashSet;
template< class Key, class Value >
class OrderedMap;
template< class Key, class Value >
class FlatMap;

template< class Key, class Value >
auto
operator<=>( HashMap< Key, Value > const & a, HashMap< Key, Value > const & b ) requires
      std::three_way_comparable< Key > && std::three_way_comparable< Value > {
   return compareCollections( a, b );
}
template< class Key >
auto
operator<=>( HashSet< Key > const & a,
             HashSet< Key > const & b ) requires std::three_way_comparable< Key > {
   return compareCollections( a, b );
}
template< class Key, class Value >
auto
operator<=>( OrderedMap< Key, Value > const & a, OrderedMap< Key, Value > const & b ) requires
      std::three_way_comparable< Key > && std::three_way_comparable< Value > {
   return compareCollections( a, b );
}

template< class Key, class Value >
auto
operator<=>( FlatMap< Key, Value > const & a, FlatMap< Key, Value > const & b )
   requires std::three_way_comparable< Key > && std::three_way_comparable< Value >
{
   return compareCollections( a, b );
}

} // namespace Kiv
