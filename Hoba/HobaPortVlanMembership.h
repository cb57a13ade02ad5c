// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which VLANs an interface carries, and how: what became of what the operator asked for. The way
// from a VLAN to its interfaces is VlanStatus (Hoba/HobaCommon.h).

#include "Bridging/VlanSet.h"
#include "Kiv/Entity.h"
#include "Kiv/Value.h"
#include "Pelt/IntfId.h"

namespace Hoba {

KIV_ENUM( VlanTagging, std::uint8_t, vlanNotCarried = 0, vlanTagged, vlanUntagged );

struct IntfVlans {
   KIV_VALUE( Hoba::IntfVlans );
   // Carried without a tag, and the VLAN of frames that come in without one; none: these are dropped.
   KIV_FIELD( Bridging::VlanIdOrNone, nativeVlan );
   // Carried with a tag. The native VLAN is not one of these.
   KIV_FIELD( Bridging::VlanSet, tagged );

   bool carriesNone() const { return !nativeVlan.value() && tagged.empty(); }
   VlanTagging tagging( Bridging::VlanId vlan ) const {
      if( nativeVlan.value() == vlan.value() ) {
         return vlanUntagged;
      }
      return tagged.has( vlan ) ? vlanTagged : vlanNotCarried;
   }
   void taggingIs( Bridging::VlanId vlan, VlanTagging how ) {
      if( how == vlanUntagged ) {
         nativeVlan = Bridging::VlanIdOrNone( vlan.value() );
      } else if( nativeVlan.value() == vlan.value() ) {
         nativeVlan = Bridging::VlanIdOrNone();
      }
      how == vlanTagged ? tagged.insert( vlan ) : tagged.erase( vlan );
   }
   // All of them.
   Bridging::VlanSet carried() const {
      auto vlans = tagged;
      if( nativeVlan.value() ) {
         vlans.insert( Bridging::VlanId( nativeVlan.value() ) );
      }
      return vlans;
   }
};

// An entry for each port and LAG that carries a VLAN; ports that are configured into a LAG have none.
// One interface's change is one notification of its key, whatever the number of VLANs. An entry has
// some 32 octets and 4 for each range of VLANs: 65,536 trunks of all 4,094 take as much as as many
// access ports.
class PortVlanMembership : public Kiv::Entity {
   KIV_ENTITY( Hoba::PortVlanMembership );
   KIV_COLLECTION( Pelt::IntfId, IntfVlans, intf );

 public:
   explicit PortVlanMembership( Kiv::String const & membershipName = {} )
         : Entity( membershipName ) {}
};

} // namespace Hoba
