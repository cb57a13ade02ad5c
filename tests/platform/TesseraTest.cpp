// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Dir.h"
#include "Kiv/Reflect.h"
#include "Kiv/Value.h"
#include "Refusal.h"
#include "Tessera/Database.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace TesseraTest {

using Kiv::Datum;
using Kiv::String;
using Object = Datum::Object;
using Array = Datum::Array;
using Tessera::Access;
using Tessera::Database;
using Tessera::Error;
using Tessera::Path;

KIV_ENUM( Color, std::uint8_t, red = 0, green = 1, blue = 7 );

struct Level {
   KIV_VALUE( TesseraTest::Level );
   KIV_FIELD( std::uint32_t, mode, 0 );
   KIV_FIELD( std::uint16_t, level, 10000 );
   KIV_FIELD( Color, color, red );
};

struct Entry {
   KIV_VALUE( TesseraTest::Entry );
   KIV_FIELD( std::uint16_t, vlan, 0 );
   KIV_FIELD( String, port, "" );
};

class Child : public Kiv::Entity {
   KIV_ENTITY( TesseraTest::Child );
   KIV_ATTRIBUTE( Level, broadcast );
   KIV_ATTRIBUTE( bool, enabled, true );
   KIV_COLLECTION( std::uint16_t, Level, level );

 public:
   explicit Child( String const & name ) : Entity( name ) {}
};

// A class whose objects are not made from a key.
class Fixed : public Kiv::Entity {
   KIV_ENTITY( TesseraTest::Fixed );
   KIV_ATTRIBUTE( String, note );
};

class Config : public Kiv::Entity {
   KIV_ENTITY( TesseraTest::Config );
   KIV_ATTRIBUTE( double, period, 1.5 );
   KIV_ATTRIBUTE( std::int64_t, number, -1 );
   KIV_ATTRIBUTE( String, note );
   KIV_ATTRIBUTE( Color, color, green );
   KIV_ATTRIBUTE( Kiv::Ptr< Fixed >, friend_ );
   KIV_SET( String, port );
   KIV_COLLECTION( std::uint16_t, Level, level );
   KIV_KEYED( Entry, std::uint16_t, vlan, entry );
   KIV_QUEUE( std::uint32_t, waiting );
   KIV_CHILD( Fixed, fixed );
   KIV_CHILDREN( String, Child, intf );
   KIV_CHILDREN( std::uint16_t, Fixed, odd );

 public:
   explicit Config( String const & name = "config" ) : Entity( name ) {}
};

KIV_DEFINE( TesseraTest::Child );
KIV_DEFINE( TesseraTest::Fixed );
KIV_DEFINE( TesseraTest::Config );

// `value` as a member of objects of objects, `names` from the outermost in.
Datum
in( std::vector< String > const & names, Datum value ) {
   for( auto name = names.rbegin(); name != names.rend(); ++name ) {
      value = Object{ { *name, std::move( value ) } };
   }
   return value;
}

// Paths in tables are those of the configuration, unless they begin with a slash.
String
full( String const & path ) {
   return path.starts_with( '/' ) ? path : "/feature/config/" + path;
}

class TesseraDatabase : public testing::Test {
 protected:
   TesseraDatabase() {
      database.mount( "/feature/config", config, Access::configuration );
      database.mount( "/feature/status", status, Access::status );
   }

   // The error's text, empty for none. What is refused changes nothing.
   template< class Work >
   String errorOf( Work const & work ) {
      auto const before = database.get( "/" );
      auto const text = Refusals::refusal< Error >( work );
      if( !text.empty() ) {
         EXPECT_EQ( database.get( "/" ), before );
      }
      return text;
   }
   String setError( std::string_view path, Datum const & value ) {
      return errorOf( [ & ] { database.set( path, value ); } );
   }
   String delError( std::string_view path ) {
      return errorOf( [ & ] { database.del( path ); } );
   }
   String possible( std::string_view path ) {
      return errorOf( [ & ] { database.requirePossible( path ); } );
   }

   Kiv::Ptr< Config > config = Kiv::make< Config >();
   Kiv::Ptr< Config > status = Kiv::make< Config >( "status" );
   Database database;
};

