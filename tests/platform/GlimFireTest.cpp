// SPDX-License-Identifier: Apache-2.0
// Tables under fire: writers and readers are processes of their own, and are killed at any moment.

#include "Glim/Inspect.h"
#include "Glim/Table.h"
#include "platform/GlimFolder.h"
#include "platform/GlimProcesses.h"

#include <fcntl.h>
#include <fstream>
#include <memory>
#include <random>
#include <sched.h>
#include <sys/ptrace.h>

namespace {

using Glim::Lifetime;
using Glim::Poll;
using GlimTests::Cell;
using GlimTests::Child;
using GlimTests::Report;
using GlimTests::require;
using GlimTests::Shared;
using std::uint64_t;

using Random = std::minstd_rand;
using Rows = std::map< uint64_t, uint64_t >; // the counter of every key

constexpr uint64_t maxKeys = 8192;

// What the processes know of each other besides the table.
struct Ledger {
   Report report;
   std::atomic< uint64_t > counter; // of all operations
   std::atomic< bool > open;        // the writer of the moment
   std::atomic< bool > opened;      // any one so far
   std::atomic< bool > over;
};

// Once written, every third row is never deleted.
bool
stands( uint64_t key ) {
   return key % 3 == 0;
}

template< std::size_t words >
void
checkCell( uint64_t key, Cell< words > const & cell, uint64_t least, uint64_t most ) {
   require( cell.whole( key ), "torn row", key, cell.counter() );
   require( cell.counter() >= least, "row of before", key, cell.counter(), least );
   require( cell.counter() <= most, "row of nobody", key, cell.counter(), most );
}

template< std::size_t words >
void
write( Ledger & ledger, uint64_t keys, unsigned seed, uint64_t operations ) {
   Random random( seed );
   Glim::TableWriter< uint64_t, Cell< words > > writer(
         "fire", { .lifetime = Lifetime::stays, .rows = 16, .changes = 1024 } );
   // The first one may have died before it could say that it was there.
   require( writer.tookOver() || ( !writer.found() && !ledger.opened ), "how it was found",
            writer.found(), writer.tookOver() );
   uint64_t rows = 0;
   writer.forEach( [ & ]( uint64_t key, Cell< words > const & cell ) {
      checkCell( key, cell, 0, ledger.counter );
      ++rows;
   } );
   require( rows == writer.rows(), "rows", rows, writer.rows() );
   ledger.opened = true;
   ledger.open = true;
   uint64_t const share = random() % 8; // so the number of rows rises and falls
   for( uint64_t i = 0; i != operations; ++i ) {
      uint64_t const key = random() % ( random() % 2 ? keys : 1 + keys / 16 );
      if( !stands( key ) && random() % 8 < share ) {
         writer.del( key );
      } else {
         require( writer.is( key, Cell< words >::of( key, ++ledger.counter ) ), "no change", key );
      }
      if( i % 16 == 0 ) {
         writer.notify( key );
         writer.commit();
      }
   }
}

template< std::size_t words >
class Watching {
 public:
   Watching( Ledger & ledger, uint64_t keys, unsigned seed )
         : ledger_( ledger ), keys_( keys ), random_( seed ), seen_( keys ),
           reader_( "fire", { .reader = "watching" } ) {}

   void run() {
      while( !ledger_.over ) {
         if( !reader_.attach() ) {
            ::sched_yield();
            continue;
         }
         follow();
         for( int i = 0; i != 20; ++i ) {
            observe( random_() % keys_ );
         }
         if( random_() % 16 == 0 ) {
            walk();
         }
         if( random_() % 8 == 0 ) {
            reader_.wait( 0.0005 );
         }
         if( random_() % 1024 == 0 ) {
            reader_.detach();
         }
      }
      // All is quiet: what was followed is what is there.
      require( reader_.attach(), "no table" );
      while( follow() != Poll::nothing ) {
      }
      require( rows_ == walk(), "followed another table", rows_.size() );
      require( rows_.size() == reader_.rows(), "rows", rows_.size(), reader_.rows() );
   }

