// SPDX-License-Identifier: Apache-2.0
#include "Glim/Collection.h"
#include "Kiv/ClockDriver.h"
#include "Kiv/Reactor.h"
#include "Kiv/Reflect.h"
#include "Tessera/Database.h"
#include "platform/GlimFolder.h"
#include "platform/GlimProcesses.h"

#include <deque>
#include <poll.h>

namespace GlimTests {

using std::uint64_t;

struct Answer {
   KIV_VALUE( GlimTests::Answer );
   KIV_FIELD( std::uint64_t, key );
   KIV_FIELD( std::uint64_t, hwId );
};

class Answers : public Kiv::Entity {
   KIV_ENTITY( GlimTests::Answers );
   KIV_ATTRIBUTE( int, plain );
   GLIM_COLLECTION( Answer, std::uint64_t, key, hwFecId );
   GLIM_COLLECTION( Answer, std::uint64_t, key, other );

 public:
   Answers() : Entity( "answers" ) {}
};
KIV_DEFINE( GlimTests::Answers );

using State = std::map< uint64_t, uint64_t >;

State
stateOf( Answers const & entity ) {
   State state;
   entity.hwFecIdForEach(
         [ & ]( uint64_t key, Answer const & answer ) { state[ key ] = answer.hwId; } );
   return state;
}

// Keeps a copy of the rows, and does nothing but read the state of the keys that it is told.
class Machine : public Kiv::PtrInterface, public Kiv::ReactorOwner {
 public:
   class KivAnswers : public Kiv::Reactor< KivAnswers, Answers, Machine > {
      void handleHwFecId( uint64_t const & key ) { owner().heardKey( *notifier(), key ); }
      void handleMount() { heard( Kiv::toText( notifier()->hwFecIdMountStatus() ) ); }
      void handleQuiesced() { heard( notifier()->hwFecIdQuiesced() ? "quiesced" : "active" ); }
      void handleResyncs() { heard( "resynchronise" ); }
      void heard( std::string const & what ) { owner().heard( what ); }

    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::On< Answers::hwFecIdAttr, &KivAnswers::handleHwFecId >(),
            Kiv::OnChange< Answers::hwFecIdMountStatusAttr, &KivAnswers::handleMount >(),
            Kiv::OnChange< Answers::hwFecIdQuiescedAttr, &KivAnswers::handleQuiesced >(),
            Kiv::OnChange< Answers::hwFecIdResyncsAttr, &KivAnswers::handleResyncs >() );
   };

   explicit Machine( Kiv::Ptr< Answers > const & entity ) : PtrInterface( Lifetime::eventLoop ) {
      hasNotificationActiveIs( true );
      answersIs( entity );
   }
   Kiv::Type const & fwkType() const override { return Kiv::typeInstance< Machine >; }
   void hasNotificationActiveIs( bool active ) override {
      PtrInterface::hasNotificationActiveIs( active );
      reactorsActiveIs( active );
   }
   bool initialized() const { return true; }

   void heardKey( Answers & from, uint64_t key ) {
      if( from.hwFecIdHas( key ) ) {
         state[ key ] = from.hwFecId( key ).hwId;
      } else {
         state.erase( key );
      }
      heard( std::to_string( key ) );
   }
   void heard( std::string const & what ) {
      log += ( log.empty() ? "" : " " ) + what;
      ++calls;
      if( auto const found = actions.find( what ); found != actions.end() ) {
         auto const action = found->second;
         action();
      }
   }
   // What it heard since it was last asked.
   std::string take() {
      calls = 0;
      return std::exchange( log, {} );
   }

   std::string log;
   std::size_t calls = 0; // in the log
   State state;
   std::map< std::string, std::function< void() > > actions;
   KIV_REACTOR( KivAnswers, answers );
};

bool
readable( int milliseconds ) {
   pollfd event{ Glim::Loop::instance().fd(), POLLIN, 0 };
   return ::poll( &event, 1, milliseconds ) == 1;
}

