// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the tests of the machines share: the balance of allocations, the environment, virtual time,
// and storm control set up on the simulated chip.

#include "Hoba/HobaCallbacks.h"
#include "Hoba/HobaEventQueueSm.h"
#include "Hoba/HobaLog.h"
#include "Hoba/HobaParityEventQueueSm.h"
#include "Hoba/HobaStormControlSm.h"
#include "Kiv/ClockDriver.h"
#include "Zipline/Reader.h"
#include "chips/sim/SimChip.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace HobaTest {

using Strings = std::vector< std::string >;

// What stands in a collection, in the order of the keys.
template< class Collection >
auto
mapOf( Collection const & all ) {
   std::map< typename Collection::key_type, std::remove_cvref_t< decltype( all.begin()->value ) > >
         sorted;
   for( auto const & [ key, value ] : all ) {
      sorted.emplace( key, value );
   }
   return sorted;
}

// The keys that came, went, or stand for something else now.
template< class Map >
std::set< typename Map::key_type >
changedKeys( Map const & before, Map const & after ) {
   std::set< typename Map::key_type > keys;
   for( auto const & [ from, to ] : { std::pair( &before, &after ), { &after, &before } } ) {
      for( auto const & [ key, value ] : *from ) {
         if( !to->contains( key ) || !( to->at( key ) == value ) ) {
            keys.insert( key );
         }
      }
   }
   return keys;
}

inline testing::AssertionResult
has( std::string_view text, std::string_view part ) {
   return testing::AssertionResult( text.find( part ) != text.npos ) << text;
}

inline std::map< std::string_view, std::uint64_t >
liveObjects() {
   std::map< std::string_view, std::uint64_t > live;
   for( auto const * type : Kiv::Type::all() ) {
      if( type->live() ) {
         live[ type->name() ] = type->live();
      }
   }
   return live;
}

// What a test wants to happen there, if anything. A copy, since it may be about to change that.
inline void
happens( std::function< void() > then ) {
   then ? then() : void();
}

// Sets or unsets an environment variable, and puts it back.
class Environment {
 public:
   Environment( char const * name, char const * value ) : name_( name ) {
      if( auto const * before = std::getenv( name ) ) {
         before_ = before;
      }
      value ? setenv( name, value, 1 ) : unsetenv( name );
   }
   ~Environment() { before_ ? setenv( name_, before_->c_str(), 1 ) : unsetenv( name_ ); }
   Environment( Environment const & ) = delete;
   Environment & operator=( Environment const & ) = delete;

 private:
   char const * name_;
   std::optional< std::string > before_;
};

// What `call` throws of this class; empty for nothing.
template< class Exception, class Call >
std::string
thrown( Call const & call ) {
   try {
      call();
   } catch( Exception const & exception ) {
      return exception.what();
   }
   return {};
}

// Steps that threw since it was last asked. What no test asks for is a fault.
inline std::uint64_t
failures() {
   static std::uint64_t seen = 0;
   auto const before = std::exchange( seen, Kiv::Dispatch::failures );
   return seen - before;
}

inline Kiv::String
lastLogged() {
   return Hoba::logEntries().empty() ? Kiv::String() : Hoba::logEntries().back().text;
}

// Hardware, no simulation, time stands at 100 s; and nothing may be left over at the end, no machine
// with the entry functions either, and no failure that the test did not ask for.
class HobaFixture : public testing::Test {
 protected:
   HobaFixture() { Kiv::ClockDriver::ambientIs( driver ); }
   ~HobaFixture() override {
      EXPECT_FALSE( Hoba::eventSm() );
      EXPECT_FALSE( Hoba::parityEventSm() );
      EXPECT_EQ( liveObjects(), liveBefore_ );
      EXPECT_EQ( failures(), 0u ) << lastLogged();
   }

   Kiv::VirtualDriver driver{ 100 };

 private:
   std::map< std::string_view, std::uint64_t > liveBefore_ = liveObjects();
   Environment simulation_{ "SIMULATION_VMID", nullptr };
   Environment noop_{ "HOBA_NOOP_AGENT", nullptr };
};

// With the shared context, which goes after what the test has.
class ContextFixture : public HobaFixture {
 protected:
   ~ContextFixture() override { data->cleanup(); }

   Kiv::Ptr< Hoba::HobaCommonSmData > data = Kiv::make< Hoba::HobaCommonSmData >( "agent" );
};

// Does something whenever `attribute` of what it watches changes.
template< class WatchedT, auto const & attribute >
class Watcher : public Hoba::HobaBaseSm {
 public:
   KIV_TYPE( Watcher );
   unsigned changes = 0;
   std::function< void() > then;

 protected:
   explicit Watcher( Kiv::Ptr< WatchedT const > const & entity ) : HobaBaseSm( nullptr ) {
      entityIs( entity );
   }

 private:
   void handleChange() {
      ++changes;
      happens( then );
   }
   class KivEntity
         : public Kiv::Hears< Watcher, WatchedT const,
                              Kiv::OnChange< attribute, &Watcher::handleChange > > {};
   KIV_REACTOR( KivEntity, entity );
};

// All levels of one trace handle, as messages.
class Traces {
 public:
   explicit Traces( std::string name ) : name_( std::move( name ) ) {
      Zipline::levelsIs( name_, Zipline::Levels::upTo( 9 ) );
      since_ = Zipline::extent().end;
   }
   ~Traces() { Zipline::levelsDel( name_ ); }
   Traces( Traces const & ) = delete;
   Traces & operator=( Traces const & ) = delete;

