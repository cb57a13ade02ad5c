// SPDX-License-Identifier: Apache-2.0
#include "agent/Server.h"

#include "Kiv/Exception.h"
#include "agent/common/Json.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace HobaAgent {

namespace {

constexpr int acceptedAtOnce = 16;

Fd
openReserve() {
   return Fd( open( "/dev/null", O_RDONLY | O_CLOEXEC ) );
}

} // namespace

Server::Server( EventLoop & loop, Commands const & commands, std::string path, ServerLimits limits )
      : loop_( loop ), commands_( commands ), path_( std::move( path ) ), limits_( limits ),
        listening_( listenAt( path_ ) ), reserve_( openReserve() ) {
   loop_.fdIs( listening_.get(), EPOLLIN, [ this ]( std::uint32_t ) { acceptSome(); } );
   traffic_.grown = [ this ] { boundWaiting(); };
}

Server::~Server() {
   loop_.fdDel( listening_.get() );
   clients_.clear();
   unlink( path_.c_str() );
}

// Not all that knock at once: those who came get their turn before others take their place.
void
Server::acceptSome() {
   for( int n = 0; n != acceptedAtOnce; ++n ) {
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

std::size_t
Server::count( Client::State state ) const {
   return static_cast< std::size_t >(
         std::count_if( clients_.begin(), clients_.end(),
                        [ & ]( auto const & entry ) { return entry.second->state() == state; } ) );
}

template< class IsWorse >
Client *
Server::worst( Client::State state, IsWorse isWorse ) const {
   Client * found = nullptr;
   for( auto const & [ id, client ] : clients_ ) {
      if( client->state() == state && ( !found || isWorse( *client, *found ) ) ) {
         found = client.get();
      }
   }
   return found;
}

void
Server::clientIs( Fd fd ) {
   auto const isMoreIdle = []( Client const & a, Client const & b ) {
      return std::pair( a.watches(), a.lastMove() ) < std::pair( b.watches(), b.lastMove() );
   };
   while( clients() >= limits_.clients ) {
      worst( Client::State::serving, isMoreIdle )
            ->dismiss( "the agent ends this connection: it has " +
                       std::to_string( limits_.clients ) +
                       " clients, as many as it takes, and this one was idle the longest" );
   }
   // Who does not even take his last line cannot stay for it.
   if( count( Client::State::leaving ) > limits_.clients ) {
      worst( Client::State::leaving, isMoreIdle )->drop();
   }
   auto id = ++lastClient_;
   clients_[ id ] =
         std::make_unique< Client >( loop_, commands_, limits_, traffic_, std::move( fd ),
                                     [ this, id ] { clients_.erase( id ); } );
}

void
Server::boundWaiting() {
   auto const letsMoreWait = []( Client const & a, Client const & b ) {
      return a.waiting() > b.waiting();
   };
   while( traffic_.waiting > limits_.waiting ) {
      auto * const slowest = worst( Client::State::serving, letsMoreWait );
      if( !slowest ) {
         return; // what is left is last lines
      }
      slowest->dismiss( "the agent ends this connection: " + std::to_string( traffic_.waiting ) +
                        " bytes wait to be read by all clients together, more than may, and most "
                        "of it by this one" );
   }
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
