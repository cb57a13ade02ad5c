// SPDX-License-Identifier: Apache-2.0
#include "Pelt/Mpls.h"

namespace Pelt {

void
MplsLabelOperation::check() const {
   if( stack.size() > maxStackSize ) {
      throw Kiv::RangeException( "a stack of " + std::to_string( stack.size() ) +
                                 " labels is deeper than " + std::to_string( maxStackSize ) );
   }
}

} // namespace Pelt
