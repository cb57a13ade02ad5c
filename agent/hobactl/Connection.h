// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Datum.h"
#include "agent/common/Socket.h"

#include <functional>
#include <string>

namespace Hobactl {

// A connection to the agent. Every operation throws Kiv::Exception with one line for the operator:
// what the agent refused, or what happened to the connection.
class Connection {
 public:
   // `timeout` in seconds: how long an answer may take. `warned` is called with what the agent has to
   // say of something that it did, but not without fault.
   using Warned = std::function< void( Kiv::Datum const & warning ) >;
   Connection( std::string const & socketPath, double timeout, Warned warned );

   // Sends a request (an object, without an id) and waits for its answer.
   Kiv::Datum ask( Kiv::Datum const & request );
   // Calls `take` with every event that follows a request, until the agent ends the connection.
   void events( std::function< void( Kiv::Datum const & ) > const & take );

 private:
   void sendAll( std::string_view text );
   // The next line as data; waits for as long as it takes if `timeout` is negative.
   Kiv::Datum nextLine( double timeout );

   HobaAgent::Fd fd_;
   double timeout_;
   Warned warned_;
   std::string input_;
   std::size_t taken_ = 0; // bytes at the front of input_ that have been looked at
};

} // namespace Hobactl
