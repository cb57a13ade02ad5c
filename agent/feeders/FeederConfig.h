// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the feeders are told. On a switch other agents know which ports there are, how fast they
// run, whether a cable is plugged in, and with whom a LAG negotiates; here an operator, a test or an
// imported configuration says it, and the feeders make of it what those agents would have made.

#include "Bridging/SwitchIntfConfig.h"
#include "Interface/EthPhyIntfStatus.h"
#include "Kiv/Entity.h"
#include "Pelt/IntfId.h"
#include "agent/feeders/AdjacencyConfig.h"
#include "types/HobaLagTypes.h"
#include "types/NonAging.h"
#include "types/RemoteMac.h"

namespace Feeders {

// A port that the switch has.
class PortConfig : public Kiv::Entity {
   KIV_ENTITY( Feeders::PortConfig );
   KIV_ATTRIBUTE( Interface::EthMbps, speed );
   // The operator lets the port take part.
   KIV_ATTRIBUTE( bool, enabled, true );
   // The cable: plugged in, with a partner at its other end.
   KIV_ATTRIBUTE( bool, linkUp, true );

 public:
   explicit PortConfig( Pelt::EthIntfId intf ) : Entity( Kiv::toText( intf ) ) {}
};

// A LAG that the operator made. Which ports are in it, Lag::Input::Config says.
class LagConfig : public Kiv::Entity {
   KIV_ENTITY( Feeders::LagConfig );
   // The operator lets the LAG take part. No port is an active member of one that may not.
   KIV_ATTRIBUTE( bool, enabled, true );
   // With fewer ports that could be active members, none is. 0 asks for nothing.
   KIV_ATTRIBUTE( std::uint16_t, minLinks, 0 );
   KIV_ATTRIBUTE( HobaTypes::HobaLagType, kind, HobaTypes::lagTypeStatic );
   // For a LAG that negotiates by LACP. The other end: whether it speaks LACP. While it does not,
   // no port is an active member, and with the fallback the ports run individually.
   KIV_ATTRIBUTE( bool, lacpPartner, true );
   KIV_ATTRIBUTE( bool, lacpFallback, false );

 public:
   explicit LagConfig( Pelt::PortChannelIntfId lag ) : Entity( Kiv::toText( lag ) ) {}
};

// A VLAN that the operator made.
class VlanConfig : public Kiv::Entity {
   KIV_ENTITY( Feeders::VlanConfig );
   // The operator lets the VLAN take part. One that may not is carried by nobody.
   KIV_ATTRIBUTE( bool, active, true );
   // The ports and LAGs that carry it if they are trunks.
   KIV_SET( Pelt::IntfId, member );
   // Stations are learnt in it.
   KIV_ATTRIBUTE( bool, macLearning, true );
   // Of a secondary VLAN of a private VLAN: the primary one.
   KIV_ATTRIBUTE( Bridging::VlanIdOrNone, primaryVlan );

 public:
   explicit VlanConfig( Bridging::VlanId vlanId ) : Entity( Kiv::toText( vlanId ) ) {}
};

class Config : public Kiv::Entity {
   KIV_ENTITY( Feeders::Config );
   // The ports of the switch. One comes into being here, and ceases to be when it is deleted.
   KIV_CHILDREN( Pelt::EthIntfId, PortConfig, port );
   KIV_CHILDREN( Pelt::PortChannelIntfId, LagConfig, lag );
   // VLAN 1 is there from the start; it may be taken away as others may.
   KIV_CHILDREN( Bridging::VlanId, VlanConfig, vlan );
   // By port or LAG. Without an entry it is an access port of VLAN 1. What is said of the members
   // of a LAG does not count: the LAG stands for them.
   KIV_CHILDREN( Pelt::IntfId, Bridging::SwitchIntfConfig, switchIntf );
   // By the client's name: stations that an agent wants never to age.
   KIV_CHILDREN( Kiv::String, Hoba::NonAgingConfig, nonAgingClient );
   // Stations that the overlay's control plane tells of.
   KIV_KEYED( HobaTypes::RemoteMacAddressTableEntry, Bridging::MacVlanPair, macEntry, evpnMac );
   // Collections of next hops, by name, and the adjacencies that use them.
   KIV_CHILDREN( Kiv::String, NextHopCollectionConfig, nextHopCollection );
   KIV_CHILDREN( Glim::Fib::GlobalFecId, AdjacencyConfig, adjacency );
   // How long the hardware takes, in seconds, until it has an id for a next hop; and the ids of some next
   // hops, 0 for one that never gets any. Others have ids of their own.
   KIV_ATTRIBUTE( Kiv::Seconds, hwIdDelay, 0 );
   KIV_COLLECTION( L2Rib::ObjTuple, std::uint64_t, hwId );

 public:
   explicit Config( Kiv::String const & configName = "config" ) : Entity( configName ) {
      vlanIs( Bridging::VlanId( 1 ) );
   }

   // As the interface is configured, or as one without configuration is.
   Bridging::SwitchportMode switchportMode( Pelt::IntfId intf ) const;
   Bridging::VlanIdOrNone nativeVlan( Pelt::IntfId intf ) const;

 private:
   Bridging::SwitchIntfConfig const & switchIntfOf( Pelt::IntfId intf ) const;

   Kiv::Ptr< Bridging::SwitchIntfConfig const > const unconfigured_ =
         Kiv::make< Bridging::SwitchIntfConfig const >( Pelt::IntfId() );
};

} // namespace Feeders
