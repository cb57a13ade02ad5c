// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Clock.h"
#include "Kiv/ClockDriver.h"
#include "Mox/Seqno32.h"
#include "Mox/TimerWheel.h"
#include "Refusal.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <random>
#include <utility>

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

using Fired = std::vector< int >;

// Timers by number, and which of them have fired.
struct Timers {
   void arm( Clock & clock, std::initializer_list< int > ids, Seconds when ) {
      for( int id : ids ) {
         if( !timers[ id ] ) {
            timers[ id ] = std::make_unique< TestTimer >( clock, [ this, id ] {
               fired.push_back( id );
               if( auto action = then[ id ] ) {
                  action();
               }
            } );
         }
         timers[ id ]->timeMinIs( when );
      }
   }
   Fired take() { return std::exchange( fired, {} ); }

   std::map< int, std::unique_ptr< TestTimer > > timers;
   std::map< int, TestTimer::Action > then; // what they do besides
   Fired fired;
};

TEST( ClockDriver, RefusesTimesThatCannotBe ) {
   VirtualDriver driver( 1000 );
   Clock clock( driver );
   Timers timers;
   timers.arm( clock, { 1 }, 1001 );
   EXPECT_THROW( timers.arm( clock, { 1 }, std::nan( "" ) ), Kiv::RangeException );
   EXPECT_EQ( timers.timers[ 1 ]->timeMin(), 1001 );
   EXPECT_THROW( driver.timeIs( 999 ), Kiv::RangeException );
   EXPECT_THROW( driver.advance( never ), Kiv::RangeException );
   // Time cannot pass while a timer re-arms itself for now without end.
   timers.then[ 1 ] = [ & ] { timers.arm( clock, { 1 }, 0 ); };
   EXPECT_THROW( driver.advance( 1 ), Kiv::Exception );
}

TEST( TimerWheel, FarAndFarApart ) {
   VirtualDriver driver( 1000 );
   TimerWheel clock( driver );
   Timers timers;
   constexpr Seconds year = 365 * 86400.0;
   Seconds const times[] = { 1000.001, 1e5,  1000 + year, 1000 + 200 * year,
                             1e12,     4e15, 5e15,        1e300 };
   for( int i = 0; i < 8; ++i ) {
      timers.arm( clock, { i }, times[ i ] );
   }
   // The same tick of the wheel for them, yet a different time.
   timers.arm( clock, { 100 }, std::nextafter( 1e300, never ) );
   for( int i = 0; i < 8; ++i ) {
      driver.advanceTo( std::nextafter( times[ i ], 0 ) );
      ASSERT_EQ( timers.take(), Fired{} ) << "early: " << times[ i ];
      driver.advanceTo( times[ i ] );
      ASSERT_EQ( timers.take(), Fired{ i } ) << "late: " << times[ i ];
   }
   EXPECT_TRUE( driver.runUntilIdle( 1e299 ) );
   EXPECT_EQ( timers.take(), Fired{ 100 } );
}

template< class AnyClock >
void
outliveEachOther() {
   VirtualDriver driver( 1000 );
   auto shortLived = std::make_unique< VirtualDriver >( 5 );
   auto clock = std::make_unique< AnyClock >( *shortLived );
   AnyClock here( driver );
   Timers timers;
   timers.arm( *clock, { 5, 3, 1 }, 5 );
   timers.arm( *clock, { 4, 2 }, 6 );
   shortLived.reset();
   EXPECT_EQ( clock->driver(), nullptr );
   EXPECT_EQ( clock->now(), 5 );
   timers.arm( *clock, { 0 }, 5 ); // after all that were armed before the driver went
   timers.arm( *clock, { 4 }, never );
   clock->driverIs( driver );
   timers.arm( here, { 100 }, 5 );
   EXPECT_EQ( driver.timers(), 6u );
   driver.run();
   EXPECT_EQ( timers.take(), ( Fired{ 5, 3, 1, 0, 100, 2 } ) );
   timers.arm( *clock, { 0, 1, 2, 3, 4 }, 1001 );
   clock.reset();
   EXPECT_FALSE( timers.timers[ 3 ]->armed() );
   EXPECT_EQ( timers.timers[ 0 ]->timeMin(), never );
   EXPECT_EQ( driver.clocks(), 1u );
   EXPECT_EQ( driver.advance( 100 ), 0u );
}