 private:
   Poll follow() {
      auto const result = reader_.poll(
            [ & ]( uint64_t key ) {
               require( key < keys_, "change of no key", key );
               if( auto const counter = observe( key ) ) {
                  rows_[ key ] = counter;
               } else {
                  rows_.erase( key );
               }
            },
            1 + random_() % 300 );
      require( result != Poll::gone, "the table is gone" );
      if( result == Poll::resynchronise ) {
         rows_ = walk();
      }
      return result;
   }

   // The counter of the row, 0 if there is none.
   uint64_t observe( uint64_t key ) {
      Cell< words > cell;
      if( !reader_.get( key, cell ) ) {
         require( !stands( key ) || seen_[ key ] == 0, "row not found", key, seen_[ key ] );
         return 0;
      }
      checkCell( key, cell, seen_[ key ], ledger_.counter );
      return seen_[ key ] = cell.counter();
   }

   Rows walk() {
      Rows rows;
      reader_.forEach( [ & ]( uint64_t key, Cell< words > const & cell ) {
         require( key < keys_, "row of no key", key );
         checkCell( key, cell, seen_[ key ], ledger_.counter );
         rows[ key ] = cell.counter();
      } );
      for( uint64_t key = 0; key < keys_; key += 3 ) {
         require( rows.contains( key ) || seen_[ key ] == 0, "row not walked", key );
      }
      return rows;
   }

