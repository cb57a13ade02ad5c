// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the hardware says to a write of its MAC table.

#include "Kiv/Value.h"

namespace Hoba {

KIV_ENUM(
      MacProgramStatus, std::uint8_t,
      macProgramSuccess = 0, // the hardware holds it, or will before anything else is asked of it
      macProgramFailed,
      macProgramInProgress, // taken, and on its way: nobody has to ask again
      macProgramBusy,       // not now
      macProgramFull,       // there is no room for this address, which says nothing of others
      macProgramFlushInProgress,
      macProgramParityError ); // written, and found wrong: a parity error was reported

// Nothing has changed in the hardware, and it has to be asked again.
constexpr bool
isMacProgramRefused( MacProgramStatus status ) {
   return status == macProgramFailed || status == macProgramBusy || status == macProgramFull ||
          status == macProgramFlushInProgress;
}

} // namespace Hoba
