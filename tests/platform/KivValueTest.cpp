// SPDX-License-Identifier: Apache-2.0
#include "KivExample.h"
#include "Refusal.h"

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
