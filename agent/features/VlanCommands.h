// SPDX-License-Identifier: Apache-2.0
#pragma once

// What operators see of VLANs.

#include "Hoba/HobaCommon.h"
#include "agent/Commands.h"
#include "agent/feeders/VlanFeeder.h"
#include "types/HobaTypes.h"

namespace HobaAgent {

// Of which VLANs, on which switch; all by what its machines made of the configuration.
struct VlanView {
   Hoba::HobaCommonSmData const & context;
   Feeders::Config const & config;
   Hoba::PortVlanMembership const & membership;
   Feeders::VlanFeeder const & feeder;
   HobaTypes::MacTable const * macTable; // null: stations are not known
};

// The arguments of `show vlan`, both optional: "vlan", and "port" for those that an interface carries.
std::vector< Argument > vlanArguments();

// One line for each VLAN: its state, how many stations are in it, who carries it. Throws
// Kiv::ParseError for a VLAN or an interface that the switch does not have.
Kiv::Datum showVlans( VlanView const & view, Request const & request );

} // namespace HobaAgent
