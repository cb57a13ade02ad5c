// SPDX-License-Identifier: Apache-2.0
#pragma once

// The upper part of the database: directories, and the entities mounted in them.

#include "Kiv/Entity.h"
#include "Tessera/Path.h"

#include <functional>
#include <memory>
#include <vector>

namespace Tessera {

// Who writes a mounted entity and all below it.
enum class Access : std::uint8_t {
   configuration, // the outside: the operator, other agents
   writable,      // the outside, too, but nobody keeps it: requests, a device to experiment with
   status         // the process itself; from outside it is read-only
};

// Asked before an entity is made from outside, with the path that it will have. Throws
// Kiv::ParseError when the process has no use for such a one; nothing is written then.
using MayBeMade = std::function< void( Path const & path ) >;

struct Mount {
   Path path;
   Kiv::Ptr< Kiv::Entity > entity; // null: this is a directory
   Access access = Access::configuration;
   MayBeMade mayBeMade = {};                        // null: what the classes allow
   std::vector< std::unique_ptr< Mount > > entries; // in the order in which they came

   Mount * find( std::string_view name ) const {
      for( auto const & entry : entries ) {
         if( entry->path.back() == name ) {
            return entry.get();
         }
      }
      return nullptr;
   }
   std::vector< Kiv::String > names() const {
      std::vector< Kiv::String > all;
      for( auto const & entry : entries ) {
         all.push_back( entry->path.back() );
      }
      return all;
   }
};

} // namespace Tessera
