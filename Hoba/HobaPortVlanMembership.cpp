// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaPortVlanMembership.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Hoba::PortVlanMembership );
