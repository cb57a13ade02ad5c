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
// A value that is more than its fields declares them with the words of an entity (Kiv/Attribute.h), which
// makes them private and brings the accessors; collections are fields like any other:
//
//    class Group : public Kiv::AccessedValue {
//       KIV_ACCESSED_VALUE( Hoba::Group );
//       KIV_GIVEN( Kind, kind, ip );                            // kind(): the constructor says it
//       KIV_ATTRIBUTE( std::uint32_t, ttl, 64 );                // ttl(), ttlIs( v )
//       KIV_COLLECTION( NextHop, std::uint32_t, nextHop );      // nextHop(), nextHopIs( k, v ), nextHopDel( k ) ...
//       KIV_DERIVED( std::uint64_t, totalWeightCache, updateCaches, unknown );  // totalWeightCache()
//     public:
//       void kivChanged( Kiv::AttributeId const & field, void const * key = nullptr );
//    };
//
// Every change, and nothing else, says kivChanged(): there what was derived from the fields becomes out of
// date. A derived fact stands among the fields, and prints as updateCaches() makes it; equality, order and
// hash do without it.
//
// The hash takes a seed: hash( seed ). Collections are equal, ordered and hashed whatever the order in which
// they were filled. A Ptr among the fields compares by address, and has no order: see Kiv/PtrByKey.h.
//
// Sets of flags: KIV_FLAGS( Hoba::ErrorStates, std::uint8_t, uninitialized, missing ), in a struct of nothing
// else, the first flag in the lowest bit: uninitialized(), uninitializedIs( bool ); ErrorStates{ raw }.
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
   static_assert( !isPtr< T > || HashMember< T >,
                  "addresses differ from run to run: let the field be a Kiv::PtrByKey" );
   static constexpr bool isDerived = false;
   char const * name;
   T V::*member;

   T const & in( V const & value ) const { return value.*member; }
   FieldPrint printOf( V const & value ) const { return { name, &printAt< T >, &in( value ) }; }
   FieldGet getOf( V const & value ) const { return { name, &datumAt< T >, &in( value ) }; }
   FieldPut putOf( V & value ) const { return { name, &putAt< T >, &( value.*member ) }; }
};

// One that is declared with the words of an entity.
template< class V, unsigned i >
struct AccessedFieldOf {
   using At = Count< i >;
   static constexpr auto const & attribute = V::kivAttribute( At{} );
   using T = std::remove_cvref_t< decltype( V::kivGet( At{}, std::declval< V const & >() ) ) >;
   static constexpr bool isDerived = requires { V::kivDerived( At{} ); };
   static constexpr char const * name = attribute.name;

   static T const & in( V const & value ) { return V::kivGet( At{}, value ); }
   static FieldPrint printOf( V const & value ) {
      // It may have to be brought up to date for that.
      if constexpr( isDerived ) {
         V::kivDerived( At{}, value );
      }
      return { name, &printAt< T >, &in( value ) };
   }
   static FieldGet getOf( V const & value ) { return { name, &datumAt< T >, &in( value ) }; }
   static FieldPut putOf( V & value ) { return { name, &put, &value }; }
   static void put( void * place, Datum const & datum ) {
      auto & value = *static_cast< V * >( place );
      auto const field = Kiv::fromDatum< T >( datum );
      if constexpr( !KeyedCollection< T > ) {
         V::kivPut( At{}, value, field );
      } else {
         for( auto const & member : field ) {
            if constexpr( DatumMap< T > ) {
               V::kivPut( At{}, value, member.key, member.value );
            } else {
               V::kivPut( At{}, value, member );
            }
         }
      }
   }
};

// Where nothing is to be done about a change.
struct AccessedValue {
   void kivChanged( AttributeId const &, void const * = nullptr ) {}
   friend bool operator==( AccessedValue, AccessedValue ) = default;
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
   static std::size_t hash( V const & value, std::size_t seed ) {
      if constexpr( requires { value.kivHash( seed ); } ) { // it remembers some of it
         return value.kivHash( seed );
      } else {
         return withFields( [ & ]( auto... field ) {
            std::uint64_t const words[] = { hashWordOf( field, value )... };
            return hashWords( words, seed );
         } );
      }
   }
   static bool equal( V const & a, V const & b ) {
      bool isEqual = true;
      withFacts( [ & ]( auto field ) { isEqual = isEqual && field.in( a ) == field.in( b ); } );
      return isEqual;
   }
   static std::strong_ordering compare( V const & a, V const & b ) {
      auto order = std::strong_ordering::equal;
      withFacts( [ & ]( auto field ) {
         if( order == 0 ) {
            order = field.in( a ) <=> field.in( b );
         }
      } );
      return order;
   }
   static Datum toDatum( V const & value ) {
      return withFields( [ & ]( auto... field ) {
         FieldGet const fields[] = { field.getOf( value )... };
         return datumOfFields( fields );
      } );
   }
   static V fromDatum( Datum const & datum ) {
      V value;
      std::vector< FieldPut > fields;
      withFacts( [ & ]( auto field ) { fields.push_back( field.putOf( value ) ); } );
      putFields( datum, fields );
      if constexpr( requires { value.check(); } ) {
         value.check();
      }
      return value;
   }

