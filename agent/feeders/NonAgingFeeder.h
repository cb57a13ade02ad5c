// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stands in for the agents that want stations never to age: each has its wishes in a directory under
// its own name. Here they come from Feeders::Config::nonAgingClient, and are put there as they are.

#include "Hoba/HobaBaseSm.h"
#include "Kiv/Dir.h"
#include "agent/feeders/FeederConfig.h"

namespace Feeders {

class NonAgingFeeder : public Hoba::HobaBaseSm {
   HOBA_MACHINE( NonAgingFeeder );

 public:
   void handleInitialized() override;

 protected:
   // Reads `config`, whose clients it passes on to be read; writes `nonAgingConfigDir`.
   NonAgingFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                   Kiv::Ptr< Config > const & config,
                   Kiv::Ptr< Kiv::Dir > const & nonAgingConfigDir );

 private:
   void handleClient( Kiv::String const & client );

   class KivConfig : public Kiv::Hears<
                           NonAgingFeeder, Config,
                           Kiv::On< Config::nonAgingClientAttr, &NonAgingFeeder::handleClient > > {
   };

   Kiv::Ptr< Kiv::Dir > const nonAgingConfigDir_;
   KIV_REACTOR( KivConfig, config );
};

} // namespace Feeders
