// SPDX-License-Identifier: Apache-2.0
#pragma once

// What Kiv::HashMap and Kiv::HashSet point to once they had more members than a block has room for
// (HashBlock.h).
//
// Three parts. Slots: where members live, in segments that double and never move, so a member stays
// where it is for its whole life; freed slots are used again. Order: the numbers of the slots in the
// order of insertion (HashOrder.h). Index: from a hash to slot numbers (HashIndex.h). A cursor stands
// on a place in the order, and is told when places change.
//
// Each of them grows and shrinks in parts, so that no single operation takes much longer than others.

#include "Kiv/Cursor.h"
#include "Kiv/Exception.h"
#include "Kiv/Hash.h"
#include "Kiv/HashBlock.h"
#include "Kiv/HashIndex.h"
#include "Kiv/HashOrder.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kiv::Detail {

template< class Key >
inline constexpr bool keyIsSmall = std::is_trivially_copyable_v< Key > && sizeof( Key ) <= 16;

template< class Key >
std::uint32_t
tableHash( Key const & key ) {
   return static_cast< std::uint32_t >( Kiv::hashOf( key ) );
}

// Member has a `key`; a `value` beside it is the map's business.
template< class Member >
class HashStorage {
   using Block = HashBlock< Member >;

 public:
   static constexpr std::uint32_t hole = HashOrder::hole; // no slot has this number

   HashStorage() = default;
   HashStorage( HashStorage const & ) = delete;
   HashStorage & operator=( HashStorage const & ) = delete;
   HashStorage( HashStorage && other ) noexcept { swap( other ); }
   ~HashStorage() {
      destroyMembers();
      for( auto high = firstSegmentBits; high < segments_.size(); ++high ) {
         freeSegment( high );
      }
   }

   void swap( HashStorage & other ) noexcept {
      std::swap( segments_, other.segments_ );
      std::swap( index_, other.index_ );
      order_.swap( other.order_ );
      std::swap( firstNotes_, other.firstNotes_ );
      std::swap( live_, other.live_ );
      std::swap( freeSlot_, other.freeSlot_ );
      std::swap( nextSlot_, other.nextSlot_ );
      std::swap( pauseSlot_, other.pauseSlot_ );
      std::swap( endSlot_, other.endSlot_ );
   }

   // Into one that is empty: a full block as its first segment, with all that live in it, at the
   // places of the same numbers as their positions. When this throws, the block is as it was.
   void adopt( Block & block ) {
      std::uint32_t hashes[ Block::slots ] = {};
      for( std::uint32_t position = 0; position < block.size(); ++position ) {
         hashes[ position ] = tableHash( block.memberAt( block.slotAt( position ) ).key );
      }
      order_.addRoom();
      index_.prepareFor( 2 * endSlot_ );
      segments_.reserve( firstSegmentBits + 2 );
      segments_.resize( firstSegmentBits );
      // Nothing throws from here on.
      segments_.push_back( block.members() );
      endSlot_ *= 2;
      index_.grow( firstSegmentSlots, nextSlot_, endSlot_ );
      nextSlot_ = pauseSlot_ = endSlot_;
      for( auto & note : firstNotes_ ) {
         note.place = isFree;
      }
      for( std::uint32_t position = 0; position < block.size(); ++position ) {
         auto const slot = block.slotAt( position );
         enter( slot, noteOf( slot ), hashes[ position ] );
      }
   }

   std::uint32_t size() const { return live_; }

   HashPlace firstPlace() const { return order_.first(); }
   HashPlace endPlace() const { return order_.end(); }
   HashPlace placeOf( std::uint32_t slot ) const { return order_.place( noteOf( slot ).place ); }

   std::uint32_t hashOfSlot( std::uint32_t slot ) const {
      return hashOf( memberAt( slot ), noteOf( slot ) );
   }

   // Calls `act( slot, hash )` for the slots from `slot` to `end` that somebody lives in. All of them
   // have been in use.
   template< class Do >
   void forEachLive( std::uint32_t slot, std::uint32_t end, Do const & act ) const {
      while( slot < end ) {
         auto const * members = &memberAt( slot );
         auto const * notes = &noteOf( slot );
         auto const count = std::min( end, std::bit_floor( slot ) * 2 ) - slot;
         for( std::uint32_t i = 0; i < count; ++i, ++slot ) {
            if( ( notes[ i ].place & isFree ) == 0 ) {
               act( slot, hashOf( members[ i ], notes[ i ] ) );
            }
         }
      }
   }

   Member & memberAt( std::uint32_t slot ) const { return *memberIn( segments_.data(), slot ); }

