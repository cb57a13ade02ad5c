// SPDX-License-Identifier: Apache-2.0
#include "simulation/observers/VlanObserver.h"

#include "types/HobaLagTypes.h"

namespace Simulation {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Kiv::String;
using Kiv::toText;
using Pelt::IntfId;

namespace {

String const vlanPath = "/feeders/config/vlan/";
String const switchIntfPath = "/feeders/config/switchIntf/";
String const chipPath = "/sim/chip/vlan/";
String const feederPath = "/hoba/machines/vlanFeeder/";
constexpr char const * chipTables[] = { "vlan", "member", "native", "tpid" };

// What stands behind `path` in the step's, word by word.
std::vector< String >
behind( String const & path, Step const & step ) {
   std::vector< String > words;
   for( auto begin = path.size(); begin < step[ 1 ].size(); ) {
      auto const end = std::min( step[ 1 ].find( '/', begin ), step[ 1 ].size() );
      words.push_back( step[ 1 ].substr( begin, end - begin ) );
      begin = end + 1;
   }
   words.resize( std::max< std::size_t >( words.size(), 3 ) );
   return words;
}

template< class T >
bool
reads( String const & text ) {
   return parsed< T >( text ).has_value();
}

bool
isIntf( String const & text ) {
   return !text.empty() && reads< IntfId >( text );
}

String
memberKey( VlanId vlan, IntfId intf ) {
   return toText( vlan ) + '@' + toText( intf );
}

// "33024" of "innerTpid" in a row of TPIDs; what a port has that was told none.
String
tpidIn( String const & row, String const & field ) {
   auto const name = '"' + field + "\": ";
   auto const at = row.find( name );
   if( at == row.npos ) {
      return "33024";
   }
   auto const begin = at + name.size();
   return row.substr( begin, row.find_first_of( ",}", begin ) - begin );
}

} // namespace

VlanObserver::VlanObserver( Switch & simulated, Observers & observers )
      : Observer( simulated, observers, "VLANs" ),
        config_( simulated.entity< Feeders::Config >( "/feeders/config" ) ),
        ports_( observers.find< PortsObserver >() ), lags_( observers.find< LagObserver >() ) {
   // When a pass runs, and not when its time is over: other things happen at the same time.
   simulated.watch( "/hoba/common/verifyData/verify", [ this ] { look(); } );
}

// ---- What happens to VLANs

void
VlanObserver::prepare( Draw & draw, Steps & steps ) {
   for( auto n = draw.below( 12 ); n != 0; --n ) {
      proposeConfig( draw, steps );
   }
}

void
VlanObserver::propose( Draw & draw, Steps & steps ) {
   auto const kind = draw.below( 30 );
   auto const vlan = vlanPath + draw.vlan();
   if( kind < 24 ) {
      proposeConfig( draw, steps );
   } else if( kind < 25 ) {
      faults_.propose( draw, steps );
   } else if( kind < 26 ) {
      // Gone and back before anybody tries again what was refused.
      steps.push_back( "set /sim/chip/vlan/memberTable/fault/busy/next 2" );
      steps.push_back( "del " + vlan );
      steps.push_back( "set " + vlan + "/active true" );
   } else if( kind < 27 ) {
      proposeChangeOfMind( draw, steps );
   } else if( kind < 29 ) {
      proposeSpoiling( draw, steps );
   } else {
      steps.push_back( draw.oneOf(
            { "set /feeders/config/vlan/4095/active true",
              "set /feeders/config/vlan/0/member/Ethernet1 true",
              "set /feeders/config/vlan/2/member/Ethernet1 false",
              "set /feeders/config/vlan/2/member/Ethernet true",
              "set /feeders/config/vlan/2/active maybe", "set /feeders/config/vlan/2/colour 1",
              "set /feeders/config/switchIntf/Ethernet1/nativeVlan 4095",
              "set /feeders/config/switchIntf/Ethernet1/switchportMode trunk",
              "set /feeders/config/switchIntf/eth1/nativeVlan 1", "del /feeders/config/vlan/77",
              "del /feeders/config/vlan/1/active", "set /sim/chip/vlan/vlan/4095 true",
              "set /sim/chip/vlan/member/1-Ethernet1 vlanTagged",
              "set /sim/chip/vlan/tpid/Ethernet1/tpid 65536",
              "set /hoba/portVlanMembership/intf/Ethernet1/nativeVlan 2",
              "set /hoba/common/vlanStatus/1/active false" } ) );
   }
}

void
VlanObserver::proposeConfig( Draw & draw, Steps & steps ) const {
   auto const vlan = vlanPath + draw.vlan();
   auto const intf = draw.intf();
   auto const native = draw.chance( 15 ) ? "0" : draw.vlan();
   auto const mode = draw.oneOf( { "Trunk", "Trunk", "Trunk", "Access", "Access", "Routed" } );
   auto const active = draw.chance( 80 ) ? " true" : " false";
   auto const kind = draw.below( 23 );
   if( kind < 4 ) {
      steps.push_back( "set " + vlan + "/active" + active );
   } else if( kind < 6 ) {
      steps.push_back( "del " + vlan );
   } else if( kind < 12 ) {
      steps.push_back( "set " + vlan + "/member/" + intf + " true" );
   } else if( kind < 15 ) {
      steps.push_back( "del " + vlan + "/member/" + intf );
   } else if( kind < 19 ) {
      steps.push_back( "set " + switchIntfPath + intf + "/switchportMode switchportMode" + mode );
   } else if( kind < 22 ) {
      steps.push_back( "set " + switchIntfPath + intf + "/nativeVlan " + native );
   } else {
      steps.push_back( "del " + switchIntfPath + intf );
   }
}

// Of a trunk: the chip refuses to change its rows, the machines begin anew, and something else is wanted.
void
VlanObserver::proposeChangeOfMind( Draw & draw, Steps & steps ) const {
   auto const intf = draw.intf();
   auto const config = "set " + switchIntfPath + intf;
   auto const first = draw.vlan();
   auto const second = draw.vlan();
   for( auto const & vlan : { first, second } ) {
      steps.push_back( "set " + vlanPath + vlan + "/member/" + intf + " true" );
   }
   steps.push_back( config + "/switchportMode switchportModeTrunk" );
   steps.push_back( config + "/nativeVlan " + first );
   auto const refusals = std::to_string( 2 + draw.below( 6 ) );
   steps.push_back( "set /sim/chip/vlan/memberTable/fault/busy/next " + refusals );
   steps.push_back( config + "/nativeVlan " + second );
   steps.push_back( "sim restart hitless" );
   steps.push_back( draw.chance( 50 ) ? config + "/switchportMode switchportModeAccess"
                                      : "del " + vlanPath + first + "/member/" + intf );
}

// In a table that has room: whether there is any depends on what is on its way to it.
void
VlanObserver::proposeSpoiling( Draw & draw, Steps & steps ) const {
   auto const vlan = draw.vlan();
   auto const intf = draw.intf();
   auto const other = draw.vlan();
   auto const how = draw.oneOf( { "vlanTagged", "vlanUntagged", "vlanNotCarried" } );
   auto const tpid = draw.oneOf( { "34984", "37120", "33024" } );
   auto const field = draw.oneOf( { "tpid", "innerTpid" } );
   bool const isDel = draw.chance( 30 );
   auto const kind = draw.below( 4 );
   String const table = chipTables[ kind ];
   String const rows[] = { vlan, vlan + '@' + intf, intf, intf };
   String const values[] = { draw.chance( 50 ) ? " true" : " false", ' ' + how, ' ' + other,
                             '/' + field + ' ' + tpid };
   if( isDel ) {
      return steps.push_back( "del " + chipPath + table + '/' + rows[ kind ] );
   }
   steps.push_back( "set " + chipPath + table + "Table/capacity 0" );
   steps.push_back( "set " + chipPath + table + '/' + rows[ kind ] + values[ kind ] );
}

Steps
VlanObserver::heal() {
   auto steps = faults_.heal();
   if( needsRestart_ ) {
      steps.push_back( "sim restart hitless" );
   }
   isUnsure_ = std::exchange( needsRestart_, false );
   wasFaulty_ = false;
   return steps;
}

// ---- What is accepted

Observer::Verdict
VlanObserver::judge( Step const & step ) const {
   if( faults_.isMine( step ) ) {
      return accepts;
   }
   if( step.isAt( "/hoba/portVlanMembership" ) || step.isAt( "/hoba/common/vlanStatus" ) ) {
      return refuses;
   }
   return step.isAt( "/feeders/config/vlan" )         ? judgeVlan( step )
          : step.isAt( "/feeders/config/switchIntf" ) ? judgeSwitchIntf( step )
          : step.isAt( "/sim/chip/vlan" )             ? judgeSpoiling( step )
                                                      : notMine;
}

Observer::Verdict
VlanObserver::judgeVlan( Step const & step ) const {
   auto const words = behind( vlanPath, step );
   if( words[ 1 ] == "macLearning" || words[ 1 ] == "primaryVlan" ) {
      return notMine;
   }
   if( !reads< VlanId >( words[ 0 ] ) ) {
      return refuses;
   }
   bool const isMember = words[ 1 ] == "member" && isIntf( words[ 2 ] );
   if( step[ 0 ] == "set" ) {
      return verdict( ( words[ 1 ] == "active" && reads< bool >( step[ 2 ] ) ) ||
                      ( isMember && step[ 2 ] == "true" ) );
   }
   auto const config = config_->vlan( VlanId::parse( words[ 0 ] ) );
   return verdict( config && ( words[ 1 ].empty() ||
                               ( isMember && config->memberHas( IntfId( words[ 2 ] ) ) ) ) );
}

Observer::Verdict
VlanObserver::judgeSwitchIntf( Step const & step ) const {
   auto const words = behind( switchIntfPath, step );
   if( words[ 1 ] == "enableLearning" ) {
      return notMine;
   }
   if( !isIntf( words[ 0 ] ) ) {
      return refuses;
   }
   if( step[ 0 ] == "del" ) {
      return verdict( words[ 1 ].empty() && config_->switchIntfHas( IntfId( words[ 0 ] ) ) );
   }
   return verdict(
         ( words[ 1 ] == "nativeVlan" && reads< VlanIdOrNone >( step[ 2 ] ) ) ||
         ( words[ 1 ] == "switchportMode" && reads< Bridging::SwitchportMode >( step[ 2 ] ) ) );
}

// Rows may be written as long as there is room, whatever they mean.
Observer::Verdict
VlanObserver::judgeSpoiling( Step const & step ) const {
   auto const words = behind( chipPath, step );
   auto const row = chipPath + words[ 0 ] + '/' + words[ 1 ];
   auto const at = words[ 1 ].find( '@' );
   bool const isKey = words[ 0 ] == "vlan" ? reads< VlanId >( words[ 1 ] )
                      : words[ 0 ] == "member"
                            ? at != String::npos && reads< VlanId >( words[ 1 ].substr( 0, at ) ) &&
                                    isIntf( words[ 1 ].substr( at + 1 ) )
                            : isIntf( words[ 1 ] );
   if( !isKey ) {
      return refuses;
   }
   bool const isThere = !textAt( row ).empty();
   if( step[ 0 ] == "del" ) {
      return verdict( isThere );
   }
   static std::set< String > const tagging{ "vlanTagged", "vlanUntagged", "vlanNotCarried" };
   bool const isValue = words[ 0 ] == "vlan"     ? reads< bool >( step[ 2 ] )
                        : words[ 0 ] == "member" ? tagging.contains( step[ 2 ] )
                        : words[ 0 ] == "native" ? reads< VlanIdOrNone >( step[ 2 ] )
                                                 : reads< std::uint16_t >( step[ 2 ] );
   auto const capacity = textAt( chipPath + words[ 0 ] + "Table/capacity" );
   bool const hasRoom =
         isThere || capacity == "0" ||
         std::stoul( textAt( chipPath + words[ 0 ] + "Table/rows" ) ) < std::stoul( capacity );
   return verdict( isValue && hasRoom );
}

// ---- The model

void
VlanObserver::heard( Step const & step, Kiv::Datum const & ) {
   faults_.heard( step );
   if( step.isAt( "/sim/chip/vlan" ) && !faults_.isMine( step ) ) {
      spoilt( step );
   }
   // One that is made by being told not to take part does so for a moment: first it is there.
   if( step.isAt( "/feeders/config/vlan" ) && step[ 0 ] == "set" && simulated().isRunning() ) {
      auto active = activeVlans();
      auto const vlan = VlanId::parse( behind( vlanPath, step ).front() );
      if( config_->vlanHas( vlan ) && !vlans_.has( vlan ) && active.insert( vlan ) ) {
         bringTo( wantedTables( active ) );
      }
   }
}

void
VlanObserver::spoilt( Step const & step ) {
   auto const words = behind( chipPath, step );
   auto & rows = held_[ words[ 0 ] ];
   if( step[ 0 ] == "del" ) {
      rows.erase( words[ 1 ] );
      return;
   }
   auto & row = rows[ words[ 1 ] ];
   if( words[ 0 ] == "tpid" ) {
      auto const before = row;
      auto const tpid = [ & ]( char const * field ) {
         return words[ 2 ] == field ? step[ 2 ] : tpidIn( before, field );
      };
      row = R"({"tpid": )" + tpid( "tpid" ) + R"(, "innerTpid": )" + tpid( "innerTpid" ) + '}';
   } else {
      row = step[ 2 ];
   }
}

Bridging::VlanSet
VlanObserver::activeVlans() const {
   Bridging::VlanSet vlans;
   for( auto const & [ vlan, config ] : config_->vlan() ) {
      if( config->active() ) {
         vlans.insert( vlan );
      }
   }
   return vlans;
}

std::map< IntfId, VlanObserver::Carries >
VlanObserver::carriers( Bridging::VlanSet const & active ) const {
   auto intfs = lags_.lags();
   for( auto const & [ port, model ] : ports_.ports() ) {
      if( !lags_.configuredLagOf( port ) ) {
         intfs.push_back( port );
      }
   }
   std::map< IntfId, Carries > all;
   for( auto const intf : intfs ) {
      auto const config = config_->switchIntf( intf );
      auto const mode = config ? config->switchportMode() : Bridging::switchportModeAccess;
      auto const native = config ? config->nativeVlan() : VlanIdOrNone( 1 );
      Carries carries;
      for( auto const vlan : active ) {
         bool const isNative = native.value() == vlan.value();
         bool const isCarried = mode == Bridging::switchportModeTrunk
                                      ? config_->vlan( vlan )->memberHas( intf )
                                      : mode == Bridging::switchportModeAccess && isNative;
         if( isCarried && isNative ) {
            carries.native = native;
         } else if( isCarried ) {
            carries.tagged.insert( vlan );
         }
      }
      if( carries.native.value() || !carries.tagged.empty() ) {
         all.emplace( intf, carries );
      }
   }
   return all;
}

VlanObserver::Tables
VlanObserver::wantedTables( Bridging::VlanSet const & active ) const {
   Tables tables;
   for( auto const vlan : active ) {
      tables[ "vlan" ][ toText( vlan ) ] = "true";
   }
   for( auto const & [ intf, carries ] : carriers( active ) ) {
      for( auto const vlan : carries.tagged ) {
         tables[ "member" ][ memberKey( vlan, intf ) ] = "vlanTagged";
      }
      if( carries.native.value() ) {
         VlanId const native( carries.native.value() );
         tables[ "member" ][ memberKey( native, intf ) ] = "vlanUntagged";
         tables[ "native" ][ toText( intf ) ] = toText( native );
      }
   }
   return tables;
}

// A row is written when something else is wanted of it than before, and only then: until then one
// that was spoilt stays so.
void
VlanObserver::bringTo( Tables wanted ) {
   // What was spoilt before is written over by what the machines do in the middle of something, or not.
   needsRestart_ = needsRestart_ || ( observers().inTheMiddle() && held_ != wanted_ );
   for( auto const * const table : chipTables ) {
      auto const & before = wanted_[ table ];
      auto const & after = wanted[ table ];
      auto & held = held_[ table ];
      for( auto const & [ key, row ] : before ) {
         if( !after.contains( key ) ) {
            writes_[ table ] += held.erase( key );
         }
      }
      for( auto const & [ key, row ] : after ) {
         if( auto const was = before.find( key ); was == before.end() || was->second != row ) {
            writes_[ table ] += std::exchange( held[ key ], row ) != row ? 1 : 0;
         }
      }
   }
   wanted_ = std::move( wanted );
   for( auto const & [ table, rows ] : wanted_ ) {
      asked_[ table ].insert( rows.begin(), rows.end() );
   }
   // What is refused or late is written at another time.
   wasFaulty_ = wasFaulty_ || faults_.any();
   needsRestart_ = needsRestart_ || ( wasFaulty_ && held_ != wanted_ );
   countsAreOpen_ = countsAreOpen_ || wasFaulty_;
}

void
VlanObserver::follow() {
   // Also in the middle of the first start.
   countsAreOpen_ = countsAreOpen_ || observers().inTheMiddle();
   vlans_ = {};
   for( auto const & [ vlan, config ] : config_->vlan() ) {
      vlans_.insert( vlan );
   }
   if( simulated().isRunning() ) {
      bringTo( wantedTables( activeVlans() ) );
   }
}

// Every row that is wanted is asked for, and all others go.
void
VlanObserver::began( HobaAgent::RestartKind ) {
   // Nothing is swept if the step of any machine fails.
   for( auto const & each : observers().all() ) {
      countsAreOpen_ = countsAreOpen_ || each->hasFaults();
   }
   auto wanted = wantedTables( activeVlans() );
   restartWrites_ = restartSwept_ = 0;
   for( auto const * const table : chipTables ) {
      auto const & held = held_[ table ];
      std::uint64_t differ = 0, surplus = 0;
      for( auto const & [ key, row ] : wanted[ table ] ) {
         differ += rowIn( held, key ) != row ? 1 : 0;
      }
      for( auto const & [ key, row ] : held ) {
         surplus += wanted[ table ].contains( key ) ? 0 : 1;
      }
      writes_[ table ] += differ;
      swept_[ table ] += surplus;
      restartWrites_ += differ;
      restartSwept_ += surplus;
   }
   held_ = asked_ = wanted_ = std::move( wanted );
}

// ---- What must be

void
VlanObserver::settled() {
   if( !simulated().isRunning() || isUnsure_ || held_ != wanted_ ) {
      return; // spoilt, too
   }
   for( auto const * const table : chipTables ) {
      auto is = rowsAt( chipPath + table );
      // What a former agent left and this one never asked for is swept by the next.
      std::erase_if( is,
                     [ & ]( auto const & row ) { return !asked_[ table ].contains( row.first ); } );
      if( is != wanted_[ table ] ) {
         for( auto const & [ key, row ] : is ) {
            if( !wanted_[ table ].contains( key ) ) {
               found( chipPath + table + ": " + key + " is left behind" );
            }
         }
         for( auto const & [ key, row ] : wanted_[ table ] ) {
            if( auto const at = is.find( key ); at == is.end() || at->second != row ) {
               found( chipPath + table + ": " + key + " was not asked for again" );
            }
         }
      }
   }
}

void
VlanObserver::check() {
   for( auto const * const table : chipTables ) {
      expectRows( chipPath + table, held_[ table ] );
   }
   checkPublished();
   checkCounts();
   auto const active = toText( activeVlans() );
   expectText( feederPath + "chipVlan", active );
   expectText( feederPath + "activeVlan", active );
   for( auto const * const collection :
        { "tpid", "waiting", "leaving", "refusedVlan", "refusedIntf" } ) {
      expectRows( feederPath + collection, {} );
   }
}

// What stays wanted is neither withdrawn nor written again.
void
VlanObserver::checkCounts() {
   for( auto const * const table : chipTables ) {
      auto const counted = [ & ]( char const * name, std::uint64_t & count ) {
         auto const path = chipPath + table + "Table/" + name;
         auto const is = Kiv::fromText< std::uint64_t >( textAt( path ) );
         if( auto const must = std::exchange( count, is ); must != is && !countsAreOpen_ ) {
            found( path + ": is " + toText( is ) + ", and must be " + toText( must ) );
         }
      };
      counted( "writes", writes_[ table ] );
      counted( "swept", swept_[ table ] );
   }
   countsAreOpen_ = false;
}

void
VlanObserver::checkPublished() {
   Rows membership;
   std::map< VlanId, Rows > intfs;
   for( auto const & [ intf, carries ] : carriers( activeVlans() ) ) {
      auto const name = toText( intf );
      membership[ name ] = R"({"nativeVlan": )" + toText( carries.native ) + R"(, "tagged": ")" +
                           toText( carries.tagged ) + "\"}";
      for( auto const vlan : carries.tagged ) {
         intfs[ vlan ][ name ];
      }
      if( carries.native.value() ) {
         intfs[ VlanId( carries.native.value() ) ][ name ];
      }
   }
   expectRows( "/hoba/portVlanMembership/intf", membership );
   String const statusPath = "/hoba/common/vlanStatus/";
   for( auto const & [ vlan, text ] : rowsAt( "/hoba/common/vlanStatus" ) ) {
      if( !config_->vlanHas( VlanId::parse( vlan ) ) ) {
         found( statusPath + vlan + ": must not be there" );
      }
   }
   for( auto const & [ vlan, config ] : config_->vlan() ) {
      expectText( statusPath + toText( vlan ) + "/active", config->active() ? "true" : "false" );
      expectRows( statusPath + toText( vlan ) + "/intf", intfs[ vlan ] );
   }
}

