// SPDX-License-Identifier: Apache-2.0
#pragma once

// `show tables`: the shared tables of this machine, as they are in memory. No agent is asked: it works
// just as well when the agent, or whoever else wrote a table, is dead.
//
//    show tables                what there is, one line a table
//    show tables NAME           all about one
//    show tables --dump NAME    its rows

#include "agent/hobactl/Render.h"

#include <ostream>
#include <string>
#include <vector>

namespace Hobactl {

// Whether these words behind `show` are for here.
bool isAboutTables( std::vector< std::string > const & words );

// Answers them: text for people, or JSON. Throws Kiv::Exception for words that it has no use for, and
// for a table that is not there or, for its rows, that cannot be read.
void showTables( std::vector< std::string > const & words, bool json, Style const & style,
                 std::ostream & out );

// What may follow the words "show" or "show tables", for the shell; nothing behind others.
std::vector< std::string > nextWordsForTables( std::string const & words );

// The agent's help with the help of these; of nothing, these alone.
Kiv::Datum withHelpForTables( Kiv::Datum const & help );

} // namespace Hobactl
