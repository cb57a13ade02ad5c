// SPDX-License-Identifier: Apache-2.0
#pragma once

// Reactors: what a machine hears of one entity. A reactor declares its handlers in one table, which
// is the order of the initial synchronisation and the dispatch table in one:
//
//    class KivIntfConfig : public Kiv::Reactor< KivIntfConfig, IntfConfig const, StormControlSm, Pelt::IntfId > {
//       void handleBroadcast();
//     public:
//       static constexpr auto handlers = Kiv::handlers(
//             Kiv::On< IntfConfig::broadcastAttr, &KivIntfConfig::handleBroadcast >() );
//    };
//
//    KIV_REACTOR( KivConfig, config );                          config(), configIs( entity ), configDel()
//    KIV_REACTORS( Pelt::IntfId, KivIntfConfig, intfConfig );   intfConfig(), intfConfig( k ), intfConfigIs( k, entity ),
//                                                               intfConfigDel( k ), intfConfigDelAll()
//
// Rows of the table:
//    On< attr, &C::handler >             runs at synchronisation (once for each key there is, if it
//                                        takes the attribute's key) and on every change
//    OnChange< attr, &C::handler >       on changes only
//    WhenReady< attr, &C::handler >      on changes only, and only while the owner is initialized
//    OnceReady< attr, &C::handler >      as On, but only once the reactor is initialized: in its first
//                                        pass, when it turns to another entity, and on every change
//    OnAny< &C::handler, attr, attr... >, OnAnyChange, WhenReadyAny
//                                        the same of several attributes; at synchronisation once
//    Follow< attr, &C::field_ >          a reactor for each entity that the attribute holds: field_ is
//                                        a KIV_REACTORS of the attribute's key, or of what such a key
//                                        converts to and explicitly from, or, if the attribute is one
//                                        entity, a KIV_REACTOR. Reactors come, turn to another entity
//                                        and go as the entities do, and stay when the reactor with
//                                        this row goes.
//    Follow< attr, &C::field_, &KivChild::lastWord >   a reactor whose entity goes speaks first
//
// Where field_ has a follow( key, entity ), which null ends, Follow calls that; a last word is then a
// matter of field_.
//
// A reactor whose handlers are all its owner's is its rows alone; the key, if it has one, stands before
// them:
//
//    class KivEthPhyIntfStatus : public Kiv::Hears< StormControlSm, EthPhyIntfStatus const, Pelt::IntfId,
//          Kiv::WhenReady< EthPhyIntfStatus::speedAttr, &StormControlSm::handleSpeed > > {};
//
// A handler is a member of the reactor or of its owner. It takes nothing, or the key of the changed
// member of a keyed attribute, or, in a keyed reactor whose handler is its owner's, the reactor's
// key. Anything else does not compile.
//
// The initial synchronisation is a notification like any other. It ends when a handler deletes the
// reactor or its owner, or turns the reactor to another entity.
//
// A reactor may delete itself, its siblings or its owner from inside a handler: what is removed
// hears nothing more and is destroyed when the outermost notification has returned.
//
// What a handler throws ends with it: it is told (Dispatch::failed()), the next handler has its turn,
// and who wrote the attribute sees nothing of it.

#include "Kiv/DispatchRecorder.h"
#include "Kiv/Entity.h"

#include <algorithm>
#include <array>

namespace Kiv {

// The key of a reactor that stands alone.
struct NoKey {};

// Whether `owner`, or the owner of that reactor in turn, is on its way out.
template< class Owner >
bool
ownerMarked( Owner const & owner ) {
   bool marked = false;
   if constexpr( std::is_base_of_v< PtrInterface, Owner > ) {
      marked = owner.kivMarkedForDeletion();
   }
   if constexpr( requires { typename Owner::KivReactor; } ) {
      marked = marked || ownerMarked( owner.owner() );
   }
   return marked;
}

template< class DerivedT, class WatchedT, class OwnerT, class KeyT = NoKey >
class Reactor : public PtrInterface::NotifieeConst {
 public:
   using KivReactor = Reactor;
   using Watched = WatchedT;
   using Owner = OwnerT;
   using Key = KeyT;

   // The entity watched. Null before the first notifierIs().
   WatchedT * notifier() const { return static_cast< WatchedT * >( const_cast< Entity * >( watched() ) ); }
   OwnerT & owner() const { return *owner_; }
   KeyT const & key() const { return key_; }

