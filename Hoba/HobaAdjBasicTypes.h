// SPDX-License-Identifier: Apache-2.0
#pragma once

// The small values that adjacencies are made of.

#include "Hoba/HobaAdjEnum.h"
#include "Pelt/EthAddr.h"
#include "Pelt/IntfId.h"
#include "Pelt/IpAddr.h"
#include "Pelt/Mpls.h"
#include "Pelt/Prefix.h"
#include "Tunnel/Tunnel.h"
#include "Vrf/VrfIdMap.h"
#include "Vxlan/Vxlan.h"

namespace Hoba {

// The forwarding layer's own number of a VRF.
KIV_RANGED( VrfId, std::uint32_t, 0, 4294967295, 0, "Hoba::VrfId::value > 4294967295 not allowed" );

struct VrfAndIpAddr {
   KIV_VALUE( Hoba::VrfAndIpAddr );
   KIV_FIELD( VrfId, vrfId );
   KIV_FIELD( Pelt::IpAddr, addr );
};
struct VrfAndIpGenAddr {
   KIV_VALUE( Hoba::VrfAndIpGenAddr );
   KIV_FIELD( VrfId, vrfId );
   KIV_FIELD( Pelt::IpGenAddr, addr );
};

// What a route's resolver produced, before layer 2 is known.
struct NextHopEntry {
   KIV_VALUE( Hoba::NextHopEntry );
   KIV_FIELD( NextHopEntryType, type, nextHopEntryUnknown );
   KIV_FIELD( Pelt::IpGenAddr, ipGenAddr );
   // The recursive route that was used.
   KIV_FIELD( Pelt::Prefix, route );
   KIV_FIELD( Pelt::Ip6Prefix, route6 );
   KIV_FIELD( Pelt::EthAddr, macAddr );
   KIV_FIELD( Pelt::IntfId, l2Intf );
   KIV_FIELD( Pelt::IntfId, l3Intf );
   KIV_FIELD( Vrf::VrfIdMap::VrfId, arpVrfId );
   KIV_FIELD( Pelt::MplsLabelOrNone, label );
};

// Through what a tunnel was resolved.
struct TunnelResolutionInfo {
   KIV_VALUE( Hoba::TunnelResolutionInfo );
   KIV_FIELD( Pelt::IpGenPrefix, route );
   KIV_FIELD( Pelt::IpGenAddr, resolvedNextHop );
   KIV_FIELD( Pelt::IntfId, intf );
};

// An entry of a configured group of next hops.
struct NextHopGroupEntryKey {
   KIV_VALUE( Hoba::NextHopGroupEntryKey );
   KIV_FIELD( std::uint32_t, nhgId, 0 );
   KIV_FIELD( std::uint32_t, l2NhgId, 0 );
   KIV_FIELD( std::uint32_t, nhgEntryIndex, 0 );
};

// Its place in the group, counted from 0.
struct NexthopPosition {
   KIV_VALUE( Hoba::NexthopPosition );
   KIV_FIELD( std::uint32_t, position, 0 );
};

struct TunnelKey {
   KIV_VALUE( Hoba::TunnelKey );
   KIV_FIELD( Tunnel::TunnelId, tunnelId );
   KIV_FIELD( Pelt::IpGenAddr, destination );
};

// What a next hop behind a tunnel needs of layer 2 at the tunnel's other end. The default is none.
struct TunnelL2Info {
   KIV_VALUE( Hoba::TunnelL2Info );
   KIV_FIELD( Pelt::IntfId, tunnelIntf );
   KIV_FIELD( Pelt::EthAddr, innerMac );
};

struct IpsecTunnelInfo {
   KIV_VALUE( Hoba::IpsecTunnelInfo );
   KIV_FIELD( Pelt::IpGenAddr, source );
   KIV_FIELD( Pelt::IpGenAddr, destination );
   // The security parameters index (RFC 4301).
   KIV_FIELD( std::uint32_t, spi, 0 );
};

struct VxlanEncapInfo {
   KIV_VALUE( Hoba::VxlanEncapInfo );
   KIV_FIELD( Vxlan::Vni, vni );
   // Of the tunnel's ends.
   KIV_FIELD( Pelt::IpGenAddr, localVtep );
   KIV_FIELD( Pelt::IpGenAddr, remoteVtep );
};

// What hardware counters and rewrites are allocated for: an entry of a configured group of next hops, all
// of its entries together, a tunnel, or (the default) nothing. A 64-bit word.
class AllocationId {
 public:
   static constexpr std::string_view kivName = "Hoba::AllocationId";

