// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Dir.h"

#include "Kiv/Reflect.h"

namespace Kiv {

KIV_DEFINE( Kiv::Dir );

} // namespace Kiv
