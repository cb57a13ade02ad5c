// SPDX-License-Identifier: Apache-2.0

// Parity errors: the union of all slices in the shared context, the queue to the one who corrects
// them, and what is logged.

#include "HobaTest.h"

#include "Hoba/HobaParitySm.h"
#include "Kiv/Dir.h"

#include <random>

namespace {

using namespace HobaTest;
using Hoba::ParityEvent;
using Hoba::ParityEventStatus;

ParityEvent
parityEvent( Kiv::String const & slice, std::uint32_t index, std::uint32_t count = 1 ) {
   ParityEvent event;
   event.key = { slice, "l2", index };
   event.count = count;
   return event;
}

using Events = std::map< std::string, unsigned >; // printed key to count

class ParitySmTest : public HobaFixture {
 protected:
   using Data = Hoba::HobaCommonSmData;

   ~ParitySmTest() override {
      sm = nullptr;
      data->cleanup();
   }

   void start() {
      watcher = Hoba::smIs< Watcher< Data, Data::parityEventAttr > >( data );
      sm = Hoba::HobaParitySm::HobaParitySmIs( data, dir );
   }
   static Kiv::Ptr< ParityEventStatus > slice( Kiv::String const & name,
                                               std::vector< std::uint32_t > const & indices = {} ) {
      auto const status = Kiv::make< ParityEventStatus >( name );
      for( auto index : indices ) {
         status->parityEventIs( parityEvent( name, index ) );
      }
      return status;
   }
   Events inContext() const {
      Events events;
      for( auto const & [ key, event ] : data->parityEvent() ) {
         EXPECT_EQ( key, event.key );
         events[ Kiv::toText( key ) ] = event.count;
      }
      return events;
   }
   // Found out without the machine.
   Events inSlices() const {
      Events events;
      for( auto const & [ name, entity ] : dir->entry() ) {
         if( auto const status = Kiv::dynamicCast< ParityEventStatus >( entity ) ) {
            for( auto const & [ key, event ] : status->parityEvent() ) {
               events[ Kiv::toText( key ) ] = event.count;
            }
         }
      }
      return events;
   }

