// SPDX-License-Identifier: Apache-2.0
#pragma once

// The upper part of the database: directories, and the entities mounted in them.

#include "Kiv/Entity.h"
#include "Tessera/Path.h"

#include <memory>
#include <vector>

namespace Tessera {

// Who writes a mounted entity and all below it.
enum class Access : std::uint8_t {
   configuration, // the outside: the operator, other agents
   status         // the process itself; from outside it is read-only
};

struct Mount {
   Path path;
   Kiv::Ptr< Kiv::Entity > entity; // null: this is a directory
   Access access = Access::configuration;
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
