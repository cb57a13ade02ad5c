// SPDX-License-Identifier: Apache-2.0
#pragma once

// What became of an imported configuration, row by row.

#include "Kiv/Datum.h"
#include "Kiv/Value.h"

#include <vector>

namespace Import {

KIV_ENUM( LineKind, std::uint8_t,
          // A row that was taken, and what it became.
          imported = 0,
          // A row that was taken away.
          removed,
          // About a row that was taken, but not to the letter, or that files of this shape ought
          // not to have.
          remark,
          // A row that is wrong, or does not fit what stands before it. Nothing of it was taken.
          refused,
          // A row of a table, a table, or fields in its rows, that have no place in this system.
          notImported );

// One line of the report.
struct ReportLine {
   LineKind kind;
   Kiv::String table;
   Kiv::String key;  // of the row, as it stands in the file; "" when the line is about a table
   Kiv::String what; // for people: in one line, and no longer than they can read
   char separator = '|';

   // "TABLE|key", the same way.
   Kiv::String row() const;
   // "TABLE|key: what"
   Kiv::String text() const { return row() + ": " + what; }
};

struct Report {
   std::vector< ReportLine > lines;

   std::size_t count( LineKind kind ) const;
   // "47 rows imported, 1 refused, 39 remarks, 120 not imported"
   Kiv::String summary() const;
   // What the report says of rows that were not taken to the letter, of one table or ("") of all,
   // in few lines whatever the file holds: first what was left out, last what was refused. What
   // is said of several rows of a table is said once, and of the many different things that may
   // be wrong with the rows of one table the first few.
   std::vector< Kiv::String > digest( std::string_view table = {} ) const;
};

// "1 row", "2 rows"
Kiv::String counted( std::size_t count, std::string_view one );

} // namespace Import
