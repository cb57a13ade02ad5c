// SPDX-License-Identifier: Apache-2.0
#include "Glim/ReaderFile.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Glim {

namespace {

// The files of the readers of a table.
std::vector< std::string >
pathsOf( std::string const & table ) {
   std::vector< std::string > paths;
   auto const base = pathOf( table ).substr( folder().size() + 1 ) + ".reader.";
   if( auto * const directory = ::opendir( folder().c_str() ) ) {
      while( auto const * entry = ::readdir( directory ) ) {
         if( std::string( entry->d_name ).starts_with( base ) ) {
            paths.push_back( folder() + '/' + entry->d_name );
         }
      }
      ::closedir( directory );
   }
   std::sort( paths.begin(), paths.end() );
   return paths;
}

// Read, not mapped: its owner may cut it off at any time.
bool
read( std::string const & path, ReaderFile::Content & content ) {
   Fd const fd( ::open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK ) );
   bool const whole = fd && ::pread( fd.get(), &content, sizeof content, 0 ) ==
                                  static_cast< ssize_t >( sizeof content );
   content.reader[ sizeof content.reader - 1 ] = 0;
   return whole && content.magic == ReaderFile::magic;
}

// Whether the reader of that file is no more. One that was killed while it wrote the file left only
// its number in the name.
bool
isDead( std::string const & path, std::size_t baseBytes ) {
   ReaderFile::Content content;
   if( read( path, content ) ) {
      return !processRuns( content.pid, content.start );
   }
   auto const pid = std::strtoull( path.c_str() + baseBytes, nullptr, 10 );
   return pid != 0 && pid <= 0x7fffffff && processStart( static_cast< std::uint32_t >( pid ) ) == 0;
}

void
removeDead( std::string const & table ) {
   auto const baseBytes = pathOf( table ).size() + std::strlen( ".reader." );
   for( auto const & path : pathsOf( table ) ) {
      struct stat status {};
      if( ::lstat( path.c_str(), &status ) == 0 && S_ISREG( status.st_mode ) &&
          status.st_uid == ::geteuid() && isDead( path, baseBytes ) ) {
         ::unlink( path.c_str() );
      }
   }
}

} // namespace

ReaderFile::ReaderFile( std::string const & table, std::string const & reader ) {
   static std::atomic< unsigned > number{ 0 };
   removeDead( table );
   Content first;
   first.magic = magic;
   process_ = ::getpid();
   first.pid = static_cast< std::uint32_t >( process_ );
   first.start = processStart( first.pid );
   std::memcpy( first.reader, reader.data(), std::min( reader.size(), sizeof first.reader - 1 ) );
   path_ = pathOf( table ) + ".reader." + std::to_string( first.pid ) + '.' +
           std::to_string( ++number );
   Fd const fd( ::open( path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644 ) );
   if( !fd ||
       ::pwrite( fd.get(), &first, sizeof first, 0 ) != static_cast< ssize_t >( sizeof first ) ) {
      if( !fd ) {
         path_.clear(); // not this reader's
      }
      return;
   }
   try {
      memory_ = Mapping( fd.get(), sizeof first, true, path_.c_str() );
   } catch( Error const & ) {
      // It stays as it is, then.
   }
}

void
ReaderFile::remove() {
   memory_.reset();
   if( !path_.empty() && process_ == ::getpid() ) {
      ::unlink( path_.c_str() );
   }
   path_.clear();
}

void
ReaderFile::cursorIs( std::uint64_t cursor ) {
   if( memory_ ) {
      std::atomic_ref( content()->cursor ).store( cursor, std::memory_order_relaxed );
   }
}

void
ReaderFile::resyncsIs( std::uint64_t resyncs ) {
   if( memory_ ) {
      std::atomic_ref( content()->resyncs ).store( resyncs, std::memory_order_relaxed );
   }
}

std::vector< ReaderFile::Content >
ReaderFile::all( std::string const & table ) {
   std::vector< Content > contents;
   for( auto const & path : pathsOf( table ) ) {
      Content content;
      if( read( path, content ) && processRuns( content.pid, content.start ) ) {
         contents.push_back( content );
      }
   }
   return contents;
}

} // namespace Glim
