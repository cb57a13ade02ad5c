// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Exception.h"

#include <string>
#include <string_view>

namespace Tessera {

// What was asked of the database cannot be done. what() is "<path>: <reason>", one line; path()
// goes down to the component that is at fault. The database is as it was before.
class Error : public Kiv::Exception {
 public:
   Error( std::string path, std::string_view reason )
         : Exception( path + ": " + std::string( reason ) ), path_( std::move( path ) ) {}

   std::string const & path() const { return path_; }
   std::string reason() const { return std::string( what() ).substr( path_.size() + 2 ); }

 private:
   std::string path_;
};

} // namespace Tessera
