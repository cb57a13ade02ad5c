// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Text.h"

#include <string_view>
#include <vector>

namespace Tessera {

// The one of `known` that is a slip of the finger away from `name`; null if none is, or if `name` ends
// in a number: such names are near each other, and each of them is somebody's port.
Kiv::String const * nearest( std::string_view name, std::vector< Kiv::String > const & known );

// For messages about a name that is not there: `did you mean "broadcast"?` when one of `known` is
// a slip of the finger away from `name`, else `there are a, b, c` (the first ones of many), else
// `there is nothing here`.
Kiv::String suggestion( std::string_view name, std::vector< Kiv::String > const & known );

} // namespace Tessera