   Kiv::Ptr< Data > data = Kiv::make< Data >( "agent" );
   Kiv::Ptr< Kiv::Dir > dir = Kiv::make< Kiv::Dir >( "parity" );
   Kiv::Ptr< Watcher< Data, Data::parityEventAttr > > watcher;
   Kiv::Ptr< Hoba::HobaParitySm > sm;
};

// Slices come, go and are replaced, and their events too, also those of slices that have gone.
TEST_F( ParitySmTest, contextIsTheUnionOfTheSlices ) {
   for( unsigned seed = 1; seed <= 20; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      std::mt19937 random( seed );
      auto below = [ & ]( unsigned n ) { return static_cast< unsigned >( random() % n ); };
      std::vector< Kiv::Ptr< ParityEventStatus > > made;
      start();
      for( unsigned step = 0; step != 1500; ++step ) {
         auto const name = "slice" + std::to_string( below( 4 ) );
         auto const what = below( 20 );
         if( what == 0 ) {
            dir->entryDel( name );
         } else if( what == 1 ) {
            dir->entryIs( name, Kiv::make< Kiv::Dir >( name ) );
         } else if( what == 2 ) {
            dir->entryIs( name, made.emplace_back( slice( name, { below( 6 ), below( 6 ) } ) ) );
         } else if( what == 3 ) {
            sm = nullptr;
            ASSERT_EQ( inContext(), Events{} );
            sm = Hoba::HobaParitySm::HobaParitySmIs( data, dir );
            sm->initializedIs( below( 2 ) );
         } else if( what == 4 && below( 8 ) == 0 && !made.empty() ) {
            made[ below( made.size() ) ]->parityEventDelAll();
         } else if( !made.empty() ) {
            auto const & status =
                  made[ made.size() - 1 - below( std::min< unsigned >( 8, made.size() ) ) ];
            auto const event = parityEvent( status->name(), below( 6 ), 1 + below( 3 ) );
            what < 12 ? status->parityEventDel( event.key ) : status->parityEventIs( event );
         }
         ASSERT_EQ( inContext(), inSlices() ) << "step " << step;
      }
      sm = nullptr;
      ASSERT_EQ( inContext(), Events{} );
      dir->entryDelAll();
   }
}

TEST_F( ParitySmTest, oneChangeOfASliceIsOneChangeOfTheContext ) {
   auto const one = slice( "one", { 1 } );
   dir->entryIs( "one", one );
   start();
   watcher->changes = 0;
   Traces traces( "HobaParitySm" );
   one->parityEventIs( parityEvent( "one", 2 ) );
   one->parityEventIs( parityEvent( "one", 2 ) );
   EXPECT_EQ( watcher->changes, 1u );
   one->parityEventIs( parityEvent( "one", 2, 5 ) );
   EXPECT_EQ( watcher->changes, 2u );
   one->parityEventIs( {} ); // an empty event is none
   EXPECT_EQ( watcher->changes, 2u );
   one->parityEventDel( parityEvent( "one", 2 ).key );
   EXPECT_EQ( traces.take(),
              ( Strings{ "Parity event: one:l2:2 count:1", "Parity event: one:l2:2 count:5",
                         "Parity event gone: ::0", "Parity event gone: one:l2:2" } ) );
   dir->entryIs( "one", one ); // nothing new
   auto * const machine = sm->paritySliceSm( "one" );
   dir->entryIs( "two", slice( "two", { 1, 7 } ) );
   EXPECT_EQ( watcher->changes, 5u );
   EXPECT_EQ( sm->paritySliceSm( "one" ), machine );
   dir->entryIs( "one", Kiv::make< Kiv::Dir >( "one" ) );
   EXPECT_EQ( sm->paritySliceSm( "one" ), nullptr );
   EXPECT_EQ( inContext(), ( Events{ { "two:l2:1", 1 }, { "two:l2:7", 1 } } ) );
   // What a slice had, and has no more, another one under a second name may have.
   auto const former = slice( "two", { 8 } );
   dir->entryIs( "former", former );
   former->parityEventDel( parityEvent( "two", 8 ).key );
   dir->entryIs( "later", slice( "two", { 8 } ) );
   dir->entryDel( "former" );
   EXPECT_EQ( inContext(), inSlices() );
   auto const without = Hoba::HobaParitySm::HobaParitySmIs( data, nullptr );
   EXPECT_EQ( without->paritySliceSm().size(), 0u );
}

// Who hears of an event may do anything to the slices.
TEST_F( ParitySmTest, slicesGoInTheMiddleOfTheirOwnNotifications ) {
   start();
   // As the slice itself comes: its machine is not complete yet.
   watcher->then = [ & ] { dir->entryDel( "one" ); };
   dir->entryIs( "one", slice( "one", { 1, 2, 3 } ) );
   EXPECT_EQ( inContext(), Events{} );
   EXPECT_EQ( sm->paritySliceSm().size(), 0u );
   watcher->then = [ &, done = false ]() mutable {
      if( !std::exchange( done, true ) ) {
         dir->entryIs( "one", slice( "one", { 2, 4 } ) );
      }
   };
   dir->entryIs( "one", slice( "one", { 1, 2, 3 } ) );
   EXPECT_EQ( inContext(), ( Events{ { "one:l2:2", 1 }, { "one:l2:4", 1 } } ) );
   watcher->then = nullptr;

   // As an event goes, by one who hears of it before the machine does.
   auto const two = slice( "two", { 5, 6 } );
   auto const early =
         Hoba::smIs< Watcher< ParityEventStatus, ParityEventStatus::parityEventAttr > >( two );
   dir->entryIs( "two", two );
   early->then = [ & ] { dir->entryDel( "two" ); };
   two->parityEventDel( parityEvent( "two", 5 ).key );
   EXPECT_EQ( inContext(), inSlices() );

   // As an event comes.
   auto const three = slice( "three" );
   dir->entryIs( "three", three );
   watcher->then = [ & ] { dir->entryDel( "three" ); };
   three->parityEventIs( parityEvent( "three", 1 ) );
   EXPECT_EQ( inContext(), inSlices() );
}

TEST_F( ParitySmTest, nothingIsLeftWhenItEnds ) {
   for( bool marked : { true, false } ) {
      SCOPED_TRACE( marked ? "marked" : "destroyed" );
      dir->entryIs( "one", slice( "one", { 1, 2 } ) );
      dir->entryIs( "two", slice( "two", { 1 } ) );
      start();
      EXPECT_EQ( inContext().size(), 3u );
      // A slice that comes as others go comes too late.
      watcher->then = [ & ] { dir->entryIs( "late", slice( "late", { 9 } ) ); };
      if( marked ) {
         sm->kivDoZombieReactors( true );
      } else {
         sm = nullptr;
      }
      EXPECT_EQ( inContext(), Events{} );
      watcher->then = nullptr;
      dir->entryDelAll();
   }
   // In the middle of its making of a slice.
   start();
   watcher->then = [ & ] { sm->kivDoZombieReactors( true ); };
   dir->entryIs( "one", slice( "one", { 1, 2 } ) );
   EXPECT_EQ( inContext(), Events{} );
   sm = nullptr;
   start();
   watcher->then = [ & ] { sm = nullptr; };
   dir->entryIs( "one", slice( "one", { 2, 1 } ) );
   EXPECT_EQ( inContext(), Events{} );
}

// ---- The queue

class CorrectingSm : public Hoba::HobaParityEventHelperSm {
 public:
   KIV_TYPE( CorrectingSm );
   void hwInit() override { said( "hwInit" ); }
   void hwCleanup() override { said( "hwCleanup" ); }
   void hwHandleParityError( Hoba::HobaParityEvent const & event ) override {
      said( Kiv::toText( event.key ) );
   }
   Strings calls;
   std::function< void() > then;

 protected:
   using HobaParityEventHelperSm::HobaParityEventHelperSm;

