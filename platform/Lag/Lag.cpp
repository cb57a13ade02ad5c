// SPDX-License-Identifier: Apache-2.0
#include "Lag/Lag.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Lag::Input::Config );
