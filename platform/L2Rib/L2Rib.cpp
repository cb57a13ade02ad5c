// SPDX-License-Identifier: Apache-2.0
#include "L2Rib/L2Rib.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( L2Rib::HostOutput );
KIV_DEFINE( L2Rib::DestOutput );
KIV_DEFINE( L2Rib::LoadBalanceOutput );
