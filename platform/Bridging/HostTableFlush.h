// SPDX-License-Identifier: Apache-2.0
#pragma once

// How other agents have stations forgotten. Each has a directory of its own, under its name, writes a request
// there under a key that it chooses, and finds the answer, true, under the same key in the directory of
// replies of that name. It removes the request when it has read the answer, which goes with it.

#include "Bridging/MacVlanPair.h"
#include "Kiv/Entity.h"
#include "Kiv/Value.h"
#include "Pelt/IntfId.h"

namespace Bridging {

// Which stations. With an address, that one: in the VLAN, or in all if there is none; the interface does not
// count then. Without one, those behind the interface, those of the VLAN, or those for which both is true.
// With nothing, all.
struct HostTableFlushRequest {
   KIV_VALUE( Bridging::HostTableFlushRequest );
   KIV_FIELD( VlanIdOrNone, vlanId );
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( Pelt::EthAddr, addr );
};

class HostTableFlushRequestDir : public Kiv::Entity {
   KIV_ENTITY( Bridging::HostTableFlushRequestDir );
   KIV_COLLECTION( Kiv::String, HostTableFlushRequest, request );

 public:
   explicit HostTableFlushRequestDir( Kiv::String const & agent = {} ) : Entity( agent ) {}
};

class HostTableFlushReplyDir : public Kiv::Entity {
   KIV_ENTITY( Bridging::HostTableFlushReplyDir );
   KIV_COLLECTION( Kiv::String, bool, reply );

 public:
   explicit HostTableFlushReplyDir( Kiv::String const & agent = {} ) : Entity( agent ) {}
};

class AllHostTableFlushRequestDir : public Kiv::Entity {
   KIV_ENTITY( Bridging::AllHostTableFlushRequestDir );
   KIV_CHILDREN( Kiv::String, HostTableFlushRequestDir, agent );

 public:
   explicit AllHostTableFlushRequestDir( Kiv::String const & dirName = {} ) : Entity( dirName ) {}
};

class AllHostTableFlushReplyDir : public Kiv::Entity {
   KIV_ENTITY( Bridging::AllHostTableFlushReplyDir );
   KIV_CHILDREN( Kiv::String, HostTableFlushReplyDir, agent );

 public:
   explicit AllHostTableFlushReplyDir( Kiv::String const & dirName = {} ) : Entity( dirName ) {}
};

} // namespace Bridging
