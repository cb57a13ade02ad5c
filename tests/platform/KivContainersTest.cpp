// SPDX-License-Identifier: Apache-2.0
#include "Kiv/HashMap.h"
#include "Kiv/OrderedMap.h"
#include "Kiv/Queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <ranges>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using Kiv::HashMap;
using Kiv::HashSet;
using Kiv::OrderedMap;
using Kiv::Queue;
using Kiv::Stack;

namespace {

static_assert( sizeof( HashMap< int, std::string > ) == sizeof( void * ) );
static_assert( sizeof( HashSet< std::string > ) == sizeof( void * ) );
static_assert( sizeof( OrderedMap< int, std::string > ) == sizeof( void * ) );
static_assert( sizeof( Queue< int > ) == sizeof( void * ) );
static_assert( sizeof( Stack< int > ) == sizeof( void * ) );
static_assert( std::ranges::forward_range< HashMap< int, int > > );
static_assert( std::ranges::forward_range< OrderedMap< int, int > const > );
static_assert( std::ranges::forward_range< Queue< int > > );

// Keys whose hash lets only a few bits through: everybody wants the same few lanes.
template< std::size_t hashes >
struct CrowdedKey {
   int word;
   std::size_t hash() const { return static_cast< std::size_t >( word ) % hashes * 0x9e3779b9u; }
   friend bool operator==( CrowdedKey, CrowdedKey ) = default;
};

template< class Key >
Key
makeKey( int word ) {
   if constexpr( std::is_same_v< Key, std::string > ) {
      return "interface number " + std::to_string( 100000 + word ); // sorts as the numbers do
   } else {
      return Key{ word };
   }
}

// Allocated, so that a sanitizer sees every value that is lost or released twice.
using Box = std::unique_ptr< int >;

// Does the same random things to a collection and to a model of it. Walks nest, and their bodies change
// the collection; between times, bookmarks are left, looked at and moved.
template< class Map, bool ordered >
class Twin {
   using Key = typename Map::key_type;

   struct Member {
      int key;
      int value;
      Box const * where;
   };
   struct Bookmark {
      typename Map::iterator at;
      long from; // stands on the first member from this rank on
      bool on;   // that is a member with this very rank
   };

 public:
   Twin( unsigned seed, int keyRange ) : random_( seed ), keyRange_( keyRange ) {}

   void run( int budget ) {
      budget_ = budget;
      while( budget_ > 0 && !::testing::Test::HasFatalFailure() ) {
         change();
         if( pick( 20 + keyRange_ / 10 ) == 0 ) {
            walk( 0 );
         }
         if( pick( 7 ) == 0 ) {
            useBookmark();
         }
         if( pick( 50 + keyRange_ / 4 ) == 0 ) {
            // Phases of growth and of decline.
            insertBias_ = 5 + pick( 91 );
         }
      }
      walk( 0 );
   }

   // Far enough for growing to take a while, in which much happens; and back, which leaves a few in
   // many places.
   void growAndShrink() {
      bool shrinks = false;
      for( int step = 0; !shrinks || map_.size() > 100; ++step ) {
         auto const grows = map_.size() > 4000 && ( map_.size() & ( map_.size() + 4 ) ) < 300;
         shrinks = shrinks || step == keyRange_;
         shrinks ? erase( pick( keyRange_ ) ) : insert( step );
         for( int i = shrinks ? 0 : grows ? 8 : 1; i > 0; --i ) {
            pick( 4 ) == 0 ? erase( pick( step + 1 ) ) : insert( pick( step + 1 ) );
         }
         if( step % 300 == 0 ) {
            useBookmark();
         }
         if( ::testing::Test::HasFatalFailure() ) {
            return;
         }
      }
      run( 5000 );
   }

 private:
   // A few members more, and it needs an index.
   bool isTiny() const { return keyRange_ < 10; }

   int pick( int n ) { return static_cast< int >( random_() % static_cast< unsigned >( n ) ); }

