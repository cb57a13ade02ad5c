// SPDX-License-Identifier: Apache-2.0
#include "Zipline/Control.h"
#include "Zipline/Reader.h"
#include "simulation/History.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <unistd.h>

// Tries orders of events on a simulated switch until something is not as it must be.

namespace {

using namespace Simulation;
using Clock = std::chrono::steady_clock;

struct Options {
   std::uint64_t seed = 1;
   std::uint64_t seeds = 20;
   std::size_t steps = 500;
   unsigned seconds = 0;
   unsigned shrinkSeconds = 120;
   std::string replay = {};
   std::string trace = {};
   std::string output = {};
   std::vector< std::string > captures = {};
   std::vector< Kiv::String > frames = {}; // of these
   bool stepwise = false;
};

double
since( Clock::time_point begin ) {
   return std::chrono::duration< double >( Clock::now() - begin ).count();
}

// All that is traced, and every step with what became of it: the same for the same history, always.
class Trace {
 public:
   explicit Trace( std::string const & file ) : file_( file ), out_( file ) {
      if( !out_ ) {
         throw Kiv::Exception( file + ": cannot be written" );
      }
      Zipline::defaultLevelsIs( Zipline::Levels::upTo( 9 ) );
      Zipline::timeSourceIs( []( void * ) { return Kiv::ClockDriver::ambient().now(); } );
      Zipline::sinkIs( [ this ]( Zipline::Record const & record ) {
         // Without the line: compilers count it differently in a statement of several.
         out_ << record.handle << ' ' << record.level << ' ' << record.function << ' '
              << Kiv::toText( record.time ) << ' ' << record.message << '\n';
      } );
   }
   // Nothing more is traced. Throws if something of it could not be written.
   void end() {
      Zipline::sinkIs( nullptr );
      if( !out_.flush() ) {
         throw Kiv::Exception( file_ + ": cannot be written" );
      }
   }
   ~Trace() {
      Zipline::sinkIs( nullptr );
      Zipline::timeSourceIs( nullptr );
   }
   Trace( Trace const & ) = delete;
   Trace & operator=( Trace const & ) = delete;

   void heard( Step const & step, Outcome const & outcome ) {
      out_ << "> " << step.text() << '\n'
           << ( outcome.accepted ? Kiv::datumText( outcome.answer ) : outcome.refusal ) << '\n';
   }

 private:
   std::string const file_;
   std::ofstream out_;
};

// ---- One history, in this process

// What a step changed in the state database.
void
printChanges( std::string const & path, Kiv::Datum const & before, Kiv::Datum const & after ) {
   if( before == after ) {
      return;
   }
   auto const * const was = before.as< Kiv::Datum::Object >();
   auto const * const is = after.as< Kiv::Datum::Object >();
   if( !was || !is ) {
      std::printf( "      %s: %s -> %s\n", path.c_str(), Kiv::datumText( before ).c_str(),
                   Kiv::datumText( after ).c_str() );
      return;
   }
   for( auto const & [ name, value ] : *was ) {
      auto const * const now = after.find( name );
      printChanges( path + '/' + name, value, now ? *now : Kiv::Datum() );
   }
   for( auto const & [ name, value ] : *is ) {
      if( !before.find( name ) ) {
         printChanges( path + '/' + name, {}, value );
      }
   }
}

int
replay( Steps const & steps, Options const & options ) {
   std::optional< Trace > trace;
   if( !options.trace.empty() ) {
      trace.emplace( options.trace );
   }
   Run run;
   run.listener = [ & ]( Step const & step, Outcome const & outcome ) {
      if( trace ) {
         trace->heard( step, outcome );
      }
      if( options.stepwise && !outcome.accepted ) {
         std::printf( "      refused: %s\n", outcome.refusal.c_str() );
      }
   };
   bool sound = true;
   for( std::size_t n = 0; sound && n != steps.size(); ++n ) {
      auto const before = options.stepwise ? run.simulated().get( "/" ) : Kiv::Datum();
      if( options.stepwise ) {
         std::printf( "%4zu  %.3f s  %s\n", n + 1, run.simulated().now(),
                      steps[ n ].text().c_str() );
      }
      sound = run.step( steps[ n ] );
      if( options.stepwise ) {
         printChanges( "", before, run.simulated().get( "/" ) );
         std::fflush( stdout );
         if( std::string line; ::isatty( STDIN_FILENO ) && !std::getline( std::cin, line ) ) {
            return 0;
         }
      }
   }
   sound = sound && run.finish();
   if( trace ) {
      trace->end();
   }
   if( sound ) {
      std::printf( "switch-simulation: passed: %zu steps\n", steps.size() );
      return 0;
   }
   for( auto const & finding : run.findings() ) {
      std::printf( "step %llu: %s\n", static_cast< unsigned long long >( run.counts().steps ),
                   finding.c_str() );
   }
   std::printf( "switch-simulation: FAILED\n" );
   return 1;
}

// ---- Many

int
failed( std::uint64_t seed, Steps const & steps, Failure const & failure,
        Options const & options ) {
   std::printf( "switch-simulation: seed %llu: step %zu of %zu: %s\n",
                static_cast< unsigned long long >( seed ), failure.step + 1, steps.size(),
                steps[ failure.step ].text().c_str() );
   std::string about = "switch-simulation --seed " + std::to_string( seed ) + " --steps " +
                       std::to_string( options.steps );
   for( auto const & finding : failure.findings ) {
      std::printf( "   %s\n", finding.c_str() );
      about += '\n' + finding;
   }
   auto const file = options.output.empty()
                           ? "switch-simulation-" + std::to_string( seed ) + ".steps"
                           : options.output;
   writeHistory( file, steps, about ); // whatever becomes of the shorter one
   auto short_ = steps;
   if( options.shrinkSeconds != 0 ) {
      std::printf( "switch-simulation: making the history shorter\n" );
      std::fflush( stdout );
      short_ = shrink( steps, failure, options.shrinkSeconds );
      writeHistory( file, short_, about );
   }
   std::printf(
         "switch-simulation: FAILED: %zu steps are left: switch-simulation --replay %s --step\n",
         short_.size(), file.c_str() );
   return 1;
}

int
runMany( Options const & options ) {
   auto const begin = Clock::now();
   Counts sum;
   std::uint64_t seed = options.seed;
   auto told = begin;
   auto const goesOn = [ & ] {
      return options.seconds ? since( begin ) < options.seconds
                             : seed != options.seed + options.seeds;
   };
   for( ; goesOn(); ++seed ) {
      auto const steps = historyOf( seed, options.steps, options.frames );
      auto const ended = runAlone( steps, 600 );
      sum.steps += ended.counts.steps;
      sum.refused += ended.counts.refused;
      sum.quiets += ended.counts.quiets;
      sum.restarts += ended.counts.restarts;
      sum.time += ended.counts.time;
      if( ended.failure ) {
         return failed( seed, steps, *ended.failure, options );
      }
      if( since( told ) > 10 ) {
         told = Clock::now();
         std::printf( "switch-simulation: seed %llu, %llu steps\n",
                      static_cast< unsigned long long >( seed ),
                      static_cast< unsigned long long >( sum.steps ) );
         std::fflush( stdout );
      }
   }
   auto const seconds = since( begin );
   std::printf( "switch-simulation: passed: %llu histories, %llu steps (%llu refused), %llu quiet "
                "moments, %llu starts of the machines, %.0f s simulated in %.1f s: %.0f steps/s\n",
                static_cast< unsigned long long >( seed - options.seed ),
                static_cast< unsigned long long >( sum.steps ),
                static_cast< unsigned long long >( sum.refused ),
                static_cast< unsigned long long >( sum.quiets ),
                static_cast< unsigned long long >( sum.restarts ), sum.time, seconds,
                static_cast< double >( sum.steps ) / seconds );
   return 0;
}

// A history of them is held in memory.
constexpr int mostSteps = 10'000'000;

// Neither a sign nor anything behind it.
std::string
isNumber( std::string const & text ) {
   return parsed< std::uint64_t >( text ) ? "" : '"' + text + "\" is not a number";
}

// CLI11's own would tell of all numbers that a double can be.
std::string
isPositive( std::string const & number ) {
   return number == "0" ? "1 at least is expected" : "";
}

} // namespace

