// SPDX-License-Identifier: Apache-2.0
#include "Glim/TableWriterCore.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <linux/falloc.h>
#include <linux/futex.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Glim {

using namespace Layout;

namespace {

constexpr std::uint64_t minSlots = 16;
constexpr std::uint64_t minChanges = 64;
constexpr std::uint64_t firstEpoch = 2; // 0 is no region
constexpr std::uint64_t pageBytes = 4096;

std::uint64_t
slotsFor( std::uint64_t rows ) {
   return std::bit_ceil( std::clamp( 2 * rows + 2, minSlots, maxSlots ) );
}

std::uint64_t
nanosecondsNow() {
   timespec now{};
   ::clock_gettime( CLOCK_REALTIME, &now );
   return static_cast< std::uint64_t >( now.tv_sec ) * 1'000'000'000u +
          static_cast< std::uint64_t >( now.tv_nsec );
}

Word *
wordsAt( char * place ) {
   return reinterpret_cast< Word * >( place );
}

bool
sameWords( Word const * a, Word const * b, std::size_t words ) {
   return std::equal( a, a + words, b, []( Word const & x, Word const & y ) {
      return x.load( std::memory_order_relaxed ) == y.load( std::memory_order_relaxed );
   } );
}

void
copyWords( Word const * from, Word * to, std::size_t words ) {
   for( std::size_t i = 0; i != words; ++i ) {
      to[ i ].store( from[ i ].load( std::memory_order_relaxed ), std::memory_order_relaxed );
   }
}

} // namespace

// ---- Beginning and end

TableWriterCore::TableWriterCore( std::string const & table, Schema const & schema,
                                  WriterOptions const & options )
      : table_( table ), what_( "table \"" + table + "\"" ), private_( options.privateMemory ),
        process_( ::getpid() ), keyWords_( wordsOf( schema.keyBytes ) ),
        slotBytes_( slotBytesOf( schema.keyBytes, schema.recordBytes ) ),
        leastSlots_( slotsFor( options.rows ) ) {
   checkName( table_ );
   if( private_ ) {
      bool isNew = false;
      fd_ = PrivateTables::writerIs( table_, isNew );
   } else {
      lock_ = WriterLock( table_ );
   }
   try {
      openFile( schema, options );
   } catch( ... ) {
      if( private_ ) {
         PrivateTables::writerDel( table_, fileBytes( fd_.get() ) == 0 );
      }
      throw;
   }
   open_ = true;
}

TableWriterCore::~TableWriterCore() {
   try {
      close();
   } catch( ... ) {
      // The hook's, or it was cut off: the table is left as that of a writer that died.
      if( private_ ) {
         PrivateTables::writerDel( table_, false );
      }
   }
}

void
TableWriterCore::openFile( Schema const & schema, WriterOptions const & options ) {
   found_ = openExisting( schema, options );
   if( found_ ) {
      tookOver_ = header().state.load() != stateClosed;
      auto const fault = recover();
      if( !fault.empty() ) {
         if( !options.replace ) {
            fail( fault );
         }
         removeFormer();
         found_ = tookOver_ = false;
      }
   }
   if( !found_ ) {
      make( schema, options );
   }
   stays_ = header().stays != 0;
   enter();
}

void
TableWriterCore::enter() {
   auto & h = header();
   auto const pid = static_cast< std::uint32_t >( ::getpid() );
   h.writerPid.store( pid );
   h.writerStart.store( processStart( pid ) );
   h.writers.store( h.writers.load() + 1 );
   rung_ = changes_;
   stateIs( stateOpen );
}

void
TableWriterCore::stateIs( State state ) {
   header().state.store( state, std::memory_order_release );
   ring();
}

void
TableWriterCore::close() {
   if( !open_ ) {
      return;
   }
   if( process_ != ::getpid() ) {
      // A forked process has this object, but the table is that of the one which it came from.
      if( private_ ) {
         PrivateTables::writerDel( table_, true );
      }
      letGo();
      return;
   }
   tell();
   stateIs( stays_ ? stateClosed : stateRemoved );
   if( private_ ) {
      PrivateTables::writerDel( table_, !stays_ );
   } else if( !stays_ ) {
      ::unlink( pathOf( table_ ).c_str() );
      lock_.removeFile();
   }
   letGo();
}