 private:
   void said( std::string const & what ) {
      calls.push_back( what + ( Hoba::parityEventSm() ? " registered" : "" ) );
      if( then ) {
         then();
      }
   }
};

class ParityEventQueueSmTest : public HobaFixture {
 protected:
   using QueueSm = Hoba::HobaParityEventQueueSm;

   ~ParityEventQueueSmTest() override {
      Hoba::parityEventSmIs( nullptr );
      data->cleanup();
   }
   static void report( std::uint32_t index ) {
      Hoba::HobaParityEvent event;
      event.key = parityEvent( "s", index ).key;
      event.severity = Hoba::parityNeedsReset;
      Hoba::newParityEventIs( event );
   }

   Kiv::Ptr< Hoba::HobaCommonSmData > data = Kiv::make< Hoba::HobaCommonSmData >( "agent" );
   Kiv::Ptr< Hoba::HobaParityEventQueue > queue =
         Hoba::HobaParityEventQueue::HobaParityEventQueueIs( "parity" );
   Kiv::Ptr< CorrectingSm > helper = Hoba::smIs< CorrectingSm >( data );
   Kiv::Ptr< QueueSm > sm = QueueSm::HobaParityEventQueueSmIs( data, queue, helper );
};

TEST_F( ParityEventQueueSmTest, errorsAreCorrectedInOrderBetweenInitAndCleanup ) {
   auto const before = Hoba::parityEventsWithoutMachine();
   report( 1 );
   EXPECT_EQ( Hoba::parityEventsWithoutMachine(), before + 1 );
   sm->runningIs( true );
   EXPECT_EQ( helper->calls, Strings{} );
   sm->initializedIs( true );
   Traces handed( "HobaEventHandler" );
   report( 9 );
   report( 4 );
   EXPECT_EQ( handed.take(), ( Strings{ "Added parity event to queue with index 1",
                                        "Added parity event to queue with index 2" } ) );
   EXPECT_EQ( driver.run(), 1u );
   EXPECT_EQ( helper->calls, ( Strings{ "hwInit", "s:l2:9 registered", "s:l2:4 registered" } ) );
   EXPECT_EQ( queue->event().size(), 0u );
   EXPECT_EQ( sm->eventStatus()->handled( Hoba::parityNeedsReset ), 2u );
   report( 5 );
   Traces traces( "HobaParityEventQueueSm" );
   sm->cleanup();
   EXPECT_EQ( traces.take(),
              ( Strings{ "Shutting down HobaParityEventQueueSm", "handleRunning running:false",
                         "handleRunning running:false" } ) );
   driver.run();
   EXPECT_EQ( helper->calls.size(), 4u );
   EXPECT_EQ( helper->calls.back(), "hwCleanup" );
   EXPECT_EQ( sm->eventStatus()->dropped( Hoba::dropNotRunning ), 1u );
   EXPECT_EQ( queue->event().size(), 0u );
}

TEST_F( ParityEventQueueSmTest, hardwareThatRefusesIsNotRegistered ) {
   sm->initializedIs( true );
   helper->then = [ & ] { sm->runningIs( false ); };
   sm->runningIs( true );
   EXPECT_FALSE( Hoba::parityEventSm() );
   EXPECT_EQ( helper->calls, Strings{ "hwInit" } );
   EXPECT_THROW( QueueSm::HobaParityEventQueueSmIs( data, queue, nullptr ), Kiv::Exception );
}

TEST_F( ParityEventQueueSmTest, chipCodeMustCorrect ) {
   auto const base = Hoba::HobaParityEventHelperSm::HobaParityEventHelperSmIs( data );
   EXPECT_DEATH( base->hwInit(), "^Call to unimplemented function hwInit" );
   EXPECT_DEATH( base->hwCleanup(), "^Call to unimplemented function hwCleanup" );
   EXPECT_DEATH( base->hwHandleParityError( {} ),
                 "^Call to unimplemented function hwCorrectParityError" );
   Environment noop( "HOBA_NOOP_AGENT", "1" );
   auto const without = QueueSm::HobaParityEventQueueSmIs( data, queue, base );
   without->initializedIs( true );
   without->runningIs( true );
   report( 1 );
   driver.run();
   EXPECT_EQ( queue->event().size(), 0u );
   without->cleanup();
}

TEST_F( ParityEventQueueSmTest, messages ) {
   Strings texts;
   for( auto const * one : Hoba::logCatalogue() ) {
      if( std::string_view( one->name ).starts_with( "HARDWARE_P" ) ) {
         texts.push_back( std::to_string( one->severity ) + " " + one->name + " " + one->format );
      }
   }
   EXPECT_EQ( texts, ( Strings{ "4 HARDWARE_PARITY_ERROR_CORRECTED_WITH_RESET Parity error %s in "
                                "memory %s on %s corrected by full chip reset",
                                "6 HARDWARE_PERR_CORRECTABLE %s", "6 HARDWARE_PERR_CORRECTED %s",
                                "4 HARDWARE_PERR_FATAL %s" } ) );
}

} // namespace
