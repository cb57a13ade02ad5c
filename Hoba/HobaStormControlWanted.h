// SPDX-License-Identifier: Apache-2.0
#pragma once

// What storm control wants of the ports of an interface, and what its status says of it: decisions
// from its configuration, its ports, and what the hardware was told before.

#include "Hoba/HobaStormControlRate.h"
#include "Kiv/HashMap.h"

#include <span>
#include <vector>

namespace Hoba {

// One level of one port. Prints as Ethernet1:broadcast.
struct PortLevel {
   KIV_PLAIN_VALUE( Hoba::PortLevel );
   KIV_FIELD( Pelt::IntfId, port );
   KIV_FIELD( LevelType, levelType, levelTypeNull );

   void print( std::string & out ) const;
   static PortLevel parse( std::string_view text );
};

// A limit that stands on a port.
struct HeldLevel {
   KIV_VALUE( Hoba::HeldLevel );
   // Whose configuration asked for it: the port's own, or its LAG's.
   KIV_FIELD( Pelt::IntfId, parent );
   KIV_FIELD( StormControl::Threshold, threshold );
   KIV_FIELD( std::uint32_t, speedKbps, 0 );
};

struct PortSpeed {
   Pelt::IntfId port;
   std::uint32_t kbps; // 0 when it is not known
   bool operator==( PortSpeed const & ) const = default;
};

// An interface with all that decides what becomes of its levels, as it is at one moment.
struct LimitedIntf {
   Pelt::IntfId intf;
   // Null when its limits are to be taken away, or it has none.
   StormControl::IntfConfig const * config;
   LevelDecisions asked;
   Kiv::HashMap< PortLevel, HeldLevel > const * held;
   // It takes part, and not as a member of a LAG. A LAG always does.
   bool active;
   bool memberOfLag;
   // Where its limits are put: a port itself, or the members of a LAG, as far as they are there and
   // active.
   std::vector< PortSpeed > ports;
   bool operator==( LimitedIntf const & ) const = default;
};

// What keeps the interface from being programmed as a whole; nothing if it can be. The members of a
// LAG stand in its way one by one, and nothing stands in the way of taking limits away.
std::optional< StormControl::LevelState > obstacle( LimitedIntf const & intf );

// What one of its ports is to have of a level. Nothing is programmed without a speed, though all can
// be taken away; and where a zero is refused only what this configuration has put there stays.
LevelDecision wanted( LimitedIntf const & intf, LevelType levelType, PortSpeed const & port );

// The levels that are programmed together when this one changes, in order: the all-traffic level
// takes along what it supersedes.
std::span< LevelType const > levelsWith( LimitedIntf const & intf, LevelType levelType );

// What stands of a level, and why what is asked for does not.
StormControl::LevelStatus statusOf( LimitedIntf const & intf, LevelType levelType );

// The speed of all ports together, in kbps.
std::uint64_t speedOf( LimitedIntf const & intf );

} // namespace Hoba
