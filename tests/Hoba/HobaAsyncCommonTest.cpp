// SPDX-License-Identifier: Apache-2.0

// Operations that end later: on time, with an error, too late or never.

#include "HobaTest.h"

#include "Hoba/HobaAsyncCommon.h"
#include "Hoba/HobaCommon.h"

namespace {

using namespace HobaTest;
using Hoba::AsyncOperationResult;

// Says what reaches it, and when.
class TcamSm : public Hoba::HobaAsyncBaseSm {
 public:
   KIV_TYPE( TcamSm );
   void processTcamRequestQueue() override { said( "request" ); }
   void handlePendingOperationTimeout() override { said( "no answer" ); }
   void handleAsyncOperationResult() override {
      said( "answer " + asyncHelper()->notifier()->asyncOperationResult().error );
   }
   Strings take() { return std::exchange( log, {} ); }
   std::function< void() > then;
   Strings log;

 protected:
   using HobaAsyncBaseSm::HobaAsyncBaseSm;

 private:
   void said( std::string const & what ) {
      log.push_back( Kiv::toText( Kiv::ClockDriver::ambient().now() ) + " " + what );
      happens( then );
   }
};

class AsyncTest : public ContextFixture {
 protected:
   void answer( std::string const & error ) { helper->asyncOperationResultIs( { error } ); }

   Kiv::Ptr< Hoba::HobaAsyncBaseHelper > helper = Kiv::make< Hoba::HobaAsyncBaseHelper >( "tcam" );
   Kiv::Ptr< TcamSm > sm = Hoba::smIs< TcamSm >( data );
};

TEST_F( AsyncTest, resultsCarryTheTimeOfTheirConstruction ) {
   AsyncOperationResult const success;
   AsyncOperationResult const failure{ "table full" };
   EXPECT_EQ( Kiv::toText( failure ),
              "Value('Hoba::AsyncOperationResult', ** {'error': table full, "
              "'timestamp': 100})" );
   EXPECT_FALSE( success ) << "equal to one made now";
   EXPECT_TRUE( failure );
   EXPECT_TRUE( ( AsyncOperationResult{ "", 99.5 } ) );
   driver.advance( 1 );
   EXPECT_TRUE( success ) << "a success of the past";
   EXPECT_EQ( AsyncOperationResult{}.timestamp, 101 );
}

TEST_F( AsyncTest, clocksAndAnswersReachTheMachine ) {
   answer( "another machine's" );
   sm->asyncHelperIs( helper );
   EXPECT_EQ( sm->take(), Strings{} ) << "what the helper holds is no result";
   EXPECT_EQ( sm->pendingOperationTimeout(), 60.0 );
   sm->pendingOperationTimeoutIs( 2.5 );
   sm->tcamRequestClock()->timeMinIs( 101 );
   sm->pendingOperationTimeoutClock()->timeMinIs( 100 + sm->pendingOperationTimeout() );
   driver.advance( 2 );
   answer( "full" );
   answer( "full" ); // equal, at one and the same time
   driver.advance( 1 );
   answer( "full" );
   EXPECT_EQ( sm->take(), ( Strings{ "101 request", "102 answer full", "102.5 no answer",
                                     "103 answer full" } ) );
   EXPECT_EQ( driver.timers(), 0u );
   sm->asyncHelperDel();
   answer( "nobody's" );
   EXPECT_EQ( sm->take(), Strings{} );
}

TEST_F( AsyncTest, nothingReachesAMachineThatIsMarkedOrWithoutClocks ) {
   for( bool const marked : { false, true } ) {
      sm = Hoba::smIs< TcamSm >( data );
      sm->asyncHelperIs( helper );
      sm->tcamRequestClock()->timeMinIs( driver.now() + 1 );
      sm->pendingOperationTimeoutClock()->timeMinIs( driver.now() + 2 );
      if( marked ) {
         sm->kivDoZombieReactors( true );
         answer( "late" );
      } else {
         sm->tcamRequestClockDel();
         sm->pendingOperationTimeoutClockDel();
         EXPECT_EQ( driver.timers(), 0u );
      }
      driver.advance( 100 );
      EXPECT_EQ( sm->take(), Strings{} );
   }
}

TEST_F( AsyncTest, theMachineMayBeDroppedInItsTurn ) {
   sm->pendingOperationTimeoutClockIs( Kiv::make< Kiv::Clock >() );
   sm->pendingOperationTimeoutClock()->timeMinIs( 101 );
   sm->tcamRequestClock()->timeMinIs( 101 );
   sm->then = [ this ] { sm = nullptr; };
   EXPECT_EQ( driver.advance( 5 ), 1u ) << "nor is the other clock's time due";
   EXPECT_EQ( sm, nullptr );
   EXPECT_EQ( driver.timers(), 0u );
}

using AsyncDeathTest = AsyncTest;

TEST_F( AsyncDeathTest, numbersRunOut ) {
   for( unsigned expected = 65535; expected > 0; --expected ) {
      ASSERT_EQ( helper->getNextSequence( "acl" ), expected );
   }
   EXPECT_DEATH( helper->getNextSequence( "acl" ),
                 "^Hoba/HobaAsyncCommon.cpp:[0-9]+: .*getNextSequence.*: Assertion "
                 "`nextSequence > 0' failed" );
   EXPECT_EQ( helper->getNextSequence( "qos" ), 65535u ) << "each name has its own";
   helper->sequenceIs( "acl", 0 );
   EXPECT_DEATH( helper->getNextSequence( "acl" ), "nextSequence > 0" );
   EXPECT_EQ( helper->nextPriority(), 4294967294u );
   helper->priorityIs( 2 );
   EXPECT_EQ( helper->nextPriority(), 1u );
   EXPECT_DEATH( helper->nextPriority(), "^Hoba/HobaAsyncCommon.cpp:[0-9]+: .*nextPriority.*: "
                                         "Assertion `priority\\(\\) > 0' failed" );
}

TEST_F( AsyncDeathTest, theBaseTakesNoResult ) {
   auto const base = Hoba::HobaAsyncBaseSm::HobaAsyncBaseSmIs( data );
   base->tcamRequestClock()->timeMinIs( 101 );
   base->pendingOperationTimeoutClock()->timeMinIs( 102 );
   EXPECT_EQ( driver.advance( 5 ), 2u ) << "its other operations do nothing";
   base->asyncHelperIs( helper );
   EXPECT_DEATH( answer( "failed" ), "handleAsyncOperationResult.*: Assertion `" );
}

} // namespace
