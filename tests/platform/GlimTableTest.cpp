// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Value.h"
#include "platform/GlimTables.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

namespace GlimTableRecords {

struct Padded {
   KIV_VALUE( Padded );
   KIV_FIELD( std::uint8_t, small, 0 );
   KIV_FIELD( std::uint64_t, large, 0 );
   KIV_FIELD( double, real, 0 );
   KIV_FIELD( std::uint16_t, last, 0 );
};
struct Nested {
   KIV_VALUE( Nested );
   KIV_FIELD( std::uint8_t, small, 0 );
   KIV_FIELD( Padded, padded );
};

} // namespace GlimTableRecords

namespace {

using Glim::Lifetime;
using Glim::Poll;
using GlimTests::errorOf;
using GlimTests::Keys;
using GlimTests::Map;
using GlimTests::mapOf;
using GlimTests::Reader;
using GlimTests::Writer;
using std::uint64_t;

using Told = std::pair< Poll, Keys >;

Told
told( Reader & reader, uint64_t most = ~uint64_t( 0 ) ) {
   Keys keys;
   auto const result = reader.poll( [ & ]( uint64_t key ) { keys.push_back( key ); }, most );
   return { result, keys };
}

using GlimTable = GlimTests::TableTest;
INSTANTIATE_TEST_SUITE_P( Memory, GlimTable, testing::Bool(), GlimTests::memoryName );

TEST_P( GlimTable, WritesAreReadAtOnceAndToldInOrder ) {
   Writer writer( "t", as() );
   auto const reading = reader();
   uint64_t record = 7;
   EXPECT_FALSE( writer.get( 1, record ) || writer.has( 1 ) || reading->get( 1, record ) );
   EXPECT_EQ( record, 7u );
   EXPECT_TRUE( writer.is( 1, 10 ) && writer.is( 0, 0 ) && writer.is( 2, 20 ) );
   EXPECT_TRUE( writer.get( 1, record ) && record == 10 );
   EXPECT_TRUE( reading->get( 0, record ) && record == 0 && reading->has( 0 ) );
   EXPECT_TRUE( writer.is( 1, 11 ) && writer.del( 0 ) && !reading->has( 0 ) );
   EXPECT_TRUE( writer.is( 0, 5 ) && writer.del( 2 ) );
   writer.notify( 99 ); // there is no such row
   // What changes nothing tells nobody.
   EXPECT_FALSE( writer.is( 1, 11 ) || writer.is( 0, 5 ) || writer.del( 2 ) || writer.del( 98 ) );
   EXPECT_EQ( reading->behind(), 8u );
   EXPECT_EQ( told( *reading, 0 ).second, Keys() );
   EXPECT_EQ( told( *reading, 4 ), Told( Poll::changed, { 1, 0, 2, 1 } ) );
   EXPECT_EQ( told( *reading ), Told( Poll::changed, { 0, 0, 2, 99 } ) );
   EXPECT_EQ( told( *reading ), Told( Poll::nothing, {} ) );
   EXPECT_EQ( mapOf( *reading ), ( Map{ { 0, 5 }, { 1, 11 } } ) );
   writer.delAll();
   EXPECT_EQ( told( *reading ), Told( Poll::changed, { 0, 1 } ) );
   EXPECT_EQ( writer.rows() + reading->rows() + mapOf( *reading ).size(), 0u );
}

TEST_P( GlimTable, ALappedReaderIsToldToResynchronise ) {
   Writer writer( "t", as( { .changes = 64 } ) );
   auto const reading = reader();
   auto const notify = [ & ]( uint64_t many ) {
      for( uint64_t i = 0; i != many; ++i ) {
         writer.notify( i );
      }
   };
   // As many as there is room for are not too many, wherever in the ring they begin.
   for( int round = 0; round != 3; ++round ) {
      notify( 64 );
      auto const [ result, keys ] = told( *reading );
      EXPECT_TRUE( result == Poll::changed && keys.size() == 64 && keys.back() == 63 );
      notify( 7 );
      EXPECT_EQ( told( *reading ).second.size(), 7u );
   }
   notify( 65 );
   EXPECT_EQ( told( *reading, 1 ), Told( Poll::resynchronise, {} ) );
   EXPECT_EQ( told( *reading ), Told( Poll::nothing, {} ) );
   EXPECT_EQ( reading->resyncs(), 1u );
   // Lapped in the middle of what it is being told.
   notify( 64 );
   uint64_t calls = 0;
   auto const result = reading->poll( [ & ]( uint64_t ) { notify( ++calls == 1 ? 130 : 0 ); } );
   EXPECT_EQ( result, Poll::resynchronise );
   EXPECT_LE( calls, 64u );
}

// What a writer does to rows that are there does not disturb its own walk.
TEST_P( GlimTable, WritersChangeWhatTheyWalk ) {
   Writer writer( "t", as() );
   for( uint64_t key = 0; key != 200; ++key ) {
      writer.is( key, key );
   }
   Map seen;
   writer.forEach( [ & ]( uint64_t key, uint64_t record ) {
      EXPECT_TRUE( seen.emplace( key, record ).second && record == key );
      EXPECT_TRUE( key % 2 ? writer.del( key ) : writer.is( key, key + 1 ) );
   } );
   EXPECT_EQ( seen.size(), 200u );
   EXPECT_EQ( mapOf( writer ).size(), 100u );
   EXPECT_EQ( mapOf( writer ), mapOf( *reader() ) );
}

TEST_P( GlimTable, OneWriter ) {
   Writer writer( "t", as() );
   auto const reading = reader();
   for( bool const replace : { false, true } ) {
      auto const text =
            errorOf< Glim::Error >( [ & ] { Writer( "t", as( { .replace = replace } ) ); } );
      auto const who = GetParam() ? "in this process" : std::to_string( ::getpid() );
      EXPECT_NE( text.find( who ), text.npos ) << text;
      EXPECT_NE( text.find( "\"t\"" ), text.npos ) << text;
   }
   Writer other( "t2", as() );
   EXPECT_TRUE( writer.is( 1, 10 ) ); // undisturbed
   EXPECT_EQ( told( *reading ), Told( Poll::changed, { 1 } ) );
}

TEST_P( GlimTable, WhatGoesLeavesNothing ) {
   Reader early( "t", reading() );
   for( uint64_t life = 0; life != 3; ++life ) {
      EXPECT_FALSE( early.attach() || early.attached() || early.has( 1 ) );
      early.forEach( []( uint64_t, uint64_t ) { ADD_FAILURE(); } );
      Writer writer( "t", as() );
      EXPECT_FALSE( writer.found() || writer.tookOver() );
      writer.is( life, 10 );
      ASSERT_TRUE( early.attach() && early.written() );
      EXPECT_EQ( told( early ).first, Poll::resynchronise );
      EXPECT_EQ( mapOf( early ), ( Map{ { life, 10 } } ) );
      writer.close();
      EXPECT_EQ( told( early ).first, Poll::gone );
      EXPECT_EQ( folder.files(), std::vector< std::string >() );
      EXPECT_EQ( Glim::tableNames(), std::vector< std::string >() );
   }
}

TEST_P( GlimTable, AnotherShapeIsRefused ) {
   using Narrow = Glim::TableWriter< std::uint32_t, uint64_t >;
   auto options = as( { .lifetime = Lifetime::stays } );
   std::make_unique< Writer >( "t", options )->is( 1, 10 );
   auto const reader = this->reader();
   Glim::TableReader< std::uint32_t, uint64_t > narrow( "t", reading() );
   Glim::TableReader< uint64_t, double > real( "t", reading() ); // of as many bytes
   for( auto const & [ text, wanted ] :
        { std::pair( errorOf< Glim::Error >( [ & ] { Narrow( "t", options ); } ), "u32 -> u64" ),
          std::pair( errorOf< Glim::Error >( [ & ] { narrow.attach(); } ), "u32 -> u64" ),
          std::pair( errorOf< Glim::Error >( [ & ] { real.attach(); } ), "u64 -> float64" ) } ) {
      EXPECT_NE( text.find( wanted ), text.npos ) << text;
      EXPECT_NE( text.find( "u64 -> u64" ), text.npos ) << text;
      EXPECT_EQ( text.find( '\n' ), text.npos ) << text;
   }
   EXPECT_FALSE( narrow.attached() );
   EXPECT_EQ( mapOf( *reader ), ( Map{ { 1, 10 } } ) ); // nothing happened to it
   options.replace = true;
   Narrow writer( "t", options );
   EXPECT_FALSE( writer.found() );
   writer.is( 5, 50 );
   EXPECT_EQ( told( *reader ).first, Poll::gone );
   EXPECT_THROW( reader->attach(), Glim::Error );
   EXPECT_TRUE( narrow.attach() && narrow.has( 5 ) );
}

TEST_P( GlimTable, Names ) {
   for( char const * good : { "a", "Z9_-.x", "hwFecId", "0" } ) {
      EXPECT_NO_THROW( Writer( good, as() ) ) << good;
   }
   EXPECT_NO_THROW( Writer( std::string( 63, 'x' ), as() ) );
   for( std::string const & bad :
        { std::string(), std::string( "." ), std::string( ".." ), std::string( "-a" ),
          std::string( "a/b" ), std::string( "../a" ), std::string( "a b" ),
          std::string( "\xc3\xa4" ), std::string( "a\nb" ), std::string( "a\0b", 3 ),
          std::string( 64, 'x' ), std::string( "a.lock" ), std::string( "a.new" ),
          std::string( "a.reader.1" ) } ) {
      for( auto const & text : { errorOf< Glim::Error >( [ & ] { Writer( bad, as() ); } ),
                                 errorOf< Glim::Error >( [ & ] { Reader( bad, reading() ); } ) } ) {
         EXPECT_TRUE( !text.empty() && text.find( '\n' ) == text.npos ) << text;
      }
   }
   EXPECT_EQ( folder.files(), std::vector< std::string >() );
}

TEST_P( GlimTable, SleepsUntilTheWriterCommits ) {
   Writer writer( "t", as() );
   auto const reading = reader();
   EXPECT_FALSE( reading->wait( 0 ) || reading->wait( 0.001 ) );
   writer.is( 1, 1 );
   EXPECT_TRUE( reading->wait( 0 ) && reading->wait( 60 ) ); // there is something already
   EXPECT_EQ( told( *reading ).second, Keys{ 1 } );
   // Neither before the commit nor long after it: without it this lasts until the test is killed.
   std::thread thread( [ & ] {
      for( uint64_t i = 2; i != 100; ++i ) {
         std::this_thread::sleep_for( std::chrono::microseconds( i % 7 * 50 ) );
         writer.is( i, i );
         writer.commit();
      }
      writer.close();
   } );
   Keys keys;
   for( Poll result = Poll::nothing; result != Poll::gone; ) {
      reading->wait( 1e6 );
      result = reading->poll( [ & ]( uint64_t key ) { keys.push_back( key ); } );
   }
   thread.join();
   EXPECT_TRUE( std::is_sorted( keys.begin(), keys.end() ) );
   EXPECT_LE( keys.size(), 98u ); // what went with the table need not be told
}

// What stands between the fields of a record says nothing.
TEST( GlimRecords, EqualOnesChangeNothing ) {
   using GlimTableRecords::Nested;
   GlimTests::Folder folder;
   Glim::TableWriter< uint64_t, Nested > writer( "t" );
   Nested records[ 2 ];
   for( int i = 0; i != 2; ++i ) {
      auto & record = records[ i ];
      std::memset( static_cast< void * >( &record ), -i, sizeof record );
      record.small = 1;
      record.padded.small = 2;
      record.padded.large = 3;
      record.padded.real = 4.5;
      record.padded.last = 6;
      EXPECT_EQ( writer.is( 1, record ), i == 0 );
   }
   ASSERT_NE( std::memcmp( &records[ 0 ], &records[ 1 ], sizeof( Nested ) ), 0 );
   Nested read, again;
   ASSERT_TRUE( writer.get( 1, read ) && read == records[ 1 ] );
   for( auto change :
        { +[]( Nested & r ) { ++r.small; }, +[]( Nested & r ) { ++r.padded.small; },
          +[]( Nested & r ) { ++r.padded.large; }, +[]( Nested & r ) { ++r.padded.real; },
          +[]( Nested & r ) { ++r.padded.last; } } ) {
      change( read );
      EXPECT_TRUE( writer.is( 1, read ) && writer.get( 1, again ) && again == read );
   }
}

// Keys and records of every size, told apart by every byte of them.
template< std::size_t keyBytes, std::size_t recordBytes >
void
everyByteCounts() {
   using Key = std::array< std::uint8_t, keyBytes >;
   using Record = std::array< std::uint8_t, recordBytes >;
   SCOPED_TRACE( testing::Message() << keyBytes << ", " << recordBytes );
   GlimTests::Folder folder;
   Glim::TableWriter< Key, Record > writer( "t", { .rows = 16 } );
   Glim::TableReader< Key, Record > reader( "t" );
   ASSERT_TRUE( reader.attach() );
   std::map< Key, Record > model, walked;
   for( std::size_t i = 0; i != keyBytes; ++i ) {
      for( std::uint8_t const value : { 1, 0x80 } ) {
         Key key{};
         key[ i ] = value;
         auto & record = model[ key ];
         for( auto const at : { recordBytes - 1, i * 97 % recordBytes } ) {
            record[ at ] = static_cast< std::uint8_t >( record[ at ] + 0x81 );
            ASSERT_TRUE( writer.is( key, record ) && !writer.is( key, record ) );
         }
      }
   }
   reader.forEach( [ & ]( Key const & key, Record const & record ) { walked[ key ] = record; } );
   EXPECT_EQ( walked, model );
   for( auto const & [ key, record ] : model ) {
      auto & read = walked[ key ];
      ASSERT_TRUE( reader.get( key, read ) && read == record );
      ASSERT_TRUE( writer.del( key ) && !reader.has( key ) );
   }
}

TEST( GlimRecords, EveryByteCounts ) {
   everyByteCounts< 1, 1 >();
   everyByteCounts< 2, 8 >();
   everyByteCounts< 3, 40 >();
   everyByteCounts< 8, 300 >();
   everyByteCounts< 9, 16384 >();
   everyByteCounts< 40, 7 >();
   everyByteCounts< 63, 9 >();
   everyByteCounts< 64, 16383 >();
}

// Random operations on a table and on a plain map, and what readers make of it.
class Model {
 public:
   Model( unsigned seed, Glim::WriterOptions const & options )
         : random_( seed ), options_( options ) {
      start();
      for( auto & follower : followers_ ) {
         follower.reader = std::make_unique< Reader >(
               "t", Glim::ReaderOptions{ .privateMemory = options.privateMemory } );
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
   void start() { writer_ = std::make_unique< Writer >( "t", options_ ); }

   void operation() {
      uint64_t const key = draw( keys ) >> draw( 6 );
      auto const what = draw( 160 );
      bool changes = false;
      if( what == 0 ) {
         writer_.reset();
         auto & reader = *followers_[ 0 ].reader; // for which all is there without a writer
         ASSERT_TRUE( !reader.written() && mapOf( reader ) == rows_ );
         start();
         ASSERT_TRUE( writer_->found() && !writer_->tookOver() && reader.written() );
      } else if( what < 10 ) {
         writer_->commit();
      } else if( what < 20 ) {
         writer_->notify( key );
         changes = true;
      } else if( what < 70 ) {
         changes = rows_.erase( key ) == 1;
         ASSERT_EQ( writer_->del( key ), changes );
      } else {
         uint64_t const record = draw( 4 );
         auto const [ row, inserted ] = rows_.try_emplace( key, record );
         changes = inserted || row->second != record;
         row->second = record;
         ASSERT_EQ( writer_->is( key, record ), changes );
      }
      if( changes ) {
         log_.push_back( key );
      }
      ASSERT_EQ( writer_->changes(), log_.size() );
   }

   // Exactly what the log has, in its order, or all of it again.
   void follow( Follower & follower, uint64_t most ) {
      auto const first = follower.told;
      auto const [ result, changed ] = told( *follower.reader, most );
      for( auto const key : changed ) {
         ASSERT_EQ( key, log_.at( follower.told++ ) );
         uint64_t record = 0;
         if( follower.reader->get( key, record ) ) {
            follower.rows[ key ] = record;
         } else {
            follower.rows.erase( key );
         }
      }
      if( result == Poll::resynchronise ) {
         ASSERT_TRUE( first == 0 || log_.size() - first > 64 );
         follower.rows = mapOf( *follower.reader );
         follower.told = log_.size();
      } else {
         ASSERT_EQ( follower.told - first, std::min< uint64_t >( most, log_.size() - first ) );
         ASSERT_EQ( result, follower.told == first ? Poll::nothing : Poll::changed );
      }
   }

   std::minstd_rand random_;
   Glim::WriterOptions const options_;
   std::unique_ptr< Writer > writer_;
   Follower followers_[ 2 ];
   Map rows_;
   Keys log_;
};

TEST_P( GlimTable, BehavesAsAMap ) {
   // What replaces has no reason to when the shape is right.
   Glim::WriterOptions const options{
         .lifetime = Lifetime::stays, .rows = 16, .changes = 64, .replace = true };
   for( unsigned seed = 1; seed <= 10 && !HasFatalFailure(); ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      Glim::PrivateTables::writerDel( "t", true );
      GlimTests::Folder own;
      Model model( seed, as( options ) );
      for( int i = 0; i != 400 && !HasFatalFailure(); ++i ) {
         model.step();
      }
   }
}

} // namespace
