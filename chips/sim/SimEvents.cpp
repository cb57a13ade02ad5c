// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimEvents.h"

#include "Hoba/HobaCallbacks.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( SimEvents );

namespace HobaSim {

using Hoba::HobaEvent;

namespace {

void
raise( HobaEvent const & event ) {
   ZTRACE( 4, "Raises ", event );
   Hoba::newEventIs( event );
}

// An event about an Ethernet port.
HobaEvent
portEvent( HobaEvent::HobaEventType eventType, Pelt::IntfId port ) {
   if( !Pelt::EthIntfId::isEthIntfId( port ) ) {
      Kiv::parseFailed( Kiv::toText( port ), Pelt::EthIntfId::kindText );
   }
   HobaEvent event;
   event.eventType = eventType;
   event.port = port;
   return event;
}

} // namespace

HobaEvent::PortType
portTypeOf( Pelt::IntfId intf ) {
   if( Pelt::EthIntfId::isEthIntfId( intf ) || Pelt::CpuIntfId::isCpuIntfId( intf ) ) {
      return HobaEvent::fpPort;
   }
   if( Pelt::PortChannelIntfId::isPortChannelIntfId( intf ) ) {
      return HobaEvent::trunkPort;
   }
   if( Pelt::VxlanIntfId::isVxlanIntfId( intf ) ) {
      return HobaEvent::vxlanPort;
   }
   Kiv::parseFailed( Kiv::toText( intf ),
                     "an interface with stations behind it: an Ethernet port, the CPU port, a port "
                     "channel or a VXLAN interface" );
}

void
linkEvent( Pelt::IntfId port, Interface::LinkStatus linkStatus, HobaTypes::FaultType faultType ) {
   auto event = portEvent( HobaEvent::eventTypePort, port );
   event.linkStatus = linkStatus;
   event.faultType = faultType;
   raise( event );
}

void
autonegEvent( Pelt::IntfId port, Interface::AutonegState result,
              Interface::AutonegAdvertisement const & advert ) {
   if( result != Interface::autonegSuccess && result != Interface::autonegFailed ) {
      Kiv::parseFailed( Kiv::toText( result ), "an end of autonegotiation: autonegSuccess or "
                                               "autonegFailed" );
   }
   auto event = portEvent( result == Interface::autonegSuccess ? HobaEvent::eventTypeAutonegSuccess
                                                               : HobaEvent::eventTypeAutonegFailed,
                           port );
   event.advert = advert;
   raise( event );
}

void
stationEvent( HobaEvent::HobaEventType eventType, Bridging::MacVlanPair host, Pelt::IntfId intf,
              std::uint32_t tunnelId ) {
   if( eventType < HobaEvent::eventTypeMacAddressLearned || eventType >= HobaEvent::eventTypes ) {
      Kiv::parseFailed( Kiv::toText( eventType ), "a kind of event about stations" );
   }
   if( !host.addr().isUnicast() || host.vlanId().value() == 0 ) {
      Kiv::parseFailed( Kiv::toText( host ), "a station: the address of one station, in a VLAN" );
   }
   HobaEvent event;
   event.eventType = eventType;
   event.portType = portTypeOf( intf );
   event.port = intf;
   event.tunnelId = event.portType == HobaEvent::vxlanPort ? tunnelId : 0;
   event.host = host;
   raise( event );
}

} // namespace HobaSim
