// SPDX-License-Identifier: Apache-2.0
#pragma once

// Programs the FECs of the simulated chip (SimFec.h): a group for each layer-2 adjacency of a list, shared by
// all FECs that refer to it.
//
// What changes is noted and looked at in the machine's own time, in slices; so the order in which
// things are heard of does not matter. Looking at an adjacency is deciding what its slots are to be
// (SimFecWanted.h), and bringing its group in line (SimFecBooks.h), member by member: what is referred to is there
// first and goes last, and what stands as it should is not touched, nor are the FECs.
//
// What does not get into the chip has a state and a reason:
//
// - l2AdjPending: a member goes on at an adjacency that is not in (`awaitedLevel` says which).
// - l2AdjFull: there is no room for all of it, so nothing was written. It is tried again when there is more
//   room, in the order of `awaitsRoom`; one that fits does not wait for another that does not. Room is
//   needed for the old and the new at once, as long as both are there.
// - l2AdjFailed: the chip refused a write, and is asked again after retryDelay. What nobody can program (too
//   many labels, say) is not tried again until something changes.
// - l2AdjStale: any of these, of an adjacency that is in, with what it was before or something in between.
//
// A FEC's row names the group of its adjacency once that is l2AdjProgrammed. Until then the row stays as
// it is, as long as the group that it names is that of an adjacency in the list; `fecAwaits` says what for.

#include "Hoba/HobaVerifiedSm.h"
#include "Kiv/ClockReactor.h"
#include "chips/sim/SimFecBooks.h"
#include "chips/sim/SimFecWanted.h"

#include <deque>
#include <functional>
#include <memory>

namespace HobaSim {

class FecSm : public Hoba::HobaVerifiedSm {
   HOBA_MACHINE( FecSm, Hoba::HobaVerifiedSm );
   // All that was there at the beginning has been looked at.
   KIV_ATTRIBUTE( bool, firstPassDone, false );
   // What has to be looked at.
   KIV_SET( Hoba::L2AdjKey, dueL2Adj );
   KIV_SET( GlobalFecId, dueFec );
   // The group of each adjacency, also of one that has left the list and is still referred to.
   KIV_COLLECTION( Hoba::L2AdjKey, HwGroupId, groupOf );
   KIV_SET( HwGroupId, leavingGroup );
   // Why what is wanted of an adjacency is not in the chip.
   KIV_COLLECTION( Hoba::L2AdjKey, Kiv::String, refusedL2Adj );
   KIV_SET( Hoba::L2AdjKey, awaitsRoom );
   KIV_COLLECTION( Hoba::L2AdjKey, Hoba::L2AdjKey, awaitedLevel );
   // The same for FECs; of those that wait, the adjacency that they wait for.
   KIV_COLLECTION( GlobalFecId, Kiv::String, refusedFec );
   KIV_SET( GlobalFecId, fecAwaitsRoom );
   KIV_COLLECTION( GlobalFecId, Hoba::L2AdjKey, fecAwaits );

 public:
   static constexpr Kiv::Seconds retryDelay = 1;
   // As many steps as one turn may take.
   static constexpr std::uint32_t quantum = 1000;

   void handleInitialized() override;
   // The tables as they are to be; of adjacencies that are not l2AdjProgrammed, as they were accepted.
   void handleVerify() override;
   void kivDoZombieReactors( bool marked ) override;
   // Called once, when firstPassDone is true.
   void whenFirstPassIsDone( std::function< void() > call );

 protected:
   // Its clock is one of its own, on the ambient driver. It writes the unit, and of each adjacency its state
   // and statistics.
   FecSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
          Kiv::Ptr< Hoba::L2AdjList > const & l2Adjs,
          Kiv::Ptr< Hoba::AdjEntryList > const & adjEntries,
          Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > const & ports,
          Kiv::Ptr< FecUnit > const & unit );

 private:
   struct Books {
      explicit Books( Kiv::Ptr< FecUnit > const & unit ) : chip( unit ) {}

      FecChip chip;
      HwNextHops nextHops{ chip };
      HwGroups groups{ chip, nextHops };
      // The groups that FECs' rows name.
      Kiv::HashMap< GlobalFecId, HwGroupId > fecRow;
      Kiv::HashMap< HwGroupId, Kiv::HashSet< GlobalFecId > > fecsOn;
   };
   // What of an adjacency others have to know.
   struct Known {
      Hoba::InternedNextHops backup;
      bool isProgrammed = false;
      bool isIn = false; // others can go on in its group
   };