   Ledger & ledger_;
   uint64_t const keys_;
   Random random_;
   std::vector< uint64_t > seen_;
   Rows rows_;
   Glim::TableReader< uint64_t, Cell< words > > reader_;
};

template< std::size_t words >
void
killWriters( uint64_t keys ) {
   SCOPED_TRACE( std::to_string( words ) + " words, " + std::to_string( keys ) + " keys" );
   GlimTests::Folder folder;
   Shared< Ledger > ledger;
   std::vector< Child > watchers;
   for( unsigned i = 0; i != 3; ++i ) {
      watchers.emplace_back( ledger->report,
                             [ &, i ] { Watching< words >( *ledger, keys, 100 + i ).run(); } );
   }
   Random random( static_cast< unsigned >( words ) );
   for( unsigned kill = 0; kill != 80; ++kill ) {
      ledger->open = false;
      Child writer( ledger->report,
                    [ & ] { write< words >( *ledger, keys, 1000 + kill, ~uint64_t( 0 ) ); } );
      // Some die while they take over.
      while( kill % 4 != 0 && !ledger->open && !ledger->report.failed ) {
         ::usleep( 50 );
      }
      ::usleep( static_cast< unsigned >( random() % 2000 ) );
      ASSERT_TRUE( Child::wasKilled( writer.kill() ) ) << ledger->report.text << ", kill " << kill;
   }
   EXPECT_NO_THROW( write< words >( *ledger, keys, 1, 1000 ) );
   ledger->over = true;
   for( auto & watcher : watchers ) {
      EXPECT_EQ( watcher.wait(), 0 ) << ledger->report.text;
   }
}

TEST( GlimFire, WritersAreKilledAndNothingIsTornLostOrInvented ) {
   killWriters< 5 >( 64 );
   killWriters< 5 >( maxKeys );
   killWriters< 40 >( 500 );
   killWriters< 2048 >( 20 );
}

// The table goes with every clean stop, so that it is made and removed all the time.
TEST( GlimFire, WritersAreKilledWhileTheyMakeAndRemoveTheTable ) {
   GlimTests::Folder folder;
   Shared< Ledger > ledger;
   auto const write = [ & ]( int times ) {
      for( int i = 0; i != times; ++i ) {
         Glim::TableWriter< uint64_t, Cell< 5 > > writer( "fire", { .rows = 16, .changes = 64 } );
         for( uint64_t key = 0; key != 10; ++key ) {
            writer.is( key, Cell< 5 >::of( key, ++ledger->counter ) );
         }
      }
   };
   Child reader( ledger->report, [ & ] {
      Glim::TableReader< uint64_t, Cell< 5 > > own( "fire" );
      while( !ledger->over ) {
         if( own.attach() ) {
            own.poll( []( uint64_t key ) { require( key < 10, "change of no key", key ); } );
            own.forEach( []( uint64_t key, Cell< 5 > const & cell ) {
               require( cell.whole( key ), "torn row", key, cell.counter() );
            } );
         }
      }
   } );
   Random random( 5 );
   for( int kill = 0; kill != 60; ++kill ) {
      Child writer( ledger->report, [ & ] { write( 1'000'000 ); } );
      ::usleep( static_cast< unsigned >( 500 + random() % 2000 ) );
      ASSERT_TRUE( Child::wasKilled( writer.kill() ) ) << ledger->report.text << ", kill " << kill;
   }
   write( 2 );
   ledger->over = true;
   EXPECT_EQ( reader.wait(), 0 ) << ledger->report.text;
   EXPECT_EQ( folder.files(), std::vector< std::string >() );
}

// Whoever wins is alone, and finds what the one before it left: a lock on a file that is no more
// would let two win.
TEST( GlimFire, OneWriterAtATime ) {
   struct Arena {
      Report report;
      std::atomic< int > owner;
      std::atomic< uint64_t > value, wins;
   };
   for( auto const lifetime : { Lifetime::goes, Lifetime::stays } ) {
      GlimTests::Folder folder;
      Shared< Arena > arena;
      // Until it has won so many times; some die of the last one.
      auto const compete = [ & ]( int times, bool dies ) {
         while( times != 0 ) {
            std::unique_ptr< Glim::TableWriter< uint64_t, uint64_t > > writer;
            auto const text = GlimTests::errorOf< Glim::Error >( [ & ] {
               writer = std::make_unique< Glim::TableWriter< uint64_t, uint64_t > >(
                     "fire",
                     Glim::WriterOptions{ .lifetime = lifetime, .rows = 16, .changes = 64 } );
            } );
            if( !writer ) {
               require( text.find( "has a writer" ) != text.npos, text.c_str() );
               continue;
            }
            require( arena->owner.exchange( ::getpid() ) == 0, "two writers" );
            uint64_t found = 0;
            writer->get( 1, found );
            uint64_t const value = arena->value;
            require( found == value, "found what another left", found, value );
            writer->is( 1, value + 1 );
            arena->value = lifetime == Lifetime::goes && !dies ? 0 : value + 1;
            ++arena->wins;
            arena->owner = 0;
            if( --times == 0 && dies ) {
               ::raise( SIGKILL );
            }
         }
      };
      std::vector< Child > rivals;
      for( int i = 0; i != 3; ++i ) {
         rivals.emplace_back( arena->report, [ & ] { compete( 300, false ); } );
      }
      for( int i = 0; i != 30; ++i ) {
         Child mortal( arena->report, [ & ] { compete( 1, true ); } );
         ASSERT_TRUE( Child::wasKilled( mortal.wait() ) ) << arena->report.text;
      }
      for( auto & rival : rivals ) {
         EXPECT_EQ( rival.wait(), 0 ) << arena->report.text;
      }
      EXPECT_EQ( arena->wins, 930u );
   }
}

// Every state of the memory that there is while a writer does one thing: it is stopped after each
// of its instructions. What a kill leaves is one of them.
class GlimSteps : public testing::Test {
 protected:
   using Record = Cell< 3 >;
   using Writer = Glim::TableWriter< uint64_t, Record >;
   using Reader = Glim::TableReader< uint64_t, Record >;
   using Step = void ( * )( Writer & );
   static constexpr Glim::WriterOptions options{
         .lifetime = Lifetime::stays, .rows = 16, .changes = 64 };

   // Walked, searched for, and looked at from outside.
   static Rows rowsOf( Reader & reader ) {
      Rows rows;
      reader.forEach( [ & ]( uint64_t key, Record const & record ) {
         EXPECT_TRUE( record.whole( key ) ) << key;
         rows[ key ] = record.counter();
      } );
      for( uint64_t key = 0; key != 60; ++key ) {
         Record record;
         EXPECT_EQ( reader.get( key, record ), rows.contains( key ) ) << key;
         EXPECT_TRUE( !rows.contains( key ) || record.counter() == rows[ key ] ) << key;
      }
      auto const dump = Glim::dumpTable( "fire" );
      EXPECT_EQ( dump.rows.size() + dump.unreadable, rows.size() );
      for( auto const & [ key, record ] : dump.rows ) {
         EXPECT_TRUE( rows.contains( *key.as< uint64_t >() ) );
      }
      auto const report = Glim::inspect( "fire" );
      EXPECT_EQ( report.rows, rows.size() );
      EXPECT_EQ( report.fault, "" );
      return rows;
   }

