// SPDX-License-Identifier: Apache-2.0
#include "agent/hobactl/Render.h"
#include "agent/common/Json.h"
#include "agent/hobactl/Tool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <vector>

namespace Hobactl {
namespace {

std::string
rendered( char const * json, std::size_t width = 0 ) {
   return render( HobaAgent::parseJson( json ), { .width = width } );
}

TEST( Render, tables ) {
   EXPECT_EQ(
         rendered(
               R"({"columns":["PORT","RATE"],"rows":[["Ethernet1",100],["Ethernet1/2",null],["E",5]],
                            "notes":["2 ports"]})" ),
         "PORT         RATE\n"
         "Ethernet1     100\n"
         "Ethernet1/2     -\n"
         "E               5\n"
         "2 ports\n" );
   EXPECT_EQ( rendered( R"({"columns":["A","B"],"rows":[]})" ), "A  B\n" );
   // Rows that are not of the table's shape, and cells that are no text.
   EXPECT_EQ( rendered( R"({"columns":["A","B"],"rows":[[1],5,[1,2,3],[[1],{"x":true}]]})" ),
              "A    B\n"
              "1\n"
              "\n"
              "1    2\n"
              "[1]  {\"x\":true}\n" );
   // People read words where there are some, in the columns for which they are.
   EXPECT_EQ( rendered( R"({"columns":["A","B"],"rows":[["red","red"],["blue",1]],
                            "words":{"A":{"red":"like a rose"}}})" ),
              "A            B\n"
              "like a rose  red\n"
              "blue         1\n" );
   EXPECT_EQ( rendered( R"({"columns":["N\u00c4ME","B"],"rows":[["\u00fc","x"]]})" ),
              "N\xc3\x84ME  B\n\xc3\xbc     x\n" );
}

TEST( Render, tablesFitTheTerminalAndBreakNoWord ) {
   auto const * json = R"({"columns":["NAME","TEXT"],"rows":[
         ["Ethernet1","one two three four five six seven"],
         ["Ethernet2","  indented text stays where it is"],
         ["Ethernet3","aVeryLongWord"]]})";
   for( auto const & [ width, text ] :
        std::initializer_list< std::pair< std::size_t, char const * > >{
              { 30, "NAME       TEXT\n"
                    "Ethernet1  one two three four\n"
                    "           five six seven\n"
                    "Ethernet2    indented text\n"
                    "             stays where it is\n"
                    "Ethernet3  aVeryLongWord\n" },
              // The longest words decide; what is wider than the terminal runs over.
              { 1, "NAME       TEXT\n"
                   "Ethernet1  one two three\n"
                   "           four five six\n"
                   "           seven\n"
                   "Ethernet2    indented\n"
                   "             text stays\n"
                   "             where it is\n"
                   "Ethernet3  aVeryLongWord\n" },
        } ) {
      EXPECT_EQ( rendered( json, width ), text );
   }
   // At any width, every word of the table stands there whole.
   auto const * wide = R"x({"columns":["Interface","Rate (kbps)","State"],"rows":[
         ["Port-Channel1000",100000,"not programmed: member of Port-Channel1000"],
         ["Ethernet1",1,"  margin  two spaces, and a very-long-word-that-has-no-space-in-it"]]})x";
   for( std::size_t width = 1; width != 120; ++width ) {
      std::istringstream lines( rendered( wide, width ) );
      std::multiset< std::string > words;
      std::size_t widest = 0;
      for( std::string line; std::getline( lines, line ); ) {
         widest = std::max( widest, line.size() );
         std::istringstream in( line );
         for( std::string word; in >> word; ) {
            words.insert( word );
         }
      }
      EXPECT_EQ( words.size(), 19u ) << width;
      EXPECT_EQ( words.count( "very-long-word-that-has-no-space-in-it" ), 1u ) << width;
      EXPECT_EQ( words.count( "Port-Channel1000" ), 2u ) << width;
      EXPECT_LE( widest, std::max< std::size_t >( width, 16 + 2 + 6 + 2 + 40 ) ) << width;
   }
}

