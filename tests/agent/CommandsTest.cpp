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
      commands.add( { .name = "pick",
                      .help = "",
                      .arguments = { { "color", "" } },
                      .handler = []( Request const & request ) {
                         return Kiv::Datum( request.oneOf< int >(
                               "color", { { "red", 1 }, { "green", 2 }, { "blue", 3 } } ) );
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
              { R"({"command":"number","level":[]})", "level: expected a text" },
              { R"({"command":"pick"})", "1" },
              { R"({"command":"pick blue"})", "3" },
              { R"({"command":"pick","color":"pink"})",
                "color: \"pink\" is not red, green or blue" },
              { "5", "a request is an object with a command" },
              { "{}", "a request needs a command, a string" },
              { R"({"command":""})", "a request needs a command" },
              { R"({"command":"show","words":5})", "words: expected a list of strings" },
              { R"({"command":"show","words":[5]})", "words: expected a list of strings" },
              { R"({"command":"shwo"})", "unknown command \"shwo\"; did you mean \"show\"?" },
              { R"({"command":"sim"})", "command \"sim\" is not complete; there is link" },
              { R"({"command":"sim","words":["lnik"]})",
                "unknown command \"sim lnik\"; did you mean \"sim link\"?" },
              { R"({"command":"sim","words":["lnik","pu","E1"]})",
                "unknown command \"sim lnik\"; did you mean \"sim link up\"?" },
              { R"({"command":"shwo storm E1"})",
                "unknown command \"shwo\"; did you mean \"show storm\"?" },
              { R"({"command":"sim","words":["cable"]})",
                "unknown command \"sim cable\"; there is link" },
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
   std::string const endless( 1'000'000, 'x' );
   for( auto const & request :
        { "{\"command\":\"" + endless + "\"}", "{\"command\":\"show " + endless + "\"}",
          "{\"command\":\"pick " + endless + "\"}",
          "{\"command\":\"show\",\"" + endless + "\":1}" } ) {
      EXPECT_LT( run( request ).size(), 200u );
   }
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
   EXPECT_EQ( commands.nextWords( {} ), ( Words{ "help", "number", "pick", "show", "sim" } ) );
   EXPECT_EQ( commands.nextWords( wordsIn( " sim  link " ) ), ( Words{ "up" } ) );
   EXPECT_EQ( commands.nextWords( { "sho" } ), Words() );
   EXPECT_EQ( commands.nextWords( { "number" } ), Words() );
   // Arguments, too: what must come next by its value, what may be left out by its name.
   commands.valuesAre( "intf", [] { return Words{ "E1", "E2", "Po1" }; } );
   struct Row {
      char const * words;
      char const * half;
      Words expected;
   };
   for( auto const & row : std::initializer_list< Row >{
              { "", "s", { "show", "sim" } },
              { "show", "", { "storm" } },
              { "show storm", "E", { "E1", "E2" } },
              { "show storm", "intf=P", { "intf=Po1" } },
              { "show storm E1", "", {} },
              { "show storm E1 E2", "", {} },
              { "sim link up", "", { "E1", "E2", "Po1", "level=", "rest=" } },
              { "sim link up E1", "", { "level=", "rest=" } },
              { "sim link up level=3", "E", { "E1", "E2" } },
              { "number", "x", {} },
        } ) {
      EXPECT_EQ( commands.candidates( wordsIn( row.words ), row.half ), row.expected )
            << row.words << " / " << row.half;
   }
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
                            using Text = Kiv::DispatchRecorder::Text;
                            Kiv::DispatchRecorder::Scope outer( Kind::write, [] {
                               return Text( "A::B::Thing(t).x[k.y]", R"( = {"a": 1})" );
                            } );
                            Kiv::DispatchRecorder::Scope handler( Kind::handler,
                                                                  "A::Sm::KivThing::handleX" );
                            Kiv::DispatchRecorder::Scope inner( Kind::hook, [] {
                               return Text( "A::Helper::set", "( all, 5 )" );
                            } );
                            return Kiv::Datum();
                         },
                   .isInput = true } );
   run( R"({"command":"cause"})" );
   run( R"({"command":"show"})" ); // no input
   auto const tree = R"({"columns":["AT us","TOOK us","KIND","EVENT"],"rows":[)"
                     R"([0,7000,"input","cause {}"],)"
                     R"([1000,5000,"write","  A::B::Thing(t).x[k.y] = {\"a\": 1}"],)"
                     R"([2000,3000,"handler","    A::Sm::KivThing::handleX"],)"
                     R"x([3000,1000,"hook","      A::Helper::set( all, 5 )"])x";
   EXPECT_EQ( run( R"({"command":"trace tree"})" ), std::string( tree ) + "]}" );
   // It begins at the input also when timers have fired since; of those, the first are shown.
   for( int i = 0; i != 13; ++i ) {
      Kiv::DispatchRecorder::Scope timer( Kind::timeout, "later" );
   }
   auto const later = run( R"({"command":"trace tree"})" );
   EXPECT_TRUE( later.starts_with( std::string( tree ) + R"(,[8000,1000,"timeout","later"],)" ) )
         << later;
   EXPECT_NE( later.find( "3 later timers are left out" ), std::string::npos ) << later;
   EXPECT_EQ( later.find( "a timer" ), std::string::npos );
   run( R"({"command":"cause"})" );
   auto const both = run( R"({"command":"trace tree","count":2})" );
   EXPECT_NE( both.find( "later" ), std::string::npos );
   EXPECT_EQ( both.find( "a timer" ), std::string::npos );

   auto exported = commands.run( parseJson( R"({"command":"trace export"})" ) );
   auto const & events = *exported.find( "traceEvents" )->as< Kiv::Datum::Array >();
   ASSERT_GE( events.size(), 7u );
   std::string texts;
   for( std::size_t i : { 0u, 1u, 3u, 4u, 5u, 6u } ) {
      texts += jsonText( events[ i ] ) + "\n";
   }
   EXPECT_EQ(
         texts,
         R"({"name":"process_name","ph":"M","pid":1,"tid":1,"args":{"name":"hoba-agent"}})"
         "\n"
         R"({"name":"thread_name","ph":"M","pid":1,"tid":1,"args":{"name":"event loop"}})"
         "\n"
         R"({"name":"cause","cat":"input","ph":"X","ts":3000,"dur":7000,"pid":1,"tid":1,)"
         R"("args":{"values":{},"id":2,"cause":0}})"
         "\n"
         R"({"name":"Thing.x","cat":"write","ph":"X","ts":4000,"dur":5000,"pid":1,"tid":1,)"
         R"("args":{"what":"A::B::Thing(t).x[k.y]","values":{"a":1},"id":3,"cause":2}})"
         "\n"
         R"({"name":"KivThing::handleX","cat":"handler","ph":"X","ts":5000,"dur":3000,"pid":1,)"
         R"("tid":1,"args":{"what":"A::Sm::KivThing::handleX","id":4,"cause":3}})"
         "\n"
         R"({"name":"set","cat":"hook","ph":"X","ts":6000,"dur":1000,"pid":1,"tid":1,)"
         R"x("args":{"what":"A::Helper::set","values":"( all, 5 )","id":5,"cause":4}})x"
         "\n" );
}

} // namespace
} // namespace HobaAgent
