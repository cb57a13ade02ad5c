// SPDX-License-Identifier: Apache-2.0

// Reactors: when their handlers run, in which order, and what happens when a handler takes the
// ground away from under itself or others.

#include "KivExample.h"

#include "Kiv/ClockDriver.h"
#include "Kiv/ClockReactor.h"
#include "Kiv/Reflect.h"

#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <stdexcept>

namespace {

using namespace Example;
using Kiv::make;
using Kiv::Ptr;

std::uint64_t
liveObjects() {
   std::uint64_t live = 0;
   for( auto const * type : Kiv::Type::all() ) {
      live += type->live();
   }
   return live;
}

class KivReactor : public testing::Test {
 protected:
   ~KivReactor() override {
      EXPECT_FALSE( Kiv::Dispatch::inFlight() );
      EXPECT_FALSE( Kiv::Dispatch::waiting );
      script.actions.clear();
      machine = nullptr;
      node = other = nullptr;
      EXPECT_EQ( liveObjects(), liveBefore_ );
   }

   void on( std::string const & what, std::function< void() > action ) {
      script.actions[ what ] = std::move( action );
   }
   // Reactors 1, 2, ... on the node.
   void reactors( int count ) {
      for( int key = 1; key <= count; ++key ) {
         machine->nodeIs( key, node );
      }
      script.take();
   }

 private:
   std::uint64_t const liveBefore_ = liveObjects();

