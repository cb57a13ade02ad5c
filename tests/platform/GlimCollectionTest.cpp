// SPDX-License-Identifier: Apache-2.0
#include "Glim/Collection.h"
#include "Kiv/ClockDriver.h"
#include "Kiv/Reactor.h"
#include "Kiv/Reflect.h"
#include "Tessera/Database.h"
#include "platform/GlimFolder.h"

#include <deque>
#include <map>
#include <poll.h>
#include <sys/wait.h>

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

using Log = std::vector< std::string >;
using State = std::map< uint64_t, uint64_t >;

// Keeps a copy of the rows, and does nothing but read the state of the keys that it is told.
class Machine : public Kiv::PtrInterface, public Kiv::ReactorOwner {
 public:
   class KivAnswers : public Kiv::Reactor< KivAnswers, Answers, Machine > {
      void handleHwFecId( uint64_t const & key ) { owner().heardKey( *notifier(), key ); }
      void handleMount() { heard( "mount " + Kiv::toText( notifier()->hwFecIdMountStatus() ) ); }
      void handleQuiesced() { heard( notifier()->hwFecIdQuiesced() ? "quiesced" : "goes on" ); }
      void handleResyncs() { heard( "resynchronise" ); }
      void heard( std::string const & what ) { owner().heard( what ); }

    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::on< Answers::hwFecIdAttr, &KivAnswers::handleHwFecId >(),
            Kiv::onChange< Answers::hwFecIdMountStatusAttr, &KivAnswers::handleMount >(),
            Kiv::onChange< Answers::hwFecIdQuiescedAttr, &KivAnswers::handleQuiesced >(),
            Kiv::onChange< Answers::hwFecIdResyncsAttr, &KivAnswers::handleResyncs >() );
   };

   Machine() : PtrInterface( Lifetime::eventLoop ) {}
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
      log.push_back( what );
      if( auto const found = actions.find( what ); found != actions.end() ) {
         auto const action = found->second;
         action();
      }
   }
   Log take() { return std::exchange( log, {} ); }

   Log log;
   State state;
   std::map< std::string, std::function< void() > > actions;
   KIV_REACTOR( KivAnswers, answers );
};

Kiv::Ptr< Machine >
machineOn( Kiv::Ptr< Answers > const & entity ) {
   auto machine = Kiv::make< Machine >();
   machine->hasNotificationActiveIs( true );
   machine->answersIs( entity );
   return machine;
}

State
stateOf( Answers const & entity ) {
   State state;
   entity.hwFecIdForEach(
         [ & ]( uint64_t key, Answer const & answer ) { state[ key ] = answer.hwId; } );
   return state;
}

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
      Kiv::ClockDriver::ambientIs( driver_ );
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
      EXPECT_EQ( Glim::Loop::instance().collections(), 0u );
      EXPECT_EQ( Glim::Loop::instance().bells(), 0u );
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
      return machines_.emplace_back( machineOn( on ) );
   }

   // Private tables that stay do so as long as the process.
   static inline unsigned tables = 0;
   std::string const table = "hwFecId" + std::to_string( ++tables );
   Glim::WriterOptions writerOptions;
   Glim::ReaderOptions readerOptions;
   Kiv::VirtualDriver driver_;

 private:
   Folder folder_;
   std::deque< Kiv::Ptr< Answers > > entities_;
   std::deque< Kiv::Ptr< Machine > > machines_;
};

INSTANTIATE_TEST_SUITE_P( SharedAndPrivate, GlimCollection, testing::Bool() );

