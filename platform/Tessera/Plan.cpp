// SPDX-License-Identifier: Apache-2.0
#include "Tessera/Plan.h"

#include "Kiv/Dispatch.h"
#include "Kiv/Utf8.h"
#include "Tessera/Error.h"
#include "Tessera/Read.h"
#include "Tessera/Suggest.h"

#include <span>

namespace Tessera {

namespace {

using Kiv::AttributeKind;
using Kiv::Datum;

Datum::Object const &
objectAt( Path const & path, Datum const & value, std::string_view expected ) {
   auto const * object = value.as< Datum::Object >();
   if( !object ) {
      throw Error( path.text(),
                   Kiv::String( value.shape() ) + " is not " + Kiv::String( expected ) );
   }
   return *object;
}

// `base` with `value` at `fields`. Where `base` has nothing there (or is nothing itself), an object
// with that one field stands for a value whose other fields are the defaults.
Datum
patched( Datum const & base, std::span< Kiv::String const > fields, Datum const & value ) {
   if( fields.empty() ) {
      return value;
   }
   auto const & field = fields.front();
   if( auto const * array = base.as< Datum::Array >() ) {
      auto const * element = findField( base, field );
      if( !element ) {
         Kiv::parseFailed( field, "the number of an element of the list" );
      }
      auto copy = *array;
      copy[ static_cast< std::size_t >( element - array->data() ) ] =
            patched( *element, fields.subspan( 1 ), value );
      return copy;
   }
   Datum result( Datum::Object{} );
   bool found = false;
   if( auto const * object = base.as< Datum::Object >() ) {
      for( auto const & [ name, member ] : *object ) {
         found = found || name == field;
         result.add( name, name == field ? patched( member, fields.subspan( 1 ), value ) : member );
      }
   }
   if( !found ) {
      result.add( field, patched( {}, fields.subspan( 1 ), value ) );
   }
   return result;
}

// The attribute or member as it is now; null when it, or its entity, is missing.
Datum
present( Place const & place, Kiv::AttributeInfo const & attribute,
         std::optional< Kiv::String > const & key ) {
   if( !place.entity ) {
      return {};
   }
   return key ? attribute.member( *place.entity, *key ).value_or( Datum() )
              : attribute.get( *place.entity );
}

bool
isNothing( Datum const & value ) {
   auto const * array = value.as< Datum::Array >();
   return value.isNull() || ( array && array->empty() );
}

// The entity of a place, made now if it is missing.
Kiv::Entity &
made( Place & place ) {
   if( !place.entity ) {
      // Whoever hears of it may remove it at once: it waits until it is held here.
      Kiv::Dispatch::Frame const frame;
      place.entity = place.attribute->makeChild( made( *place.parent ), place.key );
      if( !place.entity ) {
         throw Error( place.path.text(), "could not be made" );
      }
   }
   return *place.entity;
}

// What is made must be there for paths to lead to, and for data, which is UTF-8, to hold.
void
checkCanBeNamed( Path const & path ) {
   auto const text = path.text();
   if( text.size() > Path::maxLength ) {
      throw Error( text, "longer than " + std::to_string( Path::maxLength ) + " characters" );
   }
   if( !path.isUtf8() ) {
      throw Error( text, "is not UTF-8" );
   }
}

void
checkCanBeMade( Place const & place ) {
   if( place.entity ) {
      return;
   }
   checkCanBeMade( *place.parent );
   if( !place.attribute->makesChildren() ) {
      throw Error( place.path.text(), "is not there, and cannot be made from outside" );
   }
   requireUse( place );
}

} // namespace

void
Plan::add( Mount const & root, Target const & target, Datum const & value ) {
   checkCanBeNamed( target.path );
   if( target.directory ) {
      auto const & object =
            objectAt( target.path, value, "an object of what is in this directory" );
      for( auto const & [ name, member ] : object ) {
         add( root, resolve( root, target.path / name ), member );
      }
      return;
   }
   if( target.access == Access::status ) {
      throw Error( target.path.text(), "is status: it cannot be written from outside" );
   }
   checkCanBeMade( *target.place );
   if( !target.attribute ) {
      addEntity( target.place, value );
   } else if( target.key ) {
      addMember(
            { target.path, target.place, target.attribute, target.key, target.fields, value } );
   } else if( !target.fields.empty() ) {
      addWhole( { target.path, target.place, target.attribute, {}, target.fields, value } );
   } else {
      addAttribute( target.place, *target.attribute, value );
   }
}

void
Plan::addEntity( PlacePtr const & place, Datum const & value ) {
   auto const & object = objectAt( place->path, value, "an object of the entity's attributes" );
   if( !place->entity ) {
      addStep( { place->path, place, nullptr, {}, {}, {} } );
   }
   for( auto const & [ name, member ] : object ) {
      auto const * attribute = place->find( name );
      if( !attribute ) {
         throw Error( ( place->path / name ).text(),
                      "no such attribute; " + suggestion( name, place->attributeNames() ) );
      }
      addAttribute( place, *attribute, member );
   }
}

void
Plan::addAttribute( PlacePtr const & place, Kiv::AttributeInfo const & attribute,
                    Datum const & value ) {
   auto path = place->path / attribute.id.name;
   if( path.size() + 1 > Path::maxComponents ) {
      throw Error( path.text(),
                   "deeper than " + std::to_string( Path::maxComponents ) + " components" );
   }
   if( attribute.id.kind == AttributeKind::child ) {
      auto child = childPlace( place, attribute, {} );
      if( child->entity || !value.isNull() ) {
         checkCanBeMade( *child );
         addEntity( child, value );
      }
   } else if( attribute.id.kind == AttributeKind::children ) {
      for( auto const & [ key, member ] :
           objectAt( path, value, "an object of entities by key" ) ) {
         auto child = childPlace( place, attribute, key );
         checkCanBeMade( *child );
         addEntity( child, member );
      }
   } else if( attribute.id.kind == AttributeKind::keyed ) {
      for( auto const & [ key, member ] : objectAt( path, value, "an object of values by key" ) ) {
         addMember( { path / key, place, &attribute, key, {}, member } );
      }
   } else {
      addWhole( { path, place, &attribute, {}, {}, value } );
   }
}

void
Plan::addWhole( Step step ) {
   auto now = present( *step.place, *step.attribute, {} );
   // What cannot be written (a queue, a reference to another entity) may be part of a tree that
   // was read here: it is right as long as it says what is so.
   if( step.fields.empty() &&
       ( now == step.value || ( now.isNull() && isNothing( step.value ) ) ) ) {
      try {
         step.attribute->check( step.value );
      } catch( Kiv::ParseError const & ) {
         return;
      }
   }
   at( step.path, [ & ] { step.attribute->check( patched( now, step.fields, step.value ) ); } );
   addStep( std::move( step ) );
}

void
Plan::addMember( Step step ) {
   auto now = at( step.path, [ & ] { return present( *step.place, *step.attribute, step.key ); } );
   at( step.path, [ & ] {
      step.attribute->checkMember( *step.key, patched( now, step.fields, step.value ) );
   } );
   addStep( std::move( step ) );
}

void
Plan::addStep( Step step ) {
   checkCanBeNamed( step.path );
   steps_.push_back( std::move( step ) );
}

void
Plan::apply() {
   for( auto const & step : steps_ ) {
      auto & entity = made( *step.place );
      if( !step.attribute ) {
         continue;
      }
      auto value = step.fields.empty() ? step.value
                                       : patched( present( *step.place, *step.attribute, step.key ),
                                                  step.fields, step.value );
      if( step.key ) {
         step.attribute->setMember( entity, *step.key, value );
      } else {
         step.attribute->set( entity, value );
      }
   }
}

} // namespace Tessera