   // Watches `entity` instead of what was watched so far and runs the table's handlers once, in
   // order. Nothing happens if it is watched already; null unregisters and runs nothing.
   void notifierIs( Ptr< WatchedT > const & entity ) {
      // Handlers may remove what holds `entity`.
      auto * const target = entity.get();
      if( target == notifier() ) {
         return;
      }
      if( !target ) {
         watch( nullptr );
         return;
      }
      Dispatch::Frame frame;
      watch( target );
      DerivedT::handlers.synchronise( static_cast< DerivedT & >( *this ), *target );
      if( kivSynchronises( *target ) ) {
         isRegisteredNotifieeIs( true );
      }
   }

   // The first pass, which is that of the OnceReady rows, then of its own reactors. An override
   // that has any of these says this as well.
   void handleInitialized() override {
      Dispatch::Frame frame;
      initializedIs( true );
      if( auto * const entity = notifier() ) {
         DerivedT::handlers.firstPass( static_cast< DerivedT & >( *this ), *entity );
      }
      reactorsInitialize();
   }

   void onAttribute( AttributeId const & attribute, void const * key ) final {
      if( ready() || ( live() && firstPassAgain() ) ) [[likely]] {
         DerivedT::handlers.dispatch( static_cast< DerivedT & >( *this ), attribute, key );
      }
   }

   // Whether a change of `entity` still concerns this reactor.
   bool kivHears( WatchedT const * entity ) const { return live() && notifier() == entity; }
   // Whether the handlers of a pass over `entity` still have somebody to run for.
   bool kivSynchronises( WatchedT const & entity ) const {
      return !kivMarkedForDeletion() && notifier() == &entity && !( owner_ && ownerMarked( *owner_ ) );
   }

   // For the slot that made this reactor.
   void kivOwnerIs( OwnerT & owner, KeyT const & key = {} ) {
      owner_ = &owner;
      key_ = key;
   }

 private:
   // Makes up for a first pass that threw. Whether a change still concerns this reactor.
   [[gnu::noinline, gnu::cold]] bool firstPassAgain() {
      auto const * entity = notifier();
      initializeReactor( static_cast< DerivedT & >( *this ) );
      return kivHears( entity );
   }

   OwnerT * owner_ = nullptr;
   [[no_unique_address]] KeyT key_{};
};

template< auto handler >
consteval std::string_view
handlerName() {
   std::string_view text = __PRETTY_FUNCTION__;
   auto begin = text.find( '&' ) + 1;
   return text.substr( begin, text.find_first_of( ";])}", begin ) - begin );
}

template< class Handler >
struct HandlerClass;
template< class C, class... Args >
struct HandlerClass< void ( C::* )( Args... ) > {
   using type = C;
};

// Calls `handler` on the reactor or on its owner, with what it takes: see the head of this file.
template< auto handler, class R, class... AttributeKey >
void
invokeHandler( R & reactor, AttributeKey const &... key ) {
   auto & target = [ & ]() -> auto & {
      if constexpr( std::is_base_of_v< typename HandlerClass< decltype( handler ) >::type, R > ) {
         return reactor;
      } else {
         return reactor.owner();
      }
   }();
   using Target = decltype( target );
   using ReactorKey = typename R::Key;
   if constexpr( std::is_invocable_v< decltype( handler ), Target, AttributeKey const &... > ) {
      ( target.*handler )( key... );
   } else if constexpr( std::is_invocable_v< decltype( handler ), Target > ) {
      ( target.*handler )();
   } else {
      static_assert( std::is_invocable_v< decltype( handler ), Target, ReactorKey const & >,
                     "a handler takes nothing, the attribute's key, or the reactor's key" );
      ( target.*handler )( reactor.key() );
   }
}

// Apart, so that nothing of it is in the way while nobody records.
template< auto handler, class R, class... AttributeKey >
[[gnu::noinline, gnu::cold]] void
recordHandler( R & reactor, AttributeKey const &... key ) {
   DispatchRecorder::Scope recorded( DispatchRecorder::Kind::handler, handlerName< handler >() );
   invokeHandler< handler >( reactor, key... );
}

// Inside a catch block; the handler may have turned the reactor away from its entity.
template< class R >
[[gnu::noinline, gnu::cold]] void
reactorFailed( R const & reactor, std::string_view step ) {
   auto const * entity = reactor.notifier();
   Dispatch::failed( step, entity ? std::string_view( entity->name() ) : std::string_view() );
}

template< auto handler, class R, class... AttributeKey >
void
callHandler( R & reactor, AttributeKey const &... key ) {
   try {
      if( Dispatch::recorder ) [[unlikely]] {
         recordHandler< handler >( reactor, key... );
      } else {
         invokeHandler< handler >( reactor, key... );
      }
   } catch( ... ) {
      reactorFailed( reactor, handlerName< handler >() );
   }
}

template< auto const & attribute >
using AttributeType = std::remove_cvref_t< decltype( attribute ) >;

template< auto handler, class Key >
inline constexpr bool takesKey =
      std::is_invocable_v< decltype( handler ), typename HandlerClass< decltype( handler ) >::type &,
                           Key const & >;
template< auto handler >
inline constexpr bool takesKey< handler, void > = false;

// Calls `handler` for a change of a member of `attribute`, whose key comes untyped.
template< auto handler, auto const & attribute, class R >
void
callForChange( R & reactor, [[maybe_unused]] void const * key ) {
   using A = AttributeType< attribute >;
   static_assert( std::is_base_of_v< typename A::Entity, typename R::Watched >,
                  "this attribute does not belong to the watched entity" );
   if constexpr( std::is_void_v< typename A::Key > ) {
      callHandler< handler >( reactor );
   } else {
      callHandler< handler >( reactor, *static_cast< typename A::Key const * >( key ) );
   }
}

// When the handler of a row runs, beside on changes.
enum class RowRuns { atSynchronisation, onChangesOnly, whileOwnerIsReady, fromFirstPass };

// What stands in a table of handlers.
struct HandlerRow {
   // The row's part of its reactor's first pass.
   template< class R >
   static void firstPass( R &, typename R::Watched & ) {}
};

template< RowRuns runs, auto handler, auto const &... attribute >
struct OnRow : HandlerRow {
   static constexpr std::array< AttributeId const *, sizeof...( attribute ) > attributes{ &attribute... };

