// SPDX-License-Identifier: Apache-2.0
#pragma once

// How the switch bridges, by the operator's word.

#include "Bridging/Fdb.h"

namespace Bridging {

class Config : public Kiv::Entity {
   KIV_ENTITY( Bridging::Config );
   // How long a station may be silent until it is forgotten. 0: it never is.
   KIV_ATTRIBUTE( Kiv::Seconds, hostAgingTime, 300 );
   // Frames are dropped whose source is no address of a station: a group's, or zero.
   KIV_ATTRIBUTE( bool, sourceMacInvalid, false );
   // Frames are dropped whose source is an address of the switch itself.
   KIV_ATTRIBUTE( bool, sourceCheckCpuMac, false );
   KIV_CHILDREN( VlanId, FdbConfig, fdbConfig );

 public:
   explicit Config( Kiv::String const & configName = {} ) : Entity( configName ) {}
};

// A VLAN as other agents see it.
class VlanConfig : public Kiv::Entity {
   KIV_ENTITY( Bridging::VlanConfig );
   // Stations are learnt in it.
   KIV_ATTRIBUTE( bool, macLearning, true );
   // Of a secondary VLAN of a private VLAN: the primary one.
   KIV_ATTRIBUTE( VlanIdOrNone, primaryVlan );
   // The ports and LAGs that carry it.
   KIV_SET( Pelt::IntfId, intf );

 public:
   explicit VlanConfig( VlanId vlanId ) : Entity( Kiv::toText( vlanId ) ) {}
};

class VlanConfigDir : public Kiv::Entity {
   KIV_ENTITY( Bridging::VlanConfigDir );
   KIV_CHILDREN( VlanId, VlanConfig, vlanConfig );

 public:
   explicit VlanConfigDir( Kiv::String const & dirName = {} ) : Entity( dirName ) {}
};

} // namespace Bridging
