// SPDX-License-Identifier: Apache-2.0
#include "Tessera/Database.h"

#include "Tessera/Plan.h"
#include "Tessera/Suggest.h"

#include <algorithm>

namespace Tessera {

namespace {

void
collectMounts( Mount const & directory, std::function< void( Mount & ) > const & visit ) {
   for( auto const & entry : directory.entries ) {
      if( entry->entity ) {
         visit( *entry );
      } else {
         collectMounts( *entry, visit );
      }
   }
}

// What a text may mean, most particular first. At most one of them fits any one type.
std::vector< Kiv::Datum >
readings( std::string_view text ) {
   std::vector< Kiv::Datum > all;
   auto tryAs = [ & ]< class T >( T ) {
      try {
         all.emplace_back( Kiv::fromText< T >( text ) );
      } catch( Kiv::ParseError const & ) {
      }
   };
   tryAs( bool() );
   tryAs( std::int64_t() );
   tryAs( std::uint64_t() );
   tryAs( double() );
   all.emplace_back( text );
   return all;
}

} // namespace

Database::Database() = default;

Database::~Database() {
   for( auto const & [ id, watch ] : watches_ ) {
      watch->stop();
   }
}

void
Database::mount( std::string_view text, Kiv::Ptr< Kiv::Entity > const & entity, Access access,
                 MayBeMade mayBeMade ) {
   auto path = Path::parse( text );
   if( path.isRoot() || !entity ) {
      throw Error( path.text(),
                   entity ? "the root cannot be an entity" : "there is no entity to mount" );
   }
   Mount * directory = &root_;
   std::size_t i = 0;
   for( ; i != path.size(); ++i ) {
      auto * next = directory->find( path[ i ] );
      if( !next ) {
         break;
      }
      directory = next;
      if( directory->entity ) {
         throw Error( path.text(), "an entity is mounted at " + directory->path.text() );
      }
   }
   if( i == path.size() ) {
      throw Error( path.text(), "is a directory" );
   }
   for( ; i != path.size(); ++i ) {
      directory->entries.push_back( std::make_unique< Mount >() );
      directory = directory->entries.back().get();
      directory->path = path.first( i + 1 );
   }
   directory->entity = entity;
   directory->access = access;
   directory->mayBeMade = std::move( mayBeMade );
   tell(
         path, [ & ]( Watch & watch ) { watch.attach( path, *entity ); },
         [ & ] { return readEntity( *entity, path ); } );
}

void
Database::unmount( std::string_view text ) {
   auto path = Path::parse( text );
   std::vector< Mount * > way{ &root_ };
   for( std::size_t i = 0; i != path.size() && way.back(); ++i ) {
      way.push_back( way.back()->find( path[ i ] ) );
   }
   if( !way.back() || !way.back()->entity ) {
      throw Error( path.text(), "no entity is mounted here" );
   }
   auto entity = way.back()->entity; // goes last, when nobody finds it here any more
   way.back()->entity = nullptr;
   while( way.size() > 1 && way.back()->entries.empty() ) {
      auto * gone = way.back();
      way.pop_back();
      std::erase_if( way.back()->entries,
                     [ & ]( auto const & entry ) { return entry.get() == gone; } );
   }
   tell(
         path, [ & ]( Watch & watch ) { watch.detach( path ); }, [] { return std::nullopt; } );
}

// Has every watch take notice of a change of the mounts, then tells those whom it concerns.
void
Database::tell( Path const & path, std::function< void( Watch & ) > const & before,
                std::function< std::optional< Kiv::Datum >() > const & value ) {
   auto watches = watches_;
   for( auto const & [ id, watch ] : watches ) {
      before( *watch );
   }
   for( auto const & [ id, watch ] : watches ) {
      if( Path::related( path, watch->prefix() ) ) {
         watch->report( path, value );
      }
   }
}

Kiv::Ptr< Kiv::Entity >
Database::entity( std::string_view text ) const {
   auto path = Path::parse( text );
   try {
      auto target = resolve( root_, path );
      return target.place && !target.attribute ? target.place->entity : nullptr;
   } catch( Error const & ) {
      return nullptr;
   }
}

std::vector< Kiv::String >
Database::mounts() const {
   std::vector< Kiv::String > paths;
   collectMounts( root_, [ & ]( Mount & mount ) { paths.push_back( mount.path.text() ); } );
   return paths;
}

Kiv::Datum
Database::get( std::string_view path, Scope scope ) const {
   return read( resolve( root_, Path::parse( path ) ), scope );
}

std::vector< Entry >
Database::entries( std::string_view path ) const {
   return Tessera::entries( resolve( root_, Path::parse( path ) ) );
}

void
Database::write( Target const & target, Kiv::Datum const & value ) {
   Plan plan;
   plan.add( root_, target, value );
   plan.apply();
}

void
Database::set( std::string_view path, Kiv::Datum const & value ) {
   write( resolve( root_, Path::parse( path ) ), value );
}

void
Database::setText( std::string_view path, std::string_view text ) {
   auto target = resolve( root_, Path::parse( path ) );
   std::optional< Plan > fitting;
   std::optional< Error > failure;
   bool aboutValue = false;
   for( auto const & candidate : readings( text ) ) {
      try {
         Plan plan;
         plan.add( root_, target, candidate );
         fitting = std::move( plan );
         break;
      } catch( Error const & error ) {
         // The best message is of the first reading that got as far as the value itself, in its own
         // printed form, and else of the last one, the text as it stands.
         if( !aboutValue ) {
            failure = error;
            aboutValue = error.reason().find( Kiv::datumText( candidate ) ) != Kiv::String::npos;
         }
      }
   }
   if( !fitting ) {
      throw *failure;
   }
   fitting->apply();
}

void
Database::del( std::string_view text ) {
   auto path = Path::parse( text );
   auto target = resolve( root_, path );
   auto place = target.place;
   auto const * attribute = target.attribute;
   auto key = target.key;
   if( place && !attribute && place->parent && place->attribute->isKeyed() ) {
      attribute = place->attribute;
      key = place->key;
      place = place->parent;
   }
   if( !attribute || !key || !target.fields.empty() ) {
      throw Error( path.text(), "cannot be deleted: only members of collections can" );
   }
   if( target.access == Access::status ) {
      throw Error( path.text(), "is status: it cannot be deleted from outside" );
   }
   require( *place );
   if( !at( path, [ & ] { return attribute->delMember( *place->entity, *key ); } ) ) {
      throw Error( path.text(), "is not there; " + suggestion( *key, place->keys( *attribute ) ) );
   }
}

void
Database::apply( Kiv::Datum const & tree ) {
   auto const * object = tree.as< Kiv::Datum::Object >();
   if( !object ) {
      throw Error( "/", Kiv::String( tree.shape() ) + " is not an object of paths or directories" );
   }
   Plan plan;
   for( auto const & [ name, value ] : *object ) {
      auto path = name.starts_with( '/' ) ? Path::parse( name ) : Path() / name;
      plan.add( root_, resolve( root_, path ), value );
   }
   plan.apply();
}

void
Database::requirePossible( std::string_view path ) const {
   Tessera::requirePossible( root_, Path::parse( path ) );
}

std::uint64_t
Database::watch( std::string_view path, WatchCallback callback ) {
   auto prefix = Path::parse( path );
   bool isEntity = false;
   try {
      auto target = resolve( root_, prefix );
      isEntity = target.directory || ( !target.attribute && target.place->entity );
   } catch( Error const & ) {
   }
   auto lookUp = [ this ]( Path const & at ) {
      try {
         return std::optional( read( resolve( root_, at ) ) );
      } catch( Error const & ) {
         return std::optional< Kiv::Datum >();
      }
   };
   auto watch = std::make_shared< Watch >( prefix, std::move( callback ), lookUp, !isEntity );
   collectMounts( root_, [ & ]( Mount & mount ) { watch->attach( mount.path, *mount.entity ); } );
   watches_.emplace_back( ++lastWatch_, watch );
   return lastWatch_;
}

void
Database::unwatch( std::uint64_t id ) {
   auto found = std::find_if( watches_.begin(), watches_.end(),
                              [ & ]( auto const & entry ) { return entry.first == id; } );
   if( found != watches_.end() ) {
      auto watch = found->second;
      watches_.erase( found );
      watch->stop();
   }
}

} // namespace Tessera
