// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the operator says of the Ethernet ports.

#include "Kiv/Entity.h"
#include "Pelt/IntfId.h"

namespace Interface {

class EthPhyIntfConfig : public Kiv::Entity {
   KIV_ENTITY( Interface::EthPhyIntfConfig );
   // The port may take part.
   KIV_ATTRIBUTE( bool, enabled, true );

 public:
   explicit EthPhyIntfConfig( Pelt::IntfId intf ) : Entity( Kiv::toText( intf ) ) {}
};

class EthPhyIntfConfigDir : public Kiv::Entity {
   KIV_ENTITY( Interface::EthPhyIntfConfigDir );
   KIV_CHILDREN( Pelt::IntfId, EthPhyIntfConfig, ethPhyIntfConfig );

 public:
   explicit EthPhyIntfConfigDir( Kiv::String const & dirName = {} ) : Entity( dirName ) {}
};

} // namespace Interface
