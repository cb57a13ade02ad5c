// SPDX-License-Identifier: Apache-2.0
#include "Glim/Segment.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <linux/magic.h>
#include <map>
#include <mutex>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

namespace Glim {

namespace {

constexpr char const prefix[] = "hoba-glim.";

std::string
lockPathOf( std::string const & table ) {
   return pathOf( table ) + ".lock";
}

bool
isNameCharacter( char c ) {
   return ( c >= 'A' && c <= 'Z' ) || ( c >= 'a' && c <= 'z' ) || ( c >= '0' && c <= '9' ) ||
          c == '_' || c == '-' || c == '.';
}

std::string
faultText( std::string const & table, std::string const & text ) {
   return "table \"" + table + "\": " + text;
}

// Of an open file description, so that it goes with the last descriptor, not with the first.
bool
lockWhole( int fd ) {
   struct flock lock {};
   lock.l_type = F_WRLCK;
   lock.l_whence = SEEK_SET;
   return ::fcntl( fd, F_OFD_SETLK, &lock ) == 0;
}

} // namespace

Fd::~Fd() {
   if( fd_ >= 0 ) {
      ::close( fd_ );
   }
}

std::uint64_t
fileBytes( int fd ) {
   struct stat status {};
   return ::fstat( fd, &status ) == 0 ? static_cast< std::uint64_t >( status.st_size ) : 0;
}

bool
isThere( int fd, std::uint64_t bytes ) {
   struct stat status {};
   struct statfs system {};
   if( ::fstat( fd, &status ) != 0 || ::fstatfs( fd, &system ) != 0 ) {
      return false;
   }
   // A disk's may compress.
   bool const exact = system.f_type == TMPFS_MAGIC;
   return ( exact ? bytes : bytes / 16 ) <= static_cast< std::uint64_t >( status.st_blocks ) * 512;
}

std::string
notThere( std::uint64_t rowBytes ) {
   return "its header is damaged: " + std::to_string( rowBytes ) + " bytes of rows are not there";
}

std::string
folder() {
   char const * const given = std::getenv( "HOBA_GLIM_DIR" );
   return given && *given ? given : "/dev/shm";
}

void
checkName( std::string const & table ) {
   if( table.empty() || table.size() >= sizeof( Layout::Header::table ) ||
       !std::all_of( table.begin(), table.end(), isNameCharacter ) || table[ 0 ] == '-' ||
       table[ 0 ] == '.' ) {
      auto shown = table.substr( 0, 80 );
      std::replace_if(
            shown.begin(), shown.end(), []( char c ) { return c < ' ' || c > '~'; }, '?' );
      throw Error( "\"" + shown +
                   "\" is no name of a table: expected 1 to 63 of A-Z a-z 0-9 _ - ., not beginning "
                   "with - or ." );
   }
   // Names of the files that belong to a table.
   if( table.ends_with( ".lock" ) || table.ends_with( ".new" ) ||
       table.find( ".reader." ) != table.npos ) {
      throw Error( "\"" + table +
                   "\" is no name of a table: .lock, .new and .reader. are for its files" );
   }
}

std::string
pathOf( std::string const & table ) {
   return folder() + '/' + prefix + table;
}

std::vector< std::string >
tableNames() {
   std::vector< std::string > names;
   auto * const directory = ::opendir( folder().c_str() );
   if( !directory ) {
      return names;
   }
   while( auto const * entry = ::readdir( directory ) ) {
      std::string const name = entry->d_name;
      if( !name.starts_with( prefix ) ) {
         continue;
      }
      auto table = name.substr( sizeof prefix - 1 );
      try {
         checkName( table );
         names.push_back( std::move( table ) );
      } catch( Error const & ) {
         // A file that belongs to a table, or to nobody.
      }
   }
   ::closedir( directory );
   std::sort( names.begin(), names.end() );
   return names;
}

std::uint64_t
processStart( std::uint32_t pid ) {
   std::ifstream file( "/proc/" + std::to_string( pid ) + "/stat" );
   std::string text;
   std::getline( file, text );
   // The second field is a name in parentheses, which may have anything in it; the start is the
   // twentieth behind it, and the first is the state: who is dead and not yet waited for is no more.
   auto at = text.rfind( ')' );
   if( at != text.npos && at + 2 < text.size() &&
       ( text[ at + 2 ] == 'Z' || text[ at + 2 ] == 'X' ) ) {
      return 0;
   }
   for( int field = 0; field != 20 && at != text.npos; ++field ) {
      at = text.find( ' ', at + 1 );
   }
   return at == text.npos ? 0 : std::strtoull( text.c_str() + at, nullptr, 10 );
}

bool
processRuns( std::uint32_t pid, std::uint64_t start ) {
   return pid != 0 && start != 0 && processStart( pid ) == start;
}

std::uint32_t
writerPidOf( std::string const & table ) {
   std::uint32_t pid = 0;
   Fd const fd( ::open( pathOf( table ).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK ) );
   bool const read = fd && ::pread( fd.get(), &pid, sizeof pid,
                                    offsetof( Layout::Header, writerPid ) ) == sizeof pid;
   return read ? pid : 0;
}

// ---- The writer's lock

WriterLock::WriterLock( std::string const & table ) : path_( lockPathOf( table ) ) {
   while( true ) {
      Fd fd(
            ::open( path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600 ) );
      struct stat mine {};
      if( !fd || ::fstat( fd.get(), &mine ) != 0 ) {
         throw Error( faultText( table, "its lock " + path_ +
                                              " cannot be opened: " + std::strerror( errno ) ) );
      }
      if( !S_ISREG( mine.st_mode ) || mine.st_uid != ::geteuid() ) {
         throw Error( faultText( table, "its lock " + path_ + " belongs to somebody else" ) );
      }
      if( !lockWhole( fd.get() ) ) {
         auto const pid = writerPidOf( table );
         throw WriterThereError(
               faultText( table, "it has a writer already" +
                                       ( pid ? ", process " + std::to_string( pid )
                                             : std::string() ) ),
               pid );
      }
      // The file may have been removed between the two: then it is nobody's lock any more.
      struct stat there {};
      if( ::stat( path_.c_str(), &there ) == 0 && there.st_ino == mine.st_ino &&
          there.st_dev == mine.st_dev ) {
         fd_ = std::move( fd );
         return;
      }
   }
}

void
WriterLock::removeFile() {
   if( fd_ ) {
      ::unlink( path_.c_str() );
      fd_ = Fd();
   }
}

// ---- What a header says

namespace {

template< std::size_t n >
bool
isText( char const ( &text )[ n ] ) {
   auto const * const end = std::find( text, text + n, 0 );
   return end != text + n &&
          std::all_of( text, end, []( char c ) { return c >= ' ' && c <= '~'; } );
}

template< std::size_t n >
void
textIs( char ( &to )[ n ], std::string const & text ) {
   auto const length = std::min( text.size(), n - 1 );
   std::memcpy( to, text.data(), length );
   std::memset( to + length, 0, n - length );
}

bool
isPowerOfTwo( std::uint64_t value ) {
   return value != 0 && ( value & ( value - 1 ) ) == 0;
}

// As much as a header has room for: two schemas that differ only behind it count as the same.
std::string
cut( std::string const & text, std::size_t bytes ) {
   return text.substr( 0, bytes - 1 );
}

std::string
shapeFault( Layout::Header const & header, Schema const & schema ) {
   bool const same = header.keyBytes == schema.keyBytes &&
                     header.recordBytes == schema.recordBytes &&
                     header.keyType == cut( schema.keyType, sizeof header.keyType ) &&
                     header.recordType == cut( schema.recordType, sizeof header.recordType ) &&
                     header.schema == cut( schema.text, sizeof header.schema );
   if( same ) {
      return {};
   }
   return std::string( "its rows are " ) + header.keyType + " -> " + header.recordType + " (" +
          header.schema + "), expected " + schema.keyType + " -> " + schema.recordType + " (" +
          schema.text + ")";
}

} // namespace

std::uint64_t
fixedBytes( std::uint32_t keyBytes, std::uint32_t recordBytes, std::uint64_t changes ) {
   return Layout::roundUp( Layout::roundUp( sizeof( Layout::Header ), Layout::lineBytes ) +
                                 Layout::journalBytesOf( keyBytes, recordBytes ) +
                                 changes * 8 * Layout::wordsOf( keyBytes ),
                           4096 );
}

std::string
headerFault( Layout::Header const & header, std::uint64_t bytes, Schema const * schema ) {
   if( header.magic.load( std::memory_order_acquire ) != Layout::magic ) {
      return "it is no table";
   }
   if( header.version != Layout::version || header.byteOrder != Layout::byteOrder ) {
      return "it is of layout version " + std::to_string( header.version ) + ", expected " +
             std::to_string( Layout::version ) +
             ( header.byteOrder == Layout::byteOrder ? "" : ", or of another byte order" );
   }
   bool const believable =
         isText( header.table ) && isText( header.keyType ) && isText( header.recordType ) &&
         isText( header.schema ) && header.keyBytes - 1 < Layout::maxKeyBytes &&
         header.recordBytes - 1 < Layout::maxRecordBytes && isPowerOfTwo( header.changes ) &&
         header.changes <= Layout::maxChanges &&
         header.headerBytes == Layout::roundUp( sizeof( Layout::Header ), Layout::lineBytes ) &&
         header.slotBytes == Layout::slotBytesOf( header.keyBytes, header.recordBytes ) &&
         header.changesOffset ==
               header.headerBytes + Layout::journalBytesOf( header.keyBytes, header.recordBytes ) &&
         header.regionsOffset == fixedBytes( header.keyBytes, header.recordBytes, header.changes );
   if( !believable ) {
      return "its header is damaged";
   }
   if( bytes < header.regionsOffset ) {
      return "it is cut off: " + std::to_string( bytes ) + " bytes, of " +
             std::to_string( header.regionsOffset ) + " at least";
   }
   return schema ? shapeFault( header, *schema ) : std::string();
}

void
fillHeader( Layout::Header & header, std::string const & table, Schema const & schema,
            std::uint64_t changes, bool stays ) {
   header.version = Layout::version;
   header.byteOrder = Layout::byteOrder;
   header.headerBytes = Layout::roundUp( sizeof( Layout::Header ), Layout::lineBytes );
   header.keyBytes = schema.keyBytes;
   header.recordBytes = schema.recordBytes;
   header.slotBytes =
         static_cast< std::uint32_t >( Layout::slotBytesOf( schema.keyBytes, schema.recordBytes ) );
   header.changes = changes;
   header.changesOffset =
         header.headerBytes + Layout::journalBytesOf( schema.keyBytes, schema.recordBytes );
   header.regionsOffset = fixedBytes( schema.keyBytes, schema.recordBytes, changes );
   header.stays = stays;
   header.seed = { Kiv::randomBits(), Kiv::randomBits() | 1 };
   textIs( header.table, table );
   textIs( header.keyType, schema.keyType );
   textIs( header.recordType, schema.recordType );
   textIs( header.schema, schema.text );
}

Fd
openForReading( std::string const & table ) {
   auto const path = pathOf( table );
   Fd fd( ::open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK ) );
   if( !fd && errno == ENOENT ) {
      return Fd();
   }
   struct stat status {};
   if( !fd || ::fstat( fd.get(), &status ) != 0 ) {
      throw Error( faultText( table, path + " cannot be opened: " + std::strerror( errno ) ) );
   }
   if( !S_ISREG( status.st_mode ) ) {
      throw Error( faultText( table, path + " is no regular file" ) );
   }
   if( status.st_uid != ::geteuid() && status.st_uid != 0 ) {
      throw Error( faultText( table, path + " belongs to user " + std::to_string( status.st_uid ) +
                                           ", expected this user or the superuser" ) );
   }
   return fd;
}

