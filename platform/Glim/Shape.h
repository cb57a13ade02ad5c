// SPDX-License-Identifier: Apache-2.0
#pragma once

// The bytes of a type that this program does not know, read with the text of their shape alone
// (Schema.h).

#include "Kiv/Datum.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Glim {

class Shape {
 public:
   // Nothing for a text that is none, and for one of other values than of `bytes` bytes.
   static std::optional< Shape > parse( std::string_view text, std::size_t bytes );

   // `value` has as many bytes as were said. Enumerations are numbers; what has no kind is its bytes
   // in hexadecimal, in the order of memory, and so is a truth value that is neither true nor false.
   Kiv::Datum datum( char const * value ) const;
   // Whether there is no such truth value in it.
   bool isPossible( char const * value ) const;

 private:
   enum class Kind { boolean, isSigned, isUnsigned, real, raw, structure };

   static std::optional< Shape > take( std::string_view & rest );
   static std::optional< Shape > takeScalar( std::string_view & rest );

   Kind kind_ = Kind::raw;
   std::size_t bytes_ = 0; // of a structure: up to the end of its last field
   std::vector< Shape > fields_;
   // Of a field: within what it is a field of.
   std::string name_;
   std::size_t offset_ = 0;
};

std::string hexOf( char const * bytes, std::size_t count );

} // namespace Glim
