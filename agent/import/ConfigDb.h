// SPDX-License-Identifier: Apache-2.0
#pragma once

// Reads configurations of the shape that many switch systems keep theirs in.
//
// The open config_db.json shape, in which all rows hold at once: an object of tables, each an object
// of rows by key ("PORTCHANNEL_MEMBER": {"PortChannel3|Ethernet1": {...}}), each an object of fields,
// whose values are strings or lists. Rows may also stand by themselves, as the stores behind the
// shape have them: "PORT|Ethernet1": {...}. Tables are taken in the order in which they build on
// each other.
//
// Files of operations, which are taken one after the other: a list of objects, each with one row and
// what is to be done with it, {"PORTCHANNEL_MEMBER:PortChannel3:Ethernet1": {...}, "OP": "SET"}. "DEL"
// takes a row away that is there and that no other refers to. The names of tables may end in
// "_TABLE".
//
// Not everything that stands in such a file has a place in this system, and files are written by
// people. So importing goes on after what it cannot take, and says of every row whether it was
// taken, and of everything that was not, why: an operator who reads the report knows what runs and
// what does not. A row is taken whole or not at all; but a field that has no place here does not
// keep its row out, except of a strict table.
//
// What is imported adds to what is configured already, and replaces what it says anew. Nothing but
// what a DEL names is removed.

#include "agent/import/Report.h"
#include "agent/import/Tables.h"

namespace Import {

// Takes what it can of the file. The lines of the report are in the order of the file, but that of
// an object goes table by table, those that are known first. Throws Kiv::ParseError, and nothing was
// changed, only when `file` is neither an object nor a list, or is an object of which no table is
// known.
Report importConfiguration( Kiv::Datum const & file, Tables const & tables );

} // namespace Import
