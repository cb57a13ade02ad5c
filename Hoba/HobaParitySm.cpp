// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaParitySm.h"

#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaParitySm );

namespace Hoba {

// ---- One slice

ParitySliceSm::ParitySliceSm( Kiv::Ptr< ParityEventStatus const > const & status,
                              HobaParitySm * paritySm )
      : HobaBaseSm( paritySm->commonSmData() ), paritySm_( paritySm ) {
   parityEventStatusIs( status );
}

Kiv::Ptr< ParitySliceSm >
ParitySliceSm::ParitySliceSmIs( Kiv::Ptr< ParityEventStatus const > const & status,
                                HobaParitySm * paritySm ) {
   return smIs< ParitySliceSm >( status, paritySm );
}

Kiv::Ptr< ParitySliceSm >
paritySliceSmFactory( Kiv::String const &, Kiv::Ptr< ParityEventStatus const > const & status,
                      HobaParitySm & paritySm ) {
   return ParitySliceSm::ParitySliceSmIs( status, &paritySm );
}

void
ParitySliceSm::handleParityEvent( ParityEvent::Key const & key ) {
   auto const event = parityEventStatus()->notifier()->parityEvent( key );
   if( event == ParityEvent{} ) {
      ZTRACE( 5, "Parity event gone: ", key );
      commonSmData()->parityEventDel( key );
   } else {
      ZTRACE( 5, "Parity event: ", key, " count:", event.count );
      commonSmData()->parityEventIs( event );
   }
}

void
ParitySliceSm::doSliceCleanup() {
   if( !parityEventStatus() ) {
      return;
   }
   // What is added from now on is no longer this machine's to copy.
   Kiv::Ptr< ParityEventStatus const > const status( parityEventStatus()->notifier() );
   parityEventStatusDel();
   for( auto const & [ key, event ] : status->parityEvent() ) {
      commonSmData()->parityEventDel( key );
   }
}

// ---- All slices

HobaParitySm::HobaParitySm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                            Kiv::Ptr< Kiv::Dir const > const & parityEventStatusDir )
      : HobaBaseSm( commonSmData ) {
   parityEventStatusDirIs( parityEventStatusDir );
   handleInitialEntries();
}

HobaParitySm::~HobaParitySm() {
   paritySliceSmDelAll();
}

Kiv::Ptr< HobaParitySm >
HobaParitySm::HobaParitySmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                              Kiv::Ptr< Kiv::Dir const > const & parityEventStatusDir ) {
   return smIs< HobaParitySm >( commonSmData, parityEventStatusDir );
}

void
HobaParitySm::kivDoZombieReactors( bool marked ) {
   if( marked ) {
      paritySliceSmDelAll();
   }
   HobaBaseSm::kivDoZombieReactors( marked );
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

} // namespace Hoba
