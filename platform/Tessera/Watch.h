// SPDX-License-Identifier: Apache-2.0
#pragma once

// Following everything below a path.

#include "Kiv/Notifiee.h"
#include "Kiv/Reflect.h"
#include "Tessera/Mount.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace Tessera {

// `path` is what changed: an attribute, a member of one, a child entity, a mounted entity. `value`
// is its new value, nothing if it is gone. Below a watched attribute or member, `path` is always
// the watched path, and only changes of that part are told.
using WatchCallback =
      std::function< void( Path const & path, std::optional< Kiv::Datum > const & value ) >;

class EntityWatcher;

class Watch : public std::enable_shared_from_this< Watch > {
 public:
   // `lookUp` answers what is at the watched path now. Nothing is at the path yet, or, as `isValue`
   // says, a value or a part of one: then a change around it need not be a change of it.
   using LookUp = std::function< std::optional< Kiv::Datum >( Path const & ) >;
   Watch( Path prefix, WatchCallback callback, LookUp lookUp, bool isValue );
   ~Watch();

   Path const & prefix() const { return prefix_; }
   bool active() const { return active_; }
   // Follows one more mounted entity, if it has to do with the watched path.
   void attach( Path const & path, Kiv::Entity & entity );
   void detach( Path const & path );
   // Hears nothing more from now on.
   void stop();
   // `path` changed to `value`.
   void report( Path const & path, std::function< std::optional< Kiv::Datum >() > const & value );

 private:
   Path const prefix_;
   WatchCallback const callback_;
   LookUp const lookUp_;
   bool const isValue_;
   bool active_ = true;
   // What is at the watched path, as far as it is known: entities are not copied to find out later
   // whether they changed.
   bool known_;
   std::optional< Kiv::Datum > last_;
   std::vector< std::pair< Path, Kiv::Ptr< EntityWatcher > > > mounts_;
};

// One entity below the watched path, and through its children all below it.
class EntityWatcher : public Kiv::PtrInterface::NotifieeConst {
 public:
   EntityWatcher( Watch & owner, Path path );
   static Kiv::Type const & kivType();
   Kiv::Type const & fwkType() const override { return kivType(); }

   void start( Kiv::Entity & entity );
   void stop();
   void onAttribute( Kiv::AttributeId const & id, void const * key ) override;

 private:
   void follow( Kiv::AttributeInfo const & attribute, Kiv::String const & key, Path const & path );
   std::optional< Kiv::Datum > value( Kiv::AttributeInfo const & attribute, Kiv::String const & key,
                                      Path const & path ) const;
   Kiv::Entity & entity() const { return const_cast< Kiv::Entity & >( *watched() ); }

   Watch & owner_;
   Path const path_;
   std::map< Kiv::String, Kiv::Ptr< EntityWatcher > > children_; // by the text of their path
};

} // namespace Tessera
