// SPDX-License-Identifier: Apache-2.0
#include "simulation/observers/FramesObserver.h"

#include "simulation/Hex.h"
#include "simulation/observers/StationsObserver.h"

#include <algorithm>
#include <optional>

namespace Simulation {

using Bridging::VlanId;
using Kiv::String;
using Kiv::toText;
using Pelt::EthAddr;
using Pelt::IntfId;
using Octets = FramesObserver::Octets;

namespace {

constexpr unsigned customerTpid = 0x8100, providerTpid = 0x88a8;
constexpr unsigned vlanMask = 0xfff;

} // namespace

// A tag as it is on the wire: its Ethernet type, and what it says.
struct Tag {
   unsigned tpid;
   unsigned control;
   unsigned vlan() const { return control & vlanMask; }
};

struct FramesObserver::Header {
   StationsObserver::Header fault = StationsObserver::sound;
   EthAddr destination, source;
   std::vector< Tag > tags; // two at most
};

struct FramesObserver::Departure {
   IntfId intf;
   std::vector< IntfId > ports; // by one of these
   bool tagged;
};

// A frame on its way, and the tables that it meets.
struct FramesObserver::Passing {
   Header header;
   IntfId intf;
   String vlan;
   Rows trunk, members;
   String dropped; // where
   std::vector< Departure > departures;

