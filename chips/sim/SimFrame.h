// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a chip reads in the first octets of an Ethernet frame.

#include "Bridging/VlanId.h"
#include "Kiv/Value.h"
#include "Pelt/EthAddr.h"

#include <cstdint>
#include <span>

namespace HobaSim {

KIV_ENUM( FrameFault, std::uint8_t, frameSound = 0,
          frameRunt,        // ends before its header does
          frameReservedVlan // tagged with 4095
);

struct FrameHeader {
   KIV_VALUE( HobaSim::FrameHeader );
   // When there is a fault, nothing else counts.
   KIV_FIELD( FrameFault, fault, frameSound );
   KIV_FIELD( Pelt::EthAddr, destination );
   KIV_FIELD( Pelt::EthAddr, source );
   // Of the outermost tag, 802.1Q (0x8100) or 802.1ad (0x88a8); none without a tag, and with a tag
   // that gives a priority only.
   KIV_FIELD( Bridging::VlanIdOrNone, vlanId );
};

// Reads the 14 octets of a header, or the 18 of one with a tag. What comes behind is not looked at,
// and need not be there.
FrameHeader readFrameHeader( std::span< std::uint8_t const > frame );

} // namespace HobaSim
