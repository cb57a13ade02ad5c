// SPDX-License-Identifier: Apache-2.0
#include "Glim/TableView.h"

#include <bit>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

namespace Glim {

using namespace Layout;

namespace {

constexpr unsigned maxWalks = 64;
constexpr unsigned maxLooks = 10'000;
// How often a slot that is being written is tried again: one, and all of a walk together.
constexpr std::uint64_t maxTries = 100'000;
constexpr std::uint64_t maxTriesOfAll = 5'000'000;

void
copyWords( Word const * from, std::uint64_t * to, std::size_t words ) {
   for( std::size_t i = 0; i != words; ++i ) {
      to[ i ] = from[ i ].load( std::memory_order_relaxed );
   }
}

std::string
cutOff( std::uint64_t bytes, std::uint64_t needed ) {
   return "it is cut off: " + std::to_string( bytes ) + " bytes, of " + std::to_string( needed ) +
          " at least";
}

} // namespace

TableView::TableView( std::string const & table ) : table_( table ) {
   checkName( table );
   try {
      open( table );
      if( fault_.empty() ) {
         fault_ = look();
      }
   } catch( Error const & error ) {
      fault_ = error.what(); // the system's refusal
   }
   if( fd_ || !fault_.empty() ) {
      return;
   }
   throw Error( "there is no table \"" + table + "\"" );
}

void
TableView::open( std::string const & table ) {
   auto const path = pathOf( table );
   fd_ = Fd( ::open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK ) );
   int const error = errno;
   if( ( fd_ ? ::fstat( fd_.get(), &status_ ) : ::lstat( path.c_str(), &status_ ) ) != 0 ) {
      fd_ = Fd(); // gone by now
   } else if( !S_ISREG( status_.st_mode ) ) {
      fault_ = "it is no regular file";
   } else if( !fd_ && error != ENOENT ) {
      fault_ = std::string( "it cannot be opened: " ) + std::strerror( error );
   }
}

std::string
TableView::look() {
   if( !fd_ ) {
      return {};
   }
   auto const bytes = static_cast< std::uint64_t >( status_.st_size );
   if( bytes < sizeof( Header ) ) {
      return cutOff( bytes, sizeof( Header ) );
   }
   memory_ = Mapping( fd_.get(), bytes, false, "the table" );
   copyHeader();
   if( auto fault = headerFault( copy_, bytes, nullptr ); !fault.empty() ) {
      return fault;
   }
   if( copy_.state.load() > stateRemoved ) {
      return "its header is damaged: it is in state " + std::to_string( copy_.state.load() );
   }
   return findRegion();
}

// Word by word: its writer may be at it.
void
TableView::copyHeader() {
   static_assert( sizeof( Header ) % 8 == 0 );
   std::vector< std::uint64_t > words( sizeof( Header ) / 8 );
   copyWords( reinterpret_cast< Word const * >( memory_.data() ), words.data(), words.size() );
   std::memcpy( static_cast< void * >( &copy_ ), words.data(), sizeof( Header ) );
}

std::string
TableView::findRegion() {
   for( unsigned looks = 0; looks != maxLooks; ++looks ) {
      auto const epoch = headerNow().epoch.load( std::memory_order_acquire );
      auto const & region = headerNow().region[ epoch % 2 ];
      Region const found{ epoch, region.offset.load( std::memory_order_relaxed ),
                          region.slots.load( std::memory_order_relaxed ) };
      std::atomic_thread_fence( std::memory_order_acquire );
      if( epoch == 0 || region.epoch.load( std::memory_order_relaxed ) != epoch ||
          headerNow().epoch.load( std::memory_order_relaxed ) != epoch ) {
         ::sched_yield(); // the rows are moving
         continue;
      }
      if( !std::has_single_bit( found.slots ) || found.slots > maxSlots || found.offset % 8 != 0 ||
          found.offset < copy_.regionsOffset || found.offset > maxSlots * maxRecordBytes ) {
         return "its header is damaged: there are no rows where it says";
      }
      auto const end = found.offset + found.slots * copy_.slotBytes;
      if( end > memory_.bytes() ) {
         ::fstat( fd_.get(), &status_ );
         auto const bytes = static_cast< std::uint64_t >( status_.st_size );
         if( end > bytes ) {
            return cutOff( bytes, end );
         }
         memory_ = Mapping( fd_.get(), bytes, false, "the table" );
      }
      auto const rowBytes = found.slots * copy_.slotBytes;
      if( !isThere( fd_.get(), copy_.regionsOffset + rowBytes ) ) {
         if( headerNow().epoch.load( std::memory_order_acquire ) != epoch ) {
            continue; // given back just now
         }
         return notThere( rowBytes );
      }
      region_ = found;
      return {};
   }
   return "its header is damaged: its rows are nowhere";
}

