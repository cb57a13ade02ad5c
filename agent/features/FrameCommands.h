// SPDX-License-Identifier: Apache-2.0
#pragma once

// Frames that somebody sends through the simulated chip to see where they go.

#include "agent/Commands.h"
#include "chips/sim/SimChip.h"

namespace HobaAgent {

// The arguments of `sim frame`: port, destination, source; the rest is optional.
std::vector< Argument > frameArguments();

// Lets the frame that the arguments say come in on `port`. The answer has a line for each step; what
// left stands under "departures", too. Throws Kiv::ParseError for a frame that cannot be.
Kiv::Datum sendFrame( HobaSim::Chip & chip, Pelt::EthIntfId port, Request const & request );

// Plays a whole capture into the port, or begins to, and says what came of it. Throws as
// HobaSim::CaptureReplay.
Kiv::Datum playCapture( HobaSim::Chip & chip, Pelt::EthIntfId port, Request const & request );

} // namespace HobaAgent
