// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaVerifySm.h"

#include "Hoba/HobaAssert.h"
#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaVerifySm );

KIV_DEFINE( Hoba::VerifySm );
KIV_DEFINE( Hoba::VerifyAgentSm );

namespace Hoba {

namespace {

// From its first write to its last.
class Pass {
 public:
   explicit Pass( Kiv::Ptr< VerifyData > const & verify ) : verify_( verify ) {
      verify_->verifyActiveIs( true );
   }
   ~Pass() { verify_->verifyActiveIs( false ); }
   Pass( Pass const & ) = delete;
   Pass & operator=( Pass const & ) = delete;

 private:
   Kiv::Ptr< VerifyData > const verify_;
};

void
countFailures( VerifyData & verify, std::uint64_t before ) {
   auto const more = static_cast< std::uint32_t >( Kiv::Dispatch::failures - before );
   verify.verifyFailuresIs( verify.verifyFailures() + more );
}

} // namespace

VerifySm::VerifySm( Kiv::Ptr< HobaCommonSmData > const & commonSmData )
      : HobaBaseSm( commonSmData ) {
   HOBA_INVARIANT( commonSmData && commonSmData->verifyData(),
                   "verification works on the verification entity of a context" );
   verifyRequiredIs( commonSmData->verifyData()->verifyRequired() );
   verifyDataIs( commonSmData->verifyData() );
   clockIs( Kiv::make< Kiv::Clock >() );
   bogusAcsdIs( commonSmData );
}

void
VerifySm::handleInitialized() {
   clock()->timeMinIs( initialized() && due() ? clock()->now() : Kiv::never );
}

void
VerifySm::handleVerifyRequest() {
   data()->verifyDoneIs( false );
   wakeAt( clock()->now() );
}

// Who wants a retry does not put off what was asked for meanwhile.
void
VerifySm::wakeAt( Kiv::Seconds when ) {
   dueIs( true );
   clock()->noLaterThan( when );
}

void
VerifySm::handleTimeout() {
   dueIs( false );
   auto const verify = data();
   Pass const pass( verify );
   // A pass of the command line may have come in between, and be done.
   verify->verifyDoneIs( false );
   verify->cliVerifyOutputDelAll();
   if( verify->retryVerify() ) {
      verify->retryVerifyIs( false );
      auto const before = Kiv::Dispatch::failures;
      verify->reverifyInc( 1 );
      countFailures( *verify, before );
   } else {
      ZTRACE( 5, "Starting Hoba verification" );
      runVerification( *verify );
      ZTRACE( 5, "Hoba verification done" );
   }
   // Only now: who heard of the new count may have asked for another retry.
   if( verify->retryVerify() ) {
      verify->verifyResultIs( HobaTypes::verifyToBeRetried );
      wakeAt( clock()->now() + retryDelay );
   } else {
      verify->verifyResultIs( HobaTypes::verifyFinished );
      verify->verifyDoneIs( true );
   }
}

void
VerifySm::runVerification( VerifyData & verify ) {
   verify.verifyFailuresIs( 0 );
   auto const before = Kiv::Dispatch::failures;
   verify.verifyInc( 1 );
   Kiv::String mismatch;
   if( auto const vlanHelper = commonSmData()->vlanHelper() ) {
      verify.verifyStep( vlanHelper->name(), [ & ] { mismatch = vlanHelper->verify(); } );
   }
   countFailures( verify, before );
   if( mismatch.empty() ) {
      return;
   }
   if( isSimulation() ) {
      verify.verifyOutputIs( { "Hoba/HobaVerifySm", __func__, mismatch } );
   } else {
      hobaAssert( mismatch );
   }
}

Kiv::String
VerifySm::handleCliVerificationRequest( std::uint32_t socket ) {
   // What the pass drops, this machine and the context included, lives until it has returned.
   Kiv::Dispatch::Frame frame;
   auto const verify = data();
   HOBA_INVARIANT( !verify->verifyActive(), "a pass does not begin in the middle of another" );
   Pass const pass( verify );
   verify->initVerifyData( socket );
   ZTRACE( 5, "Starting Hoba verification due to cli request" );
   runVerification( *verify );
   if( verify->retryVerify() ) {
      // Nobody comes back to it: the next pass is a whole one.
      verify->retryVerifyIs( false );
      verify->updateCliVerifyOutput( "verification", "not everybody can conclude yet: ask again" );
   }
   verify->verifyDoneIs( true );
   ZTRACE( 5, "Hoba verification done" );
   auto items = verify->cliReplyItems();
   // The connection has its reply: a later pass is not for it.
   verify->socketIs( 0 );
   return items;
}

void
VerifySm::handleVerifyOutput() {
   auto const output = data()->verifyOutput();
   if( output == VerifyOutput{} ) {
      return; // nothing found yet, or reset
   }
   ZTRACE( 0, " File: ", output.file, " Function: ", output.function,
           " Description: ", output.description );
   hobaLog< HARDWARE_VERIFY_AGENT_FAILED >( output.description );
   commonSmData()->agentRestart( "Verification of forwarding agent failed:" +
                                 Kiv::toText( output ) );
}

// What the command line calls.
class VerifyAgentSm::VerifyAgentSmCliCallback : public CliCallback {
 public:
   VerifyAgentSmCliCallback( Kiv::String const & agentName, VerifyAgentSm * sm )
         : CliCallback( "VerifyAgentCli", "hobaVerify::" + agentName ), verifyAgentSm_( sm ) {}

