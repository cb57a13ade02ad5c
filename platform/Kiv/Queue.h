// SPDX-License-Identifier: Apache-2.0
#pragma once

// Link queues and stacks that may be changed while they are walked.
//
// - A walk of a queue goes from front to back, of a stack from bottom to top. Its body may add and
//   take anything, the member it is at included, and clear() or destroy the collection. A member
//   that is taken before the walk reaches it is not visited; one that is added is.
// - References to a member stay valid until it is taken, or one that is neither first nor last is
//   erased.
// - What a removed member owns is let go when the collection no longer knows the member and is
//   complete again, so the destructors of members may use the collection in any way.
// - An empty collection is one pointer. Memory comes with the first member and goes with clear().
// - Members need to be movable. One thread only, const operations included.

#include "Kiv/Cursor.h"
#include "Kiv/Exception.h"
#include "Kiv/Iterator.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace Kiv {

namespace Detail {

template< class T >
struct SequenceTable {
   // On a member; or (it was removed) before the one that followed it; or at the end.
   class Cursor : public CursorIn< SequenceTable > {
    public:
      Cursor() = default;
      explicit Cursor( SequenceTable * table ) : CursorIn< SequenceTable >( table ) { atEnd(); }

      bool atEnd() {
         if( !this->table_ || index_ == this->table_->members.size() ) {
            return true;
         }
         before_ = false;
         return false;
      }

      void advance() {
         index_ += !before_;
         before_ = true;
         atEnd();
      }

      // There must be one: !atEnd().
      T & member() {
         before_ = false;
         return this->table_->members[ index_ ];
      }

      bool sameAs( Cursor & other ) {
         auto end = atEnd();
         return end == other.atEnd() &&
                ( end || ( this->table_ == other.table_ && index_ == other.index_ ) );
      }

      void indexGoes( std::size_t index ) {
         before_ = before_ || ( index_ == index && index_ < this->table_->members.size() );
         index_ -= index_ > index;
      }

      // goes[ i ]: whether member i does.
      void someGo( std::vector< bool > const & goes ) {
         before_ = before_ || ( index_ < goes.size() && goes[ index_ ] );
         auto to = goes.begin() + static_cast< std::ptrdiff_t >( index_ );
         index_ -= static_cast< std::size_t >( std::count( goes.begin(), to, true ) );
      }

      void allGo() {
         index_ = 0;
         before_ = true;
      }

    private:
      std::size_t index_ = 0;
      bool before_ = true; // the next step is onto index_ itself
   };

   T takeFront() {
      T taken = std::move( members.front() );
      cursors.forEach( []( Cursor & cursor ) { cursor.indexGoes( 0 ); } );
      members.pop_front();
      return taken;
   }

   T takeBack() {
      T taken = std::move( members.back() );
      auto const index = members.size() - 1;
      cursors.forEach( [ & ]( Cursor & cursor ) { cursor.indexGoes( index ); } );
      members.pop_back();
      return taken;
   }

   // Keeps the order of what stays.
   std::vector< T > take( std::vector< bool > const & goes, std::size_t howMany ) {
      std::vector< T > taken;
      taken.reserve( howMany );
      cursors.forEach( [ & ]( Cursor & cursor ) { cursor.someGo( goes ); } );
      std::size_t to = 0;
      for( std::size_t from = 0; from < goes.size(); ++from ) {
         if( goes[ from ] ) {
            taken.push_back( std::move( members[ from ] ) );
         } else {
            if( to != from ) {
               members[ to ] = std::move( members[ from ] );
            }
            ++to;
         }
      }
      while( members.size() > to ) {
         members.pop_back();
      }
      return taken;
   }

   std::deque< T > takeAll() {
      cursors.forEach( []( Cursor & cursor ) { cursor.allGo(); } );
      return std::exchange( members, std::deque< T >() );
   }

   std::deque< T > members;
   CursorList< Cursor > cursors;
};

// What queues and stacks have in common.
template< class T >
class Sequence {
 protected:
   using Table = SequenceTable< T >;

 public:
   using value_type = T;
   using size_type = std::uint32_t;

   using iterator = Iterator< typename Table::Cursor, T >;
   using const_iterator = Iterator< typename Table::Cursor, T const >;

   Sequence() = default;
   Sequence( Sequence const & other ) : Sequence() {
      if( !other.empty() ) {
         table().members = other.table_->members;
      }
   }
   Sequence( Sequence && other ) noexcept : table_( std::exchange( other.table_, nullptr ) ) {}
   // Iterators of what was here are at their end.
   Sequence & operator=( Sequence other ) noexcept {
      std::swap( table_, other.table_ );
      return *this;
   }
   ~Sequence() {
      // Again when the last words of a member added something.
      while( table_ ) {
         delete std::exchange( table_, nullptr );
      }
   }

