// SPDX-License-Identifier: Apache-2.0
#include "agent/features/FeatureCommands.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>

namespace HobaAgent {

using Kiv::Datum;
using Kiv::String;

String
speedText( std::uint64_t kbps ) {
   if( kbps == 0 ) {
      return "unknown";
   }
   char text[ 40 ];
   if( kbps >= 1'000'000 ) {
      std::snprintf( text, sizeof text, "%g Gb/s", static_cast< double >( kbps ) / 1'000'000 );
   } else {
      std::snprintf( text, sizeof text, "%g Mb/s", static_cast< double >( kbps ) / 1'000 );
   }
   return text;
}

Bridging::VlanIdOrNone
vlanOf( Request const & request ) {
   return Bridging::VlanIdOrNone(
         request.has( "vlan" ) ? request.value< Bridging::VlanId >( "vlan" ).value() : 0 );
}

String
spelled( String const & enumerator, std::string_view prefix ) {
   String text;
   for( char const c : enumerator.substr( enumerator.starts_with( prefix ) ? prefix.size() : 0 ) ) {
      auto const lower = static_cast< char >( std::tolower( static_cast< unsigned char >( c ) ) );
      text += ( lower != c && !text.empty() ? " " : "" );
      text += lower;
   }
   return text;
}

namespace {

String
linkText( Interface::LinkStatus link ) {
   switch( link ) {
   case Interface::linkUp:
      return "up";
   case Interface::linkDown:
      return "down";
   default:
      return "unknown";
   }
}

String
listText( std::vector< Pelt::IntfId > intfs ) {
   std::sort( intfs.begin(), intfs.end() );
   String text;
   for( auto intf : intfs ) {
      text += ( text.empty() ? "" : ", " ) + Kiv::toText( intf );
   }
   return text.empty() ? "-" : text;
}

// The LAG that the operator put the port into, and whether the port takes part in it.
String
membershipText( Switch const & sw, Pelt::IntfId intf ) {
   auto const wanted = sw.lagInputConfig->ethPhyIntfLagConfig( intf );
   if( !wanted ) {
      return "-";
   }
   auto const lag = Kiv::toText( wanted );
   return sw.context->portToLag( intf ) == wanted ? lag : lag + " (not active)";
}

Datum
showInterfaces( Switch const & sw, Pelt::IntfId only ) {
   if( only && !sw.context->intfHas( only ) ) {
      throw Kiv::ParseError( Kiv::toText( only ) + " is not a port of this switch" );
   }
   TableAnswer table( { "Interface", "Enabled", "Link", "Speed", "Active", "LAG" } );
   std::size_t up = 0;
   for( auto const intf : sortedKeys( sw.feederConfig->port() ) ) {
      if( only && only != intf ) {
         continue;
      }
      auto const config = sw.feederConfig->port( intf );
      auto const status = sw.ethPhyIntfStatusDir->ethPhyIntfStatus( intf );
      auto const speed = status ? Interface::speedToKbps( status->speed() ) : 0;
      table.row( { Kiv::toText( intf ), config->enabled() ? "yes" : "no",
                   status ? linkText( status->linkStatus() ) : "-", speedText( speed ),
                   status && status->active() ? "yes" : "no", membershipText( sw, intf ) } );
      up += status && status->linkStatus() == Interface::linkUp ? 1 : 0;
   }
   if( !only ) {
      table.count( "port", ", " + std::to_string( up ) + " up" );
   }
   return table.take();
}

Datum
showLags( Switch const & sw ) {
   TableAnswer table( { "LAG", "Kind", "Min links", "Active members", "Configured members" } );
   for( auto const lag : sortedKeys( sw.feederConfig->lag() ) ) {
      auto const config = sw.feederConfig->lag( lag );
      table.row( { Kiv::toText( lag ),
                   config->kind() == HobaTypes::lagTypeLacp ? "LACP" : "static",
                   config->minLinks(), listText( sw.context->lagToPort( lag ).port ),
                   listText( sw.context->lagToPortConfig( lag ).port ) } );
   }
   table.count( "LAG" );
   return table.take();
}

// Frames of the VLAN come in there without a tag.
bool
isUntagged( Switch const & sw, Pelt::IntfId intf, Bridging::VlanId vlan ) {
   return sw.feederConfig->nativeVlan( intf ).value() == vlan.value();
}

Datum
showVlans( Switch const & sw, Bridging::VlanIdOrNone only ) {
   std::map< std::uint16_t, std::size_t > stations;
   for( auto const & [ host, entry ] : sw.macTable->macEntry() ) {
      ++stations[ host.vlanId().value() ];
   }
   TableAnswer table( { "VLAN", "State", "Stations", "Untagged", "Tagged" } );
   for( auto const vlan : sortedKeys( sw.context->vlanStatus() ) ) {
      if( only.value() && only.value() != vlan.value() ) {
         continue;
      }
      auto const status = sw.context->vlanStatus( vlan );
      std::vector< Pelt::IntfId > untagged, tagged;
      for( auto const intf : status->intf() ) {
         ( isUntagged( sw, intf, vlan ) ? untagged : tagged ).push_back( intf );
      }
      table.row( { vlan.value(), status->active() ? "active" : "not active",
                   stations[ vlan.value() ], listText( untagged ), listText( tagged ) } );
   }
   if( !only.value() ) {
      table.count( "VLAN" );
   } else if( !sw.context->vlanStatusHas( Bridging::VlanId( only.value() ) ) ) {
      throw Kiv::ParseError( "VLAN " + Kiv::toText( only ) + " is not one of this switch" );
   }
   return table.take();
}

template< class Keys >
std::vector< String >
namesOf( Keys const & keys ) {
   std::vector< String > names;
   for( auto const & key : keys ) {
      names.push_back( Kiv::toText( key ) );
   }
   return names;
}

void
addValues( Commands & commands, Switch & sw ) {
   auto const interfaces = [ &sw ] {
      auto names = namesOf( sortedKeys( sw.feederConfig->port() ) );
      for( auto & lag : namesOf( sortedKeys( sw.feederConfig->lag() ) ) ) {
         names.push_back( std::move( lag ) );
      }
      return names;
   };
   commands.valuesAre( "intf", interfaces );
   commands.valuesAre( "port", interfaces );
   commands.valuesAre( "lag", [ &sw ] {
      auto names = namesOf( sortedKeys( sw.feederConfig->lag() ) );
      names.emplace_back( "none" );
      return names;
   } );
   commands.valuesAre( "vlan",
                       [ &sw ] { return namesOf( sortedKeys( sw.context->vlanStatus() ) ); } );
}

} // namespace

void
addInterfaceCommands( Commands & commands, Switch & sw ) {
   commands.add( { .name = "show interfaces",
                   .help = "Ports: link, speed, and the LAG they are in",
                   .arguments = { { "intf", "Only this interface" } },
                   .handler = [ &sw ]( Request const & request ) {
                      return showInterfaces( sw, request.value< Pelt::IntfId >( "intf" ) );
                   } } );
   commands.add( { .name = "show lag",
                   .help = "LAGs and their members",
                   .handler = [ &sw ]( Request const & ) { return showLags( sw ); } } );
   commands.add( { .name = "show vlan",
                   .help = "VLANs: the interfaces that carry them, and how many stations are there",
                   .arguments = { { "vlan", "Only this VLAN" } },
                   .handler = [ &sw ]( Request const & request ) {
                      return showVlans( sw, vlanOf( request ) );
                   } } );
   addValues( commands, sw );
}

} // namespace HobaAgent
