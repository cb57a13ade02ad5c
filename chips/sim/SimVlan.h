// SPDX-License-Identifier: Apache-2.0
#pragma once

// The VLANs of the simulated chip: which there are, who carries them and how, and how ports recognise
// tagged frames.

#include "Hoba/HobaCommon.h"
#include "Hoba/HobaPortVlanMembership.h"
#include "chips/sim/SimInverse.h"

namespace HobaSim {

// A VLAN on a port or LAG; sorts by VLAN first.
class VlanMember {
 public:
   static constexpr std::string_view kivName = "HobaSim::VlanMember";

   constexpr VlanMember() = default;
   constexpr VlanMember( Bridging::VlanId vlan, Pelt::IntfId intf )
         : vlan_( vlan.value() ), intf_( intf ) {}

   constexpr Bridging::VlanId vlan() const { return Bridging::VlanId( vlan_ ); }
   constexpr Pelt::IntfId intf() const { return intf_; }

   bool operator==( VlanMember const & ) const = default;
   auto operator<=>( VlanMember const & ) const = default;
   std::size_t hash() const { return Kiv::hashOf( intf_ ) ^ vlan_ << 20; }

   // Appends "10@Ethernet1".
   void print( std::string & out ) const;
   // Reads that. Throws Kiv::ParseError, or Kiv::RangeException for a VLAN outside 1..4094.
   static VlanMember parse( std::string_view text );

 private:
   std::uint64_t vlan_ = 1;
   Pelt::IntfId intf_;
};

class VlanUnit : public Unit {
   KIV_ENTITY( HobaSim::VlanUnit, HobaSim::Unit );
   // True: frames of the VLAN are forwarded.
   SIM_TABLE( Bridging::VlanId, bool, vlan );
   // By VLAN and port or LAG: tagged or untagged. What is not there is not carried.
   SIM_TABLE( VlanMember, Hoba::VlanTagging, member );
   // By port or LAG: the VLAN of frames without a tag. Without a row they are dropped.
   SIM_TABLE( Pelt::IntfId, Bridging::VlanIdOrNone, native );
   // By port. Without a row: FrameTpids (SimFrame.h).
   SIM_TABLE( Pelt::IntfId, Hoba::HobaPortVlanTpidData, tpid );

 public:
   explicit VlanUnit( Kiv::String const & unitName = {}, Memory const & memory = {} )
         : Unit( unitName, memory ) {}

   // The ports and LAGs that carry the VLAN, in their order. Valid until the next change of `member`.
   std::vector< Pelt::IntfId > const & carrying( Bridging::VlanId vlan ) const;

 private:
   mutable Inverse< Bridging::VlanId > carrying_;
};

// Programs the unit, and compares it with `membership` and with what `commonSmData` says of VLANs and
// TPIDs. The context owns its helper: commonSmData->cleanup() takes both apart.
class VlanHelper : public Hoba::VlanHelperBase {
   KIV_ENTITY( HobaSim::VlanHelper, Hoba::VlanHelperBase );

 public:
   VlanHelper( Kiv::Ptr< VlanUnit > const & unit,
               Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
               Kiv::Ptr< Hoba::PortVlanMembership const > const & membership );

   // Begins a pass on the unit's tables: what is not told again goes with the next sweep.
   void hwInit() override { unit_->beginPass(); }
   // These throw TableRefused for what the chip does not take.
   void setVlan( Bridging::VlanId vlan, bool active ) override;
   void setTagging( Bridging::VlanId vlan, Pelt::IntfId intf, Hoba::VlanTagging how ) override;
   void setNativeVlan( Pelt::IntfId intf, Bridging::VlanIdOrNone vlan ) override;
   void setTpids( Pelt::IntfId port, Hoba::HobaPortVlanTpidData const & tpids ) override;
   void clearTpids( Pelt::IntfId port ) override;

   // A mismatch while something is on its way to the chip is none yet: another pass is asked for.
   Kiv::String verify() override;

 private:
   Kiv::Ptr< VlanUnit > const unit_;
   Kiv::Ptr< Hoba::HobaCommonSmData > const commonSmData_;
   Kiv::Ptr< Hoba::PortVlanMembership const > const membership_;
};

} // namespace HobaSim
