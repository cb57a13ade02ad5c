// SPDX-License-Identifier: Apache-2.0
#include "agent/Commands.h"
#include "Helpers.h"
#include "agent/TraceCommands.h"
#include "agent/common/Json.h"

namespace HobaAgent {
namespace {

using HobaTests::expectIn;

class CommandsTest : public testing::Test {
 protected:
   CommandsTest() {
      auto const echo = []( Request const & request ) {
         Kiv::String text = "done";
         for( auto const * argument : { "intf", "level", "rest" } ) {
            text += request.has( argument ) ? ' ' + request.text( argument ) : "";
         }
         return Kiv::Datum( text );
      };
      auto const number = []( Request const & request ) {
         return Kiv::Datum( request.value< std::uint16_t >( "level", 7 ) );
      };
      auto const pick = []( Request const & request ) {
         return Kiv::Datum(
               request.oneOf< int >( "color", { { "red", 1 }, { "green", 2 }, { "blue", 3 } } ) );
      };
      Argument const level{ "level", "" }, rest{ "rest", "", false, true };
      add( "show", {}, echo );
      add( "show storm", { { "intf", "" } }, echo );
      add( "sim link up", { { "intf", "", true }, level, rest }, echo );
      add( "number", { level }, number );
      add( "pick", { { "color", "" } }, pick );
   }
   void add( char const * name, std::vector< Argument > const & arguments,
             std::function< Kiv::Datum( Request const & ) > const & handler,
             bool isInput = false ) {
      commands.add( { name, "", arguments, handler, isInput } );
   }

   // The answer as JSON, or the error's text.
   std::string run( std::string const & request ) {
      std::string answer;
      auto const error = HobaTests::errorOf< Kiv::Exception >(
            [ & ] { answer = jsonText( commands.run( parseJson( request ) ) ); } );
      return answer + error;
   }

