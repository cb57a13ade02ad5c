// SPDX-License-Identifier: Apache-2.0

// Kiv::HashMap beside two hash maps that keep no order and whose members move.
//
//    --benchmark_enable_random_interleaving=true --benchmark_repetitions=9
//    --benchmark_report_aggregates_only=true
//
// Names are <operation>/<map>/<bytes of value>/<members>; times are per round over all members,
// items_per_second are single operations. longest... measure what a single operation costs at worst:
// that is their counter longest_us, and their times say nothing. bytes are those of one map, what its
// memory costs the allocator included.

#include "Kiv/HashMap.h"

#include <benchmark/benchmark.h>

#if HOBA_BENCH_HAS_ABSL
#include <absl/container/flat_hash_map.h>
#endif
#if HOBA_BENCH_HAS_ROBIN_MAP
#include <tsl/robin_map.h>
#endif

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <limits>
#include <malloc.h>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

struct Id {
   std::uint64_t word = 0;

   std::size_t hash() const { return Kiv::hashWord( word ); }
   friend bool operator==( Id, Id ) = default;
   template< class H >
   friend H AbslHashValue( H state, Id id ) {
      return H::combine( std::move( state ), id.word );
   }
};

struct KivHash {
   std::size_t operator()( Id id ) const { return Kiv::hashOf( id ); }
};

template< std::size_t bytes >
struct Payload {
   std::array< std::uint64_t, bytes / 8 > word{};
};

// One face for all maps.
template< class V >
struct KivMap {
   Kiv::HashMap< Id, V > map;

   V const * find( Id id ) const { return map.find( id ); }
   void insert( Id id, V v ) { map.insertOrAssign( id, v ); }
   void erase( Id id ) { map.erase( id ); }
   std::uint64_t sum() const {
      std::uint64_t total = 0;
      for( auto const & [ key, value ] : map ) {
         total += key.word + value.word[ 0 ];
      }
      return total;
   }
};

template< class Map, class V >
struct PeerMap {
   Map map;

   V const * find( Id id ) const {
      auto found = map.find( id );
      return found == map.end() ? nullptr : &found->second;
   }
   void insert( Id id, V v ) { map.insert_or_assign( id, v ); }
   void erase( Id id ) { map.erase( id ); }
   std::uint64_t sum() const {
      std::uint64_t total = 0;
      for( auto const & [ key, value ] : map ) {
         total += key.word + value.word[ 0 ];
      }
      return total;
   }
};

#if HOBA_BENCH_HAS_ABSL
template< class V >
using Absl = PeerMap< absl::flat_hash_map< Id, V >, V >;
template< class V >
using AbslKiv = PeerMap< absl::flat_hash_map< Id, V, KivHash >, V >;
#endif
#if HOBA_BENCH_HAS_ROBIN_MAP
template< class V >
using Robin = PeerMap< tsl::robin_map< Id, V, KivHash >, V >;
#endif

struct Keys {
   std::vector< Id > in;       // in the order of insertion
   std::vector< Id > shuffled; // the same in another order
   std::vector< Id > out;      // none of them
};

Keys const &
keys( std::size_t n ) {
   static std::vector< std::pair< std::size_t, Keys > > made;
   for( auto const & [ size, some ] : made ) {
      if( size == n ) {
         return some;
      }
   }
   std::mt19937_64 random( n );
   Keys some;
   for( std::size_t i = 0; i < n; ++i ) {
      some.in.push_back( Id{ random() } );
      some.out.push_back( Id{ random() } );
   }
   some.shuffled = some.in;
   std::shuffle( some.shuffled.begin(), some.shuffled.end(), random );
   made.reserve( 16 );
   return made.emplace_back( n, std::move( some ) ).second;
}

template< class Map, class V >
Map
filled( std::size_t n ) {
   Map map;
   for( auto id : keys( n ).in ) {
      map.insert( id, V{ { id.word } } );
   }
   return map;
}

void
countItems( benchmark::State & state, std::size_t perRound ) {
   state.SetItemsProcessed( static_cast< std::int64_t >( perRound ) * state.iterations() );
}

// A function of its own, since what surrounds such a loop decides over its registers and its place in
// the cache, which is worth a sixth.
template< class Map >
[[gnu::noinline]] std::uint64_t
sumOf( Map const & map, std::vector< Id > const & wanted ) {
   std::uint64_t total = 0;
   for( auto id : wanted ) {
      if( auto const * value = map.find( id ) ) {
         total += value->word[ 0 ];
      }
   }
   return total;
}

