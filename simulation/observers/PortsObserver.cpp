// SPDX-License-Identifier: Apache-2.0
#include "simulation/observers/PortsObserver.h"

#include "simulation/observers/EventsObserver.h"

#include <algorithm>

namespace Simulation {

using Kiv::String;
using Kiv::toText;

namespace {

String const portPath = "/feeders/config/port/";

constexpr std::string_view speeds[] = { "0", "10", "1000", "10000", "400000", "800000" };

// The port that the path is about.
Pelt::IntfId
portOf( Step const & step ) {
   auto const name = step[ 1 ].substr( portPath.size() );
   return Pelt::IntfId( name.substr( 0, name.find( '/' ) ) );
}

} // namespace

PortsObserver::PortsObserver( Switch & simulated, Observers & observers )
      : Observer( simulated, observers, "ports" ),
        config_( simulated.entity< Feeders::Config >( "/feeders/config" ) ) {}

bool
PortsObserver::isConfigured( Pelt::IntfId port ) const {
   return Pelt::EthIntfId::isEthIntfId( port ) && config_->portHas( Pelt::EthIntfId( port ) );
}

// ---- What happens to ports

void
PortsObserver::prepare( Draw & draw, Steps & steps ) {
   for( auto n = draw.below( Draw::ports + 1 ); n != 0; --n ) {
      auto const port = draw.port();
      auto const speed = speeds[ draw.below( std::size( speeds ) ) ];
      steps.push_back( "set " + portPath + port + "/speed " + String( speed ) );
   }
}

void
PortsObserver::propose( Draw & draw, Steps & steps ) {
   auto const port = draw.port();
   auto const kind = draw.below( 16 );
   bool const mostly = draw.chance( 70 );
   auto const at = portPath + port;
   if( kind < 5 ) {
      auto const speed = speeds[ draw.below( std::size( speeds ) ) ];
      steps.push_back( "set " + at + "/speed " + String( speed ) );
   } else if( kind < 7 ) {
      steps.push_back( "del " + at );
   } else if( kind < 9 ) {
      steps.push_back( "set " + at + "/enabled " + ( mostly ? "true" : "false" ) );
   } else if( kind < 10 ) {
      steps.push_back( "set " + at + "/linkUp " + ( mostly ? "true" : "false" ) );
   } else if( kind < 15 ) {
      steps.push_back( "sim link " + port + ( mostly ? " up" : " down" ) );
   } else {
      steps.push_back(
            draw.oneOf( { "set /feeders/config/port/Ethernet1/speed 1234",
                          "set /feeders/config/port/Port-Channel1/speed 1000",
                          "set /feeders/config/port/Ethernet1/colour 1",
                          "sim link Ethernet1 sideways", "sim link Port-Channel1 up" } ) );
   }
}

Observer::Verdict
PortsObserver::judge( Step const & step ) const {
   if( step.begins( "sim link" ) ) {
      bool const isState = step[ 3 ] == "up" || step[ 3 ] == "down";
      return isState && isConfigured( Pelt::IntfId( step[ 2 ] ) ) ? accepts : refuses;
   }
   if( !step.isAt( "/feeders/config/port" ) ) {
      return notMine;
   }
   auto const port = portOf( step );
   if( step[ 0 ] == "del" ) {
      return isConfigured( port ) ? accepts : refuses;
   }
   bool const isSpeed = step[ 1 ].ends_with( "/speed" ) &&
                        std::ranges::find( speeds, step[ 2 ] ) != std::end( speeds );
   bool const isFlag = step[ 1 ].ends_with( "/enabled" ) || step[ 1 ].ends_with( "/linkUp" );
   return Pelt::EthIntfId::isEthIntfId( port ) && ( isSpeed || isFlag ) ? accepts : refuses;
}

// ---- The model

void
PortsObserver::askChip( Pelt::IntfId intf, Port & port ) const {
   auto const link = observers().find< EventsObserver >().chipLink( intf );
   port.reported = link == Interface::linkUnknown ? port.reported : link;
}

bool
PortsObserver::linkReported( Pelt::IntfId port, Interface::LinkStatus link,
                             HobaTypes::FaultType fault ) {
   auto const found = ports_.find( port );
   if( found == ports_.end() ) {
      return false;
   }
   found->second.reported = link;
   found->second.fault = fault;
   return true;
}

void
PortsObserver::follow() {
   if( !simulated().isRunning() ) {
      return;
   }
   std::erase_if( ports_, [ this ]( auto const & port ) { return !isConfigured( port.first ); } );
   for( auto const & [ port, config ] : config_->port() ) {
      followPort( port, *config );
   }
}

void
PortsObserver::followPort( Pelt::IntfId intf, Feeders::PortConfig const & config ) {
   auto const [ found, isNew ] = ports_.try_emplace( intf );
   auto & port = found->second;
   if( isNew ) {
      askChip( intf, port );
   }
   port.kbps = std::uint64_t( config.speed().value() ) * 1000;
   port.up = config.linkUp() && port.reported != Interface::linkDown;
   port.active = port.up && config.enabled();
}

// What the chip knows of its links counts from the beginning. What it has forgotten, the machines have
// not: the last report stands until there is another.
void
PortsObserver::began( HobaAgent::RestartKind ) {
   for( auto & [ intf, port ] : ports_ ) {
      askChip( intf, port );
   }
   follow();
}

void
PortsObserver::check() {
   Rows status, intfs;
   for( auto const & [ intf, port ] : ports_ ) {
      auto const name = toText( intf );
      intfs[ name ] = "true";
      auto const speed =
            toText( Interface::speedFromMbps( port.kbps / 1000 ) ); // its name in the database
      status[ name ] = "{\"speed\": \"" + speed +
                       "\", \"active\": " + ( port.active ? "true" : "false" ) +
                       ", \"linkStatus\": \"" + ( port.up ? "linkUp" : "linkDown" ) + "\"}";
   }
   expectRows( "/interface/status/ethPhyIntfStatus", status );
   expectRows( "/hoba/common/intf", intfs );
   expectRows( "/hoba/common/cpuIntf", { { "Cpu", "true" } } );
}

SIMULATION_OBSERVER( PortsObserver );

} // namespace Simulation
