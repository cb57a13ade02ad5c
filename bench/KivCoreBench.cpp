// SPDX-License-Identifier: Apache-2.0

// What a write to an attribute costs, with nobody, one and eight to hear of it; what attaching and
// detaching a reactor costs; and inserting into a watched collection. The floor is a virtual call
// behind the same check for a change, the peers are boost::signals2 and sigc++ behind that check,
// and tsl::robin_map with two virtual calls.

#include "KivCore/Subjects.h"

#include <benchmark/benchmark.h>
#if HOBA_BENCH_HAS_BOOST
#include <boost/signals2.hpp>
#endif
#if HOBA_BENCH_HAS_SIGC
#include <sigc++/sigc++.h>
#endif
#if HOBA_BENCH_HAS_ROBIN_MAP
#include <tsl/robin_map.h>
#endif

#include <random>

namespace {

using Bench::allCounts;
using Bench::newCount;
using Bench::Port;

// A value that is another one in each round, out of the compiler's sight.
class Alternating {
 public:
   std::uint32_t next() {
      value_ ^= 1;
      benchmark::DoNotOptimize( value_ );
      return value_;
   }

 private:
   std::uint32_t value_ = 0;
};

template< class T >
T *
opaque( T * pointer ) {
   benchmark::DoNotOptimize( pointer );
   return pointer;
}

// The peers' attribute: stores, and tells on change.
template< class Tell >
struct Watched {
   void levelIs( std::uint32_t level ) {
      if( level_ != level ) {
         level_ = level;
         tell();
      }
   }
   Tell tell;
   std::uint32_t level_ = 0;
};

template< class Subject >
void
writeAlternating( benchmark::State & state, Subject * subject, std::uint64_t handlers ) {
   auto const before = allCounts();
   Alternating value;
   for( auto _ : state ) {
      subject->levelIs( value.next() );
      benchmark::ClobberMemory();
   }
   if( allCounts() - before != handlers * state.iterations() ) {
      state.SkipWithError( "not every change was heard" );
   }
}

void
attributeSet( benchmark::State & state ) {
   auto const count = static_cast< int >( state.range( 0 ) );
   auto const port = Bench::portWithReactors( count );
   writeAlternating( state, opaque( port.get() ), static_cast< std::uint64_t >( count ) );
}
BENCHMARK( attributeSet )->Arg( 0 )->Arg( 1 )->Arg( 8 );

void
attributeSetUnchanged( benchmark::State & state ) {
   auto const port = Bench::portWithReactors( 1 );
   auto * subject = opaque( port.get() );
   std::uint32_t value = 0;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( value );
      subject->levelIs( value );
      benchmark::ClobberMemory();
   }
}
BENCHMARK( attributeSetUnchanged );

struct TellHandler {
   Bench::Handler * handler = Bench::handler();
   void operator()() { handler->handle(); }
};

void
virtualCall( benchmark::State & state ) {
   Watched< TellHandler > watched;
   writeAlternating( state, opaque( &watched ), 1 );
}
BENCHMARK( virtualCall );

#if HOBA_BENCH_HAS_BOOST
struct TellSignals2 {
   boost::signals2::signal< void() > signal;
   void operator()() { signal(); }
};

void
signals2Set( benchmark::State & state ) {
   Watched< TellSignals2 > watched;
   for( int i = 0; i < state.range( 0 ); ++i ) {
      watched.tell.signal.connect( [ &count = newCount() ] { ++count; } );
   }
   writeAlternating( state, opaque( &watched ), static_cast< std::uint64_t >( state.range( 0 ) ) );
}
BENCHMARK( signals2Set )->Arg( 1 )->Arg( 8 );

void
signals2ConnectDisconnect( benchmark::State & state ) {
   boost::signals2::signal< void() > signal;
   boost::signals2::signal< void() >::slot_type const slot( [ &count = newCount() ] { ++count; } );
   auto * target = opaque( &signal );
   for( auto _ : state ) {
      auto connection = target->connect( slot );
      benchmark::ClobberMemory();
      connection.disconnect();
      benchmark::ClobberMemory();
   }
}
BENCHMARK( signals2ConnectDisconnect );
#endif

