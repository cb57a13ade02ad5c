// SPDX-License-Identifier: Apache-2.0
#pragma once

// The clock for very many timers: arming, re-arming and disarming cost the same whatever their
// number. It behaves exactly as Kiv::Clock does.
//
// Time is cut into ticks. The digits of a tick's number, to the base of 64, name the slots: a
// timer lies in the level of the highest digit in which its tick differs from the wheel's
// position, in the slot of its own digit there. So everything in a level is earlier than
// everything in the levels above, 11 levels cover all of time, and idle time is skipped by
// looking at one word of bits for each level.
//
// When the position reaches a slot, its timers move to lower levels. The slots keep no order; the
// timers whose tick has come are kept in the exact order by the heap of the base class, and fire
// from there. Ticks therefore never show: no timer is early, or late, or out of order by them.

#include "Kiv/Clock.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace Mox {

class TimerWheel : public Kiv::Clock {
 public:
   Kiv::Type const & fwkType() const override { return Kiv::typeInstance< TimerWheel >; }

   // A power of two, so that between seconds and ticks nothing is rounded but the fraction.
   static constexpr Kiv::Seconds ticksPerSecond = 1024;

   TimerWheel(); // attaches to the ambient driver
   explicit TimerWheel( Kiv::ClockDriver & driver );
   ~TimerWheel() override;

   // The start of the first slot that is in use, at or before the first timer's own time. Each
   // run at such a time brings the timer down at least one level.
   Kiv::Seconds nextTimeout() const override;

 protected:
   void place( Kiv::TimerNode & node, Kiv::Seconds when ) override;
   void remove( Kiv::TimerNode & node ) override;
   void collectDue( Kiv::Seconds now, Kiv::TimerHeap & due ) override;

 private:
   using Tick = std::uint64_t;
   static constexpr unsigned digitBits = 6;
   static constexpr unsigned slotsPerLevel = 1u << digitBits;
   static constexpr Tick maxTick = Tick( 1 ) << 62; // later times share it: the heap sorts them
   static constexpr unsigned levels = 62 / digitBits + 1;

   struct Slot {
      unsigned index; // level * slotsPerLevel + digit
      Tick start;
   };

   static Tick tickOf( Kiv::Seconds time );
   unsigned slotOf( Tick tick ) const; // the tick is later than the position
   bool firstSlot( Slot & slot ) const;
   void link( Kiv::TimerNode & node, unsigned index );
   void unlink( Kiv::TimerNode & node );
   Kiv::TimerNode * slotTake( unsigned index );

   Tick position_;
   std::array< std::uint64_t, levels > used_{}; // a bit for each slot that is not empty
   std::array< Kiv::TimerNode *, levels * slotsPerLevel > slots_{};
};

} // namespace Mox
