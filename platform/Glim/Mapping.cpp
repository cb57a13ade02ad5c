// SPDX-License-Identifier: Apache-2.0
#include "Glim/Mapping.h"

#include "Glim/Error.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Glim {

namespace {

// As many mappings as one process may have. They live as long as the process: the handler may look
// at any time.
constexpr std::size_t maxMappings = 4096;
std::array< Mapping::Watch, maxMappings > watches;
struct sigaction formerAction;

// Nothing but loads, stores and one system call: it runs in the middle of anything.
void
onBusError( int signal, siginfo_t * info, void * context ) {
   auto * const fault = static_cast< char * >( info->si_addr );
   for( auto & watch : watches ) {
      auto * const begin = watch.begin.load( std::memory_order_acquire );
      if( !begin || fault < begin || fault >= begin + watch.bytes.load() ) {
         continue;
      }
      auto const page = static_cast< std::uintptr_t >( ::sysconf( _SC_PAGESIZE ) );
      auto * const start =
            reinterpret_cast< char * >( reinterpret_cast< std::uintptr_t >( fault ) / page * page );
      watch.lost.store( true, std::memory_order_relaxed );
      if( ::mmap( start, page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1,
                  0 ) != MAP_FAILED ) {
         return;
      }
   }
   // Not ours: whoever was there before, or the end.
   if( formerAction.sa_flags & SA_SIGINFO && formerAction.sa_sigaction ) {
      formerAction.sa_sigaction( signal, info, context );
   } else if( formerAction.sa_handler != SIG_DFL && formerAction.sa_handler != SIG_IGN ) {
      formerAction.sa_handler( signal );
   } else {
      ::signal( SIGBUS, SIG_DFL ); // the instruction runs again, and ends the process
   }
}

void
handleBusErrors() {
   static std::once_flag once;
   std::call_once( once, [] {
      struct sigaction action {};
      action.sa_sigaction = &onBusError;
      action.sa_flags = SA_SIGINFO | SA_NODEFER;
      ::sigemptyset( &action.sa_mask );
      ::sigaction( SIGBUS, &action, &formerAction );
   } );
}

Mapping::Watch *
watchOf( char * begin, std::size_t bytes ) {
   for( auto & watch : watches ) {
      if( !watch.taken.exchange( true ) ) {
         watch.lost.store( false );
         watch.bytes.store( bytes );
         watch.begin.store( begin, std::memory_order_release );
         return &watch;
      }
   }
   return nullptr;
}

} // namespace

Mapping::Mapping( int fd, std::size_t bytes, bool writable, char const * what ) {
   struct stat status {};
   if( ::fstat( fd, &status ) != 0 || static_cast< std::size_t >( status.st_size ) < bytes ) {
      throw Error( std::string( what ) + ": it is cut off: " + std::to_string( status.st_size ) +
                   " bytes, of " + std::to_string( bytes ) + " at least" );
   }
   handleBusErrors();
   void * const memory =
         ::mmap( nullptr, bytes, writable ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, fd, 0 );
   if( memory == MAP_FAILED ) {
      throw Error( std::string( what ) + ": no memory for " + std::to_string( bytes ) +
                   " bytes: " + std::strerror( errno ) );
   }
   data_ = static_cast< char * >( memory );
   bytes_ = bytes;
   watch_ = watchOf( data_, bytes_ );
   if( !watch_ ) {
      reset();
      throw Error( std::string( what ) + ": more than " + std::to_string( maxMappings ) +
                   " tables are open" );
   }
}

void
Mapping::reset() {
   if( watch_ ) {
      watch_->begin.store( nullptr, std::memory_order_release );
      watch_->taken.store( false );
      watch_ = nullptr;
   }
   if( data_ ) {
      ::munmap( data_, bytes_ );
      data_ = nullptr;
      bytes_ = 0;
   }
}

} // namespace Glim
