// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the bytes of a key or a record mean, as text that two programs can compare, a person can read,
// and a program that does not know the types can go by: "{key@0 u32, hwId@8 u64, adjState@16 enum8}".

#include "Glim/Layout.h"
#include "Kiv/Value.h"

#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

namespace Glim {

struct Schema {
   std::uint32_t keyBytes = 0;
   std::uint32_t recordBytes = 0;
   std::string keyType;
   std::string recordType;
   std::string text; // "<key> -> <record>"

   bool operator==( Schema const & ) const = default;
};

// Calls use( field ) for each field of a value type, in order.
template< class T, class Use >
constexpr void
eachField( Use const & use ) {
   [ & ]< unsigned... i >( std::integer_sequence< unsigned, i... > ) {
      ( use( T::kivField( Kiv::Count< i >{} ) ), ... );
   }
   ( std::make_integer_sequence< unsigned, decltype( T::kivCount( Kiv::MaxRank{} ) )::value >{} );
}

// Where a field is in a value, in bytes.
template< class V, class F >
std::size_t
offsetIn( V const & value, Kiv::FieldOf< V, F > const & field ) {
   return static_cast< std::size_t >( reinterpret_cast< char const * >( &( value.*field.member ) ) -
                                      reinterpret_cast< char const * >( &value ) );
}

// Whether it is known which bytes of a T say something.
template< class T >
constexpr bool
hasKnownBytes() {
   if constexpr( Kiv::FieldedValue< T > ) {
      bool all = true;
      eachField< T >( [ & ]< class V, class F >( Kiv::FieldOf< V, F > const & ) {
         all = all && hasKnownBytes< F >();
      } );
      return all;
   } else {
      return std::has_unique_object_representations_v< T > ||
             ( std::is_floating_point_v< T > && sizeof( T ) <= 8 );
   }
}

// Copies those to the same places.
template< class T >
void
copyFields( T const & value, char * to ) {
   if constexpr( Kiv::FieldedValue< T > && !std::has_unique_object_representations_v< T > ) {
      eachField< T >( [ & ]< class V, class F >( Kiv::FieldOf< V, F > const & field ) {
         copyFields( value.*field.member, to + offsetIn( value, field ) );
      } );
   } else {
      std::memcpy( to, &value, sizeof( T ) );
   }
}

template< class T >
concept TableKey = std::is_trivially_copyable_v< T > && std::is_default_constructible_v< T > &&
                   std::has_unique_object_representations_v< T > &&
                   sizeof( T ) <= Layout::maxKeyBytes;
template< class T >
concept TableRecord = std::is_trivially_copyable_v< T > && std::is_default_constructible_v< T > &&
                      sizeof( T ) <= Layout::maxRecordBytes && hasKnownBytes< T >();

// "u32", "enum8", "bytes8", or the fields of a value type in braces, each with its offset in bytes.
template< class T >
std::string
shapeOf() {
   auto const bits = std::to_string( 8 * sizeof( T ) );
   if constexpr( std::is_same_v< T, bool > ) {
      return "bool";
   } else if constexpr( std::is_enum_v< T > ) {
      return "enum" + bits;
   } else if constexpr( std::is_floating_point_v< T > ) {
      return "float" + bits;
   } else if constexpr( std::is_integral_v< T > ) {
      return ( std::is_signed_v< T > ? "i" : "u" ) + bits;
   } else if constexpr( Kiv::FieldedValue< T > ) {
      static T const example{};
      std::string text = "{";
      eachField< T >( [ & ]< class V, class F >( Kiv::FieldOf< V, F > const & field ) {
         text += ( text.size() == 1 ? "" : ", " ) + std::string( field.name ) + '@' +
                 std::to_string( offsetIn( example, field ) ) + ' ' + shapeOf< F >();
      } );
      return text + "}";
   } else {
      return "bytes" + std::to_string( sizeof( T ) );
   }
}

// The name that the type gave itself; else its shape.
template< class T >
std::string
nameOf() {
   if constexpr( requires { T::kivName; } ) {
      return std::string( T::kivName );
   } else {
      return shapeOf< T >();
   }
}

template< TableKey Key, TableRecord Record >
Schema const &
schemaOf() {
   static Schema const schema{ sizeof( Key ), sizeof( Record ), nameOf< Key >(), nameOf< Record >(),
                               shapeOf< Key >() + " -> " + shapeOf< Record >() };
   return schema;
}

} // namespace Glim
