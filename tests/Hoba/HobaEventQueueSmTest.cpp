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

Pelt::IntfId const port1( "Ethernet1" );
Pelt::IntfId const port2( "Ethernet2" );
Pelt::IntfId const lag( "Port-Channel3" );
Pelt::IntfId const tunnelIntf( "Vxlan1" );

HobaEvent
linkEvent( Pelt::IntfId port, Interface::LinkStatus status,
           HobaTypes::FaultType fault = HobaTypes::faultNone ) {
   HobaEvent event;
   event.port = port;
   event.linkStatus = status;
   event.faultType = fault;
   return event;
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
      if( onEvent ) {
         onEvent();
      }
      EventQueueSm::handleOneEvent( event );
   }
   std::function< void() > onEvent;
   Strings calls;
   std::function< void() > then;

 protected:
   ChipSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & data,
           Kiv::Ptr< Hoba::HobaEventQueue > const & queue,
           Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & dir )
         : EventQueueSm( data, queue, dir ) {}

 private:
   void said( std::string const & what ) {
      calls.push_back( what + ( Hoba::eventSm().get() == this ? " registered" : "" ) );
      if( then ) {
         then();
      }
   }
};

class EventQueueSmTest : public HobaFixture {
 protected:
   EventQueueSmTest() {
      status1 = dir->portStatusIs( port1 );
      watcher = Hoba::smIs< LinkWatcher >( status1 );
      watcher->then = [ this ] {
         heard.push_back( Kiv::toText( status1->linkStatus() ) + " " +
                          Kiv::toText( status1->faultType() ) );
         if( then ) {
            then();
         }
      };
      sm = Hoba::smIs< ChipSm >( data, queue, dir );
      sm->macTableIs( table );
      status = sm->eventStatus();
   }
   ~EventQueueSmTest() override {
      if( sm ) {
         sm->cleanup();
      }
      data->cleanup();
   }

   void start() {
      sm->initializedIs( true );
      sm->runningIs( true );
   }
   // Up and down in turn, beginning with up: each is a change.
   void toggle( unsigned times, Pelt::IntfId port = port1 ) {
      for( unsigned n = 0; n != times; ++n ) {
         Hoba::newEventIs(
               linkEvent( port, ++toggled % 2 ? Interface::linkUp : Interface::linkDown ) );
      }
   }
   std::size_t waiting() const { return queue->event().size(); }

   unsigned toggled = 0;
   Kiv::Ptr< Hoba::HobaCommonSmData > data = Kiv::make< Hoba::HobaCommonSmData >( "agent" );
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
   Hoba::newMacEventIs( hostEvent( HobaEvent::eventTypeMacAddressLearned ) );
   EXPECT_EQ( Hoba::eventsWithoutMachine(), before + 3 );
   start();
   Traces traces( "HobaEventHandler" );
   Hoba::newEventIs( linkEvent( port1, Interface::linkUp, HobaTypes::faultLocal ) );
   Hoba::newEventIs( linkEvent( port1, Interface::linkDown, HobaTypes::faultRemote ) );
   Hoba::newEventIs( linkEvent( port1, Interface::linkUp ) );
   EXPECT_EQ( traces.take(),
              ( Strings{ "Added event to queue with index 1", "Added event to queue with index 2",
                         "Added event to queue with index 3" } ) );
   EXPECT_EQ( queue->event().first()->key, 1u );
   EXPECT_EQ( heard, Strings{} );
   EXPECT_EQ( driver.run(), 1u );
   EXPECT_EQ( heard,
              ( Strings{ "linkUp faultLocal", "linkDown faultRemote", "linkUp faultNone" } ) );
   EXPECT_EQ( waiting() + driver.timers(), 0u );
   EXPECT_EQ( status->drains(), 1u );
   EXPECT_EQ( status->highWaterMark(), 3u );
   EXPECT_EQ( status->handled( HobaEvent::eventTypePort ), 3u );
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
   status1->linkStatusIs( Interface::linkUp );
   EXPECT_EQ( waiting(), 2u );
   driver.run();
   EXPECT_EQ( status2->linkStatus(), Interface::linkDown );

