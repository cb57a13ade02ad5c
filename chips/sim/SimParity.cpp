// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimParity.h"

#include "Hoba/HobaCallbacks.h"
#include "Kiv/ClockDriver.h"
#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( SimParity );

KIV_DEFINE( HobaSim::ParityUnit );

namespace HobaSim {

using Hoba::ParityEvent;
using Hoba::ParityEventStatus;

ParityUnit::ParityUnit( Kiv::String const & unitName ) : Entity( unitName ) {
   slicesIs( "slices" );
   for( auto const * name : { "slice0", "slice1", "slice2", "slice3" } ) {
      sliceNameIs( name );
   }
}

Kiv::Ptr< ParityEventStatus >
ParityUnit::status( Kiv::String const & slice ) {
   auto const entry = slices()->entry( slice );
   if( !entry ) {
      return nullptr;
   }
   Kiv::Ptr< ParityEventStatus > const found = dynamic_cast< ParityEventStatus * >( entry.get() );
   if( !found ) {
      Kiv::parseFailed( slice,
                        "the name of a slice: the directory has something else of that name" );
   }
   return found;
}

void
ParityUnit::raise( Kiv::String const & slice, Kiv::String const & memory, std::uint32_t index,
                   Hoba::ParitySeverity severity ) {
   if( !sliceNameHas( slice ) ) {
      Kiv::parseFailed( slice, "a slice of this chip: " + Kiv::toText( sliceName() ) );
   }
   // Keys print with colons between their parts, and the slice comes first.
   if( slice.find( ':' ) != Kiv::String::npos ) {
      Kiv::parseFailed( slice, "the name of a slice: without colons" );
   }
   if( memory.empty() ) {
      Kiv::parseFailed( memory, "the name of a memory" );
   }
   auto found = status( slice );
   if( !found ) {
      found = Kiv::make< ParityEventStatus >( slice );
      slices()->entryIs( slice, found );
   }
   ParityEvent::Key const key{ slice, memory, index };
   auto const now = Kiv::ClockDriver::ambient().now();
   ZTRACE( 3, "Parity error of ", key, ", ", severity );
   switch( severity ) {
   case Hoba::parityCorrectable:
      correctableInc( 1 );
      break;
   case Hoba::parityNeedsReset:
      needsResetInc( 1 );
      break;
   default:
      fatalInc( 1 );
   }
   found->parityEventIs( { key, now, found->parityEvent( key ).count + 1 } );
   Hoba::newParityEventIs( { key, now, severity } );
}

bool
ParityUnit::corrected( ParityEvent::Key const & key ) {
   auto const found = status( key.slice );
   if( !found || !found->parityEventHas( key ) ) {
      return false;
   }
   found->parityEventDel( key );
   entriesCorrectedInc( 1 );
   return true;
}

std::size_t
ParityUnit::reset( Kiv::String const & slice ) {
   auto const found = status( slice );
   auto const errors = found ? found->parityEvent().size() : 0;
   if( errors ) {
      found->parityEventDelAll();
      entriesResetInc( errors );
   }
   return errors;
}

} // namespace HobaSim
