// SPDX-License-Identifier: Apache-2.0

// The rows that keep reactors in step with an entity's children, that wait until their owner is
// ready, and the reactors that are nothing but rows.

#include "KivExample.h"

#include "Kiv/Reflect.h"
#include "Pelt/IntfId.h"

#include <gtest/gtest.h>

namespace {

using namespace Example;
using Kiv::make;
using Kiv::Ptr;

class Ports : public Kiv::Entity {
   KIV_ENTITY( Ports );
   KIV_CHILDREN( Pelt::EthIntfId, Leaf, port );
};
KIV_DEFINE( Ports );

class Follower : public Owner {
 public:
   explicit Follower( Script & theScript ) : Owner( theScript ) { hasNotificationActiveIs( true ); }
   Kiv::Type const & fwkType() const override { return Kiv::typeInstance< Follower >; }

   void handleA() { script.heard( "a" ); }
   void handleText() { script.heard( "text" ); }
   void handleLevel( Kiv::String const & leaf ) { script.heard( "level " + leaf ); }
   void handleWide() { script.heard( "wide" ); }
   void handleTag( std::uint16_t tag ) {
      script.heard( ( node()->notifier()->tagHas( tag ) ? "tag " : "no tag " ) +
                    std::to_string( tag ) );
   }

   // Owns a reactor itself, on the same leaf.
   class KivLeaf : public Kiv::Reactor< KivLeaf, Leaf const, Follower, Kiv::String > {
    public:
      class KivInner : public Kiv::Reactor< KivInner, Leaf const, KivLeaf > {
       public:
         void handleInitialized() override {
            initializedIs( true );
            owner().owner().script.heard( "inner " + owner().key() );
         }
         static constexpr auto handlers = Kiv::handlers();
      };
      KIV_REACTOR( KivInner, inner );

    public:
      void handleInitialized() override {
         owner().script.heard( "first " + key() );
         innerIs( notifier() );
         Reactor::handleInitialized();
      }
      void lastWord() { owner().script.heard( "last " + key() ); }
      static constexpr auto handlers =
            Kiv::handlers( Kiv::OnChange< Leaf::spotAttr, &Follower::handleLevel >() );
   };
   KIV_REACTORS( Kiv::String, KivLeaf, leaves );

   class KivOneLeaf : public Kiv::Hears< Follower, Leaf const, int,
                                         Kiv::OnChange< Leaf::spotAttr, &Follower::handleWide > > {
   };
   KIV_REACTOR( KivOneLeaf, leaf );
   // Stands for machines, one of which cannot be made.
   struct Machines {
      Kiv::HashMap< Kiv::String, int > all() const { return {}; }
      void follow( Kiv::String const & leaf, Ptr< Leaf > const & ) const {
         if( leaf == "refused" ) {
            throw std::runtime_error( leaf );
         }
      }
   } machines_;

   class KivNode
         : public Kiv::Hears<
                 Follower, Node const, Kiv::Follow< Node::leavesAttr, &Follower::machines_ >,
                 Kiv::Follow< Node::leavesAttr, &Follower::leaves_, &KivLeaf::lastWord >,
                 Kiv::Follow< Node::leafAttr, &Follower::leaf_ >,
                 Kiv::WhenReadyAny< &Follower::handleA, Node::aAttr, Node::reviewsAttr >,
                 Kiv::OnceReady< Node::tagAttr, &Follower::handleTag >,
                 Kiv::OnAnyChange< &Follower::handleText, Node::textAttr, Node::bAttr > > {};
   KIV_REACTOR( KivNode, node );

   // By any interface, where each is an Ethernet port.
   class KivPort : public Kiv::Hears< Follower, Leaf const, Pelt::IntfId > {};
   KIV_REACTORS( Pelt::IntfId, KivPort, port );
   class KivPorts : public Kiv::Hears< Follower, Ports const,
                                       Kiv::Follow< Ports::portAttr, &Follower::port_ > > {};
   KIV_REACTOR( KivPorts, ports );
};

class KivRows : public testing::Test {
 protected:
   void TearDown() override {
      script.actions.clear();
      follower = nullptr;
      EXPECT_EQ( Kiv::typeInstance< Follower >.live(), 0u );
      EXPECT_EQ( Kiv::typeInstance< Follower::KivLeaf >.live(), 0u );
      EXPECT_EQ( Kiv::typeInstance< Follower::KivNode >.live(), 0u );
   }
   void on( std::string const & what, std::function< void() > action ) {
      script.actions[ what ] = std::move( action );
   }
   std::vector< Kiv::String > followed() const { return Kiv::keysOf( follower->leaves() ); }
   using Names = std::vector< Kiv::String >;