   // In the middle of a drain: behind what waits already, in the same wake-up.
   status2->linkStatusIs( Interface::linkUnknown );
   Hoba::newEventIs( linkEvent( port1, Interface::linkDown ) );
   Hoba::newEventIs( linkEvent( port2, Interface::linkUnknown, HobaTypes::faultRemote ) );
   EXPECT_EQ( driver.run(), 1u );
   EXPECT_EQ( status2->linkStatus(), Interface::linkDown );
   EXPECT_EQ( status2->faultType(), HobaTypes::faultNone );
   EXPECT_EQ( status->drains(), 2u );
   EXPECT_EQ( driver.timers(), 0u );
}

TEST_F( EventQueueSmTest, initializationOpensTheQueue ) {
   sm->runningIs( true );
   EXPECT_FALSE( Hoba::eventSm() );
   queue->eventIs( queue->nextIndexInc( 1 ), linkEvent( port1, Interface::linkUp ) );
   EXPECT_EQ( driver.timers(), 0u );
   sm->initializedIs( true );
   driver.run();
   EXPECT_EQ( heard, Strings{ "linkUp faultNone" } );

   toggle( 2 );
   sm->initializedIs( false );
   driver.run();
   EXPECT_EQ( waiting(), 2u ) << "a wake-up that came too late";
   sm->initializedIs( true );
   driver.run();
   EXPECT_EQ( waiting(), 0u );
   EXPECT_EQ( sm->calls, Strings{ "hwInit registered" } );
}

TEST_F( EventQueueSmTest, disabledKeepsEvents ) {
   start();
   Traces traces( "HobaEventQueueSm" );
   sm->enabledIs( false );
   toggle( 3 );
   driver.run();
   EXPECT_EQ( traces.take(), Strings{ "Disable Event processing" } );
   EXPECT_EQ( waiting(), 3u );
   EXPECT_EQ( status->drains(), 0u );

   then = [ & ] { sm->enabledIs( false ); };
   sm->enabledIs( true );
   driver.run();
   EXPECT_EQ( heard.size(), 1u );
   EXPECT_EQ( waiting(), 2u ) << "disabled in the middle of the drain";
   EXPECT_EQ( driver.timers(), 0u );

   then = [ & ] {
      sm->enabledIs( false );
      sm->enabledIs( true );
   };
   sm->enabledIs( true );
   driver.run();
   EXPECT_EQ( heard.size(), 3u );
   EXPECT_EQ( driver.timers(), 0u ) << "a drain that goes on needs no other";
   EXPECT_EQ( status->drains(), 2u );
}

TEST_F( EventQueueSmTest, notRunningDiscardsEvents ) {
   start();
   toggle( 2 );
   sm->runningIs( false );
   driver.run();
   EXPECT_EQ( waiting(), 0u );
   EXPECT_EQ( heard, Strings{} );
   EXPECT_EQ( status->dropped( Hoba::dropNotRunning ), 2u );
   EXPECT_EQ( sm->eventCounter(), 0u );
}

// What came before the machine runs waits for it; only a new event has it thrown away.
TEST_F( EventQueueSmTest, nothingButANewEventWakesAMachineThatDoesNotRun ) {
   queue->eventIs( queue->nextIndexInc( 1 ), linkEvent( port1, Interface::linkUp ) );
   sm->initializedIs( true );
   sm->enabledIs( false );
   sm->enabledIs( true );
   sm->initializedIs( false );
   sm->initializedIs( true );
   EXPECT_EQ( driver.run(), 0u );
   EXPECT_EQ( waiting(), 1u );
   sm->runningIs( true );
   driver.run();
   EXPECT_EQ( heard, Strings{ "linkUp faultNone" } );
   sm->runningIs( false );
   queue->eventIs( queue->nextIndexInc( 1 ), linkEvent( port1, Interface::linkDown ) );
   EXPECT_EQ( driver.run(), 1u );
   EXPECT_EQ( waiting(), 0u );
   EXPECT_EQ( status->dropped( Hoba::dropNotRunning ), 1u );
}

