// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/AdjacencyConfig.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Feeders::NextHopCollectionConfig );
KIV_DEFINE( Feeders::AdjacencyConfig );

namespace Feeders {

void
Via::check() const {
   if( weight == 0 ) {
      throw Kiv::RangeException( "a weight is at least 1" );
   }
   if( ( type == Hoba::nextHopHierarchical ) != ( nextLevel.value() != 0 ) ) {
      throw Kiv::ParseError(
            "a nextLevel belongs to type nextHopHierarchical, and the other way round" );
   }
   if( type == Hoba::nextHopArpResolved && ( !intf || !mac.isUnicast() ) ) {
      throw Kiv::ParseError( "type nextHopArpResolved needs an intf and the mac of a station" );
   }
   if( label.size() > Pelt::MplsLabelOperation::maxStackSize ) {
      throw Kiv::RangeException( "at most " +
                                 std::to_string( Pelt::MplsLabelOperation::maxStackSize ) +
                                 " labels fit onto a packet" );
   }
   if( !label.empty() + bool( greDestination ) + bool( ipSecDestination ) + bool( vtep ) > 1 ) {
      throw Kiv::ParseError( "only one of label, greDestination, ipSecDestination, vtep" );
   }
}

} // namespace Feeders
