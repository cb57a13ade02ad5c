// SPDX-License-Identifier: Apache-2.0
#include "agent/Client.h"

#include "Hoba/HobaLog.h"
#include "Kiv/Dispatch.h"
#include "agent/common/Json.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace HobaAgent {

using Kiv::Datum;

namespace {

// The memory of a long line that is gone goes with it.
void
giveBack( std::string & text ) {
   constexpr std::size_t kept = 64 * 1024;
   if( text.capacity() > 2 * text.size() + kept ) {
      text.shrink_to_fit();
   }
}

std::string
errorLine( Datum const & id, std::string_view message ) {
   Datum error( Datum::Object{} );
   error.add( "message", message );
   Datum answer( Datum::Object{} );
   answer.add( "id", id );
   answer.add( "ok", false );
   answer.add( "error", std::move( error ) );
   return jsonText( answer );
}

// What to say of the steps that have failed since there were `before` of them.
std::string
warningSince( std::uint64_t before ) {
   auto const & log = Hoba::logEntries();
   auto const last = std::find_if( log.rbegin(), log.rend(), []( Hoba::LogEntry const & entry ) {
      return std::string_view( entry.message->name ) == "HOBA_STEP_FAILED";
   } );
   return "done, but " + counted( Kiv::Dispatch::failures - before, "step" ) + " failed" +
          ( last == log.rend() ? "" : "; the last: " + last->text );
}

} // namespace

Client::Client( EventLoop & loop, Commands const & commands, ServerLimits const & limits,
                Traffic & traffic, Fd fd, Gone gone )
      : loop_( loop ), commands_( commands ), limits_( limits ), traffic_( traffic ),
        fd_( std::move( fd ) ), gone_( std::move( gone ) ), lastMove_( ++traffic.moves ),
        events_( EPOLLIN ) {
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
   if( state_ != State::gone && ( events & EPOLLOUT ) ) {
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
   if( !serving() ) {
      if( count == 0 ) {
         drop();
      }
      return;
   }
   if( count == 0 ) {
      ended_ = true;
   } else {
      lastMove_ = ++traffic_.moves;
   }
   input_.append( piece.data(), static_cast< std::size_t >( count ) );
   takeLines();
   updateEvents();
}

void
Client::takeLines() {
   std::size_t begin = 0;
   while( serving() && !paused() ) {
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
   halted_ = paused();
   if( halted_ || !serving() ) {
      return;
   }
   if( !skipping_ && input_.size() > limits_.line ) {
      takeLine( input_ );
      skipping_ = true;
   }
   if( skipping_ ) {
      input_.clear();
   }
   giveBack( input_ );
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
      auto const before = Kiv::Dispatch::failures;
      answer.add( "result", commands_.run( request, this ) );
      if( Kiv::Dispatch::failures != before ) {
         answer.add( "warning", warningSince( before ) );
      }
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
   sendLine( errorLine( id, message ) );
}

void
Client::sendEvent( Datum const & id, Datum event ) {
   if( !serving() ) {
      return;
   }
   Datum line( Datum::Object{} );
   line.add( "id", id );
   line.add( "event", std::move( event ) );
   sendLine( jsonText( line ) );
}

void
Client::sendLine( std::string line ) {
   if( !serving() ) {
      return;
   }
   if( pending() + line.size() > limits_.queued ) {
      dismiss( "the agent ends this connection: " + std::to_string( pending() ) +
               " bytes wait to be read, as many as one client may have" );
      return;
   }
   output_ += line;
   output_ += '\n';
   // One input may have much to tell. Who takes it meanwhile is not one who does not read.
   if( output_.size() >= tried_ + limits_.piece ) {
      sendSome();
   }
   flushLater();
   count();
}

// Lets the others know what waits here. It may be too much, and this client may have most of it.
void
Client::count() {
   bool const grown = output_.size() > counted_;
   traffic_.waiting += output_.size() - counted_;
   counted_ = output_.size();
   if( grown && traffic_.grown ) {
      traffic_.grown();
   }
}

void
Client::flushLater() {
   if( !flushing_ && state_ != State::gone ) {
      flushing_ = true;
      loop_.later( [ self = self_ ] {
         if( *self ) {
            ( *self )->flushing_ = false;
            ( *self )->flush();
         }
      } );
   }
}

// As much as the socket takes now.
void
Client::sendSome() {
   while( state_ != State::gone && pending() ) {
      auto count =
            send( fd_.get(), output_.data() + sent_, pending(), MSG_DONTWAIT | MSG_NOSIGNAL );
      if( count < 0 ) {
         if( errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR ) {
            drop();
         }
         break;
      }
      sent_ += static_cast< std::size_t >( count );
      inLine_ = output_[ sent_ - 1 ] != '\n';
      lastMove_ = ++traffic_.moves;
   }
   // What is gone makes room at once, or when it has become the greater part.
   if( sent_ * 2 >= output_.size() ) {
      output_.erase( 0, sent_ );
      sent_ = 0;
      giveBack( output_ );
      count();
   }
   tried_ = output_.size();
}

void
Client::flush() {
   sendSome();
   if( halted_ && serving() && !paused() ) {
      takeLines();
   }
   if( !pending() && ( state_ == State::leaving || ( ended_ && input_.empty() ) ) ) {
      drop();
   }
   updateEvents();
}

void
Client::updateEvents() {
   if( state_ == State::gone ) {
      return;
   }
   std::uint32_t wanted = 0;
   if( serving() && !ended_ && !paused() ) {
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

void
Client::endWatches() {
   auto work = std::exchange( atEnd_, {} );
   for( auto const & each : work ) {
      each();
   }
}

// The input stays: this may be in the middle of a line of it.
void
Client::dismiss( std::string_view reason ) {
   if( !serving() ) {
      return;
   }
   state_ = State::leaving;
   endWatches();
   auto const rest = inLine_ ? output_.find( '\n', sent_ ) + 1 - sent_ : 0;
   if( rest > limits_.farewell ) {
      drop();
      return;
   }
   output_ = output_.substr( sent_, rest ) + errorLine( {}, reason ) + '\n';
   sent_ = 0;
   tried_ = 0;
   count();
   flushLater();
}

// Hears and sends nothing more; the rest waits until whoever called us is done.
void
Client::drop() {
   if( std::exchange( state_, State::gone ) == State::gone ) {
      return;
   }
   loop_.fdDel( fd_.get() );
   fd_.reset();
   output_ = {};
   sent_ = 0;
   tried_ = 0;
   count();
   endWatches();
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
