// SPDX-License-Identifier: Apache-2.0
#include "agent/Agent.h"

#include "Glim/Loop.h"
#include "agent/DatabaseCommands.h"
#include "agent/EndedBySignal.h"
#include "agent/LogCommands.h"
#include "agent/TraceCommands.h"
#include "agent/VersionCommand.h"
#include "agent/common/File.h"
#include "agent/common/Json.h"
#include "chips/sim/SimChip.h"

#include <csignal>
#include <cstdio>

#include <sys/epoll.h>

namespace HobaAgent {

namespace {

// Hands the value in a JSON file to `use`, and says of what goes wrong in which file it did.
template< class Use >
void
inFile( std::string const & file, Use use ) {
   auto const tree = parseJsonFile( file );
   try {
      use( tree );
   } catch( Kiv::Exception const & error ) {
      throw Kiv::Exception( file + ": " + error.what() );
   }
}

} // namespace

Agent::Agent( AgentOptions const & options ) : recorder_( recordedEvents ) {
   // Before there is a socket to leave behind.
   loop_.stopOn( { SIGINT, SIGTERM } );
   // Next, so that a second agent does not get as far as the hardware.
   server_ = std::make_unique< Server >( loop_, commands_, options.socket );
   auto & tables = Glim::Loop::instance();
   loop_.fdIs( tables.fd(), EPOLLIN, [ &tables ]( std::uint32_t ) { tables.run(); } );
   addDatabaseCommands( commands_, database_, loop_ );
   addTraceCommands( commands_, recorder_ );
   addVersionCommand( commands_, loop_ );
   addLogCommands( commands_ );
   auto const chip = Kiv::make< HobaSim::Chip >(
         "sim", HobaSim::Memory{ .name = options.chipMemory, .cold = options.cold } );
   features_ = std::make_unique< Features >(
         database_, commands_, chip,
         [ this ]( Kiv::String const & reason ) { restart( reason ); } );
   {
      // Reading what an operator hands in may take long, and so far nobody outside depends on us.
      EndedBySignal const ended( { SIGINT, SIGTERM }, options.socket );
      configure( options );
      // What it is said to be, it must have been when its memory was filled.
      chip->checkCapacities();
   }
   // A signal from here on waits for run().
   features_->start( chip->isFresh() ? cold : hitless );
}

void
Agent::configure( AgentOptions const & options ) {
   if( !options.sim.empty() ) {
      inFile( options.sim,
              [ & ]( Kiv::Datum const & tree ) { database_.set( "/sim/chip", tree ); } );
   }
   if( !options.configDb.empty() ) {
      inFile( options.configDb, [ & ]( Kiv::Datum const & tree ) {
         for( auto const & line : features_->imports().take( tree ) ) {
            std::printf( "import: %s\n", line.c_str() );
         }
      } );
   }
   if( !options.config.empty() ) {
      inFile( options.config, [ & ]( Kiv::Datum const & tree ) { database_.apply( tree ); } );
   }
}

void
Agent::restart( Kiv::String const & reason ) {
   std::fprintf( stderr, "hoba-agent: restarts: %s\n", reason.c_str() );
   restartWanted_ = true;
   loop_.stop();
}

void
Agent::run() {
   loop_.run();
}

} // namespace HobaAgent
