// SPDX-License-Identifier: Apache-2.0
#pragma once

// The base of all state machines.
//
//    class VlanSm : public Hoba::HobaBaseSm {
//       HOBA_MACHINE( VlanSm );                             // VlanSmIs( ... ) makes one
//       KIV_COLLECTION( Bridging::VlanId, bool, dirty );    // its own state, as an entity's
//     public:
//       VlanSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData, Kiv::Ptr< Config const > const & config );
//       ...
//       KIV_REACTOR( KivConfig, config );
//    };
//
// and, in its source file, which includes Kiv/Reflect.h, KIV_DEFINE( Hoba::VlanSm ).
//
// A machine is built by its static factory, which is named after the class with "Is" behind it and
// takes what the constructor takes: the shared context first, then the entities that it watches, then
// those that it writes. The owner holds it by the pointer that the factory returns. It lives as long
// as it is held, and as somebody who looks at it from outside may hold it too, its owner ends it with
// letGo().
//
// A machine is an entity: its state is declared like one's, and mounted for those who ask what it
// knows and what waits in it. Only the machine itself writes it.
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

class HobaBaseSm : public Kiv::Entity, public Kiv::ReactorOwner {
   KIV_ENTITY( Hoba::HobaBaseSm );
   // Its setter throws what handleInitialized() throws, and leaves the machine not initialized then.
   KIV_RULED( bool, initialized, false );

 public:
   static Kiv::Ptr< HobaBaseSm > HobaBaseSmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData );

   // Whether notifications reach the machine: itself first, then its reactors in field order.
   void hasNotificationActiveIs( bool active ) override;
   ~HobaBaseSm() override;
   // Notifications reach the machine, or do again: who must not miss what came before catches up.
   virtual void handleNotificationActive() {}
   // `initialized` changed, in either direction. It may throw: see above.
   virtual void handleInitialized() {}
   // Marks the machine for deletion: its reactors first, its own mark last. A marked machine
   // ignores all further notifications. Machines of its own that have a last word with its end say
   // it then. An override ends what else reaches the machine from outside.
   void kivDoZombieReactors( bool marked ) override;

   Kiv::Ptr< HobaCommonSmData > const & commonSmData() const { return commonSmData_; }

   // See Hoba/HobaAssert.h.
   void hobaAssert( Kiv::String const & message ) const;

 protected:
   // `machineName` tells machines of one class apart.
   explicit HobaBaseSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                        Kiv::String const & machineName = {} );

 private:
   Kiv::Ptr< HobaCommonSmData > commonSmData_;
};

// What every factory does: allocate, construct, and only then let notifications in.
template< class Sm, class... Args >
Kiv::Ptr< Sm >
smIs( Args &&... args ) {
   auto sm = Kiv::make< Sm >( std::forward< Args >( args )... );
   sm->hasNotificationActiveIs( true );
   return sm;
}

// The owner's end of a machine: whoever still holds it has a machine that does nothing any more.
template< class Sm >
void
letGo( Kiv::Ptr< Sm > & sm ) {
   if( auto const gone = std::exchange( sm, nullptr ) ) {
      gone->kivDoZombieReactors( true );
   }
}

} // namespace Hoba

// Opens the class of a machine: its name, as it stands in messages, and, if it derives from another
// machine, that one's. NameIs() takes what the constructor takes.
#define HOBA_MACHINE( Name, ... )                                                                  \
   KIV_ENTITY( Name, ::Kiv::BaseOf< ::Hoba::HobaBaseSm __VA_OPT__(, ) __VA_ARGS__ >::type );       \
                                                                                                   \
 public:                                                                                           \
   template< class... KivArgs >                                                                    \
   static ::Kiv::Ptr< Name > Name##Is( KivArgs &&... args ) {                                      \
      return ::Hoba::smIs< Name >( ::std::forward< KivArgs >( args )... );                         \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   template< class KivT, class... KivArgs >                                                        \
   friend ::Kiv::Ptr< KivT > Kiv::make( KivArgs &&... );                                           \
   static_assert( true )
