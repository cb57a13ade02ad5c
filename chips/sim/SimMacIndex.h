// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Bridging/MacVlanPair.h"
#include "Kiv/HashMap.h"
#include "Pelt/IntfId.h"

#include <map>
#include <vector>

namespace HobaSim {

using Stations = std::vector< Bridging::MacVlanPair >;

// How far a walk over stations has come: over those behind one interface, or over all.
class MacWalk {
 public:
   MacWalk() = default; // one that is over
   // Behind that interface; over all for the empty one.
   explicit MacWalk( Pelt::IntfId of ) : intf_( of ), isOfOne_( of ), isOver_( false ) {}
   bool isOver() const { return isOver_; }

 private:
   friend class MacIndex;
   static constexpr std::size_t notBegun = SIZE_MAX;

   Pelt::IntfId intf_;           // at work
   std::size_t left_ = notBegun; // of those behind it, from the front
   bool isOfOne_ = false;
   bool isOver_ = true;
};

// The stations of a table by interface, so that those behind one port are found among half a million, and
// so that a walk can stop and go on while rows come and go. It is told of every change of the rows.
class MacIndex {
 public:
   struct Place {
      Pelt::IntfId intf;
      bool learnt = false; // as its owner means these
      bool remote = false;
      std::uint32_t at = 0; // among those behind it
   };

   // Null for a station that is not there. Holds until the next change.
   Place const * find( Bridging::MacVlanPair station ) const { return places_.find( station ); }
   // `place.at` does not count.
   void is( Bridging::MacVlanPair station, Place place );
   void del( Bridging::MacVlanPair station );

   // Adds the next stations of the walk to `to`, `most` at most. Whoever is there during the whole walk and
   // keeps its interface comes once at least.
   void gather( MacWalk & walk, std::size_t most, Stations & to ) const;

 private:
   Kiv::HashMap< Bridging::MacVlanPair, Place > places_;
   std::map< Pelt::IntfId, Stations > behind_;
};

} // namespace HobaSim
