// SPDX-License-Identifier: Apache-2.0

// Every kind of attribute: what its accessors answer, and whom a write tells of what.

#include "Kiv/Reflect.h"
#include "KivExample.h"

namespace {

using namespace Example;
using Kiv::make;
using Kiv::Ptr;

using KivEntity = NodeTest;

TEST_F( KivEntity, announcedWritesAlwaysNotify ) {
   node->pulseIs( 0 );
   node->pulseIs( 1 );
   node->pulseIs( 1 );
   node->loudIs( 1, 2 );
   node->loudIs( 1, 2 );
   node->loudDel( 2 );
   EXPECT_EQ( heard(), "pulse pulse pulse loud[1] loud[1]" );

   // The entity's own handler hears every set; reactors, changes.
   node->ownIs( 1, 2 );
   node->ownIs( 1, 2 );
   node->ownIs( 3, 0 );
   EXPECT_EQ( heard(), "own[1] own[3]" );
   EXPECT_EQ( node->ownSets, ( std::vector{ 1, 1, 3 } ) );
}

TEST_F( KivEntity, countersReturnTheNewValue ) {
   EXPECT_EQ( node->reviewsInc( 5 ), 5u );
   EXPECT_EQ( node->reviewsDec( 2 ), 3u );
   EXPECT_EQ( node->reviewsInc( 0 ), 3u );
   EXPECT_EQ( node->reviewsDec( 4 ), 0xffffffffu ) << "wraps as its type does";
   EXPECT_EQ( node->seenInc( blue, 2 ), 2u );
   EXPECT_EQ( node->seenDec( blue, 2 ), 0u );
   EXPECT_EQ( node->seen( red ), 0u );
   EXPECT_TRUE( node->seenHas( blue ) && !node->seenHas( red ) );
   EXPECT_EQ( heard(), "reviews reviews reviews seen[blue] seen[blue]" );
}

TEST_F( KivEntity, collectionsTellTheKey ) {
   for( std::uint16_t tag : { 4, 4, 2 } ) {
      node->tagIs( tag );
   }
   node->tagDel( 3 );
   node->tagDelAll();
   EXPECT_EQ( heard(), "tag[4] tag[2] tag[4] tag[2]" ) << "in the order of insertion";

   node->pointIs( "p", { .x = 2 } );
   node->pointIs( "q", node->point( "p" ) );
   EXPECT_EQ( node->point( "q" ).x, 2 );
   EXPECT_EQ( node->point( "absent" ), Point{} );
   node->pointDel( "absent" );
   node->pointDel( node->point().first()->key ); // which lives in the member that goes
   EXPECT_EQ( heard(), "point[p] point[q] point[p]" );

   for( auto line : { 20u, 10u, 30u, 10u } ) {
      node->lineIs( line, "text" );
   }
   node->lineDelAll();
   EXPECT_EQ( heard(), "line[20] line[10] line[30] line[10] line[20] line[30]" );
}

TEST_F( KivEntity, queuesAndStacksTellThePosition ) {
   node->jobEnq( 7 );
   node->jobEnq( 8 );
   EXPECT_EQ( node->jobFront() + 10 * node->jobBack(), 87 );
   EXPECT_EQ( node->jobDeq(), 7 );
   node->jobEnq( 9 );
   EXPECT_EQ( node->jobDeq() + node->jobDeq(), 17 );
   EXPECT_EQ( heard(), "job[0] job[1] job[0] job[2] job[1] job[2]" );
   EXPECT_THROW( node->jobDeq(), Kiv::Exception );
   EXPECT_THROW( node->jobFront(), Kiv::Exception );
   node->jobEnq( 1 );
   EXPECT_EQ( heard(), "job[3]" ) << "a refused removal moves no position";

   node->undoPush( "one" );
   node->undoPush( "two" );
   EXPECT_EQ( node->undoTop() + node->undoBottom(), "twoone" );
   EXPECT_EQ( node->undoPop(), "two" );
   EXPECT_EQ( node->undoPop(), "one" );
   EXPECT_THROW( node->undoPop(), Kiv::Exception );
   EXPECT_EQ( heard(), "undo[0] undo[1] undo[1] undo[0]" );
}

TEST_F( KivEntity, children ) {
   auto leaf = node->leafIs( "one" );
   EXPECT_EQ( node->leafIs( "two" ), leaf ) << "made only where there is none";
   EXPECT_EQ( leaf->name(), "one" );
   node->leafIs( leaf );
   node->leafDel();
   node->leafDel();
   EXPECT_EQ( heard(), "leaf leaf" );

   auto first = node->leavesIs( "x" );
   EXPECT_EQ( node->leavesIs( "x" ), first );
   EXPECT_EQ( first->name(), "x" );
   node->leavesIs( "x", make< Leaf >( "other" ) );
   Node const & reader = *node;
   EXPECT_EQ( reader.leaves( "x" )->name(), "other" );
   EXPECT_FALSE( reader.leaves( "y" ) );
   node->leavesDelAll();
   EXPECT_EQ( heard(), "leaves[x] leaves[x] leaves[x]" );

   auto const bare = node->oddIs( 3, "first" );
   EXPECT_EQ( node->oddIs( 3, "second" ), bare );
   EXPECT_EQ( bare->note(), "first" );
   node->oddIs( 3, bare );
   EXPECT_EQ( heard(), "odd[3] odd[3]" ) << "made, and said again";
}

// Keeps the sum of its marks, and will not have a leaf that is called as it is.
class Summing : public Kiv::Entity {
   KIV_ENTITY( Summing );
   KIV_COLLECTION( int, int, mark );
   KIV_CHILD( Summing, other );

