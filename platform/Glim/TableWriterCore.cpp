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
        slotBytes_( slotBytesOf( schema.keyBytes, schema.recordBytes ) ) {
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
   commit();
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
   auto const slotsRoom = std::bit_ceil( std::clamp( 2 * options.rows + 2, minSlots, maxSlots ) );
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
      reserve( 0, first + slotsRoom * slotBytes() );
      mapAll();
      fillHeader( header(), table_, schema, changesRoom, options.lifetime == Lifetime::stays );
      regionIs( firstEpoch, first, slotsRoom );
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
   forgetUnusable();
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

// The memory of the former region is used again, if that is what it is. Who died while using it
// left it without an epoch.
void
TableWriterCore::forgetUnusable() {
   auto & former = header().region[ ( epoch_ + 1 ) % 2 ];
   auto const begin = former.offset.load();
   auto const end = begin + former.slots.load() * slotBytes();
   auto const mine = header().region[ epoch_ % 2 ].offset.load();
   bool const apart = end <= mine || begin >= mine + slots_ * slotBytes();
   if( !isPlace( former, memory_.bytes() ) || !apart ) {
      former.epoch.store( 0 );
      former.offset.store( 0 );
      former.slots.store( 0 );
   }
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

bool
TableWriterCore::countRows() {
   std::uint64_t rowsThere = 0, usedThere = 0;
   bool damaged = false;
   for( std::uint64_t i = 0; i != slots_; ++i ) {
      auto const word = slotAt( i, slotBytes() )->load( std::memory_order_relaxed );
      rowsThere += ( word & live ) != 0;
      usedThere += word != 0;
      damaged = damaged || ( word & writing );
   }
   rowsIs( rowsThere );
   usedIs( usedThere );
   return !damaged && usedThere != slots_;
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
   // Twice as many slots, unless it is deleted rows that take the room.
   auto const wanted = rows_ * 4 >= slots_ ? slots_ * 2 : slots_;
   auto const most = slots_ / 8 * 7;
   std::uint64_t offset = 0;
   try {
      offset = placeFor( wanted );
   } catch( Error const & ) {
      if( used_ >= most ) {
         throw;
      }
      fullAt_ = std::min( used_ + slots_ / 16, most ); // to try for every row would take long
      return false;
   }
   copyRows( memory_.data() + offset, wanted );
   auto const former = header().region[ ( epoch_ + 1 ) % 2 ].offset.load();
   auto const formerBytes = header().region[ ( epoch_ + 1 ) % 2 ].slots.load() * slotBytes();
   regionIs( epoch_ + 1, offset, wanted );
   viewIs( epoch_ + 1 );
   usedIs( rows_ );
   if( former != 0 && former != offset ) {
      giveBack( former, formerBytes );
   }
   return true;
}

std::uint64_t
TableWriterCore::placeFor( std::uint64_t slots ) {
   if( slots > maxSlots ) {
      fail( "it has as many rows as a table can have" );
   }
   auto const bytes = roundUp( slots * slotBytes(), pageBytes );
   auto & former = header().region[ ( epoch_ + 1 ) % 2 ];
   auto const offset = former.offset.load();
   if( offset != 0 && roundUp( former.slots.load() * slotBytes(), pageBytes ) >= bytes ) {
      // Whoever still walks there learns that it is no more, before it becomes something else. Not a
      // byte of it is given away: it might not be had again.
      former.epoch.store( 0, std::memory_order_relaxed );
      std::atomic_thread_fence( std::memory_order_seq_cst );
      clear( offset, bytes );
      return offset;
   }
   auto const end = roundUp( fileBytes( fd_.get() ), pageBytes );
   reserve( end, bytes );
   mapAll();
   viewIs( epoch_ );
   return end;
}

void
TableWriterCore::clear( std::uint64_t offset, std::uint64_t bytes ) {
   auto * const words = wordsAt( memory_.data() + offset );
   for( std::uint64_t i = 0; i != bytes / 8; ++i ) {
      words[ i ].store( 0, std::memory_order_relaxed );
   }
}

void
TableWriterCore::giveBack( std::uint64_t offset, std::uint64_t bytes ) {
   // A system that refuses keeps it for this file.
   ::fallocate( fd_.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                static_cast< off_t >( offset ), static_cast< off_t >( bytes ) );
}

void
TableWriterCore::copyRows( char * to, std::uint64_t slots ) const {
   auto const words = slotBytes() / 8;
   auto const shift = static_cast< unsigned >( 64 - std::countr_zero( slots ) );
   std::array< std::uint64_t, wordsOf( maxKeyBytes ) > key;
   for( std::uint64_t i = 0; i != slots_; ++i ) {
      auto const * const from = slotAt( i, slotBytes() );
      if( !( from->load( std::memory_order_relaxed ) & live ) ) {
         continue;
      }
      for( std::size_t k = 0; k != keyWords_; ++k ) {
         key[ k ] = from[ 1 + k ].load( std::memory_order_relaxed );
      }
      auto place = hashOf( seed_, key.data(), keyWords_ ) >> shift;
      while( wordsAt( to + place * slotBytes() )->load( std::memory_order_relaxed ) != 0 ) {
         place = ( place + 1 ) & ( slots - 1 );
      }
      auto * const slot = wordsAt( to + place * slotBytes() );
      copyWords( from + 1, slot + 1, words - 1 );
      slot->store( live + oneVersion, std::memory_order_relaxed );
   }
}

// ---- Telling readers

void
TableWriterCore::commit() {
   if( changes_ == rung_ ) {
      return;
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
