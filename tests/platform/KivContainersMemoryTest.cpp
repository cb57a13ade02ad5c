// SPDX-License-Identifier: Apache-2.0

// What hash collections allocate, and what becomes of them when that, or a key's hash, fails.

#include "Kiv/HashMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <new>
#include <ranges>
#include <stdexcept>
#include <vector>

namespace {
constinit thread_local long allocationsLeft = -1; // that succeed; negative: all do
constinit thread_local long blocksInUse = 0;
constinit thread_local std::size_t lastBytes = 0; // that were allocated

void *
allocate( void * memory, std::size_t size ) {
   if( !memory || allocationsLeft == 0 ) {
      std::free( memory );
      throw std::bad_alloc();
   }
   allocationsLeft -= allocationsLeft > 0;
   ++blocksInUse;
   lastBytes = size;
   return memory;
}
} // namespace

void *
operator new( std::size_t size ) {
   return allocate( std::malloc( size ), size );
}
void *
operator new( std::size_t size, std::align_val_t align ) {
   auto const alignment = static_cast< std::size_t >( align );
   auto const whole = ( size + alignment - 1 ) / alignment * alignment;
   return allocate( std::aligned_alloc( alignment, whole ), whole );
}
// What this gives, those below take back.
void *
operator new( std::size_t size, std::nothrow_t const & ) noexcept {
   ++blocksInUse;
   return std::malloc( size );
}
[[gnu::noinline]] void
operator delete( void * memory ) noexcept {
   blocksInUse -= memory != nullptr;
   std::free( memory );
}
[[gnu::noinline]] void
operator delete( void * memory, std::size_t ) noexcept {
   ::operator delete( memory );
}
[[gnu::noinline]] void
operator delete( void * memory, std::align_val_t ) noexcept {
   ::operator delete( memory );
}

using Kiv::HashMap;
using Kiv::HashSet;

// Four members at most are in one block, of which nothing is left over.
TEST( KivContainers, smallCollectionsCostLittle ) {
   struct alignas( 64 ) Aligned {
      int value = 0;
   };
   auto check = []( auto collection, std::size_t bytes ) {
      auto const insert = [ & ]( std::uint64_t key ) {
         if constexpr( requires { collection.insert( key ); } ) {
            collection.insert( key );
         } else {
            collection.tryEmplace( key );
         }
      };
      auto const before = blocksInUse;
      for( std::uint64_t key = 10; key < 30; ++key ) {
         insert( key );
         EXPECT_EQ( blocksInUse - before, 1 );
         collection.erase( key - 3 );
      }
      EXPECT_EQ( lastBytes, bytes );
      insert( 30 );
      auto const copy = collection;
      EXPECT_TRUE( blocksInUse - before == 2 && lastBytes == bytes && copy.size() == 4 );
      insert( 31 );
      EXPECT_TRUE( collection.size() == 5 && collection.has( 27 ) && !copy.has( 31 ) );
      collection.clear();
      EXPECT_EQ( blocksInUse - before, 1 );
   };
   check( HashMap< std::uint64_t, std::uint64_t >(), 80 );
   check( HashSet< std::uint64_t >(), 48 );
   check( HashMap< std::uint64_t, Aligned >(), 64 + 4 * 128 );
}

namespace {

// Its hash may throw when it is new.
struct ShyKey {
   static inline long hashesLeft = -1; // as allocationsLeft
   int word;

   ShyKey( int w ) : word( w ) {}
   ShyKey( ShyKey const & other ) : word( other.word ) {}
   std::size_t hash() const {
      if( hashesLeft == 0 ) {
         throw std::runtime_error( "no more hashes" );
      }
      hashesLeft -= hashesLeft > 0;
      return Kiv::hashOf( word );
   }
   friend bool operator==( ShyKey const & a, ShyKey const & b ) { return a.word == b.word; }
   friend bool operator==( ShyKey const & a, int b ) { return a.word == b; }
};

// Lets each of what insertions need fail once, of which `left` says how many there are. Meanwhile,
// walks go on. Returns how often there was not enough for the fifth member.
template< class Map >
int
failAtEveryPoint( long & left, int keys ) {
   Map map;
   int failures = 0;
   std::vector< typename Map::iterator > walks;
   for( int key = 0; key < keys; ++key ) {
      for( long works = 0; !map.has( key ); ++works ) {
         left = works;
         try {
            map.tryEmplace( key, key );
            left = -1;
         } catch( std::exception const & ) {
            left = -1;
            failures += key == 4;
            int seen = 0;
            for( auto const & member : map ) {
               EXPECT_TRUE( member.key == seen++ );
               EXPECT_EQ( map.find( member.key ), &member.value );
            }
            EXPECT_EQ( seen, key );
         }
      }
      if( key < 10 ) {
         walks.push_back( map.iteratorAt( key ) );
      }
      for( int at = 0; at <= std::min( key, 9 ); ++at ) {
         EXPECT_TRUE( walks[ static_cast< std::size_t >( at ) ]->key == at );
      }
   }
   for( auto & walk : walks ) {
      EXPECT_EQ( std::ranges::distance( walk, map.end() ), keys - walk->value );
   }
   return failures;
}

} // namespace

TEST( KivContainers, failuresChangeNothing ) {
   int const failures = failAtEveryPoint< HashMap< int, int > >( allocationsLeft, 5000 );
   EXPECT_GT( failures, 4 );
   // Nothing is hashed before there is an index: then the members that are there, and the new one.
   int const hashes = failAtEveryPoint< HashMap< ShyKey, int > >( ShyKey::hashesLeft, 50 );
   EXPECT_EQ( hashes, 5 );
}

TEST( KivContainers, churnNeedsNoMemory ) {
   HashMap< int, int > map;
   try {
      for( int i = 0; i < 100'000; ++i ) {
         map.tryEmplace( i, i );
         map.erase( i - 1000 );
         allocationsLeft = i > 10'000 ? 0 : -1;
      }
   } catch( std::bad_alloc const & ) {
   }
   allocationsLeft = -1;
   EXPECT_TRUE( map.size() == 1000 && map.has( 99'999 ) );
}
