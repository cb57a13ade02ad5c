// SPDX-License-Identifier: Apache-2.0

// Re-arming one timer among many armed ones, and letting many fire. The peer is libevent's loop
// with its standard heap of timers; and with its queues for common time-outs, which serve only
// delays that are few and known beforehand.

#include "Kiv/Clock.h"
#include "Kiv/ClockDriver.h"
#include "Mox/TimerWheel.h"

#include <benchmark/benchmark.h>
#if HOBA_BENCH_HAS_LIBEVENT
#include <event2/event.h>
#endif

#include <deque>
#include <random>
#include <vector>

namespace {

using Kiv::Seconds;

class IdleTimer : public Kiv::Timer {
 public:
   using Timer::Timer;

 private:
   void onTimeout() override {}
};

// Which timer is re-armed, and by how much: drawn beforehand, alike for all contenders.
struct Draw {
   std::size_t timer;
   Seconds delay;
   double commonDelay; // the same, rounded to one of 64
};

std::vector< Draw >
draws( std::size_t timers ) {
   std::mt19937_64 random( 1 );
   std::uniform_real_distribution< Seconds > delay( 0.1, 100 );
   std::vector< Draw > all( 1u << 16 );
   for( Draw & draw : all ) {
      draw.timer = random() % timers;
      draw.delay = delay( random );
      draw.commonDelay = ( 1 + static_cast< int >( draw.delay * 0.64 ) ) / 0.64;
   }
   return all;
}

std::size_t
timersOf( benchmark::State const & state ) {
   return static_cast< std::size_t >( state.range( 0 ) );
}

// The clock's time is read for each arming, as a machine does that waits for a delay. With virtual
// time that costs nothing, as in a libevent loop that has its time cached. With real time most of
// the cost is the system's precise monotonic clock; a libevent loop without cached time reads the
// coarse one, which is cheaper and some milliseconds late.
template< class AnyClock, class Driver >
void
BM_Rearm( benchmark::State & state ) {
   Driver driver;
   AnyClock clock( driver );
   std::deque< IdleTimer > timers;
   auto const plan = draws( timersOf( state ) );
   for( std::size_t i = 0; i < timersOf( state ); ++i ) {
      timers.emplace_back( clock ).timeMinIs( clock.now() + plan[ i % plan.size() ].delay );
   }
   std::size_t at = 0;
   for( auto _ : state ) {
      Draw const & draw = plan[ at++ % plan.size() ];
      timers[ draw.timer ].timeMinIs( clock.now() + draw.delay );
   }
   state.SetItemsProcessed( state.iterations() );
}
BENCHMARK( BM_Rearm< Mox::TimerWheel, Kiv::VirtualDriver > )->Arg( 1000 )->Arg( 100'000 );
BENCHMARK( BM_Rearm< Mox::TimerWheel, Kiv::RealDriver > )->Arg( 100'000 );
BENCHMARK( BM_Rearm< Kiv::Clock, Kiv::VirtualDriver > )->Arg( 1000 )->Arg( 100'000 );

// Arms all timers anew and lets all of them fire, one virtual tick after the other.
template< class AnyClock >
void
BM_ArmAndFire( benchmark::State & state ) {
   Kiv::VirtualDriver driver;
   AnyClock clock( driver );
   std::deque< IdleTimer > timers;
   auto const plan = draws( timersOf( state ) );
   for( std::size_t i = 0; i < timersOf( state ); ++i ) {
      timers.emplace_back( clock );
   }
   std::size_t at = 0;
   for( auto _ : state ) {
      for( IdleTimer & timer : timers ) {
         timer.timeMinIs( clock.now() + plan[ at++ % plan.size() ].delay );
      }
      for( int tick = 0; tick < 100'000; ++tick ) {
         driver.timeIs( driver.now() + 0.001 );
         driver.run();
      }
   }
   state.SetItemsProcessed( state.iterations() * state.range( 0 ) );
}
BENCHMARK( BM_ArmAndFire< Mox::TimerWheel > )->Arg( 100'000 )->Unit( benchmark::kMillisecond );
BENCHMARK( BM_ArmAndFire< Kiv::Clock > )->Arg( 100'000 )->Unit( benchmark::kMillisecond );

#if HOBA_BENCH_HAS_LIBEVENT

timeval
toTimeval( Seconds delay ) {
   timeval value;
   value.tv_sec = static_cast< time_t >( delay );
   value.tv_usec =
         static_cast< suseconds_t >( ( delay - static_cast< Seconds >( value.tv_sec ) ) * 1e6 );
   return value;
}

class EventLoop {
 public:
   explicit EventLoop( std::size_t timers ) : base_( event_base_new() ) {
      for( std::size_t i = 0; i < timers; ++i ) {
         events_.push_back( evtimer_new(
               base_, []( evutil_socket_t, short, void * ) {}, nullptr ) );
      }
   }
   ~EventLoop() {
      for( event * each : events_ ) {
         event_free( each );
      }
      event_base_free( base_ );
   }
   EventLoop( EventLoop const & ) = delete;
   EventLoop & operator=( EventLoop const & ) = delete;

   // Runs work inside a callback, where the loop has its time cached: its best case.
   template< class Work >
   void inside( Work work ) {
      auto call = []( evutil_socket_t, short, void * argument ) {
         ( *static_cast< Work * >( argument ) )();
      };
      event * once = evtimer_new( base_, call, &work );
      timeval now{};
      evtimer_add( once, &now );
      event_base_loop( base_, EVLOOP_ONCE );
      event_free( once );
   }

   event_base * base_;
   std::vector< event * > events_;
};

// What distinguishes the ways of using libevent: whether the loop has its time cached, as it has
// inside callbacks, and whether the delays are among those announced to it.
template< bool cachedTime, bool commonTimeouts >
void
BM_RearmLibevent( benchmark::State & state ) {
   EventLoop loop( timersOf( state ) );
   auto const plan = draws( timersOf( state ) );
   std::vector< timeval > delays;
   for( Draw const & draw : plan ) {
      timeval delay = toTimeval( commonTimeouts ? draw.commonDelay : draw.delay );
      if( commonTimeouts ) {
         delay = *event_base_init_common_timeout( loop.base_, &delay );
      }
      delays.push_back( delay );
   }
   for( std::size_t i = 0; i < loop.events_.size(); ++i ) {
      evtimer_add( loop.events_[ i ], &delays[ i % delays.size() ] );
   }
   auto measure = [ & ] {
      std::size_t at = 0;
      for( auto _ : state ) {
         std::size_t i = at++ % plan.size();
         evtimer_add( loop.events_[ plan[ i ].timer ], &delays[ i ] );
      }
   };
   if( cachedTime ) {
      loop.inside( measure );
   } else {
      measure();
   }
   state.SetItemsProcessed( state.iterations() );
}
BENCHMARK( BM_RearmLibevent< true, false > )->Arg( 1000 )->Arg( 100'000 );
BENCHMARK( BM_RearmLibevent< false, false > )->Arg( 100'000 );
BENCHMARK( BM_RearmLibevent< true, true > )->Arg( 100'000 );

#endif

} // namespace
