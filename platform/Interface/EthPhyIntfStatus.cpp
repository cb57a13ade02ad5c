// SPDX-License-Identifier: Apache-2.0
#include "Interface/EthPhyIntfStatus.h"

#include "Kiv/Reflect.h"

#include <array>

KIV_DEFINE( Interface::EthPhyIntfStatus );
KIV_DEFINE( Interface::AllEthPhyIntfStatusDir );

namespace Interface {

namespace {

// In the order of EthSpeed.
constexpr std::array< std::uint32_t, speed800Gbps + 1 > mbpsOf = {
      0,     10,    100,   1'000,  2'500,   5'000,   10'000, 20'000,
      25'000, 40'000, 50'000, 100'000, 200'000, 400'000, 800'000 };

} // namespace

std::uint32_t
speedToKbps( EthSpeed speed ) {
   return speed < mbpsOf.size() ? mbpsOf[ speed ] * 1000 : 0;
}

EthSpeed
speedFromMbps( std::uint64_t mbps ) {
   for( std::size_t n = 1; n != mbpsOf.size(); ++n ) {
      if( mbpsOf[ n ] == mbps ) {
         return static_cast< EthSpeed >( n );
      }
   }
   return speedUnknown;
}

EthMbps
EthMbps::parse( std::string_view text ) {
   return EthMbps( Kiv::fromText< std::uint32_t >( text ) );
}

std::uint32_t
EthMbps::checked( std::uint64_t mbps ) {
   if( mbps != 0 && speedFromMbps( mbps ) == speedUnknown ) {
      std::string speeds;
      for( auto const known : mbpsOf ) {
         speeds += ( speeds.empty() ? "" : ", " ) + Kiv::toText( known );
      }
      throw Kiv::RangeException( Kiv::toText( mbps ) +
                                 " Mb/s is not a speed of Ethernet: expected " + speeds +
                                 "; 0 is unknown" );
   }
   return static_cast< std::uint32_t >( mbps );
}

} // namespace Interface
