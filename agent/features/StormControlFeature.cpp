// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaHelper.h"
#include "Hoba/HobaStormControlRate.h"
#include "Hoba/HobaStormControlSm.h"
#include "agent/features/Feature.h"
#include "agent/features/Words.h"
#include "agent/import/Tables.h"
#include "chips/sim/SimChip.h"

#include <algorithm>
#include <cstdio>

// Storm control.

namespace HobaAgent {

using namespace Bridging::StormControl;
using Hoba::LevelType;
using Kiv::Datum;
using Kiv::String;

class StormControlFeature : public Feature {
 public:
   explicit StormControlFeature( Board & board ) : Feature( board, "storm control" ) {}

   void mounts() override;
   void commands( Commands & commands ) override;
   void importers( Import::Tables & tables ) override;
   void start() override;

 private:
   HobaSim::StormUnit & unit() const { return *board().chip->stormControl(); }
   Datum show( Request const & request ) const;
   Datum showTrafficClasses( Request const & ) const;
   Datum drop( Request const & request );
   Datum forget( Request const & request );

   Kiv::Ptr< Config > const config_ = Kiv::make< Config >();
   Kiv::Ptr< Status > const status_ = Kiv::make< Status >();
   Machine< Hoba::StormControlSm > sm_{ *this, "stormControl" };
};

void
StormControlFeature::mounts() {
   // Ports and LAGs may come one day; the chip gets no more traffic classes.
   auto const knownTrafficClasses = [ this ]( Tessera::Path const & path ) {
      if( path[ path.size() - 2 ] == "aggregateTcConfig" ) {
         unit().checkTrafficClass( Kiv::fromText< std::uint16_t >( path.back() ) );
      }
   };
   mount( "/bridging/stormControl/config", config_, Tessera::Access::configuration,
          knownTrafficClasses );
   mount( "/bridging/stormControl/status", status_, Tessera::Access::status );
}

void
StormControlFeature::start() {
   sm_.is( Hoba::StormControlSm::StormControlSmIs(
         context(), config_, board().ethPhyIntfStatusDir, status_,
         Kiv::make< HobaSim::StormControlHelper >( board().chip->stormControl() ),
         board().lagInputConfig, board().clock() ) );
   sm_->initializedIs( true );
}

// ---- What operators see

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
stateText( Board const & board, Pelt::IntfId intf, LevelState state ) {
   switch( state ) {
   case notConfigured:
      return "not configured";
   case programmed:
      return "programmed";
   case speedUnknown:
      return "speed unknown";
   case memberOfLag:
      return "member of " + Kiv::toText( board.context()->portToLag( intf ) );
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
chipText( Board const & board, Pelt::IntfId intf, LevelType levelType ) {
   auto const limitOf = [ & ]( Pelt::IntfId port ) {
      return limitText( board.chip->stormControl()->limit( { port, levelType } ) );
   };
   if( !Hoba::isPortChannel( intf ) ) {
      return limitOf( intf );
   }
   // Members of one speed have one limit: a line of 64 equal ones would say less.
   std::vector< std::pair< String, unsigned > > limits;
   for( auto port : board.context()->lagToPort( intf ).port ) {
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
rateCell( Board const & board, Pelt::IntfId intf, LevelStatus const & level ) {
   if( level.threshold.isDefault() || level.threshold.mode == meteringPps ) {
      return "-";
   }
   if( level.threshold.mode == meteringPercent ) {
      return level.rate;
   }
   // The status has no rate of these: each port has the whole level, whatever its speed.
   std::uint64_t ports = 1;
   if( Hoba::isPortChannel( intf ) ) {
      auto const & members = board.context()->lagToPort( intf ).port;
      ports = static_cast< std::uint64_t >(
            std::count_if( members.begin(), members.end(), [ & ]( Pelt::IntfId port ) {
               auto const status = board.ethPhyIntfStatusDir->ethPhyIntfStatus( port );
               return status && Interface::speedToKbps( status->speed() ) != 0;
            } ) );
   }
   return level.threshold.rateKbps() * ports;
}

} // namespace

Datum
StormControlFeature::show( Request const & request ) const {
   auto const only = request.value< Pelt::IntfId >( "intf" );
   context(); // refused without machines, also while no row would need them
   TableAnswer table(
         { "Interface", "Level", "Threshold", "Speed", "Rate (kbps)", "Chip", "Drops", "State" } );
   if( only && !config_->intfConfigHas( only ) ) {
      table.note( Kiv::toText( only ) + " has no storm control configured" );
   }
   for( auto const intf : sortedKeys( config_->intfConfig() ) ) {
      auto const config = config_->intfConfig( intf );
      auto const status = status_->intfStatus( intf );
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
                      rateCell( board(), intf, level ), chipText( board(), intf, levelType ),
                      drops[ levelType ], stateText( board(), intf, level.state ) } );
      }
   }
   if( !only ) {
      table.count( "level" );
      for( auto const & note : board().importNotes( "PORT_STORM_CONTROL" ) ) {
         table.note( note );
      }
   }
   return table.take();
}

Datum
StormControlFeature::showTrafficClasses( Request const & ) const {
   TableAnswer table( { "Traffic class", "Threshold", "Chip" } );
   auto const & chip = unit();
   for( auto const & [ trafficClass, config ] : config_->aggregateTcConfig() ) {
      table.row( { trafficClass, thresholdText( config->level() ),
                   trafficClass < chip.trafficClasses()
                         ? thresholdText( chip.trafficClass( trafficClass ) )
                         : "the chip has no such class" } );
   }
   return table.take();
}

// ---- Traffic, and a chip that forgets

namespace {

LevelType
trafficOf( Request const & request ) {
   return request.oneOf< LevelType >( "traffic", { { "broadcast", Hoba::levelTypeBroadcast },
                                                   { "multicast", Hoba::levelTypeMulticast },
                                                   { "uucast", Hoba::levelTypeUUcast } } );
}

} // namespace

Datum
StormControlFeature::drop( Request const & request ) {
   auto const port = portIdOf( board(), request );
   auto const packets = request.value< std::uint64_t >( "packets" );
   auto const dropped = unit().inject( port, trafficOf( request ), packets,
                                       request.value< std::uint32_t >( "bytes", 64 ),
                                       request.value< double >( "seconds", 1.0 ) );
   return "dropped " + Kiv::toText( dropped ) + " of " + Kiv::toText( packets ) + " packets";
}

Datum
StormControlFeature::forget( Request const & request ) {
   auto const port = portIdOf( board(), request );
   unit().forget( port );
   return {};
}

void
StormControlFeature::commands( Commands & commands ) {
   using F = StormControlFeature;
   addShow( commands, *this, "show storm-control",
            "Levels of interfaces: what is configured, what the chip holds, and why not",
            { { "intf", "Only this interface" } }, &F::show );
   addShow( commands, *this, "show storm-control-traffic-classes",
            "Levels of traffic classes, over all interfaces together", {}, &F::showTrafficClasses );
   addInput( commands, *this, "sim drop",
             "Sends traffic into a port; tells what its limits dropped",
             { portArgument,
               { "traffic", "broadcast, multicast or uucast", true },
               { "packets", "How many", true },
               { "bytes", "Size of each; 64 unless given" },
               { "seconds", "Within which they come; 1 unless given" } },
             &F::drop );
   addInput( commands, *this, "sim forget",
             "Makes the chip forget the limits of a port, for verification to find",
             { portArgument }, &F::forget );
}

// ---- Imported configurations

namespace {

using StormPtr = Kiv::Ptr< Config >;

// What the levels are called in files.
struct StormType {
   std::string_view name;
   Threshold const & ( IntfConfig::*threshold )() const;
   void ( IntfConfig::*thresholdIs )( Kiv::Param< Threshold > );
};
constexpr std::array stormTypes = {
      StormType{ "broadcast", &IntfConfig::broadcast, &IntfConfig::broadcastIs },
      StormType{ "unknown-unicast", &IntfConfig::uucast, &IntfConfig::uucastIs },
      // Known to files, but no level of this system.
      StormType{ "unknown-multicast", nullptr, nullptr } };

StormType const &
stormType( std::string_view name ) {
   for( auto const & type : stormTypes ) {
      if( type.name == name ) {
         if( !type.thresholdIs ) {
            throw Kiv::ParseError( String( name ) + " is not a level of this system" );
         }
         return type;
      }
   }
   Kiv::inPlace( "storm_type",
                 [ & ] { Kiv::parseFailed( name, "one of broadcast, unknown-unicast" ); } );
   return stormTypes.front();
}

constexpr std::string_view stormForm = "<port or LAG>|<storm_type>";

// A level that is set for the interface, by its name in files.
String
stormLevelOf( StormPtr const & config, Pelt::IntfId intf ) {
   auto const present = config->intfConfig( intf );
   for( auto const & type : stormTypes ) {
      if( present && type.threshold && ( *present.*type.threshold )() != Threshold() ) {
         return Kiv::toText( intf ) + '|' + String( type.name );
      }
   }
   return {};
}

bool
hasStormLevel( StormPtr const & config, Import::Key const & key ) {
   auto const [ intfName, typeName ] = key.parts( stormForm );
   auto const & type = stormType( typeName );
   auto const present = config->intfConfig( Pelt::IntfId::parse( intfName ) );
   return present && ( *present.*type.threshold )() != Threshold();
}

void
mapPortStormControl( Import::Row & row, StormPtr const & config ) {
   auto const [ intfName, typeName ] = row.key().parts( stormForm );
   auto const intf = row.existing< Pelt::IntfId >( intfName, { "PORT", "PORTCHANNEL" } );
   auto const & type = stormType( typeName );
   row.identityIs( Kiv::toText( intf ) + '|' + String( typeName ) );
   auto const kbps = static_cast< std::uint32_t >( Import::Row::needed(
         "kbps", row.number( "kbps", std::numeric_limits< std::uint32_t >::max() ) ) );
   Threshold const threshold{ meteringBps, 0, kbps, unitKbps };
   row.operationIs( Kiv::toText( intf ) + " lets in " + Kiv::toText( kbps ) + " kbps of " +
                          String( typeName ),
                    [ config, intf, threshold, set = type.thresholdIs ] {
                       ( ( *config->intfConfigIs( intf ) ).*set )( threshold );
                    } );
}

void
delPortStormControl( Import::Row & row, StormPtr const & config ) {
   auto const [ intfName, typeName ] = row.key().parts( stormForm );
   auto const intf = Pelt::IntfId::parse( intfName );
   row.operationIs( "limit of " + String( typeName ) + " on " + Kiv::toText( intf ),
                    [ config, intf, set = stormType( typeName ).thresholdIs ] {
                       auto const present = config->intfConfig( intf );
                       ( ( *present ).*set )( Threshold() );
                       for( auto level : { present->broadcast(), present->multicast(),
                                           present->uucast(), present->all() } ) {
                          if( level != Threshold() ) {
                             return;
                          }
                       }
                       config->intfConfigDel( intf );
                    } );
}

} // namespace

void
StormControlFeature::importers( Import::Tables & tables ) {
   auto const config = config_;
   auto const ofIntf = [ config ]( Import::Key const & key ) {
      return stormLevelOf( config, key.id< Pelt::IntfId >() );
   };
   tables.add(
         { .name = "PORT_STORM_CONTROL",
           .refersTo = { { "PORT", ofIntf }, { "PORTCHANNEL", ofIntf } },
           .has = [ config ]( Import::Key const & key ) { return hasStormLevel( config, key ); },
           .map = [ config ]( Import::Row & row ) { mapPortStormControl( row, config ); },
           .del = [ config ]( Import::Row & row ) { delPortStormControl( row, config ); } } );
}

HOBA_FEATURE( StormControlFeature );

} // namespace HobaAgent
