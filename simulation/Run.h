// SPDX-License-Identifier: Apache-2.0
#pragma once

// One history, run: step by step, with the observers listening.

#include "simulation/Observer.h"

#include <functional>
#include <set>

namespace Simulation {

// How much has been run.
struct Counts {
   std::uint64_t steps = 0;
   std::uint64_t refused = 0;  // of them
   std::uint64_t quiets = 0;   // moments at which all observers looked
   std::uint64_t restarts = 0; // of the machines
   Kiv::Seconds time = 0;      // that passed in the simulation
};

class Run {
 public:
   Run();
   ~Run();

   // Does the step, and tells the observers. False as soon as something is not as it must be: see
   // findings(). Nothing may be run then any more.
   bool step( Step const & step );
   // The history is over: takes the switch apart. False if something of it is left.
   bool finish();

   std::vector< Kiv::String > const & findings() const { return findings_; }
   Counts const & counts() const { return counts_; }
   Observers const & observers() const { return *observers_; }
   Switch const & simulated() const { return *switch_; }
   // Told of every step that is run, also of those that healed something, and of what became of it.
   std::function< void( Step const &, Outcome const & ) > listener = []( Step const &,
                                                                         Outcome const & ) {};

 private:
   void run( Step const & step );
   void input( Step const & step );
   // The step waits for the next change at a path.
   void upon( Kiv::String const & path, Step const & step );
   void uponNoMore();
   void begin( Step const & step );
   void stop( Step const & step );
   void restartIfAsked();
   void beganAll( HobaAgent::RestartKind kind );
   // Time passes until `end`; whether a timer fired at each stop.
   void passTime( Kiv::Seconds end );
   bool advance( Kiv::Seconds time );
   void settle();
   void heal();
   void quiet();
   bool hasFaults();
   void found( Kiv::String const & what );
   void lookForFailures();

   std::vector< std::pair< std::string_view, std::uint64_t > > const liveBefore_;
   std::unique_ptr< Switch > switch_;
   std::unique_ptr< Observers > observers_;
   Counts counts_;
   std::vector< Kiv::String > findings_;
   std::set< Observer const * > faulty_; // there were faults of theirs since the last quiet
   bool beganUnderFaults_ = false;       // and machines began meanwhile
   bool stoppedUnderFaults_ = false;     // what was refused then is still to be written
   bool isQuiet_ = false;                // nothing has happened since
   unsigned depth_ = 0;                  // of steps in the middle of which another is done
   std::set< std::uint64_t > upons_;     // watches of steps that wait
};

} // namespace Simulation