 protected:
   Script script;
   Ptr< Node > node = make< Node >();
   Ptr< Node > other = make< Node >( "other" );
   Ptr< Machine > machine = machineIs( script );
};

TEST_F( KivReactor, synchronisesInTheOrderOfTheTable ) {
   node->tagIs( 8 );
   node->tagIs( 3 );
   machine->nodeIs( 1, node );
   // Without a member there is no key to call the tag's handler with; that of points takes none.
   EXPECT_EQ( script.take(), ( Log{ "a1", "text1", "tag8", "tag3", "point1", "reviews" } ) );
   EXPECT_TRUE( machine->node( 1 )->isRegisteredNotifiee() );
   EXPECT_EQ( machine->node( 1 )->notifier(), node.get() );

   machine->nodeIs( 1, node );
   EXPECT_EQ( script.take(), Log{} ) << "it watches that one already";
   machine->nodeIs( 1, other );
   EXPECT_EQ( script.take(), ( Log{ "a1", "text1", "point1", "reviews" } ) );
   node->aIs( 1 );
   EXPECT_EQ( script.take(), Log{} );
   EXPECT_FALSE( node->kivWatched() );

   Ptr< Machine::KivNode > const reactor = machine->node( 1 );
   reactor->notifierIs( nullptr );
   EXPECT_FALSE( reactor->isRegisteredNotifiee() );
   EXPECT_EQ( reactor->notifier(), nullptr );
   other->aIs( 1 );
   machine->nodeIs( 1, nullptr );
   EXPECT_EQ( machine->node( 1 ), nullptr );
   machine->firstIs( nullptr );
   EXPECT_EQ( machine->first(), nullptr );
   EXPECT_EQ( script.take(), Log{} );
}

TEST_F( KivReactor, hearsWhatItsTableNames ) {
   reactors( 1 );
   node->aIs( 1 );
   node->pulseIs( 0 );
   node->textIs( "x" );
   node->tagIs( 4 );
   node->pointIs( "p", {} );
   node->reviewsInc( 1 );
   node->bIs( 6 );        // two rows
   node->lineIs( 1, "" ); // none
   EXPECT_EQ( script.take(),
              ( Log{ "a1", "text1", "text1", "tag4", "point1", "reviews", "b1", "again1" } ) );
}

TEST_F( KivReactor, handlersOfTheOwnerGetTheReactorsKey ) {
   auto leaf = make< Leaf >( "l" );
   machine->leafIs( 5, leaf );
   leaf->levelIs( 1 );
   EXPECT_EQ( script.take(), ( Log{ "level5", "level5" } ) );
}

TEST_F( KivReactor, silencedOrMarkedItHearsNothing ) {
   reactors( 2 );
   machine->firstIs( node );
   script.take();
   machine->hasNotificationActiveIs( false );
   node->aIs( 1 );
   machine->nodeIs( 3, node ); // synchronises, and is as silent as its owner
   script.take();
   node->aIs( 2 );
   EXPECT_EQ( script.take(), Log{} );
   machine->hasNotificationActiveIs( true );
   node->aIs( 3 );
   EXPECT_EQ( script.take(), ( Log{ "a1", "a2", "a0", "a3" } ) );
   machine->node( 1 )->kivDoZombieReactors( true );
   node->aIs( 4 );
   EXPECT_EQ( script.take(), ( Log{ "a2", "a0", "a3" } ) );
}

TEST_F( KivReactor, initialPassOnceTheOwnerIsInitialized ) {
   machine->nodeIs( 1, node );
   machine->nodeIs( 2, node );
   script.take();
   machine->initializedIs( true );
   machine->initializedIs( true );
   EXPECT_EQ( script.take(), ( Log{ "init1", "init2" } ) );
   machine->nodeIs( 3, node );
   EXPECT_EQ( script.take().back(), "init3" );
   machine->nodeIs( 3, other );
   EXPECT_EQ( script.take().back(), "reviews" ) << "initialized reactors stay so";

   // A reactor that is removed in another's initial pass has none.
   machine->initializedIs( false );
   machine->nodeDelAll();
   reactors( 3 );
   on( "init1", [ & ] { machine->nodeDel( 2 ); } );
   machine->initializedIs( true );
   EXPECT_EQ( script.take(), ( Log{ "init1", "init3" } ) );
}

TEST_F( KivReactor, deletedInItsSynchronisation ) {
   node->tagIs( 1 );
   node->tagIs( 2 );
   auto expectStopAt = [ & ]( std::string const & handler, Log const & expected ) {
      SCOPED_TRACE( handler );
      script.actions.clear();
      on( handler, [ & ] { machine->nodeDel( 1 ); } );
      machine->initializedIs( true );
      machine->nodeIs( 1, node );
      EXPECT_EQ( script.take(), expected );
      EXPECT_EQ( machine->node( 1 ), nullptr );
      EXPECT_FALSE( node->kivWatched() );
   };
   expectStopAt( "a1", { "a1" } );
   expectStopAt( "text1", { "a1", "text1" } );
   expectStopAt( "tag1", { "a1", "text1", "tag1" } );
   expectStopAt( "point1", { "a1", "text1", "tag1", "tag2", "point1" } );
   expectStopAt( "init1", { "a1", "text1", "tag1", "tag2", "point1", "reviews", "init1" } );
}

TEST_F( KivReactor, losesItsOwnerInItsSynchronisation ) {
   for( std::string handler : { "a1", "tag1", "init1" } ) {
      SCOPED_TRACE( handler );
      node->tagIs( 1 );
      script.actions.clear();
      machine = machineIs( script );
      machine->initializedIs( true );
      bool ownerAlive = false;
      on( handler, [ & ] {
         auto * owner = machine.get();
         machine = nullptr;
         ownerAlive = owner->initialized(); // on memory that is still the machine's
      } );
      script.take();
      machine->nodeIs( 1, node );
      EXPECT_TRUE( ownerAlive );
      EXPECT_EQ( script.take().back(), handler );
      EXPECT_FALSE( node->kivWatched() );
   }
   // The same in the walk over all reactors.
   machine = machineIs( script );
   script.actions.clear();
   reactors( 2 );
   machine->firstIs( node );
   on( "init1", [ & ] { machine = nullptr; } );
   script.take();
   machine->initializedIs( true );
   EXPECT_EQ( script.take(), ( Log{ "init0", "init1" } ) );
}

TEST_F( KivReactor, turnsElsewhereInItsSynchronisation ) {
   node->tagIs( 1 );
   node->tagIs( 2 );
   reactors( 1 );
   Ptr< Machine::KivNode > const reactor = machine->node( 1 );
   reactor->notifierIs( nullptr );
   for( std::string handler : { "a1", "tag1" } ) {
      SCOPED_TRACE( handler );
      on( handler, [ & ] { reactor->notifierIs( nullptr ); } );
      reactor->notifierIs( node );
      EXPECT_EQ( script.take().back(), handler ) << "there is nothing left to synchronise with";
      EXPECT_FALSE( reactor->isRegisteredNotifiee() );

      // The nested pass is the whole pass.
      on( handler, [ & ] {
         script.actions.clear();
         reactor->notifierIs( other );
      } );
      reactor->notifierIs( node );
      auto log = script.take();
      EXPECT_EQ( std::count( log.begin(), log.end(), "reviews" ), 1 );
      EXPECT_EQ( std::count( log.begin(), log.end(), "tag2" ), 0 );
      EXPECT_TRUE( reactor->isRegisteredNotifiee() );
      reactor->notifierIs( nullptr );
   }
}

TEST_F( KivReactor, membersMayGoWhileTheyAreWalked ) {
   for( std::uint16_t tag : { 1, 2, 3 } ) {
      node->tagIs( tag );
   }
   on( "tag1", [ & ] {
      node->tagDel( 1 );
      node->tagDel( 2 );
   } );
   machine->nodeIs( 1, node );
   // 1 and 2 are told of again, as changes: they have gone.
   EXPECT_EQ( script.take(),
              ( Log{ "a1", "text1", "tag1", "tag1", "tag2", "tag3", "point1", "reviews" } ) );
}

// What the handler of reactor 2 does, and who of reactors 1 to 4 hears of that change and the next.
struct Removal {
   char const * name;
   std::vector< int > removed;
   Log now;
   Log next;

