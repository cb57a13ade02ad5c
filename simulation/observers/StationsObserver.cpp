// SPDX-License-Identifier: Apache-2.0
#include "simulation/observers/StationsObserver.h"

#include <algorithm>

namespace Simulation {

using Hoba::HobaEvent;
using Kiv::String;
using Kiv::toText;
using Pelt::IntfId;

namespace {

String const macPath = "/sim/chip/mac/";
String const hostPath = macPath + "host/";
String const capacityPath = "/sim/chip/mac/hostTable/capacity";

constexpr char const * settings[] = { "agingTime", "sourceMacInvalid", "sourceCheckCpuMac" };

using Row = StationsObserver::Row;

// The chip learnt it, or software wants it in the table as if it had.
bool
isLearnt( Row const & row ) {
   return row.byChip || row.entryType == Bridging::learnedDynamicMac ||
          ( row.ages && row.entryType == Bridging::learnedRemoteMac );
}

} // namespace

void
FlushScope::print( std::string & out ) const {
   out += vlan ? toText( vlan ) : "*";
   out += '@';
   out += intf ? toText( intf ) : "*";
}

FlushScope
FlushScope::parse( std::string_view text ) {
   auto const at = text.find( '@' );
   if( at == text.npos ) {
      Kiv::parseFailed( text, "a VLAN and an interface" );
   }
   auto const vlan = text.substr( 0, at ), intf = text.substr( at + 1 );
   return { intf == "*" ? IntfId() : IntfId::parse( intf ),
            vlan == "*" ? std::uint64_t( 0 ) : Kiv::fromText< Bridging::VlanId >( vlan ).value() };
}

bool
StationsObserver::isBound( Row const & row ) {
   constexpr Bridging::EntryType bound[] = {
         Bridging::configuredStaticMac,  Bridging::configuredRemoteMac,
         Bridging::authenticatedMac,     Bridging::peerStaticMac,
         Bridging::peerAuthenticatedMac, Bridging::peerStaticRemoteMac,
         Bridging::evpnStaticRemoteMac };
   return !row.ages && std::ranges::find( bound, row.entryType ) != std::end( bound );
}

bool
StationsObserver::isChips( Row const & row ) {
   return row.byChip || ( row.ages && row.entryType == Bridging::learnedDynamicMac );
}

StationsObserver::StationsObserver( Switch & simulated, Observers & observers )
      : Observer( simulated, observers, "stations" ), ports_( observers.find< PortsObserver >() ),
        lags_( observers.find< LagObserver >() ), events_( observers.find< EventsObserver >() ) {
   // When the chip takes its turn: what it does then is the model's to know.
   simulated.watch( macPath + "setting", [ this ] { settingChanged(); } );
   simulated.watch( macPath + "count", [ this ] { sweepTurn(); } );
   simulated.watch( macPath + "flush", [ this ] { flushTurn(); } );
   simulated.watch( macPath + "host", [ this ] { writtenBySoftware(); } );
   simulated.watch( macPath + "seen", [ this ] { writtenBySoftware(); } );
   simulated.watch( macPath + "hostTable", [ this ] { writtenBySoftware(); } );
}

// ---- What happens to stations

void
StationsObserver::prepare( Draw & draw, Steps & steps ) {
   if( draw.chance( 20 ) ) {
      proposeFault( draw, steps );
   }
}

void
StationsObserver::propose( Draw & draw, Steps & steps ) {
   auto const kind = draw.below( 36 );
   if( kind >= 30 ) {
      proposeTold( draw, steps );
   } else if( kind < 16 ) {
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
                          "set /sim/chip/mac/host/00:00:5e:00:53:01@1 Ethernet1",
                          "set /sim/chip/mac/host/00:00:5e:00:53:01@1/intf Ethernet",
                          "set /sim/chip/mac/host/00:00:5e:00:53:01@4095/intf Ethernet1",
                          "mac-flush 1", "mac-flush 4095@*", "set /sim/chip/mac/setting/colour 1",
                          "set /sim/chip/mac/hostTable/capacity -1" } ) );
   }
}

