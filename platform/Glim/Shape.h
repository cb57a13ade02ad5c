// SPDX-License-Identifier: Apache-2.0
#pragma once

// The bytes of a type that this program does not know, read with the text of their shape alone
// (Schema.h): names, kinds and sizes in order, but not where each stands. That follows from the rules
// of alignment, except for "bytes8" and the like, whose alignment the text does not say: what fits the
// size of the whole in one way only is believed.

#include "Kiv/Datum.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Glim {

class Shape {
 public:
   // Nothing for a text that is none, and for one that does not say where its fields are in a value of
   // `bytes` bytes.
   static std::optional< Shape > parse( std::string_view text, std::size_t bytes );

   // `value` has as many bytes as were said. Enumerations are numbers; what has no kind is its bytes
   // in hexadecimal, in the order of memory.
   Kiv::Datum datum( char const * value ) const;

   std::size_t bytes() const { return bytes_; }

 private:
   enum class Kind { boolean, isSigned, isUnsigned, real, raw, structure };

   static std::optional< Shape > parseWord( std::string_view word );
   static std::optional< Shape > parseAny( std::string_view & rest );
   void rawsInto( std::vector< Shape * > & raws );
   void layOut();
   void offsetsInto( std::vector< std::size_t > & offsets ) const;

   Kind kind_ = Kind::raw;
   std::size_t bytes_ = 0;
   std::size_t alignment_ = 1;
   std::size_t offset_ = 0; // within what it is a field of
   std::vector< std::pair< std::string, Shape > > fields_;
};

std::string hexOf( char const * bytes, std::size_t count );

} // namespace Glim
