// SPDX-License-Identifier: Apache-2.0
//
// What a station costs the MAC address table, from newMacEventIs() to the status, and to the helper where
// software programs it; the chip's own time is apart: the helper here says that all is done. The peer is a
// table that only learns: an absl::flat_hash_map with lists by age and by port.

#include "Hoba/HobaCallbacks.h"
#include "Hoba/HobaEventQueueSm.h"
#include "Hoba/HobaMacAddrSm.h"
#include "Kiv/ClockDriver.h"

#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <chrono>
#include <fstream>
#include <list>
#include <malloc.h>
#include <random>
#include <time.h>
#include <vector>

namespace {

using Bridging::MacVlanPair;
using Hoba::HobaEvent;
using Hoba::MacProgramStatus;

constexpr unsigned ports = 64, vlans = 100;
Pelt::EthIntfId const quietPort{ 65 };

// Addresses as they come: in no order. The last 1,000 are on a port of their own.
std::vector< HobaEvent >
stations( std::size_t count,
          HobaEvent::HobaEventType type = HobaEvent::eventTypeMacAddressLearned ) {
   std::mt19937_64 random( 1 );
   std::vector< HobaEvent > made( count );
   for( std::size_t i = 0; i < count; ++i ) {
      auto & event = made[ i ];
      event.eventType = type;
      event.port = i + 1000 < count ? Pelt::EthIntfId( 1 + random() % ports ) : quietPort;
      event.host = { Pelt::EthAddr( ( random() & 0xfcffffffffff ) | 0x020000000000 ),
                     Bridging::VlanId( 1 + random() % vlans ) };
   }
   return made;
}

double
timed( auto const & work ) {
   auto const begin = std::chrono::steady_clock::now();
   work();
   return std::chrono::duration< double >( std::chrono::steady_clock::now() - begin ).count();
}

// Of the process, shared tables included, in bytes.
double
memoryInUse() {
   malloc_trim( 0 );
   std::ifstream status( "/proc/self/statm" );
   std::size_t all = 0, resident = 0;
   status >> all >> resident;
   return static_cast< double >( resident ) * 4096;
}

// Hardware that does everything at once.
class ReadyHelper : public HobaHelper::HobaHelperMacAddrSm {
 public:
   KIV_TYPE( ReadyHelper );
   std::uint64_t writes = 0;

   void hwInit() override {}
   MacProgramStatus doAddHost( HobaHelper::Host const & host ) override { return addHost( host ); }
   MacProgramStatus addHost( HobaHelper::Host const & ) override { return done(); }
   MacProgramStatus addRemoteHost( HobaHelper::RemoteHost const & ) override { return done(); }
   MacProgramStatus removeHost( MacVlanPair ) override { return done(); }
   void flushAll() override {}
   void flushVlanPort( Bridging::VlanIdOrNone, Pelt::IntfId ) override {}
   void flushVlanLag( Bridging::VlanIdOrNone, Pelt::IntfId ) override {}
   void removeLag( Pelt::IntfId ) override {}
   void configureAgingTime( Kiv::Seconds ) override {}
   void configureSourceMacInvalid( bool ) override {}
   void configureSourceCheckCPUMac( bool ) override {}
   std::uint32_t getMaxRemoteMacs() const override { return UINT32_MAX; }

 private:
   MacProgramStatus done() {
      ++writes;
      return Hoba::macProgramSuccess;
   }
};

class Agent {
 public:
   Agent() {
      setenv( "HOBA_NOOP_AGENT", "1", true );
      for( unsigned port = 1; port <= ports + 1; ++port ) {
         data->intfIs( Pelt::EthIntfId( port ), true );
      }
      sm->macTableIs( table );
      sm->runningIs( true );
      sm->initializedIs( true );
      requests->agentIs( "bench" );
      begin();
      settle();
   }
   void begin() {
      Hoba::MacAddrInputs inputs;
      inputs.macTable = table;
      inputs.bridgingStatus = status;
      inputs.flushRequestDir = requests;
      inputs.flushReplyDir = replies;
      inputs.rmacInfoDir = remote;
      inputs.vlanVniMap = vnis;
      inputs.evpnMacTable = evpn;
      macSm = Hoba::MacAddrSm::MacAddrSmIs( data, helper, inputs );
      macSm->initializedIs( true );
   }
   ~Agent() {
      Hoba::letGo( macSm );
      sm->cleanup();
      Hoba::letGo( sm );
      data->cleanup();
   }

