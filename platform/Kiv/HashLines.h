// SPDX-License-Identifier: Apache-2.0
#pragma once

// The lines that Kiv::HashMap searches: from a hash to the numbers of the slots that may hold the key.
//
// A lane is four bytes: the number of a slot in the low bits, the high bits of its hash above, and
// the highest bit set. Sixteen lanes are a line, one cache line. The low bits of the hash name a
// lane, the home; a slot that finds its home taken goes into any other lane of the line, and only
// out of a full line into the next. At most a quarter of the lanes is taken, so that nearly every
// search ends at home, having looked at the one member that it wants or at none. The others compare
// a whole line at once.
//
// What is not taken says how far a search must go. An `empty` lane was never taken, so nobody ever
// had to leave it for another. A line with an empty or a `vacated` lane was never full, so nobody
// had to leave it. `erased` is what goes out of a line that was.

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#if defined( __SSE2__ )
#include <emmintrin.h>
#endif

namespace Kiv::Detail {

class HashLines {
 public:
   static constexpr std::uint32_t empty = 0;
   static constexpr std::uint32_t impossible = 3; // no lane is this

   HashLines() = default;
   HashLines( HashLines && other ) noexcept { swap( other ); }
   HashLines & operator=( HashLines && other ) noexcept {
      HashLines( std::move( other ) ).swap( *this );
      return *this;
   }
   ~HashLines() { ::operator delete( owned_, lineAlign ); }

   // Lines for slots below endSlot, a power of two of at least 4. Of no use before they are clear.
   explicit HashLines( std::uint32_t endSlot ) : mask_( lanesFor( endSlot ) - 1 ) {
      lanes_ = owned_ = static_cast< std::uint32_t * >(
            ::operator new( ( mask_ + std::size_t{ 1 } ) * sizeof( std::uint32_t ), lineAlign ) );
   }

   // Clears some of the lines that are not; says whether all are. A part takes a few microseconds,
   // all together would take many.
   bool clearSome() {
      auto const end = std::min( cleared_ + lanesAtOnce, mask_ + 1 );
      std::fill( owned_ + cleared_, owned_ + end, empty );
      cleared_ = end;
      return cleared_ == mask_ + 1;
   }

   // Whether lines for so many slots would be no more than these.
   bool sufficeFor( std::uint32_t endSlot ) const {
      return owned_ && lanesFor( endSlot ) <= mask_ + 1;
   }
   bool areNone() const { return !owned_; }

   // Asks `at( slot )` for the slot whose hash may be this, if it is at home, and returns its answer.
   // Otherwise `elsewhere( lane )` with what is there instead.
   template< class At, class Elsewhere >
   auto findAtHome( std::uint32_t hash, At const & at, Elsewhere const & elsewhere ) const {
      auto const home = hash & mask_;
      auto const lane = lanes_[ home ];
      // If they fit, only the low bits differ; and those of the hash are `home`.
      auto const rest = lane ^ ( hash | taken );
      if( rest <= mask_ ) [[likely]] {
         if( auto found = at( rest ^ home ) ) [[likely]] {
            return found;
         }
      }
      return elsewhere( lane );
   }

   // Asks `at( slot )` for all slots in the line of the home that were inserted with a hash like this
   // one, until it answers something that is not null. Returns the answer; null when there is none.
   template< class At >
   auto findInHomeLine( std::uint32_t hash, At const & at ) const {
      return findInLine( homeLine( hash ), hash, at );
   }
   // Whether there may be others in other lines.
   bool homeLineWasFull( std::uint32_t hash ) const { return wasFull( lanes_ + homeLine( hash ) ); }

   // The same in all lines.
   template< class At >
   auto find( std::uint32_t hash, At const & at ) const {
      return search( hash, [ & ]( std::uint32_t line ) { return findInLine( line, hash, at ); } );
   }

   // A slot that is not in, and not 0.
   void insert( std::uint32_t hash, std::uint32_t slot ) {
      auto lane = hash & mask_;
      while( lanes_[ lane ] & taken ) {
         auto const line = lane & ~lineMask;
         if( auto vacant = match( lanes_ + line, taken, 0 ) ) {
            // The next one, around the end of the line: no lane is more in demand than another.
            auto behind = std::rotr( static_cast< std::uint16_t >( vacant ),
                                     static_cast< int >( lane & lineMask ) );
            lane = line + ( ( lane + first( behind ) ) & lineMask );
         } else {
            lane = ( lane + lineLanes ) & mask_;
         }
      }
      owned_[ lane ] = laneOf( hash, slot );
   }

   // The same for one that may be in, inserted with that hash.
   void insertOnce( std::uint32_t hash, std::uint32_t slot ) {
      if( lanes_[ hash & mask_ ] == empty || laneWith( hash, laneOf( hash, slot ) ) == nowhere ) {
         insert( hash, slot );
      }
   }

   // Takes out a slot that was inserted with that hash. False when it is not in.
   bool erase( std::uint32_t hash, std::uint32_t slot ) {
      auto const value = laneOf( hash, slot );
      auto lane = hash & mask_;
      if( lanes_[ lane ] != value ) {
         lane = laneWith( hash, value );
         if( lane == nowhere ) {
            return false;
         }
      }
      owned_[ lane ] = wasFull( lanes_ + ( lane & ~lineMask ) ) ? erased : vacated;
      return true;
   }

