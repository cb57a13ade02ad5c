// SPDX-License-Identifier: Apache-2.0
#pragma once

// What Kiv::HashMap and Kiv::HashSet point to while they have at most four members: one block of
// memory, 16 bytes and room for four. A search compares keys one after the other, so it needs no hash.
//
// Members live in slots, and do not move. A fifth member makes the block the first segment of a table
// (HashTable.h), so its slots have the numbers that they have there. The order of insertion has no
// holes: who stands in it is told of each removal.

#include "Kiv/Cursor.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

namespace Kiv::Detail {

template< class Member >
class HashCursor;

// What cursors stand in: a block or a table.
template< class Member >
struct HashHome {
   CursorList< HashCursor< Member > > cursors;
};

template< class Member >
class HashBlock : public HashHome< Member > {
   using Cursor = HashCursor< Member >;

 public:
   static constexpr std::uint32_t slots = 4;
   static constexpr std::uint32_t firstSlot = 4;

   static HashBlock * make() {
      static_assert( sizeof( HashBlock ) == 16 );
      return ::new( static_cast< void * >( std::allocator< Memory >().allocate( 1 ) ) ) HashBlock;
   }
   // Members that live in it are not destroyed.
   void free() {
      this->~HashBlock();
      std::allocator< Memory >().deallocate( reinterpret_cast< Memory * >( this ), 1 );
   }
   static HashBlock & of( Member * members ) {
      return *reinterpret_cast< HashBlock * >( reinterpret_cast< std::byte * >( members ) -
                                               membersAt );
   }

   HashBlock( HashBlock const & ) = delete;
   HashBlock & operator=( HashBlock const & ) = delete;

   std::uint32_t size() const { return size_; }
   bool isFull() const { return taken_ == ( 1u << slots ) - 1; }
   // Its members are being destroyed: nothing can be appended.
   bool isClearing() const { return isClearing_; }

   Member * members() {
      return reinterpret_cast< Member * >( reinterpret_cast< std::byte * >( this ) + membersAt );
   }
   Member & memberAt( std::uint32_t slot ) { return members()[ slot - firstSlot ]; }

   // By the position in the order.
   std::uint32_t slotAt( std::uint32_t position ) const { return order_[ position ]; }
   // Of a slot that somebody lives in.
   std::uint32_t positionOf( std::uint32_t slot ) const {
      return static_cast< std::uint32_t >( std::find( order_, order_ + size_, slot ) - order_ );
   }

   // 0 when there is no such key.
   template< class Key >
   std::uint32_t findSlot( Key const & key ) {
      for( unsigned position = 0; position < size_; ++position ) {
         if( memberAt( order_[ position ] ).key == key ) {
            return order_[ position ];
         }
      }
      return 0;
   }

   // Needs a free slot: !isFull(). If making the member throws, nothing has changed.
   template< class... Args >
   Member & append( Args &&... args ) {
      auto const free = static_cast< unsigned >( std::countr_one( taken_ ) );
      auto & member = members()[ free ];
      ::new( static_cast< void * >( &member ) ) Member( std::forward< Args >( args )... );
      taken_ = static_cast< std::uint8_t >( taken_ | 1u << free );
      order_[ size_++ ] = static_cast< std::uint8_t >( firstSlot + free );
      return member;
   }

   // Takes a member out of the order. It lives on in its slot until release().
   void unlink( std::uint32_t slot ) {
      auto const gone = positionOf( slot );
      std::copy( order_ + gone + 1, order_ + size_, order_ + gone );
      --size_;
      this->cursors.forEach( [ & ]( Cursor & cursor ) {
         cursor.before_ = cursor.before_ || cursor.place_.offset == gone;
         cursor.place_.offset -= cursor.place_.offset > gone;
      } );
   }

   // Destroys an unlinked member and frees its slot. If its destructor makes this the segment of a
   // table, the slot stays unused there, and so does what is written here.
   void release( std::uint32_t slot ) {
      std::destroy_at( &memberAt( slot ) );
      taken_ = static_cast< std::uint8_t >( taken_ & ~( 1u << ( slot - firstSlot ) ) );
   }

   // Who stood in the other stands here, at the same position.
   void takeCursors( HashBlock & other ) {
      this->cursors.take( other.cursors );
      this->cursors.forEach( [ this ]( Cursor & cursor ) { cursor.table_ = this; } );
   }

   // Lets all members go, in their slots. Meanwhile they may do anything to the collection, discard()
   // this block included.
   void clear() {
      if( isClearing_ ) {
         return;
      }
      isClearing_ = true;
      this->cursors.forEach( []( Cursor & cursor ) {
         cursor.place_.offset = 0;
         cursor.before_ = true;
      } );
      auto const end = std::exchange( size_, std::uint8_t{ 0 } );
      for( unsigned position = 0; position < end; ++position ) {
         release( order_[ position ] );
      }
      isClearing_ = false;
      if( isDiscarded_ ) {
         free();
      }
   }

   // The collection knows it no more. It goes with all members.
   void discard() {
      this->cursors.letAllLeave();
      isDiscarded_ = true;
      clear();
   }

 private:
   HashBlock() = default;
   ~HashBlock() = default;

   static constexpr std::size_t membersAt = std::max< std::size_t >( 16, alignof( Member ) );
   struct alignas( Member ) alignas( void * ) Memory {
      std::byte bytes[ membersAt + slots * sizeof( Member ) ];
   };

   std::uint8_t order_[ slots ] = {}; // slots, in the order of insertion
   std::uint8_t size_ = 0;
   std::uint8_t taken_ = 0; // slots that are not free, as bits
   bool isClearing_ = false;
   bool isDiscarded_ = false;
};

} // namespace Kiv::Detail
