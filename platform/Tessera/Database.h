// SPDX-License-Identifier: Apache-2.0
#pragma once

// The state database: entities mounted at absolute paths, read, written and watched from outside by
// path and without their types. Tessera/Path.h says how paths are written.
//
//    Tessera::Database database;
//    database.mount( "/bridging/stormControl/config", config, Tessera::Access::configuration );
//    database.set( "/bridging/stormControl/config/intfConfig/Ethernet1/broadcast/level", 500 );
//    database.get( "/bridging" );
//
// Paths lead through directories to a mounted entity, and on through its attributes: to a child
// entity, to a member of a collection by its key, into the fields of a value (elements of lists
// count from 0). Data has the shape of JSON; Kiv/Datum.h says what a value looks like.
//
// Every operation that fails throws Tessera::Error and changes nothing. One thread only, that of
// the event loop. Operations may be called inside callbacks and handlers.

#include "Tessera/Error.h"
#include "Tessera/Read.h"
#include "Tessera/Watch.h"

#include <cstdint>
#include <string_view>

namespace Tessera {

class Plan;

class Database {
 public:
   Database();
   ~Database();
   Database( Database const & ) = delete;
   Database & operator=( Database const & ) = delete;

   // Makes `entity` part of the database; directories on the way are made. Throws Error if something
   // is at that path, or an entity on the way to it.
   void mount( std::string_view path, Kiv::Ptr< Kiv::Entity > const & entity, Access access,
               MayBeMade mayBeMade = {} );
   // Takes it out again; directories that are empty then go too. Throws Error unless an entity is
   // mounted at exactly that path.
   void unmount( std::string_view path );
   // The entity at a path, mounted or below; null if there is none. Throws Error for a malformed path.
   Kiv::Ptr< Kiv::Entity > entity( std::string_view path ) const;
   // The text of the paths at which entities are mounted, in the order of the directories.
   std::vector< Kiv::String > mounts() const;

   // Everything at and below the path: objects for directories, entities and collections of entities.
   // Throws Error if the path leads nowhere, or to what is not in the scope.
   Kiv::Datum get( std::string_view path, Scope scope = Scope::everything ) const;
   // What may follow in the path: names of directories, attributes and fields, keys.
   std::vector< Entry > entries( std::string_view path ) const;

   // Writes the value at the path.
   //    attribute, member     replaced as a whole; members that a map's new value lacks go
   //    field of a value      the other fields stay as they are
   //    entity, directory,    the object's names are written, each by these rules; what it does not
   //    children              name stays
   // Entities on the way that are missing are made if their class is made from its key; who watches
   // sees them first as they are made, then what is written into them. All is checked before anything
   // is written. Throws Error for unknown paths and attributes, values that
   // do not fit, and everything that is mounted as status.
   void set( std::string_view path, Kiv::Datum const & value );
   // The same for what has a printed form: numbers, booleans, strings, addresses, enumerations.
   void setText( std::string_view path, std::string_view text );
   // Deletes a member of a collection or a child entity of one. Throws Error if it is not there,
   // or is something else.
   void del( std::string_view path );

   // Writes a whole configuration: set( "/", tree ), where the names in `tree` may also be paths
   // ("/bridging/stormControl/config"). What get( "/", Scope::configuration ) answers can be applied.
   // Throws the Error of the first value that cannot be written; nothing is written then.
   void apply( Kiv::Datum const & tree );

   // Throws Error for a path at which nothing is and, with the mounts as they are, nothing can come:
   // a name that no directory, class or value has, or a malformed key.
   void requirePossible( std::string_view path ) const;
   // From now on `callback` hears of every change at and below the path, including those of entities
   // that come later. The path need not exist, but must be well formed. The callback may do
   // anything, ending the watch included, but must not throw. Answers the id of the watch.
   std::uint64_t watch( std::string_view path, WatchCallback callback );
   // Afterwards its callback is not called any more. Does nothing if there is no such watch.
   void unwatch( std::uint64_t id );
   std::size_t watches() const { return watches_.size(); }

 private:
   void write( Target const & target, Kiv::Datum const & value );
   void tell( Path const & path, std::function< void( Watch & ) > const & before,
              std::function< std::optional< Kiv::Datum >() > const & value );

   Mount root_;
   std::vector< std::pair< std::uint64_t, std::shared_ptr< Watch > > > watches_;
   std::uint64_t lastWatch_ = 0;
};

} // namespace Tessera
