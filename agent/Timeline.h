// SPDX-License-Identifier: Apache-2.0
#pragma once

// What was recorded of the event loop, for people and for viewers.

#include "Kiv/Datum.h"
#include "Kiv/DispatchRecorder.h"

namespace HobaAgent {

// The last `count` inputs, each with all that followed from it, and with the first of the timers that
// fired behind it: what it armed is among them. Without any input, the last `count` timers. A table:
// when, since the input, and how long, in microseconds; what, indented by depth.
Kiv::Datum causalTree( Kiv::DispatchRecorder const & recorder, std::size_t count );

// All that is recorded, in the JSON form of trace events that trace viewers open:
// {"traceEvents":[...]}, times in microseconds. Events of one kind have one short name; which entity
// it was, and the values, are arguments.
Kiv::Datum traceEvents( Kiv::DispatchRecorder const & recorder );

} // namespace HobaAgent
