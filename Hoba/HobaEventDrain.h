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
//    enabled    false keeps the queue as it is, also in the middle of a drain; true drains it
//    running    the hardware may report: this is the machine that the entry functions know. What is
//               drained while it is false is discarded, but then only a new event causes a drain:
//               what waits for a machine that does not run yet, waits
//
// Sm, the machine itself, brings
//
//    void registerMachine()           tells the entry functions of this machine, and calls hwInit()
//    void unregisterMachine()         tells them that there is none, if they know this one
//    void cleanupHardware()           calls hwCleanup()
//    void applyEvent( std::uint32_t index, Event const & )
//    void handleEmpty()               a drain has left nothing in the queue
//    EventQueueStatus & status()
//
// and includes Hoba/HobaEventDrainImpl.h in its source file, behind its ZIPLINE_HANDLE.

#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaEventQueue.h"
#include "Kiv/ClockReactor.h"

namespace Hoba {

template< class Sm, class QueueT >
class EventDrain : public HobaBaseSm {
 public:
   using Queue = QueueT;

   void handleInitialized() override;

   bool running() const { return running_; }
   // Takes effect once the machine is initialized. Stopped, it may be gone on return, if the entry
   // functions held it last. Throws what hwInit() and hwCleanup() throw: then the machine does not
   // run, and is not registered. When initializedIs() calls them and throws, running() stays as it
   // was asked for, and initializing again calls them again.
   void runningIs( bool running );
   bool enabled() const { return enabled_; }
   void enabledIs( bool enabled );

   // The end: the entry functions forget the machine and the hardware's part is ended. May drop the
   // last reference to the machine but the caller's.
   void cleanup();

   // Null for none.
   Queue * queue() const { return eventQueue() ? eventQueue()->notifier() : nullptr; }

 protected:
   // The clock is one of the machine's own, on the ambient driver.
   EventDrain( Kiv::Ptr< HobaCommonSmData > const & commonSmData, Kiv::Ptr< Queue > const & queue );

   // When the event that is being applied is said to have happened, in seconds of the clock. What
   // is drained together has one time.
   Kiv::Seconds eventTime() const { return draining_ ? drainTime_ : clock()->now(); }

 private:
   Sm & self() { return static_cast< Sm & >( *this ); }
   void handleRunning();
   void handleEvent( std::uint32_t const & index );
   void handleEvent();
   void start();
   void stop();
   void wake();
   void resume();
   void drain();
   void handleFirstEvent();

   class KivEventQueue : public Kiv::Reactor< KivEventQueue, Queue, EventDrain > {
      static constexpr void ( EventDrain::*handleIndex )( std::uint32_t const & ) =
            &EventDrain::handleEvent;

    public:
      static constexpr auto handlers =
            Kiv::handlers( Kiv::onChange< Queue::eventAttr, handleIndex >() );
   };
   void handleClockEvent() { handleEvent(); }
   class KivClock
         : public Kiv::ClockReactor< EventDrain, &EventDrain::handleClockEvent > {};

   KIV_REACTOR( KivEventQueue, eventQueue );
   KIV_REACTOR( KivClock, clock );

 private:
   bool running_ = false;
   bool enabled_ = true;
   bool apiRunning_ = false; // the hardware's part was initialized and has not been ended
   bool draining_ = false;
   Kiv::Seconds drainTime_ = 0;
};

} // namespace Hoba