 private:
   template< unsigned i >
   static auto field() {
      if constexpr( requires { V::kivField( Count< i >{} ); } ) {
         return V::kivField( Count< i >{} );
      } else {
         return AccessedFieldOf< V, i >{};
      }
   }
   template< class Use >
   static auto withFields( Use const & use ) {
      return [ & ]< unsigned... i >( std::integer_sequence< unsigned, i... > ) {
         return use( field< i >()... );
      }
      ( std::make_integer_sequence< unsigned, decltype( V::kivCount( MaxRank{} ) )::value >{} );
   }
   // Numbers are mixed once, with the others.
   template< class Field >
   static std::uint64_t hashWordOf( Field const & field, V const & value ) {
      if constexpr( Field::isDerived ) {
         return 0;
      } else {
         using T = std::remove_cvref_t< decltype( field.in( value ) ) >;
         if constexpr( HashedAsWord< T > ) {
            return wordOf( field.in( value ) );
         } else {
            return hashOf( field.in( value ) );
         }
      }
   }
   // One by one those that the value is made of, not what is derived from them.
   template< class Use >
   static void withFacts( Use const & use ) {
      auto const useFact = [ & ]( auto field ) {
         if constexpr( !decltype( field )::isDerived ) {
            use( field );
         }
      };
      withFields( [ & ]( auto... field ) { ( useFact( field ), ... ); } );
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

// The flags of a set, bit by bit, the lowest first. `names` are those of its enumeration of positions.
void printFlags( String & out, std::string_view type, EnumNames const & names, std::uint64_t raw );
// The names of those that are set, as "uninitialized, missing".
String flagWords( EnumNames const & names, std::uint64_t raw );
Datum datumOfFlags( EnumNames const & names, std::uint64_t raw );
// An object of some flags with true or false, or a list of the names of those that are set. Throws ParseError.
std::uint64_t flagsFrom( Datum const & datum, EnumNames const & names );

template< class V >
struct FlagsOf {
   static Datum toDatum( V value ) { return datumOfFlags( V::kivNames(), value.raw() ); }
   static V fromDatum( Datum const & datum ) {
      return V{ static_cast< typename V::KivRaw >( flagsFrom( datum, V::kivNames() ) ) };
   }
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
   constexpr std::uint64_t kivWord() const { return static_cast< std::uint64_t >( value_ ); }
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
   KIV_HASH_;                                                                                      \
   static_assert( true )

#define KIV_HASH_                                                                                  \
   template< class KivF = KivFields >                                                              \
   ::std::size_t hash( ::std::size_t kivSeed = 0 ) const {                                         \
      return KivF::hash( *this, kivSeed );                                                         \
   }                                                                                               \
   static_assert( true )

#define KIV_VALUE( Name )                                                                          \
   KIV_PLAIN_VALUE( Name );                                                                        \
   KIV_PRINT_;                                                                                     \
   static_assert( true )

#define KIV_PRINT_                                                                                 \
   template< class KivF = KivFields >                                                              \
   void print( ::std::string & kivOut ) const {                                                    \
      KivF::print( kivOut, *this );                                                                \
   }                                                                                               \
   static_assert( true )

#define KIV_ACCESSED_VALUE( Name )                                                                 \
 public:                                                                                           \
   using KivSelf = Name;                                                                           \
   using KivFields = ::Kiv::FieldsOf< Name >;                                                      \
   static constexpr ::std::string_view kivName = #Name;                                            \
   static ::Kiv::Count< 0 > kivCount( ::Kiv::Rank< 0 > );                                          \
   template< class KivF = KivFields >                                                              \
   bool operator==( Name const & other ) const {                                                   \
      return KivF::equal( *this, other );                                                          \
   }                                                                                               \
   template< class KivF = KivFields >                                                              \
   ::std::strong_ordering operator<=>( Name const & other ) const {                                \
      return KivF::compare( *this, other );                                                        \
   }                                                                                               \
   KIV_HASH_;                                                                                      \
   KIV_PRINT_

// What a value is given when it is made: attr().
#define KIV_GIVEN( T, attr, ... )                                                                  \
 private:                                                                                          \
   T attr##_{ __VA_ARGS__ };                                                                       \
                                                                                                   \
 public:                                                                                           \
   KIV_DESCRIBE( scalar, void, T, attr )                                                           \
   T const & attr() const { return attr##_; }                                                      \
   static void kivPut( KIV_POSITION( attr ), KivSelf & self, T const & value ) {                   \
      self.attr##_ = value;                                                                        \
   }                                                                                               \
   KIV_NEXT( attr )

// `update`, a member function of the value, brings it up to date.
#define KIV_DERIVED( T, attr, update, ... )                                                        \
 private:                                                                                          \
   mutable T attr##_{ __VA_ARGS__ };                                                               \
                                                                                                   \
 public:                                                                                           \
   KIV_DESCRIBE( scalar, void, T, attr )                                                           \
   T const & attr() const { return attr##_; }                                                      \
   static void kivDerived( KIV_POSITION( attr ) );                                                 \
   static void kivDerived( KIV_POSITION( attr ), KivSelf const & self ) { self.update(); }         \
   KIV_NEXT( attr )

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

#define KIV_FLAGS( Name, Rep, ... )                                                                \
   using KivSelf = Name;                                                                           \
   using KivFields = ::Kiv::FlagsOf< Name >;                                                       \
   using KivRaw = Rep;                                                                             \
   static constexpr ::std::string_view kivName = #Name;                                            \
   enum class Flag : unsigned { __VA_ARGS__, kivEnd };                                             \
   static_assert( static_cast< unsigned >( Flag::kivEnd ) <= 8 * sizeof( Rep ) );                  \
   static ::Kiv::EnumNames const & kivNames() {                                                    \
      static ::Kiv::EnumNames const names( #Name, #__VA_ARGS__ );                                  \
      return names;                                                                                \
   }                                                                                               \
                                                                                                   \
   Rep kivFlags = 0;                                                                               \
                                                                                                   \
   constexpr Rep raw() const { return kivFlags; }                                                  \
   constexpr explicit operator bool() const { return kivFlags != 0; }                              \
   static constexpr Name of( Flag flag ) { return Name{}.flagIs( flag, true ); }                   \
   constexpr bool has( Flag flag ) const {                                                         \
      return kivFlags >> static_cast< unsigned >( flag ) & 1;                                      \
   }                                                                                               \
   constexpr Name & flagIs( Flag flag, bool on ) {                                                 \
      auto const bit = ::std::uint64_t{ 1 } << static_cast< unsigned >( flag );                    \
      kivFlags = static_cast< Rep >( on ? kivFlags | bit : kivFlags & ~bit );                      \
      return *this;                                                                                \
   }                                                                                               \
   KIV_EACH_( KIV_FLAG_, __VA_ARGS__ )                                                             \
   friend constexpr Name operator|( Name a, Name b ) {                                             \
      return Name{ static_cast< Rep >( a.kivFlags | b.kivFlags ) };                                \
   }                                                                                               \
   friend constexpr Name operator&( Name a, Name b ) {                                             \
      return Name{ static_cast< Rep >( a.kivFlags & b.kivFlags ) };                                \
   }                                                                                               \
   constexpr Name without( Name other ) const {                                                    \
      return Name{ static_cast< Rep >( kivFlags & ~other.kivFlags ) };                             \
   }                                                                                               \
   friend bool operator==( Name const &, Name const & ) = default;                                 \
   friend auto operator<=>( Name const &, Name const & ) = default;                                \
   ::std::size_t hash( ::std::size_t kivSeed = 0 ) const {                                         \
      return ::Kiv::hashCombine( kivSeed, kivFlags );                                              \
   }                                                                                               \
   void print( ::std::string & kivOut ) const {                                                    \
      ::Kiv::printFlags( kivOut, kivName, kivNames(), kivFlags );                                  \
   }                                                                                               \
   /* The names of those that are set. */                                                          \
   ::std::string words() const { return ::Kiv::flagWords( kivNames(), kivFlags ); }                \
   static_assert( true )
#define KIV_FLAG_( flag )                                                                          \
   constexpr bool flag() const { return has( Flag::flag ); }                                       \
   constexpr KivSelf & flag##Is( bool on ) { return flagIs( Flag::flag, on ); }

// KIV_EACH_( MACRO, a, b, ... ) is MACRO( a ) MACRO( b ) ..., for up to 80.
#define KIV_EACH_( macro, ... ) __VA_OPT__( KIV_SCAN_( KIV_EACH_STEP_( macro, __VA_ARGS__ ) ) )
#define KIV_EACH_STEP_( macro, first, ... )                                                        \
   macro( first ) __VA_OPT__( KIV_EACH_AGAIN_ KIV_PARENTHESES_( macro, __VA_ARGS__ ) )
#define KIV_EACH_AGAIN_() KIV_EACH_STEP_
#define KIV_PARENTHESES_ ()
#define KIV_SCAN_( ... ) KIV_SCAN3_( KIV_SCAN3_( KIV_SCAN3_( __VA_ARGS__ ) ) )
#define KIV_SCAN3_( ... ) KIV_SCAN2_( KIV_SCAN2_( KIV_SCAN2_( __VA_ARGS__ ) ) )
#define KIV_SCAN2_( ... ) KIV_SCAN1_( KIV_SCAN1_( KIV_SCAN1_( __VA_ARGS__ ) ) )
#define KIV_SCAN1_( ... ) __VA_ARGS__

#define KIV_RANGED( Name, Rep, minimum, maximum, initial, text )                                   \
   class Name : public ::Kiv::Ranged< Name, Rep, minimum, maximum, initial > {                     \
    public:                                                                                        \
      using Ranged::Ranged;                                                                        \
      static constexpr char const * rangeText = text;                                              \
   }
