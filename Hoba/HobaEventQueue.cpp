// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaEventQueue.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Hoba::HobaEventQueue );
KIV_DEFINE( Hoba::HobaParityEventQueue );
KIV_DEFINE( Hoba::EventQueueStatus );
KIV_DEFINE( Hoba::HobaEventStatus );
KIV_DEFINE( Hoba::HobaParityEventStatus );

namespace Hoba {

Kiv::Ptr< HobaEventQueue >
HobaEventQueue::HobaEventQueueIs( Kiv::String const & name ) {
   return Kiv::make< HobaEventQueue >( name );
}

Kiv::Ptr< HobaParityEventQueue >
HobaParityEventQueue::HobaParityEventQueueIs( Kiv::String const & name ) {
   return Kiv::make< HobaParityEventQueue >( name );
}

} // namespace Hoba
