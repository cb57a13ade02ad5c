// SPDX-License-Identifier: Apache-2.0
#pragma once

// The overlay: which VLANs it carries under which numbers, and which stations are said to be behind it.

#include "Bridging/EntryType.h"
#include "Bridging/MacVlanPair.h"
#include "Kiv/Entity.h"
#include "Kiv/Value.h"
#include "Mox/Seqno32.h"
#include "Pelt/IntfId.h"

namespace Vxlan {

KIV_RANGED( Vni, std::uint32_t, 1, 16777215, 1, "Vxlan::Vni::value < 1 or > 16777215 not allowed" );

// A station that the operator put behind a tunnel.
struct ConfiguredRemoteHost {
   KIV_VALUE( Vxlan::ConfiguredRemoteHost );
   KIV_FIELD( Bridging::MacVlanPair, macEntry );
   // The group of tunnel end points.
   KIV_FIELD( std::uint32_t, tunnelGroup, 0 );
};

class VxlanConfig : public Kiv::Entity {
   KIV_ENTITY( Vxlan::VxlanConfig );
   // The VLANs that the overlay carries.
   KIV_COLLECTION( Bridging::VlanId, Vni, vlanVni );
   KIV_KEYED( ConfiguredRemoteHost, Bridging::MacVlanPair, macEntry, remoteHost );
   // A controller says which stations are behind tunnels: what is learnt there counts for nothing.
   KIV_ATTRIBUTE( bool, controllerClient, false );

 public:
   explicit VxlanConfig( Pelt::VxlanIntfId intf ) : Entity( Kiv::toText( intf ) ) {}
};

class VxlanConfigDir : public Kiv::Entity {
   KIV_ENTITY( Vxlan::VxlanConfigDir );
   KIV_CHILDREN( Pelt::VxlanIntfId, VxlanConfig, vxlanConfig );

 public:
   explicit VxlanConfigDir( Kiv::String const & dirName = {} ) : Entity( dirName ) {}
};

// The VLANs that the overlay carries at the moment, and under which numbers.
class VlanVniMap : public Kiv::Entity {
   KIV_ENTITY( Vxlan::VlanVniMap );
   KIV_COLLECTION( Bridging::VlanId, Vni, vni );

 public:
   explicit VlanVniMap( Kiv::String const & mapName = {} ) : Entity( mapName ) {}
};

// A station that a controller put behind a tunnel.
struct ReceivedRemoteHost {
   KIV_VALUE( Vxlan::ReceivedRemoteHost );
   KIV_FIELD( Bridging::MacVlanPair, macEntry );
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( std::uint32_t, tunnelGroup, 0 );
   KIV_FIELD( Mox::Seqno32, moves );
};

class ReceivedRemoteHostTable : public Kiv::Entity {
   KIV_ENTITY( Vxlan::ReceivedRemoteHostTable );
   KIV_KEYED( ReceivedRemoteHost, Bridging::MacVlanPair, macEntry, remoteHost );

 public:
   explicit ReceivedRemoteHostTable( Kiv::String const & tableName = {} ) : Entity( tableName ) {}
};

// A station in the overlay's own terms.
struct VniMac {
   static constexpr std::string_view kivName = "Vxlan::VniMac";

   Pelt::EthAddr addr;
   Vni vni;

   bool operator==( VniMac const & ) const = default;
   auto operator<=>( VniMac const & ) const = default;
   std::size_t hash() const { return Kiv::hashOf( addr.value() ^ vni.value() ); }
   // Prints as, and is read from, "00:00:5e:00:53:af@10010". parse() throws Kiv::ParseError, or
   // Kiv::RangeException for a number that is no VNI.
   void print( std::string & out ) const;
   static VniMac parse( std::string_view text );
};

// A station from which a tunnel brought a frame.
struct TunnelLearnEvent {
   KIV_VALUE( Vxlan::TunnelLearnEvent );
   KIV_FIELD( VniMac, host );
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( std::uint32_t, tunnelGroup, 0 );
   KIV_FIELD( Kiv::Seconds, learnTime, 0 );
};

// Those that are remembered; one that has been silent for too long goes.
class TunnelLearnEventTable : public Kiv::Entity {
   KIV_ENTITY( Vxlan::TunnelLearnEventTable );
   KIV_KEYED( TunnelLearnEvent, VniMac, host, event );

 public:
   explicit TunnelLearnEventTable( Kiv::String const & tableName = {} ) : Entity( tableName ) {}
};

// How far the overlay's agent has come after a restart.
class BootStatus : public Kiv::Entity {
   KIV_ENTITY( Vxlan::BootStatus );
   // It is restarting, while the hardware goes on forwarding: what it knew may be missing for a while.
   KIV_ATTRIBUTE( bool, hitlessRestartInProgress, false );
   // It has told again of all stations that it knows.
   KIV_ATTRIBUTE( bool, remoteMacsReady, true );

 public:
   explicit BootStatus( Kiv::String const & statusName = {} ) : Entity( statusName ) {}
};

} // namespace Vxlan
