// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a path leads to. Entities that do not exist are part of the way as long as their class is
// known: a write may make them.

#include "Kiv/Reflect.h"
#include "Tessera/Error.h"
#include "Tessera/Mount.h"

#include <memory>
#include <optional>
#include <vector>

namespace Tessera {

// An entity, or the place of one that is missing.
struct Place {
   Path path;
   Kiv::Ptr< Kiv::Entity > entity;                     // null: it is missing
   Kiv::EntityReflection const * reflection = nullptr; // null: a class without attributes
   std::shared_ptr< Place > parent = nullptr;          // null: this is a mounted entity
   Kiv::AttributeInfo const * attribute = nullptr;     // of the parent, where this one hangs
   Kiv::String key = {};                               // in that attribute
   Mount const * mount = nullptr;                      // of a mounted entity

   // Null when there is none of that name.
   Kiv::AttributeInfo const * find( std::string_view name ) const {
      return reflection ? reflection->attribute( name ) : nullptr;
   }
   std::vector< Kiv::String > attributeNames() const;
   // The keys of an attribute; none while the entity is missing.
   std::vector< Kiv::String > keys( Kiv::AttributeInfo const & of ) const;
};
using PlacePtr = std::shared_ptr< Place >;

struct Target {
   Path path;
   Access access = Access::configuration;
   Mount const * directory = nullptr;              // set: nothing below is
   PlacePtr place = nullptr;                       // the entity
   Kiv::AttributeInfo const * attribute = nullptr; // null: the entity itself
   std::optional< Kiv::String > key = {};          // of a member of the attribute
   std::vector< Kiv::String > fields = {};         // down into its value
};

// Throws Error at the first component that cannot lead anywhere.
Target resolve( Mount const & root, Path const & path );
// Throws Error unless something is at the path, or may be one day, as long as the mounts stay as they
// are: members and children may come that the process has a use for, but no class gets other
// attributes, and no value other fields.
void requirePossible( Mount const & root, Path const & path );

// Throws Error if the entity is missing, or one above it, and the process has no use for such a one.
void requireUse( Place const & place );

// The child entity of `parent` in `attribute` (with `key`, for a collection). Throws Error for a
// malformed key.
PlacePtr childPlace( PlacePtr const & parent, Kiv::AttributeInfo const & attribute,
                     Kiv::String const & key );
// An entity does not exist.
class Missing : public Error {
 public:
   using Error::Error;
};
// Throws Missing unless the entity exists.
void require( Place const & place );
// Throws Kiv's `message` as an Error at `path`. Names of places that stand before it, and that
// are in the path already, are left out.
[[noreturn]] void refuse( Path const & path, std::string_view message );

// Runs `work`; what Kiv refuses becomes an Error at `path`.
template< class Work >
decltype( auto )
at( Path const & path, Work work ) {
   try {
      return work();
   } catch( Kiv::ParseError const & error ) {
      refuse( path, error.what() );
   } catch( Kiv::RangeException const & error ) {
      refuse( path, error.reason() );
   }
}

} // namespace Tessera
