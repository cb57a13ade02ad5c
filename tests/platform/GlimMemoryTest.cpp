// SPDX-License-Identifier: Apache-2.0
// What tables do with memory: how they grow, shrink, churn, and go on when there is none; and where
// keys stand in it.

#include "platform/GlimTables.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace {
bool memoryIsFull = false;
}

// In the place of the system's: the memory of this process may be full.
extern "C" int
posix_fallocate( int fd, off_t offset, off_t bytes ) {
   if( memoryIsFull ) {
      return ENOSPC;
   }
   return ::syscall( SYS_fallocate, fd, 0, offset, bytes ) == 0 ? 0 : errno;
}

namespace {

using GlimTests::errorOf;
using GlimTests::Map;
using GlimTests::mapOf;
using GlimTests::Writer;
using std::uint64_t;

// A table as it stands in memory.
struct Image {
   explicit Image( Glim::Fd const & fd ) {
      ::fstat( fd.get(), &status );
      memory = Glim::Mapping( fd.get(), Glim::fileBytes( fd.get() ), false, "t" );
   }
   auto const & header() const {
      return *reinterpret_cast< Glim::Layout::Header const * >( memory.data() );
   }
   uint64_t slots() const { return header().region[ header().epoch % 2 ].slots; }
   // Its word and its key.
   uint64_t const * slot( uint64_t i ) const {
      auto const offset = header().region[ header().epoch % 2 ].offset + i * header().slotBytes;
      return reinterpret_cast< uint64_t const * >( memory.data() + offset );
   }

