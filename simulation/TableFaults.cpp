// SPDX-License-Identifier: Apache-2.0
#include "simulation/TableFaults.h"

#include <algorithm>

namespace Simulation {

using Kiv::String;

void
TableFaults::propose( Draw & draw, Steps & steps ) const {
   auto const table = "set " + tables_[ draw.below( tables_.size() ) ];
   auto const kind = draw.below( 4 );
   auto const amount = draw.below( 3 ) + 1;
   auto const refusal = draw.oneOf( { "busy", "failed", "full" } );
   switch( kind ) {
   case 0:
      return steps.push_back( table + "/fault/" + refusal + "/next " + std::to_string( amount ) );
   case 1:
      return steps.push_back( table + "/fault/" + refusal + "/chance 0." +
                              std::to_string( amount ) );
   case 2:
      return steps.push_back( table + "/latency 0." + std::to_string( amount ) );
   default:
      return steps.push_back( table + "/capacity " + std::to_string( amount ) );
   }
}

bool
TableFaults::isMine( Step const & step ) const {
   return std::ranges::any_of( tables_,
                               [ & ]( auto const & table ) { return step.isAt( table ); } );
}

void
TableFaults::heard( Step const & step ) {
   if( isMine( step ) ) {
      step[ 2 ] == "0" ? changed_.erase( step[ 1 ] ) : changed_.insert( step[ 1 ] ).second;
   }
}

Steps
TableFaults::heal() {
   Steps steps;
   for( auto const & path : changed_ ) {
      steps.push_back( "set " + path + " 0" );
   }
   return steps;
}

} // namespace Simulation