void
TableWriterCore::letGo() {
   open_ = false;
   memory_.reset();
   fd_ = Fd();
   lock_ = WriterLock();
}

void
TableWriterCore::fail( std::string const & text ) const {
   throw Error( what_ + ": " + text );
}

// ---- The file

bool
TableWriterCore::openExisting( Schema const & schema, WriterOptions const & options ) {
   if( private_ ) {
      if( fileBytes( fd_.get() ) == 0 ) {
         return false;
      }
   } else {
      auto const path = pathOf( table_ );
      fd_ = Fd( ::open( path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK ) );
      if( !fd_ && errno == ENOENT ) {
         return false;
      }
      struct stat status {};
      if( !fd_ || ::fstat( fd_.get(), &status ) != 0 ) {
         fail( path + " cannot be opened for writing: " + std::strerror( errno ) );
      }
      if( !S_ISREG( status.st_mode ) || status.st_uid != ::geteuid() ) {
         fail( path + ( S_ISREG( status.st_mode )
                              ? " belongs to user " + std::to_string( status.st_uid )
                              : " is no regular file" ) );
      }
   }
   auto const fault = faultOf( schema );
   bool const removed = fault.empty() && header().state.load() == stateRemoved;
   if( !fault.empty() && !options.replace ) {
      fail( fault );
   }
   if( !fault.empty() || removed ) {
      removeFormer();
      return false;
   }
   return true;
}

std::string
TableWriterCore::faultOf( Schema const & schema ) {
   auto const bytes = fileBytes( fd_.get() );
   if( bytes < sizeof( Header ) ) {
      return "it is cut off: " + std::to_string( bytes ) + " bytes";
   }
   mapAll();
   if( auto fault = headerFault( header(), bytes, &schema ); !fault.empty() ) {
      return fault;
   }
   auto const epochThere = header().epoch.load();
   auto const & region = header().region[ epochThere % 2 ];
   if( epochThere == 0 || region.epoch.load() != epochThere || !isPlace( region, bytes ) ) {
      return "its header is damaged";
   }
   auto const rowBytes = region.slots.load() * slotBytes();
   return isThere( fd_.get(), header().regionsOffset + rowBytes ) ? std::string()
                                                                  : notThere( rowBytes );
}

// Whether the region is where one can be.
bool
TableWriterCore::isPlace( Region const & region, std::uint64_t bytes ) const {
   auto const offset = region.offset.load(), slots = region.slots.load();
   return std::has_single_bit( slots ) && slots >= minSlots && slots <= maxSlots &&
          offset % pageBytes == 0 && offset >= header().regionsOffset && offset <= bytes &&
          slots * slotBytes() <= bytes - offset;
}

// Its readers leave it, as far as they can be told.
void
TableWriterCore::removeFormer() {
   if( memory_ ) {
      stateIs( stateRemoved );
      memory_.reset();
   }
   if( private_ ) {
      // Readers of this process have the memory of the former one open.
      PrivateTables::writerDel( table_, true );
      bool isNew = false;
      fd_ = PrivateTables::writerIs( table_, isNew );
   } else {
      ::unlink( pathOf( table_ ).c_str() );
   }
}

