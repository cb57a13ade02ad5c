// SPDX-License-Identifier: Apache-2.0
#pragma once

// Filtering databases: the stations of a VLAN, as they are configured and as the switch forwards to them.
// Each VLAN has one of its own, under its number.

#include "Bridging/DropMode.h"
#include "Bridging/EntryType.h"
#include "Bridging/MacVlanPair.h"
#include "Kiv/Entity.h"
#include "Kiv/Value.h"
#include "Mox/Seqno32.h"
#include "Pelt/IntfId.h"

namespace Bridging {

// A station that the operator put somewhere.
struct ConfiguredHost {
   KIV_VALUE( Bridging::ConfiguredHost );
   KIV_FIELD( Pelt::EthAddr, address );
   // A port, a LAG, or the CPU port. Without one, the station is nowhere: frames to it are dropped, which is
   // what dropMode is for.
   KIV_FIELD( Pelt::IntfId, intf );
   // configuredStaticMac, or configuredDynamicMac: it stays there until it is seen elsewhere.
   KIV_FIELD( EntryType, entryType, configuredStaticMac );
   KIV_FIELD( DropMode, dropMode, dropModeNone );
   // When the operator said so; what moved later is more recent than a dynamic one.
   KIV_FIELD( Kiv::Seconds, since, 0 );
};

class FdbConfig : public Kiv::Entity {
   KIV_ENTITY( Bridging::FdbConfig );
   KIV_KEYED( ConfiguredHost, Pelt::EthAddr, address, configuredHost );

 public:
   explicit FdbConfig( VlanId vlanId ) : Entity( Kiv::toText( vlanId ) ) {}
};

// A station that the switch knows, whoever said so.
struct LearnedHost {
   KIV_VALUE( Bridging::LearnedHost );
   KIV_FIELD( Pelt::EthAddr, address );
   // Of a station behind a tunnel the VXLAN interface.
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( EntryType, entryType, entryTypeUnknown );
   KIV_FIELD( DropMode, dropMode, dropModeNone );
   // How often it moved from one place to another, and when last; when it came, if it never did.
   KIV_FIELD( Mox::Seqno32, moves );
   KIV_FIELD( Kiv::Seconds, lastMoveTime, 0 );
};

class FdbStatus : public Kiv::Entity {
   KIV_ENTITY( Bridging::FdbStatus );
   KIV_KEYED( LearnedHost, Pelt::EthAddr, address, learnedHost );

 public:
   explicit FdbStatus( VlanId vlanId ) : Entity( Kiv::toText( vlanId ) ) {}
};

// What holds: a database for each VLAN that has stations.
class Status : public Kiv::Entity {
   KIV_ENTITY( Bridging::Status );
   KIV_CHILDREN( VlanId, FdbStatus, fdbStatus );

 public:
   explicit Status( Kiv::String const & statusName = {} ) : Entity( statusName ) {}
};

// Stations that the operator configured as dynamic ones, as long as they are where he put them.
class DynamicHostStatus : public Kiv::Entity {
   KIV_ENTITY( Bridging::DynamicHostStatus );
   KIV_COLLECTION( MacVlanPair, Pelt::IntfId, host );

 public:
   explicit DynamicHostStatus( Kiv::String const & statusName = {} ) : Entity( statusName ) {}
};

} // namespace Bridging
