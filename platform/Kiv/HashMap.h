// SPDX-License-Identifier: Apache-2.0
#pragma once

// Keyed hash collections that may be changed while they are walked.
//
//    HashMap< Key, Value >    members { key, value }
//    HashSet< Key >           members are the keys
//
// - Order. A walk visits the members in the order of their insertion. Assigning to a member does
//   not move it; erasing and inserting it again moves it to the end.
// - Change during a walk. The body of a loop may insert, assign and erase anything, the member it
//   is at included, and clear() or destroy the collection. A member that is removed before the walk
//   reaches it is not visited, one that is inserted is, since it stands at the end. A walk ends as
//   soon as its body stops inserting. Walks nest, and iterators may be kept.
// - References and pointers to a member (its key, its value) stay valid until that member is
//   removed: nothing else, growth included, invalidates them. Moving or swapping the collection
//   takes its members along, iterators too.
// - What a removed member owns is let go when the collection no longer knows the member and is
//   complete again, so the destructors of keys and values may use the collection in any way. (A
//   Value that cannot be moved is made and destroyed where it stands: its constructor must leave
//   the collection alone, its destructor may do anything but clear or destroy it.)
// - An empty collection is one pointer. Memory comes with the first member and goes with clear().
//   Up to four members are in one block with 16 bytes beside them, and searched without a hash.
// - It grows, and closes up what was left, in parts: no insertion or removal waits until something is
//   done with all members.
// - Keys need == and Kiv::hashOf, of which the low 32 bits count. It differs from process to
//   process, the order does not. It is always the same of equal keys, and does not throw once its
//   key is in. Collections of std::string are searched by std::string_view.
// - One thread only, const operations included: a walk enrols with its collection.
//
// Nothing throws but allocation, the constructors of keys and values, and Kiv::Exception at more
// than 67108860 members; a failed insertion changes nothing.

#include "Kiv/Hash.h"
#include "Kiv/HashBlock.h"
#include "Kiv/HashTable.h"
#include "Kiv/Iterator.h"
#include "Kiv/Member.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>

namespace Kiv {

namespace Detail {

template< class Key >
struct SetMember {
   Key const key;

   template< class K >
   explicit SetMember( K const & k ) : key( k ) {}

   operator Key const &() const { return key; } // what a walk shows

   static auto moveOut( SetMember & m ) { return Detail::moveOut( m.key ); }
};

// A key that is looked for, with its hash from when that is first needed: small collections need none.
template< class Key >
class WantedKey {
 public:
   explicit WantedKey( KeyArgument< Key > k ) : key( k ) {}
   WantedKey( KeyArgument< Key > k, std::uint32_t hash )
         : key( k ), hash_( hash ), isHashed_( true ) {}

   KeyArgument< Key > key;

   std::uint32_t hash() {
      if( !isHashed_ ) {
         hash_ = tableHash( key );
         isHashed_ = true;
      }
      return hash_;
   }

 private:
   std::uint32_t hash_ = 0;
   bool isHashed_ = false;
};

// What maps and sets have in common. `Visible` is what a walk shows of a member.
template< class Key, class Member, class Visible >
class HashCollection {
   using Block = HashBlock< Member >;
   using Table = HashTable< Member >;
   using Cursor = HashCursor< Member >;

 public:
   using key_type = Key;
   using value_type = std::remove_const_t< Visible >;
   using size_type = std::uint32_t;

   using iterator = Iterator< Cursor, Visible >;
   using const_iterator = Iterator< Cursor, Visible const >;

   HashCollection() = default;
   // In the order of the other.
   HashCollection( HashCollection const & other ) : HashCollection() {
      for( auto from = other.atFirst< Cursor >(); !from.atEnd(); from.advance() ) {
         auto & member = from.member();
         auto wanted = other.isLarge() ? Wanted( member.key, from.hash() ) : Wanted( member.key );
         append( wanted, member );
      }
   }
   HashCollection( HashCollection && other ) noexcept : home_( std::exchange( other.home_, 0 ) ) {}
   // Iterators of what was here are at their end.
   HashCollection & operator=( HashCollection other ) noexcept {
      swap( other );
      return *this;
   }
   ~HashCollection() {
      // Again when the last words of a member inserted something.
      while( home_ ) {
         discard();
      }
   }

   void swap( HashCollection & other ) noexcept { std::swap( home_, other.home_ ); }

   std::uint32_t size() const {
      return isLarge() ? table().storage.size() : home_ ? block().size() : 0;
   }
   bool empty() const { return size() == 0; }
   bool has( KeyArgument< Key > key ) const {
      Wanted wanted( key );
      return lookup( wanted ) != nullptr;
   }

