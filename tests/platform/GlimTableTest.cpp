// SPDX-License-Identifier: Apache-2.0
#include "Glim/Table.h"
#include "Kiv/Value.h"
#include "platform/GlimFolder.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <sys/wait.h>
#include <thread>

namespace GlimTests {

struct Padded {
   KIV_VALUE( GlimTests::Padded );
   KIV_FIELD( std::uint8_t, small, 0 );
   KIV_FIELD( std::uint64_t, large, 0 );
   KIV_FIELD( double, real, 0 );
   KIV_FIELD( std::uint16_t, last, 0 );
};
struct Nested {
   KIV_VALUE( GlimTests::Nested );
   KIV_FIELD( std::uint8_t, small, 0 );
   KIV_FIELD( Padded, padded );
};

} // namespace GlimTests

namespace {

using Glim::Lifetime;
using Glim::Poll;
using Glim::ReaderOptions;
using Glim::WriterOptions;
using GlimTests::errorOf;
using GlimTests::mapOf;
using GlimTests::Nested;
using std::uint64_t;

using Writer = Glim::TableWriter< uint64_t, uint64_t >;
using Reader = Glim::TableReader< uint64_t, uint64_t >;
using Map = std::map< uint64_t, uint64_t >;
using Keys = std::vector< uint64_t >;

// What poll says, and the keys it tells.
struct Told {
   Poll result = Poll::nothing;
   Keys keys;
   explicit Told( Reader & reader, uint64_t most = ~uint64_t( 0 ) ) {
      result = reader.poll( [ this ]( uint64_t key ) { keys.push_back( key ); }, most );
   }
   bool operator==( Told const & ) const = default;
   Told( Poll expected, Keys expectedKeys )
         : result( expected ), keys( std::move( expectedKeys ) ) {}
   friend void PrintTo( Told const & told, std::ostream * out ) {
      *out << "result " << static_cast< int >( told.result ) << ' '
           << testing::PrintToString( told.keys );
   }
};

// Every rule holds for tables that are shared and for those of this process alone.
class GlimTable : public testing::TestWithParam< bool > {
 protected:
   // Private tables that stay do so as long as the process.
   ~GlimTable() override { Glim::PrivateTables::writerDel( "t", true ); }
   WriterOptions as( WriterOptions options = {} ) const {
      options.privateMemory = GetParam();
      return options;
   }
   ReaderOptions reading() const { return { .reader = "test", .privateMemory = GetParam() }; }
   // Attached, and told that it begins.
   std::unique_ptr< Reader > reader( std::string const & table ) const {
      auto made = std::make_unique< Reader >( table, reading() );
      EXPECT_TRUE( made->attach() );
      EXPECT_EQ( Told( *made ), ( Told{ Poll::resynchronise, {} } ) );
      return made;
   }
   GlimTests::Folder folder;
};

INSTANTIATE_TEST_SUITE_P( Memory, GlimTable, testing::Bool(),
                          []( auto const & with ) { return with.param ? "private" : "shared"; } );

TEST_P( GlimTable, WritesAreReadAtOnceAndToldInOrder ) {
   Writer writer( "t", as() );
   EXPECT_FALSE( writer.found() || writer.tookOver() );
   auto reading = reader( "t" );
   EXPECT_EQ( Told( *reading ), ( Told{ Poll::nothing, {} } ) );
   uint64_t record = 7;
   EXPECT_FALSE( writer.get( 1, record ) || writer.has( 1 ) || reading->get( 1, record ) );
   EXPECT_EQ( record, 7u );
   EXPECT_TRUE( writer.is( 1, 10 ) && writer.is( 0, 0 ) && writer.is( 2, 20 ) );
   EXPECT_TRUE( writer.get( 1, record ) && record == 10 );
   EXPECT_TRUE( reading->get( 2, record ) && record == 20 );
   EXPECT_TRUE( reading->get( 0, record ) && record == 0 && reading->has( 0 ) );
   EXPECT_TRUE( writer.is( 1, 11 ) );
   EXPECT_TRUE( writer.del( 0 ) );
   EXPECT_FALSE( reading->has( 0 ) );
   EXPECT_TRUE( writer.is( 0, 5 ) );
   EXPECT_TRUE( writer.del( 2 ) );
   writer.notify( 1 );
   writer.notify( 99 ); // there is no such row
   // What changes nothing tells nobody.
   EXPECT_FALSE( writer.is( 1, 11 ) || writer.is( 0, 5 ) || writer.del( 2 ) || writer.del( 98 ) );
   EXPECT_EQ( reading->behind(), 9u );
   EXPECT_EQ( Told( *reading, 0 ).keys, Keys() );
   EXPECT_EQ( Told( *reading, 4 ), ( Told{ Poll::changed, { 1, 0, 2, 1 } } ) );
   EXPECT_EQ( reading->behind(), 5u );
   EXPECT_EQ( Told( *reading ), ( Told{ Poll::changed, { 0, 0, 2, 1, 99 } } ) );
   EXPECT_EQ( Told( *reading ), ( Told{ Poll::nothing, {} } ) );
   EXPECT_EQ( mapOf( *reading ), ( Map{ { 0, 5 }, { 1, 11 } } ) );
   EXPECT_EQ( mapOf( writer ), mapOf( *reading ) );
   EXPECT_EQ( reading->rows(), 2u );
   EXPECT_EQ( writer.changes(), 9u );
   writer.delAll();
   EXPECT_EQ( writer.rows(), 0u );
   auto told = Told( *reading );
   std::sort( told.keys.begin(), told.keys.end() );
   EXPECT_EQ( told, ( Told{ Poll::changed, { 0, 1 } } ) );
   EXPECT_EQ( mapOf( *reading ), Map() );
   EXPECT_EQ( reading->resyncs(), 0u );
}

TEST_P( GlimTable, ALappedReaderIsToldToResynchronise ) {
   Writer writer( "t", as( { .changes = 64 } ) );
   auto reading = reader( "t" );
   for( uint64_t round = 0; round != 3; ++round ) {
      // As many as there is room for are not too many, wherever in the ring they begin.
      Keys all;
      for( uint64_t i = 0; i != 64; ++i ) {
         writer.is( i, i % 3 == round ? 0 : i + round );
         writer.notify( i );
         all.push_back( i );
      }
      reading->poll( []( uint64_t ) {} );
      for( auto key : all ) {
         writer.notify( key );
      }
      EXPECT_EQ( Told( *reading ), ( Told{ Poll::changed, all } ) );
      EXPECT_EQ( mapOf( *reading ), mapOf( writer ) );
      writer.notify( 1 );
      EXPECT_EQ( Told( *reading ).keys, Keys{ 1 } );
   }
   // One more is too many.
   auto const resyncs = reading->resyncs();
   for( uint64_t i = 0; i != 65; ++i ) {
      writer.notify( i );
   }
   EXPECT_EQ( Told( *reading, 1 ), ( Told{ Poll::resynchronise, {} } ) );
   EXPECT_EQ( reading->resyncs(), resyncs + 1 );
   EXPECT_EQ( Told( *reading ), ( Told{ Poll::nothing, {} } ) );
   // A slow one that is lapped in the middle of what it was being told.
   uint64_t calls = 0;
   for( uint64_t i = 0; i != 64; ++i ) {
      writer.notify( i );
   }
   auto const result = reading->poll( [ & ]( uint64_t ) {
      if( ++calls == 1 ) {
         for( uint64_t i = 0; i != 130; ++i ) {
            writer.notify( i );
         }
      }
   } );
   EXPECT_EQ( result, Poll::resynchronise );
   EXPECT_LE( calls, 64u );
}

TEST_P( GlimTable, GrowsUnderItsReaders ) {
   constexpr uint64_t many = 100'000;
   Writer writer( "t", as( { .rows = 16, .changes = 1 << 18 } ) );
   auto reading = reader( "t" );
   uint64_t record = 0;
   auto const check = [ & ]( uint64_t key, uint64_t of ) {
      ASSERT_EQ( reading->get( key, record ), key < of ) << key << " of " << of;
      if( key < of ) {
         ASSERT_EQ( record, key * 3 );
      }
   };
   uint64_t walkAt = 20;
   for( uint64_t i = 0; i != many; ++i ) {
      ASSERT_TRUE( writer.is( i, i * 3 ) );
      check( i, i + 1 );
      check( GlimTests::mix( i ) % ( 2 * i + 1 ), i + 1 );
      if( i == walkAt ) {
         ASSERT_EQ( mapOf( *reading ).size(), i + 1 );
         walkAt = walkAt * 3 / 2;
      }
   }
   EXPECT_EQ( writer.rows(), many );
   EXPECT_EQ( reading->rows(), many );
   Keys expected( many );
   std::iota( expected.begin(), expected.end(), uint64_t( 0 ) );
   EXPECT_EQ( Told( *reading ).keys, expected );
}

// The rows 0 to 99 are there all the time, and every walk has them, whatever happens beside them.
TEST_P( GlimTable, WalksGoOnWhileTheTableChanges ) {
   for( uint64_t const perRow : { 0, 1, 5, 40 } ) {
      SCOPED_TRACE( perRow );
      Writer writer( "t", as( { .rows = 16 } ) );
      auto reading = reader( "t" );
      auto const prepare = [ & ] {
         for( uint64_t i = 0; i != 200; ++i ) {
            writer.is( i, i + 1 );
         }
      };
      prepare();
      Map seen;
      uint64_t next = 1000;
      reading->forEach( [ & ]( uint64_t key, uint64_t record ) {
         ASSERT_TRUE( record == key + 1 || ( record == key + 2 && key < 100 ) ) << key;
         seen[ key ] = record;
         writer.is( key % 100, key % 100 + 2 );
         writer.del( 100 + key % 100 );
         for( uint64_t i = 0; i != perRow && next < 20'000; ++i, ++next ) {
            writer.is( next, next + 1 );
            writer.del( next - 7 );
         }
      } );
      for( uint64_t i = 0; i != 100; ++i ) {
         ASSERT_TRUE( seen.contains( i ) ) << i;
      }
      // The writer's own walk: what it does to rows that are there does not disturb it.
      writer.delAll();
      EXPECT_EQ( writer.rows(), 0u );
      prepare();
      seen.clear();
      writer.forEach( [ & ]( uint64_t key, uint64_t record ) {
         EXPECT_TRUE( seen.emplace( key, record ).second );
         writer.is( key, record + 1 );
         writer.del( 100 + key % 100 );
      } );
      EXPECT_EQ( mapOf( writer ).size(), 100u );
      EXPECT_EQ( mapOf( writer ), mapOf( *reading ) );
      EXPECT_GE( seen.size(), 100u );
   }
}

TEST_P( GlimTable, OneWriter ) {
   auto writer = std::make_unique< Writer >( "t", as() );
   writer->is( 1, 1 );
   // A forked process has the objects, too: their end there, as by exit(), takes nothing away here.
   auto reading = reader( "t" );
   auto const files = folder.files();
   if( auto const child = ::fork(); child == 0 ) {
      writer.reset();
      reading.reset();
      ::_exit( 0 );
   } else {
      ::waitpid( child, nullptr, 0 );
   }
   EXPECT_EQ( folder.files(), files );
   EXPECT_TRUE( writer->is( 1, 10 ) );
   EXPECT_EQ( Told( *reading ), ( Told{ Poll::changed, { 1 } } ) );
   for( bool const replace : { false, true } ) {
      auto const text =
            errorOf< Glim::Error >( [ & ] { Writer( "t", as( { .replace = replace } ) ); } );
      auto const who = GetParam() ? "in this process" : std::to_string( ::getpid() );
      EXPECT_NE( text.find( who ), std::string::npos ) << text;
      EXPECT_NE( text.find( "\"t\"" ), std::string::npos ) << text;
      EXPECT_EQ( text.find( '\n' ), std::string::npos ) << text;
   }
   EXPECT_TRUE( writer->is( 2, 2 ) ); // undisturbed
   Writer other( "t2", as() );        // of another table
   writer.reset();
   Writer next( "t", as() );
   EXPECT_FALSE( next.found() || next.has( 1 ) );
}

TEST_P( GlimTable, WhatGoesLeavesNothing ) {
   Reader early( "t", reading() );
   EXPECT_FALSE( early.attach() );
   EXPECT_FALSE( early.attached() || early.has( 1 ) );
   early.forEach( []( uint64_t, uint64_t ) { ADD_FAILURE(); } );
   auto writer = std::make_unique< Writer >( "t", as() );
   writer->is( 1, 10 );
   ASSERT_TRUE( early.attach() );
   EXPECT_TRUE( early.written() );
   EXPECT_EQ( Told( early ).result, Poll::resynchronise );
   EXPECT_TRUE( early.has( 1 ) );
   writer.reset();
   EXPECT_EQ( Told( early ).result, Poll::gone );
   EXPECT_FALSE( early.attach() );
   early.detach();
   EXPECT_FALSE( early.has( 1 ) );
   EXPECT_EQ( folder.files(), std::vector< std::string >() );
   EXPECT_EQ( Glim::tableNames(), std::vector< std::string >() );
   // The next one of that name is found by attaching again.
   writer = std::make_unique< Writer >( "t", as() );
   writer->is( 2, 20 );
   EXPECT_TRUE( early.attach() );
   EXPECT_EQ( Told( early ).result, Poll::resynchronise );
   EXPECT_EQ( mapOf( early ), ( Map{ { 2, 20 } } ) );
   writer->close();
   EXPECT_EQ( Told( early ).result, Poll::gone );
}

TEST_P( GlimTable, WhatStaysIsGoneOnWith ) {
   auto const options = as( { .lifetime = Lifetime::stays, .changes = 64 } );
   auto writer = std::make_unique< Writer >( "t", options );
   auto reading = reader( "t" );
   for( uint64_t life = 0; life != 5; ++life ) {
      EXPECT_EQ( writer->found(), life != 0 );
      EXPECT_FALSE( writer->tookOver() );
      EXPECT_EQ( writer->rows(), life * 10 );
      EXPECT_EQ( writer->changes(), life * 11 );
      for( uint64_t i = 0; i != 10; ++i ) {
         writer->is( life * 10 + i, i );
      }
      writer->is( 0, life + 1000 );
      writer->close();
      writer.reset();
      // Without a writer all is there.
      EXPECT_FALSE( reading->written() );
      EXPECT_EQ( mapOf( *reading ).size(), life * 10 + 10 );
      EXPECT_EQ( Told( *reading ).keys.size(), 11u );
      EXPECT_EQ( mapOf( *reader( "t" ) ), mapOf( *reading ) );
      writer = std::make_unique< Writer >( "t", options );
      EXPECT_TRUE( reading->written() );
   }
   EXPECT_EQ( reading->resyncs(), 0u );
   if( !GetParam() ) {
      EXPECT_EQ( Glim::tableNames(), std::vector< std::string >{ "t" } );
   }
}

TEST_P( GlimTable, AnotherShapeIsRefused ) {
   using Narrow = Glim::TableWriter< std::uint32_t, uint64_t >;
   auto const options = as( { .lifetime = Lifetime::stays } );
   std::make_unique< Writer >( "t", options )->is( 1, 10 );
   auto reading = reader( "t" );
   auto const namesBoth = []( std::string const & text ) {
      return text.find( "u64 -> u64" ) != std::string::npos &&
             text.find( "u32 -> u64" ) != std::string::npos &&
             text.find( '\n' ) == std::string::npos;
   };
   auto text = errorOf< Glim::Error >( [ & ] { Narrow( "t", options ); } );
   EXPECT_TRUE( namesBoth( text ) ) << text;
   Glim::TableReader< std::uint32_t, uint64_t > narrow( "t", this->reading() );
   text = errorOf< Glim::Error >( [ & ] { narrow.attach(); } );
   EXPECT_TRUE( namesBoth( text ) ) << text;
   EXPECT_FALSE( narrow.attached() );
   // As many bytes, and yet another meaning.
   text = errorOf< Glim::Error >(
         [ & ] { Glim::TableReader< uint64_t, double >( "t", this->reading() ).attach(); } );
   EXPECT_NE( text.find( "u64 -> float64" ), std::string::npos ) << text;
   EXPECT_EQ( mapOf( *reading ), ( Map{ { 1, 10 } } ) ); // nothing happened to it
   auto replacing = options;
   replacing.replace = true;
   Narrow writer( "t", replacing );
   EXPECT_FALSE( writer.found() );
   writer.is( 5, 50 );
   EXPECT_EQ( Told( *reading ).result, Poll::gone );
   EXPECT_THROW( reading->attach(), Glim::Error );
   EXPECT_TRUE( narrow.attach() );
   EXPECT_TRUE( narrow.has( 5 ) );
}

// What replaces has no reason to when the shape is right.
TEST_P( GlimTable, ReplacesOnlyWhatCannotBeGoneOnWith ) {
   auto const options = as( { .lifetime = Lifetime::stays, .replace = true } );
   std::make_unique< Writer >( "t", options )->is( 1, 10 );
   Writer writer( "t", options );
   EXPECT_TRUE( writer.found() && writer.has( 1 ) );
}

TEST_P( GlimTable, Names ) {
   for( std::string const & good : std::vector< std::string >{ "a", "Z9_-.x", "hwFecId", "0" } ) {
      EXPECT_NO_THROW( Writer( good, as() ) ) << good;
   }
   EXPECT_NO_THROW( Writer( std::string( 63, 'x' ), as() ) );
   for( std::string const & bad : std::vector< std::string >{
              std::string(), std::string( "." ), std::string( ".." ), std::string( "-a" ),
              std::string( "a/b" ), std::string( "../a" ), std::string( "a b" ),
              std::string( "\xc3\xa4" ), std::string( "a\nb" ), std::string( "a\0b", 3 ),
              std::string( 64, 'x' ), std::string( "a.lock" ), std::string( "a.new" ),
              std::string( "a.reader.1" ) } ) {
      for( auto const & text : { errorOf< Glim::Error >( [ & ] { Writer( bad, as() ); } ),
                                 errorOf< Glim::Error >( [ & ] { Reader( bad, reading() ); } ) } ) {
         EXPECT_FALSE( text.empty() ) << testing::PrintToString( bad );
         EXPECT_EQ( text.find( '\n' ), std::string::npos ) << text;
      }
   }
   EXPECT_EQ( folder.files(), std::vector< std::string >() );
}

TEST_P( GlimTable, QuiesceAndCommit ) {
   Writer writer( "t", as() );
   auto reading = reader( "t" );
   int hooks = 0;
   writer.commitHookIs( [ & ] {
      ++hooks;
      writer.is( 1000, writer.changes() ); // the last word of every commit
   } );
   writer.commit();
   EXPECT_EQ( hooks, 0 );
   writer.is( 1, 1 );
   writer.is( 2, 1 );
   writer.commit();
   EXPECT_EQ( hooks, 1 );
   writer.commit();
   EXPECT_EQ( hooks, 1 );
   EXPECT_EQ( Told( *reading ), ( Told{ Poll::changed, { 1, 2, 1000 } } ) );
   writer.commitHookIs( nullptr );
   writer.notify( 1 );
   writer.commit();
   EXPECT_EQ( hooks, 1 );
   EXPECT_FALSE( writer.quiesced() || reading->quiesced() );
   writer.quiescedIs( true );
   EXPECT_TRUE( writer.quiesced() && reading->quiesced() );
   uint64_t record = 0;
   writer.is( 3, 3 );
   EXPECT_TRUE( reading->get( 3, record ) && reading->written() );
   writer.quiescedIs( false );
   EXPECT_FALSE( writer.quiesced() || reading->quiesced() );
   // The hook runs for the clean stop, too.
   writer.commitHookIs( [ & ] { ++hooks; } );
   writer.is( 3, 4 );
   writer.close();
   EXPECT_EQ( hooks, 2 );
}

TEST_P( GlimTable, SleepsUntilTheWriterCommits ) {
   auto writer = std::make_unique< Writer >( "t", as() );
   auto reading = reader( "t" );
   EXPECT_FALSE( reading->wait( 0 ) );
   EXPECT_FALSE( reading->wait( 0.001 ) );
   writer->is( 1, 1 );
   EXPECT_TRUE( reading->wait( 0 ) ); // there is something already
   EXPECT_TRUE( reading->wait( 60 ) );
   EXPECT_EQ( Told( *reading ).keys, Keys{ 1 } );
   // Neither before the commit nor long after it: without it this lasts until the test is killed.
   std::thread thread( [ & ] {
      for( uint64_t i = 2; i != 100; ++i ) {
         std::this_thread::sleep_for( std::chrono::microseconds( i % 7 * 50 ) );
         writer->is( i, i );
         writer->commit();
      }
      writer->close();
   } );
   Keys told;
   for( Poll result = Poll::nothing; result != Poll::gone; ) {
      reading->wait( 1e6 );
      result = reading->poll( [ & ]( uint64_t key ) { told.push_back( key ); } );
   }
   thread.join();
   EXPECT_TRUE( std::is_sorted( told.begin(), told.end() ) );
   EXPECT_LE( told.size(), 98u ); // what went with the table need not be told
}

// What stands between the fields of a record says nothing.
TEST( GlimRecords, EqualOnesChangeNothing ) {
   auto const recordIn = []( int noise ) {
      Nested record;
      std::memset( static_cast< void * >( &record ), noise, sizeof record );
      record.small = 1;
      record.padded.small = 2;
      record.padded.large = 3;
      record.padded.real = 4.5;
      record.padded.last = 6;
      return record;
   };
   GlimTests::Folder folder;
   Glim::TableWriter< uint64_t, Nested > writer( "t" );
   auto const first = recordIn( 0 ), second = recordIn( -1 );
   ASSERT_NE( std::memcmp( &first, &second, sizeof first ), 0 );
   EXPECT_TRUE( writer.is( 1, first ) );
   EXPECT_FALSE( writer.is( 1, second ) );
   Nested read;
   ASSERT_TRUE( writer.get( 1, read ) );
   EXPECT_TRUE( read == first && read == second );
   for( auto change :
        { +[]( Nested & r ) { ++r.small; }, +[]( Nested & r ) { ++r.padded.small; },
          +[]( Nested & r ) { ++r.padded.large; }, +[]( Nested & r ) { ++r.padded.real; },
          +[]( Nested & r ) { ++r.padded.last; } } ) {
      change( read );
      EXPECT_TRUE( writer.is( 1, read ) );
      Nested again;
      EXPECT_TRUE( writer.get( 1, again ) && again == read );
   }
}

// Keys and records of every size, told apart by every byte of them.
template< class Shape >
class GlimShapes : public testing::Test {
 protected:
   GlimTests::Folder folder;
};

template< std::size_t bytes >
using Bytes = std::array< std::uint8_t, bytes >;
template< std::size_t keyBytes, std::size_t recordBytes >
struct ShapeOf {
   using Key = Bytes< keyBytes >;
   using Record = Bytes< recordBytes >;
};
using Shapes = testing::Types< ShapeOf< 1, 1 >, ShapeOf< 2, 8 >, ShapeOf< 3, 40 >,
                               ShapeOf< 8, 300 >, ShapeOf< 9, 16384 >, ShapeOf< 40, 7 >,
                               ShapeOf< 63, 9 >, ShapeOf< 64, 16383 > >;
TYPED_TEST_SUITE( GlimShapes, Shapes );

TYPED_TEST( GlimShapes, EveryByteCounts ) {
   using Key = typename TypeParam::Key;
   using Record = typename TypeParam::Record;
   for( bool const privateMemory : { false, true } ) {
      Glim::TableWriter< Key, Record > writer( "t",
                                               { .rows = 16, .privateMemory = privateMemory } );
      Glim::TableReader< Key, Record > reader( "t", { .privateMemory = privateMemory } );
      ASSERT_TRUE( reader.attach() );
      std::map< Key, Record > model;
      auto const put = [ & ]( Key const & key, Record const & record ) {
         auto const found = model.find( key );
         bool const changes = found == model.end() || found->second != record;
         ASSERT_EQ( writer.is( key, record ), changes );
         model[ key ] = record;
      };
      for( std::size_t i = 0; i != std::tuple_size_v< Key >; ++i ) {
         for( unsigned const value : { 0u, 1u, 0x80u, 0xffu } ) {
            Key key{};
            key[ i ] = static_cast< std::uint8_t >( value );
            Record record{};
            record.fill( static_cast< std::uint8_t >( i ^ value ) );
            put( key, record );
            record.back() ^= 0x80;
            put( key, record );
            put( key, record );
            record[ GlimTests::mix( i + value ) % record.size() ] ^= 1;
            put( key, record );
         }
      }
      std::map< Key, Record > walked;
      reader.forEach( [ & ]( Key const & key, Record const & record ) { walked[ key ] = record; } );
      EXPECT_EQ( walked, model );
      for( auto const & [ key, expected ] : model ) {
         Record record{};
         ASSERT_TRUE( reader.get( key, record ) );
         ASSERT_EQ( record, expected );
         ASSERT_TRUE( writer.del( key ) );
         ASSERT_FALSE( reader.get( key, record ) );
      }
   }
}

// Random operations on a table and on a plain map, and what readers make of it.
class Model {
 public:
   Model( unsigned seed, bool privateMemory )
         : table_( "model" + std::to_string( seed ) ),
           random_( seed ), options_{ .lifetime = Lifetime::stays,
                                      .rows = 16,
                                      .changes = 64,
                                      .privateMemory = privateMemory } {
      Glim::PrivateTables::writerDel( table_, true );
      start();
      for( auto & follower : followers_ ) {
         follower.reader = std::make_unique< Reader >(
               table_, ReaderOptions{ .reader = "model", .privateMemory = privateMemory } );
         follower.reader->attach();
      }
   }