   // ---- What is heard
   void handleL2Adj( Hoba::L2AdjKey const & key );
   void handleFec( GlobalFecId const & fec );
   void handleIntf( Pelt::IntfId const & intf );
   void handlePort( Pelt::IntfId const & port ) { handleIntf( port ); }
   void handleRoom();
   void handleRows();

   // ---- The machine's own time
   void handleTime();
   // One thing that is to be done; false if there is none.
   bool step();
   bool stepAdoption();
   bool stepRoom();
   bool stepReadyFec();
   void retry();
   void finishFirstPass();
   void wake() { clock()->noLaterThan( clock()->now() ); }
   void retryLater();
   void begin();
   void end();
   // Once the turn is over: it would find nothing of what it stands on.
   void beginAnew();

   // ---- Adjacencies
   void adopt( Hoba::L2AdjKey const & key );
   void adoptLevels( Hoba::L2AdjKey const & key );
   void adoptLevels( Hoba::NextHopCollection const & collection,
                     std::vector< HwMember > const & slots );
   void evaluate( Hoba::L2AdjKey const & key );
   // Nothing if the adjacency has to wait for a next level: `awaited`.
   std::optional< WantedRows > rowsOf( Hoba::L2Adjacency const & adjacency,
                                       Hoba::L2AdjKey & awaited ) const;
   WantedSlots slotsOf( Hoba::L2Adjacency const & adjacency ) const;
   void program( Hoba::L2Adjacency & adjacency, WantedRows const & rows );
   void refuse( Hoba::L2Adjacency & adjacency, Hoba::L2AdjState state, Kiv::String const & why );
   void refuse( Hoba::L2Adjacency & adjacency, FecRefused const & refused );
   void stateIs( Hoba::L2Adjacency & adjacency, Hoba::L2AdjState state, bool isChanged );
   // Others hear whether they can go on in its group.
   void isInIs( Hoba::L2AdjKey const & key, bool isIn );
   void forget( Hoba::L2AdjKey const & key );
   void watchMembers( Hoba::L2Adjacency const & adjacency );
   void eachMember( Hoba::L2AdjKey const & key, Hoba::InternedNextHops const & backup, bool isUsed );
   void giveBackUnfinished( Hoba::L2AdjKey const & key );
   bool mayFit( Hoba::L2AdjKey const & key ) const;
   void leave( HwGroupId group );

   // ---- FECs
   void evaluateFec( GlobalFecId const & fec );
   void programFec( GlobalFecId const & fec );
   // The group that its row is to name; 0 for no row.
   HwGroupId wantedGroup( GlobalFecId const & fec, Hoba::L2Adjacency const * l2Adj ) const;
   void fecRowIs( GlobalFecId const & fec, HwGroupId group );
   void refuseFec( GlobalFecId const & fec, FecRefused const & refused );
   void waitFor( GlobalFecId const & fec, Hoba::L2Adjacency const * l2Adj );

   class KivL2Adj
         : public Kiv::Hears< FecSm, Hoba::L2Adjacency, Hoba::L2AdjKey,
                              Kiv::OnceReady< Hoba::L2Adjacency::backupViaAttr, &FecSm::handleL2Adj > > {
    public:
      void doCleanUp() { owner().handleL2Adj( key() ); }
   };
   class KivAdjEntry
         : public Kiv::Hears< FecSm, Hoba::AdjEntry const, GlobalFecId,
                              Kiv::OnceReady< Hoba::AdjEntry::l2AdjAttr, &FecSm::handleFec > > {
    public:
      void doCleanUp() { owner().handleFec( key() ); }
   };
   class KivPort : public Kiv::Hears< FecSm, Interface::EthPhyIntfStatus const, Pelt::IntfId,
                                      Kiv::OnceReady< Interface::EthPhyIntfStatus::linkStatusAttr,
                                                      &FecSm::handlePort > > {
    public:
      void doCleanUp() { owner().handlePort( key() ); }
   };
   class KivTable
         : public Kiv::Hears< FecSm, SimTable const, Kiv::String,
                              Kiv::WhenReadyAny< &FecSm::handleRoom, SimTable::capacityAttr,
                                                 SimTable::bucketSizeAttr >,
                              Kiv::WhenReady< SimTable::rowsAttr, &FecSm::handleRows > > {};
   class KivClock : public Kiv::ClockReactor< FecSm, &FecSm::handleTime > {};