// The event loop: sleeps on the descriptor alone. Gives up after a time that no machine takes.
template< class Done >
bool
runUntil( Done done ) {
   while( !done() ) {
      if( !readable( 60'000 ) ) {
         return false;
      }
      Glim::Loop::instance().run();
   }
   return true;
}

// Until nothing is left that this process knows of.
void
runAll() {
   while( readable( 0 ) ) {
      Glim::Loop::instance().run();
   }
}

class GlimCollection : public testing::TestWithParam< bool > {
 protected:
   GlimCollection() {
      Kiv::ClockDriver::ambientIs( driver );
      writerOptions.privateMemory = readerOptions.privateMemory = GetParam();
   }
   ~GlimCollection() override {
      for( auto const & machine : machines_ ) {
         machine->answersDel();
      }
      for( auto const & entity : entities_ ) {
         entity->hwFecIdControl().detach();
         entity->otherControl().detach();
      }
      EXPECT_EQ( Glim::Loop::instance().collections() + Glim::Loop::instance().bells(), 0u );
      runAll();
   }

   Kiv::Ptr< Answers > entity() { return entities_.emplace_back( Kiv::make< Answers >() ); }
   Kiv::Ptr< Answers > writerEntity() {
      auto made = entity();
      made->hwFecIdControl().attachWriter( table, writerOptions );
      return made;
   }
   Kiv::Ptr< Answers > readerEntity() {
      auto made = entity();
      made->hwFecIdControl().attachReader( table, readerOptions );
      return made;
   }
   Kiv::Ptr< Machine > machine( Kiv::Ptr< Answers > const & on ) {
      return machines_.emplace_back( Kiv::make< Machine >( on ) );
   }
   // Writer and reader, with machines that have heard what there was.
   void both() {
      writer = writerEntity();
      reader = readerEntity();
      writing = machine( writer );
      reading = machine( reader );
      runAll();
      writing->take();
      reading->take();
   }
   void put( uint64_t key, uint64_t hwId ) { writer->hwFecIdIs( { key, hwId } ); }
   std::string heardAfterAll() {
      runAll();
      return reading->take();
   }

   // Private tables that stay do so as long as the process.
   static inline unsigned tables = 0;
   std::string const table = "hwFecId" + std::to_string( ++tables );
   Glim::WriterOptions writerOptions;
   Glim::ReaderOptions readerOptions;
   Kiv::VirtualDriver driver;
   Kiv::Ptr< Answers > writer, reader;
   Kiv::Ptr< Machine > writing, reading;

 private:
   Folder folder_;
   std::deque< Kiv::Ptr< Answers > > entities_;
   std::deque< Kiv::Ptr< Machine > > machines_;
};

INSTANTIATE_TEST_SUITE_P( SharedAndPrivate, GlimCollection, testing::Bool() );

TEST_P( GlimCollection, handlersHearEachChangedKeyInOrder ) {
   writer = writerEntity();
   put( 9, 90 );
   reader = readerEntity();
   writing = machine( writer );
   reading = machine( reader );
   EXPECT_EQ( writing->take(), "9" ); // their first pass
   EXPECT_EQ( reading->take(), "9" );
   EXPECT_EQ( heardAfterAll(), "9" ); // all rows, since it attached

   put( 3, 30 );
   EXPECT_EQ( writing->take(), "3" ); // inside of the write
   put( 3, 30 );                      // which changes nothing
   put( 1, 10 );
   put( 3, 31 );
   writer->hwFecIdDel( 9 );
   writer->hwFecIdDel( 9 );
   writer->hwFecIdNotify( 7 );
   EXPECT_EQ( writing->take(), "1 3 9 7" );
   EXPECT_EQ( reading->take(), "" );
   EXPECT_EQ( reader->hwFecId( 3 ).hwId, 31u ); // it can be read at once
   EXPECT_TRUE( reader->hwFecId( 9 ) == Answer() && !reader->hwFecIdHas( 9 ) );
   EXPECT_EQ( reader->hwFecIdControl().behind(), 5u );
   EXPECT_EQ( heardAfterAll(), "3 1 3 9 7" );
   EXPECT_EQ( reading->state, ( State{ { 1, 10 }, { 3, 31 } } ) );
   EXPECT_EQ( stateOf( *reader ), reading->state );
   EXPECT_EQ( stateOf( *writer ), reading->state );

   writer->hwFecIdDelAll();
   runAll();
   EXPECT_EQ( reading->state, State{} );
   EXPECT_EQ( writing->state, State{} );
   // Nothing to do, nothing wakes the loop. (The bell of a shared table may still be heard.)
   EXPECT_FALSE( GetParam() && readable( 0 ) );
}

// Rows stand in a table in an order that is another in every run. What is done for all of them is
// done in the order of their keys.
TEST_P( GlimCollection, allRowsAreInTheOrderOfTheirKeys ) {
   constexpr uint64_t keys = 3000; // more than a turn tells
   writer = writerEntity();
   std::string inOrder, walked;
   for( uint64_t key = 0; key != keys; ++key ) {
      put( key * 1009 % keys, 1 );
      inOrder += ' ' + std::to_string( key );
   }
   writer->hwFecIdForEach(
         [ & ]( uint64_t key, Answer const & ) { walked += ' ' + std::to_string( key ); } );
   EXPECT_EQ( walked, inOrder );
   reader = entity();
   reading = machine( reader );
   reader->hwFecIdControl().attachReader( table, readerOptions );
   EXPECT_EQ( heardAfterAll(), "readingTable" + inOrder );
   writer->hwFecIdDelAll();
   EXPECT_EQ( " " + heardAfterAll(), inOrder );
}

TEST_P( GlimCollection, aTurnIsBoundedAndEverybodyHasOne ) {
   both();
   writer->otherControl().attachWriter( "other", writerOptions );
   auto const second = entity();
   second->otherControl().attachReader( "other", readerOptions );
   runAll();
   auto const keys = 3 * Glim::Loop::keysPerTurn + 1;
   for( uint64_t key = 0; key != keys; ++key ) {
      put( key, key );
   }
   writer->otherIs( { 1, 1 } );
   for( auto told = Glim::Loop::keysPerTurn; reading->calls != keys;
        told += Glim::Loop::keysPerTurn ) {
      ASSERT_TRUE( readable( 0 ) );
      Glim::Loop::instance().run();
      EXPECT_EQ( second->otherControl().behind(), 0u );
      ASSERT_EQ( reading->calls, std::min< std::size_t >( told, keys ) );
   }
   EXPECT_EQ( reading->state, stateOf( *writer ) );
}

// The rows of a large table and what changes meanwhile share the turns, also when the reader falls
// behind again in the middle, and when the table grows; and who falls behind in every turn comes to an
// end nevertheless.
TEST_P( GlimCollection, resynchronisesInParts ) {
   writerOptions.changes = 256;
   writerOptions.rows = 64;
   both();
   uint64_t const keys = 4000;
   auto const write = [ & ]( uint64_t from, uint64_t to, uint64_t value ) {
      for( uint64_t key = from; key != to; ++key ) {
         put( key, value );
      }
   };
   write( 0, keys, 1 );
   runAll();
   EXPECT_EQ( reading->state.size(), keys );
   put( keys, 1 );
   EXPECT_TRUE( reader->hwFecIdHas( keys ) ); // read before it was told, so it is known too
   reading->state[ keys ] = 1;
   for( uint64_t key = 0; key <= keys; key += 2 ) {
      writer->hwFecIdDel( key );
   }
   reading->take();
   for( uint64_t turn = 0; turn != 40; ++turn ) {
      Glim::Loop::instance().run();
      EXPECT_LE( reading->calls, Glim::Loop::keysPerTurn + 1 );
      auto const log = ' ' + reading->take() + ' ';
      bool const fellBehind = turn == 0 || turn == 10 || turn == 20;
      EXPECT_EQ( log.find( "resynchronise" ) != log.npos, fellBehind );
      EXPECT_TRUE( fellBehind ||
                   log.find( ' ' + std::to_string( keys + turn ) + ' ' ) != log.npos );
      if( turn == 9 ) {
         write( 0, 600, 3 ); // behind again
      } else if( turn == 19 ) {
         write( 2 * keys, 4 * keys, 4 ); // and again, in a larger table
      }
      put( keys + turn + 1, 2 );
   }
   runAll();
   EXPECT_EQ( reading->state, stateOf( *writer ) );
   write( 0, keys, 5 );
   for( uint64_t turn = 0; turn != 60; ++turn ) {
      for( uint64_t i = 0; i != 2 * writerOptions.changes; ++i ) {
         writer->hwFecIdNotify( 0 );
      }
      Glim::Loop::instance().run();
   }
   EXPECT_GE( reader->hwFecIdResyncs(), 60u );
   EXPECT_EQ( reading->state, stateOf( *writer ) );
}

TEST_P( GlimCollection, readersHearOfMountsAndOfQuiescence ) {
   reader = entity();
   reading = machine( reader );
   auto & control = reader->hwFecIdControl();
   control.attachReader( table, readerOptions );
   EXPECT_TRUE( !control.mounted() && reader->hwFecId( 1 ) == Answer() );
   runAll();

   writer = entity();
   writing = machine( writer );
   auto & writes = writer->hwFecIdControl();
   writes.attachWriter( table, writerOptions );
   put( 1, 10 );
   // Nobody calls run(): the clock does, and not before it is time.
   driver.advance( 0.9 * Glim::Loop::retryInterval );
   EXPECT_EQ( reading->take(), "awaitingTable" );
   driver.advance( 0.1 * Glim::Loop::retryInterval );
   EXPECT_EQ( reading->take(), "readingTable 1" );
   EXPECT_EQ( driver.timers(), 0u );

   writes.quiescedIs( true );
   put( 2, 20 );
   runAll();
   writes.quiescedIs( false );
   writer->hwFecIdNotify( 2 );
   EXPECT_EQ( heardAfterAll(), "quiesced 2 active 2" );
   EXPECT_EQ( writing->take(), "writingTable 1 quiesced 2 active 2" );

   // The table goes, and the next one has other rows.
   writes.quiescedIs( true );
   runAll();
   writes.detach();
   EXPECT_EQ( heardAfterAll(), "quiesced awaitingTable active" );
   EXPECT_EQ( reading->state.size(), 2u );
   writes.attachWriter( table, writerOptions );
   put( 2, 21 );
   EXPECT_EQ( heardAfterAll(), "readingTable 2 1" );
   EXPECT_EQ( reading->state, ( State{ { 2, 21 } } ) );
   EXPECT_EQ( writing->state, reading->state ); // who wrote before forgot, too
   EXPECT_EQ( reader->hwFecIdResyncs(), 0u );
   control.detach();
   EXPECT_EQ( reading->take(), "notAttached" );
   EXPECT_EQ( reader->hwFecId( 2 ), Answer() );
}

TEST_P( GlimCollection, aTableOfAnotherShapeIsRefusedUntilItIsReplaced ) {
   writerOptions.lifetime = Glim::Lifetime::stays;
   Glim::TableWriter< uint64_t, uint64_t >( table, writerOptions ).close();
   reader = readerEntity();
   reading = machine( reader );
   EXPECT_EQ( reader->hwFecIdMountStatus(), Glim::tableUnreadable );
   EXPECT_NE( reader->hwFecIdControl().fault().find( table ), std::string::npos );
   writerOptions.replace = true;
   writer = writerEntity();
   put( 1, 10 );
   EXPECT_EQ( heardAfterAll(), "readingTable 1" );
   EXPECT_EQ( reader->hwFecIdControl().fault(), "" );

   // The next writer goes on with what stays, though one of its handlers throws.
   writer->hwFecIdControl().detach();
   runAll();
   EXPECT_EQ( reader->hwFecId( 1 ).hwId, 10u );
   writer = entity();
   writing = machine( writer );
   writing->actions[ "1" ] = [] { throw Kiv::Exception( "not now" ); };
   writer->hwFecIdControl().attachWriter( table, writerOptions );
   EXPECT_EQ( writing->state, ( State{ { 1, 10 } } ) );
   put( 3, 30 );
   EXPECT_EQ( heardAfterAll(), "3" );
}

TEST_P( GlimCollection, handlersMayWriteAndDetachInTheMiddle ) {
   both();
   // A reader's handler writes to its peer, and the peer's own handler writes, too.
   reading->actions[ "1" ] = [ & ] { put( 2, 20 ); };
   writing->actions[ "2" ] = [ & ] { put( 3, 30 ); };
   put( 1, 10 );
   EXPECT_EQ( heardAfterAll(), "1 2 3" );
   EXPECT_EQ( writing->take(), "1 2 3" );

   // What deletes all survives a handler that inserts, and one that detaches.
   reading->actions.clear();
   writing->actions = { { "1", [ & ] { put( 4, 40 ); } } };
   writer->hwFecIdDelAll();
   EXPECT_EQ( writing->state, ( State{ { 4, 40 } } ) );
   runAll();
   EXPECT_EQ( reading->state, ( State{ { 4, 40 } } ) );

   for( uint64_t key = 5; key != 9; ++key ) {
      put( key, key );
   }
   reading->take();
   reading->actions[ "6" ] = [ & ] { reader->hwFecIdControl().detach(); };
   EXPECT_EQ( heardAfterAll(), "5 6 notAttached" );
   reading->actions[ "6" ] = [] { throw Kiv::Exception( "no more" ); };
   reader->hwFecIdControl().attachReader( table, readerOptions );
   runAll(); // which goes on behind the one that threw
   EXPECT_EQ( reading->state, stateOf( *writer ) );
   reading->actions.clear();

   writing->actions[ "7" ] = [ & ] { writer->hwFecIdControl().detach(); };
   writer->hwFecIdDelAll();
   EXPECT_EQ( writer->hwFecIdMountStatus(), Glim::notAttached );
   runAll();
   EXPECT_EQ( reader->hwFecIdMountStatus(), Glim::awaitingTable );
}

TEST_P( GlimCollection, anEntityMayGoInTheMiddleOfItsTurn ) {
   auto entity = Kiv::make< Answers >();
   entity->hwFecIdControl().attachReader( table, readerOptions );
   auto const goes = Kiv::make< Machine >( entity );
   both();
   goes->take();
   goes->actions[ "1" ] = [ & ] {
      goes->answersDel();
      entity = nullptr;
   };
   put( 1, 1 );
   put( 2, 2 );
   EXPECT_EQ( heardAfterAll(), "1 2" );
   EXPECT_TRUE( goes->log.ends_with( "1" ) ) << goes->log;
   EXPECT_EQ( Glim::Loop::instance().collections(), 2u );
}

TEST_P( GlimCollection, commitsOnceATurnAndRunsTheHookBefore ) {
   writer = entity();
   auto & control = writer->hwFecIdControl();
   unsigned hooks = 0;
   control.commitHookIs( [ & ] {
      put( 100, ++hooks ); // the last word of every commit
      control.commit();    // it is under way
   } );
   control.attachWriter( table, writerOptions );
   runAll();
   EXPECT_EQ( hooks, 0u );
   for( uint64_t round = 1; round != 4; ++round ) {
      put( 1, round );
      put( 2, round );
      runAll();
      EXPECT_EQ( hooks, round );
      EXPECT_EQ( writer->hwFecId( 100 ).hwId, round );
   }
   put( 1, 7 );
   control.detach(); // the clean stop commits, too
   EXPECT_EQ( hooks, 4u );
   control.attachWriter( table, writerOptions );
   control.commitHookIs( [ & ] { control.detach(); } );
   put( 1, 9 );
   runAll();
   EXPECT_EQ( writer->hwFecIdMountStatus(), Glim::notAttached );
}

TEST_P( GlimCollection, refusesWhatItCannotDo ) {
   both();
   auto const none = entity();
   auto & control = none->hwFecIdControl();
   std::pair< std::function< void() >, std::string > const cases[] = {
         { [ & ] {
             reader->hwFecIdIs( { 1, 1 } );
          },
           "a reader of table \"" + table },
         { [ & ] { none->hwFecIdDel( 1 ); }, "not attached" },
         { [ & ] { none->hwFecIdDelAll(); }, "not attached" },
         { [ & ] { none->hwFecIdNotify( 1 ); }, "not attached" },
         { [ & ] { reader->hwFecIdControl().quiescedIs( true ); }, "a reader" },
         { [ & ] { reader->hwFecIdControl().attachReader( "x" ); }, "already" },
         { [ & ] { control.attachReader( "a/b" ); }, "a/b" },
         { [ & ] { control.attachWriter( table, writerOptions ); }, "writer already" },
   };
   for( auto const & [ use, has ] : cases ) {
      auto const text = errorOf< Glim::Error >( use );
      EXPECT_NE( text.find( has ), text.npos ) << text << ", expected: " << has;
   }
   EXPECT_EQ( none->hwFecIdMountStatus(), Glim::notAttached );
   EXPECT_EQ( stateOf( *writer ), State{} );
}

TEST_P( GlimCollection, standsInTheStateDatabaseWhichCannotWriteIt ) {
   both();
   put( 7, 70 );
   runAll();
   auto const & rows = *writer->fwkType().reflection()->attribute( "hwFecId" );
   EXPECT_EQ( Kiv::datumText( rows.get( *writer ) ), R"({"7": {"key": 7, "hwId": 70}})" );
   EXPECT_EQ( rows.get( *reader ), rows.get( *writer ) );
   EXPECT_TRUE( rows.member( *writer, "7" ) && !rows.member( *writer, "8" ) );
   EXPECT_EQ( rows.keys( *writer ), std::vector< std::string >{ "7" } );

   Tessera::Database database;
   database.mount( "/answers", reader, Tessera::Access::configuration );
   std::string heard;
   database.watch( "/answers", [ & ]( Tessera::Path const & path, auto const & value ) {
      heard += path.text() + " " + ( value ? Kiv::datumText( *value ) : "is gone" ) + "\n";
   } );
   EXPECT_EQ( database.get( "/answers/hwFecId/7/hwId" ), Kiv::Datum( uint64_t( 70 ) ) );
   EXPECT_EQ( database.get( "/answers/hwFecIdMountStatus" ), Kiv::Datum( "readingTable" ) );
   auto const all = database.get( "/" );
   database.apply( all ); // it says what is so
   for( auto const & use : std::initializer_list< std::function< void() > >{
              [ & ] { database.set( "/answers/hwFecId/7/hwId", 71 ); },
              [ & ] { database.set( "/answers/hwFecIdResyncs", 1 ); },
              [ & ] { database.set( "/answers/hwFecIdQuiesced", true ); },
              [ & ] { database.del( "/answers/hwFecId/7" ); } } ) {
      EXPECT_NE( errorOf< Tessera::Error >( use ).find( "cannot be written" ), std::string::npos );
   }
   EXPECT_EQ( database.get( "/" ), all );
   put( 8, 80 );
   writer->hwFecIdDel( 7 );
   runAll();
   EXPECT_EQ( heard,
              "/answers/hwFecId/8 {\"key\": 8, \"hwId\": 80}\n/answers/hwFecId/7 is gone\n" );
}

using GlimLoop = GlimCollection;
INSTANTIATE_TEST_SUITE_P( Shared, GlimLoop, testing::Values( false ) );

// More readers than one thread can listen for, of a writer that is in the same process.
TEST_P( GlimLoop, hearsEveryBell ) {
   writer = writerEntity();
   std::vector< Kiv::Ptr< Answers > > readers( Glim::BellListener::capacity + 3 );
   for( auto & each : readers ) {
      each = readerEntity();
   }
   EXPECT_EQ( Glim::Loop::instance().bells(), readers.size() );
   runAll();
   // The one is heard by the second listener, the other by the first, which has room then.
   Glim::TableWriter< uint64_t, Answer > plain( "plain" );
   for( auto const & each : { readers.back(), readers.front() } ) {
      each->otherControl().attachReader( "plain" );
      readers.front()->hwFecIdControl().detach();
      runAll();
      // Nobody but the bell tells the loop of this.
      plain.notify( 1 );
      plain.commit();
      EXPECT_TRUE( runUntil( [ & ] { return each->otherControl().behind() == 0; } ) );
      each->otherControl().detach();
   }
}

TEST_P( GlimLoop, aForkedProcessTakesNothingAway ) {
   both();
   Shared< Report > report;
   Child child( *report, [ & ] {
      ::alarm( 60 );
      writer->hwFecIdControl().detach();
      reader->hwFecIdControl().detach();
   } );
   EXPECT_EQ( child.wait(), 0 ) << report->text;
   put( 1, 10 );
   EXPECT_EQ( heardAfterAll(), "1" );
   EXPECT_EQ( Glim::ReaderFile::all( table ).size(), 1u );
}

// Somebody shortens the file under the reader's feet: no read fails, and no loop spins.
TEST_P( GlimLoop, outlivesATableThatIsCutOff ) {
   both();
   for( uint64_t key = 0; key != 1000; ++key ) {
      put( key, 1 );
   }
   runAll();
   reading->take();
   ASSERT_EQ( ::truncate( Glim::pathOf( table ).c_str(), 4096 ), 0 );
   for( uint64_t key = 0; key != 1000; ++key ) {
      reader->hwFecId( key );
   }
   EXPECT_EQ( heardAfterAll(), "tableUnreadable" );
   EXPECT_NE( reader->hwFecIdControl().fault().find( table ), std::string::npos );
   EXPECT_EQ( reader->hwFecId( 1 ), Answer() );
   writer->hwFecIdControl().detach();
   writerOptions.replace = true;
   writer = writerEntity();
   put( 3, 30 );
   driver.advance( Glim::Loop::retryInterval );
   runAll();
   EXPECT_EQ( reading->state, ( State{ { 3, 30 } } ) );
}

// The writer is another process, which knows nothing of the event loop here.
TEST_P( GlimLoop, wakesForAWriterInAnotherProcess ) {
   constexpr uint64_t keys = 3000;
   Shared< Report > report;
   Child child( *report, [ & ] {
      Glim::TableWriter< uint64_t, Answer > other( table, { .lifetime = Glim::Lifetime::stays } );
      for( uint64_t key = 0; key != keys; ++key ) {
         other.is( key, { key, key * 3 } );
         if( key % 7 == 0 || key + 1 == keys ) {
            other.commit();
            ::usleep( key % 11 ? 0 : 1000 ); // some while the reader sleeps, some at once
         }
      }
   } );
   reader = readerEntity();
   reading = machine( reader );
   while( !reader->hwFecIdControl().mounted() ) {
      Glim::Loop::instance().run(); // its child is about to make it
   }
   EXPECT_TRUE( runUntil( [ & ] { return reading->state.size() == keys; } ) );
   for( uint64_t key = 0; key != keys; ++key ) {
      ASSERT_EQ( reading->state[ key ], key * 3 );
   }
   EXPECT_EQ( child.wait(), 0 ) << report->text;
}

} // namespace GlimTests
