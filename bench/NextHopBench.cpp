// SPDX-License-Identifier: Apache-2.0

// Collections of next hops, interned, beside a std::unordered_set of sorted vectors of the same next hops
// whose hash is kept. Names are <operation>/<how>/<next hops of a collection>/<collections>: a few, which the
// caches hold with their next hops, or so many that it is memory which is measured.
//
//    --benchmark_enable_random_interleaving=true --benchmark_repetitions=9
//    --benchmark_report_aggregates_only=true
//
// Every next hop has all of its 17 fields set. bytes... measure memory: that is their counter bytes, and
// their times say nothing.

#include "Hoba/HobaL2AdjTypes.h"

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <algorithm>
#include <map>
#include <random>
#include <unordered_set>
#include <vector>

namespace {

using Hoba::InternedNextHop;
using Hoba::InternedNextHops;
using Hoba::NextHop;
using Hoba::NextHopCollection;
using Hoba::WeightedNextHop;

NextHop
nextHopOf( std::uint64_t number, Kiv::Ptr< Hoba::L2Adjacency > const & level ) {
   auto const at = static_cast< std::uint32_t >( number );
   NextHop nextHop{ .type = Hoba::nextHopTunnel,
                    .macAddr = Pelt::EthAddr( 0x020000000000 | number ),
                    .l3Intf = Pelt::EthIntfId( at % 64 + 1 ),
                    .l2Intf = Pelt::EthIntfId( at % 48 + 1 ),
                    .l2IntfHwId = at % 48,
                    .hwTunnelId = Tunnel::TunnelId( number % 1000 ),
                    .tunnelL2Info = { .innerMac = Pelt::EthAddr( 0x020000000001 ) },
                    .hierarchicalNextLevelL2Adj = level,
                    .flowSmac = Pelt::EthAddr( 0x020000000002 ),
                    .flowInfo = at % 7,
                    .flowVlan = at % 4000,
                    .sourceMac = Pelt::EthAddr( 0x020000000003 ),
                    .vlanId = Bridging::VlanIdOrNone( 10 ),
                    .skipEgressAcl = true,
                    .allocationId = Hoba::AllocationId::allocationIdFromNhgId( 7, number % 1000 ),
                    .staticInterfaceTunnelIntfId = Pelt::IntfId( "Tunnel3" ) };
   nextHop.labelsIs( { Pelt::mplsLabelPush, { Pelt::MplsLabel( 16 + at % 1000000 ) } } );
   return nextHop;
}

// The peer: what one would write with the standard library alone.
struct Sorted {
   std::vector< std::pair< NextHop, std::uint32_t > > nextHop;
   std::size_t hash = 0;

   void settle() {
      std::sort( nextHop.begin(), nextHop.end(),
                 []( auto const & a, auto const & b ) { return a.first < b.first; } );
      hash = nextHop.size();
      for( auto const & [ key, weight ] : nextHop ) {
         hash = Kiv::hashCombine( hash, Kiv::hashCombine( key.hash(), weight ) );
      }
   }
   bool operator==( Sorted const & other ) const {
      return hash == other.hash && nextHop == other.nextHop;
   }
};
struct KeptHash {
   std::size_t operator()( Sorted const & collection ) const { return collection.hash; }
   std::size_t operator()( NextHopCollection const & collection ) const {
      return collection.hash();
   }
};

// Collections as they come from outside: unsorted, sharing some of their next hops.
class Input {
 public:
   Input( std::size_t width, std::size_t count )
         : level( Kiv::make< Hoba::L2Adjacency >( Hoba::L2AdjKey{} ) ) {
      std::mt19937_64 random( width );
      for( std::size_t i = 0; i < count; ++i ) {
         auto & nextHops = unsorted.emplace_back();
         std::uint64_t const begin = random() % 100000;
         for( std::size_t k = 0; k < width; ++k ) {
            nextHops.push_back( nextHopOf( begin + k, level ) );
         }
         std::shuffle( nextHops.begin(), nextHops.end(), random );
         // And once more, in another order.
         auto & again = asked.emplace_back();
         for( auto const & nextHop : nextHops ) {
            again.push_back( { nextHop, 1 } );
         }
         std::shuffle( again.begin(), again.end(), random );
      }
      for( std::size_t i = 0; i < count; ++i ) {
         order.push_back( i );
      }
      std::shuffle( order.begin(), order.end(), random );
   }