   // Test names must not show addresses.
   friend void PrintTo( Removal const & removal, std::ostream * out ) { *out << removal.name; }
};

class KivRemoval : public KivReactor, public testing::WithParamInterface< Removal > {};

TEST_P( KivRemoval, inTheMiddleOfANotification ) {
   reactors( 4 );
   on( "a2", [ & ] {
      script.actions.clear();
      for( int key : GetParam().removed ) {
         machine->nodeDel( key );
      }
   } );
   node->aIs( 1 );
   EXPECT_EQ( script.take(), GetParam().now );
   node->aIs( 2 );
   EXPECT_EQ( script.take(), GetParam().next );
}

INSTANTIATE_TEST_SUITE_P(
      Kiv, KivRemoval,
      testing::Values( Removal{ "self", { 2 }, { "a1", "a2", "a3", "a4" }, { "a1", "a3", "a4" } },
                       Removal{
                             "previous", { 1 }, { "a1", "a2", "a3", "a4" }, { "a2", "a3", "a4" } },
                       Removal{ "next", { 3 }, { "a1", "a2", "a4" }, { "a1", "a2", "a4" } },
                       Removal{ "last", { 4 }, { "a1", "a2", "a3" }, { "a1", "a2", "a3" } },
                       Removal{ "nextAndLast", { 3, 4 }, { "a1", "a2" }, { "a1", "a2" } },
                       Removal{ "lastAndNext", { 4, 3 }, { "a1", "a2" }, { "a1", "a2" } },
                       Removal{ "all", { 1, 2, 3, 4 }, { "a1", "a2" }, {} } ),
      []( auto const & row ) { return row.param.name; } );

// The same when removed reactors are moved away rather than deleted: they leave the ring at once.
TEST_P( KivRemoval, byWatchingAnotherEntity ) {
   reactors( 4 );
   on( "a2", [ & ] {
      script.actions.clear();
      for( int key : GetParam().removed ) {
         machine->nodeIs( key, other );
      }
      script.take();
      script.log = { "a1", "a2" };
   } );
   node->aIs( 1 );
   EXPECT_EQ( script.take(), GetParam().now );
   node->aIs( 2 );
   EXPECT_EQ( script.take(), GetParam().next );
   other->aIs( 1 );
   EXPECT_EQ( script.take().size(), GetParam().removed.size() );
}

// ... or leave and join again, which puts them behind the notification under way.
TEST_P( KivRemoval, byLeavingAndJoiningAgain ) {
   reactors( 4 );
   on( "a2", [ & ] {
      script.actions.clear();
      for( int key : GetParam().removed ) {
         machine->node( key )->notifierIs( nullptr );
         machine->node( key )->notifierIs( node );
      }
      script.take();
      script.log = { "a1", "a2" };
   } );
   node->aIs( 1 );
   EXPECT_EQ( script.take(), GetParam().now );
   node->aIs( 2 );
   EXPECT_EQ( script.take().size(), 4u );
}

// Random comings, goings and nested writes from inside handlers, against a plain model: a write is
// heard by those who were there when it began, in their order, unless they have left before.
class KivReactorModel : public KivReactor {
 protected:
   static constexpr int keys = 7;

