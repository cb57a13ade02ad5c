// SPDX-License-Identifier: Apache-2.0
#pragma once

// The order of insertion of Kiv::HashMap: slot numbers, with holes where members were removed.
//
// They stand in chunks that are linked. The last one is appended to; when it is full, its holes are
// squeezed out if they are half of it, otherwise another follows. A small collection has one chunk,
// which is exchanged for a larger one until it has full size. Members leave from anywhere: a chunk
// that nobody is left in goes, and one with few is joined with a neighbour, if both have room in
// one. So no write moves more than the members of one chunk, and of two neighbours at least one is
// more than a third full.
//
// Whoever arranges chunks anew has to tell those who stand in them; and `moved( slot, number )` is
// told of each slot that gets the place of that number.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

namespace Kiv::Detail {

struct HashChunk {
   HashChunk * previous = nullptr;
   HashChunk * next = nullptr;
   std::uint32_t firstNumber = 0; // of its places
   std::uint32_t room = 0;
   std::uint32_t end = 0; // of the places that were given away
   std::uint32_t holes = 0;

   std::uint32_t live() const { return end - holes; }

   // They follow the chunk in memory, one more than it has room for. Those that were not given away
   // are holes too: a look at a place is enough to know whether somebody lives there.
   std::uint32_t * slots() { return reinterpret_cast< std::uint32_t * >( this + 1 ); }
   std::uint32_t const * slots() const {
      return reinterpret_cast< std::uint32_t const * >( this + 1 );
   }
};

// What those stand in who stand in no chunk, so that nobody has to ask. It has nothing but holes, as
// many as there are positions in a block.
struct HashNothing {
   HashChunk chunk;
   std::uint32_t holes[ 8 ] = {};

   static HashNothing const it;
};
inline constexpr HashNothing HashNothing::it{};

struct HashPlace {
   HashChunk const * chunk = &HashNothing::it.chunk;
   std::uint32_t offset = 0;

   std::uint32_t slot() const { return chunk->slots()[ offset ]; }
   bool isLive() const { return slot() != 0; }
   bool isBehindChunk() const { return offset >= chunk->end; }
   friend bool operator==( HashPlace, HashPlace ) = default;
};

class HashOrder {
 public:
   static constexpr std::uint32_t hole = 0; // no slot has this number

   HashOrder() = default;
   HashOrder( HashOrder const & ) = delete;
   HashOrder & operator=( HashOrder const & ) = delete;
   ~HashOrder() {
      for( auto * chunk : chunks_ ) {
         ::operator delete( chunk );
      }
   }

   void swap( HashOrder & other ) noexcept {
      std::swap( chunks_, other.chunks_ );
      std::swap( first_, other.first_ );
      std::swap( last_, other.last_ );
      std::swap( spare_, other.spare_ );
   }

   // Nobody lives before it. The end if nobody lives at all.
   HashPlace first() const { return first_; }
   HashPlace end() const { return last_ ? HashPlace{ last_, last_->end } : HashPlace{}; }
   HashPlace place( std::uint32_t number ) const {
      return { chunks_[ number / fullRoom ], number % fullRoom };
   }

   // The first place from this one on that somebody lives at, the end when there is none.
   static HashPlace liveFrom( HashPlace place ) {
      for( ;; ) {
         for( ; !place.isBehindChunk(); ++place.offset ) {
            if( place.isLive() ) {
               return place;
            }
         }
         if( !place.chunk->next ) {
            return place;
         }
         place = { place.chunk->next, 0 };
      }
   }

   bool isFull() const { return !last_ || last_->end == last_->room; }

   // Returns the number of the place. Not when it is full.
   std::uint32_t append( std::uint32_t slot ) {
      auto const offset = last_->end++;
      last_->slots()[ offset ] = slot;
      return last_->firstNumber + offset;
   }

   // Returns the chunk that has one less.
   HashChunk & remove( std::uint32_t number ) {
      auto & chunk = *chunks_[ number / fullRoom ];
      chunk.slots()[ number % fullRoom ] = hole;
      ++chunk.holes;
      if( first_ == HashPlace{ &chunk, number % fullRoom } ) {
         first_ = liveFrom( first_ );
      }
      return chunk;
   }

   // When it is full: makes sure of room, of which arrangeLast() then makes use. If this throws,
   // nothing has changed.
   void addRoom() {
      if( last_ && last_->live() <= last_->room / 2 ) {
         return;
      }
      auto * chunk = newChunk();
      chunk->previous = last_;
      if( last_ ) {
         last_->next = chunk;
      } else {
         first_ = { chunk, 0 };
      }
      last_ = chunk;
   }

