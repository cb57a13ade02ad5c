// SPDX-License-Identifier: Apache-2.0
#include "simulation/observers/MacObserver.h"

#include "simulation/observers/MacGenerator.h"
#include "simulation/observers/StationsObserver.h"

#include <algorithm>

namespace Simulation {

using Kiv::Datum;
using Kiv::String;
using Kiv::toText;
using Pelt::IntfId;

namespace {

String const machinePath = "/hoba/machines/mac/";
constexpr char remotesPath[] = "/sim/chip/mac/maxRemoteMacs";

// What operators and other agents say, and what the machine publishes.
constexpr std::string_view mine[] = { "/bridging/config",
                                      "/bridging/status",
                                      "/bridging/dynHostStatus",
                                      "/bridging/flush",
                                      "/bridging/vlanConfig",
                                      "/bridging/switchIntfConfig",
                                      "/mlag",
                                      "/l2rib",
                                      "/vxlan",
                                      "/hoba/swTunnelGroupIdMap",
                                      "/hoba/routerMac",
                                      "/dot1x",
                                      "/fsf",
                                      "/feeders/config/evpnMac",
                                      "/feeders/config/hwId",
                                      "/feeders/config/hwIdDelay",
                                      remotesPath };

String
fieldOf( Datum const & row, std::string_view name ) {
   auto const * const found = row.find( name );
   return found ? Kiv::datumText( *found ) : "";
}

} // namespace

MacObserver::MacObserver( Switch & simulated, Observers & observers )
      : Observer( simulated, observers, "MAC addresses" ), model_( simulated ),
        faults_( { "/sim/chip/mac/hostTable" } ) {
   simulated.watch( machinePath + "initialized", [ this ] { lookForMachine(); } );
   for( auto const * path :
        { "/bridging", "/mlag", "/l2rib", "/vxlan", "/dot1x", "/fsf", "/hoba/macTable",
          "/hoba/routerMac", "/hoba/nonAging/status", "/hoba/objTupleToHwId",
          "/hoba/swTunnelGroupIdMap", "/hoba/machines/mac", "/feeders/config/evpnMac",
          "/hoba/common/intf", "/hoba/common/lagToPort", "/interface/status",
          "/hoba/common/lagToPortConfig", "/hoba/common/lagToLagType" } ) {
      simulated.watch( path, [ this ] { hear(); } );
   }
}

// ---- What happens to stations

void
MacObserver::prepare( Draw & draw, Steps & steps ) {
   for( auto count = isDrawn ? draw.below( 30 ) : 0; count-- > 0; ) {
      proposeMac( draw, steps );
   }
}

void
MacObserver::propose( Draw & draw, Steps & steps ) {
   auto const kind = draw.below( 40 );
   auto const most = draw.oneOf( { "1", "2", "16384" } );
   if( kind == 0 ) {
      steps.push_back( wrongMacStep( draw ) );
   } else if( kind == 1 ) {
      steps.push_back( "set " + String( remotesPath ) + ' ' + most );
   } else {
      proposeMac( draw, steps );
   }
}

Steps
MacObserver::heal() {
   auto steps = faults_.heal();
   // Sweeps of ageing are too rare then to keep things from becoming quiet.
   auto const age = model_.bridging().hostAgingTime();
   if( age > 0 && age < 60 ) {
      steps.push_back( "set /bridging/config/hostAgingTime 300" );
   }
   return steps;
}

Observer::Verdict
MacObserver::judge( Step const & step ) const {
   bool const isLearning =
         ( step.isAt( "/feeders/config/vlan" ) &&
           ( step[ 1 ].ends_with( "/macLearning" ) || step[ 1 ].ends_with( "/primaryVlan" ) ) ) ||
         step[ 1 ].ends_with( "/enableLearning" );
   if( !isLearning &&
       std::ranges::none_of( mine, [ & ]( auto path ) { return step.isAt( path ); } ) ) {
      return notMine;
   }
   if( std::ranges::find( wrongMacSteps(), step ) != wrongMacSteps().end() ) {
      return refuses;
   }
   return verdict( step[ 0 ] == "set" || !simulated().get( step[ 1 ] ).isNull() );
}

void
MacObserver::heard( Step const & step, Datum const & ) {
   faults_.heard( step );
}

// ---- When the machine hears of what

void
MacObserver::lookForMachine() {
   bool const isThere = textAt( machinePath + "initialized" ) == "true";
   if( std::exchange( isHeard_, isThere ) == isThere || !isThere ) {
      return;
   }
   // It keeps what is in force, and looks at all that is said when its clock runs.
   stations_.clear();
   for( auto const & [ pair, entry ] : inForce() ) {
      stations_[ pair ].current = entry;
   }
   for( auto const & [ pair, said ] : model_.said() ) {
      auto & station = stations_[ pair ];
      station.said = said;
      // A server that failed while nobody looked: whether it is back by now the status knows.
      auto const & current = station.current;
      station.failedSince = !current                                    ? simulated().now()
                            : MacModel::isLearned( current->entryType ) ? 0
                                                                        : current->lastMoveTime;
   }
   adopted_ = stations_;
   moves_.clear();
   withheld_.clear();
   flushes_.clear();
   places_.clear();
   down_.clear();
   for( auto const & [ name, port ] : rowsAt( "/interface/status/ethPhyIntfStatus" ) ) {
      if( port.find( "linkDown" ) != String::npos ) {
         down_.insert( name );
      }
   }
   vlans_.clear();
   hear();
}

// As it is published.
std::map< MacObserver::Pair, MacObserver::Entry >
MacObserver::inForce() const {
   std::map< Pair, Entry > all;
   auto const status = simulated().entity< Bridging::Status >( "/bridging/status" );
   auto const remote =
         simulated().entity< HobaTypes::RemoteMacTable >( "/vxlan/remoteMacInfo/remoteHost" );
   for( auto const & [ vlan, database ] : status->fdbStatus() ) {
      for( auto const & [ addr, host ] : database->learnedHost() ) {
         Pair const pair( addr, vlan );
         Entry entry;
         if( remote->remoteMacHas( pair ) ) {
            entry = remote->remoteMac( pair );
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

void
MacObserver::hear() {
   if( !isHeard_ || std::exchange( isHearing_, true ) ) {
      return;
   }
   hearFlushes();
   hearPlaces();
   auto const all = model_.said();
   for( auto const & [ pair, said ] : all ) {
      saidIs( pair, said );
   }
   for( auto const & [ pair, station ] : std::map( stations_ ) ) {
      if( !all.contains( pair ) ) {
         saidIs( pair, {} );
      }
   }
   decided();
   isHearing_ = false;
}

void
MacObserver::saidIs( Pair pair, MacModel::Said const & said ) {
   auto & station = stations_[ pair ];
   if( station.said == said ) {
      return;
   }
   if( station.said.macTable != said.macTable || station.said.tunnel != said.tunnel ) {
      station.isLost = false;
      sinceGone_.insert( pair );
   }
   if( said.failed && said.failed != station.said.failed ) {
      station.failedSince = simulated().now();
   }
   // What goes with its VXLAN interface goes at once for many: that is a walk.
   auto without = station.said;
   without.remote = said.remote;
   bool const isWalk =
         without == said && std::ranges::any_of( station.said.remote, [ & ]( auto const & each ) {
            return !model_.vxlan().vxlanConfigHas( Pelt::VxlanIntfId( IntfId( each.first ) ) );
         } );
   station.said = said;
   if( !isWalk ) {
      evaluate( pair );
   }
}

void
MacObserver::evaluate( Pair pair ) {
   auto & station = stations_[ pair ];
   auto const now = simulated().now();
   auto const verdict = model_.evaluate( pair, station, now );
   station.isLost = verdict.isLost;
   station.current = verdict.entry;
   auto & held = withheld_[ pair ];
   if( held.obstacle != verdict.obstacle ) {
      held = { verdict.obstacle, now };
   }
}

// ---- Flushes

void
MacObserver::hearFlushes() {
   auto const dirs =
         simulated().entity< Bridging::AllHostTableFlushRequestDir >( "/bridging/flush/request" );
   std::map< FlushKey, Bridging::HostTableFlushRequest > asked;
   for( auto const & [ agent, dir ] : dirs->agent() ) {
      for( auto const & [ key, request ] : dir->request() ) {
         asked[ { agent, key } ] = request;
      }
   }
   std::erase_if( flushes_, [ & ]( auto const & each ) { return !asked.contains( each.first ); } );
   for( auto const & [ key, request ] : asked ) {
      auto const known = flushes_.find( key );
      if( known == flushes_.end() || known->second.what != request ) {
         // One that a former machine has answered is over.
         bool const isDone = textAt( "/bridging/flush/reply/agent/" + key.first + "/reply/" +
                                     key.second ) == "true";
         flushes_[ key ] = { request, isDone };
      }
   }
}

void
MacObserver::hearPlaces() {
   // A port that is there and learns; a LAG that has active members and learns.
   std::set< IntfId > places;
   for( auto const & [ name, value ] : rowsAt( "/hoba/common/intf" ) ) {
      places.insert( IntfId( name ) );
   }
   for( auto const & [ name, list ] : rowsAt( "/hoba/common/lagToPort" ) ) {
      if( list.find( "Ethernet" ) != String::npos ) {
         places.insert( IntfId( name ) );
      }
   }
   std::erase_if( places, [ & ]( IntfId intf ) { return !model_.learnsOnPort( intf ); } );
   // A link that went down.
   auto const lagOf = rowsAt( "/hoba/common/portToLag" );
   for( auto const & [ name, port ] : rowsAt( "/interface/status/ethPhyIntfStatus" ) ) {
      bool const isDown = port.find( "linkDown" ) != String::npos;
      if( isDown && down_.insert( name ).second && !lagOf.contains( name ) ) {
         gone_.insert( IntfId( name ) );
      } else if( !isDown ) {
         down_.erase( name );
      }
   }
   std::ranges::set_difference( places_, places, std::inserter( gone_, gone_.end() ) );
   if( places_ != places ) {
      sinceGone_.clear();
   }
   places_ = places;
   std::set< Bridging::VlanId > vlans;
   auto const dir = simulated().entity< Bridging::VlanConfigDir >( "/bridging/vlanConfig" );
   for( auto const & [ vlan, config ] : dir->vlanConfig() ) {
      if( config->macLearning() ) {
         vlans.insert( vlan );
      }
   }
   std::ranges::set_difference( vlans_, vlans, std::inserter( goneVlans_, goneVlans_.end() ) );
   vlans_ = vlans;
}

bool
MacObserver::isFlushed( Pair pair ) const {
   auto const & station = stations_.at( pair );
   if( ( station.current && gone_.contains( station.current->intf ) &&
         !sinceGone_.contains( pair ) ) ||
       goneVlans_.contains( Bridging::VlanId( pair.vlanId().value() ) ) ) {
      return true;
   }
   return std::ranges::any_of( flushes_, [ & ]( auto const & each ) {
      auto const & what = each.second.what;
      if( each.second.isDone ) {
         return false;
      }
      bool const isIn = what.vlanId.value() == 0 || what.vlanId == pair.vlanId();
      if( !what.addr.isZero() ) {
         return isIn && what.addr == pair.addr();
      }
      if( what.intf ) {
         return isIn && model_.isThere( what.intf ) && station.current &&
                station.current->intf == what.intf;
      }
      return isIn;
   } );
}

void
MacObserver::forget( Pair pair ) {
   auto & station = stations_[ pair ];
   if( station.current && MacModel::isLearned( station.current->entryType ) &&
       !station.said.isNonAging ) {
      station.isLost = true;
      evaluate( pair );
   }
}

// ---- What it has decided

String
MacObserver::textOf( std::optional< Entry > const & entry ) {
   return entry ? toText( entry->intf ) + ' ' + toText( entry->entryType ) + ' ' +
                        toText( entry->dropMode ) + ", moves " + toText( entry->moveCount ) +
                        ", last " + toText( entry->lastMoveTime )
                : "nothing";
}

std::map< MacObserver::Pair, String >
MacObserver::decidedRows() const {
   std::map< Pair, String > rows;
   auto const status = simulated().entity< Bridging::Status >( "/bridging/status" );
   for( auto const & [ vlan, database ] : status->fdbStatus() ) {
      for( auto const & [ addr, host ] : database->learnedHost() ) {
         rows[ Pair( addr, vlan ) ] = toText( host.intf ) + ' ' + toText( host.entryType ) + ' ' +
                                      toText( host.dropMode ) + ", moves " + toText( host.moves ) +
                                      ", last " + toText( host.lastMoveTime );
      }
   }
   for( auto const * list : { "refusedList", "updateList" } ) {
      auto const datum = simulated().get( machinePath + list );
      auto const * const changes = datum.as< Datum::Object >();
      if( !changes ) {
         continue;
      }
      for( auto const & [ key, change ] : *changes ) {
         auto const action = fieldOf( change, "action" );
         auto const pair = Pair::parse( key );
         if( action == "removeFromFdbStatusAndHardware" || action == "ignoreLearnt" ) {
            rows.erase( pair );
         } else {
            rows[ pair ] = fieldOf( change, "intf" ) + ' ' + fieldOf( change, "entryType" ) + ' ' +
                           fieldOf( change, "dropMode" ) + ", moves " + fieldOf( change, "moves" ) +
                           ", last " + fieldOf( change, "lastMoveTime" );
         }
      }
   }
   return rows;
}

void
MacObserver::hearMoves() {
   auto const status = simulated().entity< Bridging::Status >( "/bridging/status" );
   std::map< Pair, IntfId > now;
   for( auto const & [ vlan, database ] : status->fdbStatus() ) {
      for( auto const & [ addr, host ] : database->learnedHost() ) {
         Pair const pair( addr, vlan );
         now[ pair ] = host.intf;
         auto const before = inForce_.find( pair );
         bool const isFailure =
               Pelt::CpuIntfId::isCpuIntfId( host.intf ) && stations_[ pair ].said.failed;
         if( before != inForce_.end() && before->second != host.intf && !isFailure ) {
            moves_.push_back( Kiv::datumText(
                  Datum::Object{ { "macEntry", toText( pair ) },
                                 { "from", toText( before->second ) },
                                 { "to", toText( host.intf ) },
                                 { "time", Kiv::toDatum( simulated().now() ) },
                                 { "moves", Kiv::toDatum( host.moves.value() ) } } ) );
         }
      }
   }
   inForce_ = now;
}

void
MacObserver::decided() {
   hearMoves();
   auto const rows = decidedRows();
   for( auto const & [ pair, station ] : std::map( stations_ ) ) {
      auto const row = rows.contains( pair ) ? rows.at( pair ) : "nothing";
      if( std::exchange( decided_[ pair ], row ) == row || row == textOf( station.current ) ) {
         continue;
      }
      evaluate( pair );
      if( row != textOf( stations_[ pair ].current ) && isFlushed( pair ) ) {
         forget( pair );
      }
   }
}

void
MacObserver::timeIs( Kiv::Seconds ) {
   hear();
   if( !isHeard_ ) {
      return;
   }
   auto const rows = decidedRows();
   for( auto const & [ pair, before ] : std::map( stations_ ) ) {
      auto const row = rows.contains( pair ) ? rows.at( pair ) : "nothing";
      if( isFlushed( pair ) ) {
         forget( pair );
      }
      evaluate( pair );
      if( auto const wanted = textOf( stations_[ pair ].current ); wanted != row ) {
         found( toText( pair ) + " is decided to be " + row + ", and must be " + wanted );
      }
   }
   for( auto const & [ pair, row ] : rows ) {
      if( !stations_.contains( pair ) ) {
         found( toText( pair ) + " is decided to be " + row + ", and nobody ever spoke of it" );
      }
   }
   for( auto & [ key, flush ] : flushes_ ) {
      flush.isDone = true;
   }
   gone_.clear();
   sinceGone_.clear();
   goneVlans_.clear();
}

StationRow
MacObserver::rowOf( Entry const & entry ) const {
   StationRow row;
   row.intf = entry.intf;
   row.entryType = entry.entryType;
   row.dropMode = entry.dropMode;
   if( Bridging::isEntryTypeRemote( entry.entryType ) ) {
      row.l2RibObjTuple = entry.l2RibObjTuple;
      row.swTunnelGroupId = entry.swTunnelGroupId.value();
      row.nextHopId = model_.nextHopId( entry );
      row.hwId = model_.hwId( entry );
      row.isMplsNextHop = entry.isMplsNextHop;
   } else {
      auto const known = stations_.find( entry.macEntry );
      bool const isNonAging = known != stations_.end() && known->second.said.isNonAging;
      row.ages = MacModel::isLearned( entry.entryType ) && !isNonAging;
   }
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
   timeIs( simulated().now() ); // what is little is looked at at once
   // What only events told is forgotten with the machine that heard them.
   restartWrites_ = 0;
   for( auto const & [ pair, station ] : adopted_ ) {
      auto const & now = stations_[ pair ].current;
      bool const isWritten = station.current && !MacModel::isLearned( station.current->entryType );
      if( isWritten && ( !now || !isSame( rowOf( *station.current ), rowOf( *now ) ) ) ) {
         ++restartWrites_;
      }
   }
}

void
MacObserver::verifyItems( Items & items ) const {
   // What is decided and not done is not compared.
   std::size_t count = 0, compared = 0, mismatches = 0, remotes = 0, remotesFound = 0;
   String first;
   auto const mismatch = [ & ]( String const & text ) { first = ++mismatches == 1 ? text : first; };
   auto const & rows = observers().find< StationsObserver >().rows();
   for( auto const & [ pair, row ] : rows ) {
      remotesFound += !row.byChip && Pelt::VxlanIntfId::isVxlanIntfId( row.intf );
   }
   auto const status = simulated().entity< Bridging::Status >( "/bridging/status" );
   for( auto const & [ vlan, database ] : status->fdbStatus() ) {
      for( auto const & [ addr, host ] : database->learnedHost() ) {
         remotes += Bridging::isEntryTypeRemote( host.entryType );
      }
   }
   if( remotes != remotesFound ) {
      mismatch( toText( remotes ) + " remote stations expected, " + toText( remotesFound ) +
                " found" );
   }
   auto const refused = rowsAt( machinePath + "refusedList" );
   auto const waiting = rowsAt( machinePath + "updateList" );
   auto const & stations = observers().find< StationsObserver >();
   auto const entries = inForce();
   for( auto const & [ vlan, database ] : status->fdbStatus() ) {
      for( auto const & [ addr, host ] : database->learnedHost() ) {
         Pair const pair( addr, vlan );
         ++count;
         if( refused.contains( toText( pair ) ) || waiting.contains( toText( pair ) ) ) {
            continue;
         }
         ++compared;
         auto const wanted = rowOf( entries.at( pair ) );
         auto const is = stations.entry( pair );
         if( !is || !isSame( *is, wanted ) ) {
            mismatch( toText( pair ) + ": " + entryText( wanted ) + " expected, " +
                      entryText( is ) + " found" );
         }
      }
   }
   items.emplace_back( "MAC addresses, " + toText( compared ) + " of " + toText( count ) +
                             " compared",
                       mismatches == 0   ? "ok"
                       : mismatches == 1 ? first
                                         : first + "; and " + toText( mismatches - 1 ) + " more" );
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
   for( auto const & [ pair, station ] : stations_ ) {
      auto const & entry = station.current;
      if( !entry || !Bridging::isEntryTypeRemote( entry->entryType ) ) {
         continue;
      }
      HobaTypes::RemoteHostStatus row;
      row.macEntry = pair;
      row.nextHopId = model_.nextHopId( *entry );
      row.hwId = model_.hwId( *entry );
      status[ toText( pair ) ] = Kiv::datumText( Kiv::toDatum( row ) );
      // What a source is worth is its own matter.
      auto host = *entry;
      host.preference = 0;
      host.promote = false;
      hosts[ toText( pair ) ] = Kiv::datumText( Kiv::toDatum( host ) );
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
      if( !row.byChip && ( known == stations_.end() || !known->second.current ) ) {
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
         if( !isLearned || station.said.isNonAging ) {
            found( "the chip lacks " + toText( pair ) + ", which is " + textOf( entry ) );
         }
         continue;
      }
      // An event that was put in says something else than what the chip learnt.
      auto const & report = station.said.macTable;
      if( isLearned && row->second.byChip && report && report->intf != row->second.intf ) {
         continue;
      }
      if( !isSame( row->second, rowOf( entry ) ) ) {
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
   expectRows( machinePath + "updateList", {} );
   expectRows( machinePath + "refusedList", {} );
   expectText( machinePath + "firstPassDone", "true" );
   expectText( machinePath + "flushAll", "false" );
   expectText( machinePath + "moveCount", toText( moves_.size() ) );
   auto const log = simulated().get( machinePath + "moveLog" );
   std::vector< String > moves;
   if( auto const * const array = log.as< Datum::Array >() ) {
      for( auto const & move : *array ) {
         moves.push_back( Kiv::datumText( move ) );
      }
   } else if( auto const * const object = log.as< Datum::Object >() ) {
      for( auto const & [ key, move ] : *object ) {
         moves.push_back( Kiv::datumText( move ) );
      }
   }
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
   expectRows( machinePath + "withheld", withheld );
}

SIMULATION_OBSERVER( MacObserver );

} // namespace Simulation
