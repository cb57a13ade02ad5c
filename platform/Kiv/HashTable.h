// SPDX-License-Identifier: Apache-2.0
#pragma once

// What Kiv::HashMap and Kiv::HashSet point to once they hold something.
//
// Three parts. Slots: where members live, in segments that double and never move, so a member
// stays where it is for its whole life; freed slots are used again. Places: the order of
// insertion, an array of slot numbers with holes where members were removed, squeezed when it is
// full and half empty. Index: from a hash to slot numbers. A cursor stands on a place, and is told
// when places change.

#include "Kiv/Cursor.h"
#include "Kiv/Exception.h"
#include "Kiv/HashIndex.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kiv::Detail {

// Member has a `key`; a `value` beside it is the map's business.
template< class Member >
class HashStorage {
 public:
   static constexpr std::uint32_t hole = 0; // no slot has this number

   struct Entry {
      union {
         Member member;
      };
      std::uint32_t place; // in the order of insertion; of a free slot: the next free slot
      std::uint32_t hash;

      template< class... Args >
      explicit Entry( std::uint32_t entryHash, Args &&... args )
            : member( std::forward< Args >( args )... ), place( 0 ), hash( entryHash ) {}
      ~Entry() {} // the storage destroys the member
   };

   HashStorage() = default;
   HashStorage( HashStorage const & ) = delete;
   HashStorage & operator=( HashStorage const & ) = delete;
   HashStorage( HashStorage && other ) noexcept { swap( other ); }
   ~HashStorage() {
      destroyMembers();
      for( std::size_t i = 0; i < segments_.size(); ++i ) {
         std::allocator< Entry >().deallocate( segments_[ i ], segmentSlots( i ) );
      }
   }

   void swap( HashStorage & other ) noexcept {
      std::swap( index_, other.index_ );
      std::swap( segments_, other.segments_ );
      std::swap( places_, other.places_ );
      std::swap( live_, other.live_ );
      std::swap( firstPlace_, other.firstPlace_ );
      std::swap( endPlace_, other.endPlace_ );
      std::swap( placesRoom_, other.placesRoom_ );
      std::swap( freeSlot_, other.freeSlot_ );
      std::swap( nextSlot_, other.nextSlot_ );
      std::swap( endSlot_, other.endSlot_ );
   }

   std::uint32_t size() const { return live_; }
   std::uint32_t endPlace() const { return endPlace_; }
   // Nothing lives before it. Never beyond endPlace().
   std::uint32_t firstPlace() const { return firstPlace_; }

   // The first place from `place` on that somebody lives at, endPlace() when there is none.
   std::uint32_t liveFrom( std::uint32_t place ) const {
      while( place < endPlace_ && places_[ place ] == hole ) {
         ++place;
      }
      return place;
   }

   Entry & entryAtPlace( std::uint32_t place ) const { return entryAt( places_[ place ] ); }
   std::uint32_t slotAtPlace( std::uint32_t place ) const { return places_[ place ]; }
   std::uint32_t placeOfSlot( std::uint32_t slot ) const { return entryAt( slot ).place; }

   template< class Key >
   Entry * find( std::uint32_t hash, Key const & key ) const {
      Entry * found = nullptr;
      index_.find( hash, [ & ]( std::uint32_t slot ) {
         found = &entryAt( slot );
         if( found->member.key == key ) [[likely]] {
            return true;
         }
         found = nullptr;
         return false;
      } );
      return found;
   }

   bool placesAreFull() const { return endPlace_ == placesRoom_; }

   // Appends a member whose key is not here, made from args. Needs a place (!placesAreFull()).
   // When making it throws, nothing has changed.
   template< class... Args >
   Entry & append( std::uint32_t hash, Args &&... args ) {
      if( live_ == index_.limit() ) [[unlikely]] {
         growIndex();
      }
      if( freeSlot_ == hole && nextSlot_ == endSlot_ ) [[unlikely]] {
         addSegment();
      }
      auto const reuse = freeSlot_ != hole;
      auto const slot = reuse ? freeSlot_ : nextSlot_;
      auto & room = entryAt( slot );
      auto const nextFree = reuse ? room.place : hole;
      try {
         ::new( static_cast< void * >( &room ) ) Entry( hash, std::forward< Args >( args )... );
      } catch( ... ) {
         room.place = nextFree;
         throw;
      }
      if( reuse ) {
         freeSlot_ = nextFree;
      } else {
         ++nextSlot_;
      }
      index_.insert( hash, slot );
      room.place = endPlace_;
      places_[ endPlace_++ ] = slot;
      ++live_;
      return room;
   }

