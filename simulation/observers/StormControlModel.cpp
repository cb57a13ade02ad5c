// SPDX-License-Identifier: Apache-2.0
#include "simulation/observers/StormControlModel.h"

#include <algorithm>

namespace Simulation {

using namespace Bridging::StormControl;
using Kiv::String;

namespace {

bool
isLag( Pelt::IntfId intf ) {
   return Pelt::PortChannelIntfId::isPortChannelIntfId( intf );
}

Threshold const &
noThreshold() {
   static Threshold const none{ meteringPercent, 10000, 0, unitPercent };
   return none;
}

// The value at the key, or none.
template< class Map, class Key >
auto
at( Map const & map, Key const & key ) {
   auto const found = map.find( key );
   return found == map.end() ? std::nullopt : std::optional( found->second );
}

} // namespace

// ---- What is asked for, and what comes of it

bool
StormControlModel::has( Level level ) const {
   return level == uucast ? chip_.uucastLevel : level != all || chip_.allLevel;
}

StormControlModel::Asked
StormControlModel::asked( Intf intf, Level level ) const {
   auto const & threshold = is_.intfs.at( intf )[ level ];
   bool const canMeter[] = { true, chip_.ppsMetering, chip_.bpsMetering };
   if( threshold == noThreshold() ) {
      return none;
   }
   if( !has( level ) ) {
      return unsupported;
   }
   if( !canMeter[ threshold.mode ] ) {
      return unmetered;
   }
   bool const isZero = threshold.level == 0 && threshold.rate == 0;
   return isZero && !chip_.zeroRate ? refusedZero : wanted;
}

bool
StormControlModel::isNone( Intf intf, Level level ) const {
   auto const what = asked( intf, level );
   return what != wanted && what != refusedZero;
}

bool
StormControlModel::isCovered( Intf intf, Level level, bool allStands ) const {
   bool const canBe = has( level ) && ( level == broadcast || level == uucast );
   auto const byAll = asked( intf, all );
   return canBe && ( byAll == wanted || ( byAll == refusedZero && allStands ) );
}

bool
StormControlModel::wantsSkip( Intf intf ) const {
   return isNone( intf, all ) && !isNone( intf, multicast );
}

StormLimitRow
StormControlModel::limitOf( Threshold const & threshold, std::uint64_t kbps, Intf parent ) {
   std::uint64_t const rate = threshold.rate;
   if( threshold.mode == meteringPps ) {
      return { true, rate, unitPps, parent };
   }
   if( threshold.mode == meteringBps ) {
      auto const inKbps = threshold.unit == unitBps    ? rate / 1000
                          : threshold.unit == unitMbps ? rate * 1000
                                                       : rate;
      return { true, inKbps, unitKbps, parent };
   }
   return { true, kbps * threshold.level / 10000, unitKbps, parent };
}

// ---- What there is

bool
StormControlModel::exists( Intf intf ) const {
   return isLag( intf ) || is_.ports.contains( intf );
}

std::vector< Pelt::IntfId >
StormControlModel::portsOf( Intf intf ) const {
   if( isLag( intf ) ) {
      return at( is_.lags, intf ).value_or( std::vector< Intf >() );
   }
   return exists( intf ) ? std::vector{ intf } : std::vector< Intf >();
}

std::uint64_t
StormControlModel::speedOf( Intf intf ) const {
   std::uint64_t kbps = 0;
   for( auto const port : portsOf( intf ) ) {
      kbps += is_.ports.at( port ).kbps;
   }
   return kbps;
}

bool
StormControlModel::takesPart( Intf port ) const {
   return is_.ports.at( port ).active || !chip_.dynamicLogicalPorts;
}

Pelt::IntfId
StormControlModel::governs( Intf port ) const {
   auto const lag = is_.ports.at( port ).lag;
   auto const intf = lag ? lag : port;
   return takesPart( port ) && is_.intfs.contains( intf ) ? intf : Intf();
}

// Nothing of its own levels can be put on a port.
bool
StormControlModel::isBlocked( Intf intf ) const {
   return !isLag( intf ) && ( !exists( intf ) || governs( intf ) != intf || speedOf( intf ) == 0 );
}

// ---- What the machine does

void
StormControlModel::put( LevelKey const & key, std::optional< StormHeldRow > const & row ) {
   if( row ) {
      limit.program( key, limitOf( row->threshold, row->speedKbps, row->parent ) );
      held.insert_or_assign( key, *row );
   } else {
      limit.program( key, std::nullopt );
      held.erase( key );
   }
}

bool
StormControlModel::allHeld( Intf intf, Intf port ) const {
   auto const row = at( held, LevelKey{ port, all } );
   return row && row->parent == intf;
}

void
StormControlModel::applyTo( Intf intf, Level level, Intf port ) {
   auto const kbps = is_.ports.at( port ).kbps;
   if( kbps == 0 || !has( level ) ) {
      return; // what stands there stays
   }
   if( isNone( intf, level ) || isCovered( intf, level, allHeld( intf, port ) ) ) {
      put( { port, level }, std::nullopt );
   } else if( asked( intf, level ) == wanted ) {
      auto const speed = static_cast< std::uint32_t >( kbps );
      put( { port, level }, StormHeldRow{ intf, is_.intfs.at( intf )[ level ], speed } );
   } // a zero that is refused leaves what stands there
}

void
StormControlModel::apply( Intf intf, std::span< Level const > these ) {
   if( !is_.intfs.contains( intf ) || isBlocked( intf ) ) {
      return;
   }
   for( auto const level : these ) {
      for( auto const port : portsOf( intf ) ) {
         applyTo( intf, level, port );
      }
   }
   if( std::ranges::any_of( these, [ this ]( Level level ) { return has( level ); } ) ) {
      bcastSkip.program( intf, wantsSkip( intf ) ? std::optional( true ) : std::nullopt );
   }
}

void
StormControlModel::clear( Intf intf ) {
   if( !exists( intf ) ) {
      return; // what the chip held when it went stays
   }
   for( auto const level : allLevels ) {
      for( auto const port : portsOf( intf ) ) {
         if( has( level ) ) {
            put( { port, level }, std::nullopt );
         }
      }
   }
   bcastSkip.program( intf, std::nullopt );
}

// ---- What happens

// A port goes out of service before it goes, so that its LAG lets go of one that still is there.
void
StormControlModel::portWent( Intf intf, Port const & was ) {
   is_.ports[ intf ] = { was.kbps, false, {} };
   if( was.lag || ( chip_.dynamicLogicalPorts && was.active ) ) {
      clear( intf );
   }
   if( was.lag ) {
      apply( intf, allLevels );
   }
   is_.ports.erase( intf );
}

void
StormControlModel::portsAre( Inputs const & before ) {
   for( auto const & [ intf, was ] : before.ports ) {
      if( !is_.ports.contains( intf ) ) {
         portWent( intf, was );
      }
   }
   for( auto const & [ intf, port ] : is_.ports ) {
      auto const was = at( before.ports, intf );
      bool const moved = !was || was->lag != port.lag;
      bool const comesAndGoes = chip_.dynamicLogicalPorts && ( !was || was->active != port.active );
      if( moved || ( comesAndGoes && !port.active ) ) {
         clear( intf );
      }
      if( moved || comesAndGoes || was->kbps != port.kbps ) {
         apply( intf, allLevels );
      }
   }
}

void
StormControlModel::lagsAre( Inputs const & before ) {
   auto const speedsOf = []( Inputs const & inputs, Intf lag ) {
      std::vector< std::pair< Intf, std::uint64_t > > speeds;
      for( auto const port : inputs.lags.at( lag ) ) {
         speeds.emplace_back( port, inputs.ports.at( port ).kbps );
      }
      return speeds;
   };
   for( auto const & [ lag, members ] : is_.lags ) {
      if( !before.lags.contains( lag ) || speedsOf( before, lag ) != speedsOf( is_, lag ) ) {
         apply( lag, allLevels );
      }
   }
   for( auto const & [ lag, members ] : before.lags ) {
      if( !is_.lags.contains( lag ) ) {
         apply( lag, allLevels );
      }
   }
}

// The all-traffic level goes first, so that it covers others or gives way to them.
void
StormControlModel::levelIs( Intf intf, Level level ) {
   static constexpr Level covering[] = { all, broadcast, uucast };
   if( level != all || asked( intf, all ) == refusedZero ) {
      apply( intf, std::span( &allLevels[ level ], 1 ) );
   } else if( isNone( intf, all ) ) {
      apply( intf, allLevels );
   } else {
      apply( intf, covering );
   }
}

void
StormControlModel::intfsAre( Inputs const & before ) {
   for( auto const & [ intf, was ] : before.intfs ) {
      // What stands on a member of a LAG is the LAG's.
      bool const isMember = is_.ports.contains( intf ) && is_.ports.at( intf ).lag;
      if( !is_.intfs.contains( intf ) && !isMember ) {
         clear( intf );
      }
   }
   for( auto const & [ intf, thresholds ] : is_.intfs ) {
      auto const was = at( before.intfs, intf );
      for( auto const level : allLevels ) {
         if( was && ( *was )[ level ] != thresholds[ level ] ) {
            levelIs( intf, level );
         }
      }
      if( !was ) {
         apply( intf, allLevels );
      }
   }
}

void
StormControlModel::trafficClassesAre( Inputs const & before ) {
   for( auto const & [ number, threshold ] : before.trafficClasses ) {
      if( !is_.trafficClasses.contains( number ) ) {
         trafficClass.program( number, std::nullopt );
      }
   }
   for( auto const & [ number, threshold ] : is_.trafficClasses ) {
      if( at( before.trafficClasses, number ) != threshold ) {
         trafficClass.program( number, threshold == noThreshold() ? std::nullopt
                                                                  : std::optional( threshold ) );
      }
   }
}

void
StormControlModel::burstsAre( Inputs const & before ) {
   if( !chip_.burst ) {
      return;
   }
   for( auto const & [ name, time ] : before.bursts ) {
      if( !is_.bursts.contains( name ) ) {
         burstTime.program( name, std::nullopt );
      }
   }
   for( auto const & [ name, time ] : is_.bursts ) {
      if( at( before.bursts, name ) != time ) {
         burstTime.program( name, time == 0 ? std::nullopt : std::optional( time ) );
      }
   }
}

void
StormControlModel::inputsAre( Inputs const & inputs ) {
   auto const before = std::exchange( is_, inputs );
   portsAre( before );
   lagsAre( before );
   intfsAre( before );
   trafficClassesAre( before );
   burstsAre( before );
}

void
StormControlModel::begin( Chip const & chip, Inputs const & inputs ) {
   limit.beginPass();
   bcastSkip.beginPass();
   trafficClass.beginPass();
   burstTime.beginPass();
   rule.beginPass();
   held.clear();
   chip_ = chip;
   is_ = inputs;
   if( !chip.chipStormControl ) {
      rule.program( "trafficClasses", true );
   }
   intfsAre( {} );
   trafficClassesAre( {} );
   burstsAre( {} );
   limit.sweep();
   bcastSkip.sweep();
   trafficClass.sweep();
   burstTime.sweep();
   rule.sweep();
}

void
StormControlModel::reset() {
   limit.rows.clear();
   bcastSkip.rows.clear();
   trafficClass.rows.clear();
   burstTime.rows.clear();
   rule.rows.clear();
}

std::uint64_t
StormControlModel::writes() const {
   return limit.writes + bcastSkip.writes + trafficClass.writes + burstTime.writes + rule.writes;
}

std::uint64_t
StormControlModel::swept() const {
   return limit.swept + bcastSkip.swept + trafficClass.swept + burstTime.swept + rule.swept;
}

// ---- Status

LevelState
StormControlModel::stateOf( Intf intf, Level level ) const {
   auto const what = asked( intf, level );
   if( what == none || what == unsupported ) {
      return what == none ? notConfigured : levelNotSupported;
   }
   auto const ports = portsOf( intf );
   auto obstacle = programmed;
   if( ports.empty() ) {
      obstacle = isLag( intf ) ? lagHasNoMember : intfNotPresent;
   } else if( !isLag( intf ) && is_.ports.at( intf ).lag ) {
      obstacle = memberOfLag;
   } else if( !isLag( intf ) && !takesPart( intf ) ) {
      obstacle = intfInactive;
   } else if( speedOf( intf ) == 0 ) {
      obstacle = speedUnknown;
   } else if( std::ranges::all_of( ports, [ & ]( Intf port ) {
                 return is_.ports.at( port ).kbps == 0 ||
                        isCovered( intf, level, allHeld( intf, port ) );
              } ) ) {
      return supersededByAll;
   }
   if( what == refusedZero ) {
      return zeroRateNotSupported;
   }
   return obstacle == programmed && what == unmetered ? meteringModeNotSupported : obstacle;
}

LevelStatus
StormControlModel::levelStatus( Intf intf, Level level ) const {
   LevelStatus status;
   status.state = stateOf( intf, level );
   for( auto const port : portsOf( intf ) ) {
      auto const row = at( held, LevelKey{ port, level } );
      // A member of a LAG whose speed is not known adds nothing.
      bool const counts = port == intf || is_.ports.at( port ).kbps != 0;
      if( row && row->parent == intf && counts ) {
         status.threshold = status.threshold == noThreshold() ? row->threshold : status.threshold;
         status.rate += row->threshold.mode == meteringPercent
                              ? limitOf( row->threshold, row->speedKbps, intf ).rate
                              : 0;
      }
   }
   return status;
}

} // namespace Simulation
