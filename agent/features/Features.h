// SPDX-License-Identifier: Apache-2.0
#pragma once

// All features of this agent, in their order, and the life of their machines. The rest of the agent
// knows none of them.

#include "agent/features/Board.h"
#include "agent/features/Restarts.h"

#include <memory>

namespace Import {
class Tables;
struct ConfigDbImport;
} // namespace Import

namespace HobaAgent {

class Commands;
class Feature;

class Features {
 public:
   // Makes the features, mounts what they keep in the state database, and adds their commands. No
   // machine is there yet.
   Features( Tessera::Database & database, Commands & commands,
             Kiv::Ptr< HobaSim::Chip > const & chip, Board::Restart restart );
   // The machines go, then what is mounted.
   ~Features();
   Features( Features const & ) = delete;
   Features & operator=( Features const & ) = delete;

   // Adds what can be taken over from a file of the config_db.json shape. Returns what the operator
   // should know of the rest, in few lines: `show import` has every row. Throws Kiv::ParseError if
   // it is no such file, or has nothing that is known here.
   std::vector< Kiv::String > importConfigDb( Kiv::Datum const & file );

   // The configuration is complete: the machines begin. What the chip holds and nobody has asked for
   // when all have, is swept. Throws what a feature throws: then no machine runs.
   void start( RestartKind kind );
   // The machines go; chip and state database stay.
   void stop();

   Board & board() { return board_; }
   Restarts const & restarts() const { return restarts_; }

 private:
   void addRestartCommands( Commands & commands );
   void addImportCommands( Commands & commands );
   void begin();
   void settle();
   // So much since it was last asked, upon which feature.
   void wrote( char const * feature );

   Board board_;
   Restarts restarts_;
   bool starting_ = false;
   std::uint64_t writesSeen_ = 0; // by the chip, when last asked
   std::vector< std::unique_ptr< Feature > > features_;
   std::unique_ptr< Import::Tables > const tables_;
   std::unique_ptr< Import::ConfigDbImport > imported_; // what `show import` shows
};

} // namespace HobaAgent