   struct stat status {};
   Glim::Mapping memory;
};

class GlimMemory : public GlimTests::TableTest {
 protected:
   ~GlimMemory() override { memoryIsFull = false; }
   Image image() const {
      return Image( GetParam() ? Glim::PrivateTables::open( "t" ) : Glim::openForReading( "t" ) );
   }
   uint64_t epoch() const { return image().header().epoch; } // how often rows have been moved
   uint64_t bytes() const { return static_cast< uint64_t >( image().status.st_blocks ) * 512; }
};

INSTANTIATE_TEST_SUITE_P( Memory, GlimMemory, testing::Bool(), GlimTests::memoryName );

TEST_P( GlimMemory, ChurnNeedsNoMemory ) {
   Writer writer( "t", as( { .rows = 500, .changes = 1024 } ) );
   auto const reading = reader();
   uint64_t const alive = 400, churned = 200'000;
   uint64_t before = 0;
   for( uint64_t i = 0; i != churned; ++i ) {
      writer.is( i, i );
      if( i >= alive ) {
         ASSERT_TRUE( writer.del( i - alive ) && !reading->has( i - alive ) );
      }
      ASSERT_TRUE( reading->has( i - std::min( i, alive ) / 2 ) );
      if( i == alive ) {
         before = epoch();
         memoryIsFull = true;
      }
   }
   EXPECT_EQ( epoch(), before ); // nor are the rows ever moved
   auto const after = image();
   uint64_t reach = 0;
   for( uint64_t i = 0; i != after.slots(); ++i ) {
      reach += Glim::Layout::reachOf( *after.slot( i ) );
   }
   EXPECT_LT( reach, after.slots() ); // searches stay short
   Map expected;
   for( uint64_t i = churned - alive; i != churned; ++i ) {
      expected[ i ] = i;
   }
   EXPECT_EQ( mapOf( *reading ), expected );
}

TEST_P( GlimMemory, GrowsAndShrinksUnderItsReaders ) {
   constexpr uint64_t many = 100'000;
   Writer writer( "t", as( { .rows = 16, .changes = 64 } ) );
   auto const reading = reader();
   auto const check = [ & ]( uint64_t key ) {
      uint64_t record = key + 1;
      ASSERT_EQ( reading->get( key, record ), key < writer.rows() ) << key;
      ASSERT_EQ( record, key + 1 );
   };
   auto const rowsAre = [ & ]( uint64_t rows ) {
      for( auto key = writer.rows(); key < rows; ++key ) {
         writer.is( key, key + 1 );
         check( GlimTests::mix( key ) % ( 2 * key + 1 ) );
      }
      for( auto key = writer.rows(); key > rows; --key ) {
         writer.del( key - 1 );
      }
      writer.commit();
   };
   rowsAre( 10 );
   auto const little = bytes();
   for( int round = 0; round != 3; ++round ) {
      rowsAre( many );
      EXPECT_GT( bytes(), many * 64 );
      EXPECT_GT( epoch(), 3u );
      // In the middle of a walk, too, which has all that stays.
      Map seen;
      reading->forEach( [ & ]( uint64_t key, uint64_t record ) {
         EXPECT_EQ( record, key + 1 );
         if( seen.emplace( key, record ).second && seen.size() == 1000 ) {
            rowsAre( 500 );
         }
      } );
      for( uint64_t key = 0; key != 500; ++key ) {
         ASSERT_TRUE( seen.contains( key ) ) << key;
      }
      for( auto const rows : { 500u, 100u, 10u } ) {
         rowsAre( rows );
         for( uint64_t key = 0; key != 2 * rows; ++key ) {
            check( key );
         }
         ASSERT_EQ( mapOf( *reading ).size(), rows );
      }
      EXPECT_LE( bytes(), little + 4096 * 4 ); // pages that readers looked at
   }
   // Up and down by a factor of four: the rows stay where they are.
   rowsAre( 4000 );
   auto const before = epoch();
   for( int round = 0; round != 10; ++round ) {
      rowsAre( 1000 );
      rowsAre( 4000 );
   }
   memoryIsFull = true; // then nothing is moved
   rowsAre( 3 );
   EXPECT_LE( epoch(), before + 1 );
   EXPECT_EQ( mapOf( *reading ).size(), 3u );
}

TEST_P( GlimMemory, WithTheMemoryFullWhatIsThereIsUsed ) {
   Writer writer( "t", as( { .rows = 500 } ) ); // 1024 slots
   auto const reading = reader();
   Map model;
   uint64_t key = 0;
   // Inserts new keys until one is refused: says how.
   auto const fill = [ & ]( uint64_t most ) {
      std::string refusal;
      while( refusal.empty() && writer.rows() != most ) {
         refusal = errorOf< Glim::Error >( [ & ] { writer.is( ++key, key ); } );
         if( refusal.empty() ) {
            model[ key ] = key;
         }
      }
      return refusal;
   };
   auto const delHalf = [ & ] {
      std::erase_if( model, [ & ]( auto const & row ) {
         return GlimTests::mix( row.first ) % 2 && writer.del( row.first );
      } );
   };
   memoryIsFull = true;
   EXPECT_EQ( fill( 512 ), "" );
   delHalf();
   EXPECT_EQ( fill( 512 ), "" );
   for( int i = 0; i != 5; ++i ) {
      auto const refusal = fill( ~uint64_t( 0 ) );
      EXPECT_NE( refusal.find( "no memory" ), refusal.npos ) << refusal;
      EXPECT_EQ( writer.rows(), 896u );
      EXPECT_EQ( mapOf( *reading ), model );
      delHalf();
   }
   fill( ~uint64_t( 0 ) );
   auto const first = model.begin()->first;
   EXPECT_TRUE( writer.is( first, 0 ) && writer.is( first, first ) ); // needs none
   memoryIsFull = false;
   EXPECT_EQ( fill( 2000 ), "" );
   EXPECT_EQ( mapOf( *reading ), model );
   EXPECT_EQ( mapOf( writer ), model );
}

// Every table has a hash of its own: what crowds one says nothing of another.
TEST( GlimCraftedKeys, CrowdOneTableAtMost ) {
   using namespace Glim::Layout;
   constexpr uint64_t parts = 32;
   GlimTests::Folder folder;
   Writer known( "known" ), other( "other" );
   auto const seedOf = []( auto table ) {
      return Image( Glim::openForReading( table ) ).header().seed;
   };
   auto const mine = seedOf( "known" ), yours = seedOf( "other" );
   std::mt19937_64 random( 7 );
   uint64_t crowds[ parts ] = {};
   for( int crafted = 0; crafted != 1000; ) {
      uint64_t const key = random();
      if( hashOf( mine, &key, 1 ) < ~uint64_t( 0 ) / parts ) {
         ++crafted;
         ++crowds[ hashOf( yours, &key, 1 ) / ( ~uint64_t( 0 ) / parts + 1 ) ];
      }
   }
   EXPECT_LT( *std::max_element( crowds, crowds + parts ), 4 * 1000 / parts );
}

} // namespace
