// SPDX-License-Identifier: Apache-2.0
#include "KivExample.h"

#include "Kiv/Dir.h"
#include "Kiv/Reflect.h"

#include <gtest/gtest.h>

namespace {

using namespace Example;
using Kiv::AttributeInfo;
using Kiv::Datum;
using Kiv::make;
using Kiv::Ptr;
using Array = Datum::Array;
using Object = Datum::Object;

class KivReflect : public testing::Test {
 protected:
   static AttributeInfo const & info( std::string_view name ) {
      return *WideNode::kivType().reflection()->attribute( name );
   }
   Datum get( std::string_view name ) const { return info( name ).get( *node ); }
   std::string text( std::string_view name ) const { return Kiv::datumText( get( name ) ); }
   Log heard() { return std::exchange( log_, {} ); }

   // The exception's text; a refusal leaves everything as it was and tells nobody.
   template< class Act >
   std::string refusal( Act act ) {
      heard();
      Log before;
      for( auto const * attribute : node->fwkType().reflection()->attributes() ) {
         before.push_back( Kiv::datumText( attribute->get( *node ) ) );
      }
      std::string what = "accepted";
      try {
         act();
      } catch( Kiv::Exception const & error ) {
         what = error.what();
      }
      std::size_t n = 0;
      for( auto const * attribute : node->fwkType().reflection()->attributes() ) {
         EXPECT_EQ( Kiv::datumText( attribute->get( *node ) ), before[ n++ ] );
      }
      EXPECT_EQ( heard(), Log{} );
      return what;
   }
   std::string setRefusal( std::string_view name, Datum const & value ) {
      auto const what = refusal( [ & ] { info( name ).set( *node, value ); } );
      EXPECT_EQ( refusal( [ & ] { info( name ).check( value ); } ), what );
      return what;
   }

   Ptr< Node > const node = make< WideNode >( "w" );

