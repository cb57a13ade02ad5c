// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Hoba/HobaMacAddrSm.h"
#include "agent/features/Board.h"
#include "chips/sim/SimMacProgrammer.h"

namespace HobaAgent {

// Why a station is where it is, or is not: who claims it, what beat whom, what is decided and what it waits for,
// and what the chip holds. A table with notes.
Kiv::Datum explainStation( Board const & board, Hoba::MacAddrSm const & sm,
                           Bridging::MacVlanPair station );

// What a change waits for: "room", "its turn", ...
Kiv::String waitText( Hoba::ModifyMacEntry const & change );

// Where the chip's pipeline has the station: "being programmed", "waits for room, ...", "failed", "not answered ...";
// empty if it has nothing of it.
Kiv::String pipelineText( HobaSim::MacProgrammer const * programmer,
                          Bridging::MacVlanPair station );
Kiv::String pipelineText( HobaSim::MacProgrammer const & programmer,
                          Hoba::IndirectAccessMacCmd const & cmd );

} // namespace HobaAgent
