// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Hoba/HobaPortVlanMembership.h"
#include "Kiv/Entity.h"
#include "types/HobaLagTypes.h"

namespace Hoba {

// The base of helpers that several machines share. What their operations may throw, and what becomes
// of it, is said in Hoba/HobaBaseSm.h.
class HobaBaseHelper : public Kiv::Entity {
   KIV_ENTITY( Hoba::HobaBaseHelper );

 public:
   explicit HobaBaseHelper( Kiv::String const & helperName ) : Entity( helperName ) {}

   // See Hoba/HobaAssert.h.
   void hobaAssert( Kiv::String const & message ) const;
};

// The VLAN helper that all machines share: what the chip is told of VLANs. Who says so says it when
// it changes, and all of it after hwInit(). What a chip has no use for does nothing.
class VlanHelperBase : public HobaBaseHelper {
   KIV_ENTITY( Hoba::VlanHelperBase, Hoba::HobaBaseHelper );

 public:
   explicit VlanHelperBase( Kiv::String const & helperName ) : HobaBaseHelper( helperName ) {}

   // All that is wanted is told from now on. Nothing is taken away from a chip that goes on
   // forwarding: what stays wanted must stay.
   virtual void hwInit() {}
   // The VLAN comes (`active`), before the first interface that carries it, or goes, after the last.
   virtual void setVlan( Bridging::VlanId, bool /* active */ ) {}
   // How a port or LAG carries the VLAN from now on. The members of a LAG are never named.
   virtual void setTagging( Bridging::VlanId, Pelt::IntfId, VlanTagging ) {}
   // The VLAN of frames that come in without a tag on the port or LAG; none: they are dropped. It is
   // told after the VLAN is carried there untagged; who changes it need not tell none in between.
   virtual void setNativeVlan( Pelt::IntfId, Bridging::VlanIdOrNone ) {}
   // How the port recognises tagged frames, and that nobody has a wish about it any more.
   virtual void setTpids( Pelt::IntfId, HobaPortVlanTpidData const & ) {}
   virtual void clearTpids( Pelt::IntfId ) {}

   // Compares the VLANs of the hardware with what they should be. Returns what the first mismatch
   // is, empty when there is none. May throw when it cannot find out.
   virtual Kiv::String verify() = 0;
};

} // namespace Hoba
