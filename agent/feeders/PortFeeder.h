// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stands in for the switch's agents that find, configure and watch the ports. It makes of
// Feeders::Config::port
//
//    HobaCommonSmData::intf, ::cpuIntf              the ports of this agent, and the CPU's
//    Interface::AllEthPhyIntfStatusDir              speed, link and activity of each port
//
// and is the only one to write these. A port whose cable is unplugged, or that the operator
// disabled, is there but not active.

#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaCommon.h"
#include "Interface/EthPhyIntfStatus.h"
#include "agent/feeders/FeederConfig.h"

namespace Feeders {

class PortFeeder : public Hoba::HobaBaseSm {
 public:
   // Reads `config`; writes `commonSmData` and `ethPhyIntfStatusDir`, but not before its owner says
   // initializedIs( true ).
   static Kiv::Ptr< PortFeeder >
   PortFeederIs( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                 Kiv::Ptr< Config const > const & config,
                 Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const & ethPhyIntfStatusDir );
   KIV_TYPE( PortFeeder );

   void handleInitialized() override;

 protected:
   PortFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
               Kiv::Ptr< Config const > const & config,
               Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const & ethPhyIntfStatusDir );

 private:
   // A port came or went.
   void handlePort( Pelt::EthIntfId const & intf );
   // Something about a port changed.
   void handlePortConfig( Pelt::IntfId const & intf );
   void add( Pelt::IntfId intf, PortConfig const & port );
   void remove( Pelt::IntfId intf );

   class KivConfig : public Kiv::Reactor< KivConfig, Config const, PortFeeder > {
    public:
      static constexpr auto handlers =
            Kiv::handlers( Kiv::on< Config::portAttr, &PortFeeder::handlePort >() );
   };

   class KivPortConfig
         : public Kiv::Reactor< KivPortConfig, PortConfig const, PortFeeder, Pelt::IntfId > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::onChange< PortConfig::speedAttr, &PortFeeder::handlePortConfig >(),
            Kiv::onChange< PortConfig::enabledAttr, &PortFeeder::handlePortConfig >(),
            Kiv::onChange< PortConfig::linkUpAttr, &PortFeeder::handlePortConfig >() );
   };

   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const ethPhyIntfStatusDir_;

   KIV_REACTOR( KivConfig, config );
   KIV_REACTORS( Pelt::IntfId, KivPortConfig, portConfig );
};

} // namespace Feeders
