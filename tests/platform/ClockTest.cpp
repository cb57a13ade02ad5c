// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Clock.h"
#include "Kiv/ClockDriver.h"
#include "Mox/Seqno32.h"
#include "Mox/TimerWheel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <vector>

namespace {

using Kiv::Clock;
using Kiv::never;
using Kiv::Seconds;
using Kiv::VirtualDriver;
using Mox::Seqno32;
using Mox::TimerWheel;

class TestTimer : public Kiv::Timer {
 public:
   using Action = std::function< void() >;
   TestTimer( Clock & clock, Action action ) : Timer( clock ), action_( std::move( action ) ) {}

 private:
   void onTimeout() override {
      Action action = action_; // outlives the timer, which it may destroy
      action();
   }
   Action action_;
};

// Every rule holds for both kinds of clock.
template< class AnyClock >
class ClockRules : public testing::Test {
 protected:
   std::unique_ptr< TestTimer > timer( int id ) {
      return timer( id, [] {} );
   }
   std::unique_ptr< TestTimer > timer( int id, TestTimer::Action more ) {
      return std::make_unique< TestTimer >( clock, [ this, id, more = std::move( more ) ] {
         fired.push_back( id );
         more();
      } );
   }
   VirtualDriver driver{ 1000 };
   AnyClock clock{ driver };
   std::vector< int > fired;
};

using Fired = std::vector< int >;
using BothClocks = testing::Types< Clock, TimerWheel >;
TYPED_TEST_SUITE( ClockRules, BothClocks );

TYPED_TEST( ClockRules, TiesFireInArmingOrderAndReArmingCounts ) {
   auto a = this->timer( 1 ), b = this->timer( 2 ), c = this->timer( 3 ), d = this->timer( 4 );
   for( auto * each : { &a, &b, &c } ) {
      ( *each )->timeMinIs( 1005.5 );
   }
   d->timeMinIs( 1005.4999999 ); // the same tick of a wheel
   a->timeMinIs( 1005.5 );
   this->driver.advance( 10 );
   EXPECT_EQ( this->fired, ( Fired{ 4, 2, 3, 1 } ) );
   EXPECT_EQ( this->driver.now(), 1010 );
}

TYPED_TEST( ClockRules, NeverFiresEarlyNorInsideArming ) {
   auto past = this->timer( 1 ), now = this->timer( 2 ), soon = this->timer( 3 );
   Seconds const soonest = std::nextafter( 1000.0, never );
   soon->timeMinIs( soonest );
   now->timeMinIs( 1000 );
   past->timeMinIs( -never );
   EXPECT_TRUE( this->fired.empty() );
   EXPECT_EQ( this->driver.run(), 2u );
   EXPECT_EQ( this->fired, ( Fired{ 1, 2 } ) );
   EXPECT_EQ( soon->timeMin(), soonest );
   this->driver.timeIs( soonest );
   EXPECT_EQ( this->driver.run(), 1u );
   EXPECT_FALSE( soon->armed() );
   EXPECT_EQ( soon->timeMin(), never );
}

TYPED_TEST( ClockRules, DisarmingAndBadTimes ) {
   auto a = this->timer( 1 ), b = this->timer( 2 );
   a->timeMinIs( 1001 );
   b->timeMinIs( 1002 );
   EXPECT_THROW( a->timeMinIs( std::nan( "" ) ), Kiv::RangeException );
   EXPECT_EQ( a->timeMin(), 1001 );
   b->timeMinIs( never );
   b->timeMinIs( never );
   EXPECT_EQ( this->clock.timers(), 1u );
   a.reset();
   EXPECT_EQ( this->clock.timers(), 0u );
   EXPECT_EQ( this->driver.nextTimeout(), never );
   EXPECT_EQ( this->driver.advance( 1e6 ), 0u );
}

TYPED_TEST( ClockRules, CallbacksRearmThemselvesAndOthers ) {
   std::unique_ptr< TestTimer > other, self;
   std::vector< Seconds > times;
   other = this->timer( 2 );
   self = this->timer( 1, [ & ] {
      EXPECT_FALSE( self->armed() );
      times.push_back( this->clock.now() );
      if( times.size() < 4 ) {
         self->timeMinIs( this->clock.now() + 0.25 );
      }
      other->timeMinIs( this->clock.now() + 0.3 ); // always later than the next turn of self
   } );
   self->timeMinIs( 1001 );
   EXPECT_TRUE( this->driver.runUntilIdle( 100 ) );
   EXPECT_EQ( times, ( std::vector< Seconds >{ 1001, 1001.25, 1001.5, 1001.75 } ) );
   EXPECT_EQ( this->fired, ( Fired{ 1, 1, 1, 1, 2 } ) );
   EXPECT_EQ( this->driver.now(), 1001.75 + 0.3 );
}

TYPED_TEST( ClockRules, ARunFiresOnlyWhatWasDueWhenItBegan ) {
   std::unique_ptr< TestTimer > spinner, late, victim;
   spinner = this->timer( 1, [ & ] {
      spinner->timeMinIs( 0 ); // before everything else, yet not in this run
      if( this->fired.size() == 1 ) {
         late->timeMinIs( 1000 );
         victim->timeMinIs( 1000 ); // was due; re-armed, it waits for the next run
      }
   } );
   late = this->timer( 2 );
   victim = this->timer( 3 );
   auto other = this->timer( 4 );
   for( auto * each : { &spinner, &victim, &other } ) {
      ( *each )->timeMinIs( 1000 );
   }
   EXPECT_EQ( this->driver.run(), 2u );
   EXPECT_EQ( this->fired, ( Fired{ 1, 4 } ) );
   EXPECT_EQ( this->driver.run(), 3u );
   EXPECT_EQ( this->fired, ( Fired{ 1, 4, 1, 2, 3 } ) );
   // Time cannot pass while a timer re-arms itself for now without end.
   EXPECT_THROW( this->driver.advance( 1 ), Kiv::Exception );
}

TYPED_TEST( ClockRules, CallbacksDestroyThemselvesAndOthers ) {
   std::unique_ptr< TestTimer > self, before, sameRun, waiting, survivor;
   before = this->timer( 1 );
   self = this->timer( 2, [ & ] {
      self.reset();
      before.reset();
      sameRun.reset();
      waiting.reset();
   } );
   sameRun = this->timer( 3 );
   waiting = this->timer( 4 );
   survivor = this->timer( 5 );
   before->timeMinIs( 999 );
   self->timeMinIs( 1000 );
   sameRun->timeMinIs( 1000 );
   survivor->timeMinIs( 1000 );
   waiting->timeMinIs( 1001 );
   this->driver.run();
   EXPECT_EQ( this->fired, ( Fired{ 1, 2, 5 } ) );
   EXPECT_EQ( this->clock.timers(), 0u );
}

TYPED_TEST( ClockRules, AnExceptionLosesNoTimer ) {
   auto a = this->timer( 1, [] { throw Kiv::Exception( "from the callback" ); } );
   auto b = this->timer( 2 ), c = this->timer( 3 );
   for( auto * each : { &a, &b, &c } ) {
      ( *each )->timeMinIs( 1000 );
   }
   EXPECT_THROW( this->driver.run(), Kiv::Exception );
   EXPECT_EQ( this->clock.timers(), 2u );
   auto nested = this->timer( 4, [ & ] {
      EXPECT_THROW( this->driver.run(), Kiv::Exception );
      EXPECT_THROW( this->driver.advance( 1 ), Kiv::Exception );
   } );
   nested->timeMinIs( 1000 );
   this->driver.run();
   EXPECT_EQ( this->fired, ( Fired{ 1, 2, 3, 4 } ) );
}

TYPED_TEST( ClockRules, FarAndFarApart ) {
   constexpr Seconds year = 365 * 86400.0;
   Seconds const times[] = { 1000.001, 1e5,  1000 + year, 1000 + 200 * year,
                             1e12,     4e15, 5e15,        1e300 };
   std::vector< std::unique_ptr< TestTimer > > timers;
   for( Seconds time : times ) {
      timers.push_back( this->timer( static_cast< int >( timers.size() ) ) );
      timers.back()->timeMinIs( time );
   }
   // The same tick of a wheel for them, yet a different time.
   auto later = this->timer( 100 );
   later->timeMinIs( std::nextafter( 1e300, never ) );
   for( std::size_t i = 0; i < std::size( times ); ++i ) {
      this->driver.advanceTo( std::nextafter( times[ i ], 0 ) );
      ASSERT_EQ( this->fired.size(), i ) << "early: " << times[ i ];
      this->driver.advanceTo( times[ i ] );
      ASSERT_EQ( this->fired.size(), i + 1 ) << "late: " << times[ i ];
      ASSERT_EQ( this->fired.back(), static_cast< int >( i ) );
   }
   EXPECT_TRUE( later->armed() );
   EXPECT_TRUE( this->driver.runUntilIdle( 1e299 ) );
   EXPECT_EQ( this->fired.back(), 100 );
}

TYPED_TEST( ClockRules, TimersOutliveTheirClockAndClocksTheirDriver ) {
   auto shortLived = std::make_unique< VirtualDriver >( 5 );
   auto owned = std::make_unique< TypeParam >( *shortLived );
   std::vector< std::unique_ptr< TestTimer > > timers;
   for( int i = 0; i < 6; ++i ) {
      timers.push_back(
            std::make_unique< TestTimer >( *owned, [ this, i ] { this->fired.push_back( i ); } ) );
   }
   for( int i = 0; i < 5; ++i ) {
      timers[ 5u - i ]->timeMinIs( 5 + i % 2 );
   }
   shortLived.reset();
   EXPECT_EQ( owned->driver(), nullptr );
   EXPECT_EQ( owned->now(), 5 );
   timers[ 0 ]->timeMinIs( 5 ); // after all that were armed before the driver went
   timers[ 4 ]->timeMinIs( never );
   owned->driverIs( this->driver );
   auto here = this->timer( 100 );
   here->timeMinIs( 5 );
   EXPECT_EQ( this->driver.timers(), 6u );
   this->driver.run();
   EXPECT_EQ( this->fired, ( Fired{ 5, 3, 1, 0, 100, 2 } ) );
   for( int i = 0; i < 5; ++i ) {
      timers[ i ]->timeMinIs( 1000 + i );
   }
   owned.reset();
   EXPECT_FALSE( timers[ 3 ]->armed() );
   EXPECT_EQ( timers[ 0 ]->timeMin(), never );
   EXPECT_EQ( this->driver.clocks(), 1u );
   EXPECT_EQ( this->driver.advance( 100 ), 0u );
}

// Time slicing: a callback that takes long makes other timers late, not wrong.
TYPED_TEST( ClockRules, CallbacksMayTakeTime ) {
   auto slow = this->timer( 1, [ this ] { this->driver.timeIs( this->clock.now() + 10 ); } );
   auto b = this->timer( 2, [ this ] { EXPECT_EQ( this->clock.now(), 1011 ); } );
   slow->timeMinIs( 1001 );
   b->timeMinIs( 1002 );
   this->driver.advance( 5 );
   EXPECT_EQ( this->driver.now(), 1011 );
   EXPECT_EQ( this->fired, ( Fired{ 1, 2 } ) );
   EXPECT_THROW( this->driver.timeIs( 1010 ), Kiv::RangeException );
   EXPECT_THROW( this->driver.advance( never ), Kiv::RangeException );
}

TEST( ClockDriver, ClocksOfADriverInterleave ) {
   VirtualDriver driver;
   Clock a( driver ), b( driver );
   TimerWheel c( driver );
   Fired fired;
   std::vector< std::unique_ptr< TestTimer > > timers;
   Clock * clocks[] = { &a, &b, &c };
   for( int i = 0; i < 12; ++i ) {
      timers.push_back( std::make_unique< TestTimer >( *clocks[ i % 3 ],
                                                       [ &fired, i ] { fired.push_back( i ); } ) );
      timers.back()->timeMinIs( i < 6 ? 7 : 3 );
   }
   driver.timeIs( 8 ); // all overdue in one run
   EXPECT_EQ( driver.run(), 12u );
   EXPECT_EQ( fired, ( Fired{ 6, 7, 8, 9, 10, 11, 0, 1, 2, 3, 4, 5 } ) );
}

TEST( ClockDriver, AClockDestroyedOrMovedInARunTakesItsTimersAlong ) {
   VirtualDriver driver, elsewhere;
   auto doomed = std::make_unique< TimerWheel >( driver );
   TimerWheel moved( driver );
   Clock stays( driver );
   Fired fired;
   auto log = [ &fired ]( int id ) { return [ &fired, id ] { fired.push_back( id ); }; };
   TestTimer first( *doomed, [ & ] {
      fired.push_back( 1 );
      doomed.reset();
      moved.driverIs( elsewhere );
   } );
   TestTimer onDoomed( *doomed, log( 2 ) ), onMoved( moved, log( 3 ) ), onStays( stays, log( 4 ) );
   for( TestTimer * timer : { &first, &onDoomed, &onMoved, &onStays } ) {
      timer->timeMinIs( 0 );
   }
   driver.run();
   EXPECT_EQ( fired, ( Fired{ 1, 4 } ) );
   EXPECT_FALSE( onDoomed.armed() );
   elsewhere.run();
   EXPECT_EQ( fired, ( Fired{ 1, 4, 3 } ) );
}

TEST( ClockDriver, Ambient ) {
   Kiv::ClockDriver & own = Kiv::ClockDriver::ambient();
   {
      VirtualDriver driver;
      Kiv::ClockDriver::ambientIs( driver );
      Clock clock;
      TimerWheel wheel;
      EXPECT_EQ( clock.driver(), &driver );
      EXPECT_EQ( wheel.driver(), &driver );
   }
   EXPECT_EQ( &Kiv::ClockDriver::ambient(), &own );
}

TEST( ClockDriver, RealTime ) {
   Kiv::RealDriver driver;
   TimerWheel clock( driver );
   EXPECT_EQ( driver.pollTimeout(), -1 );
   Seconds firedAt = 0;
   TestTimer timer( clock, [ & ] { firedAt = clock.now(); } );
   Seconds const when = clock.now() + 0.01;
   timer.timeMinIs( when );
   EXPECT_GT( driver.pollTimeout(), -1 );
   while( timer.armed() ) {
      // Rounded down, the loop would be told not to sleep while nothing is due yet.
      if( driver.pollTimeout() == 0 ) {
         ASSERT_GE( clock.now(), clock.nextTimeout() );
      }
      driver.run();
   }
   EXPECT_GE( firedAt, when );
   timer.timeMinIs( 0 );
   EXPECT_EQ( driver.pollTimeout(), 0 );
   EXPECT_GT( driver.wallTime( clock.now() ), 1.6e9 );
}

// Random operations on a clock, with everything that fires written down. The operations are
// drawn inside callbacks, too, so that two clocks agree only if they fire in the same order.
class Script {
 public:
   Script( Clock & clock, VirtualDriver & driver, unsigned seed )
         : clock_( clock ), driver_( driver ), random_( seed ), timers_( count ) {}

