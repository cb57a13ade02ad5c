// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stations that never age. Every client, an agent that asks for some, has a NonAgingConfig in a
// directory; here all of them become one NonAgingStatus.
//
// - The status is enabled while any client that is there is enabled.
// - It has an entry while any enabled client lists it: the pair's count in macEntriesRef is the
//   number of clients that hold it. An entry that changes is held once, as before.
// - Clients may list one pair with different records. The record that was written last stands, and
//   when its client lets go of the pair, the one written last among those who still hold it.
// - A status that is taken over from a former machine keeps what some client still asks for, and
//   loses the rest, when this machine is initialized.

#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaCommon.h"
#include "Hoba/HobaDirSm.h"
#include "types/NonAging.h"

namespace Hoba {

class NonAgingConfigDirSm;

// One client. What it holds is what it was told to add and not yet to release, whatever its
// configuration lists by now.
class NonAgingConfigSm : public HobaBaseSm {
 public:
   using Entry = HobaTypes::MacAddressTableEntry;
   struct Held {
      Entry entry;
      std::uint64_t written = 0; // the higher of two was written later
   };

   KIV_TYPE( NonAgingConfigSm );

   Kiv::String const & name() const { return name_; }
   // Whether it takes part at the moment.
   bool enabled() const { return enabled_; }
   HashMapOfHeld const & held() const { return held_; }

   void handleInitialized() override;
   // The configuration's flag: takes part, or releases all that it holds.
   void handleEnable();
   // Brings one pair, or all, in step with the configuration. Throws Kiv::Exception before the
   // machine is initialized.
   void handleMacEntries( Bridging::MacVlanPair const & pair );
   void handleMacEntries();
   // The client is no more: releases all that it holds, and hears nothing from now on.
   void doCleanUp();
};

} // namespace Hoba
