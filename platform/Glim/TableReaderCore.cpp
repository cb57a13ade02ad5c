// SPDX-License-Identifier: Apache-2.0
#include "Glim/TableReaderCore.h"

#include <bit>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Glim {

using namespace Layout;

namespace {

// Far more often than a living writer can get in the way.
constexpr std::uint64_t maxRetries = 1'000'000;
constexpr unsigned maxRefreshes = 100'000;

} // namespace

TableReaderCore::TableReaderCore( std::string const & table, Schema const & schema,
                                  ReaderOptions const & options )
      : table_( table ), what_( "table \"" + table + "\"" ), schema_( schema ),
        options_( options ) {
   checkName( table_ );
}

TableReaderCore::TableReaderCore( std::string const & table )
      : table_( table ), what_( "table \"" + table + "\"" ) {
   checkName( table_ );
}

TableReaderCore::~TableReaderCore() { detach(); }

void
TableReaderCore::fail( std::string const & text ) {
   detach();
   throw Error( what_ + ": " + text );
}

// ---- Coming and going

Fd
TableReaderCore::open() const {
   return options_.privateMemory ? PrivateTables::open( table_ ) : openForReading( table_ );
}

bool
TableReaderCore::attach() {
   if( attached() ) {
      return true;
   }
   fd_ = open();
   if( !fd_ ) {
      return false;
   }
   auto const bytes = fileBytes( fd_.get() );
   if( options_.privateMemory && bytes < sizeof( Header ) ) {
      fd_ = Fd(); // its writer is just making it
      return false;
   }
   map( sizeof( Header ) );
   if( options_.privateMemory && header().magic.load( std::memory_order_acquire ) == 0 ) {
      detach(); // likewise
      return false;
   }
   if( auto const fault = headerFault( header(), bytes, &*schema_ ); !fault.empty() ) {
      fail( fault );
   }
   if( header().state.load( std::memory_order_acquire ) == stateRemoved ) {
      detach();
      return false;
   }
   begin( header(), bytes );
   cursor_ = header().changeHead.load( std::memory_order_acquire );
   fresh_ = true;
   if( !options_.privateMemory ) {
      file_ = ReaderFile( table_, options_.reader );
      file_.cursorIs( cursor_ );
   }
   return true;
}

void
TableReaderCore::begin( Header const & header, std::uint64_t bytes ) {
   seed_ = header.seed;
   journalOffset_ = header.headerBytes;
   ringOffset_ = header.changesOffset;
   ringMask_ = header.changes - 1;
   regionsOffset_ = header.regionsOffset;
   slotBytes_ = header.slotBytes;
   map( bytes );
   refresh();
}

void
TableReaderCore::detach() {
   file_.remove();
   memory_.reset();
   fd_ = Fd();
   slots_ = 1;
}

void
TableReaderCore::map( std::uint64_t bytes ) {
   try {
      memory_ = Mapping( fd_.get(), bytes, false, what_.c_str() );
   } catch( ... ) {
      detach();
      throw;
   }
}

// ---- Where the rows are

void
TableReaderCore::refresh() {
   for( unsigned tries = 0; tries != maxRefreshes; ++tries ) {
      if( readRegion( epochNow() ) ) {
         return;
      }
      checkNotLost();
   }
   fail( "its header is damaged: its rows are nowhere" );
}

// Whether the region of that epoch was there to be read.
bool
TableReaderCore::readRegion( std::uint64_t epoch ) {
   auto const & region = header().region[ epoch % 2 ];
   auto const offset = region.offset.load( std::memory_order_relaxed );
   auto const slots = region.slots.load( std::memory_order_relaxed );
   std::atomic_thread_fence( std::memory_order_acquire );
   if( epoch == 0 || region.epoch.load( std::memory_order_relaxed ) != epoch ||
       epochNow() != epoch ) {
      return false;
   }
   if( !std::has_single_bit( slots ) || slots < 2 || slots > maxSlots || offset % 8 != 0 ||
       offset < regionsOffset_ || offset > maxSlots * maxRecordBytes ) {
      checkNotLost();
      fail( "its header is damaged: there are no rows where it says" );
   }
   if( auto const end = offset + slots * slotBytes_; end > memory_.bytes() ) {
      map( std::max( end, fileBytes( fd_.get() ) ) ); // which fails when the file is shorter
   }
   epoch_ = epoch;
   regionOffset_ = offset;
   slots_ = slots;
   shift_ = static_cast< unsigned >( 64 - std::countr_zero( slots ) );
   return true;
}

