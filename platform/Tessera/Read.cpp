// SPDX-License-Identifier: Apache-2.0
#include "Tessera/Read.h"

#include "Tessera/Error.h"
#include "Tessera/Suggest.h"

namespace Tessera {

namespace {

using Kiv::AttributeKind;

Kiv::Datum
readAttribute( Kiv::Entity & entity, Kiv::AttributeInfo const & attribute, Path const & path,
               std::size_t nesting ) {
   if( attribute.id.kind == AttributeKind::child ) {
      Kiv::Ptr< Kiv::Entity > child( attribute.child( entity, {} ) );
      return child ? readEntity( *child, path, nesting + 1 ) : Kiv::Datum();
   }
   if( attribute.id.kind != AttributeKind::children ) {
      return attribute.get( entity );
   }
   Kiv::Datum all( Kiv::Datum::Object{} );
   for( auto const & key : attribute.keys( entity ) ) {
      if( Kiv::Ptr< Kiv::Entity > child{ attribute.child( entity, key ) } ) {
         all.add( key, readEntity( *child, path / key, nesting + 1 ) );
      }
   }
   return all;
}

Kiv::Datum
readDirectory( Mount const & directory, Scope scope ) {
   Kiv::Datum all( Kiv::Datum::Object{} );
   for( auto const & entry : directory.entries ) {
      if( !entry->entity ) {
         auto below = readDirectory( *entry, scope );
         if( scope == Scope::everything || !below.as< Kiv::Datum::Object >()->empty() ) {
            all.add( entry->path.back(), std::move( below ) );
         }
      } else if( scope == Scope::everything || entry->access == Access::configuration ) {
         all.add( entry->path.back(), readEntity( *entry->entity, entry->path ) );
      }
   }
   return all;
}

Kiv::Datum
readMember( Target const & target ) {
   auto value = target.attribute->member( *target.place->entity, *target.key );
   if( !value ) {
      auto path = target.place->path / target.attribute->id.name / *target.key;
      throw Error( path.text(),
                   "is not there; " +
                         suggestion( *target.key, target.place->keys( *target.attribute ) ) );
   }
   return std::move( *value );
}

} // namespace

Kiv::Datum
readEntity( Kiv::Entity & entity, Path const & path, std::size_t nesting ) {
   if( nesting > maxNesting ) {
      throw Error( path.text(), "nests deeper than " + std::to_string( maxNesting ) + " entities" );
   }
   Kiv::Datum all( Kiv::Datum::Object{} );
   if( auto const * reflection = entity.fwkType().reflection() ) {
      for( auto const * attribute : reflection->attributes() ) {
         all.add( attribute->id.name,
                  readAttribute( entity, *attribute, path / attribute->id.name, nesting ) );
      }
   }
   return all;
}

Kiv::Datum const *
findField( Kiv::Datum const & value, std::string_view field ) {
   auto const * array = value.as< Kiv::Datum::Array >();
   if( !array ) {
      return value.find( field );
   }
   std::size_t index = 0;
   auto [ end, error ] = std::from_chars( field.data(), field.data() + field.size(), index );
   bool number = error == std::errc{} && end == field.data() + field.size();
   return number && index < array->size() ? &( *array )[ index ] : nullptr;
}

std::vector< Kiv::String >
fieldNames( Kiv::Datum const & value ) {
   std::vector< Kiv::String > names;
   if( auto const * object = value.as< Kiv::Datum::Object >() ) {
      for( auto const & member : *object ) {
         names.push_back( member.first );
      }
   } else if( auto const * array = value.as< Kiv::Datum::Array >() ) {
      for( std::size_t i = 0; i != array->size(); ++i ) {
         names.push_back( std::to_string( i ) );
      }
   }
   return names;
}

Kiv::Datum
read( Target const & target, Scope scope ) {
   if( target.directory ) {
      return readDirectory( *target.directory, scope );
   }
   if( scope == Scope::configuration && target.access != Access::configuration ) {
      throw Error( target.path.text(), "is no configuration" );
   }
   require( *target.place );
   auto & entity = *target.place->entity;
   if( !target.attribute ) {
      return readEntity( entity, target.place->path );
   }
   auto path = target.place->path / target.attribute->id.name;
   auto value =
         target.key ? readMember( target ) : readAttribute( entity, *target.attribute, path, 0 );
   if( target.key ) {
      path = path / *target.key;
   }
   Kiv::Datum const * part = &value;
   for( auto const & field : target.fields ) {
      path = path / field;
      auto const * next = findField( *part, field );
      if( !next ) {
         throw Error( path.text(), "no such field; " + suggestion( field, fieldNames( *part ) ) );
      }
      part = next;
   }
   return *part;
}

std::vector< Entry >
entries( Target const & target ) {
   std::vector< Entry > all;
   if( target.directory ) {
      for( auto const & name : target.directory->names() ) {
         all.push_back( { name, true } );
      }
   } else if( !target.attribute ) {
      if( target.place->reflection ) {
         for( auto const * attribute : target.place->reflection->attributes() ) {
            all.push_back(
                  { attribute->id.name, attribute->isKeyed() || attribute->isChild() ||
                                              attribute->shape == Kiv::DatumShape::structure } );
         }
      }
   } else if( target.attribute->isKeyed() && !target.key ) {
      bool more =
            target.attribute->isChild() || target.attribute->shape == Kiv::DatumShape::structure;
      for( auto const & key : target.place->keys( *target.attribute ) ) {
         all.push_back( { key, more } );
      }
   } else if( target.place->entity ) {
      auto value = read( target );
      for( auto const & name : fieldNames( value ) ) {
         all.push_back( { name, !fieldNames( *findField( value, name ) ).empty() } );
      }
   }
   return all;
}

} // namespace Tessera
