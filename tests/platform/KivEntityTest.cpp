// SPDX-License-Identifier: Apache-2.0

// Every kind of attribute: what its accessors answer, and whom a write tells of what.

#include "KivExample.h"

#include <gtest/gtest.h>

namespace {

using namespace Example;
using Kiv::make;
using Kiv::Ptr;

class KivEntity : public testing::Test {
 protected:
   Log heard() { return std::exchange( log_, {} ); }
   Ptr< Node > const node = make< Node >();

 private:
   Log log_;
   Ptr< Listener > const listener_ = make< Listener >( *node, log_ );
};

TEST_F( KivEntity, scalarsNotifyOnChangeOnly ) {
   EXPECT_EQ( node->a(), 0 );
   EXPECT_EQ( node->b(), 5 );
   node->aIs( 0 );
   node->bIs( 5 );
   node->textIs( "none" );
   node->shapeIs( Shape{} );
   node->peerIs( nullptr );
   EXPECT_EQ( heard(), Log{} );

   node->aIs( 3 );
   node->aIs( 3 );
   node->textIs( node->text() );
   node->textIs( "some" );
   node->shapeIs( { .label = "l" } );
   Ptr< Leaf const > leaf = make< Leaf >( "l" );
   node->peerIs( leaf );
   node->peerIs( leaf );
   EXPECT_EQ( heard(), ( Log{ "a", "text", "shape", "peer" } ) );
   EXPECT_EQ( node->text(), "some" );
}

TEST_F( KivEntity, announcedWritesAlwaysNotify ) {
   node->pulseIs( 0 );
   node->pulseIs( 1 );
   node->pulseIs( 1 );
   EXPECT_EQ( heard(), ( Log{ "pulse", "pulse", "pulse" } ) );

   node->loudIs( 1, 2 );
   node->loudIs( 1, 2 );
   node->loudDel( 2 );
   EXPECT_EQ( heard(), ( Log{ "loud[1]", "loud[1]" } ) );

   // The entity's own handler hears every set; reactors, changes.
   node->ownIs( 1, 2 );
   node->ownIs( 1, 2 );
   node->ownIs( 3, 0 );
   EXPECT_EQ( heard(), ( Log{ "own[1]", "own[3]" } ) );
   EXPECT_EQ( node->ownSets, ( std::vector{ 1, 1, 3 } ) );
}

TEST_F( KivEntity, countersReturnTheNewValue ) {
   EXPECT_EQ( node->reviewsInc( 5 ), 5u );
   EXPECT_EQ( node->reviewsDec( 2 ), 3u );
   EXPECT_EQ( node->reviewsInc( 0 ), 3u );
   EXPECT_EQ( node->reviewsDec( 4 ), 0xffffffffu ) << "wraps as its type does";
   EXPECT_EQ( heard(), ( Log{ "reviews", "reviews", "reviews" } ) );

   EXPECT_EQ( node->seenInc( blue, 2 ), 2u );
   EXPECT_EQ( node->seenDec( blue, 2 ), 0u );
   EXPECT_EQ( node->seen( red ), 0u );
   EXPECT_TRUE( node->seenHas( blue ) );
   EXPECT_FALSE( node->seenHas( red ) );
   EXPECT_EQ( heard(), ( Log{ "seen[blue]", "seen[blue]" } ) );
}

TEST_F( KivEntity, setsAndMaps ) {
   node->tagIs( 4 );
   node->tagIs( 4 );
   node->tagIs( 2 );
   node->tagDel( 3 );
   EXPECT_TRUE( node->tagHas( 4 ) );
   EXPECT_EQ( heard(), ( Log{ "tag[4]", "tag[2]" } ) );
   node->tagDelAll();
   EXPECT_EQ( heard(), ( Log{ "tag[4]", "tag[2]" } ) ) << "in the order of insertion";
   EXPECT_EQ( node->tag().size(), 0u );

   node->pointIs( "p", { .x = 2 } );
   node->pointIs( "p", { .x = 2 } );
   node->pointIs( "q", node->point( "p" ) );
   node->pointIs( "p", { .x = 3 } );
   EXPECT_EQ( node->point( "p" ).x, 3 );
   EXPECT_EQ( node->point( "q" ).x, 2 );
   EXPECT_EQ( node->point( "absent" ), Point{} );
   EXPECT_FALSE( node->pointHas( "absent" ) );
   node->pointDel( "absent" );
   node->pointDel( "p" );
   EXPECT_EQ( heard(), ( Log{ "point[p]", "point[q]", "point[p]", "point[p]" } ) );

   // The key may live in the member that goes.
   node->pointDel( node->point().first()->key );
   EXPECT_EQ( heard(), Log{ "point[q]" } );
}

TEST_F( KivEntity, keyedAndOrdered ) {
   node->byLabelIs( { .label = "x", .filled = false } );
   node->byLabelIs( { .label = "x", .filled = false } );
   EXPECT_FALSE( node->byLabel( "x" ).filled );
   node->byLabelDel( "x" );
   EXPECT_EQ( heard(), ( Log{ "byLabel[x]", "byLabel[x]" } ) );

   for( auto line : { 20u, 10u, 30u, 10u } ) {
      node->lineIs( line, "text" );
   }
   EXPECT_EQ( Kiv::keysOf( node->line() ), ( std::vector{ 10u, 20u, 30u } ) );
   heard();
   node->lineDelAll();
   EXPECT_EQ( heard(), ( Log{ "line[10]", "line[20]", "line[30]" } ) );
}

TEST_F( KivEntity, queuesAndStacksTellThePosition ) {
   node->jobEnq( 7 );
   node->jobEnq( 8 );
   EXPECT_EQ( node->jobFront(), 7 );
   EXPECT_EQ( node->jobBack(), 8 );
   EXPECT_EQ( node->jobDeq(), 7 );
   node->jobEnq( 9 );
   EXPECT_EQ( node->jobDeq(), 8 );
   EXPECT_EQ( heard(), ( Log{ "job[0]", "job[1]", "job[0]", "job[2]", "job[1]" } ) );

   node->undoPush( "one" );
   node->undoPush( "two" );
   EXPECT_EQ( node->undoTop(), "two" );
   EXPECT_EQ( node->undoBottom(), "one" );
   EXPECT_EQ( node->undoPop(), "two" );
   EXPECT_EQ( heard(), ( Log{ "undo[0]", "undo[1]", "undo[1]" } ) );

   node->undoPop();
   node->jobDeq();
   heard();
   EXPECT_THROW( node->undoPop(), Kiv::Exception );
   EXPECT_THROW( node->jobDeq(), Kiv::Exception );
   EXPECT_THROW( node->jobFront(), Kiv::Exception );
   EXPECT_EQ( heard(), Log{} );
   node->jobEnq( 1 );
   EXPECT_EQ( heard(), Log{ "job[3]" } ) << "a refused removal moves no position";
}

TEST_F( KivEntity, children ) {
   EXPECT_FALSE( node->leaf() );
   auto leaf = node->leafIs( "one" );
   EXPECT_EQ( node->leafIs( "two" ), leaf ) << "made only where there is none";
   EXPECT_EQ( leaf->name(), "one" );
   node->leafIs( leaf );
   EXPECT_EQ( heard(), Log{ "leaf" } );
   node->leafDel();
   node->leafDel();
   EXPECT_EQ( heard(), Log{ "leaf" } );

   auto first = node->leavesIs( "x" );
   EXPECT_EQ( node->leavesIs( "x" ), first );
   EXPECT_EQ( first->name(), "x" );
   node->leavesIs( "x", make< Leaf >( "other" ) );
   Node const & reader = *node;
   EXPECT_EQ( reader.leaves( "x" )->name(), "other" );
   EXPECT_FALSE( reader.leaves( "y" ) );
   node->leavesDelAll();
   EXPECT_EQ( heard(), ( Log{ "leaves[x]", "leaves[x]", "leaves[x]" } ) );
}

TEST_F( KivEntity, derivedEntitiesNotifyOfBothClasses ) {
   auto wide = make< WideNode >( "w" );
   Log log;
   auto listener = make< Listener >( *wide, log );
   wide->wideIs( false );
   wide->aIs( 1 );
   EXPECT_EQ( log, ( Log{ "wide", "a" } ) );
   EXPECT_EQ( wide->fwkType().name(), "Example::WideNode" );
   EXPECT_EQ( make< Node >()->fwkType().name(), "Example::Node" );
}

// Notifies when it is destroyed of the pointer that the node then shows.
class Farewell : public Leaf {
 public:
   Farewell( Kiv::String const & leafName, std::function< void() > last )
         : Leaf( leafName ), last_( std::move( last ) ) {}
   ~Farewell() override { last_(); }

