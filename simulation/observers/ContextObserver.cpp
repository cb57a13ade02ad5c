// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Dispatch.h"
#include "simulation/Observer.h"

#include <algorithm>
#include <array>
#include <set>

// What belongs to no feature, or to all: the context's scalars that nobody sets, the machines' being there,
// the properties and counters of the chip's tables, the record of starts, and commands that only look. And
// that there is nothing published at which no observer looks.

namespace Simulation {

using Kiv::Datum;
using Kiv::String;

namespace {

// What others look at, with all below it.
constexpr std::string_view observed[] = {
      // configuration, from which all models begin
      "/feeders/config",
      "/lag/input/config",
      "/bridging/stormControl/config",
      "/verify/config",
      // ports, LAGs and VLANs
      "/interface/status/ethPhyIntfStatus",
      "/hoba/portStatus",
      "/hoba/portVlanMembership",
      "/hoba/common/intf",
      "/hoba/common/cpuIntf",
      "/hoba/common/lagToPortConfig",
      "/hoba/common/portToLag",
      "/hoba/common/lagToPort",
      "/hoba/common/lagToLagType",
      "/hoba/common/lagInLacpFallbackIndividualMode",
      "/hoba/common/vlanStatus",
      "/hoba/common/portVlanTpidData",
      "/hoba/machines/lagFeeder",
      "/hoba/machines/chipLag",
      "/hoba/machines/vlanFeeder",
      "/sim/chip/trunk/lag",
      "/sim/chip/vlan/vlan",
      "/sim/chip/vlan/member",
      "/sim/chip/vlan/native",
      "/sim/chip/vlan/tpid",
      // events and stations
      "/hoba/macTable",
      "/hoba/events",
      "/hoba/machines/events",
      "/sim/chip/events/link",
      "/sim/chip/events/autoneg",
      "/sim/chip/mac/host",
      "/sim/chip/mac/seen",
      "/sim/chip/mac/intfLearning",
      "/sim/chip/mac/vlanLearning",
      "/sim/chip/mac/setting",
      "/sim/chip/mac/flush",
      "/sim/chip/mac/count",
      "/sim/chip/mac/maxRemoteMacs",
      // who says where stations are, and where they are
      "/bridging/config",
      "/bridging/vlanConfig",
      "/bridging/switchIntfConfig",
      "/bridging/status",
      "/bridging/dynHostStatus",
      "/bridging/flush",
      "/interface/config",
      "/mlag",
      "/l2rib",
      "/vxlan",
      "/dot1x",
      "/fsf",
      "/hoba/routerMac",
      "/hoba/evpnMac",
      "/hoba/objTupleToHwId",
      "/hoba/swTunnelGroupIdMap",
      "/hoba/common/mlagPeerLinkPort",
      "/hoba/common/mlagIntfPort",
      "/hoba/machines/mac",
      "/hoba/machines/macProgrammer",
      "/sim/chip/mac/indirectAccess",
      "/sim/chip/mac/answersReordered",
      "/sim/chip/mac/commandDepth",
      "/sim/chip/mac/silence",
      "/hoba/machines/overlayFeeder",
      "/hoba/machines/flushClient",
      // frames
      "/sim/chip/path/count",
      "/sim/chip/path/drop",
      // parity errors, stations that never age
      "/hoba/common/parityEvent",
      "/hoba/parityEvents",
      "/hoba/machines/parity",
      "/hoba/machines/parityHelper",
      "/hoba/machines/parityEvents",
      "/sim/chip/parity/error",
      "/sim/chip/parity/count",
      "/sim/chip/parity/slices",
      "/sim/chip/parity/sliceName",
      "/sim/chip/parity/correctionTime",
      "/hoba/nonAging",
      "/hoba/machines/nonAging",
      // storm control and verification
      "/bridging/stormControl/status",
      "/hoba/machines/stormControl",
      "/sim/chip/stormControl",
      "/verify/status",
      "/hoba/common/verifyData",
      "/hoba/machines/verify",
      "/hoba/machines/verifyAgent",
};

// What nobody sets on this switch.
constexpr std::pair< std::string_view, std::string_view > constants[] = {
      { "/hoba/common/operationalMode", "operationalModeDefault" },
      { "/hoba/common/vlanHelper", "vlan" },
      { "/hoba/common/minIntfs", "0" },
      { "/hoba/common/unusedIntf", "{}" },
      { "/hoba/common/multiEncapIntf", "[]" },
      { "/hoba/common/intfEncapServiceIntf", "" },
      { "/hoba/common/lagToFeatureSet", "{}" },
      { "/hoba/common/keepStaticMacOnDisabledIntf", "false" },
      { "/hoba/common/enforceVlanMembershipForStaticMac", "false" },
      { "/hoba/common/virtualMacWithMask", "00:00:00:00:00:00/ff:ff:ff:ff:ff:ff" },
      { "/hoba/common/peerRouterMac", "00:00:00:00:00:00" },
      { "/hoba/common/internalVlan", "{}" },
      { "/hoba/common/encapVlan", "{}" },
      { "/hoba/common/cliConfig", "" },
      { "/hoba/common/mirrorSessionNameToId", "{}" },
      { "/hoba/common/mirrorSessionNameToEgressId", "{}" },
      { "/hoba/common/freeMirrorSession", "[]" },
      { "/hoba/common/isFabricSlice", "false" },
      { "/hoba/common/verifySm", "Hoba::VerifySm" },
      { "/hoba/common/vlanIntf", "{}" },
      { "/hoba/common/ziplineLevels",
        "{\"hobaVrfRootSm\": 1, \"hobaRoutingStatusSm\": 1, \"hobaL3FeatureConfigSm\": 1, "
        "\"hobaArpSm\": 2, \"hobaIp6NeighborSm\": 2, \"hobaResilientEcmpSm\": 3, "
        "\"hobaIp6ResilientEcmpSm\": 4, \"hobaResilientEcmpDedupingSm\": 5, "
        "\"hobaResilientEcmpDedupingSchedulerSm\": 5, \"hobaAdjDependencySm\": 5, "
        "\"hobaSubIntfSm\": 8, \"hobaIntfStatusSm\": 6, \"hobaL2AdjHelper\": 6, \"hobaPwSm\": 6, "
        "\"hobaL3AdjStatusSm\": 4, \"hobaVxlanTunnelFibSm\": 8}" },
      { "/hoba/common/vellFastBoot", "false" },
      { "/hoba/common/vellRenice", "false" },
      { "/hoba/common/vellReniceValue", "5" },
      { "/hoba/common/hitlessAgentRestartSupported", "true" },
      { "/hoba/common/pfcWatchdogDropActionSupported", "false" },
      { "/hoba/common/dlpEnabled", "false" },
      { "/hoba/common/initialized", "true" },
      { "/hoba/common/yieldTimeSlice", "0.01" },
      { "/hoba/machines/portFeeder", "{\"initialized\": true}" },
      { "/hoba/machines/bridgingFeeder", "{\"initialized\": true}" },
      { "/hoba/machines/mlagFeeder", "{\"initialized\": true}" },
      { "/hoba/machines/nonAgingFeeder", "{\"initialized\": true}" },
      { "/sim/chip/events/reporting", "true" },
      { "/sim/chip/mac/reportingAll", "false" },
      { "/sim/chip/capture",
        "{\"file\": \"\", \"port\": \"\", \"speed\": 0, \"frames\": 0, \"running\": false, "
        "\"nextTime\": 0, \"error\": \"\"}" },
};

// Of the chip: what the agent tells it (true), and what it finds out by itself.
constexpr std::pair< std::string_view, bool > tables[] = {
      { "stormControl/limit", true },
      { "stormControl/bcastSkip", true },
      { "stormControl/trafficClass", true },
      { "stormControl/burstTime", true },
      { "stormControl/rule", true },
      { "stormControl/drop", false },
      { "events/link", false },
      { "events/autoneg", false },
      { "trunk/lag", true },
      { "mac/host", true },
      { "mac/seen", false },
      { "mac/intfLearning", true },
      { "mac/vlanLearning", true },
      { "mac/setting", true },
      { "mac/flush", false },
      { "mac/count", false },
      { "vlan/vlan", true },
      { "vlan/member", true },
      { "vlan/native", true },
      { "vlan/tpid", true },
      { "path/count", false },
      { "path/drop", false },
      { "parity/error", false },
      { "parity/count", false },
};

constexpr std::string_view shows[] = { "show interfaces",
                                       "show lag",
                                       "show vlan",
                                       "show mac",
                                       "show mac reported",
                                       "show mac pending",
                                       "show mac programmer",
                                       "show mac moves",
                                       "show mac flush",
                                       "show mac non-aging",
                                       "show events",
                                       "show parity",
                                       "show storm-control",
                                       "show storm-control-traffic-classes",
                                       "show restarts" };

std::uint64_t
numberAt( Datum const & of, std::string_view name ) {
   auto const * const found = of.find( name );
   return found ? Kiv::fromText< std::uint64_t >( Kiv::datumText( *found ) ) : 0;
}

// At the path or above it.
bool
isBelow( std::string_view path, std::string_view above ) {
   return path.starts_with( above ) &&
          ( path.size() == above.size() || path[ above.size() ] == '/' );
}

} // namespace

class ContextObserver : public Observer {
 public:
   ContextObserver( Switch & simulated, Observers & observers )
         : Observer( simulated, observers, "context" ) {}

