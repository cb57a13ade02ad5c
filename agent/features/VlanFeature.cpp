// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Feature.h"
#include "agent/features/Words.h"

// VLANs: which there are, and who carries them.

namespace HobaAgent {

class VlanFeature : public Feature {
 public:
   explicit VlanFeature( Board & board ) : Feature( board, "VLANs" ) {}
};

HOBA_FEATURE( VlanFeature );

} // namespace HobaAgent
