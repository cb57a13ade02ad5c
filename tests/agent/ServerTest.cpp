// SPDX-License-Identifier: Apache-2.0
#include "agent/Server.h"
#include "Kiv/Reflect.h"
#include "Tessera/Database.h"
#include "agent/DatabaseCommands.h"
#include "agent/common/Json.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

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

// A server in this process, and clients whose ends of the connections are ours. Nothing moves but
// in turn().
class ServerTest : public testing::Test {
 protected:
   ServerTest() {
      char name[] = "/tmp/hoba-server-test-XXXXXX";
      directory = mkdtemp( name );
      path = directory + "/socket";
      database.mount( "/thing", thing, Tessera::Access::configuration );
      addDatabaseCommands( commands, database, loop );
      commands.add( { .name = "fill",
                      .help = "",
                      .arguments = { { "bytes", "" } },
                      .handler = []( Request const & request ) {
                         return Kiv::Datum(
                               std::string( request.value< std::size_t >( "bytes" ), 'x' ) );
                      } } );
      start();
   }
   ~ServerTest() override {
      server.reset();
      unlink( path.c_str() );
      rmdir( directory.c_str() );
   }

   void start() { server = std::make_unique< Server >( loop, commands, path, limits ); }
   void restart() {
      server.reset();
      start();
   }

   Fd client() {
      auto fd = connectTo( path );
      fcntl( fd.get(), F_SETFL, O_NONBLOCK );
      turn();
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

   // All that has come. `ended` tells whether the connection has.
   std::string take( Fd const & fd, bool * ended = nullptr ) {
      std::string all;
      char piece[ 65536 ];
      while( true ) {
         turn( 3 );
         auto count = recv( fd.get(), piece, sizeof piece, 0 );
         if( ended ) {
            *ended = count == 0;
         }
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
      EXPECT_NE( jsonText( last ).find( reason ), std::string::npos ) << jsonText( last );
   }

   std::string directory, path;
   EventLoop loop;
   Tessera::Database database;
   Commands commands;
   ServerLimits limits;
   Kiv::Ptr< Thing > thing = Kiv::make< Thing >();
   std::unique_ptr< Server > server;
};

std::string const fine = "{\"id\":1,\"ok\":true,\"result\":\"\"}\n";
std::string const getNote = R"({"id":1,"command":"get","path":"/thing/note"})";

TEST_F( ServerTest, answersInOrder ) {
   auto fd = client();
   put( fd, getNote + "\n\n  \r\n" +
                  R"({"id":"x","command":"set","path":"/thing/note","text":"n"})" + "\n" +
                  R"({"id":[2],"command":"get","path":"/thing"})" + "\n" );
   EXPECT_EQ( take( fd ), fine + "{\"id\":\"x\",\"ok\":true,\"result\":null}\n"
                                 "{\"id\":[2],\"ok\":true,\"result\":{\"note\":\"n\"}}\n" );
}

TEST_F( ServerTest, refusesWithOneErrorAndGoesOn ) {
   auto fd = client();
   auto depth = std::string( 100, '[' );
   struct Row {
      std::string request;
      std::string answer; // its beginning
   };
   for( auto const & row : std::vector< Row >{
              { "nonsense",
                R"({"id":null,"ok":false,"error":{"message":"the request is not JSON: line 1, column 2: )" },
              { std::string( "\0\xff\x01", 3 ),
                R"({"id":null,"ok":false,"error":{"message":"the request is not JSON: line 1, column 1: )" },
              { depth,
                R"({"id":null,"ok":false,"error":{"message":"the request is not JSON: line 1, column 65: nested deeper than 64)" },
              { "[]",
                R"({"id":null,"ok":false,"error":{"message":"a request is an object with a command"}})" },
              { R"({"id":7})",
                R"({"id":7,"ok":false,"error":{"message":"a request needs a command, a string"}})" },
              { R"({"id":7,"command":"gte"})",
                R"({"id":7,"ok":false,"error":{"message":"unknown command \"gte\"; did you mean \"get\"?"}})" },
              { R"({"id":7,"command":"get","path":"/x"})",
                R"({"id":7,"ok":false,"error":{"message":"/x: no such path; there is thing"}})" },
              { R"({"id":7,"command":"set","path":"/thing/note"})",
                R"({"id":7,"ok":false,"error":{"message":"expected either text or value"}})" },
        } ) {
      auto answer = ask( fd, row.request );
      EXPECT_TRUE( answer.starts_with( row.answer ) ) << row.request << " -> " << answer;
      EXPECT_EQ( std::count( answer.begin(), answer.end(), '\n' ), 1 ) << answer;
      EXPECT_EQ( ask( fd, getNote ), fine );
   }
}

