// SPDX-License-Identifier: Apache-2.0
#include "Bridging/Config.h"
#include "Dot1x/Dot1x.h"
#include "FastServerFailover/FastServerFailover.h"
#include "agent/features/Feature.h"
#include "agent/feeders/BridgingFeeder.h"
#include "agent/import/Tables.h"
#include "types/RemoteMac.h"

// How the switch bridges by the operator's word, and what its other agents know of stations of this switch:
// who has proven himself, which servers have failed, what the switch's own addresses are.

namespace HobaAgent {

using Bridging::MacVlanPair;
using Bridging::VlanId;
using Kiv::String;

class BridgingFeature : public Feature {
 public:
   explicit BridgingFeature( Board & board ) : Feature( board, "bridging" ) {
      board.offer( config_ );
      board.offer( vlanConfigDir_ );
      board.offer( switchIntfConfigDir_ );
      board.offer( ethPhyIntfConfigDir_ );
      board.offer( dot1xStatus_ );
      board.offer( dot1xHostTable_ );
      board.offer( fsfStatus_ );
      board.offer( routerMacTable_ );
   }

   void mounts() override;
   void importers( Import::Tables & tables ) override;
   void start() override;

 private:
   Kiv::Ptr< Bridging::Config > const config_ = Kiv::make< Bridging::Config >( "config" );
   Kiv::Ptr< Bridging::VlanConfigDir > const vlanConfigDir_ =
         Kiv::make< Bridging::VlanConfigDir >( "vlanConfig" );
   Kiv::Ptr< Bridging::SwitchIntfConfigDir > const switchIntfConfigDir_ =
         Kiv::make< Bridging::SwitchIntfConfigDir >( "switchIntfConfig" );
   Kiv::Ptr< Interface::EthPhyIntfConfigDir > const ethPhyIntfConfigDir_ =
         Kiv::make< Interface::EthPhyIntfConfigDir >( "config" );
   Kiv::Ptr< Dot1x::Status > const dot1xStatus_ = Kiv::make< Dot1x::Status >( "status" );
   Kiv::Ptr< Dot1x::HostTable > const dot1xHostTable_ =
         Kiv::make< Dot1x::HostTable >( "hostTable" );
   Kiv::Ptr< FastServerFailover::Status > const fsfStatus_ =
         Kiv::make< FastServerFailover::Status >( "status" );
   Kiv::Ptr< HobaTypes::RouterMacTable > const routerMacTable_ =
         Kiv::make< HobaTypes::RouterMacTable >( "routerMac" );
   Machine< Feeders::BridgingFeeder > feeder_{ *this, "bridgingFeeder" };
};

void
BridgingFeature::mounts() {
   using enum Tessera::Access;
   mount( "/bridging/config", config_, configuration );
   mount( "/bridging/vlanConfig", vlanConfigDir_, status );
   mount( "/bridging/switchIntfConfig", switchIntfConfigDir_, status );
   mount( "/interface/config", ethPhyIntfConfigDir_, status );
   mount( "/dot1x/status", dot1xStatus_, configuration );
   mount( "/dot1x/hostTable", dot1xHostTable_, configuration );
   mount( "/fsf/status", fsfStatus_, configuration );
   mount( "/hoba/routerMac", routerMacTable_, configuration );
}

void
BridgingFeature::start() {
   feeder_.is( Feeders::BridgingFeeder::BridgingFeederIs( context(), board().feederConfig,
                                                          vlanConfigDir_, switchIntfConfigDir_,
                                                          ethPhyIntfConfigDir_ ) );
   feeder_->initializedIs( true );
}

// ---- Imported configurations

namespace {

// The address under which switches answer as one gateway: in one VLAN, or in all that there are.
void
mapGateway( Import::Row & row, Feeders::Config const & config,
            Kiv::Ptr< HobaTypes::RouterMacTable > const & table ) {
   std::vector< VlanId > vlans;
   if( row.key().text() == "GLOBAL" ) {
      for( auto const & [ vlan, vlanConfig ] : config.vlan() ) {
         vlans.push_back( vlan );
      }
   } else if( row.key().text().starts_with( "Vlan" ) ) {
      auto const intf = row.existing< Pelt::VlanIntfId >( row.key().text(), { "VLAN" } );
      vlans.emplace_back( Pelt::VlanIntfId::vlanId( intf ) );
   } else {
      Kiv::parseFailed( row.key().text(), "GLOBAL or Vlan<n>" );
   }
   auto const mac = row.needed( "gateway_mac", row.value< Pelt::EthAddr >( "gateway_mac" ) );
   if( !mac.isUnicast() ) {
      throw Kiv::ParseError( "gateway_mac: " + Kiv::toText( mac ) + " is no station's address" );
   }
   row.operationIs( "router MAC " + Kiv::toText( mac ) + " in " +
                          ( vlans.size() == 1 ? "VLAN " + Kiv::toText( vlans.front() )
                                              : counted( vlans.size(), "VLAN" ) ),
                    [ table, mac, vlans ] {
                       for( auto const vlan : vlans ) {
                          HobaTypes::RouterMac entry;
                          entry.macEntry = MacVlanPair( mac, vlan );
                          table->routerMacIs( entry );
                       }
                    } );
}

} // namespace

void
BridgingFeature::importers( Import::Tables & tables ) {
   tables.add( { .name = "SAG",
                 .refersTo = { { "VLAN" } },
                 .map = [ config = board().feederConfig, table = routerMacTable_ ](
                              Import::Row & row ) { mapGateway( row, *config, table ); } } );
}

HOBA_FEATURE( BridgingFeature );

} // namespace HobaAgent
