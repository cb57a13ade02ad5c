// SPDX-License-Identifier: Apache-2.0
#include "Kiv/HashMap.h"
#include "Kiv/OrderedMap.h"
#include "Kiv/Queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <random>
#include <ranges>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {
constinit thread_local long allocationsLeft = -1; // that succeed; negative: all do

void *
allocate( void * memory ) {
   if( !memory || allocationsLeft == 0 ) {
      std::free( memory );
      throw std::bad_alloc();
   }
   allocationsLeft -= allocationsLeft > 0;
   return memory;
}
} // namespace

void *
operator new( std::size_t size ) {
   return allocate( std::malloc( size ) );
}
void *
operator new( std::size_t size, std::align_val_t align ) {
   auto const alignment = static_cast< std::size_t >( align );
   return allocate(
         std::aligned_alloc( alignment, ( size + alignment - 1 ) / alignment * alignment ) );
}
// What this gives, those below take back.
void *
operator new( std::size_t size, std::nothrow_t const & ) noexcept {
   return std::malloc( size );
}
[[gnu::noinline]] void
operator delete( void * memory ) noexcept {
   std::free( memory );
}
[[gnu::noinline]] void
operator delete( void * memory, std::size_t ) noexcept {
   std::free( memory );
}
[[gnu::noinline]] void
operator delete( void * memory, std::align_val_t ) noexcept {
   std::free( memory );
}

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

// What a keyed collection should hold, in the order in which a walk should show it: by rank, which
// is the serial number of the insertion, or the key where keys are ordered.
struct Model {
   struct Member {
      int key;
      int value;
      Box const * where;
   };
   std::map< long, Member > members;
   std::map< int, long > rankOf;
   long serial = 0;
   bool byKey = false;

   void insert( int key, int value, Box const * where ) {
      auto rank = byKey ? key : serial++;
      members[ rank ] = { key, value, where };
      rankOf[ key ] = rank;
   }
   bool erase( int key ) {
      auto known = rankOf.find( key );
      if( known == rankOf.end() ) {
         return false;
      }
      members.erase( known->second );
      rankOf.erase( known );
      return true;
   }
   Member * find( int key ) {
      auto known = rankOf.find( key );
      return known == rankOf.end() ? nullptr : &members.at( known->second );
   }
   // The rank of the first member at or behind this rank.
   std::optional< long > from( long rank ) const {
      auto next = members.lower_bound( rank );
      return next == members.end() ? std::nullopt : std::optional( next->first );
   }
};

// Does the same random things to a collection and to its model. Walks nest, and their bodies change
// the collection; between times, bookmarks are left, looked at and moved.
template< class Map, bool ordered >
class Twin {
   using Key = typename Map::key_type;

   struct Bookmark {
      typename Map::iterator at;
      long from; // stands on the first member from this rank on
      bool on;   // that is a member with this very rank
   };

