// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaCliCallback.h"

#include <algorithm>

namespace Hoba {

namespace {

std::vector< CliCallback * > &
callbacks() {
   static std::vector< CliCallback * > instance;
   return instance;
}

} // namespace

CliCallback::CliCallback( Kiv::String callbackName, Kiv::String command )
      : name_( std::move( callbackName ) ), command_( std::move( command ) ) {
   callbacks().push_back( this );
}

CliCallback::~CliCallback() {
   std::erase( callbacks(), this );
}

CliCallback *
CliCallback::find( std::string_view callbackName ) {
   auto const & all = callbacks();
   auto found = std::find_if( all.rbegin(), all.rend(), [ & ]( auto const * callback ) {
      return callback->name() == callbackName;
   } );
   return found == all.rend() ? nullptr : *found;
}

std::vector< CliCallback * > const &
CliCallback::all() {
   return callbacks();
}

} // namespace Hoba
