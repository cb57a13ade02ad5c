// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaStormControlSmHelper.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Hoba::StormControlSmHelper );
