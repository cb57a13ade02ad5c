// SPDX-License-Identifier: Apache-2.0
#include "agent/features/StationExplanation.h"

#include "agent/features/Stations.h"
#include "chips/sim/SimChip.h"

namespace HobaAgent {

using Kiv::Datum;
using Kiv::String;
using Kiv::toText;

namespace {

constexpr char const * noCandidate = "no candidate: ";

class Explanation {
 public:
   Explanation( Hoba::MacExplanation const & explained, Bridging::MacVlanPair station )
         : explained_( explained ), station_( station ) {}

   Datum take( HobaSim::MacUnit const & chip, HobaSim::MacProgrammer const * programmer ) {
      claims();
      table_.note( isClaimed() ? decision() : toText( station_ ) + ": nobody claims it" );
      inForce();
      waiting();
      if( auto const text = pipelineText( programmer, station_ ); !text.empty() ) {
         table_.note( "in the pipeline of the chip: " + text );
      }
      held( chip );
      return table_.take();
   }

 private:
   bool isClaimed() const {
      return !explained_.candidates.empty() || explained_.reported || explained_.status ||
             explained_.pending;
   }

   void row( String const & source, Hoba::MacEntry const & entry, Datum rank,
             String const & outcome ) {
      table_.row( { source, entry.intf ? Datum( toText( entry.intf ) ) : Datum(),
                    typeCell( table_, entry.entryType ), rank, toText( entry.moveCount ),
                    agoText( entry.lastMoveTime ), outcome } );
   }

   void claims() {
      bool const isAlone = explained_.candidates.size() == 1;
      for( auto const & line : explained_.candidates ) {
         row( toText( line.candidate.source ), line.candidate.entry, line.rank,
              ( line.isBest ? isAlone ? "the only candidate" : "the best: " : "beaten: " ) +
                    ( isAlone ? String() : toText( line.rule ) ) );
         if( line.isBest && explained_.configuredObstacle ) {
            table_.note( toText( line.candidate.source ) + " has no say: " +
                         String( Hoba::macObstacleText( explained_.configuredObstacle ) ) );
         }
      }
      for( auto const & none : explained_.none ) {
         row( toText( none.source ), none.entry, Datum(),
              noCandidate + String( Hoba::macObstacleText( none.obstacle ) ) );
      }
      if( explained_.reported ) {
         auto const obstacle = explained_.reportedObstacle;
         row( "learnt", *explained_.reported, Datum(),
              obstacle                  ? "ignored: " + String( Hoba::macObstacleText( obstacle ) )
              : explained_.reportedLost ? "counts no more, until it is learnt again"
                                        : "competes with the best candidate" );
      }
   }

   String decision() const {
      auto const & verdict = explained_.verdict;
      String const reason( Hoba::macReasonText( verdict.reason ) );
      return verdict.action == Hoba::invalidAction
                   ? "nothing is to be done: " + reason
                   : "decided: " + toText( verdict.action ) + ": " + reason;
   }

   void inForce() {
      if( auto const & status = explained_.status ) {
         table_.note( "in force: " + placeText( *status ) + ", " +
                      macTypeText( status->entryType ) + ", " +
                      counted( status->moveCount.value(), "move" ) );
      } else {
         table_.note( "in force: nothing" );
      }
      if( explained_.isNonAging ) {
         table_.note( "it never ages: show mac non-aging" );
      }
      if( explained_.isFailedServer ) {
         table_.note( "it is a server that has failed: the CPU port stands for it" );
      }
   }

   void waiting() {
      if( auto const & pending = explained_.pending ) {
         table_.note( "waits for " + waitText( *pending ) + ", since " + agoText( pending->since ) +
                      ": " + toText( pending->action ) + " on " +
                      ( pending->intf ? toText( pending->intf ) : "no interface" ) );
      }
      if( auto const & withheld = explained_.withheld ) {
         table_.note( "withheld since " + agoText( withheld->since ) + ": " +
                      String( Hoba::macObstacleText( withheld->obstacle ) ) );
      }
   }

