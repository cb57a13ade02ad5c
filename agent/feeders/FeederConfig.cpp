// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/FeederConfig.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Feeders::PortConfig );
KIV_DEFINE( Feeders::LagConfig );
KIV_DEFINE( Feeders::VlanConfig );
KIV_DEFINE( Feeders::Config );

namespace Feeders {

Bridging::SwitchIntfConfig const &
Config::switchIntfOf( Pelt::IntfId intf ) const {
   auto const asked = switchIntf( intf );
   return asked ? *asked : *unconfigured_;
}

Bridging::SwitchportMode
Config::switchportMode( Pelt::IntfId intf ) const {
   return switchIntfOf( intf ).switchportMode();
}

Bridging::VlanIdOrNone
Config::nativeVlan( Pelt::IntfId intf ) const {
   return switchIntfOf( intf ).nativeVlan();
}

} // namespace Feeders
