// SPDX-License-Identifier: Apache-2.0
#include "agent/Server.h"
#include "Helpers.h"
#include "Hoba/HobaCommon.h"
#include "Kiv/Reflect.h"
#include "Tessera/Database.h"
#include "agent/DatabaseCommands.h"
#include "agent/common/Json.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace HobaAgent {
namespace ServerTesting {

class Thing : public Kiv::Entity {
   KIV_ENTITY( HobaAgent::ServerTesting::Thing );
   KIV_ATTRIBUTE( Kiv::String, note );
};
KIV_DEFINE( HobaAgent::ServerTesting::Thing );

std::string const fine = "{\"id\":1,\"ok\":true,\"result\":\"\"}\n";
std::string const done = "{\"id\":null,\"ok\":true,\"result\":null}\n";
std::string const getNote = R"({"id":1,"command":"get","path":"/thing/note"})";
std::string const watch = R"({"id":9,"command":"watch","path":"/thing"})";

std::string
setNote( std::string const & note ) {
   return R"({"command":"set","path":"/thing/note","text":")" + note + "\"}\n";
}

// Another one than that of the number before it.
std::string
noteOf( std::size_t bytes, int number ) {
   return std::string( bytes, static_cast< char >( 'a' + number % 26 ) );
}

// A server in this process, and clients whose ends of the connections are ours. Nothing moves but
// in turn().
class ServerTest : public testing::Test {
 protected:
   ServerTest() {
      database.mount( "/thing", thing, Tessera::Access::configuration );
      addDatabaseCommands( commands, database, loop );
      commands.add( { "fill", "", {}, []( auto const & ) { return std::string( 3000, 'x' ); } } );
      serve();
   }
   void serve( ServerLimits const & limits = {} ) {
      server.reset();
      server = std::make_unique< Server >( loop, commands, path, limits );
   }

   Fd client() {
      auto fd = connectTo( path );
      fcntl( fd.get(), F_SETFL, O_NONBLOCK );
      turn();
      return fd;
   }
   Fd watcher() {
      auto fd = client();
      put( fd, watch + "\n" );
      return fd;
   }

   void turn( int rounds = 20 ) {
      for( int i = 0; i != rounds; ++i ) {
         loop.runOnce( 0 );
      }
   }

   void put( Fd const & fd, std::string_view text ) {
      while( !text.empty() ) {
         auto count = send( fd.get(), text.data(), text.size(), MSG_NOSIGNAL );
         if( count < 0 && errno != EAGAIN ) {
            return; // the agent hung up; the test looks at that
         }
         text.remove_prefix( count > 0 ? static_cast< std::size_t >( count ) : 0 );
         turn( 1 );
      }
      turn();
   }

   // All that has come.
   std::string take( Fd const & fd ) {
      std::string all;
      char piece[ 65536 ];
      while( true ) {
         turn( 3 );
         auto count = recv( fd.get(), piece, sizeof piece, 0 );
         ended = count == 0;
         if( count <= 0 ) {
            return all;
         }
         all.append( piece, static_cast< std::size_t >( count ) );
      }
   }

   std::string ask( Fd const & fd, std::string const & request ) {
      put( fd, request + "\n" );
      return take( fd );
   }

   static std::string error( std::string const & message, std::string const & id = "null" ) {
      return "{\"id\":" + id + ",\"ok\":false,\"error\":{\"message\":" + jsonText( message ) +
             "}}\n";
   }

   // Of lines that are whole, the last one.
   static void expectReason( std::string const & lines, std::string const & reason ) {
      ASSERT_TRUE( lines.ends_with( "\n" ) );
      std::istringstream in( lines );
      Kiv::Datum last;
      for( std::string line; std::getline( in, line ); ) {
         ASSERT_NO_THROW( last = parseJson( line ) ) << line;
      }
      HobaTests::expectIn( jsonText( last ), reason );
   }

