// SPDX-License-Identifier: Apache-2.0
#pragma once

// show version: what runs here, and for how long.

#include "agent/Commands.h"
#include "agent/EventLoop.h"

namespace HobaAgent {

// Counts the time from this call. `loop` outlives the command's last run.
void addVersionCommand( Commands & commands, EventLoop & loop );

} // namespace HobaAgent