   // Takes an entry out of the order and the index; its member still lives, in the slot that is
   // returned, until release().
   std::uint32_t unlink( Entry & entry ) {
      auto const slot = places_[ entry.place ];
      index_.erase( entry.hash, slot );
      places_[ entry.place ] = hole;
      --live_;
      if( entry.place == firstPlace_ ) {
         firstPlace_ = liveFrom( firstPlace_ );
      }
      return slot;
   }

   void release( std::uint32_t slot ) {
      auto & entry = entryAt( slot );
      entry.place = freeSlot_;
      freeSlot_ = slot;
   }

   // At least half of the places are holes: what a squeeze costs is then paid by as many appends.
   bool squeezeIsWorthIt() const { return placesRoom_ != 0 && live_ <= placesRoom_ / 2; }

   void growPlaces() {
      auto room = placesRoom_ == 0 ? firstSegmentSlots : placesRoom_ * 2;
      auto larger = std::make_unique_for_overwrite< std::uint32_t[] >( room );
      std::copy( places_.get(), places_.get() + endPlace_, larger.get() );
      places_ = std::move( larger );
      placesRoom_ = room;
   }

   void squeezePlaces() {
      std::uint32_t to = 0;
      for( auto from = firstPlace_; from < endPlace_; ++from ) {
         if( auto slot = places_[ from ]; slot != hole ) {
            entryAt( slot ).place = to;
            places_[ to++ ] = slot;
         }
      }
      firstPlace_ = 0;
      endPlace_ = to;
   }

 private:
   static constexpr std::uint32_t firstSegmentSlots = 4;
   static constexpr std::uint32_t maxMembers = 1u << 30;

   static std::size_t segmentSlots( std::size_t i ) {
      return std::size_t{ firstSegmentSlots } << i;
   }

   // Slot numbers start at 4, so that the highest bit of a number names its segment and the rest
   // is the position in it.
   Entry & entryAt( std::uint32_t slot ) const {
      auto high = 31u - static_cast< unsigned >( std::countl_zero( slot ) );
      return segments_[ high - 2 ][ slot ^ ( 1u << high ) ];
   }

   void addSegment() {
      auto slots = segmentSlots( segments_.size() );
      segments_.reserve( segments_.size() + 1 );
      segments_.push_back( std::allocator< Entry >().allocate( slots ) );
      endSlot_ += static_cast< std::uint32_t >( slots );
   }

   void growIndex() {
      if( live_ >= maxMembers ) {
         throw Exception( "a hash collection holds at most 1073741824 members" );
      }
      auto larger = HashIndex::withRoomFor( live_ + 1 );
      for( auto place = firstPlace_; place < endPlace_; ++place ) {
         if( auto slot = places_[ place ]; slot != hole ) {
            larger.insert( entryAt( slot ).hash, slot );
         }
      }
      index_ = std::move( larger );
   }

   void destroyMembers() {
      if constexpr( !std::is_trivially_destructible_v< Member > ) {
         for( auto place = firstPlace_; place < endPlace_; ++place ) {
            if( auto slot = places_[ place ]; slot != hole ) {
               std::destroy_at( &entryAt( slot ).member );
            }
         }
      }
   }

   HashIndex index_;
   std::vector< Entry * > segments_;
   std::unique_ptr< std::uint32_t[] > places_;
   std::uint32_t live_ = 0;
   std::uint32_t firstPlace_ = 0;
   std::uint32_t endPlace_ = 0;
   std::uint32_t placesRoom_ = 0;
   std::uint32_t freeSlot_ = hole;
   std::uint32_t nextSlot_ = firstSegmentSlots;
   std::uint32_t endSlot_ = firstSegmentSlots;
};

template< class Member >
class HashTable;