 private:
   std::function< void() > last_;
};

TEST_F( KivEntity, whatIsReplacedLivesUntilAllHaveHeard ) {
   Log order;
   auto last = [ & ] { order.push_back( "gone" ); };
   Script script;
   auto teller = [ & ] { order.push_back( "heard" ); };
   class Teller : public Kiv::PtrInterface::NotifieeConst {
    public:
      Teller( Kiv::Entity const & entity, std::function< void() > tell )
            : tell_( std::move( tell ) ) {
         watch( &entity );
         hasNotificationActiveIs( true );
      }
      Kiv::Type const & fwkType() const override { return Kiv::typeInstance< Teller >; }
      void onAttribute( Kiv::AttributeId const &, void const * ) override { tell_(); }

    private:
      std::function< void() > tell_;
   };
   auto told = make< Teller >( *node, teller );
   auto leaf = [ & ]() -> Ptr< Leaf > { return make< Farewell >( "f", last ); };
   Log const heardFirst{ "heard", "heard", "gone" };

   node->leafIs( leaf() );
   node->leafIs( make< Leaf >( "plain" ) );
   EXPECT_EQ( std::exchange( order, {} ), heardFirst );
   node->leavesIs( "k", leaf() );
   node->leavesIs( "k", make< Leaf >( "plain" ) );
   EXPECT_EQ( std::exchange( order, {} ), heardFirst );
   node->leavesIs( "k", leaf() );
   node->leavesDel( "k" );
   EXPECT_EQ( std::exchange( order, {} ), heardFirst );
   node->peerIs( leaf() );
   node->peerIs( nullptr );
   EXPECT_EQ( std::exchange( order, {} ), heardFirst );
}

} // namespace
