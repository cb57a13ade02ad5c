// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaCommon.h"

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaLog.h"
#include "Hoba/HobaVerifySm.h"
#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaCommon );

KIV_DEFINE( Hoba::VlanStatus );
KIV_DEFINE( Hoba::HwCliConfig );
KIV_DEFINE( Hoba::HobaCommonSmData );

namespace Hoba {

HOBA_LOG_MESSAGE( HOBA_STEP_FAILED, 3, "%s failed: %s",
                  "A part of the forwarding agent, or the chip's software, failed at a step. What "
                  "the step was to do has not been done; everything else goes on.",
                  "Verify the agent. If the message comes again, collect the traces of the agent "
                  "and contact support." );

HobaCommonSmData::HobaCommonSmData( Kiv::String const & contextName ) : Entity( contextName ) {
   Kiv::Dispatch::failureSink = []( std::string_view step, std::string_view why ) {
      ZTRACE( 0, step, " failed: ", why );
      hobaLog< HOBA_STEP_FAILED >( step, why );
   };
}

void
HobaCommonSmData::handleInitialized() {
   ZTRACE_ENTRY( 9 );
   Kiv::Dispatch::Frame frame; // who hears of the first may drop the context
   verifyDataIs( "verify" )->verifyRequiredIs( "vr" );
   if( !verifySm() ) {
      verifySmIs( VerifySm::VerifySmIs( this ) );
   }
   initializedIs( true );
}

void
HobaCommonSmData::cleanup() {
   Kiv::Dispatch::Frame frame;
   if( auto const verifier = verifySm() ) {
      verifySmIs( nullptr );
      verifier->kivDoZombieReactors( true );
   }
   verifyDataDel();
   vlanHelperIs( nullptr );
}

void
HobaCommonSmData::agentRestart( Kiv::String const & reason ) const {
   // A copy: it may set another, and drop this context.
   if( auto const callback = agentRestartCallback_ ) {
      callback( reason );
   } else {
      hobaAssert( reason );
   }
}

void
HobaCommonSmData::agentRestartCallbackIs(
      std::function< void( Kiv::String const & reason ) > callback ) {
   agentRestartCallback_ = std::move( callback );
}

} // namespace Hoba
