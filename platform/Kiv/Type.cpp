// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Type.h"

#include <algorithm>
#include <mutex>

namespace Kiv {

namespace {

struct Registry {
   std::mutex mutex;
   std::vector< Type const * > types;
};

Registry &
registry() {
   // Never destroyed: objects with static lifetime may still be released after it would be.
   static Registry & instance = *new Registry;
   return instance;
}

} // namespace

void
Type::enrol() const {
   if( enrolled_.exchange( true ) ) {
      return;
   }
   std::lock_guard lock( registry().mutex );
   registry().types.push_back( this );
}

std::vector< Type const * >
Type::all() {
   std::lock_guard lock( registry().mutex );
   auto types = registry().types;
   std::sort( types.begin(), types.end(),
              []( Type const * a, Type const * b ) { return a->name() < b->name(); } );
   return types;
}

} // namespace Kiv
