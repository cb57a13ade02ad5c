// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Value.h"

namespace Hoba {

KIV_RANGED( Percent, std::uint8_t, 0, 100, 0,
            "Hoba::Percent::value < Hoba::Percent::min or > Hoba::Percent::max not allowed" );

} // namespace Hoba
