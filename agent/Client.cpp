// SPDX-License-Identifier: Apache-2.0
#include "agent/Client.h"

#include "agent/common/Json.h"

#include <array>
#include <cerrno>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace HobaAgent {

using Kiv::Datum;

Client::Client( EventLoop & loop, Commands const & commands, ServerLimits const & limits, Fd fd,
                Gone gone )
      : loop_( loop ), commands_( commands ), limits_( limits ), fd_( std::move( fd ) ),
        gone_( std::move( gone ) ), events_( EPOLLIN ) {
   loop_.fdIs( fd_.get(), events_, [ this ]( std::uint32_t events ) { onReady( events ); } );
}

Client::~Client() {
   *self_ = nullptr;
   drop();
}

void
Client::onReady( std::uint32_t events ) {
   if( events & ( EPOLLIN | EPOLLHUP | EPOLLERR ) ) {
      receive();
   }
   if( !dropped_ && ( events & EPOLLOUT ) ) {
      flush();
   }
}

// One piece at a time: other clients get their turn before the next.
void
Client::receive() {
   std::array< char, 64 * 1024 > piece;
   auto count = recv( fd_.get(), piece.data(), piece.size(), MSG_DONTWAIT );
   if( count < 0 ) {
      if( errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR ) {
         drop();
      }
      return;
   }
   if( count == 0 ) {
      ended_ = true;
   }
   input_.append( piece.data(), static_cast< std::size_t >( count ) );
   takeLines();
   updateEvents();
}

void
Client::takeLines() {
   std::size_t begin = 0;
   while( !dropped_ && !paused() ) {
      auto end = input_.find( '\n', begin );
      if( end == std::string::npos ) {
         break;
      }
      auto line = std::string_view( input_ ).substr( begin, end - begin );
      begin = end + 1;
      if( skipping_ ) {
         skipping_ = false;
      } else {
         takeLine( line );
      }
   }
   input_.erase( 0, begin );
   if( paused() || dropped_ ) {
      return;
   }
   if( !skipping_ && input_.size() > limits_.line ) {
      takeLine( input_ );
      skipping_ = true;
   }
   if( skipping_ ) {
      input_.clear();
   }
   if( ended_ ) {
      if( !input_.empty() ) {
         answerError( {}, "the connection ended in the middle of a line" );
         input_.clear();
      }
      flushLater();
   }
}

void
Client::takeLine( std::string_view line ) {
   if( line.size() > limits_.line ) {
      answerError( {}, "the line is longer than " + std::to_string( limits_.line ) + " bytes" );
      return;
   }
   if( line.find_first_not_of( " \t\r" ) == std::string_view::npos ) {
      return;
   }
   Datum id;
   try {
      auto request = parseJson( line, { .bytes = limits_.line, .depth = limits_.depth } );
      if( auto const * given = request.find( "id" ) ) {
         id = *given;
      }
      Datum answer( Datum::Object{} );
      answer.add( "id", id );
      answer.add( "ok", true );
      answer.add( "result", commands_.run( request, this ) );
      auto text = jsonText( answer );
      if( text.size() > limits_.answer ) {
         answerError( id, "the answer takes " + std::to_string( text.size() ) +
                                " bytes, more than " + std::to_string( limits_.answer ) +
                                ": ask for less" );
      } else {
         sendLine( std::move( text ) );
      }
   } catch( JsonError const & error ) {
      answerError( id, std::string( "the request is not JSON: " ) + error.what() );
   } catch( std::exception const & error ) {
      answerError( id, error.what() );
   }
}

void
Client::answerError( Datum const & id, std::string_view message ) {
   Datum error( Datum::Object{} );
   error.add( "message", message );
   Datum answer( Datum::Object{} );
   answer.add( "id", id );
   answer.add( "ok", false );
   answer.add( "error", std::move( error ) );
   sendLine( jsonText( answer ) );
}

void
Client::sendEvent( Datum const & id, Datum event ) {
   if( dropped_ ) {
      return;
   }
   Datum line( Datum::Object{} );
   line.add( "id", id );
   line.add( "event", std::move( event ) );
   sendLine( jsonText( line ) );
}

void
Client::sendLine( std::string line ) {
   if( dropped_ ) {
      return;
   }
   if( pending() + line.size() > limits_.queued ) {
      drop();
      return;
   }
   output_ += line;
   output_ += '\n';
   flushLater();
}

void
Client::flushLater() {
   if( !flushing_ && !dropped_ ) {
      flushing_ = true;
      loop_.later( [ self = self_ ] {
         if( *self ) {
            ( *self )->flushing_ = false;
            ( *self )->flush();
         }
      } );
   }
}

void
Client::flush() {
   bool wasPaused = paused();
   while( !dropped_ && pending() ) {
      auto count =
            send( fd_.get(), output_.data() + sent_, pending(), MSG_DONTWAIT | MSG_NOSIGNAL );
      if( count < 0 ) {
         if( errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR ) {
            drop();
         }
         break;
      }
      sent_ += static_cast< std::size_t >( count );
   }
   // What is gone makes room at once, or when it has become the greater part.
   if( sent_ * 2 >= output_.size() ) {
      output_.erase( 0, sent_ );
      sent_ = 0;
   }
   if( wasPaused && !dropped_ && !paused() ) {
      takeLines();
   }
   if( ended_ && !pending() && input_.empty() ) {
      drop();
   }
   updateEvents();
}

void
Client::updateEvents() {
   if( dropped_ ) {
      return;
   }
   std::uint32_t wanted = 0;
   if( !ended_ && !paused() ) {
      wanted |= EPOLLIN;
   }
   if( pending() ) {
      wanted |= EPOLLOUT;
   }
   if( wanted != events_ ) {
      events_ = wanted;
      loop_.eventsIs( fd_.get(), wanted );
   }
}

// Hears and sends nothing more; the rest waits until whoever called us is done.
void
Client::drop() {
   if( std::exchange( dropped_, true ) ) {
      return;
   }
   loop_.fdDel( fd_.get() );
   fd_.reset();
   auto work = std::exchange( atEnd_, {} );
   for( auto const & each : work ) {
      each();
   }
   if( *self_ ) {
      loop_.later( [ self = self_ ] {
         if( *self ) {
            auto gone = ( *self )->gone_;
            gone();
         }
      } );
   }
}

} // namespace HobaAgent