   // Whether the change was this row's.
   template< class R >
   static bool dispatch( R & reactor, AttributeId const & changed, void const * key ) {
      return ( dispatchOne< attribute >( reactor, changed, key ) || ... );
   }

   template< class R >
   static void synchronise( R & reactor, typename R::Watched & entity ) {
      if constexpr( runs == RowRuns::atSynchronisation ) {
         runOnce( reactor, entity );
      } else if constexpr( runs == RowRuns::fromFirstPass ) {
         if( reactor.initialized() ) {
            runOnce( reactor, entity );
         }
      }
   }

   template< class R >
   static void firstPass( R & reactor, typename R::Watched & entity ) {
      if constexpr( runs == RowRuns::fromFirstPass ) {
         runOnce( reactor, entity );
      }
   }

 private:
   template< class R >
   static void runOnce( R & reactor, typename R::Watched & entity ) {
      if constexpr( ( takesKey< handler, typename AttributeType< attribute >::Key > && ... ) &&
                    sizeof...( attribute ) == 1 ) {
         ( synchroniseMembers< attribute >( reactor, entity ), ... );
      } else {
         callHandler< handler >( reactor );
      }
   }

   template< auto const & one, class R >
   static bool dispatchOne( R & reactor, AttributeId const & changed, void const * key ) {
      if( &changed != &one ) {
         return false;
      }
      if constexpr( runs == RowRuns::whileOwnerIsReady ) {
         if( !reactor.owner().initialized() ) {
            return true;
         }
      } else if constexpr( runs == RowRuns::fromFirstPass ) {
         if( !reactor.initialized() ) {
            return true;
         }
      }
      callForChange< handler, one >( reactor, key );
      return true;
   }

   template< auto const & one, class R >
   static void synchroniseMembers( R & reactor, typename R::Watched & entity ) {
      using A = AttributeType< one >;
      for( auto const & member : A::Entity::kivGet( Count< A::fixedIndex >{}, entity ) ) {
         // Handlers may remove the member that they are told of.
         auto const key = memberKey< typename A::Key >( member );
         callHandler< handler >( reactor, key );
         if( !reactor.kivSynchronises( entity ) ) {
            return;
         }
      }
   }
};

template< auto const & attribute, auto field, auto lastWord = nullptr >
struct Follow : HandlerRow {
   static constexpr std::array< AttributeId const *, 1 > attributes{ &attribute };
   using A = AttributeType< attribute >;
   static constexpr bool keyed = !std::is_void_v< typename A::Key >;

