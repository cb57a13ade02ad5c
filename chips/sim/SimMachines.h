// SPDX-License-Identifier: Apache-2.0
#pragma once

// The machines of the library that have hardware hooks, with those of the simulated chip.

#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaCommon.h"
#include "Hoba/HobaEventQueueSm.h"
#include "Hoba/HobaParityEventHelperSm.h"
#include "Kiv/ClockReactor.h"
#include "chips/sim/SimChip.h"

namespace HobaSim {

// Events of ports and stations.
class ChipEventQueueSm : public Hoba::EventQueueSm {
   HOBA_MACHINE( ChipEventQueueSm, Hoba::EventQueueSm );

 public:
   void hwInit() override { chip_->reportingIs( true ); }
   void hwCleanup() override { chip_->reportingIs( false ); }

 protected:
   // As Hoba::EventQueueSm; tells `chip` whether it may report.
   ChipEventQueueSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                     Kiv::Ptr< Hoba::HobaEventQueue > const & queue,
                     Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & portStatusDir,
                     Kiv::Ptr< Chip > const & chip );

 private:
   Kiv::Ptr< Chip > const chip_;
};

// Tells the chip which ports make up a LAG. What the chip refuses is tried again until it takes it.
class ChipLagSm : public Hoba::HobaBaseSm {
   HOBA_MACHINE( ChipLagSm );
   // By port: why the chip refused what it was told last.
   KIV_COLLECTION( Pelt::IntfId, Kiv::String, refused );

 public:
   static constexpr Kiv::Seconds retryDelay = 1;

   void handleInitialized() override;

 protected:
   // Watches the context, and tells `unit`. Its clock is one of its own, on the ambient driver.
   ChipLagSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
              Kiv::Ptr< TrunkUnit > const & unit );

 private:
   void handlePortToLag( Pelt::IntfId const & port );
   void handleRetryTime();

   class KivPortToLag : public Kiv::Hears< ChipLagSm, Hoba::HobaCommonSmData,
                                           Kiv::OnceReady< Hoba::HobaCommonSmData::portToLagAttr,
                                                           &ChipLagSm::handlePortToLag > > {};
   class KivClock : public Kiv::ClockReactor< ChipLagSm, &ChipLagSm::handleRetryTime > {};

   Kiv::Ptr< TrunkUnit > const unit_;
   KIV_REACTOR( KivClock, clock );
   KIV_REACTOR( KivPortToLag, portToLag );
};

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
