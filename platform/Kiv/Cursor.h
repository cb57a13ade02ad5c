// SPDX-License-Identifier: Apache-2.0
#pragma once

// What lets the containers of this folder be changed while they are iterated: a container knows
// the cursors that stand in it (an iterator is one), and when it moves or removes what they stand on
// it tells them. A cursor is therefore a link in a list that its container heads. Neither the
// containers nor this list are for more than one thread, reading included.

namespace Kiv::Detail {

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

   // All links of a list become those of another, which is empty.
   static void move( CursorLink *& from, CursorLink *& to ) {
      to = from;
      from = nullptr;
      if( to ) {
         to->at_ = &to;
      }
   }

 private:
   CursorLink ** at_ = nullptr; // the pointer that points here: the list's head or a next_
   CursorLink * next_ = nullptr;
};

// What all cursors are: in a table, or in none. The table has a list `cursors`, in which copies enrol
// beside their original.
template< class Table >
class CursorIn : public CursorLink {
 public:
   // The table goes.
   void leave() {
      unlink();
      table_ = nullptr;
   }

 protected:
   CursorIn() = default;
   explicit CursorIn( Table * table ) : table_( table ) { enrol(); }
   CursorIn( CursorIn const & other ) : CursorLink(), table_( other.table_ ) { enrol(); }
   CursorIn & operator=( CursorIn const & other ) {
      if( table_ != other.table_ ) {
         unlink();
         table_ = other.table_;
         enrol();
      }
      return *this;
   }
   ~CursorIn() = default;

   Table * table_ = nullptr;

 private:
   void enrol() {
      if( table_ ) {
         link( table_->cursors.head );
      }
   }
};

// The cursors in a table, which it declares behind what they stand on: they leave first.
template< class Cursor >
struct CursorList {
   CursorList() = default;
   CursorList( CursorList const & ) = delete;
   CursorList & operator=( CursorList const & ) = delete;
   ~CursorList() { letAllLeave(); }

   void letAllLeave() {
      while( head ) {
         static_cast< Cursor & >( *head ).leave();
      }
   }

   // When this is empty. Who takes them tells them.
   void take( CursorList & other ) { CursorLink::move( other.head, head ); }

   bool empty() const { return !head; }

   template< class Do >
   void forEach( Do const & act ) {
      for( auto * link = head; link; link = link->nextLink() ) {
         act( static_cast< Cursor & >( *link ) );
      }
   }

   CursorLink * head = nullptr;
};

} // namespace Kiv::Detail