 private:
   static constexpr std::uint32_t lineLanes = 16;
   static constexpr std::uint32_t lineMask = lineLanes - 1;
   static constexpr std::align_val_t lineAlign{ 64 };
   static constexpr std::uint32_t lanesAtOnce = 4096;

   static constexpr std::uint32_t taken = 1u << 31;
   static constexpr std::uint32_t vacated = 1;
   static constexpr std::uint32_t erased = 2;

   static constexpr std::uint32_t nowhere = ~0u; // no lane has this number

   // What a search finds in before anything was inserted.
   struct alignas( 64 ) Line {
      std::uint32_t lane[ lineLanes ];
   };
   static constexpr Line nothing{};

   // In a single line a comparison of all lanes is all there is: it may be rather full.
   static std::uint32_t lanesFor( std::uint32_t endSlot ) {
      return endSlot <= lineLanes ? lineLanes : 4 * endSlot;
   }

   std::uint32_t laneOf( std::uint32_t hash, std::uint32_t slot ) const {
      return ( hash & ~mask_ ) | slot | taken;
   }

   static unsigned first( unsigned bits ) {
      return static_cast< unsigned >( std::countr_zero( bits ) );
   }

   // Bit i is set when lane i of the line is `wanted` under the mask.
   static unsigned match( std::uint32_t const * line, std::uint32_t mask, std::uint32_t wanted ) {
#if defined( __SSE2__ )
      auto const masks = _mm_set1_epi32( static_cast< int >( mask ) );
      auto const all = _mm_set1_epi32( static_cast< int >( wanted ) );
      auto four = [ & ]( unsigned i ) {
         auto lanes = _mm_load_si128( reinterpret_cast< __m128i const * >( line + i ) );
         return _mm_cmpeq_epi32( _mm_and_si128( lanes, masks ), all );
      };
      auto low = _mm_packs_epi32( four( 0 ), four( 4 ) );
      auto high = _mm_packs_epi32( four( 8 ), four( 12 ) );
      return static_cast< unsigned >( _mm_movemask_epi8( _mm_packs_epi16( low, high ) ) );
#else
      unsigned found = 0;
      for( unsigned i = 0; i < lineLanes; ++i ) {
         found |= static_cast< unsigned >( ( line[ i ] & mask ) == wanted ) << i;
      }
      return found;
#endif
   }

   [[gnu::always_inline]] static inline bool wasFull( std::uint32_t const * line ) {
#if defined( __SSE2__ )
      auto four = [ & ]( unsigned i ) {
         auto lanes = _mm_load_si128( reinterpret_cast< __m128i const * >( line + i ) );
         return _mm_srli_epi32( lanes, 1 ); // of empty and of vacated, nothing is left
      };
      auto none = _mm_setzero_si128();
      auto low =
            _mm_or_si128( _mm_cmpeq_epi32( four( 0 ), none ), _mm_cmpeq_epi32( four( 4 ), none ) );
      auto high =
            _mm_or_si128( _mm_cmpeq_epi32( four( 8 ), none ), _mm_cmpeq_epi32( four( 12 ), none ) );
      return _mm_movemask_epi8( _mm_or_si128( low, high ) ) == 0;
#else
      return match( line, ~vacated, empty ) == 0;
#endif
   }

   std::uint32_t homeLine( std::uint32_t hash ) const { return hash & mask_ & ~lineMask; }

   template< class At >
   auto findInLine( std::uint32_t line, std::uint32_t hash, At const & at ) const {
      auto const tag = laneOf( hash, 0 );
      for( auto fits = match( lanes_ + line, ~mask_, tag ); fits; fits &= fits - 1 ) {
         if( auto found = at( lanes_[ line + first( fits ) ] & mask_ ) ) [[likely]] {
            return found;
         }
      }
      return decltype( at( tag ) ){};
   }

   // Shows `look( line )` each line that a slot with this hash may be in, until it returns something
   // that is not null. Returns that; null when it never does.
   template< class Look >
   auto search( std::uint32_t hash, Look const & look ) const {
      auto line = homeLine( hash );
      for( std::uint32_t seen = 0; seen <= mask_; seen += lineLanes ) {
         if( auto found = look( line ) ) [[likely]] {
            return found;
         }
         if( !wasFull( lanes_ + line ) ) [[likely]] {
            break;
         }
         line = ( line + lineLanes ) & mask_;
      }
      return decltype( look( line ) ){};
   }

   // The lane that holds exactly this; nowhere when none does.
   [[gnu::noinline]] std::uint32_t laneWith( std::uint32_t hash, std::uint32_t value ) const {
      auto const behind = search( hash, [ & ]( std::uint32_t line ) {
         auto const equal = match( lanes_ + line, ~0u, value );
         return equal ? line + first( equal ) + 1 : 0;
      } );
      return behind ? behind - 1 : nowhere;
   }

   void swap( HashLines & other ) noexcept {
      std::swap( lanes_, other.lanes_ );
      std::swap( mask_, other.mask_ );
      std::swap( cleared_, other.cleared_ );
      std::swap( owned_, other.owned_ );
   }

   std::uint32_t const * lanes_ = nothing.lane;
   std::uint32_t mask_ = lineMask;   // of the bits that number lanes, and slots
   std::uint32_t cleared_ = 0;       // so many lanes have been
   std::uint32_t * owned_ = nullptr; // lanes_, once there are any
};

} // namespace Kiv::Detail