   void change() {
      --budget_;
      auto key = pick( keyRange_ );
      if( pick( 500 ) == 0 ) {
         auto moved = std::move( map_ );
         ASSERT_EQ( map_.size(), 0u );
         map_ = std::move( moved );
      }
      if( pick( isTiny() ? 60 : 2000 ) == 0 ) {
         if( pick( 2 ) == 0 ) {
            bookmarks_.clear(); // when nobody is walking, it gives its memory back
         }
         map_.clear();
         for( auto const & [ rank, member ] : members_ ) {
            leave( rank );
         }
         members_.clear();
         ranks_.clear();
      } else if( pick( 100 ) < insertBias_ ) {
         insert( key );
      } else {
         erase( key );
      }
      ASSERT_EQ( map_.size(), members_.size() );
   }

   void insert( int key ) {
      auto const value = pick( 1000000 );
      auto box = std::make_unique< int >( value );
      bool const assign = pick( 2 ) == 0, isNew = !ranks_.contains( key );
      auto [ where, inserted ] =
            assign ? map_.insertOrAssign( makeKey< Key >( key ), std::move( box ) )
                   : map_.tryEmplace( makeKey< Key >( key ), std::move( box ) );
      ASSERT_EQ( inserted, isNew );
      auto const rank = ranks_.try_emplace( key, ordered ? key : serial_++ ).first->second;
      auto & member = members_.try_emplace( rank, Member{ key, value, where } ).first->second;
      ASSERT_EQ( where, member.where ) << "members do not move";
      member.value = assign ? value : member.value;
   }

   void erase( int key ) {
      auto const known = ranks_.find( key );
      bool const there = known != ranks_.end();
      if( pick( 4 ) == 0 ) {
         auto taken = map_.extract( makeKey< Key >( key ) );
         ASSERT_EQ( taken ? **taken : -1, there ? members_.at( known->second ).value : -1 );
      } else {
         ASSERT_EQ( map_.erase( makeKey< Key >( key ) ), there );
      }
      ASSERT_FALSE( map_.has( makeKey< Key >( key ) ) );
      if( there ) {
         leave( known->second );
         members_.erase( known->second );
         ranks_.erase( known );
      }
   }

   // Whoever stood on a key that goes is past it, even if the key comes back. (In order of insertion
   // it comes back at the end anyway.)
   void leave( long rank ) {
      for( auto & mark : bookmarks_ ) {
         bool const left = mark.on && mark.from == rank;
         mark.from += left;
         mark.on = mark.on && !left;
      }
   }

   void walk( int depth ) {
      auto * const first = map_.first();
      ASSERT_EQ( first ? &first->value : nullptr,
                 members_.empty() ? nullptr : members_.begin()->second.where );
      long from = std::numeric_limits< long >::min();
      for( auto & [ key, value ] : map_ ) {
         auto const expected = members_.lower_bound( from );
         ASSERT_TRUE( expected != members_.end() ) << "a member too many";
         auto const member = expected->second;
         ASSERT_EQ( key, makeKey< Key >( member.key ) );
         ASSERT_EQ( &value, member.where );
         ASSERT_EQ( *value, member.value );
         ASSERT_EQ( std::as_const( map_ ).find( key ), &value );
         from = expected->first + 1;
         changeInWalk( member.key, depth );
         if( ::testing::Test::HasFatalFailure() ) {
            return;
         }
      }
      ASSERT_TRUE( members_.lower_bound( from ) == members_.end() ) << "a walk ended early";
   }

   void changeInWalk( int current, int depth ) {
      auto const what = budget_ > 0 ? pick( 12 ) : 12;
      if( what < 2 ) {
         erase( current );
      }
      if( what == 1 ) {
         insert( current ); // at the end
      }
      for( int changes = what == 2 ? 20 : what == 3 || what == 4; changes > 0; --changes ) {
         change();
      }
      if( what == 5 && depth < 3 ) {
         walk( depth + 1 );
      }
      if( what == 6 ) {
         useBookmark();
      }
   }

