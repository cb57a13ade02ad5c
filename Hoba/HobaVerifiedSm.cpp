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
      handleVerify();
   }
}

void
HobaVerifiedSm::handleVerify() {
   unimplementedHook( Kiv::String( className_ ) + "::handleVerify" );
}

} // namespace Hoba
