// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which ports of the simulated chip make up a LAG.

#include "Pelt/IntfId.h"
#include "chips/sim/SimTable.h"

namespace HobaSim {

class TrunkUnit : public Unit {
   KIV_ENTITY( HobaSim::TrunkUnit, HobaSim::Unit );
   // By port: the LAG that it is an active member of.
   SIM_TABLE( Pelt::IntfId, Pelt::IntfId, lag );

 public:
   explicit TrunkUnit( Kiv::String const & unitName = {}, Memory const & memory = {} )
         : Unit( unitName, memory ) {}
};

} // namespace HobaSim
