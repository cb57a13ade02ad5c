// SPDX-License-Identifier: Apache-2.0
#include "Brin/IntfEncapServiceIntfColl.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Brin::IntfEncapServiceIntfColl );
