// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Switch.h"

namespace HobaAgent {

Switch::Switch() : context( Kiv::make< Hoba::HobaCommonSmData >( "hoba-agent" ) ) {
   portFeeder_ = Feeders::PortFeeder::PortFeederIs( context, feederConfig, ethPhyIntfStatusDir,
                                                    portStatusDir );
   lagFeeder_ = Feeders::LagFeeder::LagFeederIs( context, feederConfig, lagInputConfig,
                                                 ethPhyIntfStatusDir );
   chip->mac()->lagOfPortIs(
         [ this ]( Pelt::IntfId port ) { return context->portToLag( port ); } );
   nonAgingFeeder_ =
         Feeders::NonAgingFeeder::NonAgingFeederIs( context, feederConfig, nonAgingConfigDir );
   eventSm_ =
         HobaSim::ChipEventQueueSm::ChipEventQueueSmIs( context, eventQueue, portStatusDir, chip );
   eventSm_->macTableIs( macTable );
   paritySm_ = Hoba::HobaParitySm::HobaParitySmIs( context, chip->parity()->slices() );
   parityHelperSm_ = HobaSim::ChipParityHelperSm::ChipParityHelperSmIs( context, chip->parity() );
   parityEventSm_ = Hoba::HobaParityEventQueueSm::HobaParityEventQueueSmIs(
         context, parityEventQueue, parityHelperSm_ );
   nonAgingSm_ = Hoba::NonAgingConfigDirSm::NonAgingConfigDirSmIs( context, nonAgingConfigDir,
                                                                   nonAgingStatus );
   stormControlSm_ = Hoba::StormControlSm::StormControlSmIs(
         context, stormControlConfig, ethPhyIntfStatusDir, stormControlStatus, stormControlHelper_,
         lagInputConfig, clock_ );
   verifyAgentSm_ = Hoba::VerifyAgentSm::VerifyAgentSmIs( context, verifyConfig, verifyStatus );
}

Switch::~Switch() {
   verifyAgentSm_ = nullptr;
   stormControlSm_ = nullptr;
   chip->capture()->stop();
   chip->mac()->lagOfPortIs( nullptr );
   parityEventSm_->cleanup();
   eventSm_->cleanup();
   nonAgingSm_ = nullptr;
   parityEventSm_ = nullptr;
   parityHelperSm_ = nullptr;
   paritySm_ = nullptr;
   eventSm_ = nullptr;
   nonAgingFeeder_ = nullptr;
   lagFeeder_ = nullptr;
   portFeeder_ = nullptr;
   context->cleanup();
}

namespace {

struct Mounted {
   char const * path;
   Kiv::Ptr< Kiv::Entity > entity;
   Tessera::Access access;
   Tessera::MayBeMade mayBeMade = {};
};

// Ports and LAGs may come one day; the chip gets no more traffic classes.
Tessera::MayBeMade
knownTrafficClasses( Kiv::Ptr< HobaSim::StormUnit > const & unit ) {
   return [ unit ]( Tessera::Path const & path ) {
      if( path[ path.size() - 2 ] == "aggregateTcConfig" ) {
         unit->checkTrafficClass( Kiv::fromText< std::uint16_t >( path.back() ) );
      }
   };
}

std::vector< Mounted >
mountsOf( Switch const & sw ) {
   using enum Tessera::Access;
   return { { "/feeders/config", sw.feederConfig, configuration },
            { "/lag/input/config", sw.lagInputConfig, configuration },
            { "/bridging/stormControl/config", sw.stormControlConfig, configuration,
              knownTrafficClasses( sw.chip->stormControl() ) },
            { "/bridging/stormControl/status", sw.stormControlStatus, status },
            { "/interface/status", sw.ethPhyIntfStatusDir, status },
            { "/hoba/portStatus", sw.portStatusDir, status },
            { "/hoba/macTable", sw.macTable, status },
            { "/hoba/nonAging/status", sw.nonAgingStatus, status },
            { "/hoba/events/queue", sw.eventQueue, status },
            { "/hoba/events/status", sw.eventSm().eventStatus(), status },
            { "/hoba/parityEvents/queue", sw.parityEventQueue, status },
            { "/hoba/parityEvents/status", sw.parityEventSm().eventStatus(), status },
            // A cookie asks for one pass: nothing to keep.
            { "/verify/config", sw.verifyConfig, writable },
            { "/verify/status", sw.verifyStatus, status },
            { "/hoba/common", sw.context, status },
            // Whoever spoils what the chip holds sees verification find it.
            { "/sim/chip", sw.chip, writable } };
}

} // namespace

void
Switch::mount( Tessera::Database & database ) {
   for( auto const & [ path, entity, access, mayBeMade ] : mountsOf( *this ) ) {
      database.mount( path, entity, access, mayBeMade );
   }
}

void
Switch::unmount( Tessera::Database & database ) {
   for( auto const & mounted : mountsOf( *this ) ) {
      database.unmount( mounted.path );
   }
}

bool
Switch::hasIntf( Pelt::IntfId intf ) const {
   return context->intfHas( intf ) || context->lagToPortConfigHas( intf ) ||
          context->cpuIntfHas( intf ) || Pelt::VxlanIntfId::isVxlanIntfId( intf );
}

void
Switch::start() {
   portFeeder_->initializedIs( true );
   lagFeeder_->initializedIs( true );
   context->handleInitialized();
   paritySm_->initializedIs( true );
   nonAgingSm_->initializedIs( true );
   parityHelperSm_->initializedIs( true );
   parityEventSm_->runningIs( true );
   parityEventSm_->initializedIs( true );
   eventSm_->runningIs( true );
   eventSm_->initializedIs( true );
   stormControlSm_->initializedIs( true );
   verifyAgentSm_->initializedIs( true );
}

} // namespace HobaAgent
