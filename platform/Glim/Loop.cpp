// SPDX-License-Identifier: Apache-2.0
#include "Glim/Loop.h"

#include "Glim/Collection.h"
#include "Kiv/ClockDriver.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace Glim {

Loop &
Loop::instance() {
   static Loop & loop = *new Loop;
   // The threads end with the program nevertheless.
   static struct AtExit {
      ~AtExit() { loop.listeners_.clear(); }
   } const atExit;
   return loop;
}

Loop::Loop() : event_( ::eventfd( 0, EFD_NONBLOCK | EFD_CLOEXEC ) ) {
   if( !event_ ) {
      throw Error( std::string( "no descriptor to wait for: " ) + std::strerror( errno ) );
   }
}

std::size_t
Loop::collections() const {
   return collections_.size() - static_cast< std::size_t >( std::count(
                                      collections_.begin(), collections_.end(), nullptr ) );
}

std::size_t
Loop::bells() const {
   std::size_t all = 0;
   for( auto const & listener : listeners_ ) {
      all += listener->bells();
   }
   return all;
}

void
Loop::add( CollectionControl & collection ) {
   collections_.push_back( &collection );
   wake();
}

void
Loop::del( CollectionControl & collection ) {
   auto const found = std::find( collections_.begin(), collections_.end(), &collection );
   if( found == collections_.end() ) {
      return;
   }
   *found = nullptr;
   if( !running_ ) {
      collections_.erase( found );
   }
   if( collections_.empty() ) {
      retryIs( false );
   }
}

void
Loop::wake() {
   if( !woken_ ) {
      woken_ = true;
      std::uint64_t const one = 1;
      [[maybe_unused]] auto const written = ::write( event_.get(), &one, sizeof one );
   }
}

std::uint64_t
Loop::listen( Mapping header ) {
   auto found = std::find_if( listeners_.begin(), listeners_.end(), []( auto const & listener ) {
      return listener->bells() < BellListener::capacity;
   } );
   if( found == listeners_.end() ) {
      listeners_.push_back( std::make_unique< BellListener >( event_.get() ) );
      found = listeners_.end() - 1;
   }
   try {
      ( *found )->add( ++lastBell_, std::move( header ) );
   } catch( std::system_error const & error ) {
      throw Error( std::string( "no thread to listen for changes: " ) + error.what() );
   }
   return lastBell_;
}

void
Loop::unlisten( std::uint64_t bell ) {
   for( auto const & listener : listeners_ ) {
      if( listener->del( bell ) ) {
         return;
      }
   }
}

void
Loop::run() {
   if( running_ ) {
      return;
   }
   // However the turn ends, what is left of it is not forgotten.
   struct Turn {
      explicit Turn( Loop & theLoop ) : loop( theLoop ) { loop.running_ = true; }
      ~Turn() {
         loop.running_ = false;
         std::erase( loop.collections_, nullptr );
         if( !complete ) {
            loop.wake();
         }
      }
      Loop & loop;
      bool complete = false;
   } now( *this );
   std::uint64_t count = 0;
   [[maybe_unused]] auto const taken = ::read( event_.get(), &count, sizeof count );
   woken_ = false;
   turn();
   now.complete = true;
}

void
Loop::turn() {
   for( auto const & listener : listeners_ ) {
      listener->rearm();
   }
   // What attaches meanwhile has woken the loop for the next turn.
   auto const count = collections_.size();
   for( std::size_t i = 0; i != count; ++i ) {
      if( collections_[ i ] ) {
         collections_[ i ]->tell( keysPerTurn );
      }
   }
   for( std::size_t i = 0; i != count; ++i ) {
      if( collections_[ i ] ) {
         collections_[ i ]->commit();
      }
   }
   bool more = false;
   bool waits = false;
   for( auto const * collection : collections_ ) {
      more |= collection && collection->hasMore();
      waits |= collection && collection->waits();
   }
   if( more ) {
      wake();
   }
   retryIs( waits );
}

// The clock comes and goes, so that a process whose tables are all there has no timer.
void
Loop::retryIs( bool wanted ) {
   if( !wanted ) {
      retry_.reset();
      clock_ = nullptr;
      return;
   }
   auto & driver = Kiv::ClockDriver::ambient();
   if( !clock_ ) {
      clock_ = Kiv::make< Kiv::Clock >();
      retry_.emplace( *clock_ );
   } else if( clock_->driver() != &driver ) {
      clock_->driverIs( driver );
   }
   if( !retry_->armed() ) {
      retry_->timeMinIs( clock_->now() + retryInterval );
   }
}

} // namespace Glim
