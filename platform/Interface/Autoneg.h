// SPDX-License-Identifier: Apache-2.0
#pragma once

// Autonegotiation: what a link partner offers, and how it ended.

#include "Kiv/Value.h"

namespace Interface {

KIV_ENUM( AutonegState, std::uint8_t, autonegUnknown = 0, autonegSuccess, autonegFailed );

struct AutonegAdvertisement {
   KIV_VALUE( Interface::AutonegAdvertisement );
   // Bit n: the partner can run at the Interface::EthSpeed of value n.
   KIV_FIELD( std::uint32_t, speeds, 0 );
   KIV_FIELD( bool, pause, false );
   KIV_FIELD( bool, asymmetricPause, false );
};

} // namespace Interface
