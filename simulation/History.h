// SPDX-License-Identifier: Apache-2.0
#pragma once

// Histories: made from a seed, kept in files, run on their own, and made shorter.

#include "simulation/Run.h"

namespace Simulation {

// The steps of a seed: what the chip is like and what is configured first, the start, and then so many
// steps as the generators of all observers think of, in bursts between which things become quiet. `frames`
// may come in among those that are made up.
Steps historyOf( std::uint64_t seed, std::size_t length,
                 std::span< Kiv::String const > frames = {} );

// The frames of a capture, as far as a chip looks at them, each once: octets in hexadecimal.
// Throws Kiv::ParseError for a file that is none, or damaged.
std::vector< Kiv::String > capturedFrames( Kiv::String const & file );

// A file of steps, one a line; what begins with # is for people.
// Throws Kiv::ParseError, with the name, for a file that cannot be read.
Steps readHistory( Kiv::String const & file );
// Throws Kiv::Exception, with the name, if it cannot be written.
void writeHistory( Kiv::String const & file, Steps const & steps, Kiv::String const & about );

// Why a history failed.
struct Failure {
   std::size_t step = 0; // the one at which it was found, from 0 on
   std::vector< Kiv::String > findings;
   // What is wrong, without the particulars: a shorter history counts if it fails alike.
   Kiv::String kind() const;
};

struct Ended {
   Counts counts;
   std::optional< Failure > failure;
};

// Runs the steps in a process of their own: whatever becomes of that, this one goes on. It may take so
// many seconds, by the clock of the machine.
Ended runAlone( Steps const & steps, unsigned mostSeconds = 60 );

// Takes steps away, and then makes values simpler, as long as what is left fails alike; for so many seconds
// at most.
Steps shrink( Steps steps, Failure const & failure, unsigned mostSeconds );

} // namespace Simulation
