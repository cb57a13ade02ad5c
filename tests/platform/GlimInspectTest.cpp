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
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

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

Known
known( std::uint32_t key ) {
   return { key, { green, true }, -static_cast< std::int32_t >( key ) };
}

class GlimInspectTest : public testing::Test {
 protected:
   static void file( std::string const & table, std::string const & content ) {
      std::ofstream( pathOf( table ), std::ios::binary ) << content;
   }
   // A table that was stopped cleanly, as bytes.
   static std::string stopped( std::uint32_t rows ) {
      {
         Writer writer( "t", { .lifetime = Lifetime::stays, .rows = 8, .changes = 64 } );
         for( std::uint32_t key = 0; key != rows; ++key ) {
            writer.is( key, known( key ) );
         }
      }
      std::ifstream in( pathOf( "t" ), std::ios::binary );
      return { std::istreambuf_iterator< char >( in ), {} };
   }
   static Layout::Header & headerOf( std::string & bytes ) {
      return *reinterpret_cast< Layout::Header * >( bytes.data() );
   }
   GlimTests::Folder folder;
};

TEST_F( GlimInspectTest, whatTheTableSaysOfItself ) {
   auto writer = std::make_unique< Writer >(
         "t", WriterOptions{ .lifetime = Lifetime::stays, .changes = 64 } );
   EXPECT_EQ( inspect( "t" ).committed, 0 );
   Reader slow( "t", { .reader = "slow" } ), quick( "t", { .reader = "quick" } );
   GlimTests::Victim killed( []( auto const & ready ) {
      Reader reader( "t", { .reader = "killed" } );
      reader.attach();
      ready();
      ::pause();
   } );
   killed.kill();
   // One that was killed before it could say anything.
   std::ofstream( pathOf( "t" ) + ".reader.4194305.1" );
   ASSERT_TRUE( slow.attach() && quick.attach() );
   for( std::uint32_t key = 0; key != 60; ++key ) {
      writer->is( key, known( key ) );
   }
   writer->commit();
   quick.poll( []( std::uint32_t ) {} );
   auto report = inspect( "t" );
   EXPECT_EQ( folder.files().size(),
              4u ); // the table, its lock, and those of the readers that live
   EXPECT_EQ( report.rows, 60u );
   EXPECT_GT( report.committed, 1e9 );
   EXPECT_EQ( report.fileBytes, std::filesystem::file_size( pathOf( "t" ) ) );
   EXPECT_TRUE( report.stays && !report.quiesced && !report.foreign );
   for( auto const & [ lost, behind ] : { std::pair( false, 60u ), std::pair( true, 65u ) } ) {
      ASSERT_EQ( report.readers.size(), 2u );
      EXPECT_EQ( report.readers[ 1 ].name, "slow" );
      EXPECT_EQ( report.readers[ 1 ].behind, behind );
      EXPECT_EQ( report.readers[ 1 ].lost, lost );
      EXPECT_EQ( report.readers[ 0 ].behind, behind - 60 );
      for( std::uint32_t key = 0; key != 5; ++key ) {
         writer->notify( key );
      }
      report = inspect( "t" );
   }
   writer.reset();
   EXPECT_EQ( inspect( "t" ).writer, WriterState::stopped );
   EXPECT_THROW( inspect( "none" ), Error );
   EXPECT_THROW( dumpTable( "none" ), Error );
   EXPECT_THROW( inspect( "../t" ), Error );
}

TEST_F( GlimInspectTest, rowsThatAreNone ) {
   auto bytes = stopped( 5 );
   auto & header = headerOf( bytes );
   auto const & region = header.region[ header.epoch % 2 ];
   std::uint64_t *slot = nullptr, *none = nullptr;
   for( std::uint64_t i = 0; i != region.slots; ++i ) {
      auto * const each = reinterpret_cast< std::uint64_t * >( bytes.data() + region.offset +
                                                               i * header.slotBytes );
      if( !( *each & Layout::live ) ) {
         none = each;
      } else if( ( each[ 1 ] & 0xffffffff ) == 2 ) {
         slot = each;
      }
   }
   reinterpret_cast< unsigned char * >( slot + 3 )[ 1 ] = 7; // `on`
   *none |= Layout::writing;                                 // of which the journal knows nothing
   header.state = Layout::stateOpen;
   header.writerPid = 0;
   file( "t", bytes );
   EXPECT_EQ( inspect( "t" ).fault, "its rows are damaged: 1 cannot be read" );
   auto const dump = dumpTable( "t" );
   EXPECT_EQ( dump.form, TableDump::Form::typed );
   EXPECT_EQ( dump.unreadable, 1u );
   EXPECT_EQ( dump.odd, 1u );
   ASSERT_EQ( dump.rows.size(), 5u );
   EXPECT_EQ( dump.rows[ 2 ].first, Datum( "02000000" ) );
   EXPECT_EQ( Kiv::datumText( dump.rows[ 4 ].second ),
              R"({"number": 4, "part": {"colour": "green", "on": true}, "check": -4})" );
}

