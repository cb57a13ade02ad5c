// SPDX-License-Identifier: Apache-2.0
#pragma once

// Everything that an agent with this chip holds: the shared context, the entities of the state
// database, the machines. Who holds what: the switch holds all of it, the machines hold the context
// and the entities that they watch, the context holds the machine that verifies, which holds the
// context: that is why the end has an order.

#include "EventSm.h"
#include "Hoba/HobaStormControlSm.h"
#include "Hoba/HobaVerifySm.h"

namespace SmallChip {

class Switch {
 public:
   // Makes everything; nothing works yet. Clocks go to the ambient driver. `driver` outlives the
   // switch.
   explicit Switch( Driver & driver );
   ~Switch();
   Switch( Switch const & ) = delete;
   Switch & operator=( Switch const & ) = delete;

   // The machines do their first full pass.
   void start();

   // What the switch's other agents find out, before start() or after it: that there is a port, and
   // that a port is an active member of a LAG.
   void portIs( Pelt::IntfId port, Interface::EthSpeed speed );
   void lagMemberIs( Pelt::IntfId lag, Pelt::IntfId port );

   // What the operator asks for, and what comes of it.
   Kiv::Ptr< Bridging::StormControl::Config > const stormControlConfig =
         Kiv::make< Bridging::StormControl::Config >();
   Kiv::Ptr< Bridging::StormControl::Status > const stormControlStatus =
         Kiv::make< Bridging::StormControl::Status >();
   // What the chip reported.
   Kiv::Ptr< HobaTypes::HobaPortStatusDir > const portStatusDir =
         Kiv::make< HobaTypes::HobaPortStatusDir >( "portStatus" );
   Kiv::Ptr< HobaTypes::MacTable > const macTable = Kiv::make< HobaTypes::MacTable >( "macTable" );
   // Set when nothing but a fresh start of the agent helps.
   bool restartWanted = false;

 private:
   Driver & driver_;
   // Only the agent's own ports are programmed: those in its `intf`.
   Kiv::Ptr< Hoba::HobaCommonSmData > const context_ =
         Kiv::make< Hoba::HobaCommonSmData >( "small-chip" );
   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const ethPhyIntfStatusDir_ =
         Kiv::make< Interface::AllEthPhyIntfStatusDir >( "status" );
   Kiv::Ptr< Lag::Input::Config > const lagInputConfig_ =
         Kiv::make< Lag::Input::Config >( "config" );
   Kiv::Ptr< Hoba::HobaEventQueue > const eventQueue_ =
         Hoba::HobaEventQueue::HobaEventQueueIs( "events" );
   Kiv::Ptr< HobaTypes::VerifyAgentConfig > const verifyConfig_ =
         Kiv::make< HobaTypes::VerifyAgentConfig >( "config" );
   Kiv::Ptr< HobaTypes::VerifyAgentStatus > const verifyStatus_ =
         Kiv::make< HobaTypes::VerifyAgentStatus >( "status" );
   Kiv::Ptr< Mox::TimerWheel > const clock_ = Kiv::make< Mox::TimerWheel >();

   Kiv::Ptr< EventSm > eventSm_;
   Kiv::Ptr< Hoba::StormControlSm > stormControlSm_;
   Kiv::Ptr< Hoba::VerifyAgentSm > verifyAgentSm_;
};

} // namespace SmallChip
