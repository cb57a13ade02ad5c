// SPDX-License-Identifier: Apache-2.0
#include "operator/Process.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace HobaOperator {

using Clock = std::chrono::steady_clock;

bool
eventually( std::function< bool() > const & answer ) {
   for( auto end = Clock::now() + patience; !answer(); ) {
      if( Clock::now() > end ) {
         return false;
      }
      std::this_thread::sleep_for( std::chrono::milliseconds( 5 ) );
   }
   return true;
}

Process::Process( std::vector< std::string > const & arguments,
                  std::vector< std::string > const & environment ) {
   std::array< int, 2 > out{}, err{};
   if( pipe2( out.data(), O_CLOEXEC ) != 0 || pipe2( err.data(), O_CLOEXEC ) != 0 ) {
      throw std::runtime_error( "no pipe" );
   }
   std::vector< char * > argv;
   for( auto const & argument : arguments ) {
      argv.push_back( const_cast< char * >( argument.c_str() ) );
   }
   argv.push_back( nullptr );
   pid_ = fork();
   if( pid_ < 0 ) {
      throw std::runtime_error( "no process" );
   }
   if( pid_ == 0 ) {
      prctl( PR_SET_PDEATHSIG, SIGKILL );
      dup2( out[ 1 ], STDOUT_FILENO );
      dup2( err[ 1 ], STDERR_FILENO );
      for( auto const & each : environment ) {
         putenv( const_cast< char * >( each.c_str() ) );
      }
      execv( argv[ 0 ], argv.data() );
      std::perror( argv[ 0 ] );
      _exit( 127 );
   }
   close( out[ 1 ] );
   close( err[ 1 ] );
   outFd_ = out[ 0 ];
   errFd_ = err[ 0 ];
}

Process::~Process() {
   if( pid_ > 0 ) {
      kill( pid_, SIGKILL );
      waitpid( pid_, nullptr, 0 );
   }
   close( outFd_ );
   close( errFd_ );
}

bool
Process::read() {
   pollfd fds[] = { { outFd_, POLLIN, 0 }, { errFd_, POLLIN, 0 } };
   poll( fds, 2, 50 );
   for( auto & [ fd, text ] : { std::pair( &outFd_, &out_ ), std::pair( &errFd_, &err_ ) } ) {
      if( *fd < 0 || !fds[ fd == &errFd_ ].revents ) {
         continue;
      }
      std::array< char, 65536 > piece;
      auto count = ::read( *fd, piece.data(), piece.size() );
      if( count > 0 ) {
         text->append( piece.data(), static_cast< std::size_t >( count ) );
      } else {
         close( *fd );
         *fd = -1;
      }
   }
   return outFd_ >= 0 || errFd_ >= 0;
}

bool
Process::says( std::string_view text ) {
   for( auto end = Clock::now() + patience; out_.find( text ) == std::string::npos; ) {
      if( !read() || Clock::now() > end ) {
         return out_.find( text ) != std::string::npos;
      }
   }
   return true;
}

void
Process::signal( int number ) const {
   kill( pid_, number );
}

int
Process::finish() {
   auto end = Clock::now() + patience;
   while( read() && Clock::now() < end ) {
   }
   int status = 0;
   if( !eventually( [ & ] { return waitpid( pid_, &status, WNOHANG ) == pid_; } ) ) {
      return -1;
   }
   pid_ = -1;
   return WIFEXITED( status ) ? WEXITSTATUS( status ) : 128 + WTERMSIG( status );
}

} // namespace HobaOperator
