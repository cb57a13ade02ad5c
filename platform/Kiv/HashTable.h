// SPDX-License-Identifier: Apache-2.0
#pragma once

// What Kiv::HashMap and Kiv::HashSet point to once they hold something.
//
// Three parts. Slots: where members live, in segments that double and never move, so a member stays
// where it is for its whole life; freed slots are used again. Places: the order of insertion, an
// array of slot numbers with holes where members were removed, squeezed when it is full and half
// empty. Index: from a hash to slot numbers. A cursor stands on a place, and is told when places
// change.

#include "Kiv/Cursor.h"
#include "Kiv/Exception.h"
#include "Kiv/Hash.h"
#include "Kiv/HashIndex.h"

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
 public:
   static constexpr std::uint32_t hole = 0; // no slot has this number

   HashStorage() = default;
   HashStorage( HashStorage const & ) = delete;
   HashStorage & operator=( HashStorage const & ) = delete;
   HashStorage( HashStorage && other ) noexcept { swap( other ); }
   ~HashStorage() {
      destroyMembers();
      for( auto high = firstSegmentBits; high < segments_.size(); ++high ) {
         std::allocator< Member >().deallocate( segments_[ high ], std::size_t{ 1 } << high );
      }
   }

   void swap( HashStorage & other ) noexcept {
      std::swap( index_, other.index_ );
      std::swap( segments_, other.segments_ );
      std::swap( notes_, other.notes_ );
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

   std::uint32_t slotAtPlace( std::uint32_t place ) const { return places_[ place ]; }
   Member & memberAtPlace( std::uint32_t place ) const { return memberAt( places_[ place ] ); }
   std::uint32_t placeOf( std::uint32_t slot ) const { return notes_[ slot ].place; }
   std::uint32_t hashOfSlot( std::uint32_t slot ) const {
      if constexpr( keepsHash ) {
         return notes_[ slot ].hash;
      } else {
         return tableHash( memberAt( slot ).key );
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

   bool placesAreFull() const { return endPlace_ == placesRoom_; }

   // Appends a member whose key is not here, made from args. Needs a place (!placesAreFull()). When
   // making it throws, nothing has changed.
   template< class... Args >
   Member & append( std::uint32_t hash, Args &&... args ) {
      if( freeSlot_ == hole && nextSlot_ == endSlot_ ) [[unlikely]] {
         addSegment();
      }
      auto const slot = freeSlot_ != hole ? freeSlot_ : nextSlot_;
      auto & member = memberAt( slot );
      ::new( static_cast< void * >( &member ) ) Member( std::forward< Args >( args )... );
      auto & note = notes_[ slot ];
      if( slot == freeSlot_ ) {
         freeSlot_ = note.place;
      } else {
         ++nextSlot_;
      }
      note.place = endPlace_;
      if constexpr( keepsHash ) {
         note.hash = hash;
      }
      index_.insert( hash, slot );
      places_[ endPlace_++ ] = slot;
      ++live_;
      return member;
   }

   // Takes a member out of the order and the index. It lives on in its slot until release().
   void unlink( std::uint32_t slot ) {
      auto const place = notes_[ slot ].place;
      index_.erase( hashOfSlot( slot ), slot );
      places_[ place ] = hole;
      --live_;
      if( place == firstPlace_ ) {
         firstPlace_ = liveFrom( firstPlace_ );
      }
   }

   // Destroys an unlinked member and frees its slot.
   void release( std::uint32_t slot ) {
      std::destroy_at( &memberAt( slot ) );
      notes_[ slot ].place = freeSlot_;
      freeSlot_ = slot;
   }

   // At least half of the places are holes: what a squeeze costs is then paid by as many appends.
   bool squeezeIsWorthIt() const { return placesRoom_ != 0 && live_ <= placesRoom_ / 2; }

   void squeezePlaces() {
      std::uint32_t to = 0;
      for( auto from = firstPlace_; from < endPlace_; ++from ) {
         if( auto slot = places_[ from ]; slot != hole ) {
            notes_[ slot ].place = to;
            places_[ to++ ] = slot;
         }
      }
      firstPlace_ = 0;
      endPlace_ = to;
   }

   void growPlaces() {
      auto room = placesRoom_ == 0 ? firstSegmentSlots : placesRoom_ * 2;
      places_ = enlarged( places_, endPlace_, room );
      placesRoom_ = room;
   }

 private:
   static constexpr unsigned firstSegmentBits = 2;
   static constexpr std::uint32_t firstSegmentSlots = 1u << firstSegmentBits;
   static constexpr std::uint32_t maxMembers = ( 1u << 26 ) - firstSegmentSlots;

   // The hash of a small key is quicker computed than kept.
   static constexpr bool keepsHash = !keyIsSmall< std::remove_cv_t< decltype( Member::key ) > >;
   struct PlaceNote {
      std::uint32_t place; // in the order of insertion; of a free slot: the next free slot
   };
   struct HashNote : PlaceNote {
      std::uint32_t hash;
   };
   // What is to be known of a slot beside its member; apart, to keep members dense.
   using Note = std::conditional_t< keepsHash, HashNote, PlaceNote >;

   // Slot numbers start at 4. The highest bit of a number names its segment, the rest is the
   // position in it.
   static Member * memberIn( Member * const * segments, std::uint32_t slot ) {
      if( slot == hole ) {
         __builtin_unreachable(); // countl_zero() need not think of it
      }
      auto const number = std::uint64_t{ slot };
      auto const high = 63u ^ static_cast< unsigned >( std::countl_zero( number ) );
      return segments[ high ] + ( number ^ ( std::uint64_t{ 1 } << high ) );
   }

   template< class T >
   static std::unique_ptr< T[] > enlarged( std::unique_ptr< T[] > const & from, std::uint32_t used,
                                           std::uint32_t room ) {
      auto larger = std::make_unique_for_overwrite< T[] >( room );
      if( from ) {
         std::copy( from.get(), from.get() + used, larger.get() );
      }
      return larger;
   }

   // As many slots more as there are, at least 4. When this throws, nothing has changed that shows.
   void addSegment() {
      if( nextSlot_ > maxMembers ) {
         throw Exception( "a hash collection holds at most " + std::to_string( maxMembers ) +
                          " members" );
      }
      auto const end = endSlot_ * 2;
      auto index = indexFor( end );
      notes_ = enlarged( notes_, nextSlot_, end );
      segments_.resize( std::max< std::size_t >( segments_.size(), firstSegmentBits ) );
      segments_.reserve( segments_.size() + 1 );
      segments_.push_back( std::allocator< Member >().allocate( endSlot_ ) );
      index_ = std::move( index );
      endSlot_ = end;
   }

   HashIndex indexFor( std::uint32_t endSlot ) const {
      HashIndex index( endSlot );
      for( auto place = firstPlace_; place < endPlace_; ++place ) {
         if( auto slot = places_[ place ]; slot != hole ) {
            index.insert( hashOfSlot( slot ), slot );
         }
      }
      return index;
   }

   void destroyMembers() {
      if constexpr( !std::is_trivially_destructible_v< Member > ) {
         for( auto place = firstPlace_; place < endPlace_; ++place ) {
            if( auto slot = places_[ place ]; slot != hole ) {
               std::destroy_at( &memberAt( slot ) );
            }
         }
      }
   }

   HashIndex index_;
   std::vector< Member * > segments_;          // by the highest bit of the slots in it
   std::unique_ptr< Note[] > notes_;           // by slot
   std::unique_ptr< std::uint32_t[] > places_; // slot numbers, in the order of insertion
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
      if( place >= storage.endPlace() ) {
         return true;
      }
      place_ = place;
      before_ = false;
      return false;
   }

   void advance() {
      place_ += !before_;
      before_ = false;
      if( table_ ) {
         place_ = table_->storage.liveFrom( place_ );
      }
   }

   // It stands on a member: so it is after !atEnd() or advance(), until that is removed.
   std::uint32_t slot() const { return table_->storage.slotAtPlace( place_ ); }
   Member & member() const { return table_->storage.memberAt( slot() ); }

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
   bool before_ = false; // its member is gone: the next step is onto place_ itself
};

template< class Member >
class HashTable {
 public:
   using Storage = HashStorage< Member >;
   using Cursor = HashCursor< Member >;

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
   Member & append( std::uint32_t hash, Args &&... args ) {
      if( storage.placesAreFull() ) [[unlikely]] {
         makePlace();
      }
      return storage.append( hash, std::forward< Args >( args )... );
   }

   // The member lives on in its slot until storage.release().
   void unlink( std::uint32_t slot ) {
      storage.unlink( slot );
      if( storage.size() == 0 ) {
         squeeze();
      }
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
         cursor.place_ = cursor.place_ != Storage::hole ? storage.placeOf( cursor.place_ )
                                                        : storage.endPlace();
      } );
   }
};

} // namespace Kiv::Detail