   void useBookmark() {
      if( bookmarks_.size() < ( isTiny() ? 12 : 5 ) ) {
         auto const known = ranks_.find( pick( keyRange_ ) );
         if( known != ranks_.end() ) {
            auto const at = map_.iteratorAt( makeKey< Key >( known->first ) );
            bookmarks_.push_back( { at, known->second, true } );
         }
         ASSERT_TRUE( map_.iteratorAt( makeKey< Key >( keyRange_ ) ) == map_.end() );
         return;
      }
      auto & mark = bookmarks_[ random_() % bookmarks_.size() ];
      auto const expected = members_.lower_bound( mark.from );
      ASSERT_EQ( mark.at == map_.end(), expected == members_.end() );
      if( expected == members_.end() ) {
         mark = bookmarks_.back();
         bookmarks_.pop_back();
         return;
      }
      ASSERT_EQ( mark.at->key, makeKey< Key >( expected->second.key ) );
      mark.from = expected->first;
      mark.on = true;
      if( pick( 3 ) != 0 ) {
         ++mark.at;
         auto const next = std::next( expected );
         mark.on = next != members_.end();
         mark.from = mark.on ? next->first : mark.from + 1;
      }
      if( pick( 5 ) == 0 ) {
         bookmarks_[ 0 ] = mark;
      }
   }

   std::mt19937 random_;
   int keyRange_;
   int insertBias_ = 60;
   int budget_ = 0;
   Map map_;
   // In the order of a walk: by the number of the insertion, or by the key where keys are ordered.
   std::map< long, Member > members_;
   std::map< int, long > ranks_; // of keys
   long serial_ = 0;
   std::vector< Bookmark > bookmarks_;
};

// Many keys make it grow in several steps, and close up what they leave in several places.
template< class Map, bool ordered = false >
void
runTwins( int manyKeys = 600 ) {
   for( unsigned seed = 1; seed <= 12; ++seed ) {
      for( int keyRange : { 3, 8, 30, 600, seed < 4 ? manyKeys : 100 } ) {
         SCOPED_TRACE( testing::Message() << "seed " << seed << ", keys below " << keyRange );
         Twin< Map, ordered >( seed, keyRange ).run( 5000 + 2 * keyRange );
         if( ::testing::Test::HasFatalFailure() ) {
            return;
         }
      }
   }
}

} // namespace

TEST( KivContainers, hashMapIsAsItsModel ) {
   runTwins< HashMap< int, Box > >( 20000 );
   runTwins< HashMap< std::string, Box > >( 6000 );
   Twin< HashMap< int, Box >, false >( 1, 40000 ).growAndShrink();
   Twin< HashMap< std::string, Box >, false >( 2, 20000 ).growAndShrink();
   Twin< HashMap< CrowdedKey< 4000 >, Box >, false >( 3, 10000 ).growAndShrink();
}

TEST( KivContainers, crowdedHashMapIsAsItsModel ) {
   runTwins< HashMap< CrowdedKey< 1 >, Box > >();
   runTwins< HashMap< CrowdedKey< 5 >, Box > >();
   runTwins< HashMap< CrowdedKey< 60 >, Box > >( 1500 );
}

// Keys that were all alike to a hash that everybody knows: they are not, to that of this process.
TEST( KivContainers, craftedKeysDoNotCrowd ) {
   std::set< std::size_t > places, texts;
   int crafted = 0;
   for( std::uint64_t word = 0; crafted != 200; ++word ) {
      if( Kiv::hashMix( word ^ 0x9e3779b97f4a7c15, 0xd6e8feb86659fd93 ) % 4096 == 0 ) {
         places.insert( Kiv::hashOf( word ) % 4096 );
         ++crafted;
      }
   }
   EXPECT_GT( places.size(), 150u );
   // Texts that differ in one place, whatever their length; and empty ones beside those of zeros.
   for( std::size_t length = 0; length != 100; ++length ) {
      for( std::size_t at = 0; at != length + 1; ++at ) {
         auto text = std::string( at, '\0' ) + 'x' + std::string( length - at, '\0' );
         text.resize( length );
         texts.insert( Kiv::hashOf( text ) );
         EXPECT_EQ( Kiv::hashOf( text ), Kiv::hashOf( std::string_view( text ) ) );
      }
   }
   EXPECT_EQ( texts.size(), 5050u );
   // The library, which has this function, sees the seed that is seen here.
   EXPECT_EQ( Kiv::hashText( "" ), Kiv::hashCombine( 0, 0 ) );
}