TEST_F( TesseraDatabase, mounts ) {
   auto other = Kiv::make< Config >();
   auto const mountError = [ & ]( char const * path ) {
      return errorOf( [ & ] { database.mount( path, other, Access::status ); } );
   };
   EXPECT_EQ( mountError( "/feature" ), "/feature: is a directory" );
   EXPECT_EQ( mountError( "/feature/config/x" ),
              "/feature/config/x: an entity is mounted at /feature/config" );
   EXPECT_EQ( mountError( "/" ), "/: the root cannot be an entity" );
   EXPECT_EQ( errorOf( [ & ] { database.unmount( "/feature" ); } ),
              "/feature: no entity is mounted here" );
   EXPECT_EQ( mountError( "/a/b[c/d]" ), "" );
   EXPECT_EQ( database.entity( "/a/b[c/d]" ), other );
   database.unmount( "/a/b[c/d]" );
   EXPECT_EQ( database.get( "/" ).find( "a" ), nullptr );
   EXPECT_EQ( database.entity( "/a/b[c/d]" ), nullptr );
   EXPECT_EQ( database.mounts(),
              ( std::vector< String >{ "/feature/config", "/feature/status" } ) );
}

TEST_F( TesseraDatabase, readsSubtrees ) {
   config->levelIs( 10, Level{ 1, 2, blue } );
   config->portIs( "Ethernet1/2" );
   config->waitingEnq( 5 );
   config->intfIs( "Ethernet1/2" )->enabledIs( false );
   Datum const level = Object{ { "mode", 1u }, { "level", 2u }, { "color", "blue" } };
   EXPECT_EQ( database.get( "/feature/config/level/10" ), level );
   EXPECT_EQ( database.get( "/feature/config/level/10/color" ), Datum( "blue" ) );
   EXPECT_EQ( database.get( "/feature/config/intf[Ethernet1/2]/enabled" ), Datum( false ) );
   EXPECT_EQ( database.get( "/feature/config/waiting/0" ), Datum( 5u ) );
   EXPECT_EQ( database.get( "/feature/config/port[Ethernet1/2]" ), Datum( true ) );
   auto all = database.get( "/" );
   auto const * read = all.find( "feature" )->find( "config" );
   EXPECT_EQ( *read->find( "level" ), in( { "10" }, level ) );
   EXPECT_EQ( *read->find( "intf" )->find( "Ethernet1/2" )->find( "enabled" ), Datum( false ) );
   EXPECT_TRUE( read->find( "fixed" )->isNull() );
}

// What may be written is not always what somebody configured, and is to be loaded again.
TEST_F( TesseraDatabase, tellsConfigurationFromTheRest ) {
   database.mount( "/device", Kiv::make< Config >( "device" ), Access::writable );
   auto const kept = Tessera::Scope::configuration;
   EXPECT_EQ( database.get( "/", kept ),
              in( { "feature", "config" }, database.get( "/feature/config" ) ) );
   for( String path : { "/device", "/feature/status/note" } ) {
      EXPECT_EQ( errorOf( [ & ] { database.get( path, kept ); } ), path + ": is no configuration" );
   }
   EXPECT_EQ( setError( "/device/note", "x" ), "" );
   EXPECT_EQ( setError( "/feature/status/note", "x" ),
              "/feature/status/note: is status: it cannot be written from outside" );
}

// Whoever mounts an entity has a say in what is made below it.
TEST_F( TesseraDatabase, makesWhatTheProcessHasAUseFor ) {
   std::vector< String > asked;
   database.mount( "/some/config", Kiv::make< Config >(), Access::configuration,
                   [ & ]( Path const & path ) {
                      asked.push_back( path.text() );
                      if( path.back() == "Ethernet9" ) {
                         Kiv::parseFailed( path.back(), "wanted" );
                      }
                   } );
   Object const intfs{ { "Ethernet1", Object{} }, { "Ethernet9", Object{} } };
   String const error = "/some/config/intf/Ethernet9: \"Ethernet9\" is not wanted";
   EXPECT_EQ( setError( "/some/config/intf", intfs ), error );
   EXPECT_EQ( setError( "/some/config/intf/Ethernet9/broadcast/level", 5 ), error );
   EXPECT_EQ( possible( "/some/config/intf/Ethernet9/enabled" ), error );
   EXPECT_EQ( possible( "/some/config/intf/Ethernet8/enabled" ), "" );
   asked.clear();
   EXPECT_EQ( setError( "/some/config/intf/Ethernet1/enabled", false ), "" );
   EXPECT_EQ( setError( "/some/config/intf/Ethernet1/enabled", true ), "" );
   EXPECT_EQ( asked, std::vector< String >{ "/some/config/intf/Ethernet1" } ) << "made once";
}

