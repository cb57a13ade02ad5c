// SPDX-License-Identifier: Apache-2.0
#pragma once

// The events of stations, as operators put them in.

#include "Hoba/HobaEvent.h"

#include <optional>
#include <span>

namespace Simulation {

struct StationEvent {
   // What it does to the table of the machines.
   enum Doing { learns, ages, agesLocal, agesRemote, deletes };

   char const * word; // as operators type it
   Hoba::HobaEvent::HobaEventType type;
   Doing doing;
   // Of the entry: behind a port or LAG, and behind a VXLAN interface.
   Bridging::EntryType local = Bridging::entryTypeUnknown;
   Bridging::EntryType remote = local;
};

std::span< StationEvent const > stationEvents();
// By its word, or by the name of its type; null for what is none.
StationEvent const * stationEventOf( Kiv::String const & word );

// What stations can be behind.
std::optional< Hoba::HobaEvent::PortType > portTypeOf( Pelt::IntfId intf );
// The interface, if it is one with stations behind it.
std::optional< Pelt::IntfId > intfIn( Kiv::String const & word );
// The words of a station: its address, and its VLAN, which it must have.
std::optional< Bridging::MacVlanPair > hostIn( Kiv::String const & mac, Kiv::String const & vlan );

// What the chip reports then.
Hoba::HobaEvent eventOf( Hoba::HobaEvent::HobaEventType type, Bridging::MacVlanPair host,
                         Pelt::IntfId intf, std::uint32_t tunnel = 0 );

} // namespace Simulation
