// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stands in for the switch's agents that find, configure and watch the ports. It makes of
// Feeders::Config::port
//
//    HobaCommonSmData::intf, ::cpuIntf              the ports of this agent, and the CPU's
//    Interface::AllEthPhyIntfStatusDir              speed, link and activity of each port
//    HobaTypes::HobaPortStatusDir                   its members, into which the chip's reports go
//
// and is the only one to write these. A port whose cable is unplugged, whose link the chip reports
// to be down, or that the operator disabled, is there but not active.

#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaCommon.h"
#include "Interface/EthPhyIntfStatus.h"
#include "agent/feeders/FeederConfig.h"
#include "types/HobaTypes.h"

namespace Feeders {

class PortFeeder : public Hoba::HobaBaseSm {
 public:
   // Reads `config` and what the chip reported into `hobaPortStatusDir`; writes `commonSmData`,
   // `ethPhyIntfStatusDir` and who is in `hobaPortStatusDir`, but not before its owner says
   // initializedIs( true ).
   static Kiv::Ptr< PortFeeder >
   PortFeederIs( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                 Kiv::Ptr< Config const > const & config,
                 Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const & ethPhyIntfStatusDir,
                 Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & hobaPortStatusDir );
   KIV_TYPE( PortFeeder );

   void handleInitialized() override;

 protected:
   PortFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
               Kiv::Ptr< Config const > const & config,
               Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const & ethPhyIntfStatusDir,
               Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & hobaPortStatusDir );

 private:
   // A port came or went.
   void handlePort( Pelt::EthIntfId const & intf );
   // Something about a port changed.
   void handlePortConfig( Pelt::IntfId const & intf );
   void statusIs( Interface::EthPhyIntfStatus & status, PortConfig const & port,
                  Pelt::IntfId intf );
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

   class KivPortStatus : public Kiv::Reactor< KivPortStatus, HobaTypes::HobaPortStatus const,
                                              PortFeeder, Pelt::IntfId > {
    public:
      static constexpr auto handlers =
            Kiv::handlers( Kiv::onChange< HobaTypes::HobaPortStatus::linkStatusAttr,
                                          &PortFeeder::handlePortConfig >() );
   };

   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const ethPhyIntfStatusDir_;
   Kiv::Ptr< HobaTypes::HobaPortStatusDir > const hobaPortStatusDir_;

   KIV_REACTOR( KivConfig, config );
   KIV_REACTORS( Pelt::IntfId, KivPortConfig, portConfig );
   KIV_REACTORS( Pelt::IntfId, KivPortStatus, portStatus );
};

} // namespace Feeders
