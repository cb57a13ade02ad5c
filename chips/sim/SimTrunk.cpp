// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimTrunk.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( HobaSim::TrunkUnit );
