// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Hoba/HobaEvent.h"
#include "simulation/observers/PortsObserver.h"

#include <deque>

namespace Simulation {

class StationsObserver;

// What the chip reports of ports and stations, and when the machines apply it.
class EventsObserver : public Observer {
 public:
   using Event = Hoba::HobaEvent;

   EventsObserver( Switch & simulated, Observers & observers );

   // The chip has found something: queued, if machines run. They apply it when their clock runs.
   void report( Event const & event );
   // News of a station that comes ahead of all that is queued: applied at once, if machines run.
   void reportAhead( Event const & event );
   // The machines run, and the model with them: false from when they go until the model of the next begins.
   bool isThere() const { return isThere_; }
   // How the chip found the link of the port last.
   Interface::LinkStatus chipLink( Pelt::IntfId port ) const;
   // For who applies events of stations: one had no effect, or another than it asked for.
   void dropped( char const * reason ) { ++dropped_[ reason ]; }

   unsigned weight() const override { return 12; }
   void propose( Draw & draw, Steps & steps ) override;
   Steps heal() override;
   bool canBeInterrupted() const override;
   Verdict judge( Step const & step ) const override;
   void heard( Step const & step, Kiv::Datum const & answer ) override;
   void follow() override;
   void timeIs( Kiv::Seconds now ) override;
   void chipForgot() override;
   void began( HobaAgent::RestartKind kind ) override;
   void check() override;

 private:
   struct Queued {
      std::uint32_t index;
      Event event;
   };
   struct Autoneg {
      Interface::AutonegState result = Interface::autonegUnknown;
      Interface::AutonegAdvertisement advert;
   };
   using Counts = std::map< Kiv::String, std::uint64_t >;

   void linkFound( Pelt::IntfId port, bool isUp, Kiv::String const & fault );
   void autonegFound( Step const & step );
   void flooded( Step const & step, Kiv::Datum const & answer );
   void reportAll();
   // A drain begins; is somewhere in the midst; ends.
   void beginDrain();
   void drainUpTo( std::uint64_t applied );
   void drain();
   void applyOldest();
   void apply( Event const & event );
   void applyLink( Event const & event );
   void applyAutoneg( Event const & event );
   void checkQueue();
   void checkPorts();

   PortsObserver & ports_;
   // What the chip found last.
   std::map< Pelt::IntfId, Event > chipLink_;
   std::map< Pelt::IntfId, Event > chipAutoneg_;
   // The queue outlives the machines, and so does what they published of ports.
   std::deque< Queued > queue_;
   std::uint32_t nextIndex_ = 0;
   std::map< Pelt::IntfId, Autoneg > autoneg_;
   // The machine.
   bool isThere_ = false; // it is registered, and the former one went
   bool isBeginning_ = false;
   bool isHeld_ = false;
   bool isDue_ = false; // it wants to be woken
   bool isDraining_ = false;
   std::uint64_t applied_ = 0;
   std::uint64_t drains_ = 0;
   std::size_t mostWaiting_ = 0;
   Counts handled_;
   Counts dropped_;
   // By station: the last index that was given when news of it came ahead.
   std::map< Bridging::MacVlanPair, std::uint32_t > overtaken_;
};

} // namespace Simulation
