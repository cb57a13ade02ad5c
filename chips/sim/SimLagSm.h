// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaCommon.h"
#include "Kiv/ClockReactor.h"
#include "chips/sim/SimTrunk.h"

namespace HobaSim {

// Tells the chip which ports make up a LAG. What the chip refuses is tried again until it takes it.
class ChipLagSm : public Hoba::HobaBaseSm {
   HOBA_MACHINE( ChipLagSm );
   // By port: why the chip refused what it was told last.
   KIV_COLLECTION( Pelt::IntfId, Kiv::String, refused );

 public:
   static constexpr Kiv::Seconds retryDelay = 1;

   void handleInitialized() override;

 protected:
   // Watches the context, and tells `unit`. Its clock is one of its own, on the ambient driver.
   ChipLagSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
              Kiv::Ptr< TrunkUnit > const & unit );

 private:
   void handlePortToLag( Pelt::IntfId const & port );
   void handleRetryTime();

   class KivPortToLag : public Kiv::Hears< ChipLagSm, Hoba::HobaCommonSmData,
                                           Kiv::OnceReady< Hoba::HobaCommonSmData::portToLagAttr,
                                                           &ChipLagSm::handlePortToLag > > {};
   class KivClock : public Kiv::ClockReactor< ChipLagSm, &ChipLagSm::handleRetryTime > {};

   Kiv::Ptr< TrunkUnit > const unit_;
   KIV_REACTOR( KivClock, clock );
   KIV_REACTOR( KivPortToLag, portToLag );
};

} // namespace HobaSim
