// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimMac.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( HobaSim::MacUnit );

namespace HobaSim {

using Bridging::MacVlanPair;
using Hoba::HobaEvent;

MacUnit::MacUnit( Kiv::String const & unitName, Kiv::Ptr< EventUnit > const & events,
                  Kiv::Ptr< TrunkUnit > const & trunk, Memory const & memory )
      : Unit( unitName, memory ), events_( events ), trunk_( trunk ) {
   hostTable()->capacityIs( 131072 );
}

Learning
MacUnit::learn( Pelt::IntfId port, Pelt::EthAddr addr, Bridging::VlanId vlanId ) {
   portTypeOf( port );
   if( addr.isMulticast() ) {
      countInc( macGroupSourceRefused );
      return learnGroup;
   }
   if( addr.isZero() ) {
      countInc( macZeroSourceRefused );
      return learnZero;
   }
   auto const lag = trunk_->lag( port );
   return learnHost( lag ? lag : port, MacVlanPair( addr, vlanId ) );
}

Learning
MacUnit::learnHost( Pelt::IntfId intf, MacVlanPair station ) {
   auto const known = host( station );
   if( known == intf ) {
      countInc( macHits );
      return learnHit;
   }
   if( !hostIs( station, intf ) ) {
      countInc( macTableFull );
      return learnFull;
   }
   countInc( known ? macMoved : macLearnt );
   events_->stationEvent( HobaEvent::eventTypeMacAddressLearned, station, intf );
   return known ? learnMove : learnNew;
}

void
MacUnit::frameCame( FrameFault fault ) {
   countInc( macFrames );
   if( fault == frameRunt ) {
      countInc( macRunts );
   } else if( fault == frameReservedVlan ) {
      countInc( macBadVlanRefused );
   }
}

void
MacUnit::age( MacVlanPair station ) {
   auto const intf = host( station );
   if( !intf ) {
      Kiv::parseFailed( Kiv::toText( station ), "a host in the table of the chip" );
   }
   if( !station.isStation() ) {
      HobaTypes::stationFailed( station );
   }
   portTypeOf( intf );
   hostDel( station );
   countInc( macAged );
   events_->stationEvent( HobaEvent::eventTypeMacAddressAged, station, intf );
}

void
MacUnit::reportHosts() {
   for( auto const & row : host() ) {
      // One that no frame taught it, but somebody's write, has no event: it keeps no other from its
      // own, and is not met again.
      if( !Kiv::guarded( "MacUnit::reportHosts", Kiv::toText( row.key ), [ & ] {
             events_->stationEvent( HobaEvent::eventTypeMacAddressLearned, row.key, row.value );
          } ) ) {
         hostDel( row.key );
      }
   }
}

} // namespace HobaSim
