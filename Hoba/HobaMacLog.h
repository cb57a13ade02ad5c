// SPDX-License-Identifier: Apache-2.0
#pragma once

// What operators are told of the MAC address table, whoever finds it out.

#include "Hoba/HobaLog.h"

namespace Hoba {

HOBA_LOG_MESSAGE( ETH_MACADDRBANKFULL, 4,
                  "The hardware has no room for the MAC address %s in VLAN %s on %s. It will be "
                  "programmed when there is room.",
                  "The part of the MAC address table in which this address has its place is full.",
                  "Reduce the number of stations. Traffic to the address is flooded meanwhile." );

} // namespace Hoba
