// SPDX-License-Identifier: Apache-2.0
#pragma once

// The pipeline between the helper of a chip (Hoba/HobaHelperMacAddrSm.h) and a MAC table that is written through
// an interface which answers later. Each add, remove and flush is a command. The newest one for a key wins; what
// met a full table is tried again, with a delay that adapts; no turn of the clock takes long.
//
//    class ChipMacProgrammer : public Hoba::HobaMacProgrammer {
//       HOBA_MACHINE( ChipMacProgrammer, Hoba::HobaMacProgrammer );
//     public:
//       Hoba::MacProgramStatus writeToHw( Kiv::Ptr< Hoba::IndirectAccessMacCmd > const & cmd ) override;
//    };
//
//    programmer->handleAddrOp( indirectAccessMacCmdFactory( addHost, key, intf, ... ) );
//    programmer->handleCmdResponse( transactionId, tblIndex, macProgramSuccess );   from the chip
//
// A command is in one place: it is pending, in progress, or in overflow. From each of them it is found by its
// key, too, while it is the newest for that. A superseded one stays where it is until it is consumed.
//
//    handleAddrOp() --> pending --writeToHw()--> in progress --success, failed--> finished
//                         ^  ^                       |   |
//                         |  +-------- busy ---------+   +--full--> overflow
//                         +----------------------------------------------+  after updateOverflowAddressDelay
//
// Commands are written in the order in which they were accepted. What is queued again (busy, overflow) comes
// behind all that was accepted meanwhile, flushes included, which know nothing of keys: who flushes also removes
// the keys that the flush covers and command() still has here.
//
// What writeToHw() may say. macProgramSuccess: done. macProgramInProgress (of a flush also
// macProgramFlushInProgress): handleCmdResponse() tells the rest, in the call already if need be.
// macProgramBusy: not taken; it stays at the head, and nothing is written for updateDelay. All else is an
// invariant failure, and so is an answer of macProgramParityError, or of what is no status. Where invariant
// failures are let pass (SIMULATION_VMID), the command has failed. What writeToHw() throws is told, and
// the command has failed.
//
// A failed command is not tried again: failedAddrOp has it until the key is asked for anew. One that is never
// answered stays in progress, and a newer one for its key is written all the same. Answers that come
// before the next poll replace each other. A command for which there is no memory any more has failed.
//
// *Times.* The three clocks wait only for what there is to do, and are idle otherwise. An accepted command is
// written at once only if nothing is scheduled. One turn does at most so many commands, and takes no longer than
// its quantum and one command, but does one at least. A round over a large overflow takes several turns,
// updateDelay apart, and waits for updateOverflowAddressDelay when it is over. That adapts once a round, before it:
// doubled if any command overflowed since the last one, one second less otherwise, until it is
// updateOverflowAddressMinDelay again.
//
// *Bad tuning* is refused with Kiv::RangeException: times that are not above 0 or not finite, and counts of 0.
// The current delay follows its bounds from the next round on; if they contradict each other, the upper one
// holds.

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaIndirectAccessMacCmd.h"
#include "Kiv/ClockReactor.h"
#include "Mox/TimerWheel.h"

#include <array>
#include <optional>

namespace Hoba {

// The rules of tuning. Throw Kiv::RangeException.
void checkMacTime( Kiv::Seconds time );
void checkMacCount( std::uint32_t count );

// What waits in one place.
struct MacCmdDepth {
   std::uint64_t now = 0, most = 0;
};

class HobaMacProgrammer : public HobaBaseSm {
   HOBA_MACHINE( HobaMacProgrammer, Hoba::HobaBaseSm );
   using CmdPtr = Kiv::Ptr< IndirectAccessMacCmd >;
   // Not yet written, in their order; the newest of each key; flushes by their transactions.
   KIV_QUEUE( CmdPtr, pendingMacOp );
   KIV_COLLECTION( MacEntryKey, CmdPtr, pendingAddrOp );
   KIV_READ_ONLY( pendingAddrOp );
   KIV_COLLECTION( std::uint64_t, CmdPtr, pendingFlushOp );
   KIV_READ_ONLY( pendingFlushOp );
   // Written, and not finished, by their transactions; the newest of each key. The next poll begins at the
   // bookmark.
   KIV_ORDERED( std::uint64_t, CmdPtr, inProgMacOp );
   KIV_READ_ONLY( inProgMacOp );
   KIV_ATTRIBUTE( std::uint64_t, inProgMacOpBookmark, 0 );
   KIV_READ_ONLY( inProgMacOpBookmark );
   KIV_COLLECTION( MacEntryKey, CmdPtr, inProgAddrOp );
   KIV_READ_ONLY( inProgAddrOp );
   // They met a full table. A round that goes on goes on at the bookmark; the default: none does.
   KIV_ORDERED( MacEntryKey, CmdPtr, overflowAddrOp );
   KIV_READ_ONLY( overflowAddrOp );
   KIV_ATTRIBUTE( MacEntryKey, overflowAddrOpBookmark );
   KIV_READ_ONLY( overflowAddrOpBookmark );
   // It was logged that the table is full; again only after a round in which nothing overflowed.
   KIV_ATTRIBUTE( bool, overflowLogged, false );
   KIV_READ_ONLY( overflowLogged );
   // Their keys' last words: nobody has asked for anything since.
   KIV_COLLECTION( MacEntryKey, CmdPtr, failedAddrOp );
   KIV_READ_ONLY( failedAddrOp );
   // While set nothing is written or tried again; while set nothing is polled. Commands are accepted all the
   // same. For who owns the machine, and operators.
   KIV_RULED( bool, suspendPending, false );
   KIV_RULED( bool, suspendInProgress, false );
   // Of the last command that was queued. What is set is a lower bound: it never goes back.
   KIV_RULED( std::uint64_t, lastTransactionId, 0 );

