// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Dispatch.h"
#include "Kiv/Ptr.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

namespace {

using Kiv::make;
using Kiv::Ptr;

class Base : public Kiv::PtrInterface {
 public:
   using Last = std::function< void( Base & ) >;
   explicit Base( Last last = {}, Lifetime lifetime = Lifetime::anyThread )
         : PtrInterface( lifetime ), last_( std::move( last ) ) {}
   ~Base() override {
      if( last_ ) {
         last_( *this );
      }
   }
   Kiv::Type const & fwkType() const override { return Kiv::typeInstance< Base >; }

 private:
   Last last_;
};

class Derived : public Base {
 public:
   using Base::Base;
   Kiv::Type const & fwkType() const override { return Kiv::typeInstance< Derived >; }
};

// Destroyed only when nothing is in flight.
class Loop : public Base {
 public:
   explicit Loop( Last last ) : Base( std::move( last ), Lifetime::eventLoop ) {}
};

// Gives pointers to itself away while it is being built and while it is being silenced.
class Generous : public Base {
 public:
   Generous() {
      Ptr< Generous > const self( this );
      hasNotificationActiveIs( true );
   }
   void hasNotificationActiveIs( bool active ) override {
      Ptr< Generous > const self( this );
      PtrInterface::hasNotificationActiveIs( active );
   }
};

TEST( KivPtr, countsReferences ) {
   auto p = make< Derived >();
   Ptr< Base > q = p;
   Ptr< Base const > r = q;
   EXPECT_EQ( p->kivReferences(), 3u );
   EXPECT_TRUE( p == q && q == r && r == p.get() && p != nullptr );

   auto & sameAsQ = q;
   q = std::move( sameAsQ );
   q = sameAsQ;
   EXPECT_EQ( p->kivReferences(), 3u );
   q = nullptr;
   Ptr< Base const > moved = std::move( r );
   EXPECT_FALSE( r );
   p = nullptr;
   EXPECT_TRUE( Kiv::dynamicCast< Derived const >( moved ) );
   EXPECT_FALSE( Kiv::dynamicCast< Generous const >( moved ) );
   Base const * bare = moved.detach();
   EXPECT_EQ( bare->kivReferences(), 1u );
   EXPECT_EQ( Ptr< Base const >::adopt( bare )->kivReferences(), 1u );
}

TEST( KivPtr, theOldObjectIsReleasedLast ) {
   Ptr< Base > p;
   bool replaced = false;
   p = make< Base >( [ & ]( Base & dying ) { replaced = p && p != &dying; } );
   p = make< Base >();
   EXPECT_TRUE( replaced );
}

TEST( KivPtr, notificationStateLivesBesideTheCount ) {
   bool silent = false;
   auto p = make< Base >( [ & ]( Base & dying ) {
      silent = dying.kivMarkedForDeletion() && !dying.hasNotificationActive();
   } );
   p->hasNotificationActiveIs( true );
   p->kivMarkedForDeletionIs( true );
   Ptr< Base > q = p;
   EXPECT_TRUE( p->hasNotificationActive() && p->kivMarkedForDeletion() );
   p->kivMarkedForDeletionIs( false );
   EXPECT_TRUE( p->hasNotificationActive() && !p->kivMarkedForDeletion() );
   EXPECT_EQ( p->kivReferences(), 2u );
   p = q = nullptr;
   EXPECT_TRUE( silent ) << "a dying object is marked and hears nothing";
   make< Generous >(); // neither lost in its constructor nor destroyed twice
   EXPECT_EQ( Kiv::typeInstance< Base >.live(), 0u );
}

TEST( KivPtr, eventLoopObjectsWaitForWhatIsInFlight ) {
   std::string order;
   auto object = [ & ]( char name ) {
      return make< Loop >( [ &order, name ]( Base & ) { order += name; } );
   };
   {
      Kiv::Dispatch::Frame outer;
      object( 'a' );
      make< Base >( [ & ]( Base & ) { order += '!'; } ); // no event-loop object: at once
      {
         Kiv::Dispatch::Frame inner;
         object( 'b' );
         auto kept = object( 'c' );
         Base * raw = kept.get();
         kept = nullptr;
         EXPECT_TRUE( raw->kivMarkedForDeletion() );
         Ptr< Base > again( raw ); // taken up and dropped once more before it goes
         again = nullptr;
      }
      order += '.';
   }
   EXPECT_EQ( order, "!.abc" );

   // What a dying object drops dies with it; what its own notifications drop, right after them.
   order.clear();
   Ptr< Loop > held = object( 'h' );
   auto chain = make< Loop >( [ & ]( Base & ) {
      order += '1';
      {
         Kiv::Dispatch::Frame frame;
         object( '2' );
      }
      held = nullptr;
      order += '3';
   } );
   {
      Kiv::Dispatch::Frame frame;
      chain = nullptr;
   }
   EXPECT_EQ( order, "12h3" );
   EXPECT_FALSE( Kiv::Dispatch::waiting );
}

TEST( KivPtr, typesAreListedByName ) {
   auto const one = make< Derived >();
   Kiv::Type const & type = Kiv::typeInstance< Derived >;
   auto const all = Kiv::Type::all();
   EXPECT_EQ( std::count( all.begin(), all.end(), &type ), 1 );
   EXPECT_TRUE( std::is_sorted( all.begin(), all.end(), []( auto const * a, auto const * b ) {
      return a->name() < b->name();
   } ) );
   EXPECT_EQ( type.reflection(), nullptr );
}

TEST( KivPtr, threadSafePointersCountExactly ) {
   Kiv::threadSafePtrsIs( true );
   constexpr int rounds = 50'000;
   auto shared = make< Base >();
   auto const made = Kiv::typeInstance< Derived >.made();
   auto work = [ & ] {
      for( int i = 0; i < rounds; ++i ) {
         Ptr< Base > copy = shared;
         Ptr< Base > const second = copy;
         copy = make< Derived >();
      }
   };
   std::thread other( work );
   work();
   other.join();
   EXPECT_EQ( shared->kivReferences(), 1u );
   EXPECT_EQ( Kiv::typeInstance< Derived >.made(), made + 2 * rounds );
   EXPECT_EQ( Kiv::typeInstance< Derived >.live(), 0u );

   // Whoever drops the last reference destroys the object, once.
   for( int i = 0; i < 200; ++i ) {
      int destroyed = 0;
      auto mine = make< Base >( [ & ]( Base & ) { ++destroyed; } );
      std::thread dropper( [ theirs = mine ]() mutable { theirs = nullptr; } );
      mine = nullptr;
      dropper.join();
      EXPECT_EQ( destroyed, 1 );
   }
   Kiv::threadSafePtrsIs( false );
}

} // namespace
