// SPDX-License-Identifier: Apache-2.0
#include "simulation/observers/MacGenerator.h"

namespace Simulation {

using Kiv::String;
using Kiv::toText;

namespace {

// Several draw the same moves: near each other, at the wrap, and half of all numbers apart.
String
moves( Draw & draw ) {
   return draw.oneOf( { "0", "1", "2", "3", "4294967295", "2147483648", "2147483649" } );
}

String
seconds( Draw & draw ) {
   return draw.oneOf( { "0", "50", "101", "110", "500" } );
}

String
vlan( Draw & draw ) {
   return draw.chance( 70 ) ? "1" : draw.vlan();
}

// Few, so that many claim one.
String
mac( Draw & draw ) {
   return draw.chance( 60 ) ? "00:00:5e:00:53:0" + toText( 1 + draw.below( 3 ) ) : draw.station();
}

String
host( Draw & draw ) {
   auto const addr = mac( draw );
   return addr + '@' + vlan( draw );
}

String
trueOrFalse( Draw & draw, unsigned percent ) {
   return draw.chance( percent ) ? "true" : "false";
}

String
tuple( Draw & draw ) {
   auto const id = draw.below( 3 );
   return draw.chance( 70 ) ? "dest:" + toText( id ) : "lb:" + toText( id );
}

String
group( Draw & draw ) {
   return draw.oneOf( { "0", "1", "2", "2147483649", "2147483650" } );
}

String
vxlan( Draw & draw ) {
   return draw.oneOf( { "Vxlan1", "Vxlan1", "Vxlan2" } );
}

// The same as a value.
String
tupleValue( Draw & draw ) {
   auto const id = toText( draw.below( 3 ) );
   return String( draw.chance( 70 ) ? "dest:" : "lb:" ) + id;
}

void
set( Steps & steps, String const & path, String const & text ) {
   steps.push_back( "set " + path + ( text.empty() ? "" : ' ' + text ) );
}

void
proposeConfigured( Draw & draw, Steps & steps ) {
   auto const addr = draw.chance( 94 ) ? mac( draw ) : "01:00:5e:00:00:01";
   auto const path = "/bridging/config/fdbConfig/" + vlan( draw ) + "/configuredHost/" + addr;
   auto const intf = draw.chance( 92 ) ? draw.intf() : draw.oneOf( { "Cpu", "Ethernet77", "" } );
   auto const type = draw.oneOf( { "configuredStaticMac", "configuredDynamicMac" } );
   auto const drop = draw.oneOf( { "dropModeNone", "dropModeSrc", "dropModeDst", "dropModeBoth" } );
   auto const since = seconds( draw );
   switch( draw.below( 8 ) ) {
   case 0:
   case 1:
      return steps.push_back( "del " + path );
   case 2:
      return set( steps, path + "/dropMode", drop );
   case 3:
      return set( steps, path + "/entryType", type );
   case 4:
      return set( steps, path + "/since", since );
   case 5:
      set( steps, path + "/intf", intf );
      return set( steps, path + "/entryType", "configuredDynamicMac" );
   default:
      return set( steps, path + "/intf", intf );
   }
}

void
proposeSettings( Draw & draw, Steps & steps ) {
   auto const intf = draw.intf();
   auto const vlanId = draw.vlan();
   auto const other = draw.oneOf( { "0", "1", "2", "3" } );
   auto const age = draw.oneOf( { "300", "0", "3", "10" } );
   auto const isSo = trueOrFalse( draw, 60 );
   switch( draw.below( 6 ) ) {
   case 0:
      return set( steps, "/bridging/config/hostAgingTime", age );
   case 1:
      return set( steps, "/bridging/config/sourceMacInvalid", isSo );
   case 2:
      return set( steps, "/bridging/config/sourceCheckCpuMac", isSo );
   case 3:
      return set( steps, "/feeders/config/switchIntf/" + intf + "/enableLearning", isSo );
   case 4:
      return set( steps, "/feeders/config/vlan/" + vlanId + "/macLearning", isSo );
   default:
      return set( steps, "/feeders/config/vlan/" + vlanId + "/primaryVlan", other );
   }
}

void
proposeMlag( Draw & draw, Steps & steps ) {
   auto const intf = draw.lag();
   auto const state = draw.oneOf( { "mlagDisabled", "mlagInactive", "mlagActive", "mlagActive" } );
   auto const shared = draw.oneOf( { "mlagIntfDisabled", "mlagIntfInactive",
                                     "mlagIntfActivePartial", "mlagIntfActiveFull" } );
   auto const isSo = trueOrFalse( draw, 50 );
   auto const peerLink = draw.oneOf( { "Ethernet6", "Port-Channel2", "" } );
   switch( draw.below( 6 ) ) {
   case 0:
   case 1:
      return set( steps, "/mlag/status/state", state );
   case 2:
      return set( steps, "/mlag/status/peerLinkIntf", peerLink );
   case 3:
      return set( steps, "/mlag/status/fastMacRedirectionEnabled", isSo );
   case 4:
      return set( steps, "/mlag/status/mlagIntf/" + intf, shared );
   default:
      return steps.push_back( "del /mlag/status/mlagIntf/" + intf );
   }
}

void
proposePeerHost( Draw & draw, Steps & steps ) {
   auto const path = "/mlag/hostTable/hostEntry/" + host( draw );
   auto const intf = draw.oneOf( { "Port-Channel1", "Port-Channel2", "Ethernet6", "Vxlan1" } );
   auto const type =
         draw.oneOf( { "peerDynamicMac", "peerDynamicMac", "peerStaticMac", "peerAuthenticatedMac",
                       "peerLearnedRemoteMac", "peerStaticRemoteMac", "peerReceivedRemoteMac",
                       "peerEvpnRemoteMac" } );
   auto const count = moves( draw );
   auto const time = seconds( draw );
   auto const isSo = trueOrFalse( draw, 60 );
   auto const tunnels = group( draw );
   switch( draw.below( 10 ) ) {
   case 0:
   case 1:
      return steps.push_back( "del " + path );
   case 2:
      return set( steps, path + "/entryType", type );
   case 3:
   case 4:
      return set( steps, path + "/moves", count );
   case 5:
      return set( steps, path + "/lastMoveTime", time );
   case 6:
      return set( steps, path + "/promote", isSo );
   case 7:
      return set( steps, path + "/tunnelGroup", tunnels );
   default:
      return set( steps, path + "/intf", intf );
   }
}

void
proposeRibHost( Draw & draw, Steps & steps ) {
   auto const path = "/l2rib/hostOutput/host/" + host( draw );
   auto const source = draw.oneOf(
         { "sourceBgp", "sourceBgpEvpnMpls", "sourceTest", "sourceLocal", "sourceController" } );
   auto const type = draw.oneOf( { "evpnDynamicRemoteMac", "evpnStaticRemoteMac" } );
   auto const object = tupleValue( draw );
   auto const count = moves( draw );
   auto const time = seconds( draw );
   auto const preference = draw.oneOf( { "16", "16", "15", "17" } );
   switch( draw.below( 12 ) ) {
   case 0:
   case 1:
      return steps.push_back( "del " + path );
   case 2:
      return set( steps, path + "/source", source );
   case 3:
      return set( steps, path + "/entryType", type );
   case 4:
   case 5:
      return set( steps, path + "/moves", count );
   case 6:
      return set( steps, path + "/lastMoveTime", time );
   case 7:
      return set( steps, path + "/preference", preference );
   default:
      return set( steps, path + "/objTuple", object );
   }
}

void
proposeRibObject( Draw & draw, Steps & steps ) {
   auto const dest = "/l2rib/destOutput/dest/dest:" + toText( draw.below( 3 ) );
   auto const balance = "/l2rib/loadBalanceOutput/loadBalance/lb:" + toText( draw.below( 3 ) );
   auto const kind = draw.oneOf( { "destTunnel", "destTunnel", "destMpls", "destDrop" } );
   auto const intf = vxlan( draw );
   auto const tunnels = group( draw );
   auto const next = draw.oneOf( { "0", "1", "2", "3", "4294967295" } );
   auto const dests = draw.oneOf(
         { "[\"dest:0\"]", "[]", "[\"dest:1\",\"dest:0\"]", "[\"dest:2\",\"dest:1\"]" } );
   auto const hwId = draw.oneOf( { "0", "7", "8" } );
   auto const delay = draw.oneOf( { "0", "0", "0.5", "3" } );
   auto const object = tuple( draw );
   switch( draw.below( 14 ) ) {
   case 0:
      return steps.push_back( "del " + dest );
   case 1:
      return steps.push_back( "del " + balance );
   case 2:
      return set( steps, dest + "/kind", kind );
   case 3:
   case 4:
      return set( steps, dest + "/intf", intf );
   case 5:
      return set( steps, dest + "/tunnelGroup", tunnels );
   case 6:
   case 7:
   case 8:
      set( steps, dest + "/intf", intf );
      return set( steps, dest + "/nextHopId", next );
   case 9:
      return set( steps, balance + "/dest", dests );
   case 10:
      return set( steps, balance + "/nextHopId", next );
   case 11:
      return set( steps, "/feeders/config/hwId/" + object, hwId );
   case 12:
      return steps.push_back( "del /feeders/config/hwId/" + object );
   default:
      return set( steps, "/feeders/config/hwIdDelay", delay );
   }
}

void
proposeOverlay( Draw & draw, Steps & steps ) {
   auto const config = "/vxlan/config/vxlanConfig/" + vxlan( draw );
   auto const vlanId = vlan( draw );
   auto const station = host( draw );
   auto const tunnels = group( draw );
   auto const list = draw.oneOf(
         { "[]", "[\"192.0.2.1\"]", "[\"192.0.2.2\"]", "[\"192.0.2.1\",\"192.0.2.3\"]" } );
   auto const isController = trueOrFalse( draw, 35 );
   auto const vni = "100" + ( draw.chance( 90 ) ? vlanId : "9" );
   switch( draw.below( 14 ) ) {
   case 0:
   case 1:
   case 2:
   case 3:
      return set( steps, config + "/vlanVni/" + vlanId, vni );
   case 4:
      return steps.push_back( "del " + config + "/vlanVni/" + vlanId );
   case 5:
      return set( steps, config + "/controllerClient", isController );
   case 6:
   case 7:
   case 8:
      return set( steps, config + "/remoteHost/" + station + "/tunnelGroup", tunnels );
   case 9:
   case 10:
      return steps.push_back( "del " + config + "/remoteHost/" + station );
   case 11:
      return steps.push_back( "del " + config );
   case 12:
      return steps.push_back( "del /hoba/swTunnelGroupIdMap/group/" + tunnels );
   default:
      return set( steps, "/hoba/swTunnelGroupIdMap/group/" + tunnels + "/tunnelIp", list );
   }
}

void
proposeRemote( Draw & draw, Steps & steps ) {
   String const info = "/vxlan/remoteMacInfo/";
   auto const received = info + "receivedRemoteHost/remoteHost/" + host( draw );
   auto const seen = mac( draw );
   auto const learnt = info + "tunnelLearnEvent/event/" + seen + "@100" + vlan( draw );
   auto const evpn = "/feeders/config/evpnMac/" + host( draw );
   auto const intf = vxlan( draw );
   auto const tunnels = group( draw );
   auto const count = moves( draw );
   auto const time = seconds( draw );
   auto const isSo = trueOrFalse( draw, 50 );
   auto const preference = draw.oneOf( { "16", "16", "15", "30" } );
   auto const flush = draw.oneOf< String >( { "0", vlan( draw ) } );
   switch( draw.below( 18 ) ) {
   case 0:
      return steps.push_back( "del " + received );
   case 1:
   case 2:
      return set( steps, received + "/intf", intf );
   case 3:
      return set( steps, received + "/moves", count );
   case 4:
      return set( steps, received + "/tunnelGroup", tunnels );
   case 5:
   case 6:
      return steps.push_back( "del " + learnt );
   case 7:
   case 8:
      return set( steps, learnt + "/intf", intf );
   case 9:
      return set( steps, learnt + "/tunnelGroup", tunnels );
   case 10:
      return set( steps, info + "bootStatus/hitlessRestartInProgress", isSo );
   case 11:
      return set( steps, info + "bootStatus/remoteMacsReady", isSo );
   case 12:
      return set( steps, info + "flushRequest/request/" + flush + ':' + tunnels, "true" );
   case 13:
      return steps.push_back( "del " + evpn );
   case 14:
      return set( steps, evpn + "/moveCount", count );
   case 15:
      return set( steps, evpn + "/lastMoveTime", time );
   case 16:
      return set( steps, evpn + "/preference", preference );
   default:
      set( steps, evpn + "/entryType", "evpnDynamicRemoteMac" );
      return set( steps, evpn + "/intf", intf );
   }
}

void
proposeLocal( Draw & draw, Steps & steps ) {
   auto const station = host( draw );
   auto const port = "/dot1x/status/intfStatus/" + draw.port();
   auto const intf = draw.intf();
   auto const time = seconds( draw );
   auto const isSo = trueOrFalse( draw, 60 );
   auto const mode = draw.oneOf( { "multiHost", "singleHost", "restrictedHost" } );
   auto const state = draw.oneOf( { "portUnauthorized", "portAuthorized", "portAuthorized" } );
   switch( draw.below( 14 ) ) {
   case 0:
      return set( steps, "/dot1x/status/enabled", isSo );
   case 1:
      return set( steps, port + "/hostMode", mode );
   case 2:
      return set( steps, port + "/portAuthState", state );
   case 3:
      return set( steps, port + "/macBasedAuth", isSo );
   case 4:
      return steps.push_back( "del " + port );
   case 5:
   case 6:
      return set( steps, "/dot1x/hostTable/hostEntry/" + station + "/intf", intf );
   case 7:
      return set( steps, "/dot1x/hostTable/hostEntry/" + station + "/since", time );
   case 8:
      return steps.push_back( "del /dot1x/hostTable/hostEntry/" + station );
   case 9:
   case 10:
      return set( steps, "/fsf/status/failedServer/" + station, intf );
   case 11:
      return steps.push_back( "del /fsf/status/failedServer/" + station );
   case 12:
      return set( steps, "/hoba/routerMac/routerMac/" + station + "/intf", "Cpu" );
   default:
      return steps.push_back( "del /hoba/routerMac/routerMac/" + station );
   }
}

void
proposeFlush( Draw & draw, Steps & steps ) {
   auto const agent = "/bridging/flush/request/agent/" + draw.oneOf( { "stp", "mlag" } );
   auto const path = agent + "/request/" + draw.oneOf( { "a", "b", "c" } );
   auto const vlanId = draw.vlan();
   auto const intf = draw.chance( 85 ) ? draw.intf() : "Ethernet77";
   auto const addr = mac( draw );
   switch( draw.below( 8 ) ) {
   case 0:
      return steps.push_back( "del " + path );
   case 1:
      return steps.push_back( "del " + agent );
   case 2:
      return set( steps, path + "/vlanId", "0" );
   case 3:
      return set( steps, path + "/addr", addr );
   case 4:
      return set( steps, path + "/intf", intf );
   case 5:
      set( steps, path + "/vlanId", vlanId );
      return set( steps, path + "/intf", intf );
   case 6:
      set( steps, path + "/intf", intf );
      steps.push_back( "del " + path );
      return set( steps, path + "/intf", intf );
   default:
      return set( steps, path + "/vlanId", vlanId );
   }
}

// All that a station behind the overlay needs, and its next hop changes.
void
proposeWholeRib( Draw & draw, Steps & steps ) {
   auto const dest = "dest:" + toText( draw.below( 3 ) );
   String const path = "/l2rib/destOutput/dest/" + dest;
   auto const addr = mac( draw );
   auto const next = draw.oneOf( { "1", "2", "3", "4" } );
   auto const other = draw.oneOf( { "1", "2", "3", "0", "4294967295" } );
   set( steps, "/vxlan/config/vxlanConfig/Vxlan1/vlanVni/1", "1001" );
   set( steps, path + "/intf", "Vxlan1" );
   set( steps, path + "/nextHopId", next );
   set( steps, "/l2rib/hostOutput/host/" + addr + "@1/objTuple", dest );
   if( draw.chance( 50 ) ) {
      steps.push_back( "wait 0.5" );
      set( steps, path + "/nextHopId", other );
   }
}

// A peer that is there tells of a station, which is seen here as well.
void
proposeWholePeer( Draw & draw, Steps & steps ) {
   auto const addr = mac( draw );
   auto const path = "/mlag/hostTable/hostEntry/" + addr + "@1";
   auto const count = moves( draw );
   auto const isSo = trueOrFalse( draw, 40 );
   auto const seen = "sim event learn " + draw.port() + ' ' + addr + " 1";
   bool const isSeenFirst = draw.chance( 50 );
   if( isSeenFirst ) {
      steps.push_back( seen );
   }
   set( steps, "/mlag/status/state", "mlagActive" );
   set( steps, "/mlag/status/mlagIntf/Port-Channel1", "mlagIntfActiveFull" );
   set( steps, path + "/moves", count );
   set( steps, path + "/promote", isSo );
   set( steps, path + "/entryType", "peerDynamicMac" );
   set( steps, path + "/intf", "Port-Channel1" );
   if( !isSeenFirst ) {
      steps.push_back( "wait 0.5" );
      steps.push_back( seen );
   }
}

// What is on its way when it is to be forgotten.
void
proposeHastyFlush( Draw & draw, Steps & steps ) {
   auto const addr = mac( draw );
   auto const client = "/feeders/config/nonAgingClient/dot1x/macEntries/" + addr + "@1";
   auto const port = draw.port();
   set( steps, "/feeders/config/nonAgingClient/dot1x/enable", "true" );
   set( steps, client + "/intf", port );
   steps.push_back( "sim event learn " + port + ' ' + addr + " 1" );
   steps.push_back( "wait 0.5" );
   steps.push_back( "del " + client );
   proposeFlush( draw, steps );
}

} // namespace

void
proposeMac( Draw & draw, Steps & steps ) {
   using Propose = void ( * )( Draw &, Steps & );
   constexpr Propose all[] = {
         proposeConfigured, proposeConfigured, proposeConfigured, proposeSettings,
         proposeSettings,   proposeMlag,       proposePeerHost,   proposePeerHost,
         proposePeerHost,   proposeRibHost,    proposeRibHost,    proposeRibObject,
         proposeRibObject,  proposeOverlay,    proposeOverlay,    proposeRemote,
         proposeRemote,     proposeLocal,      proposeLocal,      proposeFlush,
         proposeFlush,      proposeWholeRib,   proposeWholeRib,   proposeWholePeer,
         proposeWholePeer,  proposeHastyFlush };
   all[ draw.below( std::size( all ) ) ]( draw, steps );
}

Step
wrongMacStep( Draw & draw ) {
   return wrongMacSteps()[ draw.below( wrongMacSteps().size() ) ];
}

std::vector< Step > const &
wrongMacSteps() {
   static std::vector< Step > const all{
         "set /bridging/config/hostAgingTime soon",
         "set /bridging/config/fdbConfig/4095/configuredHost/00:00:5e:00:53:01/intf Ethernet1",
         "set /bridging/config/fdbConfig/1/configuredHost/00:00:5e:00:53/intf Ethernet1",
         "set /bridging/config/fdbConfig/1/configuredHost/00:00:5e:00:53:01/entryType fixed",
         "set /mlag/hostTable/hostEntry/00:00:5e:00:53:01@4095/intf Port-Channel1",
         "set /mlag/status/mlagIntf/Port-Channel1 up",
         "set /l2rib/hostOutput/host/00:00:5e:00:53:01@1/objTuple lb",
         "set /l2rib/destOutput/dest/next:1/nextHopId 1",
         "set /vxlan/config/vxlanConfig/Ethernet1/vlanVni/1 1001",
         "set /vxlan/config/vxlanConfig/Vxlan1/vlanVni/1 16777216",
         "set /dot1x/status/intfStatus/Ethernet1/hostMode anyHost",
         "set /bridging/status/fdbStatus/1/learnedHost/00:00:5e:00:53:01/intf Ethernet1",
         "set /vxlan/remoteMacInfo/remoteHost/remoteMac/00:00:5e:00:53:01@1/intf Vxlan1",
         "set /bridging/flush/request/agent/stp/request/a/vlanId 4095",
         "set /fsf/status/failedServer/00:00:5e:00:53:01@1 nowhere" };
   return all;
}

} // namespace Simulation