 public:
   Twin( unsigned seed, int keyRange ) : random_( seed ), keyRange_( keyRange ) {
      model_.byKey = ordered;
   }

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
            insertBias_ = 25 + pick( 50 );
         }
      }
      compareAll();
   }

   // Far enough for growing to take a while, in which much happens; and back, which leaves a few in
   // many places.
   void growAndShrink() {
      for( int key = 0; key < keyRange_; ++key ) {
         insert( key );
         auto const grows = map_.size() > 4000 && ( map_.size() & ( map_.size() + 4 ) ) < 300;
         for( int i = grows ? 8 : 1; i > 0; --i ) {
            auto other = pick( key + 1 );
            pick( 4 ) == 0 ? erase( other ) : insert( other );
         }
         ASSERT_NO_FATAL_FAILURE( lookAround( key ) );
      }
      for( int i = 0; map_.size() > 100; ++i ) {
         erase( pick( keyRange_ ) );
         ASSERT_NO_FATAL_FAILURE( lookAround( i ) );
      }
      run( 5000 );
   }

 private:
   void lookAround( int step ) {
      if( step % 300 == 0 ) {
         useBookmark();
      }
      if( step % 10000 == 0 ) {
         walk( 0 );
      }
   }

   int pick( int n ) { return static_cast< int >( random_() % static_cast< unsigned >( n ) ); }

   void change() {
      --budget_;
      auto key = pick( keyRange_ );
      if( pick( 2000 ) == 0 ) {
         map_.clear();
         leave( []( long ) { return true; } );
         model_.members.clear();
         model_.rankOf.clear();
      } else if( pick( 100 ) < insertBias_ ) {
         insert( key );
      } else {
         erase( key );
      }
      ASSERT_EQ( map_.size(), model_.members.size() );
   }

   void insert( int key ) {
      auto value = pick( 1000000 );
      auto * known = model_.find( key );
      auto assign = pick( 2 ) == 0;
      auto [ where, inserted ] =
            assign ? map_.insertOrAssign( makeKey< Key >( key ), std::make_unique< int >( value ) )
                   : map_.tryEmplace( makeKey< Key >( key ), std::make_unique< int >( value ) );
      ASSERT_EQ( inserted, known == nullptr );
      if( !known ) {
         model_.insert( key, value, where );
         return;
      }
      ASSERT_EQ( where, known->where ) << "members do not move";
      known->value = assign ? value : known->value;
   }

   void erase( int key ) {
      auto * known = model_.find( key );
      if( pick( 4 ) == 0 ) {
         auto taken = map_.extract( makeKey< Key >( key ) );
         ASSERT_EQ( taken.has_value(), known != nullptr );
         if( taken ) {
            ASSERT_EQ( **taken, known->value );
         }
      } else {
         ASSERT_EQ( map_.erase( makeKey< Key >( key ) ), known != nullptr );
      }
      if( known ) {
         leave( [ key ]( long rank ) { return rank == key; } );
      }
      model_.erase( key );
      ASSERT_FALSE( map_.has( makeKey< Key >( key ) ) );
   }

   // Whoever stood on a key that goes is past it, even if the key comes back. (In order of insertion
   // it comes back at the end anyway.)
   template< class Goes >
   void leave( Goes const & goes ) {
      for( auto & mark : bookmarks_ ) {
         auto left = ordered && mark.on && goes( mark.from );
         mark.from += left;
         mark.on = mark.on && !left;
      }
   }

   void walk( int depth ) {
      long from = std::numeric_limits< long >::min();
      for( auto & [ key, value ] : map_ ) {
         auto expected = model_.from( from );
         ASSERT_TRUE( expected ) << "a member too many";
         auto const & member = model_.members.at( *expected );
         ASSERT_EQ( key, makeKey< Key >( member.key ) );
         ASSERT_EQ( &value, member.where );
         ASSERT_EQ( *value, member.value );
         from = *expected + 1;
         changeInWalk( member.key, depth );
         if( ::testing::Test::HasFatalFailure() ) {
            return;
         }
      }
      ASSERT_FALSE( model_.from( from ) ) << "a walk ended early";
   }

   void changeInWalk( int current, int depth ) {
      if( budget_ <= 0 ) {
         return;
      }
      switch( pick( 12 ) ) {
      case 0:
         erase( current );
         break;
      case 1: // to the end
         erase( current );
         insert( current );
         break;
      case 2:
         for( int i = 0; i < 20; ++i ) {
            change();
         }
         break;
      case 3:
         if( depth < 3 ) {
            walk( depth + 1 );
         }
         break;
      case 4:
         useBookmark();
         break;
      case 5:
      case 6:
         change();
         break;
      default:
         break;
      }
   }

   void useBookmark() {
      if( bookmarks_.size() < 5 ) {
         leaveBookmark();
         return;
      }
      auto & mark = bookmarks_[ static_cast< std::size_t >( pick( 5 ) ) ];
      auto expected = model_.from( mark.from );
      ASSERT_EQ( mark.at == map_.end(), !expected );
      if( !expected ) {
         mark = bookmarks_.back();
         bookmarks_.pop_back();
         return;
      }
      ASSERT_EQ( mark.at->key, makeKey< Key >( model_.members.at( *expected ).key ) );
      mark.from = *expected;
      mark.on = true;
      if( pick( 3 ) != 0 ) {
         ++mark.at;
         ++mark.from;
         if( auto next = model_.from( mark.from ); ordered && next ) {
            mark.from = *next;
         }
         mark.on = model_.members.contains( mark.from );
      }
      if( pick( 5 ) == 0 ) {
         bookmarks_[ 0 ] = mark;
      }
   }

   void leaveBookmark() {
      auto key = pick( keyRange_ );
      auto known = model_.rankOf.find( key );
      auto at = map_.iteratorAt( makeKey< Key >( key ) );
      ASSERT_EQ( at == map_.end(), known == model_.rankOf.end() );
      if( known != model_.rankOf.end() ) {
         bookmarks_.push_back( { at, known->second, true } );
      }
   }

   void compareAll() {
      auto const & map = map_;
      auto expected = model_.members.begin();
      for( auto const & [ key, value ] : map ) {
         ASSERT_EQ( key, makeKey< Key >( expected->second.key ) );
         ASSERT_EQ( *map.find( key ), value );
         ++expected;
      }
      ASSERT_EQ( expected, model_.members.end() );
      if( !model_.members.empty() ) {
         ASSERT_EQ( map.first()->key, makeKey< Key >( model_.members.begin()->second.key ) );
      }
   }

   std::mt19937 random_;
   int keyRange_;
   int insertBias_ = 60;
   int budget_ = 0;
   Map map_;
   Model model_;
   std::vector< Bookmark > bookmarks_;
};