TEST_P( GlimCollection, handlersHearEachChangedKeyInOrder ) {
   auto const writer = writerEntity();
   writer->hwFecIdIs( { 9, 90 } );
   auto const reader = readerEntity();
   auto const writing = machine( writer );
   auto const reading = machine( reader );
   EXPECT_EQ( writing->take(), Log{ "9" } ); // their first pass
   EXPECT_EQ( reading->take(), Log{ "9" } );
   runAll();
   EXPECT_EQ( reading->take(), Log{ "9" } ); // all rows, since it attached

   writer->hwFecIdIs( { 3, 30 } );
   EXPECT_EQ( writing->take(), Log{ "3" } ); // inside of the write
   writer->hwFecIdIs( { 3, 30 } );           // which changes nothing
   writer->hwFecIdIs( { 1, 10 } );
   writer->hwFecIdIs( { 3, 31 } );
   writer->hwFecIdDel( 9 );
   writer->hwFecIdDel( 9 );
   writer->hwFecIdNotify( 7 );
   EXPECT_EQ( writing->take(), ( Log{ "1", "3", "9", "7" } ) );
   EXPECT_EQ( reading->take(), Log{} );
   EXPECT_EQ( reader->hwFecId( 3 ).hwId, 31u ); // it can be read at once
   EXPECT_EQ( reader->hwFecId( 9 ), Answer() );
   EXPECT_FALSE( reader->hwFecIdHas( 9 ) );
   EXPECT_EQ( reader->hwFecIdControl().behind(), 5u );
   runAll();
   EXPECT_EQ( reading->take(), ( Log{ "3", "1", "3", "9", "7" } ) );
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
   auto const writer = writerEntity();
   Log inOrder;
   for( uint64_t key = 0; key != keys; ++key ) {
      writer->hwFecIdIs( { key * 1009 % keys, 1 } );
      inOrder.push_back( std::to_string( key ) );
   }
   Log walked;
   writer->hwFecIdForEach(
         [ & ]( uint64_t key, Answer const & ) { walked.push_back( std::to_string( key ) ); } );
   EXPECT_EQ( walked, inOrder );
   auto const reader = entity();
   auto const reading = machine( reader );
   reader->hwFecIdControl().attachReader( table, readerOptions );
   runAll();
   reading->log.erase( reading->log.begin() ); // the mount
   EXPECT_EQ( reading->take(), inOrder );
   writer->hwFecIdDelAll();
   runAll();
   EXPECT_EQ( reading->take(), inOrder );
   // The plain table, too.
   Glim::TableWriter< uint64_t, Answer > plain( "plain" );
   Glim::TableReader< uint64_t, Answer > plainReader( "plain" );
   for( uint64_t key = 0; key != keys; ++key ) {
      plain.is( key * 1009 % keys, {} );
   }
   plainReader.attach();
   plainReader.poll( []( uint64_t ) {} );
   plain.delAll();
   Log told;
   plainReader.poll( [ & ]( uint64_t key ) { told.push_back( std::to_string( key ) ); } );
   EXPECT_EQ( told, inOrder );
}

TEST_P( GlimCollection, aReaderThatFellBehindIsRightAgain ) {
   writerOptions.changes = 16;
   auto const writer = writerEntity();
   auto const reader = readerEntity();
   auto const reading = machine( reader );
   for( uint64_t key = 1; key <= 10; ++key ) {
      writer->hwFecIdIs( { key, key } );
   }
   runAll();
   EXPECT_EQ( reading->state.size(), 10u );
   writer->hwFecIdIs( { 11, 11 } );
   EXPECT_TRUE( reader->hwFecIdHas( 11 ) ); // read before it was told, so it is known too
   reading->state[ 11 ] = 11;
   for( uint64_t key : { 2, 4, 11 } ) {
      writer->hwFecIdDel( key );
   }
   for( uint64_t round = 0; round != 40; ++round ) {
      writer->hwFecIdIs( { 1, round } );
      writer->hwFecIdIs( { 50, round } );
      writer->hwFecIdDel( 50 ); // comes and goes unseen
   }
   reading->take();
   runAll();
   auto log = reading->take();
   EXPECT_EQ( log.front(), "resynchronise" );
   std::sort( log.begin(), log.end() );
   EXPECT_EQ( log,
              ( Log{ "1", "10", "11", "2", "3", "4", "5", "6", "7", "8", "9", "resynchronise" } ) );
   EXPECT_EQ( reading->state, stateOf( *writer ) );
   EXPECT_EQ( reader->hwFecIdResyncs(), 1u );
}

TEST_P( GlimCollection, aTurnIsBoundedAndEverybodyHasOne ) {
   auto const writer = writerEntity();
   writer->otherControl().attachWriter( "other", writerOptions );
   auto const reader = readerEntity();
   auto const reading = machine( reader );
   auto const second = entity();
   second->otherControl().attachReader( "other", readerOptions );
   runAll();
   auto const keys = 3 * Glim::Loop::keysPerTurn + 1;
   for( uint64_t key = 0; key != keys; ++key ) {
      writer->hwFecIdIs( { key, key } );
   }
   writer->otherIs( { 1, 1 } );
   for( uint64_t told = Glim::Loop::keysPerTurn;; told += Glim::Loop::keysPerTurn ) {
      ASSERT_TRUE( readable( 0 ) );
      Glim::Loop::instance().run();
      EXPECT_EQ( second->otherControl().behind(), 0u );
      if( told > keys ) {
         break;
      }
      EXPECT_EQ( reading->log.size(), told );
   }
   EXPECT_EQ( reading->state, stateOf( *writer ) );
   for( uint64_t key = 0; key != keys; ++key ) {
      ASSERT_EQ( reading->log[ key ], std::to_string( key ) );
   }
}

