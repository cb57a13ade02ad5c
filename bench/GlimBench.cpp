// SPDX-License-Identifier: Apache-2.0

// Tables that two processes share, beside the least that can do the same, and beside LMDB.
//
//    --benchmark_enable_random_interleaving=true --benchmark_repetitions=9
//    --benchmark_report_aggregates_only=true
//
// This process and the other one have a core each. Rows have a key of 8 bytes and 40 bytes more, and
// are in no order. `each` is what a single row costs.

#include "Glim/OtherProcess.h"

#include "Kiv/Hash.h"

#include <benchmark/benchmark.h>

#if HOBA_BENCH_HAS_LMDB
#include <lmdb.h>
#endif
#if HOBA_BENCH_HAS_ROBIN_MAP
#include <tsl/robin_map.h>
#else
#include <unordered_map>
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>

namespace {

using namespace GlimBench;

constexpr std::uint64_t rowCount = 100'000;
constexpr std::uint64_t ringOf64Ki = 65'536;
constexpr std::uint64_t ringOf1Mi = 1'048'576;

OtherProcess * other = nullptr;

double
now() {
   return std::chrono::duration< double >( std::chrono::steady_clock::now().time_since_epoch() )
         .count();
}

// What this thread had of its core: other programs that run on it do not count.
double
worked() {
   timespec time{};
   ::clock_gettime( CLOCK_THREAD_CPUTIME_ID, &time );
   return static_cast< double >( time.tv_sec ) + 1e-9 * static_cast< double >( time.tv_nsec );
}

void
eachOf( benchmark::State & state, std::uint64_t perRound ) {
   using benchmark::Counter;
   auto const all = static_cast< double >( state.iterations() ) * static_cast< double >( perRound );
   state.counters[ "each" ] = Counter( all, Counter::kIsRate | Counter::kInvert );
}

// What the other process does meanwhile.
class Load {
 public:
   explicit Load( Task task ) : task_( task ) {
      if( task_ != Task::rest ) {
         other->tell( task_ );
         updates_ = other->control().updates.load();
         begin_ = now();
      }
   }
   // Says how many rows it changed a second.
   void stop( benchmark::State & state ) {
      if( task_ != Task::rest ) {
         auto const updates = other->control().updates.load() - updates_;
         state.counters[ "updates/s" ] = static_cast< double >( updates ) / ( now() - begin_ );
         other->tell( Task::rest );
      }
   }

