// SPDX-License-Identifier: Apache-2.0
#pragma once

// Reflection of entities: the attributes in declaration order, readable and writable through data
// and text. Include it where KIV_DEFINE stands (it costs compile time) and where entities are
// handled without their types: the state database, traces, tools.

#include "Kiv/Datum.h"
#include "Kiv/Entity.h"

#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace Kiv {

// One attribute of one entity class. Every operation takes an entity of that class.
class AttributeInfo {
 public:
   AttributeInfo( AttributeId const & attributeId, std::string_view keyName,
                  std::string_view valueName, DatumShape valueShape )
         : id( attributeId ), keyType( keyName ), valueType( valueName ), shape( valueShape ) {}
   virtual ~AttributeInfo() = default;

   AttributeId const & id;
   std::string_view const keyType;   // empty for scalars
   std::string_view const valueType; // the C++ type
   DatumShape const shape;           // of one value

   bool isKeyed() const { return !keyType.empty(); }
   // Its members are entities with attributes of their own.
   bool isChild() const {
      return id.kind == AttributeKind::child || id.kind == AttributeKind::children;
   }

   // The whole attribute: a value; an object for maps; a list for sets, queues and stacks; for
   // child entities their name or the list of their keys.
   virtual Datum get( Entity const & entity ) const = 0;
   // Replaces the whole attribute. Throws ParseError or RangeException before anything changed.
   virtual void set( Entity & entity, Datum const & value ) const = 0;
   // As set(), but changes nothing at all.
   virtual void check( Datum const & value ) const = 0;

   virtual std::vector< String > keys( Entity const & entity ) const = 0;
   // Members of keyed attributes, by the text of their key. Throw ParseError for a malformed key.
   virtual std::optional< Datum > member( Entity const & entity, std::string_view key ) const = 0;
   virtual void setMember( Entity & entity, std::string_view key, Datum const & value ) const = 0;
   virtual void checkMember( std::string_view key, Datum const & value ) const = 0;
   // Throws ParseError or RangeException unless `key` is the text of a key of this attribute.
   virtual void checkKey( std::string_view key ) const = 0;
   // False when there was no such member.
   virtual bool delMember( Entity & entity, std::string_view key ) const = 0;

   // Child entities; null when there is none. `key` is ignored for a single child.
   virtual Entity * child( Entity & entity, std::string_view key ) const = 0;
   virtual Entity * makeChild( Entity & entity, std::string_view key ) const = 0;
   // Whether makeChild() can make one: children by key, of a class that is made from its key.
   virtual bool makesChildren() const = 0;
   // The class of the child entities; null for other attributes and for children of any class.
   virtual Type const * childType() const = 0;

   // The text of a key as notifications carry it.
   virtual String keyText( void const * key ) const = 0;
};

class EntityReflection {
 public:
   EntityReflection( EntityReflection const * base,
                     std::vector< std::unique_ptr< AttributeInfo const > > own );

   // Those of the base class first.
   std::vector< AttributeInfo const * > const & attributes() const { return attributes_; }
   AttributeInfo const * attribute( std::string_view name ) const;
   // The description of an attribute that a notification named.
   AttributeInfo const * attribute( AttributeId const & id ) const;

 private:
   std::vector< std::unique_ptr< AttributeInfo const > > own_;
   std::vector< AttributeInfo const * > attributes_;
};

// "Bridging::StormControl::IntfConfig(Ethernet1).broadcast", with "[key]" for members.
String describeAttribute( Entity const & entity, AttributeId const & id, void const * key );
// The value of the attribute, or of the member `key`, as text; empty when the member is gone.
String describeValue( Entity const & entity, AttributeId const & id, void const * key );
// A datum as one line of text for people: strings bare, objects and lists as in JSON.
String datumText( Datum const & datum );

// ----------------------------------------------------------------------------------------------

template< class E, unsigned i >
class AttributeInfoOf final : public AttributeInfo {
   static constexpr auto const & attribute = E::kivAttribute( Count< i >{} );
   using A = std::remove_cvref_t< decltype( attribute ) >;
   using Key = typename A::Key;
   using Value = typename A::Value;
   static constexpr AttributeKind kind = A::fixedKind;
   static constexpr bool single = kind == AttributeKind::scalar || kind == AttributeKind::counter;
   static constexpr bool mapped = kind == AttributeKind::map || kind == AttributeKind::counters ||
                                  kind == AttributeKind::ordered;
   static constexpr bool set_ = kind == AttributeKind::set;
   static constexpr bool keyed = kind == AttributeKind::keyed;
   static constexpr bool child_ = kind == AttributeKind::child;
   static constexpr bool children = kind == AttributeKind::children;
   static constexpr bool listed = kind == AttributeKind::queue || kind == AttributeKind::stack;
   static constexpr bool hasMembers = mapped || set_ || keyed || children;

