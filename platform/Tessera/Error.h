// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Exception.h"
#include "Kiv/Utf8.h"

#include <string>
#include <string_view>

namespace Tessera {

// What was asked of the database cannot be done. what() is "<path>: <reason>", one line; the path goes
// down to the component that is at fault, and is cut when it is too long to be read. The database is
// as it was before.
class Error : public Kiv::Exception {
 public:
   Error( std::string_view path, std::string reason )
         : Exception( Kiv::excerpt( path, 500 ) + ": " + reason ), reason_( std::move( reason ) ) {}

   std::string const & reason() const { return reason_; }

 private:
   std::string reason_;
};

} // namespace Tessera
