// SPDX-License-Identifier: Apache-2.0
#pragma once

// Sequence numbers that wrap around: 4294967295 is followed by 0.

#include "Kiv/Hash.h"
#include "Kiv/Text.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace Mox {

// One number precedes another when the way up from it to the other, through the wrap if need be,
// is shorter than half the range (2^31). Two numbers exactly half the range apart are unordered:
// neither precedes the other.
//
// So the order is meaningful among numbers that lie within half the range of each other, as the
// recent ones of one counter do. Over the whole range it is not transitive (0, 2^30, 2^31 and
// 3 * 2^30 each precede the next one, and the last precedes the first): no strict weak order, so
// never a key of an ordered container nor a sort criterion for arbitrary numbers.
class Seqno32 {
 public:
   constexpr Seqno32() = default;
   constexpr explicit Seqno32( std::uint32_t value ) : value_( value ) {}

   constexpr std::uint32_t value() const { return value_; }

   // Goes up by `count`, wrapping around, and returns the new number.
   constexpr Seqno32 inc( std::uint32_t count = 1 ) {
      value_ += count;
      return *this;
   }

   constexpr bool precedes( Seqno32 other ) const {
      return static_cast< std::int32_t >( other.value_ - value_ ) > 0;
   }

   // a < b is a.precedes( b ), with everything said above.
   friend constexpr std::partial_ordering operator<=>( Seqno32 a, Seqno32 b ) {
      if( a.value_ == b.value_ )
         return std::partial_ordering::equivalent;
      if( a.precedes( b ) )
         return std::partial_ordering::less;
      return b.precedes( a ) ? std::partial_ordering::greater : std::partial_ordering::unordered;
   }
   friend constexpr bool operator==( Seqno32 a, Seqno32 b ) = default;

   std::size_t hash() const { return Kiv::hashOf( value_ ); }

   // The printed form is the plain decimal number. parse() throws Kiv::ParseError for anything
   // but 0 to 4294967295.
   void print( std::string & out ) const { Kiv::print( out, value_ ); }
   static Seqno32 parse( std::string_view text ) {
      return Seqno32( Kiv::fromText< std::uint32_t >( text ) );
   }

 private:
   std::uint32_t value_ = 0;
};

} // namespace Mox
