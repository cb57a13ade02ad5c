// SPDX-License-Identifier: Apache-2.0
#include "FastServerFailover/FastServerFailover.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( FastServerFailover::Status );