// What is not there says what is there instead; what is not there may come, or never can.
TEST_F( TesseraDatabase, saysWhatIsThereInstead ) {
   database.mount( "/dir", Kiv::make< Kiv::Dir >( "dir" ), Access::status );
   config->intfIs( "Ethernet1" );
   config->levelIs( 10, {} );
   struct Row {
      char const * path;
      char const * read;  // the error of reading it, without the path unless it is another's
      char const * watch; // that of waiting for it; null: the same
   };
   Row const rows[] = {
         { "/featur", "no such path; did you mean \"feature\"?", nullptr },
         { "/featur/config", "/featur: no such path; did you mean \"feature\"?", nullptr },
         { "/feature/xyz", "no such path; there are config, status", nullptr },
         { "Perod", "no such attribute; did you mean \"period\"?", nullptr },
         { "intf/Ethernet1/broadcast/leve", "no such field; did you mean \"level\"?", nullptr },
         { "level/x", "\"x\" is not a number from 0 to 65535", nullptr },
         { "waiting/x", "no such field; there is nothing here",
           "\"x\" is not a number from 0 to 18446744073709551615" },
         { "number/x", "number is a plain value: there is nothing below it", nullptr },
         { "intf/Ethernet9", "is not there; there is Ethernet1", "" },
         { "intf/Ethernet9/enabld", "no such attribute; did you mean \"enabled\"?", nullptr },
         { "intf/Ethernet9/broadcast/leve",
           "/feature/config/intf/Ethernet9: is not there; there is Ethernet1",
           "no such field; did you mean \"level\"?" },
         { "intf/Ethernet9/level/7/mode",
           "/feature/config/intf/Ethernet9: is not there; there is Ethernet1", "" },
         { "level/7/color", "/feature/config/level/7: is not there; there is 10", "" },
         { "level/7/level/x", "/feature/config/level/7: is not there; there is 10",
           "is below a plain value, where nothing can be" },
         { "fixed/note", "/feature/config/fixed: is not there", "" },
         { "port/Ethernet9", "is not there; there is nothing here", "" },
         { "waiting/3", "no such field; there is nothing here", "" },
         { "entry/5/port", "/feature/config/entry/5: is not there; there is nothing here", "" },
         { "/dir/entry/late/whatever/it/has",
           "/dir/entry/late: is not there; there is nothing here", "" },
   };
   for( auto const & [ path, read, watch ] : rows ) {
      String const at = full( path );
      auto const told = [ & ]( String const & error ) {
         return error.empty() || error.starts_with( '/' ) ? error : at + ": " + error;
      };
      EXPECT_EQ( errorOf( [ & ] { database.get( at ); } ), told( read ) );
      EXPECT_EQ( possible( at ), told( watch ? watch : read ) );
   }
   EXPECT_EQ( possible( "/" ) + possible( "/feature" ), "" );
}

