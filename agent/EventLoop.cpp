// SPDX-License-Identifier: Apache-2.0
#include "agent/EventLoop.h"

#include "Kiv/Exception.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace HobaAgent {

namespace {

epoll_event
eventOf( std::uint32_t events, std::uint64_t token ) {
   epoll_event event{};
   event.events = events;
   event.data.u64 = token;
   return event;
}

} // namespace

EventLoop::EventLoop() : epoll_( epoll_create1( EPOLL_CLOEXEC ) ) {
   if( !epoll_ ) {
      throw Kiv::Exception( systemError( "epoll" ) );
   }
   Kiv::ClockDriver::ambientIs( driver_ );
}

EventLoop::~EventLoop() {
   if( &Kiv::ClockDriver::ambient() == &driver_ ) {
      Kiv::ClockDriver::ambientDel();
   }
}

void
EventLoop::fdIs( int fd, std::uint32_t events, Ready ready ) {
   auto event = eventOf( events, ++lastToken_ );
   if( epoll_ctl( epoll_.get(), EPOLL_CTL_ADD, fd, &event ) != 0 ) {
      throw Kiv::Exception( systemError( "epoll_ctl" ) );
   }
   auto entry = std::make_shared< Entry >( Entry{ lastToken_, std::move( ready ) } );
   entries_[ fd ] = entry;
   byToken_[ lastToken_ ] = entry;
}

void
EventLoop::eventsIs( int fd, std::uint32_t events ) {
   auto event = eventOf( events, entries_.at( fd )->token );
   if( epoll_ctl( epoll_.get(), EPOLL_CTL_MOD, fd, &event ) != 0 ) {
      throw Kiv::Exception( systemError( "epoll_ctl" ) );
   }
}

void
EventLoop::fdDel( int fd ) {
   if( auto found = entries_.find( fd ); found != entries_.end() ) {
      epoll_ctl( epoll_.get(), EPOLL_CTL_DEL, fd, nullptr );
      byToken_.erase( found->second->token );
      entries_.erase( found );
   }
}

void
EventLoop::later( std::function< void() > work ) {
   later_.push_back( std::move( work ) );
}

void
EventLoop::stopOn( std::initializer_list< int > signals ) {
   sigset_t set;
   sigemptyset( &set );
   for( int signal : signals ) {
      sigaddset( &set, signal );
   }
   sigprocmask( SIG_BLOCK, &set, nullptr );
   signals_ = Fd( signalfd( -1, &set, SFD_NONBLOCK | SFD_CLOEXEC ) );
   if( !signals_ ) {
      throw Kiv::Exception( systemError( "signalfd" ) );
   }
   fdIs( signals_.get(), EPOLLIN, [ this ]( std::uint32_t ) {
      signalfd_siginfo info;
      while( read( signals_.get(), &info, sizeof info ) == sizeof info ) {
         stop();
      }
   } );
}

void
EventLoop::run() {
   while( !stopped_ ) {
      runOnce( -1 );
   }
   stopped_ = false;
}

void
EventLoop::runOnce( int maxWait ) {
   int wait = later_.empty() ? driver_.pollTimeout() : 0;
   if( maxWait >= 0 && ( wait < 0 || wait > maxWait ) ) {
      wait = maxWait;
   }
   std::array< epoll_event, 64 > events;
   int count = epoll_wait( epoll_.get(), events.data(), static_cast< int >( events.size() ), wait );
   if( count < 0 && errno != EINTR ) {
      throw Kiv::Exception( systemError( "epoll_wait" ) );
   }
   for( std::size_t i = 0; i < static_cast< std::size_t >( std::max( count, 0 ) ); ++i ) {
      // Copies: the system's structure is packed, and nothing may refer into it.
      std::uint64_t const token = events[ i ].data.u64;
      std::uint32_t const ready = events[ i ].events;
      if( auto found = byToken_.find( token ); found != byToken_.end() ) {
         auto entry = found->second;
         entry->ready( ready );
      }
   }
   driver_.run();
   runLater();
}

void
EventLoop::runLater() {
   auto work = std::exchange( later_, {} );
   for( auto const & each : work ) {
      each();
   }
}

} // namespace HobaAgent