   // ---- Tuning. Holds from the next turn on.
   KIV_CHECKED( Kiv::Seconds, updateQuantum, checkMacTime, 0.01 );
   KIV_CHECKED( std::uint32_t, updateQuantumofTimes, checkMacCount, 128 );
   KIV_CHECKED( Kiv::Seconds, updateDelay, checkMacTime, 0.2 );
   KIV_CHECKED( Kiv::Seconds, pollReqQuantum, checkMacTime, 0.01 );
   KIV_CHECKED( std::uint32_t, pollReqQuantumofTimes, checkMacCount, 128 );
   KIV_CHECKED( Kiv::Seconds, pollReqFreq, checkMacTime, 0.1 );
   // How long a command may be in progress before it counts as stalled.
   KIV_CHECKED( Kiv::Seconds, maxExecTime, checkMacTime, 1.0 );
   KIV_CHECKED( Kiv::Seconds, updateOverflowAddressMinDelay, checkMacTime, 5.0 );
   KIV_CHECKED( Kiv::Seconds, updateOverflowAddressDelay, checkMacTime, 5.0 );
   KIV_CHECKED( Kiv::Seconds, updateOverflowAddressMaxDelay, checkMacTime, 30.0 );

   // ---- What has happened
   KIV_COUNTER( std::uint64_t, accepted );
   KIV_READ_ONLY( accepted );
   KIV_COUNTER( std::uint64_t, succeeded );
   KIV_READ_ONLY( succeeded );
   KIV_COUNTER( std::uint64_t, failed );
   KIV_READ_ONLY( failed );
   // Newer ones took their place.
   KIV_COUNTER( std::uint64_t, superseded );
   KIV_READ_ONLY( superseded );
   // Queued again: the hardware was busy, or its table full.
   KIV_COUNTER( std::uint64_t, retried );
   KIV_READ_ONLY( retried );
   // In progress longer than maxExecTime: each command once for each time that it was written.
   KIV_COUNTER( std::uint64_t, stalled );
   KIV_READ_ONLY( stalled );
   // For transactions that are not in progress.
   KIV_COUNTER( std::uint64_t, unknownAnswers );
   KIV_READ_ONLY( unknownAnswers );

 public:
   static void kivPut( KIV_POSITION( suspendPending ), KivSelf & self, bool const & suspend ) {
      self.suspendPendingIs( suspend );
   }
   static void kivPut( KIV_POSITION( suspendInProgress ), KivSelf & self, bool const & suspend ) {
      self.suspendInProgressIs( suspend );
   }

   // The chip is ready: writing begins. The same as initializedIs( true ). Said by initializedIs( false ), it ends.
   void handleInitialized() override;
   // The end: every queue is emptied, and nothing fires any more. Answers that come later are of unknown
   // transactions.
   void kivDoZombieReactors( bool marked ) override;

   // Accepts an address command; of a flush hobaAssert( "cmd->addrOp()" ), and it is not accepted. Throws
   // Kiv::Exception for none, and for one that is on its way already; one that is finished may come again. A machine
   // that has ended accepts nothing.
   virtual void handleAddrOp( CmdPtr const & cmd );
   // Accepts a flush; of an address command hobaAssert( "!( cmd->addrOp() )" ). Throws as handleAddrOp().
   virtual void handleFlushOp( CmdPtr const & cmd );
   // The chip's answer, on the thread of the event loop. What it says counts at the next poll.
   void handleCmdResponse( std::uint64_t transactionId, std::int64_t tblIndex,
                           MacProgramStatus status );

