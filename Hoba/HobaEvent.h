// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a switching chip reports: a change of a link, the end of an autonegotiation, a station that
// it learnt or aged. Hoba/HobaCallbacks.h takes it.

#include "types/HobaTypes.h"

namespace Hoba {

struct HobaEvent {
   KIV_VALUE( Hoba::HobaEvent );

   KIV_MEMBER_ENUM( HobaEventType, std::uint8_t,
                    eventTypePort = 0,
                    eventTypeAutonegSuccess,
                    eventTypeAutonegFailed,
                    eventTypeMacAddressLearned,
                    eventTypeMacAddressAged,
                    eventTypeMacAddressAgedLocal,
                    eventTypeMacAddressAgedRemote,
                    eventTypeMacAddressDeleted,
                    eventTypeDropMacAddress,
                    eventTypeStaticMacAddress,
                    eventTypeAuthenticatedMac,
                    eventTypeEvpnIntfDynamicMac,
                    eventTypePeerMacAddressLearned,
                    eventTypePeerStaticMacAddress,
                    eventTypePeerAuthenticatedMac );
   static constexpr std::uint8_t eventTypes = 15;

   // What `port` is: a front-panel port, a LAG, or a VXLAN port.
   KIV_MEMBER_ENUM( PortType, std::uint8_t, fpPort = 0, trunkPort, vxlanPort );

   KIV_FIELD( HobaEventType, eventType, eventTypePort );
   KIV_FIELD( PortType, portType, fpPort );
   KIV_FIELD( Pelt::IntfId, port );
   // Of a station behind a VXLAN port.
   KIV_FIELD( std::uint32_t, tunnelId, 0 );
   // Of a link event.
   KIV_FIELD( Interface::LinkStatus, linkStatus, Interface::linkUnknown );
   KIV_FIELD( HobaTypes::FaultType, faultType, HobaTypes::faultNone );
   // Of an event about a station.
   KIV_FIELD( Bridging::MacVlanPair, host );
   // Of the end of an autonegotiation: what the partner offered.
   KIV_FIELD( Interface::AutonegAdvertisement, advert );
};

} // namespace Hoba
