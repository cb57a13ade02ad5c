// SPDX-License-Identifier: Apache-2.0
#include "Interface/EthPhyIntfConfig.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Interface::EthPhyIntfConfig );
KIV_DEFINE( Interface::EthPhyIntfConfigDir );
