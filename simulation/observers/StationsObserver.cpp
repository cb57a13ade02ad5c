// SPDX-License-Identifier: Apache-2.0
#include "simulation/observers/StationsObserver.h"

#include <algorithm>

namespace Simulation {

using Hoba::HobaEvent;
using Kiv::String;
using Kiv::toText;
using Pelt::IntfId;

namespace {

String const hostPath = "/sim/chip/mac/host/";
String const capacityPath = "/sim/chip/mac/hostTable/capacity";

// What an event does to the table of the machines.
enum Doing { learns, ages, agesLocal, agesRemote, deletes };

struct Kind {
   char const * word; // as operators type it
   HobaEvent::HobaEventType type;
   Doing doing;
   // Of the entry: behind a port or LAG, and behind a VXLAN interface.
   Bridging::EntryType local = Bridging::entryTypeUnknown;
   Bridging::EntryType remote = local;
};

constexpr Kind kinds[] = {
      { "mac-address-learned", HobaEvent::eventTypeMacAddressLearned, learns,
        Bridging::learnedDynamicMac, Bridging::learnedRemoteMac },
      { "mac-address-aged", HobaEvent::eventTypeMacAddressAged, ages },
      { "mac-address-aged-local", HobaEvent::eventTypeMacAddressAgedLocal, agesLocal },
      { "mac-address-aged-remote", HobaEvent::eventTypeMacAddressAgedRemote, agesRemote },
      { "mac-address-deleted", HobaEvent::eventTypeMacAddressDeleted, deletes },
      { "drop-mac-address", HobaEvent::eventTypeDropMacAddress, deletes },
      { "static-mac-address", HobaEvent::eventTypeStaticMacAddress, learns,
        Bridging::configuredStaticMac, Bridging::configuredRemoteMac },
      { "authenticated-mac", HobaEvent::eventTypeAuthenticatedMac, learns,
        Bridging::authenticatedMac },
      { "evpn-intf-dynamic-mac", HobaEvent::eventTypeEvpnIntfDynamicMac, learns,
        Bridging::evpnIntfDynamicMac, Bridging::evpnDynamicRemoteMac },
      { "peer-mac-address-learned", HobaEvent::eventTypePeerMacAddressLearned, learns,
        Bridging::peerDynamicMac, Bridging::peerLearnedRemoteMac },
      { "peer-static-mac-address", HobaEvent::eventTypePeerStaticMacAddress, learns,
        Bridging::peerStaticMac, Bridging::peerStaticRemoteMac },
      { "peer-authenticated-mac", HobaEvent::eventTypePeerAuthenticatedMac, learns,
        Bridging::peerAuthenticatedMac },
};

Kind const *
kindOf( String const & word ) {
   auto const found = std::ranges::find_if( kinds, [ & ]( Kind const & kind ) {
      return kind.word == word || toText( kind.type ) == word;
   } );
   return found == std::end( kinds ) ? nullptr : found;
}

// What stations can be behind.
std::optional< HobaEvent::PortType >
portTypeOf( IntfId intf ) {
   if( Pelt::VxlanIntfId::isVxlanIntfId( intf ) ) {
      return HobaEvent::vxlanPort;
   }
   if( Pelt::PortChannelIntfId::isPortChannelIntfId( intf ) ) {
      return HobaEvent::trunkPort;
   }
   return Pelt::EthIntfId::isEthIntfId( intf ) || Pelt::CpuIntfId::isCpuIntfId( intf )
                ? std::optional( HobaEvent::fpPort )
                : std::nullopt;
}

// The interface, if it is one with stations behind it.
std::optional< IntfId >
intfIn( String const & word ) {
   auto const intf = parsed< IntfId >( word );
   return intf && portTypeOf( *intf ) ? intf : std::nullopt;
}

// The words of a station: its address, and its VLAN, which it must have.
std::optional< Bridging::MacVlanPair >
hostIn( String const & mac, String const & vlan ) {
   auto const addr = parsed< Pelt::EthAddr >( mac );
   auto const vlanId = parsed< Bridging::VlanId >( vlan );
   return addr && vlanId ? std::optional( Bridging::MacVlanPair( *addr, *vlanId ) ) : std::nullopt;
}

// What a frame can teach the chip. Other rows are somebody's write.
bool
isPossible( std::pair< Bridging::MacVlanPair const, IntfId > const & row ) {
   return row.first.isStation() && portTypeOf( row.second );
}

HobaEvent
eventOf( HobaEvent::HobaEventType type, Bridging::MacVlanPair host, IntfId intf,
         std::uint32_t tunnel = 0 ) {
   HobaEvent event;
   event.eventType = type;
   event.portType = *portTypeOf( intf );
   event.port = intf;
   event.tunnelId = event.portType == HobaEvent::vxlanPort ? tunnel : 0;
   event.host = host;
   return event;
}

} // namespace

StationsObserver::StationsObserver( Switch & simulated, Observers & observers )
      : Observer( simulated, observers, "stations" ), ports_( observers.find< PortsObserver >() ),
        lags_( observers.find< LagObserver >() ), events_( observers.find< EventsObserver >() ) {}

// ---- What happens to stations

void
StationsObserver::prepare( Draw & draw, Steps & steps ) {
   if( draw.chance( 20 ) ) {
      proposeFault( draw, steps );
   }
}

void
StationsObserver::propose( Draw & draw, Steps & steps ) {
   auto const kind = draw.below( 30 );
   if( kind < 16 ) {
      proposeEvent( draw, steps );
   } else if( kind < 25 ) {
      auto const intf = draw.chance( 85 ) ? draw.intf() : draw.oneOf( { "Cpu", "Vxlan1" } );
      auto const station = draw.station();
      auto const host = station + ' ' + draw.vlan();
      steps.push_back( draw.chance( 70 ) ? "sim event learn " + intf + ' ' + host
                                         : "sim event age " + host );
   } else if( kind < 28 ) {
      proposeFault( draw, steps );
   } else {
      steps.push_back(
            draw.oneOf( { "sim event learn Ethernet99 00:00:5e:00:53:01 1",
                          "sim event learn Vlan1 00:00:5e:00:53:01 1",
                          "sim event learn Ethernet1 01:00:5e:00:53:01 1",
                          "sim event learn Ethernet1 00:00:00:00:00:00 1",
                          "sim event learn Ethernet1 00:00:5e:00:53:01 4095",
                          "sim event age 00:00:5e:00:53:99 1", "sim event age 01:00:5e:00:53:01 1",
                          "sim event station mac-address-lost Ethernet1 00:00:5e:00:53:01 1",
                          "sim event station static-mac-address Vlan1 00:00:5e:00:53:01 1",
                          "sim event station static-mac-address Ethernet1 01:00:5e:00:53:01 1",
                          "sim event station port Ethernet1 00:00:5e:00:53:01 1",
                          "sim event station static-mac-address Vxlan1 00:00:5e:00:53:01 1 x",
                          "set /sim/chip/mac/host/00:00:5e:00:53:01@1 Ethernet",
                          "set /sim/chip/mac/host/00:00:5e:00:53:01@4095 Ethernet1",
                          "set /sim/chip/mac/hostTable/capacity -1" } ) );
   }
}

// Of any kind, in order or ahead.
void
StationsObserver::proposeEvent( Draw & draw, Steps & steps ) const {
   auto const & kind = kinds[ draw.chance( 25 ) ? 0 : draw.below( std::size( kinds ) ) ];
   auto const intf = draw.chance( 60 ) ? draw.intf() : draw.oneOf( { "Cpu", "Vxlan1", "Vxlan2" } );
   auto const tunnel = draw.chance( 50 ) ? ' ' + toText( draw.below( 3 ) ) : "";
   auto const station = draw.station();
   auto const vlan = draw.vlan();
   bool const isQueued = draw.chance( 50 ); // and overtaken
   if( draw.chance( 30 ) ) {
      if( isQueued ) {
         steps.push_back( "sim event station " + String( kind.word ) + " Ethernet1 " + station +
                          ' ' + vlan );
      }
      steps.push_back( "event-ahead " + toText( kind.type ) + ' ' + station + '@' + vlan + ' ' +
                       intf + tunnel );
   } else {
      steps.push_back( "sim event station " + String( kind.word ) + ' ' + intf + ' ' + station +
                       ' ' + vlan + tunnel );
   }
}

// A chip with little room; one that somebody spoils.
void
StationsObserver::proposeFault( Draw & draw, Steps & steps ) const {
   auto const kind = draw.below( 10 );
   auto const station = draw.station();
   auto const host = station + '@' + draw.vlan();
   auto const intf = draw.intf();
   if( kind < 4 ) {
      auto const capacity = draw.oneOf( { "0", "1", "4", "12", "131072" } );
      steps.push_back( "set " + capacityPath + ' ' + capacity );
   } else if( kind < 6 ) {
      steps.push_back( "del " + hostPath + host );
   } else if( kind < 8 ) {
      steps.push_back( "set " + hostPath + host + ' ' + intf );
   } else if( kind < 9 ) {
      steps.push_back( "set " + hostPath + host + " Vlan" + toText( 1 + draw.below( 4 ) ) );
   } else {
      auto const impossible = draw.oneOf( { "01:00:5e:00:53:01@1", "00:00:5e:00:53:01@0" } );
      steps.push_back( "set " + hostPath + impossible + ' ' + intf );
   }
}

// What no frame taught the chip fails the machines' beginning.
bool
StationsObserver::hasFaults() const {
   return !std::ranges::all_of( hosts_, isPossible );
}

Steps
StationsObserver::heal() {
   Steps steps;
   for( auto const & row : hosts_ ) {
      if( !isPossible( row ) ) {
         steps.push_back( "del " + hostPath + toText( row.first ) );
      }
   }
   return steps;
}

Observer::Verdict
StationsObserver::judge( Step const & step ) const {
   if( step.begins( "sim event learn" ) ) {
      return verdict( canLearn( step ) );
   }
   if( step.begins( "sim event age" ) ) {
      return verdict( canAge( step ) );
   }
   if( step.begins( "sim event station" ) || step.begins( "event-ahead" ) ) {
      return verdict( canBeTold( step ) );
   }
   if( step.isAt( capacityPath ) ) {
      return verdict( step[ 0 ] == "set" && parsed< std::uint64_t >( step[ 2 ] ) );
   }
   if( !step.isAt( "/sim/chip/mac/host" ) ) {
      return notMine;
   }
   auto const host = parsed< Host >( step[ 1 ].substr( hostPath.size() ) );
   return verdict( host &&
                   ( step[ 0 ] == "del" ? hosts_.contains( *host )
                                        : parsed< IntfId >( step[ 2 ] ) && hasRoomFor( *host ) ) );
}

bool
StationsObserver::hasRoomFor( Host station ) const {
   return hosts_.contains( station ) || capacity_ == 0 || hosts_.size() < capacity_;
}

// The switch has this interface.
bool
StationsObserver::isThere( IntfId intf ) const {
   return ports_.has( intf ) || lags_.has( intf ) || Pelt::CpuIntfId::isCpuIntfId( intf ) ||
          Pelt::VxlanIntfId::isVxlanIntfId( intf );
}

bool
StationsObserver::canLearn( Step const & step ) const {
   auto const intf = intfIn( step[ 3 ] );
   auto const host = hostIn( step[ 4 ], step[ 5 ] );
   return simulated().isRunning() && intf && isThere( *intf ) && host && host->isStation();
}

bool
StationsObserver::canAge( Step const & step ) const {
   auto const host = hostIn( step[ 3 ], step[ 4 ] );
   auto const row = hosts_.find( host.value_or( Host() ) );
   return row != hosts_.end() && isPossible( *row );
}

// The driver tells only what it knows to be right.
bool
StationsObserver::canBeTold( Step const & step ) const {
   if( step[ 0 ] == "event-ahead" ) {
      return true;
   }
   auto const host = hostIn( step[ 5 ], step[ 6 ] );
   bool const isTunnel = step[ 7 ].empty() || parsed< std::uint32_t >( step[ 7 ] );
   return kindOf( step[ 3 ] ) && intfIn( step[ 4 ] ) && host && host->isStation() && isTunnel;
}

// ---- The chip

void
StationsObserver::heard( Step const & step, Kiv::Datum const & answer ) {
   if( step.begins( "sim event learn" ) ) {
      learned( step, answer );
   } else if( step.begins( "sim event age" ) ) {
      aged( step );
   } else if( step.begins( "sim event station" ) || step.begins( "event-ahead" ) ) {
      told( step );
   } else if( step.isAt( capacityPath ) ) {
      capacity_ = Kiv::fromText< std::uint64_t >( step[ 2 ] );
   } else if( step.isAt( "/sim/chip/mac/host" ) ) {
      auto const host = Host::parse( step[ 1 ].substr( hostPath.size() ) );
      if( step[ 0 ] == "del" ) {
         hosts_.erase( host );
      } else {
         hosts_[ host ] = IntfId( step[ 2 ] );
      }
   }
}

void
StationsObserver::learned( Step const & step, Kiv::Datum const & answer ) {
   constexpr char const * answers[] = { "learnt", "moved", "known already, not reported" };
   auto const learning = learn( IntfId( step[ 3 ] ), Pelt::EthAddr::parse( step[ 4 ] ),
                                Kiv::fromText< Bridging::VlanId >( step[ 5 ] ) );
   String const expected =
         learning == full ? "not learnt: the chip's table is full" : answers[ learning ];
   if( auto const is = Kiv::datumText( answer ); is != expected ) {
      found( step.text() + " answers " + is + ", and must answer " + expected );
   }
}

void
StationsObserver::aged( Step const & step ) {
   auto const row = hosts_.find( *hostIn( step[ 3 ], step[ 4 ] ) );
   events_.report( eventOf( HobaEvent::eventTypeMacAddressAged, row->first, row->second ) );
   ++counts_[ "aged" ];
   hosts_.erase( row );
}

void
StationsObserver::told( Step const & step ) {
   bool const isAhead = step[ 0 ] == "event-ahead";
   auto const host = isAhead ? Host::parse( step[ 2 ] ) : *hostIn( step[ 5 ], step[ 6 ] );
   auto const & tunnel = step[ isAhead ? 4 : 7 ];
   auto const event =
         eventOf( kindOf( step[ isAhead ? 1 : 3 ] )->type, host, IntfId( step[ isAhead ? 3 : 4 ] ),
                  parsed< std::uint32_t >( tunnel ).value_or( 0 ) );
   isAhead ? events_.reportAhead( event ) : events_.report( event );
}

void
StationsObserver::frameCame( Header header ) {
   ++counts_[ "frames" ];
   if( header != sound ) {
      ++counts_[ header == runt ? "runts" : "badVlanRefused" ];
   }
}

// The path of a frame goes by what the chip's table holds at that moment, as everybody can read it.
IntfId
StationsObserver::intfOf( IntfId port ) const {
   auto const lag = textAt( "/sim/chip/trunk/lag/" + toText( port ) );
   return lag.empty() ? port : IntfId( lag );
}

IntfId
StationsObserver::hostIntf( Host station ) const {
   auto const row = hosts_.find( station );
   return row == hosts_.end() ? IntfId() : row->second;
}

StationsObserver::Learning
StationsObserver::learn( IntfId intf, Pelt::EthAddr source, Bridging::VlanId vlan ) {
   Host const station( source, vlan );
   if( !source.isUnicast() ) {
      ++counts_[ source.isZero() ? "zeroSourceRefused" : "groupSourceRefused" ];
      return source.isZero() ? zero : group;
   }
   auto const behind = intfOf( intf );
   auto const before = hostIntf( station );
   if( before == behind ) {
      ++counts_[ "hits" ];
      return known;
   }
   if( !hasRoomFor( station ) ) {
      ++counts_[ "tableFull" ];
      return full;
   }
   ++counts_[ before ? "moved" : "learnt" ];
   hosts_[ station ] = behind;
   events_.report( eventOf( HobaEvent::eventTypeMacAddressLearned, station, behind ) );
   return before ? moved : learnt;
}

void
StationsObserver::chipForgot() {
   hosts_.clear();
   counts_.clear();
}

// What no frame taught the chip has no event, and is not met again.
void
StationsObserver::reportAll() {
   std::erase_if( hosts_, []( auto const & row ) { return !isPossible( row ); } );
   for( auto const & [ station, intf ] : hosts_ ) {
      events_.report( eventOf( HobaEvent::eventTypeMacAddressLearned, station, intf ) );
   }
}

// ---- The machines

void
StationsObserver::apply( Event const & event ) {
   auto const & kind = *kindOf( toText( event.eventType ) );
   auto const old = macTable_.find( event.host );
   bool const isRemote =
         old != macTable_.end() && Bridging::isEntryTypeRemote( old->second.entryType );
   bool const isLocal = old != macTable_.end() && !isRemote;
   if( ( kind.doing == agesLocal && isRemote ) || ( kind.doing == agesRemote && isLocal ) ) {
      return events_.dropped( "dropWrongAge" );
   }
   if( kind.doing != learns || isAgedInstead( event ) ) {
      macTable_.erase( event.host );
      return;
   }
   auto & entry = macTable_[ event.host ];
   entry = {};
   entry.macEntry = event.host;
   entry.intf = event.port;
   entry.entryType = event.portType == HobaEvent::vxlanPort ? kind.remote : kind.local;
   entry.tunnelId = event.tunnelId;
   entry.learnTime = simulated().now();
   entry.learnedInHardware = event.eventType == HobaEvent::eventTypeMacAddressLearned;
}

// There can be no station.
bool
StationsObserver::isAgedInstead( Event const & event ) {
   if( Pelt::CpuIntfId::isCpuIntfId( event.port ) ) {
      events_.dropped( "agedLearnOnCpuPort" );
      return true;
   }
   if( event.portType != HobaEvent::trunkPort || !lags_.active( event.port ).empty() ) {
      return false;
   }
   events_.dropped( lags_.has( event.port ) ? "agedPortCollectionDeleted"
                                            : "agedLearnOnDeletedLag" );
   return true;
}

void
StationsObserver::forgetOthers() {
   std::erase_if( macTable_,
                  [ this ]( auto const & entry ) { return !hosts_.contains( entry.first ); } );
}

void
StationsObserver::check() {
   expectRows( "/sim/chip/mac/host", rowsOf( hosts_ ) );
   expectRows( "/sim/chip/mac/count", rowsOf( counts_ ) );
   expectText( "/sim/chip/mac/hostTable/rows", toText( hosts_.size() ) );
   expectText( capacityPath, toText( capacity_ ) );
   expectRows( "/hoba/macTable/macEntry", rowsOf( macTable_ ) );
}

SIMULATION_OBSERVER( StationsObserver );

} // namespace Simulation
