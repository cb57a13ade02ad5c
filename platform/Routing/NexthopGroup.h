// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Value.h"

namespace Routing::NexthopGroup {

// What the entries of a configured group of next hops put around a packet.
KIV_ENUM( NexthopGroupType, std::uint32_t, nexthopGroupNone = 0, nexthopGroupIpInIp,
          nexthopGroupGre, nexthopGroupMpls, nexthopGroupMplsOverGre, nexthopGroupMplsOverUdp,
          nexthopGroupVxlan, nexthopGroupIp );

KIV_RANGED( TosValue, std::uint8_t, 0, 255, 0,
            "Routing::NexthopGroup::TosValue::value > 255 not allowed" );

} // namespace Routing::NexthopGroup
