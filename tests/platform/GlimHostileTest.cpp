// SPDX-License-Identifier: Apache-2.0
// Tables that are not what they should be: cut off, noise, of somebody else. Whoever opens them gets
// one clear error, or what little there is; nobody crashes, hangs, or reads anything else.

#include "Glim/Inspect.h"
#include "Glim/Table.h"
#include "platform/GlimFolder.h"
#include "platform/GlimProcesses.h"

#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <sys/stat.h>

namespace {

using Glim::Layout::Header;
using GlimTests::Child;
using GlimTests::errorOf;
using std::uint64_t;

using Record = GlimTests::Cell< 5 >;
using Writer = Glim::TableWriter< uint64_t, Record >;
using Reader = Glim::TableReader< uint64_t, Record >;
using Bytes = std::string;

constexpr uid_t nobody = 65534;
constexpr uint64_t rows = 60;

Glim::WriterOptions const staying{ .lifetime = Glim::Lifetime::stays, .rows = 16, .changes = 64 };
Glim::WriterOptions const replacing{
      .lifetime = Glim::Lifetime::stays, .rows = 16, .changes = 64, .replace = true };

// An error is one line that names the table. Returns whether it is one, and none is fine, too.
bool
isClear( std::string const & text ) {
   return text.empty() || ( text.find( '\n' ) == text.npos && text.find( "\"t\"" ) != text.npos &&
                            text.size() > 20 );
}

template< class Use >
std::string
isFine( Use const & use ) {
   auto const text = errorOf< Glim::Error >( use );
   EXPECT_TRUE( isClear( text ) ) << text;
   return text;
}

// Whatever notices first, on different turns.
void
useReader( Reader & reader, int turn = 0 ) {
   Record record;
   uint64_t count = 0;
   for( int i = 0; i != 3; ++i ) {
      if( ( turn + i ) % 3 == 0 ) {
         for( uint64_t key = 0; key != 2 * rows; ++key ) {
            count += reader.get( key, record );
         }
      } else if( ( turn + i ) % 3 == 1 ) {
         reader.forEach( [ & ]( uint64_t, Record const & ) { ++count; } );
      } else {
         reader.poll( [ & ]( uint64_t key ) { reader.get( key, record ); } );
      }
   }
   reader.wait( 0 );
   count += reader.rows() + reader.quiesced() + reader.written();
}

// A writer that accepts the table goes on with it: what it writes can be read.
void
useWriter( Writer & writer ) {
   for( uint64_t key = 0; key != rows; ++key ) {
      writer.is( key, Record::of( key, 3 ) );
      writer.del( key + 1 );
   }
   for( uint64_t key = 1000; key != 1300; ++key ) {
      writer.is( key, Record::of( key, 4 ) );
   }
   writer.commit();
   Reader reader( "t" );
   reader.attach();
   for( uint64_t key = 1000; key != 1300; ++key ) {
      Record record;
      ASSERT_TRUE( reader.get( key, record ) && record.whole( key ) ) << key;
   }
}

class GlimHostile : public testing::Test {
 protected:
   // The bytes of a sound table that has grown.
   GlimHostile() {
      {
         Writer writer( "t", staying );
         for( uint64_t key = 0; key != rows; ++key ) {
            writer.is( key, Record::of( key, 1 ) );
            writer.del( key / 2 + 1 );
         }
         for( uint64_t key = 0; key != rows; ++key ) {
            writer.is( key, Record::of( key, 2 ) );
         }
      }
      std::ifstream file( path, std::ios::binary );
      image.assign( std::istreambuf_iterator< char >( file ), {} );
      ::alarm( 300 ); // a hang ends the test
   }
   ~GlimHostile() override { ::alarm( 0 ); }

   // `bytes` as the file's content, kept in place by those who have it open.
   void write( Bytes const & bytes ) const {
      std::ofstream( path, std::ios::binary )
            .write( bytes.data(), static_cast< long >( bytes.size() ) );
   }

   // Readers and writers try themselves at the table, one of them a reader that long believed it; the
   // last one replaces it and succeeds. Returns how the first one failed.
   std::string survives( Bytes const & bytes, std::string const & what ) const {
      SCOPED_TRACE( what );
      write( image );
      Reader old( "t" );
      EXPECT_TRUE( old.attach() );
      useReader( old );
      write( bytes );
      static int turn = 0;
      auto const fault = isFine( [ & ] { useReader( old, ++turn ); } );
      EXPECT_TRUE( fault.empty() || !old.attached() );
      isFine( [] {
         Reader reader( "t" );
         if( reader.attach() ) {
            useReader( reader );
         }
      } );
      isFine( [] {
         Glim::inspect( "t" );
         Glim::dumpTable( "t" );
      } );
      std::string text;
      for( auto const & options : { staying, replacing } ) {
         write( bytes );
         text = isFine( [ & ] {
            Writer writer( "t", options );
            useWriter( writer );
         } );
      }
      EXPECT_EQ( text, "" );
      return fault;
   }

