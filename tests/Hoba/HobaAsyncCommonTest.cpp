// SPDX-License-Identifier: Apache-2.0

// Operations that end later: on time, with an error, too late or never.

#include "HobaTest.h"

#include "Hoba/HobaAsyncCommon.h"
#include "Hoba/HobaCommon.h"

namespace {

using namespace HobaTest;
using Hoba::AsyncOperationResult;

// Sends one request after the other, each once the one before has ended, and starts a new one for
// what did not end in time.
class TcamSm : public Hoba::HobaAsyncBaseSm {
 public:
   KIV_TYPE( TcamSm );

   void requestIs( std::string const & table ) {
      queue.push_back( table );
      tcamRequestClock()->timeMinIs( tcamRequestClock()->now() );
   }

   void processTcamRequestQueue() override {
      if( asyncState == Hoba::asyncWaiting || queue.empty() ) {
         return;
      }
      reqKey = queue.front();
      queue.erase( queue.begin() );
      asyncState = Hoba::asyncWaiting;
      log.push_back( "send " + reqKey + ' ' + std::to_string( helper->getNextSequence( reqKey ) ) +
                     " priority " + std::to_string( helper->nextPriority() ) );
      auto * timeout = pendingOperationTimeoutClock();
      timeout->timeMinIs( timeout->now() + pendingOperationTimeout() );
   }

   void handleAsyncOperationResult() override {
      auto const result = asyncHelper()->notifier()->asyncOperationResult();
      auto const text = result.error.empty() ? "done" : result.error;
      if( asyncState != Hoba::asyncWaiting ) {
         log.push_back( "late " + text );
         return;
      }
      ended( text );
      pendingOperationTimeoutClock()->timeMinIs( Kiv::never );
   }

   void handlePendingOperationTimeout() override {
      ended( "no answer" );
      if( duringTimeout ) {
         duringTimeout();
      }
   }

   Hoba::AsyncOperationState asyncState = Hoba::asyncNone;
   std::string reqKey;
   Strings queue;
   Strings log;
   Kiv::Ptr< Hoba::HobaAsyncBaseHelper > const helper;
   std::function< void() > duringTimeout;

 protected:
   TcamSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & data,
           Kiv::Ptr< Hoba::HobaAsyncBaseHelper > const & asyncHelper )
         : HobaAsyncBaseSm( data ), helper( asyncHelper ) {
      asyncHelperIs( asyncHelper );
   }

 private:
   void ended( std::string const & how ) {
      asyncState = Hoba::asyncCompleted;
      log.push_back( reqKey + ": " + how );
      tcamRequestClock()->timeMinIs( tcamRequestClock()->now() );
   }
};

class AsyncTest : public HobaFixture {
 protected:
   void start() { sm = Hoba::smIs< TcamSm >( data, helper ); }
   void answer( std::string const & error = {} ) { helper->asyncOperationResultIs( { error } ); }
   Strings take() { return std::exchange( sm->log, {} ); }

   Kiv::Ptr< Hoba::HobaCommonSmData > data = Kiv::make< Hoba::HobaCommonSmData >( "agent" );
   Kiv::Ptr< Hoba::HobaAsyncBaseHelper > helper = Kiv::make< Hoba::HobaAsyncBaseHelper >( "tcam" );
   Kiv::Ptr< TcamSm > sm;
};

TEST_F( AsyncTest, resultsCarryTheTimeOfTheirConstruction ) {
   AsyncOperationResult const success;
   AsyncOperationResult const failure{ "table full" };
   EXPECT_EQ( Kiv::toText( failure ),
              "Value('Hoba::AsyncOperationResult', ** {'error': table full, "
              "'timestamp': 100})" );
   EXPECT_EQ( helper->asyncOperationResult(), success );
   EXPECT_FALSE( success ) << "equal to one made now";
   EXPECT_TRUE( failure );
   EXPECT_TRUE( ( AsyncOperationResult{ "", 99.5 } ) );
   driver.advance( 1 );
   EXPECT_TRUE( success ) << "a success of the past";
   EXPECT_FALSE( success == AsyncOperationResult{} );
   EXPECT_EQ( AsyncOperationResult{}.timestamp, 101 );
}

