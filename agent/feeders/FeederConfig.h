// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the feeders are told. On a switch other agents know which ports there are, how fast they
// run, whether a cable is plugged in, and with whom a LAG negotiates; here an operator, a test or an
// imported configuration says it, and the feeders make of it what those agents would have made.

#include "Bridging/VlanId.h"
#include "Interface/EthPhyIntfStatus.h"
#include "Kiv/Entity.h"
#include "Pelt/IntfId.h"
#include "types/HobaLagTypes.h"
#include "types/NonAging.h"

namespace Feeders {

// A port that the switch has.
class PortConfig : public Kiv::Entity {
   KIV_ENTITY( Feeders::PortConfig );
   KIV_ATTRIBUTE( Interface::EthMbps, speed );
   // The operator lets the port take part.
   KIV_ATTRIBUTE( bool, enabled, true );
   // The cable: plugged in, with a partner at its other end.
   KIV_ATTRIBUTE( bool, linkUp, true );
   // The VLAN of frames that come in without a tag.
   KIV_ATTRIBUTE( Bridging::VlanId, vlan );

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

class Config : public Kiv::Entity {
   KIV_ENTITY( Feeders::Config );
   // The ports of the switch. One comes into being here, and ceases to be when it is deleted.
   KIV_CHILDREN( Pelt::EthIntfId, PortConfig, port );
   KIV_CHILDREN( Pelt::PortChannelIntfId, LagConfig, lag );
   // By the client's name: stations that an agent wants never to age.
   KIV_CHILDREN( Kiv::String, Hoba::NonAgingConfig, nonAgingClient );

 public:
   explicit Config( Kiv::String const & configName = "config" ) : Entity( configName ) {}
};

} // namespace Feeders
