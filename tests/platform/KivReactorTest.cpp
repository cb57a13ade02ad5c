// SPDX-License-Identifier: Apache-2.0

// Reactors: when their handlers run, in which order, and what happens when a handler takes the
// ground away from under itself or others.

#include "KivExample.h"

#include "Kiv/ClockDriver.h"
#include "Kiv/Reflect.h"

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
      clock = nullptr;
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
   Kiv::VirtualDriver driver{ 100 };
   Ptr< Kiv::Clock > clock = make< Kiv::Clock >( driver );
};

TEST_F( KivReactor, synchronisesInTheOrderOfTheTable ) {
   node->tagIs( 8 );
   node->tagIs( 3 );
   machine->nodeIs( 1, node );
   // Without a member there is no key to call the tag's handler with; that of points takes none.
   EXPECT_EQ( script.take(), "a1 text1 tag8 tag3 point1 reviews" );
   EXPECT_EQ( machine->node( 1 )->notifier(), node.get() );
   machine->nodeIs( 1, node );
   EXPECT_EQ( script.take(), "" ) << "it watches that one already";
   machine->nodeIs( 1, other );
   EXPECT_EQ( script.take(), "a1 text1 point1 reviews" );
   EXPECT_FALSE( node->kivWatched() );
   machine->node( 1 )->notifierIs( nullptr );
   other->aIs( 1 );
   machine->nodeIs( 1, nullptr );
   EXPECT_EQ( machine->node( 1 ), nullptr );
   EXPECT_EQ( script.take(), "" );
}

TEST_F( KivReactor, hearsWhatItsTableNames ) {
   reactors( 1 );
   node->aIs( 1 );
   node->pulseIs( 0 );
   node->textIs( "x" );
   node->tagIs( 4 );
   node->pointIs( "p", {} );
   node->reviewsInc( 1 );
   node->bIs( 6 );                    // two rows
   node->lineIs( 1, "" );             // none
   node->shapeIs( { .label = "s" } ); // a handler of the owner's that takes the reactor's key
   EXPECT_EQ( script.take(), "a1 text1 text1 tag4 point1 reviews b1 again1 shape1" );
   // Rows hear nothing once the handler of an earlier one has deleted the reactor.
   on( "b1", [ & ] { machine->nodeDel( 1 ); } );
   node->bIs( 9 );
   EXPECT_EQ( script.take(), "b1" );
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
   EXPECT_EQ( script.take(), "" );
   machine->hasNotificationActiveIs( true );
   node->aIs( 3 );
   EXPECT_EQ( script.take(), "a1 a2 a0 a3" );
   machine->node( 1 )->kivDoZombieReactors( true );
   node->aIs( 4 );
   EXPECT_EQ( script.take(), "a2 a0 a3" );
   // Who is on his way out gets no new ears.
   machine->kivDoZombieReactors( true );
   machine->nodeIs( 4, node );
   node->aIs( 5 );
   EXPECT_EQ( script.take(), "a2 a0 a3" );
}

TEST_F( KivReactor, initialPassOnceTheOwnerIsInitialized ) {
   machine->nodeIs( 1, node );
   machine->nodeIs( 2, node );
   script.take();
   machine->initializedIs( true );
   machine->initializedIs( true );
   EXPECT_EQ( script.take(), "init1 init2" );
   machine->nodeIs( 3, node );
   machine->nodeIs( 3, other ); // initialized reactors stay so
   EXPECT_EQ( script.take(), "a3 text3 point3 reviews init3 a3 text3 point3 reviews" );

   // A reactor that is removed in another's initial pass has none.
   machine->initializedIs( false );
   machine->nodeDelAll();
   reactors( 3 );
   on( "init1", [ & ] { machine->nodeDel( 2 ); } );
   machine->initializedIs( true );
   EXPECT_EQ( script.take(), "init1 init3" );
}

TEST_F( KivReactor, mayGoInItsSynchronisation ) {
   node->tagIs( 1 );
   node->tagIs( 2 );
   std::string const whole = "a1 text1 tag1 tag2 point1 reviews init1";
   auto const ownerGoes = [ & ] {
      auto * owner = machine.get();
      machine = nullptr;
      EXPECT_TRUE( owner->initialized() ) << "on memory that is still the machine's";
   };
   std::function< void() > const ways[] = { [ & ] { machine->nodeDel( 1 ); }, ownerGoes };
   for( auto const & goes : ways ) {
      for( std::string handler : { "a1", "text1", "tag1", "point1", "init1" } ) {
         SCOPED_TRACE( handler );
         script.actions.clear();
         machine = machineIs( script );
         machine->initializedIs( true );
         on( handler, goes );
         machine->nodeIs( 1, node );
         EXPECT_EQ( script.take(), whole.substr( 0, whole.find( handler ) + handler.size() ) );
         EXPECT_FALSE( node->kivWatched() );
      }
   }
   // The same in the walk over all reactors.
   script.actions.clear();
   machine = machineIs( script );
   reactors( 2 );
   machine->firstIs( node );
   on( "init1", ownerGoes );
   script.take();
   machine->initializedIs( true );
   EXPECT_EQ( script.take(), "init0 init1" );
}

