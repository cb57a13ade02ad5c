// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimLagSm.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( HobaSim::ChipLagSm );

namespace HobaSim {

ChipLagSm::ChipLagSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                      Kiv::Ptr< TrunkUnit > const & unit )
      : HobaBaseSm( commonSmData ), unit_( unit ) {
   portToLagIs( commonSmData );
}

void
ChipLagSm::handleInitialized() {
   if( initialized() ) {
      unit_->beginPass();
      reactorsInitialize();
   } else {
      reactorsUninitialize();
   }
}

void
ChipLagSm::handlePortToLag( Pelt::IntfId const & port ) {
   if( auto const lag = commonSmData()->portToLag( port ) ) {
      unit_->lagMustProgram( port, lag );
   } else {
      unit_->lagMustClear( port );
   }
}

} // namespace HobaSim
