// SPDX-License-Identifier: Apache-2.0
#pragma once

// The search half of Kiv::HashMap: lines, and while they are being exchanged for more, others.
//
// No single write pays for growth. Some time before there are too few lines, more are made, and each
// write clears a part of those. When they take over, each write enters a few slots in them, until all
// are. Meanwhile a search that does not end at home in the new lines may have to look into the old
// ones, where all the others still are, and some that are in both. It costs nothing to ask whether it
// has to: an empty home ends a search only when it is what `ends_` says.

#include "Kiv/HashLines.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace Kiv::Detail {

class HashIndex {
 public:
   // Asks `at( slot )` for slots that were inserted with a hash like this one, until it answers
   // something that is not null. Returns the answer; null when there is none. Slot 0 is never
   // handed out.
   template< class At >
   auto find( std::uint32_t hash, At const & at ) const {
      return lines_.findAtHome( hash, at, [ & ]( std::uint32_t lane ) {
         return lane == ends_ ? decltype( at( lane ) ){} : findElsewhere( hash, at );
      } );
   }

   // A slot that is not in, and not 0.
   void insert( std::uint32_t hash, std::uint32_t slot ) { lines_.insert( hash, slot ); }

   // Takes out a slot that is in, inserted with that hash.
   void erase( std::uint32_t hash, std::uint32_t slot ) {
      lines_.erase( hash, slot );
      if( searchesBoth() ) [[unlikely]] {
         eraseOther( hash, slot );
      }
   }

   // Whether it has lines for all slots below endSlot, or has more in preparation.
   bool isPreparedFor( std::uint32_t endSlot ) const {
      return lines_.sufficeFor( endSlot ) || others_.sufficeFor( endSlot );
   }
   // Not before all are entered in those that it has. When this throws, nothing has changed.
   void prepareFor( std::uint32_t endSlot ) {
      others_ = HashLines( endSlot );
      proceeds_ = true;
   }

   // Changes to the lines that are prepared, if it needs them for slots below endSlot. All slots from
   // firstSlot to nextSlot are in.
   void grow( std::uint32_t firstSlot, std::uint32_t nextSlot, std::uint32_t endSlot ) {
      if( lines_.sufficeFor( endSlot ) ) {
         return;
      }
      while( !others_.clearSome() ) {
      }
      std::swap( lines_, others_ );
      proceeds_ = !others_.areNone();
      if( proceeds_ ) {
         ends_ = HashLines::impossible;
         nextSlot_ = firstSlot;
         endSlot_ = nextSlot;
      }
   }

   // Whether something has to be done with each write, by proceed().
   bool proceeds() const { return proceeds_; }

   // `slots.forEachLive( from, end, act )` calls act( slot, hash ) for what is in from there to there.
   template< class Slots >
   [[gnu::noinline]] void proceed( Slots const & slots ) {
      if( !searchesBoth() ) {
         proceeds_ = !others_.clearSome();
         return;
      }
      auto const end = std::min( endSlot_, nextSlot_ + slotsAtOnce );
      slots.forEachLive( std::exchange( nextSlot_, end ), end,
                         [ & ]( std::uint32_t slot, std::uint32_t hash ) {
                            // It is in when it was emptied and filled again meanwhile.
                            lines_.insertOnce( hash, slot );
                         } );
      if( nextSlot_ == endSlot_ ) {
         ends_ = HashLines::empty;
         proceeds_ = false;
         others_ = HashLines();
      }
   }

 private:
   static constexpr std::uint32_t slotsAtOnce = 256; // a few microseconds

   bool searchesBoth() const { return ends_ != HashLines::empty; }

   // Out of line, so that find() is short where it is used.
   template< class At >
   [[gnu::noinline]] auto findElsewhere( std::uint32_t hash, At at ) const {
      if( auto found = lines_.findInHomeLine( hash, at ) ) [[likely]] {
         return found;
      }
      auto const isAll = !searchesBoth() && !lines_.homeLineWasFull( hash );
      return isAll ? decltype( at( hash ) ){} : findAnywhere( hash, at );
   }

   // And this once more, since it is seldom needed.
   template< class At >
   [[gnu::noinline]] auto findAnywhere( std::uint32_t hash, At at ) const {
      auto found = lines_.find( hash, at );
      return found || !searchesBoth() ? found : others_.find( hash, at );
   }

   [[gnu::noinline]] void eraseOther( std::uint32_t hash, std::uint32_t slot ) {
      others_.erase( hash, slot );
   }

   std::uint32_t ends_ = HashLines::empty;
   bool proceeds_ = false;
   HashLines lines_;
   HashLines others_;
   std::uint32_t nextSlot_ = 0; // from here to endSlot_, they are to be entered yet
   std::uint32_t endSlot_ = 0;
};

} // namespace Kiv::Detail
