// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Switch.h"

namespace HobaAgent {

Switch::Switch() : context( Kiv::make< Hoba::HobaCommonSmData >( "hoba-agent" ) ) {
   portFeeder_ = Feeders::PortFeeder::PortFeederIs( context, feederConfig, ethPhyIntfStatusDir,
                                                    portStatusDir );
   lagFeeder_ = Feeders::LagFeeder::LagFeederIs( context, feederConfig, lagInputConfig,
                                                 ethPhyIntfStatusDir );
   chipLagSm_ = HobaSim::ChipLagSm::ChipLagSmIs( context, chip->trunk() );
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
   Hoba::letGo( verifyAgentSm_ );
   Hoba::letGo( stormControlSm_ );
   chip->capture()->stop();
   parityEventSm_->cleanup();
   eventSm_->cleanup();
   Hoba::letGo( nonAgingSm_ );
   Hoba::letGo( parityEventSm_ );
   Hoba::letGo( parityHelperSm_ );
   Hoba::letGo( paritySm_ );
   Hoba::letGo( eventSm_ );
   Hoba::letGo( nonAgingFeeder_ );
   Hoba::letGo( chipLagSm_ );
   Hoba::letGo( lagFeeder_ );
   Hoba::letGo( portFeeder_ );
   context->cleanup();
}

namespace {

// Ports and LAGs may come one day; the chip gets no more traffic classes.
Tessera::MayBeMade
knownTrafficClasses( Kiv::Ptr< HobaSim::StormUnit > const & unit ) {
   return [ unit ]( Tessera::Path const & path ) {
      if( path[ path.size() - 2 ] == "aggregateTcConfig" ) {
         unit->checkTrafficClass( Kiv::fromText< std::uint16_t >( path.back() ) );
      }
   };
}

} // namespace

std::vector< Switch::Mounted >
Switch::entities() const {
   using enum Tessera::Access;
   return { { "/feeders/config", feederConfig, configuration },
            { "/lag/input/config", lagInputConfig, configuration },
            { "/bridging/stormControl/config", stormControlConfig, configuration,
              knownTrafficClasses( chip->stormControl() ) },
            { "/bridging/stormControl/status", stormControlStatus, status },
            { "/interface/status", ethPhyIntfStatusDir, status },
            { "/hoba/portStatus", portStatusDir, status },
            { "/hoba/macTable", macTable, status },
            { "/hoba/nonAging/status", nonAgingStatus, status },
            { "/hoba/events/queue", eventQueue, status },
            { "/hoba/events/status", eventSm_->eventStatus(), status },
            { "/hoba/parityEvents/queue", parityEventQueue, status },
            { "/hoba/parityEvents/status", parityEventSm_->eventStatus(), status },
            // A cookie asks for one pass: nothing to keep.
            { "/verify/config", verifyConfig, writable },
            { "/verify/status", verifyStatus, status },
            { "/hoba/common", context, status },
            // Whoever spoils what the chip holds sees verification find it.
            { "/sim/chip", chip, writable } };
}

// By the names of what they are about, in the order in which they begin.
std::vector< Switch::Mounted >
Switch::machines() const {
   std::vector< Mounted > mounts;
   for( auto const & [ name, sm ] :
        std::initializer_list< std::pair< char const *, Kiv::Ptr< Kiv::Entity > > >{
              { "portFeeder", portFeeder_ },
              { "lagFeeder", lagFeeder_ },
              { "nonAgingFeeder", nonAgingFeeder_ },
              { "chipLag", chipLagSm_ },
              { "parity", paritySm_ },
              { "nonAging", nonAgingSm_ },
              { "parityHelper", parityHelperSm_ },
              { "parityEvents", parityEventSm_ },
              { "events", eventSm_ },
              { "stormControl", stormControlSm_ },
              { "verifyAgent", verifyAgentSm_ } } ) {
      mounts.push_back( { Kiv::String( "/hoba/machines/" ) + name, sm, Tessera::Access::status } );
   }
   return mounts;
}

void
Switch::mount( Tessera::Database & database, std::vector< Mounted > const & mounts ) {
   for( auto const & [ path, entity, access, mayBeMade ] : mounts ) {
      database.mount( path, entity, access, mayBeMade );
      mounted_.push_back( path );
   }
}

void
Switch::mount( Tessera::Database & database ) {
   mount( database, entities() );
   mount( database, machines() );
}

void
Switch::unmount( Tessera::Database & database ) {
   for( auto const & path : std::exchange( mounted_, {} ) ) {
      database.unmount( path );
   }
}

bool
Switch::hasIntf( Pelt::IntfId intf ) const {
   return context->intfHas( intf ) || context->lagToPortConfigHas( intf ) ||
          context->cpuIntfHas( intf ) || Pelt::VxlanIntfId::isVxlanIntfId( intf );
}

void
Switch::start( Tessera::Database & database ) {
   portFeeder_->initializedIs( true );
   lagFeeder_->initializedIs( true );
   nonAgingFeeder_->initializedIs( true );
   chipLagSm_->initializedIs( true );
   context->handleInitialized();
   mount( database,
          { { "/hoba/machines/verify", Kiv::dynamicCast< Hoba::VerifySm >( context->verifySm() ),
              Tessera::Access::status } } );
   paritySm_->initializedIs( true );
   nonAgingSm_->initializedIs( true );
   parityHelperSm_->initializedIs( true );
   parityEventSm_->runningIs( true );
   parityEventSm_->initializedIs( true );
   eventSm_->runningIs( true );
   eventSm_->initializedIs( true );
   stormControlSm_->initializedIs( true );
   chip->sweep();
   verifyAgentSm_->initializedIs( true );
}

} // namespace HobaAgent
