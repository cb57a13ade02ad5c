// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Entity.h"
#include "Pelt/IntfId.h"

namespace Brin {

// The interfaces that serve encapsulation for others.
class IntfEncapServiceIntfColl : public Kiv::Entity {
   KIV_ENTITY( Brin::IntfEncapServiceIntfColl );
   KIV_SET( Pelt::IntfId, intf );

 public:
   explicit IntfEncapServiceIntfColl( Kiv::String const & collName = {} ) : Entity( collName ) {}
};

} // namespace Brin
