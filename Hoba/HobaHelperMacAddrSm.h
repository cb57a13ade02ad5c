// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the machine of MAC addresses (Hoba/HobaMacAddrSm.h) needs of a platform's hardware table. A chip
// derives from this class and provides every operation: the base stops the agent, naming the operation.
//
// The contract of the table:
// - It holds at most one entry for a station, whoever made it: the hardware itself, which learns, or
//   software. A learn never changes what software wrote; when the hardware sees a station elsewhere of which
//   software wrote a dynamic entry it reports the learn all the same, once for each place, and does not when
//   it is a static one.
// - Whatever leaves the entries that the hardware learnt (aged, flushed, written over or removed by
//   software) is reported as aged, and so is where it saw a station that software has elsewhere, when that
//   ages or the entry goes. Software is not told of what it wrote itself, but when an entry that ages has
//   aged or was flushed.
// - An entry of the type learnedDynamicMac that ages is the hardware's own, whoever wrote it: it moves with its
//   station.
// - An entry of the type learnedDynamicMac is a learnt one in all this, also if software wrote it: it is
//   reported as learnt, and not as aged when another of that type takes its place behind the same interface.
// - A write of what the hardware has learnt already, the same in all that software can write, leaves the
//   entry the hardware's: it is not reported as aged, and moves with its station.
// - A flush counts at once for who writes or asks; the reports of a large one come in slices.
// - An operation may throw; nothing has changed then. Writes of what the hardware holds already change
//   nothing and cost little: nobody above keeps a copy of the table to avoid them.

#include "Bridging/DropMode.h"
#include "Bridging/EntryType.h"
#include "Bridging/MacVlanPair.h"
#include "Hoba/HobaAssert.h"
#include "Hoba/HobaBaseHelper.h"
#include "Hoba/HobaMacProgramStatus.h"
#include "Interface/EthPhyIntfStatus.h"
#include "L2Rib/ObjTuple.h"
#include "types/ParityEvent.h"

#include <vector>

namespace HobaHelper {

// A station behind a port, a LAG or the CPU port.
struct Host {
   KIV_VALUE( HobaHelper::Host );
   KIV_FIELD( Bridging::MacVlanPair, macEntry );
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( Bridging::EntryType, entryType, Bridging::entryTypeUnknown );
   KIV_FIELD( Bridging::DropMode, dropMode, Bridging::dropModeNone );
   // The hardware forgets it when it is silent for the aging time, and reports that. What does not age is not
   // flushed by the hardware either.
   KIV_FIELD( bool, ages, false );
};

// A station behind the overlay.
struct RemoteHost {
   KIV_VALUE( HobaHelper::RemoteHost );
   KIV_FIELD( Bridging::MacVlanPair, macEntry );
   // The VXLAN interface.
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( Bridging::EntryType, entryType, Bridging::entryTypeUnknown );
   KIV_FIELD( Bridging::DropMode, dropMode, Bridging::dropModeNone );
   // The group of tunnel end points, if no object of the RIB names the next hop.
   KIV_FIELD( std::uint32_t, swTunnelGroupId, 0 );
   // The next hop: the object of the RIB, none for a station without; its id in software; its id in hardware.
   KIV_FIELD( L2Rib::ObjTuple, l2RibObjTuple );
   KIV_FIELD( std::uint32_t, nextHopId, 0 );
   KIV_FIELD( std::uint64_t, hwId, 0 );
   KIV_FIELD( bool, isMplsNextHop, false );
   // As of a Host: the hardware learnt it behind a tunnel by itself.
   KIV_FIELD( bool, ages, false );
};

class HobaHelperMacAddrSm : public Hoba::HobaBaseHelper {
   KIV_ENTITY( HobaHelper::HobaHelperMacAddrSm, Hoba::HobaBaseHelper );
   static constexpr Hoba::HookText unimplemented( std::string_view what ) {
      return { .before = "Call to unimplemented function HobaMacAddrSmHelper::", .name = what };
   }

 public:
   explicit HobaHelperMacAddrSm( Kiv::String const & helperName = "mac" )
         : HobaBaseHelper( helperName ) {}

   // ---- Programming

   // Once, before anything else is asked for. The chip may be at work: what stays wanted must stay.
   HOBA_REQUIRED( void, hwInit, (), unimplemented( "hwInit" ) );
   // Writes the station's entry, whatever stood there: what the machine calls for each station.
   HOBA_REQUIRED( Hoba::MacProgramStatus, doAddHost, ( Host const & host ),
                  unimplemented( "doAddHost" ) );
   // The write itself, which doAddHost() comes down to: on a chip that writes at once the same.
   HOBA_REQUIRED( Hoba::MacProgramStatus, addHost, ( Host const & host ),
                  unimplemented( "addHost" ) );
   HOBA_REQUIRED( Hoba::MacProgramStatus, addRemoteHost, ( RemoteHost const & host ),
                  unimplemented( "addRemoteHost" ) );
   // Removes the station's entry, whoever made it. Success, too, if there is none.
   HOBA_REQUIRED( Hoba::MacProgramStatus, removeHost, ( Bridging::MacVlanPair host ),
                  unimplemented( "removeHost" ) );
   // The LAG is no more: whatever the hardware keeps of it beside entries goes.
   HOBA_REQUIRED( void, removeLag, ( Pelt::IntfId lag ), unimplemented( "removeLag" ) );

