// SPDX-License-Identifier: Apache-2.0
#pragma once

// How tables of stations are shown.

#include "agent/features/Words.h"
#include "types/HobaTypes.h"

namespace HobaAgent {

// The entries of a collection by host, in the order of addresses and VLANs, in which people search.
template< class Entries >
std::vector< HobaTypes::MacAddressTableEntry const * >
sortedStations( Entries const & entries ) {
   std::vector< HobaTypes::MacAddressTableEntry const * > all;
   for( auto const & [ host, entry ] : entries ) {
      all.push_back( &entry );
   }
   std::sort( all.begin(), all.end(),
              []( auto const * a, auto const * b ) { return a->macEntry < b->macEntry; } );
   return all;
}

// The cell of the column "Type": people read "learned dynamic" where programs read
// learnedDynamicMac.
inline Kiv::Datum
typeCell( TableAnswer & table, Bridging::EntryType type ) {
   auto const name = Kiv::toText( type );
   auto words = spelled( name, "entryType" );
   if( words.ends_with( " mac" ) ) {
      words.erase( words.size() - 4 );
   }
   table.words( "Type", name, words );
   return name;
}

} // namespace HobaAgent
