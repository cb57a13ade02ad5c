// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <iterator>
#include <type_traits>
#include <utility>

namespace Kiv::Detail {

// How the containers of this folder are walked: by their cursor, which shows members as `Shown`.
//
// Copies stand on the same member and walk on by themselves. When its member is removed, an iterator
// stands before what comes next: step it, or compare it with end(), before you look at a member
// again. At the end it stands before what may be added.
template< class Cursor, class Shown >
class Iterator {
 public:
   using iterator_concept = std::forward_iterator_tag;
   using iterator_category = std::forward_iterator_tag;
   using value_type = std::remove_const_t< Shown >;
   using difference_type = std::ptrdiff_t;
   using pointer = Shown *;
   using reference = Shown &;

   Iterator() = default; // at the end of nothing
   template< class... Where >
   explicit Iterator( std::in_place_t, Where... where ) : cursor_( where... ) {}

   // It stands on a member: it is not at end(), and the member was not removed.
   Shown & operator*() const { return cursor_.member(); }
   Shown * operator->() const { return &**this; }

   Iterator & operator++() {
      cursor_.advance();
      return *this;
   }
   Iterator operator++( int ) {
      auto was = *this;
      cursor_.advance();
      return was;
   }

   friend bool operator==( Iterator const & a, std::default_sentinel_t ) {
      return a.cursor_.atEnd();
   }
   friend bool operator==( Iterator const & a, Iterator const & b ) {
      return a.cursor_.sameAs( b.cursor_ );
   }

 private:
   mutable Cursor cursor_;
};

} // namespace Kiv::Detail
