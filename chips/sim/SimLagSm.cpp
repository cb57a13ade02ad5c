// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimLagSm.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( HobaSim::ChipLagSm );

namespace HobaSim {

ChipLagSm::ChipLagSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                      Kiv::Ptr< TrunkUnit > const & unit )
      : HobaBaseSm( commonSmData ), unit_( unit ) {
   clockIs( Kiv::make< Kiv::Clock >() );
   portToLagIs( commonSmData );
}

void
ChipLagSm::handleInitialized() {
   if( initialized() ) {
      unit_->beginPass();
      reactorsInitialize();
   } else {
      reactorsUninitialize();
      clock()->timeMinIs( Kiv::never );
   }
}

void
ChipLagSm::handlePortToLag( Pelt::IntfId const & port ) {
   try {
      if( auto const lag = commonSmData()->portToLag( port ) ) {
         unit_->lagMustProgram( port, lag );
      } else {
         unit_->lagMustClear( port );
      }
   } catch( ... ) {
      refusedIs( port, Kiv::exceptionText() );
      clock()->noLaterThan( clock()->now() + retryDelay );
      throw;
   }
   refusedDel( port );
}

void
ChipLagSm::handleRetryTime() {
   for( auto const & port : Kiv::keysOf( refused() ) ) {
      try {
         handlePortToLag( port );
      } catch( Kiv::Exception const & ) {
         // It was told when it was refused first.
      }
   }
}

} // namespace HobaSim
