// SPDX-License-Identifier: Apache-2.0
#pragma once

// The search half of Kiv::HashMap: from a hash to the numbers of the slots that may hold the key.
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

#include <bit>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#if defined( __SSE2__ )
#include <emmintrin.h>
#endif

namespace Kiv::Detail {

class HashIndex {
 public:
   HashIndex() = default;
   HashIndex( HashIndex && other ) noexcept { swap( other ); }
   HashIndex & operator=( HashIndex && other ) noexcept {
      HashIndex( std::move( other ) ).swap( *this );
      return *this;
   }
   ~HashIndex() { ::operator delete( owned_, lineAlign ); }

   // An empty index for slots below endSlot, a power of two of at least 4.
   explicit HashIndex( std::uint32_t endSlot ) : HashIndex() {
      // In a single line a comparison of all lanes is all there is: it may be rather full.
      auto const lanes = endSlot <= lineLanes ? lineLanes : std::size_t{ 4 } * endSlot;
      auto * memory = ::operator new( lanes * sizeof( std::uint32_t ), lineAlign );
      owned_ = new( memory ) std::uint32_t[ lanes ]();
      lanes_ = owned_;
      mask_ = static_cast< std::uint32_t >( lanes - 1 );
   }

   // Asks `at( slot )` for slots that were inserted with a hash like this one, until it answers
   // something that is not null. Returns the answer; null when there is none. Slot 0 is never
   // handed out.
   template< class At >
   auto find( std::uint32_t hash, At const & at ) const {
      auto const home = hash & mask_;
      auto const value = lanes_[ home ];
      // If they fit, only the low bits differ; and those of the hash are `home`.
      auto const rest = value ^ ( hash | taken );
      if( rest <= mask_ ) [[likely]] {
         if( auto found = at( rest ^ home ) ) [[likely]] {
            return found;
         }
      }
      return value == empty ? decltype( at( home ) ){} : findInLines( hash, at );
   }

   // A slot that is not in, and not 0.
   void insert( std::uint32_t hash, std::uint32_t slot ) {
      auto lane = hash & mask_;
      while( owned_[ lane ] & taken ) {
         auto const line = lane & ~lineMask;
         if( auto vacant = match( owned_ + line, taken, 0 ) ) {
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

   // Takes out a slot that is in, inserted with that hash.
   void erase( std::uint32_t hash, std::uint32_t slot ) {
      auto const value = laneOf( hash, slot );
      auto lane = hash & mask_;
      while( owned_[ lane ] != value ) {
         auto const line = lane & ~lineMask;
         if( auto equal = match( owned_ + line, ~0u, value ) ) {
            lane = line + first( equal );
         } else {
            lane = ( lane + lineLanes ) & mask_;
         }
      }
      owned_[ lane ] = wasFull( owned_ + ( lane & ~lineMask ) ) ? erased : vacated;
   }

 private:
   static constexpr std::uint32_t lineLanes = 16;
   static constexpr std::uint32_t lineMask = lineLanes - 1;
   static constexpr std::align_val_t lineAlign{ 64 };

   static constexpr std::uint32_t taken = 1u << 31;
   static constexpr std::uint32_t empty = 0;
   static constexpr std::uint32_t vacated = 1;
   static constexpr std::uint32_t erased = 2;

   // What a search finds in before anything was inserted.
   struct alignas( 64 ) Line {
      std::uint32_t lane[ lineLanes ];
   };
   static constexpr Line nothing{};

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

   static bool wasFull( std::uint32_t const * line ) {
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

   // Out of line, so that find() is short where it is used.
   template< class At >
   [[gnu::noinline]] auto findInLines( std::uint32_t hash, At at ) const {
      auto const tag = laneOf( hash, 0 );
      auto line = hash & mask_ & ~lineMask;
      for( std::uint32_t seen = 0; seen <= mask_; seen += lineLanes ) {
         for( auto fits = match( lanes_ + line, ~mask_, tag ); fits; fits &= fits - 1 ) {
            if( auto found = at( lanes_[ line + first( fits ) ] & mask_ ) ) [[likely]] {
               return found;
            }
         }
         if( !wasFull( lanes_ + line ) ) [[likely]] {
            break;
         }
         line = ( line + lineLanes ) & mask_;
      }
      return decltype( at( tag ) ){};
   }

   void swap( HashIndex & other ) {
      std::swap( lanes_, other.lanes_ );
      std::swap( owned_, other.owned_ );
      std::swap( mask_, other.mask_ );
   }

   std::uint32_t const * lanes_ = nothing.lane;
   std::uint32_t * owned_ = nullptr; // lanes_, once there are any
   std::uint32_t mask_ = lineMask;   // of the bits that number lanes, and slots
};

} // namespace Kiv::Detail
