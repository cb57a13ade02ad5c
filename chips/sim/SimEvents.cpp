// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimEvents.h"

#include "Hoba/HobaCallbacks.h"
#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( SimEvents );

KIV_DEFINE( HobaSim::EventUnit );

namespace HobaSim {

using Hoba::HobaEvent;

namespace {

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

bool
hasStations( Pelt::IntfId intf ) {
   return Pelt::EthIntfId::isEthIntfId( intf ) || Pelt::CpuIntfId::isCpuIntfId( intf ) ||
          Pelt::PortChannelIntfId::isPortChannelIntfId( intf ) ||
          Pelt::VxlanIntfId::isVxlanIntfId( intf );
}

HobaEvent::PortType
portTypeOf( Pelt::IntfId intf ) {
   if( !hasStations( intf ) ) {
      Kiv::parseFailed( Kiv::toText( intf ),
                        "an interface with stations behind it: an Ethernet port, the CPU port, a "
                        "port channel or a VXLAN interface" );
   }
   return Pelt::VxlanIntfId::isVxlanIntfId( intf )               ? HobaEvent::vxlanPort
          : Pelt::PortChannelIntfId::isPortChannelIntfId( intf ) ? HobaEvent::trunkPort
                                                                 : HobaEvent::fpPort;
}

void
EventUnit::raise( HobaEvent const & event ) {
   if( reporting() ) {
      ZTRACE( 4, "Raises ", event );
      Hoba::newEventIs( event );
   }
}

void
EventUnit::reportPorts() {
   for( auto const * events : { &link(), &autoneg() } ) {
      for( auto const & [ port, event ] : *events ) {
         raise( event );
      }
   }
}

void
EventUnit::linkEvent( Pelt::IntfId port, Interface::LinkStatus linkStatus,
                      HobaTypes::FaultType faultType ) {
   auto event = portEvent( HobaEvent::eventTypePort, port );
   event.linkStatus = linkStatus;
   event.faultType = faultType;
   linkIs( port, event );
   raise( event );
}

void
EventUnit::autonegEvent( Pelt::IntfId port, Interface::AutonegState result,
                         Interface::AutonegAdvertisement const & advert ) {
   if( result != Interface::autonegSuccess && result != Interface::autonegFailed ) {
      Kiv::parseFailed( Kiv::toText( result ), "an end of autonegotiation: autonegSuccess or "
                                               "autonegFailed" );
   }
   auto event = portEvent( result == Interface::autonegSuccess ? HobaEvent::eventTypeAutonegSuccess
                                                               : HobaEvent::eventTypeAutonegFailed,
                           port );
   event.advert = advert;
   autonegIs( port, event );
   raise( event );
}

void
EventUnit::stationEvent( HobaEvent::HobaEventType eventType, Bridging::MacVlanPair host,
                         Pelt::IntfId intf, std::uint32_t tunnelId ) {
   if( eventType < HobaEvent::eventTypeMacAddressLearned || eventType >= HobaEvent::eventTypes ) {
      Kiv::parseFailed( Kiv::toText( eventType ), "a kind of event about stations" );
   }
   if( !host.isStation() ) {
      HobaTypes::stationFailed( host );
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
