// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaHelper.h"
#include "Hoba/HobaStormControlRate.h"
#include "agent/features/FeatureCommands.h"

#include <algorithm>
#include <cstdio>

namespace HobaAgent {

using namespace Bridging::StormControl;
using Hoba::LevelType;
using Kiv::Datum;
using Kiv::String;

namespace {

String
thresholdText( Threshold const & threshold ) {
   switch( threshold.mode ) {
   case meteringPps:
      return Kiv::toText( threshold.rate ) + " pps";
   case meteringBps:
      return Kiv::toText( threshold.rate ) + ( threshold.unit == unitBps    ? " bps"
                                               : threshold.unit == unitMbps ? " Mbps"
                                                                            : " kbps" );
   default: {
      char text[ 32 ];
      std::snprintf( text, sizeof text, "%u.%02u%%", threshold.level / 100, threshold.level % 100 );
      return text;
   }
   }
}

String
limitText( HobaSim::StormLimit const & limit ) {
   if( !limit.limited ) {
      return "-";
   }
   return Kiv::toText( limit.rate ) + ( limit.unit == unitPps ? " pps" : " kbps" );
}

String
stateText( Switch const & sw, Pelt::IntfId intf, LevelState state ) {
   switch( state ) {
   case notConfigured:
      return "not configured";
   case programmed:
      return "programmed";
   case speedUnknown:
      return "speed unknown";
   case memberOfLag:
      return "member of " + Kiv::toText( sw.context->portToLag( intf ) );
   case lagHasNoMember:
      return "no active member";
   case meteringModeNotSupported:
      return "metering mode not supported";
   case zeroRateNotSupported:
      return "zero rate not supported";
   case levelNotSupported:
      return "level not supported";
   case intfNotPresent:
      return "no such port";
   case intfInactive:
      return "port is inactive";
   case supersededByAll:
      return "superseded by all";
   }
   return "?";
}

// What the chip holds: of a port its limit, of a LAG those of its members.
String
chipText( Switch const & sw, Pelt::IntfId intf, LevelType levelType ) {
   auto const limitOf = [ & ]( Pelt::IntfId port ) {
      return limitText( sw.chip->stormControl()->limit( { port, levelType } ) );
   };
   if( !Hoba::isPortChannel( intf ) ) {
      return limitOf( intf );
   }
   // Members of one speed have one limit: a line of 64 equal ones would say less.
   std::vector< std::pair< String, unsigned > > limits;
   for( auto port : sw.context->lagToPort( intf ).port ) {
      auto const text = limitOf( port );
      auto const same = std::find_if( limits.begin(), limits.end(),
                                      [ & ]( auto const & l ) { return l.first == text; } );
      if( same == limits.end() ) {
         limits.emplace_back( text, 1 );
      } else {
         ++same->second;
      }
   }
   String text;
   for( auto const & [ limit, ports ] : limits ) {
      text += ( text.empty() ? "" : ", " ) + std::to_string( ports ) + " x " + limit;
   }
   return text.empty() ? "-" : text;
}

// What the level comes to, over all members of a LAG. Levels in packets a second come to none.
Datum
rateCell( Switch const & sw, Pelt::IntfId intf, LevelStatus const & level ) {
   if( level.threshold.isDefault() || level.threshold.mode == meteringPps ) {
      return "-";
   }
   if( level.threshold.mode == meteringPercent ) {
      return level.rate;
   }
   // The status has no rate of these: each port has the whole level, whatever its speed.
   std::uint64_t ports = 1;
   if( Hoba::isPortChannel( intf ) ) {
      auto const & members = sw.context->lagToPort( intf ).port;
      ports = static_cast< std::uint64_t >(
            std::count_if( members.begin(), members.end(), [ & ]( Pelt::IntfId port ) {
               auto const status = sw.ethPhyIntfStatusDir->ethPhyIntfStatus( port );
               return status && Interface::speedToKbps( status->speed() ) != 0;
            } ) );
   }
   return level.threshold.rateKbps() * ports;
}

Datum
show( Switch const & sw, Pelt::IntfId only, std::vector< String > const & notes ) {
   TableAnswer table(
         { "Interface", "Level", "Threshold", "Speed", "Rate (kbps)", "Chip", "Drops", "State" } );
   if( only && !sw.stormControlConfig->intfConfigHas( only ) ) {
      table.note( Kiv::toText( only ) + " has no storm control configured" );
   }
   for( auto const intf : sortedKeys( sw.stormControlConfig->intfConfig() ) ) {
      auto const config = sw.stormControlConfig->intfConfig( intf );
      auto const status = sw.stormControlStatus->intfStatus( intf );
      if( ( only && intf != only ) || !status ) {
         continue;
      }
      std::uint64_t const drops[] = { status->broadcastDrop(), status->multicastDrop(),
                                      status->uucastDrop(), status->allDrop() };
      for( auto levelType : Hoba::allLevelTypes ) {
         auto const & asked = Hoba::configuredThreshold( *config, levelType );
         if( asked.isDefault() ) {
            continue;
         }
         auto const & level = Hoba::levelStatus( *status, levelType );
         table.row( { Kiv::toText( intf ), String( Hoba::levelText( levelType ).substr( 1 ) ),
                      thresholdText( asked ), speedText( status->speed() ),
                      rateCell( sw, intf, level ), chipText( sw, intf, levelType ),
                      drops[ levelType ], stateText( sw, intf, level.state ) } );
      }
   }
   if( !only ) {
      table.count( "level" );
   }
   for( auto const & note : notes ) {
      table.note( note );
   }
   return table.take();
}

Datum
showTrafficClasses( Switch const & sw ) {
   TableAnswer table( { "Traffic class", "Threshold", "Chip" } );
   auto const & chip = *sw.chip->stormControl();
   for( auto const & [ trafficClass, config ] : sw.stormControlConfig->aggregateTcConfig() ) {
      table.row( { trafficClass, thresholdText( config->level() ),
                   trafficClass < chip.trafficClasses()
                         ? thresholdText( chip.trafficClass( trafficClass ) )
                         : "the chip has no such class" } );
   }
   return table.take();
}

} // namespace

void
addStormControlCommands( Commands & commands, Switch & sw,
                         std::function< std::vector< String >() > notes ) {
   commands.add( { .name = "show storm-control",
                   .help = "Levels of interfaces: what is configured, what the chip holds, and why "
                           "not",
                   .arguments = { { "intf", "Only this interface" } },
                   .handler = [ &sw, notes ]( Request const & request ) {
                      auto const only = request.value< Pelt::IntfId >( "intf" );
                      return show( sw, only, only ? std::vector< String >() : notes() );
                   } } );
   commands.add( { .name = "show storm-control-traffic-classes",
                   .help = "Levels of traffic classes, over all interfaces together",
                   .handler = [ &sw ]( Request const & ) { return showTrafficClasses( sw ); } } );
}

} // namespace HobaAgent
