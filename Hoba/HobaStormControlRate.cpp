// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaStormControlRate.h"

namespace Hoba {

using namespace Bridging::StormControl;

std::string_view
levelText( LevelType levelType ) {
   constexpr std::string_view texts[] = { " broadcast", " multicast", " uucast", " all" };
   return levelType < levelTypeMax ? texts[ levelType ] : " none";
}

Threshold const &
configuredThreshold( IntfConfig const & config, LevelType levelType ) {
   switch( levelType ) {
   case levelTypeBroadcast:
      return config.broadcast();
   case levelTypeMulticast:
      return config.multicast();
   case levelTypeUUcast:
      return config.uucast();
   default:
      return config.all();
   }
}

LevelStatus const &
levelStatus( IntfStatus const & status, LevelType levelType ) {
   switch( levelType ) {
   case levelTypeBroadcast:
      return status.broadcast();
   case levelTypeMulticast:
      return status.multicast();
   case levelTypeUUcast:
      return status.uucast();
   default:
      return status.all();
   }
}

bool
levelSupported( StormControlSmHelper const & platform, LevelType levelType ) {
   switch( levelType ) {
   case levelTypeUUcast:
      return platform.uucastLevelEnabled();
   case levelTypeAll:
      return platform.allLevelEnabled();
   default:
      return true;
   }
}

namespace {

bool
meteringSupported( StormControlSmHelper const & platform, MeteringMode mode ) {
   switch( mode ) {
   case meteringPercent:
      return true;
   case meteringPps:
      return platform.ppsMeteringEnabled();
   case meteringBps:
      return platform.bpsMeteringEnabled();
   }
   return false;
}

} // namespace

LevelDecision
decideLevel( StormControlSmHelper const & platform, LevelType levelType, Threshold const & asked ) {
   if( !levelSupported( platform, levelType ) ) {
      return { false, asked.isDefault() ? notConfigured : levelNotSupported, {} };
   }
   if( !meteringSupported( platform, asked.mode ) ) {
      return { true, meteringModeNotSupported, {} };
   }
   if( asked.level == 0 && asked.rate == 0 && !platform.zeroRateEnabled() ) {
      return { false, zeroRateNotSupported, {} };
   }
   return { true, asked.isDefault() ? notConfigured : programmed, asked };
}

LevelDecision
decideLevelOnPort( StormControlSmHelper const & platform, LevelType levelType,
                   IntfConfig const & config, bool allStands ) {
   auto const & asked = configuredThreshold( config, levelType );
   auto const alone = decideLevel( platform, levelType, asked );
   if( ( levelType != levelTypeBroadcast && levelType != levelTypeUUcast ) ||
       !levelSupported( platform, levelType ) ) {
      return alone;
   }
   auto const all = decideLevel( platform, levelTypeAll, config.all() );
   bool const covered = all.refused() ? allStands : !all.isDefault();
   return covered ? LevelDecision{ true, asked.isDefault() ? notConfigured : supersededByAll, {} }
                  : alone;
}

std::uint64_t
rateOf( std::uint32_t speedKbps, Threshold const & threshold ) {
   return threshold.mode == meteringPercent
                ? std::uint64_t( speedKbps ) * threshold.level / Threshold::wholeLink
                : 0;
}

bool
broadcastSkips( StormControlSmHelper const & platform, IntfConfig const & config ) {
   return decideLevel( platform, levelTypeAll, config.all() ).isDefault() &&
          !decideLevel( platform, levelTypeMulticast, config.multicast() ).isDefault();
}

} // namespace Hoba