   template< class Moved >
   void arrangeLast( Moved const & moved ) {
      auto * small = last_->previous;
      if( small && small->room < fullRoom ) {
         // It is the only one beside the last, which takes its number over.
         std::swap( small->firstNumber, last_->firstNumber );
         std::swap( chunks_[ 0 ], chunks_[ 1 ] );
         std::copy_n( small->slots(), small->end, last_->slots() );
         last_->end = small->end;
         last_->holes = small->holes;
         drop( *small );
      } else {
         pour( *last_, *last_, moved );
      }
      findFirst();
   }

   // Whether there is something to arrange about a chunk that somebody has just been removed from.
   bool isSparse( HashChunk const & chunk ) const {
      return chunk.live() <= few &&
             ( chunk.live() == 0 || joinsNext( chunk ) || joinsPrevious( chunk ) );
   }

   template< class Moved >
   void arrangeSparse( HashChunk & chunk, Moved const & moved ) {
      if( chunk.live() == 0 && &chunk != last_ ) {
         drop( chunk );
      } else if( joinsNext( chunk ) ) {
         join( chunk, *chunk.next, moved );
      } else if( joinsPrevious( chunk ) ) {
         join( *chunk.previous, chunk, moved );
      } else {
         pour( chunk, chunk, moved );
      }
      findFirst();
   }

 private:
   static constexpr std::uint32_t firstRoom = 8;
   static constexpr std::uint32_t fullRoom = 1024;
   // Joining a chunk of a few with another leaves room enough for its cost to be shared by many.
   static constexpr std::uint32_t few = fullRoom * 3 / 8;
   static constexpr std::uint32_t many = 2 * few;

   static bool joinsNext( HashChunk const & chunk ) {
      return chunk.next && chunk.live() + chunk.next->live() <= many;
   }
   static bool joinsPrevious( HashChunk const & chunk ) {
      return chunk.previous && chunk.live() + chunk.previous->live() <= many;
   }

   HashChunk * newChunk() {
      if( spare_ ) {
         auto * chunk = std::exchange( spare_, spare_->next );
         auto const number = chunk->firstNumber;
         return makeChunk( chunk, number, fullRoom );
      }
      if( chunks_.size() == chunks_.capacity() ) {
         chunks_.reserve( std::max< std::size_t >( 2, 2 * chunks_.size() ) );
      }
      auto const room = last_ ? std::min( 2 * last_->room, fullRoom ) : firstRoom;
      auto const bytes = sizeof( HashChunk ) + ( room + 1 ) * sizeof( std::uint32_t );
      auto const number = static_cast< std::uint32_t >( chunks_.size() ) * fullRoom;
      return chunks_.emplace_back( makeChunk( ::operator new( bytes ), number, room ) );
   }

   static HashChunk * makeChunk( void * memory, std::uint32_t number, std::uint32_t room ) {
      auto * chunk = ::new( memory ) HashChunk{ .firstNumber = number, .room = room };
      std::fill_n( chunk->slots(), room + 1, hole );
      return chunk;
   }

   // Appends all that is left in one, which is then empty, to the other, which may be the same.
   template< class Moved >
   static void pour( HashChunk & from, HashChunk & to, Moved const & moved ) {
      auto const end = std::exchange( from.end, 0 );
      from.holes = 0;
      for( std::uint32_t offset = 0; offset < end; ++offset ) {
         if( auto slot = from.slots()[ offset ]; slot != hole ) {
            moved( slot, to.firstNumber + to.end );
            to.slots()[ to.end++ ] = slot;
         }
      }
      if( &from == &to ) {
         std::fill( to.slots() + to.end, to.slots() + end, hole );
      }
   }

   template< class Moved >
   void join( HashChunk & left, HashChunk & right, Moved const & moved ) {
      pour( left, left, moved );
      pour( right, left, moved );
      drop( right );
   }

   // It has a neighbour. Full ones are kept, with their numbers.
   void drop( HashChunk & chunk ) {
      if( chunk.previous ) {
         chunk.previous->next = chunk.next;
      }
      ( chunk.next ? chunk.next->previous : last_ ) = chunk.previous;
      if( first_.chunk == &chunk ) {
         first_ = { chunk.next, 0 };
      }
      if( chunk.room == fullRoom ) {
         chunk.next = std::exchange( spare_, &chunk );
      } else {
         ::operator delete( chunks_.back() );
         chunks_.pop_back();
      }
   }

   void findFirst() { first_ = liveFrom( { first_.chunk, 0 } ); }

   std::vector< HashChunk * > chunks_; // by the numbers of their places
   HashPlace first_;
   HashChunk * last_ = nullptr;
   HashChunk * spare_ = nullptr; // those that were dropped, linked by `next`
};

} // namespace Kiv::Detail
