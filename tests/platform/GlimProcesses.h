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
   std::atomic< bool > taken;
   std::atomic< bool > failed;
   char text[ 1024 ];

   void fail( char const * what ) {
      if( !taken.exchange( true ) ) {
         std::strncpy( text, what, sizeof text - 1 );
      }
      failed = true;
   }
};

[[noreturn]] inline void
fail( std::string const & what ) {
   throw std::runtime_error( what );
}
inline void
require( bool good, char const * what, std::uint64_t a = 0, std::uint64_t b = 0,
         std::uint64_t c = 0 ) {
   if( !good ) {
      fail( std::string( what ) + ": " + std::to_string( a ) + ' ' + std::to_string( b ) + ' ' +
            std::to_string( c ) );
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
   Child & operator=( Child && ) = delete;

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
   explicit Victim( std::function< void( std::function< void() > const & ready ) > const & body ) {
      int ends[ 2 ];
      EXPECT_EQ( ::pipe( ends ), 0 );
      pid = ::fork();
      if( pid == 0 ) {
         ::prctl( PR_SET_PDEATHSIG, SIGKILL );
         body( [ & ] { EXPECT_EQ( ::write( ends[ 1 ], "x", 1 ), 1 ); } );
         ::_exit( 1 );
      }
      char ready = 0;
      EXPECT_EQ( ::read( ends[ 0 ], &ready, 1 ), 1 );
      ::close( ends[ 0 ] );
      ::close( ends[ 1 ] );
   }
   ~Victim() { kill(); }
   Victim( Victim const & ) = delete;
   Victim & operator=( Victim const & ) = delete;
   // Afterwards `pid` is what it was, for the test to compare.
   void kill() {
      if( !std::exchange( dead_, true ) ) {
         ::kill( pid, SIGKILL );
         ::waitpid( pid, nullptr, 0 );
      }
   }
   pid_t pid = 0;

 private:
   bool dead_ = false;
};

} // namespace GlimTests
