// SPDX-License-Identifier: Apache-2.0
#include "simulation/observers/MacModel.h"

#include <algorithm>

namespace Simulation {

using Bridging::EntryType;
using Kiv::String;
using Pelt::IntfId;

MacModel::MacModel( Switch const & simulated )
      : simulated_( simulated ),
        feeders_( simulated.entity< Feeders::Config >( "/feeders/config" ) ),
        macTable_( simulated.entity< HobaTypes::MacTable >( "/hoba/macTable" ) ),
        bridging_( simulated.entity< Bridging::Config >( "/bridging/config" ) ),
        vlans_( simulated.entity< Bridging::VlanConfigDir >( "/bridging/vlanConfig" ) ),
        switchIntf_(
              simulated.entity< Bridging::SwitchIntfConfigDir >( "/bridging/switchIntfConfig" ) ),
        ethConfig_( simulated.entity< Interface::EthPhyIntfConfigDir >( "/interface/config" ) ),
        mlag_( simulated.entity< Mlag::Status >( "/mlag/status" ) ),
        peerHosts_( simulated.entity< Mlag::HostTable >( "/mlag/hostTable" ) ),
        ribHosts_( simulated.entity< L2Rib::HostOutput >( "/l2rib/hostOutput" ) ),
        dests_( simulated.entity< L2Rib::DestOutput >( "/l2rib/destOutput" ) ),
        balances_( simulated.entity< L2Rib::LoadBalanceOutput >( "/l2rib/loadBalanceOutput" ) ),
        hwIds_( simulated.entity< Hoba::ObjTupleToHwId >( "/hoba/objTupleToHwId" ) ),
        groups_( simulated.entity< Hoba::SwTunnelGroupIdMap >( "/hoba/swTunnelGroupIdMap" ) ),
        vxlan_( simulated.entity< Vxlan::VxlanConfigDir >( "/vxlan/config" ) ),
        vnis_( simulated.entity< Vxlan::VlanVniMap >( "/vxlan/vlanVniMap" ) ),
        received_( simulated.entity< Vxlan::ReceivedRemoteHostTable >(
              "/vxlan/remoteMacInfo/receivedRemoteHost" ) ),
        tunnelEvents_( simulated.entity< Vxlan::TunnelLearnEventTable >(
              "/vxlan/remoteMacInfo/tunnelLearnEvent" ) ),
        boot_( simulated.entity< Vxlan::BootStatus >( "/vxlan/remoteMacInfo/bootStatus" ) ),
        routerMacs_( simulated.entity< HobaTypes::RouterMacTable >( "/hoba/routerMac" ) ),
        dot1x_( simulated.entity< Dot1x::Status >( "/dot1x/status" ) ),
        dot1xHosts_( simulated.entity< Dot1x::HostTable >( "/dot1x/hostTable" ) ),
        nonAging_( simulated.entity< Hoba::NonAgingStatus >( "/hoba/nonAging/status" ) ),
        failed_( simulated.entity< FastServerFailover::Status >( "/fsf/status" ) ),
        programmed_( simulated.entity< HobaTypes::RemoteHostStatusTable >(
              "/vxlan/remoteMacInfo/remoteHostStatus" ) ),
        remoteHosts_(
              simulated.entity< HobaTypes::RemoteMacTable >( "/vxlan/remoteMacInfo/remoteHost" ) ),
        status_( simulated.entity< Bridging::Status >( "/bridging/status" ) ) {}

String
MacModel::ofMachine( String const & attribute ) {
   return "/hoba/machines/mac/" + attribute;
}

// ---- Of each station, what its sources say

std::map< MacModel::Pair, MacModel::Said >
MacModel::said() const {
   std::map< Pair, Said > all;
   for( auto const & [ pair, row ] : macTable_->macEntry() ) {
      all[ pair ].macTable = row;
   }
   for( auto const & [ pair, row ] : ribHosts_->host() ) {
      all[ pair ].rib = row;
   }
   for( auto const & [ pair, row ] : feeders_->evpnMac() ) {
      all[ pair ].evpn = row;
   }
   for( auto const & [ vlan, database ] : bridging_->fdbConfig() ) {
      for( auto const & [ addr, row ] : database->configuredHost() ) {
         all[ Pair( addr, vlan ) ].configured = row;
      }
   }
   for( auto const & [ pair, row ] : peerHosts_->hostEntry() ) {
      all[ pair ].peer = row;
   }
   for( auto const & [ intf, config ] : vxlan_->vxlanConfig() ) {
      for( auto const & [ pair, row ] : config->remoteHost() ) {
         all[ pair ].remote[ Kiv::toText( intf ) ] = row;
      }
   }
   for( auto const & [ pair, row ] : routerMacs_->routerMac() ) {
      all[ pair ].router = row;
   }
   for( auto const & [ pair, row ] : dot1xHosts_->hostEntry() ) {
      all[ pair ].dot1x = row;
   }
   for( auto const & [ pair, row ] : received_->remoteHost() ) {
      all[ pair ].received = row;
   }
   for( auto const & [ pair, intf ] : failed_->failedServer() ) {
      all[ pair ].failed = intf;
   }
   for( auto const & [ vlan, vni ] : vnis_->vni() ) {
      for( auto const & [ host, row ] : tunnelEvents_->event() ) {
         if( host.vni == vni ) {
            all[ Pair( host.addr, vlan ) ].tunnel = row;
         }
      }
   }
   for( auto const & [ pair, row ] : nonAging_->macEntries() ) {
      all[ pair ].isNonAging = nonAging_->enabled();
   }
   return all;
}

std::map< MacModel::Pair, MacModel::Entry >
MacModel::inForce() const {
   std::map< Pair, Entry > all;
   for( auto const & [ vlan, database ] : status_->fdbStatus() ) {
      for( auto const & [ addr, host ] : database->learnedHost() ) {
         Pair const pair( addr, vlan );
         Entry entry;
         if( remoteHosts_->remoteMacHas( pair ) ) {
            entry = remoteHosts_->remoteMac( pair );
         } else if( programmed_->remoteHostStatusHas( pair ) ) {
            // A peer's: its next hop is its group.
            entry.swTunnelGroupId =
                  Hoba::SwTunnelGroupId( programmed_->remoteHostStatus( pair ).nextHopId );
         }
         entry.macEntry = pair;
         entry.intf = host.intf;
         entry.entryType = host.entryType;
         entry.dropMode = host.dropMode;
         entry.moveCount = host.moves;
         entry.lastMoveTime = host.lastMoveTime;
         all[ pair ] = entry;
      }
   }
   return all;
}

std::map< Vxlan::VniMac, Vxlan::TunnelLearnEvent >
MacModel::tunnelEvents() const {
   std::map< Vxlan::VniMac, Vxlan::TunnelLearnEvent > all;
   for( auto const & [ host, event ] : tunnelEvents_->event() ) {
      all.emplace( host, event );
   }
   return all;
}

bool
MacModel::isStatic( EntryType type ) {
   constexpr EntryType all[] = { Bridging::configuredStaticMac,  Bridging::configuredRemoteMac,
                                 Bridging::authenticatedMac,     Bridging::peerStaticMac,
                                 Bridging::peerAuthenticatedMac, Bridging::peerStaticRemoteMac,
                                 Bridging::evpnStaticRemoteMac };
   return std::ranges::find( all, type ) != std::end( all );
}

bool
MacModel::isLearned( EntryType type ) {
   return type == Bridging::learnedDynamicMac || type == Bridging::learnedRemoteMac;
}

bool
MacModel::isSamePlace( Entry const & a, Entry const & b ) {
   return a.intf == b.intf && a.swTunnelGroupId == b.swTunnelGroupId;
}

bool
MacModel::isThere( IntfId intf ) const {
   auto const parent = Kiv::toText( intf ).substr( 0, Kiv::toText( intf ).find( '.' ) );
   IntfId const port( parent );
   if( Pelt::PortChannelIntfId::isPortChannelIntfId( port ) ) {
      return std::ranges::any_of(
            std::initializer_list< char const * >{ "lagToPort", "lagToPortConfig", "lagToLagType" },
            [ & ]( char const * table ) {
               auto const lags = simulated_.get( "/hoba/common/" + String( table ) );
               return lags.find( parent ) != nullptr;
            } );
   }
   return Pelt::CpuIntfId::isCpuIntfId( port ) || Pelt::VxlanIntfId::isVxlanIntfId( port ) ||
          simulated_.get( "/hoba/common/intf" ).find( parent );
}

bool
MacModel::hasVni( Bridging::VlanIdOrNone vlan ) const {
   return vlan.value() && vnis_->vniHas( Bridging::VlanId( vlan.value() ) );
}

bool
MacModel::isController() const {
   for( auto const & [ intf, config ] : vxlan_->vxlanConfig() ) {
      if( config->controllerClient() ) {
         return true;
      }
   }
   return false;
}

bool
MacModel::isRestricted( IntfId intf ) const {
   auto const port = dot1x_->enabled() ? dot1x_->intfStatus( intf ) : nullptr;
   return port && ( port->hostMode() != Dot1x::multiHost || port->macBasedAuth() );
}

// ---- What was learnt

std::optional< MacModel::Entry >
MacModel::reported( Pair pair, Said const & said, bool & isInHardware ) const {
   Entry entry;
   entry.macEntry = pair;
   bool const isTold = said.tunnel && Pelt::VxlanIntfId::isVxlanIntfId( said.tunnel->intf );
   isInHardware = said.macTable && isLearned( said.macTable->entryType ) &&
                  ( !isTold || said.macTable->learnTime > said.tunnel->learnTime );
   if( isInHardware ) {
      entry.intf = said.macTable->intf;
      entry.entryType = said.macTable->entryType;
      entry.lastMoveTime = said.macTable->learnTime;
      entry.swTunnelGroupId = Hoba::SwTunnelGroupId( said.macTable->tunnelId );
      return entry;
   }
   if( isTold ) {
      entry.intf = said.tunnel->intf;
      entry.entryType = Bridging::learnedRemoteMac;
      entry.lastMoveTime = said.tunnel->learnTime;
      entry.swTunnelGroupId = Hoba::SwTunnelGroupId( said.tunnel->tunnelGroup );
      return entry;
   }
   return {};
}

bool
MacModel::isInHardware( Entry const & entry, Said const & said ) const {
   bool isInHardware = false;
   auto const learnt = reported( entry.macEntry, said, isInHardware );
   return isInHardware && isLearned( entry.entryType ) && isSamePlace( *learnt, entry );
}

std::uint64_t
MacModel::limit() const {
   return Kiv::fromText< std::uint64_t >(
         Kiv::datumText( simulated_.get( "/sim/chip/mac/maxRemoteMacs" ) ) );
}

String
MacModel::fieldOf( char const * list, Pair pair, char const * field ) const {
   auto const rows = simulated_.get( ofMachine( list ) );
   auto const * const row = rows.find( Kiv::toText( pair ) );
   return row ? Kiv::datumText( *row->find( field ) ) : "";
}

bool
MacModel::isPending( Pair pair ) const {
   for( auto const * list : { "updateList", "refusedList" } ) {
      auto const type = fieldOf( list, pair, "entryType" );
      if( !type.empty() && fieldOf( list, pair, "action" ) != "removeFromFdbStatusAndHardware" &&
          Bridging::isEntryTypeRemote( Kiv::fromText< EntryType >( type ) ) ) {
         return true;
      }
   }
   return false;
}

// Of what was decided already it is seen when it is done.
bool
MacModel::isBeyondLimit( Pair pair, bool isNews ) const {
   return !programmed_->remoteHostStatusHas( pair ) && !isPending( pair ) &&
          ( programmed_->remoteHostStatus().size() >= limit() ||
            ( !isNews && fieldOf( "withheld", pair, "obstacle" ) == "remote MAC limit" ) );
}

String
MacModel::obstacleOf( Entry const & reported ) const {
   auto const vlan = reported.macEntry.vlanId();
   bool const isRemote = Bridging::isEntryTypeRemote( reported.entryType );
   if( !isRemote && isRestricted( reported.intf ) ) {
      return "dot1x";
   }
   if( isRemote && isController() ) {
      return "controller client";
   }
   if( isRemote && !hasVni( vlan ) ) {
      return "VNI";
   }
   auto const config =
         vlan.value() ? vlans_->vlanConfig( Bridging::VlanId( vlan.value() ) ) : nullptr;
   return config && config->primaryVlan().value() && hasVni( vlan ) ? "secondary VLAN" : "";
}

// ---- The others

// Only the operator may say that a station is nowhere, or is a group. Behind the overlay are remote stations, and
// no others; behind what, an object may not say yet.
void
MacModel::add( Candidates & all, String & none, Entry entry, Origin origin, bool isOwn ) {
   auto const type = entry.entryType;
   bool const isAway = Pelt::VxlanIntfId::isVxlanIntfId( entry.intf );
   bool const isOpen = entry.l2RibObjTuple && !entry.intf;
   bool const isRemote = Bridging::isEntryTypeRemote( type );
   String refusal;
   if( !isOwn && !entry.macEntry.isStation() ) {
      refusal = "group address";
   } else if( type == Bridging::entryTypeUnknown || isLearned( type ) ) {
      refusal = "source";
   } else if( ( !isOpen && isRemote != isAway ) || ( !isOwn && !entry.intf && !isRemote ) ) {
      refusal = "interface";
   } else {
      if( !isRemote ) {
         entry.swTunnelGroupId = {};
      }
      all.push_back( { entry, origin } );
   }
   none = none.empty() ? refusal : none;
}

void
MacModel::fromConfigured( Pair pair, Said const & said, Candidates & all, String & none ) const {
   if( !said.configured ) {
      return;
   }
   auto const & host = *said.configured;
   auto const refuse = [ & ]( char const * why ) { none = none.empty() ? why : none; };
   if( !pair.addr().isUnicast() ) {
      return refuse( "group address" );
   }
   if( host.intf && !isThere( host.intf ) ) {
      return refuse( "interface" );
   }
   if( auto const config = ethConfig_->ethPhyIntfConfig( host.intf );
       config && !config->enabled() ) {
      return refuse( "disabled interface" );
   }
   Entry entry;
   entry.macEntry = pair;
   entry.intf = host.intf;
   entry.entryType = host.entryType;
   entry.dropMode = host.intf ? host.dropMode : Bridging::dropModeBoth;
   entry.lastMoveTime = host.since;
   entry.preference = 16;
   add( all, none, entry, ofOperator, true );
}

void
MacModel::fromPeer( Said const & said, Candidates & all, String & none ) const {
   if( !said.peer ) {
      return;
   }
   auto const & host = *said.peer;
   bool const isShared = mlag_->mlagIntfHas( host.intf ) &&
                         mlag_->mlagIntf( host.intf ) != Mlag::mlagIntfDisabled &&
                         mlag_->mlagIntf( host.intf ) != Mlag::mlagIntfInactive;
   if( mlag_->state() != Mlag::mlagActive || ( !isShared && host.intf != mlag_->peerLinkIntf() &&
                                               !Pelt::VxlanIntfId::isVxlanIntfId( host.intf ) ) ) {
      none = none.empty() ? "MLAG interface" : none;
      return;
   }
   Entry entry;
   entry.macEntry = host.macEntry;
   entry.intf = host.intf;
   entry.entryType = host.entryType;
   entry.moveCount = host.moves;
   entry.lastMoveTime = host.lastMoveTime;
   entry.preference = 16;
   entry.promote = host.promote;
   entry.swTunnelGroupId = Hoba::SwTunnelGroupId( host.tunnelGroup );
   add( all, none, entry, elsewhere );
}

void
MacModel::fromOverlay( Pair pair, Said const & said, Candidates & all, String & none ) const {
   if( said.rib ) {
      auto const & host = *said.rib;
      bool const isMine =
            host.source == L2Rib::sourceBgp || host.source == L2Rib::sourceBgpEvpnMpls ||
            host.source == L2Rib::sourceTest || host.source == L2Rib::sourceController;
      if( isMine ) {
         Entry entry;
         entry.macEntry = pair;
         entry.entryType = host.entryType;
         entry.moveCount = host.moves;
         entry.lastMoveTime = host.lastMoveTime;
         entry.preference = host.preference;
         entry.l2RibObjTuple = host.objTuple;
         entry.dropMode = host.dropMode;
         auto const hop = hopOf( entry );
         entry.intf = hop.intf;
         entry.swTunnelGroupId = Hoba::SwTunnelGroupId( hop.group );
         entry.isMplsNextHop = hop.isMpls;
         add( all, none, entry, elsewhere );
      } else {
         none = none.empty() ? "source" : none;
      }
   }
   if( said.evpn ) {
      auto entry = *said.evpn;
      entry.preference = entry.preference ? entry.preference : 16;
      add( all, none, entry, elsewhere );
   }
}

void
MacModel::candidates( Pair pair, Station const & station, Candidates & all, String & none ) const {
   auto const & said = station.said;
   fromOverlay( pair, said, all, none );
   fromConfigured( pair, said, all, none );
   fromPeer( said, all, none );
   Entry entry;
   entry.macEntry = pair;
   if( !said.remote.empty() ) {
      auto remote = entry;
      remote.intf = IntfId( said.remote.begin()->first );
      remote.entryType = Bridging::configuredRemoteMac;
      remote.swTunnelGroupId = Hoba::SwTunnelGroupId( said.remote.begin()->second.tunnelGroup );
      remote.preference = 20;
      add( all, none, remote, ofOperator );
   }
   if( said.router ) {
      auto router = entry;
      router.intf = said.router->intf;
      router.entryType = Bridging::configuredStaticMac;
      router.preference = 32;
      add( all, none, router, ofOperator );
   }
   if( said.dot1x && !isThere( said.dot1x->intf ) ) {
      none = none.empty() ? "interface" : none;
   } else if( said.dot1x ) {
      auto host = entry;
      host.intf = said.dot1x->intf;
      host.entryType = Bridging::authenticatedMac;
      host.lastMoveTime = said.dot1x->since;
      host.preference = 24;
      add( all, none, host, ofOperator );
   }
   if( said.received ) {
      auto host = entry;
      host.intf = said.received->intf;
      host.entryType = Bridging::receivedRemoteMac;
      host.swTunnelGroupId = Hoba::SwTunnelGroupId( said.received->tunnelGroup );
      host.moveCount = said.received->moves;
      host.preference = 16;
      add( all, none, host, elsewhere );
   }
   if( said.macTable && !isLearned( said.macTable->entryType ) ) {
      auto told = entry;
      told.intf = said.macTable->intf;
      told.entryType = said.macTable->entryType;
      told.swTunnelGroupId = Hoba::SwTunnelGroupId( said.macTable->tunnelId );
      told.lastMoveTime = said.macTable->learnTime;
      told.preference = 16;
      add( all, none, told, ofHardware ); // which counts no moves
   }
   if( said.failed ) {
      auto cpu = entry;
      cpu.intf = Pelt::CpuIntfId();
      cpu.entryType = Bridging::configuredDynamicMac;
      cpu.lastMoveTime = station.failedSince;
      cpu.preference = 16;
      add( all, none, cpu, ofFailure );
   }
}

// ---- Who is believed

namespace {

std::uint32_t
rankOf( MacModel::Entry const & entry ) {
   auto const type = static_cast< unsigned >( entry.entryType );
   return entry.preference * 256u + ( type == 4 || type == 9 || type == 21 );
}

// Sequence numbers: whether a is before b; half of all apart neither is.
bool
isBefore( Mox::Seqno32 a, Mox::Seqno32 b ) {
   auto const way = b.value() - a.value();
   return way != 0 && way < 1u << 31;
}

} // namespace

std::vector< Pelt::IpGenAddr >
MacModel::tunnelsOf( Entry const & entry ) const {
   return groups_->groupHas( entry.swTunnelGroupId )
                ? groups_->group( entry.swTunnelGroupId ).tunnelIp
                : std::vector< Pelt::IpGenAddr >();
}

bool
MacModel::isBetter( Entry const & before, Entry const & next ) const {
   if( auto const a = rankOf( before ), b = rankOf( next ); a != b ) {
      return a < b;
   }
   if( isBefore( before.moveCount, next.moveCount ) ) {
      return true;
   }
   if( isBefore( next.moveCount, before.moveCount ) ) {
      return false;
   }
   if( before.lastMoveTime != next.lastMoveTime ) {
      return before.lastMoveTime < next.lastMoveTime;
   }
   auto const a = before.l2RibObjTuple, b = next.l2RibObjTuple;
   if( a || b ) {
      return b && ( !a || std::pair( a.kind, a.id ) <= std::pair( b.kind, b.id ) );
   }
   auto const aList = tunnelsOf( before ), bList = tunnelsOf( next );
   bool const areSingle =
         before.swTunnelGroupId.isSingleMember() && next.swTunnelGroupId.isSingleMember();
   if( areSingle && aList.empty() ) {
      return false;
   }
   if( areSingle && bList.empty() ) {
      return true;
   }
   return aList < bList;
}

MacModel::Hop
MacModel::hopOf( Entry const & entry ) const {
   Hop hop;
   auto const tuple = entry.l2RibObjTuple;
   if( !tuple ) {
      hop.intf = entry.intf;
      hop.group = hop.nextHopId = entry.swTunnelGroupId.value();
      hop.obstacle = hop.group ? "" : "RIB object";
      return hop;
   }
   std::optional< L2Rib::Dest > dest;
   auto const destOf = [ & ]( L2Rib::ObjTuple of ) {
      return dests_->destHas( of ) ? std::optional( dests_->dest( of ) ) : std::nullopt;
   };
   if( tuple.kind == L2Rib::objDest ) {
      dest = destOf( tuple );
      hop.nextHopId = dest ? dest->nextHopId : 0;
   } else if( balances_->loadBalanceHas( tuple ) ) {
      auto const & balance = balances_->loadBalance( tuple );
      dest = balance.dest.empty() ? std::nullopt : destOf( balance.dest.front() );
      hop.nextHopId = balance.nextHopId;
   }
   if( !dest ) {
      hop.obstacle = "RIB object";
      return hop;
   }
   hop.intf = dest->intf;
   hop.group = dest->tunnelGroup;
   hop.isMpls = dest->kind == L2Rib::destMpls;
   hop.hwId = hwIds_->hwIdHas( tuple ) ? hwIds_->hwId( tuple ) : 0;
   hop.obstacle = dest->kind == L2Rib::destDrop               ? "drop next hop"
                  : !dest->intf                               ? "RIB object"
                  : hop.nextHopId == L2Rib::nextHopInvalid    ? "invalid next hop"
                  : hop.nextHopId == L2Rib::nextHopUnresolved ? "next hop"
                  : hop.hwId == 0                             ? "hardware id"
                                                              : "";
   return hop;
}

MacModel::Way
MacModel::wayTo( Entry const & entry ) const {
   auto const hop = hopOf( entry );
   return { hop.nextHopId, hop.hwId };
}

// ---- What becomes of it

// There may be no room for what would win.
MacModel::Verdict
MacModel::evaluate( Pair pair, Station const & station, Kiv::Seconds now, bool isNews ) const {
   Room room;
   auto verdict = decide( pair, station, now, room );
   while( verdict.isWritten && isBeyondLimit( pair, isNews ) ) {
      ( verdict.isLearnt ? room.forLearnt : room.forBest ) = false;
      verdict = decide( pair, station, now, room );
   }
   return verdict;
}

MacModel::Verdict
MacModel::decide( Pair pair, Station const & station, Kiv::Seconds now, Room room ) const {
   auto const & current = station.current;
   Verdict verdict;
   verdict.isLost = station.isLost;
   bool isInHardware = false;
   auto learnt = reported( pair, station.said, isInHardware );
   Candidates all;
   String none;
   candidates( pair, station, all, none );
   std::optional< Entry > best;
   auto origin = elsewhere;
   for( auto const & each : all ) {
      if( !best || isBetter( *best, each.entry ) ) {
         best = each.entry;
         origin = each.origin;
      }
   }
   if( best && ( Bridging::isEntryTypeRemote( best->entryType ) || best->l2RibObjTuple ) ) {
      auto const hop = hopOf( *best );
      auto obstacle = Bridging::isEntryTypeRemote( best->entryType ) && !hasVni( pair.vlanId() )
                            ? "VNI"
                            : hop.obstacle;
      if( obstacle.empty() && !room.forBest ) {
         obstacle = "remote MAC limit";
      }
      if( !obstacle.empty() ) {
         verdict.obstacle = obstacle;
         if( obstacle == "next hop" && current && current->entryType == best->entryType &&
             ( programmed_->remoteHostStatusHas( pair ) || isPending( pair ) ) ) {
            verdict.entry = current; // it keeps its place
            verdict.way = hopOf( *current ).obstacle.empty() ? wayTo( *current ) : station.way;
            return verdict;
         }
         best.reset();
      }
   }
   // A learn event for a station that is programmed behind the overlay is dropped.
   auto const isRemote = []( auto const & entry ) {
      return entry && Bridging::isEntryTypeRemote( entry->entryType );
   };
   verdict.isLost = verdict.isLost || ( isRemote( learnt ) && isRemote( best ) &&
                                        isRemote( current ) && !isLearned( current->entryType ) );
   bool isObstructed = false;
   if( verdict.isLost ) {
      learnt.reset();
   } else if( learnt ) {
      auto obstacle = obstacleOf( *learnt );
      // What software learnt is to be written, for which there must be a way.
      if( obstacle.empty() && Bridging::isEntryTypeRemote( learnt->entryType ) && !isInHardware ) {
         obstacle = !learnt->swTunnelGroupId ? "RIB object"
                    : !room.forLearnt        ? "remote MAC limit"
                                             : "";
      }
      if( !obstacle.empty() ) {
         // What has lost waits for nothing.
         verdict.obstacle = verdict.obstacle.empty() && !best ? obstacle : verdict.obstacle;
         verdict.isLost = best.has_value();
         isObstructed = true;
         learnt.reset();
      }
   }
   if( verdict.obstacle.empty() ) {
      verdict.obstacle = none;
   }
   if( learnt ) {
      bool const isNew = !current || !isSamePlace( *current, *learnt );
      auto const * const before = current ? &*current : best ? &*best : nullptr;
      if( !isNew ) {
         learnt->moveCount = current->moveCount;
         learnt->lastMoveTime = current->lastMoveTime;
      } else if( before ) {
         learnt->moveCount = before->moveCount;
         if( !isSamePlace( *before, *learnt ) ) {
            learnt->moveCount.inc();
         }
      }
   }
   if( learnt && best ) {
      bool const learntWins = isStatic( best->entryType ) ? false
                              : best->promote             ? true
                              : best->entryType == Bridging::configuredDynamicMac
                                    ? learnt->lastMoveTime >= best->lastMoveTime
                              : isBefore( learnt->moveCount, best->moveCount ) ? false
                              : isBefore( best->moveCount, learnt->moveCount )
                                    ? true
                                    : learnt->lastMoveTime >= best->lastMoveTime;
      if( learntWins ) {
         best.reset();
      } else {
         learnt.reset();
         verdict.isLost = true;
      }
   }
   if( learnt ) {
      verdict.entry = learnt;
   } else if( best ) {
      verdict.entry = best;
      if( origin != elsewhere ) {
         auto const since = origin == ofHardware ? best->lastMoveTime : now;
         verdict.entry->moveCount = current ? current->moveCount : Mox::Seqno32();
         verdict.entry->lastMoveTime = current ? current->lastMoveTime : since;
         if( current && !isSamePlace( *current, *best ) ) {
            verdict.entry->lastMoveTime = since;
            verdict.entry->moveCount.inc( origin == ofFailure ? 0 : 1 );
         }
      }
   } else if( current && !isObstructed && isLearned( current->entryType ) &&
              station.said.isNonAging ) {
      verdict.entry = current;
   } else if( current && !isObstructed && programmed_->remoteHostStatusHas( pair ) &&
              ( boot_->hitlessRestartInProgress() || !boot_->remoteMacsReady() ) ) {
      verdict.entry = current;
   }
   verdict.isLearnt = learnt.has_value();
   verdict.isWritten = verdict.entry && Bridging::isEntryTypeRemote( verdict.entry->entryType ) &&
                       ( learnt ? !isInHardware : best.has_value() );
   bool const isKept = current && verdict.entry && !learnt && !best;
   bool const isOpen = isKept && !hopOf( *verdict.entry ).obstacle.empty();
   verdict.way = isOpen ? station.way : verdict.entry ? wayTo( *verdict.entry ) : Way();
   return verdict;
}

// ---- Where stations are learnt

bool
MacModel::learnsOnPort( IntfId intf ) const {
   if( Pelt::PortChannelIntfId::isPortChannelIntfId( intf ) && !isThere( intf ) ) {
      return true; // it is none
   }
   auto const config = switchIntf_->switchIntfConfig( intf );
   if( config && !config->enableLearning() ) {
      return false;
   }
   if( mlag_->state() != Mlag::mlagDisabled && intf == mlag_->peerLinkIntf() ) {
      return false;
   }
   auto const port = dot1x_->enabled() ? dot1x_->intfStatus( intf ) : nullptr;
   return !port || port->portAuthState() == Dot1x::portAuthorized;
}

bool
MacModel::learnsOnVlan( Bridging::VlanId vlan ) const {
   auto const config = vlans_->vlanConfig( vlan );
   return !config || config->macLearning();
}

} // namespace Simulation