// Many keys make it grow in several steps, and close up what they leave in several places.
template< class Map, bool ordered = false >
void
runTwins( int manyKeys = 600 ) {
   for( unsigned seed = 1; seed <= 12; ++seed ) {
      for( int keyRange : { 3, 30, 600, seed < 4 ? manyKeys : 100 } ) {
         SCOPED_TRACE( "seed " + std::to_string( seed ) + ", keys below " +
                       std::to_string( keyRange ) );
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
   runTwins< HashMap< CrowdedKey< 60 >, Box > >( 3000 );
}

// Keys that were all alike to a hash that everybody knows: they are not, to that of this process.
TEST( KivContainers, craftedKeysDoNotCrowd ) {
   std::set< std::size_t > places;
   int crafted = 0;
   for( std::uint64_t word = 0; crafted != 200; ++word ) {
      if( Kiv::hashMix( word ^ 0x9e3779b97f4a7c15, 0xd6e8feb86659fd93 ) % 4096 == 0 ) {
         places.insert( Kiv::hashOf( word ) % 4096 );
         ++crafted;
      }
   }
   EXPECT_GT( places.size(), 150u );
   // Texts, whatever their length; and an empty one beside one that has a zero.
   std::set< std::size_t > texts;
   for( std::size_t length = 0; length != 100; ++length ) {
      for( std::size_t at = 0; at != length + 1; ++at ) {
         std::string text( length, '\0' );
         if( at != length ) {
            text[ at ] = 'x';
         }
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
            if constexpr( requires { sequence.enq( Box() ); } ) {
               sequence.enq( std::make_unique< int >( next ) );
            } else {
               sequence.push( std::make_unique< int >( next ) );
            }
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
runSequences( void ( Sequence::*add )( Box ) ) {
   for( unsigned seed = 1; seed <= 60; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      std::mt19937 random( seed );
      Sequence sequence;
      std::vector< int > model;
      int next = 0;
      for( int i = 0; i < 30; ++i ) {
         ( sequence.*add )( std::make_unique< int >( next ) );
         model.push_back( next++ );
         walkSequence( sequence, model, random, next, 0 );
         if( ::testing::Test::HasFatalFailure() ) {
            return;
         }
      }
      for( std::uint32_t i = 0; i < sequence.size(); ++i ) {
         ASSERT_EQ( *sequence.at( i ), model[ i ] );
      }
   }
}

} // namespace

TEST( KivContainers, queueAndStackAreAsTheirModels ) {
   runSequences< Queue< Box > >( &Queue< Box >::enq );
   runSequences< Stack< Box > >( &Stack< Box >::push );
}

TEST( KivContainers, queueAndStackEnds ) {
   Queue< int > queue;
   Stack< std::string > stack;
   for( int i = 0; i < 5; ++i ) {
      queue.enq( i );
      stack.push( std::to_string( i ) );
   }
   EXPECT_EQ( queue.front(), 0 );
   EXPECT_EQ( queue.back(), 4 );
   EXPECT_EQ( stack.top(), "4" );
   EXPECT_EQ( stack.bottom(), "0" );
   EXPECT_EQ( queue.erase( 3 ), 1u );
   EXPECT_EQ( queue.erase( 3 ), 0u );
   EXPECT_EQ( queue.at( 3 ), 4 );
   auto copy = queue;
   EXPECT_EQ( copy, queue );
   copy.back() = 7;
   EXPECT_FALSE( copy == queue );
   auto moved = std::move( queue );
   EXPECT_EQ( moved.size(), 4u );
   moved.clear();
   EXPECT_EQ( moved, Queue< int >() );

   struct {
      std::function< void() > act;
      char const * text;
   } const faults[] = {
         { [ & ] { moved.deq(); }, "deq of an empty queue" },
         { [ & ] { moved.front(); }, "front of an empty queue" },
         { [ & ] { moved.back(); }, "back of an empty queue" },
         { [ & ] { copy.at( 4 ); }, "index 4 is beyond a queue of size 4" },
         { [] { Stack< int >().pop(); }, "pop of an empty stack" },
         { [] { Stack< int >().top(); }, "top of an empty stack" },
         { [] { Stack< int >().bottom(); }, "bottom of an empty stack" },
   };
   for( auto const & fault : faults ) {
      try {
         fault.act();
         ADD_FAILURE() << "no " << fault.text;
      } catch( Kiv::Exception const & e ) {
         EXPECT_STREQ( e.what(), fault.text );
      }
   }
}

namespace {

// One face for all that can be walked.
template< class Sequence >
struct Numbers {
   std::unique_ptr< Sequence > in = std::make_unique< Sequence >();

   void add( int number ) {
      if constexpr( requires { in->enq( number ); } ) {
         in->enq( number );
      } else {
         in->tryEmplace( number, number );
      }
   }
   auto at( int number ) { return std::ranges::next( in->begin(), number ); }
   static int valueOf( auto const & at ) {
      if constexpr( requires { at->value; } ) {
         return at->value;
      } else {
         return *at;
      }
   }
};

template< class Sequence >
void
endAndGo() {
   Numbers< Sequence > numbers;
   numbers.add( 0 );
   for( int i = 1; i < 40; ++i ) {
      auto ended = ++numbers.at( i - 1 );
      ASSERT_TRUE( ended == numbers.in->end() );
      numbers.add( i );
      ASSERT_EQ( numbers.valueOf( ++ended ), i ) << "it goes on with what is added";
   }
   // Iterators move with the members, and are at their end when those go with their collection.
   auto at = numbers.at( 5 );
   EXPECT_TRUE( at == numbers.at( 5 ) );
   EXPECT_FALSE( at == numbers.at( 6 ) );
   auto const * place = &*at;
   auto moved = std::move( *numbers.in );
   EXPECT_TRUE( numbers.in->empty() );
   EXPECT_EQ( &*at, place );
   moved.erase( 6 );
   EXPECT_EQ( numbers.valueOf( ++at ), 7 );
   auto const copy = moved;
   EXPECT_EQ( copy, moved );
   moved = {};
   EXPECT_TRUE( at == moved.end() );
   EXPECT_EQ( copy.size(), 39u );

   numbers.add( 1 );
   numbers.add( 2 );
   int visits = 0;
   for( [[maybe_unused]] auto & member : *numbers.in ) {
      ++visits;
      numbers.in.reset();
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
   explicit Last( std::function< void() > a = {} ) : act( std::move( a ) ) {}
   Last( Last const & ) = delete;
   Last & operator=( Last const & ) = delete;
   ~Last() {
      if( act ) {
         act();
      }
   }
   std::function< void() > act;
};
using LastPtr = std::shared_ptr< Last >;

// Everything that lets a member go, while what the member owns uses the map it goes from.
template< class Map >
void
letGo() {
   enum Way { erase, extract, assign, clear, clearInWalk, destroy };
   enum Deed { inserts, erasesOthers, clears, insertsSame };
   for( auto way : { erase, extract, assign, clear, clearInWalk, destroy } ) {
      for( auto deed : { inserts, erasesOthers, clears, insertsSame } ) {
         SCOPED_TRACE( std::to_string( way ) + ", " + std::to_string( deed ) );
         auto map = std::make_unique< Map >();
         int done = 0;
         auto act = [ &m = *map, &done, deed ] {
            ++done;
            if( deed == clears ) {
               m.clear();
            } else if( deed == insertsSame ) {
               m.tryEmplace( 1, std::make_shared< Last >() );
            }
            for( int i = 2; i < 200; ++i ) {
               if( deed == inserts ) {
                  m.insertOrAssign( i, std::make_shared< Last >() );
               } else if( deed == erasesOthers ) {
                  m.erase( i );
               }
            }
         };
         for( int i = 0; i < 100; ++i ) {
            map->tryEmplace( i, i == 1 ? std::make_shared< Last >( act ) : LastPtr() );
         }
         switch( way ) {
         case erase:
            EXPECT_TRUE( map->erase( 1 ) );
            break;
         case extract:
            EXPECT_TRUE( map->extract( 1 ) );
            break;
         case assign:
            map->insertOrAssign( 1, LastPtr() );
            break;
         case clear:
            map->clear();
            break;
         case clearInWalk:
            for( auto & member : *map ) {
               if( member.key == 0 ) {
                  map->clear();
               }
            }
            break;
         case destroy:
            map.reset();
            break;
         }
         EXPECT_EQ( done, 1 );
         if( map && ( way == erase || way == extract ) ) {
            auto const expected = deed == inserts        ? 199u
                                  : deed == erasesOthers ? 1u
                                  : deed == clears       ? 0u
                                                         : 100u;
            EXPECT_EQ( map->size(), expected );
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

   HashSet< LastPtr > set; // keys may, too
   auto * key = new Last( [ & ] { set.clear(); } );
   set.insert( LastPtr( key ) );
   for( int i = 0; i < 10; ++i ) {
      set.insert( std::make_shared< Last >() );
   }
   set.erase( *set.first() );
   EXPECT_TRUE( set.empty() );
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
   EXPECT_THROW( map.tryEmplace( 0, -1 ), std::runtime_error );
   for( int i = 0; i < 50; ++i ) {
      EXPECT_EQ( map.tryEmplace( i, i ).value->value, i );
      EXPECT_THROW( map.tryEmplace( 1000 + i, -1 ), std::runtime_error );
      EXPECT_FALSE( map.tryEmplace( i, -1 ).inserted ) << "made for nothing";
   }
   map.erase( 7 );
   EXPECT_THROW( map.tryEmplace( 7, -1 ), std::runtime_error );
   EXPECT_EQ( map.size(), 49u );
   EXPECT_EQ( map.tryEmplace( 7, 70 ).value->value, 70 );
   int sum = 0;
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

namespace {

// Lets each allocation of each insertion fail once.
template< class Map >
void
failToAllocate() {
   Map map;
   int failures = 0;
   for( int key = 0; key < 5000; ++key ) {
      for( long works = 0; !map.has( key ); ++works ) {
         allocationsLeft = works;
         try {
            map.tryEmplace( key, key );
            allocationsLeft = -1;
         } catch( std::bad_alloc const & ) {
            allocationsLeft = -1;
            ++failures;
            int seen = 0;
            for( auto const & member : map ) {
               ASSERT_EQ( member.key, seen++ );
               ASSERT_EQ( map.find( member.key ), &member.value );
            }
            ASSERT_EQ( seen, key );
         }
      }
   }
   ASSERT_EQ( map.size(), 5000u );
   EXPECT_GT( failures, 20 );
}

} // namespace

TEST( KivContainers, failedAllocationChangesNothing ) { failToAllocate< HashMap< int, int > >(); }

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

   HashSet< int > s, t;
   for( int i = 0; i < 100; ++i ) {
      s.insert( i );
      t.insert( 99 - i );
   }
   EXPECT_EQ( s, t );
   t.erase( 5 );
   EXPECT_FALSE( s == t );
   t.insert( 200 );
   EXPECT_FALSE( s == t );
}

TEST( KivContainers, stringsAreFoundByView ) {
   HashMap< std::string, int > hash;
   OrderedMap< std::string, int > ordered;
   std::string_view const text = "Ethernet1,Ethernet2";
   hash.tryEmplace( text.substr( 0, 9 ), 1 );
   ordered.tryEmplace( text.substr( 0, 9 ), 1 );
   EXPECT_EQ( *hash.find( "Ethernet1" ), 1 );
   EXPECT_EQ( *ordered.find( std::string( "Ethernet1" ) ), 1 );
   EXPECT_FALSE( hash.has( text.substr( 10 ) ) );
   EXPECT_FALSE( ordered.erase( text.substr( 10 ) ) );
   EXPECT_TRUE( hash.erase( hash.first()->key ) ) << "the key may be the member's own";
   EXPECT_TRUE( ordered.erase( ordered.first()->key ) );
}

TEST( KivContainers, orderedMapBounds ) {
   OrderedMap< int, char > map;
   EXPECT_EQ( map.first(), nullptr );
   EXPECT_EQ( map.last(), nullptr );
   EXPECT_TRUE( map.lowerBound( 0 ) == map.end() );
   for( int key : { 30, 10, 20 } ) {
      map.tryEmplace( key, 'x' );
   }
   EXPECT_EQ( map.first()->key, 10 );
   EXPECT_EQ( map.last()->key, 30 );
   EXPECT_EQ( map.lowerBound( 20 )->key, 20 );
   EXPECT_EQ( map.lowerBound( 21 )->key, 30 );
   EXPECT_TRUE( map.lowerBound( 31 ) == map.end() );

   // What comes in before the walk's position is not seen, what comes in behind it is.
   std::vector< int > seen;
   for( auto & member : map ) {
      auto key = member.key;
      seen.push_back( key );
      if( key == 20 ) {
         map.clear();
         map.tryEmplace( 5, 'x' );
         map.tryEmplace( 20, 'x' );
         map.tryEmplace( 25, 'x' );
      }
   }
   EXPECT_EQ( seen, ( std::vector{ 10, 20, 25 } ) );
}
