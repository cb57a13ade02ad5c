// SPDX-License-Identifier: Apache-2.0
#pragma once

// The switch that is simulated: the agent with all its features and the chip, without process and socket,
// on virtual time. Steps go in, and observers look at its state database.

#include "Kiv/ClockDriver.h"
#include "Tessera/Database.h"
#include "agent/Commands.h"
#include "agent/features/Restarts.h"
#include "simulation/Step.h"

#include <functional>
#include <memory>
#include <optional>

namespace HobaAgent {
class Features;
}
namespace HobaSim {
class Chip;
}

namespace Simulation {

// What became of a step.
struct Outcome {
   bool accepted = true;
   Kiv::String refusal = {};
   Kiv::Datum answer = {};
};

// A line of the system log.
struct LogLine {
   std::uint64_t number = 0; // ascending
   Kiv::Seconds time = 0;
   Kiv::String name;
   Kiv::String text;
};

class Switch {
 public:
   static constexpr Kiv::Seconds startTime = 100;

   // Its clock becomes the ambient one. One at a time.
   Switch();
   ~Switch();
   Switch( Switch const & ) = delete;
   Switch & operator=( Switch const & ) = delete;

   // Does what the step says, without time passing. Not for wait and quiet, which Run.h does.
   Outcome run( Step const & step );
   // The machines have begun.
   bool isRunning() const { return isRunning_; }
   // A machine said that only a restart of the agent helps: why, once.
   std::optional< Kiv::String > takeRestart();
   void restart( HobaAgent::RestartKind kind );
   // The machines go, and nobody is there until restart(): chip and configuration stay.
   void stop();

   Kiv::VirtualDriver & driver() { return driver_; }
   Kiv::Seconds now() const { return driver_.now(); }

   // What the state database has at the path; null if there is nothing.
   Kiv::Datum get( std::string_view path ) const;
   // The entity of type T at the path, which must be one.
   template< class T >
   Kiv::Ptr< T const > entity( std::string_view path ) const {
      return Kiv::dynamicCast< T const >( database_.entity( path ) );
   }
   // What was logged behind the line of that number, as far as the log still has it.
   std::vector< LogLine > logBehind( std::uint64_t number ) const;
   // Calls `look` whenever something at or below the path has changed, in the middle of whatever changed it.
   // Returns what unwatch() takes.
   std::uint64_t watch( std::string_view path, std::function< void() > look );
   void unwatch( std::uint64_t id ) { database_.unwatch( id ); }
   // Changes that the agent made to the chip's tables, and rows that were swept from them.
   std::uint64_t writes() const;
   std::uint64_t swept() const;

 private:
   Kiv::Datum frame( Step const & step );
   void eventAhead( Step const & step );

   Kiv::VirtualDriver driver_{ startTime };
   Tessera::Database database_;
   HobaAgent::Commands commands_;
   Kiv::Ptr< HobaSim::Chip > chip_;
   std::unique_ptr< HobaAgent::Features > features_;
   std::optional< Kiv::String > restartReason_;
   bool isRunning_ = false;
};

} // namespace Simulation
