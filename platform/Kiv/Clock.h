// SPDX-License-Identifier: Apache-2.0
#pragma once

// Clocks and the timers that wait on them.
//
// A machine holds a Kiv::Clock, and one Kiv::Timer as a member for each thing it waits for. Times
// are absolute, in seconds of the clock. A clock does not move by itself: a Kiv::ClockDriver
// (ClockDriver.h) says what time it is and fires what is due.
//
// The rules, the same for every kind of clock:
// - A timer fires once for each arming, never before its time as now() tells it, and never from
//   inside timeMinIs(): a timer set for now or for the past fires in the driver's next run.
// - Timers fire in the order of their times; equal times fire in the order in which they were
//   armed, also across the clocks of one driver. Re-arming counts as arming anew.
// - Inside a callback everything is allowed: arm, re-arm, disarm and destroy any timer, including
//   the one that fires, and destroy any clock. The driver itself must survive its run.
// - Arming, re-arming and disarming allocate nothing.
//
// Clocks, timers and drivers belong to one thread, that of the event loop.

#include "Kiv/Entity.h"

#include <cstddef>
#include <cstdint>
#include <limits>

namespace Kiv {

class Clock;
class ClockDriver;

// The time that does not come: a timer set for it is disarmed.
inline constexpr Seconds never = std::numeric_limits< Seconds >::infinity();

// The part of a timer that belongs to whoever holds the armed timer. Only clocks and drivers
// look at it. The links serve a heap or a list, as `where` says.
struct TimerNode {
   static constexpr std::int32_t unarmed = -1; // nobody holds it
   static constexpr std::int32_t inDue = -2;   // the running driver is about to fire it
   static constexpr std::int32_t inHeap = -3;  // a clock's heap
   // 0 and up: a clock's own numbering, the slots of a timing wheel

   Seconds time = never;
   std::uint64_t arming = 0; // tells equal times apart: the earlier arming has the lower number
   TimerNode * next = nullptr;
   TimerNode * prev = nullptr;
   TimerNode * child = nullptr;
   std::int32_t where = unarmed;

   bool firesBefore( TimerNode const & other ) const {
      return time < other.time || ( time == other.time && arming < other.arming );
   }
};

// Timers ordered by (time, arming): a pairing heap through the nodes themselves. Arming is O(1),
// taking the first one or any one out is O(log n) amortised, and nothing is ever allocated.
class TimerHeap {
 public:
   bool empty() const { return root_ == nullptr; }
   TimerNode & top() const { return *root_; } // the heap is not empty

   // Takes a node that nobody holds and marks it with `where`.
   void push( TimerNode & node, std::int32_t where );
   // Removes and returns the first node, which is left unarmed. The heap is not empty.
   TimerNode & pop();
   // Removes a node of this heap and leaves it unarmed.
   void remove( TimerNode & node );

 private:
   static TimerNode * meld( TimerNode * a, TimerNode * b );
   static TimerNode * meldSiblings( TimerNode * first );

   TimerNode * root_ = nullptr;
};

// Something that waits for a time. Derive from it, or make it a member class of the one who
// waits; onTimeout() is called by the driver of the clock. The clock must be alive whenever
// timeMinIs() is called; a timer may outlive its clock, which disarms it on destruction.
class Timer : private TimerNode {
 public:
   explicit Timer( Clock & clock ) : clock_( clock ) {}
   virtual ~Timer() { disarm(); }
   Timer( Timer const & ) = delete;
   Timer & operator=( Timer const & ) = delete;

   // Arms the timer for `when`, in seconds of its clock, or re-arms it: an earlier arming is
   // forgotten. `never` disarms. Throws RangeException for a time that is not a number, and
   // leaves the timer as it was.
   void timeMinIs( Seconds when );
   // The time for which the timer is armed, `never` if it is not (so also inside its callback,
   // unless it has been re-armed there).
   Seconds timeMin() const { return time; }
   bool armed() const { return where != unarmed; }
   Clock & clock() const { return clock_; }

 protected:
   // The time has come. The timer is already disarmed, and may be re-armed or destroyed here.
   // An exception leaves through the driver's run(); the timers that had not had their turn stay
   // armed for the next one.
   virtual void onTimeout() = 0;

 private:
   friend class Clock;
   friend class ClockDriver;
   void disarm();

   Clock & clock_;
};

// What machines hold: the time, and the timers that wait for it. This clock keeps its timers in
// a heap; Mox::TimerWheel is the one for very many timers. Both behave alike.
//
// A clock whose driver has gone stands still: now() keeps the last time of that driver, timers
// may be armed and disarmed, and nothing fires until driverIs() gives it another driver.
class Clock : public Entity {
 public:
   Type const & fwkType() const override { return typeInstance< Clock >; }

   Clock(); // attaches to the ambient driver
   explicit Clock( ClockDriver & driver );
   ~Clock() override; // disarms its timers

   // Seconds, with the driver's origin.
   Seconds now() const;
   // The number of armed timers.
   std::size_t timers() const { return timers_; }
   // No timer fires before this time; `never` if none is armed. It may be earlier than the first
   // timer's own time, but then a run at this time brings the next answer closer to it.
   virtual Seconds nextTimeout() const;

   // The driver, null while there is none. Armed timers move along with their clock; their times
   // stay what they were.
   ClockDriver * driver() const { return driver_; }
   void driverIs( ClockDriver & driver );
   void driverDel();

 protected:
   // What a kind of clock does differently. None of these allocates or throws.

   // Sets the node's time to `when` and files it accordingly. The node is unarmed, or held by
   // this clock (its `where` is inHeap or a number of this clock's own); its `arming` is new.
   virtual void place( TimerNode & node, Seconds when );
   // Takes out a node that this clock holds, and leaves it unarmed.
   virtual void remove( TimerNode & node );
   // Moves every node whose time is at or before `now` into `due`, marked inDue.
   virtual void collectDue( Seconds now, TimerHeap & due );

   TimerHeap heap_;

 private:
   friend class Timer;
   friend class ClockDriver;
   void arm( Timer & timer, Seconds when );
   void disarm( Timer & timer );
   void attach( ClockDriver & driver );
   void detach( Seconds last );

   ClockDriver * driver_ = nullptr;
   std::size_t driverIndex_ = 0; // where the driver keeps this clock
   std::size_t timers_ = 0;
   std::uint64_t arming_ = 0; // the last arming number given while without a driver
   Seconds detachedTime_ = 0;
};

} // namespace Kiv
