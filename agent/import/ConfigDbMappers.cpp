// SPDX-License-Identifier: Apache-2.0
#include "agent/import/ConfigDbMappers.h"

#include <array>
#include <limits>

namespace Import {

namespace {

using Bridging::switchportModeAccess;
using Bridging::switchportModeRouted;
using Bridging::switchportModeTrunk;
using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using FeederPtr = Kiv::Ptr< Feeders::Config >;
using LagInputPtr = Kiv::Ptr< Lag::Input::Config >;

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

// ---- Ports

void
mapPort( Row & row, FeederPtr const & config ) {
   auto const intf = row.key().id< Pelt::EthIntfId >();
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
                    [ config, intf, speed, enabled ] {
                       auto const port = config->portIs( intf );
                       port->speedIs( speed );
                       port->enabledIs( enabled );
                    } );
}

// ---- LAGs

// What the shape allows; this system takes more.
constexpr std::uint16_t maxMinLinks = 1024;
constexpr std::uint32_t maxLagNumber = 9999;

// LAGs of this shape always negotiate by LACP.
void
mapPortChannel( Row & row, FeederPtr const & config ) {
   auto const intf = row.key().id< Pelt::PortChannelIntfId >();
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
                    [ config, intf, minLinks, fallback, enabled ] {
                       auto const lag = config->lagIs( intf );
                       lag->kindIs( HobaTypes::lagTypeLacp );
                       lag->minLinksIs( minLinks );
                       lag->lacpFallbackIs( fallback );
                       lag->enabledIs( enabled );
                    } );
}

constexpr std::string_view lagMemberForm = "PortChannel<n>|Ethernet<n>";

Kiv::String
lagMemberText( Pelt::IntfId lag, Pelt::IntfId port ) {
   return Kiv::toText( lag ) + '|' + Kiv::toText( port );
}

void
mapPortChannelMember( Row & row, LagInputPtr const & config ) {
   auto const [ lagName, portName ] = row.key().parts( lagMemberForm );
   Pelt::IntfId const lag = row.existing< Pelt::PortChannelIntfId >( lagName, { "PORTCHANNEL" } );
   Pelt::IntfId const port = row.existing< Pelt::EthIntfId >( portName, { "PORT" } );
   row.identityIs( lagMemberText( lag, port ) );
   auto const present = config->ethPhyIntfLagConfig( port );
   if( present && present != lag ) {
      throw Kiv::ParseError( Kiv::toText( port ) + " is a member of " + Kiv::toText( present ) +
                             " already" );
   }
   row.operationIs( Kiv::toText( port ) + " in " + Kiv::toText( lag ),
                    [ config, port, lag ] { config->ethPhyIntfLagConfigIs( port, lag ); } );
}

void
delPortChannelMember( Row & row, LagInputPtr const & config ) {
   auto const [ lagName, portName ] = row.key().parts( lagMemberForm );
   auto const port = Pelt::EthIntfId::parse( portName );
   row.operationIs( Kiv::toText( port ) + " in " +
                          Kiv::toText( Pelt::PortChannelIntfId::parse( lagName ) ),
                    [ config, port ] { config->ethPhyIntfLagConfigDel( port ); } );
}

// ---- VLANs

VlanId
vlanNamed( std::string_view name ) {
   return VlanId( Pelt::VlanIntfId::vlanId( Pelt::VlanIntfId::parse( name ) ) );
}

Kiv::String
vlanMemberText( VlanId vlan, Pelt::IntfId intf ) {
   return "Vlan" + Kiv::toText( vlan ) + '|' + Kiv::toText( intf );
}

struct VlanMember {
   VlanId vlan;
   Pelt::IntfId intf;

   explicit VlanMember( Key const & key ) {
      auto const [ vlanName, intfName ] = key.parts( "Vlan<n>|<port or LAG>" );
      vlan = vlanNamed( vlanName );
      intf = Pelt::IntfId::parse( intfName );
   }
   bool isIn( Feeders::Config const & config ) const {
      auto const present = config.vlan( vlan );
      return present && present->memberHas( intf );
   }
   bool isNative( Feeders::Config const & config ) const {
      return config.nativeVlan( intf ).value() == vlan.value();
   }
};

