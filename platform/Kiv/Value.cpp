// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Value.h"

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

EnumNames::EnumNames( std::string_view type, std::string_view enumerators ) : type_( type ) {
   std::int64_t next = 0;
   while( !enumerators.empty() ) {
      auto comma = enumerators.find( ',' );
      auto enumerator = trimmed( enumerators.substr( 0, comma ) );
      enumerators = comma == std::string_view::npos ? "" : enumerators.substr( comma + 1 );
      if( auto equals = enumerator.find( '=' ); equals != std::string_view::npos ) {
         next = fromText< std::int64_t >( trimmed( enumerator.substr( equals + 1 ) ) );
         enumerator = trimmed( enumerator.substr( 0, equals ) );
      }
      if( !enumerator.empty() ) {
         names_.emplace_back( String( enumerator ), next++ );
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

} // namespace Kiv
