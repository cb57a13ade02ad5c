// SPDX-License-Identifier: Apache-2.0
#pragma once

// Whether frames from or to a station are dropped.

#include "Kiv/Value.h"

namespace Bridging {

KIV_ENUM( DropMode, std::uint8_t, dropModeNone = 0, dropModeSrc, dropModeDst, dropModeBoth );

constexpr bool
dropsFrom( DropMode mode ) {
   return mode == dropModeSrc || mode == dropModeBoth;
}
constexpr bool
dropsTo( DropMode mode ) {
   return mode == dropModeDst || mode == dropModeBoth;
}

} // namespace Bridging
