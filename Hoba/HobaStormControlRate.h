// SPDX-License-Identifier: Apache-2.0
#pragma once

// What storm control can make of a threshold, whatever the port: decisions, without doing anything
// about them. Hoba/HobaStormControlWanted.h has what follows for ports.

#include "Hoba/HobaStormControlSmHelper.h"

#include <array>
#include <optional>

namespace Hoba {

namespace StormControl = Bridging::StormControl;

// The levels in the order in which they are applied together, which is that of their numbers: the
// all-traffic level comes last, since it supersedes others.
inline constexpr LevelType allLevelTypes[] = { levelTypeBroadcast, levelTypeMulticast,
                                               levelTypeUUcast, levelTypeAll };

// In what the levels differ: their names, and where their parts are.
struct Level {
   std::string_view text; // in traces
   StormControl::Threshold const & ( StormControl::IntfConfig::*configured )() const;
   StormControl::LevelStatus const & ( StormControl::IntfStatus::*status )() const;
   void ( StormControl::IntfStatus::*statusIs )( StormControl::LevelStatus const & );
   void ( StormControl::IntfStatus::*dropIs )( std::uint64_t );
   std::uint64_t ( StormControlSmHelper::*dropCnt )( Pelt::IntfId ) const;
   // Whether the platform has this level at all; null where every platform must.
   bool ( StormControlSmHelper::*supported )() const;
};

// One of the four.
Level const & levelOf( LevelType levelType );

// " broadcast", " multicast", " uucast" or " all".
std::string_view levelText( LevelType levelType );

StormControl::Threshold const & configuredThreshold( StormControl::IntfConfig const & config,
                                                     LevelType levelType );

StormControl::LevelStatus const & levelStatus( StormControl::IntfStatus const & status,
                                               LevelType levelType );

struct LevelDecision {
   // Whether the hardware is to be told at all.
   bool program;
   // Why what was asked for is not what holds; nothing where it does.
   std::optional< StormControl::LevelState > why;
   // What holds: the default where what was asked for is impossible.
   StormControl::Threshold threshold;

   // A zero that the platform cannot do. It is no default either: what stood before stays.
   bool refused() const { return why == StormControl::zeroRateNotSupported; }
   bool isDefault() const { return threshold.isDefault() && !refused(); }
   bool operator==( LevelDecision const & ) const = default;
};

// What the platform can do about a threshold, whatever the port and its speed.
LevelDecision decideLevel( StormControlSmHelper const & platform, LevelType levelType,
                           StormControl::Threshold const & asked );

// The same for all levels of a configuration. Null configures none.
using LevelDecisions = std::array< LevelDecision, levelTypeMax >;
LevelDecisions decideLevels( StormControlSmHelper const & platform,
                             StormControl::IntfConfig const * config );

// The same for one of them on one port, where the all-traffic level, while it is limited, covers
// broadcast and unknown unicast: the default holds for these, whatever was asked for. `allStands`:
// the port has an all-traffic limit of this configuration, which goes on covering when a zero that
// followed it was refused.
LevelDecision decideLevelOnPort( LevelDecisions const & asked, LevelType levelType,
                                 bool allStands );

// Whether broadcast has to skip the multicast limit: when the multicast threshold is not the
// default, and the all-traffic threshold is. A refused zero is not the default.
bool broadcastSkips( LevelDecisions const & asked );

// Speed times level in kbps, in 64 bits, truncated; 0 outside percentage mode.
std::uint64_t rateOf( std::uint32_t speedKbps, StormControl::Threshold const & threshold );

} // namespace Hoba