   template< class R >
   static bool dispatch( R & reactor, AttributeId const & changed, [[maybe_unused]] void const * key ) {
      if( &changed != &attribute ) {
         return false;
      }
      Dispatch::Frame frame;
      if constexpr( keyed ) {
         attempt( reactor, *static_cast< typename A::Key const * >( key ) );
      } else {
         attempt( reactor );
      }
      return true;
   }

   template< class R >
   static void synchronise( R & reactor, typename R::Watched & entity ) {
      if constexpr( keyed ) {
         auto const & children = childrenOf( entity );
         // First those of the entity that was watched before.
         for( auto const & known : keysOf( slot( reactor ).all() ) ) {
            if( auto const key = typename A::Key( known ); !children.has( key ) ) {
               attempt( reactor, key );
            }
            if( !reactor.kivSynchronises( entity ) ) {
               return;
            }
         }
         for( auto const & child : children ) {
            auto const key = child.key;
            attempt( reactor, key );
            if( !reactor.kivSynchronises( entity ) ) {
               return;
            }
         }
      } else {
         attempt( reactor );
      }
   }

 private:
   // A machine that cannot be made keeps nobody else from his, and is no matter of who wrote the
   // attribute.
   template< class R, class... Key >
   static void attempt( R & reactor, Key const &... key ) {
      try {
         step( reactor, key... );
      } catch( ... ) {
         reactorFailed( reactor, attribute.name );
      }
   }
   template< class R >
   static auto & slot( R & reactor ) {
      if constexpr( std::is_invocable_v< decltype( field ), R & > ) {
         return reactor.*field;
      } else {
         return reactor.owner().*field;
      }
   }
   static auto const & childrenOf( typename A::Entity const & entity ) {
      return A::Entity::kivGet( Count< A::fixedIndex >{}, entity );
   }
   // Silent before it speaks: what the last word changes is for who comes after it.
   template< class Slot, class... Key >
   static void remove( Slot & from, Key const &... key ) {
      if( auto const gone = from.take( key... ) ) {
         if constexpr( !std::is_null_pointer_v< decltype( lastWord ) > ) {
            guarded( handlerName< lastWord >(), {}, [ & ] { ( ( *gone ).*lastWord )(); } );
         }
         gone->kivDoZombieReactors( true );
      }
   }
   template< class R, class Key >
   static void step( R & reactor, Key const & key ) {
      auto const child = valueOrDefault( childrenOf( *reactor.notifier() ), key );
      if constexpr( requires { slot( reactor ).follow( key, child ); } ) {
         static_assert( std::is_null_pointer_v< decltype( lastWord ) >,
                        "this field declares its last words itself" );
         slot( reactor ).follow( key, child );
      } else if( child ) {
         slot( reactor ).notifierIs( key, child );
      } else {
         remove( slot( reactor ), key );
      }
   }
   template< class R >
   static void step( R & reactor ) {
      if( auto const child = childrenOf( *reactor.notifier() ) ) {
         slot( reactor ).notifierIs( child );
      } else {
         remove( slot( reactor ) );
      }
   }
};

template< auto const & attribute, auto handler >
using On = OnRow< RowRuns::atSynchronisation, handler, attribute >;
template< auto const & attribute, auto handler >
using OnChange = OnRow< RowRuns::onChangesOnly, handler, attribute >;
template< auto const & attribute, auto handler >
using WhenReady = OnRow< RowRuns::whileOwnerIsReady, handler, attribute >;
template< auto const & attribute, auto handler >
using OnceReady = OnRow< RowRuns::fromFirstPass, handler, attribute >;
template< auto handler, auto const &... attributes >
using WhenReadyAny = OnRow< RowRuns::whileOwnerIsReady, handler, attributes... >;
template< auto handler, auto const &... attributes >
using OnAny = OnRow< RowRuns::atSynchronisation, handler, attributes... >;
template< auto handler, auto const &... attributes >
using OnAnyChange = OnRow< RowRuns::onChangesOnly, handler, attributes... >;

// The common case, in which no row must ask what the handler of another row did.
template< class... Rows >
consteval bool
eachAttributeOnce() {
   std::array< std::string_view, ( Rows::attributes.size() + ... + 0 ) > names;
   auto end = names.begin();
   [[maybe_unused]] auto add = [ & ]( auto const & attributes ) {
      for( auto const * attribute : attributes ) {
         *end++ = attribute->name;
      }
   };
   ( add( Rows::attributes ), ... );
   std::sort( names.begin(), names.end() );
   return std::adjacent_find( names.begin(), names.end() ) == names.end();
}

template< class... Rows >
struct Handlers {
   template< class R >
   static void dispatch( [[maybe_unused]] R & reactor, [[maybe_unused]] AttributeId const & changed,
                         [[maybe_unused]] void const * key ) {
      if constexpr( eachAttributeOnce< Rows... >() ) {
         ( void )( Rows::dispatch( reactor, changed, key ) || ... );
      } else {
         auto const * entity = reactor.notifier();
         ( void )( ( Rows::dispatch( reactor, changed, key ), reactor.kivHears( entity ) ) && ... );
      }
   }
   template< class R >
   static void synchronise( [[maybe_unused]] R & reactor,
                            [[maybe_unused]] typename R::Watched & entity ) {
      ( void )( ( reactor.kivSynchronises( entity ) &&
                  ( Rows::synchronise( reactor, entity ), true ) ) &&
                ... );
   }
   template< class R >
   static void firstPass( [[maybe_unused]] R & reactor,
                          [[maybe_unused]] typename R::Watched & entity ) {
      ( void )( ( reactor.kivSynchronises( entity ) &&
                  ( Rows::firstPass( reactor, entity ), true ) ) &&
                ... );
   }
};

template< class... Rows >
consteval Handlers< Rows... >
handlers( Rows... ) {
   return {};
}

template< class OwnerT, class WatchedT, class KeyT, class... Rows >
class HearsRows : public Reactor< HearsRows< OwnerT, WatchedT, KeyT, Rows... >, WatchedT, OwnerT, KeyT > {
 public:
   static constexpr Handlers< Rows... > handlers{};
};

template< class OwnerT, class WatchedT, class... Rows >
struct HearsOf {
   using Type = HearsRows< OwnerT, WatchedT, NoKey, Rows... >;
};
template< class OwnerT, class WatchedT, class KeyT, class... Rows >
   requires( !std::is_base_of_v< HandlerRow, KeyT > )
struct HearsOf< OwnerT, WatchedT, KeyT, Rows... > {
   using Type = HearsRows< OwnerT, WatchedT, KeyT, Rows... >;
};

// A reactor that is its rows alone: see the head of this file.
template< class OwnerT, class WatchedT, class... KeyThenRows >
using Hears = typename HearsOf< OwnerT, WatchedT, KeyThenRows... >::Type;

// What a slot makes: counted under the name of the class that was declared.
template< class R >
class MadeReactor final : public R {
 public:
   Type const & fwkType() const override { return typeInstance< R >; }
};

// Makes a reactor for `owner` in the owner's present state: who is on his way out hears nothing
// through new reactors either.
template< class R >
Ptr< R >
makeReactor( typename R::Owner & owner, typename R::Key const & key = {} ) {
   Ptr< R > reactor = make< MadeReactor< R > >();
   reactor->kivOwnerIs( owner, key );
   reactor->hasNotificationActiveIs( owner.hasNotificationActive() );
   if( ownerMarked( owner ) ) {
      reactor->kivMarkedForDeletionIs( true );
   }
   return reactor;
}

// The owner holds `reactor` and is initialized: the reactor's first full pass is due.
template< class R >
void
initializeReactor( R & reactor ) {
   if( !reactor.kivMarkedForDeletion() && !ownerMarked( reactor.owner() ) &&
       reactor.owner().initialized() && !reactor.initialized() ) {
      reactor.kivFirstPassFailedIs( false );
      try {
         reactor.handleInitialized();
      } catch( ... ) {
         reactorFailed( reactor, reactor.fwkType().name() );
         reactor.initializedIs( false );
         reactor.kivFirstPassFailedIs( true );
      }
   }
}

template< class R >
class ReactorSlot final : public ReactorSlotBase {
 public:
   explicit ReactorSlot( typename R::Owner & owner ) : ReactorSlotBase( owner ), owner_( owner ) {}
   ~ReactorSlot() override { del(); }

