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

// Traces that `visited` members were enough for now.
void traceYield( std::string_view machine, std::uint32_t visited );

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
      auto const end = clock.now() + machine.commonSmData()->yieldTimeSlice();
      for( std::uint32_t visited = 0; walking() && !machine.kivMarkedForDeletion(); ) {
         if( visited > 0 && ( visited >= quantum || ( visited % visitsBetweenLooks == 0 &&
                                                      clock.now() >= end ) ) ) {
            traceYield( machine.fwkType().name(), visited );
            clock.noLaterThan( clock.now() );
            return false;
         }
         ++visited;
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
   // Looking at a clock costs as much as a short visit.
   static constexpr std::uint32_t visitsBetweenLooks = 8;

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
