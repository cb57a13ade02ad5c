// SPDX-License-Identifier: Apache-2.0
#pragma once

// Value types. One declaration of the fields, in order, yields equality, ordering, a hash, the
// printed form "Value('Name', ** {'field': value, ...})" and the datum form (Kiv/Datum.h):
//
//    struct Threshold {
//       KIV_VALUE( Bridging::StormControl::Threshold );
//       KIV_FIELD( std::uint32_t, mode, 0 );
//       KIV_FIELD( std::uint32_t, level, 10000 );
//    };
//
// The fields are public members; the type stays an aggregate: Threshold{ 0, 250 }. A member
// `void check() const` is asked about what comes from outside: it throws RangeException for fields
// that are not right.
//
// Numbers with bounds: KIV_RANGED( VlanId, std::uint16_t, 1, 4094, 1, "text of the range exception" )
// Enumerations that print and parse by name: KIV_ENUM( Name, std::uint8_t, a = 0, b, ... ) in a
// namespace, KIV_MEMBER_ENUM in a class. Initialisers are plain numbers. An enumerator whose name is
// another one in texts than in code says so behind itself: b = 4 KIV_SHOWN( "not b" ).

#include "Kiv/Attribute.h"
#include "Kiv/Datum.h"
#include "Kiv/Hash.h"

#include <compare>
#include <span>
#include <vector>

namespace Kiv {

// One field of one value, and what to do with it. Value types make tables of these for code that
// is not compiled anew for each of them.
template< class Call, class Place >
struct FieldCall {
   char const * name;
   Call * call;
   Place * place;
};
using FieldPrint = FieldCall< void( String & out, void const * ), void const >;
using FieldGet = FieldCall< Datum( void const * ), void const >;
using FieldPut = FieldCall< void( void *, Datum const & ), void >;

void printFields( String & out, std::string_view name, std::span< FieldPrint const > fields );
Datum datumOfFields( std::span< FieldGet const > fields );
// Throws ParseError or RangeException.
void putFields( Datum const & datum, std::span< FieldPut const > fields );

template< class T >
void
printAt( String & out, void const * place ) {
   print( out, *static_cast< T const * >( place ) );
}
template< class T >
Datum
datumAt( void const * place ) {
   return toDatum( *static_cast< T const * >( place ) );
}
template< class T >
void
putAt( void * place, Datum const & datum ) {
   *static_cast< T * >( place ) = fromDatum< T >( datum );
}

template< class V, class T >
struct FieldOf {
   char const * name;
   T V::*member;

   FieldPrint printOf( V const & value ) const {
      return { name, &printAt< T >, &( value.*member ) };
   }
   FieldGet getOf( V const & value ) const { return { name, &datumAt< T >, &( value.*member ) }; }
   FieldPut putOf( V & value ) const { return { name, &putAt< T >, &( value.*member ) }; }
};

// The fields of the value type V.
template< class V >
class FieldsOf {
 public:
   static void print( String & out, V const & value ) {
      withFields( [ & ]( auto... field ) {
         FieldPrint const fields[] = { field.printOf( value )... };
         printFields( out, V::kivName, fields );
      } );
   }
   static std::size_t hash( V const & value ) {
      std::size_t seed = 0;
      withFields( [ & ]( auto... field ) {
         ( ( seed = hashCombine( seed, hashOf( value.*field.member ) ) ), ... );
      } );
      return seed;
   }
   static Datum toDatum( V const & value ) {
      return withFields( [ & ]( auto... field ) {
         FieldGet const fields[] = { field.getOf( value )... };
         return datumOfFields( fields );
      } );
   }
   static V fromDatum( Datum const & datum ) {
      V value;
      withFields( [ & ]( auto... field ) {
         FieldPut const fields[] = { field.putOf( value )... };
         putFields( datum, fields );
      } );
      if constexpr( requires { value.check(); } ) {
         value.check();
      }
      return value;
   }

 private:
   template< class Use >
   static auto withFields( Use const & use ) {
      return [ & ]< unsigned... i >( std::integer_sequence< unsigned, i... > ) {
         return use( V::kivField( Count< i >{} )... );
      }
      ( std::make_integer_sequence< unsigned, decltype( V::kivCount( MaxRank{} ) )::value >{} );
   }
};

// Names and values of an enumeration, out of the text of its declaration.
class EnumNames {
 public:
   EnumNames( std::string_view type, std::string_view enumerators );
   // A value without a name prints as its number.
   void print( std::string & out, std::int64_t value ) const;
   // Takes a name; throws ParseError with all names.
   std::int64_t parse( std::string_view text ) const;
   std::vector< std::pair< String, std::int64_t > > const & all() const { return names_; }

