// SPDX-License-Identifier: Apache-2.0
#pragma once

// The kinds of attributes that an entity can declare, one line each, in declaration order.
//
//    KIV_ATTRIBUTE( T, x, default... )      x(), xIs( v )
//    KIV_ANNOUNCED( T, x, default... )      the same, but every xIs() notifies, changed or not
//    KIV_RULED( T, x, default... )          x(); what xIs( v ) does the class defines, and says kivChanged( xAttr ) itself;
//                                           from outside it is read only
//    KIV_CHECKED( T, x, rule, default... )  as KIV_ATTRIBUTE, but xIs( v ) first says rule( v ), which throws for what is not
//                                           to be stored: nothing has changed then
//    KIV_COUNTER( T, x )                    x(), xIs( v ), xInc( n ), xDec( n ): return the new value
//    KIV_SET( K, x )                        x(), xHas( k ), xIs( k ), xDel( k ), xDelAll()
//    KIV_COLLECTION( K, V, x, option... )   x(), x( k ), xHas( k ), xIs( k, v ), xDel( k ), xDelAll()
//    KIV_COUNTERS( K, T, x )                the same, and xInc( k, n ), xDec( k, n )
//    KIV_REFCOUNTS( K, x )                  counts of who uses a key: x( k ), xInc( k, n ) and xDec( k, n ) return the
//                                           new count; at 0 the key goes, below it xDec() throws RangeException
//    KIV_KEYED( V, K, key, x )              a collection whose key is the value's member `key`: xIs( v )
//    KIV_ORDERED( K, V, x )                 a collection that iterates in ascending order of its keys
//    KIV_FLAT( K, V, x )                    of values only: a collection in one block (Kiv/FlatMap.h)
//    KIV_QUEUE( T, x )                      x(), xEnq( v ), xDeq(), xFront(), xBack(), xDelAll()
//    KIV_STACK( T, x )                      x(), xPush( v ), xPop(), xTop(), xBottom()
//    KIV_CHILD( E, x )                      an entity: x(), xIs( args... ) makes it, xIs( ptr ), xDel()
//    KIV_CHILDREN( K, E, x, option... )     entities: x(), x( k ), xIs( k, args... ) makes it if it is not there,
//                                           xIs( k, ptr ), xDel( k ), xDelAll()
//
// Looking up a key that is not there yields the value type's default (null for entities). A type
// with commas in it needs a name of its own. Options of a collection, and of children:
//    Kiv::everySet                   every xIs( k, v ) notifies, changed or not
//    Kiv::onEverySet( &E::handler )  every xIs( k, v ) calls the entity's own handler( key ), changed or
//                                    not; reactors still hear changes only
//
// A class that keeps facts about the values of a collection in step with them has
//
//    void kivMemberChanges( decltype( xAttr ) const &, K const & key, V const * before, V const * after )
//
// which hears of each change of them before anybody else is told; null is for no member. It does not touch the
// collection, and does not throw.
//
// A class of child entities may refuse an owner: `void checkOwner( Owner const & ) const` throws, and nothing has
// changed then.
//
// KIV_READ_ONLY( x ), behind a declaration: only the program writes it, whoever else may write to the entity.
//
// An attribute is identified by the address of its descriptor, E::xAttr, which knows entity, key
// and value type: a reactor's table names it, and a handler that does not fit does not compile.
//
// Every declaration adds one overload to a chain of kivCount() functions, so that the declarations
// of a class can be counted and walked at compile time, without a second list.

#include "Kiv/Dispatch.h"
#include "Kiv/FlatMap.h"
#include "Kiv/HashMap.h"
#include "Kiv/KeyOrder.h"
#include "Kiv/OrderedMap.h"
#include "Kiv/Queue.h"

#include <cstdint>
#include <type_traits>
#include <vector>

