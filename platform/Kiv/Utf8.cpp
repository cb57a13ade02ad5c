// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Utf8.h"

#include <algorithm>

namespace Kiv {

namespace {

struct Form {
   unsigned char mask, mark; // of the first byte
   std::size_t bytes;
   char32_t least; // what is less has a shorter form, and must be in that
};
constexpr Form forms[] = { { 0x80, 0x00, 1, 0 },
                           { 0xe0, 0xc0, 2, 0x80 },
                           { 0xf0, 0xe0, 3, 0x800 },
                           { 0xf8, 0xf0, 4, 0x10000 } };

bool
continues( char c ) {
   return ( static_cast< unsigned char >( c ) & 0xc0 ) == 0x80;
}

bool
isCharacter( char32_t code ) {
   constexpr char32_t last = 0x10ffff;
   bool const surrogate = code >= 0xd800 && code <= 0xdfff;
   return code <= last && !surrogate;
}

} // namespace

std::size_t
utf8Length( std::string_view text ) {
   auto const first = static_cast< unsigned char >( text.empty() ? '\xff' : text.front() );
   for( auto const & form : forms ) {
      if( ( first & form.mask ) != form.mark || text.size() < form.bytes ) {
         continue;
      }
      char32_t code = first & static_cast< unsigned char >( ~form.mask );
      for( char const c : text.substr( 1, form.bytes - 1 ) ) {
         if( !continues( c ) ) {
            return 0;
         }
         code = code << 6 | ( static_cast< unsigned char >( c ) & 0x3f );
      }
      return code >= form.least && isCharacter( code ) ? form.bytes : 0;
   }
   return 0;
}

bool
isUtf8( std::string_view text ) {
   while( !text.empty() ) {
      auto const length = utf8Length( text );
      if( length == 0 ) {
         return false;
      }
      text.remove_prefix( length );
   }
   return true;
}

std::string
excerpt( std::string_view text, std::size_t most ) {
   bool const cut = text.size() > most;
   while( cut && most && continues( text[ most ] ) ) {
      --most;
   }
   std::string line( text.substr( 0, most ) );
   std::ranges::replace_if(
         line, []( char c ) { return static_cast< unsigned char >( c ) < ' ' || c == 0x7f; }, '?' );
   return line + ( cut ? "..." : "" );
}

} // namespace Kiv
