// SPDX-License-Identifier: Apache-2.0
#include "types/HobaTypes.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( HobaTypes::HobaPortStatus );
KIV_DEFINE( HobaTypes::HobaPortStatusDir );
KIV_DEFINE( HobaTypes::MacTable );

namespace HobaTypes {

void
stationFailed( Bridging::MacVlanPair host ) {
   Kiv::parseFailed( Kiv::toText( host ), "a station: the address of one station, in a VLAN" );
}

} // namespace HobaTypes