TEST( KivContainers, orderedMapIsAsItsModel ) {
   runTwins< OrderedMap< int, Box >, true >();
   runTwins< OrderedMap< std::string, Box >, true >();
}

namespace {

template< class Collection, class Value >
void
add( Collection & to, Value value ) {
   if constexpr( requires { to.enq( Value() ); } ) {
      to.enq( std::move( value ) );
   } else if constexpr( requires { to.push( Value() ); } ) {
      to.push( std::move( value ) );
   } else {
      to.tryEmplace( value, value );
   }
}

// Additions go to the back, so a member's serial number is its rank.
template< class Sequence >
void
walkSequence( Sequence & sequence, std::vector< int > & model, std::mt19937 & random, int & next,
              int depth ) {
   int from = 0;
   auto pick = [ & ]( unsigned n ) { return random() % n; };
   for( auto & member : sequence ) {
      auto expected = std::ranges::lower_bound( model, from );
      ASSERT_NE( expected, model.end() ) << "a member too many";
      ASSERT_EQ( *member, *expected );
      from = *expected + 1;
      for( auto changes = pick( 4 ); changes > 0; --changes ) {
         auto what = pick( 16 );
         if( what < 5 && next < 3000 ) {
            add( sequence, std::make_unique< int >( next ) );
            model.push_back( next++ );
         } else if( what < 9 && !model.empty() ) {
            if constexpr( requires { sequence.deq(); } ) {
               ASSERT_EQ( *sequence.deq(), model.front() );
               model.erase( model.begin() );
            } else {
               ASSERT_EQ( *sequence.pop(), model.back() );
               model.pop_back();
            }
         } else if( what == 9 ) {
            auto goes = [ rest = static_cast< int >( pick( 5 ) ) ]( int value ) {
               return value % 5 == rest;
            };
            auto erased = sequence.eraseIf( [ & ]( Box const & box ) { return goes( *box ); } );
            ASSERT_EQ( erased, std::erase_if( model, goes ) );
         } else if( what == 10 && pick( 20 ) == 0 ) {
            sequence.clear();
            model.clear();
         } else if( what == 11 && depth < 3 ) {
            walkSequence( sequence, model, random, next, depth + 1 );
         }
         ASSERT_EQ( sequence.size(), model.size() );
      }
   }
   ASSERT_EQ( std::ranges::lower_bound( model, from ), model.end() ) << "a walk ended early";
}

template< class Sequence >
void
runSequences() {
   for( unsigned seed = 1; seed <= 60; ++seed ) {
      SCOPED_TRACE( seed );
      std::mt19937 random( seed );
      Sequence sequence;
      std::vector< int > model;
      int next = 0;
      for( int i = 0; i < 30; ++i ) {
         add( sequence, std::make_unique< int >( next ) );
         model.push_back( next++ );
         ASSERT_NO_FATAL_FAILURE( walkSequence( sequence, model, random, next, 0 ) );
      }
      for( std::uint32_t i = 0; i < sequence.size(); ++i ) {
         ASSERT_EQ( *sequence.at( i ), model[ i ] );
      }
   }
}

} // namespace

TEST( KivContainers, queueAndStackAreAsTheirModels ) {
   runSequences< Queue< Box > >();
   runSequences< Stack< Box > >();
}

