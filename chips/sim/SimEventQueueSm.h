// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Hoba/HobaEventQueueSm.h"
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

} // namespace HobaSim
