// SPDX-License-Identifier: Apache-2.0
#pragma once

// Puts very many keys in their order without ever taking long: they are sorted in runs as they come,
// and the runs are merged as the keys are taken.

#include "Glim/Words.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace Glim {

template< class Key >
class SortedKeys {
 public:
   // How many there are at most: what came twice is counted twice, and taken once.
   std::size_t size() const { return size_; }

   // Not after the first was taken.
   void add( Key const & key ) {
      if( runs_.empty() || runs_.back().keys.size() == runKeys ) {
         runs_.emplace_back();
      }
      auto & keys = runs_.back().keys;
      keys.push_back( key );
      ++size_;
      if( keys.size() == runKeys ) {
         std::sort( keys.begin(), keys.end(), before_ );
      }
   }

   // The next one in order. There must be one.
   Key take() {
      if( !merging_ ) {
         begin();
      }
      Key const key = takeNext();
      while( size_ != 0 && runs_.front().first() == key ) {
         takeNext();
      }
      taken_ = key;
      if( size_ == 0 ) {
         clear();
      }
      return key;
   }

   // Without any. What is added from now on is taken in its order, too, but those behind the key that
   // was taken last come first, unless that was the last of all.
   void restart() {
      auto const from = merging_ ? taken_ : before_.from;
      clear();
      before_.from = from;
   }
   void clear() { *this = {}; }

 private:
   static constexpr std::size_t runKeys = 4096;

   struct Run {
      std::vector< Key > keys;
      std::size_t next = 0;
      Key const & first() const { return keys[ next ]; }
   };
   struct Before {
      bool operator()( Key const & a, Key const & b ) const {
         bool const aLater = from && !KeyBefore()( *from, a );
         bool const bLater = from && !KeyBefore()( *from, b );
         return aLater != bLater ? bLater : KeyBefore()( a, b );
      }
      // A heap has the largest in front.
      bool operator()( Run const & a, Run const & b ) const {
         return ( *this )( b.first(), a.first() );
      }
      std::optional< Key > from;
   };

   void begin() {
      auto & last = runs_.back().keys;
      std::sort( last.begin(), last.end(), before_ );
      std::make_heap( runs_.begin(), runs_.end(), before_ );
      merging_ = true;
   }

   Key takeNext() {
      std::pop_heap( runs_.begin(), runs_.end(), before_ );
      auto & run = runs_.back();
      Key const key = run.keys[ run.next++ ];
      --size_;
      if( run.next == run.keys.size() ) {
         runs_.pop_back();
      } else {
         std::push_heap( runs_.begin(), runs_.end(), before_ );
      }
      return key;
   }

   std::vector< Run > runs_;
   std::size_t size_ = 0;
   bool merging_ = false;
   std::optional< Key > taken_; // last
   Before before_;
};

} // namespace Glim
