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

#include <functional>

namespace Feeders {

class PortFeeder : public Hoba::HobaBaseSm {
   HOBA_MACHINE( PortFeeder );

 public:
   using LinkOf = std::function< Interface::LinkStatus( Pelt::IntfId intf ) >;
   void handleInitialized() override;

 protected:
   // Reads `config` and what the chip reported into `hobaPortStatusDir`; writes `commonSmData`,
   // `ethPhyIntfStatusDir` and who is in `hobaPortStatusDir`, but not before its owner says
   // initializedIs( true ). `linkOf` says what the chip knows of a link before it reports anything;
   // without it nothing is known.
   PortFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
               Kiv::Ptr< Config const > const & config,
               Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const & ethPhyIntfStatusDir,
               Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & hobaPortStatusDir,
               LinkOf linkOf = {} );

 private:
   // A port came or went, or something about it changed.
   void handlePort( Pelt::IntfId const & intf );
   void statusIs( Interface::EthPhyIntfStatus & status, PortConfig const & port,
                  Pelt::IntfId intf );
   void add( Pelt::IntfId intf, PortConfig const & port );
   void remove( Pelt::IntfId intf );

   class KivPortConfig
         : public Kiv::Hears<
                 PortFeeder, PortConfig const, Pelt::IntfId,
                 Kiv::WhenReadyAny< &PortFeeder::handlePort, PortConfig::speedAttr,
                                    PortConfig::enabledAttr, PortConfig::linkUpAttr > > {};
   class KivPortStatus
         : public Kiv::Hears< PortFeeder, HobaTypes::HobaPortStatus const, Pelt::IntfId,
                              Kiv::WhenReady< HobaTypes::HobaPortStatus::linkStatusAttr,
                                              &PortFeeder::handlePort > > {};

   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const ethPhyIntfStatusDir_;
   Kiv::Ptr< HobaTypes::HobaPortStatusDir > const hobaPortStatusDir_;
   LinkOf const linkOf_;
   KIV_REACTORS( Pelt::IntfId, KivPortConfig, portConfig );
   KIV_REACTORS( Pelt::IntfId, KivPortStatus, portStatus );

   class KivConfig
         : public Kiv::Hears< PortFeeder, Config const,
                              Kiv::Follow< Config::portAttr, &PortFeeder::portConfig_ >,
                              Kiv::WhenReady< Config::portAttr, &PortFeeder::handlePort > > {};
   KIV_REACTOR( KivConfig, config );
};

} // namespace Feeders