TEST_F( EventQueueSmTest, theOrderOfArrivalOutlivesTheLastIndex ) {
   start();
   queue->nextIndexIs( 0xffffffff - 2 );
   for( auto const fault : { HobaTypes::faultLocal, HobaTypes::faultRemote, HobaTypes::faultNone,
                             HobaTypes::faultRemote, HobaTypes::faultLocal } ) {
      Hoba::newEventIs(
            linkEvent( port1, ++toggled % 2 ? Interface::linkUp : Interface::linkDown, fault ) );
   }
   EXPECT_EQ( queue->nextIndex(), 2u );
   driver.run();
   EXPECT_EQ( heard, ( Strings{ "linkUp faultLocal", "linkDown faultRemote", "linkUp faultNone",
                                "linkDown faultRemote", "linkUp faultLocal" } ) );
}

TEST_F( EventQueueSmTest, floodIsOneWakeUp ) {
   constexpr unsigned many = 1'000'000;
   start();
   dir->portStatusDel( port1 ); // nobody hears of most of them
   toggle( many );
   dir->portStatusIs( port1, status1 );
   unsigned reports = 100'000; // one after the other, each from the handler of the one before
   then = [ & ] {
      if( reports && waiting() == 1 ) {
         --reports;
         toggle( 1 );
      }
   };
   EXPECT_EQ( driver.run(), 1u );
   EXPECT_EQ( sm->eventCounter(), many + 100'000u );
   EXPECT_EQ( status->highWaterMark(), many );
   EXPECT_EQ( status->drains(), 1u );
   EXPECT_EQ( waiting(), 0u );
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
   sm->initializedIs( true );
   EXPECT_EQ( sm->calls, Strings{} );
   sm->runningIs( true );
   Traces traces( "HobaEventQueueSm" );
   sm->then = [ & ] { sm->running() ? void() : sm->cleanup(); };
   sm->runningIs( false );
   sm->runningIs( true );
   sm->cleanup();
   EXPECT_EQ( sm->calls,
              ( Strings{ "hwInit registered", "hwCleanup", "hwInit registered", "hwCleanup" } ) );
   auto const said = traces.take();
   EXPECT_EQ( said[ 0 ], "handleRunning running:false" );
   EXPECT_EQ( said[ 1 ], "Shutting down EventQueueSm" );
   EXPECT_FALSE( sm->running() );
   EXPECT_FALSE( Hoba::eventSm() );

   // The hardware refuses.
   sm->then = [ & ] { sm->runningIs( false ); };
   sm->runningIs( true );
   EXPECT_FALSE( Hoba::eventSm() );
   EXPECT_EQ( sm->calls.size(), 5u ) << "nothing to clean up";
}

TEST_F( EventQueueSmTest, cleanupMayDropTheLastReference ) {
   start();
   auto * const machine = sm.get();
   sm = nullptr; // the entry functions hold it
   machine->cleanup();
   EXPECT_FALSE( Hoba::eventSm() );
   EXPECT_EQ( driver.clocks(), 0u );

   // By stopping it, too.
   sm = Hoba::smIs< ChipSm >( data, queue, dir );
   start();
   std::exchange( sm, nullptr ).get()->runningIs( false );
   EXPECT_EQ( driver.clocks(), 0u );

   // From inside a handler, with events left.
   sm = Hoba::smIs< ChipSm >( data, queue, dir );
   start();
   toggle( 3 );
   then = [ machine = std::exchange( sm, nullptr ).get() ] { machine->cleanup(); };
   driver.run();
   EXPECT_EQ( heard.size(), 1u );
   EXPECT_EQ( driver.clocks(), 0u ) << "the machine is gone";
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
      Hoba::newEventIs( linkEvent( port2, Interface::linkUp ) );
      then = nullptr;
   };
   driver.run();
   EXPECT_EQ( Hoba::eventSm().get(), other.get() );
   EXPECT_EQ( queue2->event().size(), 1u );
   EXPECT_EQ( waiting(), 0u );
   EXPECT_EQ( heard.size(), 3u ) << "what was reported to it, it applied";
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
   EXPECT_EQ( driver.run(), 1u );
   EXPECT_EQ( heard.size(), 5u ) << "who hears of an event and throws is no matter of the drain";
   EXPECT_EQ( failures(), 6u );
   onQueue = nullptr;

   // What the machine itself throws: the event is lost, and no other; the rest come next.
   toggle( 4 );
   sm->onEvent = [ & ] {
      sm->onEvent = nullptr;
      throw std::runtime_error( "not this one" );
   };
   EXPECT_EQ( driver.run(), 1u );
   EXPECT_EQ( failures(), 1u );
   EXPECT_EQ( waiting(), 3u );
   then = [ & ] { sm->kivDoZombieReactors( true ); };
   EXPECT_EQ( driver.run(), 1u );
   EXPECT_EQ( heard.size(), 6u );
   EXPECT_EQ( waiting(), 1u );
   EXPECT_EQ( driver.run(), 0u );
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
   EXPECT_THROW( sm->runningIs( false ), std::runtime_error );
   EXPECT_FALSE( sm->running() || Hoba::eventSm() );
   EXPECT_THROW( sm->runningIs( true ), std::runtime_error );
   EXPECT_FALSE( sm->running() || Hoba::eventSm() );
   toggle( 2 );
   EXPECT_EQ( waiting(), 0u ) << "nobody is there to take them";
   sm->then = nullptr;
   sm->runningIs( true );
   EXPECT_EQ( sm->calls, ( Strings{ "hwInit registered", "hwInit registered", "hwCleanup",
                                    "hwInit registered", "hwInit registered" } ) );
   toggle( 2 );
   driver.run();
   EXPECT_EQ( heard.size(), 2u );

   // One that could not begin does not take the place of one that did.
   auto const former = std::exchange( sm, Hoba::smIs< ChipSm >( data, queue, dir ) );
   sm->initializedIs( true );
   sm->then = refused;
   EXPECT_THROW( sm->runningIs( true ), std::runtime_error );
   EXPECT_EQ( Hoba::eventSm(), former );
   sm->then = nullptr;
   former->cleanup();
}

