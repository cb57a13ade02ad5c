// SPDX-License-Identifier: Apache-2.0
#pragma once

// Bad input must be answered in one line that says what was wrong: what tests ask of such answers.

#include "Helpers.h"
#include "Kiv/Exception.h"
#include "Kiv/Text.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace Refusals {

// The text of the `Error` that `act` throws; empty if it throws nothing.
template< class Error = Kiv::Exception, class Act >
std::string
refusal( Act && act ) {
   return HobaTests::errorOf< Error >( act );
}

// No T can be read from any of `texts`, and the answers contain `message`.
template< class T >
void
expectRefused( std::string_view message, std::vector< std::string > const & texts ) {
   for( auto const & text : texts ) {
      SCOPED_TRACE( text );
      auto const what = refusal< Kiv::ParseError >( [ & ] { Kiv::fromText< T >( text ); } );
      EXPECT_NE( what.find( message ), what.npos ) << what;
      EXPECT_EQ( what.find( '\n' ), what.npos ) << what;
      EXPECT_LT( what.size(), 400u );
   }
}

} // namespace Refusals
