// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stations behind the overlay as agents tell each other of them, and what they resolve through.

#include "Bridging/DropMode.h"
#include "Bridging/EntryType.h"
#include "Bridging/MacVlanPair.h"
#include "Glim/Collection.h"
#include "Kiv/Entity.h"
#include "L2Rib/ObjTuple.h"
#include "Mox/Seqno32.h"
#include "Pelt/IntfId.h"
#include "Pelt/IpAddr.h"
#include "Vxlan/Vxlan.h"

#include <vector>

namespace Hoba {

// A group of tunnel end points. 0 is none. The highest bit says that the group has several; whether it has
// one says the id, whatever the map below lists for it at the moment.
class SwTunnelGroupId {
 public:
   using KivNumber = std::uint32_t;
   static constexpr std::uint32_t min = 0;
   static constexpr std::uint32_t max = UINT32_MAX;
   static constexpr std::uint32_t several = 1u << 31;

   constexpr SwTunnelGroupId() = default;
   constexpr explicit SwTunnelGroupId( std::uint32_t value ) : value_( value ) {}

   constexpr std::uint32_t value() const { return value_; }
   constexpr explicit operator bool() const { return value_ != 0; }
   constexpr bool isSingleMember() const { return !( value_ & several ); }

   constexpr bool operator==( SwTunnelGroupId const & ) const = default;
   constexpr auto operator<=>( SwTunnelGroupId const & ) const = default;
   std::size_t hash() const { return Kiv::hashOf( value_ ); }
   void print( std::string & out ) const { Kiv::print( out, value_ ); }
   static SwTunnelGroupId parse( std::string_view text ) {
      return SwTunnelGroupId( Kiv::fromText< std::uint32_t >( text ) );
   }

 private:
   std::uint32_t value_ = 0;
};

struct SwTunnelGroup {
   KIV_VALUE( Hoba::SwTunnelGroup );
   KIV_FIELD( std::vector< Pelt::IpGenAddr >, tunnelIp );
};

class SwTunnelGroupIdMap : public Kiv::Entity {
   KIV_ENTITY( Hoba::SwTunnelGroupIdMap );
   KIV_COLLECTION( SwTunnelGroupId, SwTunnelGroup, group );

 public:
   explicit SwTunnelGroupIdMap( Kiv::String const & mapName = {} ) : Entity( mapName ) {}
};

// The next hops that the hardware has.
class ObjTupleToHwId : public Kiv::Entity {
   KIV_ENTITY( Hoba::ObjTupleToHwId );
   KIV_COLLECTION( L2Rib::ObjTuple, std::uint64_t, hwId );

 public:
   explicit ObjTupleToHwId( Kiv::String const & mapName = {} ) : Entity( mapName ) {}
};

// How many programmed stations use a next hop, and how many there are in a VLAN.
class NextHopIdRefcountTable : public Kiv::Entity {
   KIV_ENTITY( Hoba::NextHopIdRefcountTable );
   KIV_REFCOUNTS( std::uint32_t, refcount );

 public:
   explicit NextHopIdRefcountTable( Kiv::String const & tableName = {} ) : Entity( tableName ) {}
};

class VlanRefcountTable : public Kiv::Entity {
   KIV_ENTITY( Hoba::VlanRefcountTable );
   KIV_REFCOUNTS( Bridging::VlanId, refcount );

 public:
   explicit VlanRefcountTable( Kiv::String const & tableName = {} ) : Entity( tableName ) {}
};

namespace VXLAN {

// Which remote stations somebody wants forgotten: of a VLAN, or of all; behind a group of tunnel end points,
// or behind any.
struct FlushReqKey {
   KIV_PLAIN_VALUE( Hoba::VXLAN::FlushReqKey );
   KIV_FIELD( Bridging::VlanIdOrNone, vlanId );
   KIV_FIELD( SwTunnelGroupId, swTunnelGroupId );

   // Prints as, and is read from, "10:17". parse() throws Kiv::ParseError or Kiv::RangeException.
   void print( std::string & out ) const;
   static FlushReqKey parse( std::string_view text );
};

} // namespace VXLAN

// Requests go when they have been done.
class RemoteMacFlushRequestTable : public Kiv::Entity {
   KIV_ENTITY( Hoba::RemoteMacFlushRequestTable );
   KIV_SET( VXLAN::FlushReqKey, request );

 public:
   explicit RemoteMacFlushRequestTable( Kiv::String const & tableName = {} )
         : Entity( tableName ) {}
};

} // namespace Hoba