// What the hardware would call is gone soon.
TEST_F( EventQueueSmTest, cleanupEndsTheHardwaresPartAlsoWhenItIsNotInitialized ) {
   start();
   sm->calls.clear();
   sm->initializedIs( false );
   sm->cleanup();
   sm->cleanup();
   EXPECT_EQ( sm->calls, Strings{ "hwCleanup" } );
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
   base->handleOneEvent( linkEvent( port1, Interface::linkUp ) );
   base->handleOneEvent( hostEvent( HobaEvent::eventTypeMacAddressAgedLocal ) );
   EXPECT_EQ( base->eventStatus()->dropped( Hoba::dropNoPortStatus ), 1u );
   EXPECT_EQ( base->eventStatus()->dropped( Hoba::dropNoMacTable ), 1u );
   base->cleanup();
}

// ---- What

TEST_F( EventQueueSmTest, eventsHaveAPrintedForm ) {
   auto event =
         hostEvent( HobaEvent::eventTypePeerAuthenticatedMac, 1, tunnelIntf, HobaEvent::vxlanPort );
   event.faultType = HobaTypes::faultRemote;
   EXPECT_EQ(
         Kiv::toText( event ),
         "Value('Hoba::HobaEvent', ** {'eventType': eventTypePeerAuthenticatedMac, 'portType': "
         "vxlanPort, 'port': Vxlan1, 'tunnelId': 77, 'linkStatus': linkUnknown, 'faultType': "
         "faultRemote, 'host': 00:00:5e:00:53:01@10, 'advert': " +
               Kiv::toText( event.advert ) + "})" );
   EXPECT_EQ( HobaEvent::eventTypePeerAuthenticatedMac, 14 );
}

