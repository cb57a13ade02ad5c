// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaEventQueueSm.h"

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaCallbacks.h"
#include "Hoba/HobaHelper.h"
#include "Hoba/HobaHook.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaEventQueueSm );

#include "Hoba/HobaEventDrainImpl.h"

namespace Hoba {

template class EventDrain< EventQueueSm, HobaEventQueue >;

// ---- Life

EventQueueSm::EventQueueSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                            Kiv::Ptr< HobaEventQueue > const & queue,
                            Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & portStatusDir )
      : EventDrain( commonSmData, queue ),
        eventStatus_( Kiv::make< HobaEventStatus >( queue ? queue->name() : Kiv::String() ) ) {
   portStatusDirIs( portStatusDir );
}

EventQueueSm::~EventQueueSm() = default;

Kiv::Ptr< EventQueueSm >
EventQueueSm::EventQueueSmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                              Kiv::Ptr< HobaEventQueue > const & queue,
                              Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & portStatusDir ) {
   return smIs< EventQueueSm >( commonSmData, queue, portStatusDir );
}

void
EventQueueSm::registerMachine() {
   auto const former = eventSm();
   eventSmIs( Kiv::Ptr< EventQueueSm >( this ) );
   try {
      callHook< &EventQueueSm::hwInit >( *this );
   } catch( ... ) {
      if( eventSm() == this ) {
         eventSmIs( former );
      }
      throw;
   }
}

void
EventQueueSm::unregisterMachine() {
   if( eventSm() == this ) {
      eventSmIs( nullptr );
   }
}

void
EventQueueSm::cleanupHardware() {
   callHook< &EventQueueSm::hwCleanup >( *this );
}

void
EventQueueSm::hwInit() {
   unimplementedHook( "hwInit", { .name = "EventQueueSm::hwInit" } );
}

// ---- One event

namespace {

bool
isOfStation( HobaEvent const & event ) {
   return event.eventType >= HobaEvent::eventTypeMacAddressLearned &&
          event.eventType < HobaEvent::eventTypes;
}

} // namespace

void
EventQueueSm::handleEventAhead( HobaEvent const & event ) {
   if( isOfStation( event ) && queue() && !queue()->event().empty() ) {
      overtaken_.insertOrAssign( event.host, queue()->nextIndex() );
   }
   handleOneEvent( event );
}

void
EventQueueSm::applyEvent( std::uint32_t index, HobaEvent const & event ) {
   auto const * last = isOfStation( event ) ? overtaken_.find( event.host ) : nullptr;
   // Indices are counted around.
   if( last && static_cast< std::int32_t >( *last - index ) >= 0 ) {
      ZTRACE( 4, "Newer news of host ", event.host, " came ahead, dropping ", event.eventType );
      dropped( dropOvertaken );
      return;
   }
   handleOneEvent( event );
}

void
EventQueueSm::handleOneEvent( HobaEvent const & event ) {
   ZTRACE( 4, "handleOneEvent", " event:", event.eventType );
   eventCounterInc( 1 );
   if( event.eventType >= HobaEvent::eventTypes ) {
      dropped( dropUnknownKind );
      return;
   }
   eventStatus_->handledInc( event.eventType, 1 );
   switch( event.eventType ) {
   case HobaEvent::eventTypePort:
      return handleLinkEvent( event );
   case HobaEvent::eventTypeAutonegSuccess:
   case HobaEvent::eventTypeAutonegFailed:
      return handleAutonegEvent( event );
   case HobaEvent::eventTypeMacAddressLearned:
   case HobaEvent::eventTypeStaticMacAddress:
   case HobaEvent::eventTypeAuthenticatedMac:
   case HobaEvent::eventTypeEvpnIntfDynamicMac:
   case HobaEvent::eventTypePeerMacAddressLearned:
   case HobaEvent::eventTypePeerStaticMacAddress:
   case HobaEvent::eventTypePeerAuthenticatedMac:
      return handleLearnEvent( event );
   case HobaEvent::eventTypeMacAddressAged:
      return handleAgeEvent( event );
   case HobaEvent::eventTypeMacAddressAgedLocal:
      return handleLocalAgeEvent( event );
   case HobaEvent::eventTypeMacAddressAgedRemote:
      return handleRemoteAgeEvent( event );
   case HobaEvent::eventTypeMacAddressDeleted:
   case HobaEvent::eventTypeDropMacAddress:
      return handleDeleteEvent( event );
   }
}

// ---- Ports

Kiv::Ptr< HobaTypes::HobaPortStatus >
EventQueueSm::portStatus( Pelt::IntfId port, char const * what ) {
   auto status = portStatusDir() ? portStatusDir()->notifier()->portStatus( port ) : nullptr;
   if( !status ) {
      ZTRACE( 2, "Unable to find port: ", port, what );
      dropped( dropNoPortStatus );
   }
   return status;
}

void
EventQueueSm::handleLinkEvent( HobaEvent const & event ) {
   ZTRACE( 5, "In eventTypePort_" );
   if( auto const status = portStatus( event.port, " for link event." ) ) {
      ZTRACE( 5, "Link ", event.linkStatus, "fault status ", event.faultType );
      // The fault first: who hears of the link finds out why.
      status->faultTypeIs( event.faultType );
      status->linkStatusIs( event.linkStatus );
   }
}