// Nobody sees the file before it is complete.
void
TableWriterCore::make( Schema const & schema, WriterOptions const & options ) {
   auto const changesRoom = std::bit_ceil( std::clamp( options.changes, minChanges, maxChanges ) );
   auto const path = pathOf( table_ ), making = path + ".new";
   if( !private_ ) {
      ::unlink( making.c_str() );
      fd_ = Fd(
            ::open( making.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644 ) );
      if( !fd_ ) {
         fail( making + " cannot be made: " + std::strerror( errno ) );
      }
      ::fchmod( fd_.get(), 0644 );
   }
   try {
      auto const first = fixedBytes( schema.keyBytes, schema.recordBytes, changesRoom );
      reserve( 0, first + leastSlots_ * slotBytes() );
      mapAll();
      fillHeader( header(), table_, schema, changesRoom, options.lifetime == Lifetime::stays );
      regionIs( firstEpoch, first, leastSlots_ );
      header().magic.store( magic, std::memory_order_release );
      mapAll(); // now that the header says where everything is
      viewIs( firstEpoch );
      if( !private_ && ::rename( making.c_str(), path.c_str() ) != 0 ) {
         fail( path + " cannot be made: " + std::strerror( errno ) );
      }
   } catch( ... ) {
      if( !private_ ) {
         ::unlink( making.c_str() );
      }
      throw;
   }
}

// Memory that is not there would end the process when it is written. What cannot be had is not tried:
// the system would take all that there is, page by page, before it says so.
void
TableWriterCore::reserve( std::uint64_t offset, std::uint64_t bytes ) {
   struct statvfs room {};
   bool const isBounded = ::fstatvfs( fd_.get(), &room ) == 0 && room.f_blocks != 0;
   int error = isBounded && bytes / room.f_frsize > room.f_bavail ? ENOSPC : EINTR;
   while( error == EINTR ) {
      error = ::posix_fallocate( fd_.get(), static_cast< off_t >( offset ),
                                 static_cast< off_t >( bytes ) );
   }
   if( error ) {
      fail( "no memory for " + std::to_string( bytes ) + " bytes more: " + std::strerror( error ) );
   }
}

void
TableWriterCore::mapAll() {
   memory_ = Mapping( fd_.get(), fileBytes( fd_.get() ), true, what_.c_str() );
   auto & h = header();
   if( headerFault( h, memory_.bytes(), nullptr ).empty() ) {
      journal_ = reinterpret_cast< Journal * >( memory_.data() + h.headerBytes );
      ring_ = memory_.data() + h.changesOffset;
      ringMask_ = h.changes - 1;
      seed_ = h.seed;
   }
}

// ---- After a writer that died

std::string
TableWriterCore::recover() {
   viewIs( header().epoch.load() );
   dropFormer(); // and what was to become a region
   changes_ = header().changeHead.load();
   // Who died while he announced a change has spoiled the place of an older one. It stays reserved, so
   // that readers who have yet to be told that one know that it is lost.
   if( header().changeReserved.load() - changes_ > 1 ) {
      return "its header is damaged: it has reserved change " +
             std::to_string( header().changeReserved.load() ) + " behind " +
             std::to_string( changes_ );
   }
   completeChange();
   return countRows() ? std::string() : "its rows are damaged";
}

void
TableWriterCore::completeChange() {
   auto & entry = journal();
   auto const sequence = entry.sequence.load();
   if( sequence & 1 ) {
      // It died before it touched the slot.
      entry.operation.store( operationNone );
      entry.sequence.store( sequence + 1, std::memory_order_release );
      return;
   }
   auto const operation = entry.operation.load();
   auto const index = entry.slot.load();
   if( operation == operationNone || operation > operationDel || entry.epoch.load() != epoch_ ||
       index >= slots_ ) {
      return;
   }
   auto * const content = reinterpret_cast< Word * >( &entry + 1 );
   auto * const slot = slotAt( index, slotBytes() );
   auto const words = keyWords_ + wordsOf( header().recordBytes );
   auto const word = slot->load();
   bool const put = operation == operationPut;
   bool const done = !( word & writing ) &&
                     ( word & live ? put && sameWords( slot + 1, content, words ) : !put );
   if( !done ) {
      slot->store( word | writing, std::memory_order_release );
      std::atomic_thread_fence( std::memory_order_release );
      if( put ) {
         copyWords( content, slot + 1, words );
      }
      slot->store( ( ( word & ~( writing | live ) ) | ( put ? live : 0 ) ) + oneVersion,
                   std::memory_order_release );
   }
   if( entry.change.load() == changes_ ) {
      auto const change = beginChange();
      copyWords( content, changeAt( change, 8 * keyWords_ ), keyWords_ );
      endChange( change );
   }
}

