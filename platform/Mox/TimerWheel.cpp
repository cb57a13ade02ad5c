// SPDX-License-Identifier: Apache-2.0
#include "Mox/TimerWheel.h"

#include <bit>

namespace Mox {

using Kiv::Seconds;
using Kiv::TimerHeap;
using Kiv::TimerNode;

TimerWheel::TimerWheel() : position_( tickOf( now() ) ) {}

TimerWheel::TimerWheel( Kiv::ClockDriver & driver )
      : Clock( driver ), position_( tickOf( now() ) ) {}

TimerWheel::~TimerWheel() {
   for( unsigned index = 0; index < slots_.size(); ++index ) {
      TimerNode * node = slotTake( index );
      while( node ) {
         TimerNode * next = node->next;
         node->where = TimerNode::unarmed;
         node->time = Kiv::never;
         node = next;
      }
   }
}

// Monotone, which is all that the order of firing needs of it.
TimerWheel::Tick
TimerWheel::tickOf( Seconds time ) {
   Seconds ticks = time * ticksPerSecond;
   if( !( ticks > 0 ) ) {
      return 0;
   }
   return ticks < static_cast< Seconds >( maxTick ) ? static_cast< Tick >( ticks ) : maxTick;
}

unsigned
TimerWheel::slotOf( Tick tick ) const {
   // The lowest bit makes no difference, but says to whoever reads along that there is one.
   auto highest = static_cast< unsigned >( std::bit_width( ( tick ^ position_ ) | 1 ) ) - 1;
   unsigned level = highest / digitBits;
   auto digit = static_cast< unsigned >( tick >> ( level * digitBits ) ) % slotsPerLevel;
   return level * slotsPerLevel + digit;
}

// The slot's timers share with the position all digits above the slot's level.
bool
TimerWheel::firstSlot( Slot & slot ) const {
   for( unsigned level = 0; level < levels; ++level ) {
      if( used_[ level ] == 0 ) {
         continue;
      }
      auto digit = static_cast< unsigned >( std::countr_zero( used_[ level ] ) );
      unsigned shift = level * digitBits;
      Tick above = ( position_ >> shift ) / slotsPerLevel * slotsPerLevel;
      slot = { level * slotsPerLevel + digit, ( above + digit ) << shift };
      return true;
   }
   return false;
}

void
TimerWheel::link( TimerNode & node, unsigned index ) {
   TimerNode *& first = slots_[ index ];
   node.prev = nullptr;
   node.next = first;
   if( first ) {
      first->prev = &node;
   }
   first = &node;
   node.where = static_cast< std::int32_t >( index );
   used_[ index / slotsPerLevel ] |= std::uint64_t( 1 ) << ( index % slotsPerLevel );
}

void
TimerWheel::unlink( TimerNode & node ) {
   if( node.next ) {
      node.next->prev = node.prev;
   }
   if( node.prev ) {
      node.prev->next = node.next;
      return;
   }
   auto index = static_cast< unsigned >( node.where );
   slots_[ index ] = node.next;
   if( !node.next ) {
      used_[ index / slotsPerLevel ] &= ~( std::uint64_t( 1 ) << ( index % slotsPerLevel ) );
   }
}

// Empties a slot: returns the list of its nodes, which still carry its number.
TimerNode *
TimerWheel::slotTake( unsigned index ) {
   TimerNode * first = slots_[ index ];
   slots_[ index ] = nullptr;
   used_[ index / slotsPerLevel ] &= ~( std::uint64_t( 1 ) << ( index % slotsPerLevel ) );
   return first;
}

Seconds
TimerWheel::nextTimeout() const {
   // What the heap holds is at or before the position, and so before every slot.
   Slot slot;
   if( !heap_.empty() || !firstSlot( slot ) ) {
      return Clock::nextTimeout();
   }
   return static_cast< Seconds >( slot.start ) / ticksPerSecond;
}

void
TimerWheel::place( TimerNode & node, Seconds when ) {
   Tick tick = tickOf( when );
   if( tick <= position_ ) {
      if( node.where >= 0 ) {
         unlink( node );
      }
      Clock::place( node, when );
      return;
   }
   unsigned index = slotOf( tick );
   if( node.where == TimerNode::inHeap ) {
      heap_.remove( node );
   }
   node.time = when;
   if( node.where == static_cast< std::int32_t >( index ) ) {
      return; // slots keep no order
   }
   if( node.where >= 0 ) {
      unlink( node );
   }
   link( node, index );
}

void
TimerWheel::remove( TimerNode & node ) {
   if( node.where >= 0 ) {
      unlink( node );
      node.where = TimerNode::unarmed;
   } else {
      Clock::remove( node );
   }
}

void
TimerWheel::collectDue( Seconds now, TimerHeap & due ) {
   Tick const target = tickOf( now );
   Slot slot;
   while( firstSlot( slot ) && slot.start <= target ) {
      // The position goes along, so that the levels below have room for what is not yet due.
      position_ = slot.start;
      for( TimerNode * node = slotTake( slot.index ); node; ) {
         TimerNode * next = node->next;
         if( node->time <= now ) {
            due.push( *node, TimerNode::inDue );
         } else if( tickOf( node->time ) <= target ) {
            heap_.push( *node, TimerNode::inHeap );
         } else {
            link( *node, slotOf( tickOf( node->time ) ) );
         }
         node = next;
      }
   }
   // Every slot left starts after the target, so it is in the right place as seen from there,
   // too. A driver with an earlier time than the last one leaves the position ahead: harmless,
   // the heap takes what is armed before it.
   if( target > position_ ) {
      position_ = target;
   }
   Clock::collectDue( now, due );
}

} // namespace Mox