namespace HobaTypes {

// A station, and where one source says that it is. No unused bytes between the fields but those that tables
// know of.
struct RemoteMacAddressTableEntry {
   KIV_VALUE( HobaTypes::RemoteMacAddressTableEntry );
   KIV_FIELD( Bridging::MacVlanPair, macEntry );
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( Bridging::EntryType, entryType, Bridging::entryTypeUnknown );
   // Of a station behind a tunnel.
   KIV_FIELD( Hoba::SwTunnelGroupId, swTunnelGroupId );
   KIV_FIELD( Mox::Seqno32, moveCount );
   KIV_FIELD( Kiv::Seconds, lastMoveTime, 0 );
   // Of the source: the higher wins.
   KIV_FIELD( std::uint8_t, preference, 0 );
   // The source gives it up to whoever learns it.
   KIV_FIELD( bool, promote, false );
   // The object of the RIB that it resolves through, if there is one.
   KIV_FIELD( L2Rib::ObjTuple, l2RibObjTuple );
   KIV_FIELD( Bridging::DropMode, dropMode, Bridging::dropModeNone );
   KIV_FIELD( bool, isMplsNextHop, false );

   bool hasL2RibObjTuple() const { return static_cast< bool >( l2RibObjTuple ); }
};

// Of one writer, read by many: the stations that the overlay tells of, or those that are programmed.
class RemoteMacTable : public Kiv::Entity {
   KIV_ENTITY( HobaTypes::RemoteMacTable );
   GLIM_COLLECTION( RemoteMacAddressTableEntry, Bridging::MacVlanPair, macEntry, remoteMac );

 public:
   explicit RemoteMacTable( Kiv::String const & tableName = {} ) : Entity( tableName ) {}
};

// With which next hop a remote station is programmed: its id in software and in hardware.
struct RemoteHostStatus {
   KIV_VALUE( HobaTypes::RemoteHostStatus );
   KIV_FIELD( Bridging::MacVlanPair, macEntry );
   KIV_FIELD( std::uint32_t, nextHopId, 0 );
   KIV_FIELD( std::uint64_t, hwId, 0 );
};

class RemoteHostStatusTable : public Kiv::Entity {
   KIV_ENTITY( HobaTypes::RemoteHostStatusTable );
   KIV_KEYED( RemoteHostStatus, Bridging::MacVlanPair, macEntry, remoteHostStatus );

 public:
   explicit RemoteHostStatusTable( Kiv::String const & tableName = {} ) : Entity( tableName ) {}
};

// An address of the switch as a router, in a VLAN: behind the CPU port, unless another interface is named.
struct RouterMac {
   KIV_VALUE( HobaTypes::RouterMac );
   KIV_FIELD( Bridging::MacVlanPair, macEntry );
   KIV_FIELD( Pelt::IntfId, intf, Pelt::CpuIntfId() );
};

class RouterMacTable : public Kiv::Entity {
   KIV_ENTITY( HobaTypes::RouterMacTable );
   KIV_KEYED( RouterMac, Bridging::MacVlanPair, macEntry, routerMac );

 public:
   explicit RouterMacTable( Kiv::String const & tableName = {} ) : Entity( tableName ) {}
};

// A tunnel end point group's own properties. The names of tunnels are for people.
struct TunnelInfo {
   KIV_VALUE( HobaTypes::TunnelInfo );
   KIV_FIELD( Pelt::IntfId, intf );
};

class TunnelInfoDir : public Kiv::Entity {
   KIV_ENTITY( HobaTypes::TunnelInfoDir );
   // By group: the VXLAN interface behind which its end points are.
   KIV_COLLECTION( Hoba::SwTunnelGroupId, TunnelInfo, tunnelInfo );

 public:
   explicit TunnelInfoDir( Kiv::String const & dirName = {} ) : Entity( dirName ) {}
};

// All that agents tell each other of remote stations. Whoever has it makes its parts; none is replaced.
class RemoteMacInfoDir : public Kiv::Entity {
   KIV_ENTITY( HobaTypes::RemoteMacInfoDir );
   // Told by others.
   KIV_CHILD( Vxlan::ReceivedRemoteHostTable, receivedRemoteHost );
   KIV_CHILD( Vxlan::TunnelLearnEventTable, tunnelLearnEvent );
   KIV_CHILD( Vxlan::BootStatus, bootStatus );
   KIV_CHILD( Hoba::RemoteMacFlushRequestTable, flushRequest );
   KIV_CHILD( TunnelInfoDir, tunnelInfoDir );
   // Told by the machine of MAC addresses.
   KIV_CHILD( RemoteMacTable, remoteHost );
   KIV_CHILD( RemoteHostStatusTable, remoteHostStatus );
   KIV_CHILD( Hoba::NextHopIdRefcountTable, nextHopIdRefcountTable );
   KIV_CHILD( Hoba::VlanRefcountTable, vlanRefcountTable );

 public:
   explicit RemoteMacInfoDir( Kiv::String const & dirName = {} );
};

} // namespace HobaTypes
