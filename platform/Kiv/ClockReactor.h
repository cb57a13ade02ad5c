// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a machine does when a time comes:
//
//    class KivClock : public Kiv::ClockReactor< VerifySm, &VerifySm::handleTimeout > {};
//    KIV_REACTOR( KivClock, clock );
//
//    clockIs( aClock );                   from now on it waits on that clock, for nothing yet
//    clock()->timeMinIs( when );          absolute, in the clock's seconds; Kiv::never disarms
//    clock()->noLaterThan( when );        the same, but what is armed for an earlier time stays so
//
// The handler is a member of the owner. It runs from the clock's driver, never
// from inside timeMinIs(), and not at all while the reactor is marked or its owner is silenced: a
// time that comes then is let pass. What it throws ends with it, as that of every handler: a handler
// that re-arms does so before what may throw, or keeps apart (guarded()) what others must not suffer.

#include "Kiv/Clock.h"
#include "Kiv/Reactor.h"

#include <optional>

namespace Kiv {

template< class OwnerT, auto handler, class KeyT = NoKey >
class ClockReactor
      : public Reactor< ClockReactor< OwnerT, handler, KeyT >, Clock const, OwnerT, KeyT > {
   using Base = Reactor< ClockReactor, Clock const, OwnerT, KeyT >;

 public:
   static constexpr auto handlers = Kiv::handlers();

   void notifierIs( Ptr< Clock const > const & clock ) {
      if( clock != this->notifier() ) {
         waiting_.reset();
         Base::notifierIs( clock );
         if( clock ) {
            waiting_.emplace( *clock, *this );
         }
      }
   }

   // Waits for `when`, instead of for whatever it waited for. Without a clock nothing happens.
   void timeMinIs( Seconds when ) {
      if( waiting_ ) {
         waiting_->timeMinIs( when );
      }
   }
   void noLaterThan( Seconds when ) {
      if( when < timeMin() ) {
         timeMinIs( when );
      }
   }
   // `never` while it waits for nothing.
   Seconds timeMin() const { return waiting_ ? waiting_->timeMin() : never; }
   // The clock's time; 0 without a clock.
   Seconds now() const { return this->notifier() ? this->notifier()->now() : 0; }

 private:
   class Waiting final : public Timer {
    public:
      Waiting( Clock const & clock, ClockReactor & reactor )
            : Timer( const_cast< Clock & >( clock ) ), reactor_( reactor ) {}

    private:
      void onTimeout() override {
         // The reactor lives until its handler has returned. This timer goes at once when the
         // handler turns to another clock, so nothing of it is looked at afterwards.
         Dispatch::Frame frame;
         if( reactor_.live() ) {
            DispatchRecorder::Scope recorded( DispatchRecorder::Kind::timeout, "timeout" );
            callHandler< handler >( reactor_ );
         }
      }

      ClockReactor & reactor_;
   };

   std::optional< Waiting > waiting_;
};

} // namespace Kiv
