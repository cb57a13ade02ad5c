// SPDX-License-Identifier: Apache-2.0
#pragma once

// A keyed collection in ascending order of its keys that may be changed while it is walked.
//
// - Order is that of `<` on keys.
// - Change during a walk. The body of a loop may insert, assign and erase anything, the member it
//   is at included, and clear() or destroy the collection. A walk goes on behind the key that it
//   was at, whether or not that is still here: it visits what lives there when it arrives, and
//   nothing that was inserted before it.
// - References and pointers to a member (its key, its value) stay valid until that member is
//   removed. Moving or swapping the collection takes its members along, iterators too.
// - What a removed member owns is let go when the collection no longer knows the member and is
//   complete again, so the destructors of keys and values may use the collection in any way.
// - An empty collection is one pointer. Memory comes with the first member and goes with clear().
// - Keys need < and a copy constructor. Collections of std::string are searched by
//   std::string_view.
// - One thread only, const operations included: a walk enrols with its collection.
//
// Nothing throws but allocation and the constructors of keys and values; a failed insertion changes
// nothing.

#include "Kiv/Cursor.h"
#include "Kiv/Iterator.h"
#include "Kiv/Member.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <set>
#include <type_traits>
#include <utility>

namespace Kiv {

namespace Detail {

template< class Key, class Value >
struct OrderedTree {
   using Member = MapMember< Key, Value >;

   struct ByKey {
      using is_transparent = void;
      bool operator()( Member const & a, Member const & b ) const { return a.key < b.key; }
      template< class K >
      bool operator()( Member const & a, K const & b ) const {
         return a.key < b;
      }
      template< class K >
      bool operator()( K const & a, Member const & b ) const {
         return a < b.key;
      }
   };
   using Nodes = std::set< Member, ByKey >;
   using Node = typename Nodes::iterator;

   // On a member; or past it, on the way to whatever comes next; or (it was removed) past its key.
   class Cursor : public CursorIn< OrderedTree > {
      using Base = CursorIn< OrderedTree >;

    public:
      Cursor() = default;
      Cursor( OrderedTree * tree, Node node )
            : Base( node != tree->nodes.end() ? tree : nullptr ), node_( node ) {}
      Cursor( Cursor const & ) = default;
      Cursor & operator=( Cursor const & other ) {
         if( this != &other ) {
            Base::operator=( other );
            node_ = other.node_;
            past_ = other.past_;
            removed_.reset(); // keys need not be assignable
            if( other.removed_ ) {
               removed_.emplace( *other.removed_ );
            }
         }
         return *this;
      }

      // Goes on to the next member, if it is past one; says whether there is none.
      bool atEnd() {
         if( this->table_ && past_ ) {
            auto next =
                  removed_ ? this->table_->nodes.upper_bound( *removed_ ) : std::next( node_ );
            if( next != this->table_->nodes.end() ) {
               node_ = next;
               past_ = false;
               removed_.reset();
            }
         }
         return !this->table_ || past_;
      }

      void advance() {
         past_ = true;
         atEnd();
      }

      // There must be one: !atEnd().
      Member & member() {
         atEnd();
         return OrderedTree::member( node_ );
      }

      bool sameAs( Cursor & other ) {
         auto end = atEnd();
         return end == other.atEnd() &&
                ( end || ( this->table_ == other.table_ && node_ == other.node_ ) );
      }

      void nodeGoes( Node node ) {
         if( !removed_ && node_ == node ) {
            removed_.emplace( node->key );
            past_ = true;
         }
      }

      void allGo() {
         if( !removed_ ) {
            nodeGoes( node_ );
         }
      }

    private:
      Node node_{};
      bool past_ = false;
      std::optional< Key > removed_; // the key of the member that was at node_
   };

   // The member, for the caller to let go.
   auto take( Node node ) {
      cursors.forEach( [ & ]( Cursor & cursor ) { cursor.nodeGoes( node ); } );
      return nodes.extract( node );
   }

   Nodes takeAll() {
      cursors.forEach( []( Cursor & cursor ) { cursor.allGo(); } );
      return std::exchange( nodes, Nodes() );
   }

   // A set shows its elements as const for the sake of their order, which is the key's alone.
   static Member & member( Node node ) { return const_cast< Member & >( *node ); }

   Nodes nodes;
   CursorList< Cursor > cursors;
};

} // namespace Detail

template< class Key, class Value >
class OrderedMap {
   using Tree = Detail::OrderedTree< Key, Value >;
   using Node = typename Tree::Node;
   using KeyArgument = Detail::KeyArgument< Key >;

 public:
   using key_type = Key;
   using mapped_type = Value;
   using size_type = std::uint32_t;
   // { Key const key; Value value; }: what a walk shows, also as `auto & [ key, value ]`.
   using Member = typename Tree::Member;
   using value_type = Member;

   struct Inserted {
      Value * value; // where the value is now
      bool inserted; // false: the key was there before
   };

   using iterator = Detail::Iterator< typename Tree::Cursor, Member >;
   using const_iterator = Detail::Iterator< typename Tree::Cursor, Member const >;

   OrderedMap() = default;
   OrderedMap( OrderedMap const & other ) : OrderedMap() {
      for( auto const & [ key, value ] : other ) {
         append( key, value );
      }
   }
   OrderedMap( OrderedMap && other ) noexcept : tree_( std::exchange( other.tree_, nullptr ) ) {}
   // Iterators of what was here are at their end.
   OrderedMap & operator=( OrderedMap other ) noexcept {
      swap( other );
      return *this;
   }
   ~OrderedMap() {
      // Again when the last words of a member inserted something.
      while( tree_ ) {
         delete std::exchange( tree_, nullptr );
      }
   }

