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
//                                 on another entity is replaced by a new one
//    partSmFollow( dir, name )    the same with what `dir` has under that name: an entity of another
//                                 class counts as none. A handler of Kiv::Dir::entryAttr calls it.
//    partSmDel( name ), partSmDelAll()
//
// A machine begins when it is in its place, silenced as its owner is: doBegin() runs, if it has one,
// and it is initialized if its owner is. Only from there on may it write what others hear of; the
// factory and the constructor must not. The owner's handleInitialized() says reactorsInitialize() or
// reactorsUninitialize(), which reaches the machines as it reaches reactors, in the order of the
// fields.
//
// One that replaces another has its place from then on, and before it begins
//
//    void takeOver( PartSm & former )
//
// gives it all that the former one stands for, so that nothing is withdrawn that is still wanted. The
// former one is marked.
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
#include <utility>

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
      if( isFor( key, wanted ) ) {
         return;
      }
      if( wanted && !owner_.kivMarkedForDeletion() ) {
         make( key, wanted );
      } else {
         del( key );
      }
   }
   void follow( Dir & dir, Kiv::String const & name ) {
      smIs( name, Kiv::dynamicCast< Entity >( dir.entry( name ) ) );
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
   static void letGo( Sm & sm ) {
      if constexpr( requires { sm.doCleanUp(); } ) {
         Kiv::guarded( sm.fwkType().name(), {}, [ & ] { sm.doCleanUp(); } );
      }
      sm.kivDoZombieReactors( true );
   }
   bool isFor( Kiv::String const & name, Kiv::Ptr< Entity > const & entity ) const {
      auto const * child = children_.find( name );
      return child ? child->entity == entity : !entity;
   }
   void make( Kiv::String const & name, Kiv::Ptr< Entity > const & entity ) {
      auto const sm = factory( name, entity, owner_ );
      auto const [ child, isNew ] = children_.tryEmplace( name, Child{ entity, sm } );
      if( !isNew ) {
         auto const former = std::exchange( *child, Child{ entity, sm } ).sm;
         sm->takeOver( *former );
         former->kivDoZombieReactors( true );
      }
      sm->hasNotificationActiveIs( owner_.hasNotificationActive() );
      if constexpr( requires { sm->doBegin(); } ) {
         sm->doBegin();
      }
      initialize( *sm );
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
