// SPDX-License-Identifier: Apache-2.0
#pragma once

// One machine for each of an owner's children, by any key, each on any number of entities. A factory
// says which machine for which entities:
//
//    Kiv::Ptr< AclSm > aclSmFactory( AclKey const & key, Kiv::Ptr< AclConfig const > const & config,
//                                    Kiv::Ptr< AclStatus > const & status, AclDirSm & owner );
//
// and AclDirSm, a HobaBaseSm, declares with HOBA_SMS( aclSmFactory, aclSm ):
//
//    aclSm()                       the machines, by key
//    aclSm( key )                  null when there is none
//    aclSmIs( key, config, status )   any null removes the machine; one on these very entities stays as
//                                  it is; one on others is replaced by a new one
//    aclSmDel( key ), aclSmDelAll()
//    aclSmFollow( key, entity )    the same for machines on one entity, of whatever class it is: one
//                                  of another class counts as none
//
// The machines are shown as the owner's children. Where one attribute names the entities, a row can
// keep the machines in step: Kiv::Follow< Kiv::Dir::entryAttr, &AclDirSm::aclSm_ >.
//
// Further arguments of the declaration say what else belongs to a machine's life:
//
//    Hoba::LastWord< &AclSm::doCleanUp >       runs when the machine goes, and not when its owner does
//    Hoba::LastWordAlsoWithOwner< &AclSm::doCleanUp >          when its owner goes as well
//    Hoba::TakesOver< &AclSm::takeOver >       void takeOver( AclSm & former ): see below
//
// A machine comes in this order: the factory makes it, silent (Kiv::make) if it has something to do
// in handleNotificationActive(); it is in its place; it hears if its owner does; it is initialized if its owner
// is. Only from its place may it write what others hear of; the factory and the constructor must not.
// The owner's handleInitialized() says reactorsInitialize() or reactorsUninitialize(), which reaches
// the machines as it reaches reactors, in the order of the fields.
//
// A machine goes in this order: the owner knows it no more, it is silenced, it has its last word, it
// is marked. One that replaces another comes first: so what both stand for is never withdrawn. With
// TakesOver it is given, once in its place and before it hears, all that the former one stands for.
//
// A factory that throws, which the caller of aclSmIs() sees, or that returns null leaves no machine.
// One whose initializedIs(), takeOver() or last word throws does not keep the others from theirs. The
// machines refer to their owner, which does not depend on who else holds them: a machine that is
// marked must not look at it any more.

#include "Hoba/HobaBaseSm.h"

#include <tuple>
#include <type_traits>
#include <utility>

namespace Hoba {

struct SmOption {
   static constexpr bool alsoWithOwner = false;
   static void say( HobaBaseSm const & ) {}
   static void takeOver( HobaBaseSm const &, HobaBaseSm const & ) {}
};
template< auto word >
struct LastWord : SmOption {
   template< class Sm >
   static void say( Sm & sm ) {
      Kiv::guarded( Kiv::handlerName< word >(), sm.name(), [ & ] { ( sm.*word )(); } );
   }
};
template< auto word >
struct LastWordAlsoWithOwner : LastWord< word > {
   static constexpr bool alsoWithOwner = true;
};
template< auto step >
struct TakesOver : SmOption {
   template< class Sm >
   static void takeOver( Sm & sm, Sm & former ) {
      Kiv::guarded( Kiv::handlerName< step >(), sm.name(), [ & ] { ( sm.*step )( former ); } );
   }
};

template< class Factory >
struct SmFactory;
template< class SmT, class KeyT, class... EntitiesAndOwner >
struct SmFactory< Kiv::Ptr< SmT > ( * )( KeyT const &, EntitiesAndOwner... ) > {
   using Sm = SmT;
   using Key = KeyT;
   static constexpr std::size_t entities = sizeof...( EntitiesAndOwner ) - 1;
   template< std::size_t i >
   using Argument =
         std::remove_cvref_t< std::tuple_element_t< i, std::tuple< EntitiesAndOwner... > > >;
   template< std::size_t... i >
   static std::tuple< Argument< i >... > entitiesAt( std::index_sequence< i... > );

