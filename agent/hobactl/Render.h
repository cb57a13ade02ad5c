// SPDX-License-Identifier: Apache-2.0
#pragma once

// Answers as text for people. Control characters, wherever they come from, are made visible: data
// cannot play with the terminal.

#include "Kiv/Datum.h"

#include <cstddef>
#include <string>

namespace Hobactl {

struct Style {
   std::size_t width = 0; // of the terminal, in columns; 0: no limit
   bool colour = false;
};
// For standard output: unlimited and plain unless it is a terminal ($NO_COLOR, $COLUMNS).
Style terminalStyle();

// Tables ({"columns":[...],"rows":[[...]]}) as tables, objects and lists as indented lines, all else
// as one line. Ends in a line end unless there is nothing to show.
std::string render( Kiv::Datum const & answer, Style const & style = {} );

// A table that is no wider than style.width if that can be: the widest columns give way, and their
// cells go on in further lines. Words are never broken: a table that is too wide with its longest
// words in every column runs over. Cells with something in "words" are shown as that (see
// agent/Commands.h). Numbers stand on the right. Notes follow below.
std::string renderTable( Kiv::Datum const & table, Style const & style );
bool isTable( Kiv::Datum const & answer );

// One line: strings bare, structures as JSON.
std::string oneLine( Kiv::Datum const & value );
// "2026-11-21 02:40:01.123456", UTC.
std::string timeText( Kiv::Seconds sinceEpoch );
// A trace record as one line; a change as one line.
std::string recordLine( Kiv::Datum const & record );
std::string changeLine( Kiv::Datum const & event );

} // namespace Hobactl