   static NextHopCollection collectionOf( std::vector< NextHop > const & nextHops ) {
      NextHopCollection collection;
      for( auto const & nextHop : nextHops ) {
         collection.nextHopIs( nextHop, 1 );
      }
      return collection;
   }
   static Sorted sortedOf( std::vector< NextHop > const & nextHops ) {
      std::vector< WeightedNextHop > weighted;
      for( auto const & nextHop : nextHops ) {
         weighted.push_back( { nextHop, 1 } );
      }
      return sortedOf( weighted );
   }
   static Sorted sortedOf( std::vector< WeightedNextHop > const & nextHops ) {
      Sorted sorted;
      sorted.nextHop.reserve( nextHops.size() );
      for( auto const & [ nextHop, weight ] : nextHops ) {
         sorted.nextHop.emplace_back( nextHop, weight );
      }
      sorted.settle();
      return sorted;
   }

   Kiv::Ptr< Hoba::L2Adjacency > const level;
   std::vector< std::vector< NextHop > > unsorted;
   std::vector< std::vector< WeightedNextHop > > asked;
   std::vector< std::size_t > order;
};

Input const &
inputOf( std::int64_t width, std::int64_t count ) {
   static std::map< std::pair< std::int64_t, std::int64_t >, Input > inputs;
   return inputs
         .try_emplace( { width, count }, static_cast< std::size_t >( width ),
                       static_cast< std::size_t >( count ) )
         .first->second;
}
Input const &
inputOf( benchmark::State & state ) {
   return inputOf( state.range( 0 ), state.range( 1 ) );
}
void
count( benchmark::State & state ) {
   state.SetItemsProcessed( state.iterations() * state.range( 1 ) );
}

// ---- Looking up a collection that was built, but is not the very object

void
findInterned( benchmark::State & state ) {
   auto const & input = inputOf( state );
   std::vector< InternedNextHops > held;
   std::vector< NextHopCollection > asked( input.unsorted.size() );
   for( std::size_t i = 0; i < asked.size(); ++i ) {
      held.emplace_back( Input::collectionOf( input.unsorted[ i ] ) );
      asked[ i ] = Input::collectionOf( input.unsorted[ i ] );
   }
   for( auto _ : state ) {
      for( auto const i : input.order ) {
         benchmark::DoNotOptimize( InternedNextHops::find( asked[ i ] ) );
      }
   }
   count( state );
}

template< class Collection, Collection ( *make )( std::vector< NextHop > const & ) >
void
findInSet( benchmark::State & state ) {
   auto const & input = inputOf( state );
   std::unordered_set< Collection, KeptHash > held;
   std::vector< Collection > asked( input.unsorted.size() );
   for( std::size_t i = 0; i < asked.size(); ++i ) {
      held.insert( make( input.unsorted[ i ] ) );
      asked[ i ] = make( input.unsorted[ i ] );
   }
   for( auto _ : state ) {
      for( auto const i : input.order ) {
         benchmark::DoNotOptimize( held.find( asked[ i ] ) );
      }
   }
   count( state );
}
void
findSetOfCollections( benchmark::State & state ) {
   findInSet< NextHopCollection, &Input::collectionOf >( state );
}
void
findSetOfSorted( benchmark::State & state ) {
   findInSet< Sorted, &Input::sortedOf >( state );
}

// ---- Comparing

template< class T >
void
compare( benchmark::State & state, std::vector< T > const & held ) {
   for( auto _ : state ) {
      std::size_t equal = 0;
      for( std::size_t i = 1; i < held.size(); ++i ) {
         equal += held[ i ] == held[ i - 1 ];
      }
      benchmark::DoNotOptimize( equal );
   }
   count( state );
}

std::vector< InternedNextHops >
internedOf( Input const & input ) {
   std::vector< InternedNextHops > held;
   for( auto const & nextHops : input.unsorted ) {
      held.emplace_back( Input::collectionOf( nextHops ) );
   }
   return held;
}

void
compareInterned( benchmark::State & state ) {
   compare( state, internedOf( inputOf( state ) ) );
}
void
comparePointers( benchmark::State & state ) {
   auto const held = internedOf( inputOf( state ) );
   std::vector< NextHopCollection const * > pointers;
   for( auto const & collection : held ) {
      pointers.push_back( &*collection );
   }
   compare( state, pointers );
}

// ---- Building from unsorted next hops, hashing, and finding what is there already

void
buildInterned( benchmark::State & state ) {
   auto const & input = inputOf( state );
   auto const held = internedOf( input );
   for( auto _ : state ) {
      for( auto const i : input.order ) {
         auto const built = NextHopCollection().with( input.asked[ i ] );
         benchmark::DoNotOptimize( &*built );
      }
   }
   count( state );
}
void
buildOneByOne( benchmark::State & state ) {
   auto const & input = inputOf( state );
   auto const held = internedOf( input );
   for( auto _ : state ) {
      for( auto const i : input.order ) {
         NextHopCollection collection;
         for( auto const & [ nextHop, weight ] : input.asked[ i ] ) {
            collection.nextHopIs( nextHop, weight );
         }
         InternedNextHops const built = collection;
         benchmark::DoNotOptimize( &*built );
      }
   }
   count( state );
}
void
buildSorted( benchmark::State & state ) {
   auto const & input = inputOf( state );
   std::unordered_set< Sorted, KeptHash > held;
   for( auto const & nextHops : input.unsorted ) {
      held.insert( Input::sortedOf( nextHops ) );
   }
   for( auto _ : state ) {
      for( auto const i : input.order ) {
         benchmark::DoNotOptimize( held.find( Input::sortedOf( input.asked[ i ] ) ) );
      }
   }
   count( state );
}

// ---- Memory, of the allocator's own included

double
bytesInUse() {
   return static_cast< double >( mallinfo2().uordblks );
}

// What `count` of them cost each, made by make( number ).
template< class Make >
void
bytes( benchmark::State & state, std::size_t count, Make const & make ) {
   for( auto _ : state ) {
      std::vector< decltype( make( 0 ) ) > held;
      held.reserve( count );
      auto const before = bytesInUse();
      for( std::size_t i = 0; i < count; ++i ) {
         held.push_back( make( i ) );
      }
      state.counters[ "bytes" ] = ( bytesInUse() - before ) / static_cast< double >( count );
   }
}
void
bytesNextHop( benchmark::State & state ) {
   auto const & input = inputOf( 1, 4096 );
   bytes( state, 100000,
          [ & ]( std::uint64_t i ) { return InternedNextHop( nextHopOf( i, input.level ) ); } );
}
void
bytesCollection( benchmark::State & state ) {
   auto const & input = inputOf( state );
   std::vector< InternedNextHop > nextHops; // they cost what bytesNextHop says
   for( auto const & some : input.unsorted ) {
      nextHops.insert( nextHops.end(), some.begin(), some.end() );
   }
   bytes( state, 4096, [ & ]( std::uint64_t i ) {
      return InternedNextHops( Input::collectionOf( input.unsorted[ i ] ) );
   } );
}
void
bytesAdjacency( benchmark::State & state ) {
   auto const held = internedOf( inputOf( 1, 4096 ) );
   bytes( state, 4096, [ & ]( std::uint64_t i ) {
      auto const adjacency = Kiv::make< Hoba::L2Adjacency >( Hoba::L2AdjKey{ held[ i ] } );
      Hoba::GlobalFecId const fec( i + 1 );
      adjacency->adjEntryIs( fec );
      adjacency->setTableTypeForAdj( fec, Hoba::tableTypeLongestPrefix );
      return adjacency;
   } );
}

// clang-format off
#define HOBA_SIZES ArgsProduct( { { 1, 8, 64 }, { 64, 4096 } } )
BENCHMARK( findInterned )->Name( "find/interned" )->HOBA_SIZES;
BENCHMARK( findSetOfCollections )->Name( "find/set_of_collections" )->HOBA_SIZES;
BENCHMARK( findSetOfSorted )->Name( "find/set_of_sorted" )->HOBA_SIZES;
BENCHMARK( compareInterned )->Name( "compare/interned" )->Args( { 64, 64 } );
BENCHMARK( comparePointers )->Name( "compare/pointers" )->Args( { 64, 64 } );
BENCHMARK( buildInterned )->Name( "build/interned" )->HOBA_SIZES;
BENCHMARK( buildOneByOne )->Name( "build/one_by_one" )->HOBA_SIZES;
BENCHMARK( buildSorted )->Name( "build/sorted" )->HOBA_SIZES;
BENCHMARK( bytesNextHop )->Name( "bytes/next_hop" )->Iterations( 1 );
BENCHMARK( bytesCollection )->Name( "bytes/collection" )->ArgsProduct( { { 1, 8, 64 }, { 4096 } } )->Iterations( 1 );
BENCHMARK( bytesAdjacency )->Name( "bytes/adjacency" )->Iterations( 1 );
// clang-format on

} // namespace
