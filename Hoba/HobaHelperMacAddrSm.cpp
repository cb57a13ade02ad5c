// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaHelperMacAddrSm.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( HobaHelper::HobaHelperMacAddrSm );
