// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/FeederConfig.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Feeders::PortConfig );
KIV_DEFINE( Feeders::LagConfig );
KIV_DEFINE( Feeders::VlanConfig );
KIV_DEFINE( Feeders::Config );

namespace Feeders {

namespace {

Bridging::SwitchIntfConfig const &
switchIntfOf( Config const & config, Pelt::IntfId intf ) {
   static auto const unconfigured = Kiv::make< Bridging::SwitchIntfConfig const >( Pelt::IntfId() );
   auto const asked = config.switchIntf( intf );
   return asked ? *asked : *unconfigured;
}

} // namespace

Bridging::SwitchportMode
Config::switchportMode( Pelt::IntfId intf ) const {
   return switchIntfOf( *this, intf ).switchportMode();
}

Bridging::VlanIdOrNone
Config::nativeVlan( Pelt::IntfId intf ) const {
   return switchIntfOf( *this, intf ).nativeVlan();
}

} // namespace Feeders
