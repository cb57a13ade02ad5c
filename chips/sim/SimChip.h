// SPDX-License-Identifier: Apache-2.0
#pragma once

// The simulated switch chip, whole: one entity per unit.

#include "chips/sim/SimStormControl.h"

namespace HobaSim {

class Chip : public Kiv::Entity {
   KIV_ENTITY( HobaSim::Chip );
   KIV_CHILD( StormUnit, stormControl );

 public:
   explicit Chip( Kiv::String const & chipName = "sim" );
};

} // namespace HobaSim
