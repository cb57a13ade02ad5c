// SPDX-License-Identifier: Apache-2.0
#include "simulation/Run.h"

#include "Kiv/Dispatch.h"
#include "Kiv/Type.h"

#include <algorithm>

namespace Simulation {

using HobaAgent::RestartKind;
using Kiv::String;

namespace {

std::vector< std::pair< std::string_view, std::uint64_t > >
liveObjects() {
   std::vector< std::pair< std::string_view, std::uint64_t > > live;
   for( auto const * type : Kiv::Type::all() ) {
      if( type->live() ) {
         live.emplace_back( type->name(), type->live() );
      }
   }
   std::ranges::sort( live );
   return live;
}

// What the machines' steps that failed had to say, until somebody looks.
std::vector< String > failedSteps;

void
stepFailed( std::string_view step, std::string_view why ) {
   failedSteps.push_back( String( step ) + ": " + String( why ) );
}

// In a longer time machines that look again and again would run for ever.
Kiv::Seconds
waitingTime( Step const & step ) {
   constexpr Kiv::Seconds longest = 100'000;
   auto const time = Kiv::fromText< double >( step[ 1 ] );
   if( !( time >= 0 && time <= longest ) ) {
      Kiv::parseFailed( step.text(), "wait SECONDS, at most 100000" );
   }
   return time;
}

// A difference of two texts of much the same content, short enough for a line.
String
differenceOf( String const & before, String const & after ) {
   constexpr std::size_t shown = 120;
   auto const at =
         static_cast< std::size_t >( std::ranges::mismatch( before, after ).in1 - before.begin() );
   auto const begin = at < shown / 2 ? 0 : at - shown / 2;
   return "\"" + before.substr( begin, shown ) + "\" became \"" + after.substr( begin, shown ) +
          '"';
}

} // namespace

Run::Run()
      : liveBefore_( liveObjects() ), switch_( std::make_unique< Switch >() ),
        observers_( std::make_unique< Observers >( *switch_ ) ) {
   Kiv::Dispatch::failureSink = stepFailed;
   failedSteps.clear();
}

Run::~Run() {
   uponNoMore();
   switch_.reset(); // observers hear of it while it goes
   Kiv::Dispatch::failureSink = nullptr;
}

bool
Run::step( Step const & step ) {
   ++counts_.steps;
   try {
      run( step );
   } catch( std::exception const & error ) {
      found( String( "thrown out of a step: " ) + error.what() );
   }
   counts_.time = switch_->now() - Switch::startTime;
   return findings_.empty();
}

bool
Run::finish() {
   uponNoMore();
   switch_.reset();
   observers_.reset();
   if( liveObjects() != liveBefore_ ) {
      String left;
      for( auto const & [ type, count ] : liveObjects() ) {
         left += ' ' + String( type ) + ' ' + std::to_string( count );
      }
      found( "objects are left, or too few, of those that lived before:" + left );
   }
   return findings_.empty();
}

void
Run::run( Step const & step ) {
   if( step[ 0 ] == "quiet" ) {
      quiet();
   } else if( step[ 0 ] == "wait" ) {
      isQuiet_ = false;
      passTime( switch_->now() + waitingTime( step ) );
   } else if( step[ 0 ] == "start" || step.begins( "sim restart" ) ) {
      begin( step );
   } else if( step[ 0 ] == "stop" ) {
      stop( step );
   } else if( step[ 0 ] == "upon" ) {
      if( step.size() < 3 ) {
         Kiv::parseFailed( step.text(), "upon PATH STEP" );
      }
      upon( step[ 1 ], step.from( 2 ) );
   } else {
      input( step );
   }
}

// ---- Steps

void
Run::upon( String const & path, Step const & step ) {
   auto const id = std::make_shared< std::uint64_t >( 0 );
   *id = switch_->watch( path, [ this, id, step ] {
      // Once. What it changes itself is nobody's cue.
      bool const isTime = std::ranges::all_of(
            observers_->all(), []( auto const & each ) { return each->canBeInterrupted(); } );
      if( isTime && upons_.erase( *id ) ) {
         switch_->unwatch( *id );
         observers_->inTheMiddleIs( true );
         observers_->follow(); // what is under way came first
         try {
            input( step );
         } catch( std::exception const & error ) {
            // Not through those who are at work.
            found( String( "thrown out of a step: " ) + error.what() );
         }
         observers_->inTheMiddleIs( false );
      }
   } );
   upons_.insert( *id );
}

void
Run::uponNoMore() {
   for( auto const id : std::exchange( upons_, {} ) ) {
      switch_->unwatch( id );
   }
}

void
Run::input( Step const & step ) {
   isQuiet_ = false;
   auto verdict = Observer::notMine;
   for( auto const & each : observers_->all() ) {
      if( auto const own = each->judge( step ); own != Observer::notMine ) {
         if( verdict != Observer::notMine ) {
            found( "two observers answer for: " + step.text() );
         }
         verdict = own;
      }
   }
   if( verdict == Observer::notMine ) {
      return found( "no observer answers for: " + step.text() );
   }
   auto const before = verdict == Observer::refuses ? switch_->get( "/" ) : Kiv::Datum();
   ++depth_;
   auto const outcome = switch_->run( step );
   --depth_;
   listener( step, outcome );
   if( outcome.accepted != ( verdict == Observer::accepts ) ) {
      return found( outcome.accepted ? "accepted, and must be refused: " + step.text()
                                     : "refused: " + step.text() + ": " + outcome.refusal );
   }
   if( !outcome.accepted ) {
      ++counts_.refused;
      if( auto const after = switch_->get( "/" ); after != before ) {
         found( "refused, and has changed something: " + step.text() + ": " +
                differenceOf( Kiv::datumText( before ), Kiv::datumText( after ) ) );
      }
      return;
   }
   for( auto const & each : observers_->all() ) {
      each->heard( step, outcome.answer );
   }
   observers_->follow();
   lookForFailures();
   restartIfAsked();
}

void
Run::begin( Step const & step ) {
   bool const isStart = step[ 0 ] == "start";
   bool const isCold = isStart ? counts_.restarts == 0 : step[ 2 ] == "cold";
   auto const kind = isCold ? HobaAgent::cold : HobaAgent::hitless;
   if( isStart == switch_->isRunning() ) {
      return; // a history from which the start was taken, or that has two
   }
   bool const stoppedUnderFaults = std::exchange( stoppedUnderFaults_, false );
   bool const fromQuiet = isQuiet_ && upons_.empty() && !stoppedUnderFaults;
   auto const writes = switch_->writes();
   auto const swept = switch_->swept();
   isQuiet_ = false;
   Outcome outcome;
   ++depth_;
   if( isStart ) {
      switch_->restart( kind );
   } else {
      outcome = switch_->run( step );
   }
   --depth_;
   listener( step, outcome );
   if( !outcome.accepted ) {
      return found( "refused: " + step.text() + ": " + outcome.refusal );
   }
   beganAll( kind );
   passTime( switch_->now() ); // the first look at all stations takes turns of the clock
   if( fromQuiet && kind == HobaAgent::hitless ) {
      std::uint64_t mayWrite = 0, maySweep = 0;
      for( auto const & each : observers_->all() ) {
         mayWrite += each->restartWrites();
         maySweep += each->restartSwept();
      }
      if( auto const is = switch_->writes() - writes; is != mayWrite ) {
         found( "a hitless restart wrote " + std::to_string( is ) +
                " times to the chip, and must " + std::to_string( mayWrite ) );
      }
      if( auto const is = switch_->swept() - swept; is != maySweep ) {
         found( "a hitless restart swept " + std::to_string( is ) + " rows, and must " +
                std::to_string( maySweep ) );
      }
   }
}

// Out of the quiet, a start that follows at once must write no more than a restart.
void
Run::stop( Step const & step ) {
   if( switch_->isRunning() ) {
      ++depth_;
      switch_->stop();
      --depth_;
      isQuiet_ = isQuiet_ && upons_.empty();
      stoppedUnderFaults_ = hasFaults();
      listener( step, {} );
      lookForFailures();
   }
}

void
Run::beganAll( RestartKind kind ) {
   bool const isFirst = counts_.restarts++ == 0;
   beganUnderFaults_ = hasFaults() || beganUnderFaults_; // asked of all, before they begin
   if( kind == HobaAgent::cold && !isFirst ) {
      for( auto const & each : observers_->all() ) {
         each->chipForgot();
      }
   }
   for( auto const & each : observers_->all() ) {
      each->began( kind );
   }
   observers_->follow();
   lookForFailures();
   restartIfAsked();
}

// Not in the middle of something: machines go when nothing is under way.
void
Run::restartIfAsked() {
   if( depth_ != 0 ) {
      return;
   }
   auto const reason = switch_->takeRestart();
   if( !reason ) {
      return;
   }
   bool expected = false;
   for( auto const & each : observers_->all() ) {
      expected = each->expectsRestart( *reason ) || expected;
   }
   if( !expected ) {
      return found( "a machine asks for a restart: " + *reason );
   }
   ++depth_;
   switch_->restart( HobaAgent::hitless );
   --depth_;
   beganAll( HobaAgent::hitless );
}

// ---- Time

bool
Run::advance( Kiv::Seconds time ) {
   std::size_t fired = 0;
   try {
      ++depth_;
      fired = switch_->driver().advanceTo( std::max( time, switch_->now() ) );
   } catch( Kiv::Exception const & error ) {
      found( String( "time does not go on: " ) + error.what() );
   }
   --depth_;
   for( auto const & each : observers_->all() ) {
      each->timeIs( switch_->now() );
   }
   lookForFailures();
   restartIfAsked();
   return fired != 0;
}

void
Run::passTime( Kiv::Seconds end ) {
   while( findings_.empty() && switch_->driver().nextTimeout() <= end ) {
      advance( switch_->driver().nextTimeout() );
   }
   if( findings_.empty() ) {
      advance( end );
   }
}

// Until nothing has happened for so long as the features name, and nothing waits for longer than that. That a
// clock's next time may be too early does not matter: what counts is that timers fired.
void
Run::settle() {
   constexpr unsigned mostStops = 10'000;
   Kiv::Seconds window = 0;
   for( auto const & each : observers_->all() ) {
      window = std::max( window, each->settlingTime() );
   }
   auto since = switch_->now();
   for( unsigned stops = 0; findings_.empty(); ++stops ) {
      auto const next = switch_->driver().nextTimeout();
      if( next <= since + window ) {
         since = advance( next ) ? switch_->now() : since;
      } else {
         advance( since + window );
         if( std::ranges::none_of( observers_->all(),
                                   []( auto const & each ) { return each->isWaiting(); } ) ) {
            return;
         }
         since = switch_->now();
      }
      if( stops == mostStops ) {
         return found( "quiet never comes" );
      }
   }
}

// Faults end. Machines that began under them swept nothing, and not all of them try again what was refused:
// then they are made anew, but not before those that do have had their time.
void
Run::heal() {
   bool mustBegin = beganUnderFaults_;
   for( auto const & each : observers_->all() ) {
      for( auto const & step : each->heal() ) {
         if( step.begins( "sim restart" ) ) {
            mustBegin = true;
         } else {
            run( step );
         }
      }
   }
   if( mustBegin && findings_.empty() ) {
      settle();
      for( auto const & each : observers_->all() ) {
         each->settled();
      }
      lookForFailures();
      faulty_.clear(); // nothing is refused any more
      begin( "sim restart hitless" );
   }
}

void
Run::quiet() {
   ++counts_.quiets;
   uponNoMore();
   heal();
   settle();
   faulty_.clear();
   if( switch_->isRunning() && findings_.empty() ) {
      for( auto const & each : observers_->all() ) {
         each->check();
      }
      lookForFailures();
   }
   for( auto const & each : observers_->all() ) {
      if( each->hasFaults() ) {
         found( String( each->name() ) + ": faults are not healed" );
      }
   }
   beganUnderFaults_ = false;
   isQuiet_ = true;
}

// ---- What is not as it must be

void
Run::found( String const & what ) {
   findings_.push_back( "run: " + what );
}

bool
Run::hasFaults() {
   for( auto const & each : observers_->all() ) {
      if( each->hasFaults() ) {
         faulty_.insert( each.get() );
      }
   }
   return !faulty_.empty();
}

void
Run::lookForFailures() {
   if( depth_ != 0 ) {
      return;
   }
   for( auto const & failure : std::exchange( failedSteps, {} ) ) {
      hasFaults();
      if( std::ranges::none_of(
                faulty_, [ & ]( auto const * each ) { return each->mayFail( failure ); } ) ) {
         found( "a step of a machine failed: " + failure );
      }
   }
   auto const & theirs = observers_->findings();
   findings_.insert( findings_.end(), theirs.begin(), theirs.end() );
   observers_->forget();
}

} // namespace Simulation
