// SPDX-License-Identifier: Apache-2.0
#pragma once

// trace, trace handles, trace levels, trace record, trace tree, trace export, types: looking inside.

#include "Kiv/DispatchRecorder.h"
#include "agent/Commands.h"

namespace HobaAgent {

// As many events as are kept of what the event loop did.
inline constexpr std::size_t recordedEvents = 100'000;

// `recorder` outlives the commands' last run.
void addTraceCommands( Commands & commands, Kiv::DispatchRecorder & recorder );

} // namespace HobaAgent
