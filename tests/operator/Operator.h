// SPDX-License-Identifier: Apache-2.0
#pragma once

// An operator at work: the agent and hobactl as processes, and what they say.

#include "Helpers.h"
#include "operator/Process.h"

#include <algorithm>
#include <csignal>
#include <memory>

namespace HobaOperator {

struct Result {
   int status;
   std::string out, err;
};

inline std::string const allAsTheyShouldBe = "all as they should be";
inline std::string const levels = "/bridging/stormControl/config/intfConfig/";

class OperatorTest : public testing::Test {
 protected:
   OperatorTest() { setenv( "HOBA_SOCKET", socket.c_str(), 1 ); }
   ~OperatorTest() override { unsetenv( "HOBA_SOCKET" ); }

   std::unique_ptr< Process > run( std::vector< std::string > const & arguments ) {
      return std::make_unique< Process >( arguments,
                                          folder.path + "/process" + std::to_string( ++runs ) );
   }
   std::unique_ptr< Process > agentProcess( std::vector< std::string > arguments ) {
      arguments.insert( arguments.begin(), HOBA_AGENT_PATH );
      return run( arguments );
   }
   void start( std::vector< std::string > const & arguments ) {
      agent = agentProcess( arguments );
      ASSERT_TRUE( agent->says( "hoba-agent: serving at " + socket + "\n" ) ) << agent->err();
   }
   void startExample() {
      std::string const examples = HOBA_SOURCE_DIR "/examples/";
      start( { "--config", examples + "storm-control.json", "--sim", examples + "chip.json" } );
   }
   void stop( int number = SIGTERM ) {
      agent->signal( number );
      EXPECT_EQ( agent->finish(), 0 );
      EXPECT_EQ( agent->err(), "" );
      EXPECT_FALSE( std::filesystem::exists( socket ) );
   }

   // Words are separated by spaces, and ~/ is where levels are configured; `last` is one more word,
   // which may have spaces.
   std::unique_ptr< Process > tool( std::string const & words, std::string const & last = {} ) {
      std::vector< std::string > arguments{ HOBACTL_PATH };
      std::istringstream in( words );
      for( std::string word; in >> word; ) {
         arguments.push_back( word.starts_with( "~/" ) ? levels + word.substr( 2 ) : word );
      }
      if( !last.empty() ) {
         arguments.push_back( last );
      }
      return run( arguments );
   }
   static Result end( Process & process ) {
      auto const status = process.finish();
      return { status, process.out(), process.err() };
   }
   Result ctl( std::string const & words, std::string const & last = {} ) {
      return end( *tool( words, last ) );
   }
   // The output of a command that must succeed.
   std::string ok( std::string const & words, std::string const & last = {} ) {
      auto const result = ctl( words, last );
      EXPECT_EQ( result.status, 0 ) << words;
      EXPECT_EQ( result.err, "" ) << words;
      return result.out;
   }
   static void expectOneLine( Result const & result, int status, std::string const & text ) {
      EXPECT_EQ( result.status, status ) << text;
      EXPECT_EQ( std::count( result.err.begin(), result.err.end(), '\n' ), 1 ) << result.err;
      HobaTests::expectIn( result.err, text );
   }

   // What stands behind `head` in the line of the answer that begins with it, with single spaces.
   std::string row( std::string const & words, std::string const & head ) {
      std::istringstream lines( ok( words ) );
      for( std::string line; std::getline( lines, line ); ) {
         auto const text = HobaTests::squeezed( line );
         if( text.starts_with( head + " " ) ) {
            return text.substr( head.size() + 1 );
         }
      }
      return "";
   }
   std::string level( std::string const & intfAndName ) {
      return row( "show storm-control", intfAndName );
   }

   HobaTests::Folder folder;
   std::string const socket = folder.path + "/socket";
   unsigned runs = 0;
   std::unique_ptr< Process > agent;
};

} // namespace HobaOperator
