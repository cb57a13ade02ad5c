// SPDX-License-Identifier: Apache-2.0
#pragma once

// Faults of the chip's tables, for the generators of features whose machines get over them: writes that
// are refused or land later, and tables that are too small for a while.

#include "simulation/Draw.h"
#include "simulation/Step.h"

#include <set>

namespace Simulation {

class TableFaults {
 public:
   // Of these tables, by path: "/sim/chip/trunk/lagTable".
   explicit TableFaults( std::vector< Kiv::String > tables ) : tables_( std::move( tables ) ) {}

   // A fault in one of the tables, from now on until heal().
   void propose( Draw & draw, Steps & steps ) const;
   // Whether the step is one of these; all such are accepted.
   bool isMine( Step const & step ) const;
   void heard( Step const & step );
   // What ends all faults that were heard of.
   Steps heal();
   // There are faults at work.
   bool any() const { return !changed_.empty(); }

 private:
   std::vector< Kiv::String > const tables_;
   std::set< Kiv::String > changed_; // paths, each with 0 for none
};

} // namespace Simulation
