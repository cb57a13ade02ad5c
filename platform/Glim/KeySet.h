// SPDX-License-Identifier: Apache-2.0
#pragma once

// A set of very many keys that never takes long: it grows a part at a time.

#include "Glim/Words.h"
#include "Kiv/HashMap.h"

#include <array>
#include <cstdint>
#include <utility>

namespace Glim {

template< class Key >
class KeySet {
 public:
   std::size_t size() const { return size_; }
   bool has( Key const & key ) const {
      return size_ != 0 && const_cast< KeySet * >( this )->part( key ).has( key );
   }
   void insert( Key const & key ) { size_ += part( key ).insert( key ) ? 1 : 0; }
   void erase( Key const & key ) {
      if( size_ != 0 ) {
         size_ -= part( key ).erase( key ) ? 1 : 0;
      }
   }
   // Calls use( key ) for some keys, at most so many, in an order that follows from what was done.
   template< class Use >
   void some( std::size_t most, Use && use ) const {
      for( auto const & each : parts_ ) {
         for( auto const & key : each ) {
            if( most-- == 0 ) {
               return;
            }
            use( key );
         }
      }
   }
   // Takes in all that `other` has, and leaves it empty. Takes as long as the smaller set is large.
   void merge( KeySet & other ) {
      if( size_ < other.size_ ) {
         std::swap( parts_, other.parts_ );
         std::swap( size_, other.size_ );
      }
      other.some( other.size_, [ & ]( Key const & key ) { insert( key ); } );
      other.parts_ = {};
      other.size_ = 0;
   }

 private:
   Kiv::HashSet< Key > & part( Key const & key ) {
      // The same in every run, since some() goes by the parts.
      auto const words = toWords( key );
      return parts_[ Layout::hashOf( { 0, 0xd6e8feb86659fd93 }, words.data(), words.size() ) >>
                     58 ];
   }

   std::array< Kiv::HashSet< Key >, 64 > parts_;
   std::size_t size_ = 0;
};

} // namespace Glim
