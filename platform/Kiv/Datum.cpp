// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Datum.h"

#include <cmath>

namespace Kiv {

Datum const *
Datum::find( std::string_view name ) const {
   if( auto const * object = as< Object >() ) {
      for( auto const & [ member, value ] : *object ) {
         if( member == name ) {
            return &value;
         }
      }
   }
   return nullptr;
}

void
Datum::add( String name, Datum value ) {
   if( isNull() ) {
      value_ = Object{};
   }
   std::get< Object >( value_ ).emplace_back( std::move( name ), std::move( value ) );
}

std::string_view
Datum::shape() const {
   constexpr std::string_view names[] = { "nothing",  "a boolean", "a number", "a number",
                                          "a number", "a string",  "a list",   "an object" };
   return names[ value_.index() ];
}

void
wrongShape( Datum const & datum, std::string_view expected ) {
   if( auto const * text = datum.as< String >() ) {
      parseFailed( *text, expected );
   }
   throw ParseError( String( datum.shape() ) + " is not " + String( expected ) );
}

void
rethrowInPlace( std::string_view place ) {
   try {
      throw;
   } catch( RangeException const & error ) {
      throw RangeException( String( place ) + ": " + error.reason() );
   } catch( ParseError const & error ) {
      throw ParseError( String( place ) + ": " + error.what() );
   }
}

namespace {

template< class Number >
Number
boundedFrom( Datum const & datum, Number min, Number max ) {
   auto range = [ & ] {
      return "a whole number from " + std::to_string( min ) + " to " + std::to_string( max );
   };
   if( auto const * value = datum.as< std::int64_t >() ) {
      if( std::in_range< Number >( *value ) && std::cmp_less_equal( min, *value ) &&
          std::cmp_less_equal( *value, max ) ) {
         return static_cast< Number >( *value );
      }
      throw ParseError( std::to_string( *value ) + " is not " + range() );
   }
   if( auto const * value = datum.as< std::uint64_t >() ) {
      if( std::in_range< Number >( *value ) && std::cmp_less_equal( *value, max ) ) {
         return static_cast< Number >( *value );
      }
      throw ParseError( std::to_string( *value ) + " is not " + range() );
   }
   if( auto const * value = datum.as< double >() ) {
      throw ParseError( toText( *value ) + " is not " + range() );
   }
   wrongShape( datum, range() );
}

} // namespace

std::int64_t
integerFrom( Datum const & datum, std::int64_t min, std::int64_t max ) {
   return boundedFrom( datum, min, max );
}

double
numberFrom( Datum const & datum ) {
   if( auto const * value = datum.as< double >() ) {
      // Data that is written down has no form for these.
      if( !std::isfinite( *value ) ) {
         parseFailed( toText( *value ), "a finite number" );
      }
      return *value;
   }
   if( auto const * value = datum.as< std::int64_t >() ) {
      return static_cast< double >( *value );
   }
   if( auto const * value = datum.as< std::uint64_t >() ) {
      return static_cast< double >( *value );
   }
   wrongShape( datum, "a number" );
}

std::uint64_t
integerFrom( Datum const & datum, std::uint64_t min, std::uint64_t max ) {
   return boundedFrom( datum, min, max );
}

void
givenTwice( String const & key ) {
   throw ParseError( key + " is given twice" );
}

Datum const &
neededField( Datum const & object, std::string_view name ) {
   if( !object.as< Datum::Object >() ) {
      wrongShape( object, "an object" );
   }
   if( auto const * field = object.find( name ) ) {
      return *field;
   }
   throw ParseError( String( name ) + " is missing" );
}

} // namespace Kiv
