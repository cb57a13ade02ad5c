// SPDX-License-Identifier: Apache-2.0
#include "KivExample.h"

#include <stdexcept>

namespace {

using namespace Example;
using Kiv::DispatchRecorder;
using Kiv::make;
using Kind = DispatchRecorder::Kind;

double testTime = 0;

double
testNow() {
   return testTime += 1;
}

// A line "id<parent kind text" for each event.
std::string
recorded( DispatchRecorder const & recorder ) {
   char const * const kinds[] = { "write", "handler", "hook", "timeout", "input" };
   std::string lines;
   for( auto const & event : recorder.events() ) {
      lines += std::to_string( event.id ) + "<" + std::to_string( event.parent ) + " " +
               kinds[ static_cast< int >( event.kind ) ] + " " + event.text() + "\n";
   }
   return lines;
}

class KivDispatchRecorder : public testing::Test {
 protected:
   void SetUp() override {
      testTime = 0;
      machine->nodeIs( 1, node );
   }
   Script script;
   Kiv::Ptr< Node > const node = make< Node >( "n1" );
   Kiv::Ptr< Machine > machine = machineIs( script );
   DispatchRecorder recorder{ 100, testNow };
};

TEST_F( KivDispatchRecorder, recordsNothingWhileItIsOff ) {
   node->aIs( 1 );
   {
      DispatchRecorder::Scope const scope( Kind::input, [] {
         ADD_FAILURE() << "nobody needs the text";
         return Kiv::String();
      } );
   }
   recorder.activeIs( true );
   recorder.activeIs( false );
   node->aIs( 2 );
   EXPECT_EQ( recorded( recorder ), "" );
   EXPECT_EQ( testTime, 0 );
}

TEST_F( KivDispatchRecorder, tellsWhatCausedWhat ) {
   script.actions[ "a1" ] = [ & ] {
      node->pointIs( "p", { .x = 4 } );
      DispatchRecorder::Scope const hook( Kind::hook, "doSet" );
   };
   recorder.activeIs( true );
   {
      DispatchRecorder::Scope const input( Kind::input, [] { return Kiv::String( "set a" ); } );
      node->aIs( 7 );
   }
   node->pointDel( "p" );
   node->reviewsInc( 1 );
   EXPECT_EQ( recorded( recorder ),
              "1<0 input set a\n"
              "2<1 write Example::Node(n1).a = 7\n"
              "3<2 handler Example::Machine::KivNode::handleA\n"
              "4<3 write Example::Node(n1).point[p] = {\"x\": 4, \"y\": 0, \"colour\": \"green\"}\n"
              "5<4 handler Example::Machine::KivNode::handlePoint\n"
              "6<3 hook doSet\n"
              "7<0 write Example::Node(n1).point[p] deleted\n"
              "8<7 handler Example::Machine::KivNode::handlePoint\n"
              "9<0 write Example::Node(n1).reviews = 1\n"
              "10<9 handler Example::Machine::handleReviews\n" );
   auto const * write = recorder.event( 2 );
   EXPECT_EQ( write->about.name, "Example::Node(n1).a" );
   EXPECT_EQ( write->about.values, " = 7" );
   EXPECT_LT( recorder.event( 1 )->begin, write->begin );
   EXPECT_GT( write->end, recorder.event( 6 )->end );
   EXPECT_GT( recorder.event( 1 )->end, write->end );

   // What throws ends as well, and is no parent of what follows.
   script.actions[ "a1" ] = [] { throw std::runtime_error( "refused" ); };
   node->aIs( 1 );
   node->bIs( 0 );
   EXPECT_GT( recorder.event( 12 )->end, 0 );
   EXPECT_EQ( recorder.event( 13 )->parent, 0u );
}

TEST_F( KivDispatchRecorder, keepsTheNewest ) {
   DispatchRecorder small( 3, testNow );
   small.activeIs( true );
   for( int i = 1; i <= 3; ++i ) {
      node->aIs( i );
   }
   EXPECT_EQ( small.events().size(), 3u );
   EXPECT_EQ( small.dropped(), 3u );
   EXPECT_EQ( small.event( 3 ), nullptr );
   EXPECT_EQ( small.event( 6 )->parent, 5u );
   EXPECT_EQ( small.event( 7 ), nullptr );

   // An event that made room for its own consequences is not there to be ended.
   script.actions[ "a1" ] = [ & ] {
      for( std::uint16_t tag = 0; tag < 4; ++tag ) {
         node->tagIs( tag );
      }
   };
   node->aIs( 9 );
   node->bIs( 1 );
   for( auto const & event : small.events() ) {
      EXPECT_GT( event.end, 0 ) << event.text();
   }
   small.clear();
   EXPECT_EQ( small.dropped() + small.events().size(), 0u );
}

TEST_F( KivDispatchRecorder, changesHandsInTheMiddle ) {
   DispatchRecorder second( 10, testNow );
   recorder.activeIs( true );
   double ended = 0;
   script.actions[ "a1" ] = [ & ] {
      second.activeIs( true );
      node->bIs( 0 );
      node->textIs( "" );
      ended = second.event( 2 )->end;
   };
   node->aIs( 1 );
   EXPECT_EQ( recorder.events().size(), 2u );
   EXPECT_EQ( second.event( 1 )->text(), "Example::Node(n1).b = 0" );
   EXPECT_EQ( second.event( 2 )->end, ended ) << "what the first one began ends in the first";
   EXPECT_EQ( second.event( 4 )->parent, 0u ) << "two writes on one level";

   // It may go altogether, and events end without it.
   script.actions[ "b1" ] = [ & ] { second.activeIs( false ); };
   node->bIs( 1 );
   { DispatchRecorder( 10, testNow ).activeIs( true ); }
   EXPECT_EQ( Kiv::Dispatch::recorder, nullptr );
}

} // namespace
