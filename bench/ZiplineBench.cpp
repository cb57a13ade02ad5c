// SPDX-License-Identifier: Apache-2.0

// What a trace statement costs, disabled and enabled. Peers: the empty loop; the same bytes with
// the same time stamp stored into a ring by hand; lttng-ust, which needs a session that records its
// event (bench/Zipline/with-lttng-session); and spdlog with its asynchronous logger.

#include "Zipline/Reader.h"
#include "Zipline/Zipline.h"

#include <benchmark/benchmark.h>

#if HOBA_BENCH_HAS_LTTNG_UST
#include "Zipline/LttngPeer.h"
#endif
#if HOBA_BENCH_HAS_SPDLOG
#include <spdlog/async.h>
#include <spdlog/sinks/null_sink.h>
#endif

#include <memory>
#include <string>

ZIPLINE_HANDLE( ZiplineBench );

namespace {

void
emptyLoop( benchmark::State & state ) {
   int index = 0;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( ++index );
      benchmark::ClobberMemory();
   }
}
BENCHMARK( emptyLoop );

void
disabledStatement( benchmark::State & state ) {
   int index = 0;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( ++index );
      ZTRACE( 9, "index ", index, " count ", 7, " delay ", 0.5 );
      benchmark::ClobberMemory();
   }
}
BENCHMARK( disabledStatement );

// The least that any ring of time-stamped records does: a record of the same 32 bytes, a bounds
// check, nothing for readers.
struct RawRing {
   static constexpr std::size_t bytes = 1 << 20;
   std::unique_ptr< char[] > data = std::make_unique< char[] >( bytes );
   char * cursor = data.get();
   char * end = data.get() + bytes;
};

RawRing rawRing;
char const rawSite = 0;

void
rawRingStore( benchmark::State & state ) {
   struct Entry {
      void const * site;
      std::uint64_t stamp;
      int index;
      int count;
      double delay;
   };
   int index = 0;
   int count = 7;
   double delay = 0.5;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( ++index );
      benchmark::DoNotOptimize( count );
      benchmark::DoNotOptimize( delay );
      Entry const entry{ &rawSite, Zipline::Detail::ticks(), index, count, delay };
      if( rawRing.end - rawRing.cursor < static_cast< std::ptrdiff_t >( sizeof( entry ) ) ) {
         rawRing.cursor = rawRing.data.get();
      }
      std::memcpy( rawRing.cursor, &entry, sizeof( entry ) );
      rawRing.cursor += sizeof( entry );
      benchmark::ClobberMemory();
   }
}
BENCHMARK( rawRingStore );

// Of the figure above and of the one below, the part that is reading the time.
void
timeStampAlone( benchmark::State & state ) {
   for( auto _ : state ) {
      benchmark::DoNotOptimize( Zipline::Detail::ticks() );
      benchmark::ClobberMemory();
   }
}
BENCHMARK( timeStampAlone );

void
enabledStatement( benchmark::State & state ) {
   int index = 0;
   int count = 7;
   double delay = 0.5;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( ++index );
      benchmark::DoNotOptimize( count );
      benchmark::DoNotOptimize( delay );
      ZTRACE( 1, "index ", index, " count ", count, " delay ", delay );
      benchmark::ClobberMemory();
   }
}
BENCHMARK( enabledStatement );

void
enabledStatementWithText( benchmark::State & state ) {
   std::string const name( static_cast< std::size_t >( state.range( 0 ) ), 'x' );
   int index = 0;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( ++index );
      ZTRACE( 1, "index ", index, " name ", name );
      benchmark::ClobberMemory();
   }
}
BENCHMARK( enabledStatementWithText )->Arg( 12 )->Arg( 120 );

// With a time source, as in simulations.
void
enabledStatementWithTimeSource( benchmark::State & state ) {
   static Kiv::Seconds now = 5;
   Zipline::timeSourceIs( []( void * ) { return now; } );
   int index = 0;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( ++index );
      ZTRACE( 1, "index ", index, " count ", 7, " delay ", 0.5 );
      benchmark::ClobberMemory();
   }
   Zipline::timeSourceIs( nullptr );
}
BENCHMARK( enabledStatementWithTimeSource );

// Reading and formatting a full ring, per record.
void
readRecord( benchmark::State & state ) {
   for( int i = 0; i < 40'000; ++i ) {
      ZTRACE( 1, "index ", i, " count ", 7, " delay ", 0.5 );
   }
   Zipline::Query query;
   std::size_t records = 0;
   std::string line;
   for( auto _ : state ) {
      Zipline::visit( query, [ & ]( Zipline::Record const & record ) {
         line.clear();
         record.print( line );
         benchmark::DoNotOptimize( line.data() );
         return ++records > 0;
      } );
   }
   state.SetItemsProcessed( static_cast< std::int64_t >( records ) );
}
BENCHMARK( readRecord );

#if HOBA_BENCH_HAS_LTTNG_UST
void
lttngEvent( benchmark::State & state ) {
   if( !lttng_ust_tracepoint_enabled( hoba_bench, three ) ) {
      state.SkipWithError( "no LTTng session records the event: see with-lttng-session" );
      return;
   }
   int index = 0;
   int count = 7;
   double delay = 0.5;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( ++index );
      benchmark::DoNotOptimize( count );
      benchmark::DoNotOptimize( delay );
      lttng_ust_tracepoint( hoba_bench, three, index, count, delay );
      benchmark::ClobberMemory();
   }
}
BENCHMARK( lttngEvent );
#endif

#if HOBA_BENCH_HAS_SPDLOG
// The sink drops all, so this is the caller's part and the queue. Overrunning the oldest is what a
// ring does; blocking is the library's default.
void
spdlogAsync( benchmark::State & state, spdlog::async_overflow_policy policy ) {
   auto pool = std::make_shared< spdlog::details::thread_pool >( 8192, 1 );
   auto logger = std::make_shared< spdlog::async_logger >(
         "bench", std::make_shared< spdlog::sinks::null_sink_mt >(), pool, policy );
   int index = 0;
   int count = 7;
   double delay = 0.5;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( ++index );
      benchmark::DoNotOptimize( count );
      benchmark::DoNotOptimize( delay );
      logger->info( "index {} count {} delay {}", index, count, delay );
      benchmark::ClobberMemory();
   }
}
BENCHMARK_CAPTURE( spdlogAsync, overrun, spdlog::async_overflow_policy::overrun_oldest );
BENCHMARK_CAPTURE( spdlogAsync, block, spdlog::async_overflow_policy::block );
#endif

} // namespace