   Kiv::Ptr< Hoba::L2AdjList > const l2Adjs_;
   Kiv::Ptr< Hoba::AdjEntryList > const adjEntries_;
   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > const ports_;
   Kiv::Ptr< FecUnit > const unit_;
   // Others when the machine begins anew; never null.
   std::shared_ptr< Books > books_;
   Kiv::HashMap< Hoba::L2AdjKey, Known > known_;
   // Which adjacencies have members on an interface, and at a next level.
   Kiv::HashMap< Pelt::IntfId, Kiv::HashSet< Hoba::L2AdjKey > > onIntf_;
   Kiv::HashMap< Hoba::L2AdjKey, Kiv::HashSet< Hoba::L2AdjKey > > onLevel_;
   // By adjacency: the FECs that wait for it; and those adjacencies that are in now.
   Kiv::HashMap< Hoba::L2AdjKey, Kiv::HashSet< GlobalFecId > > waitingFecs_;
   Kiv::HashSet< Hoba::L2AdjKey > ready_;
   std::deque< Hoba::L2AdjKey > toAdopt_;
   std::deque< Hoba::L2AdjKey > toAdoptLevels_;
   // Of those that await room: what they lack. Those that are looked at again, in their order.
   Kiv::HashMap< Hoba::L2AdjKey, FecRefused::Lack > lack_;
   std::deque< Hoba::L2AdjKey > roomWalk_;
   std::deque< GlobalFecId > fecRoomWalk_;
   std::uint64_t freedSeen_ = 0;
   bool roomChanged_ = false; // by somebody else
   bool inTurn_ = false;
   bool beginsAnew_ = false;
   Kiv::HashSet< HwGroupId > dueLeaving_;
   Kiv::HashSet< Hoba::L2AdjKey > retryL2Adj_;
   Kiv::HashSet< GlobalFecId > retryFec_;
   Kiv::Seconds retryAt_ = Kiv::never;
   std::function< void() > whenFirstPassIsDone_;

   KIV_REACTOR( KivClock, clock );
   KIV_REACTORS( Kiv::String, KivTable, table );
   KIV_REACTORS( Pelt::IntfId, KivPort, port );
   KIV_REACTORS( Hoba::L2AdjKey, KivL2Adj, l2Adj );
   KIV_REACTORS( GlobalFecId, KivAdjEntry, adjEntry );

 private:
   class KivContext
         : public Kiv::Hears<
                 FecSm, Hoba::HobaCommonSmData const,
                 Kiv::WhenReady< Hoba::HobaCommonSmData::intfAttr, &FecSm::handleIntf >,
                 Kiv::WhenReady< Hoba::HobaCommonSmData::lagToPortAttr, &FecSm::handleIntf > > {};
   class KivPortDir
         : public Kiv::Hears< FecSm, Interface::AllEthPhyIntfStatusDir const,
                              Kiv::Follow< Interface::AllEthPhyIntfStatusDir::ethPhyIntfStatusAttr,
                                           &FecSm::port_, &KivPort::doCleanUp > > {};
   class KivL2AdjList
         : public Kiv::Hears< FecSm, Hoba::L2AdjList,
                              Kiv::Follow< Hoba::L2AdjList::l2AdjAttr, &FecSm::l2Adj_,
                                           &KivL2Adj::doCleanUp > > {};
   class KivAdjEntryList
         : public Kiv::Hears< FecSm, Hoba::AdjEntryList const,
                              Kiv::Follow< Hoba::AdjEntryList::adjAttr, &FecSm::adjEntry_,
                                           &KivAdjEntry::doCleanUp > > {};
   KIV_REACTOR( KivContext, context );
   KIV_REACTOR( KivPortDir, portDir );
   KIV_REACTOR( KivL2AdjList, l2AdjList );
   KIV_REACTOR( KivAdjEntryList, adjEntryList );
};

} // namespace HobaSim
