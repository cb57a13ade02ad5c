// SPDX-License-Identifier: Apache-2.0

// Parity errors: the union of all slices in the shared context, the queue to the one who corrects
// them, and what is logged.

#include "HobaTest.h"

#include "Hoba/HobaParitySm.h"
#include "Kiv/Dir.h"

#include <algorithm>
#include <random>
#include <set>

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

class ParitySmTest : public ContextFixture {
 protected:
   using Data = Hoba::HobaCommonSmData;

   void start() { sm = Hoba::HobaParitySm::HobaParitySmIs( data, dir ); }
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
   // What the slices say, found out without the machine.
   void expectUnion() const {
      std::map< std::string, std::set< unsigned > > wanted; // counts by key
      std::size_t slices = 0;
      for( auto const & [ name, entity ] : dir->entry() ) {
         if( auto const status = Kiv::dynamicCast< ParityEventStatus >( entity ) ) {
            ++slices;
            for( auto const & [ key, event ] : status->parityEvent() ) {
               wanted[ Kiv::toText( key ) ].insert( event.count );
            }
         }
      }
      EXPECT_EQ( sm->paritySliceSm().size(), slices );
      auto const events = inContext();
      EXPECT_EQ( events.size(), wanted.size() );
      for( auto const & [ key, count ] : events ) {
         EXPECT_TRUE( wanted[ key ].contains( count ) ) << key << " with " << count;
      }
   }
   Kiv::Ptr< Kiv::Dir > dir = Kiv::make< Kiv::Dir >( "parity" );
   Kiv::Ptr< Watcher< Data, Data::parityEventAttr > > watcher =
         Hoba::smIs< Watcher< Data, Data::parityEventAttr > >( data );
   Kiv::Ptr< Hoba::HobaParitySm > sm;
};

// Slices come, go, are replaced, share keys and stand under two names; with the even seeds also from
// inside the notifications of the context, and of a slice before its machine hears. With the odd ones
// nothing nests, and what the context tells is exactly what became different, each key once.
class ParityRandomTest : public ParitySmTest, public testing::WithParamInterface< unsigned > {
 protected:
   using Early = Watcher< ParityEventStatus, ParityEventStatus::parityEventAttr >;

   unsigned below( unsigned n ) { return static_cast< unsigned >( random() % n ); }
   ParityEvent event() { return parityEvent( "any", below( 6 ), 1 + below( 3 ) ); }
   void nested() {
      if( GetParam() % 2 == 0 && depth < 3 && below( 4 ) == 0 ) {
         ++depth;
         step();
         --depth;
      }
   }
   void step() {
      auto const name = "slice" + std::to_string( below( 4 ) );
      auto const what = below( 20 );
      if( what == 0 ) {
         dir->entryDel( name );
      } else if( what == 1 ) {
         dir->entryIs( name, Kiv::make< Kiv::Dir >( name ) );
      } else if( what == 2 ) {
         auto const status = made.emplace_back( slice( name ) );
         early.emplace_back( Hoba::smIs< Early >( status ) )->then = [ this ] { nested(); };
         status->parityEventIs( event() );
         status->parityEventIs( event() );
         dir->entryIs( name, status );
      } else if( what == 3 && below( 4 ) == 0 ) {
         if( sm && below( 2 ) ) {
            Kiv::Ptr( sm )->kivDoZombieReactors( true );
            EXPECT_TRUE( depth || inContext().empty() ) << "something is left of a marked one";
         }
         sm = nullptr;
      } else if( !made.empty() ) {
         auto const recent = std::min< unsigned >( 8, made.size() );
         auto const status = made[ made.size() - 1 - below( recent ) ];
         if( what < 6 ) {
            dir->entryIs( name, status );
         } else if( what == 6 && below( 8 ) == 0 ) {
            status->parityEventDelAll();
         } else {
            auto const one = event();
            what < 12 ? status->parityEventDel( one.key ) : status->parityEventIs( one );
         }
      }
   }

   std::mt19937 random{ GetParam() };
   std::vector< Kiv::Ptr< ParityEventStatus > > made;
   std::vector< Kiv::Ptr< Early > > early;
   unsigned depth = 0;
};

TEST_P( ParityRandomTest, contextIsTheUnionOfTheSlices ) {
   start();
   watcher->then = [ this ] { nested(); };
   for( unsigned count = 0; count != 1500 && !HasFailure(); ++count ) {
      SCOPED_TRACE( "step " + std::to_string( count ) );
      auto const before = inContext();
      watcher->changes = 0;
      step();
      if( !sm ) {
         EXPECT_EQ( inContext(), Events{} );
         start();
      } else if( GetParam() % 2 ) {
         EXPECT_EQ( watcher->changes, changedKeys( before, inContext() ).size() );
      }
      if( sm ) {
         Kiv::Ptr( sm )->initializedIs( below( 2 ) );
         expectUnion();
      }
   }
   watcher->then = nullptr;
   sm = nullptr;
   EXPECT_EQ( inContext(), Events{} );
}

INSTANTIATE_TEST_SUITE_P( Seeds, ParityRandomTest, testing::Range( 1u, 17u ) );

TEST_F( ParitySmTest, oneChangeOfASliceIsOneChangeOfTheContext ) {
   auto const one = slice( "one", { 1 } );
   dir->entryIs( "one", one );
   start();
   watcher->changes = 0;
   Traces traces( "HobaParitySm" );
   one->parityEventIs( parityEvent( "one", 2 ) );
   one->parityEventIs( parityEvent( "one", 2 ) );
   one->parityEventIs( parityEvent( "one", 2, 5 ) );
   one->parityEventIs( {} ); // an empty event is none
   EXPECT_EQ( watcher->changes, 2u );
   one->parityEventDel( parityEvent( "one", 2 ).key );
   EXPECT_EQ( traces.take(),
              ( Strings{ "Parity event: one:l2:2 count:1", "Parity event: one:l2:2 count:5",
                         "Parity event gone: ::0", "Parity event gone: one:l2:2" } ) );
   auto * const machine = sm->paritySliceSm( "one" );
   dir->entryIs( "one", one ); // nothing new
   EXPECT_EQ( sm->paritySliceSm( "one" ), machine );
   EXPECT_EQ( watcher->changes, 3u );
   auto const without = Hoba::HobaParitySm::HobaParitySmIs( data, nullptr );
   EXPECT_EQ( without->paritySliceSm().size(), 0u );
}

// In the middle of its making of a slice.
TEST_F( ParitySmTest, nothingIsLeftOfAMachineThatItsOwnSliceEnds ) {
   for( bool marked : { true, false } ) {
      start();
      watcher->then = [ & ] { marked ? sm->kivDoZombieReactors( true ) : void( sm = nullptr ); };
      dir->entryIs( "one", slice( "one", { 2, 1 } ) );
      EXPECT_EQ( inContext(), Events{} );
      sm = nullptr;
      dir->entryDelAll();
   }
   watcher->then = nullptr;
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
      happens( then );
   }
};

class ParityEventQueueSmTest : public ContextFixture {
 protected:
   using QueueSm = Hoba::HobaParityEventQueueSm;

   ~ParityEventQueueSmTest() override { Hoba::parityEventSmIs( nullptr ); }
   static void report( std::uint32_t index ) {
      Hoba::HobaParityEvent event;
      event.key = parityEvent( "s", index ).key;
      event.severity = Hoba::parityNeedsReset;
      Hoba::newParityEventIs( event );
   }

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

} // namespace