TEST( KivContainers, queueAndStackEnds ) {
   Queue< int > queue;
   Stack< int > stack;
   for( int i = 0; i < 5; ++i ) {
      add( queue, i );
      add( stack, i );
   }
   EXPECT_TRUE( queue.front() == 0 && queue.back() == 4 );
   EXPECT_TRUE( stack.top() == 4 && stack.bottom() == 0 );
   EXPECT_EQ( queue.erase( 3 ), 1u );
   EXPECT_EQ( queue.erase( 3 ), 0u );
   EXPECT_EQ( queue.at( 3 ), 4 );
   auto copy = queue;
   EXPECT_EQ( copy, queue );
   copy.back() = 7;
   EXPECT_FALSE( copy == queue );
   queue.clear();
   stack.clear();
   EXPECT_EQ( queue, Queue< int >() );

   struct {
      std::function< void() > act;
      char const * text;
   } const faults[] = {
         { [ & ] { queue.deq(); }, "deq of an empty queue" },
         { [ & ] { queue.front(); }, "front of an empty queue" },
         { [ & ] { queue.back(); }, "back of an empty queue" },
         { [ & ] { copy.at( 4 ); }, "index 4 is beyond a queue of size 4" },
         { [ & ] { stack.pop(); }, "pop of an empty stack" },
         { [ & ] { stack.top(); }, "top of an empty stack" },
         { [ & ] { stack.bottom(); }, "bottom of an empty stack" },
   };
   for( auto const & [ act, text ] : faults ) {
      std::string said;
      try {
         act();
      } catch( Kiv::Exception const & e ) {
         said = e.what();
      }
      EXPECT_EQ( said, text );
   }
}

namespace {

template< class Sequence >
void
endAndGo() {
   auto in = std::make_unique< Sequence >();
   auto const iteratorAt = [ & ]( int number ) { return std::ranges::next( in->begin(), number ); };
   auto const valueOf = []( auto const & at ) {
      if constexpr( requires { at->value; } ) {
         return at->value;
      } else {
         return *at;
      }
   };
   add( *in, 0 );
   for( int i = 1; i < 40; ++i ) {
      auto ended = ++iteratorAt( i - 1 );
      ASSERT_TRUE( ended == in->end() );
      add( *in, i );
      ASSERT_EQ( valueOf( ++ended ), i ) << "it goes on with what is added";
   }
   // Iterators move with the members, and are at their end when those go with their collection.
   auto at = iteratorAt( 5 );
   EXPECT_TRUE( at == iteratorAt( 5 ) && !( at == iteratorAt( 6 ) ) );
   auto const * place = &*at;
   auto moved = std::move( *in );
   EXPECT_TRUE( in->empty() );
   EXPECT_EQ( &*at, place );
   moved.erase( 6 );
   EXPECT_EQ( valueOf( ++at ), 7 );
   auto const copy = moved;
   EXPECT_EQ( copy, moved );
   moved = {};
   EXPECT_TRUE( at == moved.end() );
   EXPECT_EQ( copy.size(), 39u );

   add( *in, 1 );
   add( *in, 2 );
   int visits = 0;
   for( [[maybe_unused]] auto & member : *in ) {
      ++visits;
      in.reset();
   }
   EXPECT_EQ( visits, 1 );
}

} // namespace

TEST( KivContainers, walksOutliveWhatTheyWalk ) {
   endAndGo< HashMap< int, int > >();
   endAndGo< OrderedMap< int, int > >();
   endAndGo< Queue< int > >();
}

namespace {

// Does something when it goes.
struct Last {
   std::function< void() > act;
   Last( Last const & ) = delete;
   Last & operator=( Last const & ) = delete;
   explicit Last( std::function< void() > a = [] {} ) : act( std::move( a ) ) {}
   ~Last() { act(); }
};
using LastPtr = std::shared_ptr< Last >;

// Everything that lets a member go, while what the member owns uses the map it goes from.
template< class Map >
void
letGo() {
   using Owner = std::unique_ptr< Map >;
   void ( *const ways[] )( Owner & ) = {
         []( Owner & map ) { EXPECT_TRUE( map->erase( 1 ) ); },
         []( Owner & map ) { EXPECT_TRUE( map->extract( 1 ) ); },
         []( Owner & map ) { map->insertOrAssign( 1, LastPtr() ); },
         []( Owner & map ) { map->clear(); },
         []( Owner & map ) {
            for( [[maybe_unused]] auto & member : *map ) {
               map->clear();
            }
         },
         []( Owner & map ) { map.reset(); },
   };
   enum What { refills, empties, returns, clears, destroys };
   auto check = [ & ]( auto const & way, int size, What what ) {
      SCOPED_TRACE( testing::Message() << &way - ways << ", " << size << ", " << what );
      auto map = std::make_unique< Map >();
      int done = 0;
      auto act = [ &, &m = *map ] {
         ++done;
         for( int i = 2; i < 200; ++i ) {
            if( what == refills ) {
               m.insertOrAssign( i, std::make_shared< Last >() );
            } else if( what == empties ) {
               m.erase( i );
            }
         }
         if( what == returns ) {
            m.tryEmplace( 1, std::make_shared< Last >() );
         } else if( what == clears ) {
            m.clear();
         } else if( what == destroys ) {
            map.reset();
         }
      };
      for( int i = 0; i < size; ++i ) {
         map->tryEmplace( i, i == 1 ? std::make_shared< Last >( act ) : LastPtr() );
      }
      way( map );
      EXPECT_EQ( done, 1 );
      if( &way - ways < 2 && map ) {
         int const left[] = { 199, 1, size, 0 };
         EXPECT_EQ( map->size(), left[ what ] );
      }
   };
   for( auto const & way : ways ) {
      for( int const size : { 2, 3, 4, 5, 6, 100 } ) {
         for( auto const what : { refills, empties, returns, clears, destroys } ) {
            check( way, size, what );
         }
      }
   }
}

} // namespace

