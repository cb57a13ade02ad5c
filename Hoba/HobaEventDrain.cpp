// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaEventDrain.h"

#include "Kiv/Reflect.h"

#include <utility>

KIV_DEFINE( Hoba::EventDrainSm );

namespace Hoba {

EventDrainSm::EventDrainSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                            char const * className )
      : HobaBaseSm( commonSmData ), className_( className ) {
   clockIs( Kiv::make< Kiv::Clock >() );
}

// ---- The hardware's part

void
EventDrainSm::handleInitialized() {
   handleRunning();
}

void
EventDrainSm::runningIs( bool running ) {
   if( running_ == running ) {
      return;
   }
   Kiv::Ptr< EventDrainSm > const alive( this );
   running_ = running;
   kivChanged( runningAttr );
   try {
      handleRunning();
   } catch( ... ) {
      if( std::exchange( running_, false ) ) {
         kivChanged( runningAttr );
      }
      throw;
   }
}

void
EventDrainSm::handleRunning() {
   if( !initialized() ) {
      return;
   }
   trace( 5, "handleRunning running:" + Kiv::toText( running() ) );
   running() ? start() : stop();
}

void
EventDrainSm::start() {
   if( !apiRunning() ) {
      try {
         registerMachine();
      } catch( ... ) {
         unregisterMachine();
         throw;
      }
      // The hardware may have refused, and somebody stopped the machine for it.
      apiRunningIs( running() );
   }
   resume();
}

void
EventDrainSm::stop() {
   unregisterMachine();
   // Once, also when the hardware's last words clean up again.
   if( apiRunning() ) {
      apiRunningIs( false );
      cleanupHardware();
   }
}

void
EventDrainSm::cleanup() {
   Kiv::Ptr< EventDrainSm > const alive( this );
   trace( 5, Kiv::String( "Shutting down " ) + className_ );
   unregisterMachine();
   runningIs( false );
   handleRunning();
   stop(); // also when it is no longer initialized
}

// ---- When

void
EventDrainSm::enabledIs( bool enabled ) {
   if( std::exchange( enabled_, enabled ) != enabled ) {
      resume();
      kivChanged( enabledAttr );
   }
}

void
EventDrainSm::handleEvent( std::uint32_t const & index ) {
   if( !drainTime_ && queue()->waits( index ) ) {
      wake();
   }
}

void
EventDrainSm::wake() {
   // A wake-up that is due stays due, and the first event of many looks at the clock for all. A
   // drain takes what comes meanwhile, and needs no waking for what it takes out.
   if( !drainTime_ && initialized() && queue() && queue()->waiting() &&
       clock()->timeMin() == Kiv::never ) {
      clock()->timeMinIs( clock()->now() );
   }
}

// Events wait that nothing new has come for.
void
EventDrainSm::resume() {
   if( running() && enabled() && !kivMarkedForDeletion() ) {
      wake();
   }
}

void
EventDrainSm::handleClockEvent() {
   if( !initialized() ) {
      return;
   }
   if( !enabled() ) {
      trace( 4, "Disable Event processing" );
   } else if( queue() ) {
      status().drainsInc( 1 );
      drain();
   }
}

// ---- The drain

void
EventDrainSm::drain() {
   // An event whose handler throws is gone like any other, and the rest have their turn next.
   struct Draining {
      explicit Draining( EventDrainSm & sm ) : sm_( sm ) { sm_.drainTime_ = sm_.clock()->now(); }
      ~Draining() {
         sm_.drainTime_.reset();
         sm_.resume();
      }
      EventDrainSm & sm_;
   } const draining( *this );
   while( initialized() && enabled() && queue() && queue()->waiting() && !kivMarkedForDeletion() ) {
      if( auto const depth = queue()->waiting(); depth > status().highWaterMark() ) {
         status().highWaterMarkIs( depth ); // who hears of it may do anything
      } else {
         handleFirstEvent();
      }
   }
   if( queue() && !queue()->waiting() ) {
      handleEmpty();
   }
}

void
EventDrainSm::handleFirstEvent() {
   Kiv::Ptr< EventQueueBase > const from( queue() );
   auto const index = from->oldest();
   // No destructor takes the event out: those who watch the queue may throw.
   try {
      if( running() ) {
         applyOldest();
      } else {
         status().droppedInc( dropNotRunning, 1 );
      }
   } catch( ... ) {
      from->remove( index );
      throw;
   }
   from->remove( index );
}

} // namespace Hoba
