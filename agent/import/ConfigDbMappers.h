// SPDX-License-Identifier: Apache-2.0
#pragma once

// The tables of ports, LAGs, VLANs and storm control. Each takes the entities that it writes.

#include "Bridging/StormControl.h"
#include "Lag/Lag.h"
#include "agent/feeders/FeederConfig.h"
#include "agent/import/Tables.h"

namespace Import {

// PORT
void addPortTables( Tables & tables, Kiv::Ptr< Feeders::Config > const & config );
// PORTCHANNEL, PORTCHANNEL_MEMBER
void addLagTables( Tables & tables, Kiv::Ptr< Feeders::Config > const & config,
                   Kiv::Ptr< Lag::Input::Config > const & lagInput );
// VLAN, VLAN_MEMBER, and the switchport mode of ports and LAGs
void addVlanTables( Tables & tables, Kiv::Ptr< Feeders::Config > const & config,
                    Kiv::Ptr< Lag::Input::Config > const & lagInput );
// PORT_STORM_CONTROL
void addStormControlTables( Tables & tables,
                            Kiv::Ptr< Bridging::StormControl::Config > const & config );

} // namespace Import
