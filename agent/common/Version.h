// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace HobaAgent {

// Of the tree that this was built from, as "0.1.0".
std::string versionText();

} // namespace HobaAgent
