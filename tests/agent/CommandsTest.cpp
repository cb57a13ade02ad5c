// SPDX-License-Identifier: Apache-2.0
#include "agent/Commands.h"
#include "agent/TraceCommands.h"
#include "agent/common/Json.h"

#include <gtest/gtest.h>

namespace HobaAgent {
namespace {

class CommandsTest : public testing::Test {
 protected:
   CommandsTest() {
      auto echo = []( char const * name ) {
         return [ name ]( Request const & request ) {
            std::string text = name;
            for( auto const * argument : { "intf", "level", "rest" } ) {
               if( request.has( argument ) ) {
                  text += std::string( " " ) + argument + "=" + request.text( argument );
               }
            }
            return Kiv::Datum( text );
         };
      };
      commands.add( { .name = "show", .help = "", .handler = echo( "show" ) } );
      commands.add( { .name = "show storm",
                      .help = "",
                      .arguments = { { "intf", "" } },
                      .handler = echo( "storm" ) } );
      commands.add(
            { .name = "sim link up",
              .help = "",
              .arguments = { { "intf", "", true }, { "level", "" }, { "rest", "", false, true } },
              .handler = echo( "up" ),
              .isInput = true } );
      commands.add( { .name = "number",
                      .help = "",
                      .arguments = { { "level", "" } },
                      .handler = []( Request const & request ) {
                         return Kiv::Datum( request.value< std::uint16_t >( "level", 7 ) );
                      } } );
   }

   // The answer as JSON, or the error's text.
   std::string run( std::string const & request ) {
      try {
         return jsonText( commands.run( parseJson( request ) ) );
      } catch( Kiv::Exception const & error ) {
         return error.what();
      }
   }

   Commands commands;
};

TEST_F( CommandsTest, findsTheLongestNameAndItsArguments ) {
   struct Row {
      char const * request;
      char const * answer;
   };
   for( auto const & row : std::initializer_list< Row >{
              { R"({"command":"show"})", R"("show")" },
              { R"({"command":"show storm"})", R"("storm")" },
              { R"({"command":"show","words":["storm","Ethernet1/2"]})",
                R"("storm intf=Ethernet1/2")" },
              { R"({"command":"show storm","intf":5})", R"("storm intf=5")" },
              { R"({"command":"sim","words":["link","up","E1","a=b","c"]})",
                R"("up intf=E1 level=a=b rest=c")" },
              { R"({"command":"sim","words":["link","up","level=5","E1","x","y  z"]})",
                R"("up intf=E1 level=5 rest=x y  z")" },
              { R"({"command":"number"})", "7" },
              { R"({"command":"number","level":9})", "9" },
              { R"({"command":"number","level":65536})",
                "level: \"65536\" is not a number from 0 to 65535" },
              { R"({"command":"number","level":[]})", "level: level: expected a text" },
              { "5", "a request is an object with a command" },
              { "{}", "a request needs a command, a string" },
              { R"({"command":""})", "a request needs a command" },
              { R"({"command":"show","words":5})", "words: expected a list of strings" },
              { R"({"command":"show","words":[5]})", "words: expected a list of strings" },
              { R"({"command":"shwo"})", "unknown command \"shwo\"; did you mean \"show\"?" },
              { R"({"command":"sim"})", "command \"sim\" is not complete; there is link" },
              { R"({"command":"sim","words":["lnik"]})",
                "unknown command \"sim lnik\"; did you mean \"link\"?" },
              { R"({"command":"show","words":["x"]})", "there is no use for \"x\"; usage: show" },
              { R"({"command":"show storm","port":1})",
                "unknown argument \"port\"; usage: show storm [INTF]" },
              { R"({"command":"sim link up"})",
                "argument intf is missing; usage: sim link up INTF [LEVEL] [REST...]" },
              { R"({"command":"number","level":1,"words":["level=2"]})",
                "argument level is given twice; usage: number [LEVEL]" },
        } ) {
      EXPECT_EQ( run( row.request ), row.answer ) << row.request;
   }
   std::string many = "show";
   for( int i = 0; i != 100; ++i ) {
      many += " x";
   }
   EXPECT_EQ( run( R"({"command":")" + many + "\"}" ), "a command has at most 64 words" );
   EXPECT_THROW( commands.add( { .name = "show", .help = "", .handler = {} } ), Kiv::Exception );
}

TEST_F( CommandsTest, helpKnowsEveryCommand ) {
   auto all = commands.run( parseJson( R"({"command":"help"})" ) );
   EXPECT_EQ( all.find( "rows" )->as< Kiv::Datum::Array >()->size(), commands.all().size() );
   EXPECT_NE( run( R"({"command":"help","words":["sim","link","up"]})" ).find( "   intf" ),
              std::string::npos );
   EXPECT_EQ( run( R"({"command":"help","words":["smi"]})" ),
              "unknown command \"smi\"; did you mean \"sim\"?" );
}

TEST_F( CommandsTest, knowsWhatMayFollow ) {
   using Words = std::vector< Kiv::String >;
   EXPECT_EQ( commands.nextWords( {} ), ( Words{ "help", "number", "show", "sim" } ) );
   EXPECT_EQ( commands.nextWords( wordsIn( " sim  link " ) ), ( Words{ "up" } ) );
   EXPECT_EQ( commands.nextWords( { "sho" } ), Words() );
   EXPECT_EQ( commands.nextWords( { "number" } ), Words() );
}

Kiv::Seconds testTime = 0;

TEST_F( CommandsTest, recordsWhatInputsCause ) {
   using Kind = Kiv::DispatchRecorder::Kind;
   Kiv::DispatchRecorder recorder( 100, [] { return testTime += 0.001; } );
   addTraceCommands( commands, recorder );
   auto off = run( R"({"command":"trace tree"})" );
   EXPECT_NE( off.find( "recording is off" ), std::string::npos ) << off;
   run( R"({"command":"trace record on"})" );
   { Kiv::DispatchRecorder::Scope timer( Kind::timeout, "a timer" ); }
   commands.add( { .name = "cause",
                   .help = "",
                   .handler =
                         []( Request const & ) {
                            Kiv::DispatchRecorder::Scope outer( Kind::write, "x = 1" );
                            Kiv::DispatchRecorder::Scope inner( Kind::hook, "hook" );
                            return Kiv::Datum();
                         },
                   .isInput = true } );
   run( R"({"command":"cause"})" );
   run( R"({"command":"show"})" ); // no input
   EXPECT_EQ( run( R"({"command":"trace tree"})" ),
              R"({"columns":["AT us","TOOK us","KIND","EVENT"],"rows":[)"
              R"([0,5000,"input","cause {}"],)"
              R"([1000,3000,"write","  x = 1"],)"
              R"([2000,1000,"hook","    hook"]]})" );
   auto both = run( R"({"command":"trace tree","count":2})" );
   EXPECT_NE( both.find( "a timer" ), std::string::npos );
   auto exported = commands.run( parseJson( R"({"command":"trace export"})" ) );
   auto const & events = *exported.find( "traceEvents" )->as< Kiv::Datum::Array >();
   ASSERT_EQ( events.size(), 4u );
   EXPECT_EQ( jsonText( events[ 3 ] ),
              R"({"name":"hook","cat":"hook","ph":"X","ts":5000,"pid":1,"tid":1,"dur":1000,)"
              R"("args":{"id":4,"cause":3}})" );
}

} // namespace
} // namespace HobaAgent
