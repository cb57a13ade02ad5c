// SPDX-License-Identifier: Apache-2.0
#include "agent/features/VlanCommands.h"

#include "agent/features/Words.h"

#include <map>

namespace HobaAgent {

using Bridging::VlanId;
using Kiv::String;
using Kiv::toText;

namespace {

// How the interface takes part, and why perhaps not.
String
intfText( VlanView const & view, Pelt::IntfId intf ) {
   for( auto const & [ lag, list ] : view.context.lagToPortConfig() ) {
      if( std::find( list.port.begin(), list.port.end(), intf ) != list.port.end() ) {
         return toText( intf ) + " is a member of " + toText( lag ) + ", which stands for it";
      }
   }
   auto const mode = view.config.switchportMode( intf );
   auto const native = view.config.nativeVlan( intf );
   auto text = toText( intf ) + " is " +
               ( mode == Bridging::switchportModeRouted  ? "routed"
                 : mode == Bridging::switchportModeTrunk ? "a trunk"
                                                         : "an access port" );
   if( mode == Bridging::switchportModeRouted ) {
      return text;
   }
   text += native.value() ? ", native VLAN " + toText( native ) : ", without a native VLAN";
   bool const isDropped = !view.membership.intf( intf ).nativeVlan.value();
   return text + ( native.value() && isDropped ? ", which it does not carry" : "" );
}

void
addRefusals( TableAnswer & table, VlanView const & view ) {
   for( auto const vlan : sortedKeys( view.feeder.refusedVlan() ) ) {
      table.note( "the chip refuses VLAN " + toText( vlan ) + ": " +
                  view.feeder.refusedVlan( vlan ) );
   }
   for( auto const intf : sortedKeys( view.feeder.refusedIntf() ) ) {
      table.note( "the chip refuses something of " + toText( intf ) + ": " +
                  view.feeder.refusedIntf( intf ) );
   }
}

} // namespace

std::vector< Argument >
vlanArguments() {
   return { { "vlan", "Only this VLAN" }, { "port", "Only those that this port or LAG carries" } };
}

Kiv::Datum
showVlans( VlanView const & view, Request const & request ) {
   auto const only = vlanOf( request );
   auto const intf = request.value< Pelt::IntfId >( "port" );
   if( only.value() && !view.context.vlanStatusHas( VlanId( only.value() ) ) ) {
      throw Kiv::ParseError( "VLAN " + toText( only ) + " is not one of this switch" );
   }
   if( intf && !view.context.intfHas( intf ) && !view.context.lagToPortConfigHas( intf ) ) {
      throw Kiv::ParseError( toText( intf ) + " is not a port or LAG of this switch" );
   }
   std::map< std::uint16_t, std::size_t > stations;
   if( view.macTable ) {
      for( auto const & [ host, entry ] : view.macTable->macEntry() ) {
         ++stations[ host.vlanId().value() ];
      }
   }
   TableAnswer table( { "VLAN", "State", "Stations", "Untagged", "Tagged" } );
   for( auto const vlan : sortedKeys( view.context.vlanStatus() ) ) {
      auto const status = view.context.vlanStatus( vlan );
      if( ( only.value() && only.value() != vlan.value() ) ||
          ( intf && !status->intfHas( intf ) ) ) {
         continue;
      }
      std::vector< Pelt::IntfId > untagged, tagged;
      for( auto const & each : status->intf() ) {
         bool const isTagged = view.membership.intf( each ).tagging( vlan ) == Hoba::vlanTagged;
         ( isTagged ? tagged : untagged ).push_back( each );
      }
      table.row( { vlan.value(), status->active() ? "active" : "not active",
                   stations[ vlan.value() ], listText( untagged ), listText( tagged ) } );
   }
   if( !only.value() ) {
      table.count( "VLAN" );
   }
   if( intf ) {
      table.note( intfText( view, intf ) );
   }
   addRefusals( table, view );
   return table.take();
}

} // namespace HobaAgent