   // What cannot be opened at all.
   void refused( std::string const & what ) const {
      for( auto const & options : { staying, replacing } ) {
         EXPECT_NE( isFine( [ & ] { Writer( "t", options ); } ), "" ) << what;
      }
   }
   void unreadable( std::string const & what ) const {
      EXPECT_NE( isFine( [] { Reader( "t" ).attach(); } ), "" ) << what;
   }

   GlimTests::Folder folder;
   std::string const path = Glim::pathOf( "t" ), lockPath = path + ".lock";
   Bytes image;
   std::minstd_rand random{ 11 };
};

TEST_F( GlimHostile, CutOffAtAnyLength ) {
   std::vector< std::size_t > lengths{ 0, 1, 7, 8, 100, image.size() - 1, image.size() + 1 };
   for( std::size_t length = 256; length < image.size(); length += 256 ) {
      lengths.push_back( length );
   }
   for( auto const length : lengths ) {
      Bytes bytes = image;
      bytes.resize( length, '\xff' );
      auto const fault = survives( bytes, std::to_string( length ) + " bytes" );
      EXPECT_TRUE( length >= 4096 || fault != "" );
   }
}

TEST_F( GlimHostile, EveryHeaderField ) {
   std::size_t const textBegin = offsetof( Header, table ), textEnd = offsetof( Header, epoch );
   for( std::size_t at = 0; at < sizeof( Header ); at += 4 ) {
      if( at > textBegin && at < textEnd && at % 64 != 60 ) {
         continue;
      }
      std::uint32_t former = 0;
      std::memcpy( &former, &image[ at ], 4 );
      for( std::uint32_t const value :
           { 0u, ~0u, former + 1, former ^ 0x80000000u, former * 2 + 4096, ~0u << 12,
             static_cast< std::uint32_t >( random() ) } ) {
         Bytes bytes = image;
         std::memcpy( &bytes[ at ], &value, 4 );
         survives( bytes, "word at " + std::to_string( at ) + ": " + std::to_string( value ) );
      }
   }
}

TEST_F( GlimHostile, Noise ) {
   std::size_t const behind = Glim::Layout::roundUp( sizeof( Header ), Glim::Layout::lineBytes );
   struct {
      char const * what;
      std::size_t from, to;
      unsigned oneIn;
   } const places[] = { { "all", 0, image.size(), 1 },
                        { "header", 16, behind, 1 },
                        { "counters", offsetof( Header, epoch ), behind, 8 },
                        { "all behind the header", behind, image.size(), 1 },
                        { "journal", behind, behind + 512, 4 },
                        { "many flecks", behind, image.size(), 20 },
                        { "flecks", behind, image.size(), 500 },
                        { "few flecks", behind, image.size(), 5000 } };
   for( int i = 0; i != 5; ++i ) {
      for( auto const & [ what, from, to, oneIn ] : places ) {
         Bytes bytes = image;
         for( std::size_t at = from; at != to; ++at ) {
            if( random() % oneIn == 0 ) {
               bytes[ at ] = static_cast< char >( random() >> 8 );
            }
         }
         survives( bytes, what + ( ", number " + std::to_string( i ) ) );
      }
   }
   // No slot is empty: no search ends at one.
   for( uint64_t const word : { 4u, 2u, 6u, 7u, 1u } ) {
      Bytes bytes = image;
      for( std::size_t at = 4096; at + 64 <= bytes.size(); at += 64 ) {
         std::memcpy( &bytes[ at ], &word, 8 );
      }
      survives( bytes, "slots of " + std::to_string( word ) );
   }
}

// The header says so many slots, and the file is as long as that, but nothing is in it.
TEST_F( GlimHostile, Huge ) {
   for( unsigned const power : { 20u, 24u, 32u, 40u } ) {
      uint64_t const slots = uint64_t( 1 ) << power;
      Bytes bytes = image;
      for( std::size_t i = 0; i != 2; ++i ) {
         auto const at = offsetof( Header, region ) + i * sizeof( Glim::Layout::Region ) +
                         offsetof( Glim::Layout::Region, slots );
         std::memcpy( &bytes[ at ], &slots, 8 );
      }
      write( bytes );
      if( ::truncate( path.c_str(), static_cast< off_t >( 65536 + slots * 64 ) ) != 0 ) {
         continue; // more than the file system has numbers for
      }
      isFine( [] {
         Reader reader( "t" );
         Record record;
         for( uint64_t key = 0; reader.attach() && key != 100; ++key ) {
            reader.get( key, record );
         }
      } );
      EXPECT_NE( isFine( [] { Writer( "t", staying ); } ), "" );
      // Looking at rows that are not there would use memory up.
      auto const report = Glim::inspect( "t" );
      EXPECT_NE( report.fault, "" );
      EXPECT_NE( isFine( [] { Glim::dumpTable( "t" ); } ), "" );
      EXPECT_LE( Glim::inspect( "t" ).memoryBytes, report.memoryBytes + 8192 );
      Writer writer( "t", replacing );
      useWriter( writer );
   }
}

TEST_F( GlimHostile, NoRegularFile ) {
   auto const clear = [ & ]( std::string const & at ) { std::filesystem::remove_all( at ); };
   for( std::string const & at : { path, lockPath } ) {
      auto const tried = [ & ]( std::string const & what ) {
         refused( what + " as " + at );
         if( at == path ) {
            unreadable( what );
            EXPECT_EQ( Glim::inspect( "t" ).fault, "it is no regular file" );
         } else {
            EXPECT_TRUE( Reader( "t" ).attach() ); // no reader's business
         }
         clear( at );
      };
      clear( at );
      std::filesystem::create_directories( at + "/inside" );
      tried( "directory" );
      ASSERT_EQ( ::mkfifo( at.c_str(), 0644 ), 0 );
      tried( "fifo" );
      for( std::string const target : { "/nowhere/at/all", "elsewhere", "/dev/zero" } ) {
         std::ofstream( folder.path + "/elsewhere" ) << image;
         std::filesystem::create_symlink( target, at );
         tried( "link to " + target );
      }
      clear( folder.path + "/elsewhere" );
      write( image );
   }
   clear( path );
   std::filesystem::create_directories( path + ".new/inside" );
   refused( "directory in the way" );
   clear( path + ".new" );
   EXPECT_EQ( errorOf< Glim::Error >( [] { Writer( "t", staying ); } ), "" );
   ::setenv( "HOBA_GLIM_DIR", ( folder.path + "/nowhere" ).c_str(), 1 );
   refused( "no folder" );
   EXPECT_FALSE( Reader( "t" ).attach() );
   EXPECT_TRUE( Glim::tableNames().empty() );
   ::setenv( "HOBA_GLIM_DIR", "", 1 ); // as if it were not set
   EXPECT_EQ( Glim::folder(), "/dev/shm" );
   ::setenv( "HOBA_GLIM_DIR", folder.path.c_str(), 1 );
}

TEST_F( GlimHostile, CutOffUnderItsWriter ) {
   for( std::size_t const length : { std::size_t( 0 ), std::size_t( 4096 ), image.size() / 2 } ) {
      write( image );
      auto writer = std::make_unique< Writer >( "t", staying );
      std::filesystem::resize_file( path, length );
      auto const text = isFine( [ & ] {
         for( uint64_t key = 0; key != 10'000; ++key ) {
            writer->is( key, Record::of( key, 7 ) );
            writer->commit();
         }
      } );
      EXPECT_NE( text.find( "cut off" ), text.npos ) << text;
      writer.reset();
      Writer next( "t", replacing );
      useWriter( next );
   }
}

// Only the superuser can give files away, and become somebody else.
class GlimUsers : public GlimHostile {
 protected:
   bool const able = ::geteuid() == 0 && ::chmod( folder.path.c_str(), 01777 ) == 0;
};

TEST_F( GlimUsers, FilesOfOthersAreNotTrusted ) {
   if( able ) {
      ASSERT_EQ( ::chown( path.c_str(), nobody, nobody ), 0 );
      EXPECT_TRUE( Glim::inspect( "t" ).foreign );
      unreadable( "another user's" );
      refused( "another user's" );
      ASSERT_EQ( ::chown( path.c_str(), 0, 0 ), 0 );
      ASSERT_EQ( ::chown( lockPath.c_str(), nobody, nobody ), 0 );
      refused( "another user's lock" );
      EXPECT_TRUE( Reader( "t" ).attach() );
   }
}

TEST_F( GlimUsers, OthersReadAndNothingElse ) {
   using std::filesystem::perms;
   EXPECT_EQ( std::filesystem::status( path ).permissions(), perms( 0644 ) );
   EXPECT_EQ( std::filesystem::status( lockPath ).permissions(), perms( 0600 ) );
   if( able ) {
      GlimTests::Shared< GlimTests::Report > report;
      Child child( *report, [ & ] {
         using GlimTests::require;
         require( ::setgid( nobody ) == 0 && ::setuid( nobody ) == 0, "still root" );
         Reader reader( "t" );
         require( reader.attach() && reader.has( 1 ), "nothing to read" );
         for( auto const & options : { staying, replacing } ) {
            require( errorOf< Glim::Error >( [ & ] { Writer( "t", options ); } ) != "", "written" );
         }
      } );
      EXPECT_EQ( child.wait(), 0 ) << report->text;
   }
}

} // namespace