TEST_F( AsyncTest, requestsEndWithSuccessOrWithTheReason ) {
   start();
   EXPECT_EQ( take(), Strings{} ) << "what the helper holds is no result";
   sm->requestIs( "acl" );
   sm->requestIs( "acl" );
   sm->requestIs( "qos" );
   EXPECT_EQ( take(), Strings{} ) << "not from inside the request";
   driver.run();
   EXPECT_EQ( take(), Strings{ "send acl 65535 priority 4294967294" } );
   driver.advance( 59 );
   answer();
   driver.run();
   EXPECT_EQ( take(), ( Strings{ "acl: done", "send acl 65534 priority 4294967293" } ) );
   driver.advance( 59 );
   EXPECT_EQ( take(), Strings{} ) << "the time of the first is over, not that of the second";
   answer( "table full" );
   driver.run();
   EXPECT_EQ( take(), ( Strings{ "acl: table full", "send qos 65535 priority 4294967292" } ) );
   answer( "table full" );
   EXPECT_EQ( take(), Strings{} ) << "an equal result at one and the same time";
   answer();
   EXPECT_EQ( take(), Strings{ "qos: done" } );
   EXPECT_TRUE( driver.runUntilIdle( 1000 ) );
   EXPECT_EQ( take(), Strings{} );
}

TEST_F( AsyncTest, anAnswerMayComeTooLate ) {
   start();
   EXPECT_EQ( sm->pendingOperationTimeout(), 60.0 );
   sm->pendingOperationTimeoutIs( 2.5 );
   sm->requestIs( "acl" );
   driver.advance( 2.4 );
   EXPECT_EQ( take().size(), 1u );
   driver.advance( 0.2 );
   EXPECT_EQ( take(), Strings{ "acl: no answer" } );
   answer();
   EXPECT_EQ( take(), Strings{ "late done" } );

   // The next helper has a result already, which was another machine's.
   auto const other = Kiv::make< Hoba::HobaAsyncBaseHelper >( "other" );
   other->asyncOperationResultIs( { "not yours" } );
   sm->asyncHelperIs( other );
   answer( "former helper" );
   EXPECT_EQ( take(), Strings{} );
   other->asyncOperationResultIs( { "yours" } );
   EXPECT_EQ( take(), Strings{ "late yours" } );
   sm->asyncHelperDel();
   other->asyncOperationResultIs( { "nobody's" } );
   EXPECT_EQ( take(), Strings{} );
}

TEST_F( AsyncTest, nothingReachesAMachineThatIsMarked ) {
   start();
   sm->requestIs( "acl" );
   driver.run();
   sm->requestIs( "qos" );
   take();
   sm->kivDoZombieReactors( true );
   answer();
   driver.advance( 100 );
   EXPECT_EQ( take(), Strings{} );
}

TEST_F( AsyncTest, aClockMayBeTakenAwayOrTheMachineDroppedInItsTurn ) {
   start();
   sm->requestIs( "acl" );
   driver.run();
   sm->tcamRequestClockDel();
   sm->pendingOperationTimeoutClockDel();
   driver.advance( 100 );
   EXPECT_EQ( take().size(), 1u );
   EXPECT_EQ( driver.timers(), 0u );

   start();
   auto const clock = Kiv::make< Kiv::Clock >();
   sm->pendingOperationTimeoutClockIs( clock );
   sm->requestIs( "acl" );
   driver.run();
   bool dropped = false;
   sm->duringTimeout = [ & ] {
      sm = nullptr;
      dropped = true;
   };
   driver.advance( 60 );
   EXPECT_TRUE( dropped );
   EXPECT_EQ( driver.timers(), 0u ) << "nor is the next request due";
}

TEST_F( AsyncTest, sharedDataKeepsTheFirstEventOfEachInterface ) {
   auto const shared = Kiv::make< Hoba::AsyncSharedData >();
   Hoba::HobaEvent event;
   event.port = Pelt::IntfId( "Ethernet4" );
   event.linkStatus = Interface::linkUp;
   shared->initialPortEventIs( event.port, event );
   EXPECT_EQ( shared->initialPortEvent( event.port ), event );
   shared->initialPortEventDel( event.port );
   EXPECT_EQ( shared->initialPortEvent( event.port ), Hoba::HobaEvent{} );
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
   helper->sequenceDel( "acl" );
   EXPECT_EQ( helper->getNextSequence( "acl" ), 65535u );

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
