// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaHelper.h"
#include "agent/features/FeatureCommands.h"

// What happens to a switch from outside, for one that is simulated: cables, speeds, LAG membership,
// traffic, and a chip that forgets what it was told.

namespace HobaAgent {

using Hoba::LevelType;
using Kiv::Datum;
using Kiv::String;

Pelt::EthIntfId
portIdOf( Switch & sw, Request const & request ) {
   auto const intf = idOf< Pelt::EthIntfId >( request, "port" );
   if( !sw.feederConfig->portHas( intf ) ) {
      throw Kiv::ParseError( Kiv::toText( intf ) + " is not a port of this switch" );
   }
   return intf;
}

Interface::LinkStatus
linkStatusOf( Request const & request ) {
   return request.oneOf< Interface::LinkStatus >(
         "state", { { "up", Interface::linkUp }, { "down", Interface::linkDown } } );
}

void
addInput( Commands & commands, Switch & sw, char const * name, char const * help,
          std::vector< Argument > arguments, Datum ( *handler )( Switch &, Request const & ) ) {
   commands.add( { .name = name,
                   .help = help,
                   .arguments = std::move( arguments ),
                   .handler = [ &sw, handler ](
                                    Request const & request ) { return handler( sw, request ); },
                   .isInput = true } );
}

namespace {

Kiv::Ptr< Feeders::PortConfig >
portOf( Switch & sw, Request const & request ) {
   return sw.feederConfig->port( portIdOf( sw, request ) );
}

Datum
simLink( Switch & sw, Request const & request ) {
   auto const port = portOf( sw, request );
   auto const state = linkStatusOf( request );
   // The chip reports what it sees of the cable.
   sw.chip->events()->linkEvent( portIdOf( sw, request ), state );
   port->linkUpIs( state == Interface::linkUp );
   return {};
}

Datum
simSpeed( Switch & sw, Request const & request ) {
   auto const port = portOf( sw, request );
   port->speedIs( request.value< Interface::EthMbps >( "mbps" ) );
   return {};
}

Datum
simLag( Switch & sw, Request const & request ) {
   auto const port = portIdOf( sw, request );
   auto const lag = request.text( "lag" );
   if( lag == "none" ) {
      sw.lagInputConfig->ethPhyIntfLagConfigDel( port );
      return {};
   }
   auto const lagId = idOf< Pelt::PortChannelIntfId >( request, "lag" );
   sw.feederConfig->lagIs( lagId );
   sw.lagInputConfig->ethPhyIntfLagConfigIs( port, lagId );
   return {};
}

LevelType
trafficOf( Request const & request ) {
   return request.oneOf< LevelType >( "traffic", { { "broadcast", Hoba::levelTypeBroadcast },
                                                   { "multicast", Hoba::levelTypeMulticast },
                                                   { "uucast", Hoba::levelTypeUUcast } } );
}

Datum
simDrop( Switch & sw, Request const & request ) {
   auto const port = portIdOf( sw, request );
   auto const packets = request.value< std::uint64_t >( "packets" );
   auto const dropped = sw.chip->stormControl()->inject(
         port, trafficOf( request ), packets, request.value< std::uint32_t >( "bytes", 64 ),
         request.value< double >( "seconds", 1.0 ) );
   return "dropped " + Kiv::toText( dropped ) + " of " + Kiv::toText( packets ) + " packets";
}

Datum
simForget( Switch & sw, Request const & request ) {
   auto const port = portIdOf( sw, request );
   sw.chip->stormControl()->forget( port );
   return {};
}

} // namespace

void
addSimCommands( Commands & commands, Switch & sw ) {
   Argument const port{ "port", "The port", true };
   addInput( commands, sw, "sim link", "Plugs the cable of a port in, or pulls it",
             { port, { "state", "up or down", true } }, &simLink );
   addInput( commands, sw, "sim speed", "The speed at which a port runs",
             { port, { "mbps", "In Mb/s; 0 for unknown", true } }, &simSpeed );
   addInput( commands, sw, "sim lag", "Puts a port into a LAG, or out of all",
             { port, { "lag", "The LAG, or none", true } }, &simLag );
   addInput( commands, sw, "sim drop", "Sends traffic into a port; tells what its limits dropped",
             { port,
               { "traffic", "broadcast, multicast or uucast", true },
               { "packets", "How many", true },
               { "bytes", "Size of each; 64 unless given" },
               { "seconds", "Within which they come; 1 unless given" } },
             &simDrop );
   addInput( commands, sw, "sim forget",
             "Makes the chip forget the limits of a port, for verification to find", { port },
             &simForget );
}

} // namespace HobaAgent
