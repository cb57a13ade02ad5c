// SPDX-License-Identifier: Apache-2.0

// Parity errors: the union of all slices in the shared context, the queue to the one who corrects
// them, and what is logged.

#include "HobaTest.h"

#include "Hoba/HobaParitySm.h"
#include "Kiv/Dir.h"

#include <algorithm>
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
   // By key, what the slices say, found out without the machine.
   std::map< std::string, std::vector< unsigned > > inSlices() const {
      std::map< std::string, std::vector< unsigned > > events;
      for( auto const & [ name, entity ] : dir->entry() ) {
         if( auto const status = Kiv::dynamicCast< ParityEventStatus >( entity ) ) {
            for( auto const & [ key, event ] : status->parityEvent() ) {
               events[ Kiv::toText( key ) ].push_back( event.count );
            }
         }
      }
      return events;
   }
   void expectUnion() const {
      auto const wanted = inSlices();
      auto const events = inContext();
      EXPECT_EQ( events.size(), wanted.size() );
      for( auto const & [ key, count ] : events ) {
         auto const said = wanted.find( key );
         ASSERT_NE( said, wanted.end() ) << key << " is in no slice";
         EXPECT_NE( std::find( said->second.begin(), said->second.end(), count ),
                    said->second.end() )
               << key;
      }
   }
   static unsigned differences( Events const & before, Events const & after ) {
      unsigned count = 0;
      for( auto const & [ key, times ] : before ) {
         auto const now = after.find( key );
         count += now == after.end() || now->second != times;
      }
      for( auto const & [ key, times ] : after ) {
         count += !before.contains( key );
      }
      return count;
   }

   Kiv::Ptr< Data > data = Kiv::make< Data >( "agent" );
   Kiv::Ptr< Kiv::Dir > dir = Kiv::make< Kiv::Dir >( "parity" );
   Kiv::Ptr< Watcher< Data, Data::parityEventAttr > > watcher;
   Kiv::Ptr< Hoba::HobaParitySm > sm;
};

// Slices come, go, are replaced, share keys and stand under two names; with the even seeds also from
// inside the notifications of the context, and of a slice before its machine hears. With the odd ones
// nothing nests, and what the context tells is exactly what became different, each key once.
TEST_F( ParitySmTest, contextIsTheUnionOfTheSlices ) {
   for( unsigned seed = 1; seed <= 16; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      std::mt19937 random( seed );
      auto below = [ & ]( unsigned n ) { return static_cast< unsigned >( random() % n ); };
      auto event = [ & ] { return parityEvent( "any", below( 6 ), 1 + below( 3 ) ); };
      using Early = Watcher< ParityEventStatus, ParityEventStatus::parityEventAttr >;
      std::vector< Kiv::Ptr< ParityEventStatus > > made;
      std::vector< Kiv::Ptr< Early > > early;
      unsigned depth = 0;
      std::function< void() > step;
      auto const nested = [ & ] {
         if( seed % 2 == 0 && depth < 3 && below( 4 ) == 0 ) {
            ++depth;
            step();
            --depth;
         }
      };
      step = [ & ] {
         auto const name = "slice" + std::to_string( below( 4 ) );
         auto const what = below( 20 );
         if( what == 0 ) {
            dir->entryDel( name );
         } else if( what == 1 ) {
            dir->entryIs( name, Kiv::make< Kiv::Dir >( name ) );
         } else if( what == 2 ) {
            auto const status = made.emplace_back( slice( name ) );
            early.emplace_back( Hoba::smIs< Early >( status ) )->then = nested;
            status->parityEventIs( event() );
            status->parityEventIs( event() );
            dir->entryIs( name, status );
         } else if( what == 3 && below( 4 ) == 0 ) {
            sm = nullptr;
         } else if( !made.empty() ) {
            auto const status =
                  made[ made.size() - 1 - below( std::min< unsigned >( 8, made.size() ) ) ];
            if( what < 6 ) {
               dir->entryIs( name, status );
            } else if( what == 6 && below( 8 ) == 0 ) {
               status->parityEventDelAll();
            } else {
               auto const one = event();
               what < 12 ? status->parityEventDel( one.key ) : status->parityEventIs( one );
            }
         }
      };
      start();
      watcher->then = nested;
      for( unsigned count = 0; count != 1500; ++count ) {
         SCOPED_TRACE( "step " + std::to_string( count ) );
         auto const before = inContext();
         watcher->changes = 0;
         step();
         if( !sm ) {
            ASSERT_EQ( inContext(), Events{} );
            sm = Hoba::HobaParitySm::HobaParitySmIs( data, dir );
         } else if( seed % 2 ) {
            ASSERT_EQ( watcher->changes, differences( before, inContext() ) );
         }
         if( sm ) {
            Kiv::Ptr( sm )->initializedIs( below( 2 ) );
            expectUnion();
            ASSERT_FALSE( HasFailure() );
         }
      }
      watcher->then = nullptr;
      sm = nullptr;
      ASSERT_EQ( inContext(), Events{} );
      dir->entryDelAll();
   }
}