   Script script;
   Ptr< Node > node = make< Node >();
   Ptr< Node > other = make< Node >( "other" );
   Ptr< Follower > follower = make< Follower >( script );
};

TEST_F( KivRows, reactorsFollowTheChildren ) {
   node->leavesIs( "x" );
   node->leavesIs( "y" );
   node->leafIs( "one" );
   follower->nodeIs( node );
   EXPECT_EQ( followed(), ( Names{ "x", "y" } ) );
   ASSERT_NE( follower->leaf(), nullptr );
   node->leavesIs( "z" )->spotIs( { 11 } );
   node->leavesDel( "x" );
   node->leafDel();
   EXPECT_EQ( followed(), ( Names{ "y", "z" } ) );
   EXPECT_EQ( follower->leaf(), nullptr );
   EXPECT_EQ( script.take(), "level z last x" );

   // Another leaf under an old name: the reactor turns to it.
   Ptr< Follower::KivLeaf > const y = follower->leaves( "y" );
   node->leavesIs( "y", make< Leaf >( "y" ) );
   node->leaves( "y" )->spotIs( { 12 } );
   EXPECT_EQ( follower->leaves( "y" ), y.get() );
   EXPECT_EQ( script.take(), "level y" );

   // Another node: who is not there goes first.
   other->leavesIs( "z" );
   other->leavesIs( "w" );
   follower->nodeIs( other );
   EXPECT_EQ( followed(), ( Names{ "z", "w" } ) );
   EXPECT_EQ( follower->leaves( "z" )->notifier(), other->leaves( "z" ).get() );
   EXPECT_EQ( script.take(), "last y" );
}

TEST_F( KivRows, reactorsFollowByAWiderKey ) {
   Pelt::EthIntfId const one( 1 );
   Pelt::EthIntfId const two( 2 );
   Ptr< Ports > const before = make< Ports >();
   Ptr< Ports > const after = make< Ports >();
   before->portIs( one, make< Leaf >( "one" ) );
   follower->portsIs( before );
   before->portIs( two, make< Leaf >( "two" ) );
   after->portIs( two, make< Leaf >( "other two" ) );
   EXPECT_EQ( follower->port().size(), 2u );
   follower->portsIs( after );
   EXPECT_EQ( follower->port( one ), nullptr );
   EXPECT_EQ( follower->port( two )->notifier()->name(), "other two" );
   after->portDel( two );
   EXPECT_EQ( follower->port( two ), nullptr );
}

TEST_F( KivRows, whatIsHeardWhileChildrenComeAndGo ) {
   node->leavesIs( "x" );
   node->leavesIs( "y" );
   node->leavesIs( "z" );
   follower->initializedIs( true );
   on( "first x", [ & ] { node->leavesDel( "y" ); } );
   follower->nodeIs( node );
   EXPECT_EQ( followed(), ( Names{ "x", "z" } ) );
   EXPECT_EQ( script.take(), "first x inner x first z inner z" );

   // The last word makes the child again, or drops the machine.
   on( "last x", [ & ] { node->leavesIs( "x" ); } );
   node->leavesDel( "x" );
   EXPECT_TRUE( node->leavesHas( "x" ) );
   EXPECT_EQ( follower->leaves( "x" )->notifier(), node->leaves( "x" ).get() );
   script.take();
   on( "last z", [ & ] { follower = nullptr; } );
   node->leavesDel( "z" );
   EXPECT_EQ( script.take(), "last z" );
   EXPECT_FALSE( node->kivWatched() );
}

TEST_F( KivRows, whoCannotBeMadeIsNoMatterOfOthers ) {
   auto const before = Kiv::Dispatch::failures;
   node->leavesIs( "refused" );
   node->leavesIs( "x" );
   follower->nodeIs( node );
   node->leavesDel( "refused" );
   EXPECT_EQ( followed(), Names{ "x" } );
   EXPECT_EQ( Kiv::Dispatch::failures, before + 2 );
}

TEST_F( KivRows, someRowsWaitForTheirOwner ) {
   follower->nodeIs( node );
   node->aIs( 1 );
   EXPECT_EQ( script.take(), "" ) << "neither ready, nor at synchronisation";
   node->textIs( "t" );
   node->bIs( 9 );
   EXPECT_EQ( script.take(), "text text" );
   follower->initializedIs( true );
   node->aIs( 2 );
   node->reviewsInc( 1 );
   follower->initializedIs( false );
   node->aIs( 3 );
   EXPECT_EQ( script.take(), "a a" );
}

TEST_F( KivRows, someRowsBeginWithTheFirstPass ) {
   for( std::uint16_t tag : { 1, 2 } ) {
      node->tagIs( tag );
   }
   follower->nodeIs( node );
   node->tagIs( 3 );
   EXPECT_EQ( script.take(), "" ) << "neither at synchronisation, nor on changes";
   on( "tag 1", [ & ] {
      node->tagDel( 2 );
      throw std::runtime_error( "which is the handler's own" );
   } );
   follower->initializedIs( true );
   EXPECT_EQ( script.take(), "tag 1 no tag 2 tag 3" );
   node->tagDel( 3 );
   other->tagIs( 9 );
   follower->nodeIs( other );
   follower->initializedIs( false );
   other->tagIs( 8 );
   EXPECT_EQ( script.take(), "no tag 3 tag 9" );
   // The pass ends with the machine.
   on( "tag 9", [ & ] { follower = nullptr; } );
   Kiv::Dispatch::Frame frame;
   follower->initializedIs( true );
   EXPECT_EQ( script.take(), "tag 9" );
}

TEST_F( KivRows, innerReactorsHaveTheirFirstPassAgain ) {
   node->leavesIs( "x" );
   follower->nodeIs( node );
   for( int pass = 0; pass < 2; ++pass ) {
      follower->initializedIs( true );
      EXPECT_EQ( script.take(), "first x inner x" ) << "pass " << pass;
      follower->initializedIs( false );
      EXPECT_FALSE( follower->leaves( "x" )->inner()->initialized() );
   }
}

} // namespace
