// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the keyed collections have in common: their members, and how a member leaves.

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Kiv::Detail {

// How operations take a key: collections of strings are searched without making a string.
template< class Key >
using KeyArgument =
      std::conditional_t< std::is_same_v< Key, std::string >, std::string_view, Key const & >;

struct Nothing {};

// Moves out what must outlive its place in a collection: all that has a destructor to run. (The
// keys of members are const, so they are copied; a string's destructor concerns nobody.)
template< class T >
auto
moveOut( T & from ) {
   using Plain = std::remove_const_t< T >;
   constexpr bool harmless = std::is_trivially_destructible_v< T > ||
                             ( std::is_const_v< T > && std::is_same_v< Plain, std::string > );
   if constexpr( harmless || !std::is_constructible_v< Plain, T && > ) {
      return Nothing{};
   } else {
      return Plain( std::move( from ) );
   }
}

template< class Key, class Value >
struct MapMember {
   Key const key;
   Value value;

   template< class K, class... Args >
   explicit MapMember( K const & k, Args &&... args )
         : key( k ), value( std::forward< Args >( args )... ) {}

   static auto moveOut( MapMember & m ) {
      return std::pair( Detail::moveOut( m.key ), Detail::moveOut( m.value ) );
   }
};

} // namespace Kiv::Detail
