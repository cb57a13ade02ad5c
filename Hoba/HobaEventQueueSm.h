// SPDX-License-Identifier: Apache-2.0
#pragma once

// Applies what the hardware reports: links and autonegotiation to the status of the ports, stations
// that were learnt or aged to the table of MAC addresses. When it does so, and when the hardware may
// report at all, is told in Hoba/HobaEventDrain.h. Chip code derives from it for hwInit().

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaCommon.h"
#include "Hoba/HobaEventDrain.h"

namespace Hoba {

class EventQueueSm : public EventDrainSm {
   HOBA_MACHINE( EventQueueSm, Hoba::EventDrainSm );
   // Events given to handleOneEvent() so far.
   KIV_COUNTER( std::uint64_t, eventCounter );
   // Where stations are written, if it is there.
   KIV_ATTRIBUTE( Kiv::Ptr< HobaTypes::MacTable >, macTable );
   // By station: the last index that was given when news of it came ahead of what is queued. Until
   // nothing is queued any more; another machine of the same queue knows nothing of it.
   KIV_COLLECTION( Bridging::MacVlanPair, std::uint32_t, overtaken );

 public:
   // Applies one event now, whether or not the machine runs. A kind that there is none of is
   // ignored.
   virtual void handleOneEvent( HobaEvent const & event );
   // The same for one that comes ahead of all that is queued. What is queued about the same station
   // is older, and will not be applied any more.
   void handleEventAhead( HobaEvent const & event );
   // The hardware begins to report, and ends. The base of hwInit() is an unimplemented hook. An
   // hwInit() that throws has not begun, an hwCleanup() that throws has ended.
   HOBA_REQUIRED( void, hwInit, (), .name = "EventQueueSm::hwInit" );
   virtual void hwCleanup() {}

   Kiv::Ptr< HobaEventStatus > const & eventStatus() const { return eventStatus_; }
   HobaEventQueue * queue() const override;

   // The type of the entry that an event of this kind makes; entryTypeUnknown for a kind that makes
   // none. Behind a VXLAN port, where a station is a remote one:
   //
   //    eventTypeMacAddressLearned       learnedDynamicMac      learnedRemoteMac
   //    eventTypeStaticMacAddress        configuredStaticMac    configuredRemoteMac
   //    eventTypeAuthenticatedMac        authenticatedMac       the same
   //    eventTypeEvpnIntfDynamicMac      evpnIntfDynamicMac     evpnDynamicRemoteMac
   //    eventTypePeerMacAddressLearned   peerDynamicMac         peerLearnedRemoteMac
   //    eventTypePeerStaticMacAddress    peerStaticMac          peerStaticRemoteMac
   //    eventTypePeerAuthenticatedMac    peerAuthenticatedMac   the same
   static Bridging::EntryType getEntryType( HobaEvent::HobaEventType eventType,
                                            HobaEvent::PortType portType );

 protected:
   // Drains `queue`; writes the members of `portStatusDir` and, once it has one, the MAC table. Both
   // may be null: then events that need them are dropped.
   EventQueueSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                 Kiv::Ptr< HobaEventQueue > const & queue,
                 Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & portStatusDir );

 private:
   void registerMachine() override;
   void unregisterMachine() override;
   void cleanupHardware() override;
   void applyOldest() override;
   void handleEmpty() override { overtakenDelAll(); }
   EventQueueStatus & status() override { return *eventStatus_; }
   void trace( int level, std::string_view text ) const override;

   // What becomes of an event, by its kind.
   struct Kind;
   static Kind const kinds[ HobaEvent::eventTypes ];
   void handleLinkEvent( HobaEvent const & event );
   void handleAutonegEvent( HobaEvent const & event );
   void handleLearnEvent( HobaEvent const & event );
   void handleAgeEvent( HobaEvent const & event );
   void handleLocalAgeEvent( HobaEvent const & event );
   void handleRemoteAgeEvent( HobaEvent const & event );
   void handleDeleteEvent( HobaEvent const & event );

   // Null when the port has none; `what` the event is about is for the trace.
   Kiv::Ptr< HobaTypes::HobaPortStatus > portStatus( Pelt::IntfId port, char const * what );
   void age( Bridging::MacVlanPair const & host );
   // A station was learnt where none can be: on the CPU port, or on a LAG without an active member.
   // It is aged instead.
   bool agedInstead( HobaEvent const & event );
   void dropped( EventDropReason reason ) { eventStatus_->droppedInc( reason, 1 ); }

   class KivEventQueue
         : public Kiv::Hears<
                 EventQueueSm, HobaEventQueue,
                 Kiv::OnChange< HobaEventQueue::eventAttr, &EventQueueSm::handleEvent > > {
    public:
      void notifierIs( Kiv::Ptr< HobaEventQueue > const & queue );
   };
   // Nothing of the directory is followed: who is there is asked when an event comes.
   class KivPortStatusDir : public Kiv::Hears< EventQueueSm, HobaTypes::HobaPortStatusDir > {};

   Kiv::Ptr< HobaEventStatus > const eventStatus_;
   KIV_REACTOR( KivEventQueue, eventQueue );
   KIV_REACTOR( KivPortStatusDir, portStatusDir );
};

} // namespace Hoba
