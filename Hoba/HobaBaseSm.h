// SPDX-License-Identifier: Apache-2.0
#pragma once

// The base of all state machines.
//
// A machine is built by its static factory, which is named after the class with "Is" behind it and
// takes the shared context first, then the entities that it watches, then those that it writes. The
// owner holds it by the pointer that the factory returns; it lives as long as it is held.
//
// Its constructor builds the reactors: first those on the entities given (a null entity leaves the
// slot empty), then the one on the shared context. They synchronise there and then, while virtual
// calls still reach the base class only: so a machine does nothing but keep its reactors in step
// before its owner says initializedIs( true ). handleInitialized() then performs the first full
// pass.
//
// What throws. Hooks of the hardware, counters that are read, handleVerify() and every handler may
// throw. Each failure stays where it is:
//
// - What a handler throws, or a hook that it calls, ends that handler. It is told
//   (HOBA_STEP_FAILED in the system log), the next handler has its turn, and whoever wrote the
//   attribute never sees it: his write is done. A handler therefore calls a hook first, and writes
//   down afterwards what the hook has done.
// - What a call from outside throws (initializedIs(), runningIs(), a factory) reaches its caller.
//   A beginning that throws has not begun: initialized() is false again, no reactor is initialized,
//   and the same call may be repeated. An ending that throws has ended.
// - A reactor whose first pass throws is not initialized, and the others have theirs. It has another
//   when it next hears of a change.
// - A machine that throws instead of verifying itself makes the pass a failed one; the others are
//   verified (see Hoba/HobaVerifiedSm.h).

#include "Kiv/Reactor.h"

namespace Hoba {

class HobaCommonSmData;

class HobaBaseSm : public Kiv::PtrInterface, public Kiv::ReactorOwner {
 public:
   static Kiv::Ptr< HobaBaseSm > HobaBaseSmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData );

   // Whether notifications reach the machine: itself first, then its reactors in field order.
   void hasNotificationActiveIs( bool active ) override;
   Kiv::Type const & fwkType() const override;
   ~HobaBaseSm() override;
   // `initialized` changed, in either direction. It may throw: see above.
   virtual void handleInitialized() {}
   // Marks the machine for deletion: its reactors first, its own mark last. A marked machine
   // ignores all further notifications.
   virtual void kivDoZombieReactors( bool marked );

   Kiv::Ptr< HobaCommonSmData > const & commonSmData() const { return commonSmData_; }
   bool initialized() const { return initialized_; }
   // Throws what handleInitialized() throws, and leaves the machine not initialized then.
   void initializedIs( bool initialized );

   // See Hoba/HobaAssert.h.
   void hobaAssert( Kiv::String const & message ) const;

 protected:
   explicit HobaBaseSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData );

 private:
   Kiv::Ptr< HobaCommonSmData > commonSmData_;
   bool initialized_ = false;
};

// What every factory does: allocate, construct, and only then let notifications in.
template< class Sm, class... Args >
Kiv::Ptr< Sm >
smIs( Args const &... args ) {
   auto sm = Kiv::make< Sm >( args... );
   sm->hasNotificationActiveIs( true );
   return sm;
}

} // namespace Hoba
