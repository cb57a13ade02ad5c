// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaCommon.h"
#include "chips/sim/SimTrunk.h"

namespace HobaSim {

// Tells the chip which ports make up a LAG.
class ChipLagSm : public Hoba::HobaBaseSm {
   HOBA_MACHINE( ChipLagSm );

 public:
   void handleInitialized() override;

 protected:
   // Watches the context, and tells `unit`.
   ChipLagSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
              Kiv::Ptr< TrunkUnit > const & unit );

 private:
   void handlePortToLag( Pelt::IntfId const & port );

   class KivPortToLag : public Kiv::Hears< ChipLagSm, Hoba::HobaCommonSmData,
                                           Kiv::OnceReady< Hoba::HobaCommonSmData::portToLagAttr,
                                                           &ChipLagSm::handlePortToLag > > {};

   Kiv::Ptr< TrunkUnit > const unit_;
   KIV_REACTOR( KivPortToLag, portToLag );
};

} // namespace HobaSim