TEST_F( KivReactor, turnsElsewhereInItsSynchronisation ) {
   node->tagIs( 1 );
   node->tagIs( 2 );
   reactors( 1 );
   Ptr< Machine::KivNode > const reactor = machine->node( 1 );
   reactor->notifierIs( nullptr );
   for( auto const & [ handler, before ] :
        { std::pair{ "a1", "a1" }, std::pair{ "tag1", "a1 text1 tag1" } } ) {
      on( handler, [ & ] { reactor->notifierIs( nullptr ); } );
      reactor->notifierIs( node );
      EXPECT_EQ( script.take(), before ) << "there is nothing left to synchronise with";
      EXPECT_FALSE( reactor->isRegisteredNotifiee() );

      // The nested pass is the whole pass.
      on( handler, [ & ] {
         script.actions.clear();
         reactor->notifierIs( other );
      } );
      reactor->notifierIs( node );
      EXPECT_EQ( script.take(), before + std::string( " a1 text1 point1 reviews" ) );
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
   EXPECT_EQ( script.take(), "a1 text1 tag1 tag1 tag2 tag3 point1 reviews" );
}

// Random comings, goings and nested writes from inside handlers, against a plain model: a write is
// heard by those who were there when it began, in their order, unless they have left before.
class KivReactorModel : public KivReactor {
 protected:
   static constexpr int keys = 7;

   void write() {
      writes_.emplace_back( present_.begin(), present_.end() );
      node->bIs( node->b() + 1 );
      EXPECT_TRUE( writes_.back().empty() ) << "not all have heard";
      writes_.pop_back();
   }
   // Deleted, gone to another entity, or watching none.
   void leave( int key ) {
      std::erase( present_, key );
      for( auto & waiting : writes_ ) {
         std::erase( waiting, key );
      }
      auto const way = random_() % 4;
      if( way == 0 && machine->node( key ) ) {
         machine->node( key )->notifierIs( nullptr );
      } else if( way == 1 ) {
         machine->nodeIs( key, other );
      } else {
         machine->nodeDel( key );
      }
   }
   void join( int key ) {
      if( std::count( present_.begin(), present_.end(), key ) == 0 ) {
         present_.push_back( key );
         machine->nodeIs( key, node );
      }
   }
   void heard( int key ) {
      if( HasFailure() ) { // lest a walk that has lost its end goes on for ever
         machine->nodeDelAll();
         return;
      }
      ASSERT_FALSE( writes_.empty() || writes_.back().empty() );
      ASSERT_EQ( writes_.back().front(), key );
      writes_.back().pop_front();
      for( auto actions = random_() % 3; actions; --actions ) {
         act();
      }
   }
   void act() {
      auto const key = static_cast< int >( random_() % keys );
      auto const deed = random_() % 5;
      if( deed <= 2 ) {
         leave( key );
      }
      if( deed == 2 || deed == 3 ) {
         join( key );
      }
      if( deed == 4 && writes_.size() < 4 ) {
         write();
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
   EXPECT_EQ( script.take(), "a1" );
   EXPECT_FALSE( node->kivWatched() );
}

TEST_F( KivReactor, theEntityMayGoWhileItNotifies ) {
   std::pair< char const *, std::function< void( Node & ) > > const cases[] = {
         { "a1", []( Node & raw ) { raw.aIs( 1 ); } },
         { "tag1", []( Node & raw ) { raw.tagDel( 1 ); } },
         { "tag1", []( Node & raw ) { raw.tagDelAll(); } },
         { "tag1",
           []( Node & raw ) {
              auto const * tags = Node::kivType().reflection()->attribute( "tag" );
              tags->set( raw, Kiv::Datum( Kiv::Datum::Array{} ) );
           } },
         { "reviews", []( Node & raw ) { EXPECT_EQ( raw.reviewsInc( 3 ), 3u ); } },
         { "point1", []( Node & raw ) { raw.pointIs( "p", { .x = 4 } ); } },
   };
   for( auto const & [ handler, write ] : cases ) {
      node = make< Node >();
      node->tagIs( 1 );
      node->tagIs( 2 );
      script.actions.clear();
      reactors( 2 );
      on( handler, [ & ] {
         machine->nodeDelAll();
         node = nullptr;
      } );
      write( *node.get() );
      EXPECT_EQ( node, nullptr );
      EXPECT_EQ( Kiv::typeInstance< Machine::KivNode >.live(), 0u );
   }
}

TEST_F( KivReactor, childrenMadeInTheirOwnRemoval ) {
   // The maker gets what it made, although a handler has taken it out again.
   auto const remover = make< Listener >( *node, [ & ]( std::string const & ) {
      node->leafDel();
      node->leavesDelAll();
   } );
   EXPECT_EQ( node->leafIs( "one" )->name(), "one" );
   EXPECT_EQ( node->leavesIs( "two" )->name(), "two" );
   EXPECT_FALSE( node->leaf() );
   EXPECT_EQ( node->leaves().size(), 0u );
}

TEST_F( KivReactor, whatAHandlerThrowsEndsWithIt ) {
   static std::string told;
   told.clear();
   Kiv::Dispatch::failureSink = []( std::string_view step, std::string_view why ) {
      told += std::string( step ) + ": " + std::string( why ) + "\n";
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
   EXPECT_EQ( script.take(), "a1 b1 again1 b2 again2 a4 text4 point4 reviews a2" );
   EXPECT_EQ( Kiv::typeInstance< Machine::KivNode >.live(), 3u ) << "the third one is released";
   EXPECT_TRUE( machine->node( 4 )->isRegisteredNotifiee() );
   EXPECT_EQ( told, "Example::Machine::KivNode::handleB on n: refused\n"
                    "Example::Machine::KivNode::handleText on other: no text\n"
                    "Example::Machine::KivNode::handleA on n: an exception of unknown kind\n" );
   Kiv::Dispatch::failureSink = nullptr;
   testing::internal::CaptureStderr();
   node->aIs( 2 );
   EXPECT_NE( testing::internal::GetCapturedStderr().find( "handleA on n failed: an exc" ),
              std::string::npos );
}

TEST_F( KivReactor, aFirstPassThatThrewIsMadeUpFor ) {
   reactors( 2 );
   on( "init1", [] { throw std::runtime_error( "not yet" ); } );
   testing::internal::CaptureStderr();
   machine->initializedIs( true );
   node->aIs( 3 );
   EXPECT_EQ( script.take(), "init1 init2 init1 a1 a2" );
   EXPECT_FALSE( machine->node( 1 )->initialized() );
   on( "init1", [ & ] {
      script.actions.clear();
      machine->nodeIs( 1, other );
   } );
   node->aIs( 4 );
   EXPECT_EQ( script.take(), "init1 a1 text1 point1 reviews init1 a2" )
         << "the change was of what it does not watch any more";
   EXPECT_TRUE( machine->node( 1 )->initialized() );
   other->aIs( 9 );
   EXPECT_EQ( script.take(), "a1" );
   testing::internal::GetCapturedStderr();
}

TEST_F( KivReactor, timersFireOnceForEachArming ) {
   machine->clockIs( 1, clock );
   machine->clockIs( 2, clock );
   auto * const timer = machine->clock( 1 );
   EXPECT_EQ( timer->timeMin(), Kiv::never );
   EXPECT_EQ( timer->now(), 100 );
   timer->timeMinIs( 50 );
   EXPECT_EQ( script.take(), "" ) << "never from inside the arming";
   driver.advance( 2 );
   EXPECT_EQ( script.take(), "timeout1" );
   timer->timeMinIs( 120 );
   machine->clockIs( 1, clock ); // the same: what it waits for stays
   EXPECT_EQ( clock->timers(), 1u );
   machine->hasNotificationActiveIs( false );
   driver.advance( 20 );
   machine->hasNotificationActiveIs( true );
   driver.advance( 20 );
   EXPECT_EQ( script.take(), "" ) << "the time came while it was silenced";

   // What it throws stops no other, and it may wait again.
   on( "timeout1", [ & ] {
      timer->timeMinIs( timer->now() < 155 ? 155 : Kiv::never );
      throw std::runtime_error( "late" );
   } );
   timer->timeMinIs( 150 );
   machine->clock( 2 )->timeMinIs( 150 );
   testing::internal::CaptureStderr();
   EXPECT_EQ( driver.advance( 20 ), 3u );
   EXPECT_NE( testing::internal::GetCapturedStderr().find( " on clock failed: late" ),
              std::string::npos );
   EXPECT_EQ( script.take(), "timeout1 timeout2 timeout1" );
}

TEST_F( KivReactor, timersMayGoInTheirHandlers ) {
   on( "timeout1", [ & ] { machine->clockDel( 1 ); } );
   machine->clockIs( 1, clock );
   machine->clock( 1 )->timeMinIs( 101 );
   driver.advance( 5 );
   EXPECT_EQ( machine->clock( 1 ), nullptr );

   // Another clock: what it waited for on the first is forgotten.
   auto second = make< Kiv::Clock >( driver );
   machine->clockIs( 2, clock );
   machine->clock( 2 )->timeMinIs( 106 );
   on( "timeout2", [ & ] {
      machine->clockIs( 2, second );
      machine->clock( 2 )->timeMinIs( 107 );
      on( "timeout2", [ & ] { machine = nullptr; } );
   } );
   driver.advance( 1 );
   EXPECT_EQ( clock->timers(), 0u );
   EXPECT_EQ( second->timers(), 1u );
   driver.advance( 5 );
   EXPECT_EQ( machine, nullptr );
   EXPECT_EQ( Kiv::typeInstance< Machine::KivClock >.live(), 0u );
   EXPECT_EQ( second->timers(), 0u );
}

} // namespace
