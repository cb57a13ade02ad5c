// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaCommon.h"

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaVerifySm.h"
#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaCommon );

KIV_DEFINE( Hoba::VlanStatus );
KIV_DEFINE( Hoba::HwCliConfig );
KIV_DEFINE( Hoba::HobaCommonSmData );

namespace Hoba {

HobaCommonSmData::HobaCommonSmData( Kiv::String const & contextName ) : Entity( contextName ) {}

void
HobaCommonSmData::handleInitialized() {
   ZTRACE_ENTRY( 9 );
   verifyDataIs( "verify" )->verifyRequiredIs( "vr" );
   if( !verifySm() ) {
      verifySmIs( VerifySm::VerifySmIs( this ) );
   }
   initializedIs( true );
}

void
HobaCommonSmData::cleanup() {
   verifySmIs( nullptr );
   verifyDataDel();
}

void
HobaCommonSmData::agentRestart( Kiv::String const & reason ) const {
   if( agentRestartCallback_ ) {
      agentRestartCallback_( reason );
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
