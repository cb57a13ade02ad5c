// SPDX-License-Identifier: Apache-2.0
#include "Kiv/ClockDriver.h"
#include "agent/features/FeatureCommands.h"

#include <algorithm>
#include <cstdio>

// Stations: what the hardware learnt, which of them never age, and captures to learn from.

namespace HobaAgent {

using Entry = HobaTypes::MacAddressTableEntry;
using Kiv::Datum;
using Kiv::String;

namespace {

// In the order of addresses and VLANs, in which people search.
template< class Entries >
std::vector< Entry const * >
sorted( Entries const & entries ) {
   std::vector< Entry const * > all;
   for( auto const & [ host, entry ] : entries ) {
      all.push_back( &entry );
   }
   std::sort( all.begin(), all.end(),
              []( auto const * a, auto const * b ) { return a->macEntry < b->macEntry; } );
   return all;
}

String
stations( std::size_t count ) {
   return std::to_string( count ) + ( count == 1 ? " station" : " stations" );
}

Datum
showMac( Switch const & sw, Request const & request ) {
   auto const onlyVlan = request.value< Bridging::VlanIdOrNone >( "vlan" );
   auto const onlyIntf = request.value< Pelt::IntfId >( "port" );
   TableAnswer table( { "MAC address", "VLAN", "Interface", "Type", "Tunnel", "Learnt" } );
   std::size_t count = 0;
   for( auto const * entry : sorted( sw.macTable->macEntry() ) ) {
      if( ( onlyVlan.value() && entry->macEntry.vlanId() != onlyVlan ) ||
          ( onlyIntf && entry->intf != onlyIntf ) ) {
         continue;
      }
      char age[ 32 ];
      std::snprintf( age, sizeof age, "%.0f s ago",
                     Kiv::ClockDriver::ambient().now() - entry->learnTime );
      ++count;
      table.row( { Kiv::toText( entry->macEntry.addr() ), entry->macEntry.vlanId().value(),
                   Kiv::toText( entry->intf ), Kiv::toText( entry->entryType ),
                   entry->tunnelId ? Datum( entry->tunnelId ) : Datum( "-" ), age } );
   }
   auto const & chip = *sw.chip->mac();
   table.note( stations( count ) );
   if( auto const refused = chip.groupSourceRefused() + chip.zeroSourceRefused() +
                            chip.badVlanRefused() + chip.runts() + chip.tableFull() ) {
      table.note(
            "not learnt from: " + Kiv::toText( refused ) + " of " + Kiv::toText( chip.frames() ) +
            " frames (" + Kiv::toText( chip.groupSourceRefused() ) + " group source, " +
            Kiv::toText( chip.zeroSourceRefused() ) + " zero source, " +
            Kiv::toText( chip.badVlanRefused() ) + " bad VLAN, " + Kiv::toText( chip.runts() ) +
            " too short, " + Kiv::toText( chip.tableFull() ) + " table full)" );
   }
   return table.take();
}

// Which clients hold the station.
String
holders( Hoba::NonAgingConfigDirSm const & sm, Bridging::MacVlanPair host ) {
   String text;
   for( auto const & [ name, client ] : sm.configSm() ) {
      if( client.sm->held().has( host ) ) {
         text += ( text.empty() ? "" : ", " ) + name;
      }
   }
   return text;
}

Datum
showNonAging( Switch const & sw ) {
   TableAnswer table( { "MAC address", "VLAN", "Interface", "Type", "Clients", "Held by" } );
   auto const & sm = sw.nonAgingSm();
   for( auto const * entry : sorted( sw.nonAgingStatus->macEntries() ) ) {
      auto const host = entry->macEntry;
      table.row( { Kiv::toText( host.addr() ), host.vlanId().value(), Kiv::toText( entry->intf ),
                   Kiv::toText( entry->entryType ), sm.macEntriesRef( host ),
                   holders( sm, host ) } );
   }
   table.note( String( "non-aging is " ) +
               ( sw.nonAgingStatus->enabled() ? "enabled" : "disabled" ) + "; " +
               stations( sw.nonAgingStatus->macEntries().size() ) );
   for( auto const * entry : sorted( sw.nonAgingStatus->macEntries() ) ) {
      if( entry->intf && !sw.hasIntf( entry->intf ) ) {
         table.note( Kiv::toText( entry->macEntry ) + " is behind " + Kiv::toText( entry->intf ) +
                     ", which is not an interface of this switch" );
      }
   }
   for( auto const & [ name, client ] : sm.configSm() ) {
      if( !client.entity->enable() ) {
         table.note( "client " + name + " is disabled and lists " +
                     stations( client.entity->macEntries().size() ) );
      }
   }
   return table.take();
}

Datum
simPcap( Switch & sw, Request const & request ) {
   auto const port = portIdOf( sw, request );
   auto const vlan = request.value( "vlan", sw.feederConfig->port( port )->vlan() );
   auto & capture = *sw.chip->capture();
   if( request.has( "speed" ) ) {
      capture.start( request.text( "file" ), port, vlan, request.value< double >( "speed" ) );
      return "playing; get /sim/chip/capture tells how far it is";
   }
   auto const & mac = *sw.chip->mac();
   auto const learnt = mac.learnt(), moved = mac.moved(), hits = mac.hits();
   auto const frames = capture.playAll( request.text( "file" ), port, vlan );
   return Kiv::toText( frames ) + " frames: " + Kiv::toText( mac.learnt() - learnt ) +
          " stations learnt, " + Kiv::toText( mac.moved() - moved ) + " moved, " +
          Kiv::toText( mac.hits() - hits ) + " frames from known ones";
}

Datum
simPcapStop( Switch & sw, Request const & ) {
   sw.chip->capture()->stop();
   return {};
}

} // namespace

void
addMacCommands( Commands & commands, Switch & sw ) {
   commands.add(
         { .name = "show mac",
           .help = "Stations that the hardware reported",
           .arguments = { { "vlan", "Only in this VLAN" },
                          { "port", "Only behind this interface" } },
           .handler = [ &sw ]( Request const & request ) { return showMac( sw, request ); } } );
   commands.add( { .name = "show mac non-aging",
                   .help = "Stations that never age, and who asks for that",
                   .handler = [ &sw ]( Request const & ) { return showNonAging( sw ); } } );
   addInput( commands, sw, "sim pcap", "Lets the frames of a capture come in on a port",
             { { "file", "The capture: pcap or pcapng", true, false, true },
               { "port", "The port", true },
               { "vlan", "Of frames without a tag; the port's own unless given" },
               { "speed", "Paced by its time stamps, so many times as fast; else all at once" } },
             &simPcap );
   addInput( commands, sw, "sim pcap stop", "Plays the capture no further", {}, &simPcapStop );
}

} // namespace HobaAgent