   iterator begin() { return atFirst< iterator >( std::in_place ); }
   const_iterator begin() const { return atFirst< const_iterator >( std::in_place ); }
   std::default_sentinel_t end() const { return {}; }

   // On that member; at the end when there is none.
   iterator iteratorAt( KeyArgument< Key > key ) { return at< iterator >( key ); }
   const_iterator iteratorAt( KeyArgument< Key > key ) const { return at< const_iterator >( key ); }

   // The member that was inserted first; nullptr when there is none.
   Visible * first() { return empty() ? nullptr : &firstMember(); }
   Visible const * first() const { return empty() ? nullptr : &firstMember(); }

   // Whether the member was there.
   bool erase( KeyArgument< Key > key ) {
      Wanted wanted( key );
      auto slot = slotOf( wanted );
      if( slot == 0 ) {
         return false;
      }
      [[maybe_unused]] auto gone = takeOut( slot, wanted );
      return true;
   }

   // Keeps no memory, unless somebody is walking.
   void clear() {
      if( !home_ ) {
         return;
      }
      if( isLarge() && !table().cursors.empty() ) {
         auto gone = table().takeAll();
      } else if( !isLarge() && !block().cursors.empty() ) {
         block().clear();
      } else {
         discard();
      }
   }

 protected:
   using Wanted = WantedKey< Key >;

   Member * lookup( Wanted & wanted ) const {
      if( isLarge() ) [[likely]] {
         return table().storage.find( wanted.hash(), wanted.key );
      }
      auto const slot = smallSlotOf( wanted );
      return slot ? &block().memberAt( slot ) : nullptr;
   }

   // 0 when there is no such key.
   std::uint32_t slotOf( Wanted & wanted ) const {
      if( isLarge() ) [[likely]] {
         return table().storage.findSlot( wanted.hash(), wanted.key );
      }
      return smallSlotOf( wanted );
   }

   Member & memberAt( std::uint32_t slot ) const {
      return isLarge() ? table().storage.memberAt( slot ) : block().memberAt( slot );
   }

   // A member whose key is not here, made from args.
   template< class... Args >
   Member & append( Wanted & wanted, Args &&... args ) {
      if( isLarge() || ( !hasRoom() && makeRoom() ) ) [[likely]] {
         return table().append( wanted.hash(), std::forward< Args >( args )... );
      }
      return block().append( std::forward< Args >( args )... );
   }

   // Removes a member and returns what it owned, for the caller to let go last of all.
   auto takeOut( std::uint32_t slot, Wanted & wanted ) {
      auto owned = Member::moveOut( memberAt( slot ) );
      if( isLarge() ) [[likely]] {
         auto & in = table();
         in.unlink( slot, wanted.hash() );
         in.storage.release( slot );
      } else {
         auto & in = block();
         in.unlink( slot );
         in.release( slot );
      }
      return owned;
   }

 private:
   static constexpr std::uintptr_t largeBit = 1;

   bool isLarge() const { return home_ & largeBit; }
   // If it is large.
   Table & table() const { return *reinterpret_cast< Table * >( home_ - largeBit ); }
   // If it is neither large nor nothing.
   Block & block() const { return *reinterpret_cast< Block * >( home_ ); }

   std::uint32_t smallSlotOf( Wanted & wanted ) const {
      return home_ ? block().findSlot( wanted.key ) : 0;
   }

   bool hasRoom() const { return home_ && !block().isFull() && !block().isClearing(); }

   // For one that is not large. Says whether it is now. When this throws, nothing has changed.
   [[gnu::noinline]] bool makeRoom() {
      if( home_ && !block().isClearing() ) {
         home_ = reinterpret_cast< std::uintptr_t >( new Table( block() ) ) | largeBit;
         return true;
      }
      auto * fresh = Block::make();
      if( home_ ) {
         fresh->takeCursors( block() );
         block().discard();
      }
      home_ = reinterpret_cast< std::uintptr_t >( fresh );
      return false;
   }

   // Nothing is here any more when members go.
   void discard() {
      if( isLarge() ) {
         auto * was = &table();
         home_ = 0;
         delete was;
      } else {
         auto & was = block();
         home_ = 0;
         was.discard();
      }
   }

   // At the first member; or at the end.
   template< class Where, class... How >
   Where atFirst( How... how ) const {
      return isLarge() ? Where( how..., &table(), table().storage.firstPlace() )
             : home_   ? Where( how..., &block(), std::uint32_t{ 0 } )
                       : Where();
   }