// The rows of a large table and what changes meanwhile share the turns, also when the reader falls
// behind again in the middle, and when the table grows.
TEST_P( GlimCollection, resynchronisesInParts ) {
   writerOptions.changes = 256;
   writerOptions.rows = 64;
   auto const writer = writerEntity();
   auto const reader = readerEntity();
   auto const reading = machine( reader );
   uint64_t const keys = 4000;
   auto const write = [ & ]( uint64_t from, uint64_t to, uint64_t value ) {
      for( uint64_t key = from; key != to; ++key ) {
         writer->hwFecIdIs( { key, value } );
      }
   };
   write( 0, keys, 1 );
   runAll();
   EXPECT_EQ( reading->state.size(), keys );
   for( uint64_t key = 0; key < keys; key += 2 ) {
      writer->hwFecIdDel( key );
   }
   reading->take();
   for( uint64_t turn = 0; turn != 40; ++turn ) {
      ASSERT_TRUE( readable( 0 ) );
      Glim::Loop::instance().run();
      auto const log = reading->take();
      EXPECT_LE( log.size(), Glim::Loop::keysPerTurn + 1 );
      auto const mark = std::to_string( keys + turn );
      if( turn != 0 && turn != 10 && turn != 20 ) {
         EXPECT_NE( std::find( log.begin(), log.end(), mark ), log.end() );
      }
      if( turn == 9 ) {
         write( 0, 600, 3 ); // behind again
      } else if( turn == 19 ) {
         write( 2 * keys, 4 * keys, 4 ); // and again, in a larger table
      }
      writer->hwFecIdIs( { keys + turn + 1, 2 } );
   }
   runAll();
   EXPECT_EQ( reading->state, stateOf( *writer ) );
   EXPECT_EQ( reader->hwFecIdResyncs(), 3u );
}

// The table is so large that its keys are not gathered in a turn, and the reader falls behind in every
// one: it hears of all rows nevertheless, and not of the first ones again and again.
TEST_P( GlimCollection, whoFallsBehindInEveryTurnComesToAnEnd ) {
   writerOptions.changes = 64;
   writerOptions.rows = 100'000;
   auto const writer = writerEntity();
   uint64_t const keys = 4 * Glim::Loop::keysPerTurn;
   for( uint64_t key = 0; key != keys; ++key ) {
      writer->hwFecIdIs( { key, key } );
   }
   auto const reader = readerEntity();
   auto const reading = machine( reader );
   reading->state.clear();
   reading->take();
   for( uint64_t turn = 0; turn != 30; ++turn ) {
      for( uint64_t i = 0; i != 2 * writerOptions.changes; ++i ) {
         writer->hwFecIdNotify( 0 );
      }
      Glim::Loop::instance().run();
   }
   EXPECT_GE( reader->hwFecIdResyncs(), 29u );
   EXPECT_EQ( reading->state, stateOf( *writer ) );
   runAll();
   EXPECT_EQ( reader->hwFecIdControl().behind(), 0u );
}

