// SPDX-License-Identifier: Apache-2.0
#pragma once

// Queues of what the hardware reports, and what became of it.

#include "Hoba/HobaEvent.h"
#include "types/ParityEvent.h"

namespace Hoba {

// A queue as the machine sees it that drains it, whatever its events are.
class EventQueueBase : public Kiv::Entity {
 public:
   virtual std::uint32_t waiting() const = 0;
   virtual bool waits( std::uint32_t index ) const = 0;
   // The index of the event that came first. There must be one.
   virtual std::uint32_t oldest() const = 0;
   virtual void remove( std::uint32_t index ) = 0;

 protected:
   using Entity::Entity;
};

// The event that came first. Indices are counted around: of two that are more than half of all indices
// apart, the higher was there before the last index was given.
template< class Events >
auto const &
oldestOf( Events const & events ) {
   constexpr std::uint32_t half = 1u << 31;
   auto const & first = *events.first();
   return events.last()->key - first.key < half ? first : *events.lowerBound( half );
}

// A queue whose events are its attribute `event`, in the order of their indices.
template< class Queue >
class EventQueueOf : public EventQueueBase {
 public:
   std::uint32_t waiting() const override { return events().size(); }
   bool waits( std::uint32_t index ) const override { return events().has( index ); }
   std::uint32_t oldest() const override { return oldestOf( events() ).key; }
   void remove( std::uint32_t index ) override {
      static_cast< Queue & >( *this ).eventDel( index );
   }

 protected:
   using EventQueueBase::EventQueueBase;

 private:
   auto const & events() const { return static_cast< Queue const & >( *this ).event(); }
};

// Events in the order in which they were reported. Indices are given by nextIndexInc( 1 ): the first
// event has index 1. The last index is followed by 0, which a walk then shows first, although it came
// later. Bounded by memory alone, some 100 bytes an event: what a chip reported cannot be asked of it
// again, so nothing may be thrown away.
class HobaEventQueue : public EventQueueOf< HobaEventQueue > {
   KIV_ENTITY( Hoba::HobaEventQueue );
   KIV_ORDERED( std::uint32_t, HobaEvent, event );
   KIV_COUNTER( std::uint32_t, nextIndex );

 public:
   static Kiv::Ptr< HobaEventQueue > HobaEventQueueIs( Kiv::String const & name );
   explicit HobaEventQueue( Kiv::String const & queueName ) : EventQueueOf( queueName ) {}
};

class HobaParityEventQueue : public EventQueueOf< HobaParityEventQueue > {
   KIV_ENTITY( Hoba::HobaParityEventQueue );
   KIV_ORDERED( std::uint32_t, HobaParityEvent, event );
   KIV_COUNTER( std::uint32_t, nextIndex );

 public:
   static Kiv::Ptr< HobaParityEventQueue > HobaParityEventQueueIs( Kiv::String const & name );
   explicit HobaParityEventQueue( Kiv::String const & queueName ) : EventQueueOf( queueName ) {}
};

// Why an event had no effect, or another than it asked for.
KIV_ENUM( EventDropReason, std::uint8_t,
          dropNotRunning = 0,        // it was drained while the machine did not run
          dropUnknownKind,           // a kind that there is none of
          dropNoPortStatus,          // a link event of a port that is not there
          dropNoMacTable,            // a station, and no table to write it into
          dropWrongAge,              // a local age event of a remote entry, or the other way round
          agedLearnOnCpuPort,        // a station learnt on the CPU port: aged instead
          agedLearnOnDeletedLag,     // a station learnt on a LAG that is gone: aged instead
          agedPortCollectionDeleted, // a station learnt on a LAG without active members: the same
          dropOvertaken              // newer news of the same station was applied before it
);

// What the machine that drains a queue has counted since it was made.
class EventQueueStatus : public Kiv::Entity {
   KIV_ENTITY( Hoba::EventQueueStatus );
   // The most events that waited at once when a drain looked: what waits now may be more.
   KIV_ATTRIBUTE( std::uint32_t, highWaterMark, 0 );
   // Wake-ups that found the queue open.
   KIV_COUNTER( std::uint64_t, drains );
   KIV_COUNTERS( EventDropReason, std::uint64_t, dropped );

 public:
   explicit EventQueueStatus( Kiv::String const & statusName ) : Entity( statusName ) {}
};

class HobaEventStatus : public EventQueueStatus {
   KIV_ENTITY( Hoba::HobaEventStatus, Hoba::EventQueueStatus );
   // Events of each kind that were applied, also those that had no effect. One that was drained while
   // the machine did not run, or was overtaken, was not.
   KIV_COUNTERS( HobaEvent::HobaEventType, std::uint64_t, handled );

 public:
   explicit HobaEventStatus( Kiv::String const & statusName ) : EventQueueStatus( statusName ) {}
};

class HobaParityEventStatus : public EventQueueStatus {
   KIV_ENTITY( Hoba::HobaParityEventStatus, Hoba::EventQueueStatus );
   KIV_COUNTERS( ParitySeverity, std::uint64_t, handled );

 public:
   explicit HobaParityEventStatus( Kiv::String const & statusName )
         : EventQueueStatus( statusName ) {}
};

} // namespace Hoba