TEST_F( TesseraDatabase, writesTextByType ) {
   struct Row {
      char const * path;
      char const * text;
      char const * error; // null: it is written and read back
   };
   Row const rows[] = {
         { "period", "0.25", nullptr },
         { "period", "3", nullptr },
         { "number", "-9223372036854775808", nullptr },
         { "number", "9223372036854775808",
           "9223372036854775808 is not a whole number from -9223372036854775808 to "
           "9223372036854775807" },
         { "note", "true", nullptr },
         { "note", "17", nullptr },
         { "note", "", nullptr },
         { "color", "blue", nullptr },
         { "color", "pink", "\"pink\" is not one of red, green, blue" },
         { "intf/Ethernet9/enabled", "yes", "\"yes\" is not true or false" },
         { "intf/Ethernet9/broadcast/level", "70000",
           "70000 is not a whole number from 0 to 65535" },
         { "intf/Ethernet9/broadcast/level", "700", nullptr },
         { "intf/Ethernet9/broadcast/color", "blue", nullptr },
         { "intf/Ethernet9/broadcast", "700",
           "\"700\" is not an object with the fields mode, level, color" },
         { "intf/Ethernet9", "700", "a string is not an object of the entity's attributes" },
         { "level/7/mode", "3", nullptr },
         { "level/7/mod", "3", "\"mod\" is not one of the fields mode, level, color" },
         { "port[Ethernet1/2]", "true", nullptr },
         { "friend_", "x", "a reference to an entity cannot be written" },
         { "waiting", "x", "waiting cannot be written as a whole" },
         { "odd/5/note", "x",
           "/feature/config/odd/5: is not there, and cannot be made from outside" },
         { "fixed/note", "x",
           "/feature/config/fixed: is not there, and cannot be made from outside" },
         { "/feature/status/note", "x", "is status: it cannot be written from outside" },
         { "/feature", "x", "a string is not an object of what is in this directory" },
   };
   for( auto const & [ path, text, error ] : rows ) {
      String const at = full( path );
      auto const told = errorOf( [ &, &text = text ] { database.setText( at, text ); } );
      if( error ) {
         EXPECT_EQ( told, *error == '/' ? error : at + ": " + error );
      } else {
         EXPECT_EQ( told, "" );
         EXPECT_EQ( Kiv::datumText( database.get( at ) ), text ) << at;
      }
   }
   // Fields written one by one leave the others alone, those of a new member at their defaults.
   EXPECT_EQ( config->intf( "Ethernet9" )->broadcast(), ( Level{ 0, 700, blue } ) );
   EXPECT_EQ( config->level( 7 ), ( Level{ 3, 10000, red } ) );
}

TEST_F( TesseraDatabase, writesStructures ) {
   database.set( "/feature/config/level", in( { "1", "mode" }, 4 ) );
   database.set( "/feature/config/level", in( { "2", "mode" }, 5 ) );
   EXPECT_FALSE( config->levelHas( 1 ) ); // a map is replaced as a whole
   EXPECT_EQ( config->level( 2 ).mode, 5u );
   database.set( "/feature/config/port", Array{ "a", "b" } );
   EXPECT_TRUE( config->portHas( "a" ) && config->portHas( "b" ) );
   database.set( "/feature/config/entry/5", Object{ { "vlan", 5 }, { "port", "x" } } );
   EXPECT_EQ( setError( "/feature/config/entry/6", in( { "vlan" }, 5 ) ),
              "/feature/config/entry/6: the value carries the key 5, not 6" );
   EXPECT_EQ( setError( "/feature/config/port/c", false ),
              "/feature/config/port/c: a boolean is not true (a member of a set is there, or is "
              "deleted)" );
   EXPECT_EQ( delError( "/feature/config/port/a" ), "" );
   EXPECT_FALSE( config->portHas( "a" ) );
}

TEST_F( TesseraDatabase, deletes ) {
   config->intfIs( "Ethernet1/2" )->levelIs( 3, {} );
   database.del( "/feature/config/intf[Ethernet1/2]/level/3" );
   EXPECT_EQ( config->intf( "Ethernet1/2" )->level().size(), 0u );
   database.del( "/feature/config/intf[Ethernet1/2]" );
   EXPECT_EQ( config->intf().size(), 0u );
   config->levelIs( 7, {} );
   status->levelIs( 7, {} );
   for( String path : { "/", "/feature/config", "/feature/config/note", "/feature/config/level",
                        "/feature/config/level/7/mode", "/feature/config/fixed" } ) {
      EXPECT_EQ( delError( path ), path + ": cannot be deleted: only members of collections can" );
   }
   EXPECT_EQ( delError( "/feature/config/level/8" ),
              "/feature/config/level/8: is not there; there is 7" );
   EXPECT_EQ( delError( "/feature/status/level/7" ),
              "/feature/status/level/7: is status: it cannot be deleted from outside" );
}

