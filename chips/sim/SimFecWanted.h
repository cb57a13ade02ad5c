// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a layer-2 adjacency asks of the chip, decided apart from doing it.

#include "Hoba/HobaL2AdjTypes.h"
#include "Interface/EthPhyIntfStatus.h"

#include <functional>
#include <vector>

namespace Hoba {
class HobaCommonSmData;
}

namespace HobaSim {

struct WantedSlot {
   Hoba::InternedNextHop nextHop;
   std::uint32_t weight = 0;
};
struct WantedSlots {
   // Each slot is where it has to be; otherwise any order will do.
   bool isOrdered = false;
   std::vector< WantedSlot > slot;
};

using IsUp = std::function< bool( Pelt::IntfId ) >;

// The next hops among which the adjacency's traffic is shared now:
//
// - its members, less those of weight 0, and those whose l2Intf is not up; when nobody is left, the same of its
//   backup, if it has one;
// - of an ordered collection, a slot for each position up to the last one that any member has, also one
//   that is down. A position that nobody is left for goes to the others in turn, in the order of their
//   positions.
//
// Throws Kiv::Exception for an ordered collection whose positions and next hops do not match.
WantedSlots wantedSlots( Hoba::L2Adjacency const & adjacency, IsUp const & isUp );

// Whether packets leave by the interface: a port that is the agent's and whose link is up, a LAG with active
// members, and whatever is neither, or none.
bool intfIsUp( Pelt::IntfId intf, Hoba::HobaCommonSmData const & context,
               Interface::AllEthPhyIntfStatusDir const & ports );

} // namespace HobaSim
