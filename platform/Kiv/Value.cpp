// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Value.h"

#include <algorithm>
#include <charconv>

namespace Kiv {

namespace {

std::string_view
trimmed( std::string_view text ) {
   auto begin = text.find_first_not_of( " \t\n" );
   if( begin == std::string_view::npos ) {
      return {};
   }
   return text.substr( begin, text.find_last_not_of( " \t\n" ) - begin + 1 );
}

} // namespace

void
printFields( String & out, std::string_view name, std::span< FieldPrint const > fields ) {
   out += "Value('";
   out += name;
   out += "', ** {";
   char const * separator = "'";
   for( auto const & field : fields ) {
      out += separator;
      out += field.name;
      out += "': ";
      field.call( out, field.place );
      separator = ", '";
   }
   out += "})";
}

Datum
datumOfFields( std::span< FieldGet const > fields ) {
   Datum::Object object;
   object.reserve( fields.size() );
   for( auto const & field : fields ) {
      object.emplace_back( field.name, field.call( field.place ) );
   }
   return object;
}

namespace {

String
fieldNames( std::span< FieldPut const > fields ) {
   String names = "the fields ";
   char const * separator = "";
   for( auto const & field : fields ) {
      names += separator;
      names += field.name;
      separator = ", ";
   }
   return names;
}

} // namespace

void
putFields( Datum const & datum, std::span< FieldPut const > fields ) {
   auto const * object = datum.as< Datum::Object >();
   if( !object ) {
      wrongShape( datum, "an object with " + fieldNames( fields ) );
   }
   for( auto const & member : *object ) {
      auto named = [ & ]( FieldPut const & field ) { return member.first == field.name; };
      auto const field = std::find_if( fields.begin(), fields.end(), named );
      if( field == fields.end() ) {
         parseFailed( member.first, "one of " + fieldNames( fields ) );
      }
      inPlace( member.first, [ & ] { field->call( field->place, member.second ); } );
   }
}

EnumNames::EnumNames( std::string_view type, std::string_view enumerators ) : type_( type ) {
   std::int64_t next = 0;
   while( !enumerators.empty() ) {
      auto comma = enumerators.find( ',' );
      auto enumerator = trimmed( enumerators.substr( 0, comma ) );
      enumerators = comma == std::string_view::npos ? "" : enumerators.substr( comma + 1 );
      std::string_view shown;
      if( auto const mark = enumerator.find( "KIV_SHOWN" ); mark != std::string_view::npos ) {
         auto const begin = enumerator.find( '"' ) + 1;
         shown = enumerator.substr( begin, enumerator.rfind( '"' ) - begin );
         enumerator = trimmed( enumerator.substr( 0, mark ) );
      }
      if( auto equals = enumerator.find( '=' ); equals != std::string_view::npos ) {
         next = fromText< std::int64_t >( trimmed( enumerator.substr( equals + 1 ) ) );
         enumerator = trimmed( enumerator.substr( 0, equals ) );
      }
      if( !enumerator.empty() ) {
         names_.emplace_back( String( shown.empty() ? enumerator : shown ), next++ );
      }
   }
}

void
EnumNames::print( std::string & out, std::int64_t value ) const {
   for( auto const & [ name, number ] : names_ ) {
      if( number == value ) {
         out += name;
         return;
      }
   }
   printInteger( out, value );
}

std::int64_t
EnumNames::parse( std::string_view text ) const {
   String expected;
   for( auto const & [ name, number ] : names_ ) {
      if( name == text ) {
         return number;
      }
      expected += expected.empty() ? "one of " : ", ";
      expected += name;
   }
   parseFailed( text, expected );
}

void
printFlags( String & out, std::string_view type, EnumNames const & names, std::uint64_t raw ) {
   out += "Value('";
   out += type;
   out += "', ** {";
   char const * separator = "'";
   for( auto const & [ name, bit ] : names.all() ) {
      out += separator + name + "': " + ( raw >> bit & 1 ? "true" : "false" );
      separator = ", '";
   }
   out += "})";
}

String
flagWords( EnumNames const & names, std::uint64_t raw ) {
   String words;
   for( auto const & [ name, bit ] : names.all() ) {
      if( raw >> bit & 1 ) {
         words += ( words.empty() ? "" : ", " ) + name;
      }
   }
   return words;
}

Datum
datumOfFlags( EnumNames const & names, std::uint64_t raw ) {
   Datum::Object object;
   for( auto const & [ name, bit ] : names.all() ) {
      object.emplace_back( name, ( raw >> bit & 1 ) != 0 );
   }
   return object;
}

std::uint64_t
flagsFrom( Datum const & datum, EnumNames const & names ) {
   std::uint64_t raw = 0;
   auto const set = [ & ]( String const & name, bool on ) {
      raw |= static_cast< std::uint64_t >( on ) << names.parse( name );
   };
   if( auto const * object = datum.as< Datum::Object >() ) {
      for( auto const & flag : *object ) {
         set( flag.first,
              inPlace( flag.first, [ & ] { return fromDatum< bool >( flag.second ); } ) );
      }
   } else {
      for( auto const & name : fromDatum< std::vector< String > >( datum ) ) {
         set( name, true );
      }
   }
   return raw;
}

void
rangeFailed( char const * text, String const & number, std::int64_t min, std::int64_t max ) {
   throw RangeException( text, number + " is not a number from " + std::to_string( min ) + " to " +
                                     std::to_string( max ) );
}

std::int64_t
parseRanged( std::string_view text, std::int64_t min, std::int64_t max ) {
   std::int64_t number = 0;
   auto const [ end, error ] = std::from_chars( text.data(), text.data() + text.size(), number );
   if( error != std::errc{} || end != text.data() + text.size() ) {
      parseFailed( text,
                   "a number from " + std::to_string( min ) + " to " + std::to_string( max ) );
   }
   return number;
}

} // namespace Kiv