template< class Map, class V >
void
findAll( benchmark::State & state, std::vector< Id > const & wanted, std::size_t n ) {
   auto const map = filled< Map, V >( n );
   for( auto _ : state ) {
      benchmark::DoNotOptimize( sumOf( map, wanted ) );
   }
   countItems( state, n );
}

// Every search waits for the one before it: what a single search costs, rather than how many the
// processor overlaps.
template< class Map, class V >
void
findChained( benchmark::State & state, std::size_t n ) {
   Map map;
   auto const & ids = keys( n ).shuffled;
   for( std::size_t i = 0; i < n; ++i ) {
      map.insert( ids[ i ], V{ { ids[ ( i + 1 ) % n ].word } } );
   }
   Id id = ids[ 0 ];
   for( auto _ : state ) {
      for( std::size_t i = 0; i < n; ++i ) {
         id.word = map.find( id )->word[ 0 ];
      }
      benchmark::DoNotOptimize( id );
   }
   countItems( state, n );
}

template< class Map, class V >
void
grow( benchmark::State & state, std::size_t n ) {
   auto const & ids = keys( n ).in;
   for( auto _ : state ) {
      Map map;
      for( auto id : ids ) {
         map.insert( id, V{ { id.word } } );
      }
      benchmark::DoNotOptimize( map );
   }
   countItems( state, n );
}

template< class Map, class V >
double
bytesOf( std::size_t n ) {
   constexpr std::size_t many = 1000;
   std::vector< Map > maps( many );
   filled< Map, V >( n ); // makes the keys
   auto const before = mallinfo2().uordblks;
   for( auto & map : maps ) {
      map = filled< Map, V >( n );
   }
   auto const bytes = static_cast< double >( mallinfo2().uordblks - before );
   return sizeof( Map ) + bytes / many;
}

template< class Map, class V >
void
growSmall( benchmark::State & state, std::size_t n ) {
   state.counters[ "bytes" ] = bytesOf< Map, V >( n );
   grow< Map, V >( state, n );
}

// A full map in which a random member goes for every one that comes.
template< class Map, class V >
void
churn( benchmark::State & state, std::size_t n ) {
   auto map = filled< Map, V >( n );
   auto here = keys( n ).shuffled;
   auto away = keys( n ).out;
   for( auto _ : state ) {
      for( std::size_t i = 0; i < n; ++i ) {
         map.erase( here[ i ] );
         map.insert( away[ i ], V{ { away[ i ].word } } );
      }
      std::swap( here, away );
   }
   countItems( state, n );
}

template< class Map, class V >
void
scan( benchmark::State & state, std::size_t n, bool churned ) {
   auto map = filled< Map, V >( n );
   if( churned ) {
      // A third of the old members stay, among what the others left.
      auto here = keys( n ).shuffled;
      std::mt19937_64 random( n );
      for( std::size_t i = 0; i < n; ++i ) {
         auto & goes = here[ random() % n ];
         map.erase( goes );
         goes = keys( n ).out[ i ];
         map.insert( goes, V{ { i } } );
      }
   }
   for( auto _ : state ) {
      benchmark::DoNotOptimize( map.sum() );
   }
   countItems( state, n );
}

// The time that this thread runs: what others run meanwhile does not count.
std::int64_t
threadNanoseconds() {
   timespec now{};
   clock_gettime( CLOCK_THREAD_CPUTIME_ID, &now );
   return now.tv_sec * std::int64_t{ 1000000000 } + now.tv_nsec;
}

// The longest of many steps. All runs take the same steps, and each counts with its quickest run:
// what the machine does beside does not hit the same step every time, what the map does does.
class LongestStep {
 public:
   explicit LongestStep( std::size_t steps )
         : quickest_( steps, std::numeric_limits< std::int32_t >::max() ) {}

   template< class Do >
   void time( std::size_t step, Do const & act ) {
      auto const start = threadNanoseconds();
      act();
      auto const taken = static_cast< std::int32_t >( threadNanoseconds() - start );
      quickest_[ step ] = std::min( quickest_[ step ], taken );
   }

   void report( benchmark::State & state ) const {
      auto const longest = *std::max_element( quickest_.begin(), quickest_.end() );
      state.counters[ "longest_us" ] = longest / 1000.0;
   }

 private:
   std::vector< std::int32_t > quickest_;
};

template< class Map, class V >
void
longestInsert( benchmark::State & state, std::size_t n ) {
   auto const & ids = keys( n ).in;
   LongestStep longest( n );
   for( auto _ : state ) {
      Map map;
      for( std::size_t i = 0; i < n; ++i ) {
         longest.time( i, [ & ] { map.insert( ids[ i ], V{ { i } } ); } );
      }
   }
   longest.report( state );
}

