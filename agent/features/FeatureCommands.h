// SPDX-License-Identifier: Apache-2.0
#pragma once

// The commands of the features, one file each.

#include "agent/Commands.h"
#include "agent/features/Switch.h"

namespace HobaAgent {

// `notes` tells what the import of a configuration had to say of storm control.
void addStormControlCommands( Commands & commands, Switch & sw,
                              std::function< std::vector< Kiv::String >() > notes );
// show interfaces, show lag
void addInterfaceCommands( Commands & commands, Switch & sw );
// sim link, speed, lag, drop, limit
void addSimCommands( Commands & commands, Switch & sw );
void addVerifyCommand( Commands & commands );
void addLogCommands( Commands & commands );

// "10 Gb/s"; "unknown" for 0.
Kiv::String speedText( std::uint64_t kbps );

} // namespace HobaAgent
