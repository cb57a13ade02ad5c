// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a chip reads in the first octets of an Ethernet frame, and what it writes there.

#include "Bridging/VlanId.h"
#include "Kiv/Value.h"
#include "Pelt/EthAddr.h"
#include "types/HobaLagTypes.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace HobaSim {

KIV_ENUM( FrameFault, std::uint8_t, frameSound = 0,
          frameRunt,        // ends before its header does, whatever that says
          frameReservedVlan // its outermost tag is of VLAN 4095
);

// By which Ethernet types a port recognises tags. A port of which nobody said anything takes for an
// outer tag both what customers (0x8100, 802.1Q) and what providers (0x88a8, 802.1ad) write, and 0x8100
// for an inner one. A port that was told takes these two only, and tags what leaves with the outer.
struct FrameTpids {
   KIV_VALUE( HobaSim::FrameTpids );
   KIV_FIELD( std::uint16_t, outer, 0x8100 );
   KIV_FIELD( std::uint16_t, alsoOuter, 0x88a8 );
   KIV_FIELD( std::uint16_t, inner, 0x8100 );

   static FrameTpids of( Hoba::HobaPortVlanTpidData const & told ) {
      return { told.tpid, told.tpid, told.innerTpid };
   }
};

struct FrameTag {
   KIV_VALUE( HobaSim::FrameTag );
   KIV_FIELD( std::uint16_t, tpid );
   KIV_FIELD( std::uint8_t, priority ); // 0 to 7
   KIV_FIELD( bool, dropEligible );
   // 0: it gives a priority only. 0 to 4095.
   KIV_FIELD( std::uint16_t, vlan );
};

struct FrameHeader {
   KIV_VALUE( HobaSim::FrameHeader );
   // When there is a fault, nothing else counts.
   KIV_FIELD( FrameFault, fault, frameSound );
   KIV_FIELD( Pelt::EthAddr, destination );
   KIV_FIELD( Pelt::EthAddr, source );
   // The tags that the port recognises, from the outside. A tag behind these is payload.
   KIV_FIELD( std::uint8_t, tags, 0 );
   KIV_FIELD( FrameTag, outer );
   KIV_FIELD( FrameTag, inner );
   // Of what stands behind the tags: 0x800 for IPv4; below 0x600 a length.
   KIV_FIELD( std::uint16_t, etherType );
   // In octets, tags included.
   KIV_FIELD( std::uint8_t, size, 0 );

   // Of the outermost tag; none without a tag, and with one that gives a priority only.
   Bridging::VlanIdOrNone vlanId() const { return Bridging::VlanIdOrNone( outer.vlan ); }
};

// Reads the 14 octets of a header, and 4 for each tag. What comes behind is not looked at, and need
// not be there.
FrameHeader readFrameHeader( std::span< std::uint8_t const > frame, FrameTpids const & tpids = {} );

// The octets of such a header, for a frame that is made or tagged anew: as many tags as it says.
std::vector< std::uint8_t > frameHeaderOctets( FrameHeader const & header );

// "untagged", "tagged 10", "tagged 10 (0x88a8) and 20": tags as people read them.
Kiv::String tagsText( FrameHeader const & header );

} // namespace HobaSim