void
mapVlan( Row & row, FeederPtr const & config ) {
   auto const vlan = vlanNamed( row.key().text() );
   row.identityIs( "Vlan" + Kiv::toText( vlan ) );
   auto const named = row.number( "vlanid", std::numeric_limits< std::uint16_t >::max() );
   if( named && *named != vlan.value() ) {
      throw Kiv::ParseError( "vlanid: " + Kiv::toText( *named ) + " is not the number of " +
                             row.key().text() );
   }
   bool const active = adminUp( row );
   row.operationIs( "VLAN " + Kiv::toText( vlan ) + ", " + upText( active ),
                    [ config, vlan, active ] { config->vlanIs( vlan )->activeIs( active ); } );
}

void
mapVlanMember( Row & row, FeederPtr const & config, LagInputPtr const & lagInput ) {
   auto const [ vlanName, intfName ] = row.key().parts( "Vlan<n>|<port or LAG>" );
   row.existing< Pelt::VlanIntfId >( vlanName, { "VLAN" } );
   row.existing< Pelt::IntfId >( intfName, { "PORT", "PORTCHANNEL" } );
   VlanMember const member( row.key() );
   auto const [ vlan, intf ] = member;
   row.identityIs( vlanMemberText( vlan, intf ) );
   if( auto const lag = lagInput->ethPhyIntfLagConfig( intf ) ) {
      throw Kiv::ParseError( Kiv::toText( intf ) + " is a member of " + Kiv::toText( lag ) +
                             ", which carries VLANs in its place" );
   }
   if( config->switchportMode( intf ) == switchportModeRouted ) {
      throw Kiv::ParseError( Kiv::toText( intf ) + " is routed, and carries no VLAN" );
   }
   auto const tagging = row.either( "tagging_mode", "tagged", "untagged" );
   if( !tagging ) {
      row.remark( "no tagging_mode; taken as tagged" );
   }
   bool const tagged = tagging.value_or( true );
   auto const native = config->nativeVlan( intf );
   if( !tagged && native.value() && !member.isNative( *config ) ) {
      auto const other = config->vlan( VlanId( native.value() ) );
      if( other && other->memberHas( intf ) ) {
         throw Kiv::ParseError( Kiv::toText( intf ) + " carries VLAN " + Kiv::toText( native ) +
                                " untagged already" );
      }
   }
   row.operationIs( Kiv::toText( intf ) + " carries VLAN " + Kiv::toText( vlan ) +
                          ( tagged ? "" : ", untagged" ),
                    [ config, member, tagged ] {
                       config->vlan( member.vlan )->memberIs( member.intf );
                       auto const switchIntf = config->switchIntfIs( member.intf );
                       if( tagged ) {
                          switchIntf->switchportModeIs( switchportModeTrunk );
                       }
                       if( tagged == member.isNative( *config ) ) {
                          switchIntf->nativeVlanIs(
                                VlanIdOrNone( tagged ? 0 : member.vlan.value() ) );
                       }
                    } );
}

void
delVlanMember( Row & row, FeederPtr const & config ) {
   VlanMember const member( row.key() );
   row.operationIs( "VLAN " + Kiv::toText( member.vlan ) + " on " + Kiv::toText( member.intf ),
                    [ config, member ] {
                       config->vlan( member.vlan )->memberDel( member.intf );
                       if( member.isNative( *config ) ) {
                          // No other VLAN comes in its place.
                          config->switchIntfIs( member.intf )->nativeVlanIs( VlanIdOrNone() );
                       }
                    } );
}

// A VLAN that lists the interface and that it could not carry in that mode, as a routed one carries
// none; null if there is none.
Kiv::Ptr< Feeders::VlanConfig >
vlanAgainst( Feeders::Config const & config, Pelt::IntfId intf, Bridging::SwitchportMode mode ) {
   for( auto const & [ vlan, vlanConfig ] : config.vlan() ) {
      bool const carried =
            mode == switchportModeTrunk ||
            ( mode == switchportModeAccess && config.nativeVlan( intf ).value() == vlan.value() );
      if( !carried && vlanConfig->memberHas( intf ) ) {
         return vlanConfig;
      }
   }
   return nullptr;
}

// The mode of a port or a LAG, of which the rows of its table say it.
void
mapSwitchportMode( Row & row, FeederPtr const & config ) {
   auto const mode =
         row.oneOf< Bridging::SwitchportMode >( "mode", { { "access", switchportModeAccess },
                                                          { "trunk", switchportModeTrunk },
                                                          { "routed", switchportModeRouted } } );
   if( !mode ) {
      return;
   }
   auto const intf = row.key().id< Pelt::IntfId >();
   auto const text = *row.text( "mode" );
   if( *mode != config->switchportMode( intf ) ) {
      if( auto const against = vlanAgainst( *config, intf, *mode ) ) {
         row.remark( "mode " + text + " is not taken: " + Kiv::toText( intf ) + " carries VLAN " +
                     against->name() );
         return;
      }
   }
   row.operationIs( text, [ config, intf, mode ] {
      config->switchIntfIs( intf )->switchportModeIs( *mode );
   } );
}

