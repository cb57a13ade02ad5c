// SPDX-License-Identifier: Apache-2.0
#include "KivExample.h"
#include "Refusal.h"

#include "Kiv/Interned.h"
#include "Kiv/PtrByKey.h"
#include "Kiv/Shared.h"

#include <map>
#include <random>
#include <set>

namespace Example {

using Counts = Kiv::HashMap< Kiv::String, int >;
using Points = Kiv::OrderedMap< int, Point >;

struct Bag {
   KIV_VALUE( Example::Bag );
   KIV_FIELD( Counts, count );
   KIV_FIELD( Kiv::HashSet< int >, set );
   KIV_FIELD( Points, ordered );
};

class Group : public Kiv::AccessedValue {
   KIV_ACCESSED_VALUE( Example::Group );
   KIV_ATTRIBUTE( std::uint32_t, ttl, 64 );
   KIV_COLLECTION( Point, std::uint32_t, weight );
   KIV_DERIVED( std::uint64_t, totalCache, updateTotal, unknown );

 public:
   static constexpr std::uint64_t unknown = ~0ull;
   void kivChanged( Kiv::AttributeId const & field, void const * = nullptr ) {
      changes += Kiv::String( field.name ) + ' ';
      totalCache_ = unknown;
   }
   void updateTotal() const {
      totalCache_ = 0;
      for( auto const & [ point, weightOf ] : weight_ ) {
         totalCache_ += weightOf;
      }
   }
   Kiv::String changes;
};

struct Errors {
   KIV_FLAGS( Example::Errors, std::uint8_t, lost, late, b2, b3, b4, b5, b6, last );
};

class Keyed : public Kiv::PtrInterface {
   KIV_TYPE( Keyed );

 public:
   int key() const { return key_; }

 private:
   explicit Keyed( int key ) : key_( key ) {}
   int const key_;
};

struct Pointing {
   KIV_VALUE( Example::Pointing );
   KIV_FIELD( Kiv::PtrByKey< Keyed >, to );
};

struct Line {
   KIV_VALUE( Example::Line );
   KIV_FIELD( std::vector< Point >, point );
   KIV_FIELD( std::vector< Kiv::String >, name );
};

} // namespace Example

