// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which trace levels are enabled: by handle name, whether or not the handle exists yet.

#include "Zipline/Statement.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Zipline {

// A set of the levels 0 to 9. Printed form: "0-5,9", or "none".
class Levels {
 public:
   constexpr Levels() = default; // none
   // bits: bit n stands for level n; bits above 9 are dropped.
   constexpr explicit Levels( std::uint16_t bits ) : bits_( bits & allLevelBits ) {}
   // Levels 0 to level. Throws Kiv::RangeException unless level is 0 to 9.
   static Levels upTo( int level );

   constexpr std::uint16_t bits() const { return bits_; }
   // Whether the level is in the set; false for any number that is no level.
   constexpr bool has( int level ) const {
      return level >= 0 && level < levelCount && ( bits_ >> level & 1u );
   }

   void print( std::string & out ) const;
   // Levels and ranges of levels separated by commas ("0-5,9"), "all" or "none". Throws
   // Kiv::ParseError for anything else.
   static Levels parse( std::string_view text );

   friend bool operator==( Levels, Levels ) = default;

 private:
   std::uint16_t bits_ = 0;
};

// More names than this cannot be configured: a bound, far above any program's file count.
inline constexpr std::size_t maxNames = 4096;
inline constexpr std::size_t maxNameLength = 128;

// Enables exactly these levels on the handle of that name: on all of them, should several files
// use one name, and on those that appear later. Throws Kiv::Exception, and changes nothing, if the
// name is not an identifier of up to maxNameLength characters or if there are maxNames names.
void levelsIs( std::string_view name, Levels levels );
// The handle has the default levels again. Does nothing if it was not configured.
void levelsDel( std::string_view name );
// The levels that the handle of that name has, or will have when it appears.
Levels levels( std::string_view name );

// The levels of handles that have none of their own; 0 to 2 to begin with.
void defaultLevelsIs( Levels levels );
Levels defaultLevels();

struct HandleStatus {
   std::string name;
   Levels levels;
   bool configured;  // by levelsIs, rather than by default
   unsigned handles; // how many exist: 0 for a name that is only configured
};

// All names that exist or are configured, ordered by name.
std::vector< HandleStatus > handles();

} // namespace Zipline
