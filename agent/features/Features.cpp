// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Features.h"

#include "Kiv/ClockDriver.h"
#include "agent/Commands.h"
#include "agent/features/Feature.h"
#include "chips/sim/SimChip.h"

#include <algorithm>

namespace HobaAgent {

// The order of creation and of start: first who feeds the context, then who works with it.
// clang-format off
constexpr MakeFeature featureMakers[] = {
      makeFeature< class ChipFeature >,
      makeFeature< class PortsFeature >,
      makeFeature< class LagFeature >,
      makeFeature< class VlanFeature >,
      makeFeature< class MlagFeature >,
      makeFeature< class ContextFeature >,
      makeFeature< class EventsFeature >,
      makeFeature< class BridgingFeature >,
      makeFeature< class OverlayFeature >,
      makeFeature< class NonAgingFeature >,
      makeFeature< class MacProgrammerFeature >,
      makeFeature< class MacFeature >,
      makeFeature< class ReportedStationsFeature >,
      makeFeature< class StationFilesFeature >,
      makeFeature< class ParityFeature >,
      makeFeature< class StormControlFeature >,
      makeFeature< class VerifyFeature >,
};
// clang-format on

std::span< MakeFeature const >
allFeatures() {
   return featureMakers;
}

Features::Features( Tessera::Database & database, Commands & commands,
                    Kiv::Ptr< HobaSim::Chip > const & chip, Board::Restart restart,
                    std::span< MakeFeature const > makers )
      : board_( database, chip, std::move( restart ) ), imports_( commands ) {
   board_.importNotes = [ this ]( std::string_view table ) {
      return imports_.last().digest( table );
   };
   board_.firstPassIsOver = [ this ] {
      if( !starting_ ) { // otherwise others may not have begun theirs
         settle();
      }
   };
   for( auto const make : makers ) {
      features_.push_back( make( board_ ) );
   }
   for( auto const & feature : features_ ) {
      feature->mounts();
      feature->commands( commands );
      feature->importers( imports_.tables() );
   }
   addRestartCommands( commands );
}

Features::~Features() {
   stop();
   for( ; !features_.empty(); features_.pop_back() ) {
      features_.back()->unmount();
   }
}

// ---- The life of the machines

void
Features::start( RestartKind kind ) {
   auto & driver = Kiv::ClockDriver::ambient();
   restarts_.add( { .time = driver.now(), .kind = kind, .isProcess = restarts_.all().empty() } );
   starting_ = true;
   try {
      begin();
      starting_ = false;
      settle();
   } catch( std::exception const & error ) {
      starting_ = false;
      auto & record = restarts_.last();
      record.failure = error.what();
      record.state = failed;
      record.duration = driver.now() - record.time;
      stop();
      throw;
   }
}

void
Features::begin() {
   auto & chip = *board_.chip;
   if( restarts_.last().kind == cold && !restarts_.last().isProcess ) {
      chip.reset(); // which may fail, too: its memory may have been cut off
   }
   chip.beginPass();
   board_.contextIs();
   writesSeen_ = chip.writes();
   failuresSeen_ = Kiv::Dispatch::failures;
   for( auto const & feature : features_ ) {
      feature->start();
      wrote( feature->name() );
   }
}

void
Features::wrote( char const * feature ) {
   auto const before = std::exchange( writesSeen_, board_.chip->writes() );
   restarts_.last().writes.emplace_back( feature, writesSeen_ - before );
}

// What nobody has asked for when all first passes are over, nobody wants.
void
Features::settle() {
   auto & record = restarts_.last();
   if( record.state == inFirstPass &&
       std::ranges::none_of( features_, []( auto const & f ) { return f->inFirstPass(); } ) ) {
      wrote( "later" );
      record.failedSteps = Kiv::Dispatch::failures - failuresSeen_;
      // Whose step failed may want what nobody has asked for.
      if( record.failedSteps == 0 ) {
         auto const before = board_.chip->swept();
         board_.chip->sweep();
         record.swept = board_.chip->swept() - before;
      }
      record.duration = Kiv::ClockDriver::ambient().now() - record.time;
      record.state = running;
   }
}

void
Features::stop() {
   if( !restarts_.all().empty() && restarts_.last().state == inFirstPass ) {
      restarts_.last().state = ended;
   }
   for( auto feature = features_.rbegin(); feature != features_.rend(); ++feature ) {
      ( *feature )->end();
   }
   board_.contextDel();
}

void
Features::addRestartCommands( Commands & commands ) {
   commands.add( { .name = "show restarts",
                   .help = "When the machines began, how long that took, what it wrote to the chip",
                   .handler = [ this ]( Request const & ) { return restarts_.show(); } } );
   commands.add(
         { .name = "sim restart",
           .help = "Lets all machines go, and makes them anew on the chip as it is",
           .arguments = { { "kind", "hitless, or cold: the chip has forgotten everything", true } },
           .handler =
                 [ this ]( Request const & request ) {
                    auto const kind = request.oneOf< RestartKind >(
                          "kind", { { "hitless", hitless }, { "cold", cold } } );
                    stop();
                    start( kind );
                    return restarts_.show( 1 );
                 },
           .isInput = true } );
}

} // namespace HobaAgent
