// SPDX-License-Identifier: Apache-2.0
#include "types/VerifyAgent.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( HobaTypes::VerifyAgentConfig );
KIV_DEFINE( HobaTypes::VerifyAgentStatus );
