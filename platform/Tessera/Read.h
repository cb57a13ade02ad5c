// SPDX-License-Identifier: Apache-2.0
#pragma once

// Reading what a path leads to.

#include "Kiv/Datum.h"
#include "Tessera/Target.h"

namespace Tessera {

// Entities nest no deeper than this: whatever hangs below belongs to a ring of entities.
inline constexpr std::size_t maxNesting = 32;

enum class Scope : std::uint8_t {
   everything,
   configuration // only what is mounted as configuration
};

// The datum form of all below; throws Error when it is not there, or not in the scope. Directories and entities are
// objects of what they hold, collections of entities are objects by key, a missing single child is
// null, and the rest is as Kiv::AttributeInfo::get() answers.
Kiv::Datum read( Target const & target, Scope scope = Scope::everything );
Kiv::Datum readEntity( Kiv::Entity & entity, Path const & path, std::size_t nesting = 0 );
// Null when there is no such field.
Kiv::Datum const * findField( Kiv::Datum const & value, std::string_view field );
std::vector< Kiv::String > fieldNames( Kiv::Datum const & value );

struct Entry {
   Kiv::String name;
   bool more; // there may be something below it
};
// What may come next in a path that leads to `target`.
std::vector< Entry > entries( Target const & target );

} // namespace Tessera
