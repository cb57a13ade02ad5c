// SPDX-License-Identifier: Apache-2.0
#pragma once

// What next hops, collections of them and adjacencies can be.

#include "Kiv/Value.h"

namespace Hoba {

// Of what a route's resolver found, before layer 2 is known.
KIV_ENUM( NextHopEntryType, std::uint8_t, nextHopEntryUnknown = 0, nextHopEntryConnected,
          nextHopEntryArp, nextHopEntryLabel, nextHopEntryTunnel, nextHopEntryCpu,
          nextHopEntryDrop );

// Of one resolved next hop. Of several types, the aggregate is the one that stands first here.
KIV_ENUM( NextHopType, std::uint8_t, nextHopHierarchical = 0, nextHopGroup, nextHopTunnel,
          nextHopMcastTunnel, nextHopFlow, nextHopArpResolved, nextHopVlanPort, nextHopArpRequired,
          nextHopCpuRouteCache, nextHopCpuBcast, nextHopCpuSlow, nextHopCpu,
          nextHopRouteOverflowDrop, nextHopDrop );

// Whether packets leave by it as it is: nothing has to be found out first, and it is neither the CPU nor
// the end.
constexpr bool
isResolved( NextHopType type ) {
   return type <= nextHopVlanPort;
}

// Of the tunnel that the members of a collection are.
KIV_ENUM( NextHopTunnelType, std::uint8_t, tunnelNone = 0 KIV_SHOWN( "none" ),
          mplsOverGre KIV_SHOWN( "mplsOverGre" ), ipInIp KIV_SHOWN( "ipInIp" ),
          tunnelGre KIV_SHOWN( "gre" ), mpls KIV_SHOWN( "mpls" ),
          mplsOverUdp KIV_SHOWN( "mplsOverUdp" ), vxlan KIV_SHOWN( "vxlan" ),
          tunnelIp KIV_SHOWN( "ip" ) );

// What a layer-2 adjacency is for.
KIV_ENUM( L2AdjType, std::uint8_t, l2AdjUnicast = 0, l2AdjMulticast, l2AdjMpls, l2AdjFlood );

// How far a layer-2 adjacency has come.
KIV_ENUM( L2AdjState, std::uint8_t, l2AdjUnprogrammed = 0, // nobody has asked for it yet
          l2AdjPending,                                    // on its way to the chip
          l2AdjProgrammed,                                 // in the chip, as it is wanted
          l2AdjStale,                                      // in the chip, but not as it is wanted
          l2AdjFull,                                       // the chip has no room for it
          l2AdjFailed );                                   // the chip refused it

// How a collection came about.
KIV_ENUM( NextHopCollType, std::uint8_t, nextHopCollRoute = 0, nextHopCollGroup,
          nextHopCollOrderedGroup, nextHopCollBackup );

// Which table an adjacency entry is used through.
KIV_ENUM( TableType, std::uint8_t, tableTypeUnknown = 0, tableTypeLongestPrefix,
          tableTypeExactMatch, tableTypeLabelledFec );

// Whether what was built last stands on what was built before.
KIV_ENUM( RebaseState, std::uint8_t, notRebased = 0, rebased, forcefullyRebased );

// What becomes of the TTL where labels are put on or taken off (RFC 3443).
KIV_ENUM( MplsTtlMode, std::uint8_t, mplsTtlUniform = 0, mplsTtlPipe );
// What the labels carry.
KIV_ENUM( MplsPayloadType, std::uint8_t, mplsPayloadIp = 0, mplsPayloadEthernet, mplsPayloadMpls );

// Who counts the packets of the entries of a group.
KIV_ENUM( NexthopGroupEntryCounterType, std::uint8_t, nexthopGroupEntryCounterNone = 0,
          nexthopGroupEntryCounterPerEntry, nexthopGroupEntryCounterShared );

} // namespace Hoba