   HobaTests::Folder folder;
   std::string const path = folder.path + "/socket";
   bool ended = false; // whether the connection had, of which was last taken
   EventLoop loop;
   Tessera::Database database;
   Commands commands;
   Kiv::Ptr< Thing > thing = Kiv::make< Thing >();
   std::unique_ptr< Server > server;
};

TEST_F( ServerTest, answersInOrderWhateverThePieces ) {
   auto fd = client();
   put( fd, getNote + "\n\n  \r\n" + R"({"id":"x",)" + setNote( "n" ).substr( 1 ) +
                  R"({"id":[2],"command":"get","path":"/thing"})" + "\n" + setNote( "" ) );
   EXPECT_EQ( take( fd ), fine +
                                "{\"id\":\"x\",\"ok\":true,\"result\":null}\n"
                                "{\"id\":[2],\"ok\":true,\"result\":{\"note\":\"n\"}}\n" +
                                done );
   for( char c : getNote ) {
      put( fd, std::string( 1, c ) );
   }
   EXPECT_EQ( ask( fd, "" ), fine );
   put( fd, getNote + "\n{\"id\":" );
   shutdown( fd.get(), SHUT_WR );
   EXPECT_EQ( take( fd ), fine + error( "the connection ended in the middle of a line" ) );
   EXPECT_TRUE( ended );
   EXPECT_EQ( server->clients(), 0u );
}

// Who watches hears of a write in its midst, as machines do.
TEST_F( ServerTest, warnsOfStepsThatFailUponAWrite ) {
   auto const context = Kiv::make< Hoba::HobaCommonSmData >( "context" ); // logs what fails
   auto fd = client();
   auto const refuse = []( auto const &, auto const & ) { throw Kiv::Exception( "no room" ); };
   auto const first = database.watch( "/thing", refuse );
   auto const warned = done.substr( 0, done.size() - 2 ) + ",\"warning\":\"done, but ";
   EXPECT_EQ( ask( fd, setNote( "a" ) ),
              warned +
                    "1 step failed; the last: Tessera::Watch on /thing/note failed: no room\"}\n" );
   auto const second = database.watch( "/thing/note", refuse );
   EXPECT_TRUE( ask( fd, setNote( "b" ) ).starts_with( warned + "2 steps failed; the last: " ) );
   EXPECT_EQ( ask( fd, setNote( "b" ) ), done ) << "no change, and nobody hears of it";
   database.unwatch( first );
   database.unwatch( second );
}

TEST_F( ServerTest, refusesWithOneErrorAndGoesOn ) {
   auto fd = client();
   // clang-format off
   std::array< std::string, 3 > const rows[] = {
      { "nonsense", "null", "the request is not JSON: line 1, column 2: " },
      { std::string( "\0\xff\x01", 3 ), "null", "the request is not JSON: line 1, column 1: " },
      { std::string( 100, '[' ), "null",
        "the request is not JSON: line 1, column 65: nested deeper than 64" },
      { R"({"id":7,"command":"get","path":"/x"})", "7", "/x: no such path; there is thing" },
      { R"({"id":7,"command":"set","path":"/thing"})", "7", "expected either text or value" },
   };
   // clang-format on
   for( auto const & [ request, id, message ] : rows ) {
      auto const answer = ask( fd, request );
      auto const beginning = error( message, id ); // the message may go on
      EXPECT_TRUE( answer.starts_with( beginning.substr( 0, beginning.size() - 4 ) ) ) << answer;
      EXPECT_EQ( std::count( answer.begin(), answer.end(), '\n' ), 1 ) << answer;
      EXPECT_EQ( ask( fd, getNote ), fine );
   }
}

