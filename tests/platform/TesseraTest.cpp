// SPDX-License-Identifier: Apache-2.0
#include "KivExample.h"
#include "Refusal.h"

#include "Kiv/Dir.h"
#include "Kiv/Reflect.h"
#include "Tessera/Database.h"

namespace {

using namespace Example;
using Kiv::Datum;
using Kiv::make;
using Kiv::String;
using Object = Datum::Object;
using Array = Datum::Array;
using Tessera::Access;
using Tessera::Database;
using Tessera::Error;
using Tessera::Path;

String
parseError( String const & text ) {
   return Refusals::refusal< Tessera::Error >( [ & ] { Path::parse( text ); } );
}

TEST( TesseraPath, printsWhatItParses ) {
   struct Row {
      char const * text;
      std::vector< String > components;
      char const * printed = nullptr; // null: as `text`
   };
   Row const rows[] = {
         { "/", {} },
         { "/a/b", { "a", "b" } },
         { "/a/b/", { "a", "b" }, "/a/b" },
         { "/a[Ethernet1/2/3]/b", { "a", "Ethernet1/2/3", "b" } },
         { "/a/Ethernet1%2F2/b", { "a", "Ethernet1/2", "b" }, "/a[Ethernet1/2]/b" },
         { "/a[192.0.2.0/24][x]", { "a", "192.0.2.0/24", "x" }, "/a[192.0.2.0/24]/x" },
         { "/a/[b/c]", { "a", "b/c" }, "/a[b/c]" },
         { "/[b/c]/d", { "b/c", "d" } },
         { "/a[]", { "a", "" } },
         { "/a[[x%5D]", { "a", "[x]" } },
         { "/a/00:00:5e:00:53:01", { "a", "00:00:5e:00:53:01" } },
         { "/100%25/a b%0A", { "100%", "a b\n" } },
         // What is no UTF-8, a byte by itself, longer than need be, a half or beyond the last.
         { "/\xff/%e4%C3%A4", { "\xff", "\xe4\xc3\xa4" }, "/%FF/%E4\xc3\xa4" },
         { "/%C0%AF%ED%A0%80", { "\xc0\xaf\xed\xa0\x80" } },
         { "/%F4%90%80%80%E2%82", { "\xf4\x90\x80\x80\xe2\x82" } },
         { "/\xe2\x82\xac\xf0\x9f\x99\x82", { "\xe2\x82\xac\xf0\x9f\x99\x82" } },
   };
   for( auto const & [ text, components, printed ] : rows ) {
      auto path = Path::parse( text );
      ASSERT_EQ( path.size(), components.size() ) << text;
      for( std::size_t i = 0; i != path.size(); ++i ) {
         EXPECT_EQ( path[ i ], components[ i ] ) << text;
      }
      EXPECT_EQ( path.text(), printed ? printed : text );
      EXPECT_EQ( Path::parse( path.text() ), path ) << text;
   }
}

TEST( TesseraPath, refusesWhatIsNone ) {
   String deep;
   for( int i = 0; i != 65; ++i ) {
      deep += "/x";
   }
   std::pair< String, char const * > const rows[] = {
         { "", "path \"\": a path begins with \"/\"" },
         { "a/b", "path \"a/b\": a path begins with \"/\", at character 1" },
         { "/a//b", "path \"/a//b\": a component is empty, at character 4" },
         { "/a[b", "path \"/a[b\": a bracket is not closed, at character 5" },
         { "/a[b]c",
           "path \"/a[b]c\": a slash, a bracket or the end belongs here, at character 6" },
         { "\n\xff", "path \"%0A%FF\": a path begins with \"/\", at character 1" },
         { "/%", "two hexadecimal digits" },
         { "/%4", "two hexadecimal digits" },
         { "/%4z", "two hexadecimal digits" },
         { "/a%+1", "two hexadecimal digits" },
         { "/" + String( 5000, 'x' ), "longer than 4096" },
         { deep, "deeper than 64" },
   };
   for( auto const & [ text, error ] : rows ) {
      auto const told = parseError( text );
      EXPECT_TRUE( told == error || ( *error != 'p' && told.find( error ) != told.npos ) ) << told;
   }
}

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

   Kiv::Ptr< Node > config = make< Node >();
   Kiv::Ptr< Node > status = make< Node >( "status" );
   Database database;
};

