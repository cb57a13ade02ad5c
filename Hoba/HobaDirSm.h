// SPDX-License-Identifier: Apache-2.0
#pragma once

// One machine for each entity of a class in a directory, kept in step by the machine that watches
// the directory. A factory says which machine for which entity:
//
//    Kiv::Ptr< PartSm > partSmFactory( Kiv::String const & name,
//                                      Kiv::Ptr< PartConfig const > const & config,
//                                      PartDirSm & owner );
//
// and PartDirSm, a HobaBaseSm, declares with HOBA_DIR_SMS( partSmFactory, partSm ):
//
//    partSm()                     the machines, by name: members { key, value }, value.sm and value.entity
//    partSm( name )               null when there is none
//    partSmIs( name, config )     null removes it; a machine on that very entity stays as it is; one
//                                 on another entity is removed and a new one made
//    partSmFollow( dir, name )    the same with what `dir` has under that name: an entity of another
//                                 class counts as none. A handler of Kiv::Dir::entryAttr calls it.
//    partSmDel( name ), partSmDelAll()
//
// A new machine is silenced as its owner is, and initialized if its owner is. The owner's
// handleInitialized() says reactorsInitialize() or reactorsUninitialize(), which reaches the machines
// as it reaches reactors, in the order of the fields.
//
// A machine is removed in this order: the owner knows it no more, its doCleanUp() runs if it has
// one, it is marked. doCleanUp() does not run when the owner itself is marked or destroyed. A machine
// whose initializedIs() or doCleanUp() throws does not keep the others from theirs.
//
// The machines refer to their owner, which does not depend on who else holds them: a machine that
// is marked must not look at it any more.

#include "Hoba/HobaBaseSm.h"
#include "Kiv/Dir.h"

#include <type_traits>

namespace Hoba {

template< class Factory >
struct DirSmFactory;
template< class SmT, class EntityT, class OwnerT >
struct DirSmFactory< Kiv::Ptr< SmT > ( * )( Kiv::String const &, Kiv::Ptr< EntityT > const &,
                                            OwnerT & ) > {
   using Sm = SmT;
   using Entity = EntityT;
   using Owner = OwnerT;
};

template< auto factory >
class DirSmMap final : public Kiv::ReactorSlotBase {
   using Types = DirSmFactory< decltype( factory ) >;

 public:
   using Sm = typename Types::Sm;
   using Entity = typename Types::Entity;
   using Owner = typename Types::Owner;
   using Dir = std::conditional_t< std::is_const_v< Entity >, Kiv::Dir const, Kiv::Dir >;
   struct Child {
      // Held, so that no other entity is ever taken for it.
      Kiv::Ptr< Entity > entity;
      Kiv::Ptr< Sm > sm;
   };

   explicit DirSmMap( Owner & owner ) : ReactorSlotBase( owner ), owner_( owner ) {}
   ~DirSmMap() override { zombieIs( true ); }

   Kiv::HashMap< Kiv::String, Child > const & all() const { return children_; }
   Sm * get( Kiv::String const & name ) const {
      auto const * child = children_.find( name );
      return child ? child->sm.get() : nullptr;
   }

   void smIs( Kiv::String const & name, Kiv::Ptr< Entity > const & entity ) {
      Kiv::Dispatch::Frame frame;
      // What the caller gave may live in what the former machine lets go.
      auto const key = name;
      auto const wanted = entity;
      if( !isFor( key, wanted ) ) {
         del( key );
         make( key, wanted );
      }
   }
   void follow( Dir & dir, Kiv::String const & name ) {
      Kiv::Dispatch::Frame frame;
      auto const key = name;
      // What changes the directory while the machine is made is looked at when it is complete.
      if( beingMade( key ) ) {
         return;
      }
      while( !isFor( key, entityIn( dir, key ) ) ) {
         del( key );
         // Only now: the former machine's last words may have changed the directory.
         if( !make( key, entityIn( dir, key ) ) ) {
            return;
         }
      }
   }
   void del( Kiv::String const & name ) {
      Kiv::Dispatch::Frame frame;
      if( auto gone = children_.extract( name ) ) {
         letGo( *gone->sm );
      }
   }
   void delAll() {
      Kiv::Dispatch::Frame frame;
      for( auto const & name : Kiv::keysOf( children_ ) ) {
         del( name );
      }
   }

