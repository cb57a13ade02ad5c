// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/FeederConfig.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Feeders::PortConfig );
KIV_DEFINE( Feeders::LagConfig );
KIV_DEFINE( Feeders::Config );
