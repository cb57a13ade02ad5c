// SPDX-License-Identifier: Apache-2.0
#include "agent/EndedBySignal.h"

#include "Kiv/Exception.h"

#include <array>
#include <cstring>

#include <unistd.h>

namespace HobaAgent {

namespace {

// What a signal handler may read: nothing that is made or moved.
std::array< char, 256 > file;

extern "C" void
endNow( int ) {
   unlink( file.data() );
   _exit( 0 );
}

} // namespace

EndedBySignal::EndedBySignal( std::initializer_list< int > signals,
                              std::string const & fileToRemove ) {
   if( fileToRemove.size() >= file.size() ) {
      throw Kiv::Exception( fileToRemove + ": longer than a socket's path can be" );
   }
   std::memcpy( file.data(), fileToRemove.c_str(), fileToRemove.size() + 1 );
   sigemptyset( &signals_ );
   for( int const number : signals ) {
      sigaddset( &signals_, number );
      std::signal( number, endNow );
   }
   pthread_sigmask( SIG_UNBLOCK, &signals_, nullptr );
}

EndedBySignal::~EndedBySignal() {
   pthread_sigmask( SIG_BLOCK, &signals_, nullptr );
   for( int number = 1; number != NSIG; ++number ) {
      if( sigismember( &signals_, number ) == 1 ) {
         std::signal( number, SIG_DFL );
      }
   }
}

} // namespace HobaAgent
