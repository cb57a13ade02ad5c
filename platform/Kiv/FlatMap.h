// SPDX-License-Identifier: Apache-2.0
#pragma once

// A keyed collection for values: one block of members in the order of their insertion, and beside it, from
// seventeen members on, an index. It costs two words and its members; building, comparing, copying and walking
// it cost little more than a vector does.
//
// Unlike Kiv::HashMap it is not for entities: it must not change while it is walked, any change may move its
// members, and removing one takes time that grows with their number. At most 65535 members; Kiv::Exception says
// so. Nothing else throws but allocation and the constructors of keys and values; what failed changed nothing.
// Keys need == and Kiv::hashOf; keys and values are moved without throwing.

#include "Kiv/Exception.h"
#include "Kiv/Hash.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <utility>

namespace Kiv {

template< class Key, class Value >
class FlatMap {
 public:
   using key_type = Key;
   using mapped_type = Value;
   using size_type = std::uint32_t;

   // What a walk shows, also as `auto const & [ key, value ]`.
   struct Member {
      Key key;
      Value value;
   };
   using value_type = Member;

   struct Inserted {
      Value * value; // where the value is now
      bool inserted; // false: the key was there before
   };

   FlatMap() = default;
   FlatMap( FlatMap const & other ) : FlatMap() {
      if( !other.empty() ) {
         grow( other.size() );
         for( auto const & member : other ) {
            append( member.key, member.value );
         }
      }
   }
   FlatMap( FlatMap && other ) noexcept : block_( std::exchange( other.block_, nullptr ) ) {}
   FlatMap & operator=( FlatMap other ) noexcept {
      std::swap( block_, other.block_ );
      return *this;
   }
   ~FlatMap() { clear(); }

   std::uint32_t size() const { return block_ ? block_->size : 0; }
   bool empty() const { return size() == 0; }
   Member const * begin() const { return block_ ? block_->members() : nullptr; }
   Member const * end() const { return block_ ? block_->members() + block_->size : nullptr; }

   bool has( Key const & key ) const { return position( key ) != none; }
   // The member of which `isWanted( key )`, of those whose keys may have this hash; nullptr when there is none.
   template< class IsWanted >
   Member const * findBy( std::size_t hash, IsWanted const & isWanted ) const {
      auto const at = position( hash, isWanted );
      return at == none ? nullptr : block_->members() + at;
   }
   // nullptr when there is no such key.
   Value const * find( Key const & key ) const {
      auto const at = position( key );
      return at == none ? nullptr : &block_->members()[ at ].value;
   }

   // There is room for so many without another allocation.
   void reserve( std::uint32_t count ) {
      if( count > ( block_ ? block_->room : 0 ) ) {
         grow( count );
      }
   }

   // Leaves a member that is there alone, args included; makes its value from them otherwise.
   template< class... Args >
   Inserted tryEmplace( Key const & key, Args &&... args ) {
      if( auto const at = position( key ); at != none ) {
         return { &block_->members()[ at ].value, false };
      }
      if( !block_ || block_->size == block_->room ) {
         // What was given may stand in the block that goes.
         Key const ownKey = key;
         Value ownValue( std::forward< Args >( args )... );
         grow( block_ ? 2 * block_->room : 1 );
         return { &append( ownKey, std::move( ownValue ) ), true };
      }
      return { &append( key, std::forward< Args >( args )... ), true };
   }

   // Removes the member and returns its value; nullopt when there is none.
   std::optional< Value > extract( Key const & key ) {
      auto const at = position( key );
      if( at == none ) {
         return std::nullopt;
      }
      auto * const members = block_->members();
      std::optional< Value > value( std::move( members[ at ].value ) );
      std::move( members + at + 1, members + block_->size, members + at );
      std::destroy_at( members + --block_->size );
      if( block_->index ) {
         fillIndex( *block_ );
      }
      return value;
   }
   // Whether the member was there.
   bool erase( Key const & key ) { return extract( key ).has_value(); }

   // Keeps no memory.
   void clear() {
      if( auto * const gone = std::exchange( block_, nullptr ) ) {
         std::destroy_n( gone->members(), gone->size );
         drop( gone );
      }
   }

