// SPDX-License-Identifier: Apache-2.0
#pragma once

// Keys and records as whole words, which is how tables have them.

#include "Glim/Schema.h"

#include <array>
#include <concepts>
#include <cstring>

namespace Glim {

template< class T >
using WordsOf = std::array< std::uint64_t, Layout::wordsOf( sizeof( T ) ) >;

// What is between the fields, and what the last word has too many, is zero: equal values have equal
// words.
template< class T >
WordsOf< T >
toWords( T const & value ) {
   WordsOf< T > words{};
   if constexpr( std::has_unique_object_representations_v< T > ) {
      std::memcpy( words.data(), &value, sizeof( T ) );
   } else {
      copyFields( value, reinterpret_cast< char * >( words.data() ) );
   }
   return words;
}

template< class T >
void
fromWords( T & value, WordsOf< T > const & words ) {
   std::memcpy( static_cast< void * >( &value ), words.data(), sizeof( T ) );
}

// An order of keys that is the same in every run, which that of the rows in a table is not.
struct KeyBefore {
   template< class Key >
   bool operator()( Key const & a, Key const & b ) const {
      if constexpr( requires {
                       { a < b } -> std::convertible_to< bool >;
                    } ) {
         return a < b;
      } else {
         return toWords( a ) < toWords( b );
      }
   }
};

} // namespace Glim
