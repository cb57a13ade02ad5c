// SPDX-License-Identifier: Apache-2.0
#include "Kiv/ClockDriver.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace Kiv {

namespace {

// The driver that was set; null for the process's own.
ClockDriver * ambientDriver = nullptr;

Seconds
sinceEpoch( auto timePoint ) {
   return std::chrono::duration< Seconds >( timePoint.time_since_epoch() ).count();
}

} // namespace

// One run, from its start to its end, however it ends.
class ClockDriver::Run {
 public:
   explicit Run( ClockDriver & driver ) : driver_( driver ) { driver_.running_ = true; }
   // Only after an exception is anything left: it stays armed, in its old place in the order.
   ~Run() {
      while( !driver_.due_.empty() ) {
         TimerNode & node = driver_.due_.pop();
         static_cast< Timer & >( node ).clock_.place( node, node.time );
      }
      driver_.running_ = false;
   }
   Run( Run const & ) = delete;
   Run & operator=( Run const & ) = delete;

 private:
   ClockDriver & driver_;
};

ClockDriver::~ClockDriver() {
   clocksDelAll( lastRun_ );
   if( ambientDriver == this ) {
      ambientDriver = nullptr;
   }
}

void
ClockDriver::clocksDelAll( Seconds last ) {
   if( running_ ) {
      std::fputs( "a clock driver was destroyed from inside a timer's callback\n", stderr );
      std::abort();
   }
   while( !clocks_.empty() ) {
      clocks_.back()->detach( last );
   }
}

Seconds
ClockDriver::nextTimeout() const {
   Seconds earliest = never;
   for( Clock const * clock : clocks_ ) {
      earliest = std::min( earliest, clock->nextTimeout() );
   }
   return earliest;
}

std::size_t
ClockDriver::timers() const {
   std::size_t count = 0;
   for( Clock const * clock : clocks_ ) {
      count += clock->timers();
   }
   return count;
}

std::size_t
ClockDriver::run() {
   if( running_ ) {
      throw Exception( "a clock driver was run from inside a timer's callback" );
   }
   Run run( *this );
   lastRun_ = now();
   for( Clock * clock : clocks_ ) {
      clock->collectDue( lastRun_, due_ );
   }
   std::size_t fired = 0;
   while( !due_.empty() ) {
      auto & timer = static_cast< Timer & >( due_.pop() );
      timer.time = never;
      --timer.clock_.timers_;
      ++fired;
      timer.onTimeout(); // afterwards the timer and its clock may be gone
   }
   return fired;
}

ClockDriver &
ClockDriver::ambient() {
   if( ambientDriver ) {
      return *ambientDriver;
   }
   // Never destroyed, so that clocks with static lifetime find it whenever they end.
   static auto * const own = new RealDriver;
   return *own;
}

void
ClockDriver::ambientIs( ClockDriver & driver ) {
   ambientDriver = &driver;
}

void
ClockDriver::ambientDel() {
   ambientDriver = nullptr;
}

RealDriver::~RealDriver() { clocksDelAll( RealDriver::now() ); }

Seconds
RealDriver::now() const {
   return sinceEpoch( std::chrono::steady_clock::now() );
}

Seconds
RealDriver::wallTime( Seconds time ) const {
   return sinceEpoch( std::chrono::system_clock::now() ) + ( time - now() );
}

int
RealDriver::pollTimeout() const {
   // Long waits are cut: the loop comes round once a day and asks again.
   constexpr Seconds longest = 24 * 60 * 60;
   Seconds next = nextTimeout();
   if( next == never ) {
      return -1;
   }
   Seconds wait = std::clamp( next - now(), 0.0, longest );
   return static_cast< int >( std::ceil( wait * 1000 ) );
}

VirtualDriver::VirtualDriver( Seconds start ) : now_( start ) {
   if( !std::isfinite( start ) ) {
      throw RangeException( "virtual time cannot start at " + toText( start ) +
                            ": expected a finite time" );
   }
}

VirtualDriver::~VirtualDriver() { clocksDelAll( now_ ); }

void
VirtualDriver::checkTime( Seconds time ) const {
   if( !std::isfinite( time ) || time < now_ ) {
      throw RangeException( "virtual time cannot go from " + toText( now_ ) + " to " +
                            toText( time ) + ": expected a finite time, not before now" );
   }
}

void
VirtualDriver::timeIs( Seconds time ) {
   checkTime( time );
   now_ = time;
}

std::size_t
VirtualDriver::advance( Seconds delay ) {
   return advanceTo( now_ + delay );
}

std::size_t
VirtualDriver::advanceTo( Seconds time ) {
   checkTime( time );
   std::size_t fired = stepTo( time );
   now_ = std::max( now_, time ); // callbacks may have taken it further
   return fired;
}

bool
VirtualDriver::runUntilIdle( Seconds limit ) {
   Seconds end = now_ + limit;
   checkTime( end );
   stepTo( end );
   if( nextTimeout() == never ) {
      return true;
   }
   now_ = std::max( now_, end );
   return false;
}

std::size_t
VirtualDriver::stepTo( Seconds end ) {
   if( running() ) {
      throw Exception( "virtual time was advanced from inside a timer's callback" );
   }
   std::size_t fired = 0;
   std::size_t runsNow = 0;
   for( Seconds next = nextTimeout(); next <= end; next = nextTimeout() ) {
      if( next > now_ ) {
         now_ = next;
         runsNow = 0;
      } else if( ++runsNow > maxRunsPerInstant ) {
         throw Exception( "virtual time stands still at " + toText( now_ ) +
                          ": timers re-arm themselves for the same instant" );
      }
      fired += run();
   }
   return fired;
}

} // namespace Kiv