   template< class Key >
   Member * find( std::uint32_t hash, Key const & key ) const {
      // Small keys by value: they stay in registers.
      using Wanted = std::conditional_t< keyIsSmall< Key >, Key const, Key const & >;
      struct At {
         Wanted key;
         Member * const * segments;
         Member * operator()( std::uint32_t slot ) const {
            auto * member = memberIn( segments, slot );
            return member->key == key ? member : nullptr;
         }
      };
      return index_.find( hash, At{ key, segments_.data() } );
   }

   // 0 when there is no such key.
   template< class Key >
   std::uint32_t findSlot( std::uint32_t hash, Key const & key ) const {
      return index_.find( hash, [ & ]( std::uint32_t slot ) {
         return memberAt( slot ).key == key ? slot : hole;
      } );
   }

   bool placesAreFull() const { return order_.isFull(); }

   // When places are full: makes sure of some, of which arrangePlaces() then makes use. If this
   // throws, nothing has changed.
   void addPlaces() { order_.addRoom(); }
   void arrangePlaces() { order_.arrangeLast( noteThePlace() ); }

   // Appends a member whose key is not here, made from args. Needs a place (!placesAreFull()). When
   // making it throws, nothing has changed.
   template< class... Args >
   Member & append( std::uint32_t hash, Args &&... args ) {
      if( freeSlot_ == hole && nextSlot_ == pauseSlot_ ) [[unlikely]] {
         prepareSlot();
      }
      auto const slot = freeSlot_ != hole ? freeSlot_ : nextSlot_;
      auto & member = memberAt( slot );
      ::new( static_cast< void * >( &member ) ) Member( std::forward< Args >( args )... );
      auto & note = noteOf( slot );
      if( slot == freeSlot_ ) {
         freeSlot_ = note.place ^ isFree;
      } else {
         ++nextSlot_;
      }
      enter( slot, note, hash );
      proceedWithIndex();
      return member;
   }

   // Takes a member out of the order and the index. It lives on in its slot until release(). Returns
   // the chunk that it was in if its places should be arranged, nullptr otherwise.
   HashChunk * unlink( std::uint32_t slot, std::uint32_t hash ) {
      index_.erase( hash, slot );
      auto & chunk = order_.remove( std::exchange( noteOf( slot ).place, isFree ) );
      --live_;
      proceedWithIndex();
      return order_.isSparse( chunk ) ? &chunk : nullptr;
   }

   void arrangePlaces( HashChunk & sparse ) { order_.arrangeSparse( sparse, noteThePlace() ); }

   // Destroys an unlinked member and frees its slot.
   void release( std::uint32_t slot ) {
      std::destroy_at( &memberAt( slot ) );
      noteOf( slot ).place = freeSlot_ | isFree;
      freeSlot_ = slot;
   }

 private:
   static constexpr unsigned firstSegmentBits = 2;
   static constexpr std::uint32_t firstSegmentSlots = 1u << firstSegmentBits;
   static_assert( firstSegmentSlots == Block::slots && firstSegmentSlots == Block::firstSlot );
   static constexpr std::uint32_t maxMembers = ( 1u << 26 ) - firstSegmentSlots;

   // The hash of a small key is quicker computed than kept.
   static constexpr bool keepsHash = !keyIsSmall< std::remove_cv_t< decltype( Member::key ) > >;
   struct PlaceNote {
      std::uint32_t place; // its number in the order; of a free slot: the next one, and isFree
   };
   struct HashNote : PlaceNote {
      std::uint32_t hash;
   };
   static constexpr std::uint32_t isFree = 1u << 31;
   // What is to be known of a slot beside its member. A segment has them behind all its members, to
   // keep those dense; but for the first one, which is a block, they stand here.
   using Note = std::conditional_t< keepsHash, HashNote, PlaceNote >;
   static_assert( firstSegmentSlots % alignof( Note ) == 0 );

   // A key that is in has had its hash computed before. If that threw now, others would get lost.
   static std::uint32_t hashOf( Member const & member, Note const & note ) noexcept {
      if constexpr( keepsHash ) {
         return note.hash;
      } else {
         return tableHash( member.key );
      }
   }

   // Slot numbers start at 4. The highest bit of a number names its segment, the rest is the
   // position in it.
   static unsigned segmentOf( std::uint32_t slot ) {
      auto number = std::uint64_t{ slot };
#if defined( __x86_64__ )
      // std::countl_zero() within one register. The instruction waits for what its target was before:
      // in a loop of searches that may be what the last one is still loading.
      asm( "bsr %0, %0" : "+r"( number ) );
      return static_cast< unsigned >( number );
#else
      return 63u ^ static_cast< unsigned >( std::countl_zero( number ) );
#endif
   }

