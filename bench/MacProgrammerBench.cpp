// SPDX-License-Identifier: Apache-2.0
//
// What a command costs the MAC programmer, from its making to its end, on virtual time and on a chip that takes
// none: so many are queued, and written at the default tuning. The peer sees the same inserts and erases, and does
// nothing else: a std::deque of shared pointers, an absl::flat_hash_map by key of what is pending and
// another of what is in progress, and a std::map by transaction. It runs before and after each run of ours;
// all are medians of processor time.

#include "Hoba/HobaChipProgrammer.h"
#include "Kiv/ClockDriver.h"

#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <deque>
#include <fstream>
#include <malloc.h>
#include <map>
#include <memory>
#include <random>
#include <time.h>
#include <vector>

namespace {

using namespace Hoba;
using MacCmd = Kiv::Ptr< IndirectAccessMacCmd >;

// Says success at once; or that it is in progress, having answered before that.
enum Answer { atOnce, polled };

class InstantChip : public HobaMacProgrammer {
 public:
   KIV_TYPE( InstantChip );
   Answer answer = atOnce;
   MacProgramStatus writeToHw( MacCmd const & cmd ) override {
      if( answer == atOnce ) {
         return macProgramSuccess;
      }
      handleCmdResponse( cmd->transactionId(), 0, macProgramSuccess );
      return macProgramInProgress;
   }

 protected:
   explicit InstantChip( Kiv::Ptr< Mox::TimerWheel > const & wheel ) : HobaMacProgrammer( wheel ) {}
};

// In no order.
std::vector< MacEntryKey >
makeKeys( std::size_t count ) {
   std::mt19937_64 random( 1 );
   std::vector< MacEntryKey > keys( count );
   for( auto & key : keys ) {
      key.key = { Pelt::EthAddr( ( random() & 0xfcffffffffff ) | 0x020000000000 ),
                  Bridging::VlanId( 1 + random() % 100 ) };
   }
   return keys;
}

class Pipeline {
 public:
   explicit Pipeline( Answer answer ) {
      chip_->answer = answer;
      chip_->handleInitialized();
   }
   ~Pipeline() { letGo( chip_ ); }
   void queue( MacEntryKey const & key ) {
      chip_->handleAddrOp( indirectAccessMacCmdFactory( addHost, key, intf_ ) );
   }
   void drain() { driver_.runUntilIdle( 1e9 ); }
   std::uint64_t done() const { return chip_->succeeded(); }

 private:
   Kiv::VirtualDriver driver_;
   Pelt::IntfId const intf_ = Pelt::EthIntfId( 1 );
   Kiv::Ptr< InstantChip > chip_ = smIs< InstantChip >( Kiv::make< Mox::TimerWheel >( driver_ ) );
};

class Peer {
 public:
   explicit Peer( Answer answer ) : answer_( answer ) {}
   void queue( MacEntryKey const & key ) {
      auto const cmd = std::make_shared< Command >( Command{ key, ++last_ } );
      pendingByKey_.insert_or_assign( key, cmd );
      pending_.push_back( cmd );
   }
   void drain() {
      while( !pending_.empty() ) {
         for( unsigned written = 0; written < 128 && !pending_.empty(); ++written ) {
            write( pending_.front() );
            pending_.pop_front();
         }
         while( !byId_.empty() ) {
            ++done_;
            inProgressByKey_.erase( byId_.begin()->second->key );
            byId_.erase( byId_.begin() );
         }
      }
   }
   std::uint64_t done() const { return done_; }

 private:
   struct Command {
      MacEntryKey key;
      std::uint64_t id;
      char rest[ sizeof( IndirectAccessMacCmd ) - sizeof( MacEntryKey ) - 8 ] = {};
   };
   using Ptr = std::shared_ptr< Command >;
   struct Hash {
      std::size_t operator()( MacEntryKey const & key ) const { return key.hash(); }
   };

