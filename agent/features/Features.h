// SPDX-License-Identifier: Apache-2.0
#pragma once

// All features of this agent, in their order, and the life of their machines. The rest of the agent
// knows none of them.

#include "agent/ImportCommands.h"
#include "agent/features/Board.h"
#include "agent/features/Restarts.h"

#include <memory>
#include <span>

namespace HobaAgent {

class Feature;
using MakeFeature = std::unique_ptr< Feature > ( * )( Board & );
// Those of this agent, in their order.
std::span< MakeFeature const > allFeatures();

class Features {
 public:
   // Makes the features, mounts what they keep in the state database, and adds their commands. No
   // machine is there yet.
   Features( Tessera::Database & database, Commands & commands,
             Kiv::Ptr< HobaSim::Chip > const & chip, Board::Restart restart,
             std::span< MakeFeature const > makers = allFeatures() );
   // The machines go, then what is mounted.
   ~Features();
   Features( Features const & ) = delete;
   Features & operator=( Features const & ) = delete;

   // The configuration is complete: the machines begin; cold, and not for the first time, on a chip
   // that forgets everything before. What the chip holds and nobody has asked for when all have, is
   // swept, unless a step has failed meanwhile. Throws what a feature throws, or the chip: then no
   // machine runs.
   void start( RestartKind kind );
   // The machines go; chip and state database stay.
   void stop();

   Board & board() { return board_; }
   Restarts const & restarts() const { return restarts_; }
   Imports & imports() { return imports_; }

 private:
   void addRestartCommands( Commands & commands );
   void begin();
   void settle();
   // So much since it was last asked, upon which feature.
   void wrote( char const * feature );

   Board board_;
   Restarts restarts_;
   bool starting_ = false;
   std::uint64_t writesSeen_ = 0;   // by the chip, when last asked
   std::uint64_t failuresSeen_ = 0; // steps that had failed when the machines began
   std::vector< std::unique_ptr< Feature > > features_;
   Imports imports_;
};

} // namespace HobaAgent