namespace {

using namespace Example;
using Kiv::Datum;
using Kiv::fromDatum;
using Kiv::ParseError;
using Kiv::RangeException;
using Kiv::toDatum;
using Kiv::toText;
using Refusals::refusal;

struct Holder {
   KIV_MEMBER_ENUM( State, std::int8_t, idle = -1, busy, done KIV_SHOWN( "all done" ), gone );
   State state = busy;
};

TEST( KivValue, printsItsFieldsInOrder ) {
   EXPECT_EQ( toText( Point{} ), "Value('Example::Point', ** {'x': 1, 'y': 0, 'colour': green})" );
   EXPECT_EQ( toText( Shape{ .label = "it's" } ),
              "Value('Example::Shape', ** {'label': it's, 'origin': "
              "Value('Example::Point', ** {'x': 1, 'y': 0, 'colour': green}), 'share': 10, "
              "'filled': true, 'scale': 0.5})" );
   EXPECT_EQ( toText( Line{ {}, { "a", "b" } } ),
              "Value('Example::Line', ** {'point': [], 'name': [a, b]})" );
}

TEST( KivValue, comparesAndHashesByFields ) {
   Shape const base{ "m", { 2, 3, red }, Percent( 50 ), true, 1.5 };
   // Each differs from the base in one field, and comes before it.
   Shape const smaller[] = {
         { "l", { 2, 3, red }, Percent( 50 ), true, 1.5 },
         { "m", { -2, 3, red }, Percent( 50 ), true, 1.5 },
         { "m", { 2, 2, blue }, Percent( 50 ), true, 1.5 },
         { "m", { 2, 3, red }, Percent( 49 ), true, 2.5 },
         { "m", { 2, 3, red }, Percent( 50 ), false, 1.5 },
         { "m", { 2, 3, red }, Percent( 50 ), true, -1.5 },
   };
   std::set< std::size_t > hashes{ base.hash() };
   for( auto const & other : smaller ) {
      EXPECT_TRUE( other < base ) << toText( other );
      EXPECT_NE( other, base );
      hashes.insert( other.hash() );
   }
   EXPECT_EQ( hashes.size(), 7u );
   EXPECT_EQ( Shape( base ).hash(), base.hash() );
   EXPECT_EQ( ( Point{ 1, 2 }.hash() == Point{ 2, 1 }.hash() ), false ) << "order counts";
}

// Less than, equal, or more; and hashes, texts and data agree with that.
template< class T >
int
compared( T const & a, T const & b ) {
   for( std::size_t seed : { 0, 1, 77 } ) {
      EXPECT_EQ( a.hash( seed ) == b.hash( seed ), a == b ) << toText( a ) << toText( b );
   }
   EXPECT_NE( a.hash( 1 ), a.hash( 2 ) );
   EXPECT_EQ( toText( a ) == toText( b ), a == b );
   EXPECT_EQ( toDatum( a ) == toDatum( b ), a == b );
   EXPECT_EQ( ( a <=> b ) == 0, a == b );
   return a < b ? -1 : b < a;
}

TEST( KivValue, collectionsAreFieldsInWhateverOrderTheyWereFilled ) {
   Bag up, down;
   for( int i = 0; i < 9; ++i ) {
      up.count.tryEmplace( toText( i ), i );
      up.set.insert( i );
      up.ordered.tryEmplace( i, Point{ i } );
      down.count.tryEmplace( toText( 8 - i ), 8 - i );
      down.set.insert( 8 - i );
      down.ordered.tryEmplace( 8 - i, Point{ 8 - i } );
   }
   EXPECT_EQ( compared( up, down ), 0 );
   EXPECT_EQ( compared( up, fromDatum< Bag >( toDatum( down ) ) ), 0 );
   auto changed = [ & ]( auto const & change ) {
      auto other = down;
      change( other );
      return compared( other, up );
   };
   EXPECT_EQ( changed( []( Bag & bag ) { *bag.count.find( "3" ) = 2; } ), -1 );
   EXPECT_EQ( changed( []( Bag & bag ) { bag.count.erase( "8" ); } ), -1 );
   EXPECT_EQ( changed( []( Bag & bag ) { bag.set.erase( 3 ); } ), 1 ) << "4 comes where 3 was";
   EXPECT_EQ( changed( []( Bag & bag ) { bag.ordered.find( 5 )->y = 1; } ), 1 );
   EXPECT_EQ( changed( []( Bag & bag ) { bag = {}; } ), -1 );
   Bag few;
   few.count.tryEmplace( "b", 2 );
   few.count.tryEmplace( "a", 1 );
   few.set.insert( 7 );
   EXPECT_EQ( toText( few ),
              "Value('Example::Bag', ** {'count': {a: 1, b: 2}, 'set': [7], 'ordered': {}})" );
   auto refused = []( char const * field, Datum const & value ) {
      return refusal< ParseError >( [ & ] {
         fromDatum< Bag >( Datum::Object{ { field, value } } );
      } );
   };
   EXPECT_EQ( refused( "count", Datum::Object{ { "a", 1 }, { "a", 1 } } ),
              "count: a: a is given twice" );
   EXPECT_EQ( refused( "set", Datum::Array{ 1, 2, 1 } ), "set: [2]: 1 is given twice" );
   EXPECT_EQ( refused( "ordered", Datum::Object{ { "x", 1 } } ),
              "ordered: x: \"x\" is not a number from -2147483648 to 2147483647" );
}

TEST( KivValue, accessorsSayWhatChangesAndDerivedFactsAreLeftOut ) {
   Group a, b;
   a.weightIs( { 1 }, 5 );
   a.weightIs( { 2 }, 7 );
   a.updateTotal();
   a.weightIs( { 2 }, 7 );
   a.ttlIs( 64 );
   EXPECT_EQ( a.totalCache(), 12u );
   b.weightIs( { 2 }, 7 );
   b.weightIs( { 1 }, 5 );
   EXPECT_EQ( b.totalCache(), Group::unknown );
   EXPECT_EQ( compared( a, b ), 0 );
   EXPECT_EQ( compared( a, fromDatum< Group >(
                                 Datum::Object{ { "weight", *toDatum( b ).find( "weight" ) } } ) ),
              0 );
   b.ttlIs( 65 );
   EXPECT_EQ( compared( a, b ), -1 );
   b.weightDel( { 2 } );
   b.weightDel( { 2 } );
   b.weightDelAll();
   EXPECT_EQ( a.changes + '|' + b.changes, "weight weight |weight weight ttl weight weight " );
   EXPECT_EQ( toText( b ),
              "Value('Example::Group', ** {'ttl': 65, 'weight': {}, 'totalCache': 0})" );
   EXPECT_EQ( refusal< ParseError >( [] {
                 fromDatum< Group >( Datum::Object{ { "totalCache", 3 } } );
              } ),
              "\"totalCache\" is not one of the fields ttl, weight" );
}

TEST( KivValue, flagsHaveBitsInTheirOrder ) {
   Errors errors{ 0x81 };
   EXPECT_TRUE( errors.lost() && errors.last() && !errors.late() && errors );
   EXPECT_EQ( errors.lateIs( true ).lostIs( false ).raw(), 0x82 );
   EXPECT_EQ( errors.words(), "late, last" );
   EXPECT_EQ( ( errors | Errors{ 1 } ).raw(), 0x83 );
   EXPECT_EQ( errors & Errors::of( Errors::Flag::b3 ), Errors{} );
   EXPECT_EQ( compared( errors, Errors{ 0x83 } ), -1 );
   EXPECT_TRUE( toText( errors ).starts_with(
         "Value('Example::Errors', ** {'lost': false, 'late': true, " ) );
   EXPECT_EQ( fromDatum< Errors >( toDatum( errors ) ), errors );
   EXPECT_EQ( fromDatum< Errors >( Datum::Array{ "late", "last" } ), errors );
   EXPECT_EQ( refusal< ParseError >( [] { fromDatum< Errors >( Datum::Array{ "early" } ); } ),
              "\"early\" is not one of lost, late, b2, b3, b4, b5, b6, last" );
}

TEST( KivValue, pointersByKeyAreNoMatterOfAddresses ) {
   Pointing const none, one{ Kiv::make< Keyed >( 1 ) }, same{ Kiv::make< Keyed >( 1 ) },
         two{ Kiv::make< Keyed >( 2 ) };
   EXPECT_EQ( compared( one, same ), 0 );
   EXPECT_EQ( compared( one, two ), -1 );
   EXPECT_EQ( compared( two, none ), 1 );
   EXPECT_EQ(
         toText( none ) + toText( two ),
         "Value('Example::Pointing', ** {'to': none})Value('Example::Pointing', ** {'to': 2})" );
}

TEST( KivValue, sharedValuesAreCopiedBeforeTheyChange ) {
   Kiv::Shared< Group > a, b;
   EXPECT_EQ( a.get(), nullptr );
   a.mutate();
   EXPECT_EQ( a, b ) << "none of its own is the default";
   b = a;
   EXPECT_EQ( a.get(), b.get() );
   b.mutate().ttlIs( 7 );
   EXPECT_EQ( a->ttl() * 100 + b->ttl(), 6407u );
   EXPECT_EQ( b < a ? a.hash() : 0, Group().hash() );
   auto const * alone = b.get();
   b.mutate().ttlIs( 8 );
   EXPECT_EQ( b.get(), alone ) << "nobody else would notice";
}

TEST( KivValue, internedValuesAreOneWhenTheyAreEqual ) {
   using Interned = Kiv::Interned< Point >;
   std::mt19937 random( 5 );
   std::vector< Interned > held( 3000 );
   std::vector< Point > model( held.size() );
   for( int step = 0; step < 60000; ++step ) {
      auto const at = random() % held.size();
      // Many, then few: the table grows and shrinks.
      int const kinds = step % 20000 < 10000 ? 2500 : 3;
      Point const point{ static_cast< int >( random() % static_cast< unsigned >( kinds ) ), 0,
                         red };
      held[ at ] = point;
      model[ at ] = point;
      if( step % 5000 == 4999 ) {
         std::map< Point, std::set< Point const * > > objects;
         for( std::size_t i = 0; i < held.size(); ++i ) {
            ASSERT_EQ( *held[ i ], model[ i ] );
            ASSERT_EQ( held[ i ].hash(), model[ i ].hash() );
            objects[ model[ i ] ].insert( &*held[ i ] );
         }
         for( auto const & [ value, object ] : objects ) {
            ASSERT_EQ( object.size(), 1u ) << toText( value );
            ASSERT_EQ( &*Interned::find( value ), *object.begin() );
         }
         ASSERT_EQ( Interned::count(), objects.size() - objects.count( Point{} ) );
      }
   }
   EXPECT_EQ( held[ 0 ] < held[ 1 ], model[ 0 ] < model[ 1 ] );
   held.clear();
   EXPECT_EQ( Interned::count(), 0u );
   EXPECT_EQ( Interned().holders() + Interned( Point{} ).holders(), 0u )
         << "the default costs nothing";
}

TEST( KivValue, enumerationsGoByName ) {
   EXPECT_EQ( toText( red ) + toText( green ) + toText( blue ), "redgreenblue" );
   EXPECT_EQ( blue, 5 );
   EXPECT_EQ( toText( static_cast< Colour >( 9 ) ), "9" );
   EXPECT_EQ( Kiv::fromText< Colour >( "blue" ), blue );
   EXPECT_EQ( toText( Holder::idle ) + toText( Holder{}.state ), "idlebusy" );
   EXPECT_EQ( Kiv::fromText< Holder::State >( "all done" ), Holder::done );
   EXPECT_EQ( toText( Holder::done ) + toText( Holder::gone ), "all donegone" );
   Refusals::expectRefused< Colour >( "\" is not one of red, green, blue", { "Blue", "" } );
}

TEST( KivValue, rangedNumbersRefuseWithTheirText ) {
   constexpr auto text = "Example::Percent::value < 1 or > 100 not allowed";
   EXPECT_EQ( Percent().value(), 10 );
   EXPECT_EQ( Percent( 1 ).value() + Percent( 100u ).value(), 101 );
   for( int outside : { 0, -1, 101, 257 } ) { // no wrapping into the range
      EXPECT_EQ( refusal< RangeException >( [ & ] { Percent{ outside }; } ), text );
   }
   EXPECT_EQ( refusal< RangeException >( [] { Percent( ~0ull ); } ), text );
   EXPECT_EQ( refusal< RangeException >( [] { Kiv::fromText< Percent >( "256" ); } ), text );
   EXPECT_EQ( Kiv::fromText< Percent >( "99" ), Percent( 99 ) );
   Refusals::expectRefused< Percent >( "\"ten\" is not a number from 1 to 100", { "ten" } );
   EXPECT_TRUE( Percent( 3 ) < Percent( 4 ) );
}

template< class T >
void
expectRoundTrip( T const & value ) {
   EXPECT_EQ( fromDatum< T >( toDatum( value ) ), value ) << toText( value );
}

TEST( KivDatum, valuesGoThereAndBack ) {
   expectRoundTrip( Shape{ "l", { -2147483647 - 1, 255, blue }, Percent( 100 ), false, 1e-300 } );
   expectRoundTrip( Line{ { Point{}, Point{ .x = 7 } }, { "", "x" } } );
   expectRoundTrip( std::numeric_limits< std::uint64_t >::max() );
   expectRoundTrip( std::numeric_limits< std::int64_t >::min() );
   expectRoundTrip( std::int8_t{ -128 } );
   expectRoundTrip( Kiv::String( "text" ) );
   expectRoundTrip( true );
   EXPECT_EQ( fromDatum< double >( Datum( 3 ) ), 3.0 );
   EXPECT_EQ( fromDatum< std::uint8_t >( Datum( std::int64_t{ 255 } ) ), 255 );

   // What an object leaves out has its default.
   Datum object( Datum::Object{ { "x", 9 } } );
   EXPECT_EQ( fromDatum< Point >( object ), Point{ .x = 9 } );
   EXPECT_EQ( object.find( "y" ), nullptr );
   EXPECT_EQ( Datum( 1 ).find( "x" ), nullptr );
}

TEST( KivDatum, refusalsNameTheField ) {
   using Object = Datum::Object;
   using Array = Datum::Array;
   struct Case {
      char const * field; // of a shape, or of its origin
      Datum value;
      char const * text;
   };
   Case const cases[] = {
         { "colour", "red",
           "\"colour\" is not one of the fields label, origin, share, filled, scale" },
         { "label", 1, "label: a number is not a string" },
         { "filled", "yes", "filled: \"yes\" is not true or false" },
         { "filled", Datum(), "filled: nothing is not true or false" },
         { "scale", "big", "scale: \"big\" is not a number" },
         { "origin", Array{}, "origin: a list is not an object with the fields x, y, colour" },
         { "y", 256, "y: 256 is not a whole number from 0 to 255" },
         { "y", -1, "y: -1 is not a whole number from 0 to 255" },
         { "y", 1.5, "y: 1.5 is not a whole number from 0 to 255" },
         { "x", ~0ull,
           "x: 18446744073709551615 is not a whole number from -2147483648 to 2147483647" },
         { "share", "ten", "share: \"ten\" is not a number from 1 to 100" },
         { "share", 1.5, "share: 1.5 is not a whole number from 1 to 100" },
         { "share", ~0ull, "share: 18446744073709551615 is not a whole number from 1 to 100" },
   };
   for( auto const & [ field, value, text ] : cases ) {
      bool const nested = std::string_view( "xy" ).find( field ) != std::string_view::npos;
      Object const object{ { field, value } };
      Datum const shape = nested ? Object{ { "origin", object } } : object;
      EXPECT_EQ( refusal< ParseError >( [ & ] { fromDatum< Shape >( shape ); } ),
                 std::string( nested ? "origin: " : "" ) + text );
   }
   EXPECT_EQ( refusal< ParseError >( [] { fromDatum< Shape >( 3 ); } ),
              "a number is not an object with the fields label, origin, share, filled, scale" );
   Datum const line = Object{ { "name", Array{ "a", true } } };
   EXPECT_EQ( refusal< ParseError >( [ & ] { fromDatum< Line >( line ); } ),
              "name: [1]: a boolean is not a string" );
   // With a field to name, the text of the type gives way to one that names no type.
   for( Datum const & share : { Datum( "101" ), Datum( 101 ), Datum( -1 ) } ) {
      Datum const shape = Object{ { "share", share } };
      EXPECT_EQ( refusal< RangeException >( [ & ] { fromDatum< Shape >( shape ); } ),
                 "share: " + Kiv::datumText( share ) + " is not a number from 1 to 100" );
   }
}

} // namespace
