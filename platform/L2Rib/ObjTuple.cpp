// SPDX-License-Identifier: Apache-2.0
#include "L2Rib/ObjTuple.h"

namespace L2Rib {

void
ObjTuple::print( std::string & out ) const {
   if( *this ) {
      Kiv::print( out, kind );
      out += ':';
      Kiv::print( out, id );
   }
}

ObjTuple
ObjTuple::parse( std::string_view text ) {
   if( text.empty() ) {
      return {};
   }
   auto const colon = text.find( ':' );
   ObjTuple tuple;
   if( colon != text.npos ) {
      tuple.kind = Kiv::fromText< ObjKind >( text.substr( 0, colon ) );
      tuple.id = Kiv::fromText< std::uint32_t >( text.substr( colon + 1 ) );
   }
   if( !tuple ) {
      Kiv::parseFailed( text, "an object of the RIB such as dest:17 or lb:3" );
   }
   return tuple;
}

} // namespace L2Rib
