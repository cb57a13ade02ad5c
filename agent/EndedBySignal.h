// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <csignal>
#include <initializer_list>
#include <string>

namespace HobaAgent {

// While it lives, any of `signals` ends the process on the spot, with status 0, wherever it is: for
// work that the event loop does not get to interrupt. What must not stay behind is the one file
// that it is told. Signals that were blocked, and waited, come at once; afterwards they are blocked
// again and wait for whoever reads them. One at a time, on the main thread.
class EndedBySignal {
 public:
   // Throws Kiv::Exception for a path that is too long to be a socket's.
   EndedBySignal( std::initializer_list< int > signals, std::string const & fileToRemove );
   ~EndedBySignal();
   EndedBySignal( EndedBySignal const & ) = delete;
   EndedBySignal & operator=( EndedBySignal const & ) = delete;

 private:
   sigset_t signals_;
};

} // namespace HobaAgent