   Kiv::String handleCommand( std::uint32_t socket, Kiv::String const & command ) override;

 private:
   VerifyAgentSm * verifyAgentSm() const { return verifyAgentSm_; }
   VerifyAgentSm * const verifyAgentSm_;
};

Kiv::String
VerifyAgentSm::VerifyAgentSmCliCallback::handleCommand( std::uint32_t socket,
                                                        Kiv::String const & command ) {
   HOBA_INVARIANT( verifyAgentSm(), "a command came for a machine that is gone" );
   // What the pass drops lives until it has returned; this object may go with the machine's end.
   Kiv::Dispatch::Frame frame;
   if( !command.starts_with( "VTS#" ) ) {
      Kiv::parseFailed( command, "a command of hobaVerify: it begins with VTS#" );
   }
   auto const verifySm = verifyAgentSm()->verifySm();
   if( !verifySm ) {
      throw Kiv::ParseError( "verification is not possible before the agent is initialized" );
   }
   auto const begin = "{ " + jsonQuoted( this->command() ) + " : [ ";
   return begin + verifySm->handleCliVerificationRequest( socket ) + " ] }";
}

VerifyAgentSm::VerifyAgentSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                              Kiv::Ptr< HobaTypes::VerifyAgentConfig const > const & config,
                              Kiv::Ptr< HobaTypes::VerifyAgentStatus > const & status )
      : HobaBaseSm( commonSmData ), status_( status ) {
   HOBA_INVARIANT( commonSmData && status, "requests to verify come with a context and a status" );
   configIs( config );
   bogusAcsdIs( commonSmData );
}

VerifyAgentSm::~VerifyAgentSm() = default;

void
VerifyAgentSm::handleInitialized() {
   if( !initialized() ) {
      cliCallback_ = nullptr;
      return;
   }
   cliCallback_ = std::make_unique< VerifyAgentSmCliCallback >( commonSmData()->name(), this );
   ZTRACE( 5, "Hoba CliCommand callback has been initialized" );
   ZTRACE( 5, "VerifyAgentSm initialized" );
}

void
VerifyAgentSm::kivDoZombieReactors( bool marked ) {
   HobaBaseSm::kivDoZombieReactors( marked );
   if( marked ) {
      cliCallback_ = nullptr;
   }
}

Kiv::Ptr< VerifySm >
VerifyAgentSm::verifySm() const {
   auto const sm = Kiv::dynamicCast< VerifySm >( commonSmData()->verifySm() );
   return sm && sm->initialized() ? sm : nullptr;
}

void
VerifyAgentSm::handleVerifyAgent() {
   auto const verify = commonSmData()->verifyData();
   if( !verify || !config() ) {
      return;
   }
   auto const * config = this->config()->notifier();
   ZTRACE( 5, config->name(), ": cookie is ", config->cookie() );
   cookieWaitsIs( verify->verifyActive() );
   if( cookieWaits() ) {
      return;
   }
   if( !verifySm() || !verify->verifyRequired() ) {
      ZTRACE( 2, config->name(), ": verification is not possible now, the cookie is ignored" );
      return;
   }
   verify->resetVerifyData();
   status_->verifyStatusDataIs( { config->cookie(), HobaTypes::verifyRequested } );
   verify->doRequestVerify();
}

void
VerifyAgentSm::handleVerifyActive() {
   if( cookieWaits() && !verifyData()->notifier()->verifyActive() ) {
      handleVerifyAgent();
   }
}

// A pass is done. Whoever asked through the configuration is told; a pass of the command line, or
// one that was asked for otherwise, finds no request open here.
void
VerifyAgentSm::handleVerifyStatus() {
   auto const & verify = *verifyData()->notifier();
   auto const asked = status_->verifyStatusData();
   if( verify.verifyDone() && verify.socket() == 0 && asked.status == HobaTypes::verifyRequested ) {
      status_->verifyStatusDataIs( { asked.cookie, verify.verifyFailures()
                                                         ? HobaTypes::verifyFailed
                                                         : verify.verifyResult() } );
   }
}

} // namespace Hoba