   // Writes the command. See above for what it returns.
   HOBA_REQUIRED( MacProgramStatus, writeToHw, ( CmdPtr const & cmd ) );
   // Writes the command to the copy of the table that a chip may keep in memory, to have what it needs when the
   // table itself cannot be asked. Nothing here calls it: a chip that has such a copy does, from its
   // writeToHw().
   HOBA_REQUIRED( MacProgramStatus, writeToHwShadow, ( CmdPtr const & cmd ) );

   // ---- Questions
   // The newest command for the key that is on its way, or has failed; null for none.
   CmdPtr command( MacEntryKey const & key ) const;
   // Whether nothing is pending or in progress; overflow waits for others.
   bool isIdle() const { return pendingMacOp().empty() && inProgMacOp().empty(); }
   // Whether a flush is pending or in progress.
   bool hasFlush() const;
   // How many commands of the kind are there.
   std::uint64_t count( IndirectAccessMacCmdType type, MacCmdPlace place ) const {
      return counts_[ type ][ place ];
   }
   MacCmdDepth depth( MacCmdPlace place ) const { return depths_[ place ]; }
   // When what is in overflow is tried next; Kiv::never if nothing is.
   Kiv::Seconds nextOverflowTry() const;
   // How long it takes until all that is pending now has been written, as far as tuning goes.
   Kiv::Seconds drainTime() const;
   Kiv::Seconds now() const { return updatePendingAddressClock()->now(); }

 protected:
   // Waits on `timerWheel`. Throws Kiv::Exception for none. Ids begin above what a pipeline can have given on
   // this clock so far, if it took a millionth of a second for each.
   explicit HobaMacProgrammer( Kiv::Ptr< Mox::TimerWheel > const & timerWheel );

 private:
   bool isRunning() const { return initialized() && !kivMarkedForDeletion(); }
   bool mayWrite() const { return isRunning() && !suspendPending(); }
   bool mayPoll() const { return isRunning() && !suspendInProgress(); }
   // Whether it is accepted: a machine that has ended accepts nothing.
   bool accept( CmdPtr const & cmd );
   void queue( CmdPtr const & cmd );
   void queueAgain( CmdPtr const & cmd );
   void becomeNewest( CmdPtr const & cmd );
   void supersede( IndirectAccessMacCmd & cmd );
   // Whether it is, or has just been, since a newer one for its key is on its way.
   bool isSuperseded( IndirectAccessMacCmd & cmd );
   void placeIs( IndirectAccessMacCmd & cmd, MacCmdPlace place );

   void updatePendingAddresses();
   bool writeFront( Kiv::Seconds now );
   MacProgramStatus write( CmdPtr const & cmd );
   void leavePending( IndirectAccessMacCmd const & cmd );
   void leavePendingMaps( IndirectAccessMacCmd const & cmd );
   void leaveInProgress( IndirectAccessMacCmd const & cmd );
   void finish( CmdPtr const & cmd, bool isDone );
   void fail( CmdPtr const & cmd );

   void pollInProgressCmds();
   void poll( CmdPtr const & cmd, Kiv::Seconds now );
   void overflow( CmdPtr const & cmd );

   void updateOverflowAddresses();
   void adaptOverflowDelay();
   void retry( CmdPtr const & cmd );

   // No later than that, if there is something to do and it may be done.
   void armPending( Kiv::Seconds when );
   void armPoll( Kiv::Seconds when );
   void armOverflow( Kiv::Seconds when );

   class KivUpdatePendingAddressClock
         : public Kiv::ClockReactor< HobaMacProgrammer,
                                     &HobaMacProgrammer::updatePendingAddresses > {};
   KIV_REACTOR( KivUpdatePendingAddressClock, updatePendingAddressClock );
   class KivPollReqClock
         : public Kiv::ClockReactor< HobaMacProgrammer, &HobaMacProgrammer::pollInProgressCmds > {};
   KIV_REACTOR( KivPollReqClock, pollReqClock );
   class KivUpdateOverflowAddressClock
         : public Kiv::ClockReactor< HobaMacProgrammer,
                                     &HobaMacProgrammer::updateOverflowAddresses > {};
   KIV_REACTOR( KivUpdateOverflowAddressClock, updateOverflowAddressClock );

   std::array< std::array< std::uint64_t, macCmdPlaces >, indirectAccessMacCmdTypes > counts_{};
   std::array< MacCmdDepth, macCmdPlaces > depths_{};
   // A round of polls ends with the last command that there was when it began.
   std::uint64_t pollRoundEnd_ = 0;
   bool hasBegun_ = false; // initialized() as handleInitialized() found it last
   IndirectAccessMacCmd * moving_ = nullptr; // between two places
   bool overflowed_ = false; // since the last round over the overflow began
};

} // namespace Hoba
