// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimMac.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( HobaSim::MacUnit );

namespace HobaSim {

using Bridging::MacVlanPair;
using Hoba::HobaEvent;

Learning
MacUnit::learn( Pelt::IntfId port, Pelt::EthAddr addr, Bridging::VlanId vlanId ) {
   portTypeOf( port );
   if( addr.isMulticast() ) {
      groupSourceRefusedInc( 1 );
      return learnGroup;
   }
   if( addr.isZero() ) {
      zeroSourceRefusedInc( 1 );
      return learnZero;
   }
   auto const lag = lagOfPort_ ? lagOfPort_( port ) : Pelt::IntfId();
   return learnHost( lag ? lag : port, MacVlanPair( addr, vlanId ) );
}

Learning
MacUnit::learnHost( Pelt::IntfId intf, MacVlanPair station ) {
   auto const known = host( station );
   if( known == intf ) {
      hitsInc( 1 );
      return learnHit;
   }
   if( !known && host().size() >= capacity() ) {
      tableFullInc( 1 );
      return learnFull;
   }
   if( known ) {
      movedInc( 1 );
   } else {
      learntInc( 1 );
   }
   hostIs( station, intf );
   events_->stationEvent( HobaEvent::eventTypeMacAddressLearned, station, intf );
   return known ? learnMove : learnNew;
}

Learning
MacUnit::frame( Pelt::IntfId port, Bridging::VlanId portVlan,
                std::span< std::uint8_t const > bytes ) {
   portTypeOf( port );
   framesInc( 1 );
   auto const header = readFrameHeader( bytes );
   switch( header.fault ) {
   case frameRunt:
      runtsInc( 1 );
      return learnRunt;
   case frameReservedVlan:
      badVlanRefusedInc( 1 );
      return learnBadVlan;
   default:
      break;
   }
   auto const vlan = header.vlanId().value();
   return learn( port, header.source, vlan ? Bridging::VlanId( vlan ) : portVlan );
}

void
MacUnit::age( MacVlanPair station ) {
   auto const intf = host( station );
   if( !intf ) {
      Kiv::parseFailed( Kiv::toText( station ), "a host in the table of the chip" );
   }
   hostDel( station );
   agedInc( 1 );
   events_->stationEvent( HobaEvent::eventTypeMacAddressAged, station, intf );
}

void
MacUnit::reportHosts() {
   for( auto const & [ station, intf ] : host() ) {
      events_->stationEvent( HobaEvent::eventTypeMacAddressLearned, station, intf );
   }
}

} // namespace HobaSim
