// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Text.h"

#include <array>

namespace Kiv {

namespace {

template< class Number >
void
append( std::string & out, Number value ) {
   std::array< char, 40 > buffer;
   auto [ end, error ] = std::to_chars( buffer.data(), buffer.data() + buffer.size(), value );
   out.append( buffer.data(), end );
}

template< class Number >
Number
parseBounded( std::string_view text, Number min, Number max ) {
   Number value{};
   auto [ end, error ] = std::from_chars( text.data(), text.data() + text.size(), value );
   if( error != std::errc{} || end != text.data() + text.size() || value < min || value > max ) {
      parseFailed( text, "a number from " + std::to_string( min ) + " to " + std::to_string( max ) );
   }
   return value;
}

} // namespace

void
printInteger( std::string & out, std::int64_t value ) {
   append( out, value );
}

void
printInteger( std::string & out, std::uint64_t value ) {
   append( out, value );
}

void
printDouble( std::string & out, double value ) {
   append( out, value );
}

std::int64_t
parseInteger( std::string_view text, std::int64_t min, std::int64_t max ) {
   return parseBounded( text, min, max );
}

std::uint64_t
parseInteger( std::string_view text, std::uint64_t min, std::uint64_t max ) {
   return parseBounded( text, min, max );
}

double
parseDouble( std::string_view text ) {
   double value{};
   auto [ end, error ] = std::from_chars( text.data(), text.data() + text.size(), value );
   if( error != std::errc{} || end != text.data() + text.size() ) {
      parseFailed( text, "a number" );
   }
   return value;
}

bool
parseBool( std::string_view text ) {
   if( text == "true" ) {
      return true;
   }
   if( text != "false" ) {
      parseFailed( text, "true or false" );
   }
   return false;
}

void
parseFailed( std::string_view text, std::string_view expected ) {
   constexpr std::size_t shown = 60;
   constexpr std::string_view hex = "0123456789abcdef";
   std::string message = "\"";
   for( unsigned char c : text.substr( 0, shown ) ) {
      if( c < 0x20 || c >= 0x7f || c == '"' || c == '\\' ) {
         message += { '\\', 'x', hex[ c >> 4 ], hex[ c & 15 ] };
      } else {
         message += static_cast< char >( c );
      }
   }
   message += text.size() > shown ? "...\" is not " : "\" is not ";
   message += expected;
   throw ParseError( message );
}

} // namespace Kiv
