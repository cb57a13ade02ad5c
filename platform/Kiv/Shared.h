// SPDX-License-Identifier: Apache-2.0
#pragma once

// A value that its copies share until one of them changes it (copy on write). It compares, orders, hashes
// and prints as the value; what was never changed has none of its own and is the default value.
//
//    Kiv::Shared< GroupInfo > info;
//    info->ttl()                    reads
//    info.mutate().ttlIs( 64 );     what other holders see stays as it is
//
// mutate() throws what copying throws, and has changed nothing then. The reference that it returns is good
// for changes until this is copied or goes; what is read stays good until this is changed, or goes.

#include "Kiv/Attribute.h"
#include "Kiv/Datum.h"
#include "Kiv/Hash.h"
#include "Kiv/Type.h"

#include <atomic>
#include <compare>
#include <utility>

namespace Kiv {

template< class T >
class Shared {
   struct Box {
      explicit Box( T const & from ) : value( from ) {}
      std::atomic< std::uint32_t > holders{ 1 };
      T value;
   };

 public:
   using KivHeld = T;

   Shared() = default;
   explicit Shared( T const & value ) : box_( new Box( value ) ) {}
   Shared( Shared const & other ) : box_( other.box_ ) {
      if( box_ ) {
         countBy( box_->holders, 1 );
      }
   }
   Shared( Shared && other ) noexcept : box_( std::exchange( other.box_, nullptr ) ) {}
   Shared & operator=( Shared other ) noexcept {
      std::swap( box_, other.box_ );
      return *this;
   }
   ~Shared() {
      if( box_ && countBy( box_->holders, ~0u ) == 1 ) {
         delete box_;
      }
   }

   T const & operator*() const { return box_ ? box_->value : absentValue< T >(); }
   T const * operator->() const { return &**this; }
   // Null for what never had a value of its own.
   T const * get() const { return box_ ? &box_->value : nullptr; }

   T & mutate() {
      if( !box_ || box_->holders.load( std::memory_order_acquire ) != 1 ) {
         *this = Shared( **this );
      }
      return box_->value;
   }

   friend bool operator==( Shared const & a, Shared const & b ) {
      return a.box_ == b.box_ || *a == *b;
   }
   friend auto operator<=>( Shared const & a, Shared const & b ) { return *a <=> *b; }
   std::size_t hash() const { return hashOf( **this ); }
   void print( std::string & out ) const { Kiv::print( out, **this ); }

 private:
   Box * box_ = nullptr;
};

} // namespace Kiv
