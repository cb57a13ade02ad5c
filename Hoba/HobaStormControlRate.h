// SPDX-License-Identifier: Apache-2.0
#pragma once

// The decisions of storm control, without doing anything about them.

#include "Hoba/HobaStormControlSmHelper.h"

namespace Hoba {

// The levels in the order in which they are applied together: the all-traffic level comes last,
// since it supersedes others.
inline constexpr LevelType allLevelTypes[] = { levelTypeBroadcast, levelTypeMulticast,
                                               levelTypeUUcast, levelTypeAll };

// " broadcast", " multicast", " uucast" or " all".
std::string_view levelText( LevelType levelType );

Bridging::StormControl::Threshold const &
configuredThreshold( Bridging::StormControl::IntfConfig const & config, LevelType levelType );

Bridging::StormControl::LevelStatus const &
levelStatus( Bridging::StormControl::IntfStatus const & status, LevelType levelType );

// Whether the platform has this level at all.
bool levelSupported( StormControlSmHelper const & platform, LevelType levelType );

struct LevelDecision {
   // Whether the hardware is to be told at all.
   bool program;
   // `programmed`, or why what was asked for is not.
   Bridging::StormControl::LevelState state;
   // What holds: the default where what was asked for is impossible.
   Bridging::StormControl::Threshold threshold;

   // A zero that the platform cannot do. It is no default either: what stood before stays.
   bool refused() const { return state == Bridging::StormControl::zeroRateNotSupported; }
   bool isDefault() const { return threshold.isDefault() && !refused(); }
};

// What the platform can do about a threshold, whatever the speed of the interface.
LevelDecision decideLevel( StormControlSmHelper const & platform, LevelType levelType,
                           Bridging::StormControl::Threshold const & asked );

// The same for a level of `config` on one port, where the all-traffic level, while it is limited,
// covers broadcast and unknown unicast: the default holds for these, whatever was asked for.
// `allStands`: the port has an all-traffic limit of this configuration, which goes on covering when
// a zero that followed it was refused.
LevelDecision decideLevelOnPort( StormControlSmHelper const & platform, LevelType levelType,
                                 Bridging::StormControl::IntfConfig const & config,
                                 bool allStands );

// Speed times level in kbps, in 64 bits, truncated; 0 outside percentage mode.
std::uint64_t rateOf( std::uint32_t speedKbps,
                      Bridging::StormControl::Threshold const & threshold );

// Whether broadcast has to skip the multicast limit: when the multicast threshold is not the
// default, and the all-traffic threshold is. A refused zero is not the default.
bool broadcastSkips( StormControlSmHelper const & platform,
                     Bridging::StormControl::IntfConfig const & config );

} // namespace Hoba
