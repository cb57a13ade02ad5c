// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the tables are measured beside: the least that can do the same in shared memory, and a
// database that maps its file.

#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <linux/futex.h>
#include <new>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#if HOBA_BENCH_HAS_LMDB
#include <lmdb.h>
#endif

namespace GlimBench {

using Word = std::atomic< std::uint64_t >;
using Key = std::uint64_t;

struct Row {
   std::uint64_t word[ 5 ]; // 40 bytes
};

inline void
futexWait( std::atomic< std::uint32_t > & word, std::uint32_t while_ ) {
   ::syscall( SYS_futex, &word, FUTEX_WAIT, while_, nullptr, nullptr, 0 );
}
inline void
futexWake( std::atomic< std::uint32_t > & word ) {
   ::syscall( SYS_futex, &word, FUTEX_WAKE, 1, nullptr, nullptr, 0 );
}

// Memory that two processes share, in a file beside those of the tables: the same pages of the same
// kind.
class SharedFile {
 public:
   SharedFile( std::string const & path, std::size_t bytes, bool writes ) : bytes_( bytes ) {
      int const fd = ::open( path.c_str(), writes ? O_RDWR | O_CREAT | O_TRUNC : O_RDONLY, 0600 );
      if( fd < 0 || ( writes && ::ftruncate( fd, static_cast< off_t >( bytes ) ) != 0 ) ) {
         throw std::runtime_error( path + ": " + std::strerror( errno ) );
      }
      data_ = ::mmap( nullptr, bytes, writes ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, fd,
                      0 );
      ::close( fd );
      if( data_ == MAP_FAILED ) {
         throw std::bad_alloc();
      }
   }
   ~SharedFile() { ::munmap( data_, bytes_ ); }
   SharedFile( SharedFile const & ) = delete;
   SharedFile & operator=( SharedFile const & ) = delete;

   template< class T >
   T * as() const {
      return static_cast< T * >( data_ );
   }

 private:
   std::size_t bytes_;
   void * data_;
};

// A plain array of slots, each with a sequence lock, and nothing else: no growth, no deletion, nobody
// is told anything, and a writer that dies in a slot leaves its readers waiting. As many slots as a
// table has for so many rows.
class RawTable {
   struct alignas( 64 ) Slot {
      Word sequence; // 0: empty
      Word key;
      Word record[ 5 ];
   };

 public:
   RawTable( std::string const & path, std::size_t rows, bool writes )
         : slots_( std::bit_ceil( 2 * rows ) ), file_( path, slots_ * sizeof( Slot ), writes ),
           slot_( file_.as< Slot >() ),
           shift_( 64u - static_cast< unsigned >( std::countr_zero( slots_ ) ) ) {}

   bool get( Key key, Row & row ) const {
      for( auto i = first( key );; i = ( i + 1 ) & ( slots_ - 1 ) ) {
         auto const & slot = slot_[ i ];
         while( true ) {
            auto const sequence = slot.sequence.load( std::memory_order_acquire );
            if( sequence == 0 ) {
               return false;
            }
            if( sequence & 1 ) {
               continue;
            }
            bool const found = slot.key.load( std::memory_order_relaxed ) == key;
            if( found ) {
               for( unsigned w = 0; w != 5; ++w ) {
                  row.word[ w ] = slot.record[ w ].load( std::memory_order_relaxed );
               }
            }
            std::atomic_thread_fence( std::memory_order_acquire );
            if( slot.sequence.load( std::memory_order_relaxed ) == sequence ) {
               if( found ) {
                  return true;
               }
               break;
            }
         }
      }
   }

   void put( Key key, Row const & row ) {
      for( auto i = first( key );; i = ( i + 1 ) & ( slots_ - 1 ) ) {
         auto & slot = slot_[ i ];
         auto const sequence = slot.sequence.load( std::memory_order_relaxed );
         if( sequence == 0 || slot.key.load( std::memory_order_relaxed ) == key ) {
            slot.sequence.store( sequence + 1, std::memory_order_relaxed );
            std::atomic_thread_fence( std::memory_order_release );
            slot.key.store( key, std::memory_order_relaxed );
            for( unsigned w = 0; w != 5; ++w ) {
               slot.record[ w ].store( row.word[ w ], std::memory_order_relaxed );
            }
            slot.sequence.store( sequence + 2, std::memory_order_release );
            return;
         }
      }
   }

