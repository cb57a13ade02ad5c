// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the tests of the MAC programmer share.

#include "HobaTest.h"
#include "simulation/MacProgrammerCheck.h"

namespace HobaTest {

using Hoba::IndirectAccessMacCmdType;
using Hoba::MacEntryKey;
using Hoba::MacProgramStatus;
using MacCmd = Kiv::Ptr< Hoba::IndirectAccessMacCmd >;
using Simulation::MacProgrammerCheck;

inline MacEntryKey
macKey( std::uint64_t number ) {
   return { { Pelt::EthAddr( 0x020000000000 + number ), Bridging::VlanId( 10 ) } };
}

inline MacCmd
macCmd( IndirectAccessMacCmdType op, std::uint64_t number = 0, std::uint64_t hwId = 0 ) {
   return Hoba::indirectAccessMacCmdFactory( op, macKey( number ), Pelt::EthIntfId( 1 ),
                                             Bridging::entryTypeUnknown, 0, hwId );
}

} // namespace HobaTest
