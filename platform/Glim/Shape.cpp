// SPDX-License-Identifier: Apache-2.0
#include "Glim/Shape.h"

#include "Glim/Layout.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>

namespace Glim {

using Kiv::Datum;

namespace {

constexpr std::size_t maxBytes = Layout::maxRecordBytes;

// Whether the text went on with that, which is then behind.
bool
skip( std::string_view & rest, std::string_view head ) {
   bool const found = rest.starts_with( head );
   rest.remove_prefix( found ? head.size() : 0 );
   return found;
}

std::optional< std::size_t >
takeNumber( std::string_view & rest ) {
   std::size_t number = 0;
   auto const [ end, error ] = std::from_chars( rest.data(), rest.data() + rest.size(), number );
   if( error != std::errc() || number > maxBytes ) {
      return std::nullopt;
   }
   rest.remove_prefix( static_cast< std::size_t >( end - rest.data() ) );
   return number;
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
Shape::takeScalar( std::string_view & rest ) {
   struct Word {
      std::string_view head;
      Kind kind;
      std::size_t least; // bits
   };
   static constexpr Word words[] = { { "u", Kind::isUnsigned, 8 },
                                     { "enum", Kind::isUnsigned, 8 },
                                     { "i", Kind::isSigned, 8 },
                                     { "float", Kind::real, 32 } };
   Shape shape;
   if( skip( rest, "bool" ) ) {
      shape.kind_ = Kind::boolean;
      shape.bytes_ = 1;
      return shape;
   }
   if( skip( rest, "bytes" ) ) {
      shape.bytes_ = takeNumber( rest ).value_or( 0 );
      return shape.bytes_ ? std::optional( shape ) : std::nullopt;
   }
   for( auto const & [ head, kind, least ] : words ) {
      if( skip( rest, head ) ) {
         auto const bits = takeNumber( rest ).value_or( 0 );
         shape.kind_ = kind;
         shape.bytes_ = bits / 8;
         bool const known = std::has_single_bit( bits ) && bits >= least && bits <= 64;
         return known ? std::optional( shape ) : std::nullopt;
      }
   }
   return std::nullopt;
}

std::optional< Shape >
Shape::take( std::string_view & rest ) {
   if( !skip( rest, "{" ) ) {
      return takeScalar( rest );
   }
   Shape shape;
   shape.kind_ = Kind::structure;
   while( !skip( rest, "}" ) ) {
      if( !shape.fields_.empty() && !skip( rest, ", " ) ) {
         return std::nullopt;
      }
      auto const name = rest.substr( 0, rest.find_first_of( "@ {}," ) );
      rest.remove_prefix( name.size() );
      if( name.empty() || !skip( rest, "@" ) ) {
         return std::nullopt;
      }
      auto const offset = takeNumber( rest );
      auto field = offset && skip( rest, " " ) ? take( rest ) : std::nullopt;
      if( !field ) {
         return std::nullopt;
      }
      field->name_ = name;
      field->offset_ = *offset;
      shape.bytes_ = std::max( shape.bytes_, *offset + field->bytes_ );
      shape.fields_.push_back( std::move( *field ) );
   }
   return shape;
}

std::optional< Shape >
Shape::parse( std::string_view text, std::size_t bytes ) {
   auto shape = take( text );
   bool const fits =
         shape && text.empty() &&
         ( shape->kind_ == Kind::structure ? shape->bytes_ <= bytes : shape->bytes_ == bytes );
   return fits ? shape : std::nullopt;
}

// ---- The value

Datum
Shape::datum( char const * value ) const {
   switch( kind_ ) {
   case Kind::boolean:
      return isPossible( value ) ? Datum( *value != 0 ) : hexOf( value, bytes_ );
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
   for( auto const & field : fields_ ) {
      object.emplace_back( field.name_, field.datum( value + field.offset_ ) );
   }
   return object;
}

bool
Shape::isPossible( char const * value ) const {
   return ( kind_ != Kind::boolean || static_cast< unsigned char >( *value ) <= 1 ) &&
          std::all_of( fields_.begin(), fields_.end(), [ & ]( Shape const & field ) {
             return field.isPossible( value + field.offset_ );
          } );
}

} // namespace Glim
