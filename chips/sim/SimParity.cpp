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

namespace {

// Keys print with colons between their parts, and the slice comes first.
bool
isSliceName( Kiv::String const & slice ) {
   return slice.size() <= FixedText< 24 >::maxLength &&
          slice.find_first_of( std::string_view( ":\0", 2 ) ) == Kiv::String::npos;
}

} // namespace

ParityUnit::ParityUnit( Kiv::String const & unitName, Memory const & memory )
      : Unit( unitName, memory ) {
   slicesIs( "slices" );
   for( auto const * name : { "slice0", "slice1", "slice2", "slice3" } ) {
      sliceNameIs( name );
   }
   for( auto const & [ entry, fault ] : error() ) {
      publish( entry ); // found when no agent was there
   }
}

void
ParityUnit::rowChanged( Kiv::AttributeId const & attribute, void const * key ) {
   if( &attribute == &errorAttr ) {
      publish( *static_cast< ParityEntry const * >( key ) );
   }
}

void
ParityUnit::publish( ParityEntry const & entry ) {
   auto const key = entry.key();
   if( !slices()->entryHas( key.slice ) && errorHas( entry ) ) {
      slices()->entryIs( key.slice, Kiv::make< ParityEventStatus >( key.slice ) );
   }
   auto const found = Kiv::dynamicCast< ParityEventStatus >( slices()->entry( key.slice ) );
   if( !found ) {
      return; // none, or something else of that name, which stays
   }
   if( auto const fault = error().find( entry ) ) {
      found->parityEventIs( { key, fault->time, static_cast< std::uint32_t >( fault->count ) } );
   } else {
      found->parityEventDel( key );
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
   if( !isSliceName( slice ) ) {
      Kiv::parseFailed( slice, "the name of a slice: at most 23 characters, without colons "
                               "and zeroes" );
   }
   if( memory.empty() ) {
      Kiv::parseFailed( memory, "the name of a memory" );
   }
   status( slice );
   ParityEvent::Key const key{ slice, memory, index };
   ParityEntry const entry( key );
   auto const now = Kiv::ClockDriver::ambient().now();
   ZTRACE( 3, "Parity error of ", key, ", ", severity );
   switch( severity ) {
   case Hoba::parityCorrectable:
      countInc( parityCountCorrectable );
      break;
   case Hoba::parityNeedsReset:
      countInc( parityCountNeedsReset );
      break;
   default:
      countInc( parityCountFatal );
   }
   errorIs( entry, { now, error( entry ).count + 1 } );
   Hoba::newParityEventIs( { key, now, severity } );
}

void
ParityUnit::raise( Kiv::String const & memory, std::uint32_t index ) {
   for( auto const & slice : sliceName() ) {
      if( isSliceName( slice ) ) {
         return raise( slice, memory.substr( 0, FixedText< 32 >::maxLength ), index );
      }
   }
}

bool
ParityUnit::corrected( ParityEvent::Key const & key ) {
   if( key.slice.size() > FixedText< 24 >::maxLength ||
       key.memory.size() > FixedText< 32 >::maxLength || !errorHas( ParityEntry( key ) ) ) {
      return false;
   }
   errorDel( ParityEntry( key ) );
   countInc( parityCountCorrected );
   return true;
}

std::size_t
ParityUnit::reset( Kiv::String const & slice ) {
   std::size_t errors = 0;
   for( auto const & [ entry, fault ] : error() ) {
      if( entry.slice.view() == slice ) {
         errorDel( entry );
         ++errors;
      }
   }
   if( errors ) {
      countInc( parityCountReset, errors );
   }
   return errors;
}

} // namespace HobaSim
