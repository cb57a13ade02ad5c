// SPDX-License-Identifier: Apache-2.0
#pragma once

// The L2 table of the simulated chip. It learns from the source addresses of frames, as chips do, beside
// what software writes (SimMacHelper.h), and reports what it learnt, once it may.
//
// *Entries.* One for a station, whoever made it: all share the room and the hash buckets of one table. An
// entry that the chip learnt moves with its station, and so does one that software wrote back as learnt and
// ageing. Any other that software wrote stays where it is: that the
// station was seen elsewhere stands beside it, in `seen`, and is reported like a learn; not of what is bound
// to its place (isBound()). What software writes as if the chip had learnt it is newer than what was seen.
//
// *Reports.* The chip reports as learnt what it learns, and where it saw a station of software's elsewhere;
// each place once. It reports as aged what leaves that, by whosesoever doing: silent for too long, flushed,
// written over, removed, swept. Whatever ages was learnt for those who hear of it: what software wrote
// to age is reported, too, when it has aged or is flushed. A row of a learnt type is a learnt one, also if
// software wrote it, to have the station back in the table or never lose it: it is reported like all others.
// (Behind the overlay only if it ages: of other such rows software has learnt by itself.)
//
// *Ageing.* Sweeps come every half aging time, from when the aging time was set to what it is, or from when
// the process began; the first one half of it later. What ages, and was not heard of between the last
// two sweeps, goes: silent for half the aging time at least, and for all of it at most. A frame counts for an
// entry if it comes from where the entry has the station; what software writes anew has just been heard of.
// The chip ages whether or not anybody listens, and stands still while its process is not there. A sweep for
// which the event loop came too late is not made up for.
//
// *Flushes.* What is flushed is gone at once for frames and for whoever asks or writes; its row and the
// report follow. What is learnt or written after the flush stays.
//
// Sweeps, flushes and the report of all that there is take their turns on a clock, `slice` stations in each,
// in the order of addresses and VLANs: up to that many all happens in one.

#include "Bridging/DropMode.h"
#include "Bridging/EntryType.h"
#include "L2Rib/ObjTuple.h"
#include "chips/sim/SimEvents.h"
#include "chips/sim/SimFrame.h"
#include "chips/sim/SimMacIndex.h"
#include "chips/sim/SimTrunk.h"

#include <deque>

namespace HobaSim {

// What a source address led to.
KIV_ENUM(
      Learning, std::uint8_t,
      learnNew = 0,   // recorded and reported
      learnMove,      // was behind another port; recorded and reported
      learnHit,       // was there
      learnGroup,     // refused: no station has a group address
      learnZero,      // refused: the address 00:00:00:00:00:00
      learnFull,      // no room
      learnOff,       // nothing is learnt on the interface, or in the VLAN
      learnElsewhere, // software has it elsewhere: the entry stays; reported, once for each place
      learnBound );   // software has it elsewhere, where it belongs: the entry stays

// What the L2 table counts.
KIV_ENUM( MacCount, std::uint8_t, macFrames = 0 KIV_SHOWN( "frames" ),
          macLearnt KIV_SHOWN( "learnt" ), macMoved KIV_SHOWN( "moved" ),
          macHits KIV_SHOWN( "hits" ), macGroupSourceRefused KIV_SHOWN( "groupSourceRefused" ),
          macZeroSourceRefused KIV_SHOWN( "zeroSourceRefused" ),
          macBadVlanRefused KIV_SHOWN( "badVlanRefused" ), macRunts KIV_SHOWN( "runts" ),
          macTableFull KIV_SHOWN( "tableFull" ), macAged KIV_SHOWN( "aged" ),
          macFlushed KIV_SHOWN( "flushed" ), macLearningOff KIV_SHOWN( "learningOff" ),
          macSeenElsewhere KIV_SHOWN( "seenElsewhere" ),
          macBoundElsewhere KIV_SHOWN( "boundElsewhere" ),
          // Sweeps of ageing, and flushes asked for.
          macSweeps KIV_SHOWN( "sweeps" ), macFlushes KIV_SHOWN( "flushes" ) );

// An entry: what software can write of a station behind a port or behind the overlay, and the chip's own.
struct HostRow {
   KIV_VALUE( HobaSim::HostRow );
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( L2Rib::ObjTuple, l2RibObjTuple );
   KIV_FIELD( std::uint64_t, hwId, 0 );
   KIV_FIELD( std::uint32_t, swTunnelGroupId, 0 );
   KIV_FIELD( std::uint32_t, nextHopId, 0 );
   KIV_FIELD( Bridging::EntryType, entryType, Bridging::entryTypeUnknown );
   KIV_FIELD( Bridging::DropMode, dropMode, Bridging::dropModeNone );
   KIV_FIELD( bool, isMplsNextHop, false );
   KIV_FIELD( bool, ages, false );
   // The chip learnt it by itself.
   KIV_FIELD( bool, byChip, false );
   // How many sweeps there had been when the station was heard of last, and how many flushes when the
   // entry was made.
   KIV_FIELD( std::uint32_t, heardIn, 0 );
   KIV_FIELD( std::uint32_t, flushes, 0 );

