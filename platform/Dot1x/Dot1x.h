// SPDX-License-Identifier: Apache-2.0
#pragma once

// Ports that let in only who has proven who he is (802.1X).

#include "Bridging/MacVlanPair.h"
#include "Kiv/Entity.h"
#include "Kiv/Value.h"
#include "Pelt/IntfId.h"

namespace Dot1x {

KIV_ENUM( PortAuthState, std::uint8_t, portUnauthorized = 0, portAuthorized );

KIV_ENUM( HostMode, std::uint8_t,
          multiHost = 0,    // when one has proven itself the port is open to all
          singleHost,       // one station, which has proven itself
          restrictedHost ); // those that have proven themselves, and no others

class IntfStatus : public Kiv::Entity {
   KIV_ENTITY( Dot1x::IntfStatus );
   KIV_ATTRIBUTE( PortAuthState, portAuthState, portUnauthorized );
   KIV_ATTRIBUTE( HostMode, hostMode, multiHost );
   // A station's address is enough of a proof, if the server knows it.
   KIV_ATTRIBUTE( bool, macBasedAuth, false );

 public:
   explicit IntfStatus( Pelt::IntfId intf ) : Entity( Kiv::toText( intf ) ) {}
};

class Status : public Kiv::Entity {
   KIV_ENTITY( Dot1x::Status );
   KIV_ATTRIBUTE( bool, enabled, false );
   // The ports that ask for a proof. Of others nothing is said.
   KIV_CHILDREN( Pelt::IntfId, IntfStatus, intfStatus );

 public:
   explicit Status( Kiv::String const & statusName = {} ) : Entity( statusName ) {}
};

// A station that has proven itself.
struct HostEntry {
   KIV_VALUE( Dot1x::HostEntry );
   KIV_FIELD( Bridging::MacVlanPair, macEntry );
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( Kiv::Seconds, since, 0 );
};

class HostTable : public Kiv::Entity {
   KIV_ENTITY( Dot1x::HostTable );
   KIV_KEYED( HostEntry, Bridging::MacVlanPair, macEntry, hostEntry );

 public:
   explicit HostTable( Kiv::String const & tableName = {} ) : Entity( tableName ) {}
};

} // namespace Dot1x
