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
   // `initialized` changed, in either direction.
   virtual void handleInitialized() {}
   // Marks the machine for deletion: its reactors first, its own mark last. A marked machine
   // ignores all further notifications.
   virtual void kivDoZombieReactors( bool marked );

   Kiv::Ptr< HobaCommonSmData > const & commonSmData() const { return commonSmData_; }
   bool initialized() const { return initialized_; }
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
