// SPDX-License-Identifier: Apache-2.0

// Who is believed, and what becomes of a station: the pure half of the MAC address table.

#include "HobaTest.h"
#include "Hoba/HobaMacEvaluation.h"

#include <random>

namespace {

using namespace Hoba;
using namespace Bridging;
using HobaTest::Strings;

MacVlanPair const pair( Pelt::EthAddr( 0x020000000001 ), VlanId( 10 ) );
Pelt::IntfId const et1( "Ethernet1" ), et2( "Ethernet2" ), vx1( "Vxlan1" );

struct With {
   EntryType type = peerDynamicMac;
   std::uint32_t moves = 0;
   Kiv::Seconds time = 0;
   Pelt::IntfId intf = et1;
   std::uint8_t preference = macPreferenceDefault;
   std::uint32_t objTuple = 0;
   std::uint32_t group = 0;
   bool promote = false;
};

MacEntry
entry( With const & with ) {
   MacEntry made;
   made.macEntry = pair;
   made.intf = with.intf;
   made.entryType = with.type;
   made.moveCount = Mox::Seqno32( with.moves );
   made.lastMoveTime = with.time;
   made.preference = with.preference;
   made.swTunnelGroupId = SwTunnelGroupId( with.group );
   made.promote = with.promote;
   if( with.objTuple ) {
      made.l2RibObjTuple = { L2Rib::objDest, with.objTuple };
   }
   return made;
}

class MacArbitrationTest : public HobaTest::HobaFixture {
 protected:
   MacArbitrationTest() {
      auto const ip = []( char const * text ) { return Pelt::IpGenAddr::parse( text ); };
      groups->groupIs( SwTunnelGroupId( 1 ), { { ip( "192.0.2.1" ) } } );
      groups->groupIs( SwTunnelGroupId( 2 ), { { ip( "192.0.2.2" ) } } );
      groups->groupIs( SwTunnelGroupId( several + 1 ), { { ip( "192.0.2.1" ), ip( "192.0.2.9" ) } } );
   }
   // "a: moved later"
   std::string choice( With const & a, With const & b ) const {
      auto const first = entry( a ), second = entry( b );
      auto const made = betterEntry( &first, &second, groups.get() );
      return ( made.winner == &first ? "a: " : "b: " ) + Kiv::toText( made.rule );
   }

