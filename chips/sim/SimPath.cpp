// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimPath.h"

#include "Kiv/Reflect.h"

#include <algorithm>
#include <cstdio>

KIV_DEFINE( HobaSim::PathUnit );

namespace HobaSim {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Kiv::String;
using Kiv::toText;

namespace {

// Groups that bridges keep to themselves, whoever may be in them: 01:80:c2:00:00:00 to ...:0f.
bool
isForBridgesOnly( Pelt::EthAddr addr ) {
   return addr.value() >> 4 == 0x0180c2000000 >> 4;
}

// Which of so many members carries frames between the two, always the same one.
std::size_t
choose( FrameHeader const & header, std::size_t members ) {
   auto mixed = header.destination.value() * 0x9e3779b97f4a7c15 + header.source.value();
   mixed = ( mixed ^ mixed >> 30 ) * 0xbf58476d1ce4e5b9;
   mixed = ( mixed ^ mixed >> 27 ) * 0x94d049bb133111eb;
   return ( mixed ^ mixed >> 31 ) % members;
}

String
headerText( FrameHeader const & header ) {
   char type[ 16 ];
   std::snprintf( type, sizeof type, "0x%04x", static_cast< unsigned >( header.etherType ) );
   return toText( header.source ) + " to " + toText( header.destination ) + ", " +
          tagsText( header ) + ", type " + type;
}

String
learningText( Learning learning, Pelt::EthAddr station, Pelt::IntfId intf ) {
   auto const behind = toText( station ) + " behind " + toText( intf );
   switch( learning ) {
   case learnNew:
      return "learnt " + behind;
   case learnMove:
      return "moved " + behind;
   case learnHit:
      return behind + " is known";
   case learnGroup:
      return "not learnt: " + toText( station ) + " is a group address";
   case learnZero:
      return "not learnt: 00:00:00:00:00:00 is no station's address";
   case learnFull:
      return "not learnt: the table is full";
   case learnOff:
      return "not learnt: learning is off here";
   case learnElsewhere:
      return "reported " + behind + ": software has it elsewhere, where it stays";
   case learnBound:
      return "not learnt: software has " + toText( station ) + " elsewhere, where it belongs";
   }
   return {};
}

} // namespace

PathUnit::PathUnit( String const & unitName, Kiv::Ptr< VlanUnit > const & vlan,
                    Kiv::Ptr< TrunkUnit > const & trunk, Kiv::Ptr< MacUnit > const & mac,
                    Memory const & memory )
      : Unit( unitName, memory ), vlan_( vlan ), trunk_( trunk ), mac_( mac ) {
   Stages stages;
   auto const add = [ & ]( char const * stage, auto step ) {
      stages.push_back(
            { stage, [ this, step ]( PathFrame & frame ) { ( this->*step )( frame ); } } );
   };
   add( "trunk", &PathUnit::findTrunk );
   add( "header", &PathUnit::readHeader );
   add( "vlan", &PathUnit::findVlan );
   add( "ingress", &PathUnit::checkIngress );
   add( "learning", &PathUnit::learn );
   add( "forwarding", &PathUnit::forward );
   add( "out", &PathUnit::sendAll );
   stages_ = std::make_shared< Stages const >( std::move( stages ) );
}

// ---- The stages

PathUnit::Stages::iterator
PathUnit::stageAt( Stages & stages, String const & stage ) {
   return std::find_if( stages.begin(), stages.end(),
                        [ & ]( Stage const & each ) { return each.name == stage; } );
}

void
PathUnit::stageIs( String const & stage, String const & before, Step step ) {
   Name const name( stage );
   auto stages = *stages_;
   auto const next = stageAt( stages, before );
   if( next == stages.end() ) {
      Kiv::parseFailed( before, "a stage of the path" );
   }
   if( auto const known = stageAt( stages, stage ); known != stages.end() ) {
      known->step = std::move( step );
   } else {
      stages.insert( next, { name.text(), std::move( step ) } );
   }
   stages_ = std::make_shared< Stages const >( std::move( stages ) );
}

void
PathUnit::stageDel( String const & stage ) {
   auto stages = *stages_;
   if( auto const known = stageAt( stages, stage ); known != stages.end() ) {
      stages.erase( known );
      stages_ = std::make_shared< Stages const >( std::move( stages ) );
   }
}

std::vector< String >
PathUnit::stages() const {
   std::vector< String > names;
   for( auto const & stage : *stages_ ) {
      names.push_back( stage.name );
   }
   return names;
}

void
PathUnit::checkPort( Pelt::IntfId port ) {
   if( !Pelt::EthIntfId::isEthIntfId( port ) ) {
      Kiv::parseFailed( toText( port ), Pelt::EthIntfId::kindText );
   }
}

FrameTpids
PathUnit::tpids( Pelt::IntfId port ) const {
   auto const told = vlan_->tpid().find( port );
   return told ? FrameTpids::of( *told ) : FrameTpids();
}

PathFrame
PathUnit::frame( Pelt::IntfId port, std::span< std::uint8_t const > bytes, bool explain ) {
   checkPort( port );
   // Who hears of what the stages do may drop the chip.
   Kiv::Dispatch::Frame dispatch;
   countIs( pathIn, count( pathIn ) + 1 );
   PathFrame passing( port, bytes, explain );
   auto const stages = stages_;
   for( auto const & stage : *stages ) {
      passing.stage_ = stage.name;
      stage.step( passing );
      if( passing.dropped() ) {
         Name const at( stage.name );
         dropIs( at, drop( at ) + 1 );
         break;
      }
   }
   return passing;
}

void
PathUnit::findTrunk( PathFrame & frame ) const {
   auto const lag = trunk_->lag( frame.port );
   frame.intf = lag ? lag : frame.port;
   frame.say( [ & ] {
      return toText( frame.port ) +
             ( lag ? " is an active member of " + toText( lag ) : " stands for itself" );
   } );
}

void
PathUnit::readHeader( PathFrame & frame ) {
   frame.header = readFrameHeader( frame.bytes, tpids( frame.port ) );
   mac_->frameCame( frame.header.fault );
   switch( frame.header.fault ) {
   case frameRunt:
      return frame.drop( [] { return "it ends before its header does"; } );
   case frameReservedVlan:
      return frame.drop( [] { return "it is tagged with VLAN 4095, which is reserved"; } );
   case frameSound:
      frame.say( [ & ] { return headerText( frame.header ); } );
   }
}

void
PathUnit::findVlan( PathFrame & frame ) const {
   auto const byTag = frame.header.vlanId();
   frame.vlan = byTag.value() ? byTag : vlan_->native( frame.intf );
   if( !frame.vlan.value() ) {
      return frame.drop( [ & ] {
         return "without a VLAN of its own, and " + toText( frame.intf ) + " has no native VLAN";
      } );
   }
   auto const text = [ & ] { return "VLAN " + toText( frame.vlan ); };
   if( !vlan_->vlan( VlanId( frame.vlan.value() ) ) ) {
      return frame.drop( [ & ] { return text() + " is not active"; } );
   }
   frame.say( [ & ] {
      return text() + ( byTag.value() ? ", by the tag" : ", native of " + toText( frame.intf ) );
   } );
}

void
PathUnit::checkIngress( PathFrame & frame ) const {
   auto const carries =
         vlan_->member( { VlanId( frame.vlan.value() ), frame.intf } ) != Hoba::vlanNotCarried;
   auto const text = [ & ]( char const * verb ) {
      return toText( frame.intf ) + verb + toText( frame.vlan );
   };
   if( carries ) {
      frame.say( [ & ] { return text( " carries VLAN " ); } );
   } else {
      frame.drop( [ & ] { return text( " does not carry VLAN " ); } );
   }
}

void
PathUnit::learn( PathFrame & frame ) {
   auto const source = frame.header.source;
   Bridging::MacVlanPair const station( source, frame.vlan );
   auto const learning = mac_->learn( frame.intf, source, VlanId( frame.vlan.value() ) );
   frame.say( [ & ] { return learningText( learning, source, frame.intf ); } );
   if( !source.isUnicast() ) {
      if( mac_->setting( macSourceInvalid ) > 0 ) {
         frame.drop( [ & ] { return toText( source ) + " is no station's address"; } );
      }
      return;
   }
   auto const entry = mac_->entry( station );
   if( !entry ) {
      return;
   }
   if( entry->isOwn() && mac_->setting( macSourceCheckCpu ) > 0 ) {
      return frame.drop(
            [ & ] { return toText( source ) + " is an address of the switch itself"; } );
   }
   if( Bridging::dropsFrom( entry->dropMode ) ) {
      frame.drop( [ & ] { return "nothing from " + toText( source ) + " is let in"; } );
   }
}

void
PathUnit::forward( PathFrame & frame ) const {
   auto const destination = frame.header.destination;
   if( isForBridgesOnly( destination ) ) {
      return frame.drop( [ & ] { return toText( destination ) + " is for this bridge only"; } );
   }
   if( destination.isMulticast() ) {
      return flood( frame, destination.isBroadcast() ? "broadcast" : "multicast" );
   }
   auto const entry = mac_->entry( { destination, frame.vlan } );
   if( !entry ) {
      return flood( frame, "unknown" );
   }
   if( Bridging::dropsTo( entry->dropMode ) ) {
      return frame.drop( [ & ] { return "nothing is let out to " + toText( destination ); } );
   }
   auto const behind = entry->intf;
   auto const text = [ & ] {
      return toText( destination ) + " is behind " + ( behind ? toText( behind ) : "no interface" );
   };
   if( !behind ) {
      return frame.drop( text );
   }
   if( behind == frame.intf ) {
      return frame.drop( [ & ] { return text() + ", where the frame came from"; } );
   }
   frame.to = { behind };
   frame.say( text );
}

void
PathUnit::flood( PathFrame & frame, String const & why ) const {
   frame.to = vlan_->carrying( VlanId( frame.vlan.value() ) );
   std::erase( frame.to, frame.intf );
   auto const others = [ & ] { return why + ": all others of VLAN " + toText( frame.vlan ); };
   if( frame.to.empty() ) {
      return frame.drop( [ & ] { return others() + ", of which there are none"; } );
   }
   frame.say( [ & ] { return others() + ", " + toText( frame.to.size() ); } );
}

// ---- Out

std::vector< Pelt::IntfId > const &
PathUnit::membersOf( Pelt::IntfId lag ) const {
   return members_.find( trunk_->lag(), lag, []( Pelt::IntfId port, Pelt::IntfId of ) {
      return std::pair( of, port );
   } );
}

FrameHeader
PathUnit::leaving( PathFrame const & frame, Pelt::IntfId port, Hoba::VlanTagging how ) const {
   auto header = frame.header;
   bool const hasInner = header.tags == 2;
   if( how == Hoba::vlanTagged ) {
      header.outer.vlan = frame.vlan.value();
      header.outer.tpid = tpids( port ).outer;
      header.tags = hasInner ? 2 : 1;
   } else {
      header.outer = header.inner;
      header.inner = {};
      header.tags = hasInner ? 1 : 0;
   }
   header.size = static_cast< std::uint8_t >( frameHeaderOctets( header ).size() );
   return header;
}

// The frame goes to where no port of the chip leads.
String
PathUnit::beyondText( PathFrame const & frame, Pelt::IntfId intf ) const {
   if( Pelt::CpuIntfId::isCpuIntfId( intf ) ) {
      return "to the switch itself";
   }
   auto const entry = mac_->entry( { frame.header.destination, frame.vlan } ).value_or( HostRow() );
   auto text = "to " + toText( intf );
   text += entry.nextHopId ? ", next hop " + toText( entry.nextHopId ) : "";
   text += entry.swTunnelGroupId ? ", tunnel group " + toText( entry.swTunnelGroupId ) : "";
   return text + ": the chip is not told how frames cross the overlay";
}

void
PathUnit::send( PathFrame & frame, Pelt::IntfId intf ) const {
   if( Pelt::CpuIntfId::isCpuIntfId( intf ) || Pelt::VxlanIntfId::isVxlanIntfId( intf ) ) {
      return frame.say( [ & ] { return beyondText( frame, intf ); } );
   }
   auto const how = vlan_->member( { VlanId( frame.vlan.value() ), intf } );
   if( how == Hoba::vlanNotCarried ) {
      return frame.say( [ & ] {
         return "not by " + toText( intf ) + ", which does not carry VLAN " + toText( frame.vlan );
      } );
   }
   auto port = intf;
   std::size_t members = 0;
   if( !Pelt::EthIntfId::isEthIntfId( intf ) ) {
      auto const & ports = membersOf( intf );
      members = ports.size();
      if( members == 0 ) {
         return frame.say(
               [ & ] { return "not by " + toText( intf ) + ", which has no active member"; } );
      }
      port = ports[ choose( frame.header, members ) ];
   }
   auto const header = leaving( frame, port, how );
   frame.departures.push_back( { port, intf, header } );
   frame.say( [ & ] {
      return toText( port ) + ( members ? " of " + toText( intf ) : "" ) + ", " +
             tagsText( header );
   } );
}

void
PathUnit::sendAll( PathFrame & frame ) {
   for( auto const intf : frame.to ) {
      send( frame, intf );
   }
   if( frame.departures.empty() ) {
      return frame.drop( [] { return "there is no port to leave by"; } );
   }
   countIs( pathOut, count( pathOut ) + frame.departures.size() );
}

} // namespace HobaSim
