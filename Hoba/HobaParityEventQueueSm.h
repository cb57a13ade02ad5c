// SPDX-License-Identifier: Apache-2.0
#pragma once

// Hands the parity errors that the hardware reports to the chip's helper machine, in the order in
// which they came. When it does so is told in Hoba/HobaEventDrain.h.

#include "Hoba/HobaCommon.h"
#include "Hoba/HobaEventDrain.h"
#include "Hoba/HobaHook.h"
#include "Hoba/HobaParityEventHelperSm.h"

namespace Hoba {

class HobaParityEventQueueSm : public EventDrainSm {
   HOBA_MACHINE( HobaParityEventQueueSm, Hoba::EventDrainSm );

 public:
   Kiv::Ptr< HobaParityEventStatus > const & eventStatus() const { return eventStatus_; }
   HobaParityEventQueue * queue() const override;

 protected:
   // Drains `queue`, which may be null; calls `helper`. Throws Kiv::Exception when `helper` is null.
   HobaParityEventQueueSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                           Kiv::Ptr< HobaParityEventQueue > const & queue,
                           Kiv::Ptr< HobaParityEventHelperSm > const & helper );

 private:
   void registerMachine() override;
   void unregisterMachine() override;
   void cleanupHardware() override;
   void applyOldest() override;
   EventQueueStatus & status() override { return *eventStatus_; }
   void trace( int level, std::string_view text ) const override;

   class KivEventQueue
         : public Kiv::Hears< HobaParityEventQueueSm, HobaParityEventQueue,
                              Kiv::OnChange< HobaParityEventQueue::eventAttr,
                                             &HobaParityEventQueueSm::handleEvent > > {};

   Hooks< HobaParityEventHelperSm > const helper_;
   Kiv::Ptr< HobaParityEventStatus > const eventStatus_;
   KIV_REACTOR( KivEventQueue, eventQueue );
};

} // namespace Hoba