   bool isTagged( IntfId by ) const { return how( by ) == "vlanTagged"; }
   bool isCarried( IntfId by ) const { return isTagged( by ) || how( by ) == "vlanUntagged"; }
   String how( IntfId by ) const { return rowIn( members, vlan + '@' + toText( by ) ); }
};

namespace {

constexpr std::size_t typeAt = 12; // in an untagged frame
constexpr std::size_t shortestFrame = 60;

// ---- Octets

unsigned
wordAt( Octets const & octets, std::size_t place ) {
   return static_cast< unsigned >( octets[ place ] << 8 | octets[ place + 1 ] );
}

EthAddr
addrAt( Octets const & octets, std::size_t place ) {
   return EthAddr( std::uint64_t( wordAt( octets, place ) ) << 32 |
                   std::uint64_t( wordAt( octets, place + 2 ) ) << 16 |
                   wordAt( octets, place + 4 ) );
}

void
append( Octets & octets, unsigned word ) {
   octets.push_back( static_cast< std::uint8_t >( word >> 8 ) );
   octets.push_back( static_cast< std::uint8_t >( word ) );
}

void
append( Octets & octets, EthAddr addr ) {
   for( auto const octet : addr.octets() ) {
      octets.push_back( octet );
   }
}

void
append( Octets & octets, Tag const & tag ) {
   append( octets, tag.tpid );
   append( octets, tag.control );
}

// ---- Answers

String
textOf( Kiv::Datum const & datum, char const * name ) {
   auto const * const member = datum.find( name );
   return member ? Kiv::datumText( *member ) : "";
}

// The tags of a departure in hexadecimal; `sim frame` tells them field by field.
String
tagsText( Kiv::Datum const & departure ) {
   auto const * const tags = departure.find( "tags" );
   auto const * const fields = tags ? tags->as< Kiv::Datum::Array >() : nullptr;
   if( !fields ) {
      return textOf( departure, "tags" );
   }
   Octets octets;
   for( auto const & tag : *fields ) {
      auto const number = [ & ]( char const * name ) {
         return static_cast< unsigned >( std::stoul( textOf( tag, name ) ) );
      };
      bool const dropEligible = textOf( tag, "dropEligible" ) == "true";
      append( octets,
              Tag{ number( "tpid" ), number( "priority" ) << 13 | ( dropEligible ? 1u << 12 : 0u ) |
                                           number( "vlan" ) } );
   }
   return hexOf( octets );
}

// The stage that dropped the frame, as `sim frame` tells it: the last one of its table.
String
lastStage( Kiv::Datum const & answer ) {
   auto const * const rows = answer.find( "rows" );
   auto const * const all = rows ? rows->as< Kiv::Datum::Array >() : nullptr;
   auto const * const last = all && !all->empty() ? all->back().as< Kiv::Datum::Array >() : nullptr;
   return last && textOf( answer, "notes" ).find( "dropped" ) != String::npos
                ? Kiv::datumText( last->front() )
                : "";
}

} // namespace

FramesObserver::FramesObserver( Switch & simulated, Observers & observers )
      : Observer( simulated, observers, "frames" ), ports_( observers.find< PortsObserver >() ),
        stations_( observers.find< StationsObserver >() ) {}

// ---- The frames that come in

namespace {

// Mostly one of the few stations.
EthAddr
anyDestination( Draw & draw ) {
   auto const station = draw.station();
   auto const kind = draw.below( 20 );
   if( kind < 12 ) {
      return EthAddr::parse( station );
   }
   return kind < 16   ? EthAddr::broadcast()
          : kind < 17 ? EthAddr( 0x01005e000001 )
          : kind < 19 ? EthAddr( 0x0180c200000e )
                      : EthAddr( 0x0200000000ee );
}

EthAddr
anySource( Draw & draw, EthAddr destination ) {
   auto const station = draw.station();
   auto const kind = draw.below( 40 );
   return kind < 36   ? EthAddr::parse( station )
          : kind < 37 ? EthAddr( 0x03005e005301 )
          : kind < 38 ? EthAddr()
                      : destination;
}

Tag
anyTag( Draw & draw, bool isInner ) {
   auto const vlan = static_cast< unsigned >( std::stoul( draw.vlan() ) );
   auto const kind = draw.below( 20 );
   auto const type = draw.below( 20 );
   auto const priority = static_cast< unsigned >( draw.below( 16 ) ) << 12;
   auto const number = kind < 14 ? vlan : kind < 17 ? 0u : kind < 19 ? 77u : 4095u;
   auto const tpid = type < ( isInner ? 16u : 13u ) ? customerTpid
                     : type < 18                    ? providerTpid
                                                    : 0x9100u;
   return { tpid, priority | number };
}

Octets
anyFrame( Draw & draw ) {
   auto const destination = anyDestination( draw );
   auto const tags = draw.oneOf( { 0, 0, 0, 1, 1, 1, 1, 2, 2, 3 } );
   Octets octets;
   append( octets, destination );
   append( octets, anySource( draw, destination ) );
   for( int n = 0; n != tags; ++n ) {
      append( octets, anyTag( draw, n != 0 ) );
   }
   append( octets, draw.oneOf( { 0x0800u, 0x86ddu, 0x0806u, 0x002au } ) );
   append( octets, 0x4500u );
   if( draw.chance( 8 ) ) {
      octets.resize( 1 + draw.below( octets.size() ) );
   }
   return octets;
}

String
anySimFrame( Draw & draw ) {
   auto const port = draw.port();
   auto const destination = anyDestination( draw );
   auto text = "sim frame " + port + ' ' + toText( destination ) + ' ' +
               toText( anySource( draw, destination ) );
   auto const vlan = draw.chance( 10 ) ? "0" : draw.vlan();
   auto const inner = draw.vlan();
   auto const priority = std::to_string( draw.below( 8 ) );
   auto const tags = draw.below( 3 );
   text += tags > 0 ? " vlan=" + vlan : "";
   text += tags > 1 ? " inner=" + inner : "";
   text += draw.chance( 25 ) ? " priority=" + priority : ""; // also where there is no tag
   text += draw.chance( 10 ) ? " type=0x86dd" : "";
   return text;
}

} // namespace

void
FramesObserver::propose( Draw & draw, Steps & steps ) {
   auto const port = draw.chance( 97 ) ? draw.port() : "Ethernet77";
   auto const kind = draw.below( 40 );
   if( kind == 0 ) {
      return steps.push_back( draw.oneOf( {
            "frame Port-Channel1 ffffffffffff00005e0053010800",
            "frame Ethernet1 nothex",
            "frame Cpu ffffffffffff00005e0053010800",
            "frame Ethernet1.5 ffffffffffff00005e0053010800",
            "sim frame Ethernet77 ff:ff:ff:ff:ff:ff 00:00:5e:00:53:01",
            "sim frame Ethernet1 nobody 00:00:5e:00:53:01",
            "sim frame Ethernet1 ff:ff:ff:ff:ff:ff 00:00:5e:00:53:01 inner=2",
            "sim frame Ethernet1 ff:ff:ff:ff:ff:ff 00:00:5e:00:53:01 vlan=4096",
            "sim frame Ethernet1 ff:ff:ff:ff:ff:ff 00:00:5e:00:53:01 vlan=1 priority=8",
            "sim frame Ethernet1 ff:ff:ff:ff:ff:ff 00:00:5e:00:53:01 type=0x10000",
      } ) );
   }
   if( kind < 6 ) {
      return steps.push_back( anySimFrame( draw ) );
   }
   // Some in a row: stations are learnt, and then found.
   for( auto n = draw.oneOf( { 1, 1, 2, 4 } ); n != 0; --n ) {
      if( draw.hasFrames() && draw.chance( 40 ) ) {
         steps.push_back( "frame " + port + ' ' + draw.frame() );
      } else {
         steps.push_back( "frame " + port + ' ' + hexOf( anyFrame( draw ) ) );
      }
   }
}

// ---- What of them is accepted

namespace {

// What `sim frame` is told, if it is right: a frame as short as may be.
struct SimFrame {
   IntfId port;
   EthAddr destination, source;
   std::optional< unsigned > vlan, inner;
   unsigned priority = 0, type = 0x800;
};

unsigned
numberIn( String const & text, unsigned most ) {
   auto const number = std::stoul( text, nullptr, text.starts_with( "0x" ) ? 16 : 10 );
   if( number > most ) {
      throw Kiv::ParseError( text );
   }
   return static_cast< unsigned >( number );
}

std::optional< SimFrame >
simFrameOf( Step const & step ) {
   try {
      SimFrame frame{ Pelt::EthIntfId::parse( step[ 2 ] ),
                      EthAddr::parse( step[ 3 ] ),
                      EthAddr::parse( step[ 4 ] ),
                      {},
                      {} };
      for( std::size_t n = 5; n != step.size(); ++n ) {
         auto const is = step[ n ].find( '=' ) + 1;
         auto const name = step[ n ].substr( 0, is - 1 );
         auto const value = step[ n ].substr( is );
         if( name == "vlan" ) {
            frame.vlan = numberIn( value, 4095 );
         } else if( name == "inner" ) {
            frame.inner = numberIn( value, 4095 );
         } else if( name == "priority" ) {
            frame.priority = numberIn( value, 7 );
         } else {
            frame.type = numberIn( value, 0xffff );
         }
      }
      // What stands in a tag needs one.
      return !frame.vlan && ( frame.inner || frame.priority ) ? std::nullopt
                                                              : std::optional( frame );
   } catch( Kiv::Exception const & ) {
      return {};
   }
}

Octets
octetsOf( SimFrame const & asked, unsigned outer, unsigned inner ) {
   Octets octets;
   append( octets, asked.destination );
   append( octets, asked.source );
   if( asked.vlan ) {
      append( octets, Tag{ outer, asked.priority << 13 | *asked.vlan } );
   }
   if( asked.inner ) {
      append( octets, Tag{ inner, *asked.inner } );
   }
   append( octets, asked.type );
   octets.resize( shortestFrame );
   return octets;
}

} // namespace

Observer::Verdict
FramesObserver::judge( Step const & step ) const {
   if( step.begins( "sim frame" ) ) {
      auto const frame = simFrameOf( step );
      return frame && ports_.isConfigured( frame->port ) ? accepts : refuses;
   }
   if( !step.begins( "frame" ) ) {
      return notMine;
   }
   return Pelt::EthIntfId::isEthIntfId( IntfId( step[ 1 ] ) ) && octetsIn( step[ 2 ] ) ? accepts
                                                                                       : refuses;
}

// ---- What becomes of them

std::pair< std::vector< unsigned >, unsigned >
FramesObserver::tpidsOf( IntfId port ) const {
   auto const told = simulated().get( "/sim/chip/vlan/tpid" );
   auto const * const row = told.find( toText( port ) );
   if( !row ) {
      return { { customerTpid, providerTpid }, customerTpid };
   }
   auto const number = [ row ]( char const * name ) {
      return static_cast< unsigned >( std::stoul( textOf( *row, name ) ) );
   };
   return { { number( "tpid" ) }, number( "innerTpid" ) };
}

FramesObserver::Header
FramesObserver::headerOf( IntfId port, Octets const & octets ) const {
   Header header;
   auto const tpids = tpidsOf( port );
   auto const isTag = [ & ]( unsigned type ) {
      return header.tags.empty() ? std::ranges::find( tpids.first, type ) != tpids.first.end()
                                 : type == tpids.second;
   };
   auto at = typeAt;
   // Each tag, and the type behind the last, must be there whole.
   while( at + 2 <= octets.size() && header.tags.size() < 2 && isTag( wordAt( octets, at ) ) ) {
      at += 4;
      if( at + 2 > octets.size() ) {
         break;
      }
      header.tags.push_back( { wordAt( octets, at - 4 ), wordAt( octets, at - 2 ) } );
   }
   if( at + 2 > octets.size() ) {
      header.fault = StationsObserver::runt;
      return header;
   }
   header.destination = addrAt( octets, 0 );
   header.source = addrAt( octets, 6 );
   if( !header.tags.empty() && header.tags.front().vlan() == 4095 ) {
      header.fault = StationsObserver::reservedVlan;
   }
   return header;
}

FramesObserver::Passing
FramesObserver::pass( IntfId port, Octets const & octets ) {
   Passing frame;
   frame.header = headerOf( port, octets );
   frame.trunk = rowsAt( "/sim/chip/trunk/lag" );
   frame.members = rowsAt( "/sim/chip/vlan/member" );
   auto const lag = rowIn( frame.trunk, toText( port ) );
   frame.intf = lag.empty() ? port : IntfId( lag );
   stations_.frameCame( frame.header.fault );
   if( frame.header.fault != StationsObserver::sound ) {
      frame.dropped = "header";
      return frame;
   }
   auto const & tags = frame.header.tags;
   auto const byTag = tags.empty() ? 0 : tags.front().vlan();
   frame.vlan =
         byTag ? toText( byTag ) : rowIn( rowsAt( "/sim/chip/vlan/native" ), toText( frame.intf ) );
   if( rowIn( rowsAt( "/sim/chip/vlan/vlan" ), frame.vlan ) != "true" ) {
      frame.dropped = "vlan";
   } else if( !frame.isCarried( frame.intf ) ) {
      frame.dropped = "ingress";
   } else {
      stations_.learn( frame.intf, frame.header.source, VlanId::parse( frame.vlan ) );
      if( isDroppedBySource( frame ) ) {
         frame.dropped = "learning";
      } else {
         forward( frame );
      }
   }
   return frame;
}

bool
FramesObserver::isDroppedBySource( Passing const & frame ) const {
   auto const isTold = [ this ]( char const * what ) {
      auto const text = textAt( Kiv::String( "/sim/chip/mac/setting/" ) + what );
      return !text.empty() && std::stod( text ) > 0;
   };
   auto const source = frame.header.source;
   if( !source.isUnicast() ) {
      return isTold( "sourceMacInvalid" );
   }
   auto const entry = stations_.entry( { source, VlanId::parse( frame.vlan ) } );
   bool const isOwn = entry && StationsObserver::isBound( *entry ) &&
                      Pelt::CpuIntfId::isCpuIntfId( entry->intf );
   return ( isOwn && isTold( "sourceCheckCpuMac" ) ) ||
          ( entry && ( entry->dropMode == Bridging::dropModeSrc ||
                       entry->dropMode == Bridging::dropModeBoth ) );
}

void
FramesObserver::forward( Passing & frame ) const {
   auto const to = destinationsOf( frame );
   if( to.empty() ) {
      frame.dropped = "forwarding";
      return;
   }
   for( auto const intf : to ) {
      if( auto const ports = portsOf( frame, intf ); frame.isCarried( intf ) && !ports.empty() ) {
         frame.departures.push_back( { intf, ports, frame.isTagged( intf ) } );
      }
   }
   if( frame.departures.empty() ) {
      frame.dropped = "out";
   }
}

// Never back where it came from.
FramesObserver::Intfs
FramesObserver::destinationsOf( Passing const & frame ) const {
   constexpr std::uint64_t bridgeGroups = 0x0180c2000000;
   auto const destination = frame.header.destination;
   if( destination.value() >> 4 == bridgeGroups >> 4 ) {
      return {};
   }
   Intfs to;
   auto const station = Bridging::MacVlanPair( destination, VlanId::parse( frame.vlan ) );
   auto const entry = destination.isMulticast() ? std::nullopt : stations_.entry( station );
   if( entry ) {
      bool const isDropped =
            entry->dropMode == Bridging::dropModeDst || entry->dropMode == Bridging::dropModeBoth;
      to = isDropped || !entry->intf ? Intfs() : Intfs{ entry->intf };
   } else {
      for( auto const & [ key, how ] : frame.members ) {
         if( key.starts_with( frame.vlan + '@' ) && how != "vlanNotCarried" ) {
            to.emplace_back( key.substr( frame.vlan.size() + 1 ) );
         }
      }
      std::ranges::sort( to );
   }
   std::erase( to, frame.intf );
   return to;
}

FramesObserver::Intfs
FramesObserver::portsOf( Passing const & frame, IntfId intf ) const {
   if( Pelt::EthIntfId::isEthIntfId( intf ) ) {
      return { intf };
   }
   Intfs ports;
   for( auto const & [ port, lag ] : frame.trunk ) {
      if( lag == toText( intf ) ) {
         ports.emplace_back( port );
      }
   }
   std::ranges::sort( ports );
   return ports;
}

// What it came in with in its outer tag, but for the VLAN, it has in the one that it leaves with; a second
// tag stays as it is.
String
FramesObserver::tagsOf( Passing const & frame, Departure const & departure, IntfId port ) const {
   Octets octets;
   auto const & tags = frame.header.tags;
   if( departure.tagged ) {
      auto const kept = tags.empty() ? 0 : tags.front().control & ~vlanMask;
      auto const vlan = static_cast< unsigned >( std::stoul( frame.vlan ) );
      append( octets, Tag{ tpidsOf( port ).first.front(), kept | vlan } );
   }
   if( tags.size() > 1 ) {
      append( octets, tags.back() );
   }
   return hexOf( octets );
}

// ---- What must be

void
FramesObserver::heard( Step const & step, Kiv::Datum const & answer ) {
   if( step.begins( "frame" ) ) {
      compare( step, pass( IntfId( step[ 1 ] ), *octetsIn( step[ 2 ] ) ),
               textOf( answer, "dropped" ), answer );
   } else if( step.begins( "sim frame" ) ) {
      auto const asked = *simFrameOf( step );
      auto const [ outer, inner ] = tpidsOf( asked.port );
      compare( step, pass( asked.port, octetsOf( asked, outer.front(), inner ) ),
               lastStage( answer ), answer );
   }
}

void
FramesObserver::compare( Step const & step, Passing const & frame, String const & dropped,
                         Kiv::Datum const & answer ) {
   ++in_;
   out_ += frame.departures.size();
   if( !frame.dropped.empty() ) {
      ++dropped_[ frame.dropped ];
   }
   auto const * const member = answer.find( "departures" );
   auto const * const all = member ? member->as< Kiv::Datum::Array >() : nullptr;
   if( !all || all->size() != frame.departures.size() || dropped != frame.dropped ) {
      return found( step.text() + ": dropped at \"" + dropped + "\", and must be at \"" +
                    frame.dropped + "\"; leaves by " + std::to_string( all ? all->size() : 0 ) +
                    ", and must by " + std::to_string( frame.departures.size() ) );
   }
   for( std::size_t n = 0; n != all->size(); ++n ) {
      auto const & departure = frame.departures[ n ];
      auto const & is = ( *all )[ n ];
      IntfId const port( textOf( is, "port" ) );
      auto const & header = frame.header;
      // The same for all frames between the two, as long as the LAG has the same members.
      auto const [ chosen, isFirst ] =
            choices_.try_emplace( { header.destination, header.source, departure.ports }, port );
      bool const isRight = std::ranges::find( departure.ports, port ) != departure.ports.end() &&
                           chosen->second == port;
      auto const tags = tagsOf( frame, departure, port );
      if( !isRight || textOf( is, "intf" ) != toText( departure.intf ) || tagsText( is ) != tags ) {
         found( step.text() + ": leaves as " + Kiv::datumText( is ) + ", and must by " +
                toText( departure.intf ) + ", port " +
                toText( isFirst ? departure.ports.front() : chosen->second ) + ", tagged " + tags );
      }
   }
}

// It has not seen a frame yet.
void
FramesObserver::chipForgot() {
   in_ = out_ = 0;
   dropped_.clear();
}

void
FramesObserver::check() {
   Rows counts;
   for( auto const & [ name, count ] : { std::pair( "in", in_ ), { "out", out_ } } ) {
      if( count ) {
         counts[ name ] = toText( count );
      }
   }
   expectRows( "/sim/chip/path/count", counts );
   expectRows( "/sim/chip/path/drop", rowsOf( dropped_ ) );
}

SIMULATION_OBSERVER( FramesObserver );

} // namespace Simulation
