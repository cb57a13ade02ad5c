// SPDX-License-Identifier: Apache-2.0
#pragma once

// The search half of Kiv::HashMap: from a hash to the numbers of the slots that
// may hold the key.
//
// A lane is four bytes: the number of a slot in the low bits, as much of its
// hash as fits above, and the highest bit set. Sixteen lanes are a line, one
// cache line. The hash names a lane, the home; a slot that finds its home taken
// goes into any other lane of the line, and only out of a full line into the
// next. At most a quarter of the lanes is taken, so that most searches end at
// home, having looked at the one member they want or at none; the others
// compare a whole line at once.
//
// Two things hold after every operation. A lane that is empty is home to
// nothing in its line. A line that has ever been full has no empty lane: what
// is taken out of it leaves `erased` behind, and searches go on to the next
// line.

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
      // In a single line a comparison of all lanes is all there is: it may be
      // rather full.
      auto const lanes = endSlot <= lineLanes ? lineLanes : std::size_t{ 4 } * endSlot;
      auto * memory = ::operator new( lanes * sizeof( std::uint32_t ), lineAlign );
      owned_ = new( memory ) std::uint32_t[ lanes ]();
      lanes_ = owned_;
      laneMask_ = static_cast< std::uint32_t >( lanes - 1 );
      tagMask_ = ~( endSlot - 1 );
   }

   // Asks `at( slot )` for slots that were inserted with a hash like this one,
   // until it answers something that is not null. Returns the answer; null when
   // there is none. Slot 0 is never handed out.
   template< class At >
   auto find( std::uint32_t hash, At const & at ) const {
      auto const value = lanes_[ homeOf( hash ) ];
      auto const slot = value ^ tagOf( hash );
      // Not so, too, when the lane is not taken.
      if( ( slot & tagMask_ ) == 0 ) [[likely]] {
         if( auto found = at( slot ) ) [[likely]] {
            return found;
         }
      }
      return value == empty ? decltype( at( slot ) ){} : findInLines( hash, at );
   }

   // A slot that is not in, and not 0.
   void insert( std::uint32_t hash, std::uint32_t slot ) {
      auto lane = homeOf( hash );
      while( owned_[ lane ] & taken )
         [[unlikely]] {
            auto const line = lane & ~lineMask;
            if( auto vacant = match( owned_ + line, taken, 0 ) ) {
               // The next one, around the end of the line: no lane is more in demand
               // than another.
               auto behind = std::rotr( static_cast< std::uint16_t >( vacant ),
                                        static_cast< int >( lane & lineMask ) );
               lane = line + ( ( lane + first( behind ) ) & lineMask );
            } else {
               lane = ( lane + lineLanes ) & laneMask_;
            }
         }
      owned_[ lane ] = tagOf( hash ) | slot;
   }

   // Takes out a slot that is in, inserted with that hash.
   void erase( std::uint32_t hash, std::uint32_t slot ) {
      auto const value = tagOf( hash ) | slot;
      auto lane = homeOf( hash );
      while( owned_[ lane ] != value )
         [[unlikely]] {
            auto const line = lane & ~lineMask;
            if( auto equal = match( owned_ + line, ~0u, value ) ) {
               lane = line + first( equal );
            } else {
               lane = ( lane + lineLanes ) & laneMask_;
            }
         }
      auto * const line = owned_ + ( lane & ~lineMask );
      auto const mark = match( line, ~0u, empty ) ? empty : erased;
      auto gap = lane & lineMask;
      line[ gap ] = mark;
      // Whoever is at home in the gap moves in, and leaves another.
      while( auto away = withHome( line, gap ) ) {
         auto from = first( away );
         line[ gap ] = line[ from ];
         line[ from ] = mark;
         gap = from;
      }
   }

 private:
   static constexpr std::uint32_t lineLanes = 16;
   static constexpr std::uint32_t lineMask = lineLanes - 1;
   static constexpr std::align_val_t lineAlign{ 64 };

   static constexpr std::uint32_t taken = 1u << 31;
   static constexpr unsigned homeShift = 27; // the bits of a lane that name its home in the line
   static constexpr std::uint32_t empty = 0;
   static constexpr std::uint32_t erased = 1;

   // What a search finds before anything was inserted.
   static constexpr std::uint32_t nothing[ 1 ] = { empty };

   std::uint32_t homeOf( std::uint32_t hash ) const {
      return std::rotr( hash, homeShift ) & laneMask_;
   }
   std::uint32_t tagOf( std::uint32_t hash ) const { return ( hash & tagMask_ ) | taken; }

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

   // The taken lanes of a line whose home is lane `home`, that lane itself left
   // out.
   static unsigned withHome( std::uint32_t const * line, std::uint32_t home ) {
      return match( line, taken | lineMask << homeShift, taken | home << homeShift ) &
             ~( 1u << home );
   }

   // Out of line, so that find() is short where it is used.
   template< class At >
   [[gnu::noinline]] auto findInLines( std::uint32_t hash, At at ) const {
      auto const tag = tagOf( hash );
      auto line = homeOf( hash ) & ~lineMask;
      for( std::uint32_t seen = 0; seen <= laneMask_; seen += lineLanes ) {
         for( auto fits = match( lanes_ + line, tagMask_, tag ); fits; fits &= fits - 1 ) {
            if( auto found = at( lanes_[ line + first( fits ) ] ^ tag ) ) [[likely]] {
               return found;
            }
         }
         if( match( lanes_ + line, ~0u, empty ) ) [[likely]] {
            break;
         }
         line = ( line + lineLanes ) & laneMask_;
      }
      return decltype( at( tag ) ){};
   }

   void swap( HashIndex & other ) {
      std::swap( lanes_, other.lanes_ );
      std::swap( owned_, other.owned_ );
      std::swap( laneMask_, other.laneMask_ );
      std::swap( tagMask_, other.tagMask_ );
   }

   std::uint32_t const * lanes_ = nothing;
   std::uint32_t * owned_ = nullptr; // lanes_, once there are any
   std::uint32_t laneMask_ = 0;
   std::uint32_t tagMask_ = ~0u; // all but the bits of slot numbers
};

} // namespace Kiv::Detail
