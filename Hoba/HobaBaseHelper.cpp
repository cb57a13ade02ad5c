// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaBaseHelper.h"

#include "Hoba/HobaAssert.h"
#include "Kiv/Reflect.h"

KIV_DEFINE( Hoba::HobaBaseHelper );
KIV_DEFINE( Hoba::VlanHelperBase );

namespace Hoba {

void
HobaBaseHelper::hobaAssert( Kiv::String const & message ) const {
   Hoba::hobaAssert( message );
}

} // namespace Hoba
