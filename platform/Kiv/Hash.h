// SPDX-License-Identifier: Apache-2.0
#pragma once

// Hashes of keys, for tables in memory.
//
// Every process has a seed of its own, so that nobody who chooses keys (stations on the wire choose
// their addresses) can choose some that crowd a table. So a hash says nothing outside of its
// process, and nothing that shows may depend on one: not an order, not a printed number.

#include <concepts>
#include <cstdint>
#include <functional>
#include <string_view>
#include <type_traits>

namespace Kiv {

namespace Detail {

// Secret. Set before anything that uses this library begins. Not an inline variable: who looks at it
// has the library, and sees what all libraries of the process see.
struct HashSeed {
   std::uint64_t first, second;
};
extern HashSeed hashSeed;

} // namespace Detail

// Bits from the system that nobody can foresee, for seeds. Throws std::exception if it has none.
std::uint64_t randomBits();

// One 64 x 64 -> 128 bit multiplication, folded: every input bit reaches every output bit that a
// table of any size looks at.
inline std::uint64_t
hashMix( std::uint64_t a, std::uint64_t b ) {
   __extension__ using Wide = unsigned __int128;
   auto product = static_cast< Wide >( a ) * b;
   return static_cast< std::uint64_t >( product ) ^ static_cast< std::uint64_t >( product >> 64 );
}

inline std::size_t
hashWord( std::uint64_t word ) {
   return hashMix( word ^ Detail::hashSeed.first, Detail::hashSeed.second );
}

// `hash` is that of what comes before, `next` another hash, or a number.
inline std::size_t
hashCombine( std::size_t hash, std::size_t next ) {
   return hashMix( hash ^ Detail::hashSeed.first, next ^ Detail::hashSeed.second );
}

// Of numbers and hashes in their order: pairs of them, each by secrets of its own, added up, so that no
// multiplication waits for another.
template< std::size_t count >
std::size_t
hashWords( std::uint64_t const ( &words )[ count ], std::size_t seed ) {
   constexpr std::uint64_t step = 0x9e3779b97f4a7c15;
   auto const first = Detail::hashSeed.first, second = Detail::hashSeed.second;
   std::uint64_t sum = seed;
   for( std::size_t i = 0; i < count; i += 2 ) {
      auto const next = i + 1 < count ? words[ i + 1 ] : count;
      sum += hashMix( words[ i ] + ( first + i * step ), next ^ ( second + i * step ) );
   }
   return hashMix( sum ^ first, second );
}

std::size_t hashText( std::string_view text );

// What is one number, whole.
template< class T >
concept HashedAsWord = std::is_integral_v< T > || std::is_enum_v< T > || requires( T const & value ) {
   { value.kivWord() } -> std::convertible_to< std::uint64_t >;
};
template< HashedAsWord T >
std::uint64_t
wordOf( T const & value ) {
   if constexpr( requires { value.kivWord(); } ) {
      return value.kivWord();
   } else {
      return static_cast< std::uint64_t >( value );
   }
}

template< class T >
concept HashMember = requires( T const & value ) {
   { value.hash() } -> std::convertible_to< std::size_t >;
};

// Keyed collections, whose members stand in no order that counts.
template< class T >
concept KeyedCollection = requires( T const & value ) {
   typename T::key_type;
   value.begin();
   value.size();
};

// The hash of a key. Types with a hash() member bring their own, which is made of these; everything
// else goes through integers and strings. Collections that are equal have the same, in whatever order
// they were filled.
template< class T >
std::size_t
hashOf( T const & value ) {
   if constexpr( HashMember< T > ) {
      return value.hash();
   } else if constexpr( HashedAsWord< T > ) {
      return hashWord( wordOf( value ) );
   } else if constexpr( std::convertible_to< T const &, std::string_view > ) {
      return hashText( std::string_view( value ) );
   } else if constexpr( KeyedCollection< T > ) {
      std::size_t sum = 0;
      for( auto const & member : value ) {
         if constexpr( requires { member.value; } ) {
            sum += hashCombine( hashOf( member.key ), hashOf( member.value ) );
         } else {
            sum += hashOf< typename T::key_type >( member );
         }
      }
      return hashCombine( sum, value.size() );
   } else if constexpr( requires { value.begin(); } ) {
      std::size_t hash = value.size();
      for( auto const & element : value ) {
         hash = hashCombine( hash, hashOf( element ) );
      }
      return hash;
   } else {
      return hashWord( std::hash< T >{}( value ) );
   }
}

} // namespace Kiv
