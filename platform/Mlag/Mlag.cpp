// SPDX-License-Identifier: Apache-2.0
#include "Mlag/Mlag.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Mlag::Status );
KIV_DEFINE( Mlag::HostTable );