   // In place, for those who have the file open; else as a new file.
   void contentIs( std::string const & bytes, bool inPlace ) const {
      std::fstream( path, std::ios::out | std::ios::binary |
                                ( inPlace ? std::ios::in : std::ios::trunc ) )
            .write( bytes.data(), static_cast< long >( bytes.size() ) );
   }

   // From before the step to after it.
   template< class W >
   std::vector< std::string > imagesOf( void ( *before )( W & ), void ( *step )( W & ) ) const {
      std::filesystem::remove( path );
      Shared< Report > report;
      Child child( *report, [ & ] {
         W writer( "fire", options );
         before( writer );
         ::ptrace( PTRACE_TRACEME, 0, nullptr, nullptr );
         ::raise( SIGSTOP );
         step( writer );
         ::raise( SIGKILL );
      } );
      std::vector< std::string > images;
      std::vector< char > now( 1 << 16 ); // more than there is
      Glim::Fd file;
      for( int status = 0; ::waitpid( child.pid(), &status, 0 ) > 0 && WIFSTOPPED( status ); ) {
         if( !file ) {
            file = Glim::Fd( ::open( path.c_str(), O_RDONLY ) );
         }
         auto const bytes = ::pread( file.get(), now.data(), now.size(), 0 );
         std::string_view const content( now.data(), bytes > 0 ? std::size_t( bytes ) : 0 );
         if( images.empty() || images.back() != content ) {
            images.emplace_back( content );
         }
         ::ptrace( PTRACE_SINGLESTEP, child.pid(), nullptr, nullptr );
      }
      child.waitedFor();
      return images;
   }

   // Whoever reads sees what was before, or what is after it, and from then on nothing else; the next
   // writer has what readers saw, and tells of it whom it was not told.
   void check( std::vector< std::string > const & images, uint64_t key ) const {
      ASSERT_GT( images.size(), 2u );
      auto const rowsIn = [ & ]( std::string const & image ) {
         contentIs( image, false );
         Reader reader( "fire" );
         EXPECT_TRUE( reader.attach() );
         return rowsOf( reader );
      };
      Rows last = rowsIn( images.front() );
      Rows const after = rowsIn( images.back() );
      ASSERT_NE( last, after );
      // Of the many states of a region that is being filled, some.
      std::size_t const stride = 1 + images.size() / 100;
      for( std::size_t i = 0; i < images.size(); i += stride ) {
         SCOPED_TRACE( "state " + std::to_string( i ) + " of " + std::to_string( images.size() ) );
         contentIs( images.front(), false );
         Reader reader( "fire" );
         ASSERT_TRUE( reader.attach() );
         ASSERT_EQ( reader.poll( []( uint64_t ) {} ), Poll::resynchronise );
         contentIs( images[ i ], true );
         auto const seen = rowsOf( reader );
         ASSERT_TRUE( seen == last || seen == after );
         last = seen;
         Writer next( "fire", options );
         ASSERT_TRUE( next.tookOver() );
         auto const settled = rowsOf( reader );
         // What nobody saw may be completed.
         ASSERT_TRUE( settled == seen || settled == after );
         ASSERT_EQ( next.rows(), settled.size() );
         std::vector< uint64_t > told;
         reader.poll( [ & ]( uint64_t changed ) { told.push_back( changed ); } );
         ASSERT_EQ( std::count( told.begin(), told.end(), key ), settled == after );
      }
      EXPECT_TRUE( stride != 1 || last == after );
   }

