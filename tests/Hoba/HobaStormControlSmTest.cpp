// SPDX-License-Identifier: Apache-2.0

// Storm control: which calls a change makes, in which order, and what the chip and the status hold
// in the end.

#include "HobaTest.h"

#include "Hoba/HobaStormControlRate.h"
#include "Kiv/Exception.h"

#include <algorithm>

namespace {

using namespace HobaTest;
using namespace Bridging::StormControl;
using Hoba::levelTypeAll;
using Hoba::levelTypeBroadcast;
using Hoba::levelTypeMulticast;
using Hoba::levelTypeUUcast;
using Interface::speed100Gbps;
using Interface::speed10Gbps;
using Interface::speed1Gbps;
using Interface::speed400Gbps;
using Interface::speed40Gbps;
using Interface::speed800Gbps;

Pelt::IntfId const et1{ "Ethernet1" };
Pelt::IntfId const et2{ "Ethernet2" };
Pelt::IntfId const et3{ "Ethernet3" };
Pelt::IntfId const po1{ "Port-Channel1" };
Pelt::IntfId const po2{ "Port-Channel2" };

class StormControlSmTest : public HobaFixture {
 protected:
   Strings calls() { return world.helper->take(); }
   LevelState state( Pelt::IntfId intf, Hoba::LevelType levelType ) {
      return world.levelStatus( intf, levelType ).state;
   }
   void lagOfTwo() {
      world.portIs( et1, speed10Gbps );
      world.portIs( et2, speed1Gbps );
      world.memberIs( et1, po1 );
      world.memberIs( et2, po1 );
   }
   // What the machines answer to the command line, without those that are content.
   Strings mismatches() {
      auto const verify = world.data->verifyData();
      verify->initVerifyData( 7 );
      verify->verifyInc( 1 );
      Strings found;
      for( auto const & [ key, text ] : verify->cliVerifyOutput() ) {
         if( text.find( "\"ok\"" ) == std::string::npos ) {
            found.push_back( text );
         }
      }
      return found;
   }

