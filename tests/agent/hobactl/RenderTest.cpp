// SPDX-License-Identifier: Apache-2.0
#include "agent/hobactl/Render.h"
#include "Helpers.h"
#include "agent/common/Json.h"
#include "agent/common/Socket.h"
#include "agent/hobactl/Tool.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/socket.h>

namespace Hobactl {
namespace {

std::string
rendered( char const * json, std::size_t width = 0 ) {
   return render( HobaAgent::parseJson( json ), { .width = width } );
}

TEST( Render, tablesAndTrees ) {
   // clang-format off
   std::pair< char const *, char const * > const cases[] = {
      { R"({"columns":["PORT","RATE"],"rows":[["Ethernet1",100],["Ethernet1/2",null],["E",5]],
            "notes":["2 ports"]})",
        "PORT         RATE\n"
        "Ethernet1     100\n"
        "Ethernet1/2     -\n"
        "E               5\n"
        "2 ports\n" },
      { R"({"columns":["A","B"],"rows":[]})", "A  B\n" },
      // Rows that are not of the table's shape, and cells that are no text.
      { R"({"columns":["A","B"],"rows":[[1],5,[1,2,3],[[1],{"x":true}]]})",
        "A    B\n1\n\n1    2\n[1]  {\"x\":true}\n" },
      // People read words where there are some, in the columns for which they are.
      { R"({"columns":["A","B"],"rows":[["red","red"],["blue",1]],
            "words":{"A":{"red":"like a rose"}}})",
        "A            B\nlike a rose  red\nblue         1\n" },
      { R"({"columns":["N\u00c4ME","B"],"rows":[["\u00fc","x"]]})",
        "N\xc3\x84ME  B\n\xc3\xbc     x\n" },
      { R"({"a":{"b":1,"c":[]},"d":[true,{"e":"x"}],"f":null})",
        "a:\n  b: 1\n  c: []\nd:\n  - true\n  -\n    e: x\nf: none\n" },
      { "\"text\"", "text\n" },
      { "null", "" },
      { "{}", "" },
   };
   // clang-format on
   for( auto const & [ json, text ] : cases ) {
      EXPECT_EQ( rendered( json ), text );
   }
}

TEST( Render, tablesFitTheTerminalAndBreakNoWord ) {
   EXPECT_EQ( rendered( R"({"columns":["NAME","TEXT"],"rows":[
         ["Ethernet1","one two three four five six seven"],
         ["Ethernet2","  indented text stays where it is"],
         ["Ethernet3","aVeryLongWord"]]})",
                        30 ),
              "NAME       TEXT\n"
              "Ethernet1  one two three four\n"
              "           five six seven\n"
              "Ethernet2    indented text\n"
              "             stays where it is\n"
              "Ethernet3  aVeryLongWord\n" );
   // At any width, every word of the table stands there whole, and what is wider than the terminal
   // with its longest words runs over.
   auto const * wide = R"x({"columns":["Interface","Rate (kbps)","State"],"rows":[
         ["Port-Channel1000",100000,"not programmed: member of Port-Channel1000"],
         ["Ethernet1",1,"  margin  two spaces, and a very-long-word-that-has-no-space-in-it"]]})x";
   for( std::size_t width = 1; width != 120; ++width ) {
      auto const text = rendered( wide, width );
      std::istringstream in( text ), lines( text );
      std::multiset< std::string > const words( std::istream_iterator< std::string >( in ), {} );
      std::size_t widest = 0;
      for( std::string line; std::getline( lines, line ); ) {
         widest = std::max( widest, line.size() );
      }
      EXPECT_EQ( words.size(), 19u ) << width;
      EXPECT_EQ( words.count( "very-long-word-that-has-no-space-in-it" ), 1u ) << width;
      EXPECT_EQ( words.count( "Port-Channel1000" ), 2u ) << width;
      EXPECT_LE( widest, std::max< std::size_t >( width, 16 + 2 + 6 + 2 + 40 ) ) << width;
   }
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
   auto const change = []( char const * json ) {
      return changeLine( HobaAgent::parseJson( json ) );
   };
   EXPECT_EQ( timeText( 1767225599.5 ), "2025-12-31 23:59:59.500000" );
   EXPECT_EQ( timeText( 1e300 ), "no time" );
   EXPECT_EQ( change( R"({"time":0.5,"path":"/a","value":{"b":1}})" ),
              "1970-01-01 00:00:00.500000 /a = {\"b\":1}\n" );
   EXPECT_EQ( change( R"({"time":1,"path":"/a","deleted":true})" ),
              "1970-01-01 00:00:01.000000 /a deleted\n" );
}