   static Member * memberIn( Member * const * segments, std::uint32_t slot ) {
      auto const high = segmentOf( slot );
      return segments[ high ] + ( slot ^ ( std::uint64_t{ 1 } << high ) );
   }

   Note const & noteOf( std::uint32_t slot ) const {
      if( slot < 2 * firstSegmentSlots ) [[unlikely]] {
         return firstNotes_[ slot - firstSegmentSlots ];
      }
      auto const high = segmentOf( slot );
      auto const slots = std::uint64_t{ 1 } << high;
      return reinterpret_cast< Note const * >( segments_[ high ] + slots )[ slot ^ slots ];
   }
   Note & noteOf( std::uint32_t slot ) {
      return const_cast< Note & >( std::as_const( *this ).noteOf( slot ) );
   }

   // Somebody lives in the slot now.
   void enter( std::uint32_t slot, Note & note, std::uint32_t hash ) {
      note.place = order_.append( slot );
      if constexpr( keepsHash ) {
         note.hash = hash;
      }
      index_.insert( hash, slot );
      ++live_;
   }

   auto noteThePlace() {
      return [ this ]( std::uint32_t slot, std::uint32_t place ) { noteOf( slot ).place = place; };
   }

   // In members, as many as have room for the notes too.
   static std::size_t segmentSize( unsigned high ) {
      auto const slots = std::size_t{ 1 } << high;
      return slots + ( slots * sizeof( Note ) + sizeof( Member ) - 1 ) / sizeof( Member );
   }

   static Member * newSegment( unsigned high ) {
      return high == firstSegmentBits ? Block::make()->members()
                                      : std::allocator< Member >().allocate( segmentSize( high ) );
   }
   void freeSegment( unsigned high ) {
      if( high == firstSegmentBits ) {
         Block::of( segments_[ high ] ).free();
      } else {
         std::allocator< Member >().deallocate( segments_[ high ], segmentSize( high ) );
      }
   }

   // For nextSlot_ == pauseSlot_. When this throws, nothing has changed that shows.
   [[gnu::noinline]] void prepareSlot() {
      if( nextSlot_ > maxMembers ) {
         throw Exception( "a hash collection holds at most " + std::to_string( maxMembers ) +
                          " members" );
      }
      if( !index_.isPreparedFor( 2 * endSlot_ ) ) {
         index_.prepareFor( 2 * endSlot_ );
      }
      pauseSlot_ = endSlot_;
      if( nextSlot_ == endSlot_ ) {
         addSegment();
      }
   }

   // As many slots more as there are, at least 4.
   void addSegment() {
      segments_.resize( std::max< std::size_t >( segments_.size(), firstSegmentBits ) );
      segments_.reserve( segments_.size() + 1 );
      auto const high = static_cast< unsigned >( segments_.size() );
      segments_.push_back( newSegment( high ) );
      endSlot_ *= 2;
      index_.grow( firstSegmentSlots, nextSlot_, endSlot_ );
      // Leaves the index enough writes to be prepared, unless there is nothing to come.
      pauseSlot_ = endSlot_ - ( endSlot_ <= maxMembers ? endSlot_ / 32 : 0 );
   }

   void proceedWithIndex() {
      if( index_.proceeds() ) [[unlikely]] {
         index_.proceed( *this );
      }
   }

   void destroyMembers() {
      if constexpr( !std::is_trivially_destructible_v< Member > ) {
         auto place = firstPlace();
         while( place = HashOrder::liveFrom( place ), !place.isBehindChunk() ) {
            std::destroy_at( &memberAt( place.slot() ) );
            ++place.offset;
         }
      }
   }

   std::vector< Member * > segments_; // by the highest bit of the slots in it
   HashIndex index_;
   HashOrder order_;
   Note firstNotes_[ firstSegmentSlots ] = {};
   std::uint32_t live_ = 0;
   std::uint32_t freeSlot_ = hole;
   std::uint32_t nextSlot_ = firstSegmentSlots;
   std::uint32_t pauseSlot_ = firstSegmentSlots; // before it is given away, there is more to do
   std::uint32_t endSlot_ = firstSegmentSlots;
};

template< class Member >
class HashTable;

// A position in a block or a table: on a member, or (its member was removed, or it has walked off the
// end) before the next member that lives or is yet to come.
template< class Member >
class HashCursor : public CursorIn< HashHome< Member > > {
   using Base = CursorIn< HashHome< Member > >;
   using Block = HashBlock< Member >;
   using Table = HashTable< Member >;

