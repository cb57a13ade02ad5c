// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the pipeline of a MAC table that answers later shows of itself, for observers, who know nothing of machines.

#include "Bridging/MacVlanPair.h"
#include "simulation/Switch.h"

namespace Hoba {
class HobaMacProgrammer;
}

namespace Simulation {

class MacPipeline {
 public:
   using Pair = Bridging::MacVlanPair;

   explicit MacPipeline( Switch const & simulated ) : simulated_( simulated ) {}

   static char const * path() { return "/hoba/machines/macProgrammer"; }
   // Whether the table is written by one; the following is false, or empty, if not.
   bool isThere() const;
   // Where a station's newest command is, if it has one that has not failed: it will come to its end by itself, or
   // waits for somebody.
   enum Way { none, underWay, waits };
   Way wayOf( Pair pair ) const;
   // Whether there is a flush; whether it will come to its end.
   bool hasFlush() const;
   bool isFlushUnderWay() const;
   // Any command, of a station or not: under way; written and not finished; waiting for room; of a station, and failed.
   bool anyUnderWay() const;
   bool anyInProgress() const;
   bool anyInOverflow() const;
   bool anyFailed() const;
   // How many are one of the last three.
   std::size_t unfinished() const;
   // Whether any has not come to its end.
   bool anyLeft() const { return anyUnderWay() || anyInProgress() || anyInOverflow(); }
   bool isSuspended() const;
   // What must not be (MacProgrammerCheck.h).
   std::vector< std::string > faults() const;

 private:
   Kiv::Ptr< Hoba::HobaMacProgrammer const > machine() const;

   Switch const & simulated_;
};

} // namespace Simulation
