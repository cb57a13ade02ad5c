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
};

// What the platform can do about a threshold, whatever the speed of the interface.
LevelDecision decideLevel( StormControlSmHelper const & platform, LevelType levelType,
                           Bridging::StormControl::Threshold const & asked );

// Speed times level in kbps, in 64 bits, truncated; 0 outside percentage mode.
std::uint64_t rateOf( std::uint32_t speedKbps,
                      Bridging::StormControl::Threshold const & threshold );

// Whether broadcast has to skip the multicast limit: when multicast is limited, and all traffic
// together is not.
bool broadcastSkips( StormControlSmHelper const & platform,
                     Bridging::StormControl::IntfConfig const & config );

} // namespace Hoba
