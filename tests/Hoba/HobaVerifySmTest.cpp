// SPDX-License-Identifier: Apache-2.0

// Verification: who may ask for a pass, what it does, and who is told of its end.

#include "HobaTest.h"

#include "Hoba/HobaLog.h"
#include "Hoba/HobaNonAgingMacSm.h"
#include "Hoba/HobaVerifySm.h"
#include "Kiv/Exception.h"
#include "Kiv/Reflect.h"

namespace HobaTest {

class VlanHelper : public Hoba::VlanHelperBase {
   KIV_ENTITY( HobaTest::VlanHelper, Hoba::VlanHelperBase );

 public:
   VlanHelper() : VlanHelperBase( "vlan" ) {}
   Kiv::String verify() override {
      ++asked;
      happens( then );
      return mismatch;
   }
   Kiv::String mismatch;
   std::function< void() > then;
   unsigned asked = 0;
};

KIV_DEFINE( HobaTest::VlanHelper );

} // namespace HobaTest

namespace {

using namespace HobaTest;
using namespace HobaTypes;

// A machine that cannot conclude as often as it is told to.
class CheckedSm : public Hoba::HobaVerifiedSm {
 public:
   KIV_TYPE( CheckedSm );

   void handleVerify() override {
      ++passes;
      verifyData()->updateCliVerifyOutput( item, text );
      notYet();
      happens( then );
   }
   void notYet() {
      if( retries ) {
         --retries;
         verifyData()->retryVerifyIs( true );
      }
   }

   std::function< void() > then;
   Kiv::String item = "vlan \"1\"";
   Kiv::String text = "a\\b\nc";
   unsigned retries = 0;
   unsigned passes = 0;

 protected:
   explicit CheckedSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & data ) : HobaVerifiedSm( data ) {}
};

class VerifySmTest : public ContextFixture {
 protected:
   // The machines come before the context is complete.
   void start() {
      checked = Hoba::smIs< CheckedSm >( data );
      agentSm = Hoba::VerifyAgentSm::VerifyAgentSmIs( data, config, status );
      data->vlanHelperIs( vlanHelper );
      data->handleInitialized();
      checked->initializedIs( true );
      agentSm->initializedIs( true );
      again = Hoba::smIs< Again >( data->verifyData() );
      again->then = [ this ] { checked->notYet(); };
   }
   Hoba::VerifyData & verify() { return *data->verifyData(); }
   void request() {
      verify().doRequestVerify();
      driver.run();
   }
   // "2 passes, 1 again, verifyFinished, done"
   std::string state() {
      return Kiv::toText( verify().verify() ) + " passes, " + Kiv::toText( verify().reverify() ) +
             " again, " + Kiv::toText( verify().verifyResult() ) +
             ( verify().verifyDone() ? ", done" : "" ) +
             ( verify().retryVerify() ? ", to be retried" : "" ) +
             ( driver.timers() ? ", clock set" : "" );
   }
   std::string answered() {
      auto const answer = status->verifyStatusData();
      return Kiv::toText( answer.cookie ) + " " + Kiv::toText( answer.status );
   }
   // Asks as another agent does, and returns what is said at once.
   std::string ask( std::uint32_t cookie ) {
      config->cookieIs( cookie );
      return answered();
   }
   static Kiv::String command( Kiv::String const & text = "VTS#" ) {
      return Hoba::CliCallback::find( "VerifyAgentCli" )->handleCommand( 7, text );
   }

   Kiv::Ptr< VerifyAgentConfig > config = Kiv::make< VerifyAgentConfig >();
   Kiv::Ptr< VerifyAgentStatus > status = Kiv::make< VerifyAgentStatus >();
   Kiv::Ptr< VlanHelper > vlanHelper = Kiv::make< VlanHelper >();
   Kiv::Ptr< CheckedSm > checked;
   Kiv::Ptr< Hoba::VerifyAgentSm > agentSm;
   using Again = Watcher< Hoba::VerifyData, Hoba::VerifyData::reverifyAttr >;
   Kiv::Ptr< Again > again;
};

