// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaStormControlSmHelper.h"

#include "Hoba/HobaAssert.h"
#include "Kiv/Reflect.h"

KIV_DEFINE( Hoba::StormControlSmHelper );

namespace Hoba {

void
StormControlSmHelper::installRules() {
   mustBeImplemented( __func__ );
}

void
StormControlSmHelper::setHwRate( LevelType, Pelt::IntfId, Pelt::IntfId, std::uint32_t,
                                 Threshold const & ) {
   mustBeImplemented( __func__ );
}

void
StormControlSmHelper::updateBcastSkipRule( Pelt::IntfId, bool ) {
   mustBeImplemented( __func__ );
}

void
StormControlSmHelper::programTcAggregateHwRate( std::uint32_t, Threshold const & ) {
   mustBeImplemented( __func__ );
}

void
StormControlSmHelper::setBurstTime( Bridging::StormControl::BurstConfig const & ) {
   mustBeImplemented( __func__ );
}

void
StormControlSmHelper::handleEthPhyIntfLagConfig( Pelt::IntfId ) {
   mustBeImplemented( __func__, "" );
}

Kiv::String
StormControlSmHelper::verifyEnabled( Pelt::IntfId, bool ) {
   mustBeImplemented( __func__ );
   return {};
}

Kiv::String
StormControlSmHelper::verifyPort( Pelt::IntfId, Pelt::IntfId, std::uint32_t, IntfConfig const & ) {
   mustBeImplemented( __func__ );
   return {};
}

Kiv::String
StormControlSmHelper::verifyAggregateTc( std::uint32_t,
                                         Bridging::StormControl::AggregateTcConfig const & ) {
   mustBeImplemented( __func__ );
   return {};
}

Kiv::String
StormControlSmHelper::verifyPlatformStormControl( Bridging::StormControl::Config const &,
                                                  Bridging::StormControl::Status const & ) {
   return {};
}

} // namespace Hoba
