// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stands in for the switch's agent of bridging. It makes of Feeders::Config, and of the VLANs as they are,
//
//    Bridging::VlanConfigDir             each active VLAN: who carries it, whether stations are learnt
//    Bridging::SwitchIntfConfigDir       what the operator says of ports and LAGs, put there as it is
//    Interface::EthPhyIntfConfigDir      which ports the operator lets take part
//
// and is the only one to write these. An entry is complete when others first see it.

#include "Bridging/Config.h"
#include "Bridging/SwitchIntfConfig.h"
#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaCommon.h"
#include "Interface/EthPhyIntfConfig.h"
#include "agent/feeders/FeederConfig.h"

namespace Feeders {

class BridgingFeeder : public Hoba::HobaBaseSm {
   HOBA_MACHINE( BridgingFeeder );

 public:
   void handleInitialized() override;

 protected:
   // Reads `config`, whose entries for interfaces it passes on to be read, and the VLANs of `commonSmData`;
   // writes the others, but not before its owner says initializedIs( true ).
   BridgingFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                   Kiv::Ptr< Config > const & config,
                   Kiv::Ptr< Bridging::VlanConfigDir > const & vlanConfigDir,
                   Kiv::Ptr< Bridging::SwitchIntfConfigDir > const & switchIntfConfigDir,
                   Kiv::Ptr< Interface::EthPhyIntfConfigDir > const & ethPhyIntfConfigDir );

 private:
   // Something about the VLAN changed; one more interface carries it, or one less.
   void handleVlan( Bridging::VlanId const & vlan );
   void handleCarrier( Bridging::VlanId vlan, Pelt::IntfId intf );
   void fill( Bridging::VlanConfig & entry, Bridging::VlanId vlan ) const;
   void handleSwitchIntf( Pelt::IntfId const & intf );
   void handlePort( Pelt::IntfId const & intf );

   class KivVlanStatus : public Kiv::Reactor< KivVlanStatus, Hoba::VlanStatus const, BridgingFeeder,
                                              Bridging::VlanId > {
      void handleIntf( Pelt::IntfId const & intf ) { owner().handleCarrier( key(), intf ); }

    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::WhenReady< Hoba::VlanStatus::activeAttr, &BridgingFeeder::handleVlan >(),
            Kiv::WhenReady< Hoba::VlanStatus::intfAttr, &KivVlanStatus::handleIntf >() );
   };
   class KivVlanConfig
         : public Kiv::Hears<
                 BridgingFeeder, VlanConfig const, Bridging::VlanId,
                 Kiv::WhenReadyAny< &BridgingFeeder::handleVlan, VlanConfig::macLearningAttr,
                                    VlanConfig::primaryVlanAttr > > {};
   class KivPortConfig
         : public Kiv::Hears<
                 BridgingFeeder, PortConfig const, Pelt::IntfId,
                 Kiv::WhenReady< PortConfig::enabledAttr, &BridgingFeeder::handlePort > > {};

   Kiv::Ptr< Bridging::VlanConfigDir > const vlanConfigDir_;
   Kiv::Ptr< Bridging::SwitchIntfConfigDir > const switchIntfConfigDir_;
   Kiv::Ptr< Interface::EthPhyIntfConfigDir > const ethPhyIntfConfigDir_;
   KIV_REACTORS( Bridging::VlanId, KivVlanStatus, vlanStatus );
   KIV_REACTORS( Bridging::VlanId, KivVlanConfig, vlanConfig );
   KIV_REACTORS( Pelt::IntfId, KivPortConfig, portConfig );

   class KivConfig
         : public Kiv::Hears<
                 BridgingFeeder, Config,
                 Kiv::Follow< Config::vlanAttr, &BridgingFeeder::vlanConfig_ >,
                 Kiv::WhenReady< Config::vlanAttr, &BridgingFeeder::handleVlan >,
                 Kiv::Follow< Config::portAttr, &BridgingFeeder::portConfig_ >,
                 Kiv::WhenReady< Config::portAttr, &BridgingFeeder::handlePort >,
                 Kiv::WhenReady< Config::switchIntfAttr, &BridgingFeeder::handleSwitchIntf > > {};
   KIV_REACTOR( KivConfig, config );

   class KivBogusAcsd : public Kiv::Hears< BridgingFeeder, Hoba::HobaCommonSmData const,
                                           Kiv::Follow< Hoba::HobaCommonSmData::vlanStatusAttr,
                                                        &BridgingFeeder::vlanStatus_ >,
                                           Kiv::WhenReady< Hoba::HobaCommonSmData::vlanStatusAttr,
                                                           &BridgingFeeder::handleVlan > > {};
   KIV_REACTOR( KivBogusAcsd, bogusAcsd );
};

} // namespace Feeders