   void write() {
      writes_.emplace_back( present_.begin(), present_.end() );
      node->bIs( node->b() + 1 );
      EXPECT_EQ( writes_.back(), std::deque< int >() );
      writes_.pop_back();
   }
   void leave( int key ) {
      std::erase( present_, key );
      for( auto & waiting : writes_ ) {
         std::erase( waiting, key );
      }
      machine->nodeDel( key );
   }
   void join( int key ) {
      if( !machine->node( key ) ) {
         present_.push_back( key );
         machine->nodeIs( key, node );
      }
   }
   void heard( int key ) {
      ASSERT_FALSE( writes_.empty() );
      ASSERT_FALSE( writes_.back().empty() );
      ASSERT_EQ( writes_.back().front(), key );
      writes_.back().pop_front();
      for( auto actions = random_() % 3; actions; --actions ) {
         act();
      }
   }
   void act() {
      auto const key = static_cast< int >( random_() % keys );
      switch( random_() % 5 ) {
      case 0:
      case 1:
         leave( key );
         break;
      case 2:
         join( key );
         break;
      case 3:
         leave( key );
         join( key );
         break;
      default:
         if( writes_.size() < 4 ) {
            write();
         }
      }
   }

 private:
   std::vector< int > present_;
   std::vector< std::deque< int > > writes_;
   std::mt19937 random_{ 1 };
};

TEST_F( KivReactorModel, randomComingsAndGoings ) {
   for( int key = 0; key < keys; ++key ) {
      on( "b" + std::to_string( key ), [ this, key ] { heard( key ); } );
   }
   for( int round = 0; round < 400 && !HasFailure(); ++round ) {
      for( int key = 0; key < keys; ++key ) {
         join( key );
      }
      write();
      script.take();
   }
}

TEST_F( KivReactor, laterRowsHearNothingOnceItIsDeleted ) {
   reactors( 1 );
   on( "b1", [ & ] { machine->nodeDel( 1 ); } );
   node->bIs( 9 );
   EXPECT_EQ( script.take(), Log{ "b1" } );
}

TEST_F( KivReactor, deletedMachinesOutliveTheNotification ) {
   reactors( 3 );
   bool alive = false;
   on( "a1", [ & ] {
      auto * owner = machine.get();
      machine = nullptr;
      alive = owner->kivMarkedForDeletion() && owner->node( 3 );
   } );
   node->aIs( 1 );
   EXPECT_TRUE( alive );
   EXPECT_EQ( script.take(), Log{ "a1" } );
   EXPECT_FALSE( node->kivWatched() );
}

TEST_F( KivReactor, theEntityMayGoWhileItNotifies ) {
   reactors( 2 );
   auto drop = [ & ] {
      machine->nodeDelAll();
      node = nullptr;
   };
   auto expectGone = [ & ]( std::string const & handler, auto write ) {
      SCOPED_TRACE( handler );
      node = make< Node >();
      node->tagIs( 1 );
      node->tagIs( 2 );
      node->byLabelIs( {} );
      reactors( 2 );
      auto live = Kiv::typeInstance< Machine::KivNode >.live();
      on( handler, drop );
      auto * raw = node.get();
      write( *raw );
      EXPECT_EQ( node, nullptr );
      EXPECT_EQ( Kiv::typeInstance< Machine::KivNode >.live(), live - 2 );
      script.actions.clear();
   };
   expectGone( "a1", []( Node & raw ) { raw.aIs( 1 ); } );
   expectGone( "tag1", []( Node & raw ) { raw.tagDel( 1 ); } );
   expectGone( "tag1", []( Node & raw ) { raw.tagDelAll(); } );
   expectGone( "reviews", []( Node & raw ) { EXPECT_EQ( raw.reviewsInc( 3 ), 3u ); } );
   expectGone( "point1", []( Node & raw ) { raw.pointIs( "p", { .x = 4 } ); } );
   expectGone( "tag1", []( Node & raw ) {
      Node::kivType().reflection()->attribute( "tag" )->set( raw,
                                                             Kiv::Datum( Kiv::Datum::Array{} ) );
   } );
}

TEST_F( KivReactor, childrenMadeInTheirOwnRemoval ) {
   // The maker gets what it made, although a handler has taken it out again.
   Script more;
   class Remover : public Kiv::PtrInterface::NotifieeConst {
    public:
      explicit Remover( Node & node ) : node_( node ) {
         watch( &node );
         hasNotificationActiveIs( true );
      }
      Kiv::Type const & fwkType() const override { return Kiv::typeInstance< Remover >; }
      void onAttribute( Kiv::AttributeId const &, void const * ) override {
         node_.leafDel();
         node_.leavesDelAll();
      }

    private:
      Node & node_;
   };
   auto remover = make< Remover >( *node );
   EXPECT_EQ( node->leafIs( "one" )->name(), "one" );
   EXPECT_EQ( node->leavesIs( "two" )->name(), "two" );
   EXPECT_FALSE( node->leaf() );
   EXPECT_EQ( node->leaves().size(), 0u );
}

TEST_F( KivReactor, writesNestAndSettle ) {
   reactors( 2 );
   on( "a1", [ & ] {
      if( node->a() < 3 ) {
         node->aIs( node->a() + 1 );
      }
   } );
   node->aIs( 1 );
   // Reactor 2 hears the innermost write first; the outer ones come when all has settled.
   EXPECT_EQ( script.take(), ( Log{ "a1", "a1", "a1", "a2", "a2", "a2" } ) );
   EXPECT_EQ( node->a(), 3 );

   on( "a1", [ & ] { other->bIs( other->b() + 1 ); } );
   machine->nodeIs( 7, other );
   script.take();
   node->aIs( 9 );
   EXPECT_EQ( script.take(), ( Log{ "a1", "b7", "again7", "a2" } ) );
}

TEST_F( KivReactor, newcomersOnlySynchronise ) {
   reactors( 1 );
   on( "a1", [ & ] {
      script.actions.clear();
      machine->nodeIs( 2, node );
      machine->nodeIs( 3, node );
      script.take();
   } );
   node->aIs( 1 );
   EXPECT_EQ( script.take(), Log{} );
   node->aIs( 2 );
   EXPECT_EQ( script.take(), ( Log{ "a1", "a2", "a3" } ) );
}

TEST_F( KivReactor, deletionInANestedWriteWaitsForTheOutermost ) {
   reactors( 3 );
   Machine::KivNode const * first = machine->node( 1 );
   bool alive = false;
   on( "b1", [ & ] { machine->nodeDel( 1 ); } );
   on( "a1", [ & ] {
      node->bIs( 100 );
      alive = first->kivMarkedForDeletion();
   } );
   node->aIs( 1 );
   EXPECT_TRUE( alive );
   EXPECT_EQ( script.take(), ( Log{ "a1", "b1", "b2", "again2", "b3", "again3", "a2", "a3" } ) );
}

TEST_F( KivReactor, whatAHandlerThrowsEndsWithIt ) {
   Log told;
   static Log * sink = nullptr;
   sink = &told;
   Kiv::Dispatch::failureSink = []( std::string_view step, std::string_view why ) {
      sink->push_back( std::string( step ) + ": " + std::string( why ) );
      throw std::runtime_error( "nobody cares" );
   };
   reactors( 3 );
   on( "b2", [ & ] {
      machine->nodeDel( 3 );
      throw std::runtime_error( "refused" );
   } );
   on( "a1", [ & ] {
      node->bIs( node->b() + 1 );
      machine->nodeIs( 4, other );
   } );
   on( "a2", [] { throw 7; } );
   // In the initial synchronisation, too: the others of the table have their turn.
   on( "text4", [] { throw std::runtime_error( "no text" ); } );
   node->aIs( 1 );
   EXPECT_EQ( script.take(), ( Log{ "a1", "b1", "again1", "b2", "again2", "a4", "text4", "point4",
                                    "reviews", "a2" } ) );
   EXPECT_EQ( Kiv::typeInstance< Machine::KivNode >.live(), 3u ) << "the third one is released";
   EXPECT_TRUE( machine->node( 4 )->isRegisteredNotifiee() );
   EXPECT_EQ( told,
              ( Log{ "Example::Machine::KivNode::handleB on n: refused",
                     "Example::Machine::KivNode::handleText on other: no text",
                     "Example::Machine::KivNode::handleA on n: an exception of unknown kind" } ) );
   Kiv::Dispatch::failureSink = nullptr;
   testing::internal::CaptureStderr();
   node->aIs( 2 );
   EXPECT_NE( testing::internal::GetCapturedStderr().find( "handleA on n failed: an exc" ),
              std::string::npos );

   // A first pass: the others have theirs, and this one another with the next change.
   script.actions.clear();
   script.take();
   on( "init1", [] { throw std::runtime_error( "not yet" ); } );
   testing::internal::CaptureStderr();
   machine->initializedIs( true );
   node->aIs( 3 );
   EXPECT_EQ( script.take(), ( Log{ "init1", "init2", "init4", "init1", "a1", "a2" } ) );
   EXPECT_FALSE( machine->node( 1 )->initialized() );
   on( "init1", [ & ] {
      script.actions.clear();
      machine->nodeIs( 1, other );
   } );
   node->aIs( 4 );
   EXPECT_EQ( script.take(), ( Log{ "init1", "a1", "text1", "point1", "reviews", "init1", "a2" } ) )
         << "the change was of what it does not watch any more";
   EXPECT_TRUE( machine->node( 1 )->initialized() );
   other->aIs( 9 );
   EXPECT_EQ( script.take(), ( Log{ "a4", "a1" } ) );
   testing::internal::GetCapturedStderr();
}

TEST_F( KivReactor, aMachineMayGoInItsOwnDestructionsWrites ) {
   // Its destructor writes, which notifies another machine, which goes as well.
   class Writer : public Machine {
    public:
      Writer( Script & theScript, Ptr< Node > const & target )
            : Machine( theScript ), target_( target ) {}
      ~Writer() override { target_->aIs( target_->a() + 1 ); }

    private:
      Ptr< Node > target_;
   };
   Ptr< Machine > writer = make< Writer >( script, other );
   writer->hasNotificationActiveIs( true );
   writer->nodeIs( 1, node );
   machine->nodeIs( 2, other );
   on( "a1", [ & ] { writer = nullptr; } );
   on( "a2", [ & ] { machine = nullptr; } );
   script.take();
   node->aIs( 1 );
   EXPECT_EQ( script.take(), ( Log{ "a1", "a2" } ) );
   EXPECT_FALSE( other->kivWatched() );
}

// A machine that only waits.
class Waiter : public Kiv::PtrInterface, public Kiv::ReactorOwner {
 public:
   void handleTimeout() {
      ++timeouts;
      action();
   }
   class KivClock : public Kiv::ClockReactor< Waiter, &Waiter::handleTimeout > {};

