// SPDX-License-Identifier: Apache-2.0
#pragma once

// Next hops by chance, out of few enough that equal ones are drawn again, with every field in play.

#include "Hoba/HobaL2AdjTypes.h"

#include <random>

namespace HobaTests {

class RandomNextHops {
 public:
   explicit RandomNextHops( unsigned seed ) : random_( seed ) {}

   std::uint32_t below( std::uint32_t count ) {
      return static_cast< std::uint32_t >( random_() % count );
   }

   Hoba::EncapInfo encapInfo() {
      Hoba::EncapInfo encap;
      auto const two = below( 2 );
      Pelt::IpGenAddr const addr = Pelt::IpAddr( 192, 0, 2, static_cast< std::uint8_t >( two ) );
      switch( below( 5 ) ) {
      case 0:
         encap.labelsIs( { Pelt::mplsLabelPush, { Pelt::MplsLabel( 16 + two ) } } );
         break;
      case 1:
         encap.greEncapIs( { .destination = addr } );
         break;
      case 2:
         encap.ipsecEncapIs( { .destination = addr } );
         break;
      case 3:
         encap.vxlanEncapIs( { .remoteVtep = addr } );
         break;
      }
      return encap;
   }
   // One of two for each field.
   Hoba::NextHop nextHop( Kiv::Ptr< Hoba::L2Adjacency > const & next = nullptr ) {
      auto const two = [ this ] { return below( 2 ); };
      auto const mac = [ & ] { return Pelt::EthAddr( 0x00005e005300 + two() ); };
      auto const intf = [ & ]() -> Pelt::IntfId { return Pelt::EthIntfId( two() + 1 ); };
      return {
            .type = two() ? Hoba::nextHopArpResolved : Hoba::nextHopTunnel,
            .macAddr = mac(),
            .l3Intf = intf(),
            .l2Intf = intf(),
            .encapInfo = encapInfo(),
            .l2IntfHwId = two(),
            .hwTunnelId = Tunnel::TunnelId( two() ),
            .tunnelL2Info = { .innerMac = mac() },
            .hierarchicalNextLevelL2Adj = two() ? next : nullptr,
            .flowSmac = mac(),
            .flowInfo = two(),
            .flowVlan = two(),
            .sourceMac = mac(),
            .vlanId = Bridging::VlanIdOrNone( two() ),
            .skipEgressAcl = two() != 0,
            .allocationId = Hoba::AllocationId( two() ),
            .staticInterfaceTunnelIntfId = intf(),
      };
   }

 private:
   std::mt19937 random_;
};

} // namespace HobaTests
