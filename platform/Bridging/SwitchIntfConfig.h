// SPDX-License-Identifier: Apache-2.0
#pragma once

// How an interface takes part in switching, by the operator's word.

#include "Bridging/VlanId.h"
#include "Kiv/Entity.h"
#include "Pelt/IntfId.h"

namespace Bridging {

KIV_ENUM( SwitchportMode, std::uint8_t,
          switchportModeAccess = 0, // carries its native VLAN, untagged
          switchportModeTrunk,      // carries all VLANs that it is a member of
          switchportModeRouted );   // carries none

class SwitchIntfConfig : public Kiv::Entity {
   KIV_ENTITY( Bridging::SwitchIntfConfig );
   KIV_ATTRIBUTE( SwitchportMode, switchportMode, switchportModeAccess );
   // The VLAN of frames without a tag; with none, such frames have no VLAN. On a trunk it counts only
   // while the trunk is a member of it.
   KIV_ATTRIBUTE( VlanIdOrNone, nativeVlan, std::uint16_t( 1 ) );
   // Stations are learnt there.
   KIV_ATTRIBUTE( bool, enableLearning, true );

 public:
   explicit SwitchIntfConfig( Pelt::IntfId intf ) : Entity( Kiv::toText( intf ) ) {}
};

class SwitchIntfConfigDir : public Kiv::Entity {
   KIV_ENTITY( Bridging::SwitchIntfConfigDir );
   // By port or LAG. One without an entry is as a new one.
   KIV_CHILDREN( Pelt::IntfId, SwitchIntfConfig, switchIntfConfig );

 public:
   explicit SwitchIntfConfigDir( Kiv::String const & dirName = {} ) : Entity( dirName ) {}
};

} // namespace Bridging
