// SPDX-License-Identifier: Apache-2.0
#include "simulation/observers/MacObserver.h"

#include "agent/feeders/FlushClient.h"
#include "simulation/observers/MacGenerator.h"
#include "simulation/observers/StationsObserver.h"

#include <algorithm>

namespace Simulation {

using Kiv::Datum;
using Kiv::String;
using Kiv::toText;
using Pelt::IntfId;

namespace {

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

} // namespace

MacObserver::MacObserver( Switch & simulated, Observers & observers )
      : Observer( simulated, observers, "MAC addresses" ), model_( simulated ),
        faults_( { "/sim/chip/mac/hostTable" } ) {
   simulated.watch( MacModel::ofMachine( "initialized" ), [ this ] { lookForMachine(); } );
   // In the middle of a moment, perhaps.
   for( auto const * what : { "verify", "reverify" } ) {
      simulated.watch( String( "/hoba/common/verifyData/" ) + what,
                       [ this ] { verified_ = isHeard_ ? verification() : Verification(); } );
   }
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
   for( auto count = draw.below( 30 ); count-- > 0; ) {
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
   } else if( kind == 2 ) {
      faults_.propose( draw, steps );
   } else if( kind == 3 ) {
      proposeClear( draw, steps );
   } else {
      proposeMac( draw, steps );
   }
}

void
MacObserver::proposeClear( Draw & draw, Steps & steps ) const {
   auto const vlan = " vlan=" + draw.vlan(), port = " port=" + draw.intf();
   auto const mac = " mac=" + draw.station();
   String const all[] = { "", vlan, port, mac, vlan + port, mac + vlan, mac + port };
   steps.push_back( "clear mac" + all[ draw.below( std::size( all ) ) ] );
}

Steps
MacObserver::heal() {
   auto steps = faults_.heal();
   // Who is in force and has no room is tried for ever.
   if( model_.programmed().remoteHostStatus().size() > model_.limit() ) {
      steps.push_back( "set " + String( remotesPath ) + " 16384" );
   }
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
   if( step.begins( "clear mac" ) ) {
      return verdict( canClear( step ) );
   }
   if( faults_.isMine( step ) ) {
      return step.isAt( "/sim/chip/mac/hostTable/capacity" ) ? notMine : accepts;
   }
   if( !isLearning &&
       std::ranges::none_of( mine, [ & ]( auto path ) { return step.isAt( path ); } ) ) {
      return notMine;
   }
   if( std::ranges::find( wrongMacSteps(), step ) != wrongMacSteps().end() ) {
      return refuses;
   }
   return verdict( step[ 0 ] == "set" || !simulated().get( step[ 1 ] ).isNull() );
}

namespace {

// "port=Ethernet1" and the like, by name.
std::map< String, String >
argumentsOf( Step const & step ) {
   std::map< String, String > arguments;
   for( auto word = step.words().begin() + 2; word != step.words().end(); ++word ) {
      auto const end = word->find( '=' );
      arguments[ word->substr( 0, end ) ] = word->substr( end + 1 );
   }
   return arguments;
}

} // namespace

bool
MacObserver::canClear( Step const & step ) const {
   auto arguments = argumentsOf( step );
   auto const port = arguments[ "port" ];
   bool const isThere = port.empty() || rowsAt( "/feeders/config/port" ).contains( port ) ||
                        rowsAt( "/feeders/config/lag" ).contains( port );
   bool const isMember = !port.empty() && rowsAt( "/hoba/common/portToLag" ).contains( port );
   return simulated().isRunning() && isThere && !isMember &&
          ( port.empty() || arguments[ "mac" ].empty() );
}

void
MacObserver::heard( Step const & step, Datum const & ) {
   faults_.heard( step );
}

// ---- When the machine hears of what

void
MacObserver::lookForMachine() {
   bool const isThere = textAt( MacModel::ofMachine( "initialized" ) ) == "true";
   if( std::exchange( isHeard_, isThere ) == isThere || !isThere ) {
      return;
   }
   // It keeps what is in force, and looks at all that is said when its clock runs.
   stations_.clear();
   for( auto const & [ pair, entry ] : model_.inForce() ) {
      auto & station = stations_[ pair ];
      station.current = entry;
      if( model_.programmed().remoteHostStatusHas( pair ) ) {
         auto const & way = model_.programmed().remoteHostStatus( pair );
         station.way = { way.nextHopId, way.hwId };
      }
   }
   for( auto const & [ pair, said ] : model_.said() ) {
      auto & station = stations_[ pair ];
      station.said = said;
      // A server that failed while nobody looked: whether it is back by now the status knows.
      auto const & current = station.current;
      station.failedSince =
            current && Pelt::CpuIntfId::isCpuIntfId( current->intf ) ? current->lastMoveTime : 0;
   }
   adopted_ = stations_;
   adoptedRows_ = observers().find< StationsObserver >().rows();
   programmed_ = model_.programmed().remoteHostStatus().size();
   limit_ = model_.limit();
   moves_.clear();
   withheld_.clear();
   flushes_.clear();
   hearFlushes( true );
   gone_.clear();
   goneVlans_.clear();
   learning_.clear();
   places_.clear();
   links_.clear();
   vlans_.clear();
   hear();
}

void
MacObserver::hear() {
   if( !isHeard_ || std::exchange( isHearing_, true ) ) {
      return;
   }
   auto const programmed = model_.programmed().remoteHostStatus().size();
   bool const hasLeft = programmed < std::exchange( programmed_, programmed );
   limit_ = hasLeft ? model_.limit() : std::min( limit_, model_.limit() );
   hearFlushes( false );
   hearPlaces();
   hearLinks();
   hearLearning();
   auto const events = model_.tunnelEvents();
   bool const isTold = std::exchange( tunnelEvents_, events ) != events;
   auto const all = model_.said();
   for( auto const & [ pair, said ] : all ) {
      saidIs( pair, said, isTold );
   }
   for( auto const & [ pair, station ] : std::map( stations_ ) ) {
      if( !all.contains( pair ) ) {
         saidIs( pair, {}, isTold );
      }
   }
   decided();
   isHearing_ = false;
}

// `isTold`: events of tunnels came or went.
void
MacObserver::saidIs( Pair pair, MacModel::Said const & said, bool isTold ) {
   auto & station = stations_[ pair ];
   if( station.said == said ) {
      return;
   }
   if( station.said.macTable != said.macTable || station.said.tunnel != said.tunnel ) {
      station.isLost = false;
      for( auto & [ key, flush ] : flushes_ ) {
         flush.since.insert( pair );
      }
      for( auto & [ intf, since ] : gone_ ) {
         since.insert( pair );
      }
      for( auto & [ vlan, since ] : goneVlans_ ) {
         since.insert( pair );
      }
   }
   if( said.failed && said.failed != station.said.failed ) {
      station.failedSince = simulated().now();
   }
   // What goes with its VXLAN interface, or has another VLAN, does so at once for many: that is a walk.
   auto without = station.said;
   without.remote = said.remote;
   without.tunnel = said.tunnel;
   // Whether it ages is nothing to those that were not learnt.
   if( !( station.current && MacModel::isLearned( station.current->entryType ) ) ) {
      without.isNonAging = said.isNonAging;
   }
   bool const isGone = std::ranges::any_of( station.said.remote, [ & ]( auto const & each ) {
      return !model_.vxlan().vxlanConfigHas( Pelt::VxlanIntfId( IntfId( each.first ) ) );
   } );
   bool const isWalk = without == said && ( station.said.remote == said.remote || isGone ) &&
                       ( station.said.tunnel == said.tunnel || !isTold );
   station.said = said;
   if( !isWalk ) {
      evaluate( pair, true );
   }
}

void
MacObserver::evaluate( Pair pair, bool isNews ) {
   auto & station = stations_[ pair ];
   auto const now = simulated().now();
   auto const verdict = model_.evaluate( pair, station, now, isNews );
   station.isLost = verdict.isLost;
   station.current = verdict.entry;
   station.way = verdict.way;
   auto & held = withheld_[ pair ];
   if( held.obstacle != verdict.obstacle ) {
      held = { verdict.obstacle, now };
   }
}

// ---- Flushes

void
MacObserver::hearFlushes( bool begins ) {
   auto const dirs =
         simulated().entity< Bridging::AllHostTableFlushRequestDir >( "/bridging/flush/request" );
   std::map< FlushKey, Flush > asked;
   for( auto const & [ agent, dir ] : dirs->agent() ) {
      for( auto const & [ key, request ] : dir->request() ) {
         asked[ { agent, key } ].what = request;
      }
   }
   for( auto const & [ key, text ] : rowsAt( "/vxlan/remoteMacInfo/flushRequest/request" ) ) {
      asked[ { "", key } ].ofRemotes = Hoba::VXLAN::FlushReqKey::parse( key );
   }
   for( auto & [ key, flush ] : flushes_ ) {
      // The operator's go as soon as they are answered, and those of the overlay are answered by that.
      bool const goes = key.first == Feeders::FlushClient::name || flush.ofRemotes;
      if( !asked.contains( key ) && goes && !flush.isDone ) {
         flushed( flush );
      }
   }
   std::erase_if( flushes_, [ & ]( auto const & each ) { return !asked.contains( each.first ); } );
   for( auto const & [ key, request ] : asked ) {
      bool const isAnswered =
            textAt( "/bridging/flush/reply/agent/" + key.first + "/reply/" + key.second ) == "true";
      auto const known = flushes_.find( key );
      if( known == flushes_.end() || known->second.what != request.what ) {
         // One that a former machine has answered is over.
         flushes_[ key ] = request;
         flushes_[ key ].isDone = isAnswered && begins;
      } else if( isAnswered && !known->second.isDone ) {
         flushed( known->second );
      }
   }
}

// It has been carried out. What was reported while it was under way may have been spared, which shows.
void
MacObserver::flushed( Flush & flush ) {
   auto const rows = decidedRows();
   for( auto const & [ pair, station ] : std::map( stations_ ) ) {
      bool const isSpared = flush.since.contains( pair ) && rows.contains( pair ) &&
                            rows.at( pair ) == textOf( station.current );
      if( isIn( flush, pair ) && !isSpared ) {
         forget( pair );
      }
   }
   flush.isDone = true;
}

void
MacObserver::hearPlaces() {
   // A port that is there; a LAG that has active members.
   std::set< IntfId > places;
   for( auto const & [ name, value ] : rowsAt( "/hoba/common/intf" ) ) {
      places.insert( IntfId( name ) );
   }
   for( auto const & [ name, list ] : rowsAt( "/hoba/common/lagToPort" ) ) {
      if( list.find( "Ethernet" ) != String::npos ) {
         places.insert( IntfId( name ) );
      }
   }
   for( auto const intf : places_ ) {
      if( !places.contains( intf ) ) {
         gone_[ intf ].clear();
      }
   }
   places_ = places;
}

void
MacObserver::hearLinks() {
   auto const lagOf = rowsAt( "/hoba/common/portToLag" );
   std::map< String, bool > links;
   for( auto const & [ name, port ] : rowsAt( "/interface/status/ethPhyIntfStatus" ) ) {
      auto const known = links_.find( name );
      links[ name ] = port.find( "linkDown" ) != String::npos;
      if( known != links_.end() && !known->second && links[ name ] && !lagOf.contains( name ) ) {
         gone_[ IntfId( name ) ].clear();
      }
   }
   links_ = links;
}

void
MacObserver::hearLearning() {
   // What stations are behind, whether or not it is there, and learns no more.
   for( auto const intf : std::exchange( learning_, {} ) ) {
      if( !model_.learnsOnPort( intf ) ) {
         gone_[ intf ].clear();
      }
   }
   for( auto const & [ pair, station ] : stations_ ) {
      if( station.current && model_.learnsOnPort( station.current->intf ) ) {
         learning_.insert( station.current->intf );
      }
   }
   // A VLAN that learns no more, or is gone.
   std::map< Bridging::VlanId, bool > vlans;
   auto const dir = simulated().entity< Bridging::VlanConfigDir >( "/bridging/vlanConfig" );
   for( auto const & [ vlan, config ] : dir->vlanConfig() ) {
      vlans[ vlan ] = config->macLearning();
   }
   for( auto const & [ vlan, learnt ] : vlans_ ) {
      auto const now = vlans.find( vlan );
      if( now == vlans.end() || ( learnt && !now->second ) ) {
         goneVlans_[ vlan ].clear();
      }
   }
   vlans_ = vlans;
}

bool
MacObserver::isIn( Flush const & flush, Pair pair ) const {
   auto const & current = stations_.at( pair ).current;
   if( auto const & key = flush.ofRemotes ) {
      return current && Bridging::isEntryTypeRemote( current->entryType ) &&
             ( !key->vlanId.value() || key->vlanId == pair.vlanId() ) &&
             ( !key->swTunnelGroupId || key->swTunnelGroupId == current->swTunnelGroupId );
   }
   auto const & what = flush.what;
   bool const isInVlan = what.vlanId.value() == 0 || what.vlanId == pair.vlanId();
   if( !what.addr.isZero() ) {
      return isInVlan && what.addr == pair.addr();
   }
   return isInVlan && ( !what.intf ||
                        ( model_.isThere( what.intf ) && current && current->intf == what.intf ) );
}

bool
MacObserver::isGone( Pair pair ) const {
   auto const & station = stations_.at( pair );
   auto const isAmong = [ & ]( auto const & gone, auto key ) {
      auto const found = gone.find( key );
      return found != gone.end() && !found->second.contains( pair );
   };
   return ( station.current && isAmong( gone_, station.current->intf ) ) ||
          isAmong( goneVlans_, Bridging::VlanId( pair.vlanId().value() ) );
}

bool
MacObserver::isFlushed( Pair pair ) const {
   return isGone( pair ) || std::ranges::any_of( flushes_, [ & ]( auto const & each ) {
             return !each.second.isDone && isIn( each.second, pair );
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

namespace {

String
placeText( String const & intf, String const & type, String const & dropMode, String const & moves,
           String const & last ) {
   return intf + ' ' + type + ' ' + dropMode + ", moves " + moves + ", last " + last;
}

} // namespace

String
MacObserver::textOf( std::optional< Entry > const & entry ) {
   return entry ? placeText( toText( entry->intf ), toText( entry->entryType ),
                             toText( entry->dropMode ), toText( entry->moveCount ),
                             toText( entry->lastMoveTime ) )
                : "nothing";
}

// What is in force, but for what is decided and still to be done.
std::map< MacObserver::Pair, String >
MacObserver::decidedRows() const {
   std::map< Pair, String > rows;
   for( auto const & [ pair, entry ] : model_.inForce() ) {
      rows[ pair ] = textOf( entry );
   }
   for( auto const * list : { "refusedList", "updateList" } ) {
      auto const datum = simulated().get( MacModel::ofMachine( list ) );
      auto const * const changes = datum.as< Datum::Object >();
      if( !changes ) {
         continue;
      }
      for( auto const & [ key, change ] : *changes ) {
         auto const of = [ &row = change ]( char const * name ) {
            return Kiv::datumText( *row.find( name ) );
         };
         auto const pair = Pair::parse( key );
         if( of( "action" ) == "removeFromFdbStatusAndHardware" ) {
            rows.erase( pair );
         } else {
            rows[ pair ] = placeText( of( "intf" ), of( "entryType" ), of( "dropMode" ),
                                      of( "moves" ), of( "lastMoveTime" ) );
         }
      }
   }
   return rows;
}

void
MacObserver::hearMoves() {
   std::map< Pair, IntfId > now;
   for( auto const & [ pair, entry ] : model_.inForce() ) {
      now[ pair ] = entry.intf;
      auto const before = inForce_.find( pair );
      bool const isFailure =
            Pelt::CpuIntfId::isCpuIntfId( entry.intf ) && stations_[ pair ].said.failed;
      if( before != inForce_.end() && before->second != entry.intf && !isFailure ) {
         moves_.push_back( Kiv::datumText(
               Datum::Object{ { "macEntry", toText( pair ) },
                              { "from", toText( before->second ) },
                              { "to", toText( entry.intf ) },
                              { "time", Kiv::toDatum( simulated().now() ) },
                              { "moves", Kiv::toDatum( entry.moveCount.value() ) } } ) );
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
      auto const before =
            std::exchange( decided_.try_emplace( pair, "nothing" ).first->second, row );
      if( before == row || row == textOf( station.current ) ) {
         continue;
      }
      evaluate( pair );
      if( row != textOf( stations_[ pair ].current ) && isFlushed( pair ) ) {
         forget( pair );
      }
   }
}

// `isOver`: the moment is. What is to be forgotten is forgotten then, flushes that wait for their answer excepted.
void
MacObserver::lookAtAll( bool isOver ) {
   hear();
   auto const rows = decidedRows();
   for( auto const & [ pair, before ] : std::map( stations_ ) ) {
      auto const row = rows.contains( pair ) ? rows.at( pair ) : "nothing";
      if( isOver && isGone( pair ) ) {
         forget( pair );
      }
      evaluate( pair );
      auto const & station = stations_[ pair ];
      if( textOf( station.current ) != row && isFlushed( pair ) ) {
         forget( pair );
      }
      if( auto const wanted = textOf( station.current ); wanted != row ) {
         found( toText( pair ) + " is decided to be " + row + ", and must be " + wanted );
      }
   }
   for( auto const & [ pair, row ] : rows ) {
      if( !stations_.contains( pair ) ) {
         found( toText( pair ) + " is decided to be " + row + ", and nobody ever spoke of it" );
      }
   }
}

void
MacObserver::timeIs( Kiv::Seconds ) {
   if( !isHeard_ ) {
      return;
   }
   lookAtAll( true );
   gone_.clear();
   goneVlans_.clear();
}

SIMULATION_OBSERVER( MacObserver );

} // namespace Simulation
