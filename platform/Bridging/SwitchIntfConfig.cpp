// SPDX-License-Identifier: Apache-2.0
#include "Bridging/SwitchIntfConfig.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Bridging::SwitchIntfConfig );
KIV_DEFINE( Bridging::SwitchIntfConfigDir );
