// SPDX-License-Identifier: Apache-2.0
#pragma once

// Reflection of entities: the attributes in declaration order, readable and writable through data
// and text. Include it where KIV_DEFINE stands (it costs compile time) and where entities are
// handled without their types: the state database, traces, tools.

#include "Kiv/Datum.h"
#include "Kiv/Entity.h"

#include <array>
#include <optional>
#include <span>
#include <vector>

namespace Kiv {

// One attribute of one entity class. Every operation takes an entity of that class. What a kind of
// attribute does not have, it answers with nothing or refuses with ParseError.
class AttributeInfo {
 public:
   constexpr AttributeInfo( AttributeId const & attributeId, std::string_view keyName,
                            std::string_view valueName, DatumShape valueShape )
         : id( attributeId ), keyType( keyName ), valueType( valueName ), shape( valueShape ) {}
   constexpr virtual ~AttributeInfo() = default;

   AttributeId const & id;
   std::string_view const keyType;   // empty for scalars
   std::string_view const valueType; // the C++ type
   DatumShape const shape;           // of one value

   bool isKeyed() const { return !keyType.empty(); }
   // Its members stand in a row, without keys.
   bool isListed() const {
      return id.kind == AttributeKind::queue || id.kind == AttributeKind::stack;
   }
   // Its members are entities with attributes of their own.
   bool isChild() const {
      return id.kind == AttributeKind::child || id.kind == AttributeKind::children;
   }

   // The whole attribute: a value; an object for maps; a list for sets, queues and stacks; for
   // child entities their name or the list of their keys.
   virtual Datum get( Entity const & entity ) const = 0;
   // Replaces the whole attribute. Throws ParseError or RangeException before anything changed.
   virtual void set( Entity & entity, Datum const & value ) const;
   // As set(), but changes nothing at all.
   virtual void check( Datum const & value ) const;

   virtual std::vector< String > keys( Entity const & entity ) const;
   // Members of keyed attributes, by the text of their key. Throw ParseError for a malformed key.
   virtual std::optional< Datum > member( Entity const & entity, std::string_view key ) const;
   virtual void setMember( Entity & entity, std::string_view key, Datum const & value ) const;
   virtual void checkMember( std::string_view key, Datum const & value ) const;
   // Throws ParseError or RangeException unless `key` is the text of a key of this attribute.
   // Returns the text in the form in which keys() gives it.
   virtual String checkKey( std::string_view key ) const;
   // False when there was no such member.
   virtual bool delMember( Entity & entity, std::string_view key ) const;

   // Child entities; null when there is none. `key` is ignored for a single child.
   virtual Entity * child( Entity & entity, std::string_view key ) const;
   virtual Entity * makeChild( Entity & entity, std::string_view key ) const;
   // Whether makeChild() can make one: children by key, of a class that is made from its key.
   virtual bool makesChildren() const;
   // The class of the child entities; null for other attributes and for children of any class.
   virtual Type const * childType() const;

   // The text of a key as notifications carry it; empty for scalars.
   virtual String keyText( void const * key ) const;

   // One value as its type makes it, for what its fields are; null where values have none.
   virtual Datum sample() const;

 protected:
   [[noreturn]] void notWritable( std::string_view how ) const;
};

class EntityReflection {
 public:
   // `base` is null for classes that derive from Kiv::Entity itself. `own` must live as long.
   EntityReflection( EntityReflection const * base, std::span< AttributeInfo const * const > own );

   // Those of the base class first.
   std::vector< AttributeInfo const * > const & attributes() const { return attributes_; }
   AttributeInfo const * attribute( std::string_view name ) const;
   // The description of an attribute that a notification named.
   AttributeInfo const * attribute( AttributeId const & id ) const;

