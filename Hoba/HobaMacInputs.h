// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the machine of MAC addresses watches and writes: a struct with a name for each, since nobody counts
// thirty arguments right. Null is as empty.
//
//    Hoba::MacAddrInputs inputs;
//    inputs.macTable = macTable;
//    inputs.bridgingStatus = status;
//    auto const sm = Hoba::MacAddrSm::MacAddrSmIs( context, helper, inputs );

#include "Bridging/Config.h"
#include "Bridging/HostTableFlush.h"
#include "Bridging/SwitchIntfConfig.h"
#include "Dot1x/Dot1x.h"
#include "FastServerFailover/FastServerFailover.h"
#include "Hoba/HobaPortVlanMembership.h"
#include "Interface/EthPhyIntfConfig.h"
#include "Interface/EthPhyIntfStatus.h"
#include "L2Rib/L2Rib.h"
#include "Mlag/Mlag.h"
#include "Vxlan/Vxlan.h"
#include "types/HobaTypes.h"
#include "types/NonAging.h"
#include "types/RemoteMac.h"

namespace Hoba {

struct MacAddrInputs {
   // ---- Watched
   Kiv::Ptr< HobaTypes::MacTable const > macTable;
   Kiv::Ptr< Bridging::Config const > bridgingConfig;
   Kiv::Ptr< Bridging::SwitchIntfConfigDir const > switchIntfConfigDir;
   Kiv::Ptr< Bridging::VlanConfigDir const > vlanConfigDir;
   Kiv::Ptr< Interface::EthPhyIntfConfigDir const > ethPhyIntfConfigDir;
   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > ethPhyIntfStatusDir;
   Kiv::Ptr< PortVlanMembership const > portVlanMembership;
   Kiv::Ptr< Mlag::Status const > mlagStatus;
   Kiv::Ptr< Mlag::HostTable const > mlagHostTable;
   Kiv::Ptr< L2Rib::HostOutput const > l2RibHostOutput;
   Kiv::Ptr< L2Rib::DestOutput const > l2RibDestOutput;
   Kiv::Ptr< L2Rib::LoadBalanceOutput const > l2RibLoadBalanceOutput;
   Kiv::Ptr< ObjTupleToHwId const > objTupleToHwId;
   Kiv::Ptr< SwTunnelGroupIdMap const > swTunnelGroupIdMap;
   Kiv::Ptr< HobaTypes::RemoteMacTable const > evpnMacTable;
   Kiv::Ptr< Vxlan::VxlanConfigDir const > vxlanConfigDir;
   Kiv::Ptr< Vxlan::VlanVniMap const > vlanVniMap;
   Kiv::Ptr< HobaTypes::RouterMacTable const > routerMacTable;
   Kiv::Ptr< Dot1x::Status const > dot1xStatus;
   Kiv::Ptr< Dot1x::HostTable const > dot1xHostTable;
   Kiv::Ptr< NonAgingStatus const > nonAgingStatus;
   Kiv::Ptr< FastServerFailover::Status const > fsfStatus;
   Kiv::Ptr< Bridging::AllHostTableFlushRequestDir const > flushRequestDir;

   // ---- Written; nobody else does
   Kiv::Ptr< Bridging::Status > bridgingStatus;
   Kiv::Ptr< Bridging::DynamicHostStatus > dynamicHostStatus;
   Kiv::Ptr< Bridging::AllHostTableFlushReplyDir > flushReplyDir;
   // Written in part: see its declaration. Requests to flush remote stations are removed from it. The machine
   // makes one of its own if there is none.
   Kiv::Ptr< HobaTypes::RemoteMacInfoDir > rmacInfoDir;
};

} // namespace Hoba