   Waiter() : PtrInterface( Lifetime::eventLoop ) {}
   Kiv::Type const & fwkType() const override { return Kiv::typeInstance< Waiter >; }
   void hasNotificationActiveIs( bool active ) override {
      PtrInterface::hasNotificationActiveIs( active );
      reactorsActiveIs( active );
   }
   bool initialized() const { return true; }

   int timeouts = 0;
   std::function< void() > action = [] {};

   KIV_REACTOR( KivClock, clock );
};

class KivClockReactor : public testing::Test {
 protected:
   void SetUp() override {
      waiter->hasNotificationActiveIs( true );
      waiter->clockIs( clock );
   }
   Kiv::VirtualDriver driver{ 100 };
   Ptr< Kiv::Clock > const clock = make< Kiv::Clock >( driver );
   Ptr< Waiter > waiter = make< Waiter >();
};

TEST_F( KivClockReactor, firesOnceForEachArming ) {
   EXPECT_EQ( waiter->clock()->timeMin(), Kiv::never );
   EXPECT_EQ( waiter->clock()->now(), 100 );
   waiter->clock()->timeMinIs( 50 );
   EXPECT_EQ( waiter->timeouts, 0 ) << "never from inside the arming";
   driver.advance( 1 );
   driver.advance( 1 );
   EXPECT_EQ( waiter->timeouts, 1 );
   waiter->clock()->timeMinIs( 104 );
   waiter->clock()->timeMinIs( Kiv::never );
   driver.advance( 10 );
   EXPECT_EQ( waiter->timeouts, 1 );
   waiter->clock()->timeMinIs( 120 );
   waiter->clockIs( clock ); // the same: what it waits for stays
   waiter->hasNotificationActiveIs( false );
   driver.advance( 10 );
   waiter->hasNotificationActiveIs( true );
   driver.advance( 10 );
   EXPECT_EQ( waiter->timeouts, 1 ) << "the time came while it was silenced";
}

TEST_F( KivClockReactor, whatItThrowsStopsNoOther ) {
   auto const second = make< Waiter >();
   second->hasNotificationActiveIs( true );
   second->clockIs( clock );
   waiter->action = [ & ] {
      waiter->clock()->timeMinIs( waiter->timeouts == 1 ? 110 : Kiv::never );
      throw std::runtime_error( "late" );
   };
   waiter->clock()->timeMinIs( 101 );
   second->clock()->timeMinIs( 101 );
   auto const before = Kiv::Dispatch::failures;
   testing::internal::CaptureStderr();
   EXPECT_EQ( driver.advance( 20 ), 3u );
   EXPECT_NE( testing::internal::GetCapturedStderr().find( " on clock failed: late" ),
              std::string::npos );
   EXPECT_EQ( Kiv::Dispatch::failures, before + 2 );
   EXPECT_EQ( second->timeouts, 1 );
}

TEST_F( KivClockReactor, mayBeDeletedInItsHandler ) {
   waiter->action = [ & ] { waiter->clockDel(); };
   waiter->clock()->timeMinIs( 101 );
   driver.advance( 5 );
   EXPECT_EQ( waiter->timeouts, 1 );
   EXPECT_EQ( waiter->clock(), nullptr );

   // Another clock: what it waited for on the first is forgotten.
   auto second = make< Kiv::Clock >( driver );
   waiter->clockIs( clock );
   waiter->action = [ & ] {
      waiter->clockIs( second );
      waiter->clock()->timeMinIs( 107 );
   };
   waiter->clock()->timeMinIs( 106 );
   driver.advance( 1 );
   EXPECT_EQ( clock->timers(), 0u );
   EXPECT_EQ( second->timers(), 1u );

   waiter->action = [ & ] { waiter = nullptr; };
   driver.advance( 5 );
   EXPECT_EQ( waiter, nullptr );
   EXPECT_EQ( Kiv::typeInstance< Waiter >.live(), 0u );
   EXPECT_EQ( Kiv::typeInstance< Waiter::KivClock >.live(), 0u );
   EXPECT_EQ( second->timers(), 0u );
}

} // namespace
