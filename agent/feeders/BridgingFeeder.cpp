// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/BridgingFeeder.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Feeders::BridgingFeeder );

namespace Feeders {

BridgingFeeder::BridgingFeeder(
      Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData, Kiv::Ptr< Config > const & config,
      Kiv::Ptr< Bridging::VlanConfigDir > const & vlanConfigDir,
      Kiv::Ptr< Bridging::SwitchIntfConfigDir > const & switchIntfConfigDir,
      Kiv::Ptr< Interface::EthPhyIntfConfigDir > const & ethPhyIntfConfigDir )
      : HobaBaseSm( commonSmData ), vlanConfigDir_( vlanConfigDir ),
        switchIntfConfigDir_( switchIntfConfigDir ), ethPhyIntfConfigDir_( ethPhyIntfConfigDir ) {
   configIs( config );
   bogusAcsdIs( commonSmData );
}

void
BridgingFeeder::handleInitialized() {
   if( !initialized() ) {
      return;
   }
   // The directories may be older than this machine: what has gone meanwhile goes here, too.
   for( auto const & [ vlan, entry ] : vlanConfigDir_->vlanConfig() ) {
      handleVlan( vlan );
   }
   for( auto const & [ vlan, reactor ] : vlanStatus() ) {
      handleVlan( vlan );
   }
   for( auto const & [ intf, entry ] : switchIntfConfigDir_->switchIntfConfig() ) {
      handleSwitchIntf( intf );
   }
   for( auto const & [ intf, asked ] : config()->notifier()->switchIntf() ) {
      handleSwitchIntf( intf );
   }
   for( auto const & [ intf, entry ] : ethPhyIntfConfigDir_->ethPhyIntfConfig() ) {
      handlePort( intf );
   }
   for( auto const & [ intf, reactor ] : portConfig() ) {
      handlePort( intf );
   }
}

void
BridgingFeeder::handleVlan( Bridging::VlanId const & vlan ) {
   auto const * status = vlanStatus( vlan );
   if( !status || !status->notifier()->active() ) {
      vlanConfigDir_->vlanConfigDel( vlan );
   } else if( auto const entry = vlanConfigDir_->vlanConfig( vlan ) ) {
      fill( *entry, vlan );
   } else {
      auto const made = Kiv::make< Bridging::VlanConfig >( vlan );
      fill( *made, vlan );
      vlanConfigDir_->vlanConfigIs( vlan, made );
   }
}

void
BridgingFeeder::fill( Bridging::VlanConfig & entry, Bridging::VlanId vlan ) const {
   auto const * asked = vlanConfig( vlan );
   entry.macLearningIs( !asked || asked->notifier()->macLearning() );
   entry.primaryVlanIs( asked ? asked->notifier()->primaryVlan() : Bridging::VlanIdOrNone() );
   auto const & status = *vlanStatus( vlan )->notifier();
   for( auto const & intf : entry.intf() ) {
      if( !status.intfHas( intf ) ) {
         entry.intfDel( intf );
      }
   }
   for( auto const & intf : status.intf() ) {
      entry.intfIs( intf );
   }
}

void
BridgingFeeder::handleCarrier( Bridging::VlanId vlan, Pelt::IntfId intf ) {
   if( auto const entry = vlanConfigDir_->vlanConfig( vlan ) ) {
      vlanStatus( vlan )->notifier()->intfHas( intf ) ? entry->intfIs( intf )
                                                      : entry->intfDel( intf );
   }
}

void
BridgingFeeder::handleSwitchIntf( Pelt::IntfId const & intf ) {
   if( auto const asked = config()->notifier()->switchIntf( intf ) ) {
      switchIntfConfigDir_->switchIntfConfigIs( intf, asked );
   } else {
      switchIntfConfigDir_->switchIntfConfigDel( intf );
   }
}

void
BridgingFeeder::handlePort( Pelt::IntfId const & intf ) {
   auto const * asked = portConfig( intf );
   if( !asked ) {
      ethPhyIntfConfigDir_->ethPhyIntfConfigDel( intf );
      return;
   }
   auto entry = ethPhyIntfConfigDir_->ethPhyIntfConfig( intf );
   if( !entry ) {
      entry = Kiv::make< Interface::EthPhyIntfConfig >( intf );
   }
   entry->enabledIs( asked->notifier()->enabled() );
   ethPhyIntfConfigDir_->ethPhyIntfConfigIs( intf, entry );
}

} // namespace Feeders