   template< class Where >
   Where at( KeyArgument< Key > key ) const {
      Wanted wanted( key );
      auto slot = slotOf( wanted );
      return slot == 0   ? Where()
             : isLarge() ? Where( std::in_place, &table(), table().storage.placeOf( slot ) )
                         : Where( std::in_place, &block(), block().positionOf( slot ) );
   }

   Visible & firstMember() const {
      return isLarge() ? table().storage.memberAt( table().storage.firstPlace().slot() )
                       : block().memberAt( block().slotAt( 0 ) );
   }

   // Nothing, the address of a block, or that of a table and largeBit: so that a search in a table
   // asks no more than whether there is one.
   std::uintptr_t home_ = 0;
};

} // namespace Detail

template< class Key, class Value >
class HashMap : public Detail::HashCollection< Key, Detail::MapMember< Key, Value >,
                                               Detail::MapMember< Key, Value > > {
   using Base = Detail::HashCollection< Key, Detail::MapMember< Key, Value >,
                                        Detail::MapMember< Key, Value > >;
   using Wanted = typename Base::Wanted;

 public:
   using mapped_type = Value;
   // { Key const key; Value value; }: what a walk shows, also as `auto & [ key, value ]`.
   using Member = Detail::MapMember< Key, Value >;

   struct Inserted {
      Value * value; // where the value is now
      bool inserted; // false: the key was there before
   };

   // nullptr when there is no such key.
   Value * find( Detail::KeyArgument< Key > key ) {
      Wanted wanted( key );
      auto * member = this->lookup( wanted );
      return member ? &member->value : nullptr;
   }
   Value const * find( Detail::KeyArgument< Key > key ) const {
      Wanted wanted( key );
      auto * member = this->lookup( wanted );
      return member ? &member->value : nullptr;
   }

   // Leaves a member that is there alone, args included; makes its value from them otherwise.
   template< class... Args >
   Inserted tryEmplace( Detail::KeyArgument< Key > key, Args &&... args ) {
      Wanted wanted( key );
      if( auto * member = this->lookup( wanted ) ) {
         return { &member->value, false };
      }
      if constexpr( std::is_trivially_constructible_v< Value, Args... > ||
                    !std::is_move_constructible_v< Value > ) {
         return append( wanted, std::forward< Args >( args )... );
      } else {
         // Constructors may use the collection too: look again.
         Value value( std::forward< Args >( args )... );
         if( auto * member = this->lookup( wanted ) ) {
            return { &member->value, false };
         }
         return append( wanted, std::move( value ) );
      }
   }

   // The value that is replaced is let go last, as a removed one is. If that removes the member,
   // the returned pointer is of no use.
   Inserted insertOrAssign( Detail::KeyArgument< Key > key, Value value ) {
      Wanted wanted( key );
      if( auto * member = this->lookup( wanted ) ) {
         if constexpr( std::is_trivially_destructible_v< Value > ) {
            member->value = std::move( value );
         } else {
            std::swap( member->value, value );
         }
         return { &member->value, false };
      }
      return append( wanted, std::move( value ) );
   }

   // Removes the member and returns its value; nullopt when there is none.
   std::optional< Value > extract( Detail::KeyArgument< Key > key ) {
      Wanted wanted( key );
      auto slot = this->slotOf( wanted );
      if( slot == 0 ) {
         return std::nullopt;
      }
      std::optional< Value > value( std::move( this->memberAt( slot ).value ) );
      [[maybe_unused]] auto gone = this->takeOut( slot, wanted );
      return value;
   }

   // The same keys with equal values, in whatever order.
   friend bool operator==( HashMap const & a, HashMap const & b ) {
      if( a.size() != b.size() ) {
         return false;
      }
      for( auto const & [ key, value ] : a ) {
         auto * other = b.find( key );
         if( !other || !( *other == value ) ) {
            return false;
         }
      }
      return true;
   }

 private:
   template< class... Args >
   Inserted append( Wanted & wanted, Args &&... args ) {
      auto & member = this->Base::append( wanted, wanted.key, std::forward< Args >( args )... );
      return { &member.value, true };
   }
};

template< class Key >
class HashSet : public Detail::HashCollection< Key, Detail::SetMember< Key >, Key const > {
 public:
   // Whether the key was not there before.
   bool insert( Detail::KeyArgument< Key > key ) {
      Detail::WantedKey< Key > wanted( key );
      if( this->lookup( wanted ) ) {
         return false;
      }
      this->append( wanted, key );
      return true;
   }

   // The same keys, in whatever order.
   friend bool operator==( HashSet const & a, HashSet const & b ) {
      if( a.size() != b.size() ) {
         return false;
      }
      for( auto const & key : a ) {
         if( !b.has( key ) ) {
            return false;
         }
      }
      return true;
   }
};

} // namespace Kiv
