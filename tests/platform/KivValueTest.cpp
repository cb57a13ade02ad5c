// SPDX-License-Identifier: Apache-2.0
#include "KivExample.h"

#include <gtest/gtest.h>

#include <set>

namespace Example {

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
using Kiv::toDatum;
using Kiv::toText;

// What `act` throws, as "kind: text".
template< class Act >
std::string
refusal( Act act ) {
   try {
      act();
   } catch( Kiv::RangeException const & error ) {
      return std::string( "range: " ) + error.what();
   } catch( Kiv::ParseError const & error ) {
      return std::string( "parse: " ) + error.what();
   }
   return "accepted";
}

struct Holder {
   KIV_MEMBER_ENUM( State, std::int8_t, idle = -1, busy, done );
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

TEST( KivValue, enumerationsGoByName ) {
   EXPECT_EQ( toText( red ) + toText( green ) + toText( blue ), "redgreenblue" );
   EXPECT_EQ( blue, 5 );
   EXPECT_EQ( toText( static_cast< Colour >( 9 ) ), "9" );
   EXPECT_EQ( Kiv::fromText< Colour >( "blue" ), blue );
   EXPECT_EQ( toText( Holder::idle ) + toText( Holder{}.state ), "idlebusy" );
   EXPECT_EQ( Kiv::fromText< Holder::State >( "done" ), 1 );
   EXPECT_EQ( refusal( [] { Kiv::fromText< Colour >( "Blue" ); } ),
              "parse: \"Blue\" is not one of red, green, blue" );
   EXPECT_EQ( refusal( [] { Kiv::fromText< Colour >( "" ); } ),
              "parse: \"\" is not one of red, green, blue" );
}

TEST( KivValue, rangedNumbersRefuseWithTheirText ) {
   constexpr auto text = "range: Example::Percent::value < 1 or > 100 not allowed";
   EXPECT_EQ( Percent().value(), 10 );
   EXPECT_EQ( Percent( 1 ).value() + Percent( 100u ).value(), 101 );
   EXPECT_EQ( refusal( [] { Percent( 0 ); } ), text );
   EXPECT_EQ( refusal( [] { Percent( -1 ); } ), text );
   EXPECT_EQ( refusal( [] { Percent( 101 ); } ), text );
   EXPECT_EQ( refusal( [] { Percent( 257 ); } ), text ) << "no wrapping into the range";
   EXPECT_EQ( refusal( [] { Percent( ~0ull ); } ), text );
   EXPECT_EQ( Kiv::fromText< Percent >( "99" ), Percent( 99 ) );
   EXPECT_EQ( refusal( [] { Kiv::fromText< Percent >( "256" ); } ), text );
   EXPECT_EQ( refusal( [] { Kiv::fromText< Percent >( "ten" ); } ),
              "parse: \"ten\" is not a number from 1 to 100" );
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
   EXPECT_EQ( *object.find( "x" ), Datum( 9 ) );
   EXPECT_EQ( object.find( "y" ), nullptr );
   EXPECT_EQ( Datum( 1 ).find( "x" ), nullptr );
   EXPECT_TRUE( Datum().isNull() );
}

TEST( KivDatum, refusalsNameTheField ) {
   using Object = Datum::Object;
   using Array = Datum::Array;
   struct Case {
      Datum datum;
      char const * text;
   };
   Case const shapes[] = {
         { Datum( 3 ), "a number is not an object with the fields label, origin, share, filled, "
                       "scale" },
         { Datum( Object{ { "colour", "red" } } ),
           "\"colour\" is not one of the fields label, origin, share, filled, scale" },
         { Datum( Object{ { "label", 1 } } ), "label: a number is not a string" },
         { Datum( Object{ { "filled", "yes" } } ), "filled: \"yes\" is not true or false" },
         { Datum( Object{ { "filled", Datum() } } ), "filled: nothing is not true or false" },
         { Datum( Object{ { "scale", "big" } } ), "scale: \"big\" is not a number" },
         { Datum( Object{ { "origin", Array{} } } ),
           "origin: a list is not an object with the fields x, y, colour" },
         { Datum( Object{ { "origin", Object{ { "y", 256 } } } } ),
           "origin: y: 256 is not a whole number from 0 to 255" },
         { Datum( Object{ { "origin", Object{ { "y", -1 } } } } ),
           "origin: y: -1 is not a whole number from 0 to 255" },
         { Datum( Object{ { "origin", Object{ { "y", 1.5 } } } } ),
           "origin: y: 1.5 is not a whole number from 0 to 255" },
         { Datum( Object{ { "origin", Object{ { "x", ~0ull } } } } ),
           "origin: x: 18446744073709551615 is not a whole number from -2147483648 to "
           "2147483647" },
         { Datum( Object{ { "origin", Object{ { "colour", "pink" } } } } ),
           "origin: colour: \"pink\" is not one of red, green, blue" },
   };
   for( auto const & [ datum, text ] : shapes ) {
      EXPECT_EQ( refusal( [ &datum = datum ] { fromDatum< Shape >( datum ); } ),
                 std::string( "parse: " ) + text );
   }
   // With a field to name, the text of the type gives way to one that names no type.
   for( auto const & [ share, text ] : std::initializer_list< std::pair< Datum, char const * > >{
              { "101", "range: share: 101 is not a number from 1 to 100" },
              { -1, "range: share: -1 is not a number from 1 to 100" },
              { "ten", "parse: share: \"ten\" is not a number from 1 to 100" },
              { 1.5, "parse: share: 1.5 is not a whole number from 1 to 100" },
              { ~0ull,
                "parse: share: 18446744073709551615 is not a whole number from 1 to 100" } } ) {
      EXPECT_EQ( refusal( [ &share = share ] {
                    fromDatum< Shape >( Datum( Object{ { "share", share } } ) );
                 } ),
                 text );
   }
   EXPECT_EQ( refusal( [] {
                 fromDatum< Line >( Datum( Object{ { "name", Array{ "a", true } } } ) );
              } ),
              "parse: name: [1]: a boolean is not a string" );
}

} // namespace
