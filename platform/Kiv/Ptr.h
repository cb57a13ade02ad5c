// SPDX-License-Identifier: Apache-2.0
#pragma once

// Reference-counted objects and the pointers that own them.
//
// The count, the deletion mark and the notification state share one 32-bit word. An object begins
// with one reference, which belongs to whoever constructs it: make() hands it to the Ptr that it
// returns, so a constructor may safely give away pointers to the object that it is building.
//
// Objects of the event loop (entities, reactors, machines) that lose their last reference while a
// notification is in flight are marked and silenced at once, and destroyed when the outermost
// notification has returned: no handler ever runs on freed memory.

#include "Kiv/Type.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace Kiv {

class PtrInterface {
 public:
   // Base of everything that can be registered with an entity to hear of its changes.
   class NotifieeConst;

   PtrInterface( PtrInterface const & ) = delete;
   PtrInterface & operator=( PtrInterface const & ) = delete;

   // Whether notifications reach this object, and, for owners of reactors, its reactors.
   virtual void hasNotificationActiveIs( bool active );
   virtual Type const & fwkType() const = 0;
   virtual ~PtrInterface() = default;
   // Marks this object for deletion, and what it owns before itself. So it is for every object that
   // loses its last reference; who lets go of an object that others may still hold says it first.
   virtual void kivDoZombieReactors( bool marked ) { kivMarkedForDeletionIs( marked ); }

   bool hasNotificationActive() const { return !( word() & silentBit ); }
   // A marked object is on its way out: it ignores all further notifications.
   bool kivMarkedForDeletion() const { return word() & markedBit; }
   void kivMarkedForDeletionIs( bool marked ) { bitIs( markedBit, marked ); }
   std::uint32_t kivReferences() const { return word() & countMask; }

   void kivNewReference() const { countBy( word_, 1 ); }
   void kivDropReference() const {
      if( ( countBy( word_, ~0u ) & countMask ) == 1 ) {
         const_cast< PtrInterface * >( this )->lastReferenceDropped();
      }
   }

 protected:
   enum class Lifetime { anyThread, eventLoop };
   explicit PtrInterface( Lifetime lifetime = Lifetime::anyThread )
         : word_( lifetime == Lifetime::eventLoop ? 1 | silentBit | eventLoopBit : 1 | silentBit ) {}

   // Both conditions of hearing anything, in one look.
   bool live() const { return word() < silentBit; }
   // The same, and nothing has to be made up for first.
   bool ready() const { return word() < unreadyBit; }
   bool hasToMakeUp() const { return word() & unreadyBit; }
   void hasToMakeUpIs( bool unready ) { bitIs( unreadyBit, unready ); }

 private:
   static constexpr std::uint32_t markedBit = 1u << 31;
   static constexpr std::uint32_t silentBit = 1u << 30; // notifications are not active
   static constexpr std::uint32_t unreadyBit = 1u << 29;
   static constexpr std::uint32_t eventLoopBit = 1u << 28;
   static constexpr std::uint32_t countMask = eventLoopBit - 1;

   std::uint32_t word() const { return word_.load( std::memory_order_relaxed ); }
   void bitIs( std::uint32_t bit, bool set );
   void lastReferenceDropped();

   mutable std::atomic< std::uint32_t > word_;
};

template< class T >
class Ptr {
 public:
   constexpr Ptr() = default;
   constexpr Ptr( std::nullptr_t ) {}
   Ptr( T * object ) : object_( object ) { acquire(); }
   Ptr( Ptr const & other ) : object_( other.object_ ) { acquire(); }
   Ptr( Ptr && other ) noexcept : object_( std::exchange( other.object_, nullptr ) ) {}
   template< class U >
      requires std::is_convertible_v< U *, T * >
   Ptr( Ptr< U > const & other ) : object_( other.get() ) {
      acquire();
   }
   template< class U >
      requires std::is_convertible_v< U *, T * >
   Ptr( Ptr< U > && other ) noexcept : object_( other.detach() ) {}
   ~Ptr() { release( object_ ); }

   // The old object is released last: its destructor already sees the new pointer.
   Ptr & operator=( Ptr const & other ) { return *this = Ptr( other ); }
   Ptr & operator=( Ptr && other ) noexcept {
      release( std::exchange( object_, std::exchange( other.object_, nullptr ) ) );
      return *this;
   }

   // Takes over a reference that the caller holds.
   static Ptr adopt( T * object ) {
      Ptr ptr;
      ptr.object_ = object;
      return ptr;
   }
   // Hands the reference to the caller.
   T * detach() { return std::exchange( object_, nullptr ); }

   T * get() const { return object_; }
   T * operator->() const { return object_; }
   T & operator*() const { return *object_; }
   explicit operator bool() const { return object_ != nullptr; }

   template< class U >
   bool operator==( Ptr< U > const & other ) const {
      return object_ == other.get();
   }
   bool operator==( T const * other ) const { return object_ == other; }
   bool operator==( std::nullptr_t ) const { return object_ == nullptr; }

 private:
   void acquire() const {
      if( object_ ) {
         object_->kivNewReference();
      }
   }
   static void release( T * object ) {
      if( object ) {
         object->kivDropReference();
      }
   }

   T * object_ = nullptr;
};

template< class T >
inline constexpr bool isPtr = false;
template< class T >
inline constexpr bool isPtr< Ptr< T > > = true;

// Allocates an object and counts it under its type.
template< class T, class... Args >
Ptr< T >
make( Args &&... args ) {
   auto ptr = Ptr< T >::adopt( new std::remove_const_t< T >( std::forward< Args >( args )... ) );
   ptr->fwkType().allocated();
   return ptr;
}

template< class T, class U >
Ptr< T >
dynamicCast( Ptr< U > const & ptr ) {
   return Ptr< T >( dynamic_cast< T * >( ptr.get() ) );
}

} // namespace Kiv

// fwkType() of a class that declares no attributes; one line in its declaration.
#define KIV_TYPE( Name )                                                                           \
   ::Kiv::Type const & fwkType() const override { return ::Kiv::typeInstance< Name >; }            \
   template< class KivT, class... KivArgs >                                                        \
   friend ::Kiv::Ptr< KivT > Kiv::make( KivArgs &&... )
