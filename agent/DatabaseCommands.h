// SPDX-License-Identifier: Apache-2.0
#pragma once

// get, set, del, apply, list, complete, watch: the state database from outside.

#include "Tessera/Database.h"
#include "agent/Commands.h"
#include "agent/EventLoop.h"

namespace HobaAgent {

// All three outlive the commands' last run.
void addDatabaseCommands( Commands & commands, Tessera::Database & database, EventLoop & loop );

// The paths that the beginning of a path may become, each with a slash behind it if more may follow.
// Empty when the path leads nowhere. At most `limit` of them.
std::vector< Kiv::String > completions( Tessera::Database const & database, std::string_view text,
                                        std::size_t limit = 1000 );

} // namespace HobaAgent
