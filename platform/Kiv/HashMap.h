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

// What maps and sets have in common. `Visible` is what a walk shows of a member.
template< class Key, class Member, class Visible >
class HashCollection {
   using Table = HashTable< Member >;
   using Cursor = typename Table::Cursor;

 public:
   using key_type = Key;
   using value_type = std::remove_const_t< Visible >;
   using size_type = std::uint32_t;

   using iterator = Iterator< Cursor, Visible >;
   using const_iterator = Iterator< Cursor, Visible const >;

   HashCollection() = default;
   // In the order of the other.
   HashCollection( HashCollection const & other ) : HashCollection() {
      Cursor from( other.table_, other.firstPlace() );
      for( ; !from.atEnd(); from.advance() ) {
         table().append( other.table_->storage.hashOfSlot( from.slot() ), from.member() );
      }
   }
   HashCollection( HashCollection && other ) noexcept
         : table_( std::exchange( other.table_, nullptr ) ) {}
   // Iterators of what was here are at their end.
   HashCollection & operator=( HashCollection other ) noexcept {
      swap( other );
      return *this;
   }
   ~HashCollection() {
      // Again when the last words of a member inserted something.
      while( table_ ) {
         delete std::exchange( table_, nullptr );
      }
   }

   void swap( HashCollection & other ) noexcept { std::swap( table_, other.table_ ); }

   std::uint32_t size() const { return table_ ? table_->storage.size() : 0; }
   bool empty() const { return size() == 0; }
   bool has( KeyArgument< Key > key ) const { return lookup( key ) != nullptr; }

   iterator begin() { return iterator( std::in_place, table_, firstPlace() ); }
   const_iterator begin() const { return const_iterator( std::in_place, table_, firstPlace() ); }
   std::default_sentinel_t end() const { return {}; }

   // On that member; at the end when there is none.
   iterator iteratorAt( KeyArgument< Key > key ) { return at< iterator >( key ); }
   const_iterator iteratorAt( KeyArgument< Key > key ) const { return at< const_iterator >( key ); }

   // The member that was inserted first; nullptr when there is none.
   Visible * first() { return empty() ? nullptr : &firstMember(); }
   Visible const * first() const { return empty() ? nullptr : &firstMember(); }

   // Whether the member was there.
   bool erase( KeyArgument< Key > key ) {
      auto const hash = tableHash( key );
      auto slot = slotOf( key, hash );
      if( slot == 0 ) {
         return false;
      }
      [[maybe_unused]] auto gone = takeOut( slot, hash );
      return true;
   }

   // Keeps no memory, unless somebody is walking.
   void clear() {
      if( !table_ ) {
         return;
      }
      if( !table_->cursors.empty() ) {
         auto gone = table_->takeAll();
      } else {
         delete std::exchange( table_, nullptr );
      }
   }

 protected:
   Member * lookup( KeyArgument< Key > key ) const { return lookup( key, tableHash( key ) ); }
   Member * lookup( KeyArgument< Key > key, std::uint32_t hash ) const {
      return table_ ? table_->storage.find( hash, key ) : nullptr;
   }

   // 0 when there is no such key.
   std::uint32_t slotOf( KeyArgument< Key > key, std::uint32_t hash ) const {
      return table_ ? table_->storage.findSlot( hash, key ) : 0;
   }

   Table & table() {
      if( !table_ ) {
         table_ = new Table;
      }
      return *table_;
   }

   // Removes a member and returns what it owned, for the caller to let go last of all.
   auto takeOut( std::uint32_t slot, std::uint32_t hash ) {
      auto owned = Member::moveOut( table_->storage.memberAt( slot ) );
      table_->unlink( slot, hash );
      table_->storage.release( slot );
      return owned;
   }

   Table * table_ = nullptr;

 private:
   HashPlace firstPlace() const { return table_ ? table_->storage.firstPlace() : HashPlace{}; }

   template< class Wanted >
   Wanted at( KeyArgument< Key > key ) const {
      auto slot = slotOf( key, tableHash( key ) );
      return slot ? Wanted( std::in_place, table_, table_->storage.placeOf( slot ) ) : Wanted();
   }

   Visible & firstMember() const {
      return table_->storage.memberAt( table_->storage.firstPlace().slot() );
   }
};

} // namespace Detail

template< class Key, class Value >
class HashMap : public Detail::HashCollection< Key, Detail::MapMember< Key, Value >,
                                               Detail::MapMember< Key, Value > > {
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
      auto * member = this->lookup( key );
      return member ? &member->value : nullptr;
   }
   Value const * find( Detail::KeyArgument< Key > key ) const {
      auto * member = this->lookup( key );
      return member ? &member->value : nullptr;
   }

   // Leaves a member that is there alone, args included; makes its value from them otherwise.
   template< class... Args >
   Inserted tryEmplace( Detail::KeyArgument< Key > key, Args &&... args ) {
      auto const hash = Detail::tableHash( key );
      if( auto * member = this->lookup( key, hash ) ) {
         return { &member->value, false };
      }
      if constexpr( std::is_trivially_constructible_v< Value, Args... > ||
                    !std::is_move_constructible_v< Value > ) {
         return append( hash, key, std::forward< Args >( args )... );
      } else {
         // Constructors may use the collection too: look again.
         Value value( std::forward< Args >( args )... );
         if( auto * member = this->lookup( key, hash ) ) {
            return { &member->value, false };
         }
         return append( hash, key, std::move( value ) );
      }
   }

   // The value that is replaced is let go last, as a removed one is. If that removes the member,
   // the returned pointer is of no use.
   Inserted insertOrAssign( Detail::KeyArgument< Key > key, Value value ) {
      auto const hash = Detail::tableHash( key );
      if( auto * member = this->lookup( key, hash ) ) {
         if constexpr( std::is_trivially_destructible_v< Value > ) {
            member->value = std::move( value );
         } else {
            std::swap( member->value, value );
         }
         return { &member->value, false };
      }
      return append( hash, key, std::move( value ) );
   }

   // Removes the member and returns its value; nullopt when there is none.
   std::optional< Value > extract( Detail::KeyArgument< Key > key ) {
      auto const hash = Detail::tableHash( key );
      auto slot = this->slotOf( key, hash );
      if( slot == 0 ) {
         return std::nullopt;
      }
      std::optional< Value > value( std::move( this->table_->storage.memberAt( slot ).value ) );
      [[maybe_unused]] auto gone = this->takeOut( slot, hash );
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
   Inserted append( std::uint32_t hash, Detail::KeyArgument< Key > key, Args &&... args ) {
      auto & member = this->table().append( hash, key, std::forward< Args >( args )... );
      return { &member.value, true };
   }
};

template< class Key >
class HashSet : public Detail::HashCollection< Key, Detail::SetMember< Key >, Key const > {
 public:
   // Whether the key was not there before.
   bool insert( Detail::KeyArgument< Key > key ) {
      auto const hash = Detail::tableHash( key );
      if( this->lookup( key, hash ) ) {
         return false;
      }
      this->table().append( hash, key );
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
