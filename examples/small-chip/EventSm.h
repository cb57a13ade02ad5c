// SPDX-License-Identifier: Apache-2.0
#pragma once

// What this chip reports: links, and stations where it has not seen them before.

#include "Driver.h"
#include "Hoba/HobaEventQueueSm.h"

namespace SmallChip {

class EventSm : public Hoba::EventQueueSm {
 public:
   // As Hoba::EventQueueSm::EventQueueSmIs(). `driver` outlives the machine.
   static Kiv::Ptr< EventSm >
   EventSmIs( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
              Kiv::Ptr< Hoba::HobaEventQueue > const & queue,
              Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & portStatusDir, Driver & driver );
   KIV_TYPE( EventSm );

   // The chip may report, and may not any more.
   void hwInit() override;
   void hwCleanup() override;

 protected:
   EventSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
            Kiv::Ptr< Hoba::HobaEventQueue > const & queue,
            Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & portStatusDir, Driver * driver );

 private:
   void reportLink( unsigned port, bool up );
   void reportStation( unsigned port, unsigned vlan, std::uint64_t station );

   Driver & driver_;
};

} // namespace SmallChip
