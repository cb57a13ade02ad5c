// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Value.h"
#include "Pelt/IntfId.h"

#include <vector>

namespace HobaTypes {

KIV_ENUM( HobaLagType, std::uint8_t, lagTypeStatic = 0, lagTypeLacp, lagTypeRecirc );

} // namespace HobaTypes

namespace Hoba {

// The ports that are configured into a LAG, in the order in which they were given.
struct HobaPortList {
   KIV_VALUE( Hoba::HobaPortList );
   KIV_FIELD( std::vector< Pelt::IntfId >, port );
};

// The ports that are active members of a LAG, in the order in which they joined.
struct HobaLagPortList {
   KIV_VALUE( Hoba::HobaLagPortList );
   KIV_FIELD( std::vector< Pelt::IntfId >, port );
};

// How a port recognises tagged frames.
struct HobaPortVlanTpidData {
   KIV_VALUE( Hoba::HobaPortVlanTpidData );
   KIV_FIELD( std::uint16_t, tpid, 0x8100 );
   KIV_FIELD( std::uint16_t, innerTpid, 0x8100 );
};

} // namespace Hoba
