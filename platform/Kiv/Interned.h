// SPDX-License-Identifier: Apache-2.0
#pragma once

// Values of which equal ones are one object: compared and hashed at once, however large, and stored once,
// however often. The last of its holders takes an object with it.
//
//    Kiv::Interned< NextHop > a( nextHop );   // finds the object, or makes it
//    a == b                                   // the same object: no more than a comparison of pointers
//    a->macAddr, *a                           // the value; it never changes
//
// Interned values order and print as the value, so that nothing which shows depends on addresses.
// One that holds nothing (default constructed, moved from) is the default value, and costs nothing.
//
// T needs hash() and ==, which must agree, and is complete before it is interned: what it keeps of what it
// finds out about itself is up to date before (T may have `void beforeInterning() const`).
// One thread only. Making one throws what copying T throws, and std::bad_alloc; nothing has changed then.

#include "Kiv/Attribute.h"
#include "Kiv/Datum.h"
#include "Kiv/Hash.h"
#include "Kiv/InternTable.h"

#include <compare>
#include <memory>
#include <utility>

namespace Kiv {

template< class T >
class Interned {
   struct Node : Detail::InternNode {
      Node( std::size_t hashed, T const & from ) : InternNode( hashed ), value( from ) {}
      T const value;
   };

 public:
   using KivHeld = T;

   Interned() = default;
   Interned( T const & value ) : Interned( value, hashOf( value ) ) {}
   // For who knows hashOf( value ).
   Interned( T const & value, std::size_t hash ) {
      if( auto * known = lookup( value, hash ) ) {
         node_ = known;
         acquire();
      } else if( !( value == absentValue< T >() ) ) {
         node_ = make( value, hash );
      }
   }
   Interned( Interned const & other ) : node_( other.node_ ) { acquire(); }
   Interned( Interned && other ) noexcept : node_( std::exchange( other.node_, nullptr ) ) {}
   Interned & operator=( Interned other ) noexcept {
      std::swap( node_, other.node_ );
      return *this;
   }
   ~Interned() {
      if( node_ && --node_->holders == 0 ) {
         table().erase( *node_ );
         delete node_;
      }
   }

   // The one that equals the value, if anybody holds it; the default one otherwise. Makes nothing.
   static Interned find( T const & value ) {
      Interned found;
      found.node_ = lookup( value, hashOf( value ) );
      found.acquire();
      return found;
   }
   // The one with this hash of which `isWanted( value )`, or, if there is none, the one of make(), which is wanted
   // then: for who finds it by something else than a value.
   template< class IsWanted, class Make >
   static Interned findOrMake( std::size_t hash, IsWanted const & isWanted, Make const & make ) {
      Interned found;
      found.node_ =
            static_cast< Node * >( table().find( hash, [ & ]( Detail::InternNode const & node ) {
               return isWanted( static_cast< Node const & >( node ).value );
            } ) );
      found.acquire();
      return found.node_ ? found : Interned( make() );
   }
   // How many different values are held now.
   static std::size_t count() { return table().size(); }

   T const & operator*() const { return node_ ? node_->value : absentValue< T >(); }
   T const * operator->() const { return &**this; }
   // Of the default value, nobody counts them: 0.
   std::uint32_t holders() const { return node_ ? node_->holders : 0; }

   friend bool operator==( Interned const & a, Interned const & b ) { return a.node_ == b.node_; }
   friend std::strong_ordering operator<=>( Interned const & a, Interned const & b ) {
      return a == b ? std::strong_ordering::equal : *a <=> *b;
   }
   // That of the value.
   std::size_t hash() const { return node_ ? node_->hash : absentHash(); }
   void print( std::string & out ) const { Kiv::print( out, **this ); }

 private:
   static Detail::InternTable & table() {
      static constinit Detail::InternTable all;
      return all;
   }
   static std::size_t absentHash() {
      static std::size_t const hash = hashOf( absentValue< T >() );
      return hash;
   }
   static Node * lookup( T const & value, std::size_t hash ) {
      return static_cast< Node * >( table().find( hash, [ & ]( Detail::InternNode const & node ) {
         return static_cast< Node const & >( node ).value == value;
      } ) );
   }
   [[gnu::noinline]] static Node * make( T const & value, std::size_t hash ) {
      if constexpr( requires { value.beforeInterning(); } ) {
         value.beforeInterning();
      }
      auto node = std::make_unique< Node >( hash, value );
      table().insert( *node );
      return node.release();
   }
   void acquire() const {
      if( node_ ) {
         ++node_->holders;
      }
   }

   Node * node_ = nullptr;
};

} // namespace Kiv
