// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Value.h"

namespace Bridging {

KIV_RANGED( VlanId, std::uint16_t, 1, 4094, 1,
            "Bridging::VlanId::value < 1 or > 4094 not allowed" );

// A VLAN, or 0 for none.
KIV_RANGED( VlanIdOrNone, std::uint16_t, 0, 4094, 0,
            "Bridging::VlanIdOrNone::value > 4094 not allowed" );

} // namespace Bridging
