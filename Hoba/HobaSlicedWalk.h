// SPDX-License-Identifier: Apache-2.0
#pragma once

// A walk over a collection that must not hold the thread: it stops when a count of members or the
// common time slice is used up, keeps its place, and asks to be called again.
//
//    Hoba::SlicedWalk< Kiv::HashMap< Key, Value > > review_;
//
//    review_.start( collection );
//    clock()->noLaterThan( clock()->now() );
//
//    void handleTimeout() {
//       review_.run( *this, *clock(), quantum, [ this ]( auto const & member ) { review( member ); } );
//    }
//
// A walk visits what there is when it gets there: members may come and go between slices and in
// visits, the one visited included, and the collection may go, which ends the walk. A visit may
// start() the walk anew, stop() it, and drop the machine. A visit that throws has had its turn: the
// exception leaves through run(), and the rest have theirs in the next slice.

#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaCommon.h"
#include "Kiv/ClockReactor.h"

#include <iterator>

namespace Hoba {

// Traces that so many were enough for now.
void traceYield( std::string_view machine, std::uint32_t done );

// What one turn of the thread may do: up to `quantum` things, for as long as the slice, but at least one. A clock is
// not looked at for each, but so often that the slice is kept within what one thing takes, unless the
// last of them takes many times as long as those before.
template< class Clock >
class TimeSlice {
 public:
   // `seconds` long. The clock outlives it.
   TimeSlice( Clock const & clock, std::uint32_t quantum, Kiv::Seconds seconds )
         : clock_( clock ), quantum_( quantum ), begin_( clock.now() ), seconds_( seconds ),
           now_( begin_ ) {}
   // As long as the context's yieldTimeSlice.
   TimeSlice( HobaBaseSm & machine, Clock const & clock, std::uint32_t quantum )
         : TimeSlice( clock, quantum, machine.commonSmData()->yieldTimeSlice() ) {}

   // Whether there is time for one more, which counts as done then.
   bool next() {
      if( done_ > 0 && ( done_ >= quantum_ || ( done_ >= nextLook_ && !look() ) ) ) {
         return false;
      }
      ++done_;
      return true;
   }
   std::uint32_t done() const { return done_; }
   // The time, as it was when the clock was looked at last.
   Kiv::Seconds now() const { return now_; }

 private:
   // Looking at a clock costs as much as a short visit.
   static constexpr std::uint32_t mostBetweenLooks = 8;

   bool look() {
      now_ = clock_.now();
      auto const left = seconds_ - ( now_ - begin_ );
      if( !( left > 0 ) ) {
         return false;
      }
      // As many as fit into half of what is left, going by those that are done.
      bool const isSlow = ( now_ - begin_ ) * mostBetweenLooks * 2 > left * done_;
      nextLook_ = done_ + ( isSlow ? 1 : mostBetweenLooks );
      return true;
   }

   Clock const & clock_;
   std::uint32_t const quantum_;
   Kiv::Seconds const begin_;
   Kiv::Seconds const seconds_;
   Kiv::Seconds now_;
   std::uint32_t done_ = 0;
   std::uint32_t nextLook_ = 1;
};

template< class Collection >
class SlicedWalk {
 public:
   // Begins before the first member. Nothing is visited before run().
   void start( Collection const & collection ) {
      place_ = collection.begin();
      walking_ = restarted_ = true;
   }
   void stop() { walking_ = false; }
   bool walking() const { return walking_ && !( place_ == std::default_sentinel ); }

   // Visits up to `quantum` members, for as long as the context's yieldTimeSlice, but at least one.
   // While some are left, `clock` is armed for now. Returns whether the walk is over; so is one that
   // was not started, and one whose machine is on its way out.
   template< class Clock, class Visit >
   bool run( HobaBaseSm & machine, Clock & clock, std::uint32_t quantum, Visit const & visit ) {
      Kiv::Dispatch::Frame frame;
      TimeSlice slice( machine, clock, quantum );
      while( walking() && !machine.kivMarkedForDeletion() ) {
         if( !slice.next() ) {
            traceYield( machine.fwkType().name(), slice.done() );
            clock.noLaterThan( clock.now() );
            return false;
         }
         restarted_ = false;
         try {
            visit( *place_ );
         } catch( ... ) {
            step();
            clock.noLaterThan( clock.now() );
            throw;
         }
         step();
      }
      walking_ = false;
      place_ = {};
      return true;
   }

 private:
   void step() {
      if( !restarted_ ) {
         ++place_;
      }
   }

   typename Collection::const_iterator place_;
   bool walking_ = false;
   bool restarted_ = false; // by the visit under way
};

} // namespace Hoba
