// SPDX-License-Identifier: Apache-2.0
#pragma once

// import, show import: configurations of other systems, taken over into a running agent or before
// it begins.

#include "agent/Commands.h"
#include "agent/import/Report.h"
#include "agent/import/Tables.h"

namespace HobaAgent {

class Imports {
 public:
   // Adds the commands, which must not be run when this is gone.
   explicit Imports( Commands & commands );
   Imports( Imports const & ) = delete;
   Imports & operator=( Imports const & ) = delete;

   // The features add theirs.
   Import::Tables & tables() { return tables_; }

   // Takes what it can of a file, as Import::importConfiguration does. Returns what the operator
   // should know of the rest, in few lines, the last of which sums up: `show import` has every row.
   std::vector< Kiv::String > take( Kiv::Datum const & file );

   // What became of the file that was taken last.
   Import::Report const & last() const { return last_; }

 private:
   Kiv::Datum show() const;

   Import::Tables tables_;
   Import::Report last_;
};

} // namespace HobaAgent
