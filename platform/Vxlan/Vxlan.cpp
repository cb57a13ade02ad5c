// SPDX-License-Identifier: Apache-2.0
#include "Vxlan/Vxlan.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Vxlan::VxlanConfig );
KIV_DEFINE( Vxlan::VxlanConfigDir );
KIV_DEFINE( Vxlan::VlanVniMap );
KIV_DEFINE( Vxlan::ReceivedRemoteHostTable );
KIV_DEFINE( Vxlan::TunnelLearnEventTable );
KIV_DEFINE( Vxlan::BootStatus );

namespace Vxlan {

void
VniMac::print( std::string & out ) const {
   Kiv::print( out, addr );
   out += '@';
   Kiv::print( out, vni );
}

VniMac
VniMac::parse( std::string_view text ) {
   auto const at = text.find( '@' );
   if( at == text.npos ) {
      Kiv::parseFailed( text, "a MAC address and a VNI such as 00:00:5e:00:53:af@10010" );
   }
   return { Pelt::EthAddr::parse( text.substr( 0, at ) ),
            Kiv::fromText< Vni >( text.substr( at + 1 ) ) };
}

} // namespace Vxlan