   using Owner = Argument< entities >;
   // Pointers; held, so that no other entity is ever taken for one of them.
   using Entities = decltype( entitiesAt( std::make_index_sequence< entities >() ) );
};

template< auto factory, class... Options >
class SmMap final : public Kiv::ReactorSlotBase {
   using Types = SmFactory< decltype( factory ) >;

 public:
   using Sm = typename Types::Sm;
   using Key = typename Types::Key;
   using Entities = typename Types::Entities;
   using Owner = typename Types::Owner;
   using Changed = void ( Owner::* )( Key const & );

   // `changed` tells the owner's watchers that the machine of a key came, went, or is another one.
   SmMap( Owner & owner, Changed changed )
         : ReactorSlotBase( owner ), owner_( owner ), changed_( changed ) {}
   ~SmMap() override {
      for( auto const & [ key, sm ] : sms_ ) {
         sm->kivDoZombieReactors( true );
      }
   }

   Kiv::HashMap< Key, Kiv::Ptr< Sm > > const & all() const { return sms_; }
   Sm * get( Key const & key ) const {
      auto const * sm = sms_.find( key );
      return sm ? sm->get() : nullptr;
   }

   void smIs( Key const & key, Entities const & entities ) {
      Kiv::Dispatch::Frame frame;
      // What the caller gave may live in what the former machine lets go.
      auto const stable = key;
      auto const wanted = entities;
      bool const complete = std::apply(
            []( auto const &... entity ) { return ( ( entity != nullptr ) && ... ); }, wanted );
      if( !complete || owner_.kivMarkedForDeletion() ) {
         del( stable );
      } else if( auto const * present = entities_.find( stable ); !present || *present != wanted ) {
         make( stable, wanted );
      }
   }
   // For Kiv::Follow.
   template< class Entity >
   void follow( Key const & key, Kiv::Ptr< Entity > const & entity ) {
      using Wanted = std::remove_reference_t<
            decltype( *std::declval< std::tuple_element_t< 0, Entities > >() ) >;
      smIs( key, Kiv::dynamicCast< Wanted >( entity ) );
   }
   void del( Key const & key ) {
      Kiv::Dispatch::Frame frame;
      auto const stable = key;
      entities_.erase( stable );
      if( auto const gone = sms_.extract( stable ) ) {
         bidFarewell( **gone );
         ( owner_.*changed_ )( stable );
      }
   }
   void delAll() {
      Kiv::Dispatch::Frame frame;
      for( auto const & key : Kiv::keysOf( sms_ ) ) {
         del( key );
      }
   }

 private:
   static constexpr bool farewellWithOwner = ( Options::alsoWithOwner || ... );

   void bidFarewell( Sm & sm ) {
      // Who is marked was so with its owner, and has nothing to say.
      if( !sm.kivMarkedForDeletion() ) {
         sm.hasNotificationActiveIs( false );
         if( farewellWithOwner || !owner_.kivMarkedForDeletion() ) {
            ( Options::say( sm ), ... );
         }
         sm.kivDoZombieReactors( true );
      }
   }
   // Null for none.
   Kiv::Ptr< Sm > made( Key const & key, Entities const & entities ) {
      try {
         auto sm = std::apply(
               [ & ]( auto const &... entity ) { return factory( key, entity..., owner_ ); },
               entities );
         if( owner_.kivMarkedForDeletion() ) {
            letGo( sm );
         }
         return sm;
      } catch( ... ) {
         // What the former one stands for is gone all the same.
         del( key );
         throw;
      }
   }
   void make( Key const & key, Entities const & entities ) {
      auto const sm = made( key, entities );
      if( !sm ) {
         del( key );
         return;
      }
      auto const former = std::exchange( *sms_.tryEmplace( key ).value, sm );
      entities_.insertOrAssign( key, entities );
      if( former ) {
         former->hasNotificationActiveIs( false );
         ( Options::takeOver( *sm, *former ), ... );
      }
      activate( *sm );
      initialize( *sm );
      if( former ) {
         bidFarewell( *former );
      }
      ( owner_.*changed_ )( key );
   }
   // The owner may be silenced while others catch up.
   void activate( Sm & sm ) {
      Kiv::guarded( sm.fwkType().name(), sm.name(),
                    [ & ] { sm.hasNotificationActiveIs( owner_.hasNotificationActive() ); } );
   }
   static void initializedIs( Sm & sm, bool initialized ) {
      Kiv::guarded( sm.fwkType().name(), sm.name(), [ & ] { sm.initializedIs( initialized ); } );
   }
   void initialize( Sm & sm ) {
      if( owner_.initialized() && !owner_.kivMarkedForDeletion() && !sm.kivMarkedForDeletion() ) {
         initializedIs( sm, true );
      }
   }

