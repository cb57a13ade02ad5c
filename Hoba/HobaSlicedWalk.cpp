// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaSlicedWalk.h"

#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaSlicedWalk );

namespace Hoba {

void
traceYield( std::string_view machine, std::uint32_t done ) {
   ZTRACE( 6, machine, " yields after ", done );
}

} // namespace Hoba