// Of any kind, in order or ahead.
void
StationsObserver::proposeEvent( Draw & draw, Steps & steps ) const {
   auto const & kind =
         stationEvents()[ draw.chance( 25 ) ? 0 : draw.below( stationEvents().size() ) ];
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

// What it is to forget.
void
StationsObserver::proposeTold( Draw & draw, Steps & steps ) const {
   auto const intf = draw.intf();
   auto const vlan = draw.vlan();
   auto const kind = draw.below( 4 );
   steps.push_back( "mac-flush " + ( kind % 2 ? vlan : "*" ) + '@' + ( kind > 1 ? intf : "*" ) );
}

// A chip with little room.
void
StationsObserver::proposeFault( Draw & draw, Steps & steps ) const {
   auto const capacity = draw.oneOf( { "0", "1", "4", "12", "131072" } );
   steps.push_back( "set " + capacityPath + ' ' + capacity );
}

// The row that it writes, field by field.
std::optional< std::pair< StationsObserver::Host, Row > >
StationsObserver::written( Step const & step ) const {
   auto const words = step[ 1 ].substr( hostPath.size() );
   auto const slash = words.find( '/' );
   auto const host = parsed< Host >( words.substr( 0, slash ) );
   if( !host || slash == String::npos ) {
      return {};
   }
   auto const old = hosts_.find( *host );
   auto row = old == hosts_.end() ? Row() : old->second;
   auto const read = [ & ]< class T >( T & field ) {
      auto const value = parsed< T >( step[ 2 ] );
      field = value.value_or( field );
      return value.has_value();
   };
   auto const field = words.substr( slash + 1 );
   bool const isRead = field == "intf"        ? read( row.intf )
                       : field == "entryType" ? read( row.entryType )
                       : field == "dropMode"  ? read( row.dropMode )
                       : field == "ages"      ? read( row.ages )
                       : field == "byChip"    ? read( row.byChip )
                                              : false;
   return isRead && hasRoomFor( *host ) ? std::optional( std::pair( *host, row ) ) : std::nullopt;
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
   if( step[ 0 ] == "mac-flush" ) {
      return verdict( parsed< FlushScope >( step[ 1 ] ).has_value() );
   }
   if( !step.isAt( macPath + "host" ) ) {
      return isTold( step ) ? verdict( canTell( step ) ) : notMine;
   }
   if( step[ 0 ] == "set" ) {
      return verdict( written( step ).has_value() );
   }
   auto const host = parsed< Host >( step[ 1 ].substr( hostPath.size() ) );
   return verdict( host && hosts_.contains( *host ) );
}

bool
StationsObserver::isTold( Step const & step ) const {
   return step.isAt( macPath + "setting" ) || step.isAt( macPath + "intfLearning" ) ||
          step.isAt( macPath + "vlanLearning" );
}

bool
StationsObserver::canTell( Step const & step ) const {
   if( step[ 0 ] == "del" ) {
      return !textAt( step[ 1 ] ).empty();
   }
   auto const key = step[ 1 ].substr( step[ 1 ].rfind( '/' ) + 1 );
   if( step.isAt( macPath + "setting" ) ) {
      return std::ranges::find( settings, key ) != std::end( settings ) &&
             parsed< Kiv::Seconds >( step[ 2 ] );
   }
   bool const isKey = step.isAt( macPath + "intfLearning" )
                            ? parsed< IntfId >( key ).has_value()
                            : parsed< Bridging::VlanId >( key ).has_value();
   return isKey && parsed< bool >( step[ 2 ] );
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
   auto const row = host ? entry( *host ) : std::nullopt;
   return row && ( row->ages || seen_.contains( *host ) ) && host->isStation() &&
          portTypeOf( row->intf );
}

// The driver tells only what it knows to be right.
bool
StationsObserver::canBeTold( Step const & step ) const {
   if( step[ 0 ] == "event-ahead" ) {
      return true;
   }
   auto const host = hostIn( step[ 5 ], step[ 6 ] );
   bool const isTunnel = step[ 7 ].empty() || parsed< std::uint32_t >( step[ 7 ] );
   return stationEventOf( step[ 3 ] ) && intfIn( step[ 4 ] ) && host && host->isStation() &&
          isTunnel;
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
      auto const now = step[ 0 ] == "set" ? written( step ) : std::nullopt;
      auto const host = now ? now->first : Host::parse( step[ 1 ].substr( hostPath.size() ) );
      auto const old = hosts_.find( host );
      auto const before = old == hosts_.end() ? std::nullopt : std::optional( old->second );
      if( now ) {
         hosts_[ host ] = now->second;
      } else {
         hosts_.erase( host );
      }
      changed( host, before );
   } else if( step[ 0 ] == "mac-flush" ) {
      flushTurn();
   }
}

