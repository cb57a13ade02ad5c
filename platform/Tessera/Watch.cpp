// SPDX-License-Identifier: Apache-2.0
#include "Tessera/Watch.h"

#include "Tessera/Read.h"

#include <algorithm>

namespace Tessera {

Watch::Watch( Path prefix, WatchCallback callback, LookUp lookUp, bool isValue )
      : prefix_( std::move( prefix ) ), callback_( std::move( callback ) ),
        lookUp_( std::move( lookUp ) ), isValue_( isValue ), known_( isValue ) {
   if( known_ ) {
      last_ = lookUp_( prefix_ );
   }
}

Watch::~Watch() { stop(); }

void
Watch::attach( Path const & path, Kiv::Entity & entity ) {
   if( active_ && Path::related( path, prefix_ ) ) {
      auto watcher = Kiv::make< EntityWatcher >( *this, path );
      mounts_.emplace_back( path, watcher );
      watcher->start( entity );
   }
}

void
Watch::detach( Path const & path ) {
   auto found = std::find_if( mounts_.begin(), mounts_.end(),
                              [ & ]( auto const & mount ) { return mount.first == path; } );
   if( found != mounts_.end() ) {
      auto watcher = found->second;
      mounts_.erase( found );
      watcher->stop();
   }
}

void
Watch::stop() {
   active_ = false;
   auto mounts = std::move( mounts_ );
   mounts_.clear();
   for( auto const & [ path, watcher ] : mounts ) {
      watcher->stop();
   }
}

void
Watch::report( Path const & path, std::function< std::optional< Kiv::Datum >() > const & value ) {
   if( !active_ ) {
      return;
   }
   auto self = shared_from_this(); // the callback may end this watch
   if( path.startsWith( prefix_ ) ) {
      known_ = false;
      callback_( path, value() );
      return;
   }
   auto now = lookUp_( prefix_ );
   if( known_ && now == last_ ) {
      return;
   }
   known_ = isValue_ || !now;
   last_ = known_ ? now : std::nullopt;
   callback_( prefix_, now );
}

EntityWatcher::EntityWatcher( Watch & owner, Path path )
      : owner_( owner ), path_( std::move( path ) ) {}

Kiv::Type const &
EntityWatcher::kivType() {
   static constinit Kiv::Type type{ "Tessera::EntityWatcher" };
   return type;
}

void
EntityWatcher::start( Kiv::Entity & entity ) {
   watch( &entity );
   hasNotificationActiveIs( true );
   auto const * reflection = entity.fwkType().reflection();
   if( !reflection || path_.size() + 2 > Path::maxComponents ) {
      return;
   }
   for( auto const * attribute : reflection->attributes() ) {
      auto path = path_ / attribute->id.name;
      if( !attribute->isChild() || !Path::related( path, owner_.prefix() ) ) {
         continue;
      }
      if( !attribute->isKeyed() ) {
         follow( *attribute, {}, path );
      }
      for( auto const & key : attribute->keys( entity ) ) {
         follow( *attribute, key, path / key );
      }
   }
}

void
EntityWatcher::stop() {
   hasNotificationActiveIs( false );
   auto children = std::move( children_ );
   children_.clear();
   for( auto const & [ name, child ] : children ) {
      child->stop();
   }
   watch( nullptr );
}

// Lets go of the child that was there, and watches the one that is.
void
EntityWatcher::follow( Kiv::AttributeInfo const & attribute, Kiv::String const & key,
                       Path const & path ) {
   if( !Path::related( path, owner_.prefix() ) ) {
      return;
   }
   auto name = path.text();
   if( auto found = children_.find( name ); found != children_.end() ) {
      auto gone = found->second;
      children_.erase( found );
      gone->stop();
   }
   if( Kiv::Ptr< Kiv::Entity > child{ attribute.child( entity(), key ) } ) {
      auto watcher = Kiv::make< EntityWatcher >( owner_, path );
      children_[ name ] = watcher;
      watcher->start( *child );
   }
}

std::optional< Kiv::Datum >
EntityWatcher::value( Kiv::AttributeInfo const & attribute, Kiv::String const & key,
                      Path const & path ) const {
   if( attribute.isChild() ) {
      Kiv::Ptr< Kiv::Entity > child( attribute.child( entity(), key ) );
      return child ? std::optional( readEntity( *child, path ) ) : std::nullopt;
   }
   return attribute.isKeyed() ? attribute.member( entity(), key )
                              : std::optional( attribute.get( entity() ) );
}

void
EntityWatcher::onAttribute( Kiv::AttributeId const & id, void const * key ) {
   auto const * reflection = live() ? watched()->fwkType().reflection() : nullptr;
   auto const * attribute = reflection ? reflection->attribute( id ) : nullptr;
   if( !attribute || path_.size() + 2 > Path::maxComponents ) {
      return;
   }
   auto path = path_ / id.name;
   Kiv::String keyText;
   if( attribute->isKeyed() ) {
      keyText = attribute->keyText( key );
      path = path / keyText;
   }
   if( !Path::related( path, owner_.prefix() ) ) {
      return;
   }
   // The callback may end the watch, and with it this object's hold on the entity.
   Kiv::Ptr< EntityWatcher > self( this );
   Kiv::Ptr< Kiv::Entity > held( &entity() );
   Kiv::guarded( "Tessera::Watch", path.text(), [ & ] {
      if( attribute->isChild() ) {
         follow( *attribute, keyText, path );
      }
      owner_.report( path, [ & ] { return value( *attribute, keyText, path ); } );
   } );
}

} // namespace Tessera
