// SPDX-License-Identifier: Apache-2.0
#pragma once

// What becomes of a station, given all that is said of it. Pure: claims in, action and reason out.
//
// Who has a say:
// - `configured`, the best candidate of all sources (HobaMacArbitration.h);
// - `reported`, what was learnt: by the hardware, here or behind a tunnel, or by software from a tunnel;
// - `current`, what was wanted so far, whether or not the hardware has it yet.
//
// The rules, in this order:
// 1. What an obstacle stands before has no say: see MacObstacle. A candidate that waits for its next hop
//    keeps its place if it has it, and otherwise has no say either.
// 2. A static candidate (set up by hand, authenticated, of a router) wins outright.
// 3. What was learnt competes with a dynamic candidate by the count of moves, then by time; the learnt one
//    wins if both are equal. If it is where `current` is it has the count and the time of that. Otherwise it
//    has the time at which it was reported, and the count of `current`, or without one that of the candidate:
//    one more if it is elsewhere. A dynamic entry of the operator has no count: the time alone decides. A candidate that is
//    promoted yields to whatever is learnt.
// 4. What was learnt and lost counts no more until it is reported again (`reportedLost`).
// 5. Without both the station goes; but one that never ages, and was learnt, stays, and so does one behind
//    the overlay while the overlay's agent restarts.
//
// Counts of the winner: what is learnt as in 3; what another switch or a controller told has the count and
// the time that it came with; what the operator of this switch set up goes on from `current`, one more if it
// is elsewhere. It came there now; what the hardware told came when it was told. A failed server that is sent to
// the CPU port has not moved.

#include "Hoba/HobaMacArbitration.h"

namespace Hoba {

KIV_ENUM(
      EntryEvaluationAction, std::uint8_t, addLearntToFdbStatus = 0,
      addConfiguredToFdbStatusAndHardware, addLearntRemote, addConfiguredRemote,
      addLearntLocalAndRemoveRemote, removeFromFdbStatusAndHardware,
      // What is reported is not taken: it is not in the status, and the hardware keeps it until it ages.
      ignoreLearnt,
      // Nothing has to be done.
      invalidAction KIV_SHOWN( "invalid" ) );

// Why something that is said of a station has no say.
KIV_ENUM( MacObstacle, std::uint8_t, macObstacleNone = 0 KIV_SHOWN( "none" ),
          // of what is learnt
          macObstacleDot1x KIV_SHOWN( "dot1x" ),
          macObstacleControllerClient KIV_SHOWN( "controller client" ),
          macObstacleSecondaryVlan KIV_SHOWN( "secondary VLAN" ),
          // of anything behind the overlay
          macObstacleNoVni KIV_SHOWN( "VNI" ),
          // of candidates behind the overlay
          macObstacleNoObjTuple KIV_SHOWN( "RIB object" ),
          macObstacleDropNextHop KIV_SHOWN( "drop next hop" ),
          macObstacleNextHopInvalid KIV_SHOWN( "invalid next hop" ),
          macObstacleNextHopUnresolved KIV_SHOWN( "next hop" ),
          macObstacleNoHwId KIV_SHOWN( "hardware id" ),
          macObstacleRemoteLimit KIV_SHOWN( "remote MAC limit" ),
          // of candidates that are therefore none
          macObstacleNoIntf KIV_SHOWN( "interface" ),
          macObstacleIntfDisabled KIV_SHOWN( "disabled interface" ),
          macObstacleVlanMembership KIV_SHOWN( "VLAN membership" ),
          macObstacleGroupAddress KIV_SHOWN( "group address" ),
          macObstaclePeerIntf KIV_SHOWN( "MLAG interface" ),
          macObstacleSource KIV_SHOWN( "source" ) );

KIV_ENUM( MacReason, std::uint8_t, macReasonNobody = 0, macReasonStatic, macReasonStaticRemote,
          macReasonLearnt, macReasonLocalMoreRecent, macReasonPeerMoreRecent,
          macReasonConfiguredMoreRecent, macReasonLearnedMoreRecent, macReasonUsingConfigured,
          macReasonUsingPeer, macReasonUsingPeerRemote, macReasonUsingController,
          macReasonUsingRemote, macReasonPromoted, macReasonPromotedRemote, macReasonAged,
          macReasonAgedRemote, macReasonIgnored, macReasonWaitsForNextHop, macReasonNonAging,
          macReasonOverlayRestarts );

// As people and traces read it.
std::string_view macReasonText( MacReason reason );
std::string_view macObstacleText( MacObstacle obstacle );

// How the moves of the winner came about.
KIV_ENUM( MacMoves, std::uint8_t, macMovesKept = 0, macMovesConfigured, macMovesConfiguredPlusOne,
          macMovesReceived, macMovesCurrentPlusOne, macMovesNotIncremented );

struct MacClaims {
   // What brought it up: it was learnt, or forgotten, by the hardware now; or something else changed.
   bool learnedInHardware = false;
   bool agedInHardware = false;
   MacEntry const * reported = nullptr;
   MacObstacle reportedObstacle = macObstacleNone;
   MacCandidate const * configured = nullptr;
   MacObstacle configuredObstacle = macObstacleNone;
   MacEntry const * current = nullptr;
   bool isNonAging = false;
   bool overlayRestarts = false;
   // The time; counts only with `configured`.
   Kiv::Seconds now = 0;
};

struct MacVerdict {
   EntryEvaluationAction action = invalidAction;
   MacReason reason = macReasonNobody;
   MacMoves moves = macMovesKept;
   // What was learnt counts no more.
   bool reportedLost = false;
   // What is to be: as `current` if the action is invalid and there is one.
   MacEntry entry;
};

// What operators read: "learned dynamic". What is no type fails the assertion "invalid entryType".
std::string_view macEntryTypeName( Bridging::EntryType type );

// Set up by hand, authenticated, or of a router: no learning takes it away.
bool isMacEntryStatic( Bridging::EntryType type );
// Learnt by the hardware, or by software from a tunnel.
bool isMacEntryLearned( Bridging::EntryType type );
// Whether both are in one place: behind the same interface, and the same tunnel.
bool isSameMacPlace( MacEntry const & a, MacEntry const & b );

MacVerdict evaluateMacClaims( MacClaims const & claims );

} // namespace Hoba
