// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaBaseSm.h"

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaCommon.h"
#include "Kiv/Reflect.h"

KIV_DEFINE( Hoba::HobaBaseSm );

namespace Hoba {

HobaBaseSm::HobaBaseSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                        Kiv::String const & machineName )
      : Entity( machineName ), commonSmData_( commonSmData ) {}

HobaBaseSm::~HobaBaseSm() = default;

Kiv::Ptr< HobaBaseSm >
HobaBaseSm::HobaBaseSmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData ) {
   struct Sm : HobaBaseSm {
      explicit Sm( Kiv::Ptr< HobaCommonSmData > const & data ) : HobaBaseSm( data ) {}
   };
   return smIs< Sm >( commonSmData );
}

void
HobaBaseSm::hasNotificationActiveIs( bool active ) {
   if( active != hasNotificationActive() ) {
      // Machines of its own catch up, and may do anything to this one meanwhile.
      Kiv::Dispatch::Frame frame;
      PtrInterface::hasNotificationActiveIs( active );
      reactorsActiveIs( active );
      if( active && live() ) {
         handleNotificationActive();
      }
   }
}

void
HobaBaseSm::kivDoZombieReactors( bool marked ) {
   if( marked != kivMarkedForDeletion() ) {
      // Last words may let go of this machine.
      Kiv::Dispatch::Frame frame;
      reactorsZombieIs( marked );
      kivMarkedForDeletionIs( marked );
      if( marked ) {
         reactorsFarewell();
      }
   }
}

void
HobaBaseSm::initializedIs( bool initialized ) {
   if( initialized != initialized_ ) {
      // The first pass may make somebody drop the last reference to this machine.
      Kiv::Ptr< HobaBaseSm > const self( this );
      initialized_ = initialized;
      try {
         handleInitialized();
      } catch( ... ) {
         initialized_ = false;
         reactorsUninitialize();
         if( !initialized ) {
            kivChanged( initializedAttr );
         }
         throw;
      }
      kivChanged( initializedAttr );
   }
}

void
HobaBaseSm::hobaAssert( Kiv::String const & message ) const {
   Hoba::hobaAssert( message );
}

} // namespace Hoba
