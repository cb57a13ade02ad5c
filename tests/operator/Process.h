// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace HobaOperator {

// Long enough for an instrumented build on a busy machine: only what hangs gets there.
inline constexpr std::chrono::seconds patience{ 40 };

// Asks until the answer is yes, or patience ends; the last answer.
template< class Answer >
bool
eventually( Answer answer ) {
   using Clock = std::chrono::steady_clock;
   for( auto end = Clock::now() + patience; !answer(); ) {
      if( Clock::now() > end ) {
         return false;
      }
      std::this_thread::sleep_for( std::chrono::milliseconds( 1 ) );
   }
   return true;
}

inline std::string
contentOf( std::string const & file ) {
   std::ostringstream text;
   text << std::ifstream( file ).rdbuf();
   return text.str();
}

// A program that runs beside the test, and what it says, in two files. It does not outlive this
// object, nor the test, however either ends.
class Process {
 public:
   // The first argument is the program; `files` is the beginning of the names of the two files.
   Process( std::vector< std::string > const & arguments, std::string const & files )
         : out_( files + ".out" ), err_( files + ".err" ), pid_( fork() ) {
      if( pid_ < 0 ) {
         throw std::runtime_error( "no process" );
      }
      if( pid_ == 0 ) {
         prctl( PR_SET_PDEATHSIG, SIGKILL );
         std::vector< char * > argv;
         for( auto const & argument : arguments ) {
            argv.push_back( const_cast< char * >( argument.c_str() ) );
         }
         argv.push_back( nullptr );
         if( std::freopen( out_.c_str(), "w", stdout ) &&
             std::freopen( err_.c_str(), "w", stderr ) ) {
            execv( argv[ 0 ], argv.data() );
         }
         _exit( 127 );
      }
   }
   ~Process() {
      signal( SIGKILL );
      if( pid_ > 0 ) {
         waitpid( pid_, nullptr, 0 );
      }
   }
   Process( Process const & ) = delete;
   Process & operator=( Process const & ) = delete;

   // Waits until standard output has the text; false when the program ends or patience does.
   bool says( std::string_view text ) {
      auto const said = [ & ] { return out().find( text ) != std::string::npos; };
      eventually( [ & ] { return said() || ended(); } );
      return said();
   }
   // One that has ended hears nothing, nor does anybody else.
   void signal( int number ) const {
      if( pid_ > 0 ) {
         kill( pid_, number );
      }
   }
   // Waits for the end. The exit status, 128 and the signal that ended it, or -1 if it did not.
   int finish() {
      return !eventually( [ & ] { return ended(); } ) ? -1
             : WIFEXITED( status_ )                   ? WEXITSTATUS( status_ )
                                                      : 128 + WTERMSIG( status_ );
   }
   std::string out() const { return contentOf( out_ ); }
   std::string err() const { return contentOf( err_ ); }

 private:
   bool ended() {
      if( pid_ > 0 && waitpid( pid_, &status_, WNOHANG ) == pid_ ) {
         pid_ = -1;
      }
      return pid_ < 0;
   }

   std::string const out_, err_;
   pid_t pid_;
   int status_ = 0;
};

} // namespace HobaOperator
