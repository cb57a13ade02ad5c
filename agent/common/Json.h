// SPDX-License-Identifier: Apache-2.0
#pragma once

// JSON text to data and back. Integers are exact over the whole 64 bits, signed and unsigned;
// objects keep the order of their names.

#include "Kiv/Datum.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace HobaAgent {

struct JsonLimits {
   std::size_t bytes = 64 * 1024 * 1024;
   std::size_t depth = 64; // objects and lists inside each other
};

// what() is "line 3, column 14: <what is wrong>"; both count from 1, columns in bytes.
class JsonError : public Kiv::ParseError {
 public:
   JsonError( std::size_t lineNumber, std::size_t columnNumber, std::string const & whatIsWrong );

   std::size_t const line;
   std::size_t const column;
   std::string const reason;
};

// Throws JsonError for text that is not one JSON value, for names that stand twice in an object, for
// integers beyond 64 bits and for what exceeds the limits.
Kiv::Datum parseJson( std::string_view text, JsonLimits const & limits = {} );

// One line, or, with `indent`, one line for every member, so many spaces deeper with each level.
// Bytes that are not UTF-8 become replacement characters, numbers that are not finite become null.
std::string jsonText( Kiv::Datum const & value, unsigned indent = 0 );

} // namespace HobaAgent
