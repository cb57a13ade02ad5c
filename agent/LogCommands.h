// SPDX-License-Identifier: Apache-2.0
#pragma once

// logs: the system log messages that were emitted, and all that there are.

#include "agent/Commands.h"

namespace HobaAgent {

void addLogCommands( Commands & commands );

} // namespace HobaAgent