// A full map in which a random member goes for every one that comes, three times over.
template< class Map, class V >
void
longestChurn( benchmark::State & state, std::size_t n ) {
   LongestStep longest( 6 * n );
   for( auto _ : state ) {
      auto map = filled< Map, V >( n );
      auto here = keys( n ).in;
      std::mt19937_64 random( n );
      for( std::size_t i = 0; i < 3 * n; ++i ) {
         auto & goes = here[ random() % n ];
         longest.time( 2 * i, [ & ] { map.erase( goes ); } );
         goes = Id{ random() };
         longest.time( 2 * i + 1, [ & ] { map.insert( goes, V{ { i } } ); } );
      }
   }
   longest.report( state );
}

template< class Map, class V >
void
enrolLongest( std::string const & mapName ) {
   constexpr std::size_t n = 1000000;
   auto const tail =
         "/" + mapName + "/" + std::to_string( sizeof( V ) ) + "/" + std::to_string( n );
   auto add = [ & ]( char const * operation, auto run ) {
      benchmark::RegisterBenchmark( ( operation + tail ).c_str(), run )
            ->Iterations( 3 )
            ->Unit( benchmark::kMillisecond );
   };
   using State = benchmark::State;
   add( "longestInsert", []( State & s ) { longestInsert< Map, V >( s, n ); } );
   add( "longestChurn", []( State & s ) { longestChurn< Map, V >( s, n ); } );
}

template< class Map, class V >
void
enrolSmall( std::string const & mapName ) {
   for( std::size_t n : { 1u, 2u, 4u, 5u } ) {
      auto const tail =
            "/" + mapName + "/" + std::to_string( sizeof( V ) ) + "/" + std::to_string( n );
      auto add = [ & ]( char const * operation, auto run ) {
         benchmark::RegisterBenchmark( ( operation + tail ).c_str(), run );
      };
      using State = benchmark::State;
      add( "find", [ n ]( State & s ) { findAll< Map, V >( s, keys( n ).shuffled, n ); } );
      add( "miss", [ n ]( State & s ) { findAll< Map, V >( s, keys( n ).out, n ); } );
      add( "grow", [ n ]( State & s ) { growSmall< Map, V >( s, n ); } );
      add( "churn", [ n ]( State & s ) { churn< Map, V >( s, n ); } );
      add( "scan", [ n ]( State & s ) { scan< Map, V >( s, n, false ); } );
   }
}

template< class Map, class V >
void
enrol( std::string const & mapName ) {
   if( sizeof( V ) == 8 ) {
      enrolLongest< Map, V >( mapName );
      enrolSmall< Map, V >( mapName );
   }
   for( std::size_t n : { 1000u, 100000u } ) {
      auto const tail =
            "/" + mapName + "/" + std::to_string( sizeof( V ) ) + "/" + std::to_string( n );
      auto add = [ & ]( char const * operation, auto run ) {
         benchmark::RegisterBenchmark( ( operation + tail ).c_str(), run );
      };
      using State = benchmark::State;
      add( "find", [ n ]( State & s ) { findAll< Map, V >( s, keys( n ).shuffled, n ); } );
      add( "miss", [ n ]( State & s ) { findAll< Map, V >( s, keys( n ).out, n ); } );
      add( "chained", [ n ]( State & s ) { findChained< Map, V >( s, n ); } );
      add( "grow", [ n ]( State & s ) { grow< Map, V >( s, n ); } );
      add( "churn", [ n ]( State & s ) { churn< Map, V >( s, n ); } );
      add( "scan", [ n ]( State & s ) { scan< Map, V >( s, n, false ); } );
      add( "scanChurned", [ n ]( State & s ) { scan< Map, V >( s, n, true ); } );
   }
}

template< std::size_t bytes >
void
enrolAll() {
   using V = Payload< bytes >;
   enrol< KivMap< V >, V >( "kiv" );
#if HOBA_BENCH_HAS_ABSL
   enrol< Absl< V >, V >( "absl" );
   enrol< AbslKiv< V >, V >( "abslKivHash" );
#endif
#if HOBA_BENCH_HAS_ROBIN_MAP
   enrol< Robin< V >, V >( "robin" );
#endif
}

} // namespace

int
main( int argc, char ** argv ) {
   benchmark::Initialize( &argc, argv );
   enrolAll< 8 >();
   enrolAll< 16 >();
   benchmark::RunSpecifiedBenchmarks();
}
