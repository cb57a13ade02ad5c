// SPDX-License-Identifier: Apache-2.0
// The simulation itself: what it does with histories that fail. What it finds out about the switch, its own
// runs show.

#include "simulation/History.h"

#include "Helpers.h"

#include <filesystem>

namespace Simulation {
namespace {

TEST( Simulation, sameSeedSameHistory ) {
   EXPECT_EQ( historyOf( 3, 200 ), historyOf( 3, 200 ) );
   EXPECT_NE( historyOf( 3, 200 ), historyOf( 4, 200 ) );
}

// The judge is judged: steps that nobody answers for, or that are refused though they must not be, are
// found, and so is whatever ends the process of the history.
TEST( Simulation, whatIsWrongIsFoundAndMadeShort ) {
   struct Case {
      char const * step;
      char const * kind;
      char const * left; // of the step, made simple
   };
   for( auto const & [ step, kind, left ] :
        { Case{ "juggle 77 Ethernet12", "run: no observer answers for", "juggle 0 Ethernet0" },
          Case{ "wait soon", "run: thrown out of a step", "wait soon" } } ) {
      auto steps = historyOf( 3, 60 );
      steps.resize( 40 );
      steps.insert( steps.begin() + 20, Step( step ) );
      auto const ended = runAlone( steps );
      ASSERT_TRUE( ended.failure ) << step;
      EXPECT_EQ( ended.failure->step, 20u );
      EXPECT_EQ( ended.failure->kind(), kind );
      EXPECT_EQ( shrink( steps, *ended.failure, 60 ), Steps{ left } );
   }
}

TEST( Simulation, historiesOutliveTheirFile ) {
   auto const steps = historyOf( 5, 100 );
   auto const file = testing::TempDir() + "simulation-test.steps";
   writeHistory( file, steps, "two lines\nabout it" );
   EXPECT_EQ( readHistory( file ), steps );
   std::filesystem::remove( file );
   EXPECT_THROW( readHistory( file ), Kiv::ParseError );
   EXPECT_THROW( writeHistory( "/nowhere/x.steps", steps, "" ), Kiv::Exception );
}

} // namespace
} // namespace Simulation