// Whether every row is whole, and found where it is.
bool
TableWriterCore::countRows() {
   std::uint64_t rowsThere = 0;
   bool sound = true;
   for( std::uint64_t i = 0; i != slots_ && sound; ++i ) {
      auto const * const slot = slotAt( i, slotBytes() );
      auto const word = slot->load( std::memory_order_relaxed );
      sound = !( word & writing );
      if( word & live ) {
         ++rowsThere;
         auto const home = homeOf( slot, shift_ );
         auto const search = searchOf( slotAt( home, slotBytes() )->load(), slots_ );
         sound = sound && ( ( i - home ) & ( slots_ - 1 ) ) < search;
      }
   }
   rowsIs( rowsThere );
   return sound && rowsThere != slots_;
}

void
TableWriterCore::checkNotLost() const {
   // What is left of a page that was cut is zero.
   if( memory_.lost() || header().magic.load( std::memory_order_relaxed ) != magic ||
       fileBytes( fd_.get() ) < memory_.bytes() ) {
      fail( "it was cut off while it was written" );
   }
}

// ---- Regions

void
TableWriterCore::regionIs( std::uint64_t epoch, std::uint64_t offset, std::uint64_t slots ) {
   auto & region = header().region[ epoch % 2 ];
   region.epoch.store( 0, std::memory_order_relaxed );
   std::atomic_thread_fence( std::memory_order_release );
   region.offset.store( offset, std::memory_order_relaxed );
   region.slots.store( slots, std::memory_order_relaxed );
   region.epoch.store( epoch, std::memory_order_release );
   header().epoch.store( epoch, std::memory_order_release );
}

void
TableWriterCore::viewIs( std::uint64_t epoch ) {
   auto const & region = header().region[ epoch % 2 ];
   epoch_ = epoch;
   region_ = memory_.data() + region.offset.load();
   slots_ = region.slots.load();
   shift_ = static_cast< unsigned >( 64 - std::countr_zero( slots_ ) );
   fullAt_ = slots_ / 2;
}

bool
TableWriterCore::makeRoom() {
   checkNotLost();
   auto const most = slots_ / 8 * 7;
   try {
      rebuild( 2 * slots_ );
   } catch( Error const & ) {
      if( rows_ >= most ) {
         throw;
      }
      fullAt_ = std::min( rows_ + slots_ / 16, most ); // to try for every row would take long
      return false;
   }
   return true;
}

// From a sixteenth to a quarter, and it grows at a half: no table goes up and down.
void
TableWriterCore::shrink() {
   if( slots_ > leastSlots_ && rows_ < slots_ / 16 ) {
      checkNotLost();
      try {
         rebuild( std::max( leastSlots_, std::bit_ceil( 4 * rows_ ) ) );
      } catch( Error const & ) {
         // There is not even memory for that: it stays as it is.
      }
   }
}

void
TableWriterCore::rebuild( std::uint64_t slots ) {
   if( slots > maxSlots ) {
      fail( "it has as many rows as a table can have" );
   }
   auto const offset = placeFor( roundUp( slots * slotBytes(), pageBytes ) );
   copyRows( memory_.data() + offset, slots );
   regionIs( epoch_ + 1, offset, slots );
   viewIs( epoch_ + 1 );
   dropFormer();
}

// Before the present region, if there is room, or behind it.
std::uint64_t
TableWriterCore::placeFor( std::uint64_t bytes ) {
   auto const first = header().regionsOffset;
   auto const mine = header().region[ epoch_ % 2 ].offset.load();
   auto const offset =
         mine - first >= bytes ? first : roundUp( mine + slots_ * slotBytes(), pageBytes );
   auto const endThere = fileBytes( fd_.get() );
   reserve( offset, bytes );
   if( endThere < offset + bytes ) {
      mapAll();
      viewIs( epoch_ );
   }
   // Who died while he moved rows has left some there, unless the system took them back.
   if( offset < endThere ) {
      auto * const words = wordsAt( memory_.data() + offset );
      for( std::uint64_t i = 0; i != std::min( bytes, endThere - offset ) / 8; ++i ) {
         words[ i ].store( 0, std::memory_order_relaxed );
      }
   }
   return offset;
}

