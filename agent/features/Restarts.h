// SPDX-License-Identifier: Apache-2.0
#pragma once

// When the machines began, how long that took, and what it wrote to the chip.

#include "Kiv/Datum.h"
#include "Kiv/Value.h"

#include <deque>

namespace HobaAgent {

KIV_ENUM( RestartKind, std::uint8_t,
          hitless = 0, // the chip holds what it was told, and goes on with it
          cold         // the chip has forgotten everything
);

KIV_ENUM( RestartState, std::uint8_t, inFirstPass = 0, running, failed,
          ended // before the first pass was over
);

struct RestartRecord {
   Kiv::Seconds time = 0;     // of the ambient clock driver
   Kiv::Seconds duration = 0; // until the first pass was over
   RestartKind kind = cold;
   RestartState state = inFirstPass;
   bool isProcess = false; // the agent itself began
   // By feature, in their order: how often the chip was written while it began.
   std::vector< std::pair< Kiv::String, std::uint64_t > > writes = {};
   std::uint64_t failedSteps = 0; // of the first pass: then nothing was swept
   std::uint64_t swept = 0;       // entries of the chip that nobody asked for any more
   Kiv::String failure = {};
};

class Restarts {
 public:
   // The last so many are kept.
   static constexpr std::size_t most = 100;

   void add( RestartRecord record );
   // The one that was added last; there is one.
   RestartRecord & last() { return records_.back(); }
   // The last so many, in a table for operators.
   Kiv::Datum show( std::size_t last = most ) const;
   std::deque< RestartRecord > const & all() const { return records_; }

 private:
   std::deque< RestartRecord > records_;
   std::uint64_t count_ = 0;
};

} // namespace HobaAgent
