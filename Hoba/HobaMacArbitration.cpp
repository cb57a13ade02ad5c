// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaMacArbitration.h"

#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaMacArbitration );

namespace Hoba {

namespace {

using Tunnels = std::vector< Pelt::IpGenAddr >;

Tunnels const &
tunnelsOf( MacEntry const & entry, SwTunnelGroupIdMap const * groups ) {
   static Tunnels const none;
   auto const * group = groups ? groups->group().find( entry.swTunnelGroupId ) : nullptr;
   return group ? group->tunnelIp : none;
}

// Whether b's end points are the better ones.
bool
hasBetterTunnels( MacEntry const & a, MacEntry const & b, SwTunnelGroupIdMap const * groups ) {
   auto const & aTunnels = tunnelsOf( a, groups );
   auto const & bTunnels = tunnelsOf( b, groups );
   if( a.swTunnelGroupId.isSingleMember() && b.swTunnelGroupId.isSingleMember() ) {
      if( aTunnels.empty() ) {
         return false;
      }
      return bTunnels.empty() || aTunnels.front() < bTunnels.front();
   }
   return aTunnels < bTunnels;
}

} // namespace

std::uint32_t
macRank( MacEntry const & entry ) {
   bool const isByHand = entry.entryType == Bridging::configuredStaticMac ||
                         entry.entryType == Bridging::peerStaticMac ||
                         entry.entryType == Bridging::evpnStaticRemoteMac;
   return entry.preference * 256u + isByHand;
}

MacChoice
betterEntry( MacEntry const * a, MacEntry const * b, SwTunnelGroupIdMap const * groups ) {
   if( !a || !b ) {
      return { a ? a : b, macRuleOnlyOne };
   }
   auto const choose = [ & ]( bool isB, MacRule rule ) { return MacChoice{ isB ? b : a, rule }; };
   if( auto const aRank = macRank( *a ), bRank = macRank( *b ); aRank != bRank ) {
      return choose( aRank < bRank, macRuleRank );
   }
   // Numbers half the range apart are not ordered: then the next rule decides.
   if( a->moveCount < b->moveCount || b->moveCount < a->moveCount ) {
      return choose( a->moveCount < b->moveCount, macRuleMoves );
   }
   if( a->lastMoveTime < b->lastMoveTime || b->lastMoveTime < a->lastMoveTime ) {
      return choose( a->lastMoveTime < b->lastMoveTime, macRuleTime );
   }
   if( a->hasL2RibObjTuple() != b->hasL2RibObjTuple() ) {
      return choose( b->hasL2RibObjTuple(), macRuleHasObjTuple );
   }
   if( a->hasL2RibObjTuple() ) {
      return choose( !( b->l2RibObjTuple < a->l2RibObjTuple ), macRuleObjTuple );
   }
   return choose( hasBetterTunnels( *a, *b, groups ), macRuleTunnels );
}

MacChoice
betterEntryWithTrace( MacEntry const * a, MacEntry const * b, SwTunnelGroupIdMap const * groups ) {
   auto const choice = betterEntry( a, b, groups );
   if( !a || !b ) {
      return choice;
   }
   auto const & winner = *choice.winner;
   auto const & loser = choice.winner == a ? *b : *a;
   ZTRACE( 5, "winning entry type ", winner.entryType, " intf ", winner.intf, " swTunnelGroupId ",
           winner.swTunnelGroupId, " entry time ", winner.lastMoveTime, " moveCount ",
           winner.moveCount, " preference ", winner.preference, " promote ", winner.promote,
           " dropMode ", winner.dropMode );
   ZTRACE( 5, "losing entry type ", loser.entryType, " intf ", loser.intf, " swTunnelGroupId ",
           loser.swTunnelGroupId, " entry time ", loser.lastMoveTime, " moveCount ",
           loser.moveCount, " preference ", loser.preference, " promote ", loser.promote,
           " dropMode ", loser.dropMode );
   return choice;
}

MacCandidate const *
bestCandidate( std::span< MacCandidate const > candidates, SwTunnelGroupIdMap const * groups ) {
   MacCandidate const * best = nullptr;
   for( auto const & next : candidates ) {
      if( !best ||
          betterEntryWithTrace( &best->entry, &next.entry, groups ).winner == &next.entry ) {
         best = &next;
      }
   }
   return best;
}

} // namespace Hoba
