// SPDX-License-Identifier: Apache-2.0
#pragma once

// The L2 table of the simulated chip: it learns from the source addresses of frames, as chips do,
// and reports what it learnt, once it may.

#include "Bridging/MacVlanPair.h"
#include "Pelt/IntfId.h"
#include "chips/sim/SimEvents.h"
#include "chips/sim/SimFrame.h"
#include "chips/sim/SimTrunk.h"

namespace HobaSim {

// What a source address led to.
KIV_ENUM( Learning, std::uint8_t,
          learnNew = 0, // recorded and reported
          learnMove,    // was behind another port; recorded and reported
          learnHit,     // was there
          learnGroup,   // refused: no station has a group address
          learnZero,    // refused: the address 00:00:00:00:00:00
          learnFull );  // no room

// What the L2 table counts.
KIV_ENUM( MacCount, std::uint8_t, macFrames = 0 KIV_SHOWN( "frames" ),
          macLearnt KIV_SHOWN( "learnt" ), macMoved KIV_SHOWN( "moved" ),
          macHits KIV_SHOWN( "hits" ), macGroupSourceRefused KIV_SHOWN( "groupSourceRefused" ),
          macZeroSourceRefused KIV_SHOWN( "zeroSourceRefused" ),
          macBadVlanRefused KIV_SHOWN( "badVlanRefused" ), macRunts KIV_SHOWN( "runts" ),
          macTableFull KIV_SHOWN( "tableFull" ), macAged KIV_SHOWN( "aged" ) );

class MacUnit : public Unit {
   KIV_ENTITY( HobaSim::MacUnit, HobaSim::Unit );
   // The port, LAG or VXLAN interface behind which the chip saw the host last. There is room for 131072
   // unless the table is told otherwise.
   SIM_STATE( Bridging::MacVlanPair, Pelt::IntfId, host );
   // How often each of these happened.
   SIM_STATE( MacCount, std::uint64_t, count );

 public:
   // Reports by `events`; `trunk` knows the LAGs.
   MacUnit( Kiv::String const & unitName, Kiv::Ptr< EventUnit > const & events,
            Kiv::Ptr< TrunkUnit > const & trunk, Memory const & memory = {} );

   // A frame from `addr` came in on `port`, in the VLAN. Hosts behind a member of a LAG are behind
   // the LAG. Throws Kiv::ParseError, and counts nothing, for a port as portTypeOf() (SimEvents.h).
   Learning learn( Pelt::IntfId port, Pelt::EthAddr addr, Bridging::VlanId vlanId );

   // A frame has come in, and its header is so: counted. What becomes of it: see SimPath.h.
   void frameCame( FrameFault fault );

   // The station has been silent for too long: forgotten, and reported. Throws Kiv::ParseError, and
   // changes nothing, for a station that is not in the table, and for a row that no frame taught it.
   void age( Bridging::MacVlanPair station );

   // Reports all hosts, in the order of addresses and VLANs. A row that no frame taught it, since no
   // station has that address or none can be behind that interface, goes without an event.
   void reportHosts();

 private:
   Learning learnHost( Pelt::IntfId intf, Bridging::MacVlanPair station );

   void countInc( MacCount what ) { countIs( what, count( what ) + 1 ); }

   Kiv::Ptr< EventUnit > const events_;
   Kiv::Ptr< TrunkUnit > const trunk_;
};

} // namespace HobaSim
