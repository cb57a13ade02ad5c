// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Reflect.h"

namespace Kiv {

EntityReflection::EntityReflection( EntityReflection const * base,
                                    std::vector< std::unique_ptr< AttributeInfo const > > own )
      : own_( std::move( own ) ) {
   if( base ) {
      attributes_ = base->attributes();
   }
   for( auto const & attribute : own_ ) {
      attributes_.push_back( attribute.get() );
   }
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
