// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaChipProgrammer.h"

#include "Hoba/HobaHook.h"
#include "Hoba/HobaMacLog.h"
#include "Hoba/HobaSlicedWalk.h"
#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

#include <cmath>

ZIPLINE_HANDLE( HobaChipProgrammer );
KIV_DEFINE( Hoba::HobaMacProgrammer );

namespace Hoba {

using CmdPtr = Kiv::Ptr< IndirectAccessMacCmd >;

void
checkMacTime( Kiv::Seconds time ) {
   if( !( time > 0 && std::isfinite( time ) ) ) {
      throw Kiv::RangeException( "a time of " + Kiv::toText( time ) +
                                 " is not above 0 and finite" );
   }
}

void
checkMacCount( std::uint32_t count ) {
   if( count == 0 ) {
      throw Kiv::RangeException( "a count of 0 would never come to an end" );
   }
}

HobaMacProgrammer::HobaMacProgrammer( Kiv::Ptr< Mox::TimerWheel > const & timerWheel )
      : HobaBaseSm( nullptr, "macProgrammer" ) {
   if( !timerWheel ) {
      throw Kiv::Exception( "a MAC programmer needs a timer wheel" );
   }
   constexpr Kiv::Seconds idsPerSecond = 1 << 20;
   lastTransactionId_ =
         static_cast< std::uint64_t >( std::max( timerWheel->now(), 0.0 ) * idsPerSecond );
   updatePendingAddressClockIs( timerWheel );
   pollReqClockIs( timerWheel );
   updateOverflowAddressClockIs( timerWheel );
}

void
HobaMacProgrammer::lastTransactionIdIs( std::uint64_t id ) {
   if( id > lastTransactionId_ ) {
      lastTransactionId_ = id;
      kivChanged( lastTransactionIdAttr );
   }
}

// ---- Life

void
HobaMacProgrammer::handleInitialized() {
   bool const hadBegun = std::exchange( hasBegun_, initialized() );
   if( initialized() ) {
      armPending( now() );
      armPoll( now() + pollReqFreq() );
      armOverflow( now() + updateOverflowAddressDelay() );
   } else if( !hadBegun ) {
      initializedIs( true );
   }
}

void
HobaMacProgrammer::kivDoZombieReactors( bool marked ) {
   Kiv::Dispatch::Frame frame;
   HobaBaseSm::kivDoZombieReactors( marked );
   if( !marked ) {
      return;
   }
   // The reactors stay, without a clock: who still holds the machine may ask when something is due.
   updatePendingAddressClock()->notifierIs( nullptr );
   pollReqClock()->notifierIs( nullptr );
   updateOverflowAddressClock()->notifierIs( nullptr );
   for( auto const & cmd : pendingMacOp() ) {
      placeIs( *cmd, macCmdIdle );
   }
   for( auto const & [ id, cmd ] : inProgMacOp() ) {
      placeIs( *cmd, macCmdIdle );
   }
   for( auto const & [ key, cmd ] : overflowAddrOp() ) {
      placeIs( *cmd, macCmdIdle );
   }
   pendingMacOpDelAll();
   pendingAddrOpDelAll();
   pendingFlushOpDelAll();
   inProgMacOpDelAll();
   inProgAddrOpDelAll();
   overflowAddrOpDelAll();
   failedAddrOpDelAll();
}

void
HobaMacProgrammer::suspendPendingIs( bool suspend ) {
   if( suspendPending_ == suspend ) {
      return;
   }
   Kiv::Dispatch::Frame frame;
   suspendPending_ = suspend;
   if( suspend ) {
      updatePendingAddressClock()->timeMinIs( Kiv::never );
      updateOverflowAddressClock()->timeMinIs( Kiv::never );
   }
   armPending( now() );
   armOverflow( now() + updateOverflowAddressDelay() );
   kivChanged( suspendPendingAttr );
}

void
HobaMacProgrammer::suspendInProgressIs( bool suspend ) {
   if( suspendInProgress_ == suspend ) {
      return;
   }
   Kiv::Dispatch::Frame frame;
   suspendInProgress_ = suspend;
   if( suspend ) {
      pollReqClock()->timeMinIs( Kiv::never );
   }
   armPoll( now() + pollReqFreq() );
   kivChanged( suspendInProgressAttr );
}

// ---- Clocks

void
HobaMacProgrammer::armPending( Kiv::Seconds when ) {
   if( mayWrite() && !pendingMacOp().empty() ) {
      updatePendingAddressClock()->noLaterThan( when );
   }
}

void
HobaMacProgrammer::armPoll( Kiv::Seconds when ) {
   if( mayPoll() && !inProgMacOp().empty() ) {
      pollReqClock()->noLaterThan( when );
   }
}

// Also with nothing in overflow, until a round has seen that, and the delay is what it was at first.
void
HobaMacProgrammer::armOverflow( Kiv::Seconds when ) {
   bool const isRaised = updateOverflowAddressDelay() > updateOverflowAddressMinDelay();
   bool const isWanted = isRaised || overflowLogged() || !overflowAddrOp().empty();
   if( isWanted && mayWrite() ) {
      updateOverflowAddressClock()->noLaterThan( when );
   }
}

// ---- Where commands are

void
HobaMacProgrammer::placeIs( IndirectAccessMacCmd & cmd, MacCmdPlace place ) {
   if( cmd.place_ == place ) {
      return;
   }
   if( cmd.place_ != macCmdIdle ) {
      --counts_[ cmd.op() ][ cmd.place_ ];
      --depths_[ cmd.place_ ].now;
   }
   cmd.place_ = place;
   if( place != macCmdIdle ) {
      ++counts_[ cmd.op() ][ place ];
      auto & depth = depths_[ place ];
      depth.most = std::max( depth.most, ++depth.now );
   }
}

CmdPtr
HobaMacProgrammer::command( MacEntryKey const & key ) const {
   for( auto const * ops : { &pendingAddrOp(), &inProgAddrOp(), &failedAddrOp() } ) {
      if( auto const * cmd = ops->empty() ? nullptr : ops->find( key ) ) {
         return *cmd;
      }
   }
   if( moving_ && moving_->valid() && moving_->key() == key ) {
      return moving_;
   }
   return overflowAddrOp( key );
}

// What was handed over while it was in no key map is pending.
bool
HobaMacProgrammer::isSuperseded( IndirectAccessMacCmd & cmd ) {
   if( cmd.addrOp() && cmd.valid() && !pendingAddrOp().empty() && pendingAddrOpHas( cmd.key() ) ) {
      supersede( cmd );
   }
   return cmd.invalid();
}

bool
HobaMacProgrammer::hasFlush() const {
   for( auto type = std::size_t( flushAll ); type < indirectAccessMacCmdTypes; ++type ) {
      if( counts_[ type ][ macCmdPending ] || counts_[ type ][ macCmdInProgress ] ) {
         return true;
      }
   }
   return false;
}

Kiv::Seconds
HobaMacProgrammer::nextOverflowTry() const {
   return overflowAddrOp().empty() ? Kiv::never : updateOverflowAddressClock()->timeMin();
}

Kiv::Seconds
HobaMacProgrammer::drainTime() const {
   auto const commands = pendingMacOp().size();
   auto const first = std::max( updatePendingAddressClock()->timeMin() - now(), 0.0 );
   return commands == 0 ? 0 : first + ( commands - 1 ) / updateQuantumofTimes() * updateDelay();
}

// ---- Accepting

// On its way from here on: who is told of what follows cannot hand it over again.
bool
HobaMacProgrammer::accept( CmdPtr const & cmd ) {
   if( kivMarkedForDeletion() ) {
      return false;
   }
   cmd->valid_ = true;
   cmd->stalled_ = false;
   cmd->tries_ = 0;
   cmd->status_ = macProgramSuccess;
   cmd->acceptedTime_ = now();
   placeIs( *cmd, macCmdPending );
   acceptedInc( 1 );
   return true;
}

namespace {

// While a command is on its way between two places, who asks for its key finds it all the same.
class Moving {
 public:
   Moving( IndirectAccessMacCmd *& slot, CmdPtr const & cmd ) : slot_( slot ) { slot_ = cmd.get(); }
   ~Moving() { slot_ = nullptr; }
   Moving( Moving const & ) = delete;
   Moving & operator=( Moving const & ) = delete;

