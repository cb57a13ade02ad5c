// SPDX-License-Identifier: Apache-2.0
#include "types/NonAging.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Hoba::NonAgingConfig );
KIV_DEFINE( Hoba::NonAgingStatus );