   StormWorld world;
};

// ---- One level of a port

struct LevelCase {
   Hoba::LevelType levelType;
   Threshold asked;
   std::string platform; // what it can do, or cannot
   std::string outcome;  // state and rate in the status, calls for Ethernet1
   Interface::EthSpeed speed = speed10Gbps;
};

auto constexpr bc = levelTypeBroadcast;
auto constexpr mc = levelTypeMulticast;

LevelCase const levelCases[] = {
      { bc, percent( 250 ), "", "programmed 250000: broadcast 10000000 250, skip off" },
      { mc, percent( 1 ), "", "programmed 100: multicast 1000000 1, skip on", speed1Gbps },
      // More than 32 bits in between.
      { levelTypeAll, percent( 9999 ), "",
        "programmed 399960000: all 400000000 9999, broadcast 400000000 none, "
        "uucast 400000000 none, skip off",
        speed400Gbps },
      { bc, percent( 250 ), "", "speedUnknown 0:", Interface::speedUnknown },
      { levelTypeUUcast, percent( 250 ), "no uucast", "levelNotSupported 0:" },
      // It covers nothing, so the others hold as before.
      { levelTypeAll, percent( 250 ), "no all",
        "levelNotSupported 0: uucast 10000000 none, skip off, broadcast 10000000 none, skip off, "
        "multicast 10000000 none, skip off" },
      { mc, pps( 5000 ), "", "meteringModeNotSupported 0: multicast 10000000 none, skip off" },
      { mc, pps( 5000 ), "pps", "programmed 0: multicast 10000000 pps 5000, skip on" },
      { bc, kbps( 50 ), "pps", "meteringModeNotSupported 0: broadcast 10000000 none, skip off" },
      { bc, kbps( 50 ), "bps", "programmed 0: broadcast 10000000 bps 50, skip off" },
      { bc, percent( 0 ), "", "zeroRateNotSupported 0:" },
      { bc, percent( 0 ), "zero", "programmed 0: broadcast 10000000 0, skip off" },
      { bc, pps( 0 ), "pps", "zeroRateNotSupported 0:" },
      // The mode is looked at before the zero.
      { bc, pps( 0 ), "", "meteringModeNotSupported 0: broadcast 10000000 none, skip off" },
};

TEST_F( StormControlSmTest, oneLevelOfAPort ) {
   for( auto const & row : levelCases ) {
      SCOPED_TRACE( row.outcome );
      StormWorld one;
      auto & unit = one.unit();
      unit.uucastLevelIs( row.platform != "no uucast" );
      unit.allLevelIs( row.platform != "no all" );
      unit.ppsMeteringIs( row.platform == "pps" );
      unit.bpsMeteringIs( row.platform == "bps" );
      unit.zeroRateIs( row.platform == "zero" );
      one.portIs( et1, row.speed );
      one.start();
      one.config->intfConfigIs( et1 );
      one.helper->take();
      one.levelIs( et1, row.levelType, row.asked );
      auto const status = one.levelStatus( et1, row.levelType );
      auto outcome = Kiv::toText( status.state ) + " " + Kiv::toText( status.rate ) + ":";
      char const * separator = " ";
      for( auto call : one.helper->take() ) {
         call.erase( call.find( "Ethernet1 " ), 10 );
         outcome += separator + call;
         separator = ", ";
      }
      EXPECT_EQ( outcome, row.outcome );
      one.levelIs( et1, row.levelType, row.asked );
      EXPECT_EQ( one.helper->take(), Strings{} ) << "the same again";
   }
}

TEST( StormControlRateTest, arithmeticIsExact ) {
   EXPECT_EQ( Hoba::rateOf( 9'999, percent( 5'000 ) ), 4'999u ); // truncated
   EXPECT_EQ( Hoba::rateOf( 1, percent( 9'999 ) ), 0u );
   EXPECT_EQ( Hoba::rateOf( 4'294'967'295, percent( 4'294'967'295 ) ), 1'844'674'406'511'961u );
   EXPECT_EQ( Hoba::rateOf( 10'000'000, pps( 5 ) ), 0u );
   EXPECT_EQ( Hoba::levelText( Hoba::levelTypeUUcast ), " uucast" );
}

TEST_F( StormControlSmTest, firstPassInOrder ) {
   world.portIs( et1, speed10Gbps );
   world.lagInput->ethPhyIntfLagConfigIs( et2, po1 );
   world.levelIs( et1, levelTypeMulticast, percent( 300 ) );
   world.config->aggregateTcConfigIs( 3 )->levelIs( percent( 400 ) );
   world.config->burstConfigIs( "short" )->burstTimeIs( 50 );
   world.status->intfStatusIs( et3 ); // left over by an earlier run
   world.create();
   world.data->handleInitialized();
   world.levelIs( et1, levelTypeBroadcast, percent( 100 ) );
   world.speedIs( et1, speed1Gbps );
   world.memberIs( et2, po1 );
   world.config->periodIs( 2 );
   EXPECT_EQ( calls(), Strings{} ) << "nothing before it is initialized";
   EXPECT_EQ( world.clock->timers(), 0u );
   EXPECT_TRUE( world.status->intfStatusHas( et3 ) );

   Strings const expected = { "hwInit",
                              "installRules",
                              "lag of Ethernet2",
                              "broadcast Ethernet1 1000000 100",
                              "skip Ethernet1 on",
                              "multicast Ethernet1 1000000 300",
                              "skip Ethernet1 on",
                              "uucast Ethernet1 1000000 none",
                              "skip Ethernet1 on",
                              "all Ethernet1 1000000 none",
                              "skip Ethernet1 on",
                              "tc 3 400",
                              "burst short 50" };
   world.sm->initializedIs( true );
   EXPECT_EQ( calls(), expected );
   EXPECT_FALSE( world.status->intfStatusHas( et3 ) );
   EXPECT_EQ( world.clock->timers(), 1u );

   world.sm->initializedIs( true );
   EXPECT_EQ( calls(), Strings{} );
   world.sm->initializedIs( false );
   world.levelIs( et1, levelTypeBroadcast, percent( 150 ) );
   world.config->intfConfigDel( et1 );
   EXPECT_EQ( calls(), Strings{} );
   EXPECT_EQ( world.clock->timers(), 0u );
   world.unit().chipStormControlIs( true );
   world.sm->initializedIs( true );
   EXPECT_EQ( calls(), ( Strings{ "hwInit", "lag of Ethernet2", "tc 3 400", "burst short 50" } ) );
   EXPECT_FALSE( world.status->intfStatusHas( et1 ) );
}

TEST_F( StormControlSmTest, missingInputs ) {
   using Sm = Hoba::StormControlSm;
   EXPECT_THROW( Sm::StormControlSmIs( world.data, world.config, world.dir, nullptr, world.helper,
                                       world.lagInput, world.clock ),
                 Kiv::Exception );
   EXPECT_THROW( Sm::StormControlSmIs( world.data, world.config, world.dir, world.status, nullptr,
                                       world.lagInput, world.clock ),
                 Kiv::Exception );
   world.sm = Sm::StormControlSmIs( world.data, nullptr, nullptr, world.status, world.helper,
                                    nullptr, nullptr );
   world.data->handleInitialized();
   world.sm->initializedIs( true );
   world.memberIs( et1, po1 );
   world.data->intfIs( et1, true );
   world.data->verifyData()->verifyInc( 1 );
   world.sm->initializedIs( false );
   EXPECT_EQ( calls().front(), "hwInit" );
}

// ---- The all-traffic level

TEST_F( StormControlSmTest, allTrafficSupersedes ) {
   world.portIs( et1, speed10Gbps );
   world.levelIs( et1, levelTypeBroadcast, percent( 100 ) );
   world.levelIs( et1, levelTypeMulticast, percent( 300 ) );
   world.levelIs( et1, levelTypeUUcast, percent( 200 ) );
   world.start();
   EXPECT_EQ( world.held( et1 ), "broadcast 100000, multicast 300000, uucast 200000" );

   world.levelIs( et1, levelTypeAll, percent( 500 ) );
   EXPECT_EQ( calls(), ( Strings{ "all Ethernet1 10000000 500", "broadcast Ethernet1 10000000 none",
                                  "uucast Ethernet1 10000000 none", "skip Ethernet1 off" } ) );
   EXPECT_EQ( world.held( et1 ), "multicast 300000, all 500000" );
   EXPECT_EQ( state( et1, levelTypeBroadcast ), supersededByAll );
   EXPECT_EQ( state( et1, levelTypeUUcast ), supersededByAll );
   EXPECT_EQ( state( et1, levelTypeMulticast ), programmed );

   // Also when the covered level changes.
   world.levelIs( et1, levelTypeBroadcast, percent( 150 ) );
   EXPECT_EQ( calls(), ( Strings{ "broadcast Ethernet1 10000000 none", "skip Ethernet1 off" } ) );
   EXPECT_EQ( state( et1, levelTypeBroadcast ), supersededByAll );
   EXPECT_EQ( world.held( et1 ), "multicast 300000, all 500000" );
   EXPECT_EQ( mismatches(), Strings{} );
   world.speedIs( et1, speed1Gbps );
   EXPECT_EQ( world.held( et1 ), "multicast 30000, all 50000" );
   world.speedIs( et1, speed10Gbps );
   calls();

   Strings const restored = { "all Ethernet1 10000000 none",      "skip Ethernet1 on",
                              "uucast Ethernet1 10000000 200",    "skip Ethernet1 on",
                              "broadcast Ethernet1 10000000 150", "skip Ethernet1 on",
                              "multicast Ethernet1 10000000 300", "skip Ethernet1 on" };
   world.levelIs( et1, levelTypeAll, {} );
   EXPECT_EQ( calls(), restored );
   EXPECT_EQ( world.held( et1 ), "broadcast 150000, multicast 300000, uucast 200000" );
   EXPECT_EQ( state( et1, levelTypeBroadcast ), programmed );

   // What the platform cannot meter is as good as the default.
   world.levelIs( et1, levelTypeAll, percent( 500 ) );
   calls();
   world.levelIs( et1, levelTypeAll, pps( 500 ) );
   EXPECT_EQ( calls(), restored );
   EXPECT_EQ( state( et1, levelTypeAll ), meteringModeNotSupported );
}

TEST_F( StormControlSmTest, unknownUnicastIsNeverNamedWithoutSupport ) {
   world.unit().uucastLevelIs( false );
   world.portIs( et1, speed10Gbps );
   world.levelIs( et1, levelTypeUUcast, percent( 200 ) );
   world.create();
   world.data->handleInitialized();
   world.sm->initializedIs( true );
   world.levelIs( et1, levelTypeAll, percent( 500 ) );
   world.levelIs( et1, levelTypeAll, {} );
   world.levelIs( et1, levelTypeUUcast, {} );
   world.speedIs( et1, speed1Gbps );
   world.memberIs( et1, po1 );
   world.memberDel( et1 );
   world.config->intfConfigDel( et1 );
   for( auto const & call : calls() ) {
      EXPECT_FALSE( call.starts_with( "uucast" ) ) << call;
   }
}

// ---- LAGs

TEST_F( StormControlSmTest, lagIsTheSumOfItsMembers ) {
   lagOfTwo();
   world.portIs( et3, Interface::speedUnknown );
   world.memberIs( et3, po1 );
   world.start();
   world.levelIs( po1, levelTypeBroadcast, percent( 1000 ) );
   auto const all = calls();
   Strings const last( all.end() - 3, all.end() );
   EXPECT_EQ( last, ( Strings{ "broadcast Ethernet1(Port-Channel1) 10000000 1000",
                               "broadcast Ethernet2(Port-Channel1) 1000000 1000",
                               "skip Port-Channel1 off" } ) );
   EXPECT_EQ( world.levelStatus( po1, levelTypeBroadcast ).rate, 1'100'000u );
   EXPECT_EQ( world.status->intfStatus( po1 )->speed(), 11'000'000u );
   EXPECT_EQ( world.held( et3 ), "nothing" );

   world.speedIs( et3, speed40Gbps );
   EXPECT_EQ( world.levelStatus( po1, levelTypeBroadcast ).rate, 5'100'000u );
   EXPECT_EQ( world.held( et3 ), "broadcast 4000000 of Port-Channel1" );

   world.config->intfConfigDel( po1 );
   for( auto port : { et1, et2, et3 } ) {
      EXPECT_EQ( world.held( port ), "nothing" );
   }
   EXPECT_FALSE( world.status->intfStatusHas( po1 ) );
}

TEST_F( StormControlSmTest, lagOf64FastMembersDoesNotOverflow ) {
   for( unsigned n = 1; n <= 64; ++n ) {
      Pelt::IntfId const port( "Ethernet" + std::to_string( n ) );
      world.portIs( port, speed800Gbps );
      world.memberIs( port, po1 );
   }
   world.levelIs( po1, levelTypeMulticast, percent( 9999 ) );
   world.start();
   EXPECT_EQ( world.levelStatus( po1, levelTypeMulticast ).rate, 51'194'880'000u );
   EXPECT_EQ( world.status->intfStatus( po1 )->speed(), 51'200'000'000u );
}

TEST_F( StormControlSmTest, lagWithoutMembersSaysSo ) {
   world.start();
   world.levelIs( po1, levelTypeBroadcast, percent( 1000 ) );
   EXPECT_EQ( state( po1, levelTypeBroadcast ), lagHasNoMember );
   EXPECT_EQ( state( po1, levelTypeMulticast ), notConfigured );
   world.portIs( et1, Interface::speedUnknown );
   world.memberIs( et1, po1 );
   EXPECT_EQ( state( po1, levelTypeBroadcast ), LevelState::speedUnknown );
}

// A change of membership arrives as two writes, in either order.
TEST_F( StormControlSmTest, joinAndLeaveInEitherOrder ) {
   struct Row {
      char const * what;
      bool ownConfig;
      bool lagConfig;
      bool portFirst;
      char const * held;
      char const * afterwards;
   };
   Row const rows[] = {
         { "both, port first", true, true, true, "broadcast 1000000 of Port-Channel1",
           "multicast 500000" },
         { "both, LAG first", true, true, false, "broadcast 1000000 of Port-Channel1",
           "multicast 500000" },
         { "own only, port first", true, false, true, "nothing", "multicast 500000" },
         { "own only, LAG first", true, false, false, "nothing", "multicast 500000" },
         { "LAG only, port first", false, true, true, "broadcast 1000000 of Port-Channel1",
           "nothing" },
         { "LAG only, LAG first", false, true, false, "broadcast 1000000 of Port-Channel1",
           "nothing" },
   };
   for( auto const & row : rows ) {
      SCOPED_TRACE( row.what );
      StormWorld one;
      one.portIs( et1, speed10Gbps );
      if( row.ownConfig ) {
         one.levelIs( et1, levelTypeMulticast, percent( 500 ) );
      }
      if( row.lagConfig ) {
         one.levelIs( po1, levelTypeBroadcast, percent( 1000 ) );
      }
      one.start();
      auto const before = one.held( et1 );
      for( bool join : { true, false } ) {
         for( bool portsTurn : { row.portFirst, !row.portFirst } ) {
            if( portsTurn ) {
               join ? one.data->portToLagIs( et1, po1 ) : one.data->portToLagDel( et1 );
            } else {
               join ? one.lagPortIs( po1, et1 ) : one.lagPortDel( po1, et1 );
            }
         }
         EXPECT_EQ( one.held( et1 ), join ? row.held : row.afterwards );
         if( join && row.ownConfig ) {
            EXPECT_EQ( one.levelStatus( et1, levelTypeMulticast ).state, memberOfLag );
         }
      }
      EXPECT_EQ( one.held( et1 ), before );
   }
}

TEST_F( StormControlSmTest, joiningAndLeavingCallByCall ) {
   world.portIs( et1, speed10Gbps );
   world.levelIs( et1, levelTypeMulticast, percent( 500 ) );
   world.start();
   world.data->portToLagIs( et1, po1 );
   EXPECT_EQ( calls(),
              ( Strings{ "broadcast Ethernet1 10000000 none", "multicast Ethernet1 10000000 none",
                         "uucast Ethernet1 10000000 none", "all Ethernet1 10000000 none",
                         "skip Ethernet1 off" } ) );
   world.lagPortIs( po1, et1 );
   world.levelIs( et1, levelTypeBroadcast, percent( 700 ) );
   EXPECT_EQ( calls(), Strings{} ) << "its own levels wait";
   EXPECT_EQ( state( et1, levelTypeBroadcast ), memberOfLag );
   world.memberDel( et1 );
   EXPECT_EQ( calls(), ( Strings{ "broadcast Ethernet1 10000000 700", "skip Ethernet1 on",
                                  "multicast Ethernet1 10000000 500", "skip Ethernet1 on",
                                  "uucast Ethernet1 10000000 none", "skip Ethernet1 on",
                                  "all Ethernet1 10000000 none", "skip Ethernet1 on" } ) );
}

TEST_F( StormControlSmTest, nothingOfALagStaysOnAPortThatLeft ) {
   lagOfTwo();
   world.levelIs( po1, levelTypeBroadcast, percent( 1000 ) );
   world.levelIs( et1, levelTypeBroadcast, percent( 0 ) ); // which the platform cannot do
   world.levelIs( et2, levelTypeBroadcast, percent( 2000 ) );
   world.start();
   world.memberDel( et1 );
   EXPECT_EQ( world.held( et1 ), "nothing" );
   // A port that leaves with its speed unknown.
   world.speedIs( et2, Interface::speedUnknown );
   world.memberDel( et2 );
   EXPECT_EQ( world.held( et2 ), "nothing" );
   EXPECT_EQ( state( et2, levelTypeBroadcast ), LevelState::speedUnknown );
   world.speedIs( et2, speed1Gbps );
   EXPECT_EQ( world.held( et2 ), "broadcast 200000" );
}

TEST_F( StormControlSmTest, halfWayBetweenLags ) {
   lagOfTwo();
   world.levelIs( po1, levelTypeBroadcast, percent( 1000 ) );
   world.levelIs( po2, levelTypeBroadcast, percent( 2000 ) );
   world.start();
   // While only one map has changed, the LAG that it leaves has no say any more.
   world.data->portToLagIs( et1, po2 );
   world.levelIs( po1, levelTypeBroadcast, percent( 500 ) );
   EXPECT_EQ( world.held( et1 ), "nothing" );
   EXPECT_EQ( world.held( et2 ), "broadcast 50000 of Port-Channel1" );
   world.lagPortDel( po1, et1 );
   world.lagPortIs( po2, et1 );
   EXPECT_EQ( world.held( et1 ), "broadcast 2000000 of Port-Channel2" );
   EXPECT_EQ( world.levelStatus( po1, levelTypeBroadcast ).rate, 50'000u );

   // A member that is not active for a while comes back to a LAG that is no longer configured.
   world.lagPortDel( po2, et1 );
   EXPECT_EQ( world.held( et1 ), "nothing" );
   world.config->intfConfigDel( po2 );
   world.lagPortIs( po2, et1 );
   EXPECT_EQ( world.held( et1 ), "nothing" );
}

// ---- Ports

TEST_F( StormControlSmTest, configurationComesAndGoes ) {
   world.portIs( et1, speed10Gbps );
   world.start();
   world.levelIs( et1, levelTypeBroadcast, percent( 250 ) );
   world.levelIs( et1, levelTypeMulticast, percent( 350 ) );
   EXPECT_EQ( world.held( et1 ), "broadcast 250000, multicast 350000" );
   EXPECT_TRUE( world.unit().bcastSkipHas( et1 ) );
   // Another entity takes the place of the first.
   auto const other = Kiv::make< IntfConfig >( et1 );
   other->broadcastIs( percent( 50 ) );
   world.config->intfConfigIs( et1, other );
   EXPECT_EQ( world.held( et1 ), "broadcast 50000" );
   world.speedIs( et1, Interface::speedUnknown );
   EXPECT_EQ( world.held( et1 ), "broadcast 50000" ) << "nothing is programmed without a speed";
   world.config->intfConfigDel( et1 );
   EXPECT_EQ( world.held( et1 ), "nothing" );
   EXPECT_FALSE( world.unit().bcastSkipHas( et1 ) );
   EXPECT_EQ( world.status->intfStatus().size(), 0u );
}

TEST_F( StormControlSmTest, portsThatThePlatformDoesNotHave ) {
   world.start();
   world.levelIs( et1, levelTypeBroadcast, percent( 250 ) );
   world.speedIs( et1, speed10Gbps );
   EXPECT_EQ( calls(), Strings{} );
   EXPECT_EQ( state( et1, levelTypeBroadcast ), intfNotPresent );
   world.data->intfIs( et1, true );
   EXPECT_EQ( world.held( et1 ), "broadcast 250000" );
   calls();
   world.data->intfDel( et1 );
   world.levelIs( et1, levelTypeBroadcast, percent( 300 ) );
   world.config->intfConfigDel( et1 );
   EXPECT_EQ( calls(), Strings{} );

   // As a member of a LAG.
   world.levelIs( po1, levelTypeBroadcast, percent( 1000 ) );
   world.memberIs( et1, po1 );
   auto const made = calls();
   EXPECT_EQ( made, Strings( made.size(), "skip Port-Channel1 off" ) ) << "no port is programmed";
   world.data->intfIs( et1, true );
   EXPECT_EQ( world.held( et1 ), "broadcast 1000000 of Port-Channel1" );
   EXPECT_EQ( world.levelStatus( po1, levelTypeBroadcast ).rate, 1'000'000u );
   world.data->intfDel( et1 );
   EXPECT_EQ( world.levelStatus( po1, levelTypeBroadcast ).rate, 0u );
}

TEST_F( StormControlSmTest, activityMattersOnlyWithDynamicPorts ) {
   world.portIs( et1, speed10Gbps );
   world.levelIs( et1, levelTypeBroadcast, percent( 250 ) );
   world.start();
   world.activeIs( et1, false );
   world.activeIs( et1, true );
   EXPECT_EQ( calls(), Strings{} );

   StormWorld dynamic;
   dynamic.unit().dynamicLogicalPortsIs( true );
   dynamic.portIs( et1, speed10Gbps );
   dynamic.portIs( et2, speed10Gbps );
   dynamic.portIs( et3, speed10Gbps );
   dynamic.memberIs( et2, po1 );
   dynamic.memberIs( et3, po1 );
   dynamic.levelIs( et1, levelTypeBroadcast, percent( 250 ) );
   dynamic.levelIs( po1, levelTypeMulticast, percent( 1000 ) );
   dynamic.start();
   dynamic.activeIs( et1, false );
   EXPECT_EQ( dynamic.held( et1 ), "nothing" );
   EXPECT_EQ( dynamic.levelStatus( et1, levelTypeBroadcast ).state, intfInactive );
   dynamic.levelIs( et1, levelTypeBroadcast, percent( 300 ) );
   EXPECT_EQ( dynamic.held( et1 ), "nothing" );
   dynamic.activeIs( et1, true );
   EXPECT_EQ( dynamic.held( et1 ), "broadcast 300000" );

   dynamic.activeIs( et2, false );
   EXPECT_EQ( dynamic.held( et2 ), "nothing" );
   EXPECT_EQ( dynamic.levelStatus( po1, levelTypeMulticast ).rate, 1'000'000u );
   dynamic.activeIs( et2, true );
   EXPECT_EQ( dynamic.held( et2 ), "multicast 1000000 of Port-Channel1" );
   EXPECT_EQ( dynamic.levelStatus( po1, levelTypeMulticast ).rate, 2'000'000u );

   // A port whose status goes is not active either, nor is one with a new status.
   dynamic.dir->ethPhyIntfStatusDel( et1 );
   EXPECT_EQ( dynamic.held( et1 ), "nothing" );
   dynamic.portIs( et1, speed10Gbps );
   EXPECT_EQ( dynamic.held( et1 ), "broadcast 300000" );
   auto const other = Kiv::make< Interface::EthPhyIntfStatus >( et3 );
   other->speedIs( speed10Gbps );
   dynamic.dir->ethPhyIntfStatusIs( et3, other );
   EXPECT_EQ( dynamic.held( et3 ), "nothing" );
}

TEST_F( StormControlSmTest, statusIsMadeAgainWhenSomebodyDeletedIt ) {
   world.portIs( et1, speed10Gbps );
   world.levelIs( et1, levelTypeBroadcast, percent( 250 ) );
   world.start();
   world.status->intfStatusDel( et1 );
   driver.advance( 6 );
   EXPECT_TRUE( world.status->intfStatusHas( et1 ) );
   world.status->intfStatusDel( et1 );
   world.levelIs( et1, levelTypeBroadcast, percent( 0 ) );
   EXPECT_EQ( state( et1, levelTypeBroadcast ), zeroRateNotSupported );
}

// ---- Traffic classes, bursts, drop counters

TEST_F( StormControlSmTest, trafficClassesAndBursts ) {
   world.start();
   auto const tc = world.config->aggregateTcConfigIs( 65535 );
   auto const burst = world.config->burstConfigIs( "long" );
   tc->levelIs( percent( 700 ) );
   tc->levelIs( percent( 700 ) );
   burst->burstTimeIs( 40 );
   world.config->aggregateTcConfigDel( 65535 );
   world.config->burstConfigDel( "long" );
   tc->levelIs( percent( 800 ) );
   burst->burstTimeIs( 50 );
   EXPECT_EQ( calls(), ( Strings{ "tc 65535 none", "burst long 0", "tc 65535 700", "burst long 40",
                                  "tc 65535 none", "burst long 0" } ) );

   world.unit().burstIs( false );
   world.config->burstConfigIs( "long" )->burstTimeIs( 60 );
   world.config->burstConfigDel( "long" );
   EXPECT_EQ( calls(), Strings{} );
}

TEST_F( StormControlSmTest, dropCountersAreReadEveryPeriod ) {
   lagOfTwo();
   world.portIs( et3, speed10Gbps );
   world.levelIs( po1, levelTypeBroadcast, percent( 100 ) );
   world.levelIs( et3, levelTypeMulticast, percent( 100 ) );
   world.start();
   // 1250 bytes are 10 kbit: 100 Mb/s let 10000 packets through, 10 Mb/s 1000.
   world.unit().inject( et1, levelTypeBroadcast, 10'011, 1250, 1 );
   world.unit().inject( et2, levelTypeBroadcast, 1'022, 1250, 1 );
   world.unit().inject( et3, levelTypeMulticast, 10'044, 1250, 1 );
   auto drops = [ & ]( Pelt::IntfId intf ) {
      auto const status = world.status->intfStatus( intf );
      return std::vector< std::uint64_t >{ status->uucastDrop(), status->broadcastDrop(),
                                           status->multicastDrop(), status->allDrop() };
   };
   using Drops = std::vector< std::uint64_t >;
   driver.advance( 4.5 );
   EXPECT_EQ( drops( po1 ), ( Drops{ 0, 0, 0, 0 } ) );
   driver.advance( 0.5 );
   EXPECT_EQ( drops( po1 ), ( Drops{ 0, 33, 0, 0 } ) );
   EXPECT_EQ( drops( et3 ), ( Drops{ 0, 0, 44, 0 } ) );

   // A new period counts from now; one of 0 ends the readings.
   driver.advance( 1 );
   world.config->periodIs( 20 );
   world.unit().inject( et3, levelTypeMulticast, 10'006, 1250, 1 );
   driver.advance( 19 );
   EXPECT_EQ( drops( et3 )[ 2 ], 44u );
   driver.advance( 1 );
   EXPECT_EQ( drops( et3 )[ 2 ], 50u );
   world.unit().dropCountIs( false );
   world.unit().inject( et3, levelTypeMulticast, 10'006, 1250, 1 );
   driver.advance( 20 );
   EXPECT_EQ( drops( et3 )[ 2 ], 50u );
   EXPECT_EQ( world.clock->timers(), 1u );
   world.config->periodIs( 0 );
   EXPECT_EQ( world.clock->timers(), 0u );

   // The machine is stopped in the middle of a reading.
   world.unit().dropCountIs( true );
   world.config->periodIs( 20 );
   world.unit().inject( et3, levelTypeMulticast, 10'006, 1250, 1 );
   auto const watcher = Hoba::smIs<
         Watcher< StormControl::IntfStatus, StormControl::IntfStatus::multicastDropAttr > >(
         world.status->intfStatus( et3 ) );
   watcher->then = [ & ] { world.sm->initializedIs( false ); };
   driver.advance( 20 );
   EXPECT_EQ( watcher->changes, 1u );
   EXPECT_EQ( world.clock->timers(), 0u );
}

// ---- Verification

TEST_F( StormControlSmTest, verificationFindsWhatDiffers ) {
   lagOfTwo();
   world.portIs( et3, speed10Gbps );
   world.levelIs( et1, levelTypeBroadcast, percent( 50 ) ); // a member's own, which waits
   world.levelIs( et3, levelTypeBroadcast, percent( 100 ) );
   world.levelIs( po1, levelTypeMulticast, percent( 100 ) );
   world.config->aggregateTcConfigIs( 3 )->levelIs( percent( 400 ) );
   world.start();
   EXPECT_EQ( mismatches(), Strings{} );

   auto & unit = world.unit();
   unit.port( et3 )->broadcastIs( {} );
   EXPECT_EQ( mismatches(),
              Strings{ "{ \"storm control Ethernet3\" : \"broadcast: 100000 kbps of Ethernet3 "
                       "expected, no limit found\" }," } );
   world.sm->enable( et3 );
   EXPECT_EQ( mismatches(), Strings{} ) << "programming again repairs it";

   unit.port( et2 )->multicastIs( { true, 5, unitKbps, po1 } );
   unit.trafficClassDel( 3 );
   unit.rulesInstalledIs( false );
   auto const found = mismatches();
   ASSERT_EQ( found.size(), 3u );
   EXPECT_NE( found[ 0 ].find( "storm control Port-Channel1 Ethernet2" ), std::string::npos )
         << found[ 0 ];
   EXPECT_NE( found[ 1 ].find( "storm control traffic class 3" ), std::string::npos ) << found[ 1 ];
   EXPECT_NE( found[ 2 ].find( "the rules are missing" ), std::string::npos ) << found[ 2 ];
}

TEST_F( StormControlSmTest, verificationKnowsWhoseConfigurationHolds ) {
   world.unit().dynamicLogicalPortsIs( true );
   lagOfTwo();
   world.portIs( et3, speed10Gbps );
   for( auto port : { et1, et2, et3 } ) {
      world.levelIs( port, levelTypeBroadcast, percent( 50 ) );
   }
   world.start();
   EXPECT_EQ( mismatches(), Strings{} ) << "a LAG without configuration";
   world.unit().portIs( et1 )->allIs( { true, 5, unitKbps, po1 } );
   EXPECT_EQ( mismatches(),
              ( Strings{ "{ \"storm control Ethernet1\" : \"no limits expected, some found\" },",
                         "{ \"storm control platform\" : \"Ethernet1 all: 5 kbps of "
                         "Port-Channel1, which nobody configured\" }," } ) );
   world.levelIs( po1, levelTypeMulticast, percent( 100 ) );
   EXPECT_EQ( mismatches(), Strings{} ) << "a LAG with configuration";
   world.activeIs( et1, false );
   world.activeIs( et3, false );
   EXPECT_EQ( mismatches(), Strings{} ) << "inactive ports are clear";
   world.lagPortDel( po1, et2 );
   EXPECT_EQ( mismatches(), Strings{} ) << "belongs to a LAG, and is no active member";
}

// ---- Texts

TEST_F( StormControlSmTest, traceTexts ) {
   Traces traces( "HobaStormControlSm" );
   auto expectTraced = [ & ]( std::string const & text ) {
      auto const messages = traces.take();
      EXPECT_NE( std::find( messages.begin(), messages.end(), text ), messages.end() )
            << text << "\nis missing among\n"
            << testing::PrintToString( messages );
   };
   world.portIs( et1, speed10Gbps );
   world.status->intfStatusIs( et3 );
   world.start();
   expectTraced( "Removing orphaned status for Ethernet3" );
   world.levelIs( et1, levelTypeUUcast, percent( 250 ) );
   EXPECT_EQ( traces.take().front(), "Creating status for Ethernet1" );
   world.levelIs( et1, levelTypeUUcast, percent( 300 ) );
   expectTraced( "Setting Ethernet1 uucast level threshold to "
                 "Value('Bridging::StormControl::Threshold', ** {'mode': meteringPercent, "
                 "'level': 300, 'rate': 0, 'unit': unitPercent})" );
   world.activeIs( et1, false );
   expectTraced( "Platform doesn't support DLP, returning...." );
   world.unit().dynamicLogicalPortsIs( true );
   world.activeIs( et1, true );
   expectTraced( "Ethernet1: Interface has become active, reprogram storm control" );
   world.activeIs( et1, false );
   expectTraced( "Ethernet1: Interface has become inactive, clear storm control" );
   world.unit().dynamicLogicalPortsIs( false );
   world.levelIs( po1, levelTypeAll, percent( 300 ) );
   world.levelIs( po1, levelTypeAll, percent( 400 ) );
   expectTraced( "Port-Channel1 updated. Reapplying config" );
   world.data->portToLagIs( et1, po1 );
   EXPECT_EQ( traces.take().front(),
              "Disabling storm control on Ethernet1 because it is part of a lag, and lag config "
              "takes precedence" );
   world.data->portToLagDel( et1 );
   expectTraced( "Applying config to Ethernet1 because it left a lag" );
   world.data->portToLagIs( et1, po1 );
   expectTraced( "Port-Channel1 config exists, reapplying config" );
   world.lagPortIs( po1, et1 );
   expectTraced( "Updating levels for lag Port-Channel1" );
   mismatches();
   expectTraced( "Port-Channel1 is a LAG, verify individual interfaces" );
   mismatches();
   expectTraced( "Ethernet1: Verify storm-control config matches the LAG's config and not the "
                 "individual config" );
   world.config->intfConfigDel( po1 );
   expectTraced( "Port-Channel1 removed. Disabling reactor" );
   mismatches();
   expectTraced( "Ethernet1: There is no LAG storm-control config, make sure storm-control is "
                 "disabled" );
   world.memberDel( et1 );
   mismatches();
   expectTraced( "Ethernet1 is not part of a LAG, verify its individual config" );
   driver.advance( 5 );
   expectTraced( "Ethernet1 uucastDrop: 0 broadcastDrop: 0 multicastDrop: 0 allDrop: 0" );
   world.config->burstConfigIs( "b" )->burstTimeIs( 4 );
   expectTraced( "b burstTime: 4" );
   world.levelIs( et2, levelTypeAll, percent( 5 ) );
   expectTraced( "Interface doesn't exists in platform, skip initializing the sm" );
   world.config->intfConfigDel( et2 );
   expectTraced( "Deleting status for Ethernet2" );
   world.data->portToLagIs( et2, po1 );
   expectTraced( "No status found, returning...." );
}

// A platform without an operation that it must have.
TEST_F( StormControlSmTest, unimplementedOperations ) {
   auto const config = Kiv::make< IntfConfig >( et1 );
   auto const tc = Kiv::make< AggregateTcConfig >( std::uint16_t( 1 ) );
   auto const burst = Kiv::make< BurstConfig >( "b" );
   using Helper = Hoba::StormControlSmHelper;
   struct Row {
      char const * text;
      std::function< void( Helper & ) > call;
   };
   Row const rows[] = {
         { "installRules\\(\\) must be implemented by derived class",
           []( Helper & h ) { h.installRules(); } },
         { "setHwRate\\(\\) must be implemented by derived class",
           []( Helper & h ) { h.setHwRate( levelTypeAll, et1, et1, 1, {} ); } },
         { "updateBcastSkipRule\\(\\) must be implemented by derived class",
           []( Helper & h ) { h.updateBcastSkipRule( et1, true ); } },
         { "programTcAggregateHwRate\\(\\) must be implemented by derived class",
           []( Helper & h ) { h.programTcAggregateHwRate( 1, {} ); } },
         { "setBurstTime\\(\\) must be implemented by derived class",
           [ & ]( Helper & h ) { h.setBurstTime( *burst ); } },
         { "handleEthPhyIntfLagConfig\\(\\) must be implemented\n",
           []( Helper & h ) { h.handleEthPhyIntfLagConfig( et1 ); } },
         { "verifyEnabled\\(\\) must be implemented by derived class",
           []( Helper & h ) { h.verifyEnabled( et1, true ); } },
         { "verifyPort\\(\\) must be implemented by derived class",
           [ & ]( Helper & h ) { h.verifyPort( et1, et1, 1, *config ); } },
         { "verifyAggregateTc\\(\\) must be implemented by derived class",
           [ & ]( Helper & h ) { h.verifyAggregateTc( 1, *tc ); } },
   };
   auto const helper = Kiv::make< Helper >();
   for( auto const & row : rows ) {
      EXPECT_DEATH( row.call( *helper ), std::string( "^Function " ) + row.text );
      Environment const noop( "HOBA_NOOP_AGENT", "1" );
      row.call( *helper );
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
