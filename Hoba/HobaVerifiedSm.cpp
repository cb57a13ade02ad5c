// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaVerifiedSm.h"

#include "Hoba/HobaAssert.h"

namespace Hoba {

HobaVerifiedSm::HobaVerifiedSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                                char const * className )
      : HobaBaseSm( commonSmData ), className_( className ) {}

void
HobaVerifiedSm::followVerification() {
   verifyAcsdIs( commonSmData() );
}

void
HobaVerifiedSm::handleVerifyData() {
   verifyDataReactorIs( commonSmData()->verifyData() );
}

void
HobaVerifiedSm::handleVerifyCounter() {
   if( initialized() ) {
      // Held: the machine may end what it reports to.
      Kiv::Ptr< VerifyData > const verify( verifyDataReactor()->notifier() );
      verify->verifyStep( className_, [ this ] { handleVerify(); } );
   }
}

void
HobaVerifiedSm::handleVerify() {
   if( initialized() ) {
      unimplementedHook( Kiv::String( className_ ) + "::handleVerify" );
   }
}

} // namespace Hoba
