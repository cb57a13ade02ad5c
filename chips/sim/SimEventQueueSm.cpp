// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimEventQueueSm.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( HobaSim::ChipEventQueueSm );

namespace HobaSim {

ChipEventQueueSm::ChipEventQueueSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                                    Kiv::Ptr< Hoba::HobaEventQueue > const & queue,
                                    Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & portStatusDir,
                                    Kiv::Ptr< Chip > const & chip )
      : EventQueueSm( commonSmData, queue, portStatusDir ), chip_( chip ) {}

} // namespace HobaSim
