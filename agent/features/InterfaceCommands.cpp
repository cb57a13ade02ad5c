// SPDX-License-Identifier: Apache-2.0
#include "agent/features/FeatureCommands.h"

#include <cstdio>

namespace HobaAgent {

using Kiv::Datum;
using Kiv::String;

String
speedText( std::uint64_t kbps ) {
   if( kbps == 0 ) {
      return "unknown";
   }
   char text[ 40 ];
   if( kbps >= 1'000'000 ) {
      std::snprintf( text, sizeof text, "%g Gb/s", static_cast< double >( kbps ) / 1'000'000 );
   } else {
      std::snprintf( text, sizeof text, "%g Mb/s", static_cast< double >( kbps ) / 1'000 );
   }
   return text;
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

String
listText( std::vector< Pelt::IntfId > const & intfs ) {
   String text;
   for( auto intf : intfs ) {
      text += ( text.empty() ? "" : ", " ) + Kiv::toText( intf );
   }
   return text.empty() ? "-" : text;
}

// The LAG that the operator put the port into, and whether the port takes part in it.
String
membershipText( Switch const & sw, Pelt::IntfId intf ) {
   auto const wanted = sw.lagInputConfig->ethPhyIntfLagConfig( intf );
   if( !wanted ) {
      return "-";
   }
   auto const lag = Kiv::toText( wanted );
   return sw.context->portToLag( intf ) == wanted ? lag : lag + " (not active)";
}

Datum
showInterfaces( Switch const & sw, Pelt::IntfId only ) {
   if( only && !sw.context->intfHas( only ) ) {
      throw Kiv::ParseError( Kiv::toText( only ) + " is not a port of this switch" );
   }
   TableAnswer table( { "Interface", "Enabled", "Link", "Speed", "Active", "LAG" } );
   for( auto const & [ intf, config ] : sw.feederConfig->port() ) {
      if( only && only != intf ) {
         continue;
      }
      auto const status = sw.ethPhyIntfStatusDir->ethPhyIntfStatus( intf );
      auto const speed = status ? Interface::speedToKbps( status->speed() ) : 0;
      table.row( { Kiv::toText( intf ), config->enabled() ? "yes" : "no",
                   status ? linkText( status->linkStatus() ) : "-", speedText( speed ),
                   status && status->active() ? "yes" : "no", membershipText( sw, intf ) } );
   }
   return table.take();
}

Datum
showLags( Switch const & sw ) {
   TableAnswer table( { "LAG", "Kind", "Min links", "Active members", "Configured members" } );
   for( auto const & [ lag, config ] : sw.feederConfig->lag() ) {
      table.row( { Kiv::toText( lag ),
                   config->kind() == HobaTypes::lagTypeLacp ? "LACP" : "static",
                   config->minLinks(), listText( sw.context->lagToPort( lag ).port ),
                   listText( sw.context->lagToPortConfig( lag ).port ) } );
   }
   return table.take();
}

} // namespace

void
addInterfaceCommands( Commands & commands, Switch & sw ) {
   commands.add( { .name = "show interfaces",
                   .help = "Ports: link, speed, and the LAG they are in",
                   .arguments = { { "intf", "Only this interface" } },
                   .handler = [ &sw ]( Request const & request ) {
                      return showInterfaces( sw, request.value< Pelt::IntfId >( "intf" ) );
                   } } );
   commands.add( { .name = "show lag",
                   .help = "LAGs and their members",
                   .handler = [ &sw ]( Request const & ) { return showLags( sw ); } } );
}

} // namespace HobaAgent
