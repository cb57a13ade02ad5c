// SPDX-License-Identifier: Apache-2.0

#include "Hoba/HobaSlicedWalk.h"
#include "HobaTest.h"

namespace {

using namespace HobaTest;

// Walks a collection of its own, a slice a wake-up.
class Walker : public Hoba::HobaBaseSm {
 public:
   using Numbers = Kiv::HashMap< int, int >;
   KIV_TYPE( Walker );
   explicit Walker( Kiv::Ptr< Hoba::HobaCommonSmData > const & data ) : HobaBaseSm( data ) {
      clockIs( Kiv::make< Kiv::Clock >() );
   }
   void walk() {
      slices.start( *numbers );
      clock()->noLaterThan( clock()->now() );
   }

   std::optional< Numbers > numbers{ std::in_place };
   Hoba::SlicedWalk< Numbers > slices;
   std::uint32_t quantum = 100;
   std::function< void( int ) > visit = []( int ) {};
   std::vector< int > seen;
   unsigned wakeUps = 0;

 private:
   void handleTimeout() {
      ++wakeUps;
      slices.run( *this, *clock(), quantum, [ this ]( auto const & member ) {
         seen.push_back( member.key );
         visit( member.key );
      } );
   }
   class KivClock : public Kiv::ClockReactor< Walker, &Walker::handleTimeout > {};
   KIV_REACTOR( KivClock, clock );
};

class HobaSlicedWalk : public HobaFixture {
 protected:
   HobaSlicedWalk() {
      for( int i = 0; i < 1000; ++i ) {
         sm->numbers->tryEmplace( i, i );
      }
   }
   Kiv::Ptr< Hoba::HobaCommonSmData > data = Kiv::make< Hoba::HobaCommonSmData >( "context" );
   Kiv::Ptr< Walker > sm = Hoba::smIs< Walker >( data );
};

TEST_F( HobaSlicedWalk, keepsItsCountAndItsTimeSlice ) {
   sm->walk();
   EXPECT_EQ( driver.run(), 1u );
   EXPECT_EQ( sm->seen.size(), 100u ) << "one slice, then the loop has its turn";
   driver.advance( 0 );
   EXPECT_EQ( sm->seen.size(), 1000u );
   EXPECT_EQ( sm->wakeUps, 10u );
   EXPECT_FALSE( sm->slices.walking() );

   // A visit of a millisecond: the slice of ten is over at the tenth.
   sm->seen.clear();
   sm->visit = [ this ]( int ) { driver.timeIs( driver.now() + 0.001 ); };
   sm->walk();
   driver.run();
   EXPECT_EQ( sm->seen.size(), 10u );
   EXPECT_EQ( sm->clock()->timeMin(), driver.now() );
   driver.advance( 1.2 );
   EXPECT_EQ( sm->seen.size(), 1000u );
   EXPECT_EQ( sm->clock()->timeMin(), Kiv::never );
}

TEST_F( HobaSlicedWalk, membersMachinesAndCollectionsMayGo ) {
   // The member visited, one ahead, and one that comes.
   sm->visit = [ this ]( int key ) {
      if( key % 2 == 0 && key < 1000 ) {
         sm->numbers->erase( key );
         sm->numbers->erase( key + 1 );
         sm->numbers->tryEmplace( 1000 + key, 0 );
      }
   };
   sm->walk();
   driver.advance( 1 );
   ASSERT_EQ( sm->seen.size(), 1000u );
   for( int i = 0; i < 500; ++i ) {
      EXPECT_EQ( sm->seen[ static_cast< std::size_t >( i ) ], 2 * i );
      EXPECT_EQ( sm->seen[ static_cast< std::size_t >( 500 + i ) ], 1000 + 2 * i );
   }

   // Begun anew in a visit, and a visit that throws: nobody else loses a turn.
   sm->seen.clear();
   sm->visit = [ this, again = true ]( int key ) mutable {
      if( key == 1004 && std::exchange( again, false ) ) {
         sm->slices.start( *sm->numbers );
      } else if( key == 1006 ) {
         throw std::runtime_error( "1006" );
      }
   };
   sm->walk();
   driver.advance( 1 );
   EXPECT_EQ( failures(), 1u );
   EXPECT_EQ( sm->seen.size(), 503u );
   EXPECT_EQ( sm->seen[ 3 ], 1000 );

   // The collection goes between slices; the machine goes in a visit.
   sm->seen.clear();
   sm->visit = []( int ) {};
   sm->walk();
   driver.run();
   sm->numbers.reset();
   driver.advance( 1 );
   EXPECT_EQ( sm->seen.size(), 100u );
   sm->numbers.emplace();
   sm->numbers->tryEmplace( 1, 1 );
   sm->numbers->tryEmplace( 2, 2 );
   unsigned visits = 0;
   sm->visit = [ & ]( int ) {
      ++visits;
      sm = nullptr;
   };
   sm->walk();
   driver.advance( 1 );
   EXPECT_EQ( visits, 1u );
}

} // namespace
