// SPDX-License-Identifier: Apache-2.0
// Tables under fire: writers and readers are processes of their own, and are killed at any moment.

#include "Glim/Table.h"
#include "platform/GlimFolder.h"
#include "platform/GlimProcesses.h"

#include <fcntl.h>
#include <fstream>
#include <map>
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

// What the writers have done, written down outside of the table: `begun` before the operation,
// `done` once it returned. Either is the operation's counter, twice, and one more if the row is
// there afterwards. Counters ascend over all operations.
struct Ledger {
   Report report;
   std::atomic< uint64_t > begun[ maxKeys ], done[ maxKeys ];
   std::atomic< uint64_t > counter;
   std::atomic< bool > open;   // the writer of the moment
   std::atomic< bool > opened; // any one so far
   std::atomic< bool > over;
};

bool
isLive( uint64_t mark ) {
   return mark & 1;
}

template< std::size_t words >
class Writing {
 public:
   Writing( Ledger & ledger, uint64_t keys, unsigned seed )
         : ledger_( ledger ), keys_( keys ), random_( seed ),
           writer_( "fire", { .lifetime = Lifetime::stays, .rows = 16, .changes = 1024 } ) {
      // The first one may have died before it could say that it was there.
      require( writer_.tookOver() || ( !writer_.found() && !ledger_.opened ),
               "how the table was found", writer_.found(), writer_.tookOver() );
      checkFormer();
      ledger_.opened = true;
      ledger_.open = true;
   }

   void run( uint64_t operations ) {
      uint64_t const share = random_() % 8; // so the number of rows rises and falls
      for( uint64_t i = 0; i != operations; ++i ) {
         uint64_t const key = random_() % ( random_() % 2 ? keys_ : 1 + keys_ / 16 );
         operation( key, random_() % 8 >= share );
         if( i % 16 == 0 ) {
            writer_.notify( key );
            writer_.commit();
         }
      }
   }

 private:
   void operation( uint64_t key, bool put ) {
      if( !put && !isLive( ledger_.done[ key ] ) ) {
         return;
      }
      uint64_t const counter = ++ledger_.counter, mark = counter * 2 + put;
      ledger_.begun[ key ] = mark;
      bool const changed =
            put ? writer_.is( key, Cell< words >::of( key, counter ) ) : writer_.del( key );
      ledger_.done[ key ] = mark;
      require( changed, "nothing changed", key, counter, put );
   }

   // What is() and del() returned from is there; what the former writer was killed in is there
   // wholly or not at all.
   void checkFormer() {
      uint64_t interrupted = 0, live = 0;
      for( uint64_t key = 0; key != keys_; ++key ) {
         uint64_t const begun = ledger_.begun[ key ], done = ledger_.done[ key ];
         Cell< words > cell;
         bool const there = writer_.get( key, cell );
         require( !there || cell.whole( key ), "torn row after a kill", key, cell.counter() );
         auto const is = [ & ]( uint64_t mark ) {
            return isLive( mark ) == there && ( !there || mark / 2 == cell.counter() );
         };
         require( is( begun ) || is( done ), "lost or invented row", key, begun, done );
         interrupted += begun != done;
         auto const mark = is( begun ) ? begun : done;
         ledger_.begun[ key ] = mark;
         ledger_.done[ key ] = mark;
         live += there;
      }
      require( interrupted <= 1, "operations at once", interrupted );
      require( live == writer_.rows(), "rows", live, writer_.rows() );
   }

