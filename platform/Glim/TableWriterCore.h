// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the writer of a table does whatever its rows are: see Table.h.

#include "Glim/Segment.h"

#include <functional>

namespace Glim {

enum class Lifetime { goes, stays };

struct WriterOptions {
   // What becomes of the table when its writer stops cleanly. A killed writer's table stays for the
   // next writer in either case.
   Lifetime lifetime = Lifetime::goes;
   // Room for so many rows to begin with; it grows, and shrinks again down to that.
   std::uint64_t rows = 1024;
   // How many changes a reader may fall behind, rounded up to a power of two.
   std::uint64_t changes = 65536;
   // Shared within this process only.
   bool privateMemory = false;
   // What stands under this name and cannot be gone on with, because its rows are of another shape
   // or it is damaged, is replaced instead of refused. Readers find the new table.
   bool replace = false;
};

class TableWriterCore {
 public:
   TableWriterCore( TableWriterCore const & ) = delete;
   TableWriterCore & operator=( TableWriterCore const & ) = delete;
   // close(), as far as the system lets it.
   ~TableWriterCore();

   std::string const & table() const { return table_; }
   std::uint64_t rows() const { return rows_; }
   // Changes announced since the table was made.
   std::uint64_t changes() const { return changes_; }
   // Whether there was a table already, and whether its former writer had died.
   bool found() const { return found_; }
   bool tookOver() const { return tookOver_; }

   // What was written since the last commit is complete: runs the commit hook, and wakes the readers
   // that sleep. Nothing when there was no change. An event loop commits once a turn. Gives memory
   // back when few rows are left in a large table. Throws Error when the table was cut off under the
   // writer's feet.
   void commit();
   // Runs first in every commit that has something to commit; it may write. Null for none.
   void commitHookIs( std::function< void() > hook ) { commitHook_ = std::move( hook ); }

   // Asks readers to rest, or to go on: they are told, and may read at any time.
   void quiescedIs( bool quiesced );
   bool quiesced() const;

   // The clean stop: commits; the table goes or stays, as was said when it was made. Afterwards
   // nothing but the destructor may be called.
   void close();

 protected:
   // Throws Error: the name is none; another writer has the table; it is another user's; it is of
   // another shape, version, or damaged; there is no memory.
   TableWriterCore( std::string const & table, Schema const & schema,
                    WriterOptions const & options );

   Layout::Header & header() const {
      return *reinterpret_cast< Layout::Header * >( memory_.data() );
   }
   Layout::Journal & journal() const { return *journal_; }
   Layout::Seed const & seed() const { return seed_; }
   std::uint64_t epoch() const { return epoch_; }
   std::uint64_t slots() const { return slots_; }
   unsigned shift() const { return shift_; }
   Layout::Word * slotAt( std::uint64_t index, std::size_t slotBytes ) const {
      return reinterpret_cast< Layout::Word * >( region_ + index * slotBytes );
   }
   // Searches stay short while half of the slots are free.
   bool full() const { return rows_ >= fullAt_; }
   // Returns whether there is a new region, in which there is room for one more row. If there is no
   // memory for that, the present one will do up to seven eighths. Throws Error when it is as full as
   // that: nothing changed then.
   bool makeRoom();
   void rowsIs( std::uint64_t rows ) {
      rows_ = rows;
      header().rows.store( rows, std::memory_order_relaxed );
   }

   // The number of the next change, whose key is written between these two.
   std::uint64_t beginChange() {
      header().changeReserved.store( changes_ + 1, std::memory_order_relaxed );
      std::atomic_thread_fence( std::memory_order_release );
      return changes_;
   }
   Layout::Word * changeAt( std::uint64_t change, std::size_t keyBytes ) const {
      return reinterpret_cast< Layout::Word * >( ring_ + ( change & ringMask_ ) * keyBytes );
   }
   void endChange( std::uint64_t change ) {
      changes_ = change + 1;
      header().changeHead.store( changes_, std::memory_order_release );
   }

 private:
   void openFile( Schema const & schema, WriterOptions const & options );
   // Whether there is a table that can be gone on with.
   bool openExisting( Schema const & schema, WriterOptions const & options );
   // What is wrong with the file; empty when nothing is.
   std::string faultOf( Schema const & schema );
   void make( Schema const & schema, WriterOptions const & options );
   void reserve( std::uint64_t offset, std::uint64_t bytes );
   void mapAll();
   void enter();
   bool isPlace( Layout::Region const & region, std::uint64_t bytes ) const;
   // What a writer that died left is made whole. Returns what is wrong with the rows.
   std::string recover();
   void completeChange();
   bool countRows();
   void checkNotLost() const;
   // Tells readers what was written. Returns whether there was anything.
   bool tell();
   void shrink();
   // Moves the rows to a new region. Throws Error: nothing changed then.
   void rebuild( std::uint64_t slots );
   // Where a region of so many bytes goes. Its memory is reserved and zero. Throws Error.
   std::uint64_t placeFor( std::uint64_t bytes );
   // Nothing but the region that is in use keeps memory.
   void dropFormer();
   void giveBack( std::uint64_t begin, std::uint64_t end );
   std::uint64_t homeOf( Layout::Word const * slot, unsigned shift ) const;
   void copyRows( char * to, std::uint64_t slots ) const;
   void regionIs( std::uint64_t epoch, std::uint64_t offset, std::uint64_t slots );
   void viewIs( std::uint64_t epoch );
   void removeFormer();
   void letGo();
   void stateIs( Layout::State state );
   void ring();
   [[noreturn]] void fail( std::string const & text ) const;
   std::uint64_t slotBytes() const { return slotBytes_; }

   std::string const table_;
   std::string const what_; // for messages
   WriterLock lock_;
   Fd fd_;
   Mapping memory_;
   bool const private_;
   int const process_; // whose table it is
   bool found_ = false;
   bool tookOver_ = false;
   bool open_ = false;
   bool stays_ = false;
   std::function< void() > commitHook_;

   // Where things are, and what the header says, kept here: reading it back would be a reader's
   // cache line.
   Layout::Journal * journal_ = nullptr;
   char * ring_ = nullptr;
   std::uint64_t ringMask_ = 0;
   char * region_ = nullptr;
   std::uint64_t keyWords_ = 0;
   std::uint64_t slotBytes_ = 0;
   std::uint64_t epoch_ = 0;
   std::uint64_t slots_ = 0;
   unsigned shift_ = 0;
   std::uint64_t fullAt_ = 0;
   std::uint64_t leastSlots_ = 0;
   Layout::Seed seed_{};
   std::uint64_t rows_ = 0;
   std::uint64_t changes_ = 0;
   std::uint64_t rung_ = 0; // the changes that readers were woken for
};

} // namespace Glim