   // Behind the overlay.
   bool isRemote() const { return Pelt::VxlanIntfId::isVxlanIntfId( intf ); }
   // An address of the switch itself: software has it behind the CPU port, for good.
   bool isOwn() const { return isBound() && Pelt::CpuIntfId::isCpuIntfId( intf ); }
   // Whoever made it: the station was learnt there.
   bool isLearnt() const {
      return byChip || entryType == Bridging::learnedDynamicMac ||
             ( ages && entryType == Bridging::learnedRemoteMac );
   }
   // The chip's to move and to let age, and nobody's to claim: learnt by itself, or written back as if it had.
   bool isChips() const { return byChip || ( ages && entryType == Bridging::learnedDynamicMac ); }
   // Software says where the station belongs, and that it is seen elsewhere is no news: what somebody set
   // up by hand or authenticated, unless it ages.
   bool isBound() const;
   // Software would write the same: whoever made it, and whatever the chip noted of it.
   bool isSameEntry( HostRow const & other ) const;
};

// Where a station was seen that software has elsewhere. It ages and is flushed like an entry.
struct SeenRow {
   KIV_VALUE( HobaSim::SeenRow );
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( std::uint32_t, heardIn, 0 );
   KIV_FIELD( std::uint32_t, flushes, 0 );
};

// What a flush is about: behind an interface or all of them, in a VLAN or all. Prints as "10@Ethernet1", with
// * for all.
struct MacScope {
   KIV_PLAIN_VALUE( HobaSim::MacScope );
   KIV_FIELD( Pelt::IntfId, intf );
   // 0 for all; no byte of a key is unused.
   KIV_FIELD( std::uint64_t, vlan, 0 );

   void print( std::string & out ) const;
   // Throws Kiv::ParseError.
   static MacScope parse( std::string_view text );
};

// What the whole table is told; without a row 0.
KIV_ENUM(
      MacSetting, std::uint8_t,
      macAgingTime = 0 KIV_SHOWN( "agingTime" ), // seconds; 0: nothing ages
      macSourceInvalid KIV_SHOWN(
            "sourceMacInvalid" ), // 1: frames from no station's address are dropped
      macSourceCheckCpu KIV_SHOWN( "sourceCheckCpuMac" ) ); // 1: so are those from the switch's own

class MacAccess;

class MacUnit : public Unit {
   KIV_ENTITY( HobaSim::MacUnit, HobaSim::Unit );
   // All entries. There is room for 131072 unless the table is told otherwise. What is flushed may still
   // have its row: entry() knows.
   SIM_STATE( Bridging::MacVlanPair, HostRow, host );
   SIM_STATE( Bridging::MacVlanPair, SeenRow, seen );
   // False: nothing is learnt on the port or LAG; in the VLAN.
   SIM_TABLE( Pelt::IntfId, bool, intfLearning );
   SIM_TABLE( Bridging::VlanId, bool, vlanLearning );
   SIM_TABLE( MacSetting, Kiv::Seconds, setting );
   // Flushes at work: the number of each, as `flushes` of the rows.
   SIM_STATE( MacScope, std::uint64_t, flush );
   // How often each of these happened.
   SIM_STATE( MacCount, std::uint64_t, count );
   // How many entries there may be behind the overlay.
   KIV_ATTRIBUTE( std::uint32_t, maxRemoteMacs, 16384 );
   // Entries are written through an interface that answers later (SimMacAccess.h), which has the latency then.
   // Read when the machines are made.
   KIV_ATTRIBUTE( bool, indirectAccess, false );
   // ---- Of that interface
   // How many commands it holds until they are executed.
   KIV_ATTRIBUTE( std::uint32_t, commandDepth, 1024 );
   // Answers come within another latency, in any order.
   KIV_ATTRIBUTE( bool, answersReordered, false );
   // A command that was executed is not answered.
   KIV_ATTRIBUTE( TableFault, silence );

   // The report of all that there is goes on. True begins one, false ends it.
   KIV_RULED( bool, reportingAll, false );

 public:
   // How many stations have their turn in one go.
   static constexpr std::size_t slice = 2048;

   // Reports by `events`; `trunk` knows the LAGs. Its clock is one of its own, on the ambient driver.
   MacUnit( Kiv::String const & unitName, Kiv::Ptr< EventUnit > const & events,
            Kiv::Ptr< TrunkUnit > const & trunk, Memory const & memory = {} );
   ~MacUnit() override;

