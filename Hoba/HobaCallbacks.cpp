// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaCallbacks.h"

#include "Hoba/HobaEventQueueSm.h"
#include "Hoba/HobaParityEventQueueSm.h"
#include "Zipline/Zipline.h"

#include <optional>
#include <utility>

ZIPLINE_HANDLE( HobaEventHandler );

namespace Hoba {

namespace {

// One way in: the machine that is registered, and what came while there was none.
template< class Sm >
struct Entry {
   Kiv::Ptr< Sm > sm;
   std::uint64_t unheard = 0;

   // The old machine goes last, when the entry knows the new one: its last words may report.
   void smIs( Kiv::Ptr< Sm > next ) { auto const old = std::exchange( sm, std::move( next ) ); }

   template< class Event >
   std::optional< std::uint32_t > add( Event const & event ) {
      if( !sm || !sm->queue() ) {
         ++unheard;
         return {};
      }
      Kiv::Ptr const queue( sm->queue() );
      auto const index = queue->nextIndexInc( 1 );
      queue->eventIs( index, event );
      return index;
   }
};

// Never destroyed: a machine that is still registered when the process ends must not outlive what
// it stands on.
Entry< EventQueueSm > & events = *new Entry< EventQueueSm >;
Entry< HobaParityEventQueueSm > & parityEvents = *new Entry< HobaParityEventQueueSm >;

} // namespace

void
eventSmIs( Kiv::Ptr< EventQueueSm > eventSm ) noexcept {
   events.smIs( std::move( eventSm ) );
}

Kiv::Ptr< EventQueueSm > const &
eventSm() {
   return events.sm;
}

void
newEventIs( HobaEvent const & event ) {
   if( auto const index = events.add( event ) ) {
      ZTRACE( 9, "Added event to queue with index ", *index );
   }
}

void
newMacEventIs( HobaEvent const & event ) {
   // What the event leads to may drop the machine.
   if( auto const sm = events.sm ) {
      sm->handleEventAhead( event );
      ZTRACE( 9, "Added mac event to codef" );
   } else {
      ++events.unheard;
   }
}

void
parityEventSmIs( Kiv::Ptr< HobaParityEventQueueSm > parityEventSm ) noexcept {
   parityEvents.smIs( std::move( parityEventSm ) );
}

Kiv::Ptr< HobaParityEventQueueSm > const &
parityEventSm() {
   return parityEvents.sm;
}

void
newParityEventIs( HobaParityEvent const & event ) {
   if( auto const index = parityEvents.add( event ) ) {
      ZTRACE( 9, "Added parity event to queue with index ", *index );
   }
}

std::uint64_t
eventsWithoutMachine() {
   return events.unheard;
}

std::uint64_t
parityEventsWithoutMachine() {
   return parityEvents.unheard;
}

} // namespace Hoba