// ---- Verification

namespace {

// "VLAN 4: true expected, nothing found"; empty if they are the same. None is "nothing".
String
differenceOf( char const * what, String const & key, String const & expected,
              String const & found ) {
   auto const orNothing = []( String const & row ) { return row.empty() ? "nothing" : row; };
   return expected == found ? ""
                            : what + ( ' ' + key ) + ": " + orNothing( expected ) + " expected, " +
                                    orNothing( found ) + " found";
}

} // namespace

Kiv::Datum::Object
VlanObserver::membersAt( char const * path ) const {
   auto const datum = simulated().get( path );
   auto const * const members = datum.as< Kiv::Datum::Object >();
   return members ? *members : Kiv::Datum::Object();
}

// The first row that is not there as it should be, else the first that should not be there.
String
VlanObserver::surplus( char const * what, char const * table,
                       std::set< String > const & wanted ) const {
   for( auto const & [ key, row ] : membersAt( table ) ) {
      if( !wanted.contains( key ) ) {
         return differenceOf( what, key, "", Kiv::datumText( row ) );
      }
   }
   return {};
}

// What is published is compared with what the chip holds, one after the other, in the order in which it is
// published; then what the chip holds besides, in the order of its rows. The first difference is told.
String
VlanObserver::vlanMismatch() const {
   auto const rows = rowsAt( "/sim/chip/vlan/vlan" );
   std::set< String > wanted;
   for( auto const & [ vlan, status ] : membersAt( "/hoba/common/vlanStatus" ) ) {
      if( Kiv::datumText( *status.find( "active" ) ) == "true" ) {
         wanted.insert( vlan );
         if( auto const text = differenceOf( "VLAN", vlan, "true", rowIn( rows, vlan ) );
             !text.empty() ) {
            return text;
         }
      }
   }
   return surplus( "VLAN", "/sim/chip/vlan/vlan", wanted );
}