   std::uint32_t size() const {
      return table_ ? static_cast< std::uint32_t >( table_->members.size() ) : 0;
   }
   bool empty() const { return size() == 0; }

   iterator begin() { return iterator( std::in_place, table_ ); }
   const_iterator begin() const { return const_iterator( std::in_place, table_ ); }
   std::default_sentinel_t end() const { return {}; }

   // Removes all members that equal the value; returns how many.
   std::uint32_t erase( T const & value ) {
      return eraseIf( [ & ]( T const & member ) { return member == value; } );
   }

   // Removes all members for which `wanted( member )` holds; returns how many. It is asked of every
   // member before the first is removed, and must not itself add or remove.
   template< class Wanted >
   std::uint32_t eraseIf( Wanted const & wanted ) {
      if( empty() ) {
         return 0;
      }
      std::vector< bool > goes;
      goes.reserve( table_->members.size() );
      for( T const & member : table_->members ) {
         goes.push_back( wanted( member ) );
      }
      auto const howMany = std::count( goes.begin(), goes.end(), true );
      if( howMany != 0 ) {
         auto gone = table_->take( goes, static_cast< std::size_t >( howMany ) );
      }
      return static_cast< std::uint32_t >( howMany );
   }

   // Keeps no memory, unless somebody is walking.
   void clear() {
      if( !table_ ) {
         return;
      }
      if( !table_->cursors.empty() ) {
         auto gone = table_->takeAll();
      } else {
         delete std::exchange( table_, nullptr );
      }
   }

   // The same members in the same order.
   friend bool operator==( Sequence const & a, Sequence const & b ) {
      return a.size() == b.size() && ( a.empty() || a.table_->members == b.table_->members );
   }

 protected:
   Table & table() {
      if( !table_ ) {
         table_ = new Table;
      }
      return *table_;
   }

   // The members, of which there must be one; otherwise throws `<operation> of an empty <what>`.
   std::deque< T > & some( char const * operation, char const * what ) const {
      if( empty() ) {
         throw Exception( std::string( operation ) + " of an empty " + what );
      }
      return table_->members;
   }

   T & atIndex( std::uint32_t index, char const * what ) const {
      if( index >= size() ) {
         throw Exception( "index " + std::to_string( index ) + " is beyond a " + what +
                          " of size " + std::to_string( size() ) );
      }
      return table_->members[ index ];
   }

   Table * table_ = nullptr;
};

} // namespace Detail

// First in, first out.
template< class T >
class Queue : public Detail::Sequence< T > {
 public:
   // To the back.
   void enq( T value ) { this->table().members.push_back( std::move( value ) ); }

   // Takes the front. This, front() and back() throw Kiv::Exception when the queue is empty.
   T deq() {
      this->some( "deq", "queue" );
      return this->table_->takeFront();
   }

   T & front() { return this->some( "front", "queue" ).front(); }
   T const & front() const { return this->some( "front", "queue" ).front(); }
   T & back() { return this->some( "back", "queue" ).back(); }
   T const & back() const { return this->some( "back", "queue" ).back(); }

   // Counted from the front, which is 0; throws Kiv::Exception when there is no such member.
   T & at( std::uint32_t index ) { return this->atIndex( index, "queue" ); }
   T const & at( std::uint32_t index ) const { return this->atIndex( index, "queue" ); }
};

// Last in, first out.
template< class T >
class Stack : public Detail::Sequence< T > {
 public:
   void push( T value ) { this->table().members.push_back( std::move( value ) ); }

   // Takes the top. This, top() and bottom() throw Kiv::Exception when the stack is empty.
   T pop() {
      this->some( "pop", "stack" );
      return this->table_->takeBack();
   }

   T & top() { return this->some( "top", "stack" ).back(); }
   T const & top() const { return this->some( "top", "stack" ).back(); }
   T & bottom() { return this->some( "bottom", "stack" ).front(); }
   T const & bottom() const { return this->some( "bottom", "stack" ).front(); }

   // Counted from the bottom, which is 0; throws Kiv::Exception when there is no such member.
   T & at( std::uint32_t index ) { return this->atIndex( index, "stack" ); }
   T const & at( std::uint32_t index ) const { return this->atIndex( index, "stack" ); }
};

} // namespace Kiv
