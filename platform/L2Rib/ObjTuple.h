// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a station behind the overlay resolves through: an object of the layer-2 routing table.

#include "Kiv/Value.h"

namespace L2Rib {

KIV_ENUM( ObjKind, std::uint32_t, objNone = 0,
          objDest KIV_SHOWN( "dest" ),        // one destination
          objLoadBalance KIV_SHOWN( "lb" ) ); // several, among which the load is shared

// One word, no unused bytes: a key of tables that processes share. Sorts by kind, then by id. Prints as
// "dest:17", and is read from that wherever it stands.
struct ObjTuple {
   static constexpr std::string_view kivName = "L2Rib::ObjTuple";

   ObjKind kind = objNone;
   std::uint32_t id = 0;

   explicit operator bool() const { return kind != objNone; }
   bool operator==( ObjTuple const & ) const = default;
   auto operator<=>( ObjTuple const & ) const = default;
   std::size_t hash() const {
      return Kiv::hashOf( static_cast< std::uint64_t >( kind ) << 32 | id );
   }
   void print( std::string & out ) const;
   // Reads that, and "" for none. Throws Kiv::ParseError.
   static ObjTuple parse( std::string_view text );
};

} // namespace L2Rib
