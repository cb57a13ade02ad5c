// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimChip.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( HobaSim::Chip );

namespace HobaSim {

Chip::Chip( Kiv::String const & chipName ) : Entity( chipName ) {
   stormControlIs( "stormControl" );
   eventsIs( "events" );
   macIs( Kiv::make< MacUnit >( "mac", events() ) );
   parityIs( "parity" );
   captureIs( Kiv::make< CaptureReplay >( "capture", mac() ) );
}

void
Chip::reportingIs( bool reporting ) {
   events()->reportingIs( reporting );
   if( reporting ) {
      events()->reportPorts();
      mac()->reportHosts();
   }
}

} // namespace HobaSim