   Ledger & ledger_;
   uint64_t const keys_;
   Random random_;
   Glim::TableWriter< uint64_t, Cell< words > > writer_;
};

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
      settle();
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
      uint64_t const done = ledger_.done[ key ];
      Cell< words > cell;
      bool const there = reader_.get( key, cell );
      uint64_t const begun = ledger_.begun[ key ];
      if( !there ) {
         require( !isLive( done ) || begun > done, "row not found", key, done, begun );
         return 0;
      }
      check( key, cell, std::max( seen_[ key ], done / 2 ) );
      require( cell.counter() != done / 2 || isLive( done ), "deleted row", key, done );
      seen_[ key ] = cell.counter();
      return cell.counter();
   }

   void check( uint64_t key, Cell< words > const & cell, uint64_t least ) {
      auto const counter = cell.counter();
      require( cell.whole( key ), "torn row", key, counter );
      require( counter >= least, "row of before", key, counter, least );
      require( counter <= ledger_.begun[ key ] / 2, "row of nobody", key, counter );
   }

   // A walk may show a row as it was when the walk began, never as it was before.
   Rows walk() {
      Rows rows;
      auto const least = seen_;
      std::vector< uint64_t > done( keys_ );
      std::copy_n( ledger_.done, keys_, done.begin() );
      reader_.forEach( [ & ]( uint64_t key, Cell< words > const & cell ) {
         require( key < keys_, "row of no key", key );
         check( key, cell, std::max( least[ key ], done[ key ] / 2 ) );
         rows[ key ] = cell.counter();
      } );
      for( uint64_t key = 0; key != keys_; ++key ) {
         require( rows.contains( key ) || !isLive( done[ key ] ) ||
                        ledger_.begun[ key ] != done[ key ],
                  "row not walked", key, done[ key ] );
      }
      return rows;
   }

   // All is quiet: what was followed is what is there, and that is what was done.
   void settle() {
      require( reader_.attach(), "no table" );
      while( follow() != Poll::nothing ) {
      }
      require( rows_ == walk(), "followed another table", rows_.size() );
      require( rows_.size() == reader_.rows(), "rows", rows_.size(), reader_.rows() );
      for( uint64_t key = 0; key != keys_; ++key ) {
         uint64_t const done = ledger_.done[ key ];
         auto const row = rows_.find( key );
         require( isLive( done ) ? row != rows_.end() && row->second == done / 2
                                 : row == rows_.end(),
                  "row at the end", key, done );
      }
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
killWriters( uint64_t keys, unsigned kills ) {
   SCOPED_TRACE( std::to_string( words ) + " words, " + std::to_string( keys ) + " keys" );
   GlimTests::Folder folder;
   Shared< Ledger > ledger;
   std::vector< Child > watchers;
   for( unsigned i = 0; i != 3; ++i ) {
      watchers.emplace_back( ledger->report,
                             [ &, i ] { Watching< words >( *ledger, keys, 100 + i ).run(); } );
   }
   Random random( static_cast< unsigned >( words ) );
   for( unsigned kill = 0; kill != kills; ++kill ) {
      ledger->open = false;
      Child writer( ledger->report, [ & ] {
         Writing< words >( *ledger, keys, 1000 + kill ).run( ~uint64_t( 0 ) );
      } );
      // Some die while they take over.
      while( kill % 4 != 0 && !ledger->open && !ledger->report.failed ) {
         ::usleep( 50 );
      }
      ::usleep( static_cast< unsigned >( random() % 2000 ) );
      ASSERT_TRUE( Child::wasKilled( writer.kill() ) ) << ledger->report.text << ", kill " << kill;
   }
   Child last( ledger->report, [ & ] { Writing< words >( *ledger, keys, 1 ).run( 1000 ); } );
   EXPECT_EQ( last.wait(), 0 ) << ledger->report.text;
   ledger->over = true;
   for( auto & watcher : watchers ) {
      EXPECT_EQ( watcher.wait(), 0 ) << ledger->report.text;
   }
}

TEST( GlimFire, WritersAreKilledAndNothingIsTornLostOrInvented ) {
   killWriters< 5 >( 64, 80 );
   killWriters< 5 >( maxKeys, 80 );
   killWriters< 40 >( 500, 80 );
   killWriters< 2048 >( 20, 80 );
}

// The table goes with every clean stop, so that it is made and removed all the time.
TEST( GlimFire, WritersAreKilledWhileTheyMakeAndRemoveTheTable ) {
   GlimTests::Folder folder;
   Shared< Ledger > ledger;
   using Record = Cell< 5 >;
   auto const write = [ & ]( int times ) {
      for( int i = 0; i != times; ++i ) {
         Glim::TableWriter< uint64_t, Record > writer( "fire", { .rows = 16, .changes = 64 } );
         for( uint64_t key = 0; key != 10; ++key ) {
            writer.is( key, Record::of( key, ++ledger->counter ) );
         }
      }
   };
   Child watcher( ledger->report, [ & ] {
      Glim::TableReader< uint64_t, Record > reader( "fire" );
      while( !ledger->over ) {
         if( reader.attach() ) {
            reader.poll( []( uint64_t key ) { require( key < 10, "change of no key", key ); } );
            reader.forEach( []( uint64_t key, Record const & record ) {
               require( record.whole( key ), "torn row", key, record.counter() );
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
   EXPECT_EQ( watcher.wait(), 0 ) << ledger->report.text;
   EXPECT_EQ( folder.files(), std::vector< std::string >() );
}

TEST( GlimFire, ReadersAreKilledAndTheWriterGoesOn ) {
   GlimTests::Folder folder;
   Shared< Report > report;
   using Record = Cell< 5 >;
   Glim::TableWriter< uint64_t, Record > writer( "fire", { .rows = 16, .changes = 64 } );
   Random random( 3 );
   std::map< uint64_t, uint64_t > model;
   uint64_t counter = 0;
   for( int kill = 0; kill != 100; ++kill ) {
      Child reader( *report, [ & ] {
         Glim::TableReader< uint64_t, Record > own( "fire" );
         while( true ) {
            require( own.attach(), "no table" );
            own.poll( []( uint64_t ) {} );
            own.forEach( []( uint64_t key, Record const & record ) {
               require( record.whole( key ), "torn row", key, record.counter() );
            } );
            own.detach();
         }
      } );
      auto const until = random() % 3000;
      for( uint64_t i = 0; i != until; ++i ) {
         uint64_t const key = random() % 200;
         if( random() % 3 ) {
            ASSERT_TRUE( writer.is( key, Record::of( key, ++counter ) ) );
            model[ key ] = counter;
         } else {
            ASSERT_EQ( writer.del( key ), model.erase( key ) == 1 );
         }
      }
      ::usleep( static_cast< unsigned >( random() % 1000 ) );
      ASSERT_TRUE( Child::wasKilled( reader.kill() ) ) << report->text;
   }
   // One that was killed before it could say anything.
   std::string const half = Glim::pathOf( "fire" ) + ".reader.4194305.1"; // above every number
   ASSERT_TRUE( std::ofstream( half ) );
   Glim::TableReader< uint64_t, Record > reader( "fire", { .reader = "last" } );
   ASSERT_TRUE( reader.attach() );
   auto const readers = Glim::ReaderFile::all( "fire" );
   ASSERT_EQ( readers.size(), 1u );
   EXPECT_STREQ( readers[ 0 ].reader, "last" );
   EXPECT_EQ( folder.files().size(), 3u ); // the table, its lock, and the reader's
   std::map< uint64_t, uint64_t > rows;
   reader.forEach( [ & ]( uint64_t key, Record const & record ) {
      EXPECT_TRUE( record.whole( key ) );
      rows[ key ] = record.counter();
   } );
   EXPECT_EQ( rows, model );
}

// Whoever wins is alone, and finds what the one before it left: a lock on a file that is no more
// would let two win.
TEST( GlimFire, OneWriterAtATime ) {
   struct Arena {
      Report report;
      std::atomic< int > owner;
      std::atomic< uint64_t > value, wins, refusals;
   };
   using Writer = Glim::TableWriter< uint64_t, uint64_t >;
   for( auto const lifetime : { Lifetime::goes, Lifetime::stays } ) {
      GlimTests::Folder folder;
      Shared< Arena > arena;
      // Returns whether it won.
      auto const compete = [ & ]( bool dies ) {
         std::unique_ptr< Writer > writer;
         auto const text = GlimTests::errorOf< Glim::Error >( [ & ] {
            writer = std::make_unique< Writer >(
                  "fire", Glim::WriterOptions{ .lifetime = lifetime, .rows = 16, .changes = 64 } );
         } );
         if( !writer ) {
            require( text.find( "has a writer" ) != text.npos, text.c_str() );
            ++arena->refusals;
            return false;
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
         if( dies ) {
            ::raise( SIGKILL );
         }
         return true;
      };
      std::vector< Child > rivals;
      for( int i = 0; i != 3; ++i ) {
         rivals.emplace_back( arena->report, [ & ] {
            for( int wins = 0; wins != 300; ) {
               wins += compete( false );
            }
         } );
      }
      for( int i = 0; i != 30; ++i ) {
         Child mortal( arena->report, [ & ] {
            while( !compete( true ) ) {
               ::sched_yield();
            }
         } );
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

   static Rows rowsOf( Reader & reader ) {
      Rows rows;
      reader.forEach( [ & ]( uint64_t key, Record const & record ) {
         EXPECT_TRUE( record.whole( key ) ) << key;
         rows[ key ] = record.counter();
      } );
      for( uint64_t key = 0; key != 40; ++key ) {
         Record record;
         EXPECT_EQ( reader.get( key, record ), rows.contains( key ) ) << key;
         EXPECT_TRUE( !rows.contains( key ) || record.counter() == rows[ key ] ) << key;
      }
      return rows;
   }

   // In place, for those who have the file open.
   void contentIs( std::string const & bytes ) const {
      std::fstream( path, std::ios::in | std::ios::out | std::ios::binary )
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
      Rows before, after, last;
      for( auto * rows : { &before, &after } ) {
         std::ofstream( path, std::ios::binary )
               << ( rows == &before ? images.front() : images.back() );
         Reader reader( "fire" );
         ASSERT_TRUE( reader.attach() );
         *rows = last = rowsOf( reader );
      }
      ASSERT_NE( before, after );
      last = before;
      // Of the many states of a region that is being filled, some.
      std::size_t const stride = 1 + images.size() / 100;
      for( std::size_t i = 0; i < images.size(); i += stride ) {
         SCOPED_TRACE( "state " + std::to_string( i ) + " of " + std::to_string( images.size() ) );
         std::ofstream( path, std::ios::binary ) << images.front();
         Reader reader( "fire" );
         ASSERT_TRUE( reader.attach() );
         ASSERT_EQ( reader.poll( []( uint64_t ) {} ), Poll::resynchronise );
         contentIs( images[ i ] );
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
   struct Case {
      char const * what;
      Step before, step;
      uint64_t key;
   };
   Step const fill = []( Writer & writer ) {
      for( uint64_t key = 0; key != 14; ++key ) {
         writer.is( key, Record::of( key, 1 ) );
      }
      writer.del( 3 );
   };
   Step const fillAll = []( Writer & writer ) {
      // Until the next one makes the table grow.
      for( uint64_t key = 20; key != 52; ++key ) {
         writer.is( key, Record::of( key, 1 ) );
      }
   };
   Step const deleteMost = []( Writer & writer ) {
      // 128 slots, of which a sixteenth is needed, and one more.
      for( uint64_t key = 0; key != 33; ++key ) {
         writer.is( key, Record::of( key, 1 ) );
      }
      for( uint64_t key = 8; key != 33; ++key ) {
         writer.del( key );
      }
   };
   for( Case const & each : {
              Case{ "replaced", fill, []( Writer & w ) { w.is( 5, Record::of( 5, 2 ) ); }, 5 },
              Case{ "inserted", fill, []( Writer & w ) { w.is( 30, Record::of( 30, 2 ) ); }, 30 },
              Case{ "again", fill, []( Writer & w ) { w.is( 3, Record::of( 3, 2 ) ); }, 3 },
              Case{ "deleted", fill, []( Writer & w ) { w.del( 7 ); }, 7 },
              Case{ "shrunk", deleteMost,
                    []( Writer & w ) {
                       w.del( 7 );
                       w.commit();
                    },
                    7 },
              Case{ "grown", fillAll, []( Writer & w ) { w.is( 0, Record::of( 0, 2 ) ); }, 0 },
        } ) {
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
   ASSERT_EQ( header.changeHead, ring );
   header.changeHead = header.changeReserved = 0;
   std::vector< Key > all;
   for( uint64_t n = 0; n != ring; ++n ) {
      all.push_back( keyOf( n ) );
   }
   uint64_t lost = 0;
   for( std::size_t i = 0; i != 2 * images.size(); ++i ) {
      SCOPED_TRACE( i );
      std::ofstream( path, std::ios::binary ) << first;
      Glim::TableReader< Key, Record > reader( "fire" );
      ASSERT_TRUE( reader.attach() );
      ASSERT_EQ( reader.poll( []( Key const & ) {} ), Poll::resynchronise );
      contentIs( images[ i / 2 ] );
      std::unique_ptr< Wide > next;
      auto const takeOver = [ & ] { next = std::make_unique< Wide >( "fire", options ); };
      std::vector< Key > told;
      auto const poll = [ & ] {
         told.clear();
         return reader.poll( [ & ]( Key const & key ) { told.push_back( key ); } );
      };
      if( i % 2 ) {
         takeOver();
      }
      auto const result = poll();
      lost += result == Poll::resynchronise;
      ASSERT_EQ( told, result == Poll::resynchronise ? std::vector< Key >() : all );
      if( !next ) {
         takeOver();
      }
      next->notify( keyOf( 1000 ) );
      ASSERT_EQ( poll(), Poll::changed );
      ASSERT_EQ( told, std::vector< Key >{ keyOf( 1000 ) } );
   }
   EXPECT_GT( lost, 0u );
   EXPECT_LE( lost, 2 * ( images.size() - 1 ) );
}

} // namespace