 private:
   IndirectAccessMacCmd *& slot_;
};

// Whether there was memory for a place of the command; tells if not.
template< class Step >
bool
hasRoom( IndirectAccessMacCmd const & cmd, Step const & step ) {
   try {
      step();
      return true;
   } catch( ... ) {
      Kiv::Dispatch::failed( "HobaMacProgrammer", Kiv::toText( cmd ) );
      return false;
   }
}

void
checkIsIdle( CmdPtr const & cmd ) {
   if( !cmd ) {
      throw Kiv::Exception( "a MAC programmer was given no command" );
   }
   if( cmd->place() != macCmdIdle ) {
      throw Kiv::Exception( "a MAC programmer was given a command that is on its way: " +
                            Kiv::toText( *cmd ) );
   }
}

} // namespace

void
HobaMacProgrammer::supersede( IndirectAccessMacCmd & cmd ) {
   if( cmd.valid_ ) {
      cmd.valid_ = false;
      supersededInc( 1 );
   }
}

// Who is told of a step may hand over another command for the key. The one that is queued last is the newest.
void
HobaMacProgrammer::handleAddrOp( CmdPtr const & given ) {
   CmdPtr const cmd = given; // the caller's may be in what changes here
   checkIsIdle( cmd );
   if( !cmd->addrOp() ) {
      return hobaAssert( "cmd->addrOp()" );
   }
   Kiv::Dispatch::Frame frame;
   if( !accept( cmd ) ) {
      return;
   }
   auto const & key = cmd->key();
   if( !failedAddrOp().empty() ) {
      failedAddrOpDel( key );
   }
   if( auto const * waits = overflowAddrOp().find( key ) ) {
      CmdPtr const former = *waits;
      ZTRACE( 6, *former, " with same key in overflow queue, remove it" );
      placeIs( *former, macCmdIdle );
      supersede( *former );
      overflowAddrOpDel( key );
   }
   if( auto const * written = inProgAddrOp().empty() ? nullptr : inProgAddrOp().find( key ) ) {
      CmdPtr const former = *written;
      ZTRACE( 6, *former, " with same key in in-progress queue, mark it out-of-date" );
      supersede( *former );
      inProgAddrOpDel( key );
   }
   queue( cmd );
}

void
HobaMacProgrammer::handleFlushOp( CmdPtr const & given ) {
   CmdPtr const cmd = given;
   checkIsIdle( cmd );
   if( cmd->addrOp() ) {
      return hobaAssert( "!( cmd->addrOp() )" );
   }
   Kiv::Dispatch::Frame frame;
   if( accept( cmd ) ) {
      queue( cmd );
   }
}

// Behind all others, with an id of its own: no answer to a former try is taken for this one's. What throws leaves
// nothing behind but, perhaps, a superseded command in the queue.
void
HobaMacProgrammer::queue( CmdPtr const & cmd ) {
   if( kivMarkedForDeletion() ) {
      placeIs( *cmd, macCmdIdle );
      return;
   }
   placeIs( *cmd, macCmdPending );
   cmd->transactionId_ = ++lastTransactionId_;
   try {
      if( cmd->addrOp() ) {
         becomeNewest( cmd );
      } else {
         pendingFlushOpIs( cmd->transactionId_, cmd );
      }
      if( kivMarkedForDeletion() ) {
         placeIs( *cmd, macCmdIdle );
         return;
      }
      pendingMacOpEnq( cmd );
   } catch( ... ) {
      if( !cmd->addrOp() || pendingAddrOp( cmd->key() ) == cmd ) {
         leavePendingMaps( *cmd );
      }
      placeIs( *cmd, macCmdIdle );
      throw;
   }
   if( updatePendingAddressClock()->timeMin() == Kiv::never ) {
      armPending( now() );
   }
   kivChanged( lastTransactionIdAttr );
}

// Nobody is told of anything before it has its former one's place: two of a key are never valid.
void
HobaMacProgrammer::becomeNewest( CmdPtr const & cmd ) {
   CmdPtr const former = pendingAddrOp( cmd->key() );
   bool const isFirst = !former || former->invalid();
   if( former ) {
      ZTRACE( 6, *former, " with same key in pending queue, mark it out-of-date" );
      former->valid_ = false;
   }
   pendingAddrOpIs( cmd->key(), cmd );
   if( !isFirst ) {
      supersededInc( 1 );
   }
}

void
HobaMacProgrammer::handleCmdResponse( std::uint64_t transactionId, std::int64_t tblIndex,
                                      MacProgramStatus status ) {
   auto const * found = inProgMacOp().find( transactionId );
   if( !found ) {
      ZTRACE( 3, fwkType().name(),
              ": Can't find in progress command for transaction id: ", transactionId );
      unknownAnswersInc( 1 );
      return;
   }
   ( *found )->status_ = status;
   ( *found )->tblIndex_ = tblIndex;
}

// ---- Writing

// The next run is armed first: what throws leaves it the rest.
void
HobaMacProgrammer::updatePendingAddresses() {
   Kiv::Dispatch::Frame frame;
   if( !mayWrite() ) {
      return;
   }
   armPending( now() + updateDelay() );
   TimeSlice slice( *updatePendingAddressClock(), updateQuantumofTimes(), updateQuantum() );
   while( mayWrite() && !pendingMacOp().empty() && slice.next() ) {
      if( !writeFront( slice.now() ) ) {
         break;
      }
   }
   if( kivMarkedForDeletion() ) {
      return;
   }
   updatePendingAddressClock()->timeMinIs( Kiv::never );
   if( !pendingMacOp().empty() ) {
      ZTRACE( 7, "Schedule review for pending items" );
      armPending( now() + updateDelay() );
   } else if( inProgMacOp().empty() ) {
      ZTRACE( 7, "Nothing is pending. Stop" );
   }
   armPoll( now() + pollReqFreq() );
}

// False ends the run. The command is in progress before it is written, for who answers in the call.
bool
HobaMacProgrammer::writeFront( Kiv::Seconds now ) {
   CmdPtr const cmd = pendingMacOpFront();
   auto const id = cmd->transactionId();
   if( cmd->invalid() ) {
      ZTRACE( 6, " entry: ", cmd->key(), " transactionId: ", id, " op: ", cmd->op(),
              " is out-of-date, skip it" );
      leavePending( *cmd );
      placeIs( *cmd, macCmdIdle );
      return true;
   }
   inProgMacOpIs( id, cmd );
   if( kivMarkedForDeletion() ) {
      return false;
   }
   cmd->status_ = cmd->addrOp() ? macProgramInProgress : macProgramFlushInProgress;
   cmd->execStartTime_ = now;
   cmd->stalled_ = false;
   ++cmd->tries_;
   auto const result = write( cmd );
   ZTRACE( 6, *cmd, " write to hardware result : ", result );
   if( kivMarkedForDeletion() ) {
      return false;
   }
   if( result == macProgramBusy ) {
      inProgMacOpDel( id );
      return false;
   }
   bool const isInProgress = result == macProgramInProgress || result == macProgramFlushInProgress;
   if( isInProgress && cmd->addrOp() && !pendingAddrOpHas( cmd->key() ) ) {
      hobaAssert( "pendingAddrOpHas( cmd->key() )" );
   }
   if( isInProgress ) {
      placeIs( *cmd, macCmdInProgress );
   }
   Moving const moving( moving_, cmd );
   auto const newest = lastTransactionId();
   leavePending( *cmd );
   if( lastTransactionId() != newest ) {
      isSuperseded( *cmd );
   }
   if( !isInProgress ) {
      finish( cmd, result == macProgramSuccess );
   } else if( cmd->addrOp() && cmd->valid() && !kivMarkedForDeletion() &&
              !hasRoom( *cmd, [ & ] { inProgAddrOpIs( cmd->key(), cmd ); } ) ) {
      finish( cmd, false );
   }
   return true;
}

// What came of it; macProgramFailed of what must not be, if that is let pass, and of what threw.
MacProgramStatus
HobaMacProgrammer::write( CmdPtr const & cmd ) {
   auto result = macProgramFailed;
   try {
      result = callHook< &HobaMacProgrammer::writeToHw >( *this, cmd );
   } catch( ... ) {
      Kiv::Dispatch::failed( "HobaMacProgrammer::writeToHw", Kiv::toText( *cmd ) );
      return macProgramFailed;
   }
   switch( result ) {
   case macProgramSuccess:
   case macProgramInProgress:
   case macProgramBusy:
      return result;
   case macProgramFlushInProgress:
      if( !cmd->addrOp() ) {
         return result;
      }
      [[fallthrough]];
   default:
      hobaAssert( "unexpected mac program status" );
      return macProgramFailed;
   }
}

// If it is superseded, its key's place is the newer one's.
void
HobaMacProgrammer::leavePendingMaps( IndirectAccessMacCmd const & cmd ) {
   if( !cmd.addrOp() ) {
      pendingFlushOpDel( cmd.transactionId() );
   } else if( cmd.valid() ) {
      pendingAddrOpDel( cmd.key() );
   }
}

// It is at the head, unless all has ended.
void
HobaMacProgrammer::leavePending( IndirectAccessMacCmd const & cmd ) {
   leavePendingMaps( cmd );
   if( !pendingMacOp().empty() ) {
      pendingMacOpDeq();
   }
}

// ---- Finished, or again

void
HobaMacProgrammer::leaveInProgress( IndirectAccessMacCmd const & cmd ) {
   if( cmd.addrOp() && cmd.valid() && !inProgAddrOp().empty() ) {
      inProgAddrOpDel( cmd.key() );
   }
   inProgMacOpDel( cmd.transactionId() );
}

void
HobaMacProgrammer::finish( CmdPtr const & cmd, bool isDone ) {
   leaveInProgress( *cmd );
   placeIs( *cmd, macCmdIdle );
   isDone ? void( succeededInc( 1 ) ) : fail( cmd );
}

// It is nowhere any more.
void
HobaMacProgrammer::fail( CmdPtr const & cmd ) {
   ZTRACE( 2, *cmd, " failed" );
   if( cmd->addrOp() && !isSuperseded( *cmd ) && !kivMarkedForDeletion() ) {
      failedAddrOpIs( cmd->key(), cmd );
   }
   failedInc( 1 );
}

// It is in no queue.
void
HobaMacProgrammer::queueAgain( CmdPtr const & cmd ) {
   if( isSuperseded( *cmd ) || kivMarkedForDeletion() ) {
      placeIs( *cmd, macCmdIdle );
      return;
   }
   if( !hasRoom( *cmd, [ & ] { queue( cmd ); } ) ) {
      return fail( cmd );
   }
   retriedInc( 1 );
}

// A flush cannot wait for room.
void
HobaMacProgrammer::overflow( CmdPtr const & cmd ) {
   if( !cmd->addrOp() ) {
      return finish( cmd, false );
   }
   Moving const moving( moving_, cmd );
   auto const & key = cmd->key();
   if( cmd->valid() ) {
      if( overflowAddrOpHas( key ) ) {
         hobaAssert( "!overflowAddrOpHas( key )" );
      }
      if( pendingAddrOpHas( key ) ) {
         hobaAssert( "!pendingAddrOpHas( key )" );
      }
      overflowed_ = true;
   }
   leaveInProgress( *cmd );
   if( isSuperseded( *cmd ) || kivMarkedForDeletion() ) {
      placeIs( *cmd, macCmdIdle );
      return;
   }
   placeIs( *cmd, macCmdOverflow );
   if( !hasRoom( *cmd, [ & ] { overflowAddrOpIs( key, cmd ); } ) ) {
      placeIs( *cmd, macCmdIdle );
      return fail( cmd );
   }
   if( !overflowLogged() ) {
      overflowLoggedIs( true );
      hobaLog< ETH_MACADDRBANKFULL >( key.key.addr(), key.key.vlanId(), cmd->intf() );
   }
}

// ---- Polling

void
HobaMacProgrammer::pollInProgressCmds() {
   Kiv::Dispatch::Frame frame;
   if( !mayPoll() ) {
      return;
   }
   armPoll( now() + pollReqFreq() );
   if( inProgMacOpBookmark() == 0 && !inProgMacOp().empty() ) {
      pollRoundEnd_ = inProgMacOp().last()->key;
   }
   TimeSlice slice( *pollReqClock(), pollReqQuantumofTimes(), pollReqQuantum() );
   std::uint64_t bookmark = 0;
   for( auto at = inProgMacOp().lowerBound( inProgMacOpBookmark() );
        !( at == std::default_sentinel ) && ( *at ).key <= pollRoundEnd_; ++at ) {
      if( !mayPoll() || !slice.next() ) {
         ZTRACE( 6, fwkType().name(), " poll .. Time out" );
         bookmark = ( *at ).key;
         break;
      }
      CmdPtr const cmd = ( *at ).value;
      poll( cmd, slice.now() );
   }
   if( kivMarkedForDeletion() ) {
      return;
   }
   inProgMacOpBookmarkIs( bookmark );
   pollReqClock()->timeMinIs( Kiv::never );
   if( !inProgMacOp().empty() ) {
      ZTRACE( 7, "In-progress cmd exists, schedule polling with delay" );
      armPoll( now() + pollReqFreq() );
   }
   if( !pendingMacOp().empty() ) {
      ZTRACE( 7, "Pending cmd exists, schedule review" );
      armPending( now() + updateDelay() );
   }
   if( !overflowAddrOp().empty() ) {
      ZTRACE( 7, "Overflow address exists, schedule review with delay: ",
              updateOverflowAddressDelay() );
   }
   armOverflow( now() + updateOverflowAddressDelay() );
}

void
HobaMacProgrammer::poll( CmdPtr const & cmd, Kiv::Seconds now ) {
   switch( cmd->status() ) {
   case macProgramSuccess:
      return finish( cmd, true );
   case macProgramFailed:
      return finish( cmd, false );
   case macProgramInProgress:
   case macProgramFlushInProgress:
      if( !cmd->stalled() && now - cmd->execStartTime() > maxExecTime() ) {
         cmd->stalled_ = true;
         stalledInc( 1 );
      }
      return;
   case macProgramFull:
      return overflow( cmd );
   case macProgramBusy: {
      ZTRACE( 5, *cmd, " had stalled" );
      Moving const moving( moving_, cmd );
      leaveInProgress( *cmd );
      return queueAgain( cmd );
   }
   default:
      hobaAssert( "unexpected mac program status" );
      return finish( cmd, false );
   }
}

// ---- Retrying

void
HobaMacProgrammer::adaptOverflowDelay() {
   constexpr Kiv::Seconds step = 1.0;
   auto const delay = updateOverflowAddressDelay();
   auto const wanted = std::exchange( overflowed_, false ) ? delay * 2 : delay - step;
   auto const lowest = updateOverflowAddressMinDelay(), highest = updateOverflowAddressMaxDelay();
   updateOverflowAddressDelayIs( std::min( std::max( wanted, lowest ), highest ) );
   ZTRACE( 6, " updateOverflowAddressDelay:", updateOverflowAddressDelay() );
}

void
HobaMacProgrammer::updateOverflowAddresses() {
   Kiv::Dispatch::Frame frame;
   if( !mayWrite() ) {
      return;
   }
   bool const isNewRound = overflowAddrOpBookmark() == MacEntryKey();
   armOverflow( now() + updateOverflowAddressDelay() );
   if( isNewRound ) {
      if( !overflowed_ && overflowAddrOp().empty() ) {
         overflowLoggedIs( false );
      }
      adaptOverflowDelay();
   }
   TimeSlice slice( *updateOverflowAddressClock(), updateQuantumofTimes(), updateQuantum() );
   MacEntryKey bookmark;
   for( auto at = overflowAddrOp().lowerBound( overflowAddrOpBookmark() );
        !( at == std::default_sentinel ); ++at ) {
      if( !mayWrite() || !slice.next() ) {
         bookmark = ( *at ).key;
         break;
      }
      CmdPtr const cmd = ( *at ).value;
      retry( cmd );
   }
   if( kivMarkedForDeletion() ) {
      return;
   }
   overflowAddrOpBookmarkIs( bookmark );
   updateOverflowAddressClock()->timeMinIs( Kiv::never );
   if( !pendingMacOp().empty() ) {
      ZTRACE( 7, "Pending cmd exists, schedule Pending" );
      armPending( now() );
   }
   bool const goesOn = !( bookmark == MacEntryKey() );
   if( goesOn || !overflowAddrOp().empty() ) {
      ZTRACE( 7, "Overflow cmd exists, schedule Pending." );
   }
   armOverflow( now() + ( goesOn ? updateDelay() : updateOverflowAddressDelay() ) );
}

void
HobaMacProgrammer::retry( CmdPtr const & cmd ) {
   if( pendingAddrOpHas( cmd->key() ) ) {
      hobaAssert( "a command with the same key is in pending" );
   }
   Moving const moving( moving_, cmd );
   overflowAddrOpDel( cmd->key() );
   queueAgain( cmd );
}

} // namespace Hoba
