// SPDX-License-Identifier: Apache-2.0
#include "KivExample.h"
#include "Refusal.h"

#include "Kiv/Dir.h"
#include "Kiv/Reflect.h"

namespace {

using namespace Example;
using Kiv::AttributeInfo;
using Kiv::Datum;
using Kiv::make;
using Kiv::Ptr;
using Array = Datum::Array;
using Object = Datum::Object;

class KivReflect : public NodeTest {
 protected:
   static AttributeInfo const & info( std::string_view name ) {
      return *WideNode::kivType().reflection()->attribute( name );
   }
   Datum get( std::string_view name ) const { return info( name ).get( *node ); }
   std::string text( std::string_view name ) const { return Kiv::datumText( get( name ) ); }
   void set( std::string_view name, Datum const & value ) { info( name ).set( *node, value ); }

   // The exception's text; a refusal leaves everything as it was and tells nobody.
   template< class Act >
   std::string refusal( Act act ) {
      heard();
      auto const before = everything();
      auto const what = Refusals::refusal( act );
      EXPECT_EQ( everything(), before );
      EXPECT_EQ( heard(), "" );
      return what;
   }

 private:
   std::string everything() const {
      std::string all;
      for( auto const * attribute : node->fwkType().reflection()->attributes() ) {
         all += Kiv::datumText( attribute->get( *node ) ) + "\n";
      }
      return all;
   }
};

TEST_F( KivReflect, listsAttributesInTheOrderOfDeclaration ) {
   std::string names;
   for( auto const * attribute : node->fwkType().reflection()->attributes() ) {
      names += std::string( attribute->id.name ) + " ";
   }
   EXPECT_EQ( names, "a b text shape peer pulse reviews tag point loud own seen byLabel line job "
                     "undo leaf leaves odd wide " );
   EXPECT_EQ( node->fwkType().reflection()->attribute( "nothing" ), nullptr );
   EXPECT_EQ( &info( "point" ).id, &Node::pointAttr );
   EXPECT_EQ( node->fwkType().reflection()->attribute( WideNode::wideAttr ), &info( "wide" ) );
   EXPECT_EQ( info( "text" ).keyType, "" );
   EXPECT_TRUE( info( "point" ).isKeyed() );
   EXPECT_FALSE( info( "job" ).isKeyed() );
   EXPECT_TRUE( info( "leaf" ).isChild() && info( "leaves" ).isChild() );
   EXPECT_EQ( info( "leaves" ).childType(), &Leaf::kivType() );
   EXPECT_EQ( info( "a" ).childType(), nullptr );
   auto const * entry = Kiv::Dir::kivType().reflection()->attribute( "entry" );
   EXPECT_EQ( entry->childType(), nullptr ) << "children of any class";
}

TEST_F( KivReflect, readsAndWritesScalars ) {
   set( "a", -4 );
   set( "a", -4 ); // on change only
   set( "text", "t" );
   set( "shape", Object{ { "filled", false } } );
   set( "reviews", 12 );
   set( "reviews", 12 );
   set( "wide", false ); // the derived class's own
   EXPECT_EQ( heard(), "a text shape reviews wide" );
   EXPECT_EQ( node->a(), -4 );
   EXPECT_EQ( text( "text" ), "t" );
   EXPECT_EQ( text( "shape" ),
              "{\"label\": \"\", \"origin\": {\"x\": 1, \"y\": 0, \"colour\": \"green\"}, "
              "\"share\": 10, \"filled\": false, \"scale\": 0.5}" );
   EXPECT_EQ( text( "peer" ), "none" );
   node->peerIs( make< Leaf >( "other" ) );
   EXPECT_EQ( text( "peer" ), "other" );
}

TEST_F( KivReflect, replacesCollections ) {
   auto point = []( int x ) { return Object{ { "x", x } }; };
   set( "point", Object{ { "p", point( 2 ) }, { "q", point( 3 ) } } );
   set( "tag", Array{ "4", "2" } );
   set( "line", Object{ { "20", "b" }, { "3", "a" } } );
   set( "seen", Object{ { "blue", 9 } } );
   set( "byLabel", Object{ { "l", Object{ { "label", "l" } } } } );
   EXPECT_EQ( heard(), "point[p] point[q] tag[4] tag[2] line[20] line[3] seen[blue] byLabel[l]" );
   EXPECT_EQ( text( "tag" ), "[\"4\", \"2\"]" );
   EXPECT_EQ( text( "line" ), "{\"3\": \"a\", \"20\": \"b\"}" );
   EXPECT_EQ( text( "seen" ), "{\"blue\": 9}" );

   // What is missing goes, what is the same stays untouched, what differs changes.
   set( "point", Object{ { "r", point( 5 ) }, { "q", point( 3 ) } } );
   set( "tag", Array{ "2" } );
   EXPECT_EQ( heard(), "point[p] point[r] tag[4]" );
   set( "point", get( "point" ) );
   set( "byLabel", get( "byLabel" ) );
   EXPECT_EQ( heard(), "" );
}

TEST_F( KivReflect, readsAndWritesMembers ) {
   info( "tag" ).setMember( *node, "7", true );
   info( "loud" ).setMember( *node, "1", 2 );
   info( "line" ).setMember( *node, "1", "x" );
   info( "byLabel" ).setMember( *node, "k", Object{ { "label", "k" } } );
   EXPECT_EQ( info( "tag" ).member( *node, "7" ), Datum( true ) );
   EXPECT_EQ( info( "tag" ).member( *node, "8" ), std::nullopt );
   EXPECT_EQ( info( "line" ).member( *node, "1" ), Datum( "x" ) );
   EXPECT_EQ( info( "line" ).keys( *node ), std::vector< std::string >{ "1" } );
   EXPECT_TRUE( info( "line" ).delMember( *node, "1" ) );
   EXPECT_FALSE( info( "line" ).delMember( *node, "1" ) );
   EXPECT_TRUE( info( "tag" ).delMember( *node, "7" ) );
   EXPECT_EQ( heard(), "tag[7] loud[1] line[1] byLabel[k] line[1] tag[7]" );
}

TEST_F( KivReflect, refusesAsAWhole ) {
   set( "tag", Array{ "4" } );
   set( "point", Object{ { "q", Object{} } } );
   struct Case {
      char const * attribute;
      char const * key; // null: all of it is written
      Datum value;
      char const * text;
   };
   Case const cases[] = {
         { "a", nullptr, "x", "\"x\" is not a whole number from -2147483648 to 2147483647" },
         { "shape", nullptr, Object{ { "share", 0 } }, "share: 0 is not a number from 1 to 100" },
         { "peer", nullptr, "leaf", "a reference to an entity cannot be written" },
         // One bad member, and nothing happens at all.
         { "point", nullptr, Object{ { "n", Object{} }, { "q", Object{ { "z", 1 } } } },
           "q: \"z\" is not one of the fields x, y, colour" },
         { "seen", nullptr, Object{ { "red", 1 }, { "-", 1 } },
           "\"-\" is not one of red, green, blue" },
         { "tag", nullptr, Array{ "1", 2 }, "a number is not a string" },
         { "tag", nullptr, Object{}, "an object is not a list" },
         { "line", nullptr, Array{}, "a list is not an object" },
         { "byLabel", nullptr, Object{ { "l", Object{ { "label", "m" } } } },
           "l: the value carries the key m, not l" },
         { "job", nullptr, Array{}, "job cannot be written as a whole" },
         { "undo", nullptr, Array{}, "undo cannot be written as a whole" },
         { "leaf", nullptr, Array{}, "leaf cannot be written as a whole" },
         { "leaves", nullptr, Array{}, "leaves cannot be written as a whole" },
         { "tag", "x", true, "\"x\" is not a number from 0 to 65535" },
         { "tag", "1", false, "a boolean is not true (a member of a set is there, or is deleted)" },
         { "seen", "pink", 1, "\"pink\" is not one of red, green, blue" },
         { "byLabel", "a", Object{ { "label", "b" } }, "the value carries the key b, not a" },
         { "text", "a", "b", "text cannot be written by member" },
         { "job", "0", 1, "job cannot be written by member" },
         { "leaves", "a", "b", "leaves cannot be written by member" },
   };
   for( auto const & [ attribute, key, value, text ] : cases ) {
      auto const & target = info( attribute );
      auto const written = refusal( [ &, &k = key, &v = value ] {
         k ? target.setMember( *node, k, v ) : target.set( *node, v );
      } );
      EXPECT_EQ( written, text );
      auto const checked = refusal(
            [ &, &k = key, &v = value ] { k ? target.checkMember( k, v ) : target.check( v ); } );
      EXPECT_EQ( checked, text );
   }
   EXPECT_EQ( refusal( [ & ] { info( "tag" ).delMember( *node, "-" ); } ),
              "\"-\" is not a number from 0 to 65535" );
   EXPECT_EQ( refusal( [ & ] { info( "a" ).delMember( *node, "1" ); } ),
              "a cannot be written by member" );
}

TEST_F( KivReflect, queuesAndChildrenAreReadOnly ) {
   node->jobEnq( 3 );
   node->jobEnq( 4 );
   node->undoPush( "a \"b\" \\" );
   EXPECT_EQ( text( "job" ) + text( "undo" ), "[3, 4][\"a \\\"b\\\" \\\\\"]" );

   EXPECT_EQ( info( "leaf" ).child( *node, "" ), nullptr );
   EXPECT_EQ( text( "leaf" ), "none" );
   auto leaf = node->leafIs( "one" );
   EXPECT_EQ( info( "leaf" ).child( *node, "" ), leaf.get() );
   EXPECT_EQ( text( "leaf" ), "one" );

   EXPECT_EQ( info( "leaves" ).child( *node, "k" ), nullptr );
   EXPECT_TRUE( info( "leaves" ).makesChildren() );
   auto * made = info( "leaves" ).makeChild( *node, "k" );
   EXPECT_EQ( made, node->leaves( "k" ).get() );
   EXPECT_EQ( info( "leaves" ).child( *node, "k" ), made );
   EXPECT_EQ( text( "leaves" ), "[\"k\"]" );
   EXPECT_TRUE( info( "leaves" ).delMember( *node, "k" ) );
   EXPECT_EQ( info( "a" ).child( *node, "" ), nullptr );
   EXPECT_EQ( info( "a" ).makeChild( *node, "" ), nullptr );
}

} // namespace
