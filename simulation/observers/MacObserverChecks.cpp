// SPDX-License-Identifier: Apache-2.0
#include "simulation/observers/MacObserver.h"

#include "simulation/MacPipeline.h"

#include <algorithm>

// What must be, given what is decided: the chip, what a restart writes, what verification says, all that is published.

namespace Simulation {

using Kiv::Datum;
using Kiv::String;
using Kiv::toText;
using Pelt::IntfId;

StationRow
MacObserver::rowOf( MacModel::Station const & station, Entry const & entry ) const {
   StationRow row;
   row.intf = entry.intf;
   row.entryType = entry.entryType;
   row.dropMode = entry.dropMode;
   if( Bridging::isEntryTypeRemote( entry.entryType ) ) {
      row.l2RibObjTuple = entry.l2RibObjTuple;
      row.swTunnelGroupId = entry.swTunnelGroupId.value();
      row.nextHopId = station.way.nextHopId;
      row.hwId = station.way.hwId;
      row.isMplsNextHop = entry.isMplsNextHop;
   }
   auto const & said = station.said;
   bool const isHardwares = Bridging::isEntryTypeRemote( entry.entryType )
                                  ? model_.isInHardware( entry, said )
                                  : MacModel::isLearned( entry.entryType );
   row.ages = isHardwares && !said.isNonAging;
   return row;
}

namespace {

// As verification tells it.
String
entryText( std::optional< StationRow > const & row ) {
   if( !row ) {
      return "nothing";
   }
   auto text = "behind " + ( row->intf ? toText( row->intf ) : "no interface" ) + ", " +
               toText( row->entryType );
   text += row->dropMode ? ", " + toText( row->dropMode ) : "";
   text += row->swTunnelGroupId ? ", tunnel group " + toText( row->swTunnelGroupId ) : "";
   text += row->l2RibObjTuple ? ", " + toText( row->l2RibObjTuple ) : "";
   text += row->nextHopId ? ", next hop " + toText( row->nextHopId ) : "";
   text += row->hwId ? ", hardware id " + toText( row->hwId ) : "";
   text += row->isMplsNextHop ? ", MPLS" : "";
   text += row->ages ? ", ages" : "";
   return text + ( row->byChip ? ", learnt by the chip" : "" );
}

// In all that software can write.
bool
isSame( StationRow const & a, StationRow b ) {
   b.byChip = a.byChip;
   b.heardIn = a.heardIn;
   b.flushes = a.flushes;
   return a == b;
}

} // namespace

void
MacObserver::began( HobaAgent::RestartKind ) {
   lookForMachine();
   lookAtAll( false ); // what is little is looked at at once
   restartWrites_ = 0;
   for( auto const & [ pair, before ] : adopted_ ) {
      restartWrites_ += isWritten( pair, before );
   }
}

// Whether the machine has to write to the chip, or remove, what was in force when it began. What only events told is
// forgotten with the machine that heard them.
bool
MacObserver::isWritten( Pair pair, MacModel::Station const & before ) const {
   auto const & station = stations_.at( pair );
   auto const held = adoptedRows_.find( pair );
   auto const * const row = held == adoptedRows_.end() ? nullptr : &held->second;
   if( !station.current ) {
      bool const wasProgrammed =
            before.current && !MacModel::isLearned( before.current->entryType );
      return wasProgrammed && row && !row->byChip;
   }
   // What the chip learnt by itself is left to it.
   bool const isHardwares = MacModel::isLearned( station.current->entryType ) &&
                            model_.isInHardware( *station.current, station.said ) &&
                            !station.said.isNonAging &&
                            ( !before.current || MacModel::isLearned( before.current->entryType ) );
   return !isHardwares && ( !row || !isSame( *row, rowOf( station, *station.current ) ) );
}

MacObserver::Verification
MacObserver::verification() const {
   Verification is;
   MacPipeline const pipeline( simulated() );
   bool const isLanding = textAt( "/sim/chip/mac/hostTable/landing" ) != "0";
   auto const mismatch = [ & ]( String const & text, bool isOpen ) {
      is.isOpen = is.isOpen || isOpen;
      if( !isOpen ) {
         is.first = ++is.mismatches == 1 ? text : is.first;
      }
   };
   auto const & stations = observers().find< StationsObserver >();
   std::size_t const remotes = model_.programmed().remoteHostStatus().size();
   auto const remotesFound = static_cast< std::size_t >(
         std::ranges::count_if( stations.rows(), []( auto const & each ) {
            return !each.second.byChip && Pelt::VxlanIntfId::isVxlanIntfId( each.second.intf );
         } ) );
   bool const isUnderWay = isLanding || pipeline.anyUnderWay();
   // Those that wait, or have failed, are looked at one by one; what a lost flush has taken nobody knows.
   auto const difference = std::max( remotes, remotesFound ) - std::min( remotes, remotesFound );
   bool const isKnown = difference <= pipeline.unfinished() || pipeline.hasFlush();
   if( remotes != remotesFound && ( isUnderWay || !isKnown ) ) {
      mismatch( toText( remotes ) + " remote stations expected, " + toText( remotesFound ) +
                      " found",
                isUnderWay );
   }
   auto const refused = rowsAt( MacModel::ofMachine( "refusedList" ) );
   auto const waiting = rowsAt( MacModel::ofMachine( "updateList" ) );
   auto const entries = model_.inForce();
   auto const status = simulated().entity< Bridging::Status >( "/bridging/status" );
   for( auto const & [ vlan, database ] : status->fdbStatus() ) {
      for( auto const & [ addr, host ] : database->learnedHost() ) {
         Pair const pair( addr, vlan );
         ++is.stations;
         // What is decided and not done is not compared.
         if( refused.contains( toText( pair ) ) || waiting.contains( toText( pair ) ) ) {
            continue;
         }
         ++is.compared;
         auto const known = stations_.find( pair );
         auto station = known == stations_.end() ? MacModel::Station() : known->second;
         // As it was programmed.
         station.way = {};
         if( auto const & programmed = model_.programmed();
             programmed.remoteHostStatusHas( pair ) ) {
            auto const & way = programmed.remoteHostStatus( pair );
            station.way = { way.nextHopId, way.hwId };
         }
         auto const wanted = rowOf( station, entries.at( pair ) );
         auto const found = stations.entry( pair );
         auto const way = pipeline.wayOf( pair );
         if( ( !found || !isSame( *found, wanted ) ) && way != MacPipeline::waits ) {
            mismatch( toText( pair ) + ": " + entryText( wanted ) + " expected, " +
                            entryText( found ) + " found",
                      isLanding || way == MacPipeline::underWay || pipeline.isFlushUnderWay() );
         }
      }
   }
   return is;
}

bool
MacObserver::cannotVerifyYet() const {
   return verified_.isOpen;
}

void
MacObserver::verifyItems( Items & items ) const {
   auto const & is = verified_;
   auto const mismatches = is.mismatches;
   items.emplace_back(
         "MAC addresses, " + toText( is.compared ) + " of " + toText( is.stations ) + " compared",
         mismatches == 0   ? "ok"
         : mismatches == 1 ? is.first
                           : is.first + "; and " + toText( mismatches - 1 ) + " more" );
}

// ---- What must be

void
MacObserver::check() {
   if( !isHeard_ ) {
      return found( "there is no machine" );
   }
   checkStatus();
   checkOverlay();
   checkChip();
   checkLearning();
   checkMachine();
   checkFeeders();
}

void
MacObserver::checkStatus() {
   Rows dynamic;
   for( auto const & [ pair, station ] : stations_ ) {
      if( station.current && station.current->entryType == Bridging::configuredDynamicMac &&
          station.said.configured && station.said.configured->intf == station.current->intf ) {
         dynamic[ toText( pair ) ] = toText( station.current->intf );
      }
   }
   expectRows( "/bridging/dynHostStatus/host", dynamic );
   std::map< String, Rows > replies;
   for( auto const & [ key, flush ] : flushes_ ) {
      replies[ key.first ][ key.second ] = "true";
   }
   for( auto const & [ agent, rows ] : replies ) {
      expectRows( "/bridging/flush/reply/agent/" + agent + "/reply", rows );
   }
}

void
MacObserver::checkOverlay() {
   Rows hosts, status;
   std::map< std::uint32_t, std::uint64_t > nexts;
   std::map< String, std::uint64_t > vlans;
   auto const & inChip = observers().find< StationsObserver >().rows();
   for( auto const & [ pair, station ] : stations_ ) {
      auto const & entry = station.current;
      if( !entry || !Bridging::isEntryTypeRemote( entry->entryType ) ) {
         continue;
      }
      // What a source is worth is its own matter.
      auto host = *entry;
      host.preference = 0;
      host.promote = false;
      if( !Bridging::isEntryTypePeer( entry->entryType ) ||
          !model_.mlag().fastMacRedirectionEnabled() ) {
         hosts[ toText( pair ) ] = Kiv::datumText( Kiv::toDatum( host ) );
      }
      auto const held = inChip.find( pair );
      // An event that was put in may say so while the chip has it here.
      bool const isHardwares =
            held == inChip.end()
                  ? model_.isInHardware( *entry, station.said )
                  : held->second.byChip || !Pelt::VxlanIntfId::isVxlanIntfId( held->second.intf );
      if( isHardwares ) {
         continue; // nothing is programmed
      }
      HobaTypes::RemoteHostStatus row;
      row.macEntry = pair;
      row.nextHopId = station.way.nextHopId;
      row.hwId = station.way.hwId;
      status[ toText( pair ) ] = Kiv::datumText( Kiv::toDatum( row ) );
      if( row.nextHopId ) {
         ++nexts[ row.nextHopId ];
      }
      ++vlans[ toText( pair.vlanId() ) ];
   }
   String const info = "/vxlan/remoteMacInfo/";
   expectRows( info + "remoteHost/remoteMac", hosts );
   expectRows( info + "remoteHostStatus/remoteHostStatus", status );
   expectRows( info + "nextHopIdRefcount/refcount", rowsOf( nexts ) );
   expectRows( info + "vlanRefcount/refcount", rowsOf( vlans ) );
   expectRows( "/hoba/evpnMac/remoteMac", rowsAt( "/feeders/config/evpnMac" ) );
}

void
MacObserver::checkChip() {
   auto const & rows = observers().find< StationsObserver >().rows();
   for( auto const & [ pair, row ] : rows ) {
      auto const known = stations_.find( pair );
      bool const isInForce = known != stations_.end() && known->second.current;
      // What an event that was put in said to be elsewhere is the chip's still.
      auto const report = known == stations_.end() ? nullptr : &known->second.said.macTable;
      bool const isElsewhere = report && !( *report && ( *report )->intf == row.intf );
      // What is ignored is left to it.
      constexpr std::string_view ignoring[] = { "dot1x", "controller client", "VNI",
                                                "secondary VLAN" };
      auto const held = withheld_.find( pair );
      bool const isIgnored =
            held != withheld_.end() &&
            std::ranges::find( ignoring, held->second.obstacle ) != std::end( ignoring );
      bool const isChips =
            row.byChip || ( StationsObserver::isChips( row ) && ( isElsewhere || isIgnored ) );
      if( !isInForce && !isChips ) {
         found( "the chip has " + toText( pair ) + " behind " + toText( row.intf ) +
                ", which is not in force" );
      }
   }
   for( auto const & [ pair, station ] : stations_ ) {
      if( !station.current ) {
         continue;
      }
      auto const & entry = *station.current;
      bool const isLearned = MacModel::isLearned( entry.entryType );
      auto const row = rows.find( pair );
      if( row == rows.end() ) {
         // What only an event told the chip need not have.
         if( !model_.isInHardware( entry, station.said ) || station.said.isNonAging ) {
            found( "the chip lacks " + toText( pair ) + ", which is " + textOf( entry ) );
         }
         continue;
      }
      // An event that was put in says something else than what the chip learnt.
      auto const & report = station.said.macTable;
      if( isLearned && StationsObserver::isChips( row->second ) && report &&
          report->intf != row->second.intf ) {
         continue;
      }
      if( !isSame( row->second, rowOf( station, entry ) ) ) {
         found( "the chip has " + toText( pair ) + " as " +
                Kiv::datumText( Kiv::toDatum( row->second ) ) + ", and must as " +
                textOf( entry ) );
      }
   }
}

void
MacObserver::checkLearning() {
   Rows ports, vlans;
   auto spokenOf = rowsAt( "/bridging/switchIntfConfig/switchIntfConfig" );
   spokenOf.merge( rowsAt( "/dot1x/status/intfStatus" ) );
   spokenOf[ toText( model_.mlag().peerLinkIntf() ) ];
   for( auto const & [ intf, text ] : spokenOf ) {
      if( !intf.empty() && !model_.learnsOnPort( IntfId( intf ) ) ) {
         ports[ intf ] = "false";
      }
   }
   for( auto const & [ vlan, text ] : rowsAt( "/bridging/vlanConfig/vlanConfig" ) ) {
      if( !model_.learnsOnVlan( Kiv::fromText< Bridging::VlanId >( vlan ) ) ) {
         vlans[ vlan ] = "false";
      }
   }
   expectRows( "/sim/chip/mac/intfLearning", ports );
   expectRows( "/sim/chip/mac/vlanLearning", vlans );
   Rows settings;
   auto const & config = model_.bridging();
   if( config.hostAgingTime() != 0 ) {
      settings[ "agingTime" ] = toText( config.hostAgingTime() );
   }
   if( config.sourceMacInvalid() ) {
      settings[ "sourceMacInvalid" ] = "1";
   }
   if( config.sourceCheckCpuMac() ) {
      settings[ "sourceCheckCpuMac" ] = "1";
   }
   expectRows( "/sim/chip/mac/setting", settings );
}

void
MacObserver::checkMachine() {
   expectRows( MacModel::ofMachine( "updateList" ), {} );
   expectRows( MacModel::ofMachine( "refusedList" ), {} );
   expectText( MacModel::ofMachine( "firstPassDone" ), "true" );
   expectText( MacModel::ofMachine( "flushAll" ), "false" );
   expectText( MacModel::ofMachine( "moveCount" ), toText( moves_.size() ) );
   auto const log = simulated().get( MacModel::ofMachine( "moveLog" ) );
   std::vector< String > moves;
   Kiv::Seconds last = 0;
   for( auto const & move : *log.as< Datum::Array >() ) {
      auto const time = Kiv::fromDatum< Kiv::Seconds >( *move.find( "time" ) );
      if( time < std::exchange( last, time ) ) {
         found( "the log of moves goes back in time" );
      }
      moves.push_back( Kiv::datumText( move ) );
   }
   // Who moved first of several at once nobody can tell.
   std::ranges::sort( moves );
   std::ranges::sort( moves_ );
   if( moves != moves_ && moves_.size() <= 1000 ) {
      found( "the log of moves ends with " + ( moves.empty() ? "nothing" : moves.back() ) +
             ", and must with " + ( moves_.empty() ? "nothing" : moves_.back() ) );
   }
   Rows withheld;
   for( auto const & [ pair, held ] : withheld_ ) {
      if( !held.obstacle.empty() ) {
         withheld[ toText( pair ) ] =
               "{\"obstacle\": \"" + held.obstacle + "\", \"since\": " + toText( held.since ) + '}';
      }
   }
   expectRows( MacModel::ofMachine( "withheld" ), withheld );
   bool const isFull = programmed_ >= std::min( limit_, model_.limit() );
   for( auto const & [ pair, held ] : withheld_ ) {
      if( held.obstacle == "remote MAC limit" && !isFull ) {
         found( toText( pair ) + " waits, though there may be more behind the overlay" );
      }
   }
}

// What is derived of what agents say, and the machine goes by.
void
MacObserver::checkFeeders() {
   expectRows( "/bridging/switchIntfConfig/switchIntfConfig",
               rowsAt( "/feeders/config/switchIntf" ) );
   Rows ports, vlans, vnis, ids;
   for( auto const & [ name, port ] : rowsAt( "/feeders/config/port" ) ) {
      ports[ name ] =
            "{\"enabled\": " + textAt( "/feeders/config/port/" + name + "/enabled" ) + '}';
   }
   expectRows( "/interface/config/ethPhyIntfConfig", ports );
   for( auto const & [ vlan, status ] : rowsAt( "/hoba/common/vlanStatus" ) ) {
      auto const from = "/hoba/common/vlanStatus/" + vlan;
      if( textAt( from + "/active" ) == "true" ) {
         auto const asked = "/feeders/config/vlan/" + vlan;
         auto const to = "/bridging/vlanConfig/vlanConfig/" + vlan;
         vlans[ vlan ] = textAt( to );
         bool const isAsked = !simulated().get( asked ).isNull();
         expectText( to + "/macLearning", isAsked ? textAt( asked + "/macLearning" ) : "true" );
         expectText( to + "/primaryVlan", isAsked ? textAt( asked + "/primaryVlan" ) : "0" );
         expectRows( to + "/intf", rowsAt( from + "/intf" ) );
      }
   }
   expectRows( "/bridging/vlanConfig/vlanConfig", vlans );
   std::map< IntfId, Kiv::Ptr< Vxlan::VxlanConfig const > > overlay;
   for( auto const & [ intf, config ] : model_.vxlan().vxlanConfig() ) {
      overlay[ intf ] = config;
   }
   for( auto const & [ intf, config ] : overlay ) {
      for( auto const & [ vlan, vni ] : config->vlanVni() ) {
         vnis.emplace( toText( vlan ), toText( vni ) ); // the lowest interface counts
      }
   }
   expectRows( "/vxlan/vlanVniMap/vni", vnis );
   // Hardware ids: those that are late come when they are due.
   auto const due = rowsAt( "/hoba/machines/overlayFeeder/due" );
   for( auto const * list : { "/l2rib/destOutput/dest", "/l2rib/loadBalanceOutput/loadBalance" } ) {
      for( auto const & [ name, row ] : rowsAt( list ) ) {
         auto const tuple = L2Rib::ObjTuple::parse( name );
         auto const & asked = model_.feeders();
         auto const id = asked.hwIdHas( tuple ) ? asked.hwId( tuple )
                                                : std::uint64_t( tuple.kind ) << 32 | tuple.id;
         auto const late = due.find( name );
         if( late != due.end() &&
             Kiv::fromText< Kiv::Seconds >( late->second ) <= simulated().now() ) {
            found( "the hardware id of " + name + " does not come" );
         }
         if( id != 0 && late == due.end() ) {
            ids[ name ] = toText( id );
         }
      }
   }
   expectRows( "/hoba/objTupleToHwId/hwId", ids );
   checkMlagPorts();
}

void
MacObserver::checkMlagPorts() {
   auto const & mlag = model_.mlag();
   auto const portsOf = [ & ]( IntfId intf, Rows & ports ) {
      if( Pelt::EthIntfId::isEthIntfId( intf ) ) {
         ports[ toText( intf ) ] = "true";
      }
      for( auto const & [ port, text ] :
           rowsAt( "/hoba/common/lagToPortConfig/" + toText( intf ) + "/port" ) ) {
         ports[ port ] = "true";
      }
   };
   Rows peerLink, shared;
   if( mlag.state() != Mlag::mlagDisabled ) {
      if( mlag.peerLinkIntf() ) {
         portsOf( mlag.peerLinkIntf(), peerLink );
      }
      for( auto const & [ intf, state ] : mlag.mlagIntf() ) {
         if( state != Mlag::mlagIntfDisabled ) {
            portsOf( intf, shared );
         }
      }
   }
   expectRows( "/hoba/common/mlagPeerLinkPort", peerLink );
   expectRows( "/hoba/common/mlagIntfPort", shared );
}

} // namespace Simulation