 private:
   std::vector< AttributeInfo const * > attributes_;
};

// "Bridging::StormControl::IntfConfig(Ethernet1).broadcast", with "[key]" for members.
String describeAttribute( Entity const & entity, AttributeId const & id, void const * key );
// The value of the attribute, or of the member `key`, as text; empty when the member is gone.
String describeValue( Entity const & entity, AttributeId const & id, void const * key );

// ----------------------------------------------------------------------------------------------

// What follows is compiled for every attribute of every class: the less stands in it, the sooner
// the system is built. Whatever does not depend on the class is shared.

// Sets and maps as a whole, in terms of their members.
class CollectionInfo : public AttributeInfo {
 public:
   using AttributeInfo::AttributeInfo;
   void set( Entity & entity, Datum const & value ) const override;
   void check( Datum const & value ) const override;
};

// A list of the texts.
Datum textList( std::vector< String > const & texts );
// Throws ParseError unless `value` is true.
void checkIsMember( Datum const & value );
[[noreturn]] void keysDiffer( std::string_view own, std::string_view key );
// Throws ParseError.
[[noreturn]] void keyNotReadable( std::string_view key );

template< class Container >
std::vector< String >
keyTexts( Container const & container ) {
   std::vector< String > texts;
   for( auto const & member : container ) {
      texts.push_back( toText( memberKey< typename Container::key_type >( member ) ) );
   }
   return texts;
}

template< class Map >
Datum
mapDatum( Map const & map ) {
   Datum datum( Datum::Object{} );
   for( auto const & [ key, value ] : map ) {
      datum.add( toText( key ), toDatum( value ) );
   }
   return datum;
}

template< class List >
Datum
listDatum( List const & list ) {
   Datum::Array array;
   for( auto const & value : list ) {
      array.push_back( toDatum( value ) );
   }
   return array;
}

template< class Map, class Key >
std::optional< Datum >
memberDatum( Map const & map, Key const & key ) {
   auto const value = map.find( key );
   return value ? std::optional( toDatum( *value ) ) : std::nullopt;
}

// The i-th attribute of E: how to reach it.
template< class E, unsigned i, class Base >
class InfoBase : public Base {
 protected:
   using At = Count< i >;
   static constexpr auto const & attribute = E::kivAttribute( At{} );
   using A = std::remove_cvref_t< decltype( attribute ) >;
   using Key = typename A::Key;
   using Value = typename A::Value;

   static auto const & stored( Entity const & entity ) {
      return E::kivGet( At{}, static_cast< E const & >( entity ) );
   }
   static E & typed( Entity & entity ) { return static_cast< E & >( entity ); }

   constexpr InfoBase( std::string_view keyName, DatumShape valueShape )
         : Base( attribute, keyName, typeName< Value >(), valueShape ) {}

 public:
   Datum sample() const override {
      if constexpr( FieldedValue< Value > || isVector< Value > ) {
         return toDatum( Value{} );
      } else {
         return {};
      }
   }
};

template< class E, unsigned i >
inline constexpr bool isReadOnly = requires {
   E::kivReadOnly( Count< i >{} );
};

template< class E, unsigned i >
class ScalarInfo final : public InfoBase< E, i, AttributeInfo > {
   using Base = InfoBase< E, i, AttributeInfo >;
   using typename Base::Value;
   static constexpr bool writable =
         !isReadOnly< E, i > && requires( E & entity, Value const & value ) {
      E::kivPut( Count< i >{}, entity, value );
   };

 public:
   constexpr ScalarInfo() : Base( "", datumShape< Value >() ) {}
   Datum get( Entity const & entity ) const override { return toDatum( Base::stored( entity ) ); }
   void set( [[maybe_unused]] Entity & entity, Datum const & value ) const override {
      if constexpr( writable ) {
         E::kivPut( Count< i >{}, Base::typed( entity ), fromDatum< Value >( value ) );
      } else {
         this->notWritable( "from outside" );
      }
   }
   void check( Datum const & value ) const override {
      if constexpr( writable &&
                    requires( Value const & typed ) { E::kivCheck( Count< i >{}, typed ); } ) {
         E::kivCheck( Count< i >{}, fromDatum< Value >( value ) );
      } else if constexpr( writable ) {
         fromDatum< Value >( value );
      } else {
         this->notWritable( "from outside" );
      }
   }
};

// Queues and stacks.
template< class E, unsigned i >
class ListInfo final : public InfoBase< E, i, AttributeInfo > {
   using Base = InfoBase< E, i, AttributeInfo >;

 public:
   constexpr ListInfo() : Base( "", datumShape< typename Base::Value >() ) {}
   Datum get( Entity const & entity ) const override { return listDatum( Base::stored( entity ) ); }
   String keyText( void const * key ) const override {
      return toText( *static_cast< typename Base::Key const * >( key ) );
   }
};

// What has members.
template< class E, unsigned i, class Middle >
class KeyedInfo : public InfoBase< E, i, Middle > {
   using Base = InfoBase< E, i, Middle >;