TEST_P( GlimCollection, readersHearOfMountsAndOfQuiescence ) {
   auto const reader = entity();
   auto const reading = machine( reader );
   auto & control = reader->hwFecIdControl();
   control.attachReader( table, readerOptions );
   EXPECT_FALSE( control.mounted() );
   EXPECT_EQ( reader->hwFecId( 1 ), Answer() );
   runAll();

   auto const writer = entity();
   auto const writing = machine( writer );
   writer->hwFecIdControl().attachWriter( table, writerOptions );
   writer->hwFecIdIs( { 1, 10 } );
   // Nobody calls run(): the clock does, and not before it is time.
   driver_.advance( 0.9 * Glim::Loop::retryInterval );
   EXPECT_EQ( reading->log, Log{ "mount awaitingTable" } );
   driver_.advance( 0.1 * Glim::Loop::retryInterval );
   EXPECT_EQ( reading->take(), ( Log{ "mount awaitingTable", "mount readingTable", "1" } ) );
   EXPECT_EQ( driver_.timers(), 0u );

   writer->hwFecIdControl().quiescedIs( true );
   writer->hwFecIdIs( { 2, 20 } );
   runAll();
   writer->hwFecIdControl().quiescedIs( false );
   writer->hwFecIdNotify( 2 );
   runAll();
   EXPECT_EQ( reading->take(), ( Log{ "quiesced", "2", "goes on", "2" } ) );
   EXPECT_EQ( writing->take(),
              ( Log{ "mount writingTable", "1", "quiesced", "2", "goes on", "2" } ) );

   // The table goes, and the next one has other rows.
   writer->hwFecIdControl().quiescedIs( true );
   runAll();
   writer->hwFecIdControl().detach();
   runAll();
   EXPECT_EQ( reading->take(), ( Log{ "quiesced", "mount awaitingTable", "goes on" } ) );
   EXPECT_EQ( reading->state.size(), 2u );
   writer->hwFecIdControl().attachWriter( table, writerOptions );
   writer->hwFecIdIs( { 2, 21 } );
   runAll();
   EXPECT_EQ( reading->take(), ( Log{ "mount readingTable", "2", "1" } ) );
   EXPECT_EQ( reading->state, ( State{ { 2, 21 } } ) );
   EXPECT_EQ( writing->state, reading->state ); // who wrote before forgot, too
   EXPECT_EQ( reader->hwFecIdResyncs(), 0u );
   control.detach();
   EXPECT_EQ( reading->take(), Log{ "mount notAttached" } );
   EXPECT_EQ( reader->hwFecId( 2 ), Answer() );
}

TEST_P( GlimCollection, aTableOfAnotherShapeIsRefusedUntilItIsReplaced ) {
   {
      Glim::TableWriter< uint64_t, uint64_t > wrong(
            table, { .lifetime = Glim::Lifetime::stays, .privateMemory = GetParam() } );
   }
   auto const reader = readerEntity();
   auto const reading = machine( reader );
   EXPECT_EQ( reader->hwFecIdMountStatus(), Glim::tableUnreadable );
   EXPECT_NE( reader->hwFecIdControl().fault().find( table ), std::string::npos );
   writerOptions.replace = true;
   auto const writer = writerEntity();
   writer->hwFecIdIs( { 1, 10 } );
   runAll();
   EXPECT_EQ( reading->take(), ( Log{ "mount readingTable", "1" } ) );
   EXPECT_EQ( reader->hwFecIdControl().fault(), "" );
}

TEST_P( GlimCollection, aWriterGoesOnWithATableThatStays ) {
   writerOptions.lifetime = Glim::Lifetime::stays;
   auto const first = writerEntity();
   first->hwFecIdIs( { 1, 10 } );
   first->hwFecIdIs( { 2, 20 } );
   auto const reader = readerEntity();
   auto const reading = machine( reader );
   runAll();
   reading->take();
   first->hwFecIdControl().detach();
   runAll();
   EXPECT_EQ( reader->hwFecId( 2 ).hwId, 20u );

   auto const next = entity();
   auto const writing = machine( next );
   writing->actions[ "1" ] = [] { throw Kiv::Exception( "not now" ); };
   next->hwFecIdControl().attachWriter( table, writerOptions );
   EXPECT_EQ( writing->state, ( State{ { 1, 10 }, { 2, 20 } } ) );
   next->hwFecIdIs( { 3, 30 } );
   runAll();
   EXPECT_EQ( reading->take(), Log{ "3" } );
}

