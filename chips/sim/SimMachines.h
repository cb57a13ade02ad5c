// SPDX-License-Identifier: Apache-2.0
#pragma once

// The machines of the library that have hardware hooks, with those of the simulated chip.

#include "Hoba/HobaEventQueueSm.h"
#include "Hoba/HobaParityEventHelperSm.h"
#include "Kiv/ClockReactor.h"
#include "chips/sim/SimChip.h"

namespace HobaSim {

// Events of ports and stations.
class ChipEventQueueSm : public Hoba::EventQueueSm {
 public:
   // As Hoba::EventQueueSm::EventQueueSmIs(); tells `chip` whether it may report.
   static Kiv::Ptr< ChipEventQueueSm >
   ChipEventQueueSmIs( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                       Kiv::Ptr< Hoba::HobaEventQueue > const & queue,
                       Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & portStatusDir,
                       Kiv::Ptr< Chip > const & chip );
   KIV_TYPE( ChipEventQueueSm );

   void hwInit() override { chip_->reportingIs( true ); }
   void hwCleanup() override { chip_->reportingIs( false ); }

 protected:
   ChipEventQueueSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                     Kiv::Ptr< Hoba::HobaEventQueue > const & queue,
                     Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & portStatusDir,
                     Kiv::Ptr< Chip > const & chip );

 private:
   Kiv::Ptr< Chip > const chip_;
};

// Corrects parity errors: an entry is written again when the chip has had time for it; what takes a
// reset takes all errors of its slice away at once; and what nothing else helps against restarts the
// agent.
class ChipParityHelperSm : public Hoba::HobaParityEventHelperSm {
 public:
   static Kiv::Ptr< ChipParityHelperSm >
   ChipParityHelperSmIs( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                         Kiv::Ptr< ParityUnit > const & unit );
   KIV_TYPE( ChipParityHelperSm );

   // Also corrects what was found wrong when nobody could hear of it.
   void hwInit() override;
   // What is still to be corrected waits for the next hwInit().
   void hwCleanup() override { clock()->timeMinIs( Kiv::never ); }
   void hwHandleParityError( Hoba::HobaParityEvent const & event ) override;

 protected:
   ChipParityHelperSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                       Kiv::Ptr< ParityUnit > const & unit );

 private:
   // For the first correction that is due.
   void arm();
   void handleCorrectionTime();

   class KivClock : public Kiv::ClockReactor< ChipParityHelperSm,
                                              &ChipParityHelperSm::handleCorrectionTime > {};

   Kiv::Ptr< ParityUnit > const unit_;
   // The entries that are being written again, and when that is done.
   Kiv::HashMap< Hoba::ParityEvent::Key, Kiv::Seconds > due_;
   KIV_REACTOR( KivClock, clock );
};

} // namespace HobaSim
