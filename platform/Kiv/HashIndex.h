// SPDX-License-Identifier: Apache-2.0
#pragma once

// The search half of Kiv::HashMap: from a hash to the numbers of the slots that may hold the key.
//
// One chunk is one cache line: twelve one-byte tags, twelve slot numbers, and how many members
// were turned away because the line was full. A search compares all tags at once and looks at a
// member only when its tag fits, so a hit costs two cache lines (this one and the member's own)
// and a miss nearly always one. Removal needs no tombstones: the turned-away counts say how far a
// search must go, and they are taken back.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

#if defined( __SSE2__ )
#include <emmintrin.h>
#endif

namespace Kiv::Detail {

struct alignas( 64 ) HashChunk {
   static constexpr unsigned capacity = 12;
   static constexpr unsigned members = ( 1u << capacity ) - 1;
   static constexpr std::uint8_t saturated = 255;

   std::array< std::uint8_t, 15 > tag; // 0: free; the last three are never used
   std::uint8_t turnedAway;            // sticks at 255 until the index is rebuilt
   std::array< std::uint32_t, 12 > slot;

   // Bit i is set when tag i equals the wanted one.
   unsigned match( std::uint8_t wanted ) const {
#if defined( __SSE2__ )
      auto tags = _mm_load_si128( reinterpret_cast< __m128i const * >( this ) );
      auto equal = _mm_cmpeq_epi8( tags, _mm_set1_epi8( static_cast< char >( wanted ) ) );
      return static_cast< unsigned >( _mm_movemask_epi8( equal ) ) & members;
#else
      unsigned found = 0;
      for( unsigned i = 0; i < capacity; ++i ) {
         found |= static_cast< unsigned >( tag[ i ] == wanted ) << i;
      }
      return found;
#endif
   }
};
static_assert( sizeof( HashChunk ) == 64 );

// What a search finds in before anything was inserted.
inline constexpr HashChunk emptyHashChunk{};

class HashIndex {
 public:
   HashIndex() = default;
   HashIndex( HashIndex && other ) noexcept { swap( other ); }
   HashIndex & operator=( HashIndex && other ) noexcept {
      HashIndex( std::move( other ) ).swap( *this );
      return *this;
   }
   ~HashIndex() { delete[] owned_; }

   // How many members fit before the index must be rebuilt with more chunks.
   std::uint32_t limit() const { return limit_; }

   // The first slot whose tag fits the hash and for which `same( slot )` holds; 0 when there is
   // none. Slot 0 is never handed out.
   template< class Same >
   std::uint32_t find( std::uint32_t hash, Same const & same ) const {
      auto const wanted = tagOf( hash );
      auto at = hash & mask_;
      for( std::uint32_t probes = 0; probes <= mask_; ++probes ) {
         HashChunk const & chunk = chunks_[ at ];
         for( auto fits = chunk.match( wanted ); fits; fits &= fits - 1 ) {
            auto slot = chunk.slot[ static_cast< unsigned >( std::countr_zero( fits ) ) ];
            if( same( slot ) ) [[likely]] {
               return slot;
            }
         }
         if( chunk.turnedAway == 0 ) [[likely]] {
            return 0;
         }
         at = ( at + stepOf( wanted ) ) & mask_;
      }
      return 0;
   }

   // The caller has seen to it that fewer than limit() members are here.
   void insert( std::uint32_t hash, std::uint32_t slot ) {
      auto const tag = tagOf( hash );
      auto at = hash & mask_;
      auto room = owned_[ at ].match( 0 );
      while( room == 0 )
         [[unlikely]] {
            if( owned_[ at ].turnedAway != HashChunk::saturated ) {
               ++owned_[ at ].turnedAway;
            }
            at = ( at + stepOf( tag ) ) & mask_;
            room = owned_[ at ].match( 0 );
         }
      auto i = static_cast< unsigned >( std::countr_zero( room ) );
      owned_[ at ].tag[ i ] = tag;
      owned_[ at ].slot[ i ] = slot;
   }

   // Takes out a slot that is in.
   void erase( std::uint32_t hash, std::uint32_t slot ) {
      auto const tag = tagOf( hash );
      auto at = hash & mask_;
      while( !eraseIn( owned_[ at ], tag, slot ) )
         [[unlikely]] {
            if( owned_[ at ].turnedAway != HashChunk::saturated ) {
               --owned_[ at ].turnedAway;
            }
            at = ( at + stepOf( tag ) ) & mask_;
         }
   }

   // An empty index with room for at least that many members.
   static HashIndex withRoomFor( std::uint32_t members ) {
      std::uint32_t chunks = 1;
      while( limitOf( chunks ) < members ) {
         chunks *= 2;
      }
      HashIndex index;
      index.owned_ = new HashChunk[ chunks ]();
      index.chunks_ = index.owned_;
      index.mask_ = chunks - 1;
      index.limit_ = limitOf( chunks );
      return index;
   }

 private:
   static std::uint8_t tagOf( std::uint32_t hash ) {
      auto tag = static_cast< std::uint8_t >( hash >> 24 );
      return tag ? tag : 1;
   }

   // Odd, so that a search passes every chunk before it comes back to its first.
   static std::uint32_t stepOf( std::uint8_t tag ) { return 2u * tag + 1; }

   static std::uint32_t limitOf( std::uint32_t chunks ) {
      return chunks == 1 ? HashChunk::capacity : chunks * 10;
   }

   static bool eraseIn( HashChunk & chunk, std::uint8_t tag, std::uint32_t slot ) {
      for( auto fits = chunk.match( tag ); fits; fits &= fits - 1 ) {
         auto i = static_cast< unsigned >( std::countr_zero( fits ) );
         if( chunk.slot[ i ] == slot ) {
            chunk.tag[ i ] = 0;
            return true;
         }
      }
      return false;
   }

   void swap( HashIndex & other ) {
      std::swap( chunks_, other.chunks_ );
      std::swap( owned_, other.owned_ );
      std::swap( mask_, other.mask_ );
      std::swap( limit_, other.limit_ );
   }

   HashChunk const * chunks_ = &emptyHashChunk;
   std::uint32_t mask_ = 0;
   std::uint32_t limit_ = 0;
   HashChunk * owned_ = nullptr; // chunks_, once there are any
};

} // namespace Kiv::Detail
