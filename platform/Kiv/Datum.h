// SPDX-License-Identifier: Apache-2.0
#pragma once

// Values without their types: what reflection hands to readers and takes from writers. The shapes
// are those of JSON; how they become text is the business of whoever talks to the outside.
//
//    toDatum( value )            numbers, booleans and strings as themselves; types with a printed
//                                form as strings; value types as objects, field by field
//    fromDatum< T >( datum )     the way back: throws ParseError, which names the field. Fields that
//                                an object leaves out keep their defaults; unknown ones are refused.

#include "Kiv/Ptr.h"
#include "Kiv/Text.h"

#include <cstdint>
#include <utility>
#include <variant>
#include <vector>

namespace Kiv {

class Entity;

class Datum {
 public:
   using Array = std::vector< Datum >;
   using Object = std::vector< std::pair< String, Datum > >; // in the order given

   Datum() = default;
   Datum( bool value ) : value_( value ) {}
   Datum( double value ) : value_( value ) {}
   Datum( String value ) : value_( std::move( value ) ) {}
   Datum( char const * value ) : value_( String( value ) ) {}
   Datum( std::string_view value ) : value_( String( value ) ) {}
   Datum( Array value ) : value_( std::move( value ) ) {}
   Datum( Object value ) : value_( std::move( value ) ) {}
   template< class Integer >
      requires( std::is_integral_v< Integer > && !std::is_same_v< Integer, bool > )
   Datum( Integer value ) {
      if constexpr( std::is_signed_v< Integer > ) {
         value_ = static_cast< std::int64_t >( value );
      } else {
         value_ = static_cast< std::uint64_t >( value );
      }
   }

   // Null when the datum is of another shape.
   template< class T >
   T const * as() const {
      return std::get_if< T >( &value_ );
   }
   bool isNull() const { return std::holds_alternative< std::monostate >( value_ ); }
   // The member of an object; null when there is none, or this is no object.
   Datum const * find( std::string_view name ) const;
   // Appends to an object; a null datum becomes one.
   void add( String name, Datum value );

   // "a number", "a string", "an object" ..., for messages.
   std::string_view shape() const;

   bool operator==( Datum const & ) const = default;

   template< class Visitor >
   decltype( auto ) visit( Visitor && visitor ) const {
      return std::visit( std::forward< Visitor >( visitor ), value_ );
   }

