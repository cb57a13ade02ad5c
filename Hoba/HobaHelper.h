// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which kind of interface an id names. All functions are pure; the names and ranges of the kinds
// are Pelt's.

#include "Bridging/VlanId.h"
#include "Pelt/IntfId.h"

namespace Hoba {

bool isPortChannel( Pelt::IntfId intfId );
// A port channel of the recirculation kind.
bool isRecircChannel( Pelt::IntfId intfId );
// A port channel or an Ethernet port of the MLAG peer.
bool isPeerEthernet( Pelt::IntfId intfId );
bool isCpuPort( Pelt::IntfId intfId );
bool isFabricInterface( Pelt::IntfId intfId );
// A port channel, an Ethernet port or a tunnel.
bool isRoutedPort( Pelt::IntfId intfId );
// A routed port or a VLAN interface.
bool isHwSupportedIntf( Pelt::IntfId intfId );
bool isSubIntf( Pelt::IntfId intfId );
bool isVlan( Pelt::IntfId intfId );

// Of a VLAN interface; anything else stops the process. Throws Kiv::RangeException when the
// interface's number is no VLAN's.
Bridging::VlanId getVlanId( Pelt::IntfId intfId );
// Takes any number that a VLAN interface can have, 0 and 4095 included.
Pelt::IntfId vlanIdToIntfId( unsigned short vlanId );
// Of a subinterface its parent; anything else is its own.
Pelt::IntfId getParentIntfId( Pelt::IntfId intfId );

Pelt::IntfId CpuPortName();
unsigned CpuPortCount();
Kiv::String fabricIntfName();
Pelt::IntfId fabricIntfId();

// Local date and time of `seconds` since 1970-01-01 UTC, with six decimals; "Invalid Timestamp"
// for what has none.
Kiv::String doubleToDateTimeStr( double const & seconds );

} // namespace Hoba
