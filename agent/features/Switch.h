// SPDX-License-Identifier: Apache-2.0
#pragma once

// The switch that this agent drives: the shared context, the entities of the state database, the
// simulated chip, the stand-ins for the other agents, and the machines of the library.

#include "Bridging/StormControl.h"
#include "Hoba/HobaCommon.h"
#include "Hoba/HobaNonAgingMacSm.h"
#include "Hoba/HobaParityEventQueueSm.h"
#include "Hoba/HobaParitySm.h"
#include "Hoba/HobaStormControlSm.h"
#include "Hoba/HobaVerifySm.h"
#include "Interface/EthPhyIntfStatus.h"
#include "Lag/Lag.h"
#include "Mox/TimerWheel.h"
#include "Tessera/Database.h"
#include "agent/feeders/FeederConfig.h"
#include "agent/feeders/LagFeeder.h"
#include "agent/feeders/NonAgingFeeder.h"
#include "agent/feeders/PortFeeder.h"
#include "chips/sim/SimMachines.h"
#include "types/VerifyAgent.h"

namespace HobaAgent {

class Switch {
 public:
   // Makes everything; nothing works yet. Clocks go to the ambient driver.
   Switch();
   ~Switch();
   Switch( Switch const & ) = delete;
   Switch & operator=( Switch const & ) = delete;

   // What an operator may look at, and write: the entities, and the machines with what they know and
   // what waits in them. The machine that verifies comes with start(). Whoever watches one, or holds
   // it, when the switch is gone hears and does nothing more.
   void mount( Tessera::Database & database );
   void unmount( Tessera::Database & database );

   // The configuration has been read: the feeders fill the context, the machines do their first
   // full pass. `database` is the one that the rest is mounted in.
   void start( Tessera::Database & database );

   // Whether the switch has this interface. Nothing here makes VXLAN interfaces: each is taken to be
   // there, as the CPU port is.
   bool hasIntf( Pelt::IntfId intf ) const;

   Kiv::Ptr< Hoba::HobaCommonSmData > const context;
   Kiv::Ptr< Feeders::Config > const feederConfig = Kiv::make< Feeders::Config >();
   Kiv::Ptr< Lag::Input::Config > const lagInputConfig =
         Kiv::make< Lag::Input::Config >( "config" );
   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const ethPhyIntfStatusDir =
         Kiv::make< Interface::AllEthPhyIntfStatusDir >( "status" );
   Kiv::Ptr< Bridging::StormControl::Config > const stormControlConfig =
         Kiv::make< Bridging::StormControl::Config >();
   Kiv::Ptr< Bridging::StormControl::Status > const stormControlStatus =
         Kiv::make< Bridging::StormControl::Status >();
   Kiv::Ptr< HobaTypes::HobaPortStatusDir > const portStatusDir =
         Kiv::make< HobaTypes::HobaPortStatusDir >( "portStatus" );
   Kiv::Ptr< HobaTypes::MacTable > const macTable = Kiv::make< HobaTypes::MacTable >( "macTable" );
   Kiv::Ptr< Kiv::Dir > const nonAgingConfigDir = Kiv::make< Kiv::Dir >( "config" );
   Kiv::Ptr< Hoba::NonAgingStatus > const nonAgingStatus =
         Kiv::make< Hoba::NonAgingStatus >( "status" );
   Kiv::Ptr< Hoba::HobaEventQueue > const eventQueue =
         Hoba::HobaEventQueue::HobaEventQueueIs( "events" );
   Kiv::Ptr< Hoba::HobaParityEventQueue > const parityEventQueue =
         Hoba::HobaParityEventQueue::HobaParityEventQueueIs( "parityEvents" );
   Kiv::Ptr< HobaTypes::VerifyAgentConfig > const verifyConfig =
         Kiv::make< HobaTypes::VerifyAgentConfig >( "config" );
   Kiv::Ptr< HobaTypes::VerifyAgentStatus > const verifyStatus =
         Kiv::make< HobaTypes::VerifyAgentStatus >( "status" );
   Kiv::Ptr< HobaSim::Chip > const chip = Kiv::make< HobaSim::Chip >();

   Hoba::EventQueueSm & eventSm() const { return *eventSm_; }
   Hoba::HobaParityEventQueueSm & parityEventSm() const { return *parityEventSm_; }
   Hoba::NonAgingConfigDirSm & nonAgingSm() const { return *nonAgingSm_; }

 private:
   struct Mounted {
      Kiv::String path;
      Kiv::Ptr< Kiv::Entity > entity;
      Tessera::Access access;
      Tessera::MayBeMade mayBeMade = {};
   };
   void mount( Tessera::Database & database, std::vector< Mounted > const & mounts );
   std::vector< Mounted > entities() const;
   std::vector< Mounted > machines() const;

   // Made in this order, and let go in the opposite one.
   Kiv::Ptr< Mox::TimerWheel > const clock_ = Kiv::make< Mox::TimerWheel >();
   Kiv::Ptr< HobaSim::StormControlHelper > const stormControlHelper_ =
         Kiv::make< HobaSim::StormControlHelper >( chip->stormControl() );
   Kiv::Ptr< Feeders::PortFeeder > portFeeder_;
   Kiv::Ptr< Feeders::LagFeeder > lagFeeder_;
   Kiv::Ptr< HobaSim::ChipLagSm > chipLagSm_;
   Kiv::Ptr< Feeders::NonAgingFeeder > nonAgingFeeder_;
   Kiv::Ptr< Hoba::EventQueueSm > eventSm_;
   Kiv::Ptr< Hoba::HobaParitySm > paritySm_;
   Kiv::Ptr< Hoba::HobaParityEventHelperSm > parityHelperSm_;
   Kiv::Ptr< Hoba::HobaParityEventQueueSm > parityEventSm_;
   Kiv::Ptr< Hoba::NonAgingConfigDirSm > nonAgingSm_;
   Kiv::Ptr< Hoba::StormControlSm > stormControlSm_;
   Kiv::Ptr< Hoba::VerifyAgentSm > verifyAgentSm_;
   std::vector< Kiv::String > mounted_;
};

} // namespace HobaAgent