 public:
   HashCursor() = default;
   // On the first member from there on.
   HashCursor( Table * table, HashPlace place ) : Base( table ), place_( place ) { atEnd(); }
   HashCursor( Block * block, std::uint32_t position ) : Base( block ) {
      inBlock_ = true;
      place_.offset = position;
      atEnd();
   }

   // Steps on to the nearest member, and says whether there is none.
   bool atEnd() {
      if( place_.isLive() || findNext() ) [[likely]] {
         before_ = false;
         return false;
      }
      return true;
   }

   void advance() {
      place_.offset += !before_;
      before_ = true;
      atEnd();
   }

   // It stands on a member: so it is after !atEnd(), until that is removed.
   Member & member() const {
      // In a block no place is live. A walk has just asked this, and need not ask anything else.
      return place_.isLive() ? table().storage.memberAt( place_.slot() )
                             : block().memberAt( block().slotAt( place_.offset ) );
   }
   // Of a member in a table.
   std::uint32_t hash() const { return table().storage.hashOfSlot( place_.slot() ); }

   bool sameAs( HashCursor & other ) {
      auto end = atEnd();
      return end == other.atEnd() &&
             ( end || ( this->table_ == other.table_ && place_ == other.place_ ) );
   }

   void leave() {
      Base::leave();
      place_ = {};
      inBlock_ = false;
   }

 private:
   friend Block;
   friend Table;

   Block & block() const { return static_cast< Block & >( *this->table_ ); }
   Table & table() const { return static_cast< Table & >( *this->table_ ); }

   bool findNext() {
      if( inBlock_ ) {
         return place_.offset < block().size();
      }
      auto const next = HashOrder::liveFrom( place_ );
      if( next.isBehindChunk() ) {
         return false;
      }
      place_ = next;
      return true;
   }

   HashPlace place_;    // in a block: no chunk, and the position as the offset
   bool before_ = true; // the next step is onto place_ itself
   bool inBlock_ = false;
};

template< class Member >
class HashTable : public HashHome< Member > {
 public:
   using Storage = HashStorage< Member >;
   using Cursor = HashCursor< Member >;

   // Takes a full block over, with all that live and stand in it. When this throws, the block is as it
   // was.
   explicit HashTable( HashBlock< Member > & block ) {
      storage.adopt( block );
      this->cursors.take( block.cursors );
      this->cursors.forEach( [ this ]( Cursor & cursor ) {
         cursor.table_ = this;
         cursor.place_.chunk = storage.endPlace().chunk;
         cursor.inBlock_ = false;
      } );
   }
   HashTable( HashTable const & ) = delete;
   HashTable & operator=( HashTable const & ) = delete;
   // Iterators that are left are at their end before members go.
   ~HashTable() { this->cursors.letAllLeave(); }

   template< class... Args >
   Member & append( std::uint32_t hash, Args &&... args ) {
      if( storage.placesAreFull() ) [[unlikely]] {
         makePlaces();
      }
      return storage.append( hash, std::forward< Args >( args )... );
   }

   // The member lives on in its slot until storage.release().
   void unlink( std::uint32_t slot, std::uint32_t hash ) {
      if( auto * sparse = storage.unlink( slot, hash ) ) [[unlikely]] {
         thinOut( *sparse );
      }
   }

   // Leaves an empty table, with what was in it in the returned storage.
   Storage takeAll() {
      Storage all = std::move( storage );
      this->cursors.forEach( []( Cursor & cursor ) {
         cursor.place_ = {};
         cursor.before_ = true;
      } );
      return all;
   }

   Storage storage;

 private:
   [[gnu::noinline]] void makePlaces() {
      storage.addPlaces();
      rearrange( [ & ] { storage.arrangePlaces(); } );
   }

   [[gnu::noinline]] void thinOut( HashChunk & sparse ) {
      rearrange( [ & ] { storage.arrangePlaces( sparse ); } );
   }

   // Cursors follow the member that they stand on, or before. Meanwhile they hold its slot.
   template< class Do >
   void rearrange( Do const & arrange ) {
      this->cursors.forEach( []( Cursor & cursor ) {
         auto const live = HashOrder::liveFrom( cursor.place_ );
         cursor.before_ = cursor.before_ || live != cursor.place_;
         cursor.place_ = { nullptr, live.isBehindChunk() ? Storage::hole : live.slot() };
      } );
      arrange();
      this->cursors.forEach( [ & ]( Cursor & cursor ) {
         auto const slot = cursor.place_.offset;
         cursor.place_ = slot != Storage::hole ? storage.placeOf( slot ) : storage.endPlace();
      } );
   }
};

} // namespace Kiv::Detail