   static constexpr std::string_view keyTypeName() {
      if constexpr( std::is_void_v< Key > || listed ) {
         return "";
      } else {
         return typeName< Key >();
      }
   }
   static constexpr DatumShape shapeOf() {
      if constexpr( child_ || children ) {
         return DatumShape::structure;
      } else {
         return datumShape< Value >();
      }
   }
   static auto const & storage( Entity const & entity ) {
      return E::kivGet( Count< i >{}, static_cast< E const & >( entity ) );
   }
   static E & typed( Entity & entity ) { return static_cast< E & >( entity ); }
   static constexpr bool madeByKey() {
      if constexpr( children ) {
         return std::is_constructible_v< Value, Key const & >;
      } else {
         return false;
      }
   }
   [[noreturn]] void notWritable( std::string_view how ) const {
      throw ParseError( String( attribute.name ) + " cannot be written " + String( how ) );
   }

 public:
   AttributeInfoOf() : AttributeInfo( attribute, keyTypeName(), typeName< Value >(), shapeOf() ) {}

   Datum get( Entity const & entity ) const override {
      auto const & stored = storage( entity );
      if constexpr( single || child_ ) {
         return toDatum( stored );
      } else if constexpr( mapped || keyed ) {
         Datum datum( Datum::Object{} );
         for( auto const & [ key, value ] : stored ) {
            datum.add( toText( key ), toDatum( value ) );
         }
         return datum;
      } else if constexpr( set_ || children ) {
         Datum::Array array;
         for( auto const & member : stored ) {
            array.push_back( toText( memberKey< Key >( member ) ) );
         }
         return array;
      } else {
         Datum::Array array;
         for( auto const & value : stored ) {
            array.push_back( toDatum( value ) );
         }
         return array;
      }
   }

   void set( Entity & entity, Datum const & value ) const override {
      if constexpr( single ) {
         E::kivPut( Count< i >{}, typed( entity ), fromDatum< Value >( value ) );
      } else if constexpr( mapped || set_ || keyed ) {
         check( value );
         replaceMembers( entity, value );
      } else {
         notWritable( "as a whole" );
      }
   }

   void check( Datum const & value ) const override {
      if constexpr( single ) {
         fromDatum< Value >( value );
      } else if constexpr( set_ ) {
         for( auto const & key : elements( value ) ) {
            fromDatum< String >( key );
            fromText< Key >( *key.as< String >() );
         }
      } else if constexpr( mapped || keyed ) {
         for( auto const & [ key, member ] : members( value ) ) {
            checkMember( key, member );
         }
      } else {
         notWritable( "as a whole" );
      }
   }

   std::vector< String > keys( [[maybe_unused]] Entity const & entity ) const override {
      std::vector< String > texts;
      if constexpr( hasMembers ) {
         for( auto const & member : storage( entity ) ) {
            texts.push_back( toText( memberKey< Key >( member ) ) );
         }
      }
      return texts;
   }

   std::optional< Datum > member( [[maybe_unused]] Entity const & entity,
                                  [[maybe_unused]] std::string_view key ) const override {
      if constexpr( set_ ) {
         if( storage( entity ).has( fromText< Key >( key ) ) ) {
            return Datum( true );
         }
      } else if constexpr( hasMembers ) {
         if( auto const * value = storage( entity ).find( fromText< Key >( key ) ) ) {
            return toDatum( *value );
         }
      }
      return std::nullopt;
   }

   void setMember( Entity & entity, std::string_view key, Datum const & value ) const override {
      if constexpr( mapped ) {
         auto typedKey = fromText< Key >( key );
         E::kivPut( Count< i >{}, typed( entity ), typedKey, fromDatum< Value >( value ) );
      } else if constexpr( set_ ) {
         checkMember( key, value );
         E::kivPut( Count< i >{}, typed( entity ), fromText< Key >( key ) );
      } else if constexpr( keyed ) {
         E::kivPut( Count< i >{}, typed( entity ), keyedValue( key, value ) );
      } else {
         notWritable( "by member" );
      }
   }

   void checkMember( std::string_view key, Datum const & value ) const override {
      if constexpr( mapped ) {
         fromText< Key >( key );
         inPlace( key, [ & ] { return fromDatum< Value >( value ); } );
      } else if constexpr( set_ ) {
         fromText< Key >( key );
         if( value != Datum( true ) ) {
            wrongShape( value, "true (a member of a set is there, or is deleted)" );
         }
      } else if constexpr( keyed ) {
         keyedValue( key, value );
      } else {
         notWritable( "by member" );
      }
   }