void
StationsObserver::learned( Step const & step, Kiv::Datum const & answer ) {
   constexpr char const * answers[] = {
         "learnt",
         "moved",
         "known already, not reported",
         "not learnt: the chip's table is full",
         "not learnt: learning is off here",
         "software has it elsewhere, where it stays; reported once",
         "software has it elsewhere, where it belongs; not reported" };
   frameCame( sound );
   String const expected = answers[ learn( IntfId( step[ 3 ] ), Pelt::EthAddr::parse( step[ 4 ] ),
                                           Kiv::fromText< Bridging::VlanId >( step[ 5 ] ) ) ];
   if( auto const is = Kiv::datumText( answer ); is != expected ) {
      found( step.text() + " answers " + is + ", and must answer " + expected );
   }
}

void
StationsObserver::aged( Step const & step ) {
   auto const host = *hostIn( step[ 3 ], step[ 4 ] );
   if( hosts_.at( host ).ages ) {
      forget( host, "aged" );
   } else {
      forgetSeen( host, "aged" );
   }
}

void
StationsObserver::told( Step const & step ) {
   bool const isAhead = step[ 0 ] == "event-ahead";
   auto const host = isAhead ? Host::parse( step[ 2 ] ) : *hostIn( step[ 5 ], step[ 6 ] );
   auto const & tunnel = step[ isAhead ? 4 : 7 ];
   auto const event = eventOf( stationEventOf( step[ isAhead ? 1 : 3 ] )->type, host,
                               IntfId( step[ isAhead ? 3 : 4 ] ),
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

bool
StationsObserver::isFlushed( Host station, IntfId intf, std::uint32_t flushes ) const {
   return std::ranges::any_of( flushes_, [ & ]( auto const & each ) {
      auto const & [ scope, number ] = each;
      return flushes < number && ( !scope.intf || scope.intf == intf ) &&
             ( scope.vlan == 0 || scope.vlan == station.vlanId().value() );
   } );
}

std::optional< Row >
StationsObserver::entry( Host station ) const {
   auto const found = hosts_.find( station );
   if( found == hosts_.end() ) {
      return {};
   }
   auto const & row = found->second;
   return row.ages && isFlushed( station, row.intf, row.flushes ) ? std::nullopt
                                                                  : std::optional( row );
}

// Where the machines must believe it to be, by what was reported.
IntfId
StationsObserver::reportedAt( Host station ) const {
   if( auto const found = seen_.find( station ); found != seen_.end() ) {
      auto const & row = found->second;
      return isFlushed( station, row.intf, row.flushes ) ? IntfId() : row.intf;
   }
   auto const row = entry( station );
   return row && isLearnt( *row ) ? row->intf : IntfId();
}

// Not of what can be no station.
void
StationsObserver::report( HobaEvent::HobaEventType type, Host station, IntfId intf ) {
   bool const isHeard = textAt( "/sim/chip/events/reporting" ) == "true";
   if( isHeard && station.isStation() && portTypeOf( intf ) ) {
      events_.report( eventOf( type, station, intf ) );
   }
}

StationsObserver::Learning
StationsObserver::learn( IntfId intf, Pelt::EthAddr source, Bridging::VlanId vlan ) {
   Host const station( source, vlan );
   if( !source.isUnicast() ) {
      ++counts_[ source.isZero() ? "zeroSourceRefused" : "groupSourceRefused" ];
      return source.isZero() ? zero : group;
   }
   auto const behind = intfOf( intf );
   dropFlushed( station );
   auto const host = hosts_.find( station );
   bool const isThere = host != hosts_.end();
   if( isThere && host->second.intf == behind ) {
      host->second.heardIn = numberOf( "sweeps" );
      if( !seen_.contains( station ) ) {
         ++counts_[ "hits" ];
         return known;
      }
   }
   if( !textAt( macPath + "intfLearning/" + toText( behind ) ).empty() ||
       !textAt( macPath + "vlanLearning/" + toText( vlan ) ).empty() ) {
      ++counts_[ "learningOff" ];
      return off;
   }
   auto const isChips = [ & ]( Row const & row ) {
      return row.byChip || ( row.ages && row.entryType == Bridging::learnedDynamicMac );
   };
   if( isThere && !isChips( host->second ) ) {
      return seenElsewhere( behind, station, host->second );
   }
   if( !hasRoomFor( station ) ) {
      ++counts_[ "tableFull" ];
      return full;
   }
   ++counts_[ isThere ? "moved" : "learnt" ];
   auto const before = isThere ? std::optional( host->second ) : std::nullopt;
   auto & row = hosts_[ station ] = Row();
   row.intf = behind;
   row.entryType = Pelt::VxlanIntfId::isVxlanIntfId( behind ) ? Bridging::learnedRemoteMac
                                                              : Bridging::learnedDynamicMac;
   row.ages = row.byChip = true;
   row.heardIn = numberOf( "sweeps" );
   row.flushes = numberOf( "flushes" );
   changed( station, before );
   return isThere ? moved : learnt;
}

// Of the chip's counts, as rows keep them.
std::uint32_t
StationsObserver::numberOf( char const * count ) const {
   auto const found = counts_.find( count );
   return found == counts_.end() ? 0 : static_cast< std::uint32_t >( found->second );
}

StationsObserver::Learning
StationsObserver::seenElsewhere( IntfId behind, Host station, Row const & row ) {
   if( isBound( row ) ) {
      ++counts_[ "boundElsewhere" ];
      return bound;
   }
   auto & seen = seen_[ station ];
   seen.heardIn = numberOf( "sweeps" );
   if( seen.intf == behind ) {
      ++counts_[ "hits" ];
   } else {
      ++counts_[ "seenElsewhere" ];
      seen.intf = behind;
      seen.flushes = numberOf( "flushes" );
      report( HobaEvent::eventTypeMacAddressLearned, station, behind );
   }
   return elsewhere;
}

void
StationsObserver::changed( Host station, std::optional< Row > const & before ) {
   auto const found = hosts_.find( station );
   auto const * const now = found == hosts_.end() ? nullptr : &found->second;
   auto const seen = seen_.find( station );
   bool const wasSeen = seen != seen_.end();
   auto const told = wasSeen                         ? seen->second.intf
                     : before && isLearnt( *before ) ? before->intf
                                                     : IntfId();
   bool const isThere = now && isLearnt( *now ) && now->intf == told;
   if( wasSeen && now && !isThere && !isChips( *now ) && !isBound( *now ) ) {
      return; // still seen where software does not have it
   }
   seen_.erase( station );
   if( isThere ) {
      return;
   }
   if( now && isLearnt( *now ) ) {
      report( HobaEvent::eventTypeMacAddressLearned, station, now->intf );
   } else if( told ) {
      report( HobaEvent::eventTypeMacAddressAged, station, told );
   }
}

// The row goes, and with it where the station was seen.
void
StationsObserver::forget( Host station, char const * why ) {
   auto const intf =
         seen_.contains( station ) ? seen_.at( station ).intf : hosts_.at( station ).intf;
   ++counts_[ why ];
   seen_.erase( station );
   hosts_.erase( station );
   report( HobaEvent::eventTypeMacAddressAged, station, intf );
}

void
StationsObserver::forgetSeen( Host station, char const * why ) {
   auto const intf = seen_.at( station ).intf;
   ++counts_[ why ];
   seen_.erase( station );
   report( HobaEvent::eventTypeMacAddressAged, station, intf );
}

// What the machine of MAC addresses writes, whose observer knows what that must be. What it has written, its
// count of writes says.
void
StationsObserver::writtenBySoftware() {
   auto const written = textAt( macPath + "hostTable/writes" );
   if( written.empty() ) {
      return; // it goes
   }
   if( textAt( "/sim/chip/events/reporting" ) == "true" && !events_.isThere() ) {
      return; // machines begin, which hear of it behind all that there is: forgetOthers()
   }
   auto const countOf = [ & ]( char const * what ) {
      return Kiv::fromText< std::uint64_t >( textAt( macPath + "hostTable/" + what ) );
   };
   // What has not landed yet was stamped when it was written.
   auto const landing = countOf( "landing" );
   stamps_.emplace( numberOf( "sweeps" ), numberOf( "flushes" ) );
   // Who asks or writes finds flushed what the flush has not come to yet.
   if( !flushes_.empty() ) {
      dropGone( hosts_, "host" );
      dropGone( seen_, "seen" );
   }
   auto const writes = countOf( "writes" ) + countOf( "swept" ) - landing;
   if( writes == writes_ ) {
      if( landing == 0 ) {
         stamps_.clear();
      }
      return;
   }
   std::map< Host, Row > rows;
   auto const table = simulated().get( macPath + "host" );
   for( auto const & [ station, row ] : *table.as< Kiv::Datum::Object >() ) {
      rows.emplace( Host::parse( station ), Kiv::fromDatum< Row >( row ) );
   }
   for( auto const & [ station, row ] : rows ) {
      auto const old = hosts_.find( station );
      if( !row.byChip && ( old == hosts_.end() || !( old->second == row ) ) ) {
         writes_ = writes;
         wrote( station, &row );
      }
   }
   for( auto const & [ station, row ] : std::map( hosts_ ) ) {
      if( !rows.contains( station ) ) {
         writes_ = writes;
         wrote( station, nullptr );
      }
   }
}

// Of those that the chip's table has no more, what a flush has come to.
template< class Known >
void
StationsObserver::dropGone( Known const & those, char const * table ) {
   auto const rows = rowsAt( macPath + table );
   for( auto const & [ station, row ] : Known( those ) ) {
      if( !rows.contains( toText( station ) ) ) {
         dropFlushed( station );
      }
   }
}

void
StationsObserver::wrote( Host station, Row const * row ) {
   dropFlushed( station );
   std::optional< Row > before;
   if( auto const old = hosts_.find( station ); old != hosts_.end() ) {
      before.emplace( old->second );
   }
   if( !row ) {
      if( hosts_.erase( station ) ) {
         changed( station, before );
      }
      return;
   }
   if( !stamps_.contains( { row->heardIn, row->flushes } ) ) {
      found( "software wrote " + toText( station ) + ", and the chip notes " +
             Kiv::datumText( Kiv::toDatum( *row ) ) );
   }
   hosts_[ station ] = *row;
   changed( station, before );
}

void
StationsObserver::dropFlushed( Host station ) {
   if( hosts_.contains( station ) && !entry( station ) ) {
      forget( station, "flushed" );
   }
   auto const seen = seen_.find( station );
   if( seen != seen_.end() && isFlushed( station, seen->second.intf, seen->second.flushes ) ) {
      forgetSeen( station, "flushed" );
   }
}

// ---- The chip's own turns

// What it does while machines begin, they apply behind all that there is: reportAll().
void
StationsObserver::flushTurn() {
   if( textAt( "/sim/chip/events/reporting" ) == "true" && !events_.isThere() ) {
      return;
   }
   auto const working = rowsAt( macPath + "flush" );
   for( auto const & [ scope, number ] : working ) {
      auto & last = flushes_[ FlushScope::parse( scope ) ];
      last = std::max( last, Kiv::fromText< std::uint64_t >( number ) );
      counts_[ "flushes" ] = std::max( counts_[ "flushes" ], last );
   }
   for( auto const & [ scope, number ] : std::map( flushes_ ) ) {
      if( !working.contains( toText( scope ) ) ) {
         flush( scope );
         flushes_.erase( scope );
      }
   }
}

void
StationsObserver::flush( FlushScope const & scope ) {
   std::vector< Host > stations;
   auto const add = [ & ]( auto const & rows ) {
      for( auto const & [ station, row ] : rows ) {
         bool const isIn = !scope.vlan || station.vlanId().value() == scope.vlan;
         if( isIn && ( !scope.intf || row.intf == scope.intf ) ) {
            stations.push_back( station );
         }
      }
   };
   add( hosts_ );
   add( seen_ );
   for( auto const station : stations ) {
      dropFlushed( station );
   }
}

void
StationsObserver::settingChanged() {
   auto const text = textAt( macPath + "setting/agingTime" );
   if( text != agingTime_ ) {
      agingTime_ = text;
      auto const time = text.empty() ? 0 : std::stod( text );
      half_ = time > 0 ? std::max( time, 1.0 ) / 2 : 0;
      halfFrom_ = simulated().now();
      halves_ = 0;
   }
}

// At its time, and at no other, the chip begins a sweep.
void
StationsObserver::sweepTurn() {
   auto const text = textAt( macPath + "count/sweeps" );
   if( text != toText( numberOf( "sweeps" ) + 1 ) ) {
      return;
   }
   auto const sweeps = ++counts_[ "sweeps" ];
   auto const due = halfFrom_ + static_cast< double >( ++halves_ ) * half_;
   if( half_ == 0 || simulated().now() != due ) {
      found( "sweep " + text + " of the MAC table at " + toText( simulated().now() ) +
             ", and must be at " + toText( due ) );
   }
   for( auto const & [ station, row ] : std::map( hosts_ ) ) {
      if( row.ages && row.heardIn + 1 < sweeps ) {
         forget( station, "aged" );
      }
   }
   for( auto const & [ station, row ] : std::map( seen_ ) ) {
      if( row.heardIn + 1 < sweeps ) {
         forgetSeen( station, "aged" );
      }
   }
}

void
StationsObserver::timeIs( Kiv::Seconds now ) {
   if( half_ > 0 && halfFrom_ + static_cast< double >( halves_ + 1 ) * half_ <= now ) {
      found( "no sweep of the MAC table by " + toText( now ) );
   }
}

void
StationsObserver::chipForgot() {
   hosts_.clear();
   seen_.clear();
   flushes_.clear();
   counts_.clear();
}

// What no frame taught the chip has no event.
void
StationsObserver::reportAll() {
   for( auto const & [ station, row ] : hosts_ ) {
      if( auto const intf = reportedAt( station ) ) {
         report( HobaEvent::eventTypeMacAddressLearned, station, intf );
      }
   }
   flushTurn();
}

// ---- The machines

void
StationsObserver::apply( Event const & event ) {
   auto const & kind = *stationEventOf( toText( event.eventType ) );
   auto const old = macTable_.find( event.host );
   bool const isRemote =
         old != macTable_.end() && Bridging::isEntryTypeRemote( old->second.entryType );
   bool const isLocal = old != macTable_.end() && !isRemote;
   if( ( kind.doing == StationEvent::agesLocal && isRemote ) ||
       ( kind.doing == StationEvent::agesRemote && isLocal ) ) {
      return events_.dropped( "dropWrongAge" );
   }
   if( kind.doing != StationEvent::learns || isAgedInstead( event ) ) {
      macTable_.erase( event.host );
      return;
   }
   auto & entry = macTable_[ event.host ];
   auto const before = std::exchange( entry, Entry() );
   entry.macEntry = event.host;
   entry.intf = event.port;
   entry.entryType = event.portType == HobaEvent::vxlanPort ? kind.remote : kind.local;
   entry.tunnelId = event.tunnelId;
   bool const isKnown = before.macEntry == entry.macEntry && before.intf == entry.intf &&
                        before.entryType == entry.entryType;
   entry.learnTime = isKnown ? before.learnTime : simulated().now();
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
                  [ this ]( auto const & entry ) { return !reportedAt( entry.first ); } );
   writtenBySoftware();
}

void
StationsObserver::check() {
   expectRows( "/sim/chip/mac/host", rowsOf( hosts_ ) );
   expectRows( "/sim/chip/mac/seen", rowsOf( seen_ ) );
   expectRows( "/sim/chip/mac/flush", rowsOf( flushes_ ) );
   std::erase_if( counts_, []( auto const & count ) { return count.second == 0; } );
   expectRows( "/sim/chip/mac/count", rowsOf( counts_ ) );
   expectText( "/sim/chip/mac/hostTable/rows", toText( hosts_.size() ) );
   expectText( capacityPath, toText( capacity_ ) );
   expectRows( "/hoba/macTable/macEntry", rowsOf( macTable_ ) );
}

SIMULATION_OBSERVER( StationsObserver );

} // namespace Simulation
