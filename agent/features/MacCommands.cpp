// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaHelper.h"
#include "Kiv/ClockDriver.h"
#include "agent/features/FeatureCommands.h"

#include <algorithm>
#include <cstdio>
#include <optional>

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

// People read "learned dynamic" where programs read learnedDynamicMac.
Datum
typeCell( TableAnswer & table, Bridging::EntryType type ) {
   auto const name = Kiv::toText( type );
   auto words = spelled( name, "entryType" );
   if( words.ends_with( " mac" ) ) {
      words.erase( words.size() - 4 );
   }
   table.words( "Type", name, words );
   return name;
}

// What `show mac` is asked for.
struct Wanted {
   explicit Wanted( Switch const & sw, Request const & request )
         : vlan( vlanOf( request ) ), intf( request.value< Pelt::IntfId >( "port" ) ),
           addr( request.has( "mac" ) ? std::optional( request.value< Pelt::EthAddr >( "mac" ) )
                                      : std::nullopt ),
           lag( intf ? sw.context->portToLag( intf ) : Pelt::IntfId() ) {
      bool const isMissing =
            Pelt::EthIntfId::isEthIntfId( intf )
                  ? !sw.feederConfig->portHas( Pelt::EthIntfId( intf ) )
                  : Hoba::isPortChannel( intf ) &&
                          !sw.feederConfig->lagHas( Pelt::PortChannelIntfId( intf ) );
      if( isMissing ) {
         throw Kiv::ParseError( Kiv::toText( intf ) + " is not a port or LAG of this switch" );
      }
   }
   bool operator()( Entry const & entry ) const {
      return ( !vlan.value() || entry.macEntry.vlanId() == vlan ) &&
             ( !intf || entry.intf == intf || ( lag && entry.intf == lag ) ) &&
             ( !addr || entry.macEntry.addr() == *addr );
   }

   Bridging::VlanIdOrNone const vlan;
   Pelt::IntfId const intf;
   std::optional< Pelt::EthAddr > const addr;
   Pelt::IntfId const lag; // stations behind an active member are behind its LAG
};

Datum
showMac( Switch const & sw, Request const & request ) {
   Wanted const wanted( sw, request );
   TableAnswer table( { "MAC address", "VLAN", "Interface", "Type", "Tunnel", "Learnt" } );
   for( auto const * entry : sorted( sw.macTable->macEntry() ) ) {
      if( !wanted( *entry ) ) {
         continue;
      }
      char age[ 32 ];
      std::snprintf( age, sizeof age, "%.0f s ago",
                     Kiv::ClockDriver::ambient().now() - entry->learnTime );
      table.row( { Kiv::toText( entry->macEntry.addr() ), entry->macEntry.vlanId().value(),
                   Kiv::toText( entry->intf ), typeCell( table, entry->entryType ),
                   entry->tunnelId ? Datum( entry->tunnelId ) : Datum(), age } );
   }
   auto const & chip = *sw.chip->mac();
   table.count( "station" );
   if( wanted.lag ) {
      table.note( Kiv::toText( wanted.intf ) + " is an active member of " +
                  Kiv::toText( wanted.lag ) );
   }
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
      if( client->heldHas( host ) ) {
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
                   typeCell( table, entry->entryType ), sm.macEntriesRef( host ),
                   holders( sm, host ) } );
   }
   table.note( String( "non-aging is " ) +
               ( sw.nonAgingStatus->enabled() ? "enabled" : "disabled" ) + "; " +
               counted( sw.nonAgingStatus->macEntries().size(), "station" ) );
   for( auto const * entry : sorted( sw.nonAgingStatus->macEntries() ) ) {
      if( entry->intf && !sw.hasIntf( entry->intf ) ) {
         table.note( Kiv::toText( entry->macEntry ) + " is behind " + Kiv::toText( entry->intf ) +
                     ", which is not an interface of this switch" );
      }
   }
   for( auto const & [ name, client ] : sm.configSm() ) {
      auto const & config = *client->config()->notifier();
      if( !config.enable() ) {
         table.note( "client " + name + " is disabled and lists " +
                     counted( config.macEntries().size(), "station" ) );
      }
   }
   return table.take();
}

Datum
simPcap( Switch & sw, Request const & request ) {
   auto const port = portIdOf( sw, request );
   auto const native = sw.feederConfig->nativeVlan( port ).value();
   auto const vlan = request.value( "vlan", Bridging::VlanId( native ? native : 1 ) );
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
                          { "port", "Only behind this interface, or behind the LAG it is in" },
                          { "mac", "Only this station" } },
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