TEST( Render, trees ) {
   EXPECT_EQ( rendered( R"({"a":{"b":1,"c":[]},"d":[true,{"e":"x"}],"f":null})" ), "a:\n"
                                                                                   "  b: 1\n"
                                                                                   "  c: []\n"
                                                                                   "d:\n"
                                                                                   "  - true\n"
                                                                                   "  -\n"
                                                                                   "    e: x\n"
                                                                                   "f: none\n" );
   EXPECT_EQ( rendered( "\"text\"" ), "text\n" );
   EXPECT_EQ( rendered( "null" ), "" );
   EXPECT_EQ( rendered( "{}" ), "" );
}

TEST( Render, dataDoNotPlayWithTheTerminal ) {
   for( auto const * json :
        { R"("a\u001b[2Jb\nc")", R"({"a\u001b":"\u001b\u0007"})",
          R"({"columns":["\u001bx"],"rows":[["\u001b[31m\r"]],"notes":["\u001b"]})" } ) {
      auto text = rendered( json );
      EXPECT_TRUE( std::none_of( text.begin(), text.end(), []( char c ) {
         return static_cast< unsigned char >( c ) < 0x20 && c != '\n';
      } ) ) << text;
   }
   EXPECT_EQ( rendered( R"("a\u001bb")" ), "a\\x1bb\n" );
}

TEST( Render, timesAndChanges ) {
   EXPECT_EQ( timeText( 0 ), "1970-01-01 00:00:00.000000" );
   EXPECT_EQ( timeText( 1767225599.5 ), "2025-12-31 23:59:59.500000" );
   EXPECT_EQ( timeText( 1e300 ), "no time" );
   EXPECT_EQ( changeLine( HobaAgent::parseJson( R"({"time":0.5,"path":"/a","value":{"b":1}})" ) ),
              "1970-01-01 00:00:00.500000 /a = {\"b\":1}\n" );
   EXPECT_EQ( changeLine( HobaAgent::parseJson( R"({"time":1,"path":"/a","deleted":true})" ) ),
              "1970-01-01 00:00:01.000000 /a deleted\n" );
}

TEST( Tool, saysInOneLineWhatIsWrongWithACommandLine ) {
   struct Row {
      std::vector< char const * > arguments;
      int status;
      char const * error; // its beginning
   };
   for( auto const & row : std::vector< Row >{
              { {}, 2, "hobactl: " },
              { { "frob" }, 2, "hobactl: " },
              { { "shwo", "mac", "x" },
                2,
                "hobactl: unknown command \"shwo\"; did you mean \"show mac x\"?" },
              { { "set", "/x" }, 2, "hobactl: value is required" },
              { { "get", "/x", "--timeout", "-1" }, 2, "hobactl: --timeout" },
              { { "get", "--socket", "/nonexistent/socket" },
                1,
                "hobactl: /nonexistent/socket: no agent answers here" },
              { { "--socket", "/nonexistent/socket", "set", "/x", "{" },
                2,
                "hobactl: value: line 1, column 2: " },
              { { "--socket", "/nonexistent/socket", "set", "/x", "-5" },
                1,
                "hobactl: /nonexistent/socket: " },
              { { "--socket", "", "get" }, 2, "hobactl: --socket: a path is expected" },
              { { "trace", "--last", "-1" }, 2, "hobactl: --last: a whole number is expected" },
              { { "trace", "--enable", "HobaCommon" }, 2, "hobactl: --enable: expected" },
              { { "get", "/\xff" }, 2, "hobactl: \"/" },
              { { "set", "/x", "help", "--text", "--socket", "/nonexistent/socket" },
                1,
                "hobactl: /nonexistent/socket: " },
              { { "apply", "/nonexistent/file" }, 1, "hobactl: /nonexistent/file: No such file" },
              { { "complete", "/", "--socket", "/nonexistent/socket" }, 0, "" },
              { { "--help" }, 0, "" },
              { { "--version" }, 0, "" },
        } ) {
      std::vector< char const * > argv{ "hobactl" };
      argv.insert( argv.end(), row.arguments.begin(), row.arguments.end() );
      std::ostringstream out, err;
      auto status = runTool( static_cast< int >( argv.size() ), argv.data(), out, err );
      EXPECT_EQ( status, row.status ) << err.str();
      EXPECT_TRUE( err.str().starts_with( row.error ) ) << err.str();
      auto text = err.str();
      EXPECT_EQ( std::count( text.begin(), text.end(), '\n' ), status ? 1 : 0 ) << text;
   }
}

} // namespace
} // namespace Hobactl
