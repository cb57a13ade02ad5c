// SPDX-License-Identifier: Apache-2.0
#pragma once

// Applies what the hardware reports: links and autonegotiation to the status of the ports, stations
// that were learnt or aged to the table of MAC addresses. When it does so, and when the hardware may
// report at all, is told in Hoba/HobaEventDrain.h. Chip code derives from it for hwInit().

#include "Hoba/HobaCommon.h"
#include "Hoba/HobaEventDrain.h"

namespace Hoba {

class EventQueueSm : public EventDrain< EventQueueSm, HobaEventQueue > {
 public:
   // Drains `queue`; writes the members of `portStatusDir` and, once it has one, the MAC table. Both
   // may be null: then events that need them are dropped.
   static Kiv::Ptr< EventQueueSm >
   EventQueueSmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                   Kiv::Ptr< HobaEventQueue > const & queue,
                   Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & portStatusDir );
   KIV_TYPE( EventQueueSm );
   ~EventQueueSm() override;

   // Applies one event now, whether or not the machine runs. A kind that there is none of is
   // ignored.
   virtual void handleOneEvent( HobaEvent const & event );
   // The same for one that comes ahead of all that is queued. What is queued about the same station
   // is older, and will not be applied any more.
   void handleEventAhead( HobaEvent const & event );
   // The hardware begins to report, and ends. The base of hwInit() is an unimplemented hook. An
   // hwInit() that throws has not begun, an hwCleanup() that throws has ended.
   virtual void hwInit();
   virtual void hwCleanup() {}

   Kiv::Ptr< HobaTypes::MacTable > const & macTable() const { return macTable_; }
   void macTableIs( Kiv::Ptr< HobaTypes::MacTable > const & macTable ) { macTable_ = macTable; }

   // Events given to handleOneEvent() so far.
   std::uint64_t eventCounter() const { return eventCounter_; }
   void eventCounterIs( std::uint64_t count ) { eventCounter_ = count; }
   std::uint64_t eventCounterInc( std::uint64_t by ) { return eventCounter_ += by; }

   Kiv::Ptr< HobaEventStatus > const & eventStatus() const { return eventStatus_; }

   // The type of the entry that an event of this kind makes; entryTypeUnknown for a kind that makes
   // none. A station behind a VXLAN port is a remote one.
   static Bridging::EntryType getEntryType( HobaEvent::HobaEventType eventType,
                                            HobaEvent::PortType portType );

   // For EventDrain.
   static constexpr char const * className = "EventQueueSm";
   void registerMachine();
   void unregisterMachine();
   void cleanupHardware();
   void applyEvent( std::uint32_t index, HobaEvent const & event );
   void handleEmpty() { overtaken_.clear(); }
   EventQueueStatus & status() { return *eventStatus_; }

 protected:
   EventQueueSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                 Kiv::Ptr< HobaEventQueue > const & queue,
                 Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & portStatusDir );

 private:
   void handleLinkEvent( HobaEvent const & event );
   void handleAutonegEvent( HobaEvent const & event );
   void handleLearnEvent( HobaEvent const & event );
   void handleAgeEvent( HobaEvent const & event );
   void handleLocalAgeEvent( HobaEvent const & event );
   void handleRemoteAgeEvent( HobaEvent const & event );
   void handleDeleteEvent( HobaEvent const & event );

   // Null when the port has none; `what` the event is about is for the trace.
   Kiv::Ptr< HobaTypes::HobaPortStatus > portStatus( Pelt::IntfId port, char const * what );
   // Whether there is a MAC table; the event is counted as dropped otherwise.
   bool hasMacTable();
   void age( Bridging::MacVlanPair const & host );
   // A station was learnt where none can be: on the CPU port, or on a LAG without an active member.
   // It is aged instead.
   bool agedInstead( HobaEvent const & event );
   void dropped( EventDropReason reason ) { eventStatus_->droppedInc( reason, 1 ); }

   // Nothing of the directory is followed: who is there is asked when an event comes.
   class KivPortStatusDir
         : public Kiv::Reactor< KivPortStatusDir, HobaTypes::HobaPortStatusDir, EventQueueSm > {
    public:
      static constexpr auto handlers = Kiv::handlers();
   };

   Kiv::Ptr< HobaTypes::MacTable > macTable_;
   Kiv::Ptr< HobaEventStatus > const eventStatus_;
   std::uint64_t eventCounter_ = 0;
   // By station: the last index that was given when news of it came ahead of what was queued.
   Kiv::HashMap< Bridging::MacVlanPair, std::uint32_t > overtaken_;

   KIV_REACTOR( KivPortStatusDir, portStatusDir );
};

} // namespace Hoba
