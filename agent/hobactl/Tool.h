// SPDX-License-Identifier: Apache-2.0
#pragma once

// The operator's tool. It knows how to talk to the agent and how to show what it answers, and nothing
// of the features: what can be shown or simulated, the agent knows. Shared tables it looks at by itself
// (Tables.h).

#include <iosfwd>

namespace Hobactl {

// Runs one command line. Results go to `out`, one line for a failure to `err`. Returns the exit
// status: 0, 1 for what the agent refused or could not be asked, 2 for a wrong command line.
int runTool( int argc, char const * const * argv, std::ostream & out, std::ostream & err );

} // namespace Hobactl