   static constexpr std::uint32_t several = SwTunnelGroupId::several;
   Kiv::Ptr< SwTunnelGroupIdMap > groups = Kiv::make< SwTunnelGroupIdMap >();
};

TEST_F( MacArbitrationTest, decidesInThisOrder ) {
   constexpr std::uint32_t half = 1u << 31;
   struct Case {
      With a, b;
      char const * expected;
   };
   Case const cases[] = {
         { { .preference = 17 }, { .moves = 9, .preference = 16 }, "a: higher rank" },
         { { .type = configuredStaticMac }, { .moves = 9 }, "a: higher rank" },
         { {}, { .type = peerStaticMac }, "b: higher rank" },
         { { .type = evpnStaticRemoteMac }, {}, "a: higher rank" },
         { { .type = evpnIntfDynamicMac }, { .time = 1 }, "b: moved later" }, // 22 is above 21
         { { .moves = 2 }, { .moves = 1, .time = 9 }, "a: moved more often" },
         { { .moves = UINT32_MAX }, { .moves = 1 }, "b: moved more often" },  // it wraps
         { { .moves = 0, .time = 1 }, { .moves = half }, "a: moved later" },  // not ordered
         { { .time = 1 }, { .time = 2, .objTuple = 0 }, "b: moved later" },
         { { .objTuple = 5 }, {}, "a: resolves through the RIB" },
         { {}, { .objTuple = 5 }, "b: resolves through the RIB" },
         { { .objTuple = 6 }, { .objTuple = 5 }, "a: greater RIB object" },
         { { .objTuple = 5 }, { .objTuple = 5 }, "b: greater RIB object" },
         { { .group = 1 }, { .group = 2 }, "b: greater tunnel list" },
         { { .group = 2 }, { .group = 1 }, "a: greater tunnel list" },
         { { .group = 1 }, { .group = 1 }, "a: greater tunnel list" },
         { { .group = 7 }, { .group = 1 }, "a: greater tunnel list" }, // nothing known of a
         { { .group = 1 }, { .group = 7 }, "b: greater tunnel list" },
         { { .group = several + 1 }, { .group = 1 }, "a: greater tunnel list" },
         { { .group = several + 7 }, { .group = 1 }, "b: greater tunnel list" },
         { {}, {}, "a: greater tunnel list" } };
   for( auto const & each : cases ) {
      EXPECT_EQ( choice( each.a, each.b ), each.expected );
   }
   auto const one = entry( {} );
   EXPECT_EQ( betterEntry( &one, nullptr, nullptr ).winner, &one );
   EXPECT_EQ( betterEntry( nullptr, &one, nullptr ).winner, &one );
   EXPECT_EQ( betterEntry( nullptr, nullptr, nullptr ).winner, nullptr );
}

// Total and deterministic; and antisymmetric wherever the entries differ in what the rule looks at.
TEST_F( MacArbitrationTest, isTheSameFromBothSides ) {
   std::mt19937 random( 1 );
   auto const below = [ & ]( std::uint32_t bound ) { return random() % bound; };
   auto const draw = [ & ] {
      With with;
      with.type = below( 2 ) ? peerDynamicMac : evpnDynamicRemoteMac;
      with.moves = below( 2 ) << 31 | below( 3 );
      with.time = below( 3 );
      with.objTuple = below( 3 );
      with.group = below( 4 ) | ( below( 2 ) ? several : 0 );
      return entry( with );
   };
   for( int i = 0; i < 20'000; ++i ) {
      auto const a = draw(), b = draw();
      auto const forth = betterEntry( &a, &b, groups.get() );
      auto const back = betterEntry( &b, &a, groups.get() );
      ASSERT_TRUE( forth.winner == &a || forth.winner == &b );
      ASSERT_EQ( forth.rule, back.rule );
      bool const hasTie =
            ( forth.rule == macRuleObjTuple && a.l2RibObjTuple == b.l2RibObjTuple ) ||
            forth.rule == macRuleTunnels;
      ASSERT_TRUE( hasTie || forth.winner == back.winner );
   }
}

class MacEvaluationTest : public HobaTest::HobaFixture {
 protected:
   struct Claims {
      char const * event = ""; // "learned", "aged"
      std::optional< With > reported = {};
      std::optional< With > configured = {};
      std::optional< With > current = {};
      MacSource source = macSourceMlagHostTable;
      MacObstacle reportedObstacle = macObstacleNone;
      MacObstacle configuredObstacle = macObstacleNone;
      bool isNonAging = false;
      bool overlayRestarts = false;
   };
   // "addLearntToFdbStatus Ethernet1 learnedDynamicMac 1 7: Local dynamic MAC is more recent", with count
   // and time; "lost" if what was learnt counts no more.
   static std::string verdict( Claims const & given ) {
      MacClaims claims;
      claims.learnedInHardware = given.event == std::string( "learned" );
      claims.agedInHardware = given.event == std::string( "aged" );
      auto const made = [ & ]( auto const & with ) {
         return with ? std::optional( entry( *with ) ) : std::nullopt;
      };
      auto const reported = made( given.reported ), current = made( given.current );
      MacCandidate candidate{ given.source, made( given.configured ).value_or( MacEntry() ) };
      claims.reported = reported ? &*reported : nullptr;
      claims.reportedObstacle = given.reportedObstacle;
      claims.configured = given.configured ? &candidate : nullptr;
      claims.configuredObstacle = given.configuredObstacle;
      claims.current = current ? &*current : nullptr;
      claims.isNonAging = given.isNonAging;
      claims.overlayRestarts = given.overlayRestarts;
      claims.now = 50;
      auto const is = evaluateMacClaims( claims );
      return Kiv::toText( is.action ) + ' ' + Kiv::toText( is.entry.intf ) + ' ' +
             Kiv::toText( is.entry.entryType ) + ' ' + Kiv::toText( is.entry.moveCount ) + ' ' +
             Kiv::toText( is.entry.lastMoveTime ) + ": " +
             std::string( macReasonText( is.reason ) ) + ( is.reportedLost ? ", lost" : "" );
   }
};

TEST_F( MacEvaluationTest, followsItsRules ) {
   With const learnt{ .type = learnedDynamicMac, .time = 7 };
   With const learntAt2{ .type = learnedDynamicMac, .time = 7, .intf = et2 };
   With const held{ .type = learnedDynamicMac, .moves = 3, .time = 5 };
   With const remote{ .type = evpnDynamicRemoteMac, .moves = 2, .time = 4, .intf = vx1, .group = 1 };
   With const learntRemote{ .type = learnedRemoteMac, .time = 9, .intf = vx1, .group = 2 };
   With const peer{ .moves = 3, .time = 5, .intf = et2 };
   auto const moved = []( With with, std::uint32_t moves ) {
      with.moves = moves;
      return with;
   };
   With promoted = peer;
   promoted.promote = true;
   struct Case {
      Claims claims;
      char const * expected;
   };
   Case const cases[] = {
         // What is learnt, and nobody else says anything.
         { { .event = "learned", .reported = learnt },
           "addLearntToFdbStatus Ethernet1 learnedDynamicMac 0 7: learnt, and nobody else claims it" },
         { { .event = "learned", .reported = learnt, .current = held },
           "invalid Ethernet1 learnedDynamicMac 3 5: learnt, and nobody else claims it" },
         { { .event = "learned", .reported = learntAt2, .current = held },
           "addLearntToFdbStatus Ethernet2 learnedDynamicMac 4 7: learnt, and nobody else claims it" },
         { { .event = "aged", .current = held },
           "removeFromFdbStatusAndHardware Ethernet1 learnedDynamicMac 3 5: nobody claims it" },
         { { .event = "aged", .current = held, .isNonAging = true },
           "invalid Ethernet1 learnedDynamicMac 3 5: it never ages" },
         { {}, "invalid  entryTypeUnknown 0 0: nobody claims it" },
         // Between here and a tunnel.
         { { .event = "learned", .reported = learnt, .current = remote },
           "addLearntLocalAndRemoveRemote Ethernet1 learnedDynamicMac 3 7: learnt, and nobody else "
           "claims it" },
         { { .reported = learntRemote, .current = held },
           "addLearntRemote Vxlan1 learnedRemoteMac 4 9: learnt, and nobody else claims it" },
         { { .configured = remote, .current = held, .source = macSourceL2Rib },
           "addConfiguredRemote Vxlan1 evpnDynamicRemoteMac 2 4: told by the overlay, and not learnt" },
         // Set up by hand.
         { { .reported = learntAt2,
             .configured = With{ .type = configuredStaticMac },
             .current = moved( learntAt2, 2 ),
             .source = macSourceFdbConfig },
           "addConfiguredToFdbStatusAndHardware Ethernet1 configuredStaticMac 3 50: Entry is static, "
           "lost" },
         { { .reported = learnt,
             .configured = With{ .type = configuredRemoteMac, .intf = vx1, .group = 1 },
             .source = macSourceVxlanConfigDir },
           "addConfiguredRemote Vxlan1 configuredRemoteMac 0 50: Entry is static remote, lost" },
         // Learnt against told: the count, then the time, then what is learnt.
         { { .event = "learned", .reported = learnt, .configured = peer, .current = peer },
           "addLearntToFdbStatus Ethernet1 learnedDynamicMac 4 7: Local dynamic MAC is more recent" },
         { { .reported = learnt, .configured = moved( peer, 4 ), .current = held },
           "addConfiguredToFdbStatusAndHardware Ethernet2 peerDynamicMac 4 5: peer dynamic MAC is "
           "more recent, lost" },
         { { .reported = learnt, .configured = peer, .current = held },
           "invalid Ethernet1 learnedDynamicMac 3 5: Local dynamic MAC is more recent" },
         { { .event = "learned", .reported = learntAt2, .configured = peer },
           "addLearntToFdbStatus Ethernet2 learnedDynamicMac 3 7: Local dynamic MAC is more recent" },
         { { .event = "learned", .reported = learnt, .configured = peer },
           "addLearntToFdbStatus Ethernet1 learnedDynamicMac 4 7: Local dynamic MAC is more recent" },
         { { .reported = learnt, .configured = moved( promoted, 9 ), .current = held },
           "invalid Ethernet1 learnedDynamicMac 3 5: Entry was promoted, using learned dynamic entry" },
         { { .reported = learntRemote, .configured = moved( promoted, 9 ) },
           "addLearntRemote Vxlan1 learnedRemoteMac 10 9: Entry promoted, using learned dynamic "
           "remote entry" },
         { { .event = "aged", .configured = promoted, .current = held },
           "addConfiguredToFdbStatusAndHardware Ethernet2 peerDynamicMac 3 5: Entry aged, using peer "
           "dynamic entry" },
         { { .event = "aged",
             .configured = With{ .type = peerLearnedRemoteMac, .intf = vx1, .group = 1 },
             .current = held },
           "addConfiguredRemote Vxlan1 peerLearnedRemoteMac 0 0: Entry aged, using peer dynamic "
           "remote entry" },
         { { .configured = peer },
           "addConfiguredToFdbStatusAndHardware Ethernet2 peerDynamicMac 3 5: Using peer dynamic "
           "entry" },
         { { .configured = With{ .type = peerLearnedRemoteMac, .intf = vx1 } },
           "addConfiguredRemote Vxlan1 peerLearnedRemoteMac 0 0: Using peer dynamic remote entry" },
         { { .configured = With{ .type = receivedRemoteMac, .moves = 8, .intf = vx1 },
             .source = macSourceReceivedRemoteHost },
           "addConfiguredRemote Vxlan1 receivedRemoteMac 8 0: Using controller received remote mac "
           "entry" },
         // The operator's dynamic one has no count: the time alone.
         { { .reported = learnt,
             .configured = With{ .type = configuredDynamicMac, .time = 6, .intf = et2 },
             .current = held,
             .source = macSourceFdbConfig },
           "addConfiguredToFdbStatusAndHardware Ethernet2 configuredDynamicMac 4 50: Configured "
           "dynamic entry is more recent than learned, lost" },
         { { .event = "learned",
             .reported = learnt,
             .configured = With{ .type = configuredDynamicMac, .time = 6, .intf = et2 },
             .current = With{ .type = configuredDynamicMac, .moves = 4, .time = 6, .intf = et2 },
             .source = macSourceFdbConfig },
           "addLearntToFdbStatus Ethernet1 learnedDynamicMac 5 7: Learned dynamic entry is more "
           "recent than configured" },
         // A failed server has not moved.
         { { .reported = learnt,
             .configured = With{ .type = configuredDynamicMac, .time = 20, .intf = et2 },
             .current = held,
             .source = macSourceFailedServer },
           "addConfiguredToFdbStatusAndHardware Ethernet2 configuredDynamicMac 3 50: Configured "
           "dynamic entry is more recent than learned, lost" },
         // What an obstacle stands before.
         { { .event = "learned", .reported = learnt, .reportedObstacle = macObstacleDot1x },
           "ignoreLearnt  entryTypeUnknown 0 0: what is learnt is ignored" },
         { { .reported = learnt, .current = held, .reportedObstacle = macObstacleDot1x },
           "ignoreLearnt Ethernet1 learnedDynamicMac 3 5: what is learnt is ignored" },
         { { .reported = learnt, .current = peer, .reportedObstacle = macObstacleDot1x },
           "removeFromFdbStatusAndHardware Ethernet2 peerDynamicMac 3 5: nobody claims it" },
         { { .configured = remote, .current = remote, .configuredObstacle = macObstacleNoHwId },
           "removeFromFdbStatusAndHardware Vxlan1 evpnDynamicRemoteMac 2 4: nobody claims it" },
         { { .configured = remote,
             .current = remote,
             .configuredObstacle = macObstacleNextHopUnresolved },
           "invalid Vxlan1 evpnDynamicRemoteMac 2 4: it keeps its place while it waits for its next "
           "hop" },
         { { .reported = learnt,
             .configured = remote,
             .configuredObstacle = macObstacleNextHopUnresolved },
           "addLearntToFdbStatus Ethernet1 learnedDynamicMac 0 7: learnt, and nobody else claims it" },
         { { .current = remote, .overlayRestarts = true },
           "invalid Vxlan1 evpnDynamicRemoteMac 2 4: the overlay's agent restarts" } };
   for( auto const & each : cases ) {
      EXPECT_EQ( verdict( each.claims ), each.expected );
   }
}

} // namespace
