// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Notifiee.h"

#include "Kiv/Entity.h"

namespace Kiv {

ReactorSlotBase::ReactorSlotBase( ReactorOwner & owner ) {
   auto ** end = &owner.firstSlot_;
   while( *end ) {
      end = &( *end )->nextSlot_;
   }
   *end = this;
}

void
ReactorOwner::reactorsActiveIs( bool active ) {
   for( auto * slot = firstSlot_; slot; slot = slot->nextSlot_ ) {
      slot->activeIs( active );
   }
}

void
ReactorOwner::reactorsZombieIs( bool marked ) {
   for( auto * slot = firstSlot_; slot; slot = slot->nextSlot_ ) {
      slot->zombieIs( marked );
   }
}

void
ReactorOwner::reactorsInitialize() {
   // Handlers run: the owner, and so this walk, outlives them.
   Dispatch::Frame frame;
   for( auto * slot = firstSlot_; slot; slot = slot->nextSlot_ ) {
      slot->initialize();
   }
}

void
ReactorOwner::reactorsUninitialize() {
   Dispatch::Frame frame;
   for( auto * slot = firstSlot_; slot; slot = slot->nextSlot_ ) {
      slot->uninitialize();
   }
}

void
ReactorOwner::reactorsFarewell() {
   Dispatch::Frame frame;
   for( auto * slot = firstSlot_; slot; slot = slot->nextSlot_ ) {
      slot->farewell();
   }
}

PtrInterface::NotifieeConst::NotifieeConst() : PtrInterface( Lifetime::eventLoop ) {}

PtrInterface::NotifieeConst::~NotifieeConst() {
   watch( nullptr );
}

void
PtrInterface::NotifieeConst::hasNotificationActiveIs( bool active ) {
   if( active != hasNotificationActive() ) {
      PtrInterface::hasNotificationActiveIs( active );
      reactorsActiveIs( active );
   }
}

void
PtrInterface::NotifieeConst::kivDoZombieReactors( bool marked ) {
   if( marked != kivMarkedForDeletion() ) {
      reactorsZombieIs( marked );
      kivMarkedForDeletionIs( marked );
   }
}

void
PtrInterface::NotifieeConst::initializedIs( bool initialized ) {
   initialized_ = initialized;
   if( !initialized ) {
      reactorsUninitialize();
   }
}

void
PtrInterface::NotifieeConst::watch( Entity const * entity ) {
   leave();
   Ptr< Entity const > const left = Ptr< Entity const >::adopt( watched_ );
   watched_ = entity;
   if( !entity ) {
      return;
   }
   entity->kivNewReference();
   auto *& first = entity->notifiees_;
   if( first ) {
      next_ = first;
      previous_ = first->previous_;
      previous_->next_ = this;
      first->previous_ = this;
   } else {
      first = next_ = previous_ = this;
   }
}

void
PtrInterface::NotifieeConst::leave() {
   registered_ = false;
   if( !next_ ) {
      return;
   }
   for( auto * frame = Dispatch::top; frame; frame = frame->outer ) {
      frame->moved = true;
      if( frame->next == this ) {
         frame->next = frame->last == this ? nullptr : next_;
      } else if( frame->last == this ) {
         frame->last = previous_;
      }
   }
   auto *& first = watched_->notifiees_;
   if( next_ == this ) {
      first = nullptr;
   } else {
      previous_->next_ = next_;
      next_->previous_ = previous_;
      if( first == this ) {
         first = next_;
      }
   }
   next_ = previous_ = nullptr;
}

} // namespace Kiv
