// SPDX-License-Identifier: Apache-2.0
#pragma once

// Where the simulated chip sends what is routed. A FEC names a group, the slots of a group share its traffic
// by weight, and each slot names a next hop, which may go on in a further group:
//
//    fec -> group -> member (group/slot) -> nextHop -> group ...
//
// SimFecSm.h has the machine that programs it.

#include "Bridging/VlanId.h"
#include "Glim/Fib.h"
#include "Hoba/HobaAdjBasicTypes.h"
#include "chips/sim/SimTable.h"

namespace Hoba {
struct NextHop;
}

namespace HobaSim {

using Glim::Fib::GlobalFecId;

// Numbers of the chip's own; 0 is none.
KIV_RANGED( HwNextHopId, std::uint32_t, 0, 4294967295, 0,
            "HobaSim::HwNextHopId::value > 4294967295 not allowed" );
KIV_RANGED( HwGroupId, std::uint32_t, 0, 4294967295, 0,
            "HobaSim::HwGroupId::value > 4294967295 not allowed" );

// An IPv4 or IPv6 address, or none, as a table takes it. Prints and reads as Pelt::IpGenAddr.
class HwIpAddr {
 public:
   HwIpAddr() = default;
   explicit HwIpAddr( Pelt::IpGenAddr const & addr );

   Pelt::IpGenAddr addr() const;
   bool operator==( HwIpAddr const & ) const = default;
   auto operator<=>( HwIpAddr const & ) const = default;
   std::size_t hash() const { return Kiv::hashCombine( Kiv::hashOf( high_ ), low_ ^ family_ ); }
   void print( std::string & out ) const { addr().print( out ); }
   static HwIpAddr parse( std::string_view text ) {
      return HwIpAddr( Pelt::IpGenAddr::parse( text ) );
   }

 private:
   std::uint64_t family_ = 0; // 0, 4 or 6
   std::uint64_t high_ = 0;
   std::uint64_t low_ = 0;
};

// A stack of labels, the top first. Prints as "16 17".
class HwLabels {
 public:
   static constexpr std::size_t maxLabels = Pelt::MplsLabelOperation::maxStackSize;

   HwLabels() = default;
   // Throws Kiv::RangeException for more than maxLabels.
   explicit HwLabels( std::vector< Pelt::MplsLabel > const & stack );

   bool operator==( HwLabels const & ) const = default;
   auto operator<=>( HwLabels const & ) const = default;
   std::size_t hash() const;
   void print( std::string & out ) const;
   // Throws Kiv::ParseError, or Kiv::RangeException for what is no label, and for too many.
   static HwLabels parse( std::string_view text );

 private:
   std::array< std::uint32_t, maxLabels > label_{}; // zeroes behind the end
   std::uint32_t count_ = 0;
};

// What is put around packets. Of a kind, the fields that it has no use for are as they are by default.
struct HwEncap {
   KIV_VALUE( HobaSim::HwEncap );
   KIV_FIELD( Tunnel::TunnelTable::EncapType, kind, Tunnel::TunnelTable::encapNone );
   // MPLS
   KIV_FIELD( Pelt::MplsLabelAction, operation, Pelt::mplsLabelNone );
   KIV_FIELD( HwLabels, labels );
   // GRE, IPsec, VXLAN: the tunnel's ends
   KIV_FIELD( HwIpAddr, source );
   KIV_FIELD( HwIpAddr, destination );
   // GRE
   KIV_FIELD( std::uint8_t, ttl, 0 );
   KIV_FIELD( std::uint8_t, tos, 0 );
   KIV_FIELD( Pelt::GreKeyType, keyType, Pelt::greKeyNone );
   // The key of GRE, the security parameters index of IPsec, the VNI of VXLAN.
   KIV_FIELD( std::uint32_t, id, 0 );
};

// What the chip must know to send a packet on: Hoba::NextHop has the meanings.
struct HwNextHop {
   KIV_VALUE( HobaSim::HwNextHop );
   KIV_FIELD( Hoba::NextHopType, type, Hoba::nextHopDrop );
   KIV_FIELD( bool, skipEgressAcl, false );
   KIV_FIELD( Bridging::VlanIdOrNone, vlanId );
   KIV_FIELD( std::uint32_t, l2IntfHwId, 0 );
   KIV_FIELD( Pelt::EthAddr, macAddr );
   KIV_FIELD( Pelt::EthAddr, sourceMac );
   KIV_FIELD( Pelt::IntfId, l3Intf );
   KIV_FIELD( Pelt::IntfId, l2Intf );
   KIV_FIELD( HwEncap, encap );
   KIV_FIELD( Tunnel::TunnelId, hwTunnelId );
   KIV_FIELD( Pelt::IntfId, tunnelIntf );
   KIV_FIELD( Pelt::EthAddr, innerMac );
   KIV_FIELD( Pelt::EthAddr, flowSmac );
   KIV_FIELD( std::uint32_t, flowInfo, 0 );
   KIV_FIELD( std::uint32_t, flowVlan, 0 );
   KIV_FIELD( Hoba::AllocationId, allocationId );
   KIV_FIELD( Pelt::IntfId, staticInterfaceTunnelIntf );
   // Where the choice goes on.
   KIV_FIELD( HwGroupId, nextGroup );
};

// The row of a next hop; `nextGroup` is the group of its next level, if it has one. Throws Kiv::RangeException
// for what no chip can hold: too many labels, a type that there is none of.
HwNextHop hwNextHop( Hoba::NextHop const & nextHop, HwGroupId nextGroup );

// A place in a group, counted from 0. Prints as "3/0".
struct HwSlot {
   KIV_PLAIN_VALUE( HobaSim::HwSlot );
   KIV_FIELD( HwGroupId, group );
   KIV_FIELD( std::uint32_t, slot, 0 );

   void print( std::string & out ) const;
   // Throws Kiv::ParseError, or Kiv::RangeException.
   static HwSlot parse( std::string_view text );
};

struct HwMember {
   KIV_VALUE( HobaSim::HwMember );
   KIV_FIELD( HwNextHopId, nextHop );
   KIV_FIELD( std::uint32_t, weight, 0 );
};

// Who refers to rows stands before them: a sweep leaves nothing that leads nowhere.
class FecUnit : public Unit {
   KIV_ENTITY( HobaSim::FecUnit, HobaSim::Unit );
   SIM_TABLE( GlobalFecId, HwGroupId, fec );
   // How many slots there are; packets of a group without any are dropped.
   SIM_TABLE( HwGroupId, std::uint32_t, group );
   SIM_TABLE( HwSlot, HwMember, member );
   SIM_TABLE( HwNextHopId, HwNextHop, nextHop );

 public:
   explicit FecUnit( Kiv::String const & unitName = {}, Memory const & memory = {} )
         : Unit( unitName, memory ) {}
};

} // namespace HobaSim
