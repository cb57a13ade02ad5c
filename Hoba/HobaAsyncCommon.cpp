// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaAsyncCommon.h"

#include "Hoba/HobaAssert.h"
#include "Kiv/Reflect.h"

KIV_DEFINE( Hoba::HobaAsyncBaseHelper );
KIV_DEFINE( Hoba::HobaAsyncBaseSm );
KIV_DEFINE( Hoba::AsyncSharedData );

namespace Hoba {

std::uint32_t
HobaAsyncBaseHelper::nextPriority() {
   auto const next = priority() - 1;
   priorityIs( next );
   HOBA_PROGRAM_ASSERT( priority() > 0 );
   return next;
}

std::uint16_t
HobaAsyncBaseHelper::getNextSequence( Kiv::String const & name ) {
   auto next = firstSequence;
   if( auto const * last = sequence().find( name ) ) {
      int const nextSequence = *last - 1;
      HOBA_PROGRAM_ASSERT( nextSequence > 0 );
      next = static_cast< std::uint16_t >( nextSequence );
   }
   sequenceIs( name, next );
   return next;
}

HobaAsyncBaseSm::HobaAsyncBaseSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData )
      : HobaBaseSm( commonSmData ) {
   auto const clock = Kiv::make< Kiv::Clock >();
   tcamRequestClockIs( clock );
   pendingOperationTimeoutClockIs( clock );
}

void
HobaAsyncBaseSm::handleAsyncOperationResult() {
   HOBA_PROGRAM_ASSERT( false && "a machine with a helper overrides handleAsyncOperationResult()" );
}

} // namespace Hoba
