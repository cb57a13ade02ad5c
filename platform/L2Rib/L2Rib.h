// SPDX-License-Identifier: Apache-2.0
#pragma once

// The layer-2 routing table: which stations are behind which objects, and what these objects are.

#include "Bridging/DropMode.h"
#include "Bridging/EntryType.h"
#include "Bridging/MacVlanPair.h"
#include "Kiv/Entity.h"
#include "Kiv/Value.h"
#include "L2Rib/ObjTuple.h"
#include "Mox/Seqno32.h"
#include "Pelt/IntfId.h"

#include <vector>

namespace L2Rib {

// Who put the station into the table.
KIV_ENUM( Source, std::uint8_t, sourceNone = 0, sourceLocal, sourceMlag, sourceBgp,
          sourceBgpEvpnMpls, sourceController, sourceTest );

struct Host {
   KIV_VALUE( L2Rib::Host );
   KIV_FIELD( Bridging::MacVlanPair, macEntry );
   KIV_FIELD( Source, source, sourceBgp );
   KIV_FIELD( Bridging::EntryType, entryType, Bridging::evpnDynamicRemoteMac );
   // What it resolves through.
   KIV_FIELD( ObjTuple, objTuple );
   KIV_FIELD( Mox::Seqno32, moves );
   KIV_FIELD( Kiv::Seconds, lastMoveTime, 0 );
   // The higher wins.
   KIV_FIELD( std::uint8_t, preference, 16 );
   KIV_FIELD( Bridging::DropMode, dropMode, Bridging::dropModeNone );
};

class HostOutput : public Kiv::Entity {
   KIV_ENTITY( L2Rib::HostOutput );
   KIV_KEYED( Host, Bridging::MacVlanPair, macEntry, host );

 public:
   explicit HostOutput( Kiv::String const & outputName = {} ) : Entity( outputName ) {}
};

KIV_ENUM( DestKind, std::uint8_t, destTunnel = 0, // behind a VXLAN tunnel
          destMpls,                               // behind a label
          destIntf,                               // behind a port or LAG of this switch
          destDrop );                             // nowhere

// A next hop has no id yet.
constexpr std::uint32_t nextHopUnresolved = 0;
// It can have none.
constexpr std::uint32_t nextHopInvalid = UINT32_MAX;

struct Dest {
   KIV_VALUE( L2Rib::Dest );
   KIV_FIELD( ObjTuple, objTuple );
   KIV_FIELD( DestKind, kind, destTunnel );
   // The VXLAN interface; of destIntf the port or LAG.
   KIV_FIELD( Pelt::IntfId, intf );
   // Of destTunnel: the group of tunnel end points.
   KIV_FIELD( std::uint32_t, tunnelGroup, 0 );
   // The next hop's id in software.
   KIV_FIELD( std::uint32_t, nextHopId, nextHopUnresolved );
};

class DestOutput : public Kiv::Entity {
   KIV_ENTITY( L2Rib::DestOutput );
   KIV_KEYED( Dest, ObjTuple, objTuple, dest );

 public:
   explicit DestOutput( Kiv::String const & outputName = {} ) : Entity( outputName ) {}
};

// Several destinations. It is behind the interface of the first.
struct LoadBalance {
   KIV_VALUE( L2Rib::LoadBalance );
   KIV_FIELD( ObjTuple, objTuple );
   KIV_FIELD( std::vector< ObjTuple >, dest );
   KIV_FIELD( std::uint32_t, nextHopId, nextHopUnresolved );
};

class LoadBalanceOutput : public Kiv::Entity {
   KIV_ENTITY( L2Rib::LoadBalanceOutput );
   KIV_KEYED( LoadBalance, ObjTuple, objTuple, loadBalance );

 public:
   explicit LoadBalanceOutput( Kiv::String const & outputName = {} ) : Entity( outputName ) {}
};

} // namespace L2Rib
