// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Feature.h"
#include "chips/sim/SimMachines.h"

// The active members of LAGs, in the chip. It begins when the chip has reported its links: the port
// whose link is down is not put into its LAG, for traffic to vanish there, and taken out again.

namespace HobaAgent {

class TrunkFeature : public Feature {
 public:
   explicit TrunkFeature( Board & board ) : Feature( board, "LAG members" ) {}

   void start() override {
      sm_.is( HobaSim::ChipLagSm::ChipLagSmIs( context(), board().chip->trunk() ) );
      sm_->initializedIs( true );
   }

 private:
   Machine< HobaSim::ChipLagSm > sm_{ *this, "chipLag" };
};

HOBA_FEATURE( TrunkFeature );

} // namespace HobaAgent