 private:
   Log log_;
   Ptr< Listener > const listener_ = make< Listener >( *node, log_ );
};

TEST_F( KivReflect, listsAttributesInTheOrderOfDeclaration ) {
   std::string names;
   for( auto const * attribute : node->fwkType().reflection()->attributes() ) {
      names += std::string( attribute->id.name ) + " ";
   }
   EXPECT_EQ( names, "a b text shape peer pulse reviews tag point loud own seen byLabel line job "
                     "undo leaf leaves wide " );
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
   info( "a" ).set( *node, Datum( -4 ) );
   info( "text" ).set( *node, Datum( "t" ) );
   info( "shape" ).set( *node, Datum( Object{ { "filled", false } } ) );
   info( "reviews" ).set( *node, Datum( 12 ) );
   info( "wide" ).set( *node, Datum( true ) );
   EXPECT_EQ( heard(), ( Log{ "a", "text", "shape", "reviews" } ) ) << "on change only";
   EXPECT_EQ( node->a(), -4 );
   EXPECT_EQ( text( "text" ), "t" );
   EXPECT_EQ( text( "shape" ),
              "{\"label\": \"\", \"origin\": {\"x\": 1, \"y\": 0, \"colour\": \"green\"}, "
              "\"share\": 10, \"filled\": false, \"scale\": 0.5}" );
   EXPECT_EQ( text( "peer" ), "none" );
   node->peerIs( make< Leaf >( "other" ) );
   EXPECT_EQ( text( "peer" ), "other" );

   EXPECT_EQ( setRefusal( "a", Datum( "x" ) ),
              "\"x\" is not a whole number from -2147483648 to 2147483647" );
   EXPECT_EQ( setRefusal( "shape", Datum( Object{ { "share", 0 } } ) ),
              "share: 0 is not a number from 1 to 100" );
   EXPECT_EQ( setRefusal( "peer", Datum( "leaf" ) ), "a reference to an entity cannot be written" );
}

TEST_F( KivReflect, replacesCollections ) {
   auto point = []( int x ) { return Object{ { "x", x } }; };
   info( "point" ).set( *node, Datum( Object{ { "p", point( 2 ) }, { "q", point( 3 ) } } ) );
   info( "tag" ).set( *node, Datum( Array{ "4", "2" } ) );
   info( "line" ).set( *node, Datum( Object{ { "20", "b" }, { "3", "a" } } ) );
   info( "seen" ).set( *node, Datum( Object{ { "blue", 9 } } ) );
   info( "byLabel" ).set( *node, Datum( Object{ { "l", Object{ { "label", "l" } } } } ) );
   EXPECT_EQ( heard(), ( Log{ "point[p]", "point[q]", "tag[4]", "tag[2]", "line[20]", "line[3]",
                              "seen[blue]", "byLabel[l]" } ) );
   EXPECT_EQ( text( "tag" ), "[\"4\", \"2\"]" );
   EXPECT_EQ( text( "line" ), "{\"3\": \"a\", \"20\": \"b\"}" );
   EXPECT_EQ( text( "seen" ), "{\"blue\": 9}" );

   // What is missing goes, what is the same stays untouched, what differs changes.
   info( "point" ).set( *node, Datum( Object{ { "r", point( 5 ) }, { "q", point( 3 ) } } ) );
   info( "tag" ).set( *node, Datum( Array{ "2" } ) );
   EXPECT_EQ( heard(), ( Log{ "point[p]", "point[r]", "tag[4]" } ) );
   info( "point" ).set( *node, get( "point" ) );
   info( "byLabel" ).set( *node, get( "byLabel" ) );
   EXPECT_EQ( heard(), Log{} );

   // One bad member, and nothing happens at all.
   EXPECT_EQ( setRefusal( "point",
                          Datum( Object{ { "n", point( 1 ) }, { "q", Object{ { "z", 1 } } } } ) ),
              "q: \"z\" is not one of the fields x, y, colour" );
   EXPECT_EQ( setRefusal( "seen", Datum( Object{ { "blue", 1 }, { "pink", 1 } } ) ),
              "\"pink\" is not one of red, green, blue" );
   EXPECT_EQ( setRefusal( "tag", Datum( Array{ "1", 2 } ) ), "a number is not a string" );
   EXPECT_EQ( setRefusal( "tag", Datum( Object{} ) ), "an object is not a list" );
   EXPECT_EQ( setRefusal( "line", Datum( Array{} ) ), "a list is not an object" );
   EXPECT_EQ( setRefusal( "byLabel", Datum( Object{ { "l", Object{ { "label", "m" } } } } ) ),
              "l: the value carries the key m, not l" );
   for( auto const * name : { "job", "undo", "leaf", "leaves" } ) {
      EXPECT_EQ( setRefusal( name, Datum( Array{} ) ),
                 std::string( name ) + " cannot be written as a whole" );
   }
}

TEST_F( KivReflect, readsAndWritesMembers ) {
   info( "tag" ).setMember( *node, "7", Datum( true ) );
   info( "loud" ).setMember( *node, "1", Datum( 2 ) );
   info( "line" ).setMember( *node, "1", Datum( "x" ) );
   info( "byLabel" ).setMember( *node, "k", Datum( Object{ { "label", "k" } } ) );
   EXPECT_EQ( heard(), ( Log{ "tag[7]", "loud[1]", "line[1]", "byLabel[k]" } ) );
   EXPECT_EQ( info( "tag" ).member( *node, "7" ), Datum( true ) );
   EXPECT_EQ( info( "tag" ).member( *node, "8" ), std::nullopt );
   EXPECT_EQ( info( "line" ).member( *node, "1" ), Datum( "x" ) );
   EXPECT_EQ( info( "line" ).keys( *node ), Log{ "1" } );
   EXPECT_TRUE( info( "line" ).delMember( *node, "1" ) );
   EXPECT_FALSE( info( "line" ).delMember( *node, "1" ) );
   EXPECT_TRUE( info( "tag" ).delMember( *node, "7" ) );
   EXPECT_EQ( heard(), ( Log{ "line[1]", "tag[7]" } ) );

   struct Case {
      char const * attribute;
      char const * key;
      Datum value;
      char const * text;
   };
   Case const cases[] = {
         { "tag", "x", Datum( true ), "\"x\" is not a number from 0 to 65535" },
         { "tag", "1", Datum( false ),
           "a boolean is not true (a member of a set is there, or is deleted)" },
         { "seen", "pink", Datum( 1 ), "\"pink\" is not one of red, green, blue" },
         { "byLabel", "a", Datum( Object{ { "label", "b" } } ),
           "the value carries the key b, not a" },
         { "text", "a", Datum( "b" ), "text cannot be written by member" },
         { "job", "0", Datum( 1 ), "job cannot be written by member" },
         { "leaves", "a", Datum( "b" ), "leaves cannot be written by member" },
   };
   for( auto const & [ attribute, key, value, what ] : cases ) {
      auto const & target = info( attribute );
      EXPECT_EQ( refusal( [ &, &k = key, &v = value ] { target.setMember( *node, k, v ); } ),
                 what );
      EXPECT_EQ( refusal( [ &, &k = key, &v = value ] { target.checkMember( k, v ); } ), what );
   }
   EXPECT_EQ( refusal( [ & ] { info( "tag" ).delMember( *node, "-" ); } ),
              "\"-\" is not a number from 0 to 65535" );
   EXPECT_EQ( refusal( [ & ] { info( "a" ).delMember( *node, "1" ); } ),
              "a cannot be written by member" );
}

TEST_F( KivReflect, queuesAndChildrenAreReadOnly ) {
   node->jobEnq( 3 );
   node->jobEnq( 4 );
   node->undoPush( "u" );
   EXPECT_EQ( text( "job" ), "[3, 4]" );
   EXPECT_EQ( text( "undo" ), "[\"u\"]" );

   EXPECT_EQ( info( "leaf" ).child( *node, "" ), nullptr );
   EXPECT_EQ( text( "leaf" ), "none" );
   auto leaf = node->leafIs( "one" );
   EXPECT_EQ( info( "leaf" ).child( *node, "" ), leaf.get() );
   EXPECT_EQ( text( "leaf" ), "one" );

   EXPECT_EQ( info( "leaves" ).child( *node, "k" ), nullptr );
   EXPECT_TRUE( info( "leaves" ).makesChildren() );
   auto * made = info( "leaves" ).makeChild( *node, "k" );
   EXPECT_EQ( info( "leaves" ).child( *node, "k" ), made );
   EXPECT_EQ( made, node->leaves( "k" ).get() );
   EXPECT_EQ( text( "leaves" ), "[\"k\"]" );
   EXPECT_TRUE( info( "leaves" ).delMember( *node, "k" ) );
   EXPECT_EQ( info( "a" ).child( *node, "" ), nullptr );
   EXPECT_EQ( info( "a" ).makeChild( *node, "" ), nullptr );
}

TEST_F( KivReflect, describesForPeople ) {
   node->textIs( "a \"b\"" );
   EXPECT_EQ( Kiv::describeAttribute( *node, Node::textAttr, nullptr ),
              "Example::WideNode(w).text" );
   EXPECT_EQ( Kiv::describeValue( *node, Node::textAttr, nullptr ), "a \"b\"" );
   Kiv::String const key = "p";
   EXPECT_EQ( Kiv::describeAttribute( *node, Node::pointAttr, &key ),
              "Example::WideNode(w).point[p]" );
   EXPECT_EQ( Kiv::describeValue( *node, Node::pointAttr, &key ), "" );
   EXPECT_EQ( Kiv::datumText( Datum( Array{ "a \"b\" \\", Datum(), true, 0.5 } ) ),
              "[\"a \\\"b\\\" \\\\\", none, true, 0.5]" );
}

} // namespace
