// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Exception.h"

#include <cstdint>

namespace Glim {

// A table that cannot be made, opened or gone on with. The text names the table and says what is
// wrong, in one line.
class Error : public Kiv::Exception {
 public:
   using Exception::Exception;
};

// Another writer has the table.
class WriterThereError : public Error {
 public:
   // `writerPid` is 0 if that is not known.
   WriterThereError( std::string const & text, std::uint32_t writerPid )
         : Error( text ), pid( writerPid ) {}
   std::uint32_t const pid;
};

} // namespace Glim