TEST_P( GlimCollection, handlersMayWriteAndDetachInTheMiddle ) {
   auto const writer = writerEntity();
   auto const reader = readerEntity();
   auto const writing = machine( writer );
   auto const reading = machine( reader );
   runAll();

   // A reader's handler writes to its peer, and the peer's own handler writes, too.
   reading->actions[ "1" ] = [ & ] { writer->hwFecIdIs( { 2, 20 } ); };
   writing->actions[ "2" ] = [ & ] { writer->hwFecIdIs( { 3, 30 } ); };
   writer->hwFecIdIs( { 1, 10 } );
   runAll();
   EXPECT_EQ( reading->take(), ( Log{ "1", "2", "3" } ) );
   EXPECT_EQ( writing->take(), ( Log{ "1", "2", "3" } ) );

   // What deletes all survives a handler that inserts, and one that detaches.
   reading->actions.clear();
   writing->actions.clear();
   writing->actions[ "1" ] = [ & ] { writer->hwFecIdIs( { 4, 40 } ); };
   writer->hwFecIdDelAll();
   EXPECT_EQ( writing->state, ( State{ { 4, 40 } } ) );
   runAll();
   EXPECT_EQ( reading->state, ( State{ { 4, 40 } } ) );

   for( uint64_t key = 5; key != 9; ++key ) {
      writer->hwFecIdIs( { key, key } );
   }
   reading->take();
   reading->actions[ "6" ] = [ & ] { reader->hwFecIdControl().detach(); };
   runAll();
   EXPECT_EQ( reading->take(), ( Log{ "5", "6", "mount notAttached" } ) );
   reading->actions[ "6" ] = [] { throw Kiv::Exception( "no more" ); };
   reader->hwFecIdControl().attachReader( table, readerOptions );
   runAll(); // which goes on behind the one that threw
   reading->actions.clear();
   EXPECT_EQ( reading->state, stateOf( *writer ) );

   writing->actions[ "7" ] = [ & ] { writer->hwFecIdControl().detach(); };
   writer->hwFecIdDelAll();
   EXPECT_EQ( writer->hwFecIdMountStatus(), Glim::notAttached );
   runAll();
   EXPECT_EQ( reader->hwFecIdMountStatus(), Glim::awaitingTable );
}

TEST_P( GlimCollection, anEntityMayGoInTheMiddleOfItsTurn ) {
   auto const writer = writerEntity();
   auto entity = Kiv::make< Answers >();
   entity->hwFecIdControl().attachReader( table, readerOptions );
   auto reading = machineOn( entity );
   auto const other = readerEntity();
   auto const others = machine( other );
   runAll();
   Log last;
   reading->actions[ "1" ] = [ & ] {
      last = reading->take();
      reading->answersDel();
      entity = nullptr;
   };
   writer->hwFecIdIs( { 1, 1 } );
   writer->hwFecIdIs( { 2, 2 } );
   runAll();
   EXPECT_EQ( last, Log{ "1" } );
   EXPECT_EQ( reading->take(), Log{} );
   EXPECT_EQ( others->take(), ( Log{ "1", "2" } ) );
   EXPECT_EQ( Glim::Loop::instance().collections(), 2u );
}

TEST_P( GlimCollection, commitsOnceATurnAndRunsTheHookBefore ) {
   auto const writer = entity();
   auto & control = writer->hwFecIdControl();
   unsigned hooks = 0;
   control.commitHookIs( [ & ] {
      ++hooks;
      writer->hwFecIdIs( { 100, hooks } );
      control.commit(); // it is under way
   } );
   control.attachWriter( table, writerOptions );
   runAll();
   EXPECT_EQ( hooks, 0u );
   for( uint64_t round = 1; round != 4; ++round ) {
      writer->hwFecIdIs( { 1, round } );
      writer->hwFecIdIs( { 2, round } );
      runAll();
      EXPECT_EQ( hooks, round );
      EXPECT_EQ( writer->hwFecId( 100 ).hwId, round );
   }
   control.commitHookIs( [ & ] { control.detach(); } );
   writer->hwFecIdIs( { 1, 9 } );
   runAll();
   EXPECT_EQ( writer->hwFecIdMountStatus(), Glim::notAttached );
}

TEST_P( GlimCollection, refusesWhatItCannotDo ) {
   auto const writer = writerEntity();
   auto const reader = readerEntity();
   auto const none = entity();
   auto const refusal = []( auto use ) { return errorOf< Glim::Error >( use ); };
   Answer const answer{ 1, 1 };
   for( auto const & [ text, has ] : std::initializer_list< std::pair< std::string, std::string > >{
              { refusal( [ & ] { reader->hwFecIdIs( answer ); } ), "a reader of table \"" + table },
              { refusal( [ & ] { none->hwFecIdDel( 1 ); } ), "not attached" },
              { refusal( [ & ] { none->hwFecIdDelAll(); } ), "not attached" },
              { refusal( [ & ] { none->hwFecIdNotify( 1 ); } ), "not attached" },
              { refusal( [ & ] { reader->hwFecIdControl().quiescedIs( true ); } ), "a reader" },
              { refusal( [ & ] { reader->hwFecIdControl().attachReader( "x" ); } ), "already" },
              { refusal( [ & ] { none->hwFecIdControl().attachReader( "a/b" ); } ), "a/b" },
              { refusal( [ & ] { none->hwFecIdControl().attachWriter( table, writerOptions ); } ),
                "writer already" } } ) {
      EXPECT_NE( text.find( has ), std::string::npos ) << text;
   }
   EXPECT_EQ( none->hwFecIdMountStatus(), Glim::notAttached );
   EXPECT_EQ( stateOf( *writer ), State{} );
}