 private:
   std::size_t first( Key key ) const { return ( key * 0x9e3779b97f4a7c15 ) >> shift_; }

   std::size_t slots_;
   SharedFile file_;
   Slot * slot_;
   unsigned shift_;
};

// The keys that changed, in order, and nothing else: a reader that is lapped reads nonsense.
class RawRing {
   struct Content {
      alignas( 128 ) Word head;
      alignas( 128 ) Word key[ 1 ];
   };

 public:
   RawRing( std::string const & path, std::size_t capacity, bool writes )
         : mask_( capacity - 1 ),
           file_( path, sizeof( Content ) + capacity * sizeof( Word ), writes ),
           content_( file_.as< Content >() ) {}

   void put( Key key ) {
      auto const head = content_->head.load( std::memory_order_relaxed );
      content_->key[ head & mask_ ].store( key, std::memory_order_relaxed );
      content_->head.store( head + 1, std::memory_order_release );
   }

   template< class OnChange >
   void poll( OnChange && onChange ) {
      auto const head = content_->head.load( std::memory_order_acquire );
      for( ; cursor_ != head; ++cursor_ ) {
         onChange( content_->key[ cursor_ & mask_ ].load( std::memory_order_relaxed ) );
      }
   }

 private:
   std::size_t mask_;
   SharedFile file_;
   Content * content_;
   std::uint64_t cursor_ = 0;
};

#if HOBA_BENCH_HAS_LMDB
// As fast as it goes: nothing is synchronised with anything, pages are written where they are
// mapped, keys are compared as integers, and the file is in memory.
class Lmdb {
 public:
   explicit Lmdb( std::string const & path ) {
      check( mdb_env_create( &env_ ) );
      check( mdb_env_set_mapsize( env_, std::size_t( 256 ) << 20 ) );
      check( mdb_env_open( env_, path.c_str(),
                           MDB_NOSUBDIR | MDB_NOSYNC | MDB_NOMETASYNC | MDB_WRITEMAP, 0600 ) );
      writeBegin();
      check( mdb_dbi_open( write_, nullptr, MDB_INTEGERKEY | MDB_CREATE, &dbi_ ) );
      writeEnd();
      check( mdb_txn_begin( env_, nullptr, MDB_RDONLY, &read_ ) );
      readRest();
   }
   ~Lmdb() {
      mdb_txn_abort( read_ );
      mdb_env_close( env_ );
   }
   Lmdb( Lmdb const & ) = delete;
   Lmdb & operator=( Lmdb const & ) = delete;

   void writeBegin() { check( mdb_txn_begin( env_, nullptr, 0, &write_ ) ); }
   void writeEnd() { check( mdb_txn_commit( write_ ) ); }
   void put( Key key, Row const & row ) {
      MDB_val name{ sizeof( key ), &key };
      MDB_val value{ sizeof( row ), const_cast< Row * >( &row ) };
      check( mdb_put( write_, dbi_, &name, &value, 0 ) );
   }

   // The transaction for reading is kept, and sees what was committed before this. While it rests,
   // it keeps no pages from being used again.
   void readRest() { mdb_txn_reset( read_ ); }
   void readAgain() { check( mdb_txn_renew( read_ ) ); }
   bool get( Key key, Row & row ) {
      MDB_val name{ sizeof( key ), &key };
      MDB_val value;
      if( mdb_get( read_, dbi_, &name, &value ) != 0 ) {
         return false;
      }
      std::memcpy( &row, value.mv_data, sizeof( row ) );
      return true;
   }

 private:
   static void check( int result ) {
      if( result != 0 ) {
         throw std::runtime_error( mdb_strerror( result ) );
      }
   }

   MDB_env * env_ = nullptr;
   MDB_dbi dbi_ = 0;
   MDB_txn * read_ = nullptr;
   MDB_txn * write_ = nullptr;
};
#endif

} // namespace GlimBench