TEST_F( EventQueueSmTest, portEventsSetThePortStatus ) {
   Traces traces( "HobaEventQueueSm" );
   sm->handleOneEvent( linkEvent( port1, Interface::linkUp, HobaTypes::faultLocal ) );
   EXPECT_EQ( traces.take(), ( Strings{ "handleOneEvent event:eventTypePort", "In eventTypePort_",
                                        "Link linkUpfault status faultLocal" } ) );
   sm->handleOneEvent( linkEvent( port2, Interface::linkUp ) );
   EXPECT_EQ( traces.take().back(), "Unable to find port: Ethernet2 for link event." );
   EXPECT_EQ( dir->portStatus().size(), 1u );
   EXPECT_EQ( status->dropped( Hoba::dropNoPortStatus ), 1u );
   for( auto [ type, result ] :
        { std::pair( HobaEvent::eventTypeAutonegSuccess, Interface::autonegSuccess ),
          std::pair( HobaEvent::eventTypeAutonegFailed, Interface::autonegFailed ) } ) {
      HobaEvent event;
      event.eventType = type;
      event.port = port1;
      event.advert.speeds = 16u + type;
      sm->handleOneEvent( event );
      EXPECT_EQ( traces.take().back(), "Autoneg Event Ethernet1" );
      EXPECT_EQ( status1->autonegResult(), result );
      EXPECT_EQ( status1->partnerAutonegAdvertisement(), event.advert );
   }
   EXPECT_EQ( status1->linkStatus(), Interface::linkUp ) << "not of an autoneg event";

   auto event = linkEvent( port1, Interface::linkDown );
   for( unsigned kind : { 15u, 255u } ) {
      event.eventType = HobaEvent::HobaEventType( kind );
      sm->handleOneEvent( event );
      EXPECT_EQ( traces.take().size(), 1u );
   }
   EXPECT_EQ( status1->linkStatus(), Interface::linkUp );
   EXPECT_EQ( status->dropped( Hoba::dropUnknownKind ), 2u );
   EXPECT_EQ( sm->eventCounter(), 6u );
}

TEST_F( EventQueueSmTest, stationsAreLearntWithTheTypeOfTheirKind ) {
   using namespace Bridging;
   struct Row {
      Kind kind;
      EntryType local, remote;
   };
   data->lagToPortIs( lag, { { port2 } } );
   for( Row const & row :
        { Row{ HobaEvent::eventTypeMacAddressLearned, learnedDynamicMac, learnedRemoteMac },
          Row{ HobaEvent::eventTypeStaticMacAddress, configuredStaticMac, configuredRemoteMac },
          Row{ HobaEvent::eventTypeAuthenticatedMac, authenticatedMac, authenticatedMac },
          Row{ HobaEvent::eventTypeEvpnIntfDynamicMac, evpnIntfDynamicMac, evpnDynamicRemoteMac },
          Row{ HobaEvent::eventTypePeerMacAddressLearned, peerDynamicMac, peerLearnedRemoteMac },
          Row{ HobaEvent::eventTypePeerStaticMacAddress, peerStaticMac, peerStaticRemoteMac },
          Row{ HobaEvent::eventTypePeerAuthenticatedMac, peerAuthenticatedMac,
               peerAuthenticatedMac } } ) {
      SCOPED_TRACE( Kiv::toText( row.kind ) );
      driver.advance( 1 );
      sm->handleOneEvent( hostEvent( row.kind, 1 ) );
      sm->handleOneEvent( hostEvent( row.kind, 2, lag, HobaEvent::trunkPort ) );
      sm->handleOneEvent( hostEvent( row.kind, 3, tunnelIntf, HobaEvent::vxlanPort ) );
      auto const local = table->macEntry( hostNumber( 1 ) );
      EXPECT_EQ( local.entryType, row.local );
      EXPECT_EQ( local.intf, port1 );
      EXPECT_EQ( local.tunnelId, 0u );
      EXPECT_EQ( local.learnTime, driver.now() );
      EXPECT_EQ( local.learnedInHardware, row.kind == HobaEvent::eventTypeMacAddressLearned );
      EXPECT_EQ( table->macEntry( hostNumber( 2 ) ).entryType, row.local );
      EXPECT_EQ( table->macEntry( hostNumber( 3 ) ).entryType, row.remote );
      EXPECT_EQ( table->macEntry( hostNumber( 3 ) ).tunnelId, 77u );
   }
}

