// SPDX-License-Identifier: Apache-2.0
#include "Kiv/InternTable.h"

#include <cstdlib>
#include <new>
#include <utility>

namespace Kiv::Detail {

namespace {

// Pages of it that nobody has touched yet cost nothing.
InternNode **
emptyChains( std::size_t count ) {
   auto * chains = static_cast< InternNode ** >( std::calloc( count, sizeof( InternNode * ) ) );
   if( !chains ) {
      throw std::bad_alloc();
   }
   return chains;
}

} // namespace

void
InternTable::insert( InternNode & node ) {
   if( chains_ == 0 ) {
      segments_[ 0 ] = emptyChains( firstChains );
      chainsAre( firstChains );
   } else if( size_ >= chains_ ) {
      split();
   }
   push( node );
   ++size_;
}

void
InternTable::erase( InternNode & node ) noexcept {
   auto * at = &head( chainOf( node.hash ) );
   while( *at != &node ) {
      at = &( *at )->next;
   }
   *at = node.next;
   --size_;
   if( size_ == 0 ) {
      while( chains_ > firstChains ) {
         join();
      }
      std::free( std::exchange( segments_[ 0 ], nullptr ) );
      chainsAre( 0 );
   } else {
      // As many as it takes to be done with the last object.
      for( int i = 0; i < 4 && size_ < chains_ / 4 && chains_ > firstChains; ++i ) {
         join();
      }
   }
}

void
InternTable::push( InternNode & node ) noexcept {
   auto & first = head( chainOf( node.hash ) );
   node.next = first;
   first = &node;
}

// The new last chain takes over its part of the chain that has stood for it.
void
InternTable::split() {
   if( std::has_single_bit( chains_ ) ) {
      segments_[ segmentOf( chains_ ) ] = emptyChains( chains_ );
   }
   auto const divided = chains_ - std::bit_floor( chains_ );
   chainsAre( chains_ + 1 );
   auto * node = std::exchange( head( divided ), nullptr );
   while( node ) {
      push( *std::exchange( node, node->next ) );
   }
}

// The last chain goes into the one that stands for it then.
void
InternTable::join() noexcept {
   auto * node = std::exchange( head( chains_ - 1 ), nullptr );
   chainsAre( chains_ - 1 );
   while( node ) {
      push( *std::exchange( node, node->next ) );
   }
   if( std::has_single_bit( chains_ ) && chains_ >= firstChains ) {
      std::free( std::exchange( segments_[ segmentOf( chains_ ) ], nullptr ) );
   }
}

} // namespace Kiv::Detail
