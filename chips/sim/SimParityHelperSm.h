// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Hoba/HobaParityEventHelperSm.h"
#include "Kiv/ClockReactor.h"
#include "chips/sim/SimParity.h"

namespace HobaSim {

// Corrects parity errors: an entry is written again when the chip has had time for it; what takes a
// reset takes all errors of its slice away at once; and what nothing else helps against restarts the
// agent.
class ChipParityHelperSm : public Hoba::HobaParityEventHelperSm {
   HOBA_MACHINE( ChipParityHelperSm, Hoba::HobaParityEventHelperSm );
   // The entries that are being written again, and when that is done.
   KIV_COLLECTION( Hoba::ParityEvent::Key, Kiv::Seconds, due );

 public:
   // Also corrects what was found wrong when nobody could hear of it.
   void hwInit() override;
   // What is still to be corrected waits for the next hwInit().
   void hwCleanup() override { clock()->timeMinIs( Kiv::never ); }
   void hwHandleParityError( Hoba::HobaParityEvent const & event ) override;

 protected:
   // Its clock is one of its own, on the ambient driver.
   ChipParityHelperSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                       Kiv::Ptr< ParityUnit > const & unit );

 private:
   // For the first correction that is due.
   void arm();
   void handleCorrectionTime();

   class KivClock : public Kiv::ClockReactor< ChipParityHelperSm,
                                              &ChipParityHelperSm::handleCorrectionTime > {};

   Kiv::Ptr< ParityUnit > const unit_;
   KIV_REACTOR( KivClock, clock );
};

} // namespace HobaSim