// ---- Tables of this process alone

namespace {

struct PrivateTable {
   Fd fd;
   bool written = false;
};

std::mutex privateMutex;

std::map< std::string, PrivateTable > &
privateTables() {
   static auto & tables = *new std::map< std::string, PrivateTable >;
   return tables;
}

Fd
duplicate( Fd const & fd ) {
   return Fd( ::fcntl( fd.get(), F_DUPFD_CLOEXEC, 0 ) );
}

} // namespace

Fd
PrivateTables::writerIs( std::string const & table, bool & isNew ) {
   std::lock_guard const guard( privateMutex );
   auto & entry = privateTables()[ table ];
   if( entry.written ) {
      throw Error( faultText( table, "it has a writer already, in this process" ) );
   }
   isNew = !entry.fd;
   if( isNew ) {
      entry.fd = Fd( ::memfd_create( table.c_str(), MFD_CLOEXEC ) );
      if( !entry.fd ) {
         privateTables().erase( table );
         throw Error( faultText( table, std::string( "no memory: " ) + std::strerror( errno ) ) );
      }
   }
   entry.written = true;
   return duplicate( entry.fd );
}

void
PrivateTables::writerDel( std::string const & table, bool forget ) {
   std::lock_guard const guard( privateMutex );
   if( forget ) {
      privateTables().erase( table );
   } else {
      privateTables()[ table ].written = false;
   }
}

Fd
PrivateTables::open( std::string const & table ) {
   std::lock_guard const guard( privateMutex );
   auto const found = privateTables().find( table );
   return found == privateTables().end() ? Fd() : duplicate( found->second.fd );
}

} // namespace Glim
