// SPDX-License-Identifier: Apache-2.0
#pragma once

// What Kiv::Interned finds its objects in: chains of those whose hashes end alike.
//
// There are about as many chains as objects. One is split whenever an object comes, and two are joined when
// many have gone, so that no operation takes much longer than others. The chains' heads stand in segments
// that double and do not move.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace Kiv::Detail {

struct InternNode {
   explicit InternNode( std::size_t hashed ) : hash( hashed ) {}
   InternNode( InternNode const & ) = delete;
   InternNode & operator=( InternNode const & ) = delete;

   InternNode * next = nullptr;
   std::size_t const hash;
   std::uint32_t holders = 1;
};

// It needs no destructor, so that objects which live until the process ends may go after it: with the last
// object, all of its memory has gone.
class InternTable {
 public:
   std::size_t size() const { return size_; }

   // The node with this hash of which `isWanted( node )`; null when there is none.
   template< class IsWanted >
   InternNode * find( std::size_t hash, IsWanted const & isWanted ) const {
      if( size_ == 0 ) {
         return nullptr;
      }
      for( auto * node = head( chainOf( hash ) ); node; node = node->next ) {
         if( node->hash == hash && isWanted( *node ) ) {
            return node;
         }
      }
      return nullptr;
   }

   // One that is not in. Throws std::bad_alloc; nothing has changed then.
   void insert( InternNode & node );
   // One that is in.
   void erase( InternNode & node ) noexcept;

 private:
   static constexpr unsigned firstBits = 4;
   static constexpr std::size_t firstChains = 1u << firstBits;

   std::size_t chainOf( std::size_t hash ) const {
      auto const chain = hash & mask_;
      return chain < chains_ ? chain : chain & mask_ >> 1;
   }
   static unsigned segmentOf( std::size_t chain ) {
      return static_cast< unsigned >( std::bit_width( chain >> firstBits ) );
   }
   InternNode *& head( std::size_t chain ) const {
      auto const segment = segmentOf( chain );
      auto const begin = segment ? firstChains << ( segment - 1 ) : 0;
      return segments_[ segment ][ chain - begin ];
   }
   void split();
   void join() noexcept;
   void push( InternNode & node ) noexcept;
   void chainsAre( std::size_t chains ) {
      chains_ = chains;
      mask_ = chains ? std::bit_ceil( chains ) - 1 : 0;
   }

   // Number 0 has the first 16 chains, each other as many as all before it.
   std::array< InternNode **, 44 > segments_{};
   std::size_t chains_ = 0;
   std::size_t mask_ = 0; // of the bits that number chains
   std::size_t size_ = 0;
};

} // namespace Kiv::Detail
