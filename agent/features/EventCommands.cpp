// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaCallbacks.h"
#include "Hoba/HobaHelper.h"
#include "Kiv/ClockDriver.h"
#include "agent/features/FeatureCommands.h"
#include "chips/sim/SimEvents.h"

#include <algorithm>

// What the chip reported and what became of it, and a chip that reports on command.

namespace HobaAgent {

using Hoba::HobaEvent;
using Kiv::Datum;
using Kiv::String;

namespace {

String
reasonText( Hoba::EventDropReason reason ) {
   switch( reason ) {
   case Hoba::dropNotRunning:
      return "dropped: not running";
   case Hoba::dropUnknownKind:
      return "dropped: unknown kind";
   case Hoba::dropNoPortStatus:
      return "dropped: no such port";
   case Hoba::dropNoMacTable:
      return "dropped: no MAC table";
   case Hoba::dropWrongAge:
      return "dropped: age event for the wrong entry type";
   case Hoba::agedLearnOnCpuPort:
      return "aged instead: learnt on the CPU port";
   case Hoba::agedLearnOnDeletedLag:
      return "aged instead: learnt on a deleted LAG";
   case Hoba::agedPortCollectionDeleted:
      return "aged instead: learnt on a LAG without active members";
   case Hoba::dropOvertaken:
      return "dropped: newer news of the station came ahead";
   }
   return "dropped";
}

// What both queues show, around what each handled.
template< class Sm >
void
queueRows( TableAnswer & table, char const * queue, Sm const & sm, std::uint64_t withoutMachine,
           std::string_view prefix ) {
   auto const & status = *sm.eventStatus();
   auto const waiting = sm.queue()->event().size();
   table.row( { queue, "state",
                String( sm.running() ? "running" : "not running" ) +
                      ( sm.enabled() ? "" : ", held" ) } );
   table.row( { queue, "reported", sm.queue()->nextIndex() } );
   table.row( { queue, "waiting", waiting } );
   table.row( { queue, "most waiting at once", std::max( status.highWaterMark(), waiting ) } );
   table.row( { queue, "wake-ups", status.drains() } );
   for( auto const & [ kind, count ] : status.handled() ) {
      table.row( { queue, "handled: " + spelled( Kiv::toText( kind ), prefix ), count } );
   }
   for( auto const & [ reason, count ] : status.dropped() ) {
      table.row( { queue, reasonText( reason ), count } );
   }
   if( withoutMachine ) {
      table.row( { queue, "dropped: nobody to take it", withoutMachine } );
   }
}

Datum
showEvents( Switch const & sw ) {
   TableAnswer table( { "Queue", "What", "Count" } );
   queueRows( table, "events", sw.eventSm(), Hoba::eventsWithoutMachine(), "eventType" );
   queueRows( table, "parity", sw.parityEventSm(), Hoba::parityEventsWithoutMachine(), "parity" );
   return table.take();
}

Datum
showParity( Switch const & sw ) {
   TableAnswer table( { "Slice", "Memory", "Entry", "Times", "Last" } );
   for( auto const & [ key, event ] : sw.context->parityEvent() ) {
      table.row(
            { key.slice, key.memory, key.index, event.count,
              Hoba::doubleToDateTimeStr( Kiv::ClockDriver::ambient().wallTime( event.time ) ) } );
   }
   auto const & unit = *sw.chip->parity();
   table.note(
         Kiv::toText( sw.context->parityEvent().size() ) + " not corrected; since the start " +
         Kiv::toText( unit.count( HobaSim::parityCountCorrected ) ) + " corrected one by one, " +
         Kiv::toText( unit.count( HobaSim::parityCountReset ) ) + " by a reset" );
   return table.take();
}

// ---- Events on command

Datum
eventLink( Switch & sw, Request const & request ) {
   auto const port = portIdOf( sw, request );
   auto const state = linkStatusOf( request );
   auto const fault =
         request.oneOf< HobaTypes::FaultType >( "fault", { { "none", HobaTypes::faultNone },
                                                           { "local", HobaTypes::faultLocal },
                                                           { "remote", HobaTypes::faultRemote } } );
   sw.chip->events()->linkEvent( port, state, fault );
   return {};
}

// "1000,10000": speeds in Mb/s.
std::uint32_t
speedsOf( String const & text ) {
   std::uint32_t speeds = 0;
   for( std::size_t begin = 0; begin < text.size(); ) {
      auto const end = std::min( text.find( ',', begin ), text.size() );
      auto const word = text.substr( begin, end - begin );
      auto const speed = Interface::speedFromMbps( Kiv::fromText< std::uint64_t >( word ) );
      if( speed == Interface::speedUnknown ) {
         Kiv::parseFailed( word, "a speed of Ethernet in Mb/s" );
      }
      speeds |= 1u << speed;
      begin = end + 1;
   }
   return speeds;
}

Datum
eventAutoneg( Switch & sw, Request const & request ) {
   auto const port = portIdOf( sw, request );
   auto const result = request.oneOf< Interface::AutonegState >(
         "result",
         { { "success", Interface::autonegSuccess }, { "failed", Interface::autonegFailed } } );
   Interface::AutonegAdvertisement advert;
   advert.speeds = Kiv::inPlace( "speeds", [ & ] { return speedsOf( request.text( "speeds" ) ); } );
   sw.chip->events()->autonegEvent( port, result, advert );
   return {};
}

Bridging::MacVlanPair
hostOf( Request const & request ) {
   return { request.value< Pelt::EthAddr >( "mac" ), request.value< Bridging::VlanId >( "vlan" ) };
}

Datum
eventLearn( Switch & sw, Request const & request ) {
   auto const host = hostOf( request );
   auto const intf = request.value< Pelt::IntfId >( "port" );
   if( HobaSim::portTypeOf( intf ); !sw.hasIntf( intf ) ) {
      throw Kiv::ParseError( Kiv::toText( intf ) + " is not an interface of this switch" );
   }
   switch( sw.chip->mac()->learn( intf, host.addr(), Bridging::VlanId( host.vlanId().value() ) ) ) {
   case HobaSim::learnNew:
      return "learnt";
   case HobaSim::learnMove:
      return "moved";
   case HobaSim::learnHit:
      return "known already, not reported";
   case HobaSim::learnGroup:
      throw Kiv::ParseError( Kiv::toText( host.addr() ) +
                             " is a group address, which no station has: refused" );
   case HobaSim::learnZero:
      throw Kiv::ParseError( "00:00:00:00:00:00 is no station's address: refused" );
   default:
      throw Kiv::ParseError( "the chip's table is full" );
   }
}

Datum
eventAge( Switch & sw, Request const & request ) {
   sw.chip->mac()->age( hostOf( request ) );
   return {};
}

// A kind of event about a station, as "static-mac-address" or by its full name.
HobaEvent::HobaEventType
kindOf( String const & kind ) {
   String expected;
   for( auto const & [ name, value ] : kivEnumNames( HobaEvent::HobaEventType{} ).all() ) {
      if( value <= HobaEvent::eventTypeAutonegFailed ) {
         continue;
      }
      auto word = spelled( name, "eventType" );
      std::replace( word.begin(), word.end(), ' ', '-' );
      if( word == kind || name == kind ) {
         return static_cast< HobaEvent::HobaEventType >( value );
      }
      expected += ( expected.empty() ? "one of " : ", " ) + word;
   }
   Kiv::parseFailed( kind, expected );
}

Datum
eventStation( Switch & sw, Request const & request ) {
   auto const kind = Kiv::inPlace( "kind", [ & ] { return kindOf( request.text( "kind" ) ); } );
   sw.chip->events()->stationEvent( kind, hostOf( request ),
                                    request.value< Pelt::IntfId >( "port" ),
                                    request.value< std::uint32_t >( "tunnel" ) );
   return {};
}

Datum
eventParity( Switch & sw, Request const & request ) {
   auto const severity = request.oneOf< Hoba::ParitySeverity >(
         "severity", { { "correctable", Hoba::parityCorrectable },
                       { "reset", Hoba::parityNeedsReset },
                       { "fatal", Hoba::parityFatal } } );
   sw.chip->parity()->raise( request.text( "slice" ), request.text( "memory" ),
                             request.value< std::uint32_t >( "index" ), severity );
   return {};
}

// A flapping link, which ends as it began: up.
Datum
eventFlood( Switch & sw, Request const & request ) {
   constexpr std::uint64_t most = 10'000'000;
   auto const port = portIdOf( sw, request );
   auto const count = Kiv::inPlace( "count", [ & ] {
      return Kiv::parseInteger( request.text( "count" ), std::uint64_t( 1 ), most );
   } );
   for( auto left = count; left-- > 0; ) {
      sw.chip->events()->linkEvent( port, left % 2 ? Interface::linkDown : Interface::linkUp );
   }
   return Kiv::toText( sw.eventQueue->event().size() ) + " events are waiting";
}

Datum
eventHold( Switch & sw, Request const & ) {
   sw.eventSm().enabledIs( false );
   return {};
}

Datum
eventRelease( Switch & sw, Request const & ) {
   sw.eventSm().enabledIs( true );
   return {};
}

} // namespace

void
addEventCommands( Commands & commands, Switch & sw ) {
   commands.add( { .name = "show events",
                   .help = "What the chip reported: waiting, handled by kind, dropped and why",
                   .handler = [ &sw ]( Request const & ) { return showEvents( sw ); } } );
   commands.add( { .name = "show parity",
                   .help = "Parity errors that are not corrected yet",
                   .handler = [ &sw ]( Request const & ) { return showParity( sw ); } } );

   Argument const port{ "port", "The port", true };
   Argument const intf{ "port", "The port, LAG or VXLAN interface", true };
   Argument const mac{ "mac", "The station's MAC address", true };
   Argument const vlan{ "vlan", "The VLAN", true };
   addInput( commands, sw, "sim event link", "The chip reports a link up or down",
             { port, { "state", "up or down", true }, { "fault", "none, local or remote" } },
             &eventLink );
   addInput( commands, sw, "sim event autoneg", "The chip reports the end of an autonegotiation",
             { port,
               { "result", "success or failed", true },
               { "speeds", "What the partner offers, in Mb/s: 1000,10000" } },
             &eventAutoneg );
   addInput( commands, sw, "sim event learn", "The chip sees a frame from a station",
             { intf, mac, vlan }, &eventLearn );
   addInput( commands, sw, "sim event age", "The chip forgets a station", { mac, vlan },
             &eventAge );
   addInput( commands, sw, "sim event station", "The chip reports any event about a station",
             { { "kind", "Such as static-mac-address; a wrong one lists all", true },
               intf,
               mac,
               vlan,
               { "tunnel", "Of a station behind a VXLAN interface" } },
             &eventStation );
   addInput( commands, sw, "sim event parity", "The chip finds an entry of a memory wrong",
             { { "slice", "The slice of the chip", true },
               { "memory", "The memory", true },
               { "index", "The entry", true },
               { "severity", "correctable, reset or fatal" } },
             &eventParity );
   addInput( commands, sw, "sim event flood", "The chip reports a flapping link, all in one go",
             { port, { "count", "How many events", true } }, &eventFlood );
   addInput( commands, sw, "sim event hold", "Events wait until they are released", {},
             &eventHold );
   addInput( commands, sw, "sim event release", "Events are applied again", {}, &eventRelease );
}

} // namespace HobaAgent
