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

// The last `count` causes that came from nothing else (an input, a timer), each with all that
// followed from it, as a table: when, how long in microseconds, what, indented by depth.
Kiv::Datum causalTree( Kiv::DispatchRecorder const & recorder, std::size_t count );

// What is recorded, in the JSON form of trace events that
// trace viewers open: {"traceEvents":[...]}, times in microseconds.
Kiv::Datum traceEvents( Kiv::DispatchRecorder const & recorder );

} // namespace HobaAgent
