// SPDX-License-Identifier: Apache-2.0
#pragma once

// The functions of Hoba/HobaEventDrain.h, which trace with the handle of the source file that
// includes this behind its ZIPLINE_HANDLE.

#include "Hoba/HobaEventDrain.h"
#include "Zipline/Zipline.h"

#include <utility>

namespace Hoba {

// Indices are counted around: of two that are more than half of all indices apart, the higher was
// there before the last index was given.
template< class Events >
auto const &
oldestOf( Events const & events ) {
   constexpr std::uint32_t half = 1u << 31;
   auto const & first = *events.first();
   return events.last()->key - first.key < half ? first : *events.lowerBound( half );
}

template< class Sm, class Queue >
EventDrain< Sm, Queue >::EventDrain( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                                     Kiv::Ptr< Queue > const & queue )
      : HobaBaseSm( commonSmData ) {
   eventQueueIs( queue );
   clockIs( Kiv::make< Kiv::Clock >() );
}

template< class Sm, class Queue >
void
EventDrain< Sm, Queue >::handleInitialized() {
   if( initialized() ) {
      handleRunning();
   }
}

template< class Sm, class Queue >
void
EventDrain< Sm, Queue >::runningIs( bool running ) {
   if( running_ == running ) {
      return;
   }
   Kiv::Ptr< EventDrain > const alive( this );
   running_ = running;
   try {
      handleRunning();
   } catch( ... ) {
      running_ = false;
      throw;
   }
}

template< class Sm, class Queue >
void
EventDrain< Sm, Queue >::enabledIs( bool enabled ) {
   if( enabled_ != enabled ) {
      enabled_ = enabled;
      resume();
   }
}

template< class Sm, class Queue >
void
EventDrain< Sm, Queue >::handleRunning() {
   if( !initialized() ) {
      return;
   }
   ZTRACE( 5, "handleRunning", " running:", running_ );
   running_ ? start() : stop();
}

template< class Sm, class Queue >
void
EventDrain< Sm, Queue >::start() {
   if( !apiRunning_ ) {
      try {
         self().registerMachine();
      } catch( ... ) {
         self().unregisterMachine();
         throw;
      }
      // The hardware may have refused, and somebody stopped the machine for it.
      apiRunning_ = running_;
   }
   resume();
}

template< class Sm, class Queue >
void
EventDrain< Sm, Queue >::stop() {
   self().unregisterMachine();
   // Once, also when the hardware's last words clean up again.
   if( std::exchange( apiRunning_, false ) ) {
      self().cleanupHardware();
   }
}

template< class Sm, class Queue >
void
EventDrain< Sm, Queue >::cleanup() {
   Kiv::Ptr< EventDrain > const alive( this );
   ZTRACE( 5, "Shutting down ", Sm::className );
   self().unregisterMachine();
   runningIs( false );
   handleRunning();
   stop(); // also when it is no longer initialized
}

template< class Sm, class Queue >
void
EventDrain< Sm, Queue >::handleEvent( std::uint32_t const & index ) {
   // A drain takes what comes meanwhile, and needs no waking for what it takes out.
   if( !draining_ && initialized() && queue()->eventHas( index ) ) {
      wake();
   }
}

template< class Sm, class Queue >
void
EventDrain< Sm, Queue >::wake() {
   // A wake-up that is due stays due: the first event of many looks at the clock for all.
   if( !draining_ && initialized() && queue() && !queue()->event().empty() &&
       clock()->timeMin() == Kiv::never ) {
      clock()->timeMinIs( clock()->now() );
   }
}

// Events wait that nothing new has come for.
template< class Sm, class Queue >
void
EventDrain< Sm, Queue >::resume() {
   if( running_ && enabled_ && !kivMarkedForDeletion() ) {
      wake();
   }
}

template< class Sm, class Queue >
void
EventDrain< Sm, Queue >::handleEvent() {
   if( !initialized() ) {
      return;
   }
   if( !enabled_ ) {
      ZTRACE( 4, "Disable Event processing" );
      return;
   }
   if( queue() ) {
      self().status().drainsInc( 1 );
      drainTime_ = clock()->now();
      drain();
   }
}

template< class Sm, class Queue >
void
EventDrain< Sm, Queue >::drain() {
   // An event whose handler throws is gone like any other, and the rest have their turn next.
   struct Draining {
      explicit Draining( EventDrain & sm ) : sm_( sm ) { sm_.draining_ = true; }
      ~Draining() {
         sm_.draining_ = false;
         sm_.resume();
      }
      EventDrain & sm_;
   } const draining( *this );
   while( initialized() && enabled_ && queue() && !queue()->event().empty() &&
          !kivMarkedForDeletion() ) {
      handleFirstEvent();
   }
   if( queue() && queue()->event().empty() ) {
      self().handleEmpty();
   }
}

template< class Sm, class Queue >
void
EventDrain< Sm, Queue >::handleFirstEvent() {
   Kiv::Ptr< Queue > const from( queue() );
   auto const & oldest = oldestOf( from->event() );
   auto const index = oldest.key;
   auto const event = oldest.value;
   // No destructor takes the event out: those who watch the queue may throw.
   try {
      auto & status = self().status();
      if( auto const depth = from->event().size(); depth > status.highWaterMark() ) {
         status.highWaterMarkIs( depth );
      }
      if( running_ ) {
         self().applyEvent( index, event );
      } else {
         status.droppedInc( dropNotRunning, 1 );
      }
   } catch( ... ) {
      from->eventDel( index );
      throw;
   }
   from->eventDel( index );
}

} // namespace Hoba
