// SPDX-License-Identifier: Apache-2.0
#include "Dot1x/Dot1x.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Dot1x::IntfStatus );
KIV_DEFINE( Dot1x::Status );
KIV_DEFINE( Dot1x::HostTable );
