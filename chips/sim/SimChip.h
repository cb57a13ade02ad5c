// SPDX-License-Identifier: Apache-2.0
#pragma once

// The simulated switch chip, whole: one entity per unit. What lasts stands in the tables of the units
// (SimTable.h), so a chip goes on where it was, in this process or in the next.

#include "chips/sim/SimCapture.h"
#include "chips/sim/SimMac.h"
#include "chips/sim/SimMemory.h"
#include "chips/sim/SimParity.h"
#include "chips/sim/SimPath.h"
#include "chips/sim/SimStormControl.h"
#include "chips/sim/SimTrunk.h"
#include "chips/sim/SimVlan.h"

namespace HobaSim {

class Chip : public Kiv::Entity {
   KIV_ENTITY( HobaSim::Chip );
   KIV_CHILD( StormUnit, stormControl );
   KIV_CHILD( EventUnit, events );
   KIV_CHILD( TrunkUnit, trunk );
   KIV_CHILD( MacUnit, mac );
   KIV_CHILD( VlanUnit, vlan );
   // Where frames go, by what the others hold.
   KIV_CHILD( PathUnit, path );
   KIV_CHILD( ParityUnit, parity );
   // Brings packet captures to `path`.
   KIV_CHILD( CaptureReplay, capture );

 public:
   // Goes on with the memory that is there, or begins empty. Throws Glim::Error, in one line: the
   // name is none, another agent drives the chip, the memory is damaged or of another version, or there
   // is none to be had.
   // The memory is then as it was.
   explicit Chip( Kiv::String const & chipName = "sim", Memory const & memory = {} );

   // Whether it has begun empty.
   bool isFresh() const { return memory_.isFresh(); }
   // The name of its memory; empty if that is the process's own.
   Kiv::String const & memoryName() const { return memory_.forUnits().name; }
   // Said when the chip has been described, before it is used: throws Glim::Error, in one line, if the
   // memory is that of a chip whose tables have other capacities.
   void checkCapacities();

   // From now on the chip reports ports and stations, beginning with all that it holds; or nothing.
   void reportingIs( bool reporting );

   // Of all tables, since the process began: changes that the agent made, and rows that were swept.
   std::uint64_t writes() const;
   std::uint64_t swept() const;
   // Nothing is asked for any more, until somebody programs it again; and what nobody has asked for
   // since then goes. The owner says so before the machines' first pass, and when all of them are over.
   void beginPass();
   void sweep();
   // As after a power cut: all that it was told, learnt and counted goes. What describes it stays, and
   // so do writes() and swept().
   void reset();

 private:
   template< class U, class... Args >
   Kiv::Ptr< U > unit( Kiv::String const & unitName, Args const &... args );

   ChipMemory memory_;
   std::vector< Kiv::Ptr< Unit > > units_;
};

} // namespace HobaSim
