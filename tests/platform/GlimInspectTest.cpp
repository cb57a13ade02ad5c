// SPDX-License-Identifier: Apache-2.0
// Tables seen from outside, in every state that a table can be in.
#include "Glim/Inspect.h"

#include "Glim/Error.h"
#include "Glim/RecordTypes.h"
#include "Glim/Segment.h"
#include "Glim/Shape.h"
#include "Glim/Table.h"
#include "Kiv/Reflect.h"
#include "platform/GlimFolder.h"
#include "platform/GlimProcesses.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <random>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

namespace GlimInspect {

KIV_ENUM( Colour, std::uint8_t, red = 0, green = 1 );

struct Part {
   KIV_VALUE( GlimInspect::Part );
   KIV_FIELD( Colour, colour, red );
   KIV_FIELD( bool, on, false );
};
struct Known {
   KIV_VALUE( GlimInspect::Known );
   KIV_FIELD( std::uint64_t, number, 0 );
   KIV_FIELD( Part, part );
   KIV_FIELD( std::int32_t, check, 0 );
};
// Known here by its shape only.
struct Unknown {
   KIV_VALUE( GlimInspect::Unknown );
   KIV_FIELD( std::uint16_t, a, 0 );
   KIV_FIELD( Part, part );
   KIV_FIELD( double, b, 0 );
   KIV_FIELD( std::int8_t, c, 0 );
};
struct Opaque {
   std::uint32_t word = 0;
   auto operator<=>( Opaque const & ) const = default;
   void print( std::string & out ) const { out += "opaque " + std::to_string( word ); }
};
struct Other : Opaque {
   void print( std::string & out ) const { out += "other"; }
};

} // namespace GlimInspect

GLIM_RECORD( std::uint32_t, GlimInspect::Known );
// Two that look alike: neither can be believed.
GLIM_RECORD( GlimInspect::Opaque, std::uint8_t );
GLIM_RECORD( GlimInspect::Other, std::uint8_t );

