// SPDX-License-Identifier: Apache-2.0
#include "Tessera/Suggest.h"

#include "Kiv/Utf8.h"

#include <algorithm>
#include <cctype>

namespace Tessera {

namespace {

constexpr std::size_t longestCompared = 64;
constexpr std::size_t mostCompared = 1000;
constexpr std::size_t mostListed = 12;

// How many letters must be changed, added, left out, or swapped with their neighbour.
std::size_t
distance( std::string_view a, std::string_view b ) {
   std::vector< std::size_t > before, last( b.size() + 1 ), now( b.size() + 1 );
   for( std::size_t j = 0; j <= b.size(); ++j ) {
      last[ j ] = j;
   }
   auto same = []( char x, char y ) {
      return std::tolower( static_cast< unsigned char >( x ) ) ==
             std::tolower( static_cast< unsigned char >( y ) );
   };
   for( std::size_t i = 1; i <= a.size(); ++i ) {
      now[ 0 ] = i;
      for( std::size_t j = 1; j <= b.size(); ++j ) {
         std::size_t replaced = last[ j - 1 ] + !same( a[ i - 1 ], b[ j - 1 ] );
         now[ j ] = std::min( { last[ j ] + 1, now[ j - 1 ] + 1, replaced } );
         if( i > 1 && j > 1 && same( a[ i - 1 ], b[ j - 2 ] ) && same( a[ i - 2 ], b[ j - 1 ] ) ) {
            now[ j ] = std::min( now[ j ], before[ j - 2 ] + 1 );
         }
      }
      before = last;
      std::swap( last, now );
   }
   return last[ b.size() ];
}

} // namespace

Kiv::String const *
nearest( std::string_view name, std::vector< Kiv::String > const & known ) {
   if( name.size() > longestCompared || known.size() > mostCompared || name.empty() ||
       std::isdigit( static_cast< unsigned char >( name.back() ) ) ) {
      return nullptr;
   }
   Kiv::String const * found = nullptr;
   std::size_t foundDistance = std::max< std::size_t >( 1, name.size() / 3 ) + 1;
   for( auto const & candidate : known ) {
      if( candidate.size() <= longestCompared ) {
         auto changes = distance( name, candidate );
         // Not a slip but another name, if nothing of it is left.
         if( changes < foundDistance && changes < candidate.size() ) {
            found = &candidate;
            foundDistance = changes;
         }
      }
   }
   return found;
}

Kiv::String
suggestion( std::string_view name, std::vector< Kiv::String > const & known ) {
   if( known.empty() ) {
      return "there is nothing here";
   }
   if( auto const * meant = nearest( name, known ) ) {
      return "did you mean \"" + *meant + "\"?";
   }
   Kiv::String text = known.size() == 1 ? "there is " : "there are ";
   for( std::size_t i = 0; i != std::min( known.size(), mostListed ); ++i ) {
      text += ( i ? ", " : "" ) + Kiv::excerpt( known[ i ] );
   }
   if( known.size() > mostListed ) {
      text += " and " + std::to_string( known.size() - mostListed ) + " more";
   }
   return text;
}

} // namespace Tessera
