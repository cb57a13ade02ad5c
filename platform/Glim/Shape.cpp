// SPDX-License-Identifier: Apache-2.0
#include "Glim/Shape.h"

#include "Glim/Layout.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace Glim {

using Kiv::Datum;

namespace {

constexpr std::size_t maxAlignment = 8;
constexpr std::size_t maxWays = 4096; // to align what the text leaves open
constexpr std::size_t maxBits = 8 * Layout::maxRecordBytes;

// The number behind `head`, if the word is that and no more.
std::optional< std::size_t >
numberBehind( std::string_view word, std::string_view head ) {
   std::size_t number = 0;
   if( !word.starts_with( head ) ) {
      return std::nullopt;
   }
   word.remove_prefix( head.size() );
   auto const [ end, error ] = std::from_chars( word.data(), word.data() + word.size(), number );
   bool const whole = error == std::errc() && end == word.data() + word.size();
   return whole && number != 0 && number <= maxBits ? std::optional( number ) : std::nullopt;
}

bool
isWhole( std::size_t bits ) {
   return bits == 8 || bits == 16 || bits == 32 || bits == 64;
}

template< class T >
T
valueAt( char const * place ) {
   T value;
   std::memcpy( &value, place, sizeof value );
   return value;
}

// Numbers stand as the processor has them, the lowest byte first.
std::uint64_t
integerAt( char const * place, std::size_t bytes ) {
   std::uint64_t value = 0;
   for( std::size_t i = bytes; i-- != 0; ) {
      value = value << 8 | static_cast< unsigned char >( place[ i ] );
   }
   return value;
}

} // namespace

std::string
hexOf( char const * bytes, std::size_t count ) {
   constexpr char digits[] = "0123456789abcdef";
   std::string text;
   for( std::size_t i = 0; i != count; ++i ) {
      auto const byte = static_cast< unsigned char >( bytes[ i ] );
      text += { digits[ byte >> 4 ], digits[ byte & 15 ] };
   }
   return text;
}

// ---- The text

std::optional< Shape >
Shape::parseWord( std::string_view word ) {
   Shape shape;
   shape.bytes_ = 1;
   if( word == "bool" ) {
      shape.kind_ = Kind::boolean;
   } else if( auto const bytes = numberBehind( word, "bytes" ) ) {
      shape.bytes_ = *bytes;
      return shape;
   } else {
      auto bits = numberBehind( word, "u" );
      shape.kind_ = Kind::isUnsigned;
      if( !bits ) {
         bits = numberBehind( word, "enum" );
      }
      if( !bits && ( bits = numberBehind( word, "i" ) ) ) {
         shape.kind_ = Kind::isSigned;
      }
      if( !bits && ( bits = numberBehind( word, "float" ) ) ) {
         shape.kind_ = Kind::real;
      }
      bool const known = bits && isWhole( *bits ) && ( shape.kind_ != Kind::real || *bits >= 32 );
      if( !known ) {
         return std::nullopt;
      }
      shape.bytes_ = *bits / 8;
   }
   shape.alignment_ = shape.bytes_;
   return shape;
}

std::optional< Shape >
Shape::parseAny( std::string_view & rest ) {
   if( !rest.starts_with( '{' ) ) {
      auto const length = std::min( rest.find_first_of( ",}" ), rest.size() );
      auto const word = rest.substr( 0, length );
      rest.remove_prefix( length );
      return parseWord( word );
   }
   Shape shape;
   shape.kind_ = Kind::structure;
   rest.remove_prefix( 1 );
   while( !rest.starts_with( '}' ) ) {
      if( !shape.fields_.empty() ) {
         if( !rest.starts_with( ", " ) ) {
            return std::nullopt;
         }
         rest.remove_prefix( 2 );
      }
      auto const space = rest.find_first_of( " {}," );
      if( space == rest.npos || space == 0 || rest[ space ] != ' ' ) {
         return std::nullopt;
      }
      std::string name( rest.substr( 0, space ) );
      rest.remove_prefix( space + 1 );
      auto field = parseAny( rest );
      if( !field ) {
         return std::nullopt;
      }
      shape.fields_.emplace_back( std::move( name ), std::move( *field ) );
   }
   rest.remove_prefix( 1 );
   return shape;
}

// ---- Where things are

void
Shape::rawsInto( std::vector< Shape * > & raws ) {
   if( kind_ == Kind::raw ) {
      raws.push_back( this );
   }
   for( auto & [ name, field ] : fields_ ) {
      field.rawsInto( raws );
   }
}

void
Shape::layOut() {
   if( kind_ != Kind::structure ) {
      return;
   }
   bytes_ = 0;
   alignment_ = 1;
   for( auto & [ name, field ] : fields_ ) {
      field.layOut();
      field.offset_ = Layout::roundUp( bytes_, field.alignment_ );
      bytes_ = field.offset_ + field.bytes_;
      alignment_ = std::max( alignment_, field.alignment_ );
   }
   bytes_ = std::max< std::size_t >( Layout::roundUp( bytes_, alignment_ ), 1 );
}

void
Shape::offsetsInto( std::vector< std::size_t > & offsets ) const {
   offsets.push_back( offset_ );
   for( auto const & [ name, field ] : fields_ ) {
      field.offsetsInto( offsets );
   }
}

std::optional< Shape >
Shape::parse( std::string_view text, std::size_t bytes ) {
   auto shape = parseAny( text );
   if( !shape || !text.empty() ) {
      return std::nullopt;
   }
   std::vector< Shape * > raws;
   shape->rawsInto( raws );
   std::optional< Shape > found;
   std::vector< std::size_t > offsets;
   for( std::size_t way = 0; way != maxWays; ++way ) {
      shape->layOut();
      if( shape->bytes_ == bytes ) {
         std::vector< std::size_t > these;
         shape->offsetsInto( these );
         if( found && these != offsets ) {
            return std::nullopt;
         }
         offsets = std::move( these );
         found = shape;
      }
      // The next way, counting as with digits.
      auto raw = raws.begin();
      for( ; raw != raws.end(); ++raw ) {
         auto & alignment = ( *raw )->alignment_;
         alignment *= 2;
         if( alignment <= maxAlignment && ( *raw )->bytes_ % alignment == 0 ) {
            break;
         }
         alignment = 1;
      }
      if( raw == raws.end() ) {
         return found;
      }
   }
   return std::nullopt;
}

// ---- The value

Datum
Shape::datum( char const * value ) const {
   switch( kind_ ) {
   case Kind::boolean:
      if( static_cast< unsigned char >( *value ) <= 1 ) {
         return Datum( *value != 0 );
      }
      return hexOf( value, bytes_ );
   case Kind::isUnsigned:
      return Datum( integerAt( value, bytes_ ) );
   case Kind::isSigned: {
      auto const unused = 64 - 8 * bytes_;
      return Datum( static_cast< std::int64_t >( integerAt( value, bytes_ ) << unused ) >> unused );
   }
   case Kind::real:
      return Datum( bytes_ == 4 ? static_cast< double >( valueAt< float >( value ) )
                                : valueAt< double >( value ) );
   case Kind::raw:
      return hexOf( value, bytes_ );
   case Kind::structure:
      break;
   }
   Datum::Object object;
   for( auto const & [ name, field ] : fields_ ) {
      object.emplace_back( name, field.datum( value + field.offset_ ) );
   }
   return object;
}

} // namespace Glim