TEST_F( VerifySmTest, requestsBeforeTheClockFiresAreOnePass ) {
   start();
   Traces traces( "HobaVerifySm" );
   verify().doRequestVerify();
   EXPECT_EQ( checked->passes, 0u );
   request();
   EXPECT_EQ( checked->passes, 1u );
   EXPECT_EQ( vlanHelper->asked, 1u );
   EXPECT_EQ( state(), "1 passes, 0 again, verifyFinished, done" );
   EXPECT_EQ( verify().cliVerifyOutput().size(), 0u ) << "no command line waits";
   EXPECT_EQ( traces.take(),
              ( Strings{ "Starting Hoba verification", "Hoba verification done" } ) );
   data->vlanHelperIs( nullptr );
   verify().doRequestVerify();
   EXPECT_EQ( state(), "1 passes, 0 again, verifyFinished, clock set" );
   driver.run();
   EXPECT_EQ( checked->passes, 2u ) << "a context without VLAN helper";
   verify().verifyRequiredDel();
   request();
   EXPECT_EQ( checked->passes, 2u );
}

TEST_F( VerifySmTest, nothingHappensBeforeTheContextIsInitialized ) {
   checked = Hoba::smIs< CheckedSm >( data );
   agentSm = Hoba::VerifyAgentSm::VerifyAgentSmIs( data, config, status );
   config->cookieIs( 4 );
   EXPECT_EQ( Hoba::CliCallback::find( "VerifyAgentCli" ), nullptr );
   data->verifyDataIs( "verify" )->verifyRequiredIs( "vr" );
   auto const sm = Hoba::VerifySm::VerifySmIs( data );
   config->cookieIs( 5 ); // the agent's machine is not initialized
   verify().verifyDoneIs( true );
   verify().doRequestVerify();
   EXPECT_EQ( driver.timers(), 0u );
   EXPECT_TRUE( verify().verifyDone() );
   verify().verifyInc( 1 );
   EXPECT_EQ( checked->passes, 0u );
   EXPECT_EQ( answered(), "0 verifyNotRun" );

   // A clock that was set while the machine was initialized, and fires when it is not.
   sm->initializedIs( true );
   verify().doRequestVerify();
   sm->initializedIs( false );
   driver.run();
   EXPECT_EQ( verify().verify(), 1u );
   agentSm->initializedIs( true );
   EXPECT_THROW( command(), Kiv::ParseError );
}

TEST_F( VerifySmTest, retryIsCountedAndRunsNoNewPass ) {
   start();
   checked->retries = 2; // who hears of the new count may still be unable to conclude
   request();
   EXPECT_EQ( state(), "1 passes, 0 again, verifyToBeRetried, to be retried, clock set" );
   driver.advance( Hoba::VerifySm::retryDelay );
   EXPECT_EQ( state(), "1 passes, 1 again, verifyToBeRetried, to be retried, clock set" );
   driver.advance( Hoba::VerifySm::retryDelay );
   EXPECT_EQ( state(), "1 passes, 2 again, verifyFinished, done" );
   checked->retries = 1;
   request();
   EXPECT_EQ( state(), "2 passes, 2 again, verifyToBeRetried, to be retried, clock set" );
   EXPECT_TRUE( driver.runUntilIdle( 10 ) );
   EXPECT_EQ( state(), "2 passes, 3 again, verifyFinished, done" );
}

// What is asked for in one go, and what the command line asks in between, the simulation of the whole
// switch sees.
TEST_F( VerifySmTest, anotherAgentIsToldWhenItsPassIsDone ) {
   start();
   Traces traces( "HobaVerifySm" );
   checked->retries = 1;
   EXPECT_EQ( ask( 17 ), "17 verifyRequested" );
   EXPECT_TRUE( has( traces.take().front(), ": cookie is 17" ) );
   driver.run();
   EXPECT_EQ( answered(), "17 verifyRequested" ) << "to be retried";
   command();
   driver.advance( Hoba::VerifySm::retryDelay );
   EXPECT_EQ( answered(), "17 verifyFinished" );
   // What somebody else asks for is not reported as an answer.
   status->verifyStatusDataIs( {} );
   request();
   EXPECT_EQ( answered(), "0 verifyNotRun" );
}

