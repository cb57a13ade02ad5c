// SPDX-License-Identifier: Apache-2.0
#pragma once

// Paths of the state database: components from the root down, each the name of a directory, an
// attribute, a key of a collection or a field of a value.
//
//    /bridging/stormControl/config/intfConfig/Ethernet1/broadcast/level
//    /bridging/stormControl/config/intfConfig[Ethernet1/2]/broadcast
//
// A component stands after a slash, or in brackets: the two mean the same, and brackets take slashes
// as they are. Anywhere, %2F is the character with that hexadecimal code. Printed are brackets for
// components that hold a slash or a bracket or are empty, and codes for "%", for control characters,
// for bytes that are not UTF-8, and for "]" inside brackets; what is printed parses to the same path. A path may end in a slash.

#include "Kiv/Text.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace Tessera {

class Path {
 public:
   static constexpr std::size_t maxLength = 4096;
   static constexpr std::size_t maxComponents = 64;

   Path() = default; // the root, "/"
   // Throws Tessera::Error for text that is no path, too long or too deep.
   static Path parse( std::string_view text );
   void print( std::string & out ) const;
   std::string text() const { return Kiv::toText( *this ); }

   std::size_t size() const { return components_.size(); }
   bool isRoot() const { return components_.empty(); }
   Kiv::String const & operator[]( std::size_t i ) const { return components_[ i ]; }
   Kiv::String const & back() const { return components_.back(); }

   Path operator/( std::string_view component ) const;
   // The first `count` components; `count` is at most size().
   Path first( std::size_t count ) const;
   bool startsWith( Path const & prefix ) const;
   // Whether all components are.
   bool isUtf8() const;
   // Whether one of the two lies at or below the other.
   static bool related( Path const & a, Path const & b ) {
      return a.startsWith( b ) || b.startsWith( a );
   }

   bool operator==( Path const & ) const = default;

 private:
   std::vector< Kiv::String > components_;
};

} // namespace Tessera
