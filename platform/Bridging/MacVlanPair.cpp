// SPDX-License-Identifier: Apache-2.0
#include "Bridging/MacVlanPair.h"

namespace Bridging {

void
MacVlanPair::print( std::string & out ) const {
   addr().print( out );
   out += '@';
   vlanId().print( out );
}

MacVlanPair
MacVlanPair::parse( std::string_view text ) {
   auto const at = text.find( '@' );
   if( at == text.npos ) {
      Kiv::parseFailed( text, "a MAC address and a VLAN, such as 00:00:5e:00:53:af@10" );
   }
   return { Pelt::EthAddr::parse( text.substr( 0, at ) ),
            VlanIdOrNone::parse( text.substr( at + 1 ) ) };
}

} // namespace Bridging
