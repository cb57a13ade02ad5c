// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaParityEventHelperSm.h"

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaCommon.h"

namespace Hoba {

Kiv::Ptr< HobaParityEventHelperSm >
HobaParityEventHelperSm::HobaParityEventHelperSmIs(
      Kiv::Ptr< HobaCommonSmData > const & commonSmData ) {
   return smIs< HobaParityEventHelperSm >( commonSmData );
}

void
HobaParityEventHelperSm::hwInit() {
   unimplementedHook( "hwInit" );
}

void
HobaParityEventHelperSm::hwCleanup() {
   unimplementedHook( "hwCleanup" );
}

void
HobaParityEventHelperSm::hwHandleParityError( HobaParityEvent const & ) {
   // The name that the message has always had: what people search for.
   unimplementedHook( "hwCorrectParityError" );
}

} // namespace Hoba
