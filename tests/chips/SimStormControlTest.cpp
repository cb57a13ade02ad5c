// SPDX-License-Identifier: Apache-2.0

// The simulated chip's storm control: what it lets through, what it counts, and what its own
// verification finds.

#include "chips/sim/SimChip.h"

#include "Kiv/Exception.h"

#include <gtest/gtest.h>

namespace {

using namespace Bridging::StormControl;
using namespace Hoba;

Pelt::IntfId const et1{ "Ethernet1" };
Pelt::IntfId const po1{ "Port-Channel1" };

Threshold
percent( std::uint32_t hundredths ) {
   return { meteringPercent, hundredths, 0, unitPercent };
}

class SimStormControlTest : public testing::Test {
 protected:
   void limitIs( LevelType levelType, Threshold const & threshold ) {
      helper->setHwRate( levelType, et1, et1, 10'000'000, threshold );
   }
   Kiv::String verifyPort( Pelt::IntfId parent = et1 ) {
      return helper->verifyPort( et1, parent, 10'000'000, *config );
   }

   Kiv::Ptr< HobaSim::Chip > chip = Kiv::make< HobaSim::Chip >();
   HobaSim::StormUnit & unit = *chip->stormControl();
   Kiv::Ptr< HobaSim::StormControlHelper > helper =
         Kiv::make< HobaSim::StormControlHelper >( chip->stormControl() );
   Kiv::Ptr< IntfConfig > config = Kiv::make< IntfConfig >( et1 );
};

TEST_F( SimStormControlTest, thresholdsBecomeLimits ) {
   struct Row {
      Threshold threshold;
      std::uint64_t rate;
      RateUnit unit;
   };
   Row const rows[] = {
         { percent( 250 ), 250'000, unitKbps },
         { { meteringPps, 0, 700, unitPps }, 700, unitPps },
         { { meteringBps, 0, 7'999, unitBps }, 7, unitKbps },
         { { meteringBps, 0, 7'999, unitKbps }, 7'999, unitKbps },
         { { meteringBps, 0, 4'294'967'295, unitMbps }, 4'294'967'295'000, unitKbps },
   };
   for( auto const & row : rows ) {
      helper->setHwRate( levelTypeAll, et1, po1, 10'000'000, row.threshold );
      HobaSim::StormLimit const wanted{ true, row.rate, row.unit, po1 };
      EXPECT_EQ( unit.port( et1 )->all(), wanted ) << Kiv::toText( row.threshold );
   }
   helper->setHwRate( levelTypeAll, et1, po1, 0, {} );
   EXPECT_EQ( unit.port( et1 )->all(), HobaSim::StormLimit{} );
   EXPECT_EQ( unit.writes(), 6u );
}

// The limit of the class comes first, then that of all traffic; each counts its own drops.
TEST_F( SimStormControlTest, dropsWhatExceedsTheLimits ) {
   // 125 bytes are a kbit: 10 Gb/s x 1 % let 100,000 of them a second through.
   limitIs( levelTypeBroadcast, percent( 100 ) );
   EXPECT_EQ( unit.inject( et1, levelTypeBroadcast, 100'000, 125, 1 ), 0u );
   EXPECT_EQ( unit.inject( et1, levelTypeBroadcast, 60'000, 125, 0.5 ), 10'000u );
   EXPECT_EQ( unit.inject( et1, levelTypeMulticast, 60'000, 125, 0.001 ), 0u );
   limitIs( levelTypeAll, percent( 40 ) );
   EXPECT_EQ( unit.inject( et1, levelTypeBroadcast, 150'000, 125, 1 ), 110'000u );
   EXPECT_EQ( unit.inject( et1, levelTypeUUcast, 50'000, 125, 1 ), 10'000u );
   limitIs( levelTypeMulticast, { meteringPps, 0, 300, unitPps } );
   EXPECT_EQ( unit.inject( et1, levelTypeMulticast, 301, 64, 1 ), 1u );
   EXPECT_EQ( helper->getBcastDropCnt( et1 ), 60'000u );
   EXPECT_EQ( helper->getMcastDropCnt( et1 ), 1u );
   EXPECT_EQ( helper->getUUcastDropCnt( et1 ), 0u );
   EXPECT_EQ( helper->getAllDropCnt( et1 ), 70'000u );

   EXPECT_EQ( unit.inject( po1, levelTypeBroadcast, 1'000, 64, 1 ), 0u );
   EXPECT_EQ( helper->getBcastDropCnt( po1 ), 0u );
   EXPECT_THROW( unit.inject( et1, levelTypeAll, 1, 64, 1 ), Kiv::ParseError );
   EXPECT_THROW( unit.inject( et1, levelTypeBroadcast, 1, 64, 0 ), Kiv::ParseError );
   EXPECT_THROW( unit.inject( et1, levelTypeBroadcast, 1, 64, -0.5 ), Kiv::ParseError );
   EXPECT_THROW( unit.inject( et1, levelTypeBroadcast, 1, 0, 1 ), Kiv::ParseError );

   helper->hwInit();
   EXPECT_EQ( helper->getBcastDropCnt( et1 ), 0u );
   EXPECT_EQ( unit.inject( et1, levelTypeBroadcast, 1'000'000, 125, 1 ), 0u );
}

TEST_F( SimStormControlTest, verifiesPorts ) {
   EXPECT_EQ( verifyPort(), "" );
   EXPECT_EQ( helper->verifyEnabled( et1, false ), "" );
   EXPECT_EQ( helper->verifyEnabled( et1, true ), "limits expected, none found" );
   config->broadcastIs( percent( 250 ) );
   config->multicastIs( percent( 300 ) );
   limitIs( levelTypeBroadcast, percent( 250 ) );
   EXPECT_EQ( verifyPort(), "multicast: 300000 kbps of Ethernet1 expected, no limit found; skip "
                            "rule expected, none found" );
   limitIs( levelTypeMulticast, percent( 300 ) );
   helper->updateBcastSkipRule( et1, true );
   EXPECT_EQ( helper->verifyEnabled( po1, false ), "" );
   helper->updateBcastSkipRule( po1, true );
   EXPECT_EQ( helper->verifyEnabled( po1, false ), "no skip rule expected, one found" );
   EXPECT_EQ( verifyPort(), "" );
   EXPECT_EQ( helper->verifyEnabled( et1, true ), "" );
   EXPECT_EQ( helper->verifyEnabled( et1, false ), "no limits expected, some found" );
   EXPECT_EQ( verifyPort( po1 ), "broadcast: 250000 kbps of Port-Channel1 expected, 250000 kbps of "
                                 "Ethernet1 found; multicast: 300000 kbps of Port-Channel1 "
                                 "expected, 300000 kbps of Ethernet1 found; a skip rule of its "
                                 "own found" );
   EXPECT_EQ( helper->verifyPort( et1, et1, 0, *config ), "" ) << "not without a speed";
   EXPECT_EQ( helper->verifyPort( et1, po1, 0, *config ),
              "broadcast: no limit but of Port-Channel1 expected, 250000 kbps of Ethernet1 found; "
              "multicast: no limit but of Port-Channel1 expected, 300000 kbps of Ethernet1 found; a "
              "skip rule of its own found" )
         << "what stood for others does not stay";

   // The all-traffic level takes broadcast's limit away, be it an older one behind a refused zero.
   config->allIs( percent( 400 ) );
   limitIs( levelTypeAll, percent( 400 ) );
   limitIs( levelTypeBroadcast, {} );
   EXPECT_EQ( verifyPort(), "no skip rule expected, one found" );
   helper->updateBcastSkipRule( et1, false );
   EXPECT_EQ( verifyPort(), "" );
   config->allIs( percent( 0 ) );
   EXPECT_EQ( verifyPort(), "" );
   limitIs( levelTypeBroadcast, percent( 250 ) );
   EXPECT_EQ( verifyPort(), "broadcast: no limit expected, 250000 kbps of Ethernet1 found" );
   limitIs( levelTypeAll, {} );
   EXPECT_EQ( verifyPort(), "" ) << "one that never stood covers nothing";
   // One that cannot be metered takes nothing away.
   config->allIs( { meteringPps, 0, 5, unitPps } );
   helper->updateBcastSkipRule( et1, true );
   limitIs( levelTypeBroadcast, {} );
   EXPECT_EQ( verifyPort(), "broadcast: 250000 kbps of Ethernet1 expected, no limit found" );
   config->broadcastIs( percent( 0 ) );
   EXPECT_EQ( verifyPort(), "" ) << "what the chip refuses is not looked for";
}

TEST_F( SimStormControlTest, verifiesTablesAndRules ) {
   auto const tc = Kiv::make< AggregateTcConfig >( std::uint16_t( 3 ) );
   EXPECT_EQ( helper->verifyAggregateTc( 3, *tc ), "" );
   tc->levelIs( percent( 400 ) );
   EXPECT_NE( helper->verifyAggregateTc( 3, *tc ), "" );
   helper->programTcAggregateHwRate( 3, percent( 400 ) );
   EXPECT_EQ( helper->verifyAggregateTc( 3, *tc ), "" );
   helper->programTcAggregateHwRate( 3, {} );
   EXPECT_FALSE( unit.trafficClassHas( 3 ) );
   // 65539 is 3 to whoever looks at its lower half only.
   for( auto const absent : { 8u, 300u, 65539u } ) {
      EXPECT_THROW( unit.checkTrafficClass( absent ), Kiv::ParseError );
      helper->programTcAggregateHwRate( absent, percent( 400 ) );
      EXPECT_TRUE( unit.trafficClass().empty() );
      EXPECT_EQ( helper->verifyAggregateTc( absent, *tc ), "the chip has no such traffic class" );
   }

   auto const whole = Kiv::make< Config >();
   auto const status = Kiv::make< Status >();
   EXPECT_EQ( helper->verifyPlatformStormControl( *whole, *status ), "the rules are missing" );
   unit.chipStormControlIs( true ); // tells the classes apart by itself
   EXPECT_EQ( helper->verifyPlatformStormControl( *whole, *status ), "" );
   unit.chipStormControlIs( false );
   helper->installRules();
   EXPECT_EQ( helper->verifyPlatformStormControl( *whole, *status ), "" );

   // What nobody configured.
   helper->setHwRate( levelTypeUUcast, et1, po1, 10'000'000, percent( 100 ) );
   helper->updateBcastSkipRule( et1, true );
   helper->programTcAggregateHwRate( 5, percent( 400 ) );
   whole->intfConfigIs( et1 );
   EXPECT_EQ( helper->verifyPlatformStormControl( *whole, *status ),
              "Ethernet1 uucast: 100000 kbps of Port-Channel1, which nobody configured; traffic "
              "class 5: " +
                    Kiv::toText( percent( 400 ) ) + ", which nobody configured" );
   whole->intfConfigIs( po1 );
   whole->intfConfigDel( et1 );
   whole->aggregateTcConfigIs( 5 );
   EXPECT_EQ( helper->verifyPlatformStormControl( *whole, *status ),
              "Ethernet1: a skip rule, which nobody configured" );
}

} // namespace