TEST_P( GlimCollection, isReadOnlyToWhoLooksFromOutside ) {
   auto const writer = writerEntity();
   writer->hwFecIdIs( { 7, 70 } );
   auto const & info = [ & ]( char const * name ) -> Kiv::AttributeInfo const & {
      return *writer->fwkType().reflection()->attribute( name );
   };
   auto const text = [ & ]( char const * name ) {
      return Kiv::datumText( info( name ).get( *writer ) );
   };
   auto const reader = readerEntity();
   EXPECT_EQ( text( "hwFecId" ), "{\"7\": {\"key\": 7, \"hwId\": 70}}" );
   EXPECT_EQ( info( "hwFecId" ).get( *reader ), info( "hwFecId" ).get( *writer ) );
   EXPECT_EQ( text( "hwFecIdMountStatus" ), "writingTable" );
   EXPECT_EQ( text( "hwFecIdResyncs" ), "0" );
   EXPECT_EQ( info( "hwFecId" ).keys( *writer ), Log{ "7" } );
   EXPECT_TRUE( info( "hwFecId" ).member( *writer, "7" ) );
   EXPECT_FALSE( info( "hwFecId" ).member( *writer, "8" ) );
   EXPECT_THROW( info( "hwFecId" ).setMember( *writer, "7", {} ), Kiv::ParseError );
   EXPECT_THROW( info( "hwFecId" ).delMember( *writer, "7" ), Kiv::ParseError );
   EXPECT_THROW( info( "hwFecIdQuiesced" ).check( true ), Kiv::ParseError );
   EXPECT_THROW( info( "hwFecIdQuiesced" ).set( *writer, true ), Kiv::ParseError );
   EXPECT_TRUE( writer->hwFecIdHas( 7 ) );
}

TEST_P( GlimCollection, standsInTheStateDatabase ) {
   auto const writer = writerEntity();
   writer->hwFecIdIs( { 7, 70 } );
   auto const reader = readerEntity();
   runAll();
   Tessera::Database database;
   database.mount( "/answers", reader, Tessera::Access::configuration );
   Log heard;
   database.watch( "/answers", [ & ]( Tessera::Path const & path, auto const & value ) {
      heard.push_back( path.text() + " " + ( value ? Kiv::datumText( *value ) : "is gone" ) );
   } );
   EXPECT_EQ( database.get( "/answers/hwFecId/7/hwId" ), Kiv::Datum( uint64_t( 70 ) ) );
   auto const all = database.get( "/" );
   database.apply( all ); // it says what is so
   for( auto const & use : std::initializer_list< std::function< void() > >{
              [ & ] { database.set( "/answers/hwFecId/7/hwId", 71 ); },
              [ & ] { database.set( "/answers/hwFecIdResyncs", 1 ); },
              [ & ] { database.del( "/answers/hwFecId/7" ); } } ) {
      EXPECT_NE( errorOf< Tessera::Error >( use ).find( "cannot be written" ), std::string::npos );
   }
   EXPECT_EQ( database.get( "/" ), all );
   writer->hwFecIdIs( { 8, 80 } );
   writer->hwFecIdDel( 7 );
   runAll();
   EXPECT_EQ( heard, ( Log{ "/answers/hwFecId/8 {\"key\": 8, \"hwId\": 80}",
                            "/answers/hwFecId/7 is gone" } ) );
}

using GlimLoop = GlimCollection;
INSTANTIATE_TEST_SUITE_P( Shared, GlimLoop, testing::Values( false ) );

// More readers than one thread can listen for, of a writer that is in the same process.
TEST_P( GlimLoop, hearsEveryBell ) {
   auto const writer = writerEntity();
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
      plain.is( 1, { 1, each->otherControl().rows() } );
      plain.notify( 1 );
      plain.commit();
      EXPECT_TRUE( runUntil( [ & ] { return each->otherControl().behind() == 0; } ) );
      each->otherControl().detach();
   }
}