TEST_F( VerifySmTest, commandLineIsAnsweredAtOnce ) {
   start();
   Traces traces( "HobaVerifySm" );
   auto const * callback = Hoba::CliCallback::find( "VerifyAgentCli" );
   EXPECT_EQ( callback->command(), "hobaVerify::agent" );
   EXPECT_EQ( command( "VTS#all" ), "{ \"hobaVerify::agent\" : [ { \"vlan \\\"1\\\"\" : "
                                    "\"a\\\\b\\u000ac\" } ] }" );
   EXPECT_EQ( traces.take(), ( Strings{ "Starting Hoba verification due to cli request",
                                        "Hoba verification done" } ) );
   EXPECT_EQ( verify().verify(), 1u );
   EXPECT_TRUE( verify().verifyDone() );
   for( auto const * wrong : { "", "VTS", "vts#", " VTS#" } ) {
      EXPECT_THROW( command( wrong ), Kiv::ParseError ) << wrong;
   }
   checked->initializedIs( false );
   EXPECT_EQ( command(), "{ \"hobaVerify::agent\" : [  ] }" );
   EXPECT_EQ( driver.timers(), 0u );
   for( bool const works : { false, true } ) {
      agentSm->initializedIs( works );
      EXPECT_EQ( Hoba::CliCallback::find( "VerifyAgentCli" ) != nullptr, works );
   }

   // Neither machine works any more, whoever still holds it.
   auto const held = agentSm;
   auto const verifier = data->verifySm();
   auto const entity = data->verifyData();
   Hoba::letGo( agentSm );
   EXPECT_EQ( Hoba::CliCallback::find( "VerifyAgentCli" ), nullptr );
   data->cleanup();
   entity->doRequestVerify();
   config->cookieIs( 9 );
   EXPECT_EQ( driver.timers(), 0u );
   EXPECT_EQ( answered(), "0 verifyNotRun" );
}

// ---- What happens in the middle of a pass

TEST_F( VerifySmTest, whoIsDroppedInTheMiddleOfAPass ) {
   struct Row {
      char const * what;
      std::function< void() > drop;
   };
   Row const rows[] = {
         { "cleanup", [ & ] { data->cleanup(); } },
         { "the agent's machine", [ & ] { agentSm = nullptr; } },
         { "the agent's machine ends", [ & ] { agentSm->initializedIs( false ); } },
         { "the verified machine", [ & ] { checked = nullptr; } },
         { "a new context", [ & ] { data->cleanup(), data->handleInitialized(); } },
         { "everything",
           [ & ] { agentSm = nullptr, checked = nullptr, data->cleanup(), data = nullptr; } },
   };
   Environment const simulation( "SIMULATION_VMID", "12" );
   for( auto const & row : rows ) {
      for( bool const atRestart : { false, true } ) {
         for( bool const byClock : { false, true } ) {
            SCOPED_TRACE( std::string( row.what ) + ( atRestart ? ", at the restart" : "" ) +
                          ( byClock ? ", by the clock" : "" ) );
            data = Kiv::make< Hoba::HobaCommonSmData >( "agent" );
            data->agentRestartCallbackIs( [ & ]( Kiv::String const & ) {
               data->agentRestartCallbackIs( nullptr );
               row.drop();
            } );
            vlanHelper->mismatch = atRestart ? "vlan 5 is missing" : "";
            start();
            checked->then = atRestart ? std::function< void() >() : row.drop;
            if( byClock ) {
               ask( config->cookie() + 1 );
               driver.run();
            } else {
               EXPECT_TRUE( has( command(), "a\\\\b" ) ) << "what was found before is told";
            }
            if( data && data->verifyData() ) {
               EXPECT_EQ( verify().socket(), 0u );
               EXPECT_FALSE( verify().verifyActive() );
            }
            agentSm = nullptr;
            checked = nullptr;
            if( data ) {
               data->cleanup();
            }
            driver.run();
         }
      }
   }
   data = Kiv::make< Hoba::HobaCommonSmData >( "agent" );
}