   void settle() {
      while( driver.run() ) {
      }
   }
   void report( std::vector< HobaEvent > const & events ) {
      std::size_t count = 0;
      for( auto const & event : events ) {
         Hoba::newMacEventIs( event );
         if( ++count % 4096 == 0 ) {
            settle();
         }
      }
      settle();
   }
   void flush( Bridging::HostTableFlushRequest const & what ) {
      requests->agent( "bench" )->requestIs( "1", what );
      settle();
      requests->agent( "bench" )->requestDel( "1" );
      settle();
   }

   Kiv::RealDriver driver;
   struct Ambient {
      explicit Ambient( Kiv::ClockDriver & d ) { Kiv::ClockDriver::ambientIs( d ); }
   } ambient{ driver };
   Kiv::Ptr< Hoba::HobaCommonSmData > data = Kiv::make< Hoba::HobaCommonSmData >( "bench" );
   Kiv::Ptr< HobaTypes::MacTable > table = Kiv::make< HobaTypes::MacTable >();
   Kiv::Ptr< Bridging::Status > status = Kiv::make< Bridging::Status >();
   Kiv::Ptr< HobaTypes::RemoteMacInfoDir > remote = Kiv::make< HobaTypes::RemoteMacInfoDir >();
   Kiv::Ptr< Vxlan::VlanVniMap > vnis = Kiv::make< Vxlan::VlanVniMap >();
   Kiv::Ptr< HobaTypes::RemoteMacTable > evpn = Kiv::make< HobaTypes::RemoteMacTable >();
   Kiv::Ptr< Bridging::AllHostTableFlushRequestDir > requests =
         Kiv::make< Bridging::AllHostTableFlushRequestDir >();
   Kiv::Ptr< Bridging::AllHostTableFlushReplyDir > replies =
         Kiv::make< Bridging::AllHostTableFlushReplyDir >();
   Kiv::Ptr< ReadyHelper > helper = Kiv::make< ReadyHelper >();
   Kiv::Ptr< Hoba::EventQueueSm > sm = Hoba::EventQueueSm::EventQueueSmIs(
         data, Hoba::HobaEventQueue::HobaEventQueueIs( "events" ), nullptr );
   Kiv::Ptr< Hoba::MacAddrSm > macSm;
};

// The peer.
class PlainTable {
 public:
   struct Entry {
      MacVlanPair host;
      Pelt::IntfId port;
      double time = 0;
      std::uint32_t moves = 0;
      std::list< Entry * >::iterator byAge;
      std::list< Entry * >::iterator byPort;
   };
   struct PairHash {
      std::size_t operator()( MacVlanPair const & pair ) const { return pair.hash(); }
   };
   struct PortHash {
      std::size_t operator()( Pelt::IntfId const & port ) const { return port.hash(); }
   };

   void learn( HobaEvent const & event, double time ) {
      auto & slot = table_[ event.host ];
      if( !slot ) {
         slot = std::make_unique< Entry >();
         slot->host = event.host;
         slot->port = event.port;
         slot->byAge = ages_.insert( ages_.end(), slot.get() );
         auto & list = ports_[ event.port ];
         slot->byPort = list.insert( list.end(), slot.get() );
      } else {
         ages_.splice( ages_.end(), ages_, slot->byAge );
         if( slot->port != event.port ) {
            auto & list = ports_[ event.port ];
            list.splice( list.end(), ports_[ slot->port ], slot->byPort );
            slot->port = event.port;
            ++slot->moves;
         }
      }
      slot->time = time;
   }
   void del( MacVlanPair host ) {
      auto const found = table_.find( host );
      auto & entry = *found->second;
      ages_.erase( entry.byAge );
      ports_[ entry.port ].erase( entry.byPort );
      table_.erase( found );
   }
   void delAll() {
      while( !ages_.empty() ) {
         del( ages_.front()->host );
      }
   }

