// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaVerifySm.h"

#include "Hoba/HobaAssert.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaVerifySm );

namespace Hoba {

VerifySm::VerifySm( Kiv::Ptr< HobaCommonSmData > const & commonSmData )
      : HobaBaseSm( commonSmData ) {
   verifyRequiredIs( data().verifyRequired() );
   verifyDataIs( commonSmData->verifyData() );
   clockIs( Kiv::make< Kiv::Clock >() );
   bogusAcsdIs( commonSmData );
}

Kiv::Ptr< VerifySm >
VerifySm::VerifySmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData ) {
   return smIs< VerifySm >( commonSmData );
}

void
VerifySm::handleContextInitialized() {
   initializedIs( commonSmData()->initialized() );
}

void
VerifySm::handleVerifyRequest() {
   if( initialized() ) {
      data().verifyDoneIs( false );
      clock()->timeMinIs( clock()->now() );
   }
}

void
VerifySm::handleTimeout() {
   if( !initialized() ) {
      return;
   }
   auto & verify = data();
   // A pass of the command line may have come in between, and be done.
   verify.verifyDoneIs( false );
   verify.cliVerifyOutputDelAll();
   if( verify.retryVerify() ) {
      verify.retryVerifyIs( false );
      verify.reverifyInc( 1 );
   } else {
      ZTRACE( 5, "Starting Hoba verification" );
      runVerification();
      ZTRACE( 5, "Hoba verification done" );
   }
   // Only now: who heard of the new count may have asked for another retry.
   if( verify.retryVerify() ) {
      verify.verifyResultIs( HobaTypes::verifyToBeRetried );
      clock()->timeMinIs( clock()->now() + retryDelay );
   } else {
      verify.verifyResultIs( HobaTypes::verifyFinished );
      verify.verifyDoneIs( true );
   }
}

void
VerifySm::runVerification() {
   data().verifyInc( 1 );
   auto const & vlanHelper = commonSmData()->vlanHelper();
   auto const mismatch = vlanHelper ? vlanHelper->verify() : Kiv::String();
   if( mismatch.empty() ) {
      return;
   }
   if( isSimulation() ) {
      data().verifyOutputIs( { "Hoba/HobaVerifySm", __func__, mismatch } );
   } else {
      hobaAssert( mismatch );
   }
}

void
VerifySm::handleCliVerificationRequest( std::uint32_t socket ) {
   auto & verify = data();
   verify.initVerifyData( socket );
   ZTRACE( 5, "Starting Hoba verification due to cli request" );
   runVerification();
   verify.verifyDoneIs( true );
   ZTRACE( 5, "Hoba verification done" );
}

void
VerifySm::handleVerifyOutput() {
   auto const output = data().verifyOutput();
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
   if( !command.starts_with( "VTS#" ) ) {
      Kiv::parseFailed( command, "a command of hobaVerify: it begins with VTS#" );
   }
   auto const & context = verifyAgentSm()->commonSmData();
   auto const verifySm = Kiv::dynamicCast< VerifySm >( context->verifySm() );
   if( !verifySm || !verifySm->initialized() ) {
      throw Kiv::ParseError( "verification is not possible before the agent is initialized" );
   }
   verifySm->handleCliVerificationRequest( socket );
   auto const & verify = context->verifyData();
   auto reply = "{ " + jsonQuoted( this->command() ) + " : [ " + verify->cliReplyItems() + " ] }";
   // The connection has its reply: a later pass is not for it.
   verify->socketIs( 0 );
   return reply;
}

VerifyAgentSm::VerifyAgentSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                              Kiv::Ptr< HobaTypes::VerifyAgentConfig const > const & config,
                              Kiv::Ptr< HobaTypes::VerifyAgentStatus > const & status )
      : HobaBaseSm( commonSmData ), status_( status ) {
   configIs( config );
   bogusAcsdIs( commonSmData );
}

VerifyAgentSm::~VerifyAgentSm() = default;

Kiv::Ptr< VerifyAgentSm >
VerifyAgentSm::VerifyAgentSmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                                Kiv::Ptr< HobaTypes::VerifyAgentConfig const > const & config,
                                Kiv::Ptr< HobaTypes::VerifyAgentStatus > const & status ) {
   return smIs< VerifyAgentSm >( commonSmData, config, status );
}

void
VerifyAgentSm::handleInitialized() {
   if( initialized() && !cliCallback_ ) {
      cliCallback_ = std::make_unique< VerifyAgentSmCliCallback >( commonSmData()->name(), this );
      ZTRACE( 5, "Hoba CliCommand callback has been initialized" );
      ZTRACE( 5, "VerifyAgentSm initialized" );
   }
}

void
VerifyAgentSm::handleVerifyAgent() {
   auto const & verify = commonSmData()->verifyData();
   if( !initialized() || !verify ) {
      return;
   }
   auto const * config = this->config()->notifier();
   ZTRACE( 5, config->name(), ": cookie is ", config->cookie() );
   verify->resetVerifyData();
   status_->verifyStatusDataIs( { config->cookie(), HobaTypes::verifyRequested } );
   verify->doRequestVerify();
}

void
VerifyAgentSm::handleVerifyData() {
   verifyDataIs( commonSmData()->verifyData() );
}

// A pass is done. Whoever asked through the configuration is told; a pass of the command line, or
// one that was asked for otherwise, finds no request open here.
void
VerifyAgentSm::handleVerifyStatus() {
   auto const & verify = *verifyData()->notifier();
   auto const asked = status_->verifyStatusData();
   if( verify.verifyDone() && verify.socket() == 0 && asked.status == HobaTypes::verifyRequested ) {
      status_->verifyStatusDataIs( { asked.cookie, verify.verifyResult() } );
   }
}

} // namespace Hoba
