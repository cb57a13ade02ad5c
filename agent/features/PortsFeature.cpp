// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Feature.h"
#include "agent/features/Words.h"
#include "agent/feeders/PortFeeder.h"
#include "agent/import/AdminStatus.h"
#include "chips/sim/SimChip.h"

// The ports of the switch: which there are, their cables and speeds.

namespace HobaAgent {

using Kiv::Datum;
using Kiv::String;

class PortsFeature : public Feature {
 public:
   explicit PortsFeature( Board & board ) : Feature( board, "ports" ) {}

   void mounts() override;
   void commands( Commands & commands ) override;
   void importers( Import::Tables & tables ) override;
   void start() override;

 private:
   Datum show( Request const & request ) const;
   Datum plug( Request const & request );
   Datum setSpeed( Request const & request );

   Machine< Feeders::PortFeeder > feeder_{ *this, "portFeeder" };
};

void
PortsFeature::mounts() {
   mount( "/feeders/config", board().feederConfig, Tessera::Access::configuration );
   mount( "/interface/status", board().ethPhyIntfStatusDir, Tessera::Access::status );
   mount( "/hoba/portStatus", board().portStatusDir, Tessera::Access::status );
}

void
PortsFeature::start() {
   // What a chip that went on knows of its links counts from the beginning: LAGs would otherwise have
   // members first that cannot be any.
   auto const linkOf = [ events = board().chip->events() ]( Pelt::IntfId intf ) {
      return events->link( intf ).linkStatus;
   };
   feeder_.is( Feeders::PortFeeder::PortFeederIs( context(), board().feederConfig,
                                                  board().ethPhyIntfStatusDir,
                                                  board().portStatusDir, linkOf ) );
   feeder_->initializedIs( true );
}

namespace {

String
linkText( Interface::LinkStatus link ) {
   switch( link ) {
   case Interface::linkUp:
      return "up";
   case Interface::linkDown:
      return "down";
   default:
      return "unknown";
   }
}

// The LAG that the operator put the port into, and whether the port takes part in it.
String
membershipText( Board const & board, Pelt::IntfId intf ) {
   auto const wanted = board.lagInputConfig->ethPhyIntfLagConfig( intf );
   if( !wanted ) {
      return "-";
   }
   auto const lag = Kiv::toText( wanted );
   return board.context()->portToLag( intf ) == wanted ? lag : lag + " (not active)";
}

} // namespace

Datum
PortsFeature::show( Request const & request ) const {
   auto const only = request.value< Pelt::IntfId >( "intf" );
   if( only && !context()->intfHas( only ) ) {
      throw Kiv::ParseError( Kiv::toText( only ) + " is not a port of this switch" );
   }
   context(); // refused without machines, also while no row would need them
   TableAnswer table( { "Interface", "Enabled", "Link", "Speed", "Active", "LAG" } );
   std::size_t up = 0;
   for( auto const intf : sortedKeys( board().feederConfig->port() ) ) {
      if( only && only != intf ) {
         continue;
      }
      auto const config = board().feederConfig->port( intf );
      auto const status = board().ethPhyIntfStatusDir->ethPhyIntfStatus( intf );
      auto const speed = status ? Interface::speedToKbps( status->speed() ) : 0;
      table.row( { Kiv::toText( intf ), config->enabled() ? "yes" : "no",
                   status ? linkText( status->linkStatus() ) : "-", speedText( speed ),
                   status && status->active() ? "yes" : "no", membershipText( board(), intf ) } );
      up += status && status->linkStatus() == Interface::linkUp ? 1 : 0;
   }
   if( !only ) {
      table.count( "port", ", " + std::to_string( up ) + " up" );
   }
   return table.take();
}

Datum
PortsFeature::plug( Request const & request ) {
   auto const port = portOf( board(), request );
   auto const state = linkStatusOf( request );
   // The chip reports what it sees of the cable.
   board().chip->events()->linkEvent( portIdOf( board(), request ), state );
   port->linkUpIs( state == Interface::linkUp );
   return {};
}

Datum
PortsFeature::setSpeed( Request const & request ) {
   portOf( board(), request )->speedIs( request.value< Interface::EthMbps >( "mbps" ) );
   return {};
}

void
PortsFeature::commands( Commands & commands ) {
   using F = PortsFeature;
   addShow( commands, *this, "show interfaces", "Ports: link, speed, and the LAG they are in",
            { { "intf", "Only this interface" } }, &F::show );
   addInput( commands, *this, "sim link", "Plugs the cable of a port in, or pulls it",
             { portArgument, { "state", "up or down", true } }, &F::plug );
   addInput( commands, *this, "sim speed", "The speed at which a port runs",
             { portArgument, { "mbps", "In Mb/s; 0 for unknown", true } }, &F::setSpeed );
   auto const interfaces = [ this ] {
      auto names = namesOf( sortedKeys( board().feederConfig->port() ) );
      for( auto & lag : namesOf( sortedKeys( board().feederConfig->lag() ) ) ) {
         names.push_back( std::move( lag ) );
      }
      return names;
   };
   commands.valuesAre( "intf", interfaces );
   commands.valuesAre( "port", interfaces );
}

// ---- Imported configurations

namespace {

using FeederPtr = Kiv::Ptr< Feeders::Config >;

void
mapPort( Import::Row & row, FeederPtr const & config ) {
   auto const intf = row.key().id< Pelt::EthIntfId >();
   row.identityIs( Kiv::toText( intf ) );
   auto const present = config->port( intf );
   auto const mbps = row.number( "speed", std::numeric_limits< std::uint32_t >::max() )
                           .value_or( present ? present->speed().value() : 0 );
   bool const known = Interface::speedFromMbps( mbps ) != Interface::speedUnknown;
   if( !known && mbps != 0 ) {
      row.remark( "speed " + Kiv::toText( mbps ) +
                  " Mb/s is not an Ethernet speed; taken as unknown" );
   }
   auto const speed = known ? Interface::EthMbps( mbps ) : Interface::EthMbps();
   bool const enabled =
         Import::adminUp( row, present ? std::optional( present->enabled() ) : std::nullopt );
   row.operationIs( "port " + Kiv::toText( intf ) + ", " + Import::upText( enabled ) + ", speed " +
                          ( known ? Kiv::toText( speed ) + " Mb/s" : "unknown" ),
                    [ config, intf, speed, enabled ] {
                       auto const port = config->portIs( intf );
                       port->speedIs( speed );
                       port->enabledIs( enabled );
                    } );
}

} // namespace

void
PortsFeature::importers( Import::Tables & tables ) {
   auto const config = board().feederConfig;
   tables.add( { .name = "PORT",
                 .has =
                       [ config ]( Import::Key const & key ) {
                          return config->portHas( key.id< Pelt::EthIntfId >() );
                       },
                 .map = [ config ]( Import::Row & row ) { mapPort( row, config ); },
                 .del =
                       [ config ]( Import::Row & row ) {
                          auto const intf = row.key().id< Pelt::EthIntfId >();
                          row.operationIs( "port " + Kiv::toText( intf ),
                                           [ config, intf ] { config->portDel( intf ); } );
                       } } );
}

HOBA_FEATURE( PortsFeature );

} // namespace HobaAgent
