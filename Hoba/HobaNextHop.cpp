// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaNextHop.h"

#include "Hoba/HobaL2AdjTypes.h"

namespace Hoba {

Tunnel::TunnelId
NextHop::countedTunnelId() const {
   return allocationId.isTunnel() ? allocationId.tunnelId() : Tunnel::TunnelId();
}

bool
NextHop::isUsingSharedNhgCounter() const {
   return allocationId.isNhg() && allocationId.entryIdx() == AllocationId::sharedEntryIdx();
}

std::optional< NextHopGroupEntryKey >
NextHop::unsharedCountedNhgEntryKey() const {
   if( !allocationId.isNhg() || isUsingSharedNhgCounter() ) {
      return std::nullopt;
   }
   return NextHopGroupEntryKey{ .nhgId = allocationId.nhgId(),
                                .nhgEntryIndex =
                                      static_cast< std::uint32_t >( allocationId.entryIdx() ) };
}

bool
NextHop::isSmushedVxlanNextHop() const {
   return encapInfo.encapType() == Tunnel::TunnelTable::vxlanEncap() && l2Intf &&
          !macAddr.isZero() && !hierarchicalNextLevelL2Adj;
}

} // namespace Hoba