   Commands commands;
};

TEST_F( CommandsTest, findsTheLongestNameAndItsArguments ) {
   struct Row {
      char const * request;
      char const * answer;
   };
   // clang-format off
   Row const rows[] = {
      { R"({"command":"show"})", R"("done")" },
      { R"({"command":"show storm"})", R"("done")" },
      { R"({"command":"show","words":["storm","Ethernet1/2"]})", R"("done Ethernet1/2")" },
      { R"({"command":"show storm","intf":5})", R"("done 5")" },
      { R"({"command":"sim","words":["link","up","E1","a=b","c"]})", R"("done E1 a=b c")" },
      { R"({"command":"sim","words":["link","up","level=5","E1","x","y  z"]})",
        R"("done E1 5 x y  z")" },
      { R"({"command":"number"})", "7" },
      { R"({"command":"number","level":9})", "9" },
      { R"({"command":"number 65536"})", "level: \"65536\" is not a number from 0 to 65535" },
      { R"({"command":"number","level":[]})", "level: expected a text" },
      { R"({"command":"pick"})", "1" },
      { R"({"command":"pick blue"})", "3" },
      { R"({"command":"pick","color":"pink"})", "color: \"pink\" is not red, green or blue" },
      { "5", "a request is an object with a command" },
      { "{}", "a request needs a command, a string" },
      { R"({"command":""})", "a request needs a command" },
      { R"({"command":"show","words":5})", "words: expected a list of strings" },
      { R"({"command":"show","words":[5]})", "words: expected a list of strings" },
      { R"({"command":"shwo"})", "unknown command \"shwo\"; did you mean \"show\"?" },
      { R"({"command":"sim"})", "command \"sim\" is not complete; there is link" },
      { R"({"command":"sim lnik"})", "unknown command \"sim lnik\"; did you mean \"sim link\"?" },
      { R"({"command":"sim lnik pu E1"})",
        "unknown command \"sim lnik\"; did you mean \"sim link up\"?" },
      { R"({"command":"shwo storm E"})", "unknown command \"shwo\"; did you mean \"show storm\"?" },
      { R"({"command":"sim","words":["cable"]})", "unknown command \"sim cable\"; there is link" },
      { R"({"command":"show","words":["x"]})", "there is no use for \"x\"; usage: show" },
      { R"({"command":"show storm","port":1})",
        "unknown argument \"port\"; usage: show storm [INTF]" },
      { R"({"command":"sim link up"})",
        "argument intf is missing; usage: sim link up INTF [LEVEL] [REST...]" },
      { R"({"command":"number","level":1,"words":["level=2"]})",
        "argument level is given twice; usage: number [LEVEL]" },
   };
   // clang-format on
   for( auto const & row : rows ) {
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
   EXPECT_THROW( add( "show", {}, {} ), Kiv::Exception );
}

TEST_F( CommandsTest, helpKnowsEveryCommand ) {
   auto all = commands.run( parseJson( R"({"command":"help"})" ) );
   EXPECT_EQ( all.find( "rows" )->as< Kiv::Datum::Array >()->size(), commands.all().size() );
   expectIn( run( R"({"command":"help","words":["sim","link","up"]})" ), "   intf" );
   EXPECT_EQ( run( R"({"command":"help","words":["smi"]})" ),
              "unknown command \"smi\"; did you mean \"sim\"?" );
}

TEST_F( CommandsTest, knowsWhatMayFollow ) {
   using Words = std::vector< Kiv::String >;
   // Words of names; arguments: what must come next by its value, what may be left out by its name.
   commands.valuesAre( "intf", [] { return Words{ "E1", "E2", "Po1" }; } );
   struct Row {
      char const * words;
      char const * half;
      Words expected;
   };
   // clang-format off
   for( auto const & row : { Row{ "", "", { "help", "number", "pick", "show", "sim" } },
                             Row{ "", "s", { "show", "sim" } },
                             Row{ " sim  link ", "", { "up" } },
                             Row{ "sho", "", {} },
                             Row{ "show", "", { "storm" } },
                             Row{ "show storm", "E", { "E1", "E2" } },
                             Row{ "show storm", "intf=P", { "intf=Po1" } },
                             Row{ "show storm E1", "", {} },
                             Row{ "show storm E1 E2", "", {} },
                             Row{ "sim link up", "", { "E1", "E2", "Po1", "level=", "rest=" } },
                             Row{ "sim link up E1", "", { "level=", "rest=" } },
                             Row{ "sim link up level=3", "E", { "E1", "E2" } },
                             Row{ "number", "x", {} } } ) {
      // clang-format on
      EXPECT_EQ( commands.candidates( wordsIn( row.words ), row.half ), row.expected )
            << row.words << " / " << row.half;
   }
}

Kiv::Seconds testTime = 0;

TEST_F( CommandsTest, recordsWhatInputsCause ) {
   using Kind = Kiv::DispatchRecorder::Kind;
   Kiv::DispatchRecorder recorder( 100, [] { return testTime += 0.001; } );
   addTraceCommands( commands, recorder );
   expectIn( run( R"({"command":"trace tree"})" ), "recording is off" );
   run( R"({"command":"trace record on"})" );
   { Kiv::DispatchRecorder::Scope timer( Kind::timeout, "a timer" ); }
   auto const cause = []( Request const & ) {
      using Text = Kiv::DispatchRecorder::Text;
      Kiv::DispatchRecorder::Scope outer(
            Kind::write, [] { return Text( "A::B::Thing(t).x[k.y]", R"( = {"a": 1})" ); } );
      Kiv::DispatchRecorder::Scope handler( Kind::handler, "A::Sm::KivThing::handleX" );
      Kiv::DispatchRecorder::Scope inner( Kind::hook,
                                          [] { return Text( "A::Helper::set", "( all, 5 )" ); } );
      return Kiv::Datum();
   };
   add( "cause", {}, cause, true );
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
   expectIn( later, "3 later timers are left out" );
   EXPECT_EQ( later.find( "a timer" ), std::string::npos );
   run( R"({"command":"cause"})" );
   auto const both = run( R"({"command":"trace tree","count":2})" );
   expectIn( both, "later" );
   EXPECT_EQ( both.find( "a timer" ), std::string::npos );

   auto exported = commands.run( parseJson( R"({"command":"trace export"})" ) );
   auto const & events = *exported.find( "traceEvents" )->as< Kiv::Datum::Array >();
   ASSERT_GE( events.size(), 7u );
   // clang-format off
   EXPECT_EQ( jsonText( events[ 0 ] ),
      R"({"name":"process_name","ph":"M","pid":1,"tid":1,"args":{"name":"hoba-agent"}})" );
   EXPECT_EQ( *events[ 1 ].find( "name" ), Kiv::Datum( "thread_name" ) );
   EXPECT_EQ( jsonText( events[ 3 ] ),
      R"({"name":"cause","cat":"input","ph":"X","ts":3000,"dur":7000,"pid":1,"tid":1,)"
      R"("args":{"values":{},"id":2,"cause":0}})" );
   EXPECT_EQ( jsonText( events[ 4 ] ),
      R"({"name":"Thing.x","cat":"write","ph":"X","ts":4000,"dur":5000,"pid":1,"tid":1,)"
      R"("args":{"what":"A::B::Thing(t).x[k.y]","values":{"a":1},"id":3,"cause":2}})" );
   EXPECT_EQ( *events[ 5 ].find( "name" ), Kiv::Datum( "KivThing::handleX" ) );
   EXPECT_EQ( jsonText( events[ 6 ] ),
      R"({"name":"set","cat":"hook","ph":"X","ts":6000,"dur":1000,"pid":1,"tid":1,)"
      R"x("args":{"what":"A::Helper::set","values":"( all, 5 )","id":5,"cause":4}})x" );
   // clang-format on
}

} // namespace
} // namespace HobaAgent