   // The same keys with equal values, in whatever order.
   friend bool operator==( FlatMap const & a, FlatMap const & b ) {
      if( a.size() != b.size() ) {
         return false;
      }
      // Mostly they were filled alike.
      auto const * other = b.begin();
      auto const * member = a.begin();
      for( ; member != a.end(); ++member, ++other ) {
         if( !( member->key == other->key ) ) {
            return a.equalFrom( member, b );
         }
         if( !( member->value == other->value ) ) {
            return false;
         }
      }
      return true;
   }

 private:
   static constexpr std::uint32_t none = ~0u;
   static constexpr std::uint32_t maxMembers = 65535;
   static constexpr std::uint32_t maxWithoutIndex = 16;
   using Slot = std::uint16_t; // a position and one more; 0: nothing

   // The members follow it.
   struct alignas( std::max( alignof( Member ), alignof( std::uint64_t ) ) ) Block {
      std::uint32_t size = 0;
      std::uint32_t room = 0;
      std::unique_ptr< Slot[] > index =
            nullptr; // as many as twice the room, or more: a power of two

      Member * members() { return std::launder( reinterpret_cast< Member * >( this + 1 ) ); }
      std::uint32_t mask() const { return 2 * std::bit_ceil( room ) - 1; }
   };

   static void drop( Block * block ) {
      std::destroy_at( block );
      ::operator delete( block );
   }

   std::uint32_t position( Key const & key ) const {
      // Without an index nobody asks for the hash.
      return position( block_ && block_->index ? hashOf( key ) : 0,
                       [ &key ]( Key const & other ) { return other == key; } );
   }
   template< class IsWanted >
   std::uint32_t position( std::size_t hash, IsWanted const & isWanted ) const {
      if( !block_ ) {
         return none;
      }
      auto const * const members = block_->members();
      if( !block_->index ) {
         for( std::uint32_t at = 0; at < block_->size; ++at ) {
            if( isWanted( members[ at ].key ) ) {
               return at;
            }
         }
         return none;
      }
      auto const mask = block_->mask();
      for( auto at = static_cast< std::uint32_t >( hash ) & mask;; at = ( at + 1 ) & mask ) {
         auto const slot = block_->index[ at ];
         if( slot == 0 ) {
            return none;
         }
         if( isWanted( members[ slot - 1 ].key ) ) {
            return slot - 1u;
         }
      }
   }

   // There is room, and the key is not in.
   template< class... Args >
   Value & append( Key const & key, Args &&... args ) {
      auto * const member = block_->members() + block_->size;
      ::new( static_cast< void * >( member ) )
            Member{ key, Value( std::forward< Args >( args )... ) };
      ++block_->size;
      if( block_->index ) {
         enter( *block_, block_->size );
      }
      return member->value;
   }

   static void enter( Block & block, std::uint32_t slot ) {
      auto const mask = block.mask();
      auto at = static_cast< std::uint32_t >( hashOf( block.members()[ slot - 1 ].key ) ) & mask;
      while( block.index[ at ] ) {
         at = ( at + 1 ) & mask;
      }
      block.index[ at ] = static_cast< Slot >( slot );
   }
   static void fillIndex( Block & block ) {
      std::fill_n( block.index.get(), block.mask() + 1, Slot{ 0 } );
      for( std::uint32_t slot = 1; slot <= block.size; ++slot ) {
         enter( block, slot );
      }
   }

   void grow( std::uint32_t room ) {
      if( size() == maxMembers || room > 2 * maxMembers ) {
         throw Exception( "a collection in a value holds at most " + std::to_string( maxMembers ) +
                          " members" );
      }
      room = std::min( room, maxMembers );
      struct Free {
         void operator()( Block * block ) const { drop( block ); }
      };
      std::unique_ptr< Block, Free > block(
            ::new( ::operator new( sizeof( Block ) + room * sizeof( Member ) ) ) Block );
      block->room = room;
      if( room > maxWithoutIndex ) {
         block->index.reset( new Slot[ block->mask() + 1 ] );
      }
      if( block_ ) {
         std::uninitialized_move_n( block_->members(), block_->size, block->members() );
         std::destroy_n( block_->members(), block_->size );
         block->size = std::exchange( block_->size, 0 );
         drop( block_ );
      }
      block_ = block.release();
      if( block_->index ) {
         fillIndex( *block_ );
      }
   }

   bool equalFrom( Member const * member, FlatMap const & other ) const {
      for( ; member != end(); ++member ) {
         auto const * const value = other.find( member->key );
         if( !value || !( *value == member->value ) ) {
            return false;
         }
      }
      return true;
   }

   Block * block_ = nullptr;
};

} // namespace Kiv
