// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a reader of a table does whatever its rows are: see Table.h.

#include "Glim/ReaderFile.h"
#include "Glim/Segment.h"
#include "Kiv/Text.h"

#include <algorithm>
#include <optional>

namespace Glim {

struct ReaderOptions {
   // Who reads, for people who look at the table.
   std::string reader = "reader";
   // The table is of this process alone.
   bool privateMemory = false;
};

// What a reader has to do after poll().
enum class Poll {
   nothing,       // nothing changed
   changed,       // it was told what changed
   resynchronise, // read everything again: it has just attached, or fell too far behind
   gone,          // the table is no more; attach() finds the next one of that name
};

class TableReaderCore {
 public:
   TableReaderCore( TableReaderCore const & ) = delete;
   TableReaderCore & operator=( TableReaderCore const & ) = delete;
   ~TableReaderCore();

   std::string const & table() const { return table_; }

   // Whether the table is there, and can be read from now on. Throws Error for one that this reader
   // cannot read: of another shape or version, damaged, or of a user that it does not trust (neither
   // its own nor the superuser).
   bool attach();
   void detach();
   bool attached() const { return static_cast< bool >( memory_ ); }

   // Of the table, while attached.
   std::uint64_t rows() const;
   // The writer asks its readers to rest.
   bool quiesced() const;
   // Whether there is a writer at the moment.
   bool written() const;
   // Changes since the table was made that poll() has told or passed over; how many it has still to
   // tell, and how often it said resynchronise.
   std::uint64_t told() const { return cursor_; }
   std::uint64_t behind() const { return attached() ? waiting() : 0; }
   std::uint64_t resyncs() const { return resyncs_; }

   // Sleeps until the writer commits, or changes the table's state, at most so many seconds; not at
   // all when poll() has something to tell. Returns whether it has.
   bool wait( Kiv::Seconds atMost );
   // The header, with the bell in it, in a mapping of its own: for a thread that listens for this
   // reader. Only while attached. Throws Error if the system refuses.
   Mapping mapHeader() const {
      return Mapping( fd_.get(), sizeof( Layout::Header ), false, what_.c_str() );
   }

 protected:
   TableReaderCore( std::string const & table, Schema const & schema,
                    ReaderOptions const & options );
   // For a class that attaches to whatever table there is by itself.
   explicit TableReaderCore( std::string const & table );

   std::string const & what() const { return what_; }
   // Each of these throws Error as attach(). The reader is detached then.
   void map( std::uint64_t bytes );
   // The header has been mapped, and a copy of it, or itself, was found without fault.
   void begin( Layout::Header const & header, std::uint64_t bytes );
   [[noreturn]] void fail( std::string const & text );

   Layout::Header const & header() const {
      return *reinterpret_cast< Layout::Header const * >( memory_.data() );
   }
   Layout::Journal const & journal() const {
      return *reinterpret_cast< Layout::Journal const * >( memory_.data() + journalOffset_ );
   }
   Layout::Seed const & seed() const { return seed_; }
   std::uint64_t epochNow() const { return header().epoch.load( std::memory_order_acquire ); }
   // Whether what was just read may have been another region's: asked after all that was read.
   bool moved() const {
      std::atomic_thread_fence( std::memory_order_acquire );
      return header().epoch.load( std::memory_order_relaxed ) != epoch_;
   }
   std::uint64_t epoch() const { return epoch_; }
   std::uint64_t slots() const { return slots_; }
   unsigned shift() const { return shift_; }
   Layout::Word * slotAt( std::uint64_t index, std::size_t slotBytes ) const {
      return reinterpret_cast< Layout::Word * >( memory_.data() + regionOffset_ +
                                                 index * slotBytes );
   }
   // Looks where the region is now. Throws Error when it is nowhere.
   void refresh();
   // Throws Error when memory was cut off; the reader is detached then.
   void checkNotLost();
   // The same, and also at the last of very many tries of one thing: no living writer is so quick for
   // so long, so what is read is damaged.
   void retry( std::uint64_t & tries );

