// SPDX-License-Identifier: Apache-2.0

// Events of the hardware: when the queue is drained, who is registered when, and what becomes of
// each kind of event.

#include "HobaTest.h"

#include <stdexcept>

namespace {

using namespace HobaTest;
using Hoba::HobaEvent;
using HobaTypes::HobaPortStatus;
using LinkWatcher = Watcher< HobaPortStatus, HobaPortStatus::linkStatusAttr >;
using Kind = HobaEvent::HobaEventType;
using HobaTypes::faultLocal;
using HobaTypes::faultNone;
using HobaTypes::faultRemote;
using Interface::linkDown;
using Interface::linkUp;

auto constexpr learnt = HobaEvent::eventTypeMacAddressLearned;
auto constexpr deleted = HobaEvent::eventTypeMacAddressDeleted;

Pelt::IntfId const port1( "Ethernet1" );
Pelt::IntfId const port2( "Ethernet2" );
Pelt::IntfId const lag( "Port-Channel3" );

HobaEvent
linkEvent( Pelt::IntfId port, Interface::LinkStatus status,
           HobaTypes::FaultType fault = faultNone ) {
   HobaEvent event;
   event.port = port;
   event.linkStatus = status;
   event.faultType = fault;
   return event;
}

void
linkIs( Interface::LinkStatus status, HobaTypes::FaultType fault = faultNone ) {
   Hoba::newEventIs( linkEvent( port1, status, fault ) );
}

Bridging::MacVlanPair
hostNumber( std::uint64_t number ) {
   return { Pelt::EthAddr( 0x00005e005300 + number ), Bridging::VlanId( 10 ) };
}

HobaEvent
hostEvent( Kind type, std::uint64_t host = 1, Pelt::IntfId port = port1,
           HobaEvent::PortType portType = HobaEvent::fpPort ) {
   HobaEvent event;
   event.eventType = type;
   event.host = hostNumber( host );
   event.port = port;
   event.portType = portType;
   event.tunnelId = 77;
   return event;
}

// Says what it is asked for, and whether it was the one registered then.
class ChipSm : public Hoba::EventQueueSm {
 public:
   KIV_TYPE( ChipSm );
   void hwInit() override { said( "hwInit" ); }
   void hwCleanup() override { said( "hwCleanup" ); }
   void handleOneEvent( HobaEvent const & event ) override {
      happens( onEvent );
      EventQueueSm::handleOneEvent( event );
   }
   std::function< void() > onEvent;
   Strings calls;
   std::function< void() > then;

 protected:
   using EventQueueSm::EventQueueSm;

 private:
   void said( std::string const & what ) {
      calls.push_back( what + ( Hoba::eventSm().get() == this ? " registered" : "" ) );
      happens( then );
   }
};

class EventQueueSmTest : public ContextFixture {
 protected:
   EventQueueSmTest() {
      status1 = dir->portStatusIs( port1 );
      watcher = Hoba::smIs< LinkWatcher >( status1 );
      watcher->then = [ this ] {
         heard.push_back( Kiv::toText( status1->linkStatus() ) + " " +
                          Kiv::toText( status1->faultType() ) );
         happens( then );
      };
      sm = Hoba::smIs< ChipSm >( data, queue, dir );
      sm->macTableIs( table );
      status = sm->eventStatus();
   }
   ~EventQueueSmTest() override {
      if( sm ) {
         sm->cleanup();
      }
   }

   void start() {
      sm->initializedIs( true );
      sm->runningIs( true );
   }
   // Up and down in turn, beginning with up: each is a change.
   void toggle( unsigned times, Pelt::IntfId port = port1 ) {
      for( unsigned n = 0; n != times; ++n ) {
         Hoba::newEventIs( linkEvent( port, ++toggled % 2 ? linkUp : linkDown ) );
      }
   }
   // Straight into the queue, as the hardware's code may.
   void queueLinkUp() { queue->eventIs( queue->nextIndexInc( 1 ), linkEvent( port1, linkUp ) ); }
   std::size_t waiting() const { return queue->event().size(); }
   // Lets the event loop do what is due. "1 run, 3 heard, 2 wait": also by now, and still.
   std::string run() {
      auto const runs = driver.run();
      return Kiv::toText( runs ) + " run, " + Kiv::toText( heard.size() ) + " heard, " +
             Kiv::toText( waiting() ) + " wait" + ( driver.timers() ? ", clock set" : "" );
   }

