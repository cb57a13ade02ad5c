// SPDX-License-Identifier: Apache-2.0
#include "agent/Server.h"

#include "Kiv/Exception.h"
#include "agent/common/Json.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace HobaAgent {

namespace {

Fd
openReserve() {
   return Fd( open( "/dev/null", O_RDONLY | O_CLOEXEC ) );
}

} // namespace

Server::Server( EventLoop & loop, Commands const & commands, std::string path, ServerLimits limits )
      : loop_( loop ), commands_( commands ), path_( std::move( path ) ), limits_( limits ),
        listening_( listenAt( path_ ) ), reserve_( openReserve() ) {
   loop_.fdIs( listening_.get(), EPOLLIN, [ this ]( std::uint32_t ) { acceptAll(); } );
}

Server::~Server() {
   loop_.fdDel( listening_.get() );
   clients_.clear();
   unlink( path_.c_str() );
}

void
Server::acceptAll() {
   while( true ) {
      Fd fd( accept4( listening_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK ) );
      if( fd ) {
         clientIs( std::move( fd ) );
      } else if( ( errno == EMFILE || errno == ENFILE ) && reserve_ ) {
         reserve_.reset();
         turnAway(
               Fd( accept4( listening_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK ) ),
               "the agent is out of file descriptors" );
         reserve_ = openReserve();
      } else if( errno != EINTR && errno != ECONNABORTED ) {
         return;
      }
   }
}

void
Server::clientIs( Fd fd ) {
   if( clients_.size() >= limits_.clients ) {
      turnAway( std::move( fd ), "the agent has " + std::to_string( limits_.clients ) +
                                       " clients already, as many as it takes" );
      return;
   }
   auto id = ++lastClient_;
   clients_[ id ] = std::make_unique< Client >( loop_, commands_, limits_, std::move( fd ),
                                                [ this, id ] { clients_.erase( id ); } );
}

void
Server::turnAway( Fd fd, std::string const & reason ) {
   Kiv::Datum error( Kiv::Datum::Object{} );
   error.add( "message", reason );
   Kiv::Datum answer( Kiv::Datum::Object{} );
   answer.add( "id", {} );
   answer.add( "ok", false );
   answer.add( "error", std::move( error ) );
   auto line = jsonText( answer ) + "\n";
   if( fd ) {
      // Best effort: a connection that is just made has room for it.
      [[maybe_unused]] auto sent =
            send( fd.get(), line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL );
   }
}

} // namespace HobaAgent