// Nothing that some slice has before and after is taken away in between.
TEST_F( ParitySmTest, aSliceThatTakesOverTellsOnlyWhatIsNew ) {
   start();
   auto const one = slice( "one", { 1, 2 } );
   dir->entryIs( "one", one );
   dir->entryIs( "alias", one );
   auto const shared = slice( "shared" );
   shared->parityEventIs( parityEvent( "one", 1, 7 ) );
   dir->entryIs( "shared", shared );
   EXPECT_EQ( inContext(), ( Events{ { "one:l2:1", 7 }, { "one:l2:2", 1 } } ) );
   watcher->changes = 0;
   dir->entryIs( "one", slice( "one", { 1, 2 } ) );
   EXPECT_EQ( watcher->changes, 0u ) << "replaced by an equal one";
   dir->entryDel( "shared" );
   EXPECT_EQ( watcher->changes, 1u );
   EXPECT_EQ( inContext(), ( Events{ { "one:l2:1", 1 }, { "one:l2:2", 1 } } ) );
   dir->entryDel( "one" );
   EXPECT_EQ( watcher->changes, 1u ) << "the same slice stands under another name";
   dir->entryIs( "alias", slice( "alias", {} ) );
   EXPECT_EQ( inContext(), Events{} );
}

TEST_F( ParitySmTest, silencedItMissesNothing ) {
   for( auto const * name : { "stays", "goes", "other" } ) {
      dir->entryIs( name, slice( name, { 1 } ) );
   }
   start();
   sm->hasNotificationActiveIs( false );
   Kiv::dynamicCast< ParityEventStatus >( dir->entry( "stays" ) )->parityEventDelAll();
   dir->entryDel( "goes" );
   dir->entryIs( "other", slice( "other", { 2 } ) );
   dir->entryIs( "comes", slice( "comes", { 3 } ) );
   sm->hasNotificationActiveIs( true );
   EXPECT_EQ( inContext(), ( Events{ { "other:l2:2", 1 }, { "comes:l2:3", 1 } } ) );
   expectUnion();
}

// Somebody repairs an entry as he hears of it: as the machine is made, and as a slice comes.
TEST_F( ParitySmTest, repairsInsideTheNotificationAreHeard ) {
   auto const one = slice( "one", { 1, 2, 3 } );
   auto const two = slice( "two", { 4 } );
   auto const repair = [ & ] {
      one->parityEventDelAll();
      two->parityEventDelAll();
   };
   dir->entryIs( "one", one );
   watcher = Hoba::smIs< Watcher< Data, Data::parityEventAttr > >( data );
   watcher->then = [ & ] {
      repair();
      dir->entryIs( "two", two );
   };
   sm = Hoba::HobaParitySm::HobaParitySmIs( data, dir );
   EXPECT_EQ( inContext(), Events{} );
   EXPECT_TRUE( sm->paritySliceSm( "two" ) );
   watcher->then = repair;
   dir->entryIs( "three", slice( "three", { 9 } ) );
   dir->entryIs( "one", slice( "one", { 1 } ) );
   EXPECT_EQ( inContext(), ( Events{ { "one:l2:1", 1 }, { "three:l2:9", 1 } } ) );
   two->parityEventIs( parityEvent( "two", 5 ) );
   EXPECT_EQ( inContext(), ( Events{ { "one:l2:1", 1 }, { "three:l2:9", 1 } } ) );
   watcher->then = nullptr;
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
   expectUnion();
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
   expectUnion();

   // As an event comes.
   auto const three = slice( "three" );
   dir->entryIs( "three", three );
   watcher->then = [ & ] { dir->entryDel( "three" ); };
   three->parityEventIs( parityEvent( "three", 1 ) );
   expectUnion();
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
   dir->entryDelAll();
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
