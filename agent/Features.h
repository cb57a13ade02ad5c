// SPDX-License-Identifier: Apache-2.0
#pragma once

// What this agent does for the switch: the entities it mounts, its machines, the chip they program,
// and the commands about all of these. The rest of the agent knows none of them.

#include "Tessera/Database.h"
#include "agent/Commands.h"
#include "agent/ImportCommands.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace HobaAgent {

class Switch;

class Features {
 public:
   // Makes the machines, which do nothing yet, mounts the entities and adds the commands. `restart`
   // is called when a machine finds that only a restart of the agent helps.
   Features( Tessera::Database & database, Commands & commands,
             std::function< void( Kiv::String const & reason ) > restart );
   // What is mounted goes, then the machines.
   ~Features();
   Features( Features const & ) = delete;
   Features & operator=( Features const & ) = delete;

   // As Imports::take.
   std::vector< Kiv::String > importConfigDb( Kiv::Datum const & file );

   // The configuration is complete: the machines begin.
   void start();

 private:
   Tessera::Database & database_;
   Imports imports_;
   std::unique_ptr< Switch > switch_;
};

} // namespace HobaAgent
