// SPDX-License-Identifier: Apache-2.0
#pragma once

// A file in memory.
//
// Who may write a file may also cut it off, and whoever then touches the memory behind its new end
// would die of it. Such memory is replaced by zeros instead, and the mapping says so: it is lost.

#include <atomic>
#include <cstddef>
#include <utility>

namespace Glim {

class Mapping {
 public:
   Mapping() = default;
   // The first `bytes` of the file. Throws Glim::Error, which names `what`, if the system refuses,
   // or if the file is shorter.
   Mapping( int fd, std::size_t bytes, bool writable, char const * what );
   ~Mapping() { reset(); }
   Mapping( Mapping && other ) noexcept { swap( other ); }
   Mapping & operator=( Mapping && other ) noexcept {
      Mapping( std::move( other ) ).swap( *this );
      return *this;
   }

   char * data() const { return data_; }
   std::size_t bytes() const { return bytes_; }
   explicit operator bool() const { return data_ != nullptr; }
   // Memory of this mapping was cut off, at some time since it was made.
   bool lost() const { return watch_ && watch_->lost.load( std::memory_order_relaxed ); }

   void reset();
   void swap( Mapping & other ) noexcept {
      std::swap( data_, other.data_ );
      std::swap( bytes_, other.bytes_ );
      std::swap( watch_, other.watch_ );
   }

   // For the handler of the signal.
   struct Watch {
      std::atomic< char * > begin{ nullptr };
      std::atomic< std::size_t > bytes{ 0 };
      std::atomic< bool > lost{ false };
      std::atomic< bool > taken{ false };
   };

 private:
   char * data_ = nullptr;
   std::size_t bytes_ = 0;
   Watch * watch_ = nullptr;
};

} // namespace Glim
