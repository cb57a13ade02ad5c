// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaParityEventQueueSm.h"

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaCallbacks.h"
#include "Hoba/HobaHook.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaParityEventQueueSm );

#include "Hoba/HobaEventDrainImpl.h"

namespace Hoba {

template class EventDrain< HobaParityEventQueueSm, HobaParityEventQueue >;

using Helper = HobaParityEventHelperSm;

HobaParityEventQueueSm::HobaParityEventQueueSm(
      Kiv::Ptr< HobaCommonSmData > const & commonSmData,
      Kiv::Ptr< HobaParityEventQueue > const & queue,
      Kiv::Ptr< HobaParityEventHelperSm > const & helper )
      : EventDrain( commonSmData, queue ), helper_( helper ),
        eventStatus_(
              Kiv::make< HobaParityEventStatus >( queue ? queue->name() : Kiv::String() ) ) {
   HOBA_INVARIANT( helper, "parity errors are corrected by somebody" );
}

Kiv::Ptr< HobaParityEventQueueSm >
HobaParityEventQueueSm::HobaParityEventQueueSmIs(
      Kiv::Ptr< HobaCommonSmData > const & commonSmData,
      Kiv::Ptr< HobaParityEventQueue > const & queue,
      Kiv::Ptr< HobaParityEventHelperSm > const & helper ) {
   return smIs< HobaParityEventQueueSm >( commonSmData, queue, helper );
}

// The hardware first: nothing is registered that cannot correct.
void
HobaParityEventQueueSm::registerMachine() {
   callHook< &Helper::hwInit >( *helper_ );
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
   callHook< &Helper::hwCleanup >( *helper_ );
}

void
HobaParityEventQueueSm::applyEvent( std::uint32_t, HobaParityEvent const & event ) {
   eventStatus_->handledInc( event.severity, 1 );
   callHook< &Helper::hwHandleParityError >( *helper_, event );
}

} // namespace Hoba
