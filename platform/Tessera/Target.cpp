// SPDX-License-Identifier: Apache-2.0
#include "Tessera/Target.h"

#include "Tessera/Error.h"
#include "Tessera/Read.h"
#include "Tessera/Suggest.h"

namespace Tessera {

std::vector< Kiv::String >
Place::attributeNames() const {
   std::vector< Kiv::String > names;
   if( reflection ) {
      for( auto const * each : reflection->attributes() ) {
         names.emplace_back( each->id.name );
      }
   }
   return names;
}

std::vector< Kiv::String >
Place::keys( Kiv::AttributeInfo const & of ) const {
   return entity ? of.keys( *entity ) : std::vector< Kiv::String >();
}

void
refuse( Path const & path, std::string_view message ) {
   auto reason = message;
   for( std::size_t i = 0; i != path.size(); ++i ) {
      auto const & name = path[ i ];
      if( reason.size() > name.size() + 2 && reason.starts_with( name ) &&
          reason.substr( name.size(), 2 ) == ": " ) {
         reason.remove_prefix( name.size() + 2 );
      }
   }
   throw Error( path.text(), Kiv::String( reason ) );
}

PlacePtr
childPlace( PlacePtr const & parent, Kiv::AttributeInfo const & attribute,
            Kiv::String const & key ) {
   bool keyed = attribute.id.kind == Kiv::AttributeKind::children;
   auto path = parent->path / attribute.id.name;
   if( keyed ) {
      path = path / key;
      at( path, [ & ] { attribute.checkKey( key ); } );
   }
   Kiv::Ptr< Kiv::Entity > child( parent->entity ? attribute.child( *parent->entity, key )
                                                 : nullptr );
   auto const * type = child ? &child->fwkType() : attribute.childType();
   return std::make_shared< Place >(
         Place{ path, child, type ? type->reflection() : nullptr, parent, &attribute, key } );
}

void
require( Place const & place ) {
   if( place.entity ) {
      return;
   }
   if( place.parent ) {
      require( *place.parent );
   }
   if( place.attribute && place.attribute->isKeyed() ) {
      throw Missing( place.path.text(),
                     "is not there; " +
                           suggestion( place.key, place.parent->keys( *place.attribute ) ) );
   }
   throw Missing( place.path.text(), "is not there" );
}

namespace {

// Below a mounted entity: entities, an attribute, a member, fields.
class Walk {
 public:
   Walk( Path const & path, Target & target ) : path_( path ), target_( target ) {}

   void step( std::size_t i ) {
      auto const & component = path_[ i ];
      auto here = path_.first( i + 1 );
      if( target_.key || !target_.fields.empty() ) {
         target_.fields.push_back( component );
      } else if( !target_.attribute ) {
         enter( component, here );
      } else if( target_.attribute->isChild() ) {
         target_.place = childPlace( target_.place, *target_.attribute, component );
         target_.attribute = nullptr;
      } else if( target_.attribute->isKeyed() ) {
         at( here, [ & ] { target_.attribute->checkKey( component ); } );
         target_.key = component;
      } else if( target_.attribute->shape == Kiv::DatumShape::structure ||
                 target_.attribute->isListed() ) {
         target_.fields.push_back( component );
      } else {
         throw Error( here.text(), Kiv::String( target_.attribute->id.name ) +
                                         " is a plain value: there is nothing below it" );
      }
   }

 private:
   void enter( Kiv::String const & component, Path const & here ) {
      auto const * attribute = target_.place->find( component );
      if( !attribute ) {
         // Of an entity that is missing one cannot say what it has, unless all of its kind do.
         if( !target_.place->reflection ) {
            require( *target_.place );
         }
         throw Error( here.text(), "no such attribute; " +
                                         suggestion( component, target_.place->attributeNames() ) );
      }
      if( attribute->id.kind == Kiv::AttributeKind::child ) {
         target_.place = childPlace( target_.place, *attribute, {} );
      } else {
         target_.attribute = attribute;
      }
   }

   Path const & path_;
   Target & target_;
};

} // namespace

Target
resolve( Mount const & root, Path const & path ) {
   Target target{ .path = path };
   Mount const * mount = &root;
   std::size_t i = 0;
   for( ; i != path.size() && !mount->entity; ++i ) {
      auto const * next = mount->find( path[ i ] );
      if( !next ) {
         throw Error( path.first( i + 1 ).text(),
                      "no such path; " + suggestion( path[ i ], mount->names() ) );
      }
      mount = next;
   }
   if( !mount->entity ) {
      target.directory = mount;
      return target;
   }
   target.access = mount->access;
   target.place =
         std::make_shared< Place >( Place{ .path = mount->path,
                                           .entity = mount->entity,
                                           .reflection = mount->entity->fwkType().reflection(),
                                           .mount = mount } );
   Walk walk( path, target );
   for( ; i != path.size(); ++i ) {
      walk.step( i );
   }
   return target;
}

void
requireUse( Place const & place ) {
   if( place.entity ) {
      return;
   }
   requireUse( *place.parent );
   auto const * top = place.parent.get();
   while( top->parent ) {
      top = top->parent.get();
   }
   if( top->mount->mayBeMade ) {
      at( place.path, [ & ] { top->mount->mayBeMade( place.path ); } );
   }
}

namespace {

// Down into a value, by what its type says of it.
void
requireFields( Target const & target ) {
   auto path = target.place->path / target.attribute->id.name;
   if( target.key ) {
      path = path / *target.key;
   }
   auto sample = target.attribute->sample();
   if( target.attribute->isListed() ) {
      sample = Kiv::Datum::Array{ std::move( sample ) };
   }
   Kiv::Datum const * part = &sample;
   for( auto const & field : target.fields ) {
      path = path / field;
      if( auto const * list = part->as< Kiv::Datum::Array >() ) {
         at( path, [ & ] { Kiv::fromText< std::size_t >( field ); } );
         if( list->empty() ) {
            return; // its elements may be anything
         }
         part = &list->front();
      } else if( part->as< Kiv::Datum::Object >() ) {
         auto const * next = part->find( field );
         if( !next ) {
            throw Error( path.text(),
                         "no such field; " + suggestion( field, fieldNames( *part ) ) );
         }
         part = next;
      } else {
         throw Error( path.text(), "is below a plain value, where nothing can be" );
      }
   }
}

} // namespace

void
requirePossible( Mount const & root, Path const & path ) {
   try {
      auto const target = resolve( root, path );
      if( target.place ) {
         requireUse( *target.place );
      }
      if( !target.fields.empty() ) {
         requireFields( target );
      }
   } catch( Missing const & ) {
      // It may come, and is the only one to know what it has.
   }
}

} // namespace Tessera
