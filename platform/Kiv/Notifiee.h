// SPDX-License-Identifier: Apache-2.0
#pragma once

// The untyped halves of reactors: what an entity keeps a list of, and what owns reactors.
// Machines and their reactors are written against Kiv/Reactor.h.

#include "Kiv/Dispatch.h"

namespace Kiv {

class Entity;
struct AttributeId;
class ReactorSlotBase;

// Holds reactors in slots, and forwards to all of them in field order what the owner is told.
// Machines own reactors, and so may a reactor.
class ReactorOwner {
 public:
   ReactorOwner( ReactorOwner const & ) = delete;
   ReactorOwner & operator=( ReactorOwner const & ) = delete;

 protected:
   ReactorOwner() = default;
   ~ReactorOwner() = default;

   void reactorsActiveIs( bool active );
   void reactorsZombieIs( bool marked );
   // Every present reactor that is not initialized yet has its handleInitialized() called.
   void reactorsInitialize();
   // Every reactor is as before its first full pass.
   void reactorsUninitialize();
   // Who has a last word with the owner's end says it.
   void reactorsFarewell();

 private:
   friend class ReactorSlotBase;
   ReactorSlotBase * firstSlot_ = nullptr;
};

// One field of an owner: a reactor, or a keyed collection of reactors.
class ReactorSlotBase {
 public:
   ReactorSlotBase( ReactorSlotBase const & ) = delete;
   ReactorSlotBase & operator=( ReactorSlotBase const & ) = delete;

 protected:
   explicit ReactorSlotBase( ReactorOwner & owner );
   virtual ~ReactorSlotBase() = default;

 private:
   friend class ReactorOwner;
   virtual void activeIs( bool active ) = 0;
   virtual void zombieIs( bool marked ) = 0;
   // The caller has a notification in flight, so that what handlers remove outlives the walk.
   virtual void initialize() = 0;
   virtual void uninitialize() = 0;
   virtual void farewell() {}

   ReactorSlotBase * nextSlot_ = nullptr;
};

class PtrInterface::NotifieeConst : public PtrInterface, public ReactorOwner {
 public:
   ~NotifieeConst() override;

   // One attribute of the watched entity changed. `key` points at the member's key for keyed
   // attributes, and is null for scalar ones. Must not throw, lest it keeps others from hearing:
   // Kiv::Reactor sees to it.
   virtual void onAttribute( AttributeId const & attribute, void const * key ) = 0;

   // Runs once the owner is initialized. An override performs the reactor's first full pass and
   // calls initializedIs( true ), before the pass if the pass needs it; a reactor that must not
   // work (yet) simply does not, and is asked again at the owner's next occasion. A pass that throws
   // leaves the reactor not initialized; it is tried again when the reactor next hears of a change,
   // ahead of that change, and at the owner's next occasion.
   virtual void handleInitialized() { initializedIs( true ); }

   // This object first, then its own reactors.
   void hasNotificationActiveIs( bool active ) override;
   // Its own reactors first, then this object.
   void kivDoZombieReactors( bool marked ) override;

   bool initialized() const { return initialized_; }
   // False is for its own reactors too: each has its first pass again.
   void initializedIs( bool initialized );
   bool isRegisteredNotifiee() const { return registered_; }
   // Whether the last first pass threw: for the slot that asks for it.
   bool kivFirstPassFailed() const { return hasToMakeUp(); }
   void kivFirstPassFailedIs( bool failed ) { hasToMakeUpIs( failed ); }

 protected:
   NotifieeConst();

   Entity const * watched() const { return watched_; }
   // Leaves the entity watched so far and joins `entity`, behind all who watch it already. Null
   // only leaves. The caller synchronises, then says isRegisteredNotifieeIs( true ).
   void watch( Entity const * entity );
   void isRegisteredNotifieeIs( bool registered ) { registered_ = registered; }

 private:
   friend class ::Kiv::Entity;
   void leave();

   Entity const * watched_ = nullptr;
   // Neighbours in the entity's ring of notifiees; null while not in it.
   NotifieeConst * next_ = nullptr;
   NotifieeConst * previous_ = nullptr;
   bool registered_ = false;
   bool initialized_ = false;
};

} // namespace Kiv
