// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iterator>
#include <utility>
#include <vector>

namespace Glim {

// A walk over the rows that are there when it begins, less what is gone when it comes to them. The
// body may do anything. Rows has find( key ), Member is { key, value }.
template< class Rows, class Member >
class RowWalk {
 public:
   using Keys = std::vector< decltype( Member::key ) >;

   // In the order of the keys.
   RowWalk( Rows const & rows, Keys keys ) : rows_( &rows ), keys_( std::move( keys ) ) {
      settle();
   }
   Member const & operator*() const { return member_; }
   Member const * operator->() const { return &member_; }
   RowWalk & operator++() {
      ++next_;
      settle();
      return *this;
   }
   bool operator==( std::default_sentinel_t ) const { return next_ == keys_.size(); }

 private:
   void settle() {
      for( ; next_ != keys_.size(); ++next_ ) {
         if( auto const record = rows_->find( keys_[ next_ ] ) ) {
            member_ = { keys_[ next_ ], *record };
            return;
         }
      }
   }

   Rows const * rows_;
   Keys keys_;
   std::size_t next_ = 0;
   Member member_{};
};

} // namespace Glim
