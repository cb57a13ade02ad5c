// SPDX-License-Identifier: Apache-2.0
#include "Bridging/Fdb.h"
#include "agent/features/Feature.h"
#include "agent/features/Words.h"
#include "agent/feeders/VlanFeeder.h"
#include "agent/import/AdminStatus.h"
#include "chips/sim/SimChip.h"

// VLANs: which there are, and who carries them.

namespace HobaAgent {

using Bridging::switchportModeAccess;
using Bridging::switchportModeRouted;
using Bridging::switchportModeTrunk;
using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Kiv::Datum;
using Kiv::String;
using Kiv::toText;

class VlanFeature : public Feature {
 public:
   explicit VlanFeature( Board & board ) : Feature( board, "VLANs" ) { board.offer( membership_ ); }

   void mounts() override {
      mount( "/hoba/portVlanMembership", membership_, Tessera::Access::status );
   }
   void commands( Commands & commands ) override {
      addShow( commands, *this, "show vlan", "VLANs and the interfaces that carry them",
               { { "vlan", "Only this VLAN" },
                 { "port", "Only those that this port or LAG carries" } },
               &VlanFeature::show );
      commands.valuesAre(
            "vlan", [ this ] { return namesOf( sortedKeys( board().feederConfig->vlan() ) ); } );
   }
   void importers( Import::Tables & tables ) override;
   void start() override;

 private:
   Datum show( Request const & request ) const;

   Kiv::Ptr< Hoba::PortVlanMembership > const membership_ =
         Kiv::make< Hoba::PortVlanMembership >( "portVlanMembership" );
   Machine< Feeders::VlanFeeder > feeder_{ *this, "vlanFeeder" };
};

void
VlanFeature::start() {
   context()->vlanHelperIs(
         Kiv::make< HobaSim::VlanHelper >( board().chip->vlan(), context(), membership_ ) );
   feeder_.is( Feeders::VlanFeeder::VlanFeederIs( context(), board().feederConfig,
                                                  board().lagInputConfig, membership_ ) );
   feeder_->initializedIs( true );
}

// ---- What operators see

namespace {

// How the interface takes part, and why perhaps not.
String
intfText( Board const & board, Hoba::IntfVlans const & carried, Pelt::IntfId intf ) {
   for( auto const & [ lag, list ] : board.context()->lagToPortConfig() ) {
      if( std::find( list.port.begin(), list.port.end(), intf ) != list.port.end() ) {
         return toText( intf ) + " is a member of " + toText( lag ) + ", which stands for it";
      }
   }
   auto const mode = board.feederConfig->switchportMode( intf );
   auto const native = board.feederConfig->nativeVlan( intf );
   auto text = toText( intf ) + " is " +
               ( mode == Bridging::switchportModeRouted  ? "routed"
                 : mode == Bridging::switchportModeTrunk ? "a trunk"
                                                         : "an access port" );
   if( mode == Bridging::switchportModeRouted ) {
      return text;
   }
   text += native.value() ? ", native VLAN " + toText( native ) : ", without a native VLAN";
   bool const isDropped = !carried.nativeVlan.value();
   return text + ( native.value() && isDropped ? ", which it does not carry" : "" );
}

} // namespace

Datum
VlanFeature::show( Request const & request ) const {
   auto const only = vlanOf( request );
   auto const intf = request.value< Pelt::IntfId >( "port" );
   if( only.value() && !context()->vlanStatusHas( VlanId( only.value() ) ) ) {
      throw Kiv::ParseError( "VLAN " + toText( only ) + " is not one of this switch" );
   }
   if( intf && !context()->intfHas( intf ) && !context()->lagToPortConfigHas( intf ) ) {
      throw Kiv::ParseError( toText( intf ) + " is not a port or LAG of this switch" );
   }
   auto const stations = [ bridging = board().find< Bridging::Status >() ]( VlanId vlan ) {
      auto const database = bridging ? bridging->fdbStatus( vlan ) : nullptr;
      return database ? database->learnedHost().size() : 0;
   };
   TableAnswer table( { "VLAN", "State", "Stations", "Untagged", "Tagged" } );
   for( auto const vlan : sortedKeys( context()->vlanStatus() ) ) {
      auto const status = context()->vlanStatus( vlan );
      if( ( only.value() && only.value() != vlan.value() ) ||
          ( intf && !status->intfHas( intf ) ) ) {
         continue;
      }
      std::vector< Pelt::IntfId > untagged, tagged;
      for( auto const & each : status->intf() ) {
         bool const isTagged = membership_->intf( each ).tagging( vlan ) == Hoba::vlanTagged;
         ( isTagged ? tagged : untagged ).push_back( each );
      }
      table.row( { vlan.value(), status->active() ? "active" : "not active", stations( vlan ),
                   listText( untagged ), listText( tagged ) } );
   }
   if( !only.value() ) {
      table.count( "VLAN" );
   }
   if( intf ) {
      table.note( intfText( board(), membership_->intf( intf ), intf ) );
   }
   for( auto const vlan : sortedKeys( feeder_->refusedVlan() ) ) {
      table.note( "the chip refuses VLAN " + toText( vlan ) + ": " + feeder_->refusedVlan( vlan ) );
   }
   for( auto const each : sortedKeys( feeder_->refusedIntf() ) ) {
      table.note( "the chip refuses something of " + toText( each ) + ": " +
                  feeder_->refusedIntf( each ) );
   }
   return table.take();
}

// ---- Imported configurations

namespace {

using FeederPtr = Kiv::Ptr< Feeders::Config >;
using LagInputPtr = Kiv::Ptr< Lag::Input::Config >;

VlanId
vlanNamed( std::string_view name ) {
   return VlanId( Pelt::VlanIntfId::vlanId( Pelt::VlanIntfId::parse( name ) ) );
}

String
vlanMemberText( VlanId vlan, Pelt::IntfId intf ) {
   return "Vlan" + Kiv::toText( vlan ) + '|' + Kiv::toText( intf );
}

struct VlanMember {
   VlanId vlan;
   Pelt::IntfId intf;

