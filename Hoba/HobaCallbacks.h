// SPDX-License-Identifier: Apache-2.0
#pragma once

// Where chip code reports what the hardware did. Everything here is for the event-loop thread, also
// from inside a handler; a driver that learns of an event on another thread hands it over first.
//
// An event that is reported while no machine is registered is dropped, and counted.

#include "Hoba/HobaEvent.h"
#include "types/ParityEvent.h"

namespace Hoba {

class EventQueueSm;
class HobaParityEventQueueSm;

// The machine that takes the events; null for none. It is held until another one, or none, is set.
// Terminates the process if letting the old one go throws.
void eventSmIs( Kiv::Ptr< EventQueueSm > eventSm ) noexcept;
Kiv::Ptr< EventQueueSm > const & eventSm();

// Queues the event: it is applied, in the order of arrival, after what is going on now is over.
void newEventIs( HobaEvent const & event );
// Applies an event about a station at once, ahead of all that is queued: a driver that reports very
// many of them outside of notifications saves the queue. What is queued about the same station is
// older, and is dropped and counted when its turn comes.
void newMacEventIs( HobaEvent const & event );

// The same for parity errors.
void parityEventSmIs( Kiv::Ptr< HobaParityEventQueueSm > parityEventSm ) noexcept;
Kiv::Ptr< HobaParityEventQueueSm > const & parityEventSm();
void newParityEventIs( HobaParityEvent const & event );

// Events and parity events that came while no machine was registered, since the process began.
std::uint64_t eventsWithoutMachine();
std::uint64_t parityEventsWithoutMachine();

} // namespace Hoba
