// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaMacAddrSm.h"
#include "Kiv/SetsByKey.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaMacStation );

// One station: what is said of it, what follows, and why.

namespace Hoba {

// ---- Questions

ModifyMacEntry
modifyMacEntryFactory( Bridging::MacVlanPair pair, Pelt::IntfId intf, Bridging::EntryType entryType,
                       std::uint32_t moves ) {
   ModifyMacEntry change;
   change.macEntry = pair;
   change.intf = intf;
   change.entryType = entryType;
   change.moves = moves;
   return change;
}

MacEntry
ModifyMacEntry::entry() const {
   MacEntry is;
   is.macEntry = macEntry;
   is.intf = intf;
   is.entryType = entryType;
   is.swTunnelGroupId = swTunnelGroupId;
   is.moveCount = Mox::Seqno32( moves );
   is.lastMoveTime = lastMoveTime;
   is.l2RibObjTuple = l2RibObjTuple;
   is.dropMode = dropMode;
   is.isMplsNextHop = isMplsNextHop;
   return is;
}

ModifyMacEntry
MacAddrSm::changeTo( MacEntry const & entry, EntryEvaluationAction action ) {
   auto change = modifyMacEntryFactory( entry.macEntry, entry.intf, entry.entryType,
                                        entry.moveCount.value() );
   change.action = action;
   change.lastMoveTime = entry.lastMoveTime;
   change.swTunnelGroupId = entry.swTunnelGroupId;
   change.l2RibObjTuple = entry.l2RibObjTuple;
   change.isMplsNextHop = entry.isMplsNextHop;
   change.dropMode = entry.dropMode;
   return change;
}

namespace {

bool
isAdd( EntryEvaluationAction action ) {
   return action <= addLearntLocalAndRemoveRemote;
}

} // namespace

ModifyMacEntry const *
MacAddrSm::queued( Pair pair ) const {
   if( auto const * change = updateList().empty() ? nullptr : updateList().find( pair ) ) {
      return change;
   }
   return refusedList().empty() ? nullptr : refusedList().find( pair );
}

std::optional< MacEntry >
MacAddrSm::currentEntry( Pair pair ) const {
   if( auto const * queuedEntry = queued( pair ) ) {
      if( isAdd( queuedEntry->action ) ) {
         return queuedEntry->entry();
      }
      if( queuedEntry->action != removeFromFdbStatusAndHardware ) {
         hobaAssert( "queuedEntry->action() == removeFromFdbStatusAndHardware_" );
      }
      return std::nullopt;
   }
   auto entry = fdb_.entry( pair );
   if( !entry ) {
      ZTRACE( 8, pair, " entry not found in collections" );
   }
   return entry;
}

Kiv::HashSet< MacAddrSm::Pair > const &
MacAddrSm::hostsBehind( Pelt::IntfId intf ) const {
   static Kiv::HashSet< Pair > const none;
   auto const * hosts = hostsByIntf_.find( intf );
   return hosts ? *hosts : none;
}

namespace {

// All of what is said of one station, held together.
struct Gathered {
   MacCandidates candidates;
   MacCandidate const * best = nullptr;
   std::optional< MacEntry > reported;
   bool learnedInHardware = false;
   std::optional< MacEntry > current;
   bool isPending = false; // it is decided to be behind the overlay, and that is still to be done
   MacClaims claims;
};

void
gather( MacAddrSm const & sm, Bridging::MacVlanPair pair, bool reportIsLost, Gathered & all,
        std::vector< MacNoCandidate > & none ) {
   auto const & sources = sm.sources();
   all.current = sm.currentEntry( pair );
   // What was learnt by nobody else and lost is in the table of reports, which then has nothing else to say.
   bool const isOnlyLost = reportIsLost && all.current &&
                           isMacEntryLearned( all.current->entryType ) &&
                           !sources.hasTunnelLearnEvents();
   auto const * record = isOnlyLost ? nullptr : sources.record( pair );
   all.best = sources.configuredEntry( pair, record, all.candidates, none );
   all.isPending = all.current && Bridging::isEntryTypeRemote( all.current->entryType ) &&
                   ( sm.updateListHas( pair ) || sm.refusedListHas( pair ) );
   auto & claims = all.claims;
   // Looking at the clock costs as much as all the rest.
   claims.now = !all.best                               ? 0
                : all.best->source == macSourceMacTable ? all.best->entry.lastMoveTime
                                                        : sm.now();
   claims.current = all.current ? &*all.current : nullptr;
   if( !reportIsLost ) {
      all.reported = sources.reported( pair, record, all.learnedInHardware );
   }
   if( all.reported ) {
      claims.reported = &*all.reported;
      claims.reportedObstacle = sources.reportedObstacle( *all.reported );
      // What the hardware did not learn is to be written, for which there must be a way.
      if( !claims.reportedObstacle && !all.learnedInHardware &&
          Bridging::isEntryTypeRemote( all.reported->entryType ) ) {
         claims.reportedObstacle = sources.nextHop( *all.reported ).obstacle;
      }
   }
   claims.configured = all.best;
   if( all.best && Bridging::isEntryTypeRemote( all.best->entry.entryType ) ) {
      claims.configuredObstacle = sources.hasVni( pair.vlanId() )
                                        ? sources.nextHop( all.best->entry ).obstacle
                                        : macObstacleNoVni;
   }
   claims.isNonAging = all.current && sources.isNonAgingMac( pair );
   // What the hardware learnt there goes when the hardware says so.
   claims.overlayRestarts = claims.current && sources.overlayRestarts() && sm.fdb().nextHop( pair );
}

// What becomes of it. For what would win there may be no room behind the overlay: then it has no say. Of what was
// decided already there is one more look when it is programmed.
MacVerdict
decide( MacAddrSm const & sm, Bridging::MacVlanPair pair, Gathered & all ) {
   auto verdict = evaluateMacClaims( all.claims );
   auto const isBeyondLimit = [ & ] {
      bool const isWritten = verdict.action == addConfiguredRemote ||
                             ( verdict.action == addLearntRemote && !all.learnedInHardware );
      return isWritten && !all.isPending && !sm.fdb().nextHop( pair ) &&
             sm.fdb().remotes() >= sm.helper()->getMaxRemoteMacs();
   };
   while( isBeyondLimit() ) {
      auto & obstacle = verdict.action == addConfiguredRemote ? all.claims.configuredObstacle
                                                              : all.claims.reportedObstacle;
      obstacle = macObstacleRemoteLimit;
      verdict = evaluateMacClaims( all.claims );
   }
   return verdict;
}

} // namespace

MacExplanation
MacAddrSm::explain( Pair pair ) const {
   MacExplanation answer;
   Gathered all;
   bool learnedInHardware = false;
   answer.reportedLost = lostReport_.has( pair );
   gather( *this, pair, answer.reportedLost, all, answer.none );
   answer.reported = sources_.reported( pair, sources_.record( pair ), learnedInHardware );
   answer.verdict = decide( *this, pair, all );
   answer.reportedObstacle = all.claims.reportedObstacle;
   answer.configuredObstacle = all.claims.configuredObstacle;
   std::size_t best = 0;
   for( auto const & candidate : all.candidates.all() ) {
      answer.candidates.push_back( { candidate, macRank( candidate.entry ) } );
      auto const here = answer.candidates.size() - 1;
      if( here == best ) {
         continue;
      }
      auto const choice =
            betterEntry( &answer.candidates[ best ].candidate.entry,
                         &answer.candidates[ here ].candidate.entry, sources_.groups() );
      bool const wins = choice.winner == &answer.candidates[ here ].candidate.entry;
      answer.candidates[ wins ? best : here ].rule = choice.rule;
      answer.candidates[ wins ? here : best ].rule = choice.rule;
      best = wins ? here : best;
   }
   if( !answer.candidates.empty() ) {
      answer.candidates[ best ].isBest = true;
   }
   answer.status = fdb_.entry( pair );
   if( auto const * change = queued( pair ) ) {
      answer.pending = *change;
   }
   if( auto const * held = withheld().find( pair ) ) {
      answer.withheld = *held;
   }
   answer.isNonAging = isNonAgingMac( pair );
   answer.isFailedServer = fsfFailedServerHas( pair );
   return answer;
}

// ---- Decide

void
MacAddrSm::lose( Pair pair ) {
   lostReport_.insert( pair );
   if( tunnelWalks_ > 0 ) {
      lostSince_.insert( pair );
   }
}

bool
MacAddrSm::checkIgnoreEvent( Pair pair, MacClaims & claims ) {
   auto const * reported = claims.reported;
   if( claims.agedInHardware && !reported && fsfFailedServerHas( pair ) ) {
      ZTRACE( 5, "Ignoring event for mac entry ", pair, " Ignoring aging event for FSF entry ",
              pair );
      // One that is nowhere may have waited, and its obstacle be gone by now.
      return claims.current && claims.current->intf == Pelt::CpuIntfId();
   }
   if( reported && claims.configured && !claims.configuredObstacle &&
       Bridging::isEntryTypeRemote( reported->entryType ) &&
       Bridging::isEntryTypeRemote( claims.configured->entry.entryType ) && claims.current &&
       Bridging::isEntryTypeRemote( claims.current->entryType ) &&
       !isMacEntryLearned( claims.current->entryType ) ) {
      ZTRACE( 5, "Ignoring event for mac entry ", pair,
              " ignoring learn event for just-programmed remote entry" );
      lose( pair );
      claims.reported = nullptr;
      return claims.learnedInHardware;
   }
   return false;
}

bool
MacAddrSm::collidingStaticEntryWithRouterMacEntry( MacCandidates const & candidates ) const {
   MacEntry const * configured = nullptr;
   for( auto const & [ source, entry ] : candidates.all() ) {
      if( source == macSourceFdbConfig && entry.entryType == Bridging::configuredStaticMac ) {
         configured = &entry;
      } else if( source == macSourceRouterMacTable && configured ) {
         ZTRACE( 2, "collision of static entry ", *configured, " with router mac entry ", entry );
         return true;
      }
   }
   return false;
}

void
MacAddrSm::traceMoves( MacVerdict const & verdict ) const {
   auto const moves = verdict.entry.moveCount;
   switch( verdict.moves ) {
   case macMovesKept:
      break;
   case macMovesConfigured:
      ZTRACE( 6, "Setting moves from configured: ", moves );
      break;
   case macMovesConfiguredPlusOne:
      ZTRACE( 6, "Setting moves from configured+1: ", moves );
      break;
   case macMovesReceived:
      ZTRACE( 6, "Setting moves from received: ", moves );
      break;
   case macMovesCurrentPlusOne:
      ZTRACE( 6, "Settting moves to current+1: ", moves );
      break;
   case macMovesNotIncremented:
      ZTRACE( 6, "Not incremented moves: ", moves );
      break;
   }
}

void
MacAddrSm::detectRemoteLocalMove( MacEntry const * before, MacEntry const & after, int point,
                                  ModifyMacEntry & change ) const {
   if( !before ) {
      return;
   }
   bool const wasRemote = Bridging::isEntryTypeRemote( before->entryType );
   bool const isRemote = Bridging::isEntryTypeRemote( after.entryType );
   if( wasRemote && !isRemote ) {
      if( point == 1 ) {
         ZTRACE( 5, after.macEntry, " Detected remote to local move (1). " );
      } else {
         ZTRACE( 5, after.macEntry, " Detected remote to local move (2). " );
      }
      change.movedToLocal = true;
   } else if( !wasRemote && isRemote ) {
      if( point == 1 ) {
         ZTRACE( 5, after.macEntry, " Detected local to remote move (1). " );
      } else {
         ZTRACE( 5, after.macEntry, " Detected local to remote move (2). " );
      }
      change.movedToRemote = true;
   }
}

namespace {

void
traceObstacle( Bridging::MacVlanPair pair, MacObstacle obstacle ) {
   switch( obstacle ) {
   case macObstacleNoObjTuple:
      ZTRACE( 4, "No valid L2Rib ObjTuple for mac ", pair, " Ignoring update." );
      break;
   case macObstacleDropNextHop:
      ZTRACE( 4, "Mac entry ", pair, " pointing to drop nexthopId.", " Ignoring update." );
      break;
   case macObstacleNoHwId:
      ZTRACE( 4, pair, " hwId missing changing action to remove" );
      break;
   case macObstacleNextHopUnresolved:
      ZTRACE( 4, pair, " changing action to ignore, wait for next hop id " );
      break;
   case macObstacleRemoteLimit:
      ZTRACE( 4, pair, " max remote MAC limit reached,", " Ignoring update." );
      break;
   default:
      ZTRACE( 4, "Mac entry ", pair, ' ', macObstacleText( obstacle ), " Ignoring update." );
   }
}

} // namespace

void
MacAddrSm::noteWithheld( Pair pair, MacClaims const & claims,
                         std::vector< MacNoCandidate > const & none ) {
   auto obstacle = claims.configured ? claims.configuredObstacle : macObstacleNone;
   bool const hasLost = claims.configured && obstacle == macObstacleNone;
   if( obstacle == macObstacleNone && claims.reported && !hasLost ) {
      obstacle = claims.reportedObstacle;
   }
   if( obstacle == macObstacleNone && !none.empty() ) {
      obstacle = none.front().obstacle;
   }
   if( obstacle == macObstacleNone ) {
      withheldDel( pair );
      return;
   }
   auto const * known = withheld().find( pair );
   if( !known || known->obstacle != obstacle ) {
      traceObstacle( pair, obstacle );
      withheldIs( pair, { obstacle, now() } );
   }
}

namespace {

// It stays with the next hop that it has, whatever is said of it now.
bool
keepsNextHop( MacVerdict const & verdict ) {
   return verdict.reason == macReasonOverlayRestarts || verdict.reason == macReasonWaitsForNextHop;
}

} // namespace

// The next hop as it is now, and not as it was when it was programmed.
bool
MacAddrSm::hasOtherNextHop( MacVerdict const & verdict, MacClaims const & claims ) const {
   bool const isKept = keepsNextHop( verdict );
   auto const * configured = claims.configuredObstacle ? nullptr : claims.configured;
   auto const * entry = isKept ? claims.current : configured ? &configured->entry : nullptr;
   auto const * programmed = fdb_.nextHop( verdict.entry.macEntry );
   if( !entry || !programmed || entry->entryType != verdict.entry.entryType ) {
      return false;
   }
   auto const hop = sources_.nextHop( *entry );
   return !hop.obstacle &&
          ( programmed->hwId != hop.hwId || programmed->nextHopId != hop.nextHopId );
}

void
MacAddrSm::evaluateEntry( Pair pair, bool learnedInHardware, bool agedInHardware ) {
   if( !isReady() || !pair.vlanId().value() ) {
      return;
   }
   Kiv::Dispatch::Frame frame;
   Gathered all;
   std::vector< MacNoCandidate > none;
   gather( *this, pair, !lostReport_.empty() && lostReport_.has( pair ), all, none );
   auto & claims = all.claims;
   claims.learnedInHardware = learnedInHardware;
   claims.agedInHardware = agedInHardware;
   ZTRACE( 6, "Evaluating MAC entry: ", pair, ", learned in hardware: ", learnedInHardware,
           ", aged in hardware: ", agedInHardware );
   if( !all.candidates.all().empty() ) {
      collidingStaticEntryWithRouterMacEntry( all.candidates );
      ZTRACE( 6, "Configured entry is ", all.best->entry );
   }
   if( claims.current ) {
      ZTRACE( 6, "Current entry is ", *claims.current );
   }
   if( all.best || !rib_.empty() ) {
      rib_.hostIs( pair, all.best ? all.best->entry.l2RibObjTuple : L2Rib::ObjTuple() );
   }
   bool const isIgnored = checkIgnoreEvent( pair, claims );
   auto verdict = isIgnored ? MacVerdict() : decide( *this, pair, all );
   if( verdict.reportedLost ) {
      lose( pair );
   }
   if( claims.configuredObstacle || claims.reportedObstacle || !none.empty() ||
       !withheld().empty() ) {
      noteWithheld( pair, claims, none );
   }
   if( isIgnored ) {
      return;
   }
   bool const isKept = keepsNextHop( verdict );
   if( isKept || !keptRib_.empty() ) {
      keptRib_.hostIs( pair, isKept ? claims.current->l2RibObjTuple : L2Rib::ObjTuple() );
   }
   bool const isRerouted = !queued( pair ) && hasOtherNextHop( verdict, claims );
   if( verdict.action == invalidAction && isRerouted ) {
      verdict.action = addConfiguredRemote;
   }
   decided( verdict, claims, all.learnedInHardware, isRerouted );
}

// What was decided is done at once if the hardware has no part in it, and queued otherwise.
void
MacAddrSm::decided( MacVerdict const & verdict, MacClaims const & claims, bool hardwareHolds,
                    bool isRerouted ) {
   auto const & entry = verdict.entry;
   auto const pair = entry.macEntry;
   if( verdict.action == invalidAction ) {
      ZTRACE( 6, " Final action: ignore - MAC entry: ", entry, ' ',
              macReasonText( verdict.reason ) );
      bool const isKept =
            verdict.reason == macReasonNonAging || verdict.reason == macReasonOverlayRestarts;
      bool const keepsWhatAged = isKept && claims.agedInHardware && claims.current;
      bool const isTold = inFirstPass_ && claims.current && !queued( pair ) &&
                          !skipHwProgInHitlessRestartMode( *claims.current );
      if( keepsWhatAged || isTold ) {
         ZTRACE( 8, pair,
                 isTold ? " is told once more during hitless recovery" : " is written again" );
         reprogram( pair );
      }
      // Nothing has changed but who wants it there, perhaps.
      if( claims.current && claims.current->entryType == Bridging::configuredDynamicMac &&
          !queued( pair ) ) {
         fdb_.maybeAddToDynHostStatus( *claims.current );
      }
      return;
   }
   traceMoves( verdict );
   if( isAdd( verdict.action ) && !isRerouted && maybeUpdateMoveCount( entry, claims.current ) ) {
      return;
   }
   ZTRACE( 6, " Final action: ", verdict.action, " - MAC Entry: ", entry, ' ',
           macReasonText( verdict.reason ) );
   auto const from = claims.current ? claims.current->intf : Pelt::IntfId();
   indexIs( pair, from, isAdd( verdict.action ) ? entry.intf : Pelt::IntfId() );
   isAdd( verdict.action ) ? decidedAdd( verdict, claims, hardwareHolds )
                           : decidedRemoval( verdict, claims );
}

void
MacAddrSm::decidedAdd( MacVerdict const & verdict, MacClaims const & claims, bool hardwareHolds ) {
   auto const & entry = verdict.entry;
   auto const * queuedEntry = queued( entry.macEntry );
   if( !queuedEntry && !needsHardware( entry, hardwareHolds ) ) {
      if( Bridging::isEntryTypeProgrammedDynamic( entry.entryType ) ) {
         hobaAssert( "!isProgrammedDynamic( entryType )" );
      }
      if( Bridging::isEntryTypeRemote( entry.entryType ) ) {
         fdb_.remoteHostTableIs( entry );
      }
      if( !Bridging::isEntryTypeRemote( entry.entryType ) &&
          entry.entryType != Bridging::learnedDynamicMac ) {
         hobaAssert( "entryType == Bridging::learnedDynamicMac_" );
      }
      return inForce( entry );
   }
   auto change = changeTo( entry, verdict.action );
   detectRemoteLocalMove( queuedEntry ? nullptr : claims.current, entry, 1, change );
   addToUpdateList( change );
}

// What has aged, or is ignored, the hardware has forgotten, or is not to forget.
void
MacAddrSm::decidedRemoval( MacVerdict const & verdict, MacClaims const & claims ) {
   auto const pair = verdict.entry.macEntry;
   if( !claims.current ) {
      return; // it is ignored, and nobody has it
   }
   // What never ages software has written.
   bool const isHardwares = isMacEntryLearned( claims.current->entryType ) &&
                            !fdb_.nextHop( pair ) && !neverAges_.has( pair );
   // To a machine that begins all is reported that the hardware has.
   bool const isLeft =
         ( verdict.action == ignoreLearnt || inFirstPass_ ) && !sources_.isNonAgingMac( pair );
   if( !queued( pair ) && isHardwares && ( claims.agedInHardware || isLeft ) ) {
      return outOfForce( pair );
   }
   addToUpdateList( changeTo( *claims.current, removeFromFdbStatusAndHardware ) );
}

bool
MacAddrSm::needsHardware( MacEntry const & entry, bool hardwareHolds ) const {
   if( !hardwareHolds || !isMacEntryLearned( entry.entryType ) ) {
      return true;
   }
   auto const * former = fdb_.find( entry.macEntry );
   // What software wrote stands there, whatever the hardware sees.
   bool const wasWritten =
         former && ( !isMacEntryLearned( former->entryType ) || fdb_.nextHop( entry.macEntry ) );
   return wasWritten || sources_.isNonAgingMac( entry.macEntry ) ||
          neverAges_.has( entry.macEntry );
}

bool
MacAddrSm::skipHwProgInHitlessRestartMode( MacEntry const & entry ) const {
   bool const isHardwares = isMacEntryLearned( entry.entryType ) &&
                            !fdb_.nextHop( entry.macEntry ) &&
                            !sources_.isNonAgingMac( entry.macEntry );
   if( isHardwares ) {
      ZTRACE( 8, entry.macEntry, " in hitless restart mode" );
   }
   return isHardwares;
}

// Another count for what is where it was: nothing that the hardware knows of.
bool
MacAddrSm::maybeUpdateMoveCount( MacEntry const & entry, MacEntry const * current ) {
   auto const type = entry.entryType;
   if( Bridging::isEntryTypeConfigured( type ) ||
       !( Bridging::isEntryTypeProgrammedDynamic( type ) ||
          Bridging::isEntryTypeController( type ) ) ) {
      return false;
   }
   bool const isOther = current && ( current->moveCount != entry.moveCount ||
                                     current->lastMoveTime != entry.lastMoveTime );
   auto same = entry;
   if( isOther ) {
      same.moveCount = current->moveCount;
      same.lastMoveTime = current->lastMoveTime;
      same.preference = current->preference;
      same.promote = current->promote;
   }
   if( !isOther || !( same == *current ) ) {
      return false;
   }
   auto const pair = entry.macEntry;
   auto const & from = current->moveCount;
   if( auto const * change = queued( pair ) ) {
      ZTRACE( 5, pair, " update ModifyMacEntry moves from ", from, " to ", entry.moveCount );
      auto updated = *change;
      updated.moves = entry.moveCount.value();
      updated.lastMoveTime = entry.lastMoveTime;
      updateListHas( pair ) ? updateListIs( updated ) : refusedListIs( updated );
      return true;
   }
   ZTRACE( 5, pair, " update moves from ", from, " to ", entry.moveCount, " type ", type );
   fdb_.addToFdbStatus( entry );
   if( in_.rmacInfoDir->remoteHost()->remoteMacHas( pair ) ) {
      ZTRACE( 5, pair, "update remoteHostTable moves from ", from, " to ", entry.moveCount );
      fdb_.remoteHostTableIs( entry );
   }
   return true;
}

void
MacAddrSm::indexIs( Pair pair, Pelt::IntfId from, Pelt::IntfId to ) {
   if( from == to ) {
      return;
   }
   if( to ) {
      Kiv::addToSet( hostsByIntf_, to, pair );
   }
   if( from ) {
      Kiv::removeFromSet( hostsByIntf_, from, pair );
   }
}

void
MacAddrSm::addToUpdateList( ModifyMacEntry const & given ) {
   auto change = given;
   if( auto const * former =
             refusedList().empty() ? nullptr : refusedList().find( given.macEntry ) ) {
      change.fullLogged = former->fullLogged;
      refusedListDel( given.macEntry );
      flush_.written( given.macEntry );
   }
   if( auto const * former = updateList().find( given.macEntry ) ) {
      ZTRACE( 5, "Found a pending operation in updateList with key: ", given.macEntry );
      ZTRACE( 5, "Found a pending operation in updateList with action ", former->action );
      change.fullLogged = former->fullLogged;
      auto const formerEntry = former->entry();
      if( isAdd( former->action ) && isAdd( change.action ) ) {
         detectRemoteLocalMove( &formerEntry, change.entry(), 2, change );
      }
   }
   if( updateMacEntryClock()->timeMin() == Kiv::never ) {
      updateMacEntryClock()->timeMinIs( now() );
   }
   change.since = updateMacEntryClock()->timeMin();
   updateListIs( change );
}

} // namespace Hoba