void
EventQueueSm::handleAutonegEvent( HobaEvent const & event ) {
   ZTRACE( 5, "Autoneg Event ", event.port );
   if( auto const status = portStatus( event.port, " for autoneg event." ) ) {
      status->partnerAutonegAdvertisementIs( event.advert );
      status->autonegResultIs( event.eventType == HobaEvent::eventTypeAutonegSuccess
                                     ? Interface::autonegSuccess
                                     : Interface::autonegFailed );
   }
}

// ---- Stations

Bridging::EntryType
EventQueueSm::getEntryType( HobaEvent::HobaEventType eventType, HobaEvent::PortType portType ) {
   bool const remote = portType == HobaEvent::vxlanPort;
   switch( eventType ) {
   case HobaEvent::eventTypeMacAddressLearned:
      return remote ? Bridging::learnedRemoteMac : Bridging::learnedDynamicMac;
   case HobaEvent::eventTypeStaticMacAddress:
      return remote ? Bridging::configuredRemoteMac : Bridging::configuredStaticMac;
   case HobaEvent::eventTypeAuthenticatedMac:
      return Bridging::authenticatedMac;
   case HobaEvent::eventTypeEvpnIntfDynamicMac:
      return remote ? Bridging::evpnDynamicRemoteMac : Bridging::evpnIntfDynamicMac;
   case HobaEvent::eventTypePeerMacAddressLearned:
      return remote ? Bridging::peerLearnedRemoteMac : Bridging::peerDynamicMac;
   case HobaEvent::eventTypePeerStaticMacAddress:
      return remote ? Bridging::peerStaticRemoteMac : Bridging::peerStaticMac;
   case HobaEvent::eventTypePeerAuthenticatedMac:
      return Bridging::peerAuthenticatedMac;
   default:
      return Bridging::entryTypeUnknown;
   }
}

bool
EventQueueSm::hasMacTable() {
   if( !macTable_ ) {
      dropped( dropNoMacTable );
   }
   return macTable_ != nullptr;
}

void
EventQueueSm::age( Bridging::MacVlanPair const & host ) {
   ZTRACE( 5, "Aged host ", host );
   macTable_->macEntryDel( host );
}

// The port collection of a LAG is its list of active members: without one there is no port on which
// the station could be, however much of the LAG is configured. And a LAG is one whatever kind of port
// the event says that it is.
bool
EventQueueSm::agedInstead( HobaEvent const & event ) {
   auto const & context = *commonSmData();
   bool const isLag = event.portType == HobaEvent::trunkPort || isPortChannel( event.port );
   if( isCpuPort( event.port ) ) {
      ZTRACE( 2, "Learn event on CPU port, aging host" );
      dropped( agedLearnOnCpuPort );
   } else if( !isLag || !context.lagToPort( event.port ).port.empty() ) {
      return false;
   } else if( context.lagToPortHas( event.port ) || context.lagToPortConfigHas( event.port ) ||
              context.lagToLagTypeHas( event.port ) ) {
      ZTRACE( 2, "The port collection has been deleted and is invalid, aging" );
      dropped( agedPortCollectionDeleted );
   } else {
      ZTRACE( 2, "Learn event on deleted LAG, aging host" );
      dropped( agedLearnOnDeletedLag );
   }
   age( event.host );
   return true;
}

void
EventQueueSm::handleLearnEvent( HobaEvent const & event ) {
   if( !hasMacTable() || agedInstead( event ) ) {
      return;
   }
   HobaTypes::MacAddressTableEntry entry;
   entry.macEntry = event.host;
   entry.intf = event.port;
   entry.entryType = getEntryType( event.eventType, event.portType );
   entry.tunnelId = event.portType == HobaEvent::vxlanPort ? event.tunnelId : 0;
   entry.learnTime = eventTime();
   entry.learnedInHardware = event.eventType == HobaEvent::eventTypeMacAddressLearned;
   ZTRACE( 5, "Learnt host ", event.host, " on port ", event.port, " entry type is ",
           entry.entryType, "tunnel id is ", entry.tunnelId );
   macTable_->macEntryIs( entry );
}

void
EventQueueSm::handleAgeEvent( HobaEvent const & event ) {
   if( hasMacTable() ) {
      age( event.host );
   }
}

void
EventQueueSm::handleLocalAgeEvent( HobaEvent const & event ) {
   if( !hasMacTable() ) {
      return;
   }
   if( Bridging::isEntryTypeRemote( macTable_->macEntry( event.host ).entryType ) ) {
      ZTRACE( 2, "Local Age event for the wrong entryType" );
      dropped( dropWrongAge );
      return;
   }
   age( event.host );
}

void
EventQueueSm::handleRemoteAgeEvent( HobaEvent const & event ) {
   if( !hasMacTable() ) {
      return;
   }
   if( macTable_->macEntryHas( event.host ) &&
       !Bridging::isEntryTypeRemote( macTable_->macEntry( event.host ).entryType ) ) {
      ZTRACE( 2, "Remote Age event for the wrong entryType" );
      dropped( dropWrongAge );
      return;
   }
   age( event.host );
}

void
EventQueueSm::handleDeleteEvent( HobaEvent const & event ) {
   if( hasMacTable() ) {
      macTable_->macEntryDel( event.host );
   }
}

} // namespace Hoba
