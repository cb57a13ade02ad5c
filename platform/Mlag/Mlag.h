// SPDX-License-Identifier: Apache-2.0
#pragma once

// Two switches that share LAGs: how that is going, and which stations the other one, the peer, knows.

#include "Bridging/DropMode.h"
#include "Bridging/EntryType.h"
#include "Bridging/MacVlanPair.h"
#include "Kiv/Entity.h"
#include "Kiv/Value.h"
#include "Mox/Seqno32.h"
#include "Pelt/IntfId.h"

namespace Mlag {

KIV_ENUM( MlagState, std::uint8_t, mlagDisabled = 0, mlagInactive, mlagActive );

// Of a LAG that both share: whether its members here, and there, are up.
KIV_ENUM( MlagIntfState, std::uint8_t, mlagIntfDisabled = 0, mlagIntfInactive,
          mlagIntfActivePartial, mlagIntfActiveFull );

class Status : public Kiv::Entity {
   KIV_ENTITY( Mlag::Status );
   KIV_ATTRIBUTE( MlagState, state, mlagDisabled );
   // The number under which both know what they share; 0 if there is none.
   KIV_ATTRIBUTE( std::uint16_t, domain, 0 );
   // The LAG, or port, between the two.
   KIV_ATTRIBUTE( Pelt::IntfId, peerLinkIntf );
   // When a shared LAG goes down here, the hardware itself sends what is for it over the peer link, and the
   // peer's stations behind the overlay need no entries of their own.
   KIV_ATTRIBUTE( bool, fastMacRedirectionEnabled, false );
   // The LAGs that both share, by the name that they have here.
   KIV_COLLECTION( Pelt::IntfId, MlagIntfState, mlagIntf );

 public:
   explicit Status( Kiv::String const & statusName = {} ) : Entity( statusName ) {}
};

// A station that the peer told of.
struct HostEntry {
   KIV_VALUE( Mlag::HostEntry );
   KIV_FIELD( Bridging::MacVlanPair, macEntry );
   // A LAG that both share, the peer link for a station that is behind the peer alone, or a VXLAN interface.
   KIV_FIELD( Pelt::IntfId, intf );
   // One of the peer's types.
   KIV_FIELD( Bridging::EntryType, entryType, Bridging::peerDynamicMac );
   KIV_FIELD( Mox::Seqno32, moves );
   KIV_FIELD( Kiv::Seconds, lastMoveTime, 0 );
   // The peer says: it is yours if you learn it.
   KIV_FIELD( bool, promote, false );
   // Of a station behind a tunnel: the group of end points.
   KIV_FIELD( std::uint32_t, tunnelGroup, 0 );
};

class HostTable : public Kiv::Entity {
   KIV_ENTITY( Mlag::HostTable );
   KIV_KEYED( HostEntry, Bridging::MacVlanPair, macEntry, hostEntry );

 public:
   explicit HostTable( Kiv::String const & tableName = {} ) : Entity( tableName ) {}
};

} // namespace Mlag