 protected:
   using typename Base::Key;
   // Of keys that have no text to be read from, none is there for who has only that.
   static Key keyFrom( std::string_view key ) {
      if constexpr( TextReadable< Key > ) {
         return fromText< Key >( key );
      } else {
         keyNotReadable( key );
      }
   }

 public:
   constexpr explicit KeyedInfo( DatumShape valueShape ) : Base( typeName< Key >(), valueShape ) {}
   std::vector< String > keys( Entity const & entity ) const override {
      return keyTexts( Base::stored( entity ) );
   }
   String checkKey( std::string_view key ) const override { return toText( keyFrom( key ) ); }
   bool delMember( Entity & entity, std::string_view key ) const override {
      auto const typedKey = keyFrom( key );
      if constexpr( !isReadOnly< E, i > &&
                    requires { E::kivErase( Count< i >{}, Base::typed( entity ), typedKey ); } ) {
         bool const there = Base::stored( entity ).has( typedKey );
         if( there ) {
            E::kivErase( Count< i >{}, Base::typed( entity ), typedKey );
         }
         return there;
      } else {
         this->notWritable( "by member" );
      }
   }
   String keyText( void const * key ) const override {
      return toText( *static_cast< Key const * >( key ) );
   }
};

template< class E, unsigned i >
class SetInfo final : public KeyedInfo< E, i, CollectionInfo > {
   using Base = KeyedInfo< E, i, CollectionInfo >;

 public:
   constexpr SetInfo() : Base( DatumShape::boolean ) {}
   Datum get( Entity const & entity ) const override { return textList( this->keys( entity ) ); }
   std::optional< Datum > member( Entity const & entity, std::string_view key ) const override {
      return Base::stored( entity ).has( Base::keyFrom( key ) ) ? std::optional( Datum( true ) )
                                                                : std::nullopt;
   }
   void setMember( Entity & entity, std::string_view key, Datum const & value ) const override {
      auto const typedKey = Base::keyFrom( key );
      checkIsMember( value );
      E::kivPut( Count< i >{}, Base::typed( entity ), typedKey );
   }
   void checkMember( std::string_view key, Datum const & value ) const override {
      Base::keyFrom( key );
      checkIsMember( value );
   }
};

template< class E, unsigned i >
class MapInfo final : public KeyedInfo< E, i, CollectionInfo > {
   using Base = KeyedInfo< E, i, CollectionInfo >;
   using typename Base::Value;

   // A value that brings its key with it must bring the one that it is filed under, and gets that if
   // it brings none. What is wrong with a value as a whole it says itself: its kivCheck(), if it has
   // one, throws ParseError.
   static Value valueFrom( typename Base::Key const & key, Datum const & datum ) {
      auto value = fromDatum< Value >( datum );
      if constexpr( Base::A::fixedKind == AttributeKind::keyed ) {
         auto & own = const_cast< typename Base::Key & >( E::kivKeyOf( Count< i >{}, value ) );
         if( own == typename Base::Key{} ) {
            own = key;
         } else if( !( own == key ) ) {
            keysDiffer( toText( own ), toText( key ) );
         }
      }
      if constexpr( requires { value.kivCheck(); } ) {
         value.kivCheck();
      }
      return value;
   }

 public:
   constexpr MapInfo() : Base( datumShape< Value >() ) {}
   Datum get( Entity const & entity ) const override { return mapDatum( Base::stored( entity ) ); }
   std::optional< Datum > member( Entity const & entity, std::string_view key ) const override {
      return memberDatum( Base::stored( entity ), Base::keyFrom( key ) );
   }
   void setMember( Entity & entity, std::string_view key, Datum const & value ) const override {
      auto const typedKey = Base::keyFrom( key );
      if constexpr( Base::A::fixedKind == AttributeKind::keyed ) {
         E::kivPut( Count< i >{}, Base::typed( entity ), valueFrom( typedKey, value ) );
      } else {
         E::kivPut( Count< i >{}, Base::typed( entity ), typedKey, valueFrom( typedKey, value ) );
      }
   }
   void checkMember( std::string_view key, Datum const & value ) const override {
      valueFrom( Base::keyFrom( key ), value );
   }
};

// What is read here only.
template< class E, unsigned i >
class TableInfo final : public KeyedInfo< E, i, AttributeInfo > {
   using Base = KeyedInfo< E, i, AttributeInfo >;

