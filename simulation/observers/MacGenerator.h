// SPDX-License-Identifier: Apache-2.0
#pragma once

// What happens to stations in the histories of MacObserver.

#include "simulation/Draw.h"
#include "simulation/Step.h"

namespace Simulation {

// Something that is accepted, or takes away what may not be there.
void proposeMac( Draw & draw, Steps & steps );
// All that is refused.
std::vector< Step > const & wrongMacSteps();
Step wrongMacStep( Draw & draw );

} // namespace Simulation