namespace Kiv {

template< unsigned n >
struct Rank : Rank< n - 1 > {};
template<>
struct Rank< 0 > {};

template< unsigned n >
struct Count {
   static constexpr unsigned value = n;
   using Next = Count< n + 1 >;
   using NextRank = Rank< n + 1 >;
};

// As many attributes or fields as one class can have.
using MaxRank = Rank< 96 >;

enum class AttributeKind : std::uint8_t {
   scalar, counter, set, map, counters, keyed, ordered, queue, stack, child, children,
   table // rows that stand outside of the entity: they are read here, and written by its machine
};

struct AttributeId {
   char const * name;
   std::uint16_t index; // among the attributes of its class, in declaration order
   AttributeKind kind;
};

template< class EntityT, class KeyT, class ValueT, AttributeKind kindOf, unsigned indexOf >
struct Attribute : AttributeId {
   using Entity = EntityT;
   using Key = KeyT; // void for scalars
   using Value = ValueT;
   using Position = Count< indexOf >;
   static constexpr auto fixedKind = kindOf;
   static constexpr unsigned fixedIndex = indexOf;

   consteval explicit Attribute( char const * text )
         : AttributeId{ text, static_cast< std::uint16_t >( indexOf ), kindOf } {}
};

struct EverySet {};
inline constexpr EverySet everySet{};

template< class Handler >
struct OnEverySet {
   Handler handler;
};
template< class Handler >
constexpr OnEverySet< Handler >
onEverySet( Handler handler ) {
   return { handler };
}

// Setters take small values by value, the others by reference.
template< class T >
using Param = std::conditional_t< std::is_trivially_copyable_v< T > && sizeof( T ) <= 16, T, T const & >;

// What a write puts away until all have heard of it: the object that a pointer no longer points at,
// since handlers may still hold on to it. Other values go at once.
struct NothingReplaced {};
template< class T >
using Replaced = std::conditional_t< isPtr< T >, T, NothingReplaced >;

template< class T >
Replaced< T >
replace( T & stored, T const & value ) {
   if constexpr( isPtr< T > ) {
      return std::exchange( stored, value );
   } else {
      stored = value;
      return {};
   }
}

// What a lookup answers when nothing is there.
template< class V >
V const &
absentValue() {
   static V const value{};
   return value;
}

template< class Map, class Key >
auto const &
valueOrDefault( Map const & map, Key const & key ) {
   auto const * value = map.find( key );
   return value ? *value : absentValue< std::remove_cvref_t< decltype( *value ) > >();
}

// Reference counts neither fall below 0 nor wrap.
inline std::uint32_t
countedDown( std::uint32_t count, std::uint32_t by ) {
   if( count < by ) {
      throw RangeException( "a reference count of " + std::to_string( count ) + " less " +
                            std::to_string( by ) + " is below 0" );
   }
   return count - by;
}
inline std::uint32_t
countedUp( std::uint32_t count, std::uint32_t by ) {
   if( count + by < by ) {
      throw RangeException( "a reference count of " + std::to_string( count ) + " and " +
                            std::to_string( by ) + " more is too large" );
   }
   return count + by;
}

template< class Map >
std::vector< typename Map::key_type >
keysOf( Map const & map ) {
   std::vector< typename Map::key_type > keys;
   keys.reserve( map.size() );
   for( auto const & member : map ) {
      keys.push_back( memberKey< typename Map::key_type >( member ) );
   }
   return keys;
}

} // namespace Kiv

#define KIV_COUNT_NOW decltype( kivCount( ::Kiv::MaxRank{} ) )::value

// Opens an entity class: its name as it stands in messages, and, if it derives from another entity
// class than Kiv::Entity, that class.
#define KIV_ENTITY( Name, ... )                                                                    \
 public:                                                                                           \
   using KivSelf = Name;                                                                           \
   using KivBase = ::Kiv::BaseOf< ::Kiv::Entity __VA_OPT__(, ) __VA_ARGS__ >::type;                \
   static ::Kiv::Type const & kivType();                                                           \
   ::Kiv::Type const & fwkType() const override;                                                   \
   static ::Kiv::Count< 0 > kivCount( ::Kiv::Rank< 0 > )