   void activeIs( bool ) override {
      Kiv::Dispatch::Frame frame;
      for( auto const & [ key, sm ] : sms_ ) {
         activate( *sm );
      }
   }
   void zombieIs( bool marked ) override {
      for( auto const & [ key, sm ] : sms_ ) {
         // Who has a last word is marked when he has said it.
         if( farewellWithOwner && marked ) {
            sm->hasNotificationActiveIs( false );
         } else {
            sm->kivDoZombieReactors( marked );
         }
      }
   }
   void farewell() override {
      if constexpr( farewellWithOwner ) {
         delAll();
      }
   }
   void initialize() override {
      for( auto const & [ key, sm ] : sms_ ) {
         initialize( *sm );
      }
   }
   void uninitialize() override {
      for( auto const & [ key, sm ] : sms_ ) {
         initializedIs( *sm, false );
      }
   }

   Owner & owner_;
   Changed const changed_;
   Kiv::HashMap< Key, Kiv::Ptr< Sm > > sms_;
   Kiv::HashMap< Key, Entities > entities_; // of each machine
};

} // namespace Hoba

#define HOBA_SMS( factory, field, ... )                                                            \
 private:                                                                                          \
   using field##Map_ = ::Hoba::SmMap< &factory __VA_OPT__(, ) __VA_ARGS__ >;                       \
   field##Map_ field##_{ *this, &KivSelf::field##Changed_ };                                       \
   void field##Changed_( field##Map_::Key const & key ) { this->kivChanged( field##Attr, &key ); } \
                                                                                                   \
 public:                                                                                           \
   static constexpr ::Kiv::Attribute< KivSelf, field##Map_::Key, field##Map_::Sm,                  \
                                      ::Kiv::AttributeKind::children, KIV_COUNT_NOW >              \
         field##Attr{ #field };                                                                    \
   static constexpr auto const & kivAttribute( KIV_POSITION( field ) ) { return field##Attr; }     \
   static auto const & kivGet( KIV_POSITION( field ), KivSelf const & self ) {                     \
      return self.field##_.all();                                                                  \
   }                                                                                               \
   static auto kivChild( KIV_POSITION( field ), KivSelf & self, field##Map_::Key const & key ) {   \
      return ::Kiv::Ptr< field##Map_::Sm >( self.field##_.get( key ) );                            \
   }                                                                                               \
   auto const & field() const { return field##_.all(); }                                           \
   auto * field( field##Map_::Key const & key ) const { return field##_.get( key ); }              \
   template< class... KivEntities >                                                                \
   void field##Is( field##Map_::Key const & key, KivEntities const &... entities ) {               \
      field##_.smIs( key, { entities... } );                                                       \
   }                                                                                               \
   template< class KivEntity >                                                                     \
   void field##Follow( field##Map_::Key const & key, KivEntity const & entity ) {                  \
      field##_.follow( key, entity );                                                              \
   }                                                                                               \
   void field##Del( field##Map_::Key const & key ) { field##_.del( key ); }                        \
   void field##DelAll() { field##_.delAll(); }                                                     \
   KIV_NEXT( field )