TEST_F( ServerTest, boundsLinesAndAnswers ) {
   serve( { .line = 1000, .answer = 2000 } );
   auto fd = client();
   auto tooLong = error( "the line is longer than 1000 bytes" );
   EXPECT_EQ( ask( fd, std::string( 200'000, 'x' ) ), tooLong );
   EXPECT_EQ( ask( fd, std::string( 1001, ' ' ) ), tooLong );
   EXPECT_EQ( ask( fd, getNote + std::string( 1000 - getNote.size(), ' ' ) ), fine );
   EXPECT_EQ( ask( fd, R"({"id":3,"command":"fill"})" ),
              error( "the answer takes 3030 bytes, more than 2000: ask for less", "3" ) );
   EXPECT_EQ( ask( fd, getNote ), fine );
}

TEST_F( ServerTest, whoIsIdleTheLongestMakesRoom ) {
   serve( { .clients = 3 } );
   auto const expectDismissed = [ & ]( Fd const & fd ) {
      EXPECT_EQ( take( fd ),
                 error( "the agent ends this connection: it has 3 clients, as many as it takes, "
                        "and this one was idle the longest" ) );
      EXPECT_TRUE( ended );
      EXPECT_EQ( server->clients(), 3u );
   };
   auto silent = watcher(), first = client(), second = client();
   take( silent );
   EXPECT_EQ( ask( second, getNote ), fine );
   EXPECT_EQ( ask( first, getNote ), fine );
   auto third = client();
   expectDismissed( second ); // not the watcher, though it is silent for longer
   ask( third, watch );
   ask( first, watch );
   auto fourth = client();
   expectDismissed( silent );
   EXPECT_EQ( database.watches(), 2u );
   // A crowd at the door: all who stay behind their connections' limit are told so.
   ask( fourth, getNote );
   std::vector< Fd > crowd;
   for( int i = 0; i != 40; ++i ) {
      crowd.push_back( connectTo( path ) );
      fcntl( crowd.back().get(), F_SETFL, O_NONBLOCK );
      put( crowd.back(), getNote + "\n" );
   }
   for( auto const & fd : crowd ) {
      EXPECT_TRUE( take( fd ).starts_with( fine ) );
   }
   EXPECT_EQ( server->clients(), 3u );
   EXPECT_EQ( database.watches(), 2u ) << "who only passes by displaces nobody who watches";
}

TEST_F( ServerTest, doesNotListenToWhoDoesNotRead ) {
   serve( { .unread = 6'000, .queued = 60'000 } );
   auto silent = client(), other = client();
   for( int i = 0; i != 200; ++i ) {
      put( silent, "{\"command\":\"fill\"}\n" );
   }
   EXPECT_EQ( ask( other, getNote ), fine );
   EXPECT_EQ( server->clients(), 2u ); // it waits, and is not lost
   auto answers = take( silent );
   EXPECT_EQ( std::count( answers.begin(), answers.end(), '\n' ), 200 );
   EXPECT_EQ( ask( silent, getNote ), fine );
}

TEST_F( ServerTest, dropsWhoDoesNotReadItsEvents ) {
   serve( { .queued = 100'000 } );
   auto silent = watcher(), reader = client();
   EXPECT_EQ( ask( reader, watch ), "{\"id\":9,\"ok\":true,\"result\":{\"watch\":2}}\n" );
   EXPECT_EQ( database.watches(), 2u );
   std::string heard;
   for( int i = 0; i != 200; ++i ) {
      thing->noteIs( noteOf( 5000, i ) );
      turn( 2 );
      heard += take( reader );
   }
   EXPECT_EQ( database.watches(), 1u );
   EXPECT_EQ( server->clients(), 1u );
   EXPECT_EQ( std::count( heard.begin(), heard.end(), '\n' ), 200 );
   expectReason( take( silent ), " bytes wait to be read, as many as one client may have" );
   EXPECT_TRUE( ended );
}

TEST_F( ServerTest, tellsWhileMuchHappensAtOnce ) {
   serve( { .piece = 10'000, .queued = 50'000 } );
   auto reader = watcher();
   take( reader );
   for( int i = 0; i != 20; ++i ) {
      thing->noteIs( noteOf( 5000, i ) );
   }
   EXPECT_LT( server->waiting(), 50'000u );
   auto const heard = take( reader );
   EXPECT_EQ( std::count( heard.begin(), heard.end(), '\n' ), 20 );
   EXPECT_EQ( server->clients(), 1u );
}

TEST_F( ServerTest, boundsWhatWaitsForAllTogether ) {
   serve( { .waiting = 300'000 } );
   std::vector< Fd > silent;
   for( int i = 0; i != 5; ++i ) {
      silent.push_back( watcher() );
   }
   auto reader = watcher();
   std::string heard;
   auto const flood = [ & ]( auto const & change ) {
      for( int i = 0; i != 300 && change( noteOf( 4000, i ) ); ++i ) {
         turn();
         heard += take( reader );
         EXPECT_LE( server->waiting(), 300'000u + 7 * 500 );
      }
   };
   std::string const reason = "more than may, and most of it by this one";
   // One that floods itself is the slowest, and found to be so in the midst of its own requests.
   auto busy = watcher();
   put( busy, watch + "\n" );
   flood( [ & ]( std::string const & note ) {
      auto const set = setNote( note );
      return send( busy.get(), set.data(), set.size(), MSG_NOSIGNAL ) > 0;
   } );
   expectReason( take( busy ), reason );
   EXPECT_EQ( server->clients(), 6u );
   // Without it, the others are.
   flood( [ & ]( std::string const & note ) {
      thing->noteIs( note );
      return server->clients() > 4;
   } );
   EXPECT_EQ( server->clients(), 4u );
   EXPECT_GE( std::count( heard.begin(), heard.end(), '\n' ), 40 );
   take( reader );
   EXPECT_TRUE( ask( reader, getNote ).starts_with( fine.substr( 0, 17 ) ) );
   int dismissed = 0;
   for( auto const & fd : silent ) {
      auto const lines = take( fd );
      if( ended ) {
         ++dismissed;
         expectReason( lines, reason );
      }
   }
   EXPECT_EQ( dismissed, 2 );
   silent.clear();
   reader.reset();
   turn();
   EXPECT_EQ( server->waiting(), 0u );
   EXPECT_EQ( database.watches(), 0u );
}

TEST_F( ServerTest, watchesUntilTheConnectionEnds ) {
   auto fd = client();
   ask( fd, R"({"id":9,"command":"watch","path":"/"})" );
   thing->noteIs( "x" );
   database.unmount( "/thing" );
   HobaTests::expectIn( take( fd ),
                        { R"({"id":9,"event":{"time":)", R"(,"path":"/thing/note","value":"x"}})",
                          R"("path":"/thing","deleted":true)" } );
   fd.reset();
   turn();
   EXPECT_EQ( database.watches(), 0u );
   EXPECT_EQ( server->clients(), 0u );
}

TEST_F( ServerTest, onlyItsOwnUserFindsIt ) {
   struct stat status {};
   ASSERT_EQ( stat( path.c_str(), &status ), 0 );
   EXPECT_EQ( status.st_mode & 0777, 0600u );
   auto const errorAt = [ & ]( std::string const & at ) {
      return HobaTests::errorOf< Kiv::Exception >( [ & ] { Server( loop, commands, at ); } );
   };
   EXPECT_EQ( errorAt( path + "/none" ), path + "/none: Not a directory" );
   HobaTests::expectIn( errorAt( "/tmp/" + std::string( 200, 'x' ) ),
                        "expected 1 to 107 characters" );
}

TEST_F( ServerTest, completesPaths ) {
   database.mount( "/other[a/b]", Kiv::make< Thing >(), Tessera::Access::status );
   using Paths = std::vector< Kiv::String >;
   std::pair< char const *, Paths > const rows[] = { { "", { "/thing/", "/other/" } },
                                                     { "/", { "/thing/", "/other/" } },
                                                     { "/th", { "/thing/" } },
                                                     { "/thing/", { "/thing/note" } },
                                                     { "/other[", { "/other[a/b]/" } },
                                                     { "/other/a", { "/other[a/b]/" } },
                                                     { "/nothing/", {} } };
   for( auto const & [ begun, paths ] : rows ) {
      EXPECT_EQ( completions( database, begun ), paths ) << begun;
   }
   EXPECT_EQ( completions( database, "/thing/", 0 ), Paths() );
}

} // namespace ServerTesting
} // namespace HobaAgent