   void write( Ptr const & cmd ) {
      byId_.emplace( cmd->id, cmd );
      pendingByKey_.erase( cmd->key );
      if( answer_ == polled ) {
         inProgressByKey_.emplace( cmd->key, cmd );
      } else {
         byId_.erase( cmd->id );
         ++done_;
      }
   }

   Answer const answer_;
   std::deque< Ptr > pending_;
   absl::flat_hash_map< MacEntryKey, Ptr, Hash > pendingByKey_, inProgressByKey_;
   std::map< std::uint64_t, Ptr > byId_;
   std::uint64_t last_ = 0, done_ = 0;
};

double
processorTime() {
   timespec time;
   clock_gettime( CLOCK_PROCESS_CPUTIME_ID, &time );
   return static_cast< double >( time.tv_sec ) * 1e9 + static_cast< double >( time.tv_nsec );
}

// Nanoseconds a command.
template< class Contender >
double
measure( std::vector< MacEntryKey > const & keys, Answer answer ) {
   auto const rounds = std::max< std::size_t >( 1, 100'000 / keys.size() );
   Contender contender( answer );
   auto const begin = processorTime();
   for( std::size_t round = 0; round < rounds; ++round ) {
      for( auto const & key : keys ) {
         contender.queue( key );
      }
      contender.drain();
   }
   auto const took = processorTime() - begin;
   auto const wanted = rounds * keys.size();
   return contender.done() == wanted ? took / static_cast< double >( wanted ) : -1;
}

double
median( std::vector< double > all ) {
   std::sort( all.begin(), all.end() );
   return all[ all.size() / 2 ];
}

void
command( benchmark::State & state, Answer answer ) {
   auto const keys = makeKeys( static_cast< std::size_t >( state.range( 0 ) ) );
   std::vector< double > ours, peers, ratios;
   for( auto _ : state ) {
      auto const before = measure< Peer >( keys, answer );
      auto const own = measure< Pipeline >( keys, answer );
      auto const after = measure< Peer >( keys, answer );
      if( own < 0 || before < 0 || after < 0 ) {
         state.SkipWithError( "not all were done" );
      }
      ours.push_back( own );
      peers.push_back( ( before + after ) / 2 );
      ratios.push_back( own / peers.back() );
   }
   state.counters[ "ns" ] = median( ours );
   state.counters[ "peer" ] = median( peers );
   state.counters[ "ratio" ] = median( ratios );
}

// Of the process, in bytes.
double
memoryInUse() {
   malloc_trim( 0 );
   std::ifstream status( "/proc/self/statm" );
   std::size_t all = 0, resident = 0;
   status >> all >> resident;
   return static_cast< double >( resident ) * 4096;
}

// Bytes a queued command.
template< class Contender >
void
memory( benchmark::State & state ) {
   auto const keys = makeKeys( static_cast< std::size_t >( state.range( 0 ) ) );
   for( auto _ : state ) {
      Contender contender( atOnce );
      auto const before = memoryInUse();
      for( auto const & key : keys ) {
         contender.queue( key );
      }
      state.counters[ "bytes" ] = ( memoryInUse() - before ) / static_cast< double >( keys.size() );
   }
}

#define OVER_SIZES                                                                                 \
   ->Arg( 1'000 )                                                                                  \
         ->Arg( 10'000 )                                                                           \
         ->Arg( 100'000 )                                                                          \
         ->Arg( 1'000'000 )                                                                        \
         ->Iterations( 7 )                                                                         \
         ->Unit( benchmark::kMillisecond )

BENCHMARK_CAPTURE( command, atOnce, atOnce ) OVER_SIZES;
BENCHMARK_CAPTURE( command, polled, polled ) OVER_SIZES;
BENCHMARK( memory< Pipeline > )->Arg( 1'000'000 )->Iterations( 1 );
BENCHMARK( memory< Peer > )->Arg( 1'000'000 )->Iterations( 1 );

} // namespace