TEST_F( EventQueueSmTest, stationsAgeOnlyByAnEventOfTheirOwnSide ) {
   struct Row {
      Kind kind;
      char const * local; // the last trace of the event, for a local and for a remote entry
      char const * remote;
   };
   char const * const aged = "Aged host 00:00:5e:00:53:01@10";
   char const * const noLocal = "Local Age event for the wrong entryType";
   char const * const noRemote = "Remote Age event for the wrong entryType";
   char const * const deleted = "handleOneEvent event:eventTypeMacAddressDeleted";
   char const * const dropped = "handleOneEvent event:eventTypeDropMacAddress";
   Traces traces( "HobaEventQueueSm" );
   for( Row const & row : { Row{ HobaEvent::eventTypeMacAddressAged, aged, aged },
                            Row{ HobaEvent::eventTypeMacAddressAgedLocal, aged, noLocal },
                            Row{ HobaEvent::eventTypeMacAddressAgedRemote, noRemote, aged },
                            Row{ HobaEvent::eventTypeMacAddressDeleted, deleted, deleted },
                            Row{ HobaEvent::eventTypeDropMacAddress, dropped, dropped } } ) {
      for( bool remote : { false, true } ) {
         SCOPED_TRACE( Kiv::toText( row.kind ) + ( remote ? " remote" : " local" ) );
         sm->handleOneEvent( hostEvent( HobaEvent::eventTypeMacAddressLearned, 1, port1,
                                        remote ? HobaEvent::vxlanPort : HobaEvent::fpPort ) );
         EXPECT_EQ(
               traces.take().back(),
               std::string( "Learnt host 00:00:5e:00:53:01@10 on port Ethernet1 entry type is " ) +
                     ( remote ? "learnedRemoteMactunnel id is 77"
                              : "learnedDynamicMactunnel id is 0" ) );
         sm->handleOneEvent( hostEvent( row.kind ) );
         std::string const last = remote ? row.remote : row.local;
         EXPECT_EQ( traces.take().back(), last );
         EXPECT_EQ( table->macEntryHas( hostNumber( 1 ) ), last == noLocal || last == noRemote );
         sm->handleOneEvent( hostEvent( row.kind, 99 ) ); // nobody is no error
      }
   }
   EXPECT_EQ( status->dropped( Hoba::dropWrongAge ), 2u );
}

TEST_F( EventQueueSmTest, aLearnEventWhereNobodyCanBeAges ) {
   Pelt::IntfId const unknown( "Port-Channel4" );
   auto const onCpu = "Learn event on CPU port, aging host";
   auto const onDeletedLag = "Learn event on deleted LAG, aging host";
   auto const noCollection = "The port collection has been deleted and is invalid, aging";
   struct Row {
      Pelt::IntfId port;
      Hoba::EventDropReason reason;
      char const * trace;
      std::function< void() > before;
   };
   auto const none = [] {};
   Row const rows[] = {
         { Pelt::IntfId( "Cpu" ), Hoba::agedLearnOnCpuPort, onCpu, none },
         { unknown, Hoba::agedLearnOnDeletedLag, onDeletedLag, none },
         // LAGs without an active member: never had one, lost the last one, lost their list of them.
         { lag, Hoba::agedPortCollectionDeleted, noCollection,
           [ & ] { data->lagToPortIs( lag, {} ); } },
         { lag, Hoba::agedPortCollectionDeleted, noCollection,
           [ & ] {
              data->lagToPortConfigIs( lag, { { port2 } } );
              data->lagToPortIs( lag, { { port2 } } );
              data->lagToPortIs( lag, {} );
           } },
         { lag, Hoba::agedPortCollectionDeleted, noCollection,
           [ & ] { data->lagToPortDel( lag ); } },
         { lag, Hoba::agedPortCollectionDeleted, noCollection,
           [ & ] {
              data->lagToPortConfigDel( lag );
              data->lagToLagTypeIs( lag, HobaTypes::lagTypeLacp );
           } },
         { lag, Hoba::agedLearnOnDeletedLag, onDeletedLag,
           [ & ] { data->lagToLagTypeDel( lag ); } } };
   Traces traces( "HobaEventQueueSm" );
   std::map< Hoba::EventDropReason, unsigned > counted;
   for( Row const & row : rows ) {
      // What the event says of the kind of port makes no difference.
      for( auto const portType : { HobaEvent::trunkPort, HobaEvent::fpPort } ) {
         row.before();
         sm->handleOneEvent( hostEvent( HobaEvent::eventTypeMacAddressLearned ) );
         traces.take();
         sm->handleOneEvent(
               hostEvent( HobaEvent::eventTypePeerMacAddressLearned, 1, row.port, portType ) );
         EXPECT_EQ( traces.take(), ( Strings{ "handleOneEvent event:eventTypePeerMacAddressLearned",
                                              row.trace, "Aged host 00:00:5e:00:53:01@10" } ) );
         EXPECT_EQ( table->macEntry().size(), 0u );
         EXPECT_EQ( status->dropped( row.reason ), ++counted[ row.reason ] );
      }
   }
}