void
TableReaderCore::checkNotLost() {
   if( memory_.lost() ) {
      fail( "it was cut off while it was read" );
   }
}

void
TableReaderCore::retry( std::uint64_t & tries ) {
   checkNotLost();
   if( ++tries == maxRetries ) {
      fail( "its rows are damaged" );
   }
}

TableReaderCore::Walk
TableReaderCore::beginWalk() {
   if( epochNow() != epoch_ ) {
      refresh();
   }
   return { epoch_, regionOffset_, slots_, 0, 0, nullptr };
}

bool
TableReaderCore::goOn( Walk & walk ) {
   if( !attached() ) {
      return false;
   }
   if( !stillThere( walk ) ) {
      refresh();
      walk = beginWalk();
   }
   if( walk.next == walk.slots ) {
      checkNotLost();
      return false;
   }
   walk.index = walk.next++;
   walk.slot = reinterpret_cast< Word * >( memory_.data() + walk.offset + walk.index * slotBytes_ );
   return true;
}

// ---- What changed

Poll
TableReaderCore::beginPoll() {
   if( !attached() ) {
      return Poll::nothing;
   }
   checkNotLost();
   if( header().magic.load( std::memory_order_relaxed ) != magic ) {
      fail( "it was cut off while it was read" ); // what is left of its first page is zero
   }
   if( header().state.load( std::memory_order_acquire ) == stateRemoved ) {
      detach();
      return Poll::gone;
   }
   return fresh_ ? resynchronise() : Poll::nothing;
}

Poll
TableReaderCore::resynchronise() {
   cursor_ = header().changeHead.load( std::memory_order_acquire );
   resyncs_ += fresh_ ? 0 : 1;
   fresh_ = false;
   file_.cursorIs( cursor_ );
   file_.resyncsIs( resyncs_ );
   return Poll::resynchronise;
}

bool
TableReaderCore::takeChanges( std::uint64_t count ) {
   std::atomic_thread_fence( std::memory_order_acquire );
   if( header().changeReserved.load( std::memory_order_relaxed ) - cursor_ > ringMask_ + 1 ) {
      return false;
   }
   cursor_ += count;
   file_.cursorIs( cursor_ );
   return true;
}

std::uint64_t
TableReaderCore::rows() const {
   return attached() ? header().rows.load( std::memory_order_relaxed ) : 0;
}

bool
TableReaderCore::quiesced() const {
   return attached() && header().state.load( std::memory_order_acquire ) == stateQuiesced;
}

bool
TableReaderCore::written() const {
   if( !attached() ) {
      return false;
   }
   auto const state = header().state.load( std::memory_order_acquire );
   return ( state == stateOpen || state == stateQuiesced ) &&
          processRuns( header().writerPid.load(), header().writerStart.load() );
}

bool
TableReaderCore::somethingToTell() const {
   return attached() && ( fresh_ || waiting() != 0 ||
                          header().state.load( std::memory_order_acquire ) == stateRemoved );
}

bool
TableReaderCore::wait( Kiv::Seconds atMost ) {
   if( !attached() ) {
      return false;
   }
   auto const & bell = header().bell;
   auto const rung = bell.load( std::memory_order_acquire );
   if( !somethingToTell() && atMost > 0 ) {
      auto const whole = static_cast< time_t >( std::min( atMost, 1e9 ) );
      timespec const limit{
            whole, static_cast< long >(
                         ( std::min( atMost, 1e9 ) - static_cast< double >( whole ) ) * 1e9 ) };
      // The writer raises the bell after what it tells of: had it done so, nobody would sleep.
      ::syscall( SYS_futex, &bell, FUTEX_WAIT, rung, &limit, nullptr, 0 );
   }
   return somethingToTell();
}

} // namespace Glim
