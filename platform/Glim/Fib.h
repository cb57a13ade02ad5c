// SPDX-License-Identifier: Apache-2.0
#pragma once

// The names of what processes that forward have in common.

#include "Kiv/Value.h"

namespace Glim::Fib {

// A FEC: what packets that are forwarded alike have in common. 0 is none. FecId is its number at who made
// it, GlobalFecId that in the whole agent.
KIV_RANGED( FecId, std::uint64_t, 0, 9223372036854775807, 0,
            "Glim::Fib::FecId::value > 9223372036854775807 not allowed" );
KIV_RANGED( GlobalFecId, std::uint64_t, 0, 9223372036854775807, 0,
            "Glim::Fib::GlobalFecId::value > 9223372036854775807 not allowed" );

} // namespace Glim::Fib
