// SPDX-License-Identifier: Apache-2.0
#pragma once

// Processes that a test starts, and what they share with it besides tables.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace GlimTests {

// A page, or some, of which parent and children see the same. All zero at first.
template< class T >
class Shared {
 public:
   Shared()
         : memory_( ::mmap( nullptr, sizeof( T ), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0 ) ) {
      if( memory_ == MAP_FAILED ) {
         throw std::runtime_error( "no shared memory" );
      }
   }
   ~Shared() { ::munmap( memory_, sizeof( T ) ); }
   Shared( Shared const & ) = delete;
   Shared & operator=( Shared const & ) = delete;
   T * operator->() { return static_cast< T * >( memory_ ); }
   T & operator*() { return *static_cast< T * >( memory_ ); }

 private:
   void * memory_;
};

// The first complaint of any child.
struct Report {
   std::atomic< bool > failed;
   char text[ 1024 ];

   void fail( char const * what ) {
      if( !failed.exchange( true ) ) {
         std::strncpy( text, what, sizeof text - 1 );
      }
   }
};

inline void
require( bool good, char const * what, std::uint64_t a = 0, std::uint64_t b = 0,
         std::uint64_t c = 0 ) {
   if( !good ) {
      throw std::runtime_error( std::string( what ) + ": " + std::to_string( a ) + ' ' +
                                std::to_string( b ) + ' ' + std::to_string( c ) );
   }
}

// A child process. It dies with its parent, and with this object.
class Child {
 public:
   template< class Body >
   Child( Report & report, Body && body ) : pid_( ::fork() ) {
      if( pid_ != 0 ) {
         return;
      }
      ::prctl( PR_SET_PDEATHSIG, SIGKILL );
      try {
         body();
      } catch( std::exception const & error ) {
         report.fail( error.what() );
      }
      ::_exit( report.failed ? 1 : 0 );
   }
   ~Child() { kill(); }
   Child( Child && other ) noexcept : pid_( std::exchange( other.pid_, -1 ) ) {}

   // Both return what waitpid said.
   int kill() {
      if( pid_ > 0 ) {
         ::kill( pid_, SIGKILL );
      }
      return wait();
   }
   int wait() {
      int status = -1;
      if( pid_ > 0 ) {
         ::waitpid( std::exchange( pid_, -1 ), &status, 0 );
      }
      return status;
   }
   pid_t pid() const { return pid_; }
   void waitedFor() { pid_ = -1; } // it has ended, and the caller knows how
   static bool wasKilled( int status ) {
      return WIFSIGNALED( status ) && WTERMSIG( status ) == SIGKILL;
   }

 private:
   pid_t pid_;
};

// A process that does something, says that it is ready, and is killed then.
class Victim {
 public:
   explicit Victim( std::function< void( std::function< void() > const & ready ) > const & body )
         : child_( *report_, [ & ] { body( [ & ] { *ready_ = true; } ); } ), pid( child_.pid() ) {
      while( !*ready_ && !report_->failed ) {
         ::usleep( 100 );
      }
      EXPECT_FALSE( report_->failed ) << report_->text;
   }
   void kill() { child_.kill(); }

 private:
   Shared< Report > report_;
   Shared< std::atomic< bool > > ready_;
   Child child_;

 public:
   pid_t const pid; // what it was, too
};

} // namespace GlimTests