// Whoever still walks there learns that it is no more, before its memory goes.
void
TableWriterCore::dropFormer() {
   auto & former = header().region[ ( epoch_ + 1 ) % 2 ];
   former.epoch.store( 0, std::memory_order_relaxed );
   std::atomic_thread_fence( std::memory_order_seq_cst );
   former.offset.store( 0, std::memory_order_relaxed );
   former.slots.store( 0, std::memory_order_relaxed );
   auto const mine = header().region[ epoch_ % 2 ].offset.load();
   giveBack( header().regionsOffset, mine );
   giveBack( roundUp( mine + slots_ * slotBytes(), pageBytes ), fileBytes( fd_.get() ) );
}

// A system that refuses keeps it for this file.
void
TableWriterCore::giveBack( std::uint64_t begin, std::uint64_t end ) {
   if( begin < end ) {
      ::fallocate( fd_.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                   static_cast< off_t >( begin ), static_cast< off_t >( end - begin ) );
   }
}

std::uint64_t
TableWriterCore::homeOf( Word const * slot, unsigned shift ) const {
   std::array< std::uint64_t, wordsOf( maxKeyBytes ) > key;
   for( std::size_t k = 0; k != keyWords_; ++k ) {
      key[ k ] = slot[ 1 + k ].load( std::memory_order_relaxed );
   }
   return hashOf( seed_, key.data(), keyWords_ ) >> shift;
}

void
TableWriterCore::copyRows( char * to, std::uint64_t slots ) const {
   auto const words = slotBytes() / 8;
   auto const shift = static_cast< unsigned >( 64 - std::countr_zero( slots ) );
   for( std::uint64_t i = 0; i != slots_; ++i ) {
      auto const * const from = slotAt( i, slotBytes() );
      if( !( from->load( std::memory_order_relaxed ) & live ) ) {
         continue;
      }
      auto const home = homeOf( from, shift );
      auto const wordOf = [ & ]( std::uint64_t distance ) {
         return wordsAt( to + ( ( home + distance ) & ( slots - 1 ) ) * slotBytes() );
      };
      std::uint64_t distance = 0;
      while( wordOf( distance )->load( std::memory_order_relaxed ) & live ) {
         ++distance;
      }
      auto * const first = wordOf( 0 );
      auto * const slot = wordOf( distance );
      copyWords( from + 1, slot + 1, words - 1 );
      slot->store( slot->load( std::memory_order_relaxed ) + oneVersion + live,
                   std::memory_order_relaxed );
      auto const word = first->load( std::memory_order_relaxed );
      if( distance > reachOf( word ) ) {
         first->store( withReach( word, distance ), std::memory_order_relaxed );
      }
   }
}

// ---- Telling readers

void
TableWriterCore::commit() {
   if( tell() ) {
      shrink();
   }
}

bool
TableWriterCore::tell() {
   if( changes_ == rung_ ) {
      return false;
   }
   if( memory_.lost() || header().magic.load( std::memory_order_relaxed ) != magic ) {
      checkNotLost();
   }
   if( commitHook_ ) {
      commitHook_();
   }
   rung_ = changes_;
   header().committed.store( nanosecondsNow(), std::memory_order_relaxed );
   ring();
   return true;
}

void
TableWriterCore::quiescedIs( bool quiesced ) {
   if( quiesced != this->quiesced() ) {
      stateIs( quiesced ? stateQuiesced : stateOpen );
   }
}

bool
TableWriterCore::quiesced() const {
   return header().state.load( std::memory_order_relaxed ) == stateQuiesced;
}

// Whether anybody sleeps is not for the writer to know: nothing that a reader writes reaches it.
void
TableWriterCore::ring() {
   auto & bell = header().bell;
   bell.store( bell.load( std::memory_order_relaxed ) + 1, std::memory_order_release );
   ::syscall( SYS_futex, &bell, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0 );
}

} // namespace Glim