 private:
   std::variant< std::monostate, bool, std::int64_t, std::uint64_t, double, String, Array, Object >
         value_;
};

// A datum as one line of text for people: strings bare, objects and lists as in JSON.
String datumText( Datum const & datum );

// What a type looks like as a datum, for messages and for readers that have only text.
enum class DatumShape : std::uint8_t { boolean, integer, number, string, structure };

std::int64_t integerFrom( Datum const & datum, std::int64_t min, std::int64_t max );
std::uint64_t integerFrom( Datum const & datum, std::uint64_t min, std::uint64_t max );
double numberFrom( Datum const & datum );
[[noreturn]] void wrongShape( Datum const & datum, std::string_view expected );
// Throws the exception in flight again; a ParseError with "<place>: " before its text, a
// RangeException with that before its reason.
[[noreturn]] void rethrowInPlace( std::string_view place );
template< class Read >
decltype( auto )
inPlace( std::string_view place, Read const & read ) {
   try {
      return read();
   } catch( Exception const & ) {
      rethrowInPlace( place );
   }
}

template< class T >
concept FieldedValue = requires {
   typename T::KivFields;
};

// A number with bounds (KIV_RANGED, or a fraction that brings `KivNumber` and value()): a number as
// data, too.
template< class T >
concept RangedNumber = requires {
   typename T::KivNumber;
};
template< class T >
concept RangedFraction = RangedNumber< T > && std::is_floating_point_v< typename T::KivNumber >;

template< class T >
inline constexpr bool isVector = false;
template< class T >
inline constexpr bool isVector< std::vector< T > > = true;

// What holds a value of another type stands for it: it is made of one, and `*` yields it.
template< class T >
concept ValueHolder = requires {
   typename T::KivHeld;
};

// What is a text as data too, so that it can name the member of an object.
template< class T >
concept NamingKey = ParseMember< T > ||
      ( !FieldedValue< T > && !ValueHolder< T > && !KeyedCollection< T > );

template< class T >
concept DatumMap = KeyedCollection< T > && requires {
   typename T::mapped_type;
};

template< class T >
consteval DatumShape
datumShape() {
   if constexpr( std::is_same_v< T, bool > ) {
      return DatumShape::boolean;
   } else if constexpr( std::is_floating_point_v< T > || RangedFraction< T > ) {
      return DatumShape::number;
   } else if constexpr( std::is_integral_v< T > || RangedNumber< T > ) {
      return DatumShape::integer;
   } else if constexpr( ValueHolder< T > ) {
      return datumShape< typename T::KivHeld >();
   } else if constexpr( FieldedValue< T > || isVector< T > || KeyedCollection< T > ) {
      return DatumShape::structure;
   } else {
      return DatumShape::string;
   }
}

template< class T >
Datum toDatum( T const & value );
template< class T >
T fromDatum( Datum const & datum );

// Keyed collections, in the order of their keys: a map as an object by the texts of its keys, a set as a
// list. Where a key has no text to be read from, a map is a list too, of objects { "key", "value" }.
template< class Collection >
Datum
datumOfCollection( Collection const & collection ) {
   using Key = typename Collection::key_type;
   Datum::Array array;
   Datum object( Datum::Object{} );
   for( auto const * member : inKeyOrder( collection ) ) {
      if constexpr( !DatumMap< Collection > ) {
         array.push_back( toDatum< Key >( *member ) );
      } else if constexpr( NamingKey< Key > ) {
         object.add( toText( member->key ), toDatum( member->value ) );
      } else {
         array.push_back( Datum::Object{ { "key", toDatum( member->key ) },
                                         { "value", toDatum( member->value ) } } );
      }
   }
   return DatumMap< Collection > && NamingKey< Key > ? object : Datum( array );
}

// Throws ParseError for a key that is given twice.
[[noreturn]] void givenTwice( String const & key );
// The value of the one field that an object must have; throws ParseError.
Datum const & neededField( Datum const & object, std::string_view name );

template< class Collection >
Collection
collectionFrom( Datum const & datum ) {
   using Key = typename Collection::key_type;
   Collection collection;
   if constexpr( DatumMap< Collection > && NamingKey< Key > ) {
      using Value = typename Collection::mapped_type;
      auto const * object = datum.as< Datum::Object >();
      if( !object ) {
         wrongShape( datum, "an object" );
      }
      for( auto const & member : *object ) {
         inPlace( member.first, [ & ] {
            auto const key = fromText< Key >( member.first );
            if( !collection.tryEmplace( key, fromDatum< Value >( member.second ) ).inserted ) {
               givenTwice( member.first );
            }
         } );
      }
   } else {
      auto const * array = datum.as< Datum::Array >();
      if( !array ) {
         wrongShape( datum, "a list" );
      }
      for( auto const & element : *array ) {
         inPlace( '[' + std::to_string( collection.size() ) + ']', [ & ] {
            bool isNew = false;
            if constexpr( DatumMap< Collection > ) {
               using Value = typename Collection::mapped_type;
               auto const key = fromDatum< Key >( neededField( element, "key" ) );
               auto const & value = neededField( element, "value" );
               isNew = collection.tryEmplace( key, fromDatum< Value >( value ) ).inserted;
            } else {
               isNew = collection.insert( fromDatum< Key >( element ) );
            }
            if( !isNew ) {
               givenTwice( datumText( element ) );
            }
         } );
      }
   }
   return collection;
}

template< class T >
Datum
toDatum( T const & value ) {
   if constexpr( isPtr< T > ) {
      // A reference to an entity shows its name; to what has a text, that; to anything else, that it is there.
      if( !value ) {
         return {};
      }
      if constexpr( PrintMember< T > ) {
         return toText( value );
      } else if constexpr( requires( String & text ) { value->print( text ); } ) {
         String text;
         value->print( text );
         return text;
      } else if constexpr( std::is_convertible_v< decltype( value.get() ), Entity const * > ) {
         return value->name();
      } else {
         return value->fwkType().name();
      }
   } else if constexpr( FieldedValue< T > ) {
      return T::KivFields::toDatum( value );
   } else if constexpr( ValueHolder< T > ) {
      return toDatum( *value );
   } else if constexpr( isVector< T > ) {
      Datum::Array array;
      for( auto const & element : value ) {
         array.push_back( toDatum( element ) );
      }
      return array;
   } else if constexpr( KeyedCollection< T > ) {
      return datumOfCollection( value );
   } else if constexpr( RangedNumber< T > ) {
      return Datum( value.value() );
   } else if constexpr( std::is_arithmetic_v< T > ) {
      return Datum( value );
   } else {
      return toText( value );
   }
}

template< class T >
T
fromDatum( Datum const & datum ) {
   if constexpr( isPtr< T > ) {
      throw ParseError( "a reference to an entity cannot be written" );
   } else if constexpr( FieldedValue< T > ) {
      return T::KivFields::fromDatum( datum );
   } else if constexpr( isVector< T > ) {
      auto const * array = datum.as< Datum::Array >();
      if( !array ) {
         wrongShape( datum, "a list" );
      }
      T values;
      for( auto const & element : *array ) {
         values.push_back( inPlace( '[' + std::to_string( values.size() ) + ']', [ & ] {
            return fromDatum< typename T::value_type >( element );
         } ) );
      }
      return values;
   } else if constexpr( ValueHolder< T > ) {
      return T( fromDatum< typename T::KivHeld >( datum ) );
   } else if constexpr( KeyedCollection< T > ) {
      return collectionFrom< T >( datum );
   } else if constexpr( std::is_same_v< T, bool > ) {
      auto const * value = datum.as< bool >();
      if( !value ) {
         wrongShape( datum, "true or false" );
      }
      return *value;
   } else if constexpr( std::is_integral_v< T > ) {
      using Wide = std::conditional_t< std::is_signed_v< T >, std::int64_t, std::uint64_t >;
      using Limits = std::numeric_limits< T >;
      return static_cast< T >( integerFrom( datum, static_cast< Wide >( Limits::min() ),
                                            static_cast< Wide >( Limits::max() ) ) );
   } else if constexpr( RangedFraction< T > ) {
      return T( numberFrom( datum ) );
   } else if constexpr( RangedNumber< T > ) {
      // Also as text, which is how keys and many files have it.
      if( auto const * text = datum.as< String >() ) {
         return T::parse( *text );
      }
      // A whole number out of bounds is for the type to refuse.
      auto const * number = datum.as< std::int64_t >();
      return T( number ? *number
                       : integerFrom( datum, std::int64_t{ T::min }, std::int64_t{ T::max } ) );
   } else if constexpr( std::is_floating_point_v< T > ) {
      return static_cast< T >( numberFrom( datum ) );
   } else {
      auto const * text = datum.as< String >();
      if( !text ) {
         wrongShape( datum, "a string" );
      }
      return fromText< T >( *text );
   }
}

} // namespace Kiv