TEST( KivContainers, whatGoesMayUseTheCollection ) {
   letGo< HashMap< int, LastPtr > >();
   letGo< OrderedMap< int, LastPtr > >();

   Queue< LastPtr > queue;
   auto refill = [ & ] { queue.enq( LastPtr() ); };
   for( int i = 0; i < 4; ++i ) {
      queue.enq( std::make_shared< Last >( refill ) );
   }
   queue.deq();
   EXPECT_EQ( queue.size(), 4u );
   EXPECT_EQ( queue.eraseIf( []( LastPtr const & last ) { return last != nullptr; } ), 3u );
   EXPECT_EQ( queue.size(), 4u );
   queue.enq( std::make_shared< Last >( refill ) );
   queue.clear();
   EXPECT_EQ( queue.size(), 1u );

   for( int const others : { 2, 10 } ) {
      HashSet< LastPtr > set; // keys may, too
      set.insert( std::make_shared< Last >( [ & ] { set.clear(); } ) );
      for( int i = 0; i < others; ++i ) {
         set.insert( std::make_shared< Last >() );
      }
      set.erase( *set.first() );
      EXPECT_TRUE( set.empty() );
   }
}

// Values that go where they stand, and meanwhile need more room than there is.
TEST( KivContainers, whatCannotMoveMayUseTheCollection ) {
   for( int size = 1; size < 7; ++size ) {
      for( int added = 1; added < 5; ++added ) {
         SCOPED_TRACE( testing::Message() << size << ", " << added );
         HashMap< int, Last > map;
         auto const add = [ & ] {
            for( int key = 10; key < 10 + added; ++key ) {
               map.tryEmplace( key );
            }
         };
         for( int key = 0; key < size; ++key ) {
            map.tryEmplace( key, add );
         }
         auto at = map.iteratorAt( 0 );
         map.erase( 0 );
         std::vector< int > seen, expected;
         for( int i = 1; i < size + added; ++i ) {
            expected.push_back( i < size ? i : 10 + i - size );
         }
         for( auto const & member : map ) {
            seen.push_back( member.key );
         }
         EXPECT_EQ( seen, expected );
         ASSERT_FALSE( at == map.end() );
         EXPECT_EQ( at->key, expected[ 0 ] );
         map.clear();
         EXPECT_EQ( map.size(), size > 1 ? added : 0 );
         EXPECT_EQ( at == map.end(), size == 1 );
      }
   }
}

namespace {

struct Fussy {
   explicit Fussy( int v ) : value( v ) {
      if( v < 0 ) {
         throw std::runtime_error( "negative" );
      }
   }
   Fussy( Fussy const & ) = delete;
   Fussy & operator=( Fussy const & ) = delete;
   int value;
};

template< class Map >
void
refuse() {
   Map map;
   int sum = 0;
   for( int i = 0; i < 50; ++i ) {
      EXPECT_THROW( map.tryEmplace( i, -1 ), std::runtime_error );
      EXPECT_EQ( map.tryEmplace( i, i ).value->value, i );
      EXPECT_FALSE( map.tryEmplace( i, -1 ).inserted ) << "made for nothing";
   }
   map.erase( 7 );
   EXPECT_THROW( map.tryEmplace( 7, -1 ), std::runtime_error );
   EXPECT_EQ( map.size(), 49u );
   EXPECT_EQ( map.tryEmplace( 7, 70 ).value->value, 70 );
   for( auto & [ key, value ] : map ) {
      sum += value.value;
   }
   EXPECT_EQ( sum, 49 * 50 / 2 + 63 );
}

} // namespace

