// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace Kiv {

// The framework's exception: a broken invariant, or bad input. what() is the complete text.
class Exception : public std::runtime_error {
 public:
   explicit Exception( std::string const & text ) : std::runtime_error( text ) {}
};

// A value outside the bounds of its type. The text is the value type's own; reason() says the same to
// people who do not know the type, and stands behind the name of the field.
class RangeException : public Exception {
 public:
   explicit RangeException( std::string const & text ) : RangeException( text, text ) {}
   RangeException( std::string const & text, std::string reason )
         : Exception( text ), reason_( std::move( reason ) ) {}

   std::string const & reason() const { return reason_; }

 private:
   std::string reason_;
};

// Text that is not the printed form of the type that was asked for. The message says what was
// found and what was expected, in one line.
class ParseError : public Exception {
 public:
   using Exception::Exception;
};

} // namespace Kiv
