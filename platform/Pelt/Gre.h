// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Value.h"

namespace Pelt {

// What stands in the key of a GRE header (RFC 2890).
KIV_ENUM( GreKeyType, std::uint8_t, greKeyNone = 0, // the header has none
          greKeyConstant, greKeyIngressIntf );

} // namespace Pelt
