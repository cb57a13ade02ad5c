// SPDX-License-Identifier: Apache-2.0
#include "Switch.h"

#include "StormControlHelper.h"

namespace SmallChip {

// A factory takes the context first, then what the machine reads, then what it writes.
Switch::Switch( Driver & driver ) : driver_( driver ) {
   // Without it the process stops instead.
   context_->agentRestartCallbackIs( [ this ]( Kiv::String const & ) { restartWanted = true; } );
   eventSm_ = EventSm::EventSmIs( context_, eventQueue_, portStatusDir, driver );
   eventSm_->macTableIs( macTable );
   stormControlSm_ = Hoba::StormControlSm::StormControlSmIs(
         context_, stormControlConfig, ethPhyIntfStatusDir_, stormControlStatus,
         Kiv::make< StormControlHelper >( driver ), lagInputConfig_, clock_ );
   verifyAgentSm_ = Hoba::VerifyAgentSm::VerifyAgentSmIs( context_, verifyConfig_, verifyStatus_ );
}

void
Switch::start() {
   // First: the context is complete, and has its verification from now on.
   context_->handleInitialized();
   eventSm_->runningIs( true ); // hwInit() runs when it is initialized, too
   eventSm_->initializedIs( true );
   stormControlSm_->initializedIs( true );
   driver_.sweep(); // what none of them asked for in its first pass
   verifyAgentSm_->initializedIs( true );
}

Switch::~Switch() {
   eventSm_->cleanup(); // the chip is silent from now on
   verifyAgentSm_ = nullptr;
   stormControlSm_ = nullptr;
   eventSm_ = nullptr;
   context_->cleanup(); // last: it lets go of the machine that holds it
}

// What is known of the port comes first, and that it is there comes last.
void
Switch::portIs( Pelt::IntfId port, Interface::EthSpeed speed ) {
   portStatusDir->portStatusIs( port ); // the chip's link events are written into it
   auto const status = Kiv::make< Interface::EthPhyIntfStatus >( port );
   status->speedIs( speed );
   status->activeIs( true );
   ethPhyIntfStatusDir_->ethPhyIntfStatusIs( port, status );
   context_->intfIs( port, true );
}

// The port knows its LAG before the LAG knows its member; at the end it is the other way round.
void
Switch::lagMemberIs( Pelt::IntfId lag, Pelt::IntfId port ) {
   context_->portToLagIs( port, lag );
   auto members = context_->lagToPort( lag );
   members.port.push_back( port );
   context_->lagToPortIs( lag, members );
}

} // namespace SmallChip