   struct Walk {
      std::uint64_t epoch = 0;
      std::uint64_t offset = 0;
      std::uint64_t slots = 0;
      std::uint64_t index = 0;
      std::uint64_t next = 0;
      Layout::Word * slot = nullptr;
   };
   Walk beginWalk();
   // Whether there is a next slot. Begins again when the region is no more.
   bool goOn( Walk & walk );
   // Whether what was copied out of the slot was the region's.
   bool stillThere( Walk const & walk ) const {
      std::atomic_thread_fence( std::memory_order_acquire );
      return header().region[ walk.epoch % 2 ].epoch.load( std::memory_order_relaxed ) ==
             walk.epoch;
   }

   enum class Copied { none, row, again };
   // What is in the slot, if load( words ) was not disturbed by the writer: it copies a key and the
   // record behind it.
   template< class Load >
   Copied copyOnce( Layout::Word const * slot, std::uint64_t index, std::uint64_t ofEpoch,
                    Load const & load ) const {
      auto const word = slot->load( std::memory_order_acquire );
      if( word & Layout::writing ) {
         return copyJournal( slot, word, index, ofEpoch, load );
      }
      if( !( word & Layout::live ) ) {
         return Copied::none;
      }
      load( slot + 1 );
      std::atomic_thread_fence( std::memory_order_acquire );
      return slot->load( std::memory_order_relaxed ) == word ? Copied::row : Copied::again;
   }
   // What the slot will have when the change that is under way is done. The writer may be dead, so
   // nobody waits for it.
   template< class Load >
   [[gnu::noinline]] Copied copyJournal( Layout::Word const * slot, std::uint64_t word,
                                         std::uint64_t index, std::uint64_t ofEpoch,
                                         Load const & load ) const {
      auto const & entry = journal();
      auto const sequence = entry.sequence.load( std::memory_order_acquire );
      bool const ours = !( sequence & 1 ) &&
                        entry.slot.load( std::memory_order_relaxed ) == index &&
                        entry.epoch.load( std::memory_order_relaxed ) == ofEpoch;
      auto const operation = entry.operation.load( std::memory_order_relaxed );
      load( reinterpret_cast< Layout::Word const * >( &entry + 1 ) );
      std::atomic_thread_fence( std::memory_order_acquire );
      if( !ours || entry.sequence.load( std::memory_order_relaxed ) != sequence ||
          slot->load( std::memory_order_relaxed ) != word ) {
         return Copied::again;
      }
      return operation == Layout::operationPut ? Copied::row : Copied::none;
   }

   Poll beginPoll();
   Poll resynchronise();
   std::uint64_t cursor() const { return cursor_; }
   std::uint64_t waiting() const {
      return header().changeHead.load( std::memory_order_acquire ) - cursor_;
   }
   Layout::Word const * changeAt( std::uint64_t change, std::size_t keyBytes ) const {
      return reinterpret_cast< Layout::Word const * >( memory_.data() + ringOffset_ +
                                                       ( change & ringMask_ ) * keyBytes );
   }
   // So many changes have been copied: false when some were overwritten meanwhile.
   bool takeChanges( std::uint64_t count );

   Fd fd_;

 private:
   Fd open() const;
   bool readRegion( std::uint64_t epoch );
   bool somethingToTell() const;

   std::string const table_;
   std::string const what_; // for messages
   std::optional< Schema > const schema_;
   ReaderOptions const options_;
   Mapping memory_;
   ReaderFile file_;
   Layout::Seed seed_{};
   std::uint64_t journalOffset_ = 0;
   std::uint64_t ringOffset_ = 0;
   std::uint64_t ringMask_ = 0;
   std::uint64_t regionsOffset_ = 0;
   std::uint64_t slotBytes_ = 0;
   std::uint64_t regionOffset_ = 0;
   std::uint64_t epoch_ = 0;
   std::uint64_t slots_ = 1;
   unsigned shift_ = 0;
   std::uint64_t cursor_ = 0;
   std::uint64_t resyncs_ = 0;
   bool fresh_ = false; // nothing was read since it attached
};

} // namespace Glim
