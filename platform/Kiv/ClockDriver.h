// SPDX-License-Identifier: Apache-2.0
#pragma once

// Drivers say what time it is and fire the timers of their clocks. Nothing else reads the time
// of the machine: an agent has one RealDriver in its event loop, tests and replays have a
// VirtualDriver and are therefore the same at every run.

#include "Kiv/Clock.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Kiv {

// A driver may be destroyed before its clocks: they keep its last time and stand still (see
// Clock). It must not be destroyed from inside a timer's callback; the program is aborted then.
class ClockDriver {
 public:
   virtual ~ClockDriver();
   ClockDriver( ClockDriver const & ) = delete;
   ClockDriver & operator=( ClockDriver const & ) = delete;

   // Seconds since an origin that is the driver's own. Never goes back.
   virtual Seconds now() const = 0;
   // The seconds since 1970-01-01 UTC at which the clocks read `time`: for printing time stamps.
   virtual Seconds wallTime( Seconds time ) const = 0;

   // The time at which run() wants to be called next: the earliest answer of the clocks, `never`
   // if no timer is armed. May be early (see Clock::nextTimeout), and may have passed. Linear in
   // the number of clocks.
   Seconds nextTimeout() const;

   // Fires every timer that is due now, on all clocks, in the order of (time, arming), and
   // returns how many fired. Only timers that were armed and due when run() began: what the
   // callbacks arm waits for the next run, whatever its time, so that a timer which re-arms
   // itself for now does not keep the event loop from its other work.
   // Throws Kiv::Exception when called from inside a timer's callback.
   std::size_t run();
   bool running() const { return running_; }

   // The number of clocks, and of timers armed on them.
   std::size_t clocks() const { return clocks_.size(); }
   std::size_t timers() const;

   // The driver of clocks that were given none. It is a RealDriver of the process, unless
   // another has been set; a driver that is destroyed stops being the ambient one. Clocks that
   // are attached already stay where they are.
   static ClockDriver & ambient();
   static void ambientIs( ClockDriver & driver );
   static void ambientDel(); // back to the process's own

 protected:
   ClockDriver() = default;
   // For the destructors of derived classes, while they can still tell the time: lets go of all
   // clocks, which will stand at `last`.
   void clocksDelAll( Seconds last );

 private:
   friend class Clock;
   class Run;

   std::vector< Clock * > clocks_; // in no particular order: nothing depends on it
   TimerHeap due_;                 // what the present run has still to fire
   std::uint64_t arming_ = 0;      // the last arming number given
   Seconds lastRun_ = 0;
   bool running_ = false;
};

// The time of the machine, from its monotonic clock.
class RealDriver : public ClockDriver {
 public:
   RealDriver() = default;
   ~RealDriver() override;

   Seconds now() const override;
   // By the wall clock as it is set at the moment of the call.
   Seconds wallTime( Seconds time ) const override;

   // How long an event loop may sleep before its next run(): milliseconds as poll() and
   // epoll_wait() take them, rounded up (waking early would only spin), 0 if a timer is due,
   // -1 if there is nothing to wait for.
   int pollTimeout() const;
};

// Time that moves only when told.
class VirtualDriver : public ClockDriver {
 public:
   // How often run() may be needed at one instant before advance() and its kin give up.
   static constexpr std::size_t maxRunsPerInstant = 100'000;

   explicit VirtualDriver( Seconds start = 0 );
   ~VirtualDriver() override;

   Seconds now() const override { return now_; }
   // The origin of a virtual driver is 1970-01-01 UTC.
   Seconds wallTime( Seconds time ) const override { return time; }

   // Sets the time and fires nothing: the next run() finds everything in between overdue, as an
   // event loop does that was held up. Allowed inside callbacks, which thereby take time.
   // Throws RangeException for a time before now(), infinite, or not a number.
   void timeIs( Seconds time );

   // Goes to now() + `delay`, or to `time`, and on the way stops at each time for which a timer
   // is armed and fires it there; what is armed on the way for a time on the way fires, too.
   // Returns how many timers fired. Idle time costs nothing, however long.
   // Throws RangeException as timeIs(), and Exception inside a callback, or when timers re-arm
   // themselves for the same instant without end.
   std::size_t advance( Seconds delay );
   std::size_t advanceTo( Seconds time );

   // Goes from armed time to armed time until no timer is armed, and stays at the time of the
   // last one that fired: returns true. If timers are still armed for later than now() +
   // `limit`, stops at that time and returns false. Throws as advance().
   bool runUntilIdle( Seconds limit );

 private:
   std::size_t stepTo( Seconds end );
   void checkTime( Seconds time ) const;

   Seconds now_;
};

} // namespace Kiv