   // What was traced since the last time.
   Strings take() {
      Strings messages;
      since_ = Zipline::visit( { .since = since_, .handle = name_ },
                               [ & ]( Zipline::Record const & record ) {
                                  messages.emplace_back( record.message );
                                  return true;
                               } )
                     .next;
      return messages;
   }

 private:
   std::string const name_;
   std::uint64_t since_ = 0;
};

namespace StormControl = Bridging::StormControl;

inline StormControl::Threshold
percent( std::uint32_t hundredths ) {
   return { StormControl::meteringPercent, hundredths, 0, StormControl::unitPercent };
}
inline StormControl::Threshold
pps( std::uint32_t rate ) {
   return { StormControl::meteringPps, 0, rate, StormControl::unitPps };
}
inline StormControl::Threshold
kbps( std::uint32_t rate ) {
   return { StormControl::meteringBps, 0, rate, StormControl::unitKbps };
}

// Programs the simulated chip, and says one line of every call: "broadcast Ethernet1 10000000 250",
// with the LAG behind a member's name, and "none" for the default threshold.
class RecordingStormHelper : public HobaSim::StormControlHelper {
   KIV_ENTITY( HobaTest::RecordingStormHelper, HobaSim::StormControlHelper );

 public:
   using StormControlHelper::StormControlHelper;

   Strings take() { return std::exchange( calls, {} ); }
   Strings calls;
   // Which call from now on is refused: 1 is the next; 0 for none.
   unsigned throwAt = 0;

   void hwInit() override {
      called( "hwInit" );
      StormControlHelper::hwInit();
   }
   void installRules() override {
      called( "installRules" );
      StormControlHelper::installRules();
   }
   void setHwRate( Hoba::LevelType levelType, Pelt::IntfId intf, Pelt::IntfId parentIntf,
                   std::uint32_t speedKbps, Threshold const & threshold ) override;
   void updateBcastSkipRule( Pelt::IntfId intf, bool skip ) override {
      called( "skip " + Kiv::toText( intf ) + ( skip ? " on" : " off" ) );
      StormControlHelper::updateBcastSkipRule( intf, skip );
   }
   void programTcAggregateHwRate( std::uint32_t trafficClass,
                                  Threshold const & threshold ) override;
   void setBurstTime( StormControl::BurstConfig const & burstConfig ) override {
      called( "burst " + burstConfig.name() + " " + Kiv::toText( burstConfig.burstTime() ) );
      StormControlHelper::setBurstTime( burstConfig );
   }
   void handleEthPhyIntfLagConfig( Pelt::IntfId intf ) override {
      called( "lag of " + Kiv::toText( intf ) );
   }

 private:
   void called( std::string const & call );
};

// Everything that storm control needs, and itself once start() was called.
class StormWorld {
 public:
   using Threshold = StormControl::Threshold;

   StormWorld();
   ~StormWorld();
   StormWorld( StormWorld const & ) = delete;
   StormWorld & operator=( StormWorld const & ) = delete;

   // Context and machine; nothing is initialized.
   void create() {
      sm = Hoba::StormControlSm::StormControlSmIs( data, config, dir, status, helper, lagInput,
                                                   clock );
   }
   // Both are initialized. The calls that it took are forgotten.
   void start() {
      create();
      data->handleInitialized();
      sm->initializedIs( true );
      helper->take();
   }

   // A port that the platform has. Active.
   void portIs( Pelt::IntfId intf, Interface::EthSpeed speed ) {
      data->intfIs( intf, true );
      activeIs( intf, true );
      speedIs( intf, speed );
   }
   void speedIs( Pelt::IntfId intf, Interface::EthSpeed speed ) {
      dir->ethPhyIntfStatusIs( intf )->speedIs( speed );
   }
   void activeIs( Pelt::IntfId intf, bool active ) {
      dir->ethPhyIntfStatusIs( intf )->activeIs( active );
   }
   // In both maps of the context, the port's first; or out of them.
   void memberIs( Pelt::IntfId intf, Pelt::IntfId lag ) {
      data->portToLagIs( intf, lag );
      lagPortIs( lag, intf );
   }
   void memberDel( Pelt::IntfId intf ) {
      auto const lag = data->portToLag( intf );
      data->portToLagDel( intf );
      lagPortDel( lag, intf );
   }
   void lagPortIs( Pelt::IntfId lag, Pelt::IntfId intf );
   void lagPortDel( Pelt::IntfId lag, Pelt::IntfId intf );
   void levelIs( Pelt::IntfId intf, Hoba::LevelType levelType, Threshold const & threshold );

   StormControl::LevelStatus levelStatus( Pelt::IntfId intf, Hoba::LevelType levelType );
   // What the machines answer to the command line, without those that are content.
   Strings mismatches();
   // All that the machine made of the configuration, where it can reach; and what a fresh machine
   // makes of it on a fresh chip.
   std::string outcome() const { return outcomeOf( *chip->stormControl(), *status ); }
   std::string freshOutcome() const;
   HobaSim::StormUnit & unit() { return *chip->stormControl(); }
   Kiv::Ptr< Hoba::HobaCommonSmData > data;
   Kiv::Ptr< StormControl::Config > config;
   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > dir;
   Kiv::Ptr< StormControl::Status > status;
   Kiv::Ptr< Lag::Input::Config > lagInput;
   Kiv::Ptr< HobaSim::Chip > chip;
   Kiv::Ptr< RecordingStormHelper > helper;
   Kiv::Ptr< Mox::TimerWheel > clock;
   Kiv::Ptr< Hoba::StormControlSm > sm;

 private:
   std::string outcomeOf( HobaSim::StormUnit const & unit,
                          StormControl::Status const & statusOf ) const;
};

} // namespace HobaTest
