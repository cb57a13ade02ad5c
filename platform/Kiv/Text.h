// SPDX-License-Identifier: Apache-2.0
#pragma once

// The printed form of values, and the way back.
//
//    Kiv::print( out, value )        appends the printed form of value to out
//    Kiv::toText( value )            the printed form as a string
//    Kiv::fromText< T >( text )      the value; throws Kiv::ParseError with one line that says what
//                                    was found and what was expected
//
// A type takes part with the members `void print( std::string & ) const` and
// `static T parse( std::string_view )`. Enumerations made with KIV_ENUM, integers, doubles, bool
// and strings take part by themselves. Fractions print as their shortest exact decimal form.

#include "Kiv/Exception.h"
#include "Kiv/KeyOrder.h"

#include <charconv>
#include <concepts>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

namespace Kiv {

using String = std::string;

// A time, or a length of time, in seconds.
using Seconds = double;

template< class T >
concept PrintMember = requires( T const & value, std::string & out ) { value.print( out ); };

template< class T >
concept ParseMember = requires( std::string_view text ) {
   { T::parse( text ) } -> std::convertible_to< T >;
};

// Vectors and their like print as [a, b].
template< class T >
concept PrintableRange = !std::convertible_to< T const &, std::string_view > && requires( T const & value ) {
   value.begin();
   value.end();
};

// Keyed collections print as {key: value, key: value}, sets as [a, b]; in the order of their keys if
// those have one, so that equal ones print alike.
template< class T >
concept PrintableMap = PrintableRange< T > && requires( T const & value ) {
   typename T::mapped_type;
   value.begin()->key;
};

// Enumerations made with KIV_ENUM have these two, found through their namespace.
template< class T >
concept PrintableEnum = std::is_enum_v< T > && requires( T value ) { kivEnumNames( value ); };

// What fromText() reads.
template< class T >
concept TextReadable = ParseMember< T > || std::is_arithmetic_v< T > || std::is_enum_v< T > ||
      std::constructible_from< T, std::string_view >;

void printInteger( std::string & out, std::int64_t value );
void printInteger( std::string & out, std::uint64_t value );
void printDouble( std::string & out, double value );
std::int64_t parseInteger( std::string_view text, std::int64_t min, std::int64_t max );
std::uint64_t parseInteger( std::string_view text, std::uint64_t min, std::uint64_t max );
double parseDouble( std::string_view text );
bool parseBool( std::string_view text );

// `"x" is not <expected>`, with control characters made visible and overlong text cut.
[[noreturn]] void parseFailed( std::string_view text, std::string_view expected );

template< class T >
void
print( std::string & out, T const & value ) {
   if constexpr( std::is_same_v< T, bool > ) {
      out += value ? "true" : "false";
   } else if constexpr( PrintMember< T > ) {
      value.print( out );
   } else if constexpr( PrintableEnum< T > ) {
      kivEnumNames( value ).print( out, static_cast< std::int64_t >( value ) );
   } else if constexpr( std::is_enum_v< T > ) {
      print( out, static_cast< std::underlying_type_t< T > >( value ) );
   } else if constexpr( std::is_same_v< T, char > ) {
      out += value;
   } else if constexpr( std::is_integral_v< T > && std::is_signed_v< T > ) {
      printInteger( out, static_cast< std::int64_t >( value ) );
   } else if constexpr( std::is_integral_v< T > ) {
      printInteger( out, static_cast< std::uint64_t >( value ) );
   } else if constexpr( std::is_floating_point_v< T > ) {
      printDouble( out, static_cast< double >( value ) );
   } else if constexpr( PrintableMap< T > ) {
      char const * separator = "{";
      for( auto const * member : inKeyOrder( value ) ) {
         out += separator;
         print( out, member->key );
         out += ": ";
         print( out, member->value );
         separator = ", ";
      }
      out += value.begin() == value.end() ? "{}" : "}";
   } else if constexpr( KeyedCollection< T > ) {
      char const * separator = "[";
      for( auto const * key : inKeyOrder( value ) ) {
         out += separator;
         print( out, *key );
         separator = ", ";
      }
      out += value.begin() == value.end() ? "[]" : "]";
   } else if constexpr( PrintableRange< T > ) {
      char const * separator = "[";
      for( auto const & element : value ) {
         out += separator;
         print( out, element );
         separator = ", ";
      }
      out += value.begin() == value.end() ? "[]" : "]";
   } else {
      static_assert( std::convertible_to< T const &, std::string_view >,
                     "this type has no printed form: give it void print( std::string & ) const" );
      out += std::string_view( value );
   }
}

template< class T >
std::string
toText( T const & value ) {
   std::string out;
   print( out, value );
   return out;
}

template< class T >
T
fromText( std::string_view text ) {
   if constexpr( std::is_same_v< T, bool > ) {
      return parseBool( text );
   } else if constexpr( ParseMember< T > ) {
      return T::parse( text );
   } else if constexpr( PrintableEnum< T > ) {
      return static_cast< T >( kivEnumNames( T{} ).parse( text ) );
   } else if constexpr( std::is_enum_v< T > ) {
      return static_cast< T >( fromText< std::underlying_type_t< T > >( text ) );
   } else if constexpr( std::is_integral_v< T > ) {
      using Wide = std::conditional_t< std::is_signed_v< T >, std::int64_t, std::uint64_t >;
      using Limits = std::numeric_limits< T >;
      return static_cast< T >(
            parseInteger( text, static_cast< Wide >( Limits::min() ), static_cast< Wide >( Limits::max() ) ) );
   } else if constexpr( std::is_floating_point_v< T > ) {
      return static_cast< T >( parseDouble( text ) );
   } else {
      static_assert( std::constructible_from< T, std::string_view >,
                     "this type cannot be read: give it static T parse( std::string_view )" );
      return T( text );
   }
}

} // namespace Kiv
