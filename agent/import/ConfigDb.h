// SPDX-License-Identifier: Apache-2.0
#pragma once

// Reads the open config_db.json shape that many switch systems keep their configuration in: an
// object of tables, each an object of rows by key ("PORTCHANNEL_MEMBER": {"PortChannel3|Ethernet1":
// {...}}), each an object of fields, whose values are strings or lists. Rows may also stand by
// themselves, as the stores behind the shape have them: "PORT|Ethernet1": {...}.
//
// Not everything that stands in such a file has a place in this system, and files are written by
// people. So importing goes on after what it cannot take, and says of every row whether it was
// taken, and of everything that was not, why: an operator who reads the report knows what runs and
// what does not. A row is taken whole or not at all; but a field that has no place here does not
// keep its row out.
//
//    auto import = Import::importConfigDb( file, targets );    // changes nothing
//    for( auto const & line : import.report ) ...              // line.kind, line.text()
//    import.apply();
//
// What is imported adds to what is configured already, and replaces what it says anew. Nothing is
// removed.

#include "Bridging/StormControl.h"
#include "Hoba/HobaCommon.h"
#include "Kiv/Datum.h"
#include "Lag/Lag.h"
#include "agent/feeders/FeederConfig.h"

#include <functional>

namespace Import {

// What is written, and what the rows of a file may refer to. All are needed.
struct ConfigDbTargets {
   Kiv::Ptr< Feeders::Config > feeders;
   Kiv::Ptr< Lag::Input::Config > lagInput;
   Kiv::Ptr< Bridging::StormControl::Config > stormControl;
   // For vlanStatus.
   Kiv::Ptr< Hoba::HobaCommonSmData > commonSmData;
};

KIV_ENUM( LineKind, std::uint8_t,
          // A row that was taken, and what it became.
          imported = 0,
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

   // "TABLE|key", the same way.
   Kiv::String row() const;
   // "TABLE|key: what"
   Kiv::String text() const { return row() + ": " + what; }
};

// A change that has been checked.
struct Operation {
   Kiv::String text;
   std::function< void() > apply;
};

struct ConfigDbImport {
   // Table by table: those that are mapped, in the order in which they build on each other, then
   // the others in the order of the file. Rows are in the order of the file.
   std::vector< ReportLine > report;
   std::vector< Operation > operations;

   // Makes the changes, in order. It cannot fail while the targets are as they were when they were
   // checked. Making them again changes nothing.
   void apply() const;

   std::size_t count( LineKind kind ) const;
   // "47 rows imported, 1 refused, 39 remarks, 120 not imported"
   Kiv::String summary() const;
   // What the report says of rows that were not taken to the letter, of one table or ("") of all,
   // in few lines whatever the file holds: first what was left out, last what was refused. What
   // is said of several rows of a table is said once, and of the many different things that may
   // be wrong with the rows of one table the first few.
   std::vector< Kiv::String > digest( std::string_view table = {} ) const;
};

// Checks the file against itself and against the targets, and changes nothing. Throws
// Kiv::ParseError only when `file` is no object of tables at all, or has none of the tables that
// this system knows.
ConfigDbImport importConfigDb( Kiv::Datum const & file, ConfigDbTargets const & targets );

} // namespace Import
