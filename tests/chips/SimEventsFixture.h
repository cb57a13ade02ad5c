// SPDX-License-Identifier: Apache-2.0
#pragma once

// A chip on virtual time, and what it reports to the library, left in the queue.

#include "Hoba/HobaCallbacks.h"
#include "Hoba/HobaEventQueueSm.h"
#include "Hoba/HobaParityEventQueueSm.h"
#include "Kiv/ClockDriver.h"
#include "chips/sim/SimChip.h"

#include <gtest/gtest.h>

class SimEventsFixture : public testing::Test {
 protected:
   SimEventsFixture() {
      Hoba::eventSmIs( sm );
      chip->reportingIs( true );
   }
   ~SimEventsFixture() override { Hoba::eventSmIs( nullptr ); }

   // The events since the last call, each as its kind, without "eventType", port and host.
   std::vector< Kiv::String > events() {
      std::vector< Kiv::String > texts;
      for( auto const & member : queue->event() ) {
         auto const & event = member.value;
         texts.push_back( Kiv::toText( event.eventType ).substr( 9 ) + ' ' +
                          Kiv::toText( event.portType ) + ' ' + Kiv::toText( event.port ) + ' ' +
                          Kiv::toText( event.host ) );
      }
      queue->eventDelAll();
      return texts;
   }

   struct Driver : Kiv::VirtualDriver {
      Driver() : VirtualDriver( 100 ) { ambientIs( *this ); }
   } driver;
   Kiv::Ptr< Hoba::HobaCommonSmData > context = Kiv::make< Hoba::HobaCommonSmData >( "context" );
   Kiv::Ptr< Hoba::HobaEventQueue > queue = Hoba::HobaEventQueue::HobaEventQueueIs( "events" );
   // Never initialized, so that nothing is taken from the queue.
   Kiv::Ptr< Hoba::EventQueueSm > sm =
         Hoba::EventQueueSm::EventQueueSmIs( context, queue, nullptr );
   Kiv::Ptr< HobaSim::Chip > chip = Kiv::make< HobaSim::Chip >();
   HobaSim::MacUnit & mac = *chip->mac();
   Pelt::IntfId const et1{ "Ethernet1" };
   Pelt::IntfId const et2{ "Ethernet2" };
};
