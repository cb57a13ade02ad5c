// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimChip.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( HobaSim::Chip );

namespace HobaSim {

Chip::Chip( Kiv::String const & chipName ) : Entity( chipName ) {
   stormControlIs( "stormControl" );
   macIs( "mac" );
   parityIs( "parity" );
   captureIs( Kiv::make< CaptureReplay >( "capture", mac() ) );
}

} // namespace HobaSim