TEST( ClockDriver, TimersOutliveTheirClockAndClocksTheirDriver ) {
   outliveEachOther< Clock >();
   outliveEachOther< TimerWheel >();
}

TEST( ClockDriver, AClockDestroyedOrMovedInARunTakesItsTimersAlong ) {
   VirtualDriver driver, elsewhere;
   auto doomed = std::make_unique< TimerWheel >( driver );
   TimerWheel moved( driver );
   Clock stays( driver );
   Timers timers;
   timers.then[ 1 ] = [ & ] {
      doomed.reset();
      moved.driverIs( elsewhere );
   };
   timers.arm( *doomed, { 1, 2 }, 0 );
   timers.arm( moved, { 3 }, 0 );
   timers.arm( stays, { 4 }, 0 );
   driver.run();
   EXPECT_EQ( timers.take(), ( Fired{ 1, 4 } ) );
   EXPECT_FALSE( timers.timers[ 2 ]->armed() );
   elsewhere.run();
   EXPECT_EQ( timers.take(), Fired{ 3 } );
}

TEST( ClockDriver, Ambient ) {
   Kiv::ClockDriver & own = Kiv::ClockDriver::ambient();
   {
      VirtualDriver driver;
      Kiv::ClockDriver::ambientIs( driver );
      Clock clock;
      TimerWheel wheel;
      EXPECT_TRUE( clock.driver() == &driver && wheel.driver() == &driver );
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

// Random operations on three clocks of a driver, also from inside callbacks, against a plain model:
// timers fire in the order of time and arming, and a run fires what was due when it began.
class ClockModel {
 public:
   explicit ClockModel( unsigned seed )
         : driver_( seed % 3 == 0 ? -500.0 : 1e5 * seed ), random_( seed ) {}

   void step() {
      for( unsigned n = draw( 20 ); n > 0; --n ) {
         operation();
      }
      Seconds first = never;
      std::size_t armed = 0;
      for( auto const & each : expected_ ) {
         first = std::min( first, each.first );
         armed += each.first != never;
      }
      EXPECT_LE( driver_.nextTimeout(), first ) << "a wheel's answer may be early, never late";
      EXPECT_EQ( driver_.nextTimeout() == never, first == never );
      EXPECT_EQ( driver_.timers(), armed );

      oneRun_ = draw( 4 ) == 0;
      if( oneRun_ ) {
         driver_.timeIs( driver_.now() + delay() );
         run();
      } else {
         draw( 20 ) == 0 ? void( driver_.runUntilIdle( 1000 ) )
                         : void( driver_.advance( delay() ) );
         begin();
      }
      EXPECT_EQ( firstDue(), count ) << "has not fired";
   }

   std::size_t fired = 0;

 private:
   static constexpr unsigned count = 300;

   // A run that ends with an exception has lost no timer: what is left is the next one's.
   void run() {
      auto const firedBefore = fired;
      begin();
      try {
         auto const told = driver_.run();
         EXPECT_EQ( told, fired - firedBefore );
      } catch( Kiv::ParseError const & ) {
         run();
      }
   }
   // What is armed and due now is the next run's.
   void begin() {
      begun_ = arming_;
      dueUntil_ = driver_.now();
   }

   unsigned draw( unsigned below ) { return static_cast< unsigned >( random_() % below ); }

   // From nothing over less than a tick to many levels of a wheel, and often the same again.
   Seconds delay() {
      Seconds unit = std::pow( 10.0, static_cast< int >( draw( 9 ) ) - 4 );
      return unit * draw( 9 ) / 4;
   }

   void operation() {
      unsigned i = draw( count );
      unsigned const what = draw( 16 );
      Seconds const now = driver_.now();
      Seconds const when = what <= 1   ? never
                           : what == 2 ? now - delay()
                           : what == 3 ? std::nextafter( now, draw( 2 ) ? never : -never )
                                       : now + delay();
      auto & timer = timers_[ i ];
      if( what == 0 ) {
         timer.reset();
      } else {
         if( !timer ) {
            timer =
                  std::make_unique< TestTimer >( *clocks_[ i % 3 ], [ this, i ] { timeout( i ); } );
         }
         timer->timeMinIs( when );
      }
      expected_[ i ] = { when, ++arming_ };
   }

   // The timer whose turn it is in the present run; `count` if there is none.
   unsigned firstDue() const {
      unsigned first = count;
      for( unsigned i = 0; i < count; ++i ) {
         auto const & [ time, arming ] = expected_[ i ];
         if( time <= dueUntil_ && arming <= begun_ &&
             ( first == count || expected_[ i ] < expected_[ first ] ) ) {
            first = i;
         }
      }
      return first;
   }

   void timeout( unsigned i ) {
      ++fired;
      unsigned due = firstDue();
      if( !oneRun_ && ( driver_.now() != dueUntil_ || due == count ) ) {
         begin(); // another run
         due = firstDue();
      }
      EXPECT_EQ( due, i );
      EXPECT_FALSE( timers_[ i ]->armed() );
      expected_[ i ] = { never, 0 };
      // At most one re-arming for each timer that fires, and not always: it ends.
      if( draw( 3 ) != 0 ) {
         operation();
      }
      if( oneRun_ && draw( 8 ) == 0 ) {
         driver_.timeIs( driver_.now() + delay() ); // makes the others late, not wrong
      } else if( oneRun_ && draw( 8 ) == 0 ) {
         EXPECT_THROW( driver_.run(), Kiv::Exception ) << "inside a callback";
         EXPECT_THROW( driver_.advance( 1 ), Kiv::Exception );
         throw Kiv::ParseError( "from the callback" );
      }
   }

   VirtualDriver driver_;
   std::minstd_rand random_;
   Clock basic_{ driver_ };
   TimerWheel wheel_{ driver_ }, otherWheel_{ driver_ };
   Clock * const clocks_[ 3 ] = { &basic_, &wheel_, &otherWheel_ };
   std::vector< std::unique_ptr< TestTimer > > timers_{ count };
   std::vector< std::pair< Seconds, std::uint64_t > > expected_{ count, { never, 0 } };
   std::uint64_t arming_ = 0;
   std::uint64_t begun_ = 0; // the last arming when the present run began, and its time
   Seconds dueUntil_ = -never;
   bool oneRun_ = false;
};

TEST( ClockDriver, FiresInTheOrderOfTimeAndArming ) {
   for( unsigned seed = 1; seed <= 20 && !testing::Test::HasFailure(); ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      ClockModel model( seed );
      for( int step = 0; step < 300; ++step ) {
         model.step();
      }
      EXPECT_GT( model.fired, 500u );
   }
}

TEST( Seqno32, OrderAcrossTheWrap ) {
   struct Case {
      std::uint32_t a, b;
      char order; // '?': neither precedes the other
   };
   Case const cases[] = { { 0, 0, '=' },          { 1, 2, '<' },
                          { 0xffffffff, 0, '<' }, { 5, 0xfffffff0, '>' },
                          { 0, 0x7fffffff, '<' }, { 0, 0x80000001, '>' },
                          { 0, 0x80000000, '?' }, { 0xc0000000, 0x40000000, '?' } };
   for( Case const & c : cases ) {
      Seqno32 a( c.a ), b( c.b );
      EXPECT_EQ( a.precedes( b ), c.order == '<' ) << c.a << ' ' << c.b;
      EXPECT_EQ( a < b, c.order == '<' );
      EXPECT_EQ( a > b, c.order == '>' );
      EXPECT_EQ( a <= b, c.order == '<' || c.order == '=' );
      EXPECT_EQ( a == b, c.order == '=' );
   }
   Seqno32 last( 0xfffffffe );
   EXPECT_EQ( last.inc(), Seqno32( 0xffffffff ) );
   EXPECT_EQ( last.inc( 3 ), Seqno32( 2 ) );
   EXPECT_EQ( Kiv::toText( Kiv::fromText< Seqno32 >( "4294967295" ) ), "4294967295" );
   Refusals::expectRefused< Seqno32 >( "is not", { "4294967296", "-1" } );
}

} // namespace
