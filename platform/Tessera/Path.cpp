// SPDX-License-Identifier: Apache-2.0
#include "Tessera/Path.h"

#include "Kiv/Utf8.h"
#include "Tessera/Error.h"

#include <algorithm>

namespace Tessera {

namespace {

constexpr std::string_view hexDigits = "0123456789ABCDEF";

bool
isControl( char c ) {
   return static_cast< unsigned char >( c ) < 0x20 || c == 0x7f;
}

void
appendCode( std::string & out, char c ) {
   auto byte = static_cast< unsigned char >( c );
   out += { '%', hexDigits[ byte >> 4 ], hexDigits[ byte & 15 ] };
}

void
appendCoded( std::string & out, std::string_view component ) {
   while( !component.empty() ) {
      auto const length = Kiv::utf8Length( component );
      char const c = component.front();
      if( length == 0 || c == '%' || c == ']' || isControl( c ) ) {
         appendCode( out, c );
      } else {
         out += component.substr( 0, length );
      }
      component.remove_prefix( std::max< std::size_t >( length, 1 ) );
   }
}

// `text`, fit for a message: whoever sends us garbage gets it back in visible form, and not all.
std::string
shown( std::string_view text ) {
   constexpr std::size_t limit = 100;
   std::string out = "\"";
   for( char c : text.substr( 0, limit ) ) {
      if( isControl( c ) || static_cast< unsigned char >( c ) > 0x7f ) {
         appendCode( out, c );
      } else {
         out += c;
      }
   }
   return out += text.size() > limit ? "...\"" : "\"";
}

class Parser {
 public:
   explicit Parser( std::string_view text ) : text_( text ) {}

   // The next component; false at the end.
   bool next( Kiv::String & component ) {
      component.clear();
      if( at_ == text_.size() ) {
         return false;
      }
      if( text_[ at_ ] != '/' && text_[ at_ ] != '[' ) {
         fail( at_ == 0 ? "a path begins with \"/\""
                        : "a slash, a bracket or the end belongs here" );
      }
      if( text_[ at_ ] == '/' && ++at_ == text_.size() ) {
         return false;
      }
      if( text_[ at_ ] == '[' ) {
         ++at_;
         read( component, "]" );
         if( at_ == text_.size() ) {
            fail( "a bracket is not closed" );
         }
         ++at_;
      } else {
         read( component, "/[" );
         if( component.empty() ) {
            fail( "a component is empty" );
         }
      }
      return true;
   }

 private:
   void read( Kiv::String & component, std::string_view end ) {
      while( at_ != text_.size() && end.find( text_[ at_ ] ) == std::string_view::npos ) {
         component += text_[ at_ ] == '%' ? code() : text_[ at_++ ];
      }
   }

   char code() {
      unsigned value = 0;
      auto digits = text_.substr( at_ + 1, 2 );
      auto [ end, error ] =
            std::from_chars( digits.data(), digits.data() + digits.size(), value, 16 );
      if( digits.size() != 2 || error != std::errc{} || end != digits.data() + digits.size() ) {
         fail( "two hexadecimal digits belong after \"%\"" );
      }
      at_ += 3;
      return static_cast< char >( value );
   }

   [[noreturn]] void fail( std::string_view reason ) const {
      throw Error( "path " + shown( text_ ),
                   std::string( reason ) + ", at character " + std::to_string( at_ + 1 ) );
   }

   std::string_view text_;
   std::size_t at_ = 0;
};

} // namespace

Path
Path::parse( std::string_view text ) {
   auto refuse = [ & ]( std::string const & reason ) {
      throw Error( "path " + shown( text ), reason );
   };
   if( text.empty() ) {
      refuse( "a path begins with \"/\"" );
   }
   if( text.size() > maxLength ) {
      refuse( "longer than " + std::to_string( maxLength ) + " characters" );
   }
   Path path;
   Parser parser( text );
   Kiv::String component;
   while( parser.next( component ) ) {
      if( path.size() == maxComponents ) {
         refuse( "deeper than " + std::to_string( maxComponents ) + " components" );
      }
      path.components_.push_back( component );
   }
   return path;
}

void
Path::print( std::string & out ) const {
   if( isRoot() ) {
      out += '/';
   }
   bool first = true;
   for( auto const & component : components_ ) {
      bool brackets = component.empty() || component.find_first_of( "/[]" ) != Kiv::String::npos;
      out += brackets ? first ? "/[" : "[" : "/";
      appendCoded( out, component );
      if( brackets ) {
         out += ']';
      }
      first = false;
   }
}

Path
Path::operator/( std::string_view component ) const {
   Path path;
   path.components_.reserve( components_.size() + 1 );
   path.components_ = components_;
   path.components_.emplace_back( component );
   return path;
}

Path
Path::first( std::size_t count ) const {
   Path path;
   path.components_.assign( components_.begin(),
                            components_.begin() + static_cast< std::ptrdiff_t >( count ) );
   return path;
}

bool
Path::isUtf8() const {
   return std::ranges::all_of( components_, Kiv::isUtf8 );
}

bool
Path::startsWith( Path const & prefix ) const {
   return prefix.size() <= size() &&
          std::equal( prefix.components_.begin(), prefix.components_.end(), components_.begin() );
}

} // namespace Tessera
