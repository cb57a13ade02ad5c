// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimChip.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( HobaSim::Chip );

namespace HobaSim {

Chip::Chip( Kiv::String const & chipName ) : Entity( chipName ) {
   stormControlIs( "stormControl" );
}

} // namespace HobaSim
