// SPDX-License-Identifier: Apache-2.0
#include "types/ViaBitmap.h"

#include <bit>

namespace HobaTypes {

ViaBitmap::ViaBitmap( std::initializer_list< std::uint32_t > positions ) {
   for( auto const position : positions ) {
      is( position, true );
   }
}

void
ViaBitmap::is( std::uint32_t position, bool on ) {
   if( position >= maxPositions ) {
      throw Kiv::RangeException( "a position in a group is less than " +
                                 std::to_string( maxPositions ) + ", which " +
                                 std::to_string( position ) + " is not" );
   }
   if( on && position / 64 >= words_.size() ) {
      words_.resize( position / 64 + 1 );
   }
   if( position / 64 < words_.size() ) {
      auto const bit = std::uint64_t{ 1 } << position % 64;
      auto & word = words_[ position / 64 ];
      word = on ? word | bit : word & ~bit;
   }
   while( !words_.empty() && words_.back() == 0 ) {
      words_.pop_back();
   }
}

std::uint32_t
ViaBitmap::size() const {
   int size = 0;
   for( auto const word : words_ ) {
      size += std::popcount( word );
   }
   return static_cast< std::uint32_t >( size );
}

std::vector< std::uint32_t >
ViaBitmap::positions() const {
   std::vector< std::uint32_t > positions;
   for( std::size_t i = 0; i < words_.size(); ++i ) {
      for( auto word = words_[ i ]; word; word &= word - 1 ) {
         positions.push_back( static_cast< std::uint32_t >( 64 * i ) +
                              static_cast< std::uint32_t >( std::countr_zero( word ) ) );
      }
   }
   return positions;
}

void
ViaBitmap::print( std::string & out ) const {
   out += '{';
   char const * separator = "";
   for( auto const position : positions() ) {
      out += separator;
      Kiv::print( out, position );
      separator = ", ";
   }
   out += '}';
}

ViaBitmap
ViaBitmap::parse( std::string_view text ) {
   ViaBitmap bitmap;
   if( text.size() < 2 || text.front() != '{' || text.back() != '}' ) {
      Kiv::parseFailed( text, "a list of positions, such as {0, 2}" );
   }
   text = text.substr( 1, text.size() - 2 );
   while( !text.empty() ) {
      auto const comma = text.find( ',' );
      bitmap.is( Kiv::fromText< std::uint32_t >( text.substr( 0, comma ) ), true );
      text.remove_prefix( comma == text.npos ? text.size() : comma + 1 );
      while( text.starts_with( ' ' ) ) {
         text.remove_prefix( 1 );
      }
   }
   return bitmap;
}

} // namespace HobaTypes
