// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the simulated chip reports to the library, which applies it from the clock of its event machine.

#include "Hoba/HobaEvent.h"
#include "chips/sim/SimTable.h"

namespace HobaSim {

// What a chip says of this interface when it learns or ages a station there. The CPU port counts
// as a front-panel port. Throws Kiv::ParseError unless it is one of these, a LAG, or a VXLAN
// interface.
Hoba::HobaEvent::PortType portTypeOf( Pelt::IntfId intf );
// Whether it is one of these.
bool hasStations( Pelt::IntfId intf );

// The way of all events of ports and stations. Each of these checks what it is given, and reports it
// if the chip may. For the stations that the chip learns by itself see SimMac.h.
class EventUnit : public Unit {
   KIV_ENTITY( HobaSim::EventUnit, HobaSim::Unit );
   // Whether the library has asked for events: until then the chip keeps what it finds to itself.
   KIV_ATTRIBUTE( bool, reporting, false );
   // By port: how its link is, and how its last autonegotiation ended, as the chip found it last.
   SIM_STATE( Pelt::IntfId, Hoba::HobaEvent, link );
   SIM_STATE( Pelt::IntfId, Hoba::HobaEvent, autoneg );

 public:
   explicit EventUnit( Kiv::String const & unitName = {}, Memory const & memory = {} )
         : Unit( unitName, memory ) {}

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

   // Reports the ports as they are: all links, then how autonegotiation ended, each in their order.
   void reportPorts();

 private:
   void raise( Hoba::HobaEvent const & event );
};

} // namespace HobaSim