#define KIV_DESCRIBE( Kind, Key, Value, attr )                                                     \
   static constexpr ::Kiv::Attribute< KivSelf, Key, Value, ::Kiv::AttributeKind::Kind,             \
                                      KIV_COUNT_NOW >                                              \
         attr##Attr{ #attr };                                                                      \
   static constexpr auto const & kivAttribute( KIV_POSITION( attr ) ) {                            \
      return attr##Attr;                                                                           \
   }                                                                                               \
   static auto const & kivGet( KIV_POSITION( attr ), KivSelf const & self ) {                      \
      return self.attr##_;                                                                         \
   }

// Asking for the count costs the compiler a walk over all declarations so far, so that each asks
// once: in the type of its descriptor.
#define KIV_POSITION( attr ) decltype( attr##Attr )::Position

// Counts one more declaration; it comes last.
#define KIV_NEXT( attr )                                                                           \
   static KIV_POSITION( attr )::Next kivCount( KIV_POSITION( attr )::NextRank )

#define KIV_SCALAR_( Kind, set, T, attr, ... )                                                     \
 private:                                                                                          \
   T attr##_{ __VA_ARGS__ };                                                                       \
                                                                                                   \
 public:                                                                                           \
   KIV_DESCRIBE( Kind, void, T, attr )                                                             \
   T const & attr() const { return attr##_; }                                                      \
   void attr##Is( ::Kiv::Param< T > value ) { set }                                                \
   static void kivPut( KIV_POSITION( attr ), KivSelf & self, T const & value ) {                   \
      self.attr##Is( value );                                                                      \
   }

#define KIV_ATTRIBUTE( T, attr, ... )                                                              \
   KIV_SCALAR_( scalar,                                                                            \
                if( !( attr##_ == value ) ) {                                                      \
                   [[maybe_unused]] auto const kivGone = ::Kiv::replace< T >( attr##_, value );    \
                   this->kivChanged( attr##Attr );                                                 \
                },                                                                                 \
                T, attr, __VA_ARGS__ )                                                             \
   KIV_NEXT( attr )

#define KIV_CHECKED( T, attr, rule, ... )                                                          \
   KIV_SCALAR_( scalar,                                                                            \
                if( !( attr##_ == value ) ) {                                                      \
                   rule( value );                                                                  \
                   attr##_ = value;                                                                \
                   this->kivChanged( attr##Attr );                                                 \
                },                                                                                 \
                T, attr, __VA_ARGS__ )                                                             \
   static void kivCheck( KIV_POSITION( attr ), T const & value ) { rule( value ); }                \
   KIV_NEXT( attr )

#define KIV_ANNOUNCED( T, attr, ... )                                                              \
   KIV_SCALAR_( scalar, attr##_ = value; this->kivChanged( attr##Attr );, T, attr, __VA_ARGS__ )   \
   KIV_NEXT( attr )

#define KIV_RULED( T, attr, ... )                                                                  \
 private:                                                                                          \
   T attr##_{ __VA_ARGS__ };                                                                       \
                                                                                                   \
 public:                                                                                           \
   KIV_DESCRIBE( scalar, void, T, attr )                                                           \
   T const & attr() const { return attr##_; }                                                      \
   void attr##Is( ::Kiv::Param< T > value );                                                       \
   KIV_NEXT( attr )

#define KIV_COUNTER( T, attr )                                                                     \
   KIV_SCALAR_( counter,                                                                           \
                if( attr##_ != value ) {                                                           \
                   attr##_ = value;                                                                \
                   this->kivChanged( attr##Attr );                                                 \
                },                                                                                 \
                T, attr, 0 )                                                                       \
   T attr##Inc( T by ) {                                                                           \
      T value = static_cast< T >( attr##_ + by );                                                  \
      attr##Is( value );                                                                           \
      return value;                                                                                \
   }                                                                                               \
   T attr##Dec( T by ) {                                                                           \
      T value = static_cast< T >( attr##_ - by );                                                  \
      attr##Is( value );                                                                           \
      return value;                                                                                \
   }                                                                                               \
   KIV_NEXT( attr )

#define KIV_READ_ONLY( attr ) static void kivReadOnly( KIV_POSITION( attr ) )

// What all keyed attributes have in common.
#define KIV_MEMBERS_( Kind, Key, Value, attr, ... )                                                \
 private:                                                                                          \
   __VA_ARGS__ attr##_;                                                                            \
                                                                                                   \
 public:                                                                                           \
   KIV_DESCRIBE( Kind, Key, Value, attr )                                                          \
   __VA_ARGS__ const & attr() const { return attr##_; }                                            \
   bool attr##Has( Key const & key ) const { return attr##_.has( key ); }                          \
   void attr##Del( Key const & key ) {                                                             \
      ::Kiv::eraseMember( attr##_, key, KIV_NOTIFIER_( attr ) );                                   \
   }                                                                                               \
   void attr##DelAll() { ::Kiv::eraseAll( attr##_, KIV_NOTIFIER_( attr ) ); }                      \
   static void kivErase( KIV_POSITION( attr ), KivSelf & self, Key const & key ) {                 \
      self.attr##Del( key );                                                                       \
   }

// Called with the key of a member that has changed; and before, with the values that it had and has, too.
#define KIV_NOTIFIER_( attr )                                                                      \
   [ this ]( auto const & kivKey, auto const *... kivValues ) {                                    \
      if constexpr( sizeof...( kivValues ) == 0 ) {                                                \
         this->kivChanged( attr##Attr, &kivKey );                                                  \
      } else {                                                                                     \
         ::Kiv::memberChanges( *this, attr##Attr, kivKey, kivValues... );                          \
      }                                                                                            \
   }

#define KIV_PUT_MEMBER_( Key, Value, attr )                                                        \
   static void kivPut( KIV_POSITION( attr ), KivSelf & self, Key const & key,                      \
                       Value const & value ) {                                                     \
      self.attr##Is( key, value );                                                                 \
   }

#define KIV_SET( Key, attr )                                                                       \
   KIV_MEMBERS_( set, Key, bool, attr, ::Kiv::HashSet< Key > )                                     \
   void attr##Is( Key const & key ) {                                                              \
      ::Kiv::insertMember( attr##_, key, KIV_NOTIFIER_( attr ) );                                  \
   }                                                                                               \
   static void kivPut( KIV_POSITION( attr ), KivSelf & self, Key const & key ) {                   \
      self.attr##Is( key );                                                                        \
   }                                                                                               \
   KIV_NEXT( attr )

#define KIV_MAP_( Kind, Map, Key, Value, attr, ... )                                               \
   KIV_MEMBERS_( Kind, Key, Value, attr, Map< Key, Value > )                                       \
   Value const & attr( Key const & key ) const { return ::Kiv::valueOrDefault( attr##_, key ); }   \
   void attr##Is( Key const & key, Value const & value ) {                                         \
      ::Kiv::putMember( attr##_, key, value,                                                       \
                        KIV_NOTIFIER_( attr ) __VA_OPT__(, *this, ) __VA_ARGS__ );                 \
   }                                                                                               \
   KIV_PUT_MEMBER_( Key, Value, attr )

#define KIV_COLLECTION( Key, Value, attr, ... )                                                    \
   KIV_MAP_( map, ::Kiv::HashMap, Key, Value, attr, __VA_ARGS__ )                                  \
   KIV_NEXT( attr )

#define KIV_ORDERED( Key, Value, attr, ... )                                                       \
   KIV_MAP_( ordered, ::Kiv::OrderedMap, Key, Value, attr, __VA_ARGS__ )                           \
   KIV_NEXT( attr )

#define KIV_FLAT( Key, Value, attr )                                                               \
   KIV_MAP_( map, ::Kiv::FlatMap, Key, Value, attr )                                               \
   KIV_NEXT( attr )

#define KIV_COUNTERS( Key, T, attr )                                                               \
   KIV_MAP_( counters, ::Kiv::HashMap, Key, T, attr )                                              \
   T attr##Inc( Key const & key, T by ) {                                                          \
      T value = static_cast< T >( attr( key ) + by );                                              \
      attr##Is( key, value );                                                                      \
      return value;                                                                                \
   }                                                                                               \
   T attr##Dec( Key const & key, T by ) {                                                          \
      T value = static_cast< T >( attr( key ) - by );                                              \
      attr##Is( key, value );                                                                      \
      return value;                                                                                \
   }                                                                                               \
   KIV_NEXT( attr )

#define KIV_REFCOUNTS( Key, attr )                                                                 \
   KIV_MEMBERS_( counters, Key, ::std::uint32_t, attr, ::Kiv::HashMap< Key, ::std::uint32_t > )    \
   ::std::uint32_t attr( Key const & key ) const { return ::Kiv::valueOrDefault( attr##_, key ); } \
   void attr##Is( Key const & key, ::std::uint32_t count ) {                                       \
      if( count == 0 ) {                                                                           \
         attr##Del( key );                                                                         \
      } else {                                                                                     \
         ::Kiv::putMember( attr##_, key, count, KIV_NOTIFIER_( attr ) );                           \
      }                                                                                            \
   }                                                                                               \
   KIV_PUT_MEMBER_( Key, ::std::uint32_t, attr )                                                   \
   ::std::uint32_t attr##Inc( Key const & key, ::std::uint32_t by = 1 ) {                          \
      auto const count = ::Kiv::countedUp( attr( key ), by );                                      \
      attr##Is( key, count );                                                                      \
      return count;                                                                                \
   }                                                                                               \
   ::std::uint32_t attr##Dec( Key const & key, ::std::uint32_t by = 1 ) {                          \
      auto const count = ::Kiv::countedDown( attr( key ), by );                                    \
      attr##Is( key, count );                                                                      \
      return count;                                                                                \
   }                                                                                               \
   KIV_NEXT( attr )

#define KIV_KEYED( Value, Key, keyMember, attr )                                                   \
   KIV_MEMBERS_( keyed, Key, Value, attr, ::Kiv::HashMap< Key, Value > )                           \
   Value const & attr( Key const & key ) const { return ::Kiv::valueOrDefault( attr##_, key ); }   \
   void attr##Is( Value const & value ) {                                                          \
      ::Kiv::putMember( attr##_, value.keyMember, value, KIV_NOTIFIER_( attr ) );                  \
   }                                                                                               \
   static void kivPut( KIV_POSITION( attr ), KivSelf & self, Value const & value ) {               \
      self.attr##Is( value );                                                                      \
   }                                                                                               \
   static auto const & kivKeyOf( KIV_POSITION( attr ), Value const & value ) {                     \
      return value.keyMember;                                                                      \
   }                                                                                               \
   KIV_NEXT( attr )

// Queues and stacks notify with the position of the element that came or went: counted from the
// first element ever queued, and from the bottom of the stack.
#define KIV_QUEUE( T, attr )                                                                       \
 private:                                                                                          \
   ::Kiv::Queue< T > attr##_;                                                                      \
   std::uint32_t attr##Head_ = 0;                                                                  \
                                                                                                   \
 public:                                                                                           \
   KIV_DESCRIBE( queue, std::uint32_t, T, attr )                                                   \
   ::Kiv::Queue< T > const & attr() const { return attr##_; }                                      \
   T const & attr##Front() const { return attr##_.front(); }                                       \
   T const & attr##Back() const { return attr##_.back(); }                                         \
   void attr##Enq( T const & value ) {                                                             \
      std::uint32_t position = attr##Head_ + static_cast< std::uint32_t >( attr##_.size() );       \
      attr##_.enq( value );                                                                        \
      this->kivChanged( attr##Attr, &position );                                                   \
   }                                                                                               \
   T attr##Deq() {                                                                                 \
      T value = attr##_.deq();                                                                     \
      std::uint32_t position = attr##Head_++;                                                      \
      this->kivChanged( attr##Attr, &position );                                                   \
      return value;                                                                                \
   }                                                                                               \
   /* One by one: who is told of one may put in others, which stay. */                             \
   void attr##DelAll() {                                                                           \
      ::Kiv::Dispatch::Frame frame;                                                                \
      for( auto left = attr##_.size(); left > 0 && !attr##_.empty(); --left ) {                    \
         attr##Deq();                                                                              \
      }                                                                                            \
   }                                                                                               \
   KIV_NEXT( attr )

#define KIV_STACK( T, attr )                                                                       \
 private:                                                                                          \
   ::Kiv::Stack< T > attr##_;                                                                      \
                                                                                                   \
 public:                                                                                           \
   KIV_DESCRIBE( stack, std::uint32_t, T, attr )                                                   \
   ::Kiv::Stack< T > const & attr() const { return attr##_; }                                      \
   T const & attr##Top() const { return attr##_.top(); }                                           \
   T const & attr##Bottom() const { return attr##_.bottom(); }                                     \
   void attr##Push( T const & value ) {                                                            \
      auto position = static_cast< std::uint32_t >( attr##_.size() );                              \
      attr##_.push( value );                                                                       \
      this->kivChanged( attr##Attr, &position );                                                   \
   }                                                                                               \
   T attr##Pop() {                                                                                 \
      T value = attr##_.pop();                                                                     \
      auto position = static_cast< std::uint32_t >( attr##_.size() );                              \
      this->kivChanged( attr##Attr, &position );                                                   \
      return value;                                                                                \
   }                                                                                               \
   KIV_NEXT( attr )

#define KIV_CHILD( E, attr )                                                                       \
 private:                                                                                          \
   ::Kiv::Ptr< E > attr##_;                                                                        \
                                                                                                   \
 public:                                                                                           \
   KIV_DESCRIBE( child, void, E, attr )                                                            \
   ::Kiv::Ptr< E > const & attr() { return attr##_; }                                              \
   ::Kiv::Ptr< E const > attr() const { return attr##_; }                                          \
   void attr##Is( ::Kiv::Ptr< E > const & entity ) {                                               \
      if( attr##_ != entity ) {                                                                    \
         ::Kiv::checkOwner( entity, *this );                                                       \
         auto replaced = ::std::exchange( attr##_, entity );                                       \
         this->kivChanged( attr##Attr );                                                           \
      }                                                                                            \
   }                                                                                               \
   template< class... Args >                                                                       \
      requires( ::std::is_constructible_v< E, Args const &... > )                                  \
   ::Kiv::Ptr< E > attr##Is( Args const &... args ) {                                              \
      auto entity = attr##_;                                                                       \
      if( !entity ) {                                                                              \
         entity = ::Kiv::make< E >( args... );                                                     \
         attr##Is( entity );                                                                       \
      }                                                                                            \
      return entity;                                                                               \
   }                                                                                               \
   void attr##Del() { attr##Is( ::Kiv::Ptr< E >() ); }                                             \
   static auto kivChild( KIV_POSITION( attr ), KivSelf & self ) { return self.attr(); }            \
   KIV_NEXT( attr )

#define KIV_CHILDREN( Key, E, attr, ... )                                                          \
   KIV_MEMBERS_( children, Key, E, attr, ::Kiv::HashMap< Key, ::Kiv::Ptr< E > > )                  \
   ::Kiv::Ptr< E > attr( Key const & key ) { return ::Kiv::valueOrDefault( attr##_, key ); }       \
   ::Kiv::Ptr< E const > attr( Key const & key ) const {                                           \
      return ::Kiv::valueOrDefault( attr##_, key );                                                \
   }                                                                                               \
   void attr##Is( Key const & key, ::Kiv::Ptr< E > const & entity ) {                              \
      ::Kiv::putMember( attr##_, key, entity,                                                      \
                        KIV_NOTIFIER_( attr ) __VA_OPT__(, *this, ) __VA_ARGS__ );                 \
   }                                                                                               \
   template< class KivE = E, class... KivArgs >                                                    \
      requires( ::std::is_constructible_v< KivE, Key const &, KivArgs const &... > )               \
   ::Kiv::Ptr< KivE > attr##Is( Key const & key, KivArgs const &... args ) {                       \
      if( auto const * present = attr##_.find( key ) ) {                                           \
         return *present;                                                                          \
      }                                                                                            \
      auto entity = ::Kiv::make< KivE >( key, args... );                                           \
      attr##Is( key, entity );                                                                     \
      return entity;                                                                               \
   }                                                                                               \
   static auto kivChild( KIV_POSITION( attr ), KivSelf & self, Key const & key ) {                 \
      return self.attr( key );                                                                     \
   }                                                                                               \
   static auto kivMakeChild( KIV_POSITION( attr ), auto & self, Key const & key ) {                \
      return self.attr##Is( key );                                                                 \
   }                                                                                               \
   KIV_NEXT( attr )

namespace Kiv {

class Entity;

template< class Default, class... Given >
struct BaseOf {
   using type = Default;
};
template< class Default, class Given >
struct BaseOf< Default, Given > {
   using type = Given;
};

// The writes behind the accessors. Each stores first and notifies after, with a copy of the key:
// the caller's may live in the very member that a handler removes. Once it has notified, a write
// looks at its entity no more: handlers may have dropped it.

template< class E, class A, class Key, class Value >
void
memberChanges( E & entity, A const & attribute, Key const & key, Value const * before, Value const * after ) {
   if constexpr( requires { entity.kivMemberChanges( attribute, key, before, after ); } ) {
      entity.kivMemberChanges( attribute, key, before, after );
   }
}

template< class E, class Owner >
void
checkOwner( Ptr< E > const & entity, Owner const & owner ) {
   if constexpr( requires { entity->checkOwner( owner ); } ) {
      if( entity ) {
         entity->checkOwner( owner );
      }
   }
}

template< class Key, class E >
bool
announceSet( Key const &, bool, E &, EverySet const & ) {
   return true;
}

template< class Key, class E, class Handler >
bool
announceSet( Key const & key, bool changed, E & entity, OnEverySet< Handler > const & option ) {
   ( entity.*option.handler )( key );
   return changed;
}

template< class Map, class Key, class Value, class Notify, class... EntityAndOption >
void
putMember( Map & map, Key const & key, Value const & value, Notify notify,
           EntityAndOption &&... entityAndOption ) {
   Key const stable = key;
   [[maybe_unused]] Replaced< Value > replaced;
   auto [ member, changed ] = map.tryEmplace( stable, value );
   if( changed ) {
      notify( stable, static_cast< Value const * >( nullptr ), static_cast< Value const * >( member ) );
   } else if( !( *member == value ) ) {
      notify( stable, static_cast< Value const * >( member ), &value );
      replaced = replace( *member, value );
      changed = true;
   }
   bool announce = changed;
   if constexpr( sizeof...( entityAndOption ) == 2 ) {
      announce = announceSet( stable, changed, entityAndOption... );
   }
   if( announce ) {
      notify( stable );
   }
}

template< class Set, class Key, class Notify >
void
insertMember( Set & set, Key const & key, Notify notify ) {
   Key const stable = key;
   if( set.insert( stable ) ) {
      notify( stable );
   }
}

template< class Map, class Key, class Notify >
void
eraseMember( Map & map, Key const & key, Notify notify ) {
   Key const stable = key;
   if constexpr( requires { map.extract( stable ); } ) {
      // The value outlives the notification: handlers may still hold on to what it points at.
      if( auto gone = map.extract( stable ) ) {
         auto const * const before = &std::as_const( *gone );
         notify( stable, before, static_cast< decltype( before ) >( nullptr ) );
         notify( stable );
      }
   } else if( map.erase( stable ) ) {
      notify( stable );
   }
}

// Removes what is there now; what handlers insert meanwhile stays. One notification as a whole, so
// that the entity outlives it.
template< class Map, class Notify >
void
eraseAll( Map & map, Notify notify ) {
   Dispatch::Frame frame;
   for( auto const & key : keysOf( map ) ) {
      eraseMember( map, key, notify );
   }
}

} // namespace Kiv
