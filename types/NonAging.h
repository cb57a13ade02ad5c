// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which stations never age: what other agents ask for, and what comes of it.

#include "types/HobaTypes.h"

namespace Hoba {

// The wishes of one client, which stand in a directory under the client's name.
class NonAgingConfig : public Kiv::Entity {
   KIV_ENTITY( Hoba::NonAgingConfig );
   // A client that is not enabled asks for nothing, whatever it lists.
   KIV_ATTRIBUTE( bool, enable, false );
   KIV_KEYED( HobaTypes::MacAddressTableEntry, Bridging::MacVlanPair, macEntry, macEntries );

 public:
   explicit NonAgingConfig( Kiv::String const & client = {} ) : Entity( client ) {}
};

// The wishes of all clients: see Hoba/HobaNonAgingMacSm.h.
class NonAgingStatus : public Kiv::Entity {
   KIV_ENTITY( Hoba::NonAgingStatus );
   KIV_ATTRIBUTE( bool, enabled, false );
   KIV_KEYED( HobaTypes::MacAddressTableEntry, Bridging::MacVlanPair, macEntry, macEntries );

 public:
   explicit NonAgingStatus( Kiv::String const & statusName = {} ) : Entity( statusName ) {}
};

} // namespace Hoba
