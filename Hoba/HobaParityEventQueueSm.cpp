// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaParityEventQueueSm.h"

#include "Hoba/HobaCallbacks.h"
#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaParityEventQueueSm );

KIV_DEFINE( Hoba::HobaParityEventQueueSm );

namespace Hoba {

using Helper = HobaParityEventHelperSm;

HobaParityEventQueueSm::HobaParityEventQueueSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                                                Kiv::Ptr< HobaParityEventQueue > const & queue,
                                                Kiv::Ptr< HobaParityEventHelperSm > const & helper )
      : EventDrainSm( commonSmData, "HobaParityEventQueueSm" ), helper_( helper ),
        eventStatus_(
              Kiv::make< HobaParityEventStatus >( queue ? queue->name() : Kiv::String() ) ) {
   HOBA_INVARIANT( helper, "parity errors are corrected by somebody" );
   eventQueueIs( queue );
}

HobaParityEventQueue *
HobaParityEventQueueSm::queue() const {
   return eventQueue() ? eventQueue()->notifier() : nullptr;
}

void
HobaParityEventQueueSm::trace( int level, std::string_view text ) const {
   ZTRACE_AT( level, text );
}

// The hardware first: nothing is registered that cannot correct.
void
HobaParityEventQueueSm::registerMachine() {
   helper_.call< &Helper::hwInit >();
   if( running() ) {
      parityEventSmIs( Kiv::Ptr< HobaParityEventQueueSm >( this ) );
   }
}

void
HobaParityEventQueueSm::unregisterMachine() {
   if( parityEventSm() == this ) {
      parityEventSmIs( nullptr );
   }
}

void
HobaParityEventQueueSm::cleanupHardware() {
   helper_.call< &Helper::hwCleanup >();
}

void
HobaParityEventQueueSm::applyOldest() {
   auto const event = oldestOf( queue()->event() ).value;
   eventStatus_->handledInc( event.severity, 1 );
   helper_.call< &Helper::hwHandleParityError >( event );
}

} // namespace Hoba
