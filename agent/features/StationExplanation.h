// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Hoba/HobaMacAddrSm.h"
#include "agent/features/Board.h"

namespace HobaAgent {

// Why a station is where it is, or is not: who claims it, what beat whom, what is decided and what it waits for,
// and what the chip holds. A table with notes.
Kiv::Datum explainStation( Board const & board, Hoba::MacAddrSm const & sm,
                           Bridging::MacVlanPair station );

// What a change waits for: "room", "its turn", ...
Kiv::String waitText( Hoba::ModifyMacEntry const & change );

} // namespace HobaAgent
