// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaMacSources.h"

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaHelper.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaMacSources );

namespace Hoba {

using Bridging::MacVlanPair;

struct MacSources::Gather {
   MacVlanPair const pair;
   HobaTypes::MacAddressTableEntry const * const record;
   MacCandidates & found;
   std::vector< MacNoCandidate > & none;

   // What others wrote is not believed blindly. The operator's own was looked at, but for its place: a remote
   // station is behind a VXLAN interface, and no other one is; behind which, an object of the RIB may not say yet.
   static bool fits( MacEntry const & entry ) {
      return ( entry.hasL2RibObjTuple() && !entry.intf ) ||
             isEntryTypeRemote( entry.entryType ) == Pelt::VxlanIntfId::isVxlanIntfId( entry.intf );
   }
   void add( MacSource source, MacEntry entry ) {
      if( !isEntryTypeRemote( entry.entryType ) ) {
         entry.swTunnelGroupId = {}; // it is behind no tunnel, whatever it came with
      }
      bool const isOwn = source == macSourceFdbConfig;
      if( !isOwn && !pair.isStation() ) {
         refuse( source, macObstacleGroupAddress, entry );
      } else if( entry.entryType == Bridging::entryTypeUnknown ||
                 isMacEntryLearned( entry.entryType ) ) {
         refuse( source, macObstacleSource, entry );
      } else if( !fits( entry ) ||
                 ( !isOwn && !entry.intf && !isEntryTypeRemote( entry.entryType ) ) ) {
         refuse( source, macObstacleNoIntf, entry );
      } else {
         found.add( source, entry );
      }
   }
   void refuse( MacSource source, MacObstacle obstacle, MacEntry const & entry ) {
      none.push_back( { source, obstacle, entry } );
   }
};

namespace {

MacEntry
entryOf( MacVlanPair pair, Pelt::IntfId intf, Bridging::EntryType type, std::uint8_t preference,
         Kiv::Seconds time = 0 ) {
   MacEntry entry;
   entry.macEntry = pair;
   entry.intf = intf;
   entry.entryType = type;
   entry.preference = preference;
   entry.lastMoveTime = time;
   return entry;
}

// Those whose stations behind the overlay this table is for.
bool
isOverlaySource( L2Rib::Source source ) {
   switch( source ) {
   case L2Rib::sourceBgp:
   case L2Rib::sourceBgpEvpnMpls:
   case L2Rib::sourceController:
   case L2Rib::sourceTest:
      return true;
   default:
      return false;
   }
}

} // namespace

// A source may name the tunnels alone: behind which interface they are, others have told.
void
MacSources::findTunnelIntf( MacEntry & entry ) const {
   if( !entry.intf && entry.swTunnelGroupId ) {
      HOBA_INVARIANT( in_.rmacInfoDir->tunnelInfoDir(), "rmacInfoDir()->tunnelInfoDir()" );
      entry.intf = in_.rmacInfoDir->tunnelInfoDir()->tunnelInfo( entry.swTunnelGroupId ).intf;
   }
}

// ---- Candidates, a source each

void
MacSources::fromL2Rib( Gather & gather ) const {
   auto const * host =
         in_.l2RibHostOutput ? in_.l2RibHostOutput->host().find( gather.pair ) : nullptr;
   if( !host ) {
      return;
   }
   auto entry = entryOf( gather.pair, {}, host->entryType, host->preference, host->lastMoveTime );
   entry.moveCount = host->moves;
   entry.l2RibObjTuple = host->objTuple;
   entry.dropMode = host->dropMode;
   auto const hop = nextHop( entry );
   entry.intf = hop.intf;
   entry.swTunnelGroupId = hop.swTunnelGroupId;
   entry.isMplsNextHop = hop.isMpls;
   if( !isOverlaySource( host->source ) ) {
      return gather.refuse( macSourceL2Rib, macObstacleSource, entry );
   }
   ZTRACE( 8, gather.pair, " candidate from l2Rib", " of ", host->source );
   gather.add( macSourceL2Rib, entry );
}

void
MacSources::fromEvpnMacTable( Gather & gather ) const {
   if( !in_.evpnMacTable || !in_.evpnMacTable->remoteMacHas( gather.pair ) ) {
      return;
   }
   auto entry = in_.evpnMacTable->remoteMac( gather.pair );
   entry.macEntry = gather.pair;
   if( entry.preference == 0 ) {
      entry.preference = macPreferenceDefault;
   }
   findTunnelIntf( entry );
   ZTRACE( 8, gather.pair, " candidate from evpnMacTable" );
   gather.add( macSourceEvpnMacTable, entry );
}

MacObstacle
MacSources::configuredObstacle( MacVlanPair pair, Bridging::ConfiguredHost const & host ) const {
   if( !pair.isStation() && !manageStaticMulticast_ ) {
      return macObstacleGroupAddress;
   }
   if( host.intf && !hasIntf( host.intf ) ) {
      return macObstacleNoIntf;
   }
   if( in_.ethPhyIntfConfigDir && !context_->keepStaticMacOnDisabledIntf() ) {
      auto const config = in_.ethPhyIntfConfigDir->ethPhyIntfConfig( host.intf );
      if( config && !config->enabled() ) {
         return macObstacleIntfDisabled;
      }
   }
   if( in_.portVlanMembership && context_->enforceVlanMembershipForStaticMac() && host.intf &&
       !isCpuPort( host.intf ) ) {
      auto const * vlans = in_.portVlanMembership->intf().find( host.intf );
      if( !vlans ||
          vlans->tagging( Bridging::VlanId( pair.vlanId().value() ) ) == vlanNotCarried ) {
         return macObstacleVlanMembership;
      }
   }
   return macObstacleNone;
}

void
MacSources::fromFdbConfig( Gather & gather ) const {
   auto const fdb =
         in_.bridgingConfig && gather.pair.vlanId().value()
               ? in_.bridgingConfig->fdbConfig( Bridging::VlanId( gather.pair.vlanId().value() ) )
               : nullptr;
   auto const * host = fdb ? fdb->configuredHost().find( gather.pair.addr() ) : nullptr;
   if( !host ) {
      return;
   }
   // Whatever else it is called, it is the operator's.
   auto const type = host->entryType == Bridging::configuredDynamicMac
                           ? Bridging::configuredDynamicMac
                           : Bridging::configuredStaticMac;
   auto entry = entryOf( gather.pair, host->intf, type, macPreferenceDefault, host->since );
   entry.dropMode = host->intf ? host->dropMode : Bridging::dropModeBoth;
   if( auto const obstacle = configuredObstacle( gather.pair, *host ) ) {
      return gather.refuse( macSourceFdbConfig, obstacle, entry );
   }
   ZTRACE( 8, gather.pair, " candidate from fdbConfig" );
   gather.add( macSourceFdbConfig, entry );
}

void
MacSources::fromMlagHostTable( Gather & gather ) const {
   auto const * host =
         in_.mlagHostTable ? in_.mlagHostTable->hostEntry().find( gather.pair ) : nullptr;
   if( !host ) {
      return;
   }
   auto entry = entryOf( gather.pair, host->intf, host->entryType, macPreferenceDefault,
                         host->lastMoveTime );
   entry.moveCount = host->moves;
   entry.promote = host->promote;
   entry.swTunnelGroupId = SwTunnelGroupId( host->tunnelGroup );
   auto const * mlag = in_.mlagStatus.get();
   bool const isThere =
         mlag && mlag->state() == Mlag::mlagActive &&
         ( host->intf == mlag->peerLinkIntf() || Pelt::VxlanIntfId::isVxlanIntfId( host->intf ) ||
           mlag->mlagIntf( host->intf ) >= Mlag::mlagIntfActivePartial );
   if( !isThere || !Bridging::isEntryTypePeer( host->entryType ) ) {
      ZTRACE( 5, "Ignoring mlag host entry since either intf ", host->intf,
              " is down or not an MLAG interface, ", gather.pair );
      return gather.refuse( macSourceMlagHostTable,
                            isThere ? macObstacleSource : macObstaclePeerIntf, entry );
   }
   ZTRACE( 8, gather.pair, " candidate from mlagHostTable" );
   gather.add( macSourceMlagHostTable, entry );
}

void
MacSources::fromVxlanConfigDir( Gather & gather ) const {
   if( !in_.vxlanConfigDir ) {
      return;
   }
   // Of several interfaces that have it the lowest counts, as for the VLANs that they carry.
   std::optional< MacEntry > lowest;
   for( auto const & [ intf, config ] : in_.vxlanConfigDir->vxlanConfig() ) {
      auto const * host = config->remoteHost().find( gather.pair );
      if( host && ( !lowest || intf < lowest->intf ) ) {
         lowest = entryOf( gather.pair, intf, Bridging::configuredRemoteMac,
                           macPreferenceVxlanConfig );
         lowest->swTunnelGroupId = SwTunnelGroupId( host->tunnelGroup );
      }
   }
   if( lowest ) {
      ZTRACE( 8, gather.pair, " candidate from vxlanConfigDir" );
      gather.add( macSourceVxlanConfigDir, *lowest );
   }
}

void
MacSources::fromRouterMacTable( Gather & gather ) const {
   if( auto const * mac =
             in_.routerMacTable ? in_.routerMacTable->routerMac().find( gather.pair ) : nullptr ) {
      ZTRACE( 8, gather.pair, " candidate from routerMacTable" );
      gather.add( macSourceRouterMacTable,
                  entryOf( gather.pair, mac->intf, Bridging::configuredStaticMac,
                           macPreferenceRouterMac ) );
   }
}

void
MacSources::fromDot1xHostTable( Gather & gather ) const {
   auto const * host =
         in_.dot1xHostTable ? in_.dot1xHostTable->hostEntry().find( gather.pair ) : nullptr;
   if( !host ) {
      return;
   }
   auto const entry = entryOf( gather.pair, host->intf, Bridging::authenticatedMac,
                               macPreferenceDot1x, host->since );
   if( !hasIntf( host->intf ) ) {
      return gather.refuse( macSourceDot1xHostTable, macObstacleNoIntf, entry );
   }
   ZTRACE( 8, gather.pair, " candidate from dot1xHostTable" );
   gather.add( macSourceDot1xHostTable, entry );
}

void
MacSources::fromReceivedRemoteHost( Gather & gather ) const {
   if( auto const * host =
             in_.rmacInfoDir->receivedRemoteHost()->remoteHost().find( gather.pair ) ) {
      auto entry =
            entryOf( gather.pair, host->intf, Bridging::receivedRemoteMac, macPreferenceDefault );
      entry.swTunnelGroupId = SwTunnelGroupId( host->tunnelGroup );
      entry.moveCount = host->moves;
      findTunnelIntf( entry );
      gather.add( macSourceReceivedRemoteHost, entry );
   }
}

// What others told the hardware, and it reports.
void
MacSources::fromMacTable( Gather & gather ) const {
   auto const * record = gather.record;
   if( record && !isMacEntryLearned( record->entryType ) ) {
      auto entry = entryOf( gather.pair, record->intf, record->entryType, macPreferenceDefault,
                            record->learnTime );
      entry.swTunnelGroupId = SwTunnelGroupId( record->tunnelId );
      gather.add( macSourceMacTable, entry );
   }
}

void
MacSources::fromFailedServer( Gather & gather ) const {
   if( auto const * server = failedServers_.find( gather.pair ) ) {
      gather.add( macSourceFailedServer,
                  entryOf( gather.pair, Pelt::CpuIntfId(), Bridging::configuredDynamicMac,
                           macPreferenceDefault, server->since ) );
   }
}

MacCandidate const *
MacSources::configuredEntry( MacVlanPair pair, HobaTypes::MacAddressTableEntry const * record,
                             MacCandidates & found, std::vector< MacNoCandidate > & none ) const {
   Gather gather{ pair, record, found, none };
   fromL2Rib( gather );
   fromEvpnMacTable( gather );
   fromFdbConfig( gather );
   fromMlagHostTable( gather );
   fromVxlanConfigDir( gather );
   fromRouterMacTable( gather );
   fromDot1xHostTable( gather );
   fromReceivedRemoteHost( gather );
   fromMacTable( gather );
   fromFailedServer( gather );
   return bestCandidate( found.all(), groups() );
}

// ---- What was learnt

Vxlan::TunnelLearnEvent const *
MacSources::tunnelLearnEvent( MacVlanPair pair ) const {
   if( in_.rmacInfoDir->tunnelLearnEvent()->event().empty() || !in_.vlanVniMap ||
       !pair.vlanId().value() ) {
      return nullptr;
   }
   auto const * vni = in_.vlanVniMap->vni().find( Bridging::VlanId( pair.vlanId().value() ) );
   return vni ? in_.rmacInfoDir->tunnelLearnEvent()->event().find( { pair.addr(), *vni } )
              : nullptr;
}

std::optional< MacEntry >
MacSources::reported( MacVlanPair pair, HobaTypes::MacAddressTableEntry const * record,
                      bool & learnedInHardware ) const {
   if( record && !isMacEntryLearned( record->entryType ) ) {
      record = nullptr;
   }
   auto const * event = tunnelLearnEvent( pair );
   if( event && !Pelt::VxlanIntfId::isVxlanIntfId( event->intf ) ) {
      event = nullptr;
   }
   learnedInHardware = false;
   if( event && !( record && record->learnTime > event->learnTime ) ) {
      auto entry = entryOf( pair, event->intf, Bridging::learnedRemoteMac, 0, event->learnTime );
      entry.swTunnelGroupId = SwTunnelGroupId( event->tunnelGroup );
      return entry;
   }
   if( !record ) {
      return std::nullopt;
   }
   learnedInHardware = record->learnedInHardware;
   auto entry = entryOf( pair, record->intf, record->entryType, 0, record->learnTime );
   entry.swTunnelGroupId = SwTunnelGroupId( record->tunnelId );
   return entry;
}

bool
MacSources::isClaimedBehind( MacVlanPair pair, Kiv::HashSet< Pelt::IntfId > const & intfs ) const {
   auto const isBehind = [ & ]( auto const * host ) {
      return host && ( intfs.has( host->intf ) || intfs.has( getParentIntfId( host->intf ) ) );
   };
   auto const fdb =
         in_.bridgingConfig && pair.vlanId().value()
               ? in_.bridgingConfig->fdbConfig( Bridging::VlanId( pair.vlanId().value() ) )
               : nullptr;
   return isBehind( fdb ? fdb->configuredHost().find( pair.addr() ) : nullptr ) ||
          isBehind( in_.dot1xHostTable ? in_.dot1xHostTable->hostEntry().find( pair ) : nullptr );
}

bool
MacSources::isLearnedInHardware( MacEntry const & entry ) const {
   bool isInHardware = false;
   auto const is = reported( entry.macEntry, record( entry.macEntry ), isInHardware );
   return isInHardware && isMacEntryLearned( entry.entryType ) && isSameMacPlace( *is, entry );
}

MacObstacle
MacSources::reportedObstacle( MacEntry const & entry ) const {
   auto const vlanId = entry.macEntry.vlanId();
   if( !entry.macEntry.isStation() ) {
      return macObstacleGroupAddress;
   }
   if( !entry.intf ) {
      return macObstacleNoIntf;
   }
   if( Bridging::isEntryTypeRemote( entry.entryType ) ) {
      if( isControllerClient() ) {
         return macObstacleControllerClient;
      }
      if( !hasVni( vlanId ) ) {
         return macObstacleNoVni;
      }
   } else if( isDot1xRestricted( entry.intf ) ) {
      return macObstacleDot1x;
   }
   if( hasVni( vlanId ) && in_.vlanConfigDir ) {
      auto const config = in_.vlanConfigDir->vlanConfig( Bridging::VlanId( vlanId.value() ) );
      if( config && config->primaryVlan().value() ) {
         ZTRACE( 5, "Learning mac addr ", entry.macEntry.addr(), " received on sec VLAN ", vlanId,
                 " (VNI ", in_.vlanVniMap->vni( Bridging::VlanId( vlanId.value() ) ),
                 ") in primary VLAN ", config->primaryVlan(), " ignoring learn event " );
         return macObstacleSecondaryVlan;
      }
   }
   return macObstacleNone;
}

// ---- Next hops

MacNextHop
MacSources::nextHop( MacEntry const & entry ) const {
   MacNextHop hop;
   auto const tuple = entry.l2RibObjTuple;
   if( !tuple ) {
      hop.intf = entry.intf;
      hop.swTunnelGroupId = entry.swTunnelGroupId;
      hop.nextHopId = entry.swTunnelGroupId.value();
      hop.obstacle = entry.swTunnelGroupId ? macObstacleNone : macObstacleNoObjTuple;
      return hop;
   }
   auto const * balance = in_.l2RibLoadBalanceOutput
                                ? in_.l2RibLoadBalanceOutput->loadBalance().find( tuple )
                                : nullptr;
   auto const first = balance && !balance->dest.empty() ? balance->dest.front() : tuple;
   auto const * dest = in_.l2RibDestOutput ? in_.l2RibDestOutput->dest().find( first ) : nullptr;
   if( !dest ) {
      hop.obstacle = macObstacleNoObjTuple;
      return hop;
   }
   hop.intf = dest->intf;
   hop.swTunnelGroupId = SwTunnelGroupId( dest->tunnelGroup );
   hop.isMpls = dest->kind == L2Rib::destMpls;
   hop.nextHopId = balance ? balance->nextHopId : dest->nextHopId;
   auto const * hwId = in_.objTupleToHwId ? in_.objTupleToHwId->hwId().find( tuple ) : nullptr;
   hop.hwId = hwId ? *hwId : 0;
   if( dest->kind == L2Rib::destDrop ) {
      hop.obstacle = macObstacleDropNextHop;
   } else if( !dest->intf ) {
      hop.obstacle = macObstacleNoObjTuple;
   } else if( hop.nextHopId == L2Rib::nextHopInvalid ) {
      ZTRACE( 2, entry.macEntry, " ignoring invalid nextHopId : ", hop.nextHopId );
      hop.obstacle = macObstacleNextHopInvalid;
   } else if( hop.nextHopId == L2Rib::nextHopUnresolved ) {
      hop.obstacle = macObstacleNextHopUnresolved;
   } else if( !hwId ) {
      hop.obstacle = macObstacleNoHwId;
   }
   return hop;
}

// ---- Conditions

bool
MacSources::isNonAgingMac( MacVlanPair pair ) const {
   return in_.nonAgingStatus && in_.nonAgingStatus->enabled() &&
          in_.nonAgingStatus->macEntriesHas( pair );
}

bool
MacSources::overlayRestarts() const {
   auto const & boot = *in_.rmacInfoDir->bootStatus();
   return boot.hitlessRestartInProgress() || !boot.remoteMacsReady();
}

bool
MacSources::isDot1xRestricted( Pelt::IntfId intf ) const {
   if( !in_.dot1xStatus || !in_.dot1xStatus->enabled() ) {
      return false;
   }
   auto const status = in_.dot1xStatus->intfStatus( intf );
   return status && ( status->hostMode() != Dot1x::multiHost || status->macBasedAuth() );
}

bool
MacSources::hasIntf( Pelt::IntfId intf ) const {
   auto const parent = getParentIntfId( intf );
   if( isPortChannel( parent ) ) {
      return context_->lagToPortHas( parent ) || context_->lagToPortConfigHas( parent ) ||
             context_->lagToLagTypeHas( parent );
   }
   return isCpuPort( parent ) || Pelt::VxlanIntfId::isVxlanIntfId( parent ) ||
          context_->intfHas( parent );
}

bool
MacSources::hasVni( Bridging::VlanIdOrNone vlanId ) const {
   return in_.vlanVniMap && vlanId.value() && !in_.vlanVniMap->vni().empty() &&
          in_.vlanVniMap->vniHas( Bridging::VlanId( vlanId.value() ) );
}

bool
MacSources::isControllerClient() const {
   if( in_.vxlanConfigDir ) {
      for( auto const & [ intf, config ] : in_.vxlanConfigDir->vxlanConfig() ) {
         if( config->controllerClient() ) {
            return true;
         }
      }
   }
   return false;
}

Bridging::VlanIdOrNone
MacSources::vlanOf( Vxlan::Vni vni ) const {
   if( vlanByVni_.empty() && in_.vlanVniMap ) {
      for( auto const & [ vlanId, its ] : in_.vlanVniMap->vni() ) {
         vlanByVni_.tryEmplace( its, vlanId );
      }
   }
   auto const * vlanId = vlanByVni_.find( vni );
   return vlanId ? Bridging::VlanIdOrNone( vlanId->value() ) : Bridging::VlanIdOrNone();
}

} // namespace Hoba
