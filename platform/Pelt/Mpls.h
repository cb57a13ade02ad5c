// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Value.h"

#include <vector>

namespace Pelt {

// 0 to 15 have meanings of their own (RFC 7274).
KIV_RANGED( MplsLabel, std::uint32_t, 0, 1048575, 3,
            "Pelt::MplsLabel::value > 1048575 not allowed" );
// The label behind it is an entropy label (RFC 6790).
inline const MplsLabel entropyLabelIndicator( 7 );

KIV_RANGED( MplsLabelOrNone, std::uint32_t, 0, 1048576, 1048576,
            "Pelt::MplsLabelOrNone::value > 1048576 not allowed" );
constexpr std::uint32_t noMplsLabel = 1048576;

KIV_ENUM( MplsLabelAction, std::uint8_t, mplsLabelNone = 0 KIV_SHOWN( "none" ),
          mplsLabelPush KIV_SHOWN( "push" ), mplsLabelSwap KIV_SHOWN( "swap" ),
          mplsLabelPop KIV_SHOWN( "pop" ) );

// What is done about the labels of a packet.
struct MplsLabelOperation {
   KIV_VALUE( Pelt::MplsLabelOperation );
   static constexpr std::size_t maxStackSize = 12;

   KIV_FIELD( MplsLabelAction, operation, mplsLabelPush );
   // The first is the top. Empty for mplsLabelPop.
   KIV_FIELD( std::vector< MplsLabel >, stack );

   // Throws Kiv::RangeException for more than maxStackSize labels.
   void check() const;
};

} // namespace Pelt
