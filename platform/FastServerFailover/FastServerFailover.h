// SPDX-License-Identifier: Apache-2.0
#pragma once

// Servers that have failed, and for which the switch itself answers until they come back.

#include "Bridging/MacVlanPair.h"
#include "Kiv/Entity.h"
#include "Pelt/IntfId.h"

namespace FastServerFailover {

class Status : public Kiv::Entity {
   KIV_ENTITY( FastServerFailover::Status );
   // By server: the interface behind which it was.
   KIV_COLLECTION( Bridging::MacVlanPair, Pelt::IntfId, failedServer );

 public:
   explicit Status( Kiv::String const & statusName = {} ) : Entity( statusName ) {}
};

} // namespace FastServerFailover
