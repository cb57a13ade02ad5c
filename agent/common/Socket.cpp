// SPDX-License-Identifier: Apache-2.0
#include "agent/common/Socket.h"

#include "Kiv/Exception.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace HobaAgent {

namespace {

sockaddr_un
addressOf( std::string const & path ) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if( path.empty() || path.size() >= sizeof address.sun_path ) {
      throw Kiv::Exception( "socket path \"" + path + "\": expected 1 to " +
                            std::to_string( sizeof address.sun_path - 1 ) + " characters" );
   }
   std::memcpy( address.sun_path, path.data(), path.size() );
   return address;
}

Fd
newSocket( int flags ) {
   Fd fd( socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0 ) );
   if( !fd ) {
      throw Kiv::Exception( systemError( "socket" ) );
   }
   return fd;
}

// 0, or the errno of the failure.
int
tryConnect( Fd const & fd, sockaddr_un const & address ) {
   while( connect( fd.get(), reinterpret_cast< sockaddr const * >( &address ), sizeof address ) !=
          0 ) {
      if( errno != EINTR ) {
         return errno;
      }
   }
   return 0;
}

// Makes way for a new socket, unless what is there is in use or no socket.
void
removeStale( std::string const & path, sockaddr_un const & address ) {
   struct stat status {};
   if( lstat( path.c_str(), &status ) != 0 ) {
      return;
   }
   if( !S_ISSOCK( status.st_mode ) ) {
      throw Kiv::Exception( path + ": is there already, and is not a socket" );
   }
   int error = tryConnect( newSocket( SOCK_NONBLOCK ), address );
   if( error != ECONNREFUSED ) {
      throw Kiv::Exception(
            path + ( error == 0 || error == EAGAIN
                           ? ": another agent answers here"
                           : ": a socket is there: " + std::generic_category().message( error ) ) );
   }
   unlink( path.c_str() );
}

} // namespace

void
Fd::reset() {
   if( fd_ >= 0 ) {
      close( std::exchange( fd_, -1 ) );
   }
}

std::string
systemError( std::string const & what ) {
   return what + ": " + std::generic_category().message( errno );
}

std::string
defaultSocketPath() {
   if( auto const * path = std::getenv( "HOBA_SOCKET" ); path && *path ) {
      return path;
   }
   auto const * directory = std::getenv( "XDG_RUNTIME_DIR" );
   return std::string( directory && *directory ? directory : "/run" ) + "/hoba-agent.sock";
}

Fd
connectTo( std::string const & path ) {
   auto address = addressOf( path );
   auto fd = newSocket( 0 );
   if( int error = tryConnect( fd, address ) ) {
      bool nobody = error == ENOENT || error == ECONNREFUSED;
      throw Kiv::Exception(
            path + ": " +
            ( nobody ? "no agent answers here" : std::generic_category().message( error ) ) );
   }
   return fd;
}

Fd
listenAt( std::string const & path ) {
   auto address = addressOf( path );
   removeStale( path, address );
   auto fd = newSocket( SOCK_NONBLOCK );
   // The mode is right from the first moment on, which a chmod afterwards would not give.
   auto mask = umask( 0177 );
   int bound = bind( fd.get(), reinterpret_cast< sockaddr const * >( &address ), sizeof address );
   int error = errno;
   umask( mask );
   if( bound != 0 || listen( fd.get(), 64 ) != 0 ) {
      throw Kiv::Exception( path + ": " +
                            std::generic_category().message( bound != 0 ? error : errno ) );
   }
   return fd;
}

} // namespace HobaAgent