   void play( int steps ) {
      for( int i = 0; i < steps; ++i ) {
         for( unsigned n = draw( 20 ); n > 0; --n ) {
            operation();
         }
         trace.push_back( static_cast< Seconds >( clock_.timers() ) );
         checkNext();
         if( draw( 4 ) == 0 ) {
            driver_.timeIs( driver_.now() + delay() );
            driver_.run();
         } else if( draw( 20 ) == 0 ) {
            driver_.runUntilIdle( 1000 );
         } else {
            driver_.advance( delay() );
         }
      }
   }

   std::vector< Seconds > trace;

 private:
   static constexpr unsigned count = 200;

   unsigned draw( unsigned below ) { return static_cast< unsigned >( random_() % below ); }

   // From below a tick to many levels of a wheel, and often the same again.
   Seconds delay() {
      Seconds unit = std::pow( 10.0, static_cast< int >( draw( 9 ) ) - 4 );
      return unit * ( 1 + draw( 8 ) ) / 4;
   }

   void operation() {
      unsigned i = draw( count );
      std::unique_ptr< TestTimer > & timer = timers_[ i ];
      unsigned const what = draw( 16 );
      if( !timer ) {
         timer = std::make_unique< TestTimer >( clock_, [ this, i ] { timeout( i ); } );
      } else if( what == 0 ) {
         timer.reset();
         return;
      } else if( what == 1 ) {
         timer->timeMinIs( never );
         return;
      }
      timer->timeMinIs( what == 2 ? clock_.now() - delay() : clock_.now() + delay() );
   }

