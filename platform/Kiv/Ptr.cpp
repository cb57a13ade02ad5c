// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Ptr.h"

#include "Kiv/Dispatch.h"

#include <cstdio>
#include <exception>
#include <vector>

namespace Kiv {

namespace {

std::vector< PtrInterface * > &
waitingObjects() {
   static std::vector< PtrInterface * > & objects = *new std::vector< PtrInterface * >;
   return objects;
}

} // namespace

void
PtrInterface::bitIs( std::uint32_t bit, bool set ) {
   if( set ) {
      word_.fetch_or( bit, std::memory_order_relaxed );
   } else {
      word_.fetch_and( ~bit, std::memory_order_relaxed );
   }
}

void
PtrInterface::hasNotificationActiveIs( bool active ) {
   bitIs( silentBit, !active );
}

void
PtrInterface::lastReferenceDropped() {
   // A reference of our own: what is silenced may look at this object through a pointer.
   kivNewReference();
   if( hasNotificationActive() ) {
      hasNotificationActiveIs( false );
   }
   if( !kivMarkedForDeletion() ) {
      kivDoZombieReactors( true );
   }
   if( ( word() & eventLoopBit ) && Dispatch::inFlight() ) {
      Dispatch::keep( this );
      return;
   }
   if( ( word_.fetch_sub( 1, std::memory_order_acq_rel ) & countMask ) == 1 ) {
      fwkType().released();
      delete this;
   }
}

void
Dispatch::keep( PtrInterface * object ) {
   waitingObjects().push_back( object );
   waiting = true;
}

void
Dispatch::releaseWaiting() {
   auto & objects = waitingObjects();
   // Releasing one object may drop the last reference to others; they die at once, since nothing
   // is in flight any more.
   while( !objects.empty() ) {
      std::vector< PtrInterface * > batch;
      batch.swap( objects );
      for( auto * object : batch ) {
         object->kivDropReference();
      }
   }
   waiting = false;
}

std::string
exceptionText() {
   try {
      throw;
   } catch( std::exception const & exception ) {
      return exception.what();
   } catch( ... ) {
      return "an exception of unknown kind";
   }
}

void
Dispatch::failed( std::string_view step, std::string_view on ) noexcept {
   ++failures;
   try {
      auto const why = exceptionText();
      auto what = std::string( step );
      if( !on.empty() ) {
         what.append( " on " ).append( on );
      }
      if( failureSink ) {
         failureSink( what, why );
      } else {
         std::fprintf( stderr, "%s failed: %s\n", what.c_str(), why.c_str() );
      }
   } catch( ... ) {
      // Not even the memory to say so; it is counted.
   }
}

} // namespace Kiv