TEST_F( GlimInspectTest, faults ) {
   auto const good = stopped( 5 );
   auto const with = [ & ]( std::function< void( Layout::Header & ) > const & change ) {
      auto bytes = good;
      change( headerOf( bytes ) );
      return bytes;
   };
   auto const at = []( Layout::Header & h ) -> Layout::Region & { return h.region[ h.epoch % 2 ]; };
   std::pair< std::string, char const * > const cases[] = {
         { "", "it is cut off: 0 bytes, of " },
         { std::string( 9000, '\x5a' ), "it is no table" },
         { good.substr( 0, 100 ), "it is cut off: 100 bytes, of " },
         { good.substr( 0, sizeof( Layout::Header ) ), "it is cut off: " },
         { good.substr( 0, good.size() - 1 ), "it is cut off: " },
         { with( []( auto & h ) { h.version = 1; } ), "it is of layout version 1, expected " },
         { with( []( auto & h ) { h.byteOrder = 0x04030201; } ), "of another byte order" },
         { with( []( auto & h ) { h.slotBytes = 8; } ), "its header is damaged" },
         { with( []( auto & h ) { h.keyType[ 0 ] = '\n'; } ), "its header is damaged" },
         { with( []( auto & h ) { h.state = 9; } ), "its header is damaged: it is in state 9" },
         { with( []( auto & h ) { h.epoch = 0; } ), "its header is damaged: its rows are nowhere" },
         { with( [ & ]( auto & h ) { at( h ).offset = 8; } ), "there are no rows where it says" },
         { with( [ & ]( auto & h ) { at( h ).slots = 1ull << 40; } ), "there are no rows where" },
         { with( [ & ]( auto & h ) { at( h ).offset = 1ull << 33; } ), "it is cut off: " },
   };
   for( auto const & [ content, fault ] : cases ) {
      file( "t", content );
      auto const report = inspect( "t" );
      EXPECT_NE( report.fault.find( fault ), report.fault.npos )
            << report.fault << ", not " << fault;
      EXPECT_EQ( report.fileBytes, content.size() );
      EXPECT_THROW( dumpTable( "t" ), Error ) << fault;
   }
}

// Who looks from outside sees every row once, and who reads finds it, while the table grows and shrinks.
TEST_F( GlimInspectTest, rowsThatStayWhileTheTableMoves ) {
   constexpr std::uint32_t staying = 50, others = 250;
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
         if( i % others == 0 ) {
            writer.commit();
         }
      }
   } );
   Reader reader( "t" );
   ASSERT_TRUE( reader.attach() );
   for( int round = 0; round != 1000; ++round ) {
      for( std::uint32_t i = 0; i != 20 * staying; ++i ) {
         Known record;
         bool const found = reader.get( i % staying, record );
         EXPECT_TRUE( found && record == known( i % staying ) ) << i;
      }
      auto const dump = dumpTable( "t" );
      EXPECT_EQ( dump.odd + dump.unreadable, 0u );
      ASSERT_GE( dump.rows.size(), staying );
      for( std::uint32_t i = 0; i != staying; ++i ) {
         EXPECT_EQ( dump.rows[ i ].first, Datum( i ) );
      }
   }
   stop = true;
   thread.join();
}

TEST_F( GlimInspectTest, typesThatAreNotKnown ) {
   TableWriter< std::uint16_t, Known > shaped( "shaped" );
   shaped.is( 300, known( 300 ) );
   shaped.is( 7, {} );
   auto dump = dumpTable( "shaped" );
   EXPECT_EQ( dump.form, TableDump::Form::shaped );
   EXPECT_EQ( dump.recordType, "GlimInspect::Known" );
   ASSERT_EQ( dump.rows.size(), 2u );
   EXPECT_EQ( dump.rows[ 0 ].first, Datum( 7u ) );
   EXPECT_EQ( Kiv::datumText( dump.rows[ 1 ].second ),
              R"({"number": 300, "part": {"colour": 1, "on": true}, "check": -300})" );

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
   static char const memory[ 33 ] =
         "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f\x10"
         "\x00\x00\x20\xc0\x15\x16\x17\x18\x19\x1a\x1b\x1c\x1d\x1e\xfd\xff";
   struct {
      char const * text;
      std::size_t bytes;
      char const * value;
   } const cases[] = {
         { "u16", 2, "513" },
         { "bool", 1, "true" },
         { "bytes3", 3, "010203" },
         { "{a@0 u8, b@2 u16, c@4 u32}", 8, R"({"a": 1, "b": 1027, "c": 134678021})" },
         { "{a@1 u8, b@4 {c@0 u8, d@4 bytes3}}", 12, R"({"a": 2, "b": {"c": 5, "d": "090a0b"}})" },
         { "{a@30 i16, b@16 float32, c@1 bool}", 32, R"({"a": -3, "b": -2.5, "c": "02"})" },
         { "{}", 1, "{}" },
   };
   for( auto const & each : cases ) {
      auto const shape = Shape::parse( each.text, each.bytes );
      ASSERT_TRUE( shape ) << each.text;
      EXPECT_EQ( Kiv::datumText( shape->datum( memory ) ), each.value ) << each.text;
   }
   // None, or none of one byte.
   for( char const * text :
        { "", "u7", "u16", "float8", "bytes0", "bytes99999999999999999999", "{a@0 u8", "{a@0 u8} ",
          "{a@0 u8,b@0 u8}", "{@0 u8}", "{a u8}", "{a@ u8}", "{a@1 u8}", "{a@0 {b@0 {c@1 u8}}}",
          "{a@99999999999999999999 u8}", "{a@18446744073709551615 u8}" } ) {
      EXPECT_FALSE( Shape::parse( text, 1 ) ) << text;
   }
   EXPECT_FALSE( Shape::parse( std::string( 100000, '{' ), 1 ) );
}

} // namespace
} // namespace Glim