void
delSwitchportMode( Row & row, FeederPtr const & config ) {
   auto const intf = row.key().id< Pelt::IntfId >();
   if( config->switchIntfHas( intf ) ) {
      row.operationIs( "its switchport mode", [ config, intf ] { config->switchIntfDel( intf ); } );
   }
}

// ---- Storm control

using namespace Bridging::StormControl;
using StormPtr = Kiv::Ptr< Config >;

// What the levels are called in files.
struct StormType {
   std::string_view name;
   Threshold const & ( IntfConfig::*threshold )() const;
   void ( IntfConfig::*thresholdIs )( Kiv::Param< Threshold > );
};
constexpr std::array stormTypes = {
      StormType{ "broadcast", &IntfConfig::broadcast, &IntfConfig::broadcastIs },
      StormType{ "unknown-unicast", &IntfConfig::uucast, &IntfConfig::uucastIs },
      // Known to files, but no level of this system.
      StormType{ "unknown-multicast", nullptr, nullptr } };

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

constexpr std::string_view stormForm = "<port or LAG>|<storm_type>";

// A level that is set for the interface, by its name in files.
Kiv::String
stormLevelOf( StormPtr const & config, Pelt::IntfId intf ) {
   auto const present = config->intfConfig( intf );
   for( auto const & type : stormTypes ) {
      if( present && type.threshold && ( *present.*type.threshold )() != Threshold() ) {
         return Kiv::toText( intf ) + '|' + Kiv::String( type.name );
      }
   }
   return {};
}

bool
hasStormLevel( StormPtr const & config, Key const & key ) {
   auto const [ intfName, typeName ] = key.parts( stormForm );
   auto const & type = stormType( typeName );
   auto const present = config->intfConfig( Pelt::IntfId::parse( intfName ) );
   return present && ( *present.*type.threshold )() != Threshold();
}

void
mapPortStormControl( Row & row, StormPtr const & config ) {
   auto const [ intfName, typeName ] = row.key().parts( stormForm );
   auto const intf = row.existing< Pelt::IntfId >( intfName, { "PORT", "PORTCHANNEL" } );
   auto const & type = stormType( typeName );
   row.identityIs( Kiv::toText( intf ) + '|' + Kiv::String( typeName ) );
   auto const kbps = static_cast< std::uint32_t >(
         Row::needed( "kbps", row.number( "kbps", std::numeric_limits< std::uint32_t >::max() ) ) );
   Threshold const threshold{ meteringBps, 0, kbps, unitKbps };
   row.operationIs( Kiv::toText( intf ) + " lets in " + Kiv::toText( kbps ) + " kbps of " +
                          Kiv::String( typeName ),
                    [ config, intf, threshold, set = type.thresholdIs ] {
                       ( ( *config->intfConfigIs( intf ) ).*set )( threshold );
                    } );
}

void
delPortStormControl( Row & row, StormPtr const & config ) {
   auto const [ intfName, typeName ] = row.key().parts( stormForm );
   auto const intf = Pelt::IntfId::parse( intfName );
   row.operationIs( "limit of " + Kiv::String( typeName ) + " on " + Kiv::toText( intf ),
                    [ config, intf, set = stormType( typeName ).thresholdIs ] {
                       auto const present = config->intfConfig( intf );
                       ( ( *present ).*set )( Threshold() );
                       for( auto level : { present->broadcast(), present->multicast(),
                                           present->uucast(), present->all() } ) {
                          if( level != Threshold() ) {
                             return;
                          }
                       }
                       config->intfConfigDel( intf );
                    } );
}

} // namespace

void
addPortTables( Tables & tables, FeederPtr const & config ) {
   tables.add( { .name = "PORT",
                 .has =
                       [ config ]( Key const & key ) {
                          return config->portHas( key.id< Pelt::EthIntfId >() );
                       },
                 .map = [ config ]( Row & row ) { mapPort( row, config ); },
                 .del =
                       [ config ]( Row & row ) {
                          auto const intf = row.key().id< Pelt::EthIntfId >();
                          row.operationIs( "port " + Kiv::toText( intf ),
                                           [ config, intf ] { config->portDel( intf ); } );
                       } } );
}

