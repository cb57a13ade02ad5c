// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Reflect.h"

namespace Kiv {

void
AttributeInfo::notWritable( std::string_view how ) const {
   throw ParseError( String( id.name ) + " cannot be written " + String( how ) );
}

void
AttributeInfo::set( Entity &, Datum const & ) const {
   notWritable( "as a whole" );
}

void
AttributeInfo::check( Datum const & ) const {
   notWritable( "as a whole" );
}

std::vector< String >
AttributeInfo::keys( Entity const & ) const {
   return {};
}

std::optional< Datum >
AttributeInfo::member( Entity const &, std::string_view ) const {
   return std::nullopt;
}

void
AttributeInfo::setMember( Entity &, std::string_view, Datum const & ) const {
   notWritable( "by member" );
}

void
AttributeInfo::checkMember( std::string_view, Datum const & ) const {
   notWritable( "by member" );
}

String
AttributeInfo::checkKey( std::string_view ) const {
   throw ParseError( String( id.name ) + " has no members" );
}

bool
AttributeInfo::delMember( Entity &, std::string_view ) const {
   notWritable( "by member" );
}

Entity *
AttributeInfo::child( Entity &, std::string_view ) const {
   return nullptr;
}

Entity *
AttributeInfo::makeChild( Entity &, std::string_view ) const {
   return nullptr;
}

bool
AttributeInfo::makesChildren() const {
   return false;
}

Type const *
AttributeInfo::childType() const {
   return nullptr;
}

String
AttributeInfo::keyText( void const * ) const {
   return {};
}

Datum
AttributeInfo::sample() const {
   return {};
}

namespace {

// The members that `value` gives to a collection: for sets, the keys alone.
Datum::Object
givenMembers( AttributeInfo const & info, Datum const & value ) {
   if( info.id.kind != AttributeKind::set ) {
      auto const * object = value.as< Datum::Object >();
      if( !object ) {
         wrongShape( value, "an object" );
      }
      return *object;
   }
   auto const * array = value.as< Datum::Array >();
   if( !array ) {
      wrongShape( value, "a list" );
   }
   Datum::Object members;
   for( auto const & key : *array ) {
      members.emplace_back( fromDatum< String >( key ), true );
   }
   return members;
}

void
checkMembers( AttributeInfo const & info, Datum::Object const & members ) {
   for( auto const & member : members ) {
      info.checkKey( member.first );
      inPlace( member.first, [ & ] { info.checkMember( member.first, member.second ); } );
   }
}

} // namespace

void
CollectionInfo::check( Datum const & value ) const {
   checkMembers( *this, givenMembers( *this, value ) );
}

// What is no longer there goes first. One notification as a whole, so that the entity outlives it.
void
CollectionInfo::set( Entity & entity, Datum const & value ) const {
   auto const members = givenMembers( *this, value );
   checkMembers( *this, members );
   HashSet< String > wanted;
   for( auto const & member : members ) {
      wanted.insert( checkKey( member.first ) );
   }
   Dispatch::Frame frame;
   for( auto const & key : keys( entity ) ) {
      if( !wanted.has( key ) ) {
         delMember( entity, key );
      }
   }
   for( auto const & [ key, member ] : members ) {
      setMember( entity, key, member );
   }
}

Datum
textList( std::vector< String > const & texts ) {
   return Datum::Array( texts.begin(), texts.end() );
}

void
checkIsMember( Datum const & value ) {
   if( value != Datum( true ) ) {
      wrongShape( value, "true (a member of a set is there, or is deleted)" );
   }
}

void
keyNotReadable( std::string_view key ) {
   parseFailed( key, "a key: those of this attribute are not read from text" );
}

void
keysDiffer( std::string_view own, std::string_view key ) {
   throw ParseError( "the value carries the key " + String( own ) + ", not " + String( key ) );
}

EntityReflection::EntityReflection( EntityReflection const * base,
                                    std::span< AttributeInfo const * const > own ) {
   if( base ) {
      attributes_ = base->attributes();
   }
   attributes_.insert( attributes_.end(), own.begin(), own.end() );
}

AttributeInfo const *
EntityReflection::attribute( std::string_view name ) const {
   for( auto const * attribute : attributes_ ) {
      if( attribute->id.name == name ) {
         return attribute;
      }
   }
   return nullptr;
}

AttributeInfo const *
EntityReflection::attribute( AttributeId const & id ) const {
   for( auto const * attribute : attributes_ ) {
      if( &attribute->id == &id ) {
         return attribute;
      }
   }
   return nullptr;
}

namespace {

AttributeInfo const *
infoOf( Entity const & entity, AttributeId const & id ) {
   auto const * reflection = entity.fwkType().reflection();
   return reflection ? reflection->attribute( id ) : nullptr;
}

void
appendQuoted( String & out, std::string_view text ) {
   out += '"';
   for( char c : text ) {
      if( c == '"' || c == '\\' ) {
         out += '\\';
      }
      out += c;
   }
   out += '"';
}

void appendDatum( String & out, Datum const & datum, bool bare );

struct DatumPrinter {
   String & out;
   bool bare;
   void operator()( std::monostate ) const { out += "none"; }
   void operator()( String const & text ) const {
      if( bare ) {
         out += text;
      } else {
         appendQuoted( out, text );
      }
   }
   void operator()( Datum::Array const & array ) const {
      out += '[';
      char const * separator = "";
      for( auto const & element : array ) {
         out += separator;
         appendDatum( out, element, false );
         separator = ", ";
      }
      out += ']';
   }
   void operator()( Datum::Object const & object ) const {
      out += '{';
      char const * separator = "";
      for( auto const & [ name, value ] : object ) {
         out += separator;
         appendQuoted( out, name );
         out += ": ";
         appendDatum( out, value, false );
         separator = ", ";
      }
      out += '}';
   }
   template< class Number >
   void operator()( Number number ) const {
      print( out, number );
   }
};

void
appendDatum( String & out, Datum const & datum, bool bare ) {
   datum.visit( DatumPrinter{ out, bare } );
}

} // namespace

String
describeAttribute( Entity const & entity, AttributeId const & id, void const * key ) {
   String text( entity.fwkType().name() );
   text += '(';
   text += entity.name();
   text += ").";
   text += id.name;
   auto const * info = infoOf( entity, id );
   if( info && key ) {
      text += '[' + info->keyText( key ) + ']';
   }
   return text;
}

String
describeValue( Entity const & entity, AttributeId const & id, void const * key ) {
   auto const * info = infoOf( entity, id );
   if( !info ) {
      return {};
   }
   if( !key || !info->isKeyed() ) {
      return datumText( info->get( entity ) );
   }
   auto value = info->member( entity, info->keyText( key ) );
   return value ? datumText( *value ) : String();
}

String
datumText( Datum const & datum ) {
   String out;
   appendDatum( out, datum, true );
   return out;
}

} // namespace Kiv
