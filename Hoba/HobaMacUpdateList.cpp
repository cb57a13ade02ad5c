// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaMacAddrSm.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaMacUpdateList );

// How what was decided is done: in turns of the clock, in the order in which it was decided. The hardware first,
// then the status: what the hardware refuses, or throws, has changed nothing.

namespace Hoba {

using Helper = HobaHelper::HobaHelperMacAddrSm;

void
MacAddrSm::updateQueuedAddresses() {
   Kiv::Dispatch::Frame frame;
   auto const clock = updateMacEntryClock();
   TimeSlice slice( *this, *clock, macModifyBacklogQuantum() );
   while( isReady() && !updateList().empty() ) {
      if( !slice.next() ) {
         ZTRACE( 6, "updateQueuedAddresses: Returned not complete" );
         clock->noLaterThan( clock->now() );
         return;
      }
      program( ( *updateList().begin() ).key );
   }
   ZTRACE( 6, "updateQueuedAddresses: Returned successfully, all entries processed" );
   if( room_ ) {
      roomAppeared();
   }
   if( firstPassWalked_ ) {
      endFirstPass();
   }
}

void
MacAddrSm::program( Pair pair ) {
   // It is in the list until it is done: who hears of it in the middle, and decides anew, replaces it.
   auto const change = *updateList().find( pair );
   auto status = macProgramFailed;
   try {
      status = programEntry( change );
   } catch( ... ) {
      Kiv::Dispatch::failed( "MacAddrSm::program", Kiv::toText( pair ) );
   }
   auto const * now = updateList().find( pair );
   if( !isReady() || !now || !( *now == change ) ) {
      return;
   }
   updateListDel( pair );
   if( isMacProgramRefused( status ) ) {
      refused( change, status );
   }
}

MacNextHop
MacAddrSm::nextHopToProgram( MacEntry const & entry ) const {
   auto hop = sources_.nextHop( entry );
   if( hop.obstacle && sources_.isLearnedInHardware( entry ) ) {
      hop.obstacle = macObstacleNone; // the hardware knows its way
   }
   auto const * held = fdb_.nextHop( entry.macEntry );
   if( held && hop.obstacle ) {
      auto const status = fdb_.entry( entry.macEntry );
      if( status && status->entryType == entry.entryType &&
          status->l2RibObjTuple == entry.l2RibObjTuple ) {
         hop.obstacle = macObstacleNone;
         hop.nextHopId = held->nextHopId;
         hop.hwId = held->hwId;
         hop.isMpls = status->isMplsNextHop;
      }
   }
   return hop;
}

MacProgramStatus
MacAddrSm::programEntry( ModifyMacEntry const & change ) {
   int const level = showMacUpdateStatus() ? 2 : 5;
   switch( change.action ) {
   case addLearntToFdbStatus:
   case addConfiguredToFdbStatusAndHardware:
   case addLearntLocalAndRemoveRemote: {
      ZTRACE_AT( level, " Programming MAC entry: ", change );
      auto const status = programLocal( change );
      if( !isMacProgramRefused( status ) ) {
         ZTRACE_AT( level, change.macEntry,
                    change.action == addLearntLocalAndRemoveRemote ? " Remote to local successful"
                                                                   : " Add successful" );
      }
      return status;
   }
   case addLearntRemote:
   case addConfiguredRemote: {
      ZTRACE_AT( level, " Programming MAC entry: ", change );
      auto const status = programRemote( change );
      if( !isMacProgramRefused( status ) ) {
         ZTRACE_AT( level, change.macEntry, " Remote add successful" );
      }
      return status;
   }
   case removeFromFdbStatusAndHardware: {
      ZTRACE_AT( level, " Removing MAC entry: ", change );
      auto const status = programRemoval( change );
      if( isMacProgramRefused( status ) ) {
         ZTRACE( 2, change.macEntry, " Remove unsuccessful, code is ", status );
      } else {
         ZTRACE_AT( level, change.macEntry, " Remove successful" );
      }
      return status;
   }
   default:
      ZTRACE( 0, "ERROR: Unknown action ", change.action, " of ", change.macEntry );
      return macProgramSuccess;
   }
}

HobaHelper::Host
MacAddrSm::hostOf( MacEntry const & entry ) const {
   HobaHelper::Host host;
   host.macEntry = entry.macEntry;
   host.intf = entry.intf;
   host.entryType = entry.entryType;
   host.dropMode = entry.dropMode;
   host.ages = isMacEntryLearned( entry.entryType ) && !isNonAgingMac( entry.macEntry );
   return host;
}

Kiv::String
MacAddrSm::verifyHost( MacEntry const & entry ) const {
   if( !Bridging::isEntryTypeRemote( entry.entryType ) ) {
      return helper_->handleVerify( hostOf( entry ) );
   }
   // As it was programmed: a walk may be on its way that makes it follow its object.
   MacNextHop hop;
   hop.isMpls = entry.isMplsNextHop;
   if( auto const * held = fdb_.nextHop( entry.macEntry ) ) {
      hop.nextHopId = held->nextHopId;
      hop.hwId = held->hwId;
   }
   return helper_->verifyRemoteHost( remoteHostOf( entry, hop ) );
}

HobaHelper::RemoteHost
MacAddrSm::remoteHostOf( MacEntry const & entry, MacNextHop const & hop ) const {
   HobaHelper::RemoteHost host;
   host.macEntry = entry.macEntry;
   host.intf = entry.intf;
   host.entryType = entry.entryType;
   host.dropMode = entry.dropMode;
   host.swTunnelGroupId = entry.swTunnelGroupId.value();
   host.l2RibObjTuple = entry.l2RibObjTuple;
   host.nextHopId = hop.nextHopId;
   host.hwId = hop.hwId;
   host.isMplsNextHop = hop.isMpls;
   host.ages = sources_.isLearnedInHardware( entry ) && !isNonAgingMac( entry.macEntry );
   return host;
}

MacProgramStatus
MacAddrSm::programLocal( ModifyMacEntry const & change ) {
   auto const entry = change.entry();
   auto const host = hostOf( entry );
   auto const status = helper_.call< &Helper::doAddHost >( host );
   if( !isMacProgramRefused( status ) ) {
      isMacEntryLearned( entry.entryType ) && !host.ages ? neverAges_.insert( entry.macEntry )
                                                         : neverAges_.erase( entry.macEntry );
      flush_.written( entry.macEntry );
      inForce( entry );
   }
   return status;
}

bool
MacAddrSm::isKeptOutOfRemoteHostTable( MacEntry const & entry ) const {
   bool const isOut = in_.mlagStatus && in_.mlagStatus->fastMacRedirectionEnabled() &&
                      Bridging::isEntryTypePeer( entry.entryType );
   if( isOut ) {
      ZTRACE( 5, entry.macEntry, " removed from remote host table ",
              " since MLAG fastMacRedirection is enabled." );
   }
   return isOut;
}

MacProgramStatus
MacAddrSm::programRemote( ModifyMacEntry const & change ) {
   auto const entry = change.entry();
   auto const hop = nextHopToProgram( entry );
   bool const isNew = !fdb_.nextHop( entry.macEntry );
   if( hop.obstacle || ( isNew && fdb_.remotes() >= helper_->getMaxRemoteMacs() ) ) {
      // It was all right when it was decided: now it is withheld.
      updateListDel( entry.macEntry );
      auto const * host = fdb_.find( entry.macEntry );
      indexIs( entry.macEntry, entry.intf, host ? host->intf : Pelt::IntfId() );
      evaluateEntry( entry.macEntry );
      // Whoever wants it all the same asks again, but not at once.
      auto const * again = updateList().find( entry.macEntry );
      if( !again || !( again->entry() == entry ) ) {
         return macProgramSuccess;
      }
      auto waits = *again;
      updateListDel( entry.macEntry );
      refused( waits, macProgramFailed );
      return macProgramSuccess;
   }
   auto const status = helper_.call< &Helper::addRemoteHost >( remoteHostOf( entry, hop ) );
   if( !isMacProgramRefused( status ) ) {
      flush_.written( entry.macEntry );
      fdb_.remoteIs( entry, hop, !isKeptOutOfRemoteHostTable( entry ) );
      inForce( entry );
   }
   return status;
}

MacProgramStatus
MacAddrSm::programRemoval( ModifyMacEntry const & change ) {
   auto const status = helper_.call< &Helper::removeHost >( change.macEntry );
   if( !isMacProgramRefused( status ) ) {
      neverAges_.erase( change.macEntry );
      outOfForce( change.macEntry );
      room_ = true;
   }
   return status;
}

// ---- In force

void
MacAddrSm::inForce( MacEntry const & entry ) {
   auto const pair = entry.macEntry;
   if( auto const * host = fdb_.find( pair ) ) {
      if( Bridging::isEntryTypeRemote( host->entryType ) &&
          !Bridging::isEntryTypeRemote( entry.entryType ) ) {
         fdb_.remoteDel( pair );
         room_ = true;
      }
      // A failed server has not moved: the CPU port stands for it.
      bool const isFailure =
            Pelt::CpuIntfId::isCpuIntfId( entry.intf ) && fsfFailedServerHas( pair );
      if( host->intf != entry.intf && !isFailure ) {
         moveLogEnq( { pair, host->intf, entry.intf, now(), entry.moveCount.value() } );
         if( moveLog().size() > moveLogSize ) {
            moveLogDeq();
         }
         moveCountInc( 1 );
      }
   }
   // The first one of a VLAN comes behind walks over the status that began without the VLAN.
   if( !walks_.empty() && !fdb_.hasVlan( pair.vlanId() ) ) {
      walks_.add( std::vector{ pair }, evaluation() );
   }
   fdb_.addToFdbStatus( entry );
}

void
MacAddrSm::outOfForce( Pair pair ) {
   auto const * host = fdb_.find( pair );
   if( host && Bridging::isEntryTypeRemote( host->entryType ) ) {
      ZTRACE( 5, "Deleting remote MAC from FDB Status ", pair );
   }
   fdb_.remoteDel( pair );
   fdb_.delFromFdbStatus( pair, lazyFdbStatusDeletion() );
   if( !withheld().empty() ) {
      roomAppeared();
   }
}

// ---- What the hardware refused

void
MacAddrSm::refused( ModifyMacEntry change, MacProgramStatus status ) {
   if( status == macProgramFull ) {
      ZTRACE( 4, change.macEntry, " Table full" );
      if( !change.fullLogged ) {
         ZTRACE( 2, "Logging table full message" );
         hobaLog< ETH_MACADDRBANKFULL >( change.macEntry.addr(), change.macEntry.vlanId(),
                                         change.intf );
         change.fullLogged = true;
      }
   }
   change.refusal = status;
   refusedListIs( change );
   retryClock()->noLaterThan( now() + retryDelay );
}

// An entry has left the hardware: who waits for room may have it now. Nobody is asked for each of many that leave.
void
MacAddrSm::roomAppeared() {
   room_ = false;
   bool const waits = !refusedList().empty();
   if( waits || !withheld().empty() ) {
      retryClock()->noLaterThan( now() + retryDelay );
   }
}

void
MacAddrSm::retryRefused() {
   if( !isReady() ) {
      return;
   }
   if( retries_ == 0 ) {
      retries_ = refusedList().size();
      evaluateWithheld();
   }
   retrySome();
   if( !updateList().empty() ) {
      updateMacEntryClock()->noLaterThan( now() );
   }
   if( retries_ > 0 ) {
      retryClock()->noLaterThan( now() );
   } else if( !refusedList().empty() ) {
      retryClock()->noLaterThan( now() + retryDelay );
   }
}

// Each once: what is refused again stands behind them.
void
MacAddrSm::retrySome() {
   auto const clock = retryClock();
   TimeSlice slice( *this, *clock, macModifyBacklogQuantum() );
   for( ; retries_ > 0; --retries_ ) {
      if( refusedList().empty() || !isReady() ) {
         retries_ = 0;
         return;
      }
      if( !slice.next() ) {
         return;
      }
      auto const again = ( *refusedList().begin() ).value;
      refusedListDel( again.macEntry );
      updateListIs( again );
      flush_.written( again.macEntry );
   }
}

} // namespace Hoba
