// SPDX-License-Identifier: Apache-2.0
#include "types/ParityEvent.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Hoba::ParityEventStatus );

namespace Hoba {

void
ParityEvent::Key::print( std::string & out ) const {
   out += slice + ':' + memory + ':';
   Kiv::print( out, index );
}

// The index is the last part and the slice the first: a memory's name may have colons in it.
ParityEvent::Key
ParityEvent::Key::parse( std::string_view text ) {
   auto first = text.find( ':' );
   auto last = text.rfind( ':' );
   if( first == last ) {
      Kiv::parseFailed( text, "slice:memory:index" );
   }
   return { Kiv::String( text.substr( 0, first ) ),
            Kiv::String( text.substr( first + 1, last - first - 1 ) ),
            Kiv::fromText< std::uint32_t >( text.substr( last + 1 ) ) };
}

} // namespace Hoba