#if HOBA_BENCH_HAS_SIGC
struct TellSigc {
   sigc::signal< void > signal;
   void operator()() { signal.emit(); }
};

void
sigcSet( benchmark::State & state ) {
   Watched< TellSigc > watched;
   for( int i = 0; i < state.range( 0 ); ++i ) {
      watched.tell.signal.connect( [ &count = newCount() ] { ++count; } );
   }
   writeAlternating( state, opaque( &watched ), static_cast< std::uint64_t >( state.range( 0 ) ) );
}
BENCHMARK( sigcSet )->Arg( 1 )->Arg( 8 );

void
sigcConnectDisconnect( benchmark::State & state ) {
   sigc::signal< void > signal;
   sigc::slot< void > const slot = [ &count = newCount() ] { ++count; };
   auto * target = opaque( &signal );
   for( auto _ : state ) {
      sigc::connection connection = target->connect( slot );
      benchmark::ClobberMemory();
      connection.disconnect();
      benchmark::ClobberMemory();
   }
}
BENCHMARK( sigcConnectDisconnect );
#endif

void
reactorAttachDetach( benchmark::State & state ) {
   auto & reactor = *opaque( Bench::switched() );
   auto const port = Bench::portWithReactors( 0 );
   for( auto _ : state ) {
      Bench::attach( reactor, port );
      benchmark::ClobberMemory();
      Bench::attach( reactor, nullptr );
      benchmark::ClobberMemory();
   }
}
BENCHMARK( reactorAttachDetach );

std::vector< std::uint64_t >
keys( std::int64_t count ) {
   std::mt19937_64 random( 1 );
   std::vector< std::uint64_t > drawn( static_cast< std::size_t >( count ) );
   for( auto & key : drawn ) {
      key = random();
   }
   return drawn;
}

// From an empty collection, without room made beforehand, to so many entries. Only the insertions
// count.
void
collectionInsert( benchmark::State & state ) {
   auto const wanted = keys( state.range( 0 ) );
   auto & reactor = *opaque( Bench::switched() );
   auto const before = allCounts();
   for( auto _ : state ) {
      state.PauseTiming();
      auto port = Kiv::make< Port >();
      Bench::attach( reactor, port );
      auto * subject = opaque( port.get() );
      state.ResumeTiming();
      for( auto key : wanted ) {
         subject->memberIs( key, 1 );
      }
      state.PauseTiming();
      Bench::attach( reactor, nullptr );
      port = nullptr;
      state.ResumeTiming();
   }
   if( allCounts() - before != wanted.size() * state.iterations() ) {
      state.SkipWithError( "not every change was heard" );
   }
   state.SetItemsProcessed( state.iterations() * state.range( 0 ) );
}
BENCHMARK( collectionInsert )->Arg( 1'000 )->Arg( 100'000 );

#if HOBA_BENCH_HAS_ROBIN_MAP
void
robinMapInsertTwoCalls( benchmark::State & state ) {
   auto const wanted = keys( state.range( 0 ) );
   auto * first = opaque( Bench::handler() );
   auto * second = opaque( Bench::handler() );
   for( auto _ : state ) {
      state.PauseTiming();
      auto map = std::make_unique< tsl::robin_map< std::uint64_t, std::uint32_t > >();
      auto * target = opaque( map.get() );
      state.ResumeTiming();
      for( auto key : wanted ) {
         if( target->insert( { key, 1 } ).second ) {
            first->handle( key );
            second->handle( key );
         }
      }
      state.PauseTiming();
      map.reset();
      state.ResumeTiming();
   }
   state.SetItemsProcessed( state.iterations() * state.range( 0 ) );
}
BENCHMARK( robinMapInsertTwoCalls )->Arg( 1'000 )->Arg( 100'000 );
#endif

// One entity with five 64-bit attributes: 40 bytes of attributes, and what comes on top.
void
entityMakeAndDrop( benchmark::State & state ) {
   for( auto _ : state ) {
      benchmark::DoNotOptimize( Kiv::make< Bench::Five >() );
   }
   state.counters[ "bytes" ] = sizeof( Bench::Five );
   state.counters[ "overhead" ] = sizeof( Bench::Five ) - 5 * sizeof( std::uint64_t );
}
BENCHMARK( entityMakeAndDrop );

} // namespace
