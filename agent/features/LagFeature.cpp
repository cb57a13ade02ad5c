// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Feature.h"
#include "agent/features/Words.h"
#include "agent/feeders/LagFeeder.h"

// LAGs and who is in them.

namespace HobaAgent {

using Kiv::Datum;

class LagFeature : public Feature {
 public:
   explicit LagFeature( Board & board ) : Feature( board, "LAGs" ) {}

   void mounts() override {
      mount( "/lag/input/config", board().lagInputConfig, Tessera::Access::configuration );
   }
   void commands( Commands & commands ) override;
   void start() override;

 private:
   Datum show( Request const & ) const;
   Datum put( Request const & request );

   Machine< Feeders::LagFeeder > feeder_{ *this, "lagFeeder" };
};

void
LagFeature::start() {
   feeder_.is( Feeders::LagFeeder::LagFeederIs(
         context(), board().feederConfig, board().lagInputConfig, board().ethPhyIntfStatusDir ) );
   feeder_->initializedIs( true );
}

Datum
LagFeature::show( Request const & ) const {
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

HOBA_FEATURE( LagFeature );

} // namespace HobaAgent
