// SPDX-License-Identifier: Apache-2.0
#pragma once

// The simulated switch chip, whole: one entity per unit.

#include "chips/sim/SimCapture.h"
#include "chips/sim/SimMac.h"
#include "chips/sim/SimParity.h"
#include "chips/sim/SimStormControl.h"

namespace HobaSim {

class Chip : public Kiv::Entity {
   KIV_ENTITY( HobaSim::Chip );
   KIV_CHILD( StormUnit, stormControl );
   KIV_CHILD( EventUnit, events );
   KIV_CHILD( MacUnit, mac );
   KIV_CHILD( ParityUnit, parity );
   // Brings packet captures to `mac`.
   KIV_CHILD( CaptureReplay, capture );

 public:
   explicit Chip( Kiv::String const & chipName = "sim" );

   // From now on the chip reports ports and stations, beginning with all that it holds; or nothing.
   void reportingIs( bool reporting );
};

} // namespace HobaSim
