// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Feature.h"
#include "agent/features/Words.h"
#include "agent/feeders/LagFeeder.h"
#include "agent/import/AdminStatus.h"
#include "chips/sim/SimChip.h"
#include "chips/sim/SimLagSm.h"

// LAGs and who is in them.

namespace HobaAgent {

using Kiv::Datum;
using Kiv::String;

class LagFeature : public Feature {
 public:
   explicit LagFeature( Board & board ) : Feature( board, "LAGs" ) {}

   void mounts() override {
      mount( "/lag/input/config", board().lagInputConfig, Tessera::Access::configuration );
   }
   void commands( Commands & commands ) override;
   void importers( Import::Tables & tables ) override;
   void start() override;

 private:
   Datum show( Request const & ) const;
   Datum put( Request const & request );

   Machine< Feeders::LagFeeder > feeder_{ *this, "lagFeeder" };
   Machine< HobaSim::ChipLagSm > chipSm_{ *this, "chipLag" };
};

void
LagFeature::start() {
   feeder_.is( Feeders::LagFeeder::LagFeederIs(
         context(), board().feederConfig, board().lagInputConfig, board().ethPhyIntfStatusDir ) );
   feeder_->initializedIs( true );
   chipSm_.is( HobaSim::ChipLagSm::ChipLagSmIs( context(), board().chip->trunk() ) );
   chipSm_->initializedIs( true );
}

Datum
LagFeature::show( Request const & ) const {
   context(); // refused without machines, also while no row would need them
   TableAnswer table( { "LAG", "Kind", "Min links", "Active members", "Configured members" } );
   for( auto const lag : sortedKeys( board().feederConfig->lag() ) ) {
      auto const config = board().feederConfig->lag( lag );
      table.row( { Kiv::toText( lag ), config->kind() == HobaTypes::lagTypeLacp ? "LACP" : "static",
                   config->minLinks(), listText( context()->lagToPort( lag ).port ),
                   listText( context()->lagToPortConfig( lag ).port ) } );
   }
   table.count( "LAG" );
   return table.take();
}

Datum
LagFeature::put( Request const & request ) {
   auto const port = portIdOf( board(), request );
   if( request.text( "lag" ) == "none" ) {
      board().lagInputConfig->ethPhyIntfLagConfigDel( port );
      return {};
   }
   auto const lag = idOf< Pelt::PortChannelIntfId >( request, "lag" );
   board().feederConfig->lagIs( lag );
   board().lagInputConfig->ethPhyIntfLagConfigIs( port, lag );
   return {};
}

void
LagFeature::commands( Commands & commands ) {
   addShow( commands, *this, "show lag", "LAGs and their members", {}, &LagFeature::show );
   addInput( commands, *this, "sim lag", "Puts a port into a LAG, or out of all",
             { portArgument, { "lag", "The LAG, or none", true } }, &LagFeature::put );
   commands.valuesAre( "lag", [ this ] {
      auto names = namesOf( sortedKeys( board().feederConfig->lag() ) );
      names.emplace_back( "none" );
      return names;
   } );
}

// ---- Imported configurations

namespace {

using FeederPtr = Kiv::Ptr< Feeders::Config >;
using LagInputPtr = Kiv::Ptr< Lag::Input::Config >;

// What the shape allows; this system takes more.
constexpr std::uint16_t maxMinLinks = 1024;
constexpr std::uint32_t maxLagNumber = 9999;

// LAGs of this shape always negotiate by LACP.
void
mapPortChannel( Import::Row & row, FeederPtr const & config ) {
   auto const intf = row.key().id< Pelt::PortChannelIntfId >();
   row.identityIs( Kiv::toText( intf ) );
   auto const present = config->lag( intf );
   auto const minLinks = static_cast< std::uint16_t >(
         row.number( "min_links", std::numeric_limits< std::uint16_t >::max() )
               .value_or( present ? present->minLinks() : 0 ) );
   if( minLinks > maxMinLinks ) {
      row.remark( "min_links " + Kiv::toText( minLinks ) + " is more than the " +
                  Kiv::toText( maxMinLinks ) + " that files of this shape may ask for" );
   }
   if( intf.number() > maxLagNumber ) {
      row.remark( "the names of files of this shape end at PortChannel" +
                  Kiv::toText( maxLagNumber ) );
   }
   bool const fallback =
         row.either( "fallback", "true", "false" ).value_or( present && present->lacpFallback() );
   bool const enabled =
         Import::adminUp( row, present ? std::optional( present->enabled() ) : std::nullopt );
   row.operationIs( "LACP LAG " + Kiv::toText( intf ) + ", " + Import::upText( enabled ) +
                          ", min links " + Kiv::toText( minLinks ) +
                          ( fallback ? ", with fallback" : "" ),
                    [ config, intf, minLinks, fallback, enabled ] {
                       auto const lag = config->lagIs( intf );
                       lag->kindIs( HobaTypes::lagTypeLacp );
                       lag->minLinksIs( minLinks );
                       lag->lacpFallbackIs( fallback );
                       lag->enabledIs( enabled );
                    } );
}

constexpr std::string_view lagMemberForm = "PortChannel<n>|Ethernet<n>";

String
lagMemberText( Pelt::IntfId lag, Pelt::IntfId port ) {
   return Kiv::toText( lag ) + '|' + Kiv::toText( port );
}

void
mapPortChannelMember( Import::Row & row, LagInputPtr const & config ) {
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
delPortChannelMember( Import::Row & row, LagInputPtr const & config ) {
   auto const [ lagName, portName ] = row.key().parts( lagMemberForm );
   auto const port = Pelt::EthIntfId::parse( portName );
   row.operationIs( Kiv::toText( port ) + " in " +
                          Kiv::toText( Pelt::PortChannelIntfId::parse( lagName ) ),
                    [ config, port ] { config->ethPhyIntfLagConfigDel( port ); } );
}

} // namespace

void
LagFeature::importers( Import::Tables & tables ) {
   auto const config = board().feederConfig;
   auto const lagInput = board().lagInputConfig;
   tables.add( { .name = "PORTCHANNEL",
                 .has =
                       [ config ]( Import::Key const & key ) {
                          return config->lagHas( key.id< Pelt::PortChannelIntfId >() );
                       },
                 .map = [ config ]( Import::Row & row ) { mapPortChannel( row, config ); },
                 .del =
                       [ config ]( Import::Row & row ) {
                          auto const intf = row.key().id< Pelt::PortChannelIntfId >();
                          row.operationIs( "LAG " + Kiv::toText( intf ),
                                           [ config, intf ] { config->lagDel( intf ); } );
                       } } );
   auto const ofLag = [ lagInput ]( Import::Key const & key ) -> String {
      auto const lag = key.id< Pelt::IntfId >();
      for( auto const & [ port, present ] : lagInput->ethPhyIntfLagConfig() ) {
         if( present == lag ) {
            return lagMemberText( lag, port );
         }
      }
      return {};
   };
   auto const ofPort = [ lagInput ]( Import::Key const & key ) -> String {
      auto const port = key.id< Pelt::IntfId >();
      auto const lag = lagInput->ethPhyIntfLagConfig( port );
      return lag ? lagMemberText( lag, port ) : "";
   };
   tables.add(
         { .name = "PORTCHANNEL_MEMBER",
           .refersTo = { { "PORTCHANNEL", ofLag }, { "PORT", ofPort } },
           .has =
                 [ lagInput ]( Import::Key const & key ) {
                    auto const [ lag, port ] = key.parts( lagMemberForm );
                    return lagInput->ethPhyIntfLagConfig( Pelt::EthIntfId::parse( port ) ) ==
                           Pelt::PortChannelIntfId::parse( lag );
                 },
           .map = [ lagInput ]( Import::Row & row ) { mapPortChannelMember( row, lagInput ); },
           .del = [ lagInput ]( Import::Row & row ) { delPortChannelMember( row, lagInput ); } } );
}

HOBA_FEATURE( LagFeature );

} // namespace HobaAgent