TEST_F( TesseraDatabase, appliesWhatItAnswered ) {
   config->fixedIs()->noteIs( "n" );
   config->friend_Is( config->fixed() );
   config->waitingEnq( 7 );
   config->entryIs( Entry{ 5, "x" } );
   config->portIs( "Ethernet1" );
   config->intfIs( "Ethernet1/2" )->levelIs( 3, Level{ 1, 2, blue } );
   auto tree = database.get( "/", Tessera::Scope::configuration );
   database.apply( tree );
   EXPECT_EQ( database.get( "/", Tessera::Scope::configuration ), tree );

   // Into a database that has nothing yet, what can be made from outside is made.
   auto fresh = Kiv::make< Config >();
   Database other;
   other.mount( "/feature/config", fresh, Access::configuration );
   auto intf = *tree.find( "feature" )->find( "config" )->find( "intf" );
   other.apply( Object{ { "/feature/config/intf", intf },
                        { "feature", in( { "config", "note" }, "n" ) } } );
   EXPECT_EQ( other.get( "/feature/config/intf" ), intf );
   EXPECT_EQ( fresh->note(), "n" );
}

TEST_F( TesseraDatabase, appliesAllOrNothing ) {
   Datum const good = in( { "enabled" }, false );
   String const endless( 1'000'000, 'k' );
   String const cut( 480, 'k' );
   std::pair< Datum, String > const rows[] = {
         { in( { endless }, good ),
           "/" + cut + String( 19, 'k' ) + "...: no such path; there is feature" },
         { in( { "feature", "config", endless }, 1 ),
           "/feature/config/" + cut +
                 "kkkk...: no such attribute; there are period, number, note, color, friend_, "
                 "port, level, entry, waiting, fixed, intf, odd" },
         { in( { "feature", "config", "intf", endless }, good ),
           "/feature/config/intf/" + cut.substr( 1 ) + "...: longer than 4096 characters" },
         { in( { "feature", "config", "intf", "E\xff" }, good ),
           "/feature/config/intf/E%FF: is not UTF-8" },
         { "x", "/: a string is not an object of paths or directories" },
         { in( { "/feature/nothing" }, good ),
           "/feature/nothing: no such path; there are config, status" },
         { in( { "feature", "config" },
               Object{ { "note", "new" }, { "intf", Object{ { "E1", good }, { "E2", 5 } } } } ),
           "/feature/config/intf/E2: a number is not an object of the entity's attributes" },
         { in( { "feature", "config" },
               Object{ { "intf", in( { "E1" }, good ) }, { "color", "pink" } } ),
           "/feature/config/color: \"pink\" is not one of red, green, blue" },
         { in( { "feature", "config", "intf", "E1", "level", "x" }, good ),
           "/feature/config/intf/E1/level: \"x\" is not a number from 0 to 65535" },
         { Object{ { "/feature/config/intf/E1", good }, { "/feature/status/note", "x" } },
           "/feature/status/note: is status: it cannot be written from outside" },
   };
   for( auto const & [ tree, error ] : rows ) {
      EXPECT_EQ( errorOf( [ &, &tree = tree ] { database.apply( tree ); } ), error );
   }
}

TEST_F( TesseraDatabase, listsWhatMayFollow ) {
   config->intfIs( "Ethernet1/2" );
   auto names = [ & ]( char const * path ) {
      String text;
      for( auto const & entry : database.entries( path ) ) {
         text += entry.name + ( entry.more ? "/ " : " " );
      }
      return text;
   };
   EXPECT_EQ( names( "/" ), "feature/ " );
   EXPECT_EQ( names( "/feature" ), "config/ status/ " );
   EXPECT_EQ( names( "/feature/config/intf" ), "Ethernet1/2/ " );
   EXPECT_EQ( names( "/feature/config/intf/Ethernet9" ), "broadcast/ enabled level/ " );
   EXPECT_EQ( names( "/feature/config/intf[Ethernet1/2]/broadcast" ), "mode level color " );
}

