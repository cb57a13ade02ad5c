// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/Value.h"
#include "Pelt/IntfId.h"

namespace Lag::Input {

// Which LAG the operator put each port into.
class Config : public Kiv::Entity {
   KIV_ENTITY( Lag::Input::Config );
   KIV_COLLECTION( Pelt::IntfId, Pelt::IntfId, ethPhyIntfLagConfig );

 public:
   explicit Config( Kiv::String const & configName = {} ) : Entity( configName ) {}
};

} // namespace Lag::Input

namespace Lag::Recirc {

// The features for which a LAG recirculates packets.
struct RecircFeatureSet {
   KIV_VALUE( Lag::Recirc::RecircFeatureSet );
   KIV_FIELD( bool, vxlan, false );
   KIV_FIELD( bool, mirroring, false );
   KIV_FIELD( bool, telemetry, false );
   KIV_FIELD( bool, trafficLoopback, false );
};

} // namespace Lag::Recirc
