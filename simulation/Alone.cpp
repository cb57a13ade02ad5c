// SPDX-License-Identifier: Apache-2.0
// Histories in a process of their own: a crash is a finding like any other.

#include "simulation/History.h"

#include <cstring>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Simulation {

using Kiv::String;

namespace {

// What the child has done so far, also when it crashes: memory that both see.
struct Progress {
   Counts counts;
   std::uint64_t step;
};

class SharedProgress {
 public:
   SharedProgress()
         : memory_( ::mmap( nullptr, sizeof( Progress ), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0 ) ) {
      if( memory_ == MAP_FAILED ) {
         throw Kiv::Exception( "no memory for the progress of a history" );
      }
      new( memory_ ) Progress{};
   }
   ~SharedProgress() { ::munmap( memory_, sizeof( Progress ) ); }
   SharedProgress( SharedProgress const & ) = delete;
   SharedProgress & operator=( SharedProgress const & ) = delete;
   Progress & operator*() const { return *static_cast< Progress * >( memory_ ); }

 private:
   void * const memory_;
};

// In the child: what was found, one a line.
String
runHere( Steps const & steps, Progress & progress ) {
   String text;
   try {
      Run run;
      bool sound = true;
      for( ; sound && progress.step != steps.size(); ++progress.step ) {
         sound = run.step( steps[ progress.step ] );
         progress.counts = run.counts();
      }
      if( !sound || !run.finish() ) {
         --progress.step;
      }
      for( auto const & finding : run.findings() ) {
         text += finding + '\n';
      }
   } catch( std::exception const & error ) {
      text += String( "run: thrown out of its beginning or end: " ) + error.what() + '\n';
   }
   return text;
}

void
writeAll( int fd, String const & text ) {
   for( std::size_t done = 0; done != text.size(); ) {
      auto const more = ::write( fd, text.data() + done, text.size() - done );
      if( more <= 0 ) {
         return; // the reader has gone
      }
      done += static_cast< std::size_t >( more );
   }
}

String
readAll( int fd ) {
   String text;
   char buffer[ 4096 ];
   for( ssize_t size; ( size = ::read( fd, buffer, sizeof buffer ) ) > 0; ) {
      text.append( buffer, static_cast< std::size_t >( size ) );
   }
   return text;
}

std::vector< String >
linesOf( String const & text ) {
   std::vector< String > lines;
   for( std::size_t begin = 0; begin < text.size(); ) {
      auto const end = std::min( text.find( '\n', begin ), text.size() );
      lines.push_back( text.substr( begin, end - begin ) );
      begin = end + 1;
   }
   return lines;
}

String
endText( int status, unsigned mostSeconds ) {
   if( WIFSIGNALED( status ) && WTERMSIG( status ) == SIGALRM ) {
      return "run: no end: not after " + std::to_string( mostSeconds ) + " s";
   }
   if( WIFSIGNALED( status ) ) {
      return String( "crash: " ) + ::strsignal( WTERMSIG( status ) );
   }
   return WEXITSTATUS( status ) == 0
                ? ""
                : "crash: exit status " + std::to_string( WEXITSTATUS( status ) );
}

} // namespace

Ended
runAlone( Steps const & steps, unsigned mostSeconds ) {
   SharedProgress const progress;
   int pipe[ 2 ];
   if( ::pipe( pipe ) != 0 ) {
      throw Kiv::Exception( "no pipe to the process of a history" );
   }
   auto const child = ::fork();
   if( child == 0 ) {
      ::close( pipe[ 0 ] );
      ::alarm( mostSeconds );
      writeAll( pipe[ 1 ], runHere( steps, *progress ) );
      ::_exit( 0 );
   }
   ::close( pipe[ 1 ] );
   auto findings = linesOf( readAll( pipe[ 0 ] ) );
   ::close( pipe[ 0 ] );
   int status = 0;
   if( child < 0 || ::waitpid( child, &status, 0 ) != child ) {
      throw Kiv::Exception( "no process for a history" );
   }
   if( auto const end = endText( status, mostSeconds ); !end.empty() ) {
      findings.insert( findings.begin(), end );
   }
   Ended ended{ .counts = ( *progress ).counts, .failure = {} };
   if( !findings.empty() ) {
      ended.failure = Failure{ ( *progress ).step, findings };
   }
   return ended;
}

} // namespace Simulation