class TesseraWatch : public TesseraDatabase {
 protected:
   std::uint64_t watch( char const * path ) {
      return database.watch( path, [ this ]( Path const & at,
                                             std::optional< Datum > const & value ) {
         heard.push_back( at.text() + ( value ? " = " + Kiv::datumText( *value ) : " gone" ) );
         if( then ) {
            then();
         }
      } );
   }
   std::vector< String > take() { return std::exchange( heard, {} ); }

   std::vector< String > heard;
   std::function< void() > then;
};

TEST_F( TesseraWatch, followsEverythingBelow ) {
   watch( "/feature/config" );
   config->noteIs( "x" );
   config->noteIs( "x" );
   status->noteIs( "x" );
   config->levelIs( 5, Level{ 1, 2, red } );
   config->levelDel( 5 );
   EXPECT_EQ( take(),
              ( std::vector< String >{
                    "/feature/config/note = x",
                    "/feature/config/level/5 = {\"mode\": 1, \"level\": 2, \"color\": \"red\"}",
                    "/feature/config/level/5 gone" } ) );
   auto late = config->intfIs( "Ethernet1/2" );
   late->enabledIs( false );
   ASSERT_EQ( heard.size(), 2u );
   EXPECT_EQ( heard[ 0 ].substr( 0, 36 ), "/feature/config/intf[Ethernet1/2] = " );
   EXPECT_EQ( heard[ 1 ], "/feature/config/intf[Ethernet1/2]/enabled = false" );
   heard.clear();
   config->intfDel( "Ethernet1/2" );
   late->enabledIs( true ); // nobody's child any more
   EXPECT_EQ( take(), ( std::vector< String >{ "/feature/config/intf[Ethernet1/2] gone" } ) );
   // Mounted twice and gone twice, nothing of it is heard.
   database.unmount( "/feature/config" );
   database.mount( "/feature/config", config, Access::configuration );
   database.unmount( "/feature/config" );
   heard.clear();
   config->noteIs( "y" );
   EXPECT_EQ( take(), std::vector< String >() );
}

TEST_F( TesseraWatch, followsOneFieldOfWhatMayCome ) {
   watch( "/feature/config/intf/Ethernet1/broadcast/level" );
   auto intf = config->intfIs( "Ethernet1" );
   config->intfIs( "Ethernet2" )->broadcastIs( Level{ 0, 5, red } );
   intf->broadcastIs( Level{ 9, 10000, red } ); // another field
   intf->broadcastIs( Level{ 9, 5, red } );
   intf->enabledIs( false );
   config->intfDel( "Ethernet1" );
   config->intfIs( "Ethernet1" );
   database.unmount( "/feature/config" );
   database.mount( "/feature/config", config, Access::configuration );
   String const path = "/feature/config/intf/Ethernet1/broadcast/level";
   EXPECT_EQ( take(),
              ( std::vector< String >{ path + " = 10000", path + " = 5", path + " gone",
                                       path + " = 10000", path + " gone", path + " = 10000" } ) );
}

TEST_F( TesseraWatch, survivesWhatItsCallbackDoes ) {
   auto id = watch( "/" );
   // The child goes away while the news of its attribute is on its way to two watches.
   watch( "/feature/config/intf" );
   auto intf = config->intfIs( "Ethernet1" );
   heard.clear();
   then = [ & ] {
      then = nullptr;
      config->intfDel( "Ethernet1" );
      intf = nullptr;
   };
   config->intf( "Ethernet1" )->enabledIs( false );
   EXPECT_EQ( take(), ( std::vector< String >{ "/feature/config/intf/Ethernet1/enabled = false",
                                               "/feature/config/intf/Ethernet1 gone",
                                               "/feature/config/intf/Ethernet1 gone" } ) );
   // A watch that ends itself, and the mount goes too.
   then = [ & ] {
      then = nullptr;
      database.unwatch( id );
      database.unmount( "/feature/config" );
   };
   config->intfIs( "Ethernet2" );
   EXPECT_EQ( heard.back(), "/feature/config/intf gone" );
   heard.clear();
   config->intf( "Ethernet2" )->enabledIs( false );
   status->noteIs( "x" );
   EXPECT_TRUE( heard.empty() );
   EXPECT_EQ( database.watches(), 1u );
}

} // namespace TesseraTest
