// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Dir.h"
#include "Kiv/Reflect.h"
#include "Kiv/Value.h"
#include "Tessera/Database.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace TesseraTest {

using Kiv::Datum;
using Kiv::String;
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

// The error's text; empty when `work` succeeds.
String
errorOf( std::function< void() > const & work ) {
   try {
      work();
      return {};
   } catch( Error const & error ) {
      return error.what();
   }
}

Datum
object( std::initializer_list< std::pair< String, Datum > > members ) {
   return Datum::Object( members );
}

class TesseraDatabase : public testing::Test {
 protected:
   TesseraDatabase() {
      database.mount( "/feature/config", config, Access::configuration );
      database.mount( "/feature/status", status, Access::status );
   }

   String setError( std::string_view path, Datum const & value ) {
      auto before = database.get( "/" );
      auto text = errorOf( [ & ] { database.set( path, value ); } );
      if( !text.empty() ) {
         EXPECT_EQ( database.get( "/" ), before ) << path;
      }
      return text;
   }
   String textError( std::string_view path, std::string_view value ) {
      auto before = database.get( "/" );
      auto text = errorOf( [ & ] { database.setText( path, value ); } );
      if( !text.empty() ) {
         EXPECT_EQ( database.get( "/" ), before ) << path;
      }
      return text;
   }

   Kiv::Ptr< Config > config = Kiv::make< Config >();
   Kiv::Ptr< Config > status = Kiv::make< Config >( "status" );
   Database database;
};

TEST_F( TesseraDatabase, mounts ) {
   EXPECT_EQ( database.mounts(),
              ( std::vector< String >{ "/feature/config", "/feature/status" } ) );
   auto other = Kiv::make< Config >();
   EXPECT_EQ( errorOf( [ & ] { database.mount( "/feature", other, Access::status ); } ),
              "/feature: is a directory" );
   EXPECT_EQ( errorOf( [ & ] { database.mount( "/feature/config/x", other, Access::status ); } ),
              "/feature/config/x: an entity is mounted at /feature/config" );
   EXPECT_EQ( errorOf( [ & ] { database.mount( "/", other, Access::status ); } ),
              "/: the root cannot be an entity" );
   EXPECT_EQ( errorOf( [ & ] { database.unmount( "/feature" ); } ),
              "/feature: no entity is mounted here" );
   database.mount( "/a/b[c/d]", other, Access::status );
   EXPECT_EQ( database.entity( "/a/b[c/d]" ), other );
   database.unmount( "/a/b[c/d]" );
   EXPECT_EQ( database.get( "/" ).find( "a" ), nullptr );
   EXPECT_EQ( database.entity( "/a/b[c/d]" ), nullptr );
}

TEST_F( TesseraDatabase, readsSubtrees ) {
   config->levelIs( 10, Level{ 1, 2, blue } );
   config->portIs( "Ethernet1/2" );
   config->waitingEnq( 5 );
   config->intfIs( "Ethernet1/2" )->enabledIs( false );
   auto level = object( { { "mode", 1u }, { "level", 2u }, { "color", "blue" } } );
   EXPECT_EQ( database.get( "/feature/config/level/10" ), level );
   EXPECT_EQ( database.get( "/feature/config/level/10/color" ), Datum( "blue" ) );
   EXPECT_EQ( database.get( "/feature/config/intf[Ethernet1/2]/enabled" ), Datum( false ) );
   EXPECT_EQ( database.get( "/feature/config/waiting/0" ), Datum( 5u ) );
   EXPECT_EQ( database.get( "/feature/config/port[Ethernet1/2]" ), Datum( true ) );
   auto all = database.get( "/" );
   auto const * read = all.find( "feature" )->find( "config" );
   EXPECT_EQ( *read->find( "level" ), object( { { "10", level } } ) );
   EXPECT_EQ( *read->find( "intf" )->find( "Ethernet1/2" )->find( "enabled" ), Datum( false ) );
   EXPECT_TRUE( read->find( "fixed" )->isNull() );
}

