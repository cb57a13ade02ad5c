// SPDX-License-Identifier: Apache-2.0

// The simulated chip's storm control: what it lets through, what it counts, and what its own
// verification finds.

#include "Kiv/Exception.h"
#include "chips/sim/SimChip.h"

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
   Kiv::String verifyPort( Pelt::IntfId parent = et1, std::uint32_t speed = 10'000'000 ) {
      return helper->verifyPort( et1, parent, speed, *config );
   }
   Kiv::String verifyPlatform() { return helper->verifyPlatformStormControl( *whole, *status ); }

   Kiv::Ptr< HobaSim::Chip > chip = Kiv::make< HobaSim::Chip >();
   HobaSim::StormUnit & unit = *chip->stormControl();
   Kiv::Ptr< HobaSim::StormControlHelper > helper =
         Kiv::make< HobaSim::StormControlHelper >( chip->stormControl() );
   Kiv::Ptr< Config > whole = Kiv::make< Config >();
   Kiv::Ptr< Status > status = Kiv::make< Status >();
   Kiv::Ptr< IntfConfig > config = Kiv::make< IntfConfig >( et1 );
};

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
   EXPECT_EQ( unit.writes(), 3u );
   auto const drops = [ & ] {
      return std::array{ helper->getBcastDropCnt( et1 ), helper->getMcastDropCnt( et1 ),
                         helper->getUUcastDropCnt( et1 ), helper->getAllDropCnt( et1 ) };
   };
   EXPECT_EQ( drops(), ( std::array< std::uint64_t, 4 >{ 60'000, 1, 0, 70'000 } ) );
   EXPECT_EQ( unit.inject( po1, levelTypeBroadcast, 1'000, 64, 1 ), 0u );
   EXPECT_EQ( helper->getBcastDropCnt( po1 ), 0u );
   EXPECT_THROW( unit.inject( et1, levelTypeAll, 1, 64, 1 ), Kiv::ParseError );
   EXPECT_THROW( unit.inject( et1, levelTypeBroadcast, 1, 0, 1 ), Kiv::ParseError );
   for( double const seconds : { 0.0, -0.5 } ) {
      EXPECT_THROW( unit.inject( et1, levelTypeBroadcast, 1, 64, seconds ), Kiv::ParseError );
   }
   helper->hwInit();
   EXPECT_GT( unit.inject( et1, levelTypeBroadcast, 1'000'000, 125, 1 ), 0u ) << "wipes nothing";
   limitIs( levelTypeMulticast, { meteringPps, 0, 300, unitPps } );
   EXPECT_EQ( unit.writes(), 3u ) << "the chip held that";
   unit.sweep();
   EXPECT_EQ( unit.inject( et1, levelTypeBroadcast, 1'000'000, 125, 1 ), 0u );
   EXPECT_EQ( unit.swept(), 2u ) << "what nobody asked for again";
   chip->reset();
   EXPECT_EQ( drops(), ( std::array< std::uint64_t, 4 >{} ) );
   EXPECT_TRUE( unit.limit().empty() );
}

TEST_F( SimStormControlTest, verifiesPorts ) {
   auto const broadcast = [ & ]( Threshold const & wanted ) { config->broadcastIs( wanted ); };
   auto const all = [ & ]( Threshold const & wanted ) { config->allIs( wanted ); };
   auto const skip = [ & ]( bool on ) { helper->updateBcastSkipRule( et1, on ); };
   EXPECT_EQ( verifyPort(), "" );
   EXPECT_EQ( helper->verifyEnabled( et1, false ), "" );
   EXPECT_EQ( helper->verifyEnabled( et1, true ), "limits expected, none found" );
   broadcast( percent( 250 ) );
   config->multicastIs( percent( 300 ) );
   limitIs( levelTypeBroadcast, percent( 250 ) );
   EXPECT_EQ( verifyPort(), "multicast: 300000 kbps of Ethernet1 expected, no limit found; skip "
                            "rule expected, none found" );
   limitIs( levelTypeMulticast, percent( 300 ) );
   skip( true );
   EXPECT_EQ( verifyPort(), "" );
   EXPECT_EQ( helper->verifyEnabled( po1, false ), "" );
   helper->updateBcastSkipRule( po1, true );
   EXPECT_EQ( helper->verifyEnabled( po1, false ), "no skip rule expected, one found" );
   EXPECT_EQ( helper->verifyEnabled( et1, true ), "" );
   EXPECT_EQ( helper->verifyEnabled( et1, false ), "no limits expected, some found" );
   EXPECT_EQ( verifyPort( po1 ), "broadcast: 250000 kbps of Port-Channel1 expected, 250000 kbps of "
                                 "Ethernet1 found; multicast: 300000 kbps of Port-Channel1 "
                                 "expected, 300000 kbps of Ethernet1 found; a skip rule of its "
                                 "own found" );
   // Without a speed nothing is programmed; but what stood for others does not stay.
   EXPECT_EQ( verifyPort( et1, 0 ), "" );
   EXPECT_TRUE( verifyPort( po1, 0 ).starts_with(
         "broadcast: no limit but of Port-Channel1 expected, 250000 kbps of Ethernet1 found; " ) );

   // The all-traffic level takes broadcast's limit away, be it an older one behind a refused zero.
   all( percent( 400 ) );
   limitIs( levelTypeAll, percent( 400 ) );
   limitIs( levelTypeBroadcast, {} );
   EXPECT_EQ( verifyPort(), "no skip rule expected, one found" );
   skip( false );
   EXPECT_EQ( verifyPort(), "" );
   all( percent( 0 ) );
   EXPECT_EQ( verifyPort(), "" );
   limitIs( levelTypeBroadcast, percent( 250 ) );
   EXPECT_EQ( verifyPort(), "broadcast: no limit expected, 250000 kbps of Ethernet1 found" );
   limitIs( levelTypeAll, {} );
   EXPECT_EQ( verifyPort(), "" ) << "one that never stood covers nothing";
   // One that cannot be metered takes nothing away.
   all( { meteringPps, 0, 5, unitPps } );
   skip( true );
   limitIs( levelTypeBroadcast, {} );
   EXPECT_EQ( verifyPort(), "broadcast: 250000 kbps of Ethernet1 expected, no limit found" );
   broadcast( percent( 0 ) );
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

   EXPECT_EQ( verifyPlatform(), "the rules are missing" );
   unit.chipStormControlIs( true ); // tells the classes apart by itself
   EXPECT_EQ( verifyPlatform(), "" );
   unit.chipStormControlIs( false );
   helper->installRules();
   EXPECT_EQ( verifyPlatform(), "" );

   // What nobody configured.
   helper->setHwRate( levelTypeUUcast, et1, po1, 10'000'000, percent( 100 ) );
   helper->updateBcastSkipRule( et1, true );
   helper->programTcAggregateHwRate( 5, percent( 400 ) );
   whole->intfConfigIs( et1 );
   EXPECT_EQ( verifyPlatform(),
              "Ethernet1 uucast: 100000 kbps of Port-Channel1, which nobody configured; traffic "
              "class 5: " +
                    Kiv::toText( percent( 400 ) ) + ", which nobody configured" );
   whole->intfConfigIs( po1 );
   whole->intfConfigDel( et1 );
   whole->aggregateTcConfigIs( 5 );
   EXPECT_EQ( verifyPlatform(), "Ethernet1: a skip rule, which nobody configured" );
}

} // namespace