int
main( int argc, char ** argv ) {
   Options options;
   CLI::App app(
         "Tries orders of events on a simulated switch, and watches whether all is as it must "
         "be. A history that fails is made short, and written to a file.",
         "switch-simulation" );
   auto * const seed = app.add_option( "--seed", options.seed, "The first history" )
                             ->capture_default_str()
                             ->check( isNumber );
   auto * const seeds = app.add_option( "--seeds", options.seeds, "How many, from that seed on" )
                              ->capture_default_str()
                              ->check( isNumber )
                              ->check( isPositive );
   auto * const length = app.add_option( "--steps", options.steps, "Of each history" )
                               ->capture_default_str()
                               ->check( isNumber )
                               ->check( CLI::Range( 1, mostSteps ) );
   auto * const seconds =
         app.add_option( "--seconds", options.seconds, "Go on for so long, instead of --seeds" )
               ->check( isNumber )
               ->check( isPositive )
               ->excludes( seeds );
   app.add_option( "--shrink", options.shrinkSeconds,
                   "Seconds to make a failing history shorter; 0 leaves it as it is" )
         ->capture_default_str()
         ->check( isNumber );
   app.add_option( "--output", options.output, "File for a history that fails" );
   auto * const file =
         app.add_option( "--replay", options.replay, "Run the history of this file, and no other" )
               ->excludes( seed, seeds, length, seconds );
   app.add_flag( "--step", options.stepwise, "With --replay: show each step and what it changes" )
         ->needs( file );
   app.add_option( "--capture", options.captures,
                   "Captures whose frames come in among those that are made up" );
   app.add_option( "--trace", options.trace,
                   "Write all traces of one history, that of --seed or --replay, to this file" )
         ->excludes( seeds, seconds );
   try {
      app.parse( argc, argv );
   } catch( CLI::ParseError const & error ) {
      return app.exit( error ) == 0 ? 0 : 2;
   }
   try {
      for( auto const & capture : options.captures ) {
         auto const frames = capturedFrames( capture );
         options.frames.insert( options.frames.end(), frames.begin(), frames.end() );
      }
      if( !options.replay.empty() ) {
         return replay( readHistory( options.replay ), options );
      }
      return options.trace.empty()
                   ? runMany( options )
                   : replay( historyOf( options.seed, options.steps, options.frames ), options );
   } catch( std::exception const & error ) {
      std::fprintf( stderr, "switch-simulation: %s\n", error.what() );
      return 1;
   }
}
