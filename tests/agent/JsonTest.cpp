// SPDX-License-Identifier: Apache-2.0
#include "agent/common/Json.h"
#include "Helpers.h"

#include <cmath>
#include <limits>

namespace HobaAgent {
namespace {

using Kiv::Datum;

std::string
errorOf( std::string_view text, JsonLimits const & limits = {} ) {
   return HobaTests::errorOf< JsonError >( [ & ] { parseJson( text, limits ); } );
}

TEST( Json, readsAndWrites ) {
   // clang-format off
   for( auto const * text : {
           "null", "true", "0", "-1", "9223372036854775807", "-9223372036854775808",
           "18446744073709551615", "0.1", "-1.5e-07", "\"\"", R"("a\"b\\c\u0001\n")", "[]", "{}",
           R"({"b":1,"a":[true,{"c":null}],"":[]})", "\"gr\xc3\xbc\xc3\x9f\"" } ) {
      // clang-format on
      EXPECT_EQ( jsonText( parseJson( text ) ), text );
   }
   EXPECT_EQ( parseJson( " \t{ \"a\" :\n1 }\r\n" ), parseJson( R"({"a":1})" ) );
   EXPECT_EQ( parseJson( "5" ), Datum( std::int64_t( 5 ) ) ) << "one number, one datum";
   // What has no text, and what is for people.
   EXPECT_EQ( jsonText( std::numeric_limits< double >::infinity() ), "null" );
   EXPECT_EQ( jsonText( std::nan( "" ) ), "null" );
   EXPECT_EQ( jsonText( "a\xff!" ), "\"a\xef\xbf\xbd!\"" );
   EXPECT_EQ( jsonText( parseJson( R"({"a":[1,{}],"b":{"c":2}})" ), 2 ),
              "{\n  \"a\": [\n    1,\n    {}\n  ],\n  \"b\": {\n    \"c\": 2\n  }\n}" );
}

TEST( Json, saysWhereItIsWrong ) {
   std::array< char const *, 3 > const rows[] = {
         // text, place, some of the reason
         { "", "line 1, column 1: ", "unexpected end" },
         { "{\n \"a\": }", "line 2, column 7: ", "unexpected '}'" },
         { "[1,\n2,\n3", "line 3, column 2: ", "unexpected end" },
         { "1 2", "line 1, column 3: ", "expected end of input" },
         { "nul", "line 1, column 4: ", "invalid literal" },
         { "\"a\nb\"", "line 1, column 3: ", "control character" },
         { "\"\xff\"", "line 1, column 2: ", "UTF-8" },
         { "[1e999]", "line 1, column ", "number overflow" },
         { "{\"a\": 1,\n\"a\": 2}", "line 2, column 3: ", "the name \"a\" stands twice" },
         { "{\"x\": {\"a\": 1}, \"x\": 2}", "line 1, column ", "the name \"x\" stands twice" },
         { "[18446744073709551616]", "", "the integer 18446744073709551616 does not fit into 64" },
         { "-9223372036854775809", "line 1, column ", "does not fit into 64 bits" },
   };
   for( auto const & [ text, place, reason ] : rows ) {
      auto const error = errorOf( text );
      EXPECT_TRUE( error.starts_with( place ) ) << text << " -> " << error;
      HobaTests::expectIn( error, reason );
      EXPECT_EQ( error.find( "json.exception" ), std::string::npos ) << error;
   }
   EXPECT_EQ( errorOf( R"([{"a":1},{"a":{"a":2}}])" ), "" ) << "in different objects";
   EXPECT_EQ( errorOf( std::string_view( "{}\n\0[", 5 ) ), "line 2, column 1: a zero byte" );
}

TEST( Json, isBounded ) {
   EXPECT_EQ( errorOf( "[[[]]]", { .depth = 3 } ), "" );
   EXPECT_EQ( errorOf( "[[[{}]]]", { .depth = 3 } ), "line 1, column 4: nested deeper than 3" );
   EXPECT_EQ( errorOf( "[1]", { .bytes = 2 } ), "line 1, column 1: longer than 2 bytes" );
   // So are the errors, whatever they quote.
   std::string const endless( 1'000'000, '9' );
   for( auto const & text : { std::string( 1'000'000, '[' ), '"' + endless, endless,
                              "{\"" + endless + "\":1,\"" + endless + "\":2}" } ) {
      auto const size = errorOf( text ).size();
      EXPECT_TRUE( size > 0 && size < 400 ) << size;
   }
}

} // namespace
} // namespace HobaAgent
