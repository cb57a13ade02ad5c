// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaCallbacks.h"
#include "Hoba/HobaParityEventQueueSm.h"
#include "Kiv/ClockDriver.h"
#include "agent/features/Feature.h"
#include "agent/features/Words.h"
#include "chips/sim/SimEventQueueSm.h"

#include <iterator>
#include <optional>

// What the chip reported of ports and stations, and what became of it; and a chip that reports on
// command.

namespace HobaAgent {

using Hoba::HobaEvent;
using Kiv::Datum;
using Kiv::String;

class EventsFeature : public Feature {
 public:
   explicit EventsFeature( Board & board ) : Feature( board, "events" ) {
      board.offer( macTable_ );
   }

   void mounts() override {
      mount( "/hoba/macTable", macTable_, Tessera::Access::status );
      mount( "/hoba/events/queue", queue_, Tessera::Access::status );
   }
   void commands( Commands & commands ) override;
   void start() override;
   void stop() override {
      catchUp_.reset();
      if( sm_ ) {
         sm_->cleanup();
      }
   }

 private:
   // Takes the turns of catchUp() that start() left.
   class CatchUp final : public Kiv::Timer {
    public:
      CatchUp( EventsFeature & feature, Kiv::Ptr< Kiv::Clock > const & clockOf )
            : Timer( *clockOf ), feature_( feature ), keptClock_( clockOf ) {
         timeMinIs( clock().now() );
      }

    private:
      void onTimeout() override {
         timeMinIs( clock().now() );
         feature_.catchUp(); // and this may be gone
      }

      EventsFeature & feature_;
      Kiv::Ptr< Kiv::Clock > const keptClock_;
   };

   HobaSim::EventUnit & unit() const { return *board().chip->events(); }
   void catchUp();
   bool isCaughtUp() const;
   void forgetStations();
   Datum show( Request const & ) const;
   Datum link( Request const & request );
   Datum autoneg( Request const & request );
   Datum flood( Request const & request );
   Datum hold( Request const & );
   Datum release( Request const & );

   Kiv::Ptr< HobaTypes::MacTable > const macTable_ = Kiv::make< HobaTypes::MacTable >( "macTable" );
   Kiv::Ptr< Hoba::HobaEventQueue > const queue_ =
         Hoba::HobaEventQueue::HobaEventQueueIs( "events" );
   Machine< Hoba::EventQueueSm > sm_{ *this, "events" };
   // Which of the stations are still to be looked for in the chip.
   std::decay_t< decltype( macTable_->macEntry() ) >::const_iterator unproven_;
   std::optional< CatchUp > catchUp_;
};

void
EventsFeature::start() {
   sm_.is( HobaSim::ChipEventQueueSm::ChipEventQueueSmIs( context(), queue_, board().portStatusDir,
                                                          board().chip ) );
   mountRunning( "/hoba/events/status", sm_->eventStatus() );
   sm_->macTableIs( macTable_ );
   sm_->runningIs( true );
   sm_->initializedIs( true );
   // What the chip has reported of all that it holds is applied before others go by it. Of a large table
   // that is the beginning: the rest follows in turns, and so long nothing is swept.
   Kiv::ClockDriver::ambient().run();
   unproven_ = macTable_->macEntry().begin();
   forgetStations();
   if( !isCaughtUp() ) {
      firstPassGoesOn();
      catchUp_.emplace( *this, Kiv::make< Kiv::Clock >() );
   }
}

bool
EventsFeature::isCaughtUp() const {
   return unproven_ == std::default_sentinel && !board().chip->mac()->reportingAll() &&
          ( queue_->event().empty() || !sm_->enabled() );
}

void
EventsFeature::catchUp() {
   forgetStations();
   if( isCaughtUp() ) {
      catchUp_.reset();
      firstPassIsOver();
   }
}

// While nobody listened, stations went that the table still has: the next few are looked for.
void
EventsFeature::forgetStations() {
   for( auto left = HobaSim::MacUnit::slice; left && unproven_ != std::default_sentinel; --left ) {
      auto const host = unproven_->key;
      ++unproven_;
      if( !board().chip->mac()->isLearnt( host ) ) {
         macTable_->macEntryDel( host );
      }
   }
}

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

} // namespace

Datum
EventsFeature::show( Request const & ) const {
   TableAnswer table( { "Queue", "What", "Count" } );
   queueRows( table, "events", *sm_, Hoba::eventsWithoutMachine(), "eventType" );
   if( auto const parity = board().find< Hoba::HobaParityEventQueueSm >() ) {
      queueRows( table, "parity", *parity, Hoba::parityEventsWithoutMachine(), "parity" );
   }
   return table.take();
}

// ---- Events on command

Datum
EventsFeature::link( Request const & request ) {
   auto const port = portIdOf( board(), request );
   auto const state = linkStatusOf( request );
   auto const fault =
         request.oneOf< HobaTypes::FaultType >( "fault", { { "none", HobaTypes::faultNone },
                                                           { "local", HobaTypes::faultLocal },
                                                           { "remote", HobaTypes::faultRemote } } );
   unit().linkEvent( port, state, fault );
   return {};
}

namespace {

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

} // namespace

Datum
EventsFeature::autoneg( Request const & request ) {
   auto const port = portIdOf( board(), request );
   auto const result = request.oneOf< Interface::AutonegState >(
         "result",
         { { "success", Interface::autonegSuccess }, { "failed", Interface::autonegFailed } } );
   Interface::AutonegAdvertisement advert;
   advert.speeds = Kiv::inPlace( "speeds", [ & ] { return speedsOf( request.text( "speeds" ) ); } );
   unit().autonegEvent( port, result, advert );
   return {};
}

// A flapping link, which ends as it began: up.
Datum
EventsFeature::flood( Request const & request ) {
   constexpr std::uint64_t most = 10'000'000;
   auto const port = portIdOf( board(), request );
   auto const count = Kiv::inPlace( "count", [ & ] {
      return Kiv::parseInteger( request.text( "count" ), std::uint64_t( 1 ), most );
   } );
   for( auto left = count; left-- > 0; ) {
      unit().linkEvent( port, left % 2 ? Interface::linkDown : Interface::linkUp );
   }
   return Kiv::toText( queue_->event().size() ) + " events are waiting";
}

Datum
EventsFeature::hold( Request const & ) {
   sm_->enabledIs( false );
   return {};
}

Datum
EventsFeature::release( Request const & ) {
   sm_->enabledIs( true );
   return {};
}

void
EventsFeature::commands( Commands & commands ) {
   using F = EventsFeature;
   addShow( commands, *this, "show events",
            "What the chip reported: waiting, handled by kind, dropped and why", {}, &F::show );
   addInput(
         commands, *this, "sim event link", "The chip reports a link up or down",
         { portArgument, { "state", "up or down", true }, { "fault", "none, local or remote" } },
         &F::link );
   addInput( commands, *this, "sim event autoneg", "The chip reports the end of an autonegotiation",
             { portArgument,
               { "result", "success or failed", true },
               { "speeds", "What the partner offers, in Mb/s: 1000,10000" } },
             &F::autoneg );
   addInput( commands, *this, "sim event flood", "The chip reports a flapping link, all in one go",
             { portArgument, { "count", "How many events", true } }, &F::flood );
   addInput( commands, *this, "sim event hold", "Events wait until they are released", {},
             &F::hold );
   addInput( commands, *this, "sim event release", "Events are applied again", {}, &F::release );
}

HOBA_FEATURE( EventsFeature );

} // namespace HobaAgent
