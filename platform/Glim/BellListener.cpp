// SPDX-License-Identifier: Apache-2.0
#include "Glim/BellListener.h"

#include "Glim/Layout.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Glim {

namespace {

std::atomic< std::uint32_t > const &
bellOf( Mapping const & header ) {
   return reinterpret_cast< Layout::Header const * >( header.data() )->bell;
}

futex_waitv
waitFor( std::atomic< std::uint32_t > const & word, std::uint32_t value, std::uint32_t flags ) {
   futex_waitv wait{};
   wait.val = value;
   wait.uaddr = reinterpret_cast< std::uintptr_t >( &word );
   wait.flags = FUTEX_32 | flags;
   return wait;
}

} // namespace

BellListener::~BellListener() { stop(); }

bool
BellListener::isForked() const {
   return thread_.joinable() && pid_ != ::getpid();
}

std::unique_lock< std::mutex >
BellListener::lock() {
   return isForked() ? std::unique_lock( mutex_, std::defer_lock ) : std::unique_lock( mutex_ );
}

void
BellListener::add( std::uint64_t id, Mapping header ) {
   auto const heard = bellOf( header ).load( std::memory_order_acquire );
   {
      auto const guard = lock();
      entries_.push_back( { id, std::move( header ), heard, true } );
      disturb();
   }
   try {
      start();
   } catch( ... ) {
      entries_.pop_back();
      throw;
   }
}

bool
BellListener::del( std::uint64_t id ) {
   {
      auto const guard = lock();
      if( std::erase_if( entries_, [ & ]( Entry const & entry ) { return entry.id == id; } ) ==
          0 ) {
         return false;
      }
      disturb();
   }
   if( entries_.empty() ) {
      stop();
   }
   return true;
}

void
BellListener::rearm() {
   if( !rang_.exchange( false, std::memory_order_acquire ) ) {
      return;
   }
   auto const guard = lock();
   for( auto & entry : entries_ ) {
      if( !entry.armed ) {
         entry.heard = bellOf( entry.header ).load( std::memory_order_acquire );
         entry.armed = true;
      }
   }
   disturb();
}

// Signals are for the threads of the program; those that the thread itself may cause are not kept
// from it.
void
BellListener::start() {
   if( thread_.joinable() ) {
      return;
   }
   stopping_ = false;
   sigset_t all;
   sigset_t former;
   ::sigfillset( &all );
   for( int const own : { SIGBUS, SIGSEGV, SIGILL, SIGFPE, SIGABRT, SIGTRAP } ) {
      ::sigdelset( &all, own );
   }
   ::pthread_sigmask( SIG_SETMASK, &all, &former );
   try {
      thread_ = std::thread( [ this ] { listen(); } );
      pid_ = ::getpid();
   } catch( ... ) {
      ::pthread_sigmask( SIG_SETMASK, &former, nullptr );
      throw;
   }
   ::pthread_sigmask( SIG_SETMASK, &former, nullptr );
}

void
BellListener::stop() {
   if( !thread_.joinable() ) {
      return;
   }
   if( isForked() ) {
      thread_.detach();
      return;
   }
   {
      auto const guard = lock();
      stopping_ = true;
      disturb();
   }
   thread_.join();
}

void
BellListener::disturb() {
   disturbed_.fetch_add( 1, std::memory_order_release );
   ::syscall( SYS_futex, &disturbed_, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0 );
}

void
BellListener::listen() {
   std::vector< futex_waitv > waits;
   waits.reserve( capacity + 1 );
   std::unique_lock lock( mutex_ );
   while( !stopping_ ) {
      auto const disturbed = disturbed_.load( std::memory_order_acquire );
      waits.assign( 1, waitFor( disturbed_, disturbed, FUTEX_PRIVATE_FLAG ) );
      bool rang = false;
      for( auto & entry : entries_ ) {
         if( entry.armed ) {
            entry.armed = bellOf( entry.header ).load( std::memory_order_acquire ) == entry.heard;
            if( entry.armed ) {
               waits.push_back( waitFor( bellOf( entry.header ), entry.heard, 0 ) );
            } else {
               rang = true;
            }
         }
      }
      if( rang ) {
         rang_.store( true, std::memory_order_release );
         std::uint64_t const one = 1;
         [[maybe_unused]] auto const written = ::write( eventFd_, &one, sizeof one );
      }
      lock.unlock();
      // Memory that goes meanwhile is refused by the kernel, and whoever takes it away disturbs.
      if( ::syscall( SYS_futex_waitv, waits.data(), waits.size(), 0, nullptr, 0 ) < 0 &&
          errno != EAGAIN && errno != EINTR ) {
         // A kernel that cannot wait for many, or a file that was cut off: look again in a while.
         timespec const pause{ 0, 10'000'000 };
         ::syscall( SYS_futex, &disturbed_, FUTEX_WAIT_PRIVATE, disturbed, &pause, nullptr, 0 );
      }
      lock.lock();
   }
}

} // namespace Glim