   explicit VlanMember( Import::Key const & key ) {
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
mapVlan( Import::Row & row, FeederPtr const & config ) {
   auto const vlan = vlanNamed( row.key().text() );
   row.identityIs( "Vlan" + Kiv::toText( vlan ) );
   auto const named = row.number( "vlanid", std::numeric_limits< std::uint16_t >::max() );
   if( named && *named != vlan.value() ) {
      throw Kiv::ParseError( "vlanid: " + Kiv::toText( *named ) + " is not the number of " +
                             row.key().text() );
   }
   auto const present = config->vlan( vlan );
   bool const active =
         Import::adminUp( row, present ? std::optional( present->active() ) : std::nullopt );
   row.operationIs( "VLAN " + Kiv::toText( vlan ) + ", " + Import::upText( active ),
                    [ config, vlan, active ] { config->vlanIs( vlan )->activeIs( active ); } );
}

void
mapVlanMember( Import::Row & row, FeederPtr const & config, LagInputPtr const & lagInput ) {
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
   bool const isThere = member.isIn( *config );
   if( !tagging && !isThere ) {
      row.remark( "no tagging_mode; taken as tagged" );
   }
   bool const tagged = tagging.value_or( !isThere || !member.isNative( *config ) );
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
delVlanMember( Import::Row & row, FeederPtr const & config ) {
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
mapSwitchportMode( Import::Row & row, FeederPtr const & config ) {
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
delSwitchportMode( Import::Row & row, FeederPtr const & config ) {
   auto const intf = row.key().id< Pelt::IntfId >();
   if( config->switchIntfHas( intf ) ) {
      row.operationIs( "its switchport mode", [ config, intf ] { config->switchIntfDel( intf ); } );
   }
}

} // namespace

void
VlanFeature::importers( Import::Tables & tables ) {
   auto const config = board().feederConfig;
   auto const lagInput = board().lagInputConfig;
   tables.add( { .name = "VLAN",
                 .has =
                       [ config ]( Import::Key const & key ) {
                          return config->vlanHas( vlanNamed( key.text() ) );
                       },
                 .map = [ config ]( Import::Row & row ) { mapVlan( row, config ); },
                 .del =
                       [ config ]( Import::Row & row ) {
                          auto const vlan = vlanNamed( row.key().text() );
                          row.operationIs( "VLAN " + Kiv::toText( vlan ),
                                           [ config, vlan ] { config->vlanDel( vlan ); } );
                       } } );
   auto const ofVlan = [ config ]( Import::Key const & key ) -> String {
      auto const vlan = vlanNamed( key.text() );
      auto const & members = config->vlan( vlan )->member();
      return members.empty() ? "" : vlanMemberText( vlan, *members.begin() );
   };
   auto const ofIntf = [ config ]( Import::Key const & key ) -> String {
      auto const intf = key.id< Pelt::IntfId >();
      auto const vlan = vlanAgainst( *config, intf, switchportModeRouted );
      return vlan ? "Vlan" + vlan->name() + '|' + Kiv::toText( intf ) : "";
   };
   tables.add(
         { .name = "VLAN_MEMBER",
           .refersTo = { { "VLAN", ofVlan }, { "PORT", ofIntf }, { "PORTCHANNEL", ofIntf } },
           .has = [ config ](
                        Import::Key const & key ) { return VlanMember( key ).isIn( *config ); },
           .map = [ config,
                    lagInput ]( Import::Row & row ) { mapVlanMember( row, config, lagInput ); },
           .del = [ config ]( Import::Row & row ) { delVlanMember( row, config ); } } );
   for( auto const table : { "PORT", "PORTCHANNEL" } ) {
      tables.addFields(
            { .table = table,
              .map = [ config ]( Import::Row & row ) { mapSwitchportMode( row, config ); },
              .del = [ config ]( Import::Row & row ) { delSwitchportMode( row, config ); } } );
   }
}

HOBA_FEATURE( VlanFeature );

} // namespace HobaAgent