   unsigned weight() const override { return 2; }
   void propose( Draw & draw, Steps & steps ) override;
   Verdict judge( Step const & step ) const override;
   void heard( Step const & step, Datum const & answer ) override;
   void follow() override {
      hearSweeps();
      hearFailures();
   }
   void timeIs( Kiv::Seconds ) override {
      hearSweeps();
      hearFailures();
   }
   void began( HobaAgent::RestartKind kind ) override;
   void check() override;

 private:
   struct Start {
      HobaAgent::RestartKind kind;
      bool mayHaveFailed; // a step of a machine did, then or shortly before
      std::uint64_t swept;
      bool isOver = false; // all that there was has been looked at
   };
   // What the operator set of a table; what refusals that makes possible.
   struct Properties {
      std::map< String, String > set;
      std::set< String > mayRefuse;
   };

   void hearFailures() {
      if( !observers().inTheMiddle() ) { // of a start, say
         failuresSeen_ = Kiv::Dispatch::failures;
      }
   }
   // Of a start that looks at much rows are swept later.
   void hearSweeps() {
      auto const before = std::exchange( sweptBefore_, simulated().swept() );
      auto const isOver = textAt( "/hoba/machines/mac/firstPassDone" );
      if( !starts_.empty() ) {
         auto & start = starts_.back();
         start.mayHaveFailed |= !start.isOver && failuresSeen_ != Kiv::Dispatch::failures;
         start.swept += sweptBefore_ - before;
         start.isOver = start.isOver || isOver == "true";
      }
   }
   void hearProperty( String const & table, String const & property, String const & text );
   void checkTable( std::string_view path, bool isTold );
   void checkFaults( String const & path, Datum const & faults, Properties const & properties );
   void checkStarts();
   void checkAllObserved( String const & path, Datum const & what );

