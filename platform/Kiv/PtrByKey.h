// SPDX-License-Identifier: Apache-2.0
#pragma once

// A pointer among the fields of a value: to an object that is what its `key()` is. It compares, orders,
// hashes and prints as that key, so that equal values are equal in every process and every run; none is
// less than any. The key never changes while it is pointed at.
//
// E need not be complete where such pointers are only copied.

#include "Kiv/Datum.h"
#include "Kiv/Hash.h"
#include "Kiv/Ptr.h"

#include <compare>

namespace Kiv {

template< class E >
class PtrByKey {
 public:
   PtrByKey() = default;
   PtrByKey( std::nullptr_t ) {}
   PtrByKey( Ptr< E > const & ptr ) : ptr_( ptr ) {}

   E * get() const { return static_cast< E * >( ptr_.get() ); }
   E * operator->() const { return get(); }
   E & operator*() const { return *get(); }
   explicit operator bool() const { return ptr_ != nullptr; }
   operator Ptr< E >() const { return Ptr< E >( get() ); }

   bool operator==( PtrByKey const & other ) const {
      return ptr_ == other.ptr_ || ( *this && other && ( *this )->key() == other->key() );
   }
   std::strong_ordering operator<=>( PtrByKey const & other ) const {
      if( ptr_ == other.ptr_ || !*this || !other ) {
         return bool( *this ) <=> bool( other );
      }
      return ( *this )->key() <=> other->key();
   }
   std::size_t hash() const { return *this ? hashOf( ( *this )->key() ) : 0; }
   void print( std::string & out ) const {
      if( *this ) {
         Kiv::print( out, ( *this )->key() );
      } else {
         out += "none";
      }
   }

 private:
   Ptr< PtrInterface > ptr_; // which needs no E
};

template< class E >
inline constexpr bool isPtr< PtrByKey< E > > = true;

} // namespace Kiv
