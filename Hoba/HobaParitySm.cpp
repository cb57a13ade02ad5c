// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaParitySm.h"

#include "Zipline/Zipline.h"

#include <utility>

ZIPLINE_HANDLE( HobaParitySm );

namespace Hoba {

// ---- One slice

ParitySliceSm::ParitySliceSm( Kiv::Ptr< ParityEventStatus const > const & status,
                              HobaParitySm * paritySm )
      : HobaBaseSm( paritySm->commonSmData() ), paritySm_( paritySm ),
        party_( paritySm->claims().newParty() ) {
   parityEventStatusIs( status );
}

Kiv::Ptr< ParitySliceSm >
ParitySliceSm::ParitySliceSmIs( Kiv::Ptr< ParityEventStatus const > const & status,
                                HobaParitySm * paritySm ) {
   auto const sm = smIs< ParitySliceSm >( status, paritySm );
   sm->doBegin();
   return sm;
}

Kiv::Ptr< ParitySliceSm >
paritySliceSmFactory( Kiv::String const &, Kiv::Ptr< ParityEventStatus const > const & status,
                      HobaParitySm & paritySm ) {
   return smIs< ParitySliceSm >( status, &paritySm );
}

void
ParitySliceSm::doBegin() {
   // What was taken over, then what there is.
   for( auto const & key : paritySm_->claims().keysOf( party_ ) ) {
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
      paritySm_->claims().release( party_, key );
   } else {
      ZTRACE( 5, "Parity event: ", key, " count:", event.count );
      paritySm_->claims().claim( party_, key, event );
   }
}

void
ParitySliceSm::doSliceCleanup() {
   // What is added from now on is no longer this machine's to claim.
   parityEventStatusDel();
   for( auto const & key : paritySm_->claims().keysOf( party_ ) ) {
      paritySm_->claims().release( party_, key );
   }
   paritySm_->publish();
}

// ---- All slices

HobaParitySm::HobaParitySm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                            Kiv::Ptr< Kiv::Dir const > const & parityEventStatusDir )
      : HobaBaseSm( commonSmData ) {
   parityEventStatusDirIs( parityEventStatusDir );
}

HobaParitySm::~HobaParitySm() {
   HobaParitySm::kivDoZombieReactors( true );
}

Kiv::Ptr< HobaParitySm >
HobaParitySm::HobaParitySmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                              Kiv::Ptr< Kiv::Dir const > const & parityEventStatusDir ) {
   auto const sm = smIs< HobaParitySm >( commonSmData, parityEventStatusDir );
   // Not while it is made, and silent: whoever repairs what he hears of must be heard.
   sm->handleInitialEntries();
   return sm;
}

void
HobaParitySm::kivDoZombieReactors( bool marked ) {
   // The mark first: what the directory is told of the removals makes no slice again.
   HobaBaseSm::kivDoZombieReactors( marked );
   if( marked ) {
      paritySliceSmDelAll();
   }
}

void
HobaParitySm::handleInitialEntries() {
   if( parityEventStatusDir() ) {
      for( auto const & name : Kiv::keysOf( parityEventStatusDir()->notifier()->entry() ) ) {
         handleParityEventStatus( name );
      }
   }
}

void
HobaParitySm::handleParityEventStatus( Kiv::String const & slice ) {
   paritySliceSmFollow( *parityEventStatusDir()->notifier(), slice );
}

void
HobaParitySm::publish() {
   // Whoever hears of it may drop this machine.
   Kiv::Dispatch::Frame frame;
   auto & context = *commonSmData();
   while( auto const key = claims_.nextStale() ) {
      if( auto const * event = claims_.standing( *key, context.parityEvent().find( *key ) ) ) {
         context.parityEventIs( *event );
      } else {
         context.parityEventDel( *key );
      }
   }
}

} // namespace Hoba
