// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

namespace Kiv {

// One 64 x 64 -> 128 bit multiplication, folded: every input bit reaches every output bit that a
// table of any size looks at.
inline std::uint64_t
hashMix( std::uint64_t a, std::uint64_t b ) {
   __extension__ using Wide = unsigned __int128;
   auto product = static_cast< Wide >( a ) * b;
   return static_cast< std::uint64_t >( product ) ^ static_cast< std::uint64_t >( product >> 64 );
}

inline constexpr std::uint64_t hashSeed = 0x9e3779b97f4a7c15ull;

inline std::size_t
hashCombine( std::size_t seed, std::size_t next ) {
   return hashMix( seed ^ hashSeed, next + 0xe7037ed1a0b428dbull );
}

template< class T >
concept HashMember = requires( T const & value ) {
   { value.hash() } -> std::convertible_to< std::size_t >;
};

// The hash of a key. Types with a hash() member bring their own; everything else goes through
// integers and strings. The seed is fixed: the same inputs give the same run.
template< class T >
std::size_t
hashOf( T const & value ) {
   if constexpr( HashMember< T > ) {
      return value.hash();
   } else if constexpr( std::is_enum_v< T > || std::is_integral_v< T > ) {
      return hashMix( static_cast< std::uint64_t >( value ) ^ hashSeed, 0xd6e8feb86659fd93ull );
   } else if constexpr( std::convertible_to< T const &, std::string_view > ) {
      return std::hash< std::string_view >{}( std::string_view( value ) );
   } else if constexpr( requires { value.begin(); } ) {
      std::size_t seed = value.size();
      for( auto const & element : value ) {
         seed = hashCombine( seed, hashOf( element ) );
      }
      return seed;
   } else {
      return std::hash< T >{}( value );
   }
}

} // namespace Kiv