   R * get() const { return reactor_.get(); }

   // Null removes the reactor.
   void notifierIs( Ptr< typename R::Watched > const & entity ) {
      if( !entity ) {
         del();
         return;
      }
      Dispatch::Frame frame;
      if( !reactor_ ) {
         reactor_ = makeReactor< R >( owner_ );
      }
      auto * reactor = reactor_.get();
      reactor->notifierIs( entity );
      initializeReactor( *reactor );
   }
   void del() {
      if( auto const gone = take() ) {
         gone->kivDoZombieReactors( true );
      }
   }
   // The reactor, which the owner knows no more, and which watches nothing; null for none.
   Ptr< R > take() {
      auto gone = std::move( reactor_ );
      if( gone ) {
         gone->notifierIs( nullptr );
      }
      return gone;
   }

 private:
   void activeIs( bool active ) override {
      if( auto reactor = reactor_ ) {
         reactor->hasNotificationActiveIs( active );
      }
   }
   void zombieIs( bool marked ) override {
      if( auto reactor = reactor_ ) {
         reactor->kivDoZombieReactors( marked );
      }
   }
   void initialize() override {
      if( reactor_ ) {
         initializeReactor( *reactor_ );
      }
   }
   void uninitialize() override {
      if( reactor_ ) {
         reactor_->initializedIs( false );
      }
   }

