// SPDX-License-Identifier: Apache-2.0

// Parity errors: the union of all slices in the shared context, the queue to the one who corrects
// them, and what is logged.

#include "HobaUnionTest.h"

#include "Hoba/HobaParitySm.h"

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
   std::map< ParityEvent::Key, ParityEvent > published() const {
      return mapOf( data->parityEvent() );
   }
   Kiv::Ptr< Kiv::Dir > dir = Kiv::make< Kiv::Dir >( "parity" );
   Kiv::Ptr< Watcher< Data, Data::parityEventAttr > > watcher =
         Hoba::smIs< Watcher< Data, Data::parityEventAttr > >( data );
   Kiv::Ptr< Hoba::HobaParitySm > sm;
};

class ParityUnion : public ParitySmTest, public Random {
 public:
   using Entity = ParityEventStatus;
   using Key = ParityEvent::Key;
   using Value = ParityEvent;
   static constexpr bool beginsAtOnce = false;

 protected:
   ParityUnion() {
      watcher->then = [ this ] { told(); };
   }
   virtual void told() = 0;
   virtual void nested() = 0;
   Kiv::Ptr< Entity > entityIs( Entity const * like ) {
      auto const status = Kiv::make< Entity >( "slice" );
      // Heard before the machine hears.
      early_.emplace_back( Hoba::smIs< Early >( status ) )->then = [ this ] { nested(); };
      for( auto const & [ key, event ] : listed( like ? *like : *status ) ) {
         status->parityEventIs( event );
      }
      change( *status );
      return status;
   }
   void change( Entity & status ) {
      auto const what = pick( 50 );
      auto const event = parityEvent( "any", pick( 6 ), 1 + pick( 3 ) );
      what == 0   ? status.parityEventDelAll()
      : what < 20 ? status.parityEventDel( event.key )
                  : status.parityEventIs( event );
   }
   void changeMachine() {
      if( sm && pick( 4 ) == 0 ) {
         if( pick( 2 ) ) {
            Kiv::Ptr( sm )->kivDoZombieReactors( true );
         }
         sm = nullptr;
      }
   }
   bool inStep() const {
      EXPECT_TRUE( sm || published().empty() ) << "something is left of it";
      return sm != nullptr;
   }
   static std::map< Key, Value > listed( Entity const & status ) {
      return mapOf( status.parityEvent() );
   }
   void check( std::size_t slices, auto const & ) const {
      EXPECT_EQ( sm->paritySliceSm().size(), slices );
   }

 private:
   using Early = Watcher< Entity, Entity::parityEventAttr >;
   std::vector< Kiv::Ptr< Early > > early_;
};

using ParityUnionTest = UnionTest< ParityUnion >;

TEST_P( ParityUnionTest, contextIsTheUnionOfTheSlices ) { live( 1500 ); }

INSTANTIATE_TEST_SUITE_P( Seeds, ParityUnionTest, testing::Range( 1u, 17u ) );

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
   EXPECT_EQ( published().size(), 2u );
   EXPECT_TRUE( data->parityEventHas( parityEvent( "other", 2 ).key ) );
   EXPECT_TRUE( data->parityEventHas( parityEvent( "comes", 3 ).key ) );
}

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
      EXPECT_TRUE( published().empty() );
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
