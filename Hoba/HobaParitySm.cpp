// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaParitySm.h"

#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

#include <utility>

ZIPLINE_HANDLE( HobaParitySm );

KIV_DEFINE( Hoba::ParitySliceSm );
KIV_DEFINE( Hoba::HobaParitySm );

namespace Hoba {

// ---- One slice

ParitySliceSm::ParitySliceSm( Kiv::Ptr< ParityEventStatus const > const & status,
                              HobaParitySm * paritySm )
      : HobaBaseSm( paritySm->commonSmData(), status ? status->name() : Kiv::String() ),
        paritySm_( paritySm ), party_( paritySm->claims().newParty() ) {
   parityEventStatusIs( status );
}

Kiv::Ptr< ParitySliceSm >
paritySliceSmFactory( Kiv::String const &, Kiv::Ptr< ParityEventStatus const > const & status,
                      HobaParitySm & paritySm ) {
   return Kiv::make< ParitySliceSm >( status, &paritySm );
}

void
ParitySliceSm::handleNotificationActive() {
   // What was taken over, then what there is.
   for( auto const & key : Kiv::keysOf( held() ) ) {
      follow( key );
   }
   if( parityEventStatus() ) {
      for( auto const & [ key, event ] : parityEventStatus()->notifier()->parityEvent() ) {
         follow( key );
      }
   }
   paritySm_->publish();
}

void
ParitySliceSm::takeOver( ParitySliceSm & former ) {
   std::swap( party_, former.party_ );
   std::swap( held_, former.held_ );
}

void
ParitySliceSm::handleParityEvent( ParityEvent::Key const & key ) {
   follow( key );
   paritySm_->publish();
}

void
ParitySliceSm::follow( ParityEvent::Key const & key ) {
   auto const event = parityEventStatus()->notifier()->parityEvent( key );
   if( event == ParityEvent{} ) {
      ZTRACE( 5, "Parity event gone: ", key );
      release( key );
   } else {
      ZTRACE( 5, "Parity event: ", key, " count:", event.count );
      heldIs( key );
      paritySm_->claims().claim( party_, key, event );
   }
}

void
ParitySliceSm::release( ParityEvent::Key const & key ) {
   heldDel( key );
   paritySm_->claims().release( party_, key );
}

void
ParitySliceSm::doSliceCleanup() {
   // What is added from now on is no longer this machine's to claim.
   parityEventStatusDel();
   for( auto const & key : Kiv::keysOf( held() ) ) {
      release( key );
   }
   paritySm_->publish();
}

// ---- All slices

HobaParitySm::HobaParitySm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                            Kiv::Ptr< Kiv::Dir const > const & parityEventStatusDir )
      : HobaBaseSm( commonSmData ) {
   parityEventStatusDirIs( parityEventStatusDir );
}

void
HobaParitySm::handleInitialEntries() {
   if( parityEventStatusDir() ) {
      // What went while nobody listened, then what is there.
      for( auto const & name : Kiv::keysOf( paritySliceSm() ) ) {
         handleParityEventStatus( name );
      }
      for( auto const & name : Kiv::keysOf( parityEventStatusDir()->notifier()->entry() ) ) {
         handleParityEventStatus( name );
      }
   }
}

void
HobaParitySm::handleParityEventStatus( Kiv::String const & slice ) {
   paritySliceSmFollow( slice, parityEventStatusDir()->notifier()->entry( slice ) );
}

void
HobaParitySm::publish() {
   auto const context = commonSmData();
   claims_.publish( [ & ]( auto const & key ) { return context->parityEvent().find( key ); },
                    [ & ]( auto const & key, ParityEvent const * event ) {
                       event ? context->parityEventIs( *event ) : context->parityEventDel( key );
                    },
                    [] { return true; } );
}

} // namespace Hoba