   // The entry of the station, as frames and software find it; nothing for what is flushed.
   std::optional< HostRow > entry( Bridging::MacVlanPair station ) const;
   // Whether the chip holds the station as one that it learnt: what it has reported of it, and not as aged.
   bool isLearnt( Bridging::MacVlanPair station ) const;
   // Where the chip has reported the station to be; none for what it has not, or as aged.
   Pelt::IntfId reportedAt( Bridging::MacVlanPair station ) const;
   // Entries behind the overlay that software wrote.
   std::uint32_t remoteHosts() const { return remoteHosts_; }
   // Whether an entry of software's would be one more behind the overlay; whether there may be another.
   bool isNewRemote( Bridging::MacVlanPair station, HostRow const & row ) const;
   bool hasRoomFor( Bridging::MacVlanPair station, HostRow const & row ) const {
      return remoteHosts() < maxRemoteMacs() || !isNewRemote( station, row );
   }
   // Whether a write of `row` would leave the entry as it is.
   bool isWritten( Bridging::MacVlanPair station, HostRow const & row ) const;

   // A frame from `addr` came in on `port`, in the VLAN. Hosts behind a member of a LAG are behind
   // the LAG. Throws Kiv::ParseError, and counts nothing, for a port as portTypeOf() (SimEvents.h).
   Learning learn( Pelt::IntfId port, Pelt::EthAddr addr, Bridging::VlanId vlanId );
   // Whether stations are learnt there.
   bool learnsOn( Pelt::IntfId intf, Bridging::VlanId vlanId ) const;

   // A frame has come in, and its header is so: counted. What becomes of it: see SimPath.h.
   void frameCame( FrameFault fault );

   // The station has been silent for too long: forgotten, and reported. Throws Kiv::ParseError, and
   // changes nothing, for a station that is not in the table or does not age, and for what can be none.
   void age( Bridging::MacVlanPair station );
   // Forgets what ages within.
   void flushIn( MacScope const & scope );

   // ---- For the helper
   // From now on entries are written through access(), or at once. What access() has on its way is lost.
   void writtenIndirectlyIs( bool indirectly );
   MacAccess & access() { return *access_; }

   // Writes the entry, of which `row` says what software can write. An entry that says the same stays what
   // it is, also one that the chip learnt.
   TableResult write( Bridging::MacVlanPair station, HostRow const & row );
   TableResult remove( Bridging::MacVlanPair station );
   // The rows of that index of the memory "mac.host" are spoilt, and taken out: what the chip learnt is
   // reported as aged. Returns the stations of those that software wrote, which it is to write again.
   Stations spoilt( std::uint32_t index );

 protected:
   void rowChanged( Kiv::AttributeId const & attribute, void const * key ) override;

 private:
   class Turn;
   struct Flushing {
      Pelt::IntfId intf; // none for all
      MacWalk hosts, seen;
      std::uint64_t upTo = 0; // the last flush that it is for; 0: it has not begun
   };

   Learning learnHost( Pelt::IntfId intf, Bridging::MacVlanPair station );
   Learning learnedElsewhere( Pelt::IntfId intf, Bridging::MacVlanPair station,
                              HostRow const & row );
   void heard( Bridging::MacVlanPair station, HostRow const & row );
   void hostChanged( Bridging::MacVlanPair station );
   void report( Hoba::HobaEvent::HobaEventType eventType, Bridging::MacVlanPair station,
                Pelt::IntfId intf );
   bool isFlushed( Bridging::MacVlanPair station, Pelt::IntfId intf, std::uint32_t flushes ) const;
   // What of the station is flushed goes now.
   void dropFlushed( Bridging::MacVlanPair station );
   // Reported as aged, and counted.
   void forgetHost( Bridging::MacVlanPair station, MacCount why );
   void forgetSeen( Bridging::MacVlanPair station, MacCount why );

   void flushing( Pelt::IntfId intf );
   void flushSlice();
   void reportSlice();
   void sweepSlice();
   void takeTurn();
   void armTurn();
   void sweepTime();
   void armSweep();

   std::uint32_t sweeps() const { return static_cast< std::uint32_t >( sweeps_ ); }
   std::uint32_t flushes() const { return static_cast< std::uint32_t >( flushes_ ); }
   void countInc( MacCount what ) { countIs( what, count( what ) + 1 ); }

   Kiv::Ptr< EventUnit > const events_;
   Kiv::Ptr< TrunkUnit > const trunk_;
   // Of the rows, as they are.
   MacIndex hostIndex_, seenIndex_;
   std::uint32_t remoteHosts_ = 0;
   std::uint64_t sweeps_ = 0, flushes_ = 0;
   bool isSpoiling_ = false; // rows go of which software is told otherwise
   // At work, in this order.
   std::deque< Flushing > flushings_;
   MacWalk reporting_;
   MacWalk sweepHosts_, sweepSeen_;
   std::unique_ptr< MacAccess > const access_;
   std::unique_ptr< Turn > turn_, sweep_;
   // Sweeps come at `sweepFrom_` and every so many halves of the aging time later; the next one is this.
   Kiv::Seconds sweepFrom_ = 0;
   std::uint64_t nextSweep_ = 0;
};

} // namespace HobaSim