namespace Glim {
namespace {

using namespace GlimInspect;
using Kiv::Datum;
using Writer = TableWriter< std::uint32_t, Known >;
using Reader = TableReader< std::uint32_t, Known >;

Datum
knownDatum( std::uint32_t key ) {
   return Datum::Object{ { "number", std::uint64_t( key ) },
                         { "part", Datum::Object{ { "colour", "green" }, { "on", true } } },
                         { "check", -std::int64_t( key ) } };
}

Known
known( std::uint32_t key ) {
   return { key, { green, true }, -static_cast< std::int32_t >( key ) };
}

class GlimInspectTest : public testing::Test {
 protected:
   static void file( std::string const & table, std::string const & content ) {
      std::ofstream( pathOf( table ), std::ios::binary ) << content;
   }
   static std::string content( std::string const & table ) {
      std::ifstream in( pathOf( table ), std::ios::binary );
      return { std::istreambuf_iterator< char >( in ), {} };
   }
   // A table that was stopped cleanly, as bytes.
   static std::string stopped( std::uint32_t rows ) {
      {
         Writer writer( "t", { .lifetime = Lifetime::stays, .rows = 8, .changes = 64 } );
         for( std::uint32_t key = 0; key != rows; ++key ) {
            writer.is( key, known( key ) );
         }
      }
      return content( "t" );
   }
   static Layout::Header & headerOf( std::string & bytes ) {
      return *reinterpret_cast< Layout::Header * >( bytes.data() );
   }
   GlimTests::Folder folder;
};

TEST_F( GlimInspectTest, livingTable ) {
   std::optional< Writer > writer( std::in_place, "t",
                                   WriterOptions{ .lifetime = Lifetime::stays, .changes = 64 } );
   EXPECT_EQ( inspect( "t" ).committed, 0 );
   Reader slow( "t", { .reader = "slow" } ), quick( "t", { .reader = "quick" } );
   ASSERT_TRUE( slow.attach() );
   ASSERT_TRUE( quick.attach() );
   for( std::uint32_t key = 0; key != 60; ++key ) {
      writer->is( key, known( key ) );
   }
   writer->del( 3 );
   writer->commit();
   quick.poll( []( std::uint32_t ) {} );
   auto const before = folder.files();
   auto report = inspect( "t" );
   EXPECT_EQ( folder.files(), before );
   EXPECT_EQ( report.fault, "" );
   EXPECT_EQ( report.keyType, "u32" );
   EXPECT_EQ( report.recordType, "GlimInspect::Known" );
   EXPECT_EQ( report.rows, 59u );
   EXPECT_GE( report.slots, 2 * report.rows );
   EXPECT_EQ( report.writer, WriterState::running );
   EXPECT_EQ( report.writerPid, static_cast< std::uint32_t >( ::getpid() ) );
   EXPECT_EQ( report.writers, 1u );
   EXPECT_FALSE( report.quiesced );
   EXPECT_TRUE( report.stays );
   EXPECT_EQ( report.changes, 61u );
   EXPECT_EQ( report.capacity, 64u );
   EXPECT_GT( report.committed, 1e9 );
   EXPECT_EQ( report.fileBytes, std::filesystem::file_size( pathOf( "t" ) ) );
   EXPECT_GT( report.memoryBytes, 0u );
   EXPECT_EQ( report.user, ::geteuid() );
   ASSERT_EQ( report.readers.size(), 2u );
   EXPECT_EQ( report.readers[ 1 ].name, "slow" );
   EXPECT_EQ( report.readers[ 0 ].pid, report.writerPid );
   EXPECT_EQ( report.readers[ 1 ].behind, 61u );
   EXPECT_FALSE( report.readers[ 1 ].lost );
   EXPECT_EQ( report.readers[ 0 ].name, "quick" );
   EXPECT_EQ( report.readers[ 0 ].behind, 0u );

   for( std::uint32_t key = 0; key != 4; ++key ) {
      writer->notify( key );
   }
   writer->quiescedIs( true );
   quick.detach();
   report = inspect( "t" );
   EXPECT_TRUE( report.quiesced );
   ASSERT_EQ( report.readers.size(), 1u );
   EXPECT_TRUE( report.readers[ 0 ].lost );
   writer.reset();
   EXPECT_EQ( inspect( "t" ).writer, WriterState::stopped );
   EXPECT_EQ( dumpTable( "t" ).rows.size(), 59u );
   EXPECT_THROW( inspect( "none" ), Error );
   EXPECT_THROW( dumpTable( "none" ), Error );
   EXPECT_THROW( inspect( "../t" ), Error );
}

TEST_F( GlimInspectTest, writerKilledAnywhere ) {
   for( int round = 0; round != 20; ++round ) {
      GlimTests::Victim victim( []( auto const & ready ) {
         Writer writer( "t", { .rows = 8, .changes = 64 } );
         for( std::uint32_t i = 0;; ++i ) {
            auto const key = i * 7919 % 512;
            i % 3 == 2 ? static_cast< void >( writer.del( key ) )
                       : static_cast< void >( writer.is( key, known( key ) ) );
            if( i == 1000 ) {
               ready();
            }
         }
      } );
      EXPECT_EQ( inspect( "t" ).writer, WriterState::running );
      EXPECT_EQ( inspect( "t" ).writerPid, static_cast< std::uint32_t >( victim.pid ) );
      victim.kill();
      auto const report = inspect( "t" );
      EXPECT_EQ( report.fault, "" );
      EXPECT_EQ( report.writer, WriterState::dead );
      EXPECT_EQ( report.writers, static_cast< std::uint64_t >( round + 1 ) );
      auto const dump = dumpTable( "t" );
      EXPECT_EQ( dump.rows.size(), report.rows );
      EXPECT_EQ( dump.odd + dump.unreadable, 0u );
      for( auto const & [ key, record ] : dump.rows ) {
         EXPECT_EQ( record,
                    knownDatum( static_cast< std::uint32_t >( *key.as< std::uint64_t >() ) ) );
      }
   }
}

// The slot of the last change is as a dying writer left it: half written, and odd.
TEST_F( GlimInspectTest, changeUnderWay ) {
   auto const good = stopped( 5 );
   auto bytes = good;
   auto & header = headerOf( bytes );
   auto const & region = header.region[ header.epoch % 2 ];
   auto const slotAt = [ & ]( std::uint64_t i ) {
      return reinterpret_cast< std::uint64_t * >( bytes.data() + region.offset +
                                                  i * header.slotBytes );
   };
   auto & journal = *reinterpret_cast< Layout::Journal * >( bytes.data() + header.headerBytes );
   auto * const slot = slotAt( journal.slot );
   header.state = Layout::stateOpen;
   header.writerPid = 0;
   header.rows = 77;
   slot[ 0 ] |= Layout::writing;
   slot[ 2 ] = ~std::uint64_t( 0 );
   file( "t", bytes );
   EXPECT_EQ( inspect( "t" ).rows, 5u );
   auto dump = dumpTable( "t" );
   ASSERT_EQ( dump.rows.size(), 5u );
   EXPECT_EQ( dump.rows[ 4 ], std::pair( Datum( 4u ), knownDatum( 4 ) ) );

   journal.operation = Layout::operationDel;
   file( "t", bytes );
   EXPECT_EQ( dumpTable( "t" ).rows.size(), 4u );

   // An odd slot of which the journal knows nothing.
   journal.slot = ( journal.slot + 1 ) % region.slots;
   file( "t", bytes );
   dump = dumpTable( "t" );
   EXPECT_EQ( dump.rows.size(), 4u );
   EXPECT_EQ( dump.unreadable, 1u );
   EXPECT_EQ( inspect( "t" ).fault, "its rows are damaged: 1 cannot be read" );

   // Values that are none.
   bytes = good;
   for( std::uint64_t i = 0; i != region.slots; ++i ) {
      if( slotAt( i )[ 0 ] & Layout::live && ( slotAt( i )[ 1 ] & 0xffffffff ) == 2 ) {
         reinterpret_cast< unsigned char * >( slotAt( i ) + 3 )[ 1 ] = 7; // `on`
      }
   }
   file( "t", bytes );
   dump = dumpTable( "t" );
   EXPECT_EQ( dump.odd, 1u );
   EXPECT_EQ( dump.rows[ 2 ].first, Datum( "02000000" ) );
}

TEST_F( GlimInspectTest, faults ) {
   auto const good = stopped( 5 );
   auto const with = [ & ]( std::function< void( Layout::Header & ) > const & change ) {
      auto bytes = good;
      change( headerOf( bytes ) );
      return bytes;
   };
   struct Case {
      std::string content, fault;
   };
   auto const at = []( Layout::Header & h ) -> Layout::Region & { return h.region[ h.epoch % 2 ]; };
   Case const cases[] = {
         { "", "it is cut off: 0 bytes, of " },
         { std::string( 9000, '\x5a' ), "it is no table" },
         { good.substr( 0, 100 ), "it is cut off: 100 bytes, of " },
         { good.substr( 0, sizeof( Layout::Header ) ), "it is cut off: " },
         { good.substr( 0, good.size() - 1 ), "it is cut off: " },
         { with( []( auto & h ) { h.version = 1; } ), "it is of layout version 1, expected " },
         { with( []( auto & h ) { h.byteOrder = 0x04030201; } ), "of another byte order" },
         { with( []( auto & h ) { h.slotBytes = 8; } ), "its header is damaged" },
         { with( []( auto & h ) { h.state = 9; } ), "its header is damaged: it is in state 9" },
         { with( []( auto & h ) { h.epoch = 0; } ), "its header is damaged: its rows are nowhere" },
         { with( [ & ]( auto & h ) { at( h ).offset = 8; } ), "there are no rows where it says" },
         { with( [ & ]( auto & h ) { at( h ).slots = 1ull << 40; } ), "there are no rows where" },
         { with( [ & ]( auto & h ) { at( h ).offset = 1ull << 33; } ), "it is cut off: " },
   };
   for( auto const & each : cases ) {
      file( "t", each.content );
      auto const report = inspect( "t" );
      EXPECT_NE( report.fault.find( each.fault ), report.fault.npos )
            << report.fault << ", expected: " << each.fault;
      EXPECT_EQ( report.fileBytes, each.content.size() );
      EXPECT_THROW( dumpTable( "t" ), Error ) << each.fault;
   }
   // Rows where there is no memory: looking at them would use it up.
   for( std::uint64_t const slots : { 1ull << 16, 1ull << 24, 1ull << 32 } ) {
      file( "t", with( [ & ]( auto & h ) {
               at( h ).slots = slots;
               h.state = Layout::stateOpen;
               h.writerPid = 0;
            } ) );
      std::filesystem::resize_file( pathOf( "t" ), good.size() + slots * 64 );
      auto const report = inspect( "t" );
      EXPECT_NE( report.fault.find( "are not there" ), report.fault.npos ) << report.fault;
      EXPECT_THROW( dumpTable( "t" ), Error );
      EXPECT_LE( inspect( "t" ).memoryBytes, report.memoryBytes );
      EXPECT_LE( report.memoryBytes, good.size() + 8192 );
   }
   std::filesystem::remove( pathOf( "t" ) );
   std::filesystem::create_directory( pathOf( "t" ) );
   EXPECT_EQ( inspect( "t" ).fault, "it is no regular file" );
   std::filesystem::create_symlink( "/etc/passwd", pathOf( "link" ) );
   EXPECT_EQ( inspect( "link" ).fault, "it is no regular file" );
   EXPECT_EQ( ::mkfifo( pathOf( "fifo" ).c_str(), 0600 ), 0 );
   EXPECT_EQ( inspect( "fifo" ).fault, "it is no regular file" );
}

// Whatever is in the file, there is an answer or an Error.
TEST_F( GlimInspectTest, damageAnywhere ) {
   auto const good = stopped( 20 );
   std::mt19937 random( 1 );
   auto const places = [ & ]( std::size_t end ) { return random() % end; };
   std::uint64_t answers = 0;
   for( int round = 0; round != 400; ++round ) {
      auto bytes = good;
      auto const end = round % 2 ? bytes.size() : sizeof( Layout::Header );
      for( int i = 0; i != 1 + round % 8; ++i ) {
         bytes[ places( end ) ] = static_cast< char >( random() );
      }
      file( "t", bytes );
      inspect( "t" );
      try {
         answers += dumpTable( "t" ).rows.size();
      } catch( Error const & ) {
      }
   }
   EXPECT_GT( answers, 400u );
}

// Rows that stay are in every dump, and every row is whole, while others come and go and the table
// grows.
TEST_F( GlimInspectTest, dumpWhileWritten ) {
   constexpr std::uint32_t staying = 50, others = 2000;
   Writer writer( "t", { .rows = 8, .changes = 64 } );
   for( std::uint32_t key = 0; key != staying; ++key ) {
      writer.is( key, known( key ) );
   }
   std::atomic< bool > stop = false;
   std::thread thread( [ & ] {
      for( std::uint32_t i = 0; !stop; ++i ) {
         auto const key = staying + i % others;
         i / others % 2 ? static_cast< void >( writer.del( key ) )
                        : static_cast< void >( writer.is( key, known( key ) ) );
         writer.is( 0, { 0, { green, i % 2 == 0 }, 0 } );
      }
   } );
   for( int round = 0; round != 30; ++round ) {
      auto const dump = dumpTable( "t" );
      EXPECT_EQ( dump.odd + dump.unreadable, 0u );
      ASSERT_GE( dump.rows.size(), staying );
      for( std::size_t i = 1; i != dump.rows.size(); ++i ) {
         auto const key =
               static_cast< std::uint32_t >( *dump.rows[ i ].first.as< std::uint64_t >() );
         EXPECT_TRUE( i >= staying ? key >= staying : key == i ) << i << ": " << key;
         EXPECT_EQ( dump.rows[ i ].second, knownDatum( key ) );
      }
   }
   stop = true;
   thread.join();
}

TEST_F( GlimInspectTest, typesThatAreNotKnown ) {
   TableWriter< std::uint32_t, Unknown > shaped( "shaped" );
   shaped.is( 300, { 0xfedc, { green, true }, 2.5, -3 } );
   shaped.is( 7, {} );
   auto dump = dumpTable( "shaped" );
   EXPECT_EQ( dump.form, TableDump::Form::shaped );
   EXPECT_EQ( dump.recordType, "GlimInspect::Unknown" );
   ASSERT_EQ( dump.rows.size(), 2u );
   EXPECT_EQ( dump.rows[ 0 ].first, Datum( 7u ) );
   EXPECT_EQ( dump.rows[ 1 ],
              std::pair( Datum( 300u ),
                         Datum( Datum::Object{
                               { "a", 0xfedcu },
                               { "part", Datum::Object{ { "colour", 1u }, { "on", true } } },
                               { "b", 2.5 },
                               { "c", -3 } } ) ) );

   TableWriter< Opaque, std::uint8_t > alike( "alike" );
   alike.is( { 0x01020304 }, 5 );
   dump = dumpTable( "alike" );
   EXPECT_EQ( dump.form, TableDump::Form::shaped );
   EXPECT_EQ( dump.rows, ( decltype( dump.rows ){ { "04030201", 5u } } ) );

   auto bytes = stopped( 1 );
   std::snprintf( headerOf( bytes ).schema, sizeof headerOf( bytes ).schema, "no shape" );
   file( "bytes", bytes );
   dump = dumpTable( "bytes" );
   EXPECT_EQ( dump.form, TableDump::Form::bytes );
   ASSERT_EQ( dump.rows.size(), 1u );
   EXPECT_EQ( dump.rows[ 0 ].first, Datum( "00000000" ) );
   EXPECT_EQ( dump.rows[ 0 ].second.as< std::string >()->size(), 2 * sizeof( Known ) );
}

TEST( GlimShape, whatTheTextSays ) {
   struct Case {
      char const * text;
      std::size_t bytes;
      char const * value; // null: it is no shape of so many bytes
   };
   static char const memory[ 33 ] =
         "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f\x10"
         "\x11\x12\x13\x14\x15\x16\x17\x18\x19\x1a\x1b\x1c\x1d\x1e\x1f";
   Case const cases[] = {
         { "u16", 2, "513" },
         { "i8", 1, "1" },
         { "bool", 1, "true" },
         { "bytes3", 3, "010203" },
         { "{a@0 u8, b@2 u16, c@4 u32}", 8, R"({"a": 1, "b": 1027, "c": 134678021})" },
         { "{a@1 u8, b@4 {c@0 u8, d@4 bytes3}}", 12, R"({"a": 2, "b": {"c": 5, "d": "090a0b"}})" },
         { "{b@8 float64, a@0 u8}", 15, nullptr },
         { "{a@0 {b@0 {c@1 u8}}}", 1, nullptr },
         { "{a@99999 u8}", 1, nullptr },
         { "{a u8}", 1, nullptr },
         { "u16", 4, nullptr },
         { "{}", 1, "{}" },
         { "", 1, nullptr },
         { "u7", 1, nullptr },
         { "float8", 1, nullptr },
         { "bytes0", 0, nullptr },
         { "bytes99999999999999999999", 1, nullptr },
         { "{a@0 u8", 1, nullptr },
         { "{a@0 u8} ", 1, nullptr },
         { "{a@0 u8,b@1 u8}", 2, nullptr },
         { "{@0 u8}", 1, nullptr },
   };
   for( auto const & each : cases ) {
      auto const shape = Shape::parse( each.text, each.bytes );
      EXPECT_EQ( shape.has_value(), each.value != nullptr ) << each.text;
      if( shape && each.value ) {
         EXPECT_EQ( Kiv::datumText( shape->datum( memory ) ), each.value ) << each.text;
      }
   }
   EXPECT_FALSE( Shape::parse( std::string( 100000, '{' ), 1 ) );
}

} // namespace
} // namespace Glim
