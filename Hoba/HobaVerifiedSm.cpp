// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaVerifiedSm.h"

#include "Hoba/HobaAssert.h"

namespace Hoba {

HobaVerifiedSm::HobaVerifiedSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData )
      : HobaBaseSm( commonSmData ) {
   verifyAcsdIs( commonSmData );
}

void
HobaVerifiedSm::handleVerifyCounter() {
   // Held: the machine may end what it reports to.
   Kiv::Ptr< VerifyData > const verify( verifyDataReactor()->notifier() );
   verify->verifyStep( className(), [ this ] { handleVerify(); } );
}

void
HobaVerifiedSm::handleVerify() {
   if( initialized() ) {
      unimplementedHook( className() + "::handleVerify" );
   }
}

Kiv::String
HobaVerifiedSm::className() const {
   auto const name = fwkType().name();
   return Kiv::String( name.substr( name.rfind( ':' ) + 1 ) );
}

} // namespace Hoba
