// SPDX-License-Identifier: Apache-2.0
#pragma once

// What lets the containers of this folder be changed while they are iterated: a container knows
// the iterators that stand in it, and when it moves or removes what they stand on it tells them.
// An iterator is therefore a link in a list that its container heads. Neither the containers nor
// this list are for more than one thread, reading included.

namespace Kiv {

class CursorLink {
 public:
   CursorLink() = default;
   CursorLink( CursorLink const & ) = delete;
   CursorLink & operator=( CursorLink const & ) = delete;

 protected:
   ~CursorLink() { unlink(); }

// g++ 12 does not follow unlink(): an iterator that walks a temporary container would stay known to
// it for longer than it lives.
#if defined( __GNUC__ ) && __GNUC__ >= 12
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif
   void link( CursorLink *& head ) {
      next_ = head;
      at_ = &head;
      if( next_ ) {
         next_->at_ = &next_;
      }
      head = this;
   }
#if defined( __GNUC__ ) && __GNUC__ >= 12
#pragma GCC diagnostic pop
#endif

   void unlink() {
      if( !at_ ) {
         return;
      }
      *at_ = next_;
      if( next_ ) {
         next_->at_ = at_;
      }
      at_ = nullptr;
      next_ = nullptr;
   }

 public:
   CursorLink * nextLink() const { return next_; }

 private:
   CursorLink ** at_ = nullptr; // the pointer that points here: the list's head or a next_
   CursorLink * next_ = nullptr;
};

} // namespace Kiv
