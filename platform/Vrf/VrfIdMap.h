// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Value.h"

namespace Vrf::VrfIdMap {

// The number of a VRF where addresses are resolved.
KIV_RANGED( VrfId, std::uint32_t, 0, 4294967295, 0,
            "Vrf::VrfIdMap::VrfId::value > 4294967295 not allowed" );

} // namespace Vrf::VrfIdMap
