// SPDX-License-Identifier: Apache-2.0
#pragma once

// The operator's tool. It knows how to talk to the agent and how to show what it answers, and nothing
// of the features: what can be shown or simulated, the agent knows. Shared tables it looks at by itself
// (Tables.h).

#include <iosfwd>

namespace Hobactl {

// The exit statuses.
enum Status : int {
   statusDone = 0,
   statusFailed = 1, // the agent refused it or could not be asked, or the output cannot be written
   statusCommandLine = 2, // the command line is wrong; nobody was asked
   statusDoneBut = 3,     // done, but the hardware differs (verify), or steps failed upon it
};

// Runs one command line. Results go to `out`, one line for a failure or a warning to `err`. Returns a
// Status.
int runTool( int argc, char const * const * argv, std::ostream & out, std::ostream & err );

} // namespace Hobactl