TEST( KivContainers, failedConstructionChangesNothing ) {
   refuse< HashMap< int, Fussy > >();
   refuse< OrderedMap< int, Fussy > >();
}

TEST( KivContainers, equalityIsOfMembers ) {
   auto check = []( auto a, auto b ) {
      for( int i = 0; i < 100; ++i ) {
         a.tryEmplace( std::to_string( i ), i );
         b.tryEmplace( std::to_string( 99 - i ), 99 - i );
      }
      EXPECT_EQ( a, b );
      *b.find( "5" ) = 6;
      EXPECT_FALSE( a == b );
      b.erase( "5" );
      EXPECT_FALSE( a == b );
      b.tryEmplace( "500", 5 );
      EXPECT_FALSE( a == b );
   };
   check( HashMap< std::string, int >(), HashMap< std::string, int >() );
   check( OrderedMap< std::string, int >(), OrderedMap< std::string, int >() );

   HashSet< int > sets[ 4 ];
   for( auto const & [ set, key ] :
        { std::pair( 0, 1 ), std::pair( 0, 2 ), std::pair( 1, 2 ), std::pair( 1, 1 ),
          std::pair( 2, 1 ), std::pair( 3, 1 ), std::pair( 3, 3 ) } ) {
      EXPECT_TRUE( sets[ set ].insert( key ) && !sets[ set ].insert( key ) );
   }
   EXPECT_EQ( sets[ 0 ], sets[ 1 ] );
   EXPECT_FALSE( sets[ 0 ] == sets[ 2 ] || sets[ 0 ] == sets[ 3 ] );
}

TEST( KivContainers, stringsAreFoundByView ) {
   auto check = []( auto map, int others ) {
      std::string_view const text = "Ethernet1,Ethernet2";
      map.tryEmplace( text.substr( 0, 9 ), 1 );
      for( int i = 0; i < others; ++i ) {
         map.tryEmplace( "Other" + std::to_string( i ), i );
      }
      EXPECT_TRUE( map.has( "Ethernet1" ) && *map.find( std::string( "Ethernet1" ) ) == 1 );
      EXPECT_FALSE( map.has( text.substr( 10 ) ) || map.erase( text.substr( 10 ) ) );
      EXPECT_TRUE( map.erase( map.first()->key ) ) << "the key may be the member's own";
   };
   for( int const others : { 0, 9 } ) {
      check( HashMap< std::string, int >(), others );
      check( OrderedMap< std::string, int >(), others );
   }
}

TEST( KivContainers, orderedMapBounds ) {
   OrderedMap< int, char > map;
   EXPECT_TRUE( !map.first() && !map.last() && map.lowerBound( 0 ) == map.end() );
   for( int key : { 30, 10, 20 } ) {
      map.tryEmplace( key, 'x' );
   }
   EXPECT_TRUE( map.first()->key == 10 && map.last()->key == 30 );
   EXPECT_EQ( map.lowerBound( 20 )->key, 20 );
   EXPECT_EQ( map.lowerBound( 21 )->key, 30 );
   EXPECT_TRUE( map.lowerBound( 31 ) == map.end() );

   // What comes in before the walk's position is not seen, what comes in behind it is.
   std::vector< int > seen;
   for( auto & member : map ) {
      seen.push_back( member.key );
      if( seen.size() == 2 ) {
         map.clear();
         for( int key : { 5, 20, 25 } ) {
            map.tryEmplace( key, 'x' );
         }
      }
   }
   EXPECT_EQ( seen, ( std::vector{ 10, 20, 25 } ) );
}
