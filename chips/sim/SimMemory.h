// SPDX-License-Identifier: Apache-2.0
#pragma once

// The shared memory of a simulated chip as a whole: who may have it, and whether it is that of this
// chip. It is the table "<name>.chip", which is held as long as the chip is driven, and has a row for
// the layout of all others and one for the shape of each.

#include "chips/sim/SimTable.h"

namespace HobaSim {

// What a table was when rows came into it; of the row "layout" only the version counts.
struct TableShape {
   KIV_VALUE( HobaSim::TableShape );
   KIV_FIELD( std::uint64_t, version, 0 );
   KIV_FIELD( std::uint64_t, capacity, 0 );
   KIV_FIELD( std::uint64_t, bucketSize, 0 );
};

class ChipMemory {
 public:
   // The version of what the tables of all units together mean. A new one for every change that the
   // types of keys and records do not tell.
   static constexpr std::uint64_t version = 1;

   // So that the names of all tables are names of tables.
   static constexpr std::size_t maxNameLength = 32;

   // Nothing for memory without a name. Throws Glim::Error, in one line: the name is none, another agent drives the chip,
   // or the memory is damaged or of another version, and is not to begin cold.
   explicit ChipMemory( Memory const & memory );

   // Whether nothing was there to go on with.
   bool isFresh() const { return !forUnits_.whole; }
   // What to open the tables of the units with.
   Memory const & forUnits() const { return forUnits_; }
   // All tables are there now.
   void complete();
   // The one line for what a table threw.
   Glim::Error faultOf( Glim::Error const & error ) const;

   // Throws Glim::Error if tables were filled when there was room for others; else remembers how much
   // room there is now.
   void checkCapacities( std::vector< RowsBase const * > const & tables );

 private:
   Kiv::String const name_;
   Memory forUnits_;
   std::unique_ptr< Glim::TableWriter< Name, TableShape > > shapes_;
};

} // namespace HobaSim
