// SPDX-License-Identifier: Apache-2.0
#pragma once

// A table of any shape and of whatever user, for looking at it: a reader of words whose number is
// known only now, which says nothing of itself. It trusts nothing it finds, and tries nothing forever.

#include "Glim/TableReaderCore.h"

#include <cstdint>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace Glim {

class TableView : private TableReaderCore {
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
   Layout::Header const & headerNow() const { return TableReaderCore::header(); }
   // Of the region that is in use.
   using TableReaderCore::slots;
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
   void openAny();
   void look();
   void checkThere();
   Rows walk( bool wantWords );
   Copied copy( Walk const & walk, std::vector< std::uint64_t > & row, std::uint64_t & triesLeft );
   void faultIs( Error const & error );

   struct stat status_ {};
   Layout::Header copy_{};
   std::string fault_;
};

} // namespace Glim