   // The hardware forgets entries that age: all; those of the VLAN; those behind the port, or the LAG, in
   // the VLAN, or in all if it is none. It reports each as aged.
   HOBA_REQUIRED( void, flushAll, (), unimplemented( "flushAll" ) );
   HOBA_REQUIRED( void, flushVlan, ( Bridging::VlanId vlanId ), unimplemented( "flushVlan" ) );
   HOBA_REQUIRED( void, flushVlanPort, ( Bridging::VlanIdOrNone vlanId, Pelt::IntfId port ),
                  unimplemented( "flushVlanPort" ) );
   HOBA_REQUIRED( void, flushVlanLag, ( Bridging::VlanIdOrNone vlanId, Pelt::IntfId lag ),
                  unimplemented( "flushVlanLag" ) );

   // In seconds; 0: nothing ages.
   HOBA_REQUIRED( void, configureAgingTime, ( Kiv::Seconds agingTime ),
                  unimplemented( "configureAgingTime" ) );
   // Whether stations are learnt on the port or LAG, and in the VLAN: both must let it. False: the hardware
   // cannot do that.
   HOBA_REQUIRED( bool, enableLearning, ( Pelt::IntfId intf, bool enable ),
                  unimplemented( "enableLearning" ) );
   HOBA_REQUIRED( bool, enableLearningOnVlan, ( Bridging::VlanId vlanId, bool enable ),
                  unimplemented( "enableLearningOnVlan" ) );
   // Whether frames are dropped whose source is no address of a station; whose source is an address of the
   // switch itself, which is one that was written behind the CPU port.
   HOBA_REQUIRED( void, configureSourceMacInvalid, ( bool drop ),
                  unimplemented( "configureSourceMacInvalid" ) );
   HOBA_REQUIRED( void, configureSourceCheckCPUMac, ( bool drop ),
                  unimplemented( "configureSourceCheckCPUMac" ) );

   // ---- What happens elsewhere

   // How the link of a port is when the machine begins.
   HOBA_REQUIRED( void, handleLinkStateAtInit, ( Pelt::IntfId intf, Interface::LinkStatus link ),
                  unimplemented( "handleLinkStateAtInit" ) );
   // The VLAN is no more: what the hardware keeps of it beside entries goes.
   HOBA_REQUIRED( void, handleVlanDelete, ( Bridging::VlanId vlanId ),
                  unimplemented( "handleVlanDelete" ) );
   // An entry of a memory was found wrong. If it is one of the MAC table's, returns the stations whose entries
   // it spoilt: the next write of each is done, also if it says what stood there.
   HOBA_REQUIRED( std::vector< Bridging::MacVlanPair >, handleParityEvent,
                  ( Hoba::ParityEvent::Key const & key ), unimplemented( "handleParityEvent" ) );

   // ---- What the hardware has. Questions only.

   // How many remote stations there can be. That there may be more by now is noticed when one of them leaves.
   HOBA_REQUIRED( std::uint32_t, getMaxRemoteMacs, () const, unimplemented( "getMaxRemoteMacs" ) );
   // How many there are.
   HOBA_REQUIRED( std::uint32_t, numRemoteHost, () const, unimplemented( "numRemoteHost" ) );
   // The whole table for a technician, a line each.
   HOBA_REQUIRED( Kiv::String, showL2TableAll, () const, unimplemented( "showL2TableAll" ) );

   // Verification: what differs, empty when nothing does. `host` is to be there; one without interface and
   // type is not.
   HOBA_REQUIRED( Kiv::String, handleVerify, ( Host const & host ) const,
                  unimplemented( "handleVerify" ) );
   HOBA_REQUIRED( Kiv::String, verifyRemoteHost, ( RemoteHost const & host ) const,
                  unimplemented( "verifyRemoteHost" ) );
   HOBA_REQUIRED( Kiv::String, verifyNumRemoteHost, ( std::uint32_t hosts ) const,
                  unimplemented( "verifyNumRemoteHost" ) );
   HOBA_REQUIRED( Kiv::String, verifyLearning, ( Pelt::IntfId intf, bool enable ) const,
                  unimplemented( "verifyLearning" ) );
   HOBA_REQUIRED( Kiv::String, verifyLearningOnVlan, ( Bridging::VlanId vlanId, bool enable ) const,
                  unimplemented( "verifyLearningOnVlan" ) );
};

} // namespace HobaHelper
