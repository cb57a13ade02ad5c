// SPDX-License-Identifier: Apache-2.0
#pragma once

// Who says that a station is where it is: the type of an entry of the MAC table.
//
// Where two sources of equal preference claim one station, an entry that somebody set up by hand
// wins over one that was found out: the local operator's, the MLAG peer's, or the overlay's. The
// values 4, 9 and 21 say so, and no other value does: they are configuredStaticMac, peerStaticMac
// and evpnStaticRemoteMac, and stay so. Values are kept in state and read by other agents; a new
// type takes a value that is free, 15 to 19 or above 22, never one in use.
//
// "Remote" means behind a VXLAN tunnel, "peer" told by the MLAG peer, "evpn" told by the overlay's
// control plane, "received" told by a controller.

#include "Kiv/Value.h"

namespace Bridging {

KIV_ENUM( EntryType, std::uint8_t,
          entryTypeUnknown = 0,
          learnedDynamicMac = 1,
          learnedRemoteMac = 2,
          configuredDynamicMac = 3,
          configuredStaticMac = 4,
          configuredRemoteMac = 5,
          receivedRemoteMac = 6,
          authenticatedMac = 7,
          peerDynamicMac = 8,
          peerStaticMac = 9,
          peerAuthenticatedMac = 10,
          peerLearnedRemoteMac = 11,
          peerStaticRemoteMac = 12,
          peerReceivedRemoteMac = 13,
          peerEvpnRemoteMac = 14,
          evpnDynamicRemoteMac = 20,
          evpnStaticRemoteMac = 21,
          evpnIntfDynamicMac = 22 );

// Behind a VXLAN tunnel, whoever says so.
constexpr bool
isEntryTypeRemote( EntryType type ) {
   switch( type ) {
   case learnedRemoteMac:
   case configuredRemoteMac:
   case receivedRemoteMac:
   case peerLearnedRemoteMac:
   case peerStaticRemoteMac:
   case peerReceivedRemoteMac:
   case peerEvpnRemoteMac:
   case evpnDynamicRemoteMac:
   case evpnStaticRemoteMac:
      return true;
   default:
      return false;
   }
}

// Told by the MLAG peer.
constexpr bool
isEntryTypePeer( EntryType type ) {
   return type >= peerDynamicMac && type <= peerEvpnRemoteMac;
}

// A controller said so, to this switch or to its peer.
constexpr bool
isEntryTypeController( EntryType type ) {
   return type == receivedRemoteMac || type == peerReceivedRemoteMac;
}

// The operator of this switch said so.
constexpr bool
isEntryTypeConfigured( EntryType type ) {
   return type == configuredDynamicMac || type == configuredStaticMac ||
          type == configuredRemoteMac;
}

// It may move and age, but software wrote it into the hardware, which did not learn it by itself.
constexpr bool
isEntryTypeProgrammedDynamic( EntryType type ) {
   switch( type ) {
   case configuredDynamicMac:
   case peerDynamicMac:
   case peerLearnedRemoteMac:
   case peerEvpnRemoteMac:
   case evpnDynamicRemoteMac:
   case evpnIntfDynamicMac:
      return true;
   default:
      return false;
   }
}

} // namespace Bridging
