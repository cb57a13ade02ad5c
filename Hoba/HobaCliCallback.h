// SPDX-License-Identifier: Apache-2.0
#pragma once

// Commands of the command line that machines answer themselves. The agent finds the callback by
// name, and hands it the connection and the command.

#include "Kiv/Text.h"

#include <cstdint>
#include <vector>

namespace Hoba {

class CliCallback {
 public:
   // Enrols under `callbackName`; a callback of that name that is there already gives way to it,
   // and is found again when this one is gone. `command` is how operators call it.
   CliCallback( Kiv::String callbackName, Kiv::String command );
   virtual ~CliCallback();
   CliCallback( CliCallback const & ) = delete;
   CliCallback & operator=( CliCallback const & ) = delete;

   Kiv::String const & name() const { return name_; }
   Kiv::String const & command() const { return command_; }

   // `socket` tells the connection, and is not 0. Returns the reply, one JSON object. Throws
   // Kiv::ParseError for a command that is none of its own.
   virtual Kiv::String handleCommand( std::uint32_t socket, Kiv::String const & command ) = 0;

   // Null when there is none.
   static CliCallback * find( std::string_view callbackName );
   // In the order of their enrolment.
   static std::vector< CliCallback * > const & all();

 private:
   Kiv::String const name_;
   Kiv::String const command_;
};

} // namespace Hoba