 public:
   constexpr TableInfo() : Base( datumShape< typename Base::Value >() ) {}
   Datum get( Entity const & entity ) const override { return mapDatum( Base::stored( entity ) ); }
   std::optional< Datum > member( Entity const & entity, std::string_view key ) const override {
      return memberDatum( Base::stored( entity ), Base::keyFrom( key ) );
   }
};

// Null for children of any class.
template< class E >
Type const *
childTypeOf() {
   if constexpr( std::is_same_v< E, Entity > ) {
      return nullptr;
   } else {
      return &E::kivType();
   }
}

template< class E, unsigned i >
class ChildInfo final : public InfoBase< E, i, AttributeInfo > {
   using Base = InfoBase< E, i, AttributeInfo >;

 public:
   constexpr ChildInfo() : Base( "", DatumShape::structure ) {}
   Datum get( Entity const & entity ) const override { return toDatum( Base::stored( entity ) ); }
   Entity * child( Entity & entity, std::string_view ) const override {
      return E::kivChild( Count< i >{}, Base::typed( entity ) ).get();
   }
   Type const * childType() const override { return childTypeOf< typename Base::Value >(); }
};

template< class E, unsigned i >
class ChildrenInfo final : public KeyedInfo< E, i, AttributeInfo > {
   using Base = KeyedInfo< E, i, AttributeInfo >;
   static constexpr bool madeByKey =
         std::is_constructible_v< typename Base::Value, typename Base::Key const & >;

 public:
   constexpr ChildrenInfo() : Base( DatumShape::structure ) {}
   Datum get( Entity const & entity ) const override { return textList( this->keys( entity ) ); }
   std::optional< Datum > member( Entity const & entity, std::string_view key ) const override {
      return memberDatum( Base::stored( entity ), Base::keyFrom( key ) );
   }
   Entity * child( Entity & entity, std::string_view key ) const override {
      return E::kivChild( Count< i >{}, Base::typed( entity ), Base::keyFrom( key ) ).get();
   }
   Entity * makeChild( [[maybe_unused]] Entity & entity,
                       [[maybe_unused]] std::string_view key ) const override {
      if constexpr( madeByKey ) {
         return E::kivMakeChild( Count< i >{}, Base::typed( entity ), Base::keyFrom( key ) ).get();
      } else {
         return nullptr;
      }
   }
   bool makesChildren() const override { return madeByKey; }
   Type const * childType() const override { return childTypeOf< typename Base::Value >(); }
};

template< class E, unsigned i >
consteval auto
makeInfo() {
   constexpr auto kind =
         std::remove_cvref_t< decltype( E::kivAttribute( Count< i >{} ) ) >::fixedKind;
   using enum AttributeKind;
   if constexpr( kind == scalar || kind == counter ) {
      return ScalarInfo< E, i >();
   } else if constexpr( kind == set ) {
      return SetInfo< E, i >();
   } else if constexpr( kind == queue || kind == stack ) {
      return ListInfo< E, i >();
   } else if constexpr( kind == child ) {
      return ChildInfo< E, i >();
   } else if constexpr( kind == children ) {
      return ChildrenInfo< E, i >();
   } else if constexpr( kind == table || isReadOnly< E, i > ) {
      return TableInfo< E, i >();
   } else {
      return MapInfo< E, i >();
   }
}

template< class E, unsigned i >
inline constexpr auto attributeInfo = makeInfo< E, i >();

template< class E >
EntityReflection const *
reflectionOf() {
   static EntityReflection const reflection = [] {
      EntityReflection const * base = nullptr;
      if constexpr( !std::is_same_v< typename E::KivBase, Entity > ) {
         base = E::KivBase::kivType().reflection();
      }
      return [ & ]< unsigned... i >( std::integer_sequence< unsigned, i... > ) {
         static constexpr std::array< AttributeInfo const *, sizeof...( i ) > own{
               &attributeInfo< E, i >... };
         return EntityReflection( base, own );
      }
      ( std::make_integer_sequence< unsigned, decltype( E::kivCount( MaxRank{} ) )::value >{} );
   }();
   return &reflection;
}

} // namespace Kiv

// Stands once, in a source file of the entity class.
#define KIV_DEFINE( Name )                                                                         \
   ::Kiv::Type const & Name::kivType() {                                                           \
      static constinit ::Kiv::Type type{ #Name, &::Kiv::reflectionOf< Name > };                    \
      return type;                                                                                 \
   }                                                                                               \
   ::Kiv::Type const & Name::fwkType() const { return kivType(); }                                 \
   static_assert( true )
