// SPDX-License-Identifier: Apache-2.0
#include "types/RemoteMac.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Hoba::SwTunnelGroupIdMap );
KIV_DEFINE( Hoba::ObjTupleToHwId );
KIV_DEFINE( Hoba::NextHopIdRefcountTable );
KIV_DEFINE( Hoba::VlanRefcountTable );
KIV_DEFINE( Hoba::RemoteMacFlushRequestTable );
KIV_DEFINE( HobaTypes::RemoteMacTable );
KIV_DEFINE( HobaTypes::RemoteHostStatusTable );
KIV_DEFINE( HobaTypes::RouterMacTable );
KIV_DEFINE( HobaTypes::TunnelInfoDir );
KIV_DEFINE( HobaTypes::RemoteMacInfoDir );

namespace Hoba::VXLAN {

void
FlushReqKey::print( std::string & out ) const {
   Kiv::print( out, vlanId );
   out += ':';
   Kiv::print( out, swTunnelGroupId );
}

FlushReqKey
FlushReqKey::parse( std::string_view text ) {
   auto const colon = text.find( ':' );
   if( colon == text.npos ) {
      Kiv::parseFailed( text,
                        "a VLAN, or 0, and a group of tunnel end points, or 0, such as 10:17" );
   }
   return { Kiv::fromText< Bridging::VlanIdOrNone >( text.substr( 0, colon ) ),
            SwTunnelGroupId::parse( text.substr( colon + 1 ) ) };
}

} // namespace Hoba::VXLAN

namespace HobaTypes {

RemoteMacInfoDir::RemoteMacInfoDir( Kiv::String const & dirName ) : Entity( dirName ) {
   receivedRemoteHostIs( "receivedRemoteHost" );
   tunnelLearnEventIs( "tunnelLearnEvent" );
   bootStatusIs( "bootStatus" );
   flushRequestIs( "flushRequest" );
   tunnelInfoDirIs( "tunnelInfoDir" );
   remoteHostIs( "remoteHost" );
   remoteHostStatusIs( "remoteHostStatus" );
   nextHopIdRefcountTableIs( "nextHopIdRefcount" );
   vlanRefcountTableIs( "vlanRefcount" );
}

} // namespace HobaTypes