 public:
   explicit Summing( Kiv::String const & sumName ) : Entity( sumName ) {}
   template< class Attribute >
   void kivMemberChanges( Attribute const &, int const &, int const * before, int const * after ) {
      sum += ( after ? *after : 0 ) - ( before ? *before : 0 );
   }
   void checkOwner( Summing const & owner ) const {
      if( owner.name() == name() ) {
         throw Kiv::Exception( "my own" );
      }
   }
   int sum = 0;
};
KIV_DEFINE( Summing );

TEST_F( KivEntity, factsAboutMembersFollowAndChildrenMayRefuse ) {
   auto const summing = make< Summing >( "a" );
   summing->markIs( 1, 5 );
   summing->markIs( 2, 7 );
   summing->markIs( 2, 7 );
   summing->markIs( 1, 4 );
   EXPECT_EQ( summing->sum, 11 );
   summing->markDel( 2 );
   summing->markDel( 2 );
   EXPECT_EQ( summing->sum, 4 );
   summing->markDelAll();
   EXPECT_EQ( summing->sum, 0 );
   auto const other = summing->otherIs( "b" );
   EXPECT_THROW( summing->otherIs( make< Summing >( "a" ) ), Kiv::Exception );
   EXPECT_EQ( summing->other(), other );
}

// Says when it is destroyed.
class Farewell : public Leaf {
 public:
   explicit Farewell( Words & words ) : Leaf( "f" ), words_( words ) {}
   ~Farewell() override { words_.add( "gone" ); }

 private:
   Words & words_;
};

TEST_F( KivEntity, whatIsReplacedLivesUntilAllHaveHeard ) {
   Words order;
   auto const told = make< Listener >( *node, [ & ]( auto const & ) { order.add( "heard" ); } );
   auto const leaf = [ & ]() -> Ptr< Leaf > { return make< Farewell >( order ); };
   node->leafIs( leaf() );
   node->leafIs( make< Leaf >( "plain" ) );
   EXPECT_EQ( order.take(), "heard heard gone" );
   node->leavesIs( "k", leaf() );
   node->leavesIs( "k", make< Leaf >( "plain" ) );
   EXPECT_EQ( order.take(), "heard heard gone" );
   node->leavesIs( "k", leaf() );
   node->leavesDel( "k" );
   EXPECT_EQ( order.take(), "heard heard gone" );
   node->peerIs( leaf() );
   node->peerIs( Ptr< Leaf const >( node->peer() ) );
   node->peerIs( nullptr );
   EXPECT_EQ( order.take(), "heard heard gone" );
}

} // namespace