// What may be written is not always what somebody configured, and is to be loaded again.
TEST_F( TesseraDatabase, tellsConfigurationFromTheRest ) {
   database.mount( "/device", Kiv::make< Config >( "device" ), Access::writable );
   auto const kept = Tessera::Scope::configuration;
   EXPECT_EQ( database.get( "/", kept ),
              object( { { "feature",
                          object( { { "config", database.get( "/feature/config" ) } } ) } } ) );
   for( auto const * path : { "/device", "/feature/status/note" } ) {
      EXPECT_EQ( errorOf( [ & ] { database.get( path, kept ); } ),
                 std::string( path ) + ": is no configuration" );
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
   auto const intfs = object( { { "Ethernet1", object( {} ) }, { "Ethernet9", object( {} ) } } );
   String const error = "/some/config/intf/Ethernet9: \"Ethernet9\" is not wanted";
   EXPECT_EQ( setError( "/some/config/intf", intfs ), error );
   EXPECT_EQ( setError( "/some/config/intf/Ethernet9/broadcast/level", 5 ), error );
   auto const possible = [ & ]( char const * path ) {
      return errorOf( [ & ] { database.requirePossible( path ); } );
   };
   EXPECT_EQ( possible( "/some/config/intf/Ethernet9/enabled" ), error );
   EXPECT_EQ( possible( "/some/config/intf/Ethernet8/enabled" ), "" );
   asked.clear();
   EXPECT_EQ( setError( "/some/config/intf/Ethernet1/enabled", false ), "" );
   EXPECT_EQ( setError( "/some/config/intf/Ethernet1/enabled", true ), "" );
   EXPECT_EQ( asked, std::vector< String >{ "/some/config/intf/Ethernet1" } ) << "made once";
}

TEST_F( TesseraDatabase, saysWhatIsThereInstead ) {
   config->intfIs( "Ethernet1" );
   config->levelIs( 10, {} );
   struct Row {
      char const * path;
      char const * error;
   };
   for( auto const & row : std::vector< Row >{
              { "/featur/config", "/featur: no such path; did you mean \"feature\"?" },
              { "/feature/xyz", "/feature/xyz: no such path; there are config, status" },
              { "/feature/config/Perod",
                "/feature/config/Perod: no such attribute; did you mean \"period\"?" },
              { "/feature/config/intf/Ethernet2/enabled",
                "/feature/config/intf/Ethernet2: is not there; there is Ethernet1" },
              { "/feature/config/intf/Ethernet1/broadcast/leve",
                "/feature/config/intf/Ethernet1/broadcast/leve: no such field; did you mean "
                "\"level\"?" },
              { "/feature/config/level/x",
                "/feature/config/level/x: \"x\" is not a number from 0 to 65535" },
              { "/feature/config/level/11", "/feature/config/level/11: is not there; there is 10" },
              { "/feature/config/number/x",
                "/feature/config/number/x: number is a plain value: there is nothing below it" },
              { "/feature/config/fixed/note", "/feature/config/fixed: is not there" },
              { "/feature/status/intf/x",
                "/feature/status/intf/x: is not there; there is nothing here" },
        } ) {
      EXPECT_EQ( errorOf( [ & ] { database.get( row.path ); } ), row.error );
   }
}

TEST_F( TesseraDatabase, writesTextByType ) {
   struct Row {
      char const * path;
      char const * text;
      char const * error; // null: it is written and read back
   };
   for( auto const & row : std::vector< Row >{
              { "/feature/config/period", "0.25", nullptr },
              { "/feature/config/period", "3", nullptr },
              { "/feature/config/number", "-9223372036854775808", nullptr },
              { "/feature/config/number", "9223372036854775808",
                "/feature/config/number: 9223372036854775808 is not a whole number from "
                "-9223372036854775808 to 9223372036854775807" },
              { "/feature/config/note", "true", nullptr },
              { "/feature/config/note", "17", nullptr },
              { "/feature/config/note", "", nullptr },
              { "/feature/config/color", "blue", nullptr },
              { "/feature/config/color", "pink",
                "/feature/config/color: \"pink\" is not one of red, green, blue" },
              { "/feature/config/intf/Ethernet9/enabled", "yes",
                "/feature/config/intf/Ethernet9/enabled: \"yes\" is not true or false" },
              { "/feature/config/intf/Ethernet9/broadcast/level", "70000",
                "/feature/config/intf/Ethernet9/broadcast/level: 70000 is not a whole number "
                "from 0 to 65535" },
              { "/feature/config/intf/Ethernet9/broadcast/level", "700", nullptr },
              { "/feature/config/intf/Ethernet9/broadcast/color", "blue", nullptr },
              { "/feature/config/intf/Ethernet9/broadcast", "700",
                "/feature/config/intf/Ethernet9/broadcast: \"700\" is not an object with the "
                "fields "
                "mode, level, color" },
              { "/feature/config/intf/Ethernet9", "700",
                "/feature/config/intf/Ethernet9: a string is not an object of the entity's "
                "attributes" },
              { "/feature/config/level/7/mode", "3", nullptr },
              { "/feature/config/level/7/mod", "3",
                "/feature/config/level/7/mod: \"mod\" is not one of the fields mode, level, "
                "color" },
              { "/feature/config/port[Ethernet1/2]", "true", nullptr },
              { "/feature/config/friend_", "x",
                "/feature/config/friend_: a reference to an entity cannot be written" },
              { "/feature/config/waiting", "x",
                "/feature/config/waiting: waiting cannot be written as a whole" },
              { "/feature/config/odd/5/note", "x",
                "/feature/config/odd/5: is not there, and cannot be made from outside" },
              { "/feature/config/fixed/note", "x",
                "/feature/config/fixed: is not there, and cannot be made from outside" },
              { "/feature/status/note", "x",
                "/feature/status/note: is status: it cannot be written from outside" },
              { "/feature", "x",
                "/feature: a string is not an object of what is in this directory" },
        } ) {
      EXPECT_EQ( textError( row.path, row.text ), row.error ? row.error : "" ) << row.path;
      if( !row.error ) {
         EXPECT_EQ( Kiv::datumText( database.get( row.path ) ), row.text ) << row.path;
      }
   }
   // Fields written one by one leave the others alone, those of a new member at their defaults.
   EXPECT_EQ( config->intf( "Ethernet9" )->broadcast(), ( Level{ 0, 700, blue } ) );
   EXPECT_EQ( config->level( 7 ), ( Level{ 3, 10000, red } ) );
}

TEST_F( TesseraDatabase, writesStructures ) {
   database.set( "/feature/config/level", object( { { "1", object( { { "mode", 4 } } ) } } ) );
   database.set( "/feature/config/level", object( { { "2", object( { { "mode", 5 } } ) } } ) );
   EXPECT_FALSE( config->levelHas( 1 ) ); // a map is replaced as a whole
   EXPECT_EQ( config->level( 2 ).mode, 5u );
   database.set( "/feature/config/port", Datum::Array{ "a", "b" } );
   EXPECT_TRUE( config->portHas( "a" ) && config->portHas( "b" ) );
   database.set( "/feature/config/entry/5", object( { { "vlan", 5 }, { "port", "x" } } ) );
   EXPECT_EQ( setError( "/feature/config/entry/6", object( { { "vlan", 5 } } ) ),
              "/feature/config/entry/6: the value carries the key 5, not 6" );
   EXPECT_EQ( setError( "/feature/config/port/c", false ),
              "/feature/config/port/c: a boolean is not true (a member of a set is there, or is "
              "deleted)" );
   database.del( "/feature/config/port/a" );
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
   for( auto const * path :
        { "/", "/feature/config", "/feature/config/note", "/feature/config/level",
          "/feature/config/level/7/mode", "/feature/config/fixed" } ) {
      EXPECT_EQ( errorOf( [ & ] { database.del( path ); } ),
                 String( path ) + ": cannot be deleted: only members of collections can" );
   }
   EXPECT_EQ( errorOf( [ & ] { database.del( "/feature/config/level/8" ); } ),
              "/feature/config/level/8: is not there; there is 7" );
   EXPECT_EQ( errorOf( [ & ] { database.del( "/feature/status/level/7" ); } ),
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
   other.apply(
         object( { { "/feature/config/intf", intf },
                   { "feature", object( { { "config", object( { { "note", "n" } } ) } } ) } } ) );
   EXPECT_EQ( other.get( "/feature/config/intf" ), intf );
   EXPECT_EQ( fresh->note(), "n" );
}

TEST_F( TesseraDatabase, appliesAllOrNothing ) {
   auto good = object( { { "enabled", false } } );
   struct Row {
      Datum tree;
      String error;
   };
   auto inConfig = [ & ]( Datum config_ ) {
      return object( { { "feature", object( { { "config", std::move( config_ ) } } ) } } );
   };
   String const endless( 1'000'000, 'k' );
   String const cut( 480, 'k' );
   for( auto const & row : std::vector< Row >{
              { object( { { endless, good } } ),
                "/" + cut + String( 19, 'k' ) + "...: no such path; there is feature" },
              { inConfig( object( { { endless, 1 } } ) ),
                "/feature/config/" + cut +
                      "kkkk...: no such attribute; there are period, number, note, color, friend_, "
                      "port, level, entry, waiting, fixed, intf, odd" },
              { inConfig( object( { { "intf", object( { { endless, good } } ) } } ) ),
                "/feature/config/intf/" + cut.substr( 1 ) + "...: longer than 4096 characters" },
              { inConfig( object( { { "intf", object( { { "E\xff", good } } ) } } ) ),
                "/feature/config/intf/E%FF: is not UTF-8" },
              { "x", "/: a string is not an object of paths or directories" },
              { object( { { "/feature/nothing", good } } ),
                "/feature/nothing: no such path; there are config, status" },
              { inConfig( object( { { "note", "new" },
                                    { "intf", object( { { "E1", good }, { "E2", 5 } } ) } } ) ),
                "/feature/config/intf/E2: a number is not an object of the entity's attributes" },
              { inConfig(
                      object( { { "intf", object( { { "E1", good } } ) }, { "color", "pink" } } ) ),
                "/feature/config/color: \"pink\" is not one of red, green, blue" },
              { inConfig( object(
                      { { "intf",
                          object( { { "E1",
                                      object( { { "level",
                                                  object( { { "x", good } } ) } } ) } } ) } } ) ),
                "/feature/config/intf/E1/level: \"x\" is not a number from 0 to 65535" },
              { object( { { "/feature/config/intf/E1", good }, { "/feature/status/note", "x" } } ),
                "/feature/status/note: is status: it cannot be written from outside" },
        } ) {
      auto before = database.get( "/" );
      EXPECT_EQ( errorOf( [ & ] { database.apply( row.tree ); } ), row.error );
      EXPECT_EQ( database.get( "/" ), before );
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
   EXPECT_EQ( take(), ( std::vector< String >{} ) );
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

TEST_F( TesseraWatch, tellsWhatMayComeFromWhatNeverCan ) {
   database.mount( "/dir", Kiv::make< Kiv::Dir >( "dir" ), Access::status );
   for( auto const * path :
        { "/", "/feature", "/feature/config/intf/Ethernet9", "/feature/config/level/7/color",
          "/feature/config/intf/Ethernet9/level/7/mode", "/feature/config/fixed/note",
          "/feature/config/port/Ethernet9", "/feature/config/waiting/3",
          "/feature/config/entry/5/port", "/dir/entry/late/whatever/it/has" } ) {
      EXPECT_EQ( errorOf( [ & ] { database.requirePossible( path ); } ), "" );
   }
   for( auto const & row : std::vector< std::pair< char const *, char const * > >{
              { "/featur", "/featur: no such path; did you mean \"feature\"?" },
              { "/feature/config/Perod",
                "/feature/config/Perod: no such attribute; did you mean \"period\"?" },
              { "/feature/config/period/x",
                "/feature/config/period/x: period is a plain value: there is nothing below it" },
              { "/feature/config/intf/Ethernet9/enabld",
                "/feature/config/intf/Ethernet9/enabld: no such attribute; did you mean "
                "\"enabled\"?" },
              { "/feature/config/intf/Ethernet9/broadcast/leve",
                "/feature/config/intf/Ethernet9/broadcast/leve: no such field; did you mean "
                "\"level\"?" },
              { "/feature/config/level/7/level/x",
                "/feature/config/level/7/level/x: is below a plain value, where nothing can be" },
              { "/feature/config/level/x",
                "/feature/config/level/x: \"x\" is not a number from 0 to 65535" },
              { "/feature/config/waiting/x",
                "/feature/config/waiting/x: \"x\" is not a number from 0 to "
                "18446744073709551615" },
        } ) {
      EXPECT_EQ( errorOf( [ & ] { database.requirePossible( row.first ); } ), row.second );
   }
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