 private:
   absl::flat_hash_map< MacVlanPair, std::unique_ptr< Entry >, PairHash > table_;
   absl::flat_hash_map< Pelt::IntfId, std::list< Entry * >, PortHash > ports_;
   std::list< Entry * > ages_;
};

// ---- Ours: what is timed of a life in which stations are learnt, learnt again, moved, and flushed

enum Phase { learn, repeat, move, flushAll };

void
table( benchmark::State & state, Phase phase ) {
   auto const events = stations( static_cast< std::size_t >( state.range( 0 ) ) );
   auto moves = events;
   for( auto & event : moves ) {
      event.port = Pelt::EthIntfId( 1 + event.host.addr().value() % ports );
   }
   for( auto _ : state ) {
      Agent agent;
      double const seconds[] = {
            timed( [ & ] { agent.report( events ); } ), timed( [ & ] { agent.report( events ); } ),
            timed( [ & ] { agent.report( moves ); } ), timed( [ & ] { agent.flush( {} ); } ) };
      state.SetIterationTime( seconds[ phase ] );
   }
   state.SetItemsProcessed( state.iterations() * state.range( 0 ) );
}

// Told by another, so that software programs them.
void
programmed( benchmark::State & state ) {
   auto const events = stations( static_cast< std::size_t >( state.range( 0 ) ),
                                 HobaEvent::eventTypeEvpnIntfDynamicMac );
   for( auto _ : state ) {
      Agent agent;
      state.SetIterationTime( timed( [ & ] { agent.report( events ); } ) );
      if( agent.helper->writes != events.size() ) {
         state.SkipWithError( "not all were programmed" );
      }
   }
   state.SetItemsProcessed( state.iterations() * state.range( 0 ) );
}

void
plain( benchmark::State & state, Phase phase ) {
   auto const events = stations( static_cast< std::size_t >( state.range( 0 ) ) );
   auto moves = events;
   for( auto & event : moves ) {
      event.port = Pelt::EthIntfId( 1 + event.host.addr().value() % ports );
   }
   for( auto _ : state ) {
      PlainTable plainTable;
      auto const report = [ & ]( auto const & all ) {
         for( auto const & event : all ) {
            plainTable.learn( event, 1 );
         }
      };
      double const seconds[] = {
            timed( [ & ] { report( events ); } ), timed( [ & ] { report( events ); } ),
            timed( [ & ] { report( moves ); } ), timed( [ & ] { plainTable.delAll(); } ) };
      state.SetIterationTime( seconds[ phase ] );
   }
   state.SetItemsProcessed( state.iterations() * state.range( 0 ) );
}

// 1,000 on one port of so many.
void
flushPort( benchmark::State & state ) {
   auto const events = stations( static_cast< std::size_t >( state.range( 0 ) ) );
   Agent agent;
   agent.report( events );
   std::vector< HobaEvent > const quiet( events.end() - 1000, events.end() );
   Bridging::HostTableFlushRequest what;
   what.intf = quietPort;
   auto ages = quiet;
   for( auto & event : ages ) {
      event.eventType = HobaEvent::eventTypeMacAddressAged;
   }
   for( auto _ : state ) {
      state.SetIterationTime( timed( [ & ] { agent.flush( what ); } ) );
      agent.report( ages );
      agent.report( quiet );
   }
   state.SetItemsProcessed( state.iterations() * 1000 );
}

// Bytes a station, with what the hardware reported of it.
void
memoryLocal( benchmark::State & state ) {
   auto const events = stations( static_cast< std::size_t >( state.range( 0 ) ) );
   for( auto _ : state ) {
      Agent agent;
      auto const before = memoryInUse();
      agent.report( events );
      state.counters[ "bytes" ] =
            ( memoryInUse() - before ) / static_cast< double >( events.size() );
   }
}

// Bytes a station behind the overlay; and what the overlay's own table takes, which is there anyway.
void
memoryRemote( benchmark::State & state ) {
   auto const count = static_cast< std::size_t >( state.range( 0 ) );
   auto const events = stations( count );
   for( auto _ : state ) {
      Agent agent;
      Hoba::letGo( agent.macSm );
      Glim::WriterOptions const room{ .rows = count, .privateMemory = true };
      auto const empty = memoryInUse();
      agent.evpn->remoteMacControl().attachWriter( "evpn", room );
      for( unsigned vlan = 1; vlan <= vlans; ++vlan ) {
         agent.vnis->vniIs( Bridging::VlanId( vlan ), Vxlan::Vni( 10'000 + vlan ) );
      }
      for( std::size_t told = 0; told < count; ++told ) {
         Hoba::MacEntry entry;
         entry.macEntry = events[ told ].host;
         entry.intf = Pelt::VxlanIntfId( 1 );
         entry.entryType = Bridging::evpnDynamicRemoteMac;
         entry.swTunnelGroupId = Hoba::SwTunnelGroupId( 1 + told % 32 );
         agent.evpn->remoteMacIs( entry );
      }
      auto const told = memoryInUse();
      agent.remote->remoteHost()->remoteMacControl().attachWriter( "remote", room );
      agent.begin();
      agent.settle();
      if( agent.macSm->fdb().remotes() != count ) {
         state.SkipWithError( "not all are programmed" );
      }
      state.counters[ "overlay" ] = ( told - empty ) / static_cast< double >( count );
      state.counters[ "bytes" ] = ( memoryInUse() - told ) / static_cast< double >( count );
   }
}

// The longest that anything holds the thread with so many stations, in milliseconds of processor time: while
// they are learnt, while a LAG with a fifth of them goes, while another machine begins, while all are flushed.
class Longest {
 public:
   explicit Longest( Agent & agent ) : agent_( agent ) {}
   void run( auto const & work ) {
      timed( work );
      for( bool more = true; more; ) {
         timed( [ & ] { more = agent_.driver.run() > 0; } );
      }
   }
   double take() { return std::exchange( longest_, 0 ); }

 private:
   static double now() {
      timespec time;
      clock_gettime( CLOCK_PROCESS_CPUTIME_ID, &time );
      return static_cast< double >( time.tv_sec ) * 1e3 +
             static_cast< double >( time.tv_nsec ) / 1e6;
   }
   void timed( auto const & work ) {
      auto const begin = now();
      work();
      longest_ = std::max( longest_, now() - begin );
   }

   Agent & agent_;
   double longest_ = 0;
};

void
longestHandler( benchmark::State & state ) {
   auto events = stations( static_cast< std::size_t >( state.range( 0 ) ) );
   Pelt::PortChannelIntfId const lag( 1 );
   for( std::size_t i = 0; i < events.size() / 5; ++i ) {
      events[ i ].port = lag;
      events[ i ].portType = HobaEvent::trunkPort;
   }
   for( auto _ : state ) {
      Agent agent;
      Longest longest( agent );
      agent.data->lagToPortConfigIs( lag, {} );
      agent.data->lagToPortIs( lag, { { Pelt::EthIntfId( 1 ) } } );
      for( std::size_t at = 0; at < events.size(); ) {
         longest.run( [ & ] {
            for( auto const end = std::min( events.size(), at + 2048 ); at < end; ++at ) {
               Hoba::newMacEventIs( events[ at ] );
            }
         } );
      }
      state.counters[ "learn" ] = longest.take();
      longest.run( [ & ] {
         agent.data->lagToPortDel( lag );
         agent.data->lagToPortConfigDel( lag );
      } );
      state.counters[ "lag" ] = longest.take();
      Hoba::letGo( agent.macSm );
      longest.run( [ & ] { agent.begin(); } );
      state.counters[ "first" ] = longest.take();
      longest.run( [ & ] { agent.requests->agent( "bench" )->requestIs( "1", {} ); } );
      state.counters[ "flush" ] = longest.take();
   }
}

#define OVER_SIZES                                                                                 \
   ->Arg( 10'000 )                                                                                 \
         ->Arg( 100'000 )                                                                          \
         ->Arg( 1'000'000 )                                                                        \
         ->UseManualTime()                                                                         \
         ->Unit( benchmark::kMillisecond )

BENCHMARK_CAPTURE( table, learn, learn ) OVER_SIZES;
BENCHMARK_CAPTURE( plain, learn, learn ) OVER_SIZES;
BENCHMARK( programmed ) OVER_SIZES;
BENCHMARK_CAPTURE( table, repeat, repeat ) OVER_SIZES;
BENCHMARK_CAPTURE( plain, repeat, repeat ) OVER_SIZES;
BENCHMARK_CAPTURE( table, move, move ) OVER_SIZES;
BENCHMARK_CAPTURE( plain, move, move ) OVER_SIZES;
BENCHMARK_CAPTURE( table, flushAll, flushAll ) OVER_SIZES;
BENCHMARK_CAPTURE( plain, flushAll, flushAll ) OVER_SIZES;
BENCHMARK( flushPort )
      ->Arg( 10'000 )
      ->Arg( 500'000 )
      ->UseManualTime()
      ->Unit( benchmark::kMicrosecond );
BENCHMARK( memoryLocal )->Arg( 1'000'000 )->Iterations( 1 );
BENCHMARK( memoryRemote )->Arg( 1'000'000 )->Iterations( 1 );
BENCHMARK( longestHandler )->Arg( 500'000 )->Iterations( 1 )->Unit( benchmark::kMillisecond );

} // namespace