   std::vector< Start > starts_;
   std::map< String, Properties > properties_;
   std::uint64_t failuresSeen_ = 0;
   std::uint64_t sweptBefore_ = 0;
   std::uint64_t writes_ = 0, swept_ = 0; // by the tables, when they were last looked at
   bool looksAtAll_ = true;
};

// ---- What happens

void
ContextObserver::propose( Draw & draw, Steps & steps ) {
   steps.push_back( String( shows[ draw.below( std::size( shows ) ) ] ) );
}

Observer::Verdict
ContextObserver::judge( Step const & step ) const {
   if( step[ 0 ] != "show" ) {
      return notMine;
   }
   auto const text = step.text();
   constexpr std::string_view ofChip[] = { "show mac reported",
                                           "show storm-control-traffic-classes", "show restarts" };
   if( !simulated().isRunning() ) {
      return std::ranges::find( ofChip, text ) != std::end( ofChip ) ? accepts : refuses;
   }
   return std::ranges::find( shows, text ) != std::end( shows ) ? accepts : refuses;
}

void
ContextObserver::heard( Step const & step, Datum const & answer ) {
   if( step[ 0 ] == "show" ) {
      // Who looks changes nothing, and sees the same again.
      auto const before = simulated().get( "/" );
      if( simulated().run( step ).answer != answer || simulated().get( "/" ) != before ) {
         found( "\"" + step.text() + "\" has changed something" );
      }
   }
   auto const end = step[ 1 ].find( "Table/" );
   if( step.isAt( "/sim/chip" ) && end != String::npos ) {
      hearProperty( step[ 1 ].substr( 0, end ), step[ 1 ].substr( end + 6 ), step[ 2 ] );
   }
}

void
ContextObserver::hearProperty( String const & table, String const & property,
                               String const & text ) {
   auto & properties = properties_[ table ];
   properties.set[ property ] = text;
   if( text == "0" ) {
      return;
   }
   if( property == "capacity" || property == "bucketSize" ) {
      properties.mayRefuse.insert( "full" );
   } else if( property.starts_with( "fault/" ) ) {
      properties.mayRefuse.insert( property.substr( 6, property.rfind( '/' ) - 6 ) );
   }
}

void
ContextObserver::began( HobaAgent::RestartKind kind ) {
   // Rows are swept at starts, and at no other time.
   auto const before = std::exchange( sweptBefore_, simulated().swept() );
   starts_.push_back( { kind, failuresSeen_ != Kiv::Dispatch::failures, sweptBefore_ - before } );
   hearFailures();
   looksAtAll_ = true;
}

// ---- What must be

void
ContextObserver::check() {
   for( auto const & [ path, text ] : constants ) {
      expectText( path, String( text ) );
   }
   for( auto const & [ name, machine ] : rowsAt( "/hoba/machines" ) ) {
      expectText( "/hoba/machines/" + name + "/initialized", "true" );
   }
   writes_ = swept_ = 0;
   for( auto const & [ path, isTold ] : tables ) {
      checkTable( path, isTold );
   }
   if( writes_ != simulated().writes() || swept_ != simulated().swept() ) {
      found( "the tables count " + std::to_string( writes_ ) + " writes and " +
             std::to_string( swept_ ) + " swept rows, and the chip " +
             std::to_string( simulated().writes() ) + " and " +
             std::to_string( simulated().swept() ) );
   }
   checkStarts();
   // What there is does not change while machines run.
   if( std::exchange( looksAtAll_, false ) ) {
      checkAllObserved( "", simulated().get( "/" ) );
   }
}

void
ContextObserver::checkTable( std::string_view name, bool isTold ) {
   auto const path = "/sim/chip/" + String( name );
   auto const table = simulated().get( path + "Table" );
   auto const & properties = properties_[ path ];
   auto const value = [ & ]( String const & property, String const & otherwise ) {
      auto const set = properties.set.find( property );
      return set == properties.set.end() ? otherwise : set->second;
   };
   auto const expect = [ & ]( char const * what, String const & must ) {
      auto const * const is = table.find( what );
      if( !is || Kiv::datumText( *is ) != must ) {
         found( path + "Table/" + what + ": is " + ( is ? Kiv::datumText( *is ) : "nothing" ) +
                ", and must be " + must );
      }
   };
   expect( "capacity", value( "capacity", name == "mac/host" ? "131072" : "0" ) );
   for( auto const * zero : { "bucketSize", "latency" } ) {
      expect( zero, value( zero, "0" ) );
   }
   expect( "seed", value( "seed", "1" ) );
   expect( "rows", std::to_string( rowsAt( path ).size() ) );
   if( !properties.mayRefuse.contains( "full" ) ) {
      expect( "bucketFull", "0" );
   }
   if( !isTold ) {
      for( auto const * agents : { "writes", "unchanged", "swept" } ) {
         expect( agents, "0" );
      }
      expect( "refused", "{}" );
   }
   if( auto const * const faults = table.find( "fault" ) ) {
      checkFaults( path, *faults, properties );
   }
   if( auto const * const refused = table.find( "refused" ) ) {
      for( auto const & [ kind, count ] : *refused->as< Datum::Object >() ) {
         if( !properties.mayRefuse.contains( kind ) ) {
            found( path + "Table/refused: has " + kind + ", for which there never was a reason" );
         }
      }
   }
   writes_ += numberAt( table, "writes" );
   swept_ += numberAt( table, "swept" );
}

// All have ended, and those that nobody asked for were never there.
void
ContextObserver::checkFaults( String const & path, Datum const & faults,
                              Properties const & properties ) {
   for( auto const & [ kind, plan ] : *faults.as< Datum::Object >() ) {
      bool const isAsked = properties.set.contains( "fault/" + kind + "/next" ) ||
                           properties.set.contains( "fault/" + kind + "/chance" );
      if( !isAsked || Kiv::datumText( plan ) != "{\"chance\": 0, \"next\": 0}" ) {
         found( path + "Table/fault/" + kind + ": is " + Kiv::datumText( plan ) );
      }
   }
}

// One line for each start: when, what, kind, how long, writes, swept rows, and what became of it.
void
ContextObserver::checkStarts() {
   constexpr std::size_t kept = 100;
   auto const answer = simulated().run( "show restarts" ).answer;
   auto const * const found_ = answer.find( "rows" );
   auto const * const rows = found_ ? found_->as< Datum::Array >() : nullptr;
   if( !rows || rows->size() != std::min( starts_.size(), kept ) ) {
      return found( "show restarts: does not have as many lines as there were starts, " +
                    std::to_string( starts_.size() ) );
   }
   for( std::size_t n = 0; n != rows->size(); ++n ) {
      auto const at = starts_.size() - rows->size() + n;
      auto const & start = starts_[ at ];
      auto const & cells = *( *rows )[ n ].as< Datum::Array >();
      auto const text = [ & ]( std::size_t cell ) { return Kiv::datumText( cells[ cell ] ); };
      bool const isState = text( 6 ) == ( start.isOver ? "running" : "ended in its first pass" ) ||
                           ( start.mayHaveFailed && start.swept == 0 &&
                             text( 6 ).starts_with( "running; not swept, since " ) );
      if( text( 1 ) != ( at == 0 ? "agent" : "machines" ) ||
          text( 2 ) != Kiv::toText( start.kind ) || text( 3 ) != "0.0" ||
          text( 5 ) != Kiv::toText( start.swept ) || !isState ) {
         found( "show restarts: line " + std::to_string( n + 1 ) + " is " +
                Kiv::datumText( ( *rows )[ n ] ) + ", and must have swept " +
                Kiv::toText( start.swept ) + ( start.isOver ? "" : ", and not be over" ) );
      }
   }
}

void
ContextObserver::checkAllObserved( String const & path, Datum const & what ) {
   auto const isIn = [ & ]( auto const & list, auto const & pathOf ) {
      return std::ranges::any_of(
            list, [ & ]( auto const & each ) { return isBelow( path, pathOf( each ) ); } );
   };
   bool const isTable = std::ranges::any_of( tables, [ & ]( auto const & table ) {
      return isBelow( path, "/sim/chip/" + String( table.first ) + "Table" );
   } );
   if( isTable || isIn( observed, []( auto const & each ) { return each; } ) ||
       isIn( constants, []( auto const & each ) { return each.first; } ) ) {
      return;
   }
   auto const * const members = what.as< Datum::Object >();
   if( !members || members->empty() ) {
      return found( path + ": no observer looks at it" );
   }
   for( auto const & [ name, member ] : *members ) {
      checkAllObserved( path + '/' + name, member );
   }
}

SIMULATION_OBSERVER( ContextObserver );

} // namespace Simulation