   void held( HobaSim::MacUnit const & chip ) {
      auto const entry = chip.entry( station_ );
      if( !entry ) {
         table_.note( "the chip holds nothing" );
         return;
      }
      String text = "the chip holds: " + ( entry->intf ? toText( entry->intf ) : "no interface" );
      text += entry->byChip ? ", learnt by itself"
                            : ", written as " + macTypeText( entry->entryType );
      text += entry->ages ? ", ages" : ", does not age";
      if( entry->dropMode ) {
         text += ", " + spelled( toText( entry->dropMode ), "dropMode" ) + " dropped";
      }
      if( entry->hwId ) {
         text += ", next hop " + toText( entry->nextHopId ) + " with hardware id " +
                 toText( entry->hwId );
      }
      table_.note( text );
   }

   static String placeText( Hoba::MacEntry const & entry ) {
      auto text = entry.intf ? toText( entry.intf ) : "no interface";
      if( entry.swTunnelGroupId ) {
         text += " tunnel group " + toText( entry.swTunnelGroupId );
      }
      if( entry.hasL2RibObjTuple() ) {
         text += " by " + toText( entry.l2RibObjTuple );
      }
      return text;
   }

   Hoba::MacExplanation const & explained_;
   Bridging::MacVlanPair const station_;
   TableAnswer table_{ { "Source", "Interface", "Type", "Rank", "Moves", "Last move", "Outcome" } };
};

} // namespace

Datum
explainStation( Board const & board, Hoba::MacAddrSm const & sm, Bridging::MacVlanPair station ) {
   auto const explained = sm.explain( station );
   return Explanation( explained, station )
         .take( *board.chip->mac(), board.find< HobaSim::MacProgrammer >().get() );
}

String
pipelineText( HobaSim::MacProgrammer const & programmer, Hoba::IndirectAccessMacCmd const & cmd ) {
   auto const what = toText( cmd.op() );
   auto const tries = toText( cmd.tries() ) + ( cmd.tries() == 1 ? " try" : " tries" );
   char seconds[ 40 ];
   auto const secondsOf = [ & ]( Kiv::Seconds time ) {
      std::snprintf( seconds, sizeof seconds, "%.1f s", std::max( time, 0.0 ) );
      return seconds;
   };
   switch( cmd.place() ) {
   case Hoba::macCmdPending:
      return "being programmed: " + what + " waits to be written";
   case Hoba::macCmdInProgress:
      return cmd.stalled() ? what + " not answered for " +
                                   secondsOf( programmer.now() - cmd.execStartTime() )
                           : "being programmed: " + what + " is written";
   case Hoba::macCmdOverflow:
      return what + " waits for room: " + tries + " so far, " +
             ( programmer.nextOverflowTry() == Kiv::never
                     ? "suspended"
                     : String( "the next in " ) +
                             secondsOf( programmer.nextOverflowTry() - programmer.now() ) );
   case Hoba::macCmdIdle:
      break;
   }
   return what + " failed after " + tries;
}

String
pipelineText( HobaSim::MacProgrammer const * programmer, Bridging::MacVlanPair station ) {
   auto const cmd = programmer ? programmer->command( { station, Hoba::macHwKeyBridge } ) : nullptr;
   return cmd ? pipelineText( *programmer, *cmd ) : String();
}

String
waitText( Hoba::ModifyMacEntry const & change ) {
   switch( change.refusal ) {
   case Hoba::macProgramFull:
      return "room";
   case Hoba::macProgramBusy:
      return "a chip that is busy";
   case Hoba::macProgramFailed:
      return "a chip that failed";
   case Hoba::macProgramFlushInProgress:
      return "the end of a flush";
   default:
      return "its turn";
   }
}

} // namespace HobaAgent
