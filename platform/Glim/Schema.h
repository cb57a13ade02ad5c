// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the bytes of a key or a record mean, as text that two programs can compare and a person can
// read: "key u32, hwId u64, adjState enum8". It does not depend on the compiler.

#include "Glim/Layout.h"
#include "Kiv/Value.h"

#include <string>
#include <type_traits>

namespace Glim {

struct Schema {
   std::uint32_t keyBytes = 0;
   std::uint32_t recordBytes = 0;
   std::string keyType;
   std::string recordType;
   std::string text; // "<key> -> <record>"

   bool operator==( Schema const & ) const = default;
};

template< class T >
concept TableKey = std::is_trivially_copyable_v< T > && std::is_default_constructible_v< T > &&
                   std::has_unique_object_representations_v< T > &&
                   sizeof( T ) <= Layout::maxKeyBytes;
template< class T >
concept TableRecord = std::is_trivially_copyable_v< T > && std::is_default_constructible_v< T > &&
                      sizeof( T ) <= Layout::maxRecordBytes;

// "u32", "enum8", "bytes8", or the fields of a value type in braces.
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
      std::string text = "{";
      [ & ]< unsigned... i >( std::integer_sequence< unsigned, i... > ) {
         auto const add = [ & ]< class V, class F >( Kiv::FieldOf< V, F > const & field ) {
            text += ( text.size() == 1 ? "" : ", " ) + std::string( field.name ) + ' ' +
                    shapeOf< F >();
         };
         ( add( T::kivField( Kiv::Count< i >{} ) ), ... );
      }
      ( std::make_integer_sequence< unsigned,
                                    decltype( T::kivCount( Kiv::MaxRank{} ) )::value >{} );
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