   void checkKey( [[maybe_unused]] std::string_view key ) const override {
      if constexpr( hasMembers ) {
         fromText< Key >( key );
      } else {
         throw ParseError( String( attribute.name ) + " has no members" );
      }
   }

   bool delMember( Entity & entity, std::string_view key ) const override {
      if constexpr( hasMembers ) {
         auto typedKey = fromText< Key >( key );
         if( !storage( entity ).has( typedKey ) ) {
            return false;
         }
         E::kivErase( Count< i >{}, typed( entity ), typedKey );
         return true;
      } else {
         notWritable( "by member" );
      }
   }

   Entity * child( [[maybe_unused]] Entity & entity,
                   [[maybe_unused]] std::string_view key ) const override {
      if constexpr( child_ ) {
         return E::kivChild( Count< i >{}, typed( entity ) ).get();
      } else if constexpr( children ) {
         return E::kivChild( Count< i >{}, typed( entity ), fromText< Key >( key ) ).get();
      } else {
         return nullptr;
      }
   }

   Entity * makeChild( [[maybe_unused]] Entity & entity,
                       [[maybe_unused]] std::string_view key ) const override {
      if constexpr( madeByKey() ) {
         return E::kivMakeChild( Count< i >{}, typed( entity ), fromText< Key >( key ) ).get();
      } else {
         return nullptr;
      }
   }

   bool makesChildren() const override { return madeByKey(); }

   Type const * childType() const override {
      if constexpr( ( child_ || children ) && !std::is_same_v< Value, Entity > ) {
         return &Value::kivType();
      } else {
         return nullptr;
      }
   }

   String keyText( [[maybe_unused]] void const * key ) const override {
      if constexpr( std::is_void_v< Key > ) {
         return {};
      } else {
         return key ? toText( *static_cast< Key const * >( key ) ) : String();
      }
   }

 private:
   static Datum::Array const & elements( Datum const & value ) {
      auto const * array = value.as< Datum::Array >();
      if( !array ) {
         wrongShape( value, "a list" );
      }
      return *array;
   }
   static Datum::Object const & members( Datum const & value ) {
      auto const * object = value.as< Datum::Object >();
      if( !object ) {
         wrongShape( value, "an object" );
      }
      return *object;
   }

   // A value that brings its key with it must bring the one that it is filed under.
   static Value keyedValue( std::string_view key, Datum const & value ) {
      auto typedValue = fromDatum< Value >( value );
      auto const & own = E::kivKeyOf( Count< i >{}, typedValue );
      if( !( own == fromText< Key >( key ) ) ) {
         throw ParseError( "the value carries the key " + toText( own ) + ", not " + String( key ) );
      }
      return typedValue;
   }

   // `value` has been checked. What is no longer there goes first. One notification as a whole, so
   // that the entity outlives it.
   void replaceMembers( Entity & entity, Datum const & value ) const {
      Dispatch::Frame frame;
      HashSet< String > wanted;
      if constexpr( set_ ) {
         for( auto const & key : elements( value ) ) {
            wanted.insert( toText( fromText< Key >( *key.as< String >() ) ) );
         }
      } else {
         for( auto const & [ key, member ] : members( value ) ) {
            wanted.insert( toText( fromText< Key >( key ) ) );
         }
      }
      for( auto const & key : keys( entity ) ) {
         if( !wanted.has( key ) ) {
            delMember( entity, key );
         }
      }
      if constexpr( set_ ) {
         for( auto const & key : wanted ) {
            setMember( entity, key, Datum( true ) );
         }
      } else {
         for( auto const & [ key, member ] : members( value ) ) {
            setMember( entity, key, member );
         }
      }
   }
};

template< class E >
EntityReflection const &
reflectionOf() {
   static EntityReflection const reflection = [] {
      EntityReflection const * base = nullptr;
      if constexpr( !std::is_same_v< typename E::KivBase, Entity > ) {
         base = E::KivBase::kivType().reflection();
      }
      std::vector< std::unique_ptr< AttributeInfo const > > own;
      [ & ]< unsigned... i >( std::integer_sequence< unsigned, i... > ) {
         ( own.push_back( std::make_unique< AttributeInfoOf< E, i > >() ), ... );
      }( std::make_integer_sequence< unsigned, decltype( E::kivCount( MaxRank{} ) )::value >{} );
      return EntityReflection( base, std::move( own ) );
   }();
   return reflection;
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