   void step() {
      for( auto n = draw( 6 ); n != 0; --n ) {
         operation();
      }
      ASSERT_EQ( writer_->rows(), rows_.size() );
      follow( followers_[ 0 ], ~uint64_t( 0 ) );
      ASSERT_EQ( followers_[ 0 ].rows, rows_ );
      if( draw( 12 ) == 0 ) {
         follow( followers_[ 1 ], draw( 100 ) ); // often too slow
      }
      auto & reader = *followers_[ draw( 2 ) ].reader;
      for( int i = 0; i != 5; ++i ) {
         uint64_t const key = draw( keys );
         uint64_t record = 0;
         auto const row = rows_.find( key );
         ASSERT_EQ( reader.get( key, record ), row != rows_.end() ) << key;
         ASSERT_TRUE( row == rows_.end() || row->second == record ) << key;
      }
      ASSERT_EQ( mapOf( reader ), rows_ );
   }

 private:
   static constexpr unsigned keys = 300;

   struct Follower {
      std::unique_ptr< Reader > reader;
      Map rows;
      std::size_t told = 0; // of the log
   };

   unsigned draw( unsigned below ) { return static_cast< unsigned >( random_() % below ); }
   void start() { writer_ = std::make_unique< Writer >( table_, options_ ); }

   void operation() {
      uint64_t const key = draw( keys ) >> draw( 6 );
      switch( draw( 16 ) ) {
      case 0:
         writer_->commit();
         break;
      case 1:
         writer_->notify( key );
         log_.push_back( key );
         break;
      case 2:
         if( draw( 10 ) == 0 ) {
            writer_.reset();
            start();
            ASSERT_TRUE( writer_->found() );
         }
         break;
      case 3:
      case 4:
      case 5:
      case 6:
         ASSERT_EQ( writer_->del( key ), rows_.erase( key ) == 1 );
         if( writer_->changes() != log_.size() ) {
            log_.push_back( key );
         }
         break;
      default:
         uint64_t const record = draw( 4 );
         auto const [ row, inserted ] = rows_.try_emplace( key, record );
         bool const changes = inserted || row->second != record;
         row->second = record;
         ASSERT_EQ( writer_->is( key, record ), changes );
         if( changes ) {
            log_.push_back( key );
         }
      }
      ASSERT_EQ( writer_->changes(), log_.size() );
   }

