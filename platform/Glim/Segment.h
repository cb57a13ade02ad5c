// SPDX-License-Identifier: Apache-2.0
#pragma once

// The files of a table: where they are, who may have them, and whether their content can be believed.
//
//    <folder>/hoba-glim.<table>                      the table; its owner writes, everybody reads
//    <folder>/hoba-glim.<table>.lock                 held by the writer; only its owner opens it
//    <folder>/hoba-glim.<table>.reader.<pid>.<n>     what a reader says of itself (ReaderFile.h)
//
// The folder is /dev/shm, or what the environment variable HOBA_GLIM_DIR says.

#include "Glim/Error.h"
#include "Glim/Layout.h"
#include "Glim/Mapping.h"
#include "Glim/Schema.h"

#include <string>
#include <vector>

namespace Glim {

// A file descriptor, closed with its object.
class Fd {
 public:
   Fd() = default;
   explicit Fd( int fd ) : fd_( fd ) {}
   ~Fd();
   Fd( Fd && other ) noexcept : fd_( std::exchange( other.fd_, -1 ) ) {}
   Fd & operator=( Fd && other ) noexcept {
      std::swap( fd_, other.fd_ );
      return *this;
   }
   int get() const { return fd_; }
   explicit operator bool() const { return fd_ >= 0; }

 private:
   int fd_ = -1;
};

// How long the file is; 0 if that cannot be found out.
std::uint64_t fileBytes( int fd );
// Whether the file has memory for so many bytes of its length, as far as the system says; and the
// fault of one that has not. To look at what is not there would use memory up.
bool isThere( int fd, std::uint64_t bytes );
std::string notThere( std::uint64_t rowBytes );

std::string folder();
// Throws Error unless the name is 1 to 63 of A-Z a-z 0-9 _ - . and begins with none of the last two.
void checkName( std::string const & table );
std::string pathOf( std::string const & table );
// The names of all tables in the folder, in order.
std::vector< std::string > tableNames();

// When a process began, in ticks since the machine did; 0 if there is none. Tells a process from a
// later one with the same number.
std::uint64_t processStart( std::uint32_t pid );
bool processRuns( std::uint32_t pid, std::uint64_t start );

// The process that says in the table that it writes it; 0 when that cannot be found out.
std::uint32_t writerPidOf( std::string const & table );

// The right to be the writer of a table. It goes with the process, however that ends.
class WriterLock {
 public:
   WriterLock() = default;
   // Throws Error when somebody has it, when the file is not this user's, or when it cannot be made.
   explicit WriterLock( std::string const & table );
   // Takes the file away, for a table that is no more, and lets go.
   void removeFile();

 private:
   std::string path_;
   Fd fd_;
};

// Whether the bytes at `header`, `bytes` of them in the file, are a table that this program can read.
// Returns what is wrong with them; empty when nothing is. `schema` may be null: any will do.
std::string headerFault( Layout::Header const & header, std::uint64_t bytes,
                         Schema const * schema );

// How many bytes a table needs up to its first region.
std::uint64_t fixedBytes( std::uint32_t keyBytes, std::uint32_t recordBytes,
                          std::uint64_t changes );
// Fills in everything of a new table but `magic` and its region.
void fillHeader( Layout::Header & header, std::string const & table, Schema const & schema,
                 std::uint64_t changes, bool stays );

// Opens the table for reading. An invalid descriptor when there is none. Throws Error when there is
// something else under that name, or it belongs to neither this user nor the superuser.
Fd openForReading( std::string const & table );

// Tables of this process alone, by name. Null when there is none.
class PrivateTables {
 public:
   // The descriptor of new memory under that name. Throws Error when the name is taken by a writer.
   static Fd writerIs( std::string const & table, bool & isNew );
   static void writerDel( std::string const & table, bool forget );
   static Fd open( std::string const & table ); // invalid when there is none
};

} // namespace Glim
