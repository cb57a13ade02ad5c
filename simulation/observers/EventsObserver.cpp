// SPDX-License-Identifier: Apache-2.0
#include "simulation/observers/EventsObserver.h"

#include "simulation/observers/StationsObserver.h"

#include <algorithm>

namespace Simulation {

using Kiv::String;
using Kiv::toText;

namespace {

constexpr std::uint64_t longestFlood = 10'000'000;

bool
isOfStation( Hoba::HobaEvent const & event ) {
   return event.eventType > Hoba::HobaEvent::eventTypeAutonegFailed;
}

// "1000,10000", in Mb/s, as bits; nothing for what is no list of speeds of Ethernet.
std::optional< std::uint32_t >
speedsOf( String text ) {
   std::uint32_t bits = 0;
   std::ranges::replace( text, ',', ' ' );
   Step const speeds( text );
   for( auto const & word : speeds.words() ) {
      auto const mbps = parsed< std::uint64_t >( word );
      auto const speed = Interface::speedFromMbps( mbps.value_or( 0 ) );
      if( speed == Interface::speedUnknown ) {
         return {};
      }
      bits |= 1u << speed;
   }
   return bits;
}

} // namespace

EventsObserver::EventsObserver( Switch & simulated, Observers & observers )
      : Observer( simulated, observers, "events" ), ports_( observers.find< PortsObserver >() ) {
   // A step in the middle of a drain finds the model as far as the machine is.
   simulated.watch( "/hoba/events/status/drains", [ this ] { beginDrain(); } );
   simulated.watch( "/hoba/machines/events/eventCounter", [ this ] {
      drainUpTo( parsed< std::uint64_t >( textAt( "/hoba/machines/events/eventCounter" ) )
                       .value_or( 0 ) );
   } );
   // What is reported behind a drain at one instant waits for the next.
   simulated.watch( "/hoba/events/queue/event", [ this ] {
      if( isThere_ && isDraining_ && rowsAt( "/hoba/events/queue/event" ).empty() ) {
         drain();
      }
   } );
   simulated.watch( "/hoba/machines/events/apiRunning", [ this ] { isThere_ = false; } );
}

// ---- What the chip finds

void
EventsObserver::propose( Draw & draw, Steps & steps ) {
   auto const port = draw.port();
   auto const kind = draw.below( 30 );
   bool const mostly = draw.chance( 60 );
   auto const count = toText( 1 + draw.below( 12 ) );
   auto const fault = draw.oneOf( { "", " none", " local", " remote" } );
   auto const speeds = draw.oneOf( { "", " 1000", " 1000,10000", " 400000,100000" } );
   if( kind < 11 ) {
      steps.push_back( "sim event link " + port + ( mostly ? " up" : " down" ) + fault );
   } else if( kind < 18 ) {
      steps.push_back( "sim event autoneg " + port + ( mostly ? " success" : " failed" ) + speeds );
   } else if( kind < 20 ) {
      steps.push_back( "sim event flood " + port + ' ' + count );
   } else if( kind < 24 ) {
      steps.push_back( "sim event hold" );
   } else if( kind < 29 ) {
      steps.push_back( "sim event release" );
   } else {
      steps.push_back( draw.oneOf(
            { "sim event link Ethernet1 sideways", "sim event link Ethernet99 up",
              "sim event link Port-Channel1 up", "sim event link Ethernet1 up loose",
              "sim event autoneg Ethernet1 unknown", "sim event autoneg Ethernet1 success 1234",
              "sim event autoneg Ethernet99 failed", "sim event flood Ethernet1 0",
              "sim event flood Ethernet1 10000001", "sim event flood Port-Channel1 1" } ) );
   }
}

Steps
EventsObserver::heal() {
   return isHeld_ && simulated().isRunning() ? Steps{ "sim event release" } : Steps{};
}

// What machines that begin find in the queue, and what the chip reports to them, the model applies when
// they have begun.
bool
EventsObserver::canBeInterrupted() const {
   return isThere_ || textAt( "/hoba/machines/events/apiRunning" ) != "true" ||
          rowsAt( "/hoba/events/queue/event" ).empty();
}

Observer::Verdict
EventsObserver::judge( Step const & step ) const {
   if( step.begins( "sim event hold" ) || step.begins( "sim event release" ) ) {
      return verdict( simulated().isRunning() );
   }
   bool const isLink = step.begins( "sim event link" );
   bool const isAutoneg = step.begins( "sim event autoneg" );
   if( !isLink && !isAutoneg && !step.begins( "sim event flood" ) ) {
      return notMine;
   }
   auto const & what = step[ 4 ];
   auto const & more = step[ 5 ];
   bool const isPort =
         ports_.isConfigured( parsed< Pelt::IntfId >( step[ 3 ] ).value_or( Pelt::IntfId() ) );
   if( isLink ) {
      bool const isFault = more.empty() || more == "none" || more == "local" || more == "remote";
      return verdict( isPort && ( what == "up" || what == "down" ) && isFault );
   }
   if( isAutoneg ) {
      return verdict( isPort && ( what == "success" || what == "failed" ) && speedsOf( more ) );
   }
   auto const count = parsed< std::uint64_t >( what ).value_or( 0 );
   return verdict( isPort && count > 0 && count <= longestFlood );
}

void
EventsObserver::heard( Step const & step, Kiv::Datum const & answer ) {
   if( step.begins( "sim link" ) ) {
      linkFound( Pelt::IntfId( step[ 2 ] ), step[ 3 ] == "up", "" );
   } else if( step.begins( "sim event link" ) ) {
      linkFound( Pelt::IntfId( step[ 3 ] ), step[ 4 ] == "up", step[ 5 ] );
   } else if( step.begins( "sim event autoneg" ) ) {
      autonegFound( step );
   } else if( step.begins( "sim event flood" ) ) {
      flooded( step, answer );
   } else if( step.begins( "sim event hold" ) ) {
      isHeld_ = true;
   } else if( step.begins( "sim event release" ) ) {
      isDue_ = isDue_ || ( isHeld_ && !queue_.empty() );
      isHeld_ = false;
      checkQueue();
   }
}

void
EventsObserver::linkFound( Pelt::IntfId port, bool isUp, String const & fault ) {
   Event event;
   event.port = port;
   event.linkStatus = isUp ? Interface::linkUp : Interface::linkDown;
   event.faultType = fault == "local"    ? HobaTypes::faultLocal
                     : fault == "remote" ? HobaTypes::faultRemote
                                         : HobaTypes::faultNone;
   chipLink_[ port ] = event;
   report( event );
}

void
EventsObserver::autonegFound( Step const & step ) {
   Event event;
   event.eventType =
         step[ 4 ] == "success" ? Event::eventTypeAutonegSuccess : Event::eventTypeAutonegFailed;
   event.port = Pelt::IntfId( step[ 3 ] );
   event.advert.speeds = *speedsOf( step[ 5 ] );
   chipAutoneg_[ event.port ] = event;
   report( event );
}

// It ends with the link up.
void
EventsObserver::flooded( Step const & step, Kiv::Datum const & answer ) {
   for( auto left = Kiv::fromText< std::uint64_t >( step[ 4 ] ); left-- > 0; ) {
      linkFound( Pelt::IntfId( step[ 3 ] ), left % 2 == 0, "" );
   }
   auto const expected = toText( queue_.size() ) + " events are waiting";
   if( auto const is = Kiv::datumText( answer ); is != expected ) {
      found( step.text() + " answers " + is + ", and must answer " + expected );
   }
}

// ---- The queue

void
EventsObserver::report( Event const & event ) {
   if( simulated().isRunning() ) {
      queue_.push_back( { ++nextIndex_, event } );
      isDue_ = true;
   }
}

void
EventsObserver::reportAhead( Event const & event ) {
   if( simulated().isRunning() ) {
      if( !queue_.empty() ) {
         overtaken_[ event.host ] = nextIndex_;
      }
      apply( event );
      checkQueue();
   }
}

void
EventsObserver::timeIs( Kiv::Seconds ) {
   if( simulated().isRunning() ) {
      beginDrain();
      drain();
      isDue_ = false;
   }
}

// What came in one go is one wake-up.
void
EventsObserver::beginDrain() {
   if( isThere_ && isDue_ && !isHeld_ && !isDraining_ ) {
      isDraining_ = true;
      ++drains_;
      mostWaiting_ = std::max( mostWaiting_, queue_.size() );
   }
}

// As soon as the machine begins with an event, the model has applied it.
void
EventsObserver::drainUpTo( std::uint64_t applied ) {
   while( isThere_ && isDraining_ && applied_ < applied && !queue_.empty() ) {
      applyOldest();
   }
}

void
EventsObserver::drain() {
   if( !isDraining_ ) {
      return;
   }
   while( !queue_.empty() ) {
      applyOldest();
   }
   overtaken_.clear();
   isDraining_ = isDue_ = false;
}

// What is queued of a station is older than what came ahead since.
void
EventsObserver::applyOldest() {
   auto const [ index, event ] = queue_.front();
   queue_.pop_front();
   auto const newer = overtaken_.find( event.host );
   if( isOfStation( event ) && newer != overtaken_.end() && newer->second >= index ) {
      dropped( "dropOvertaken" );
   } else {
      apply( event );
   }
}

void
EventsObserver::apply( Event const & event ) {
   ++applied_;
   ++handled_[ toText( event.eventType ) ];
   if( isOfStation( event ) ) {
      observers().find< StationsObserver >().apply( event );
   } else if( event.eventType == Event::eventTypePort ) {
      applyLink( event );
   } else {
      applyAutoneg( event );
   }
}

void
EventsObserver::applyLink( Event const & event ) {
   if( !ports_.linkReported( event.port, event.linkStatus, event.faultType ) ) {
      return dropped( "dropNoPortStatus" );
   }
   // While the machines begin, those of later features are not there yet.
   for( auto const & each : observers().all() ) {
      if( isBeginning_ && each.get() == this ) {
         return;
      }
      each->follow();
   }
}

void
EventsObserver::applyAutoneg( Event const & event ) {
   if( !ports_.has( event.port ) ) {
      return dropped( "dropNoPortStatus" );
   }
   bool const isSuccess = event.eventType == Event::eventTypeAutonegSuccess;
   autoneg_[ event.port ] = { isSuccess ? Interface::autonegSuccess : Interface::autonegFailed,
                              event.advert };
}

Interface::LinkStatus
EventsObserver::chipLink( Pelt::IntfId port ) const {
   auto const found = chipLink_.find( port );
   return found == chipLink_.end() ? Interface::linkUnknown : found->second.linkStatus;
}

// ---- The machines

// Who was told of a port that has gone since, was told of another one.
void
EventsObserver::follow() {
   std::erase_if( autoneg_, [ this ]( auto const & port ) { return !ports_.has( port.first ); } );
}

void
EventsObserver::chipForgot() {
   chipLink_.clear();
   chipAutoneg_.clear();
}

// The machine begins anew, without what the former one counted, and open. It takes what that one left in
// the queue; behind it the chip reports all that it holds. That is applied before others begin.
void
EventsObserver::began( HobaAgent::RestartKind ) {
   auto & stations = observers().find< StationsObserver >();
   isThere_ = true;
   isHeld_ = isDraining_ = false;
   applied_ = drains_ = 0;
   mostWaiting_ = 0;
   handled_.clear();
   dropped_.clear();
   overtaken_.clear();
   follow();
   reportAll();
   stations.reportAll();
   isBeginning_ = true;
   isDue_ = !queue_.empty();
   timeIs( simulated().now() );
   isBeginning_ = false;
   stations.forgetOthers();
}

void
EventsObserver::reportAll() {
   for( auto const * all : { &chipLink_, &chipAutoneg_ } ) {
      for( auto const & [ port, event ] : *all ) {
         report( event );
      }
   }
}

// ---- What must be

void
EventsObserver::check() {
   checkQueue();
   checkPorts();
   expectRows( "/hoba/events/status/handled", rowsOf( handled_ ) );
   expectRows( "/hoba/events/status/dropped", rowsOf( dropped_ ) );
   expectText( "/hoba/events/status/drains", toText( drains_ ) );
   expectText( "/hoba/events/status/highWaterMark", toText( mostWaiting_ ) );
}

// Also while it is held.
void
EventsObserver::checkQueue() {
   Rows queue;
   for( auto const & [ index, event ] : queue_ ) {
      queue[ toText( index ) ] = Kiv::datumText( Kiv::toDatum( event ) );
   }
   expectRows( "/hoba/events/queue/event", queue );
   expectText( "/hoba/events/queue/nextIndex", toText( nextIndex_ ) );
   expectRows( "/hoba/machines/events/overtaken", rowsOf( overtaken_ ) );
   expectRows( "/hoba/machines/events",
               { { "initialized", "true" },
                 { "running", "true" },
                 { "enabled", isHeld_ ? "false" : "true" },
                 { "apiRunning", "true" },
                 { "eventCounter", toText( applied_ ) },
                 { "macTable", "macTable" },
                 { "overtaken", textAt( "/hoba/machines/events/overtaken" ) } } );
}

void
EventsObserver::checkPorts() {
   Rows ports;
   for( auto const & [ intf, port ] : ports_.ports() ) {
      auto const autoneg = autoneg_.contains( intf ) ? autoneg_.at( intf ) : Autoneg();
      ports[ toText( intf ) ] = Kiv::datumText(
            Kiv::Datum::Object{ { "linkStatus", toText( port.reported ) },
                                { "faultType", toText( port.fault ) },
                                { "partnerAutonegAdvertisement", Kiv::toDatum( autoneg.advert ) },
                                { "autonegResult", toText( autoneg.result ) } } );
   }
   expectRows( "/hoba/portStatus/portStatus", ports );
   expectRows( "/sim/chip/events/link", rowsOf( chipLink_ ) );
   expectRows( "/sim/chip/events/autoneg", rowsOf( chipAutoneg_ ) );
   expectText( "/sim/chip/events/reporting", "true" );
}

SIMULATION_OBSERVER( EventsObserver );

} // namespace Simulation
