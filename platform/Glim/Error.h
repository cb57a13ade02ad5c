// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Exception.h"

namespace Glim {

// A table that cannot be made, opened or gone on with. The text names the table and says what is
// wrong, in one line.
class Error : public Kiv::Exception {
 public:
   using Exception::Exception;
};

} // namespace Glim
