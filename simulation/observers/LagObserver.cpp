// SPDX-License-Identifier: Apache-2.0
#include "simulation/observers/LagObserver.h"

#include <algorithm>

namespace Simulation {

using Kiv::String;
using Kiv::toText;
using Pelt::IntfId;

namespace {

String const lagPath = "/feeders/config/lag/";
String const inputPath = "/lag/input/config/ethPhyIntfLagConfig/";

bool
has( LagObserver::Ports const & ports, IntfId port ) {
   return std::ranges::find( ports, port ) != ports.end();
}

} // namespace

LagObserver::LagObserver( Switch & simulated, Observers & observers )
      : Observer( simulated, observers, "LAGs" ),
        config_( simulated.entity< Feeders::Config >( "/feeders/config" ) ),
        input_( simulated.entity< ::Lag::Input::Config >( "/lag/input/config" ) ),
        ports_( observers.find< PortsObserver >() ) {
   // What a write makes is there before the rest of it is written: a LAG is enabled first.
   for( auto const * const made : { "/feeders/config/port", "/feeders/config/lag" } ) {
      simulated.watch( made, [ &observers ] { observers.follow(); } );
   }
   // Also in the middle of things: every active member of a LAG is known to be one.
   simulated.watch( "/hoba/common/lagToPort", [ this ] {
      auto const ways = rowsAt( "/hoba/common/portToLag" );
      for( auto const & [ lag, list ] : rowsAt( "/hoba/common/lagToPort" ) ) {
         for( auto const & [ port, model ] : ports_.ports() ) {
            auto const way = ways.find( toText( port ) );
            if( list.find( '"' + toText( port ) + '"' ) != String::npos &&
                ( way == ways.end() || way->second != lag ) ) {
               found( toText( port ) + " is a member of " + lag + " and not known to be one" );
            }
         }
      }
   } );
}

// ---- What happens to LAGs

void
LagObserver::prepare( Draw & draw, Steps & steps ) {
   for( auto n = draw.below( 8 ); n != 0; --n ) {
      propose( draw, steps );
   }
}

void
LagObserver::propose( Draw & draw, Steps & steps ) {
   auto const lag = draw.lag();
   auto const port = draw.port();
   auto const kind = draw.below( 20 );
   bool const mostly = draw.chance( 75 );
   auto const number = std::to_string( draw.below( 4 ) );
   auto const flag = mostly ? " true" : " false";
   auto const set = "set " + lagPath + lag;
   if( kind < 6 ) {
      steps.push_back( "sim lag " + port + ' ' + lag );
   } else if( kind < 9 ) {
      steps.push_back( "set " + inputPath + port + ' ' + lag );
   } else if( kind < 11 ) {
      steps.push_back( mostly ? "sim lag " + port + " none" : "del " + inputPath + port );
   } else if( kind < 12 ) {
      steps.push_back( "del " + lagPath + lag );
   } else if( kind < 14 ) {
      steps.push_back( set + "/minLinks " + number );
   } else if( kind < 15 ) {
      steps.push_back( set + "/enabled" + flag );
   } else if( kind < 16 ) {
      steps.push_back( set + "/kind " + ( mostly ? "lagTypeLacp" : "lagTypeStatic" ) );
   } else if( kind < 17 ) {
      steps.push_back( set + "/lacpPartner" + flag );
   } else if( kind < 18 ) {
      steps.push_back( set + "/lacpFallback" + flag );
   } else if( kind < 19 ) {
      faults_.propose( draw, steps );
   } else {
      steps.push_back( draw.oneOf( { "sim lag Ethernet1 Ethernet2", "sim lag Ethernet99 none",
                                     "set /feeders/config/lag/Port-Channel1/minLinks 65536",
                                     "set /feeders/config/lag/Port-Channel1/kind lagTypeLoose",
                                     "del /feeders/config/lag/Port-Channel7" } ) );
   }
}

Observer::Verdict
LagObserver::judge( Step const & step ) const {
   if( faults_.isMine( step ) ) {
      return accepts;
   }
   if( step.begins( "sim lag" ) ) {
      bool const isLag = step[ 3 ] == "none" || step[ 3 ].starts_with( "Port-Channel" );
      return isLag && ports_.isConfigured( IntfId( step[ 2 ] ) ) ? accepts : refuses;
   }
   if( step.isAt( "/lag/input/config" ) ) {
      auto const port = step[ 1 ].substr( inputPath.size() );
      return step[ 0 ] == "set" || input_->ethPhyIntfLagConfigHas( IntfId( port ) ) ? accepts
                                                                                    : refuses;
   }
   if( !step.isAt( "/feeders/config/lag" ) ) {
      return notMine;
   }
   if( step[ 0 ] == "del" ) {
      auto const lag = step[ 1 ].substr( lagPath.size() );
      return config_->lagHas( Pelt::PortChannelIntfId::parse( lag ) ) ? accepts : refuses;
   }
   return step[ 2 ] == "65536" || step[ 2 ] == "lagTypeLoose" ? refuses : accepts;
}

// ---- The model

std::vector< IntfId >
LagObserver::lags() const {
   std::vector< IntfId > all;
   for( auto const & [ lag, model ] : lags_ ) {
      all.push_back( lag );
   }
   return all;
}

LagObserver::Ports
LagObserver::active( IntfId lag ) const {
   return has( lag ) ? lags_.at( lag ).active : Ports();
}

IntfId
LagObserver::lagOf( IntfId port ) const {
   for( auto const & [ lag, model ] : lags_ ) {
      if( Simulation::has( model.active, port ) ) {
         return lag;
      }
   }
   return {};
}

IntfId
LagObserver::configuredLagOf( IntfId port ) const {
   for( auto const & [ lag, model ] : lags_ ) {
      if( Simulation::has( model.configured, port ) ) {
         return lag;
      }
   }
   return {};
}

LagObserver::Ports
LagObserver::asked( IntfId lag ) const {
   Ports ports;
   for( auto const & [ port, inLag ] : input_->ethPhyIntfLagConfig() ) {
      if( inLag == lag && ports_.has( port ) ) {
         ports.push_back( port );
      }
   }
   return ports;
}

void
LagObserver::heard( Step const & step, Kiv::Datum const & ) {
   faults_.heard( step );
   if( simulated().isRunning() && step.begins( "sim lag" ) && step[ 3 ] != "none" ) {
      // The command makes the LAG first, and then the port joins, as the last one.
      IntfId const lag( step[ 3 ] ), port( step[ 2 ] );
      auto const before = askedBefore_.find( port );
      if( !has( lag ) && ( before == askedBefore_.end() || before->second != lag ) ) {
         auto others = asked( lag );
         std::erase( others, port );
         lags_[ lag ].configured = others;
      }
   }
}

// A LAG lists first who waited for it, then who comes, one after the other.
void
LagObserver::follow() {
   askedBefore_.clear();
   for( auto const & [ port, lag ] : input_->ethPhyIntfLagConfig() ) {
      askedBefore_[ port ] = lag;
   }
   if( !simulated().isRunning() ) {
      return;
   }
   std::erase_if( lags_, [ this ]( auto const & lag ) {
      return !config_->lagHas( Pelt::PortChannelIntfId( lag.first ) );
   } );
   for( auto const & [ lag, config ] : config_->lag() ) {
      auto & model = lags_[ lag ];
      auto const ports = asked( lag );
      std::erase_if( model.configured,
                     [ & ]( IntfId port ) { return !Simulation::has( ports, port ); } );
      for( auto const port : ports ) {
         if( !Simulation::has( model.configured, port ) ) {
            model.configured.push_back( port );
         }
      }
      followMembers( lag, model );
   }
}

// A port is an active member while it is active and its LAG is enabled, has its partner, and has as many
// such ports as it asks for.
void
LagObserver::followMembers( IntfId lag, Lag & model ) {
   auto const config = config_->lag( Pelt::PortChannelIntfId( lag ) );
   auto candidates = model.configured;
   std::erase_if( candidates, [ this ]( IntfId port ) { return !ports_.isActive( port ); } );
   bool const waits = config->kind() == HobaTypes::lagTypeLacp && !config->lacpPartner();
   if( !config->enabled() || waits || candidates.size() < config->minLinks() ) {
      candidates.clear();
   }
   std::erase_if( model.active,
                  [ & ]( IntfId port ) { return !Simulation::has( candidates, port ); } );
   for( auto const port : candidates ) {
      if( !Simulation::has( model.active, port ) ) {
         model.active.push_back( port );
      }
   }
}

void
LagObserver::began( HobaAgent::RestartKind ) {
   auto const before = ways();
   lags_.clear();
   follow();
   // Otherwise only after something was asked for while no machine ran.
   auto const after = ways();
   writes_ = static_cast< std::uint64_t >( std::ranges::count_if( after, [ & ]( auto const & way ) {
      auto const was = before.find( way.first );
      return was == before.end() || was->second != way.second;
   } ) );
   swept_ = static_cast< std::uint64_t >( std::ranges::count_if(
         before, [ & ]( auto const & way ) { return !after.contains( way.first ); } ) );
}

Rows
LagObserver::ways() const {
   Rows ways;
   for( auto const & [ lag, model ] : lags_ ) {
      for( auto const port : model.active ) {
         ways[ toText( port ) ] = toText( lag );
      }
   }
   return ways;
}

namespace {

String
listText( LagObserver::Ports const & ports ) {
   String text;
   for( auto const port : ports ) {
      text += ( text.empty() ? "\"" : ", \"" ) + toText( port ) + '"';
   }
   return "{\"port\": [" + text + "]}";
}

} // namespace

void
LagObserver::check() {
   Rows configured, active, kinds, individually, configuredLag;
   for( auto const & [ lag, model ] : lags_ ) {
      auto const name = toText( lag );
      auto const config = config_->lag( Pelt::PortChannelIntfId( lag ) );
      configured[ name ] = listText( model.configured );
      active[ name ] = listText( model.active );
      kinds[ name ] = toText( config->kind() );
      for( auto const port : model.configured ) {
         configuredLag[ toText( port ) ] = name;
      }
      if( config->enabled() && config->kind() == HobaTypes::lagTypeLacp && !config->lacpPartner() &&
          config->lacpFallback() ) {
         individually[ name ] = "true";
      }
   }
   expectRows( "/hoba/common/lagToPortConfig", configured );
   expectRows( "/hoba/common/lagToPort", active );
   expectRows( "/hoba/common/lagToLagType", kinds );
   expectRows( "/hoba/common/lagInLacpFallbackIndividualMode", individually );
   expectRows( "/hoba/common/portToLag", ways() );
   expectRows( "/sim/chip/trunk/lag", ways() );
   expectRows( "/hoba/machines/lagFeeder/configuredLag", configuredLag );
   expectRows( "/hoba/machines/chipLag/refused", {} );
}

SIMULATION_OBSERVER( LagObserver );

} // namespace Simulation