   constexpr AllocationId() = default;
   constexpr explicit AllocationId( std::uint64_t value ) : value_( value ) {}

   // Where the group's id begins; below is the entry's index, which is refused before it gets there.
   static constexpr unsigned nhgIdIndexPos() { return 36; }
   static constexpr std::uint64_t tunnelIdMask() { return ( 1ull << 56 ) - 1; }
   // The index that stands for all entries of a group.
   static constexpr std::uint64_t sharedEntryIdx() { return ~0ull >> nhgIdIndexPos(); }
   static constexpr std::uint64_t maxNhgId = ( 1ull << ( 62 - 36 ) ) - 1;

   // Throw Kiv::Exception for what does not fit, and for a tunnel that is a group of next hops.
   static AllocationId allocationIdFromNhgId( std::uint64_t nhgId, std::uint64_t entryIdx );
   static AllocationId allocationIdFromTunnelId( Tunnel::TunnelId id );

   constexpr explicit operator bool() const { return value_ != 0; }
   constexpr std::uint64_t value() const { return value_; }
   constexpr bool isNhg() const { return value_ & nhgBit; }
   constexpr bool isTunnel() const { return value_ & tunnelBit; }
   // Of a group.
   constexpr std::uint32_t nhgId() const {
      return static_cast< std::uint32_t >( ( value_ & ~nhgBit ) >> nhgIdIndexPos() );
   }
   constexpr std::uint64_t entryIdx() const { return value_ & ( ( 1ull << nhgIdIndexPos() ) - 1 ); }
   // Of a tunnel.
   constexpr Tunnel::TunnelId tunnelId() const {
      return Tunnel::TunnelId( value_ & tunnelIdMask() );
   }

   constexpr bool operator==( AllocationId const & ) const = default;
   constexpr auto operator<=>( AllocationId const & ) const = default;
   constexpr std::uint64_t kivWord() const { return value_; }
   std::size_t hash() const { return Kiv::hashOf( value_ ); }
   // Appends the word.
   void print( std::string & out ) const { Kiv::print( out, value_ ); }
   static AllocationId parse( std::string_view text ) {
      return AllocationId( Kiv::fromText< std::uint64_t >( text ) );
   }

 private:
   static constexpr std::uint64_t nhgBit = 1ull << 63;
   static constexpr std::uint64_t tunnelBit = 1ull << 62;

   std::uint64_t value_ = 0;
};

// How an adjacency entry is used.
struct TableTypeBoolSet {
   KIV_FLAGS( Hoba::TableTypeBoolSet, std::uint8_t, tableTypeUnknown, tableTypeLongestPrefix,
              tableTypeExactMatch, tableTypeLabelledFec, usedByV4Route, usedByV6Route,
              usedByV4DefaultRoute, usedByV6DefaultRoute );
};
// The set of that one. Throws Kiv::Exception for a number that is no table type.
TableTypeBoolSet tableTypeToBoolSet( TableType tableType );

// Why an adjacency entry cannot be resolved.
struct AdjErrorStates {
   KIV_FLAGS( Hoba::AdjErrorStates, std::uint8_t, uninitialized, invalidRouteType,
              fecMissingFromFib, fecHierarchyContainsCycle, nextLevelFecInvalid,
              vxlanTunnelsNotReconciled, sourceFecInvalid, nextLevelInfoMissing );
};

} // namespace Hoba