TEST_F( VerifySmTest, aCookieInTheMiddleOfAPassHasItsOwn ) {
   start();
   checked->then = [ & ] {
      checked->then = nullptr;
      ask( 18 );
   };
   ask( 17 );
   using StatusWatcher = Watcher< VerifyAgentStatus, VerifyAgentStatus::verifyStatusDataAttr >;
   auto const watcher = Hoba::smIs< StatusWatcher >( status );
   Strings answers;
   watcher->then = [ & ] {
      answers.push_back( answered() );
      // Who has his answer may ask again at once.
      if( answered() == "18 verifyFinished" ) {
         ask( 19 );
      }
   };
   driver.run();
   EXPECT_EQ( verify().verify(), 1u );
   driver.run();
   driver.run();
   EXPECT_EQ( verify().verify(), 3u );
   EXPECT_EQ( answers, ( Strings{ "17 verifyFinished", "18 verifyRequested", "18 verifyFinished",
                                  "19 verifyRequested", "19 verifyFinished" } ) );

   // What a machine cannot conclude is kept; a cookie that comes then begins anew.
   answers.clear();
   checked->retries = 1;
   vlanHelper->then = [ & ] {
      vlanHelper->then = nullptr;
      ask( 21 );
      EXPECT_TRUE( verify().retryVerify() );
   };
   ask( 20 );
   driver.runUntilIdle( 10 );
   EXPECT_EQ( verify().verify(), 5u );
   EXPECT_EQ( answers,
              ( Strings{ "20 verifyRequested", "21 verifyRequested", "21 verifyFinished" } ) );

   // Neither is the reply of the command line taken away, nor the cookie answered by its pass.
   checked->then = [ & ] {
      checked->then = nullptr;
      ask( 22 );
      EXPECT_THROW( command(), Kiv::Exception );
   };
   EXPECT_TRUE( has( command(), "vlan" ) );
   EXPECT_EQ( answered(), "22 verifyRequested" );
   driver.run();
   EXPECT_EQ( answered(), "22 verifyFinished" );
   EXPECT_EQ( verify().verify(), 7u );
   EXPECT_EQ( driver.timers(), 0u );

   // Who cannot conclude while the command line waits says so there, and puts off nobody.
   checked->retries = 1;
   EXPECT_TRUE( has( command(), "ask again" ) );
   request();
   EXPECT_EQ( verify().verify(), 9u );
   EXPECT_EQ( verify().verifyResult(), verifyFinished );
}

TEST_F( VerifySmTest, whatThrowsInAPassIsReported ) {
   start();
   auto const later = Hoba::smIs< CheckedSm >( data );
   later->item = "later";
   later->initializedIs( true );
   auto const refuse = [] { throw Kiv::Exception( "no \"answer\"" ); };
   checked->then = refuse;
   // Also when somebody else cannot conclude yet.
   for( unsigned const retries : { 0u, 1u } ) {
      later->retries = retries;
      ask( 17 + retries );
      driver.runUntilIdle( 10 );
      EXPECT_EQ( failures(), 1u );
      EXPECT_EQ( later->passes, 1 + retries );
      EXPECT_EQ( answered(), Kiv::toText( 17 + retries ) + " verifyFailed" );
      EXPECT_TRUE( verify().verifyDone() );
   }
   auto const reply = command();
   EXPECT_TRUE( has( reply, "\"CheckedSm\" : \"could not be verified: no \\\"answer\\\"\"" ) );
   EXPECT_TRUE( has( reply, "\"later\"" ) );
   EXPECT_EQ( verify().socket(), 0u );
   checked->then = nullptr;
   vlanHelper->then = refuse;
   EXPECT_TRUE( has( command(), "\"vlan\" : \"could not be verified" ) );
   EXPECT_EQ( failures(), 2u );
   vlanHelper->then = nullptr;
   ask( 19 );
   driver.run();
   EXPECT_EQ( answered(), "19 verifyFinished" );
}

TEST_F( VerifySmTest, whileVerificationIsNotPossible ) {
   start();
   auto const sm = Kiv::dynamicCast< Hoba::VerifySm >( data->verifySm() );
   sm->initializedIs( false );
   EXPECT_EQ( ask( 17 ), "0 verifyNotRun" ) << "nobody would ever answer it";
   sm->initializedIs( true );
   driver.run();
   EXPECT_EQ( verify().verify(), 0u );
   ask( 18 );
   sm->initializedIs( false );
   driver.run();
   sm->initializedIs( true );
   driver.run();
   EXPECT_EQ( answered(), "18 verifyFinished" ) << "what was taken is done";
   sm->initializedIs( false );
   sm->initializedIs( true );
   EXPECT_EQ( state(), "1 passes, 0 again, verifyFinished, done" ) << "once";
   checked->initializedIs( false );
   checked->HobaVerifiedSm::handleVerify(); // stops nobody
   EXPECT_NE( command(), "" );
}

