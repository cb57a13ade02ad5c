// SPDX-License-Identifier: Apache-2.0
#pragma once

// Hands the parity errors that the hardware reports to the chip's helper machine, in the order in
// which they came. When it does so is told in Hoba/HobaEventDrain.h.

#include "Hoba/HobaCommon.h"
#include "Hoba/HobaEventDrain.h"
#include "Hoba/HobaParityEventHelperSm.h"

namespace Hoba {

class HobaParityEventQueueSm
      : public EventDrain< HobaParityEventQueueSm, HobaParityEventQueue > {
 public:
   // Drains `queue`, which may be null; calls `helper`. Throws Kiv::Exception when `helper` is null.
   static Kiv::Ptr< HobaParityEventQueueSm >
   HobaParityEventQueueSmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                             Kiv::Ptr< HobaParityEventQueue > const & queue,
                             Kiv::Ptr< HobaParityEventHelperSm > const & helper );
   KIV_TYPE( HobaParityEventQueueSm );

   Kiv::Ptr< HobaParityEventStatus > const & eventStatus() const { return eventStatus_; }

   // For EventDrain.
   static constexpr char const * className = "HobaParityEventQueueSm";
   void registerMachine();
   void unregisterMachine();
   void cleanupHardware();
   void applyEvent( std::uint32_t index, HobaParityEvent const & event );
   void handleEmpty() {}
   EventQueueStatus & status() { return *eventStatus_; }

 protected:
   HobaParityEventQueueSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                           Kiv::Ptr< HobaParityEventQueue > const & queue,
                           Kiv::Ptr< HobaParityEventHelperSm > const & helper );

 private:
   Kiv::Ptr< HobaParityEventHelperSm > const helper_;
   Kiv::Ptr< HobaParityEventStatus > const eventStatus_;
};

} // namespace Hoba