 private:
   struct Making {
      Making( Making *& top, Kiv::String const & of ) : innermost( top ), outer( top ), name( of ) {
         top = this;
      }
      ~Making() { innermost = outer; }
      Making( Making const & ) = delete;
      Making & operator=( Making const & ) = delete;
      Making *& innermost;
      Making * const outer;
      Kiv::String const & name;
   };

   static void letGo( Sm & sm ) {
      if constexpr( requires { sm.doCleanUp(); } ) {
         Kiv::guarded( sm.fwkType().name(), {}, [ & ] { sm.doCleanUp(); } );
      }
      sm.kivDoZombieReactors( true );
   }
   bool beingMade( Kiv::String const & name ) const {
      auto const * one = making_;
      while( one && one->name != name ) {
         one = one->outer;
      }
      return one;
   }
   Kiv::Ptr< Sm > made( Kiv::String const & name, Kiv::Ptr< Entity > const & entity ) {
      Making const making( making_, name );
      return factory( name, entity, owner_ );
   }
   static Kiv::Ptr< Entity > entityIn( Dir & dir, Kiv::String const & name ) {
      return Kiv::dynamicCast< Entity >( dir.entry( name ) );
   }
   bool isFor( Kiv::String const & name, Kiv::Ptr< Entity > const & entity ) const {
      auto const * child = children_.find( name );
      return child ? child->entity == entity : !entity;
   }
   // Whether there is a new machine.
   bool make( Kiv::String const & name, Kiv::Ptr< Entity > const & entity ) {
      // Somebody who heard of the removal may have been quicker.
      if( !entity || children_.has( name ) || owner_.kivMarkedForDeletion() ) {
         return false;
      }
      auto const sm = made( name, entity );
      // What the machine did first may have ended its owner.
      if( owner_.kivMarkedForDeletion() ||
          !children_.tryEmplace( name, Child{ entity, sm } ).inserted ) {
         letGo( *sm );
         return false;
      }
      sm->hasNotificationActiveIs( owner_.hasNotificationActive() );
      initialize( *sm );
      return true;
   }
   static void initializedIs( Sm & sm, bool initialized ) {
      Kiv::guarded( sm.fwkType().name(), {}, [ & ] { sm.initializedIs( initialized ); } );
   }
   void initialize( Sm & sm ) {
      if( owner_.initialized() && !owner_.kivMarkedForDeletion() && !sm.kivMarkedForDeletion() ) {
         initializedIs( sm, true );
      }
   }

   void activeIs( bool active ) override {
      for( auto const & [ name, child ] : children_ ) {
         child.sm->hasNotificationActiveIs( active );
      }
   }
   void zombieIs( bool marked ) override {
      for( auto const & [ name, child ] : children_ ) {
         child.sm->kivDoZombieReactors( marked );
      }
   }
   void initialize() override {
      for( auto const & [ name, child ] : children_ ) {
         initialize( *child.sm );
      }
   }
   void uninitialize() override {
      for( auto const & [ name, child ] : children_ ) {
         initializedIs( *child.sm, false );
      }
   }

   Owner & owner_;
   Kiv::HashMap< Kiv::String, Child > children_;
   Making * making_ = nullptr; // innermost
};

} // namespace Hoba

#define HOBA_DIR_SMS( factory, field )                                                             \
 private:                                                                                          \
   ::Hoba::DirSmMap< &factory > field##_{ *this };                                                 \
                                                                                                   \
 public:                                                                                           \
   auto const & field() const { return field##_.all(); }                                           \
   auto * field( ::Kiv::String const & name ) const { return field##_.get( name ); }               \
   void field##Is( ::Kiv::String const & name,                                                     \
                   ::Kiv::Ptr< ::Hoba::DirSmMap< &factory >::Entity > const & entity ) {           \
      field##_.smIs( name, entity );                                                               \
   }                                                                                               \
   void field##Follow( ::Hoba::DirSmMap< &factory >::Dir & dir, ::Kiv::String const & name ) {     \
      field##_.follow( dir, name );                                                                \
   }                                                                                               \
   void field##Del( ::Kiv::String const & name ) { field##_.del( name ); }                         \
   void field##DelAll() { field##_.delAll(); }                                                     \
   static_assert( true )