void
TableView::fail( std::string const & fault ) {
   fault_ = fault;
   throw Error( "table \"" + table_ + "\": " + fault );
}

bool
TableView::stillThere() const {
   std::atomic_thread_fence( std::memory_order_acquire );
   return headerNow().region[ region_.epoch % 2 ].epoch.load( std::memory_order_relaxed ) ==
          region_.epoch;
}

TableView::Rows
TableView::rows( bool wantWords ) {
   for( unsigned walks = 0; walks != maxWalks; ++walks ) {
      Rows found;
      auto fault = findRegion();
      bool const whole = fault.empty() && walk( wantWords, found );
      if( memory_.lost() ) {
         fault = "it was cut off while it was read";
      }
      if( !fault.empty() ) {
         fail( fault );
      }
      if( whole ) {
         return found;
      }
   }
   fail( "its rows move faster than they can be read" );
}

bool
TableView::walk( bool wantWords, Rows & rows ) {
   std::vector< std::uint64_t > row( keyWords() + recordWords() );
   std::uint64_t triesOfAll = 0;
   for( std::uint64_t i = 0; i != region_.slots; ++i ) {
      auto copied = copySlot( i, row.data() );
      for( std::uint64_t tries = 0; copied == Copied::again && tries != maxTries &&
                                    triesOfAll != maxTriesOfAll && stillThere();
           ++tries, ++triesOfAll ) {
         if( tries % 100 == 99 ) {
            ::sched_yield();
         }
         copied = copySlot( i, row.data() );
      }
      if( !stillThere() ) {
         return false;
      }
      rows.count += copied == Copied::row;
      rows.unreadable += copied == Copied::again;
      if( copied == Copied::row && wantWords ) {
         rows.words.insert( rows.words.end(), row.begin(), row.end() );
      }
   }
   return stillThere();
}

TableView::Copied
TableView::copySlot( std::uint64_t index, std::uint64_t * row ) const {
   auto const * const slot = reinterpret_cast< Word const * >( memory_.data() + region_.offset +
                                                               index * copy_.slotBytes );
   auto const word = slot->load( std::memory_order_acquire );
   if( word & writing ) {
      return copyJournal( slot, word, index, row );
   }
   if( !( word & live ) ) {
      return Copied::none;
   }
   copyWords( slot + 1, row, keyWords() + recordWords() );
   std::atomic_thread_fence( std::memory_order_acquire );
   return slot->load( std::memory_order_relaxed ) == word ? Copied::row : Copied::again;
}

// What the slot will have when the change that is under way is done: its writer may be dead.
TableView::Copied
TableView::copyJournal( Word const * slot, std::uint64_t word, std::uint64_t index,
                        std::uint64_t * row ) const {
   auto const & entry = *reinterpret_cast< Journal const * >( memory_.data() + copy_.headerBytes );
   auto const sequence = entry.sequence.load( std::memory_order_acquire );
   bool const ours = !( sequence & 1 ) && entry.slot.load( std::memory_order_relaxed ) == index &&
                     entry.epoch.load( std::memory_order_relaxed ) == region_.epoch;
   auto const operation = entry.operation.load( std::memory_order_relaxed );
   copyWords( reinterpret_cast< Word const * >( &entry + 1 ), row, keyWords() + recordWords() );
   std::atomic_thread_fence( std::memory_order_acquire );
   if( !ours || entry.sequence.load( std::memory_order_relaxed ) != sequence ||
       slot->load( std::memory_order_relaxed ) != word ) {
      return Copied::again;
   }
   return operation == operationPut ? Copied::row : Copied::none;
}

} // namespace Glim
