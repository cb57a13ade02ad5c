// SPDX-License-Identifier: Apache-2.0
#pragma once

// The L2 table of the simulated chip: it learns from the source addresses of frames, as chips do,
// and reports what it learnt, once it may.

#include "Bridging/MacVlanPair.h"
#include "Kiv/Entity.h"
#include "Pelt/IntfId.h"
#include "chips/sim/SimEvents.h"
#include "chips/sim/SimFrame.h"

#include <functional>

namespace HobaSim {

// What a source address led to.
KIV_ENUM( Learning, std::uint8_t,
          learnNew = 0, // recorded and reported
          learnMove,    // was behind another port; recorded and reported
          learnHit,     // was there
          learnGroup,   // refused: no station has a group address
          learnZero,    // refused: the address 00:00:00:00:00:00
          learnFull,    // no room
          learnBadVlan, // refused: the frame is tagged with 4095
          learnRunt );  // the frame ends before its header does

class MacUnit : public Kiv::Entity {
   KIV_ENTITY( HobaSim::MacUnit );
   // How many hosts there is room for. Lowering it removes none.
   KIV_ATTRIBUTE( std::uint32_t, capacity, 131072 );
   // The port, LAG or VXLAN interface behind which the chip saw the host last.
   KIV_COLLECTION( Bridging::MacVlanPair, Pelt::IntfId, host );
   // How often each of these happened.
   KIV_COUNTER( std::uint64_t, frames );
   KIV_COUNTER( std::uint64_t, learnt );
   KIV_COUNTER( std::uint64_t, moved );
   KIV_COUNTER( std::uint64_t, hits );
   KIV_COUNTER( std::uint64_t, groupSourceRefused );
   KIV_COUNTER( std::uint64_t, zeroSourceRefused );
   KIV_COUNTER( std::uint64_t, badVlanRefused );
   KIV_COUNTER( std::uint64_t, runts );
   KIV_COUNTER( std::uint64_t, tableFull );
   KIV_COUNTER( std::uint64_t, aged );

 public:
   // Says of a port which LAG it is an active member of; the empty id for none.
   using LagOfPort = std::function< Pelt::IntfId( Pelt::IntfId port ) >;

   // Reports by `events`.
   MacUnit( Kiv::String const & unitName, Kiv::Ptr< EventUnit > const & events )
         : Entity( unitName ), events_( events ) {}

   // Without one no port is in a LAG.
   void lagOfPortIs( LagOfPort lagOfPort ) { lagOfPort_ = std::move( lagOfPort ); }

   // A frame from `addr` came in on `port`, in the VLAN. Hosts behind a member of a LAG are behind
   // the LAG. Throws Kiv::ParseError, and counts nothing, for a port as portTypeOf() (SimEvents.h).
   Learning learn( Pelt::IntfId port, Pelt::EthAddr addr, Bridging::VlanId vlanId );

   // The same for a frame as it is on the wire, or for the beginning of one, up to its header at
   // least. `portVlan` is the VLAN of frames without one of their own.
   Learning frame( Pelt::IntfId port, Bridging::VlanId portVlan,
                   std::span< std::uint8_t const > bytes );

   // The station has been silent for too long: forgotten, and reported. Throws Kiv::ParseError for a
   // station that is not in the table.
   void age( Bridging::MacVlanPair station );

   // Reports all hosts, in the order in which they were learnt.
   void reportHosts();

 private:
   Learning learnHost( Pelt::IntfId intf, Bridging::MacVlanPair station );

   Kiv::Ptr< EventUnit > const events_;
   LagOfPort lagOfPort_;
};

} // namespace HobaSim
