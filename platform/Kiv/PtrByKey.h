// SPDX-License-Identifier: Apache-2.0
#pragma once

// A pointer among the fields of a value: to an object that is what its `key()` is. It compares, orders,
// hashes and prints as that key, so that equal values are equal in every process and every run; none is
// less than any. The key never changes while it is pointed at.
//
// E need not be complete before such pointers are copied or compared.

#include "Kiv/Datum.h"
#include "Kiv/Hash.h"
#include "Kiv/Ptr.h"

#include <compare>

namespace Kiv {

template< class E >
class PtrByKey : public Ptr< E > {
 public:
   using Ptr< E >::Ptr;
   PtrByKey( Ptr< E > const & ptr ) : Ptr< E >( ptr ) {}

   bool operator==( PtrByKey const & other ) const {
      return this->get() == other.get() || ( *this && other && ( *this )->key() == other->key() );
   }
   std::strong_ordering operator<=>( PtrByKey const & other ) const {
      if( this->get() == other.get() || !*this || !other ) {
         return ( this->get() != nullptr ) <=> ( other.get() != nullptr );
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
};

template< class E >
inline constexpr bool isPtr< PtrByKey< E > > = true;

} // namespace Kiv
