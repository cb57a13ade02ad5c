// SPDX-License-Identifier: Apache-2.0
// What tables do with memory: how they grow, shrink, churn, and go on when there is none; and where
// keys stand in it.

#include "Glim/Table.h"
#include "platform/GlimFolder.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <set>
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

using Glim::WriterOptions;
using GlimTests::errorOf;
using GlimTests::mapOf;
using std::uint64_t;

using Writer = Glim::TableWriter< uint64_t, uint64_t >;
using Reader = Glim::TableReader< uint64_t, uint64_t >;
using Map = std::map< uint64_t, uint64_t >;

// Of tables that are shared, and of those of this process alone.
class GlimMemory : public testing::TestWithParam< bool > {
 protected:
   ~GlimMemory() override { memoryIsFull = false; }
   WriterOptions as( WriterOptions options ) const {
      options.privateMemory = GetParam();
      return options;
   }
   std::unique_ptr< Reader > reader( std::string const & table ) const {
      auto made = std::make_unique< Reader >(
            table, Glim::ReaderOptions{ .reader = "test", .privateMemory = GetParam() } );
      EXPECT_TRUE( made->attach() );
      return made;
   }
   // How often the rows of "t" have been moved, what memory it takes, and how far its searches go.
   struct State {
      uint64_t epoch = 0, bytes = 0, slots = 0, reach = 0; // the last is the sum of all
   };
   State stateOf() const {
      auto const fd = GetParam() ? Glim::PrivateTables::open( "t" ) : Glim::openForReading( "t" );
      struct stat status {};
      ::fstat( fd.get(), &status );
      Glim::Mapping const memory( fd.get(), Glim::fileBytes( fd.get() ), false, "t" );
      auto const & header = *reinterpret_cast< Glim::Layout::Header const * >( memory.data() );
      auto const & region = header.region[ header.epoch % 2 ];
      State state{ header.epoch, static_cast< uint64_t >( status.st_blocks ) * 512, region.slots };
      for( uint64_t i = 0; i != state.slots; ++i ) {
         state.reach += Glim::Layout::reachOf( *reinterpret_cast< uint64_t const * >(
               memory.data() + region.offset + i * header.slotBytes ) );
      }
      return state;
   }
   GlimTests::Folder folder;
};

INSTANTIATE_TEST_SUITE_P( Memory, GlimMemory, testing::Bool(),
                          []( auto const & with ) { return with.param ? "private" : "shared"; } );

TEST_P( GlimMemory, ChurnNeedsNoMemory ) {
   Writer writer( "t", as( { .rows = 500, .changes = 1024 } ) );
   auto reading = reader( "t" );
   uint64_t const alive = 400, churned = 200'000;
   State before;
   for( uint64_t i = 0; i != churned; ++i ) {
      writer.is( i, i );
      if( i >= alive ) {
         ASSERT_TRUE( writer.del( i - alive ) );
         ASSERT_FALSE( reading->has( i - alive ) );
      }
      ASSERT_TRUE( reading->has( i - std::min( i, alive ) / 2 ) );
      if( i == alive ) {
         before = stateOf();
         memoryIsFull = true;
      }
   }
   memoryIsFull = false;
   auto const after = stateOf();
   EXPECT_EQ( after.epoch, before.epoch ); // nor are the rows ever moved
   EXPECT_LT( after.reach, after.slots );  // and searches stay short
   EXPECT_EQ( writer.rows(), alive );
   Map expected;
   for( uint64_t i = churned - alive; i != churned; ++i ) {
      expected[ i ] = i;
   }
   EXPECT_EQ( mapOf( *reading ), expected );
}

