// SPDX-License-Identifier: Apache-2.0
#include "agent/hobactl/Connection.h"

#include "agent/common/Json.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <poll.h>
#include <sys/socket.h>

namespace Hobactl {

using Kiv::Datum;

namespace {

[[noreturn]] void
refused( Datum const & answer ) {
   auto const * error = answer.find( "error" );
   auto const * message = error ? error->find( "message" ) : nullptr;
   auto const * text = message ? message->as< Kiv::String >() : nullptr;
   throw Kiv::Exception( text ? *text : "the agent's answer makes no sense" );
}

} // namespace

Connection::Connection( std::string const & socketPath, double timeout, Warned warned )
      : fd_( HobaAgent::connectTo( socketPath ) ), timeout_( timeout ),
        warned_( std::move( warned ) ) {}

void
Connection::sendAll( std::string_view text ) {
   while( !text.empty() ) {
      auto count = send( fd_.get(), text.data(), text.size(), MSG_NOSIGNAL );
      if( count < 0 ) {
         if( errno == EINTR ) {
            continue;
         }
         // What the agent said before it hung up is the better message.
         if( errno == EPIPE || errno == ECONNRESET ) {
            return;
         }
         throw Kiv::Exception( HobaAgent::systemError( "the agent" ) );
      }
      text.remove_prefix( static_cast< std::size_t >( count ) );
   }
}

Datum
Connection::nextLine( double timeout ) {
   while( true ) {
      auto end = input_.find( '\n', taken_ );
      if( end != std::string::npos ) {
         auto line = input_.substr( 0, end );
         input_.erase( 0, end + 1 );
         taken_ = 0;
         return HobaAgent::parseJson( line );
      }
      taken_ = input_.size();
      pollfd wait{ fd_.get(), POLLIN, 0 };
      int ready = poll( &wait, 1,
                        timeout < 0 ? -1 : static_cast< int >( std::min( timeout, 1e6 ) * 1000 ) );
      if( ready == 0 ) {
         throw Kiv::Exception( "the agent did not answer within " + Kiv::toText( timeout ) +
                               " seconds" );
      }
      std::array< char, 64 * 1024 > piece;
      auto count = ready < 0 ? -1 : recv( fd_.get(), piece.data(), piece.size(), 0 );
      if( count == 0 ) {
         throw Kiv::Exception( "the agent ended the connection" );
      }
      if( count < 0 && errno != EINTR ) {
         throw Kiv::Exception( HobaAgent::systemError( "the agent" ) );
      }
      input_.append( piece.data(), static_cast< std::size_t >( std::max< ssize_t >( count, 0 ) ) );
   }
}

Datum
Connection::ask( Datum const & request ) {
   sendAll( HobaAgent::jsonText( request ) + "\n" );
   while( true ) {
      auto answer = nextLine( timeout_ );
      if( answer.find( "event" ) ) {
         continue;
      }
      auto const * ok = answer.find( "ok" );
      if( ok && *ok == Datum( true ) ) {
         if( auto const * warning = answer.find( "warning" ) ) {
            warned_( *warning );
         }
         auto const * result = answer.find( "result" );
         return result ? *result : Datum();
      }
      refused( answer );
   }
}

void
Connection::events( std::function< void( Datum const & ) > const & take ) {
   while( true ) {
      auto line = nextLine( -1 );
      if( auto const * event = line.find( "event" ) ) {
         take( *event );
      } else {
         refused( line ); // there is no other question that this could be the answer to
      }
   }
}

} // namespace Hobactl
