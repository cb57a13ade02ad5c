// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Datum.h"

#include <cstddef>
#include <string>

namespace HobaAgent {

// The content of a regular file. Throws Kiv::Exception, "<file>: <why>", if it cannot be read, is
// longer than `maxBytes`, or is something else: a directory, a pipe, a device. It never blocks.
std::string readFile( std::string const & file, std::size_t maxBytes = 64 * 1024 * 1024 );

// Replaces the content of a file. Throws Kiv::Exception, "<file>: <why>".
void writeFile( std::string const & file, std::string_view content );

// The value in a JSON file. Throws Kiv::Exception, "<file>:<line>:<column>: <what is wrong>".
Kiv::Datum parseJsonFile( std::string const & file );

} // namespace HobaAgent
