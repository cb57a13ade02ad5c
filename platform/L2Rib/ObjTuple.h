// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a station behind the overlay resolves through: an object of the layer-2 routing table.

#include "Kiv/Value.h"

namespace L2Rib {

KIV_ENUM( ObjKind, std::uint32_t, objNone = 0,
          objDest KIV_SHOWN( "dest" ),        // one destination
          objLoadBalance KIV_SHOWN( "lb" ) ); // several, among which the load is shared

// One word, no unused bytes: a key of tables that processes share. Sorts by kind, then by id. Prints as
// "dest:17".
struct ObjTuple {
   KIV_PLAIN_VALUE( L2Rib::ObjTuple );
   KIV_FIELD( ObjKind, kind, objNone );
   KIV_FIELD( std::uint32_t, id, 0 );

   explicit operator bool() const { return kind != objNone; }
   void print( std::string & out ) const;
   // Reads that, and "" for none. Throws Kiv::ParseError.
   static ObjTuple parse( std::string_view text );
};

} // namespace L2Rib
