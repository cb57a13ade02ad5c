// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaMacEvaluation.h"

#include "Hoba/HobaAssert.h"

namespace Hoba {

namespace {

using Bridging::EntryType;
using Bridging::isEntryTypeRemote;

bool
isTimeOnly( MacEntry const & entry ) {
   return entry.entryType == Bridging::configuredDynamicMac;
}

// What this switch's own operator, or an agent of this switch, set up: it came without a count.
bool
isOwn( MacSource source ) {
   switch( source ) {
   case macSourceFdbConfig:
   case macSourceVxlanConfigDir:
   case macSourceRouterMacTable:
   case macSourceDot1xHostTable:
   case macSourceMacTable:
   case macSourceFailedServer:
      return true;
   default:
      return false;
   }
}

// What was learnt, with its count and time.
MacEntry
counted( MacClaims const & claims, MacMoves & moves ) {
   auto entry = *claims.reported;
   auto const * current = claims.current;
   if( current && isSameMacPlace( *current, entry ) ) {
      entry.moveCount = current->moveCount;
      entry.lastMoveTime = current->lastMoveTime;
      moves = macMovesKept;
      return entry;
   }
   auto const * before = current             ? current
                         : claims.configured ? &claims.configured->entry
                                             : nullptr;
   entry.moveCount = before ? before->moveCount : Mox::Seqno32();
   moves = before ? macMovesConfigured : macMovesKept;
   if( before && !isSameMacPlace( *before, entry ) ) {
      entry.moveCount.inc();
      moves = current ? macMovesCurrentPlusOne : macMovesConfiguredPlusOne;
   }
   return entry;
}

MacEntry
countedConfigured( MacClaims const & claims, MacMoves & moves ) {
   auto entry = claims.configured->entry;
   auto const * current = claims.current;
   moves = entry.entryType == Bridging::receivedRemoteMac ? macMovesReceived : macMovesConfigured;
   if( !isOwn( claims.configured->source ) ) {
      return entry;
   }
   entry.moveCount = current ? current->moveCount : Mox::Seqno32();
   entry.lastMoveTime = current ? current->lastMoveTime : claims.now;
   moves = macMovesKept;
   if( current && !isSameMacPlace( *current, entry ) ) {
      entry.lastMoveTime = claims.now;
      moves = macMovesNotIncremented;
      if( claims.configured->source != macSourceFailedServer ) {
         entry.moveCount.inc();
         moves = macMovesCurrentPlusOne;
      }
   }
   return entry;
}

MacReason
reasonOf( MacClaims const & claims ) {
   auto const type = claims.configured->entry.entryType;
   if( isMacEntryStatic( type ) ) {
      return isEntryTypeRemote( type ) ? macReasonStaticRemote : macReasonStatic;
   }
   if( Bridging::isEntryTypeController( type ) ) {
      return macReasonUsingController;
   }
   if( Bridging::isEntryTypePeer( type ) ) {
      if( claims.agedInHardware ) {
         return isEntryTypeRemote( type ) ? macReasonAgedRemote : macReasonAged;
      }
      return isEntryTypeRemote( type ) ? macReasonUsingPeerRemote : macReasonUsingPeer;
   }
   return isEntryTypeRemote( type ) ? macReasonUsingRemote : macReasonUsingConfigured;
}

// Whether what was learnt is the more recent one.
bool
learntWins( MacEntry const & learnt, MacEntry const & configured, MacReason & reason ) {
   if( configured.promote ) {
      reason = isEntryTypeRemote( learnt.entryType ) ? macReasonPromotedRemote : macReasonPromoted;
      return true;
   }
   if( isTimeOnly( configured ) ) {
      bool const wins = !( learnt.lastMoveTime < configured.lastMoveTime );
      reason = wins ? macReasonLearnedMoreRecent : macReasonConfiguredMoreRecent;
      return wins;
   }
   bool wins = true;
   if( learnt.moveCount < configured.moveCount || configured.moveCount < learnt.moveCount ) {
      wins = configured.moveCount < learnt.moveCount;
   } else {
      wins = !( learnt.lastMoveTime < configured.lastMoveTime );
   }
   reason = wins ? macReasonLocalMoreRecent : macReasonPeerMoreRecent;
   return wins;
}

EntryEvaluationAction
actionForLearnt( MacEntry const & entry, MacEntry const * current ) {
   if( isEntryTypeRemote( entry.entryType ) ) {
      return addLearntRemote;
   }
   return current && isEntryTypeRemote( current->entryType ) ? addLearntLocalAndRemoveRemote
                                                             : addLearntToFdbStatus;
}

// Nobody, or nobody who has a say, claims the station.
void
decideWithoutClaims( MacClaims const & claims, MacVerdict & verdict ) {
   auto const * current = claims.current;
   bool const isObstructed = claims.reported && claims.reportedObstacle != macObstacleNone;
   if( current && !isObstructed && claims.isNonAging && isMacEntryLearned( current->entryType ) ) {
      verdict.reason = macReasonNonAging;
   } else if( current && !isObstructed && claims.overlayRestarts &&
              isEntryTypeRemote( current->entryType ) ) {
      verdict.reason = macReasonOverlayRestarts;
   } else if( isObstructed && ( !current || isMacEntryLearned( current->entryType ) ) ) {
      verdict.action = ignoreLearnt;
      verdict.reason = macReasonIgnored;
   } else if( current ) {
      verdict.action = removeFromFdbStatusAndHardware;
   }
}

// The action is not one if nothing changes by it.
void
dropIfUnchanged( MacClaims const & claims, MacVerdict & verdict ) {
   if( claims.current ) {
      auto same = verdict.entry;
      // What status and hardware know nothing of.
      same.preference = claims.current->preference;
      same.promote = claims.current->promote;
      if( same == *claims.current ) {
         verdict.action = invalidAction;
      }
   }
}

} // namespace

bool
isMacEntryStatic( EntryType type ) {
   switch( type ) {
   case Bridging::configuredStaticMac:
   case Bridging::configuredRemoteMac:
   case Bridging::authenticatedMac:
   case Bridging::peerStaticMac:
   case Bridging::peerAuthenticatedMac:
   case Bridging::peerStaticRemoteMac:
   case Bridging::evpnStaticRemoteMac:
      return true;
   default:
      return false;
   }
}

bool
isMacEntryLearned( EntryType type ) {
   return type == Bridging::learnedDynamicMac || type == Bridging::learnedRemoteMac;
}

bool
isSameMacPlace( MacEntry const & a, MacEntry const & b ) {
   return a.intf == b.intf && a.swTunnelGroupId == b.swTunnelGroupId;
}

MacVerdict
evaluateMacClaims( MacClaims const & given ) {
   auto claims = given;
   MacVerdict verdict;
   if( claims.current ) {
      verdict.entry = *claims.current;
   }
   bool const hasReported = claims.reported && claims.reportedObstacle == macObstacleNone;
   if( claims.configured && claims.configuredObstacle != macObstacleNone ) {
      if( claims.configuredObstacle == macObstacleNextHopUnresolved && claims.current &&
          claims.current->entryType == claims.configured->entry.entryType ) {
         verdict.reason = macReasonWaitsForNextHop;
         return verdict;
      }
      claims.configured = nullptr;
   }
   if( !claims.configured && !hasReported ) {
      decideWithoutClaims( claims, verdict );
      return verdict;
   }
   bool useLearnt = hasReported;
   MacEntry learnt;
   MacMoves learntMoves = macMovesKept;
   verdict.reason = macReasonLearnt;
   if( hasReported ) {
      learnt = counted( claims, learntMoves );
   }
   if( claims.configured ) {
      useLearnt = hasReported && !isMacEntryStatic( claims.configured->entry.entryType ) &&
                  learntWins( learnt, claims.configured->entry, verdict.reason );
      if( !useLearnt &&
          ( !hasReported || isMacEntryStatic( claims.configured->entry.entryType ) ) ) {
         verdict.reason = reasonOf( claims );
      }
   }
   if( useLearnt ) {
      verdict.entry = learnt;
      verdict.moves = learntMoves;
      verdict.action = actionForLearnt( learnt, claims.current );
   } else {
      verdict.entry = countedConfigured( claims, verdict.moves );
      verdict.reportedLost = claims.reported != nullptr;
      verdict.action = isEntryTypeRemote( verdict.entry.entryType )
                             ? addConfiguredRemote
                             : addConfiguredToFdbStatusAndHardware;
   }
   dropIfUnchanged( claims, verdict );
   return verdict;
}

std::string_view
macEntryTypeName( EntryType type ) {
   switch( type ) {
   case Bridging::learnedDynamicMac:
      return "learned dynamic";
   case Bridging::learnedRemoteMac:
      return "learned remote";
   case Bridging::configuredDynamicMac:
      return "configured dynamic";
   case Bridging::configuredStaticMac:
      return "configured static";
   case Bridging::configuredRemoteMac:
      return "configured remote";
   case Bridging::receivedRemoteMac:
      return "received remote";
   case Bridging::authenticatedMac:
      return "authenticated";
   case Bridging::peerDynamicMac:
      return "peer dynamic";
   case Bridging::peerStaticMac:
      return "peer static";
   case Bridging::peerAuthenticatedMac:
      return "peer authenticated";
   case Bridging::peerLearnedRemoteMac:
      return "peer dynamic remote";
   case Bridging::peerStaticRemoteMac:
      return "peer static remote";
   case Bridging::peerReceivedRemoteMac:
      return "peer received remote";
   case Bridging::peerEvpnRemoteMac:
      return "peer evpn remote";
   case Bridging::evpnDynamicRemoteMac:
      return "evpn dynamic remote";
   case Bridging::evpnStaticRemoteMac:
      return "evpn static remote";
   case Bridging::evpnIntfDynamicMac:
      return "evpn intf dynamic";
   default:
      hobaAssert( "invalid entryType" );
      return "unknown";
   }
}

std::string_view
macReasonText( MacReason reason ) {
   switch( reason ) {
   case macReasonNobody:
      return "nobody claims it";
   case macReasonStatic:
      return "Entry is static";
   case macReasonStaticRemote:
      return "Entry is static remote";
   case macReasonLearnt:
      return "learnt, and nobody else claims it";
   case macReasonLocalMoreRecent:
      return "Local dynamic MAC is more recent";
   case macReasonPeerMoreRecent:
      return "peer dynamic MAC is more recent";
   case macReasonConfiguredMoreRecent:
      return "Configured dynamic entry is more recent than learned";
   case macReasonLearnedMoreRecent:
      return "Learned dynamic entry is more recent than configured";
   case macReasonUsingConfigured:
      return "configured, and not learnt";
   case macReasonUsingPeer:
      return "Using peer dynamic entry";
   case macReasonUsingPeerRemote:
      return "Using peer dynamic remote entry";
   case macReasonUsingController:
      return "Using controller received remote mac entry";
   case macReasonUsingRemote:
      return "told by the overlay, and not learnt";
   case macReasonPromoted:
      return "Entry was promoted, using learned dynamic entry";
   case macReasonPromotedRemote:
      return "Entry promoted, using learned dynamic remote entry";
   case macReasonAged:
      return "Entry aged, using peer dynamic entry";
   case macReasonAgedRemote:
      return "Entry aged, using peer dynamic remote entry";
   case macReasonIgnored:
      return "what is learnt is ignored";
   case macReasonWaitsForNextHop:
      return "it keeps its place while it waits for its next hop";
   case macReasonNonAging:
      return "it never ages";
   case macReasonOverlayRestarts:
      return "the overlay's agent restarts";
   }
   return {};
}

std::string_view
macObstacleText( MacObstacle obstacle ) {
   switch( obstacle ) {
   case macObstacleNone:
      return {};
   case macObstacleDot1x:
      return "Action is ignoreLearnt_ since interface is Dot1x singleHost or restrictedHost";
   case macObstacleControllerClient:
      return "Ignore dynamically learnt remote macs in controller client mode";
   case macObstacleSecondaryVlan:
      return "learnt in a secondary VLAN that has a VNI";
   case macObstacleNoVni:
      return "ERROR: no mapping for vni";
   case macObstacleNoObjTuple:
      return "No valid L2Rib ObjTuple";
   case macObstacleDropNextHop:
      return "pointing to drop nexthopId.";
   case macObstacleNextHopInvalid:
      return "ignoring invalid nextHopId";
   case macObstacleNextHopUnresolved:
      return "wait for next hop id";
   case macObstacleNoHwId:
      return "hwId missing";
   case macObstacleRemoteLimit:
      return "max remote MAC limit reached";
   case macObstacleNoIntf:
      return "its interface does not exist, or is none for such a station";
   case macObstacleIntfDisabled:
      return "its interface is disabled";
   case macObstacleVlanMembership:
      return "its interface does not carry the VLAN";
   case macObstacleGroupAddress:
      return "a group address is nobody's station";
   case macObstaclePeerIntf:
      return "its interface is down, or not one that is shared with the peer";
   case macObstacleSource:
      return "its source or its type is not one that this table is for";
   }
   return {};
}

} // namespace Hoba