TEST_P( GlimLoop, aForkedProcessTakesNothingAway ) {
   auto const writer = writerEntity();
   auto const reader = readerEntity();
   auto const reading = machine( reader );
   runAll();
   reading->take();
   auto const child = ::fork();
   if( child == 0 ) {
      ::alarm( 60 );
      writer->hwFecIdControl().detach();
      reader->hwFecIdControl().detach();
      ::_exit( 0 );
   }
   int status = -1;
   ::waitpid( child, &status, 0 );
   EXPECT_EQ( status, 0 );
   writer->hwFecIdIs( { 1, 10 } );
   runAll();
   EXPECT_EQ( reading->take(), Log{ "1" } );
   EXPECT_EQ( Glim::ReaderFile::all( table ).size(), 1u );
}

// Somebody shortens the file under the reader's feet: no read fails, and no loop spins.
TEST_P( GlimLoop, outlivesATableThatIsCutOff ) {
   auto plain = std::make_unique< Glim::TableWriter< uint64_t, Answer > >( table );
   for( uint64_t key = 0; key != 1000; ++key ) {
      plain->is( key, { key, 1 } );
   }
   auto const reader = readerEntity();
   auto const reading = machine( reader );
   runAll();
   EXPECT_EQ( reading->state.size(), 1000u );
   reading->take();
   ASSERT_EQ( ::truncate( Glim::pathOf( table ).c_str(), 4096 ), 0 );
   for( uint64_t key = 0; key != 1000; ++key ) {
      reader->hwFecId( key );
   }
   runAll();
   EXPECT_EQ( reading->take(), Log{ "mount tableUnreadable" } );
   EXPECT_NE( reader->hwFecIdControl().fault().find( table ), std::string::npos );
   EXPECT_EQ( reader->hwFecId( 1 ), Answer() );
   plain.reset();
   writerOptions.replace = true;
   auto const writer = writerEntity();
   writer->hwFecIdIs( { 3, 30 } );
   driver_.advance( Glim::Loop::retryInterval );
   runAll();
   EXPECT_EQ( reading->state, ( State{ { 3, 30 } } ) );
}

// The writer is another process, which knows nothing of the event loop here.
TEST_P( GlimLoop, wakesForAWriterInAnotherProcess ) {
   constexpr uint64_t keys = 5000;
   int go[ 2 ];
   ASSERT_EQ( ::pipe( go ), 0 );
   auto const child = ::fork();
   if( child == 0 ) {
      char token;
      Glim::TableWriter< uint64_t, Answer > writer( table, { .lifetime = Glim::Lifetime::stays } );
      writer.commit();
      for( uint64_t key = 0; key != keys; ++key ) {
         // Some at once, some after the reader has fallen asleep again.
         if( key % 1000 == 0 && ::read( go[ 0 ], &token, 1 ) != 1 ) {
            ::_exit( 1 );
         }
         writer.is( key, { key, key * 3 } );
         if( key % 7 == 0 ) {
            writer.commit();
         }
      }
      writer.close();
      ::_exit( 0 );
   }
   auto const reader = readerEntity();
   auto const reading = machine( reader );
   while( !reader->hwFecIdControl().mounted() ) {
      Glim::Loop::instance().run(); // its child is about to make it
   }
   runAll();
   reading->take();
   for( uint64_t part = 0; part != keys; part += 1000 ) {
      ASSERT_EQ( ::write( go[ 1 ], "g", 1 ), 1 );
      // Every 7th commits, and the last ones with the next of those.
      auto const committed = part + 1000 == keys ? keys : ( part + 999 ) / 7 * 7 + 1;
      EXPECT_TRUE( runUntil( [ & ] { return reading->log.size() >= committed; } ) );
   }
   ASSERT_EQ( reading->log.size(), keys );
   for( uint64_t key = 0; key != keys; ++key ) {
      ASSERT_EQ( reading->log[ key ], std::to_string( key ) );
      ASSERT_EQ( reading->state[ key ], key * 3 );
   }
   int status = 0;
   ::waitpid( child, &status, 0 );
   EXPECT_EQ( status, 0 );
   ::close( go[ 0 ] );
   ::close( go[ 1 ] );
}

} // namespace GlimTests