TEST_F( VerifySmTest, whatIsMissingIsSaidAtOnce ) {
   using AgentSm = Hoba::VerifyAgentSm;
   auto const bare = Kiv::make< Hoba::HobaCommonSmData >( "bare" );
   EXPECT_THROW( Hoba::VerifySm::VerifySmIs( bare ), Kiv::Exception );
   EXPECT_THROW( Hoba::VerifySm::VerifySmIs( nullptr ), Kiv::Exception );
   EXPECT_THROW( AgentSm::VerifyAgentSmIs( data, config, nullptr ), Kiv::Exception );
   EXPECT_THROW( AgentSm::VerifyAgentSmIs( nullptr, config, status ), Kiv::Exception );
   AgentSm::VerifyAgentSmIs( bare, nullptr, status )->initializedIs( true );
   auto const deaf = AgentSm::VerifyAgentSmIs( bare, config, status );
   deaf->initializedIs( true );
   EXPECT_THROW( command(), Kiv::ParseError );
   EXPECT_THROW( Hoba::NonAgingConfigDirSm::NonAgingConfigDirSmIs( data, nullptr, nullptr ),
                 Kiv::Exception );
   // A machine that is asked without being initialized, or before its context is.
   StormWorld world;
   world.config->aggregateTcConfigIs( 3 );
   world.create();
   for( bool const initialized : { false, true } ) {
      world.sm->initializedIs( initialized );
      world.sm->handleVerify();
   }
}

TEST_F( VerifySmTest, itemsOfTheReply ) {
   start();
   verify().updateCliVerifyOutput( "a", "lost" );
   EXPECT_EQ( verify().cliReplyItems(), "" );
   verify().initVerifyData( 3 );
   verify().updateCliVerifyOutput( "b", "1" );
   verify().updateCliVerifyOutput( "a", "\x01" );
   verify().updateCliVerifyOutput( "b", "2" );
   EXPECT_EQ( verify().cliVerifyOutput( "b" ), "{ \"b\" : \"1\" },{ \"b\" : \"2\" }," );
   EXPECT_EQ( verify().cliReplyItems(),
              "{ \"b\" : \"1\" },{ \"b\" : \"2\" },{ \"a\" : \"\\u0001\" }" );
   verify().retryVerifyIs( true );
   verify().verifyDoneIs( true );
   verify().verifyResultIs( verifyFinished );
   verify().resetVerifyData();
   EXPECT_EQ( state(), "0 passes, 0 again, verifyNotRun" );
   EXPECT_TRUE( verify().cliReplyItems().empty() && verify().socket() == 0 );
}

// ---- The VLAN helper's mismatch

TEST_F( VerifySmTest, mismatchStopsTheAgent ) {
   start();
   vlanHelper->mismatch = "vlan 5 is missing";
   verify().doRequestVerify();
   EXPECT_DEATH( driver.run(), "^vlan 5 is missing\n.*Assertion `0' failed" );
}

TEST_F( VerifySmTest, mismatchInASimulationIsLoggedAndRestartsTheAgent ) {
   Environment const simulation( "SIMULATION_VMID", "12" );
   start();
   Traces traces( "HobaVerifySm" );
   Strings restarts;
   data->agentRestartCallbackIs( [ & ]( Kiv::String const & why ) { restarts.push_back( why ); } );
   auto const logged = Hoba::logEntries().empty() ? 0 : Hoba::logEntries().back().sequence;
   vlanHelper->mismatch = "vlan 5 is missing";
   ask( 17 );
   driver.run();
   EXPECT_EQ( verify().verifyOutput(), ( Hoba::VerifyOutput{ "Hoba/HobaVerifySm", "runVerification",
                                                             "vlan 5 is missing" } ) );
   auto const where = " File: Hoba/HobaVerifySm Function: runVerification Description: vlan 5 is "
                      "missing";
   EXPECT_TRUE( restarts.size() == 1 && has( restarts[ 0 ], where ) );
   EXPECT_EQ( traces.take()[ 2 ], where );
   auto const & entry = Hoba::logEntries().back();
   ASSERT_EQ( entry.sequence, logged + 1 );
   EXPECT_STREQ( entry.message->name, "HARDWARE_VERIFY_AGENT_FAILED" );
   EXPECT_EQ( entry.message->severity, 3 );
   EXPECT_EQ( entry.text, "vlan 5 is missing Agent will restart." );
   EXPECT_EQ( entry.time, 100 );
   // The reset before the next pass is no mismatch; the mismatch of the next pass is a new one.
   ask( 18 );
   EXPECT_EQ( restarts.size(), 1u );
   driver.run();
   EXPECT_EQ( restarts.size(), 2u );
   data->agentRestartCallbackIs( nullptr );
   ask( 19 );
   driver.run(); // stops nobody in a simulation
}

} // namespace