   // Exactly what the log has, in its order, or all of it again.
   void follow( Follower & follower, uint64_t most ) {
      auto const first = follower.told;
      auto const result = follower.reader->poll(
            [ & ]( uint64_t key ) {
               ASSERT_LT( follower.told, log_.size() );
               ASSERT_EQ( key, log_[ follower.told ] ) << "change " << follower.told;
               ++follower.told;
               uint64_t record = 0;
               if( follower.reader->get( key, record ) ) {
                  follower.rows[ key ] = record;
               } else {
                  follower.rows.erase( key );
               }
            },
            most );
      if( result == Poll::resynchronise ) {
         ASSERT_TRUE( first == 0 || log_.size() - first > 64 );
         follower.rows = mapOf( *follower.reader );
         follower.told = log_.size();
      } else {
         ASSERT_EQ( follower.told - first, std::min< uint64_t >( most, log_.size() - first ) );
         ASSERT_EQ( result, follower.told == first ? Poll::nothing : Poll::changed );
      }
   }

   std::string const table_;
   std::minstd_rand random_;
   WriterOptions const options_;
   std::unique_ptr< Writer > writer_;
   Follower followers_[ 2 ];
   Map rows_;
   Keys log_;
};

TEST_P( GlimTable, BehavesAsAMap ) {
   for( unsigned seed = 1; seed <= 10; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      Model model( seed, GetParam() );
      for( int i = 0; i != 400; ++i ) {
         model.step();
         ASSERT_FALSE( HasFatalFailure() ) << "step " << i;
      }
   }
}

} // namespace