String
VlanObserver::memberMismatch() const {
   auto const members = rowsAt( "/sim/chip/vlan/member" );
   auto const natives = rowsAt( "/sim/chip/vlan/native" );
   std::set< String > wantedMembers, wantedNatives;
   for( auto const & [ intf, carries ] : membersAt( "/hoba/portVlanMembership/intf" ) ) {
      auto const native = Kiv::datumText( *carries.find( "nativeVlan" ) );
      auto carried = Bridging::VlanSet::parse( Kiv::datumText( *carries.find( "tagged" ) ) );
      if( native != "0" ) {
         carried.insert( VlanId::parse( native ) );
         wantedNatives.insert( intf );
      }
      for( auto const vlan : carried ) {
         auto const key = toText( vlan ) + '@' + intf;
         auto const how = toText( vlan ) == native ? "vlanUntagged" : "vlanTagged";
         wantedMembers.insert( key );
         if( auto const text = differenceOf( "VLAN member", key, how, rowIn( members, key ) );
             !text.empty() ) {
            return text;
         }
      }
      auto const text = differenceOf( "native VLAN of", intf, native, rowIn( natives, intf ) );
      if( native != "0" && !text.empty() ) {
         return text;
      }
   }
   auto const text = surplus( "VLAN member", "/sim/chip/vlan/member", wantedMembers );
   return text.empty() ? surplus( "native VLAN of", "/sim/chip/vlan/native", wantedNatives ) : text;
}

// No port was told any.
String
VlanObserver::tpidMismatch() const {
   auto const rows = membersAt( "/sim/chip/vlan/tpid" );
   return rows.empty() ? ""
                       : differenceOf( "TPIDs of", rows.front().first, "",
                                       toText( Kiv::fromDatum< Hoba::HobaPortVlanTpidData >(
                                             rows.front().second ) ) );
}

void
VlanObserver::look() {
   if( !simulated().isRunning() ) {
      return;
   }
   mismatch_ = vlanMismatch();
   mismatch_ = mismatch_.empty() ? memberMismatch() : mismatch_;
   mismatch_ = mismatch_.empty() ? tpidMismatch() : mismatch_;
   isLanding_ = false;
   for( auto const * const table : chipTables ) {
      isLanding_ = isLanding_ || textAt( chipPath + table + "Table/landing" ) != "0";
   }
}

SIMULATION_OBSERVER( VlanObserver );

} // namespace Simulation