TEST_F( ServerTest, boundsLinesAndAnswers ) {
   limits.line = 1000;
   limits.answer = 2000;
   restart();
   auto fd = client();
   auto tooLong = error( "the line is longer than 1000 bytes" );
   EXPECT_EQ( ask( fd, std::string( 200'000, 'x' ) ), tooLong );
   EXPECT_EQ( ask( fd, std::string( 1001, ' ' ) ), tooLong );
   EXPECT_EQ( ask( fd, getNote + std::string( 1000 - getNote.size(), ' ' ) ), fine );
   auto answer = ask( fd, R"({"id":3,"command":"fill","bytes":3000})" );
   EXPECT_EQ( answer, error( "the answer takes 3030 bytes, more than 2000: ask for less", "3" ) );
   EXPECT_EQ( ask( fd, getNote ), fine );
}

TEST_F( ServerTest, takesLinesInPieces ) {
   auto fd = client();
   for( char c : getNote ) {
      put( fd, std::string( 1, c ) );
   }
   EXPECT_EQ( take( fd ), "" );
   put( fd, "\n" );
   EXPECT_EQ( take( fd ), fine );
   put( fd, getNote + "\n{\"id\":" );
   shutdown( fd.get(), SHUT_WR );
   bool ended = false;
   EXPECT_EQ( take( fd, &ended ), fine + error( "the connection ended in the middle of a line" ) );
   EXPECT_TRUE( ended );
   EXPECT_EQ( server->clients(), 0u );
}

TEST_F( ServerTest, whoIsIdleTheLongestMakesRoom ) {
   limits.clients = 3;
   restart();
   std::string const watch = R"({"id":9,"command":"watch","path":"/thing"})";
   auto const expectDismissed = [ & ]( Fd const & fd ) {
      bool ended = false;
      EXPECT_EQ( take( fd, &ended ),
                 error( "the agent ends this connection: it has 3 clients, as many as it takes, "
                        "and this one was idle the longest" ) );
      EXPECT_TRUE( ended );
      EXPECT_EQ( server->clients(), 3u );
   };
   auto watcher = client(), first = client(), second = client();
   ask( watcher, watch );
   EXPECT_EQ( ask( second, getNote ), fine );
   EXPECT_EQ( ask( first, getNote ), fine );
   auto third = client();
   expectDismissed( second ); // not the watcher, though it is silent for longer
   ask( third, watch );
   ask( first, watch );
   auto fourth = client();
   expectDismissed( watcher );
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
   limits.unread = 100'000;
   limits.queued = 1'000'000;
   restart();
   auto silent = client();
   auto other = client();
   std::string const fill = R"({"id":1,"command":"fill","bytes":50000})"
                            "\n";
   for( int i = 0; i != 100; ++i ) {
      put( silent, fill );
   }
   EXPECT_EQ( ask( other, getNote ), fine );
   EXPECT_EQ( server->clients(), 2u ); // it waits, and is not lost
   auto answers = take( silent );
   EXPECT_EQ( std::count( answers.begin(), answers.end(), '\n' ), 100 );
   EXPECT_EQ( ask( silent, getNote ), fine );
}

TEST_F( ServerTest, dropsWhoDoesNotReadItsEvents ) {
   limits.queued = 100'000;
   restart();
   auto silent = client();
   auto reader = client();
   std::string const watch = R"({"id":9,"command":"watch","path":"/thing"})";
   ask( silent, watch );
   EXPECT_EQ( ask( reader, watch ), "{\"id\":9,\"ok\":true,\"result\":{\"watch\":2}}\n" );
   EXPECT_EQ( database.watches(), 2u );
   std::string heard;
   for( int i = 0; i != 200; ++i ) {
      thing->noteIs( std::string( 5000, static_cast< char >( 'a' + i % 26 ) ) );
      turn( 2 );
      heard += take( reader );
   }
   EXPECT_EQ( database.watches(), 1u );
   EXPECT_EQ( server->clients(), 1u );
   EXPECT_EQ( std::count( heard.begin(), heard.end(), '\n' ), 200 );
   // It finds whole lines, and the reason behind them.
   bool ended = false;
   expectReason( take( silent, &ended ), " bytes wait to be read, as many as one client may have" );
   EXPECT_TRUE( ended );
}

TEST_F( ServerTest, tellsWhileMuchHappensAtOnce ) {
   limits.piece = 10'000;
   limits.queued = 50'000;
   restart();
   auto reader = client();
   ask( reader, R"({"id":9,"command":"watch","path":"/thing"})" );
   for( int i = 0; i != 20; ++i ) {
      thing->noteIs( std::string( 5000, static_cast< char >( 'a' + i % 26 ) ) );
   }
   EXPECT_LT( server->waiting(), limits.queued );
   auto const heard = take( reader );
   EXPECT_EQ( std::count( heard.begin(), heard.end(), '\n' ), 20 );
   EXPECT_EQ( server->clients(), 1u );
}

TEST_F( ServerTest, boundsWhatWaitsForAllTogether ) {
   limits.waiting = 300'000;
   restart();
   std::string const watch = R"({"id":9,"command":"watch","path":"/thing"})";
   std::vector< Fd > silent;
   for( int i = 0; i != 5; ++i ) {
      silent.push_back( client() );
      put( silent.back(), watch + "\n" );
   }
   auto reader = client();
   ask( reader, watch );
   std::string heard;
   auto const flood = [ & ]( auto const & change ) {
      for( int i = 0;
           i != 300 && change( std::string( 4000, static_cast< char >( 'a' + i % 26 ) ) ); ++i ) {
         turn();
         heard += take( reader );
         EXPECT_LE( server->waiting(), limits.waiting + 7 * 500 );
      }
   };
   // One that floods itself is the slowest, and found to be so in the midst of its own requests.
   auto busy = client();
   put( busy, watch + "\n" + watch + "\n" );
   flood( [ & ]( std::string const & note ) {
      auto const set = R"({"command":"set","path":"/thing/note","text":")" + note + "\"}\n";
      return send( busy.get(), set.data(), set.size(), MSG_NOSIGNAL ) > 0;
   } );
   expectReason( take( busy ), "more than may, and most of it by this one" );
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
      bool ended = false;
      auto const lines = take( fd, &ended );
      if( ended ) {
         ++dismissed;
         expectReason( lines, "more than may, and most of it by this one" );
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
   auto events = take( fd );
   auto first = parseJson( events.substr( 0, events.find( '\n' ) ) );
   EXPECT_EQ( *first.find( "id" ), Kiv::Datum( 9 ) );
   auto const * event = first.find( "event" );
   ASSERT_TRUE( event );
   EXPECT_EQ( *event->find( "path" ), Kiv::Datum( "/thing/note" ) );
   EXPECT_EQ( *event->find( "value" ), Kiv::Datum( "x" ) );
   EXPECT_TRUE( event->find( "time" ) );
   EXPECT_NE( events.find( "\"path\":\"/thing\",\"deleted\":true" ), std::string::npos );
   fd.reset();
   turn();
   EXPECT_EQ( database.watches(), 0u );
   EXPECT_EQ( server->clients(), 0u );
}

TEST_F( ServerTest, isFoundByItsSocketOnly ) {
   struct stat status {};
   ASSERT_EQ( stat( path.c_str(), &status ), 0 );
   EXPECT_EQ( status.st_mode & 0777, 0600u );
   auto errorOf = [ & ]( std::string const & at ) -> std::string {
      try {
         Server second( loop, commands, at );
         return {};
      } catch( Kiv::Exception const & failure ) {
         return failure.what();
      }
   };
   EXPECT_EQ( errorOf( path ), path + ": another agent answers here" );
   EXPECT_EQ( errorOf( directory ), directory + ": is there already, and is not a socket" );
   EXPECT_EQ( errorOf( directory + "/none/socket" ),
              directory + "/none/socket: No such file or directory" );
   EXPECT_NE( errorOf( "/tmp/" + std::string( 200, 'x' ) ).find( "expected 1 to 107 characters" ),
              std::string::npos );
   auto fd = client();
   EXPECT_EQ( ask( fd, getNote ), fine ); // none of that harmed the one that is there

   // A socket that was left behind is no obstacle.
   server.reset();
   EXPECT_NE( access( path.c_str(), F_OK ), 0 );
   auto left = listenAt( path );
   left.reset();
   EXPECT_EQ( access( path.c_str(), F_OK ), 0 );
   start();
   EXPECT_EQ( ask( client(), getNote ), fine );
}

TEST_F( ServerTest, completesPaths ) {
   database.mount( "/other[a/b]", Kiv::make< Thing >(), Tessera::Access::status );
   using Paths = std::vector< Kiv::String >;
   EXPECT_EQ( completions( database, "" ), ( Paths{ "/thing/", "/other/" } ) );
   EXPECT_EQ( completions( database, "/" ), ( Paths{ "/thing/", "/other/" } ) );
   EXPECT_EQ( completions( database, "/th" ), ( Paths{ "/thing/" } ) );
   EXPECT_EQ( completions( database, "/thing/" ), ( Paths{ "/thing/note" } ) );
   EXPECT_EQ( completions( database, "/other[" ), ( Paths{ "/other[a/b]/" } ) );
   EXPECT_EQ( completions( database, "/other/a" ), ( Paths{ "/other[a/b]/" } ) );
   EXPECT_EQ( completions( database, "/nothing/" ), Paths() );
   EXPECT_EQ( completions( database, "/thing/", 0 ), Paths() );
}

} // namespace ServerTesting
} // namespace HobaAgent
