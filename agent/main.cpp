// SPDX-License-Identifier: Apache-2.0
#include "agent/Agent.h"
#include "agent/common/Version.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string_view>
#include <unistd.h>

namespace {

// Serves until the end; whether the agent is to be started again.
bool
served( HobaAgent::AgentOptions const & options ) {
   HobaAgent::Agent agent( options );
   std::printf( "hoba-agent: serving at %s\n", options.socket.c_str() );
   std::fflush( stdout );
   agent.run();
   return agent.restartWanted();
}

// Nobody means a file or a memory without a name: a variable of a script was empty.
std::string
isNamed( std::string const & name ) {
   return name.empty() ? "a name is expected, and this one is empty" : "";
}

} // namespace

int
main( int argc, char ** argv ) {
   HobaAgent::AgentOptions options;
   CLI::App app(
         "The forwarding agent: keeps the state database, runs the machines, programs the chip.",
         "hoba-agent" );
   app.set_version_flag( "--version", "hoba-agent " + HobaAgent::versionText() );
   app.add_option( "--config", options.config, "Startup configuration, a JSON file" )
         ->type_name( "FILE" )
         ->check( isNamed );
   app.add_option( "--config-db", options.configDb,
                   "Configuration to import, of the config_db.json shape; --config comes on top" )
         ->type_name( "FILE" )
         ->check( isNamed );
   app.add_option( "--socket", options.socket, "Where hobactl finds this agent" )
         ->type_name( "PATH" )
         ->check( isNamed )
         ->capture_default_str();
   app.add_option( "--sim", options.sim, "Description of the simulated chip, a JSON file" )
         ->type_name( "FILE" )
         ->check( isNamed );
   auto * const chipMemory =
         app.add_option(
                  "--chip-memory", options.chipMemory,
                  "Shared memory in which the simulated chip keeps what it holds: it outlives "
                  "the agent, and goes on with it when the agent comes back" )
               ->type_name( "NAME" )
               ->check( isNamed );
   app.add_flag( "--cold", options.cold, "The chip begins empty, whatever is in its memory" )
         ->needs( chipMemory );
   try {
      app.parse( argc, argv );
   } catch( CLI::ParseError const & error ) {
      if( error.get_exit_code() == 0 ) {
         return app.exit( error );
      }
      std::fprintf( stderr, "hoba-agent: %s\n", error.what() );
      return 2;
   }
   try {
      if( !served( options ) ) {
         return 0;
      }
      // A fresh process, with nothing left of what went wrong. The chip goes on with what it holds.
      auto const last = std::remove_if( argv, argv + argc, []( char const * word ) {
         std::string_view const flag( word );
         return flag == "--cold" || flag.starts_with( "--cold=" );
      } );
      *last = nullptr;
      execv( "/proc/self/exe", argv );
      std::perror( "hoba-agent: cannot restart" );
      return 1;
   } catch( std::exception const & error ) {
      std::fprintf( stderr, "hoba-agent: %s\n", error.what() );
      return 1;
   }
}
