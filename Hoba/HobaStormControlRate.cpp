// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaStormControlRate.h"

namespace Hoba {

using namespace Bridging::StormControl;
using Helper = StormControlSmHelper;

namespace {

constexpr Level levels[] = {
      { " broadcast", &IntfConfig::broadcast, &IntfStatus::broadcast, &IntfStatus::broadcastIs,
        &IntfStatus::broadcastDropIs, &Helper::getBcastDropCnt, nullptr },
      { " multicast", &IntfConfig::multicast, &IntfStatus::multicast, &IntfStatus::multicastIs,
        &IntfStatus::multicastDropIs, &Helper::getMcastDropCnt, nullptr },
      { " uucast", &IntfConfig::uucast, &IntfStatus::uucast, &IntfStatus::uucastIs,
        &IntfStatus::uucastDropIs, &Helper::getUUcastDropCnt, &Helper::uucastLevelEnabled },
      { " all", &IntfConfig::all, &IntfStatus::all, &IntfStatus::allIs, &IntfStatus::allDropIs,
        &Helper::getAllDropCnt, &Helper::allLevelEnabled } };

bool
levelSupported( Helper const & platform, LevelType levelType ) {
   auto const supported = levelOf( levelType ).supported;
   return !supported || ( platform.*supported )();
}

bool
meteringSupported( Helper const & platform, MeteringMode mode ) {
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

Level const &
levelOf( LevelType levelType ) {
   return levels[ levelType ];
}

std::string_view
levelText( LevelType levelType ) {
   return levelType < levelTypeMax ? levelOf( levelType ).text : " none";
}

Threshold const &
configuredThreshold( IntfConfig const & config, LevelType levelType ) {
   return ( config.*levelOf( levelType ).configured )();
}

LevelStatus const &
levelStatus( IntfStatus const & status, LevelType levelType ) {
   return ( status.*levelOf( levelType ).status )();
}

LevelDecision
decideLevel( Helper const & platform, LevelType levelType, Threshold const & asked ) {
   auto const why = asked.isDefault() ? std::optional( notConfigured ) : std::nullopt;
   if( !levelSupported( platform, levelType ) ) {
      return { false, why.value_or( levelNotSupported ), {} };
   }
   if( !meteringSupported( platform, asked.mode ) ) {
      return { true, meteringModeNotSupported, {} };
   }
   if( asked.level == 0 && asked.rate == 0 && !platform.zeroRateEnabled() ) {
      return { false, zeroRateNotSupported, {} };
   }
   return { true, why, asked };
}

LevelDecisions
decideLevels( Helper const & platform, IntfConfig const * config ) {
   LevelDecisions decisions;
   for( auto levelType : allLevelTypes ) {
      decisions[ levelType ] = decideLevel(
            platform, levelType, config ? configuredThreshold( *config, levelType ) : Threshold{} );
   }
   return decisions;
}

LevelDecision
decideLevelOnPort( LevelDecisions const & asked, LevelType levelType, bool allStands ) {
   auto const & alone = asked[ levelType ];
   auto const & all = asked[ levelTypeAll ];
   bool const supported = alone.program || alone.refused();
   bool const covered = ( levelType == levelTypeBroadcast || levelType == levelTypeUUcast ) &&
                        supported && ( all.refused() ? allStands : !all.isDefault() );
   if( !covered ) {
      return alone;
   }
   return { true, alone.why == notConfigured ? notConfigured : supersededByAll, {} };
}

bool
broadcastSkips( LevelDecisions const & asked ) {
   return asked[ levelTypeAll ].isDefault() && !asked[ levelTypeMulticast ].isDefault();
}

std::uint64_t
rateOf( std::uint32_t speedKbps, Threshold const & threshold ) {
   return threshold.mode == meteringPercent
                ? std::uint64_t( speedKbps ) * threshold.level / Threshold::wholeLink
                : 0;
}

} // namespace Hoba
