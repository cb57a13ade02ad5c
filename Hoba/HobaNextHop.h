// SPDX-License-Identifier: Apache-2.0
#pragma once

// One resolved next hop: everything that a chip must know to send a packet on.

#include "Bridging/VlanId.h"
#include "Hoba/HobaEncapInfo.h"
#include "Kiv/PtrByKey.h"

#include <optional>

namespace Hoba {

// Hoba/HobaL2AdjTypes.h; to be included where next hops are compared.
class L2Adjacency;

struct NextHop {
   KIV_VALUE( Hoba::NextHop );

   KIV_FIELD( NextHopType, type, nextHopDrop );
   // Where packets go to.
   KIV_FIELD( Pelt::EthAddr, macAddr );
   KIV_FIELD( Pelt::IntfId, l3Intf );
   KIV_FIELD( Pelt::IntfId, l2Intf );
   KIV_FIELD( EncapInfo, encapInfo );
   // The hardware's own number of l2Intf; 0 for none.
   KIV_FIELD( std::uint32_t, l2IntfHwId, 0 );
   KIV_FIELD( Tunnel::TunnelId, hwTunnelId );
   KIV_FIELD( TunnelL2Info, tunnelL2Info );
   // Of nextHopHierarchical: where the choice goes on. What it is, is what its key is.
   KIV_FIELD( Kiv::PtrByKey< L2Adjacency >, hierarchicalNextLevelL2Adj );
   // Of nextHopFlow.
   KIV_FIELD( Pelt::EthAddr, flowSmac );
   KIV_FIELD( std::uint32_t, flowInfo, 0 );
   KIV_FIELD( std::uint32_t, flowVlan, 0 );
   // What packets leave with, where it is not the interface's own.
   KIV_FIELD( Pelt::EthAddr, sourceMac );
   KIV_FIELD( Bridging::VlanIdOrNone, vlanId );
   KIV_FIELD( bool, skipEgressAcl, false );
   // What is counted by.
   KIV_FIELD( AllocationId, allocationId );
   KIV_FIELD( Pelt::IntfId, staticInterfaceTunnelIntfId );

   // The encapsulation by kind. Reading throws Kiv::Exception if it is of another kind, or there is none;
   // setting leaves alone who shares it.
   Pelt::MplsLabelOperation const & labels() const { return encapInfo.labels(); }
   void labelsIs( Pelt::MplsLabelOperation const & labels ) { encapInfo.labelsIs( labels ); }
   Tunnel::GreTunnelInfo const & greEncap() const { return encapInfo.greEncap(); }
   void greEncapIs( Tunnel::GreTunnelInfo const & encap ) { encapInfo.greEncapIs( encap ); }
   IpsecTunnelInfo const & ipsecEncap() const { return encapInfo.ipsecEncap(); }
   void ipsecEncapIs( IpsecTunnelInfo const & encap ) { encapInfo.ipsecEncapIs( encap ); }
   VxlanEncapInfo const & vxlanEncap() const { return encapInfo.vxlanEncap(); }
   void vxlanEncapIs( VxlanEncapInfo const & encap ) { encapInfo.vxlanEncapIs( encap ); }

   // The tunnel whose packets are counted; none where something else or nothing is.
   Tunnel::TunnelId countedTunnelId() const;
   // It is an entry of a group whose entries are counted together.
   bool isUsingSharedNhgCounter() const;
   // The entry of a group that is counted by itself; nothing where something else or nothing is.
   std::optional< NextHopGroupEntryKey > unsharedCountedNhgEntryKey() const;
   // It goes into a VXLAN tunnel, and says itself how its packets leave the switch: there is no further
   // adjacency that does.
   bool isSmushedVxlanNextHop() const;
};

} // namespace Hoba
