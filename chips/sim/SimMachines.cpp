// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimMachines.h"

#include "Hoba/HobaCommon.h"
#include "Kiv/Reflect.h"

KIV_DEFINE( HobaSim::ChipEventQueueSm );
KIV_DEFINE( HobaSim::ChipLagSm );
KIV_DEFINE( HobaSim::ChipParityHelperSm );

namespace HobaSim {

ChipEventQueueSm::ChipEventQueueSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                                    Kiv::Ptr< Hoba::HobaEventQueue > const & queue,
                                    Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & portStatusDir,
                                    Kiv::Ptr< Chip > const & chip )
      : EventQueueSm( commonSmData, queue, portStatusDir ), chip_( chip ) {}

ChipLagSm::ChipLagSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                      Kiv::Ptr< TrunkUnit > const & unit )
      : HobaBaseSm( commonSmData ), unit_( unit ) {
   clockIs( Kiv::make< Kiv::Clock >() );
   portToLagIs( commonSmData );
}

void
ChipLagSm::handleInitialized() {
   if( initialized() ) {
      unit_->beginPass();
      reactorsInitialize();
   } else {
      reactorsUninitialize();
      clock()->timeMinIs( Kiv::never );
   }
}

void
ChipLagSm::handlePortToLag( Pelt::IntfId const & port ) {
   try {
      if( auto const lag = commonSmData()->portToLag( port ) ) {
         unit_->lagMustProgram( port, lag );
      } else {
         unit_->lagMustClear( port );
      }
   } catch( ... ) {
      refusedIs( port, Kiv::exceptionText() );
      clock()->noLaterThan( clock()->now() + retryDelay );
      throw;
   }
   refusedDel( port );
}

void
ChipLagSm::handleRetryTime() {
   for( auto const & port : Kiv::keysOf( refused() ) ) {
      try {
         handlePortToLag( port );
      } catch( Kiv::Exception const & ) {
         // It was told when it was refused first.
      }
   }
}

ChipParityHelperSm::ChipParityHelperSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                                        Kiv::Ptr< ParityUnit > const & unit )
      : HobaParityEventHelperSm( commonSmData ), unit_( unit ) {
   clockIs( Kiv::make< Kiv::Clock >() );
}

void
ChipParityHelperSm::hwInit() {
   auto const done = clock()->now() + unit_->correctionTime();
   for( auto const & [ entry, fault ] : unit_->error() ) {
      if( !dueHas( entry.key() ) ) {
         dueIs( entry.key(), done );
      }
   }
   arm();
}

void
ChipParityHelperSm::hwHandleParityError( Hoba::HobaParityEvent const & event ) {
   auto const & key = event.key;
   auto const entry = "entry " + Kiv::toText( key.index );
   switch( event.severity ) {
   case Hoba::parityNeedsReset:
      unit_->reset( key.slice );
      Hoba::hobaLog< Hoba::HARDWARE_PARITY_ERROR_CORRECTED_WITH_RESET >( entry, key.memory,
                                                                         key.slice );
      return;
   case Hoba::parityFatal:
      Hoba::hobaLog< Hoba::HARDWARE_PERR_FATAL >( key );
      commonSmData()->agentRestart( "fatal parity error: " + Kiv::toText( key ) );
      return;
   default:
      Hoba::hobaLog< Hoba::HARDWARE_PERR_CORRECTABLE >( key );
      auto const done = clock()->now() + unit_->correctionTime();
      dueIs( key, done );
      clock()->noLaterThan( done );
   }
}

void
ChipParityHelperSm::arm() {
   clock()->timeMinIs( Kiv::never );
   for( auto const & [ key, time ] : due() ) {
      clock()->noLaterThan( time );
   }
}

void
ChipParityHelperSm::handleCorrectionTime() {
   for( auto const & [ key, time ] : due() ) {
      if( time > clock()->now() ) {
         continue;
      }
      // A reset may have been quicker.
      if( unit_->corrected( key ) ) {
         Hoba::hobaLog< Hoba::HARDWARE_PERR_CORRECTED >( key );
      }
      dueDel( key );
   }
   arm();
}

} // namespace HobaSim
