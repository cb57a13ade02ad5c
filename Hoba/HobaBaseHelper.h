// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Entity.h"

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

// The VLAN helper that all machines share, as far as the others need to know it.
class VlanHelperBase : public HobaBaseHelper {
   KIV_ENTITY( Hoba::VlanHelperBase, Hoba::HobaBaseHelper );

 public:
   explicit VlanHelperBase( Kiv::String const & helperName ) : HobaBaseHelper( helperName ) {}

   // Compares the VLANs of the hardware with what they should be. Returns what the first mismatch
   // is, empty when there is none. May throw when it cannot find out.
   virtual Kiv::String verify() = 0;
};

} // namespace Hoba
