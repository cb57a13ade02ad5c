// SPDX-License-Identifier: Apache-2.0
//
// What an event costs, from newEventIs() to the state it changes: 100,000 stations are learnt, learnt
// again on another port, and aged, each time reported in one go and drained in one go. The peer is
// what no queue in order can do without: an ordered map into which as many events are put, and taken
// out of from the front.

#include "Hoba/HobaCallbacks.h"
#include "Hoba/HobaEventQueueSm.h"
#include "Kiv/ClockDriver.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <map>
#include <random>
#include <vector>

namespace {

using Hoba::HobaEvent;

constexpr int hosts = 100'000;

// Addresses as they come: in no order.
std::vector< HobaEvent > const &
learnEvents() {
   static auto const events = [] {
      std::mt19937_64 random( 1 );
      std::vector< HobaEvent > made( hosts );
      for( auto & event : made ) {
         event.eventType = HobaEvent::eventTypeMacAddressLearned;
         event.port = Pelt::EthIntfId( 1 + random() % 64 );
         event.host = { Pelt::EthAddr( ( random() & 0xfcffffffffff ) | 0x020000000000 ),
                        Bridging::VlanId( 1 + random() % 100 ) };
      }
      return made;
   }();
   return events;
}

std::vector< HobaEvent >
changed( HobaEvent::HobaEventType type ) {
   auto events = learnEvents();
   for( auto & event : events ) {
      event.eventType = type;
      event.port = Pelt::EthIntfId( 65 );
   }
   return events;
}

class Agent {
 public:
   Agent() {
      sm->macTableIs( table );
      setenv( "HOBA_NOOP_AGENT", "1", true );
      sm->runningIs( true );
      sm->initializedIs( true );
   }
   ~Agent() { sm->cleanup(); }

   void report( std::vector< HobaEvent > const & events ) {
      for( auto const & event : events ) {
         Hoba::newEventIs( event );
      }
      driver.run();
   }

   Kiv::RealDriver driver;
   struct Ambient {
      explicit Ambient( Kiv::ClockDriver & d ) { Kiv::ClockDriver::ambientIs( d ); }
   } ambient{ driver };
   Kiv::Ptr< Hoba::HobaCommonSmData > data = Kiv::make< Hoba::HobaCommonSmData >( "bench" );
   Kiv::Ptr< HobaTypes::MacTable > table = Kiv::make< HobaTypes::MacTable >();
   Kiv::Ptr< Hoba::EventQueueSm > sm = Hoba::EventQueueSm::EventQueueSmIs(
         data, Hoba::HobaEventQueue::HobaEventQueueIs( "events" ), nullptr );
};

double
timed( auto const & work ) {
   auto const begin = std::chrono::steady_clock::now();
   work();
   return std::chrono::duration< double >( std::chrono::steady_clock::now() - begin ).count();
}

// The phases of a station's life, each timed alone.
enum Phase { learn, move, age };

void
queued( benchmark::State & state, Phase phase ) {
   Agent agent;
   auto const moves = changed( HobaEvent::eventTypeMacAddressLearned );
   auto const ages = changed( HobaEvent::eventTypeMacAddressAged );
   for( auto _ : state ) {
      double const seconds[] = { timed( [ & ] { agent.report( learnEvents() ); } ),
                                 timed( [ & ] { agent.report( moves ); } ),
                                 timed( [ & ] { agent.report( ages ); } ) };
      state.SetIterationTime( seconds[ phase ] );
   }
   state.SetItemsProcessed( state.iterations() * hosts );
}
BENCHMARK_CAPTURE( queued, learn, learn )->UseManualTime()->Unit( benchmark::kMillisecond );
BENCHMARK_CAPTURE( queued, move, move )->UseManualTime()->Unit( benchmark::kMillisecond );
BENCHMARK_CAPTURE( queued, age, age )->UseManualTime()->Unit( benchmark::kMillisecond );

// All three together: what a table of stations that come and go costs an event.
void
queuedLife( benchmark::State & state ) {
   Agent agent;
   auto const moves = changed( HobaEvent::eventTypeMacAddressLearned );
   auto const ages = changed( HobaEvent::eventTypeMacAddressAged );
   for( auto _ : state ) {
      agent.report( learnEvents() );
      agent.report( moves );
      agent.report( ages );
   }
   state.SetItemsProcessed( state.iterations() * hosts * 3 );
}
BENCHMARK( queuedLife )->Unit( benchmark::kMillisecond );

void
atOnce( benchmark::State & state ) {
   Agent agent;
   auto const ages = changed( HobaEvent::eventTypeMacAddressAged );
   for( auto _ : state ) {
      for( auto const & event : learnEvents() ) {
         Hoba::newMacEventIs( event );
      }
      for( auto const & event : ages ) {
         Hoba::newMacEventIs( event );
      }
   }
   state.SetItemsProcessed( state.iterations() * hosts * 2 );
}
BENCHMARK( atOnce )->Unit( benchmark::kMillisecond );

void
plainOrderedMap( benchmark::State & state ) {
   for( auto _ : state ) {
      std::map< std::uint32_t, HobaEvent > events;
      std::uint32_t index = 0;
      for( auto const & event : learnEvents() ) {
         events.emplace( ++index, event );
      }
      while( !events.empty() ) {
         benchmark::DoNotOptimize( events.begin()->second );
         events.erase( events.begin() );
      }
   }
   state.SetItemsProcessed( state.iterations() * hosts );
}
BENCHMARK( plainOrderedMap )->Unit( benchmark::kMillisecond );

} // namespace
