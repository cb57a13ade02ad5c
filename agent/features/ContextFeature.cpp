// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaVerifySm.h"
#include "agent/features/Feature.h"

// The shared context: who stands before this feature fills it, who stands behind works with it.

namespace HobaAgent {

class ContextFeature : public Feature {
 public:
   explicit ContextFeature( Board & board ) : Feature( board, "context" ) {}

   void start() override {
      mountRunning( "/hoba/common", context() );
      context()->handleInitialized();
      mountRunning( "/hoba/machines/verify",
                    Kiv::dynamicCast< Hoba::VerifySm >( context()->verifySm() ) );
   }
};

HOBA_FEATURE( ContextFeature );

} // namespace HobaAgent
