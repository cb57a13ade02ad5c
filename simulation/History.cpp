// SPDX-License-Identifier: Apache-2.0
#include "simulation/History.h"

#include "chips/sim/SimCapture.h"
#include "simulation/Hex.h"

#include <fstream>
#include <set>

namespace Simulation {

using Kiv::String;

namespace {

// One of the observers, by their weights.
Observer &
drawObserver( Draw & draw, Observers const & observers ) {
   unsigned sum = 0;
   for( auto const & each : observers.all() ) {
      sum += each->weight();
   }
   auto left = draw.below( sum );
   for( auto const & each : observers.all() ) {
      if( left < each->weight() ) {
         return *each;
      }
      left -= each->weight();
   }
   return *observers.all().back();
}

// How restarts and quiet moments lie between the steps differs from history to history.
struct Manner {
   explicit Manner( Draw & draw )
         : burst( 1 + draw.below( 12 ) ), waits( static_cast< unsigned >( draw.below( 15 ) ) ),
           restarts( static_cast< unsigned >( draw.below( 12 ) ) ),
           quiets( static_cast< unsigned >( 40 + draw.below( 60 ) ) ),
           upons( draw.chance( 30 ) ? 10 : 0 ), troubles( draw.chance( 30 ) ? 40 : 0 ) {}
   std::uint64_t burst;
   unsigned waits, restarts, quiets, upons, troubles; // percent
};

// What is configured is configured in the middle of something else: mostly of what the same feature does.
// Not ports and LAGs: the order in which members join would hang on who of them is half on its way.
void
makeUpon( Draw & draw, Step & step ) {
   auto const any =
         draw.oneOf( { "/interface/status", "/hoba/common/intf", "/hoba/common/portToLag",
                       "/hoba/common/lagToPort", "/hoba/common/lagToPortConfig" } );
   auto const ofVlans = draw.oneOf( { "/hoba/common/vlanStatus", "/hoba/portVlanMembership" } );
   bool const isNear = draw.chance( 60 );
   auto const upon = [ & ]( String const & near ) {
      step = "upon " + ( isNear ? near : any ) + ' ' + step.text();
   };
   if( step.isAt( "/feeders/config/vlan" ) || step.isAt( "/feeders/config/switchIntf" ) ) {
      upon( ofVlans );
   } else if( step.isAt( "/feeders/config/nonAgingClient" ) ) {
      upon( "/hoba/nonAging/status" );
   } else if( step.isAt( "/bridging/stormControl/config" ) ) {
      upon( "/bridging/stormControl/status" );
   }
}

void
addRestart( Draw & draw, Observers const & observers, Steps & steps ) {
   auto const kind = draw.below( 10 );
   if( kind < 2 ) {
      steps.push_back( "sim restart cold" );
   } else if( kind < 7 ) {
      steps.push_back( "sim restart hitless" );
   } else {
      // Something else is asked for when they are back.
      steps.push_back( "stop" );
      for( auto left = draw.below( 4 ); left != 0; --left ) {
         drawObserver( draw, observers ).propose( draw, steps );
      }
      steps.push_back( "start" );
   }
}

// Machines that begin while the chip refuses things, some of which were asked for just before, and are
// no longer wanted just after.
void
addTrouble( Draw & draw, Observer & observer, Observers const & observers, Steps & steps ) {
   for( auto left = 1 + draw.below( 3 ); left != 0; --left ) {
      observer.propose( draw, steps );
   }
   addRestart( draw, observers, steps );
   for( auto left = 1 + draw.below( 4 ); left != 0; --left ) {
      observer.propose( draw, steps );
   }
}

void
addBurst( Draw & draw, Manner const & manner, Observers const & observers, Steps & steps ) {
   for( auto left = 1 + draw.below( manner.burst ); left != 0; --left ) {
      auto & observer = drawObserver( draw, observers );
      observer.propose( draw, steps );
      if( steps.back()[ 1 ].find( "/fault/" ) != String::npos && draw.chance( manner.troubles ) ) {
         addTrouble( draw, observer, observers, steps );
      }
      if( draw.chance( manner.upons ) ) {
         makeUpon( draw, steps.back() );
      }
      if( draw.chance( manner.waits ) ) {
         steps.push_back( "wait " + draw.oneOf( { "0", "0.1", "0.5", "1", "3.7" } ) );
      }
      if( draw.chance( manner.restarts / 4 ) ) {
         addRestart( draw, observers, steps ); // in the middle of it all
      }
   }
   if( draw.chance( manner.quiets ) ) {
      steps.push_back( "quiet" );
      if( draw.chance( manner.restarts ) ) {
         addRestart( draw, observers, steps );
      }
   }
}

} // namespace

Steps
historyOf( std::uint64_t seed, std::size_t length, std::span< String const > frames ) {
   Run const run; // for the observers, whose generators need nothing of it
   Draw draw( seed, frames );
   Manner const manner( draw );
   Steps steps;
   for( auto const & each : run.observers().all() ) {
      each->prepare( draw, steps );
   }
   steps.push_back( "start" );
   while( steps.size() < length ) {
      addBurst( draw, manner, run.observers(), steps );
   }
   steps.push_back( "quiet" );
   return steps;
}

std::vector< String >
capturedFrames( String const & file ) {
   constexpr std::size_t header = 26; // with three tags: one more than a chip looks at
   HobaSim::CaptureFile capture( file );
   std::set< String > frames;
   while( auto const frame = capture.next() ) {
      frames.insert( hexOf( frame->bytes.first( std::min( header, frame->bytes.size() ) ) ) );
   }
   return { frames.begin(), frames.end() };
}

Steps
readHistory( String const & file ) {
   std::ifstream in( file );
   if( !in ) {
      throw Kiv::ParseError( file + ": cannot be read" );
   }
   Steps steps;
   for( String line; std::getline( in, line ); ) {
      if( Step const step( line ); step.size() != 0 && !step[ 0 ].starts_with( '#' ) ) {
         steps.push_back( step );
      }
   }
   if( steps.empty() ) {
      throw Kiv::ParseError( file + ": there is no history in it" );
   }
   return steps;
}

void
writeHistory( String const & file, Steps const & steps, String const & about ) {
   std::ofstream out( file );
   for( std::size_t begin = 0; begin < about.size(); ) {
      auto const end = std::min( about.find( '\n', begin ), about.size() );
      out << "# " << about.substr( begin, end - begin ) << '\n';
      begin = end + 1;
   }
   for( auto const & step : steps ) {
      out << step.text() << '\n';
   }
   if( !out.flush() ) {
      throw Kiv::Exception( file + ": cannot be written" );
   }
}

String
Failure::kind() const {
   // Up to the second colon: who found it, and where; or what became of the process.
   auto const & first = findings.front();
   auto const colon = first.find( ':' );
   return first.substr( 0, colon == String::npos ? colon : first.find( ':', colon + 1 ) );
}

} // namespace Simulation
