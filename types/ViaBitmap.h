// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Value.h"

#include <vector>

namespace HobaTypes {

// Positions among the members of an ordered group, counted from 0. Prints as "{0, 2}".
class ViaBitmap {
 public:
   static constexpr std::string_view kivName = "HobaTypes::ViaBitmap";
   // No group has more.
   static constexpr std::uint32_t maxPositions = 65536;

   ViaBitmap() = default;
   // Throws Kiv::RangeException as is().
   ViaBitmap( std::initializer_list< std::uint32_t > positions );

   bool has( std::uint32_t position ) const {
      return position / 64 < words_.size() && words_[ position / 64 ] >> position % 64 & 1;
   }
   // Throws Kiv::RangeException from maxPositions on.
   void is( std::uint32_t position, bool on );
   bool empty() const { return words_.empty(); }
   std::uint32_t size() const;
   // In ascending order.
   std::vector< std::uint32_t > positions() const;

   bool operator==( ViaBitmap const & ) const = default;
   auto operator<=>( ViaBitmap const & ) const = default;
   std::size_t hash() const { return Kiv::hashOf( words_ ); }
   void print( std::string & out ) const;
   // Reads that. Throws Kiv::ParseError, and Kiv::RangeException as is().
   static ViaBitmap parse( std::string_view text );

 private:
   std::vector< std::uint64_t > words_; // the last one is not 0
};

} // namespace HobaTypes