 private:
   Task task_;
   std::uint64_t updates_ = 0;
   double begin_ = 0;
};

void
readAll( benchmark::State & state, Load load, auto const & get ) {
   auto const & wanted = keys( rowCount ).wanted;
   std::uint64_t found = 0;
   for( auto _ : state ) {
      std::uint64_t sum = 0;
      for( auto const key : wanted ) {
         Row row;
         if( get( key, row ) ) {
            benchmark::DoNotOptimize( row );
            sum += row.word[ 0 ];
            ++found;
         }
      }
      benchmark::DoNotOptimize( sum );
   }
   load.stop( state );
   if( found != rowCount * static_cast< std::uint64_t >( state.iterations() ) ) {
      state.SkipWithError( "rows are missing" );
   }
   eachOf( state, rowCount );
}

// Elsewhere: the other process is as busy, but with rows that nobody reads.
void
readTable( benchmark::State & state, Task meanwhile ) {
   other->make( rowCount, ringOf1Mi );
   Reader reader( "in" );
   reader.attach();
   readAll( state, Load( meanwhile ),
            [ & ]( Key key, Row & row ) { return reader.get( key, row ); } );
}
BENCHMARK_CAPTURE( readTable, idle, Task::rest );
BENCHMARK_CAPTURE( readTable, busy, Task::updateTable );
BENCHMARK_CAPTURE( readTable, busyElsewhere, Task::updateRaw );

void
readRaw( benchmark::State & state, Task meanwhile ) {
   other->make( rowCount, ringOf1Mi );
   RawTable const table( pathOf( "rawTable" ), rowCount, false );
   readAll( state, Load( meanwhile ),
            [ & ]( Key key, Row & row ) { return table.get( key, row ); } );
}
BENCHMARK_CAPTURE( readRaw, idle, Task::rest );
BENCHMARK_CAPTURE( readRaw, busy, Task::updateRaw );
BENCHMARK_CAPTURE( readRaw, busyElsewhere, Task::updateTable );

// Changes all rows, in no order, and commits once in a thousand.
void
writeAll( benchmark::State & state, auto const & put, auto const & commit ) {
   auto const & shuffled = keys( rowCount ).shuffled;
   std::uint64_t value = 0;
   for( auto _ : state ) {
      for( auto const key : shuffled ) {
         ++value;
         put( key, Row{ { value, value, value, value, value } } );
         if( value % 1000 == 0 ) {
            commit();
         }
      }
   }
   eachOf( state, rowCount );
}

void
fill( auto const & put ) {
   for( auto const key : keys( rowCount ).made ) {
      put( key, Row{ { key } } );
   }
}

void
writeTable( benchmark::State & state ) {
   Writer writer( "out", { .rows = rowCount } );
   auto const put = [ & ]( Key key, Row const & row ) { writer.is( key, row ); };
   fill( put );
   writeAll( state, put, [ & ] { writer.commit(); } );
}
BENCHMARK( writeTable );

void
writeRaw( benchmark::State & state ) {
   RawTable table( pathOf( "rawOut" ), rowCount, true );
   auto const put = [ & ]( Key key, Row const & row ) { table.put( key, row ); };
   fill( put );
   writeAll( state, put, [] {} );
}
BENCHMARK( writeRaw );

#if HOBA_BENCH_HAS_LMDB
Lmdb &
lmdb() {
   static Lmdb database( pathOf( "lmdb" ) );
   static bool const filled = [] {
      database.writeBegin();
      fill( []( Key key, Row const & row ) { database.put( key, row ); } );
      database.writeEnd();
      return true;
   }();
   (void)filled;
   return database;
}

void
readLmdb( benchmark::State & state ) {
   auto & database = lmdb();
   unsigned count = 0;
   readAll( state, Load( Task::rest ), [ & ]( Key key, Row & row ) {
      if( count++ % 1000 == 0 ) {
         database.readRest();
         database.readAgain();
      }
      return database.get( key, row );
   } );
   database.readRest();
}
BENCHMARK( readLmdb );

void
writeLmdb( benchmark::State & state ) {
   auto & database = lmdb();
   auto const put = [ & ]( Key key, Row const & row ) { database.put( key, row ); };
   database.readRest();
   database.writeBegin();
   writeAll( state, put, [ & ] {
      database.writeEnd();
      database.writeBegin();
   } );
   database.writeEnd();
}
BENCHMARK( writeLmdb );
#endif

// From here until the other process, which slept, has answered. It has time to fall asleep again.
void
awaken( benchmark::State & state, Task sleep, auto const & write ) {
   auto & answer = other->control().answer;
   other->tell( sleep );
   std::vector< double > taken;
   std::uint64_t value = 0;
   for( auto _ : state ) {
      for( auto const until = now() + 50e-6; now() < until; ) {
      }
      ++value;
      auto const begin = now();
      write( value );
      while( answer.load( std::memory_order_acquire ) != value ) {
      }
      taken.push_back( now() - begin );
      state.SetIterationTime( taken.back() );
   }
   std::sort( taken.begin(), taken.end() );
   state.counters[ "median" ] = taken[ taken.size() / 2 ];
   state.counters[ "p90" ] = taken[ taken.size() * 9 / 10 ];
   state.counters[ "p99" ] = taken[ taken.size() * 99 / 100 ];
   other->begin( Task::rest );
   write( ++value ); // it looks at what it is told when it is awake
   other->await();
}

void
awakenReader( benchmark::State & state ) {
   Writer writer( "out" );
   other->control().answer = 0;
   awaken( state, Task::sleepOnTable, [ & ]( std::uint64_t value ) {
      writer.is( 1, Row{ { value } } );
      writer.commit();
   } );
}
BENCHMARK( awakenReader )->UseManualTime()->Iterations( 5000 );

void
awakenBare( benchmark::State & state ) {
   auto & word = other->control().word;
   word = 0;
   other->control().answer = 0;
   auto const write = [ & ]( std::uint64_t value ) {
      word.store( static_cast< std::uint32_t >( value ), std::memory_order_release );
      futexWake( word );
   };
   awaken( state, Task::sleepOnWord, write );
}
BENCHMARK( awakenBare )->UseManualTime()->Iterations( 5000 );

struct KeyHash {
   std::size_t operator()( Key key ) const { return Kiv::hashOf( key ); }
};
#if HOBA_BENCH_HAS_ROBIN_MAP
using Map = tsl::robin_map< Key, Row, KeyHash >;
#else
using Map = std::unordered_map< Key, Row, KeyHash >;
#endif

// A reader's own map, which has all keys already.
Map
mapOf( std::uint64_t rows ) {
   Map map;
   map.reserve( rows );
   for( auto const key : keys( rows ).made ) {
      map[ key ] = Row{};
   }
   return map;
}

// Changes that another process made are brought here: `change` in its time, `bring` in ours.
void
bringAll( benchmark::State & state, Task change, std::uint64_t count, auto const & bring ) {
   for( auto _ : state ) {
      other->tell( change, count );
      auto const begin = worked();
      auto const brought = bring();
      state.SetIterationTime( worked() - begin );
      if( brought != count ) {
         state.SkipWithError( "changes are missing" );
         break;
      }
   }
   eachOf( state, count );
}

// Rows of the table, and changes each time.
void
bringTable( benchmark::State & state ) {
   auto const rows = static_cast< std::uint64_t >( state.range( 0 ) );
   other->make( rows, ringOf1Mi );
   auto map = mapOf( rows );
   Reader reader( "in" );
   reader.attach();
   reader.poll( []( Key ) {} );
   bringAll( state, Task::changeTable, static_cast< std::uint64_t >( state.range( 1 ) ), [ & ] {
      std::uint64_t brought = 0;
      reader.poll( [ & ]( Key key ) {
         Row row;
         if( reader.get( key, row ) ) {
            map[ key ] = row;
            ++brought;
         }
      } );
      return brought;
   } );
}

void
bringRaw( benchmark::State & state ) {
   auto const rows = static_cast< std::uint64_t >( state.range( 0 ) );
   other->make( rows, ringOf1Mi );
   auto map = mapOf( rows );
   RawTable const table( pathOf( "rawTable" ), rows, false );
   RawRing ring( pathOf( "rawRing" ), ringOf1Mi, false );
   ring.poll( []( Key ) {} );
   bringAll( state, Task::changeRaw, static_cast< std::uint64_t >( state.range( 1 ) ), [ & ] {
      std::uint64_t brought = 0;
      ring.poll( [ & ]( Key key ) {
         Row row;
         if( table.get( key, row ) ) {
            map[ key ] = row;
            ++brought;
         }
      } );
      return brought;
   } );
}

// A reader that was lapped reads all rows.
void
bringLapped( benchmark::State & state ) {
   auto const rows = static_cast< std::uint64_t >( state.range( 0 ) );
   auto const count = static_cast< std::uint64_t >( state.range( 1 ) );
   other->make( rows, ringOf64Ki );
   auto map = mapOf( rows );
   Reader reader( "in" );
   reader.attach();
   reader.poll( []( Key ) {} );
   bringAll( state, Task::changeTable, count, [ & ] {
      std::uint64_t brought = 0;
      if( reader.poll( []( Key ) {} ) == Glim::Poll::resynchronise ) {
         reader.forEach( [ & ]( Key key, Row const & row ) {
            map[ key ] = row;
            ++brought;
         } );
      }
      return brought;
   } );
}

void
sizes( benchmark::internal::Benchmark * bench ) {
   for( std::int64_t const rows : { 100'000, 1'000'000 } ) {
      for( std::int64_t const changes : { 10'000, 100'000, 1'000'000 } ) {
         bench->Args( { rows, changes } );
      }
   }
   bench->Args( { 10'000, 10'000 } );
   bench->ArgNames( { "rows", "changes" } )->UseManualTime()->Unit( benchmark::kMicrosecond );
}
BENCHMARK( bringTable )->Apply( sizes );
BENCHMARK( bringRaw )->Apply( sizes );
BENCHMARK( bringLapped )
      ->Args( { 100'000, 100'000 } )
      ->Args( { 1'000'000, 1'000'000 } )
      ->ArgNames( { "rows", "changes" } )
      ->UseManualTime()
      ->Unit( benchmark::kMicrosecond );

} // namespace

int
main( int argc, char ** argv ) {
   benchmark::Initialize( &argc, argv );
   // In memory, and apart from the tables of whoever runs on this machine.
   std::string folder = "/dev/shm/GlimBench.XXXXXX";
   if( !::mkdtemp( folder.data() ) ) {
      std::perror( folder.c_str() );
      return 1;
   }
   ::setenv( "HOBA_GLIM_DIR", folder.c_str(), true );
   {
      OtherProcess process;
      other = &process;
      benchmark::RunSpecifiedBenchmarks();
   }
   std::filesystem::remove_all( folder );
}
