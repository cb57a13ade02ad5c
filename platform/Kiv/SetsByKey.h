// SPDX-License-Identifier: Apache-2.0
#pragma once

// A map of sets without empty ones: a set comes with its first member and goes with its last. `sets` is a
// Kiv::HashMap whose values are sets of any kind.

namespace Kiv {

template< class Sets, class Key, class Member >
void
addToSet( Sets & sets, Key const & key, Member const & member ) {
   sets.tryEmplace( key ).value->insert( member );
}

// Nothing if it is not there.
template< class Sets, class Key, class Member >
void
removeFromSet( Sets & sets, Key const & key, Member const & member ) {
   if( auto * set = sets.find( key ); set && set->erase( member ) && set->empty() ) {
      sets.erase( key );
   }
}

} // namespace Kiv