   typename R::Owner & owner_;
   Ptr< R > reactor_;
};

template< class R >
class ReactorMap final : public ReactorSlotBase {
 public:
   using Key = typename R::Key;
   explicit ReactorMap( typename R::Owner & owner ) : ReactorSlotBase( owner ), owner_( owner ) {}
   ~ReactorMap() override { delAll(); }

   HashMap< Key, Ptr< R > > const & all() const { return reactors_; }
   R * get( Key const & key ) const {
      auto const * reactor = reactors_.find( key );
      return reactor ? reactor->get() : nullptr;
   }

   // The reactor of `key` watches `entity`; it is made if there is none. Null removes it.
   void notifierIs( Key const & key, Ptr< typename R::Watched > const & entity ) {
      if( !entity ) {
         del( key );
         return;
      }
      Dispatch::Frame frame;
      auto * reactor = get( key );
      if( !reactor ) {
         // In place before it synchronises: its handlers may look for it, or remove it.
         auto made = makeReactor< R >( owner_, key );
         reactor = made.get();
         reactors_.tryEmplace( key, std::move( made ) );
      }
      reactor->notifierIs( entity );
      initializeReactor( *reactor );
   }
   void del( Key const & key ) {
      if( auto const gone = take( key ) ) {
         gone->kivDoZombieReactors( true );
      }
   }
   // The reactor, which the owner knows no more, and which watches nothing; null for none.
   Ptr< R > take( Key const & key ) {
      auto gone = reactors_.extract( key ).value_or( nullptr );
      if( gone ) {
         gone->notifierIs( nullptr );
      }
      return gone;
   }
   void delAll() {
      for( auto const & key : keysOf( reactors_ ) ) {
         del( key );
      }
   }

 private:
   void activeIs( bool active ) override {
      for( auto const & [ key, reactor ] : reactors_ ) {
         reactor->hasNotificationActiveIs( active );
      }
   }
   void zombieIs( bool marked ) override {
      for( auto const & [ key, reactor ] : reactors_ ) {
         reactor->kivDoZombieReactors( marked );
      }
   }
   void initialize() override {
      for( auto const & [ key, reactor ] : reactors_ ) {
         initializeReactor( *reactor );
      }
   }
   void uninitialize() override {
      for( auto const & [ key, reactor ] : reactors_ ) {
         reactor->initializedIs( false );
      }
   }

   typename R::Owner & owner_;
   HashMap< Key, Ptr< R > > reactors_;
};

} // namespace Kiv

#define KIV_REACTOR( R, field )                                                                    \
 private:                                                                                          \
   ::Kiv::ReactorSlot< R > field##_{ *this };                                                      \
                                                                                                   \
 public:                                                                                           \
   R * field() const { return field##_.get(); }                                                    \
   void field##Is( ::Kiv::Ptr< typename R::Watched > const & entity ) { field##_.notifierIs( entity ); }    \
   void field##Del() { field##_.del(); }                                                           \
   static_assert( true )

#define KIV_REACTORS( K, R, field )                                                                \
 private:                                                                                          \
   ::Kiv::ReactorMap< R > field##_{ *this };                                                       \
                                                                                                   \
 public:                                                                                           \
   ::Kiv::HashMap< K, ::Kiv::Ptr< R > > const & field() const { return field##_.all(); }           \
   R * field( K const & key ) const { return field##_.get( key ); }                                \
   void field##Is( K const & key, ::Kiv::Ptr< typename R::Watched > const & entity ) {                      \
      field##_.notifierIs( key, entity );                                                          \
   }                                                                                               \
   void field##Del( K const & key ) { field##_.del( key ); }                                       \
   void field##DelAll() { field##_.delAll(); }                                                     \
   static_assert( true )