   void swap( OrderedMap & other ) noexcept { std::swap( tree_, other.tree_ ); }

   std::uint32_t size() const {
      return tree_ ? static_cast< std::uint32_t >( tree_->nodes.size() ) : 0;
   }
   bool empty() const { return size() == 0; }
   bool has( KeyArgument key ) const { return lookup( key ) != nullptr; }

   // nullptr when there is no such key.
   Value * find( KeyArgument key ) { return valueOf( lookup( key ) ); }
   Value const * find( KeyArgument key ) const { return valueOf( lookup( key ) ); }

   // The members with the smallest and the largest key; nullptr when there is none.
   Member * first() { return firstMember(); }
   Member const * first() const { return firstMember(); }
   Member * last() { return lastMember(); }
   Member const * last() const { return lastMember(); }

   iterator begin() {
      return tree_ ? iterator( std::in_place, tree_, tree_->nodes.begin() ) : iterator();
   }
   const_iterator begin() const {
      return tree_ ? const_iterator( std::in_place, tree_, tree_->nodes.begin() )
                   : const_iterator();
   }
   std::default_sentinel_t end() const { return {}; }

   // On that member; at the end when there is none.
   iterator iteratorAt( KeyArgument key ) { return at< iterator >( key ); }
   const_iterator iteratorAt( KeyArgument key ) const { return at< const_iterator >( key ); }

   // On the first member whose key is not less; at the end when there is none.
   iterator lowerBound( KeyArgument key ) {
      return tree_ ? iterator( std::in_place, tree_, tree_->nodes.lower_bound( key ) ) : iterator();
   }
   const_iterator lowerBound( KeyArgument key ) const {
      return tree_ ? const_iterator( std::in_place, tree_, tree_->nodes.lower_bound( key ) )
                   : const_iterator();
   }

   // Leaves a member that is there alone, args included; makes its value from them otherwise.
   template< class... Args >
   Inserted tryEmplace( KeyArgument key, Args &&... args ) {
      if( auto * member = lookup( key ) ) {
         return { &member->value, false };
      }
      return append( key, std::forward< Args >( args )... );
   }

   // The value that is replaced is let go last, as a removed one is. If that removes the member,
   // the returned pointer is of no use.
   Inserted insertOrAssign( KeyArgument key, Value value ) {
      if( auto * member = lookup( key ) ) {
         std::swap( member->value, value );
         return { &member->value, false };
      }
      return append( key, std::move( value ) );
   }

   // Whether the member was there.
   bool erase( KeyArgument key ) {
      if( !tree_ ) {
         return false;
      }
      auto node = nodeOf( key );
      if( node == tree_->nodes.end() ) {
         return false;
      }
      auto gone = tree_->take( node );
      return true;
   }

   // Removes the member and returns its value; nullopt when there is none.
   std::optional< Value > extract( KeyArgument key ) {
      if( !has( key ) ) {
         return std::nullopt;
      }
      auto gone = tree_->take( nodeOf( key ) );
      return std::optional< Value >( std::move( gone.value().value ) );
   }

   // Keeps no memory, unless somebody is walking.
   void clear() {
      if( !tree_ ) {
         return;
      }
      if( !tree_->cursors.empty() ) {
         auto gone = tree_->takeAll();
      } else {
         delete std::exchange( tree_, nullptr );
      }
   }

   friend bool operator==( OrderedMap const & a, OrderedMap const & b ) {
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
   static Value * valueOf( Member * member ) { return member ? &member->value : nullptr; }

   Member * lookup( KeyArgument key ) const {
      if( !tree_ ) {
         return nullptr;
      }
      auto node = nodeOf( key );
      return node == tree_->nodes.end() ? nullptr : &Tree::member( node );
   }

   // What is put behind all others and taken from the front, as by a queue, is not searched for.
   Node nodeOf( KeyArgument key ) const {
      auto & nodes = tree_->nodes;
      if( !nodes.empty() ) {
         if( std::prev( nodes.end() )->key < key ) {
            return nodes.end();
         }
         if( auto first = nodes.begin(); !( first->key < key ) && !( key < first->key ) ) {
            return first;
         }
      }
      return nodes.find( key );
   }

   Member * firstMember() const {
      return empty() ? nullptr : &Tree::member( tree_->nodes.begin() );
   }
   Member * lastMember() const {
      return empty() ? nullptr : &Tree::member( std::prev( tree_->nodes.end() ) );
   }

   template< class Wanted >
   Wanted at( KeyArgument key ) const {
      return tree_ ? Wanted( std::in_place, tree_, tree_->nodes.find( key ) ) : Wanted();
   }

   // The member is complete before the tree sees it: its constructors may use the collection too.
   template< class... Args >
   Inserted append( KeyArgument key, Args &&... args ) {
      typename Tree::Nodes alone;
      auto made = alone.extract( alone.emplace( key, std::forward< Args >( args )... ).first );
      if( !tree_ ) {
         tree_ = new Tree;
      }
      // The last place is a guess, which is right for what comes in ascending order.
      auto const size = tree_->nodes.size();
      auto const node = tree_->nodes.insert( tree_->nodes.end(), std::move( made ) );
      return { &Tree::member( node ).value, tree_->nodes.size() > size };
   }

   Tree * tree_ = nullptr;
};

} // namespace Kiv