   unsigned toggled = 0;
   Kiv::Ptr< Hoba::HobaEventQueue > queue = Hoba::HobaEventQueue::HobaEventQueueIs( "events" );
   Kiv::Ptr< HobaTypes::HobaPortStatusDir > dir = Kiv::make< HobaTypes::HobaPortStatusDir >();
   Kiv::Ptr< HobaTypes::MacTable > table = Kiv::make< HobaTypes::MacTable >();
   Kiv::Ptr< HobaPortStatus > status1;
   Kiv::Ptr< LinkWatcher > watcher;
   Strings heard; // of port1's link, with the fault of that moment
   std::function< void() > then;
   Kiv::Ptr< ChipSm > sm;
   Kiv::Ptr< Hoba::HobaEventStatus > status;
};

// ---- When

TEST_F( EventQueueSmTest, eventsOfOnePassAreOneWakeUpInOrder ) {
   auto const before = Hoba::eventsWithoutMachine();
   toggle( 2 );
   Hoba::newMacEventIs( hostEvent( learnt ) );
   EXPECT_EQ( Hoba::eventsWithoutMachine(), before + 3 );
   start();
   Traces traces( "HobaEventHandler" );
   // The order of arrival outlives the last index.
   for( std::uint32_t const first : { 1u, 0xffffffff } ) {
      queue->nextIndexIs( first - 1 );
      heard.clear();
      linkIs( linkUp, faultLocal );
      linkIs( linkDown, faultRemote );
      linkIs( linkUp );
      EXPECT_EQ( traces.take()[ 1 ],
                 "Added event to queue with index " + std::to_string( first + 1 ) );
      EXPECT_EQ( queue->nextIndex(), first + 2 );
      EXPECT_EQ( heard, Strings{} );
      EXPECT_EQ( run(), "1 run, 3 heard, 0 wait" );
      EXPECT_EQ( heard,
                 ( Strings{ "linkUp faultLocal", "linkDown faultRemote", "linkUp faultNone" } ) );
      status1->linkStatusIs( linkDown );
   }
   EXPECT_EQ( Hoba::eventsWithoutMachine(), before + 3 );
}

TEST_F( EventQueueSmTest, whatIsReportedFromAHandlerWaitsForItsEnd ) {
   start();
   auto const status2 = dir->portStatusIs( port2 );
   then = [ & ] {
      toggled = 0;
      toggle( 2, port2 );
      EXPECT_EQ( status2->linkStatus(), Interface::linkUnknown ) << "still in the notification";
   };
   status1->linkStatusIs( linkUp );
   EXPECT_EQ( waiting(), 2u );
   driver.run();
   EXPECT_EQ( status2->linkStatus(), linkDown );
   // In the middle of a drain: behind what waits already, in the same wake-up.
   status2->linkStatusIs( Interface::linkUnknown );
   linkIs( linkDown );
   Hoba::newEventIs( linkEvent( port2, Interface::linkUnknown, faultRemote ) );
   EXPECT_EQ( driver.run(), 1u );
   EXPECT_EQ( status2->linkStatus(), linkDown );
   EXPECT_EQ( status2->faultType(), faultNone );
   EXPECT_EQ( status->drains() + driver.timers(), 2u );
}

// What came before it is initialized and runs waits; only a new event wakes a machine that does not
// run, and is thrown away.
TEST_F( EventQueueSmTest, whatWaitsForAMachineThatDoesNotWork ) {
   queueLinkUp();
   sm->initializedIs( true );
   sm->enabledIs( false );
   sm->enabledIs( true );
   sm->initializedIs( false );
   sm->runningIs( true );
   EXPECT_EQ( run(), "0 run, 0 heard, 1 wait" );
   EXPECT_FALSE( Hoba::eventSm() );
   sm->initializedIs( true );
   EXPECT_EQ( run(), "1 run, 1 heard, 0 wait" );
   toggled = 1;
   toggle( 2 );
   sm->initializedIs( false );
   EXPECT_EQ( run(), "1 run, 1 heard, 2 wait" ) << "a wake-up that came too late";
   sm->initializedIs( true );
   EXPECT_EQ( run(), "1 run, 3 heard, 0 wait" );
   EXPECT_EQ( sm->calls, Strings{ "hwInit registered" } );
   queueLinkUp();
   sm->runningIs( false );
   EXPECT_EQ( run(), "1 run, 3 heard, 0 wait" );
   queueLinkUp();
   EXPECT_EQ( run(), "1 run, 3 heard, 0 wait" );
   EXPECT_EQ( status->dropped( Hoba::dropNotRunning ), 2u );
   EXPECT_EQ( sm->eventCounter(), 3u );
}

TEST_F( EventQueueSmTest, disabledKeepsEvents ) {
   start();
   Traces traces( "HobaEventQueueSm" );
   sm->enabledIs( false );
   toggle( 3 );
   EXPECT_EQ( run(), "1 run, 0 heard, 3 wait" );
   EXPECT_EQ( traces.take(), Strings{ "Disable Event processing" } );
   EXPECT_EQ( status->drains(), 0u );
   then = [ & ] { sm->enabledIs( false ); };
   sm->enabledIs( true );
   EXPECT_EQ( run(), "1 run, 1 heard, 2 wait" ) << "disabled in the middle of the drain";
   then = [ & ] { sm->enabledIs( false ), sm->enabledIs( true ); };
   sm->enabledIs( true );
   EXPECT_EQ( run(), "1 run, 3 heard, 0 wait" ) << "a drain that goes on needs no other";
   EXPECT_EQ( status->drains(), 2u );
}

// Who hears of how many wait may stop it all before the first of them has its turn.
TEST_F( EventQueueSmTest, theDrainLooksAgainWhenItHasToldOfItself ) {
   start();
   using MarkWatcher = Watcher< Hoba::EventQueueStatus, Hoba::EventQueueStatus::highWaterMarkAttr >;
   auto const onMark = Hoba::smIs< MarkWatcher >( status );
   onMark->then = [ & ] { sm->enabledIs( false ); };
   toggle( 2 );
   driver.run();
   EXPECT_EQ( waiting(), 2u );
   onMark->then = [ & ] { queue->eventDelAll(); };
   sm->enabledIs( true );
   toggle( 1 );
   driver.run();
   EXPECT_EQ( heard, Strings{} );
   EXPECT_EQ( waiting() + sm->eventCounter(), 0u );
}

// ---- Who

TEST_F( EventQueueSmTest, hardwareIsInitializedAndCleanedUpOnce ) {
   Traces traces( "HobaEventQueueSm" );
   start();
   traces.take();
   sm->then = [ & ] { sm->running() ? void() : sm->cleanup(); };
   sm->runningIs( false );
   EXPECT_EQ( traces.take()[ 1 ], "Shutting down EventQueueSm" );
   sm->runningIs( true );
   sm->initializedIs( false );
   sm->cleanup(); // what the hardware would call is gone soon, initialized or not
   sm->cleanup();
   EXPECT_EQ( sm->calls,
              ( Strings{ "hwInit registered", "hwCleanup", "hwInit registered", "hwCleanup" } ) );
   EXPECT_FALSE( sm->running() || Hoba::eventSm() );

   // The hardware refuses.
   sm->initializedIs( true );
   sm->then = [ & ] { sm->runningIs( false ); };
   sm->runningIs( true );
   EXPECT_FALSE( Hoba::eventSm() );
   EXPECT_EQ( sm->calls.size(), 5u ) << "nothing to clean up";
}

TEST_F( EventQueueSmTest, whoEndsItMayDropTheLastReference ) {
   std::function< void( ChipSm * ) > const ends[] = {
         []( auto * machine ) { machine->cleanup(); },
         []( auto * machine ) { machine->runningIs( false ); },
         [ & ]( auto * machine ) { // from inside a handler, with events left
            toggle( 3 );
            then = [ machine ] { machine->cleanup(); };
            driver.run();
         } };
   for( auto const & end : ends ) {
      sm = Hoba::smIs< ChipSm >( data, queue, dir );
      start();
      auto * const machine = sm.get();
      sm = nullptr; // the entry functions hold it
      end( machine );
      EXPECT_FALSE( Hoba::eventSm() );
      EXPECT_EQ( driver.clocks(), 0u ) << "the machine is gone";
   }
   EXPECT_EQ( heard.size(), 1u );
   EXPECT_EQ( waiting(), 2u ) << "for the next one";
}

TEST_F( EventQueueSmTest, anotherMachineTakesOverInTheMiddleOfADrain ) {
   start();
   auto const queue2 = Hoba::HobaEventQueue::HobaEventQueueIs( "other" );
   auto const other = Hoba::smIs< ChipSm >( data, queue2, dir );
   other->initializedIs( true );
   toggle( 3 );
   then = [ & ] {
      other->runningIs( true );
      linkIs( linkUp );
      then = nullptr;
   };
   EXPECT_EQ( run(), "1 run, 3 heard, 0 wait, clock set" ) << "what was reported to it, it applied";
   EXPECT_EQ( Hoba::eventSm().get(), other.get() );
   EXPECT_EQ( queue2->event().size(), 1u );
   sm->runningIs( false );
   EXPECT_EQ( sm->calls.back(), "hwCleanup" );
   sm->cleanup();
   EXPECT_EQ( Hoba::eventSm().get(), other.get() ) << "whoever goes now";
   other->cleanup();
   EXPECT_FALSE( Hoba::eventSm() );
}

TEST_F( EventQueueSmTest, throwingAndMarkingInTheMiddleOfADrain ) {
   start();
   toggle( 5 );
   then = [ & ] {
      if( heard.size() == 2 ) {
         throw std::runtime_error( "no" );
      }
   };
   using QueueWatcher = Watcher< Hoba::HobaEventQueue, Hoba::HobaEventQueue::eventAttr >;
   auto onQueue = Hoba::smIs< QueueWatcher >( queue );
   onQueue->then = [] { throw std::runtime_error( "nor here" ); };
   EXPECT_EQ( run(), "1 run, 5 heard, 0 wait" ) << "who hears of it is no matter of the drain";
   EXPECT_EQ( failures(), 6u );
   onQueue = nullptr;

   // What the machine itself throws: the event is lost, and no other; the rest come next.
   toggle( 4 );
   sm->onEvent = [ & ] {
      sm->onEvent = nullptr;
      throw std::runtime_error( "not this one" );
   };
   EXPECT_EQ( run(), "1 run, 5 heard, 3 wait, clock set" );
   EXPECT_EQ( failures(), 1u );
   then = [ & ] { sm->kivDoZombieReactors( true ); };
   EXPECT_EQ( run(), "1 run, 6 heard, 1 wait" );
}

TEST_F( EventQueueSmTest, hardwareThatThrowsAtItsBeginningOrEnd ) {
   auto const refused = [] { throw std::runtime_error( "no chip" ); };
   sm->runningIs( true );
   sm->then = refused;
   EXPECT_THROW( sm->initializedIs( true ), std::runtime_error );
   EXPECT_FALSE( sm->initialized() || Hoba::eventSm() );
   sm->then = nullptr;
   sm->initializedIs( true );
   EXPECT_EQ( Hoba::eventSm(), sm );
   sm->then = refused;
   for( bool const running : { false, true } ) {
      EXPECT_THROW( sm->runningIs( running ), std::runtime_error );
      EXPECT_FALSE( sm->running() || Hoba::eventSm() );
   }
   toggle( 2 );
   EXPECT_EQ( waiting(), 0u ) << "nobody is there to take them";
   sm->then = nullptr;
   sm->runningIs( true );
   EXPECT_EQ( sm->calls, ( Strings{ "hwInit registered", "hwInit registered", "hwCleanup",
                                    "hwInit registered", "hwInit registered" } ) );
   // One that could not begin does not take the place of one that did.
   auto const former = std::exchange( sm, Hoba::smIs< ChipSm >( data, queue, dir ) );
   sm->initializedIs( true );
   sm->then = refused;
   EXPECT_THROW( sm->runningIs( true ), std::runtime_error );
   EXPECT_EQ( Hoba::eventSm(), former );
   sm->then = nullptr;
   former->cleanup();
}

TEST_F( EventQueueSmTest, chipCodeMustInitialize ) {
   auto const base = Hoba::EventQueueSm::EventQueueSmIs( data, nullptr, nullptr );
   base->initializedIs( true );
   EXPECT_DEATH( base->runningIs( true ), "^Call to unimplemented function EventQueueSm::hwInit" );
   Environment noop( "HOBA_NOOP_AGENT", "1" );
   base->runningIs( true );
   auto const before = Hoba::eventsWithoutMachine();
   toggle( 1 ); // a machine without queue, directory and table takes nothing, and stands that
   EXPECT_EQ( Hoba::eventsWithoutMachine(), before + 1 );
   Hoba::newMacEventIs( linkEvent( port1, linkUp ) );
   Hoba::newMacEventIs( hostEvent( HobaEvent::eventTypeMacAddressAgedLocal ) );
   EXPECT_EQ( base->eventStatus()->dropped( Hoba::dropNoPortStatus ), 1u );
   EXPECT_EQ( base->eventStatus()->dropped( Hoba::dropNoMacTable ), 1u );
   base->cleanup();
}

// ---- What. That each kind does what it says, the simulation of the whole switch sees.

class EventKindsTest : public EventQueueSmTest {
 protected:
   // Applies it at once, and returns what it traced last.
   std::string applied( HobaEvent const & event ) {
      sm->handleOneEvent( event );
      return traces.take().back();
   }
   Traces traces{ "HobaEventQueueSm" };
};

TEST_F( EventKindsTest, portEventsAreTraced ) {
   sm->handleOneEvent( linkEvent( port1, linkUp, faultLocal ) );
   EXPECT_EQ( heard, Strings{ "linkUp faultLocal" } );
   EXPECT_EQ( traces.take(), ( Strings{ "handleOneEvent event:eventTypePort", "In eventTypePort_",
                                        "Link linkUpfault status faultLocal" } ) );
   EXPECT_EQ( applied( linkEvent( port2, linkUp ) ),
              "Unable to find port: Ethernet2 for link event." );
   auto event = linkEvent( port1, linkDown );
   event.eventType = HobaEvent::eventTypeAutonegFailed;
   EXPECT_EQ( applied( event ), "Autoneg Event Ethernet1" );
   for( unsigned kind : { 15u, 255u } ) { // which no chip has
      event.eventType = Kind( kind );
      EXPECT_TRUE( has( applied( event ), "handleOneEvent event:" ) );
      EXPECT_EQ( Hoba::EventQueueSm::getEntryType( event.eventType, event.portType ),
                 Bridging::entryTypeUnknown );
   }
   EXPECT_EQ( heard.size(), 1u ) << "of the link only its own events tell";
   EXPECT_EQ( status->dropped( Hoba::dropUnknownKind ), 2u );
   EXPECT_EQ( sm->eventCounter(), 5u );
}

TEST_F( EventKindsTest, stationEventsAreTraced ) {
   std::string const aged = "Aged host 00:00:5e:00:53:01@10";
   std::string const noLocal = "Local Age event for the wrong entryType";
   std::string const noRemote = "Remote Age event for the wrong entryType";
   struct Row {
      Kind kind;
      std::string local, remote; // the last trace of the event, for such an entry
   };
   Row const rows[] = { { HobaEvent::eventTypeMacAddressAged, aged, aged },
                        { HobaEvent::eventTypeMacAddressAgedLocal, aged, noLocal },
                        { HobaEvent::eventTypeMacAddressAgedRemote, noRemote, aged } };
   std::string const learntHost =
         "Learnt host 00:00:5e:00:53:01@10 on port Ethernet1 entry type is ";
   for( auto const & row : rows ) {
      EXPECT_EQ( applied( hostEvent( learnt ) ), learntHost + "learnedDynamicMactunnel id is 0" );
      EXPECT_EQ( applied( hostEvent( row.kind ) ), row.local );
      EXPECT_EQ( applied( hostEvent( learnt, 1, port1, HobaEvent::vxlanPort ) ),
                 learntHost + "learnedRemoteMactunnel id is 77" );
      EXPECT_EQ( applied( hostEvent( row.kind ) ), row.remote );
   }
}

// A LAG is known in three places, which need not agree; and is one whatever the event says of its port.
TEST_F( EventKindsTest, aLearnEventWhereNobodyCanBeAges ) {
   std::string const onCpu = "Learn event on CPU port, aging host";
   std::string const noLag = "Learn event on deleted LAG, aging host";
   std::string const noMember = "The port collection has been deleted and is invalid, aging";
   struct Row {
      char const * port;
      std::string trace;
      std::function< void() > before = [] {};
   };
   Row const rows[] = {
         { "Cpu", onCpu },
         { "Port-Channel3", noLag },
         { "Port-Channel3", noMember, [ & ] { data->lagToPortIs( lag, {} ); } },
         { "Port-Channel3", noMember,
           [ & ] {
              data->lagToPortDel( lag );
              data->lagToPortConfigIs( lag, { { port2 } } );
           } },
         { "Port-Channel3", noMember,
           [ & ] {
              data->lagToPortConfigDel( lag );
              data->lagToLagTypeIs( lag, HobaTypes::lagTypeLacp );
           } },
   };
   for( auto const & row : rows ) {
      row.before();
      for( auto const portType : { HobaEvent::trunkPort, HobaEvent::fpPort } ) {
         applied( hostEvent( learnt ) );
         sm->handleOneEvent( hostEvent( HobaEvent::eventTypePeerMacAddressLearned, 1,
                                        Pelt::IntfId( row.port ), portType ) );
         EXPECT_EQ( traces.take()[ 1 ], row.trace );
         EXPECT_TRUE( table->macEntry().empty() );
      }
   }
}

// Around the end of the indices, too; also while the machine does not run.
TEST_F( EventKindsTest, macEventsOvertakeTheQueue ) {
   start();
   queue->nextIndexIs( 0xffffffff - 1 );
   for( std::uint64_t host : { 1, 2, 3 } ) {
      Hoba::newEventIs( hostEvent( deleted, host ) );
   }
   Traces entries( "HobaEventHandler" );
   Hoba::newMacEventIs( hostEvent( learnt, 1 ) );
   EXPECT_EQ( entries.take(), Strings{ "Added mac event to codef" } );
   Hoba::newMacEventIs( hostEvent( learnt, 3 ) );
   Hoba::newMacEventIs( linkEvent( port1, linkUp ) );
   Hoba::newEventIs( hostEvent( deleted, 3 ) );
   driver.run();
   EXPECT_TRUE( table->macEntryHas( hostNumber( 1 ) ) );
   EXPECT_FALSE( table->macEntryHas( hostNumber( 3 ) ) ) << "later than what overtook";
   EXPECT_EQ( status->dropped( Hoba::dropOvertaken ), 2u );
   sm->runningIs( false );
   Hoba::eventSmIs( sm );
   Hoba::newMacEventIs( hostEvent( learnt, 2 ) );
   EXPECT_TRUE( table->macEntryHas( hostNumber( 2 ) ) );
}

TEST_F( EventQueueSmTest, whatOvertookOneQueueSaysNothingOfAnother ) {
   start();
   Hoba::newEventIs( hostEvent( learnt, 2 ) );
   Hoba::newMacEventIs( hostEvent( HobaEvent::eventTypeMacAddressDeleted, 1 ) );
   EXPECT_EQ( sm->overtaken( hostNumber( 1 ) ), 1u );
   sm->eventQueueIs( queue );
   EXPECT_TRUE( sm->overtakenHas( hostNumber( 1 ) ) ) << "the same queue";
   sm->eventQueueIs( Hoba::HobaEventQueue::HobaEventQueueIs( "other" ) );
   Hoba::newEventIs( hostEvent( learnt, 1 ) ); // with an index that was overtaken in the first one
   driver.run();
   EXPECT_TRUE( table->macEntryHas( hostNumber( 1 ) ) );
   EXPECT_EQ( waiting(), 1u );
}

} // namespace