// The queue is overtaken, but older news never undoes newer: what waited for a station when newer
// news of it was applied is dropped. Of other stations, and reported later, it is applied.
TEST_F( EventQueueSmTest, macEventsOvertakeTheQueue ) {
   auto const learnt = HobaEvent::eventTypeMacAddressLearned;
   auto const deleted = HobaEvent::eventTypeMacAddressDeleted;
   start();
   queue->nextIndexIs( 0xffffffff - 1 ); // around the end of the indices, too
   Hoba::newEventIs( hostEvent( deleted, 1 ) );
   Hoba::newEventIs( hostEvent( learnt, 2, port1 ) );
   Hoba::newEventIs( hostEvent( learnt, 3, port1 ) );
   Traces traces( "HobaEventHandler" );
   Hoba::newMacEventIs( hostEvent( learnt, 1 ) );
   EXPECT_EQ( traces.take(), Strings{ "Added mac event to codef" } );
   Hoba::newMacEventIs( hostEvent( deleted, 2 ) );
   Hoba::newMacEventIs( hostEvent( learnt, 3, port2 ) );
   Hoba::newMacEventIs( linkEvent( port1, Interface::linkUp ) );
   Hoba::newEventIs( hostEvent( learnt, 4, port1 ) );
   driver.advance( 1 );
   EXPECT_TRUE( table->macEntryHas( hostNumber( 1 ) ) );
   EXPECT_FALSE( table->macEntryHas( hostNumber( 2 ) ) );
   EXPECT_EQ( table->macEntry( hostNumber( 3 ) ).intf, port2 );
   EXPECT_EQ( table->macEntry( hostNumber( 3 ) ).learnTime, 100 );
   EXPECT_EQ( table->macEntry( hostNumber( 4 ) ).intf, port1 );
   Hoba::newEventIs( hostEvent( deleted, 1 ) );
   Hoba::newMacEventIs( hostEvent( learnt, 4, port2 ) );
   Hoba::newEventIs( hostEvent( learnt, 4, port1 ) );
   driver.run();
   EXPECT_FALSE( table->macEntryHas( hostNumber( 1 ) ) ) << "later than what overtook once";
   EXPECT_EQ( table->macEntry( hostNumber( 4 ) ).intf, port1 );
   sm->runningIs( false );
   Hoba::eventSmIs( sm );
   Hoba::newMacEventIs( hostEvent( learnt ) );
   EXPECT_TRUE( table->macEntryHas( hostNumber( 1 ) ) ) << "also while it does not run";
}

TEST_F( EventQueueSmTest, whatOvertookOneQueueSaysNothingOfAnother ) {
   auto const learnt = HobaEvent::eventTypeMacAddressLearned;
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
