// SPDX-License-Identifier: Apache-2.0
#include "agent/common/Version.h"

namespace HobaAgent {

std::string
versionText() {
   return HOBA_VERSION;
}

} // namespace HobaAgent
