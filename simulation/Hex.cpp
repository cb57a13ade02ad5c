// SPDX-License-Identifier: Apache-2.0
#include "simulation/Hex.h"

#include <charconv>

namespace Simulation {

Kiv::String
hexOf( std::span< std::uint8_t const > octets ) {
   constexpr char digits[] = "0123456789abcdef";
   Kiv::String text;
   for( auto const octet : octets ) {
      text += digits[ octet >> 4 ];
      text += digits[ octet & 0xf ];
   }
   return text;
}

std::optional< std::vector< std::uint8_t > >
octetsIn( Kiv::String const & hex ) {
   if( hex.size() % 2 != 0 ) {
      return {};
   }
   std::vector< std::uint8_t > octets( hex.size() / 2 );
   for( std::size_t n = 0; n != octets.size(); ++n ) {
      auto const * const digits = hex.data() + 2 * n;
      if( std::from_chars( digits, digits + 2, octets[ n ], 16 ).ptr != digits + 2 ) {
         return {};
      }
   }
   return octets;
}

} // namespace Simulation