   GlimTests::Folder folder;
   std::string const path = Glim::pathOf( "fire" );
};

TEST_F( GlimSteps, NoStateBetweenIsSeen ) {
   static constexpr auto put = []( Writer & writer, uint64_t from, uint64_t to ) {
      for( uint64_t key = from; key != to; ++key ) {
         writer.is( key, Record::of( key, 1 ) );
      }
   };
   Step const fill = []( Writer & writer ) {
      put( writer, 0, 14 );
      writer.del( 3 );
   };
   // Until the next one makes the table grow.
   Step const fillAll = []( Writer & writer ) { put( writer, 20, 52 ); };
   // 128 slots, of which a sixteenth is needed, and one more.
   Step const deleteMost = []( Writer & writer ) {
      put( writer, 0, 33 );
      for( uint64_t key = 8; key != 33; ++key ) {
         writer.del( key );
      }
   };
   Step const shrink = []( Writer & writer ) {
      writer.del( 7 );
      writer.commit();
   };
   struct Case {
      char const * what;
      Step before, step;
      uint64_t key;
   } const cases[] = {
         { "replaced", fill, []( Writer & w ) { w.is( 5, Record::of( 5, 2 ) ); }, 5 },
         { "inserted", fill, []( Writer & w ) { w.is( 30, Record::of( 30, 2 ) ); }, 30 },
         { "again", fill, []( Writer & w ) { w.is( 3, Record::of( 3, 2 ) ); }, 3 },
         { "deleted", fill, []( Writer & w ) { w.del( 7 ); }, 7 },
         { "shrunk", deleteMost, shrink, 7 },
         { "grown", fillAll, []( Writer & w ) { w.is( 0, Record::of( 0, 2 ) ); }, 0 },
   };
   for( auto const & each : cases ) {
      SCOPED_TRACE( each.what );
      check( imagesOf( each.before, each.step ), each.key );
   }
}

// A reader exactly one ring behind has yet to be told what stands where the next change goes. It is
// told that, or that it has lost something; never a key that is half of one and half of another.
TEST_F( GlimSteps, AReaderOneRingBehindIsToldAllOrThatItIsNot ) {
   using Key = std::array< uint64_t, 4 >;
   using Wide = Glim::TableWriter< Key, Record >;
   static constexpr auto keyOf = []( uint64_t n ) { return Key{ n, n + 100, n + 200, n + 300 }; };
   static constexpr uint64_t ring = 64;
   auto const images = imagesOf< Wide >(
         []( Wide & writer ) {
            for( uint64_t n = 0; n != ring; ++n ) {
               writer.notify( keyOf( n ) );
            }
         },
         []( Wide & writer ) { writer.notify( keyOf( ring ) ); } );
   ASSERT_GT( images.size(), 6u );
   // When the reader attached, nothing had been told yet.
   auto first = images.front();
   auto & header = *reinterpret_cast< Glim::Layout::Header * >( first.data() );
   header.changeHead = header.changeReserved = 0;
   std::vector< Key > all;
   for( uint64_t n = 0; n != ring; ++n ) {
      all.push_back( keyOf( n ) );
   }
   uint64_t lost = 0;
   for( std::size_t i = 0; i != 2 * images.size(); ++i ) {
      SCOPED_TRACE( i );
      contentIs( first, false );
      Glim::TableReader< Key, Record > reader( "fire" );
      ASSERT_TRUE( reader.attach() );
      std::vector< Key > told;
      auto const poll = [ & ] {
         told.clear();
         return reader.poll( [ & ]( Key const & key ) { told.push_back( key ); } );
      };
      ASSERT_EQ( poll(), Poll::resynchronise );
      contentIs( images[ i / 2 ], true );
      // Before or after the next writer has taken over.
      auto next = i % 2 ? std::make_unique< Wide >( "fire", options ) : nullptr;
      auto const result = poll();
      lost += result == Poll::resynchronise;
      ASSERT_EQ( told, result == Poll::resynchronise ? std::vector< Key >() : all );
      if( !next ) {
         next = std::make_unique< Wide >( "fire", options );
      }
      next->notify( keyOf( 1000 ) );
      ASSERT_EQ( poll(), Poll::changed );
      ASSERT_EQ( told, std::vector< Key >{ keyOf( 1000 ) } );
   }
   EXPECT_GT( lost, 0u );
   EXPECT_LE( lost, 2 * ( images.size() - 1 ) );
}

} // namespace
