// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Switch.h"

namespace HobaAgent {

Switch::Switch() : context( Kiv::make< Hoba::HobaCommonSmData >( "hoba-agent" ) ) {
   portFeeder_ = Feeders::PortFeeder::PortFeederIs( context, feederConfig, ethPhyIntfStatusDir );
   lagFeeder_ = Feeders::LagFeeder::LagFeederIs( context, feederConfig, lagInputConfig,
                                                 ethPhyIntfStatusDir );
   stormControlSm_ = Hoba::StormControlSm::StormControlSmIs(
         context, stormControlConfig, ethPhyIntfStatusDir, stormControlStatus, stormControlHelper_,
         lagInputConfig, clock_ );
   verifyAgentSm_ = Hoba::VerifyAgentSm::VerifyAgentSmIs( context, verifyConfig, verifyStatus );
}

Switch::~Switch() {
   verifyAgentSm_ = nullptr;
   stormControlSm_ = nullptr;
   lagFeeder_ = nullptr;
   portFeeder_ = nullptr;
   context->cleanup();
}

namespace {

struct Mounted {
   char const * path;
   Kiv::Ptr< Kiv::Entity > entity;
   Tessera::Access access;
};

std::vector< Mounted >
mountsOf( Switch const & sw ) {
   using enum Tessera::Access;
   return { { "/feeders/config", sw.feederConfig, configuration },
            { "/lag/input/config", sw.lagInputConfig, configuration },
            { "/bridging/stormControl/config", sw.stormControlConfig, configuration },
            { "/bridging/stormControl/status", sw.stormControlStatus, status },
            { "/interface/status", sw.ethPhyIntfStatusDir, status },
            { "/verify/config", sw.verifyConfig, configuration },
            { "/verify/status", sw.verifyStatus, status },
            { "/hoba/common", sw.context, status },
            // Writable: whoever spoils what the chip holds sees verification find it.
            { "/sim/chip", sw.chip, configuration } };
}

} // namespace

void
Switch::mount( Tessera::Database & database ) {
   for( auto const & [ path, entity, access ] : mountsOf( *this ) ) {
      database.mount( path, entity, access );
   }
}

void
Switch::unmount( Tessera::Database & database ) {
   for( auto const & mounted : mountsOf( *this ) ) {
      database.unmount( mounted.path );
   }
}

void
Switch::start() {
   portFeeder_->initializedIs( true );
   lagFeeder_->initializedIs( true );
   context->handleInitialized();
   stormControlSm_->initializedIs( true );
   verifyAgentSm_->initializedIs( true );
}

} // namespace HobaAgent
