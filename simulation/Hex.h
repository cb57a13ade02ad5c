// SPDX-License-Identifier: Apache-2.0
#pragma once

// Octets as steps and answers have them: two hexadecimal digits each.

#include "Kiv/Text.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace Simulation {

Kiv::String hexOf( std::span< std::uint8_t const > octets );
// Nothing for a text that is none.
std::optional< std::vector< std::uint8_t > > octetsIn( Kiv::String const & hex );

} // namespace Simulation
