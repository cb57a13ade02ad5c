// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a reader says of itself, for people who look at a table: a file of the reader's own, apart
// from the table, which nobody else relies on. It goes with its reader; one that a killed reader left
// is removed by the next reader of the same user.

#include "Glim/Segment.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Glim {

class ReaderFile {
 public:
   struct Content {
      std::uint64_t magic = 0;
      std::uint32_t pid = 0;
      std::uint32_t unused = 0;
      std::uint64_t start = 0;  // as processStart()
      std::uint64_t cursor = 0; // changes that it has been told
      std::uint64_t resyncs = 0;
      char reader[ 64 ] = {};
   };
   static constexpr std::uint64_t magic = 0x4441455241424f48; // "HOBAREAD"

   ReaderFile() = default;
   // A reader that cannot say anything of itself still reads: failures are silent.
   ReaderFile( std::string const & table, std::string const & reader );
   ~ReaderFile() { remove(); }
   ReaderFile( ReaderFile && other ) noexcept
         : path_( std::exchange( other.path_, {} ) ), memory_( std::move( other.memory_ ) ),
           process_( other.process_ ) {}
   ReaderFile & operator=( ReaderFile && other ) noexcept {
      std::swap( path_, other.path_ );
      std::swap( memory_, other.memory_ );
      std::swap( process_, other.process_ );
      return *this;
   }
   // Takes the file away, in the process that made it. A forked one just knows it no more.
   void remove();

   void cursorIs( std::uint64_t cursor );
   void resyncsIs( std::uint64_t resyncs );

   // What the living readers of a table say. Files that cannot be believed are left out.
   static std::vector< Content > all( std::string const & table );

 private:
   Content * content() const { return reinterpret_cast< Content * >( memory_.data() ); }

   std::string path_;
   Mapping memory_;
   int process_ = 0;
};

} // namespace Glim