   void timeout( unsigned i ) {
      trace.push_back( i );
      trace.push_back( clock_.now() );
      // At most one re-arming for each timer that fires, and not always: the script ends.
      if( draw( 3 ) != 0 ) {
         operation();
      }
   }

   // The wheel's answer may be early, never late.
   void checkNext() {
      Seconds first = never;
      for( auto const & timer : timers_ ) {
         if( timer ) {
            first = std::min( first, timer->timeMin() );
         }
      }
      EXPECT_LE( driver_.nextTimeout(), first );
      EXPECT_EQ( driver_.nextTimeout() == never, first == never );
   }

   Clock & clock_;
   VirtualDriver & driver_;
   std::minstd_rand random_;
   std::vector< std::unique_ptr< TestTimer > > timers_;
};

TEST( TimerWheel, BehavesAsTheBasicClock ) {
   for( unsigned seed = 1; seed <= 40; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      Seconds const start = seed % 3 == 0 ? -500.0 : 1e5 * seed;
      VirtualDriver basicDriver( start ), wheelDriver( start );
      Clock basic( basicDriver );
      TimerWheel wheel( wheelDriver );
      Script basicScript( basic, basicDriver, seed ), wheelScript( wheel, wheelDriver, seed );
      basicScript.play( 300 );
      wheelScript.play( 300 );
      ASSERT_GT( basicScript.trace.size(), 1000u );
      ASSERT_EQ( basicScript.trace, wheelScript.trace );
   }
}

TEST( Clock, FiresInTheOrderOfASortedSet ) {
   std::minstd_rand random( 7 );
   VirtualDriver driver;
   Clock clock( driver );
   using Key = std::tuple< Seconds, int, std::size_t >; // time, arming, timer
   std::set< Key > expected;
   std::vector< Key > keys( 500 );
   std::vector< std::size_t > fired, order;
   std::vector< std::unique_ptr< TestTimer > > timers;
   for( std::size_t i = 0; i < keys.size(); ++i ) {
      timers.push_back(
            std::make_unique< TestTimer >( clock, [ &fired, i ] { fired.push_back( i ); } ) );
   }
   for( int arming = 0; arming < 20'000; ++arming ) {
      std::size_t i = random() % keys.size();
      expected.erase( keys[ i ] );
      keys[ i ] = { random() % 8 == 0 ? never : static_cast< Seconds >( random() % 100 ), arming,
                    i };
      timers[ i ]->timeMinIs( std::get< 0 >( keys[ i ] ) );
      if( timers[ i ]->armed() ) {
         expected.insert( keys[ i ] );
      }
      ASSERT_EQ( clock.nextTimeout(), std::get< 0 >( *expected.begin() ) );
   }
   for( Key const & key : expected ) {
      order.push_back( std::get< 2 >( key ) );
   }
   driver.advance( 100 );
   EXPECT_EQ( fired, order );
}

TEST( Seqno32, OrderAcrossTheWrap ) {
   struct Case {
      std::uint32_t a, b;
      bool precedes, follows;
   };
   for( Case c :
        { Case{ 0, 0, false, false }, Case{ 1, 2, true, false }, Case{ 0xffffffff, 0, true, false },
          Case{ 5, 0xfffffff0, false, true }, Case{ 0, 0x7fffffff, true, false },
          Case{ 0, 0x80000001, false, true }, Case{ 0, 0x80000000, false, false },
          Case{ 0xc0000000, 0x40000000, false, false } } ) {
      Seqno32 a( c.a ), b( c.b );
      EXPECT_EQ( a.precedes( b ), c.precedes ) << c.a << ' ' << c.b;
      EXPECT_EQ( a < b, c.precedes );
      EXPECT_EQ( a > b, c.follows );
      EXPECT_EQ( a <= b, c.precedes || c.a == c.b );
      EXPECT_EQ( a == b, c.a == c.b );
   }
   Seqno32 last( 0xfffffffe );
   EXPECT_EQ( last.inc(), Seqno32( 0xffffffff ) );
   EXPECT_EQ( last.inc( 3 ), Seqno32( 2 ) );
   EXPECT_EQ( Kiv::toText( Seqno32( 0xffffffff ) ), "4294967295" );
   EXPECT_EQ( Kiv::fromText< Seqno32 >( "4294967295" ), Seqno32( 0xffffffff ) );
   EXPECT_THROW( Seqno32::parse( "4294967296" ), Kiv::ParseError );
   EXPECT_THROW( Seqno32::parse( "-1" ), Kiv::ParseError );
}

} // namespace
