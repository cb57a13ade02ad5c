// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaParityEventHelperSm.h"

#include "Hoba/HobaCommon.h"
#include "Kiv/Reflect.h"

KIV_DEFINE( Hoba::HobaParityEventHelperSm );
