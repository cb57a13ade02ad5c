// SPDX-License-Identifier: Apache-2.0

// Storm control: which calls a change makes, and in which order. What the chip and the status hold in
// the end, whatever an operator does, and what verification finds, the simulation of the whole switch
// sees; what else may happen, StormControlStandingTest.cpp.

#include "StormControlTest.h"

namespace {

using namespace HobaTest;

class StormControlSmTest : public HobaFixture {
 protected:
   Strings calls() { return world.helper->take(); }

   StormWorld world;
};

// ---- One level of a port

struct LevelCase {
   LevelType levelType;
   Threshold asked;
   std::string platform; // what it can do, or cannot
   std::string outcome;  // state and rate in the status, calls for Ethernet1
   Interface::EthSpeed speed = speed10Gbps;
};

LevelCase const levelCases[] = {
      { bc, percent( 250 ), "", "programmed 250000: broadcast 10000000 250, skip off" },
      { mc, percent( 1 ), "", "programmed 100: multicast 1000000 1, skip on", speed1Gbps },
      // More than 32 bits in between.
      { at, percent( 9999 ), "",
        "programmed 399960000: all 400000000 9999, broadcast 400000000 none, "
        "uucast 400000000 none, skip off",
        Interface::speed400Gbps },
      { bc, percent( 250 ), "", "speedUnknown 0:", Interface::speedUnknown },
      { uu, percent( 250 ), "no uucast", "levelNotSupported 0:" },
      // It covers nothing, so the others hold as before.
      { at, percent( 250 ), "no all",
        "levelNotSupported 0: uucast 10000000 none, skip off, broadcast 10000000 none, skip off, "
        "multicast 10000000 none, skip off" },
      { mc, pps( 5000 ), "", "meteringModeNotSupported 0: multicast 10000000 none, skip off" },
      { mc, pps( 5000 ), "pps", "programmed 0: multicast 10000000 pps 5000, skip on" },
      { bc, kbps( 50 ), "pps", "meteringModeNotSupported 0: broadcast 10000000 none, skip off" },
      { bc, kbps( 50 ), "bps", "programmed 0: broadcast 10000000 bps 50, skip off" },
      { bc, percent( 0 ), "", "zeroRateNotSupported 0: skip off" },
      { bc, percent( 0 ), "zero", "programmed 0: broadcast 10000000 0, skip off" },
      { bc, pps( 0 ), "pps", "zeroRateNotSupported 0: skip off" },
      // The mode is looked at before the zero.
      { bc, pps( 0 ), "", "meteringModeNotSupported 0: broadcast 10000000 none, skip off" },
};

TEST_F( StormControlSmTest, oneLevelOfAPort ) {
   for( auto const & row : levelCases ) {
      SCOPED_TRACE( row.outcome );
      StormWorld one;
      one.unit().uucastLevelIs( row.platform != "no uucast" );
      one.unit().allLevelIs( row.platform != "no all" );
      one.unit().ppsMeteringIs( row.platform == "pps" );
      one.unit().bpsMeteringIs( row.platform == "bps" );
      one.unit().zeroRateIs( row.platform == "zero" );
      one.portIs( et1, row.speed );
      one.config->intfConfigIs( et1 );
      one.start();
      one.levelIs( et1, row.levelType, row.asked );
      auto const status = one.levelStatus( et1, row.levelType );
      auto outcome = Kiv::toText( status.state ) + " " + Kiv::toText( status.rate ) + ":";
      for( auto call : one.helper->take() ) {
         call.erase( call.find( "Ethernet1 " ), 10 );
         outcome += ( outcome.ends_with( ':' ) ? " " : ", " ) + call;
      }
      EXPECT_EQ( outcome, row.outcome );
      one.levelIs( et1, row.levelType, row.asked );
      EXPECT_EQ( one.helper->take(), Strings{} ) << "the same again";
   }
}

TEST( StormControlRateTest, arithmeticIsExact ) {
   EXPECT_EQ( Hoba::rateOf( 9'999, percent( 5'000 ) ), 4'999u ); // truncated
   EXPECT_EQ( Hoba::rateOf( 4'294'967'295, percent( 4'294'967'295 ) ), 1'844'674'406'511'961u );
}

TEST( StormControlRateTest, levelsOfPortsHaveNames ) {
   for( auto levelType : Hoba::allLevelTypes ) {
      Hoba::PortLevel const level{ Pelt::IntfId( "Ethernet3/1" ), levelType };
      EXPECT_EQ( Kiv::fromText< Hoba::PortLevel >( Kiv::toText( level ) ), level );
   }
   EXPECT_EQ( Kiv::toText( Hoba::PortLevel{ et1, at } ), "Ethernet1:all" );
   for( auto const * text : { "", "all", "Ethernet1", "Ethernet1:", "Ethernet1:most", "E1:all" } ) {
      EXPECT_THROW( Kiv::fromText< Hoba::PortLevel >( text ), Kiv::ParseError ) << text;
   }
}

// ---- Calls in order

TEST_F( StormControlSmTest, firstPassInOrder ) {
   world.portIs( et1, speed10Gbps );
   world.lagInput->ethPhyIntfLagConfigIs( et2, po1 );
   world.levelIs( et1, mc, percent( 300 ) );
   world.config->aggregateTcConfigIs( 3 )->levelIs( percent( 400 ) );
   world.config->burstConfigIs( "short" )->burstTimeIs( 50 );
   world.status->intfStatusIs( et3 ); // left over by an earlier run
   world.create();
   world.data->handleInitialized();
   world.levelIs( et1, bc, percent( 100 ) );
   world.speedIs( et1, speed1Gbps );
   world.memberIs( et2, po1 );
   world.config->periodIs( 2 );
   EXPECT_EQ( calls(), Strings{} ) << "nothing before it is initialized";
   EXPECT_EQ( world.clock->timers(), 0u );
   EXPECT_TRUE( world.status->intfStatusHas( et3 ) );
   world.sm->initializedIs( true );
   Strings const first = calls();
   EXPECT_EQ( first, ( Strings{ "hwInit", "installRules", "lag of Ethernet2",
                                "broadcast Ethernet1 1000000 100", "skip Ethernet1 on",
                                "multicast Ethernet1 1000000 300", "skip Ethernet1 on",
                                "uucast Ethernet1 1000000 none", "skip Ethernet1 on",
                                "all Ethernet1 1000000 none", "skip Ethernet1 on", "tc 3 400",
                                "burst short 50" } ) );
   EXPECT_EQ( world.clock->timers(), 1u );
   world.sm->initializedIs( true );
   EXPECT_EQ( calls(), Strings{} );
   world.sm->initializedIs( false );
   world.levelIs( et1, bc, percent( 150 ) );
   world.config->intfConfigDel( et1 );
   EXPECT_EQ( calls(), Strings{} );
   EXPECT_EQ( world.clock->timers(), 0u );
   world.unit().chipStormControlIs( true );
   world.sm->initializedIs( true );
   EXPECT_EQ( calls(), ( Strings{ "hwInit", "lag of Ethernet2", "tc 3 400", "burst short 50" } ) );
   EXPECT_EQ( world.status->intfStatus().size(), 0u );
}

TEST_F( StormControlSmTest, missingInputs ) {
   auto const make = [ & ]( auto const & status, auto const & helper ) {
      return Hoba::StormControlSm::StormControlSmIs( world.data, nullptr, nullptr, status, helper,
                                                     nullptr, nullptr );
   };
   EXPECT_THROW( make( nullptr, world.helper ), Kiv::Exception );
   EXPECT_THROW( make( world.status, nullptr ), Kiv::Exception );
   world.sm = make( world.status, world.helper );
   world.data->handleInitialized();
   world.sm->initializedIs( true );
   world.memberIs( et1, po1 );
   world.data->intfIs( et1, true );
   world.data->verifyData()->verifyInc( 1 );
   world.sm->initializedIs( false );
   EXPECT_EQ( calls().front(), "hwInit" );
}

// What followed the configuration's parts stays, and so does a timer.
TEST_F( StormControlSmTest, theConfigurationIsTakenAway ) {
   world.portIs( et1, speed10Gbps );
   world.levelIs( et1, mc, percent( 100 ) );
   auto const trafficClass = world.config->aggregateTcConfigIs( 1 );
   auto const burst = world.config->burstConfigIs( "b" );
   world.start();
   world.sm->configDel();
   calls();
   trafficClass->levelIs( percent( 200 ) );
   burst->burstTimeIs( 7 );
   driver.advance( 60 );
   EXPECT_FALSE( calls().empty() );
   EXPECT_EQ( world.clock->timers(), 0u );
}

TEST_F( StormControlSmTest, allTrafficSupersedes ) {
   world.portIs( et1, speed10Gbps );
   world.levelIs( et1, mc, percent( 300 ) );
   world.levelIs( et1, uu, percent( 200 ) );
   world.start();
   // What the platform cannot meter is as good as the default.
   for( auto const & noLimit : { Threshold{}, pps( 500 ) } ) {
      world.levelIs( et1, at, percent( 500 ) );
      EXPECT_EQ( calls(),
                 ( Strings{ "all Ethernet1 10000000 500", "broadcast Ethernet1 10000000 none",
                            "uucast Ethernet1 10000000 none", "skip Ethernet1 off" } ) );
      world.levelIs( et1, bc, percent( 150 + noLimit.rate ) );
      EXPECT_EQ( calls(),
                 ( Strings{ "broadcast Ethernet1 10000000 none", "skip Ethernet1 off" } ) );
      world.levelIs( et1, bc, percent( 150 ) );
      calls();
      world.levelIs( et1, at, noLimit );
      EXPECT_EQ( calls(), ( Strings{ "all Ethernet1 10000000 none", "skip Ethernet1 on",
                                     "uucast Ethernet1 10000000 200", "skip Ethernet1 on",
                                     "broadcast Ethernet1 10000000 150", "skip Ethernet1 on",
                                     "multicast Ethernet1 10000000 300", "skip Ethernet1 on" } ) );
   }
}

TEST_F( StormControlSmTest, joiningAndLeavingCallByCall ) {
   world.portIs( et1, speed10Gbps );
   world.portIs( et2, speed1Gbps );
   world.memberIs( et2, po1 );
   world.levelIs( et1, mc, percent( 500 ) );
   world.start();
   world.memberIs( et1, po1 );
   calls();
   world.levelIs( et1, bc, percent( 700 ) );
   EXPECT_EQ( calls(), Strings{} ) << "its own levels wait";
   world.config->intfConfigIs( po1 );
   calls();
   world.levelIs( po1, bc, percent( 1000 ) );
   EXPECT_EQ( calls(), ( Strings{ "broadcast Ethernet2(Port-Channel1) 1000000 1000",
                                  "broadcast Ethernet1(Port-Channel1) 10000000 1000",
                                  "skip Port-Channel1 off" } ) );
   world.config->intfConfigDel( po1 );
   calls();
   world.memberDel( et1 );
   EXPECT_EQ( calls(), ( Strings{ "broadcast Ethernet1 10000000 700", "skip Ethernet1 on",
                                  "multicast Ethernet1 10000000 500", "skip Ethernet1 on",
                                  "uucast Ethernet1 10000000 none", "skip Ethernet1 on",
                                  "all Ethernet1 10000000 none", "skip Ethernet1 on" } ) );
}

TEST_F( StormControlSmTest, lagOf64FastMembersDoesNotOverflow ) {
   for( unsigned n = 1; n <= 64; ++n ) {
      Pelt::IntfId const port( "Ethernet" + std::to_string( n ) );
      world.portIs( port, Interface::speed800Gbps );
      world.memberIs( port, po1 );
   }
   world.levelIs( po1, mc, percent( 9999 ) );
   world.start();
   EXPECT_EQ( world.levelStatus( po1, mc ).rate, 51'194'880'000u );
   EXPECT_EQ( world.status->intfStatus( po1 )->speed(), 51'200'000'000u );
}

TEST_F( StormControlSmTest, whatSomebodyElseDoesIsMendedOrLeftAlone ) {
   world.portIs( et1, speed10Gbps );
   world.levelIs( et1, bc, percent( 250 ) );
   world.start();
   world.status->intfStatusDel( et1 );
   driver.advance( 6 );
   EXPECT_TRUE( world.status->intfStatusHas( et1 ) );
   world.status->intfStatusDel( et1 );
   world.levelIs( et1, bc, percent( 0 ) );
   EXPECT_EQ( world.levelStatus( et1, bc ).state, zeroRateNotSupported );
   // What is said twice of a port that is there changes nothing.
   calls();
   world.data->intfIs( et1, false );
   EXPECT_EQ( calls(), Strings{} );
}

TEST_F( StormControlSmTest, stoppedInTheMiddleOfAReading ) {
   world.portIs( et1, speed10Gbps );
   world.levelIs( et1, mc, percent( 100 ) );
   world.start();
   world.unit().dropIs( { et1, mc }, 7 );
   auto const watcher = Hoba::smIs<
         Watcher< StormControl::IntfStatus, StormControl::IntfStatus::multicastDropAttr > >(
         world.status->intfStatus( et1 ) );
   watcher->then = [ & ] { world.sm->initializedIs( false ); };
   driver.advance( 20 );
   EXPECT_EQ( watcher->changes, 1u );
   EXPECT_EQ( world.clock->timers(), 0u );
}

TEST_F( StormControlSmTest, dropCountersAreReadWhereTheFirstPassFailed ) {
   world.portIs( et1, speed10Gbps );
   world.start();
   world.helper->throwAt = 1;
   world.config->intfConfigIs( et1 );
   EXPECT_EQ( failures(), 1u );
   world.unit().dropIs( { et1, mc }, 7 );
   driver.advance( 6 );
   EXPECT_EQ( world.status->intfStatus( et1 )->multicastDrop(), 7u );
}

// A platform without an operation that it must have.
TEST_F( StormControlSmTest, unimplementedOperations ) {
   auto const config = Kiv::make< IntfConfig >( et1 );
   auto const tc = Kiv::make< AggregateTcConfig >( std::uint16_t( 1 ) );
   auto const burst = Kiv::make< BurstConfig >( "b" );
   using Helper = Hoba::StormControlSmHelper;
   struct Row {
      std::string name;
      std::function< void( Helper & ) > call;
   };
   Row const rows[] = {
         { "installRules", []( auto & h ) { h.installRules(); } },
         { "setHwRate", []( auto & h ) { h.setHwRate( at, et1, et1, 1, {} ); } },
         { "updateBcastSkipRule", []( auto & h ) { h.updateBcastSkipRule( et1, true ); } },
         { "programTcAggregateHwRate", []( auto & h ) { h.programTcAggregateHwRate( 1, {} ); } },
         { "setBurstTime", [ & ]( auto & h ) { h.setBurstTime( *burst ); } },
         { "handleEthPhyIntfLagConfig", []( auto & h ) { h.handleEthPhyIntfLagConfig( et1 ); } },
         { "verifyEnabled", []( auto & h ) { h.verifyEnabled( et1, true ); } },
         { "verifyPort", [ & ]( auto & h ) { h.verifyPort( et1, et1, 1, *config ); } },
         { "verifyAggregateTc", [ & ]( auto & h ) { h.verifyAggregateTc( 1, *tc ); } },
   };
   auto const helper = Kiv::make< Helper >();
   for( auto const & [ name, call ] : rows ) {
      EXPECT_DEATH( call( *helper ),
                    "^Function " + name + "\\(\\) must be implemented" +
                          ( name == "handleEthPhyIntfLagConfig" ? "\n" : " by derived class" ) );
      Environment const noop( "HOBA_NOOP_AGENT", "1" );
      call( *helper );
   }
   helper->hwInit();
   EXPECT_EQ( helper->verifyPlatformStormControl( *world.config, *world.status ), "" );
   EXPECT_TRUE( helper->allLevelEnabled() );
   EXPECT_FALSE( helper->burstEnabled() || helper->uucastLevelEnabled() ||
                 helper->zeroRateEnabled() || helper->ppsMeteringEnabled() ||
                 helper->bpsMeteringEnabled() || helper->dropCountEnabled() ||
                 helper->chipStormControlEnabled() ||
                 helper->platformSupportsDynamicLogicalPorts() );
}

} // namespace
