// SPDX-License-Identifier: Apache-2.0
#pragma once

// The chip's part of parity errors: chip code derives from this machine and corrects them.
//
// The messages below are declared here, and emitted by chip code when it detects, schedules or
// completes a correction.

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaLog.h"
#include "types/ParityEvent.h"

namespace Hoba {

HOBA_LOG_MESSAGE( HARDWARE_PERR_FATAL, 4, "%s",
                  "A fatal parity error occurred in a switching ASIC. The forwarding agent "
                  "restarted in order to recover from this error.",
                  "No action is required. If it happens again, contact support: the chip may have "
                  "to be replaced." );
HOBA_LOG_MESSAGE(
      HARDWARE_PERR_CORRECTABLE, 6, "%s",
      "A correctable parity error occurred in a switching ASIC. The affected entry will "
      "be repaired by software.",
      "No action is required." );
HOBA_LOG_MESSAGE( HARDWARE_PERR_CORRECTED, 6, "%s",
                  "Software corrected a parity error that occurred in a switching ASIC. Normal "
                  "traffic forwarding, if affected by this error, will resume.",
                  "No action is required." );
HOBA_LOG_MESSAGE( HARDWARE_PARITY_ERROR_CORRECTED_WITH_RESET, 4,
                  "Parity error %s in memory %s on %s corrected by full chip reset",
                  "Software re-initialized the blocks of the switching ASIC, causing minor traffic "
                  "loss.",
                  "No action is required." );

class HobaParityEventHelperSm : public HobaBaseSm {
   HOBA_MACHINE( HobaParityEventHelperSm );

 public:
   // The hardware begins to report parity errors, and ends. An hwInit() that throws has not begun, an
   // hwCleanup() that throws has ended.
   HOBA_REQUIRED( void, hwInit, () );
   HOBA_REQUIRED( void, hwCleanup, () );
   // Corrects one error, or schedules that. The error counts as handled also if it throws. Its message
   // has the name that it has always had: what people search for.
   HOBA_REQUIRED( void, hwHandleParityError, ( HobaParityEvent const & event ),
                  .name = "hwCorrectParityError" );

 protected:
   using HobaBaseSm::HobaBaseSm;
};

} // namespace Hoba