void
addLagTables( Tables & tables, FeederPtr const & config, LagInputPtr const & lagInput ) {
   tables.add( { .name = "PORTCHANNEL",
                 .has =
                       [ config ]( Key const & key ) {
                          return config->lagHas( key.id< Pelt::PortChannelIntfId >() );
                       },
                 .map = [ config ]( Row & row ) { mapPortChannel( row, config ); },
                 .del =
                       [ config ]( Row & row ) {
                          auto const intf = row.key().id< Pelt::PortChannelIntfId >();
                          row.operationIs( "LAG " + Kiv::toText( intf ),
                                           [ config, intf ] { config->lagDel( intf ); } );
                       } } );
   auto const ofLag = [ lagInput ]( Key const & key ) -> Kiv::String {
      auto const lag = key.id< Pelt::IntfId >();
      for( auto const & [ port, present ] : lagInput->ethPhyIntfLagConfig() ) {
         if( present == lag ) {
            return lagMemberText( lag, port );
         }
      }
      return {};
   };
   auto const ofPort = [ lagInput ]( Key const & key ) -> Kiv::String {
      auto const port = key.id< Pelt::IntfId >();
      auto const lag = lagInput->ethPhyIntfLagConfig( port );
      return lag ? lagMemberText( lag, port ) : "";
   };
   tables.add( { .name = "PORTCHANNEL_MEMBER",
                 .refersTo = { { "PORTCHANNEL", ofLag }, { "PORT", ofPort } },
                 .has =
                       [ lagInput ]( Key const & key ) {
                          auto const [ lag, port ] = key.parts( lagMemberForm );
                          return lagInput->ethPhyIntfLagConfig( Pelt::EthIntfId::parse( port ) ) ==
                                 Pelt::PortChannelIntfId::parse( lag );
                       },
                 .map = [ lagInput ]( Row & row ) { mapPortChannelMember( row, lagInput ); },
                 .del = [ lagInput ]( Row & row ) { delPortChannelMember( row, lagInput ); } } );
}

void
addVlanTables( Tables & tables, FeederPtr const & config, LagInputPtr const & lagInput ) {
   tables.add(
         { .name = "VLAN",
           .has = [ config ](
                        Key const & key ) { return config->vlanHas( vlanNamed( key.text() ) ); },
           .map = [ config ]( Row & row ) { mapVlan( row, config ); },
           .del =
                 [ config ]( Row & row ) {
                    auto const vlan = vlanNamed( row.key().text() );
                    row.operationIs( "VLAN " + Kiv::toText( vlan ),
                                     [ config, vlan ] { config->vlanDel( vlan ); } );
                 } } );
   auto const ofVlan = [ config ]( Key const & key ) -> Kiv::String {
      auto const vlan = vlanNamed( key.text() );
      auto const & members = config->vlan( vlan )->member();
      return members.empty() ? "" : vlanMemberText( vlan, *members.begin() );
   };
   auto const ofIntf = [ config ]( Key const & key ) -> Kiv::String {
      auto const intf = key.id< Pelt::IntfId >();
      auto const vlan = vlanAgainst( *config, intf, switchportModeRouted );
      return vlan ? "Vlan" + vlan->name() + '|' + Kiv::toText( intf ) : "";
   };
   tables.add(
         { .name = "VLAN_MEMBER",
           .refersTo = { { "VLAN", ofVlan }, { "PORT", ofIntf }, { "PORTCHANNEL", ofIntf } },
           .has = [ config ]( Key const & key ) { return VlanMember( key ).isIn( *config ); },
           .map = [ config, lagInput ]( Row & row ) { mapVlanMember( row, config, lagInput ); },
           .del = [ config ]( Row & row ) { delVlanMember( row, config ); } } );
   for( auto const table : { "PORT", "PORTCHANNEL" } ) {
      tables.addFields( { .table = table,
                          .map = [ config ]( Row & row ) { mapSwitchportMode( row, config ); },
                          .del = [ config ]( Row & row ) { delSwitchportMode( row, config ); } } );
   }
}

void
addStormControlTables( Tables & tables, StormPtr const & config ) {
   auto const ofIntf = [ config ]( Key const & key ) {
      return stormLevelOf( config, key.id< Pelt::IntfId >() );
   };
   tables.add( { .name = "PORT_STORM_CONTROL",
                 .refersTo = { { "PORT", ofIntf }, { "PORTCHANNEL", ofIntf } },
                 .has = [ config ]( Key const & key ) { return hasStormLevel( config, key ); },
                 .map = [ config ]( Row & row ) { mapPortStormControl( row, config ); },
                 .del = [ config ]( Row & row ) { delPortStormControl( row, config ); } } );
}

} // namespace Import
