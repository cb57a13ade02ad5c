// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaEventQueueSm.h"

#include "Hoba/HobaCallbacks.h"
#include "Hoba/HobaHelper.h"
#include "Hoba/HobaHook.h"
#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaEventQueueSm );

KIV_DEFINE( Hoba::EventQueueSm );

namespace Hoba {

// ---- Life

EventQueueSm::EventQueueSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                            Kiv::Ptr< HobaEventQueue > const & queue,
                            Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & portStatusDir )
      : EventDrainSm( commonSmData, "EventQueueSm" ),
        eventStatus_( Kiv::make< HobaEventStatus >( queue ? queue->name() : Kiv::String() ) ) {
   eventQueueIs( queue );
   portStatusDirIs( portStatusDir );
}

HobaEventQueue *
EventQueueSm::queue() const {
   return eventQueue() ? eventQueue()->notifier() : nullptr;
}

// What overtook the events of one queue says nothing of those of another.
void
EventQueueSm::KivEventQueue::notifierIs( Kiv::Ptr< HobaEventQueue > const & queue ) {
   if( queue && queue != notifier() ) {
      owner().overtakenDelAll();
   }
   Reactor::notifierIs( queue );
}

void
EventQueueSm::trace( int level, std::string_view text ) const {
   ZTRACE_AT( level, text );
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

// ---- One event

namespace {

bool
isOfStation( HobaEvent const & event ) {
   return event.eventType >= HobaEvent::eventTypeMacAddressLearned &&
          event.eventType < HobaEvent::eventTypes;
}

} // namespace

struct EventQueueSm::Kind {
   void ( EventQueueSm::*handle )( HobaEvent const & );
   // Of the entry that it makes: of a station behind a port, and behind a VXLAN port.
   Bridging::EntryType local = Bridging::entryTypeUnknown;
   Bridging::EntryType remote = local;
};

// In the order of HobaEventType.
EventQueueSm::Kind const EventQueueSm::kinds[] = {
      { &EventQueueSm::handleLinkEvent },
      { &EventQueueSm::handleAutonegEvent }, // success
      { &EventQueueSm::handleAutonegEvent }, // failed
      { &EventQueueSm::handleLearnEvent, Bridging::learnedDynamicMac, Bridging::learnedRemoteMac },
      { &EventQueueSm::handleAgeEvent },
      { &EventQueueSm::handleLocalAgeEvent },
      { &EventQueueSm::handleRemoteAgeEvent },
      { &EventQueueSm::handleDeleteEvent }, // deleted
      { &EventQueueSm::handleDeleteEvent }, // dropped
      { &EventQueueSm::handleLearnEvent, Bridging::configuredStaticMac,
        Bridging::configuredRemoteMac },
      { &EventQueueSm::handleLearnEvent, Bridging::authenticatedMac },
      { &EventQueueSm::handleLearnEvent, Bridging::evpnIntfDynamicMac,
        Bridging::evpnDynamicRemoteMac },
      { &EventQueueSm::handleLearnEvent, Bridging::peerDynamicMac, Bridging::peerLearnedRemoteMac },
      { &EventQueueSm::handleLearnEvent, Bridging::peerStaticMac, Bridging::peerStaticRemoteMac },
      { &EventQueueSm::handleLearnEvent, Bridging::peerAuthenticatedMac } };

void
EventQueueSm::handleEventAhead( HobaEvent const & event ) {
   if( isOfStation( event ) && queue() && queue()->waiting() ) {
      overtakenIs( event.host, queue()->nextIndex() );
   }
   handleOneEvent( event );
}

void
EventQueueSm::applyOldest() {
   auto const & oldest = oldestOf( queue()->event() );
   auto const index = oldest.key;
   auto const event = oldest.value; // who hears of it may empty the queue
   auto const * last = isOfStation( event ) ? overtaken().find( event.host ) : nullptr;
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
   if( isOfStation( event ) && !macTable() ) {
      dropped( dropNoMacTable );
      return;
   }
   ( this->*kinds[ event.eventType ].handle )( event );
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
   if( eventType >= HobaEvent::eventTypes ) {
      return Bridging::entryTypeUnknown;
   }
   auto const & kind = kinds[ eventType ];
   return portType == HobaEvent::vxlanPort ? kind.remote : kind.local;
}

void
EventQueueSm::age( Bridging::MacVlanPair const & host ) {
   ZTRACE( 5, "Aged host ", host );
   macTable()->macEntryDel( host );
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
   if( agedInstead( event ) ) {
      return;
   }
   HobaTypes::MacAddressTableEntry entry;
   entry.macEntry = event.host;
   entry.intf = event.port;
   entry.entryType = getEntryType( event.eventType, event.portType );
   entry.tunnelId = event.portType == HobaEvent::vxlanPort ? event.tunnelId : 0;
   auto const * const before = macTable()->macEntry().find( event.host );
   bool const isKnown =
         before && before->intf == entry.intf && before->entryType == entry.entryType;
   entry.learnTime = isKnown ? before->learnTime : eventTime();
   entry.learnedInHardware = event.eventType == HobaEvent::eventTypeMacAddressLearned;
   ZTRACE( 5, "Learnt host ", event.host, " on port ", event.port, " entry type is ",
           entry.entryType, "tunnel id is ", entry.tunnelId );
   macTable()->macEntryIs( entry );
}

void
EventQueueSm::handleAgeEvent( HobaEvent const & event ) {
   age( event.host );
}

void
EventQueueSm::handleLocalAgeEvent( HobaEvent const & event ) {
   if( Bridging::isEntryTypeRemote( macTable()->macEntry( event.host ).entryType ) ) {
      ZTRACE( 2, "Local Age event for the wrong entryType" );
      dropped( dropWrongAge );
   } else {
      age( event.host );
   }
}

void
EventQueueSm::handleRemoteAgeEvent( HobaEvent const & event ) {
   if( macTable()->macEntryHas( event.host ) &&
       !Bridging::isEntryTypeRemote( macTable()->macEntry( event.host ).entryType ) ) {
      ZTRACE( 2, "Remote Age event for the wrong entryType" );
      dropped( dropWrongAge );
   } else {
      age( event.host );
   }
}

void
EventQueueSm::handleDeleteEvent( HobaEvent const & event ) {
   macTable()->macEntryDel( event.host );
}

} // namespace Hoba