TEST_P( GlimMemory, ShrinksUnderItsReaders ) {
   constexpr uint64_t many = 100'000;
   auto writer = std::make_unique< Writer >( "t", as( { .rows = 16, .changes = 64 } ) );
   auto reading = reader( "t" );
   auto const rowsAre = [ & ]( uint64_t rows ) {
      for( auto key = writer->rows(); key < rows; ++key ) {
         writer->is( key, key + 1 );
      }
      for( auto key = writer->rows(); key > rows; --key ) {
         writer->del( key - 1 );
      }
      writer->commit();
   };
   rowsAre( 10 );
   auto const little = stateOf().bytes;
   for( int round = 0; round != 3; ++round ) {
      rowsAre( many );
      EXPECT_GT( stateOf().bytes, many * 64 );
      // In the middle of a walk, too, which has all that stays.
      std::set< uint64_t > seen;
      reading->forEach( [ & ]( uint64_t key, uint64_t record ) {
         EXPECT_EQ( record, key + 1 );
         if( seen.insert( key ).second && seen.size() == 1000 ) {
            rowsAre( 500 );
         }
      } );
      EXPECT_GT( stateOf().epoch, 3u );
      for( uint64_t key = 0; key != 500; ++key ) {
         ASSERT_TRUE( seen.contains( key ) ) << key;
      }
      for( auto const rows : { 500u, 100u, 10u } ) {
         rowsAre( rows );
         for( uint64_t key = 0; key != 2 * rows; ++key ) {
            uint64_t record = 0;
            ASSERT_EQ( reading->get( key, record ), key < rows );
            ASSERT_TRUE( key >= rows || record == key + 1 );
         }
         ASSERT_EQ( mapOf( *reading ).size(), rows );
      }
      EXPECT_LE( stateOf().bytes, little + 4096 * 4 ); // pages that readers looked at
   }
   // Up and down by a factor of four: the rows stay where they are.
   rowsAre( 4000 );
   rowsAre( 1000 );
   auto const epoch = stateOf().epoch;
   for( int round = 0; round != 10; ++round ) {
      rowsAre( 4000 );
      rowsAre( 1000 );
   }
   EXPECT_LE( stateOf().epoch, epoch + 1 );
   memoryIsFull = true; // then nothing is moved
   rowsAre( 3 );
   EXPECT_LE( stateOf().epoch, epoch + 1 );
   EXPECT_EQ( mapOf( *reading ).size(), 3u );
}

TEST_P( GlimMemory, WithTheMemoryFullWhatIsThereIsUsed ) {
   Writer writer( "t", as( { .rows = 500 } ) ); // 1024 slots
   auto reading = reader( "t" );
   Map model;
   std::string refusal;
   // Inserts new keys until one is refused.
   auto const fill = [ & ]( uint64_t most ) {
      static uint64_t key = 0;
      refusal.clear();
      while( refusal.empty() && writer.rows() != most ) {
         refusal = errorOf< Glim::Error >( [ & ] { writer.is( ++key, key ); } );
         if( refusal.empty() ) {
            model[ key ] = key;
         }
      }
   };
   auto const delHalf = [ & ] {
      for( auto row = model.begin(); row != model.end(); ) {
         bool const goes = GlimTests::mix( row->first ) % 2;
         ASSERT_TRUE( !goes || writer.del( row->first ) );
         row = goes ? model.erase( row ) : std::next( row );
      }
   };
   memoryIsFull = true;
   fill( 512 );
   EXPECT_EQ( refusal, "" );
   delHalf();
   fill( 512 );
   EXPECT_EQ( refusal, "" );
   fill( ~uint64_t( 0 ) );
   EXPECT_NE( refusal.find( "no memory" ), refusal.npos ) << refusal;
   for( int i = 0; i != 5; ++i ) {
      EXPECT_EQ( writer.rows(), 896u );
      EXPECT_EQ( mapOf( *reading ), model );
      delHalf();
      fill( ~uint64_t( 0 ) );
   }
   auto const first = model.begin()->first;
   EXPECT_TRUE( writer.is( first, 0 ) && writer.is( first, first ) ); // needs none
   memoryIsFull = false;
   fill( 2000 );
   EXPECT_EQ( refusal, "" );
   EXPECT_EQ( mapOf( *reading ), model );
   EXPECT_EQ( mapOf( writer ), model );
}

// Every table has a hash of its own: what crowds one says nothing of another.
TEST( GlimCraftedKeys, CrowdOneTableAtMost ) {
   constexpr uint64_t rows = 1 << 15, parts = 32;
   GlimTests::Folder folder;
   std::mt19937_64 random( 7 );
   Writer known( "known", { .rows = rows } ), other( "other", { .rows = rows } );
   for( uint64_t i = 0; i != rows; ++i ) {
      known.is( random(), i );
   }
   // The keys of each part of the slots.
   auto const keysOf = []( std::string const & table ) {
      std::ifstream file( Glim::pathOf( table ), std::ios::binary );
      std::string const bytes( std::istreambuf_iterator< char >( file ), {} );
      auto const & header = *reinterpret_cast< Glim::Layout::Header const * >( bytes.data() );
      auto const & region = header.region[ header.epoch % 2 ];
      std::array< std::vector< uint64_t >, parts > keys;
      for( uint64_t i = 0; i != region.slots; ++i ) {
         auto const * const slot = reinterpret_cast< uint64_t const * >(
               bytes.data() + region.offset + i * header.slotBytes );
         if( slot[ 0 ] & Glim::Layout::live ) {
            keys[ i * parts / region.slots ].push_back( slot[ 1 ] );
         }
      }
      return keys;
   };
   auto const crafted = keysOf( "known" )[ 0 ];
   ASSERT_GT( crafted.size(), rows / parts / 2 );
   for( auto const key : crafted ) {
      other.is( key, key );
   }
   for( auto const & part : keysOf( "other" ) ) {
      EXPECT_LT( part.size(), 4 * crafted.size() / parts );
   }
}

} // namespace