 private:
   String type_;
   std::vector< std::pair< String, std::int64_t > > names_;
};

// For numbers with bounds. `text` is the exception's; its reason names number and bounds.
[[noreturn]] void rangeFailed( char const * text, String const & number, std::int64_t min,
                               std::int64_t max );
// Any number that fits into 64 bits; ParseError with the bounds for what is none.
std::int64_t parseRanged( std::string_view text, std::int64_t min, std::int64_t max );

// A number with bounds; Derived brings the text of the exception, `rangeText`.
template< class Derived, class Rep, Rep minimum, Rep maximum, Rep initial >
class Ranged {
 public:
   using KivNumber = Rep;
   static constexpr Rep min = minimum;
   static constexpr Rep max = maximum;

   constexpr Ranged() = default;
   // Throws RangeException outside [min, max].
   template< class Number >
      requires std::is_integral_v< Number >
   constexpr explicit Ranged( Number number ) : value_( static_cast< Rep >( number ) ) {
      if( std::cmp_less( number, minimum ) || std::cmp_greater( number, maximum ) ) {
         rangeFailed( Derived::rangeText, std::to_string( number ), minimum, maximum );
      }
   }

   constexpr Rep value() const { return value_; }

   friend constexpr bool operator==( Ranged const &, Ranged const & ) = default;
   friend constexpr auto operator<=>( Ranged const &, Ranged const & ) = default;
   std::size_t hash() const { return hashOf( value_ ); }
   void print( std::string & out ) const { Kiv::print( out, value_ ); }
   // ParseError for what is no number, RangeException for a number outside the bounds.
   static Derived parse( std::string_view text ) {
      return Derived( parseRanged( text, minimum, maximum ) );
   }

 private:
   Rep value_ = initial;
};

} // namespace Kiv

// hash() and print() are templates so that only those who use them compile them.
//
// A value type that prints its own way, for instance as a key in a path: it brings print() and parse().
#define KIV_PLAIN_VALUE( Name )                                                                    \
   using KivSelf = Name;                                                                           \
   using KivFields = ::Kiv::FieldsOf< Name >;                                                      \
   static constexpr ::std::string_view kivName = #Name;                                            \
   static ::Kiv::Count< 0 > kivCount( ::Kiv::Rank< 0 > );                                          \
   friend bool operator==( Name const &, Name const & ) = default;                                 \
   friend auto operator<=>( Name const &, Name const & ) = default;                                \
   template< class KivF = KivFields >                                                              \
   ::std::size_t hash() const {                                                                    \
      return KivF::hash( *this );                                                                  \
   }                                                                                               \
   static_assert( true )

#define KIV_VALUE( Name )                                                                          \
   KIV_PLAIN_VALUE( Name );                                                                        \
   template< class KivF = KivFields >                                                              \
   void print( ::std::string & kivOut ) const {                                                    \
      KivF::print( kivOut, *this );                                                                \
   }                                                                                               \
   static_assert( true )

#define KIV_FIELD( T, field, ... )                                                                 \
   using kivAt_##field = decltype( kivCount( ::Kiv::MaxRank{} ) );                                 \
   static constexpr auto kivField( kivAt_##field ) {                                               \
      return ::Kiv::FieldOf< KivSelf, T >{ #field, &KivSelf::field };                              \
   }                                                                                               \
   static typename kivAt_##field::Next kivCount( typename kivAt_##field::NextRank );               \
   T field { __VA_ARGS__ }

// Read out of the text of the declaration; no comma in it.
#define KIV_SHOWN( text )
#define KIV_ENUM( Name, Rep, ... )                                                                 \
   enum Name : Rep { __VA_ARGS__ };                                                                \
   inline KIV_ENUM_NAMES_( Name, #__VA_ARGS__ )
#define KIV_MEMBER_ENUM( Name, Rep, ... )                                                          \
   enum Name : Rep { __VA_ARGS__ };                                                                \
   friend KIV_ENUM_NAMES_( Name, #__VA_ARGS__ )
#define KIV_ENUM_NAMES_( Name, text )                                                              \
   ::Kiv::EnumNames const & kivEnumNames( Name ) {                                                 \
      static ::Kiv::EnumNames const names( #Name, text );                                          \
      return names;                                                                                \
   }                                                                                               \
   static_assert( true )

#define KIV_RANGED( Name, Rep, minimum, maximum, initial, text )                                   \
   class Name : public ::Kiv::Ranged< Name, Rep, minimum, maximum, initial > {                     \
    public:                                                                                        \
      using Ranged::Ranged;                                                                        \
      static constexpr char const * rangeText = text;                                              \
   }
