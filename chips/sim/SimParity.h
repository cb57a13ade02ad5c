// SPDX-License-Identifier: Apache-2.0
#pragma once

// Parity errors in the memories of the simulated chip.

#include "Kiv/Dir.h"
#include "types/ParityEvent.h"

namespace HobaSim {

class ParityUnit : public Kiv::Entity {
   KIV_ENTITY( HobaSim::ParityUnit );
   // The errors that are not corrected yet: a Hoba::ParityEventStatus for each slice, made when the
   // slice first has an error. slicesIs() hands in another directory to use from then on.
   KIV_CHILD( Kiv::Dir, slices );
   // The slices that the chip has, four unless it is told otherwise.
   KIV_SET( Kiv::String, sliceName );
   // How long the chip takes to have an entry written again.
   KIV_ATTRIBUTE( Kiv::Seconds, correctionTime, 1.0 );
   // Errors raised, by what it takes to get rid of them.
   KIV_COUNTER( std::uint64_t, correctable );
   KIV_COUNTER( std::uint64_t, needsReset );
   KIV_COUNTER( std::uint64_t, fatal );
   // Errors gone because they were corrected, and because their slice was reset.
   KIV_COUNTER( std::uint64_t, entriesCorrected );
   KIV_COUNTER( std::uint64_t, entriesReset );

 public:
   explicit ParityUnit( Kiv::String const & unitName = {} );

   // An entry of a memory is found wrong: counted in the status of its slice, with the time of the
   // ambient clock driver, and reported. Throws Kiv::ParseError for a slice that the chip does not
   // have or whose name has a colon in it, for a memory without a name, and as status().
   void raise( Kiv::String const & slice, Kiv::String const & memory, std::uint32_t index,
               Hoba::ParitySeverity severity = Hoba::parityCorrectable );

   // The entry is as it should be again. Returns whether it had an error.
   bool corrected( Hoba::ParityEvent::Key const & key );

   // The blocks of the slice have been initialized again: none of its entries has an error any
   // more. Returns how many had one.
   std::size_t reset( Kiv::String const & slice );

   // The errors of a slice; null for a slice that has had none. Throws Kiv::ParseError when what
   // the directory has under that name is something else.
   Kiv::Ptr< Hoba::ParityEventStatus > status( Kiv::String const & slice );
};

} // namespace HobaSim
