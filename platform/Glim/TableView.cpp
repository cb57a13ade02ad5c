// SPDX-License-Identifier: Apache-2.0
#include "Glim/TableView.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

namespace Glim {

using namespace Layout;

namespace {

constexpr unsigned maxWalks = 64;
// How often a slot that is being written is tried again: one, and all of a walk together. A writer that
// is interrupted in a slot has left the journal whole, so it is for those that run at this moment.
constexpr std::uint64_t maxTries = 10'000;
constexpr std::uint64_t maxTriesOfAll = 100'000;

void
copyWords( Word const * from, std::uint64_t * to, std::size_t words ) {
   for( std::size_t i = 0; i != words; ++i ) {
      to[ i ] = from[ i ].load( std::memory_order_relaxed );
   }
}

} // namespace

TableView::TableView( std::string const & table ) : TableReaderCore( table ) {
   try {
      openAny();
      if( fd_ ) {
         look();
      }
   } catch( Error const & error ) {
      faultIs( error );
      return;
   }
   if( !fd_ ) {
      throw Error( "there is no table \"" + table + "\"" );
   }
}

// Without the name of the table, which stands before it.
void
TableView::faultIs( Error const & error ) {
   std::string_view const text = error.what();
   auto const name = what() + ": ";
   fault_ = text.substr( text.starts_with( name ) ? name.size() : 0 );
}

void
TableView::openAny() {
   auto const path = pathOf( table() );
   fd_ = Fd( ::open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK ) );
   int const error = errno;
   if( ( fd_ ? ::fstat( fd_.get(), &status_ ) : ::lstat( path.c_str(), &status_ ) ) != 0 ) {
      fd_ = Fd(); // gone by now
   } else if( !S_ISREG( status_.st_mode ) ) {
      fail( "it is no regular file" );
   } else if( !fd_ && error != ENOENT ) {
      fail( std::string( "it cannot be opened: " ) + std::strerror( error ) );
   }
}

void
TableView::look() {
   map( sizeof( Header ) );
   // Word by word: its writer may be at it.
   static_assert( sizeof( Header ) % 8 == 0 );
   std::vector< std::uint64_t > words( sizeof( Header ) / 8 );
   copyWords( &headerNow().magic, words.data(), words.size() );
   std::memcpy( static_cast< void * >( &copy_ ), words.data(), sizeof( Header ) );
   auto const bytes = static_cast< std::uint64_t >( status_.st_size );
   if( auto const fault = headerFault( copy_, bytes, nullptr ); !fault.empty() ) {
      fail( fault );
   }
   if( copy_.state.load() > stateRemoved ) {
      fail( "its header is damaged: it is in state " + std::to_string( copy_.state.load() ) );
   }
   begin( copy_, bytes );
   checkThere();
}

// Looking at rows where there is no memory would use it up.
void
TableView::checkThere() {
   auto const rowBytes = slots() * copy_.slotBytes;
   if( !isThere( fd_.get(), copy_.regionsOffset + rowBytes ) && !moved() ) {
      fail( notThere( rowBytes ) );
   }
}

TableView::Rows
TableView::rows( bool wantWords ) {
   try {
      return walk( wantWords );
   } catch( Error const & error ) {
      faultIs( error );
      throw;
   }
}

TableView::Rows
TableView::walk( bool wantWords ) {
   Rows rows;
   std::vector< std::uint64_t > row( keyWords() + recordWords() );
   std::uint64_t triesLeft = 0;
   unsigned walks = 0;
   for( auto walk = beginWalk(); goOn( walk ); ) {
      if( walk.index == 0 ) { // of the region, which may be another one by now
         if( ++walks == maxWalks ) {
            fail( "its rows move faster than they can be read" );
         }
         checkThere();
         rows = {};
         triesLeft = maxTriesOfAll;
      }
      auto const copied = copy( walk, row, triesLeft );
      if( stillThere( walk ) ) {
         rows.count += copied == Copied::row;
         rows.unreadable += copied == Copied::again;
         if( copied == Copied::row && wantWords ) {
            rows.words.insert( rows.words.end(), row.begin(), row.end() );
         }
      }
   }
   return rows;
}

TableView::Copied
TableView::copy( Walk const & walk, std::vector< std::uint64_t > & row,
                 std::uint64_t & triesLeft ) {
   auto const load = [ & ]( Word const * words ) { copyWords( words, row.data(), row.size() ); };
   for( std::uint64_t tries = 1;; ++tries ) {
      auto const copied = copyOnce( walk.slot, walk.index, walk.epoch, load );
      if( copied != Copied::again || tries == maxTries || triesLeft == 0 || !stillThere( walk ) ) {
         return copied;
      }
      --triesLeft;
      if( tries % 100 == 0 ) {
         ::sched_yield();
      }
   }
}

} // namespace Glim