TEST_F( TesseraDatabase, mounts ) {
   auto other = make< Node >();
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
   config->pointIs( "a/b", { 1, 2, blue } );
   config->tagIs( 7 );
   config->jobEnq( 5 );
   config->leavesIs( "Ethernet1/2" )->enabledIs( false );
   Datum const point = Object{ { "x", 1 }, { "y", 2u }, { "colour", "blue" } };
   EXPECT_EQ( database.get( "/feature/config/point/[a/b]" ), point );
   EXPECT_EQ( database.get( "/feature/config/point[a/b]/colour" ), Datum( "blue" ) );
   EXPECT_EQ( database.get( "/feature/config/leaves[Ethernet1/2]/enabled" ), Datum( false ) );
   EXPECT_EQ( database.get( "/feature/config/job/0" ), Datum( 5u ) );
   EXPECT_EQ( database.get( "/feature/config/tag/7" ), Datum( true ) );
   auto all = database.get( "/" );
   auto const * read = all.find( "feature" )->find( "config" );
   EXPECT_EQ( *read->find( "point" ), in( { "a/b" }, point ) );
   EXPECT_EQ( *read->find( "leaves" )->find( "Ethernet1/2" )->find( "enabled" ), Datum( false ) );
   EXPECT_TRUE( read->find( "leaf" )->isNull() );
}

// What may be written is not always what somebody configured, and is to be loaded again.
TEST_F( TesseraDatabase, tellsConfigurationFromTheRest ) {
   database.mount( "/device", make< Node >( "device" ), Access::writable );
   auto const kept = Tessera::Scope::configuration;
   EXPECT_EQ( database.get( "/", kept ),
              in( { "feature", "config" }, database.get( "/feature/config" ) ) );
   for( String path : { "/device", "/feature/status/text" } ) {
      EXPECT_EQ( errorOf( [ & ] { database.get( path, kept ); } ), path + ": is no configuration" );
   }
   EXPECT_EQ( setError( "/device/text", "x" ), "" );
   EXPECT_EQ( setError( "/feature/status/text", "x" ),
              "/feature/status/text: is status: it cannot be written from outside" );
}

// Whoever mounts an entity has a say in what is made below it.
TEST_F( TesseraDatabase, makesWhatTheProcessHasAUseFor ) {
   std::vector< String > asked;
   database.mount( "/some/config", make< Node >(), Access::configuration,
                   [ & ]( Path const & path ) {
                      asked.push_back( path.text() );
                      if( path.back() == "Ethernet9" ) {
                         Kiv::parseFailed( path.back(), "wanted" );
                      }
                   } );
   Object const leaves{ { "Ethernet1", Object{} }, { "Ethernet9", Object{} } };
   String const error = "/some/config/leaves/Ethernet9: \"Ethernet9\" is not wanted";
   EXPECT_EQ( setError( "/some/config/leaves", leaves ), error );
   EXPECT_EQ( setError( "/some/config/leaves/Ethernet9/spot/x", 5 ), error );
   EXPECT_EQ( possible( "/some/config/leaves/Ethernet9/enabled" ), error );
   EXPECT_EQ( possible( "/some/config/leaves/Ethernet8/enabled" ), "" );
   asked.clear();
   EXPECT_EQ( setError( "/some/config/leaves/Ethernet1/enabled", false ), "" );
   EXPECT_EQ( setError( "/some/config/leaves/Ethernet1/enabled", true ), "" );
   EXPECT_EQ( asked, std::vector< String >{ "/some/config/leaves/Ethernet1" } ) << "made once";
}

