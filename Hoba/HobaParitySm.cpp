// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaParitySm.h"

#include "Zipline/Zipline.h"

#include <utility>

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
      copied_.erase( key );
      commonSmData()->parityEventDel( key );
   } else {
      ZTRACE( 5, "Parity event: ", key, " count:", event.count );
      // First: whoever hears of the event may end this machine.
      copied_.insert( key );
      commonSmData()->parityEventIs( event );
   }
}

void
ParitySliceSm::doSliceCleanup() {
   // What is added from now on is no longer this machine's to copy.
   parityEventStatusDel();
   for( auto const & key : std::exchange( copied_, {} ) ) {
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
   HobaParitySm::kivDoZombieReactors( true );
}

Kiv::Ptr< HobaParitySm >
HobaParitySm::HobaParitySmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                              Kiv::Ptr< Kiv::Dir const > const & parityEventStatusDir ) {
   return smIs< HobaParitySm >( commonSmData, parityEventStatusDir );
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

} // namespace Hoba
