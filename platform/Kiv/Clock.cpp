// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Clock.h"

#include "Kiv/ClockDriver.h"

#include <algorithm>
#include <cmath>

namespace Kiv {

// In a heap, `child` is a node's first child, `next` its next sibling, and `prev` its previous
// sibling or, for a first child, its parent. The root has neither siblings nor parent.

TimerNode *
TimerHeap::meld( TimerNode * a, TimerNode * b ) {
   if( b->firesBefore( *a ) ) {
      std::swap( a, b );
   }
   b->prev = a;
   b->next = a->child;
   if( a->child ) {
      a->child->prev = b;
   }
   a->child = b;
   return a;
}

// Two passes, which is what bounds the amortised cost: neighbours in pairs from left to right,
// then the pairs into one from right to left. The pairs are kept as a stack through `next`.
TimerNode *
TimerHeap::meldSiblings( TimerNode * first ) {
   TimerNode * pairs = nullptr;
   while( first ) {
      TimerNode * a = first;
      TimerNode * b = a->next;
      first = b ? b->next : nullptr;
      a->next = nullptr;
      if( b ) {
         b->next = nullptr;
         a = meld( a, b );
      }
      a->next = pairs;
      pairs = a;
   }
   TimerNode * root = nullptr;
   while( pairs ) {
      TimerNode * rest = pairs->next;
      pairs->next = nullptr;
      root = root ? meld( root, pairs ) : pairs;
      pairs = rest;
   }
   if( root ) {
      root->prev = nullptr;
   }
   return root;
}

void
TimerHeap::push( TimerNode & node, std::int32_t where ) {
   node.next = node.prev = node.child = nullptr;
   node.where = where;
   root_ = root_ ? meld( root_, &node ) : &node;
}

TimerNode &
TimerHeap::pop() {
   TimerNode & first = *root_;
   root_ = meldSiblings( first.child );
   first.child = nullptr;
   first.where = TimerNode::unarmed;
   return first;
}

void
TimerHeap::remove( TimerNode & node ) {
   if( &node == root_ ) {
      pop();
      return;
   }
   if( node.prev->child == &node ) {
      node.prev->child = node.next;
   } else {
      node.prev->next = node.next;
   }
   if( node.next ) {
      node.next->prev = node.prev;
   }
   if( TimerNode * orphans = meldSiblings( node.child ) ) {
      root_ = meld( root_, orphans );
   }
   node.next = node.prev = node.child = nullptr;
   node.where = TimerNode::unarmed;
}

void
Timer::timeMinIs( Seconds when ) {
   if( std::isnan( when ) ) {
      throw RangeException( "a timer's time is not a number: expected seconds, or never" );
   }
   if( when == never ) {
      disarm();
   } else {
      clock_.arm( *this, when );
   }
}

void
Timer::disarm() {
   // An unarmed timer may have outlived its clock.
   if( armed() ) {
      clock_.disarm( *this );
   }
}

Clock::Clock() : Clock( ClockDriver::ambient() ) {}

Clock::Clock( ClockDriver & driver ) : Entity( "clock" ) { attach( driver ); }

Clock::~Clock() {
   // Derived clocks have already let go of what they held themselves.
   auto forget = []( TimerHeap & heap ) {
      while( !heap.empty() ) {
         heap.pop().time = never;
      }
   };
   if( driver_ ) {
      detach( 0 );
   }
   forget( heap_ );
}

Seconds
Clock::now() const {
   return driver_ ? driver_->now() : detachedTime_;
}

Seconds
Clock::nextTimeout() const {
   return heap_.empty() ? never : heap_.top().time;
}

void
Clock::driverIs( ClockDriver & driver ) {
   if( driver_ == &driver ) {
      return;
   }
   driverDel();
   attach( driver );
}

void
Clock::driverDel() {
   if( driver_ ) {
      detach( driver_->now() );
   }
}

void
Clock::attach( ClockDriver & driver ) {
   driver.clocks_.push_back( this );
   driverIndex_ = driver.clocks_.size() - 1;
   driver_ = &driver;
   // What is armed from now on comes after what this clock holds already.
   driver.arming_ = std::max( driver.arming_, arming_ );
}

void
Clock::detach( Seconds last ) {
   ClockDriver & driver = *driver_;
   // In the middle of a run: this clock's timers that have not had their turn are its own again.
   // They go to the heap, which every kind of clock has, as a destructor cannot ask for more.
   TimerHeap others;
   while( !driver.due_.empty() ) {
      TimerNode & node = driver.due_.pop();
      if( &static_cast< Timer & >( node ).clock_ == this ) {
         heap_.push( node, TimerNode::inHeap );
      } else {
         others.push( node, TimerNode::inDue );
      }
   }
   driver.due_ = others;

   Clock * lastClock = driver.clocks_.back();
   driver.clocks_[ driverIndex_ ] = lastClock;
   lastClock->driverIndex_ = driverIndex_;
   driver.clocks_.pop_back();
   arming_ = driver.arming_;
   detachedTime_ = last;
   driver_ = nullptr;
}

void
Clock::arm( Timer & timer, Seconds when ) {
   if( timer.where == TimerNode::inDue ) {
      driver_->due_.remove( timer );
   } else if( timer.where == TimerNode::unarmed ) {
      ++timers_;
   }
   timer.arming = driver_ ? ++driver_->arming_ : ++arming_;
   place( timer, when );
}

void
Clock::disarm( Timer & timer ) {
   if( timer.where == TimerNode::inDue ) {
      driver_->due_.remove( timer );
   } else {
      remove( timer );
   }
   timer.time = never;
   --timers_;
}

void
Clock::place( TimerNode & node, Seconds when ) {
   if( node.where == TimerNode::inHeap ) {
      heap_.remove( node );
   }
   node.time = when;
   heap_.push( node, TimerNode::inHeap );
}

void
Clock::remove( TimerNode & node ) {
   heap_.remove( node );
}

void
Clock::collectDue( Seconds now, TimerHeap & due ) {
   while( !heap_.empty() && heap_.top().time <= now ) {
      due.push( heap_.pop(), TimerNode::inDue );
   }
}

} // namespace Kiv
