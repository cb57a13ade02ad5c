// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaNonAgingMacSm.h"
#include "agent/features/Feature.h"
#include "agent/features/Stations.h"
#include "agent/feeders/NonAgingFeeder.h"

// Stations that never age, and who asks for that.

namespace HobaAgent {

using Kiv::Datum;
using Kiv::String;

class NonAgingFeature : public Feature {
 public:
   explicit NonAgingFeature( Board & board ) : Feature( board, "non-aging stations" ) {
      board.offer( status_ );
   }

   void mounts() override { mount( "/hoba/nonAging/status", status_, Tessera::Access::status ); }
   void commands( Commands & commands ) override {
      addShow( commands, *this, "show mac non-aging",
               "Stations that never age, and who asks for that", {}, &NonAgingFeature::show );
   }
   void start() override;

 private:
   Datum show( Request const & ) const;

   Kiv::Ptr< Kiv::Dir > const configDir_ = Kiv::make< Kiv::Dir >( "config" );
   Kiv::Ptr< Hoba::NonAgingStatus > const status_ = Kiv::make< Hoba::NonAgingStatus >( "status" );
   Machine< Feeders::NonAgingFeeder > feeder_{ *this, "nonAgingFeeder" };
   Machine< Hoba::NonAgingConfigDirSm > sm_{ *this, "nonAging" };
};

void
NonAgingFeature::start() {
   feeder_.is(
         Feeders::NonAgingFeeder::NonAgingFeederIs( context(), board().feederConfig, configDir_ ) );
   feeder_->initializedIs( true );
   sm_.is( Hoba::NonAgingConfigDirSm::NonAgingConfigDirSmIs( context(), configDir_, status_ ) );
   sm_->initializedIs( true );
}

namespace {

// Which clients hold the station.
String
holders( Hoba::NonAgingConfigDirSm const & sm, Bridging::MacVlanPair host ) {
   String text;
   for( auto const & [ name, client ] : sm.configSm() ) {
      if( client->heldHas( host ) ) {
         text += ( text.empty() ? "" : ", " ) + name;
      }
   }
   return text;
}

} // namespace

Datum
NonAgingFeature::show( Request const & ) const {
   TableAnswer table( { "MAC address", "VLAN", "Interface", "Type", "Clients", "Held by" } );
   auto const & sm = *sm_;
   for( auto const * entry : sortedStations( status_->macEntries() ) ) {
      auto const host = entry->macEntry;
      table.row( { Kiv::toText( host.addr() ), host.vlanId().value(), Kiv::toText( entry->intf ),
                   typeCell( table, entry->entryType ), sm.macEntriesRef( host ),
                   holders( sm, host ) } );
   }
   table.note( String( "non-aging is " ) + ( status_->enabled() ? "enabled" : "disabled" ) + "; " +
               counted( status_->macEntries().size(), "station" ) );
   for( auto const * entry : sortedStations( status_->macEntries() ) ) {
      if( entry->intf && !board().hasIntf( entry->intf ) ) {
         table.note( Kiv::toText( entry->macEntry ) + " is behind " + Kiv::toText( entry->intf ) +
                     ", which is not an interface of this switch" );
      }
   }
   for( auto const & [ name, client ] : sm.configSm() ) {
      auto const & config = *client->config()->notifier();
      if( !config.enable() ) {
         table.note( "client " + name + " is disabled and lists " +
                     counted( config.macEntries().size(), "station" ) );
      }
   }
   return table.take();
}

HOBA_FEATURE( NonAgingFeature );

} // namespace HobaAgent