struct Result {
   int status;
   std::string out, err;
};

Result
runWith( std::vector< char const * > arguments ) {
   arguments.insert( arguments.begin(), "hobactl" );
   std::ostringstream out, err;
   auto const status =
         runTool( static_cast< int >( arguments.size() ), arguments.data(), out, err );
   return { status, out.str(), err.str() };
}

TEST( Tool, saysInOneLineWhatIsWrongWithACommandLine ) {
   struct Row {
      std::vector< char const * > arguments;
      int status;
      char const * error; // its beginning
   };
   auto const nobody = "/nonexistent/socket";
   // clang-format off
   for( auto const & row : std::initializer_list< Row >{
           { {}, 2, "hobactl: " },
           { { "frob", "--socket", nobody }, 1,
             "hobactl: /nonexistent/socket: no agent answers here" },
           { { "show vlan" }, 2, "hobactl: \"show vlan\" is no command" },
           { { "" }, 2, "hobactl: \"\" is no command" },
           { { "import", "--socket", nobody, "--", "--odd.json" }, 1, "hobactl: /nonexistent" },
           { { "get", "--bogus" }, 2, "hobactl: " },
           { { "set", "/x" }, 2, "hobactl: value is required" },
           { { "get", "/x", "--timeout", "-1" }, 2, "hobactl: --timeout" },
           { { "get", "--timeout", "x" }, 2, "hobactl: --timeout" },
           { { "get", "--socket", nobody }, 1,
             "hobactl: /nonexistent/socket: no agent answers here" },
           { { "set", "/x", "{" }, 2, "hobactl: value: line 1, column 2: " },
           { { "--socket", nobody, "set", "/x", "-5" }, 1, "hobactl: /nonexistent/socket: " },
           { { "--socket", "", "get" }, 2, "hobactl: --socket: a path is expected" },
           { { "trace", "--last", "-1" }, 2, "hobactl: --last: a whole number is expected" },
           { { "trace", "--enable", "HobaCommon" }, 2, "hobactl: --enable: expected" },
           { { "get", "/\xff" }, 2, "hobactl: \"/" },
           { { "set", "/x", "help", "--text", "--socket", nobody }, 1,
             "hobactl: /nonexistent/socket: " },
           { { "apply", "/nonexistent/file" }, 1, "hobactl: /nonexistent/file: No such file" },
           { { "complete", "/", "--socket", nobody }, 0, "" },
           { { "--help" }, 0, "" },
           { { "--version" }, 0, "" } } ) {
      // clang-format on
      auto const [ status, out, err ] = runWith( row.arguments );
      EXPECT_EQ( status, row.status ) << err;
      EXPECT_TRUE( err.starts_with( row.error ) ) << err;
      EXPECT_EQ( std::count( err.begin(), err.end(), '\n' ), status ? 1 : 0 ) << err;
   }
}

// An agent that did as asked, but not without fault.
TEST( Tool, passesOnWarnings ) {
   HobaTests::Folder const folder;
   auto const path = folder.path + "/socket";
   auto const listening = HobaAgent::listenAt( path );
   std::thread agent( [ & ] {
      for( int n = 0; n != 2; ++n ) {
         pollfd wait{ listening.get(), POLLIN, 0 };
         poll( &wait, 1, 10'000 );
         HobaAgent::Fd const client( accept( listening.get(), nullptr, nullptr ) );
         char request[ 256 ];
         EXPECT_GT( recv( client.get(), request, sizeof request, 0 ), 0 );
         std::string const answer = R"({"id":null,"ok":true,"result":{"mismatches":0},)"
                                    R"("warning":"done, but\u001b"})"
                                    "\n";
         EXPECT_EQ( send( client.get(), answer.data(), answer.size(), MSG_NOSIGNAL ),
                    std::ssize( answer ) );
      }
   } );
   for( auto const * command : { "get", "verify" } ) {
      auto const [ status, out, err ] = runWith( { "--socket", path.c_str(), command } );
      EXPECT_EQ( status, 3 );
      EXPECT_EQ( out, "mismatches: 0\n" );
      EXPECT_EQ( err, "hobactl: warning: done, but\\x1b\n" );
   }
   agent.join();
}

} // namespace
} // namespace Hobactl
