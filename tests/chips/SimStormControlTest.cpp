// SPDX-License-Identifier: Apache-2.0

// The simulated chip's storm control where no machine asks for it: the rest the simulation of the whole
// switch sees, what it lets through and what its verification says included.

#include "Kiv/Exception.h"
#include "chips/sim/SimChip.h"

#include <gtest/gtest.h>

namespace {

using namespace Bridging::StormControl;
using namespace Hoba;

TEST( SimStormControlTest, whatNoMachineAsksFor ) {
   Pelt::IntfId const et1( "Ethernet1" );
   auto const chip = Kiv::make< HobaSim::Chip >();
   auto & unit = *chip->stormControl();
   auto const helper = Kiv::make< HobaSim::StormControlHelper >( chip->stormControl() );
   Threshold const threshold{ meteringPercent, 400, 0, unitPercent };
   EXPECT_EQ( helper->verifyEnabled( et1, true ), "limits expected, none found" );
   helper->setHwRate( levelTypeBroadcast, et1, et1, 10'000'000, threshold );
   EXPECT_EQ( helper->verifyEnabled( et1, true ), "" );
   EXPECT_THROW( unit.inject( et1, levelTypeAll, 1, 64, 1 ), Kiv::ParseError );
   EXPECT_THROW( unit.inject( et1, levelTypeBroadcast, 1, 0, 1 ), Kiv::ParseError );
   EXPECT_THROW( unit.inject( et1, levelTypeBroadcast, 1, 64, -0.5 ), Kiv::ParseError );
   // 65539 is 3 to whoever looks at its lower half only.
   auto const config = Kiv::make< AggregateTcConfig >( std::uint16_t( 3 ) );
   config->levelIs( threshold );
   for( auto const absent : { 8u, 300u, 65539u } ) {
      EXPECT_THROW( unit.checkTrafficClass( absent ), Kiv::ParseError );
      helper->programTcAggregateHwRate( absent, threshold );
      EXPECT_TRUE( unit.trafficClass().empty() );
      EXPECT_EQ( helper->verifyAggregateTc( absent, *config ),
                 "the chip has no such traffic class" );
   }
}

} // namespace
