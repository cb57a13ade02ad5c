// SPDX-License-Identifier: Apache-2.0
//
// What a machine costs: storm control on n interfaces, all members of 64 LAGs, from its factory to
// the end of its first full pass; the cost of an interface must not grow with their number. And
// what an interface with storm control costs in memory, which the counters of the same runs tell.

#include "Hoba/HobaStormControlSm.h"
#include "Kiv/ClockDriver.h"
#include "chips/sim/SimChip.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <malloc.h>

namespace {

using namespace Bridging::StormControl;

constexpr int lags = 64;

// Everything that the machine is built on.
struct Switch {
   explicit Switch( int interfaces ) {
      data->handleInitialized();
      std::vector< Hoba::HobaLagPortList > members( lags );
      for( int n = 0; n != interfaces; ++n ) {
         Pelt::IntfId const port = Pelt::EthIntfId( n + 1 );
         data->intfIs( port, true );
         data->portToLagIs( port, lag( n % lags ) );
         members[ n % lags ].port.push_back( port );
         auto const portStatus = ports->ethPhyIntfStatusIs( port );
         portStatus->speedIs( Interface::speed100Gbps );
         portStatus->activeIs( true );
         config->intfConfigIs( port )->broadcastIs( { meteringPercent, 250 } );
      }
      for( int n = 0; n != lags; ++n ) {
         data->lagToPortIs( lag( n ), members[ n ] );
         config->intfConfigIs( lag( n ) )->broadcastIs( { meteringPercent, 1000 } );
      }
   }
   ~Switch() { data->cleanup(); }

   static Pelt::IntfId lag( int n ) { return Pelt::PortChannelIntfId( n + 1 ); }

   Kiv::VirtualDriver driver;
   struct Ambient {
      explicit Ambient( Kiv::ClockDriver & d ) { Kiv::ClockDriver::ambientIs( d ); }
   } ambient{ driver };
   Kiv::Ptr< Hoba::HobaCommonSmData > data = Kiv::make< Hoba::HobaCommonSmData >( "bench" );
   Kiv::Ptr< HobaSim::Chip > chip = Kiv::make< HobaSim::Chip >();
   Kiv::Ptr< HobaSim::StormControlHelper > helper =
         Kiv::make< HobaSim::StormControlHelper >( chip->stormControl() );
   Kiv::Ptr< Config > config = Kiv::make< Config >();
   Kiv::Ptr< Status > status = Kiv::make< Status >();
   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > ports =
         Kiv::make< Interface::AllEthPhyIntfStatusDir >();
   Kiv::Ptr< Lag::Input::Config > lagInput = Kiv::make< Lag::Input::Config >();
   Kiv::Ptr< Mox::TimerWheel > clock = Kiv::make< Mox::TimerWheel >();
};

double
allocated() {
   return static_cast< double >( mallinfo2().uordblks );
}

void
initialize( benchmark::State & state ) {
   auto const interfaces = static_cast< int >( state.range( 0 ) );
   double bytes = 0, bytesInAll = 0;
   for( auto _ : state ) {
      auto const bytesAtFirst = allocated();
      Switch built( interfaces );
      auto const bytesBefore = allocated();
      auto const begin = std::chrono::steady_clock::now();
      auto const sm = Hoba::StormControlSm::StormControlSmIs(
            built.data, built.config, built.ports, built.status, built.helper, built.lagInput,
            built.clock );
      sm->initializedIs( true );
      state.SetIterationTime(
            std::chrono::duration< double >( std::chrono::steady_clock::now() - begin ).count() );
      bytes = allocated() - bytesBefore;
      bytesInAll = allocated() - bytesAtFirst;
   }
   auto const each = benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert;
   state.counters[ "timePerIntf" ] = benchmark::Counter( interfaces, each );
   state.counters[ "bytesPerIntf" ] = bytes / interfaces;
   state.counters[ "bytesPerIntfInAll" ] = bytesInAll / interfaces;
}
BENCHMARK( initialize )
      ->Arg( 256 )
      ->Arg( 1024 )
      ->Arg( 4096 )
      ->UseManualTime()
      ->Unit( benchmark::kMicrosecond );

// One level of one LAG changes: all its members are programmed.
void
changeLevelOfLag( benchmark::State & state ) {
   Switch built( 4096 );
   auto const sm = Hoba::StormControlSm::StormControlSmIs( built.data, built.config, built.ports,
                                                           built.status, built.helper,
                                                           built.lagInput, built.clock );
   sm->initializedIs( true );
   auto const lagConfig = built.config->intfConfig( Switch::lag( 0 ) );
   std::uint32_t level = 1;
   for( auto _ : state ) {
      level = level == 1 ? 2 : 1;
      lagConfig->multicastIs( { meteringPercent, level } );
   }
   state.SetItemsProcessed( state.iterations() * 4096 / lags );
}
BENCHMARK( changeLevelOfLag );

} // namespace