// A position in a table: on a member, or (its member was removed, or it has walked off the end)
// before the next member that lives or is yet to come.
template< class Member >
class HashCursor : public CursorLink {
 public:
   using Table = HashTable< Member >;

   HashCursor() = default;
   HashCursor( Table * table, std::uint32_t place ) : table_( table ), place_( place ) { enrol(); }
   HashCursor( HashCursor const & other )
         : CursorLink(), table_( other.table_ ), place_( other.place_ ), before_( other.before_ ) {
      enrol();
   }
   HashCursor & operator=( HashCursor const & other ) {
      if( this != &other ) {
         unlink();
         table_ = other.table_;
         place_ = other.place_;
         before_ = other.before_;
         enrol();
      }
      return *this;
   }

   // Steps on to the nearest member, and says whether there is none.
   bool atEnd() {
      if( !table_ ) {
         return true;
      }
      auto & storage = table_->storage;
      auto place = storage.liveFrom( place_ );
      if( place == storage.endPlace() ) {
         return true;
      }
      place_ = place;
      before_ = false;
      return false;
   }

   void advance() {
      place_ += !before_;
      before_ = false;
   }

   auto & entry() const { return table_->storage.entryAtPlace( place_ ); }
   Member & member() const { return entry().member; }

   bool sameAs( HashCursor & other ) {
      auto end = atEnd();
      return end == other.atEnd() &&
             ( end || ( table_ == other.table_ && place_ == other.place_ ) );
   }

 private:
   friend HashTable< Member >;

   void enrol() {
      if( table_ ) {
         link( table_->cursors );
      }
   }

   Table * table_ = nullptr;
   std::uint32_t place_ = 0;
   bool before_ = false; // the member it stood on is gone: the next step is onto place_ itself
};

template< class Member >
class HashTable {
 public:
   using Storage = HashStorage< Member >;
   using Cursor = HashCursor< Member >;
   using Entry = typename Storage::Entry;

   HashTable() = default;
   HashTable( HashTable const & ) = delete;
   HashTable & operator=( HashTable const & ) = delete;
   // Iterators that are left are at their end.
   ~HashTable() {
      while( cursors ) {
         auto & cursor = static_cast< Cursor & >( *cursors );
         cursor.unlink();
         cursor.table_ = nullptr;
      }
   }

   template< class... Args >
   Entry & append( std::uint32_t hash, Args &&... args ) {
      if( storage.placesAreFull() ) [[unlikely]] {
         makePlace();
      }
      return storage.append( hash, std::forward< Args >( args )... );
   }

   // The member lives on in the returned slot until storage.release().
   std::uint32_t unlink( Entry & entry ) {
      auto slot = storage.unlink( entry );
      if( storage.size() == 0 ) {
         squeeze();
      }
      return slot;
   }

   // Leaves an empty table, with what was in it in the returned storage.
   Storage takeAll() {
      Storage all = std::move( storage );
      forEachCursor( []( Cursor & cursor ) {
         cursor.place_ = 0;
         cursor.before_ = true;
      } );
      return all;
   }

   Storage storage;
   CursorLink * cursors = nullptr;

 private:
   template< class Do >
   void forEachCursor( Do const & act ) {
      for( auto link = cursors; link; link = link->nextLink() ) {
         act( static_cast< Cursor & >( *link ) );
      }
   }

   void makePlace() {
      if( storage.squeezeIsWorthIt() ) {
         squeeze();
      } else {
         storage.growPlaces();
      }
   }

   // Cursors follow the member that they stand on, or before. Meanwhile they hold its slot.
   void squeeze() {
      forEachCursor( [ & ]( Cursor & cursor ) {
         auto live = storage.liveFrom( cursor.place_ );
         cursor.before_ = cursor.before_ || live != cursor.place_;
         cursor.place_ = live < storage.endPlace() ? storage.slotAtPlace( live ) : Storage::hole;
      } );
      storage.squeezePlaces();
      forEachCursor( [ & ]( Cursor & cursor ) {
         cursor.place_ = cursor.place_ != Storage::hole ? storage.placeOfSlot( cursor.place_ )
                                                        : storage.endPlace();
      } );
   }
};

} // namespace Kiv::Detail
