// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the simulated chip reports on command. Each of these checks what it is given and hands the
// event to the library, which applies it from the clock of its event machine. For the stations
// that the chip learns by itself see SimMac.h.

#include "Hoba/HobaEvent.h"

namespace HobaSim {

// What a chip says of this interface when it learns or ages a station there. The CPU port counts
// as a front-panel port. Throws Kiv::ParseError unless it is one of these, a LAG, or a VXLAN
// interface.
Hoba::HobaEvent::PortType portTypeOf( Pelt::IntfId intf );

// The link of an Ethernet port is `linkStatus` now; `faultType` says where it is broken.
// Throws Kiv::ParseError for an interface that is no Ethernet port.
void linkEvent( Pelt::IntfId port, Interface::LinkStatus linkStatus,
                HobaTypes::FaultType faultType = HobaTypes::faultNone );

// Autonegotiation of an Ethernet port has ended: `result` is autonegSuccess or autonegFailed, and
// `advert` is what the partner offered. Throws Kiv::ParseError for another result, or for an
// interface that is no Ethernet port.
void autonegEvent( Pelt::IntfId port, Interface::AutonegState result,
                   Interface::AutonegAdvertisement const & advert = {} );

// An event of any kind about a station, as it is given; the chip's own table stays what it is.
// `tunnelId` counts for a VXLAN interface only, and is 0 otherwise. Throws Kiv::ParseError for a
// kind of event that is not about stations, for a host without an address of one station or
// without a VLAN, and as portTypeOf().
void stationEvent( Hoba::HobaEvent::HobaEventType eventType, Bridging::MacVlanPair host,
                   Pelt::IntfId intf, std::uint32_t tunnelId = 0 );

} // namespace HobaSim