// What is not there says what is there instead; what is not there may come, or never can.
TEST_F( TesseraDatabase, saysWhatIsThereInstead ) {
   database.mount( "/dir", make< Kiv::Dir >( "dir" ), Access::status );
   config->leavesIs( "E1" );
   config->pointIs( "p", {} );
   struct Row {
      char const * path;
      char const * read;  // the error of reading it, without the path unless it is another's
      char const * watch; // that of waiting for it; null: the same
   };
   Row const rows[] = {
         { "/featur", "no such path; did you mean \"feature\"?", nullptr },
         { "/featur/config", "/featur: no such path; did you mean \"feature\"?", nullptr },
         { "/feature/xyz", "no such path; there are config, status", nullptr },
         { "Poin", "no such attribute; did you mean \"point\"?", nullptr },
         { "leaves/E1/spot/colou", "no such field; did you mean \"colour\"?", nullptr },
         { "tag/x", "\"x\" is not a number from 0 to 65535", nullptr },
         { "job/x", "no such field; there is nothing here",
           "\"x\" is not a number from 0 to 18446744073709551615" },
         { "a/x", "a is a plain value: there is nothing below it", nullptr },
         { "leaves/E9", "is not there; there is E1", "" },
         { "leaves/E9/enabld", "no such attribute; did you mean \"enabled\"?", nullptr },
         { "leaves/E9/spot/colou", "/feature/config/leaves/E9: is not there; there is E1",
           "no such field; did you mean \"colour\"?" },
         { "leaves/E9/mark/7/x", "/feature/config/leaves/E9: is not there; there is E1", "" },
         { "point/q/colour", "/feature/config/point/q: is not there; there is p", "" },
         { "point/q/x/x", "/feature/config/point/q: is not there; there is p",
           "is below a plain value, where nothing can be" },
         { "leaf/enabled", "/feature/config/leaf: is not there", "" },
         { "job/3", "no such field; there is nothing here", "" },
         { "byLabel/k/share", "/feature/config/byLabel/k: is not there; there is nothing here",
           "" },
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
         { "shape/scale", "0.25", nullptr },
         { "shape/scale", "3", nullptr },
         { "a", "-2147483648", nullptr },
         { "a", "2147483648", "2147483648 is not a whole number from -2147483648 to 2147483647" },
         { "text", "true", nullptr },
         { "text", "17", nullptr },
         { "text", "", nullptr },
         { "leaves/E9/enabled", "yes", "\"yes\" is not true or false" },
         { "leaves/E9/spot/x", "700", nullptr },
         { "leaves/E9/spot/colour", "pink", "\"pink\" is not one of red, green, blue" },
         { "leaves/E9/spot/colour", "blue", nullptr },
         { "leaves/E9/spot", "7", "\"7\" is not an object with the fields x, y, colour" },
         { "leaves/E9", "7", "a string is not an object of the entity's attributes" },
         { "point[a/b]/y", "3", nullptr },
         { "point[a/b]/z", "3", "\"z\" is not one of the fields x, y, colour" },
         { "tag/7", "true", nullptr },
         { "job", "x", "job cannot be written as a whole" },
         { "odd/5/note", "x",
           "/feature/config/odd/5: is not there, and cannot be made from outside" },
         { "leaf/spot/x", "1",
           "/feature/config/leaf: is not there, and cannot be made from outside" },
         { "/feature/status/text", "x", "is status: it cannot be written from outside" },
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
   EXPECT_EQ( config->leaves( "E9" )->spot(), ( Point{ 700, 0, blue } ) );
   EXPECT_EQ( config->point( "a/b" ), ( Point{ 1, 3, green } ) );
}

TEST_F( TesseraDatabase, writesStructures ) {
   database.set( "/feature/config/point", in( { "p", "x" }, 4 ) );
   database.set( "/feature/config/point", in( { "q", "x" }, 5 ) );
   EXPECT_FALSE( config->pointHas( "p" ) ); // a map is replaced as a whole
   EXPECT_EQ( config->point( "q" ).x, 5 );
   database.set( "/feature/config/tag", Array{ "1", "2" } );
   EXPECT_TRUE( config->tagHas( 1 ) && config->tagHas( 2 ) );
   database.set( "/feature/config/byLabel/k", in( { "label" }, "k" ) );
   EXPECT_TRUE( config->byLabelHas( "k" ) );
   EXPECT_EQ( setError( "/feature/config/byLabel/l", in( { "label" }, "k" ) ),
              "/feature/config/byLabel/l: the value carries the key k, not l" );
}

TEST_F( TesseraDatabase, deletes ) {
   config->tagIs( 7 );
   status->tagIs( 7 );
   config->leavesIs( "Ethernet1/2" )->markIs( 3, {} );
   database.del( "/feature/config/leaves[Ethernet1/2]/mark/3" );
   EXPECT_EQ( config->leaves( "Ethernet1/2" )->mark().size(), 0u );
   for( String path : { "/", "/feature/config", "/feature/config/text", "/feature/config/tag",
                        "/feature/config/leaves[Ethernet1/2]/spot/x", "/feature/config/leaf" } ) {
      EXPECT_EQ( delError( path ), path + ": cannot be deleted: only members of collections can" );
   }
   EXPECT_EQ( delError( "/feature/config/tag/8" ),
              "/feature/config/tag/8: is not there; there is 7" );
   EXPECT_EQ( delError( "/feature/status/tag/7" ),
              "/feature/status/tag/7: is status: it cannot be deleted from outside" );
   database.del( "/feature/config/leaves[Ethernet1/2]" );
   database.del( "/feature/config/tag/7" );
   EXPECT_EQ( config->leaves().size() + config->tag().size(), 0u );
}

TEST_F( TesseraDatabase, appliesWhatItAnswered ) {
   config->leafIs( "l" )->enabledIs( false );
   config->peerIs( config->leaf() );
   config->jobEnq( 7 );
   config->byLabelIs( { .label = "x" } );
   config->tagIs( 1 );
   config->leavesIs( "Ethernet1/2" )->markIs( 3, { 1, 2, blue } );
   auto tree = database.get( "/", Tessera::Scope::configuration );
   database.apply( tree );
   EXPECT_EQ( database.get( "/", Tessera::Scope::configuration ), tree );

   // Into a database that has nothing yet, what can be made from outside is made.
   auto fresh = make< Node >();
   Database other;
   other.mount( "/feature/config", fresh, Access::configuration );
   auto leaves = *tree.find( "feature" )->find( "config" )->find( "leaves" );
   other.apply( Object{ { "/feature/config/leaves", leaves },
                        { "feature", in( { "config", "text" }, "n" ) } } );
   EXPECT_EQ( other.get( "/feature/config/leaves" ), leaves );
   EXPECT_EQ( fresh->text(), "n" );
}

TEST_F( TesseraDatabase, appliesAllOrNothing ) {
   Datum const good = in( { "enabled" }, false );
   auto const inConfig = []( String const & attribute, Datum const & value ) {
      return in( { "feature", "config", attribute }, value );
   };
   String const endless( 1'000'000, 'k' ), cut( 480, 'k' );
   std::pair< Datum, String > const rows[] = {
         { in( { endless }, good ),
           "/" + cut + String( 19, 'k' ) + "...: no such path; there is feature" },
         { inConfig( endless, 1 ), "/feature/config/" + cut +
                                         "kkkk...: no such attribute; there are a, b, text, shape, "
                                         "peer, pulse, reviews, tag, "
                                         "point, loud, own, seen and 7 more" },
         { inConfig( "leaves", in( { endless }, good ) ),
           "/feature/config/leaves/" + cut.substr( 3 ) + "...: longer than 4096 characters" },
         { inConfig( "leaves", in( { "E\xff" }, good ) ),
           "/feature/config/leaves/E%FF: is not UTF-8" },
         { "x", "/: a string is not an object of paths or directories" },
         { in( { "/feature/nothing" }, good ),
           "/feature/nothing: no such path; there are config, status" },
         { inConfig( "leaves", Object{ { "E1", good }, { "E2", 5 } } ),
           "/feature/config/leaves/E2: a number is not an object of the entity's attributes" },
         { in( { "feature", "config" },
               Object{ { "leaves", in( { "E1" }, good ) }, { "a", "x" } } ),
           "/feature/config/a: \"x\" is not a whole number from -2147483648 to 2147483647" },
         { inConfig( "leaves", in( { "E1", "mark", "x" }, good ) ),
           "/feature/config/leaves/E1/mark: \"x\" is not a number from 0 to 65535" },
         { Object{ { "/feature/config/leaves/E1", good }, { "/feature/status/text", "x" } },
           "/feature/status/text: is status: it cannot be written from outside" },
   };
   for( auto const & [ tree, error ] : rows ) {
      EXPECT_EQ( errorOf( [ &, &tree = tree ] { database.apply( tree ); } ), error );
   }
}

TEST_F( TesseraDatabase, listsWhatMayFollow ) {
   config->leavesIs( "Ethernet1/2" );
   auto names = [ & ]( char const * path ) {
      String text;
      for( auto const & entry : database.entries( path ) ) {
         text += entry.name + ( entry.more ? "/ " : " " );
      }
      return text;
   };
   EXPECT_EQ( names( "/" ), "feature/ " );
   EXPECT_EQ( names( "/feature" ), "config/ status/ " );
   EXPECT_EQ( names( "/feature/config/leaves" ), "Ethernet1/2/ " );
   EXPECT_EQ( names( "/feature/config/leaves/Ethernet9" ), "spot/ enabled mark/ " );
   EXPECT_EQ( names( "/feature/config/leaves[Ethernet1/2]/spot" ), "x y colour " );
}

class TesseraWatch : public TesseraDatabase {
 protected:
   std::uint64_t watch( char const * path ) {
      return database.watch(
            path, [ this ]( Path const & at, std::optional< Datum > const & value ) {
               heard += at.text() + ( value ? " = " + Kiv::datumText( *value ) : " gone" ) + "\n";
               if( auto action = std::exchange( then, nullptr ) ) {
                  action();
               }
            } );
   }
   String take() { return std::exchange( heard, {} ); }

   String heard; // a line for each call
   std::function< void() > then;
};

TEST_F( TesseraWatch, followsEverythingBelow ) {
   watch( "/feature/config" );
   config->textIs( "x" );
   config->textIs( "x" );
   status->textIs( "x" );
   config->pointIs( "p", { 1, 2, red } );
   config->pointDel( "p" );
   EXPECT_EQ( take(), "/feature/config/text = x\n"
                      "/feature/config/point/p = {\"x\": 1, \"y\": 2, \"colour\": \"red\"}\n"
                      "/feature/config/point/p gone\n" );
   auto late = config->leavesIs( "Ethernet1/2" );
   EXPECT_EQ( take().substr( 0, 38 ), "/feature/config/leaves[Ethernet1/2] = " );
   late->enabledIs( false );
   config->leavesDel( "Ethernet1/2" );
   late->enabledIs( true ); // nobody's child any more
   EXPECT_EQ( take(), "/feature/config/leaves[Ethernet1/2]/enabled = false\n"
                      "/feature/config/leaves[Ethernet1/2] gone\n" );
   // Mounted twice and gone twice, nothing of it is heard.
   database.unmount( "/feature/config" );
   database.mount( "/feature/config", config, Access::configuration );
   database.unmount( "/feature/config" );
   heard.clear();
   config->textIs( "y" );
   EXPECT_EQ( take(), "" );
}

TEST_F( TesseraWatch, followsOneFieldOfWhatMayCome ) {
   watch( "/feature/config/leaves/E1/spot/x" );
   auto leaf = config->leavesIs( "E1" );
   config->leavesIs( "E2" )->spotIs( { 5, 0, red } );
   leaf->spotIs( { 1, 9, red } ); // another field
   leaf->spotIs( { 5, 9, red } );
   leaf->enabledIs( false );
   config->leavesDel( "E1" );
   config->leavesIs( "E1" );
   database.unmount( "/feature/config" );
   database.mount( "/feature/config", config, Access::configuration );
   String const path = "/feature/config/leaves/E1/spot/x";
   EXPECT_EQ( take(), path + " = 1\n" + path + " = 5\n" + path + " gone\n" + path + " = 1\n" +
                            path + " gone\n" + path + " = 1\n" );
}

TEST_F( TesseraWatch, survivesWhatItsCallbackDoes ) {
   auto id = watch( "/" );
   // The child goes away while the news of its attribute is on its way to two watches.
   watch( "/feature/config/leaves" );
   config->leavesIs( "E1" );
   heard.clear();
   then = [ & ] { config->leavesDel( "E1" ); };
   config->leaves( "E1" )->enabledIs( false );
   EXPECT_EQ( take(), "/feature/config/leaves/E1/enabled = false\n"
                      "/feature/config/leaves/E1 gone\n"
                      "/feature/config/leaves/E1 gone\n" );
   // A child that is made to be written to goes as soon as it is there: what is written goes with it.
   config->leavesDel( "E1" );
   heard.clear();
   then = [ & ] { config->leavesDel( "E3" ); };
   database.set( "/feature/config/leaves/E3/enabled", false );
   EXPECT_TRUE( take().ends_with( "gone\n" ) );
   EXPECT_FALSE( config->leaves( "E3" ) );
   // A watch that ends itself, and the mount goes too.
   then = [ & ] {
      database.unwatch( id );
      database.unmount( "/feature/config" );
   };
   config->leavesIs( "E2" );
   EXPECT_TRUE( take().ends_with( "\n/feature/config/leaves gone\n" ) );
   config->leaves( "E2" )->enabledIs( false );
   status->textIs( "x" );
   EXPECT_EQ( take(), "" );
   EXPECT_EQ( database.watches(), 1u );
}

} // namespace
