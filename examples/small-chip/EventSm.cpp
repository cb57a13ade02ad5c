// SPDX-License-Identifier: Apache-2.0
#include "EventSm.h"

#include "Hoba/HobaCallbacks.h"
#include "Hoba/HobaCommon.h"

namespace SmallChip {

EventSm::EventSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                  Kiv::Ptr< Hoba::HobaEventQueue > const & queue,
                  Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & portStatusDir, Driver * driver )
      : EventQueueSm( commonSmData, queue, portStatusDir ), driver_( *driver ) {}

Kiv::Ptr< EventSm >
EventSm::EventSmIs( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                    Kiv::Ptr< Hoba::HobaEventQueue > const & queue,
                    Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & portStatusDir,
                    Driver & driver ) {
   return Hoba::smIs< EventSm >( commonSmData, queue, portStatusDir, &driver );
}

void
EventSm::hwInit() {
   driver_.onLink = [ this ]( unsigned port, bool up ) { reportLink( port, up ); };
   driver_.onStation = [ this ]( unsigned port, unsigned vlan, std::uint64_t station ) {
      reportStation( port, vlan, station );
   };
   driver_.reportAll(); // what it found while nobody listened
}

void
EventSm::hwCleanup() {
   driver_.onLink = nullptr;
   driver_.onStation = nullptr;
}

void
EventSm::reportLink( unsigned port, bool up ) {
   Hoba::HobaEvent event;
   event.eventType = Hoba::HobaEvent::eventTypePort;
   event.port = Pelt::EthIntfId( port );
   event.linkStatus = up ? Interface::linkUp : Interface::linkDown;
   Hoba::newEventIs( event );
}

void
EventSm::reportStation( unsigned port, unsigned vlan, std::uint64_t station ) {
   Hoba::HobaEvent event;
   event.eventType = Hoba::HobaEvent::eventTypeMacAddressLearned;
   event.host = { Pelt::EthAddr( station ), Bridging::VlanId( vlan ) };
   event.port = Pelt::EthIntfId( port );
   // A station behind a member of a LAG is a station behind the LAG.
   if( auto const lag = commonSmData()->portToLag( event.port ) ) {
      event.port = lag;
      event.portType = Hoba::HobaEvent::trunkPort;
   }
   Hoba::newEventIs( event );
}

} // namespace SmallChip
