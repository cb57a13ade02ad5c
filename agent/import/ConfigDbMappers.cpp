// SPDX-License-Identifier: Apache-2.0

// One mapper a table. A new feature adds its function, and one line at the end of this file.

#include "Interface/EthPhyIntfStatus.h"
#include "agent/import/ConfigDbRow.h"

#include <array>
#include <limits>

namespace Import {

namespace {

using namespace Bridging::StormControl;

// Whether the operator lets an interface take part. Files say so of every interface; one that does
// not gets this system's default, and the report says so.
bool
adminUp( Row & row ) {
   auto const up = row.either( "admin_status", "up", "down" );
   if( !up ) {
      row.remark( "no admin_status; taken as up" );
   }
   return up.value_or( true );
}

Kiv::String
upText( bool up ) {
   return up ? "up" : "down";
}

void
mapPort( Row & row, Model & model ) {
   auto const intf = Pelt::EthIntfId::parse( row.key() );
   row.identityIs( Kiv::toText( intf ) );
   auto const mbps =
         row.number( "speed", std::numeric_limits< std::uint32_t >::max() ).value_or( 0 );
   bool const known = Interface::speedFromMbps( mbps ) != Interface::speedUnknown;
   if( !known && mbps != 0 ) {
      row.remark( "speed " + Kiv::toText( mbps ) +
                  " Mb/s is not an Ethernet speed; taken as unknown" );
   }
   auto const speed = known ? Interface::EthMbps( mbps ) : Interface::EthMbps();
   bool const enabled = adminUp( row );
   row.operationIs( "port " + Kiv::toText( intf ) + ", " + upText( enabled ) + ", speed " +
                          ( known ? Kiv::toText( speed ) + " Mb/s" : "unknown" ),
                    [ config = model.targets().feeders, intf, speed, enabled ] {
                       auto const port = config->portIs( intf );
                       port->speedIs( speed );
                       port->enabledIs( enabled );
                    } );
   model.portIs( intf );
}

// What the shape allows; this system takes more.
constexpr std::uint16_t maxMinLinks = 1024;
constexpr std::uint32_t maxLagNumber = 9999;

// LAGs of this shape always negotiate by LACP.
void
mapPortChannel( Row & row, Model & model ) {
   auto const intf = Pelt::PortChannelIntfId::parse( row.key() );
   row.identityIs( Kiv::toText( intf ) );
   auto const minLinks = static_cast< std::uint16_t >(
         row.number( "min_links", std::numeric_limits< std::uint16_t >::max() ).value_or( 0 ) );
   if( minLinks > maxMinLinks ) {
      row.remark( "min_links " + Kiv::toText( minLinks ) + " is more than the " +
                  Kiv::toText( maxMinLinks ) + " that files of this shape may ask for" );
   }
   if( intf.number() > maxLagNumber ) {
      row.remark( "the names of files of this shape end at PortChannel" +
                  Kiv::toText( maxLagNumber ) );
   }
   bool const fallback = row.either( "fallback", "true", "false" ).value_or( false );
   bool const enabled = adminUp( row );
   row.operationIs( "LACP LAG " + Kiv::toText( intf ) + ", " + upText( enabled ) + ", min links " +
                          Kiv::toText( minLinks ) + ( fallback ? ", with fallback" : "" ),
                    [ config = model.targets().feeders, intf, minLinks, fallback, enabled ] {
                       auto const lag = config->lagIs( intf );
                       lag->kindIs( HobaTypes::lagTypeLacp );
                       lag->minLinksIs( minLinks );
                       lag->lacpFallbackIs( fallback );
                       lag->enabledIs( enabled );
                    } );
   model.lagIs( intf );
}

void
mapPortChannelMember( Row & row, Model & model ) {
   auto const [ lagName, portName ] = row.keyPair( "PortChannel<n>|Ethernet<n>" );
   Pelt::IntfId const lag = model.lag( lagName );
   Pelt::IntfId const port = model.port( portName );
   row.identityIs( Kiv::toText( lag ) + '|' + Kiv::toText( port ) );
   auto const present = model.lagOf( port );
   if( present && present != lag ) {
      throw Kiv::ParseError( Kiv::toText( port ) + " is a member of " + Kiv::toText( present ) +
                             " already" );
   }
   row.operationIs( Kiv::toText( port ) + " in " + Kiv::toText( lag ),
                    [ config = model.targets().lagInput, port, lag ] {
                       config->ethPhyIntfLagConfigIs( port, lag );
                    } );
   model.memberIs( port, lag );
}

void
mapVlan( Row & row, Model & model ) {
   auto const vlan = vlanNamed( row.key() );
   row.identityIs( Kiv::toText( vlan ) );
   auto const named = row.number( "vlanid", std::numeric_limits< std::uint16_t >::max() );
   if( named && *named != vlan.value() ) {
      throw Kiv::ParseError( "vlanid: " + Kiv::toText( *named ) + " is not the number of " +
                             row.key() );
   }
   bool const active = adminUp( row );
   row.operationIs(
         "VLAN " + Kiv::toText( vlan ) + ", " + upText( active ),
         [ data = model.targets().commonSmData, feeders = model.targets().feeders, vlan, active ] {
            data->vlanStatusIs( vlan )->activeIs( active );
            feeders->vlanIs( vlan )->activeIs( active );
         } );
   model.vlanIs( vlan );
}

void
mapVlanMember( Row & row, Model & model ) {
   auto const [ vlanName, intfName ] = row.keyPair( "Vlan<n>|<port or LAG>" );
   auto const vlan = model.vlan( vlanName );
   auto const intf = model.portOrLag( intfName );
   row.identityIs( Kiv::toText( vlan ) + '|' + Kiv::toText( intf ) );
   if( auto const lag = model.lagOf( intf ) ) {
      throw Kiv::ParseError( Kiv::toText( intf ) + " is a member of " + Kiv::toText( lag ) +
                             ", which carries VLANs in its place" );
   }
   auto const tagged = row.either( "tagging_mode", "tagged", "untagged" );
   bool const isPort = Pelt::EthIntfId::isEthIntfId( intf );
   if( !isPort ) {
      row.leave( "tagging_mode" );
   }
   bool const untagged = isPort && tagged == false;
   row.operationIs( Kiv::toText( intf ) + " carries VLAN " + Kiv::toText( vlan ) +
                          ( untagged ? ", untagged" : "" ),
                    [ data = model.targets().commonSmData, feeders = model.targets().feeders, vlan,
                      intf, untagged ] {
                       data->vlanStatusIs( vlan )->intfIs( intf );
                       feeders->vlanIs( vlan )->memberIs( intf );
                       auto const switchIntf = feeders->switchIntfIs( intf );
                       if( switchIntf->switchportMode() != Bridging::switchportModeTrunk ) {
                          switchIntf->nativeVlanIs( Bridging::VlanIdOrNone() );
                          switchIntf->switchportModeIs( Bridging::switchportModeTrunk );
                       }
                       if( untagged ) {
                          switchIntf->nativeVlanIs( Bridging::VlanIdOrNone( vlan.value() ) );
                       }
                    } );
}

// What the levels are called in files.
struct StormType {
   std::string_view name;
   void ( IntfConfig::*thresholdIs )( Kiv::Param< Threshold > );
};
constexpr std::array stormTypes = { StormType{ "broadcast", &IntfConfig::broadcastIs },
                                    StormType{ "unknown-unicast", &IntfConfig::uucastIs },
                                    // Known to files, but no level of this system.
                                    StormType{ "unknown-multicast", nullptr } };

StormType const &
stormType( std::string_view name ) {
   for( auto const & type : stormTypes ) {
      if( type.name == name ) {
         if( !type.thresholdIs ) {
            throw Kiv::ParseError( Kiv::String( name ) + " is not a level of this system" );
         }
         return type;
      }
   }
   Kiv::inPlace( "storm_type",
                 [ & ] { Kiv::parseFailed( name, "one of broadcast, unknown-unicast" ); } );
   return stormTypes.front();
}

void
mapPortStormControl( Row & row, Model & model ) {
   auto const [ intfName, typeName ] = row.keyPair( "<port or LAG>|<storm_type>" );
   auto const intf = model.portOrLag( intfName );
   auto const & type = stormType( typeName );
   row.identityIs( Kiv::toText( intf ) + '|' + Kiv::String( typeName ) );
   auto const kbps = static_cast< std::uint32_t >(
         row.numberNeeded( "kbps", std::numeric_limits< std::uint32_t >::max() ) );
   Threshold const threshold{ meteringBps, 0, kbps, unitKbps };
   row.operationIs(
         Kiv::toText( intf ) + " lets in " + Kiv::toText( kbps ) + " kbps of " +
               Kiv::String( typeName ),
         [ config = model.targets().stormControl, intf, threshold, set = type.thresholdIs ] {
            ( ( *config->intfConfigIs( intf ) ).*set )( threshold );
         } );
}

} // namespace

std::vector< TableMapper > const &
tableMappers() {
   static std::vector< TableMapper > const mappers = {
         { "PORT", mapPort },
         { "PORTCHANNEL", mapPortChannel },
         { "PORTCHANNEL_MEMBER", mapPortChannelMember },
         { "VLAN", mapVlan },
         { "VLAN_MEMBER", mapVlanMember },
         { "PORT_STORM_CONTROL", mapPortStormControl },
   };
   return mappers;
}

} // namespace Import
