// SPDX-License-Identifier: Apache-2.0
#pragma once

// A table of any shape, mapped for looking at it: the walk of TableReader over words whose number is
// known only now. It trusts nothing it finds, and tries nothing forever.

#include "Glim/Segment.h"

#include <cstdint>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace Glim {

class TableView {
 public:
   // Throws Error when there is no such table. One that cannot be read has a fault instead.
   explicit TableView( std::string const & table );

   std::string const & fault() const { return fault_; }
   struct stat const & status() const {
      return status_;
   }

   // What follows is for tables without fault.

   // The header as it was when it was found right; and as it is now.
   Layout::Header const & header() const { return copy_; }
   Layout::Header const & headerNow() const {
      return *reinterpret_cast< Layout::Header const * >( memory_.data() );
   }
   // Of the region that is in use.
   std::uint64_t slots() const { return region_.slots; }
   std::size_t keyWords() const { return Layout::wordsOf( copy_.keyBytes ); }
   std::size_t recordWords() const { return Layout::wordsOf( copy_.recordBytes ); }

   struct Rows {
      std::uint64_t count = 0;
      std::uint64_t unreadable = 0;
      std::vector< std::uint64_t > words; // of each its key, then its record; if they were wanted
   };
   // Every row that is there throughout. Throws Error when the table is damaged, is cut off meanwhile,
   // or never holds still: that is its fault then.
   Rows rows( bool wantWords );

 private:
   struct Region {
      std::uint64_t epoch = 0;
      std::uint64_t offset = 0;
      std::uint64_t slots = 0;
   };
   enum class Copied { none, row, again };

   void open( std::string const & table );
   // What is wrong with what is mapped; looks for the region.
   std::string look();
   void copyHeader();
   std::string findRegion();
   [[noreturn]] void fail( std::string const & fault );
   bool stillThere() const;
   // Whether the region was there until the end.
   bool walk( bool wantWords, Rows & rows );
   Copied copySlot( std::uint64_t index, std::uint64_t * row ) const;
   Copied copyJournal( Layout::Word const * slot, std::uint64_t word, std::uint64_t index,
                       std::uint64_t * row ) const;

   std::string const table_;
   Fd fd_;
   struct stat status_ {};
   Mapping memory_;
   Layout::Header copy_{};
   Region region_;
   std::string fault_;
};

} // namespace Glim
