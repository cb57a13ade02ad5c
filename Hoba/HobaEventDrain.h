// SPDX-License-Identifier: Apache-2.0
#pragma once

// The half that the machines of event queues have in common: when a queue is drained, and when the
// hardware's event interface runs.
//
// An event may be reported in the middle of a notification, when nothing may be changed under the
// feet of those who are being told. So it waits in the queue for the machine's clock, which fires
// from the event loop when the notification is over. However many events come in one go, they are
// one wake-up; a drain empties the queue, in the order of the indices, together with what arrives
// meanwhile.
//
// A machine watches its queue with Kiv::OnChange< Queue::eventAttr, &Sm::handleEvent >, and says
// below what is its own.

#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaEventQueue.h"
#include "Kiv/ClockReactor.h"

#include <optional>

namespace Hoba {

class EventDrainSm : public HobaBaseSm {
   KIV_ENTITY( Hoba::EventDrainSm, Hoba::HobaBaseSm );
   // The hardware may report: this is the machine that the entry functions know. What is drained
   // while it is false is discarded, but then only a new event causes a drain: what waits for a
   // machine that does not run yet, waits.
   //
   // Takes effect once the machine is initialized. Stopped, it may be gone on return, if the entry
   // functions held it last. Throws what the hardware throws at its beginning and its end: then the
   // machine does not run, and is not registered. When initializedIs() calls the hardware and throws,
   // running() stays as it was asked for, and initializing again calls it again.
   KIV_RULED( bool, running, false );
   // False keeps the queue as it is, also in the middle of a drain; true drains it.
   KIV_RULED( bool, enabled, true );
   // The hardware's part was initialized and has not been ended.
   KIV_ATTRIBUTE( bool, apiRunning, false );

 public:
   void handleInitialized() override;

   // The end: the entry functions forget the machine and the hardware's part is ended. May drop the
   // last reference to the machine but the caller's.
   void cleanup();

   // Null for none.
   virtual EventQueueBase * queue() const = 0;

 protected:
   // The clock is one of the machine's own, on the ambient driver. `className` is for traces.
   EventDrainSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData, char const * className );

   // When the event that is being applied is said to have happened, in seconds of the clock. What
   // is drained together has one time.
   Kiv::Seconds eventTime() const { return drainTime_ ? *drainTime_ : clock()->now(); }

   // The event of this index came or went.
   void handleEvent( std::uint32_t const & index );

 private:
   // Tells the entry functions of this machine, and has the hardware begin.
   virtual void registerMachine() = 0;
   // Tells them that there is none, if they know this one.
   virtual void unregisterMachine() = 0;
   virtual void cleanupHardware() = 0;
   // Applies the event that came first, oldestOf( queue()->event() ), and leaves it there.
   virtual void applyOldest() = 0;
   // A drain has left nothing in the queue.
   virtual void handleEmpty() {}
   virtual EventQueueStatus & status() = 0;
   // Traces with the handle of the machine's own source file.
   virtual void trace( int level, std::string_view text ) const = 0;

   void handleRunning();
   void start();
   void stop();
   void handleClockEvent();
   void wake();
   void resume();
   void drain();
   void handleFirstEvent();

   class KivClock : public Kiv::ClockReactor< EventDrainSm, &EventDrainSm::handleClockEvent > {};

   char const * const className_;
   std::optional< Kiv::Seconds > drainTime_; // of the drain under way
   KIV_REACTOR( KivClock, clock );
};

} // namespace Hoba
