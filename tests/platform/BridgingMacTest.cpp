// SPDX-License-Identifier: Apache-2.0
#include "Bridging/EntryType.h"
#include "Bridging/MacVlanPair.h"

#include "Refusal.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace Bridging;

static_assert( sizeof( MacVlanPair ) == 8 );

// The values are kept in state, and the predicates tell the machines who may replace whom.
TEST( BridgingEntryType, valuesAndPredicates ) {
   struct Row {
      EntryType type;
      unsigned value;
      char const * classes; // Remote, Peer, Controller, cOnfigured, programmed Dynamic
   };
   for( Row const & row :
        { Row{ entryTypeUnknown, 0, "" },       Row{ learnedDynamicMac, 1, "" },
          Row{ learnedRemoteMac, 2, "R" },      Row{ configuredDynamicMac, 3, "OD" },
          Row{ configuredStaticMac, 4, "O" },   Row{ configuredRemoteMac, 5, "RO" },
          Row{ receivedRemoteMac, 6, "RC" },    Row{ authenticatedMac, 7, "" },
          Row{ peerDynamicMac, 8, "PD" },       Row{ peerStaticMac, 9, "P" },
          Row{ peerAuthenticatedMac, 10, "P" }, Row{ peerLearnedRemoteMac, 11, "RPD" },
          Row{ peerStaticRemoteMac, 12, "RP" }, Row{ peerReceivedRemoteMac, 13, "RPC" },
          Row{ peerEvpnRemoteMac, 14, "RPD" },  Row{ EntryType( 15 ), 15, "" },
          Row{ EntryType( 19 ), 19, "" },       Row{ evpnDynamicRemoteMac, 20, "RD" },
          Row{ evpnStaticRemoteMac, 21, "R" },  Row{ evpnIntfDynamicMac, 22, "D" },
          Row{ EntryType( 255 ), 255, "" } } ) {
      std::string classes;
      classes += isEntryTypeRemote( row.type ) ? "R" : "";
      classes += isEntryTypePeer( row.type ) ? "P" : "";
      classes += isEntryTypeController( row.type ) ? "C" : "";
      classes += isEntryTypeConfigured( row.type ) ? "O" : "";
      classes += isEntryTypeProgrammedDynamic( row.type ) ? "D" : "";
      EXPECT_EQ( classes, row.classes ) << row.value;
      EXPECT_EQ( unsigned( row.type ), row.value );
   }
}

TEST( BridgingMacVlanPair, printsReadsAndSortsByAddressFirst ) {
   EXPECT_EQ( Kiv::toText( MacVlanPair() ), "00:00:00:00:00:00@0" );
   MacVlanPair last;
   for( char const * text :
        { "00:00:00:00:00:00@1", "00:00:5e:00:53:01@0", "02:13:57:aa:bb:cc@9",
          "02:13:57:aa:bb:cc@10", "02:13:57:aa:bb:cd@1", "ff:ff:ff:ff:ff:ff@4094" } ) {
      auto const pair = Kiv::fromText< MacVlanPair >( text );
      EXPECT_EQ( Kiv::toText( pair ), text );
      EXPECT_EQ( MacVlanPair( pair.addr(), pair.vlanId() ), pair );
      EXPECT_LT( last, pair );
      EXPECT_NE( last.hash(), pair.hash() );
      last = pair;
   }
   EXPECT_EQ( last.addr(), Pelt::EthAddr::broadcast() );
   EXPECT_EQ( last.vlanId(), VlanIdOrNone( 4094 ) );
   EXPECT_EQ( Kiv::fromText< MacVlanPair >( "0213.57AA.BBCC@9" ),
              MacVlanPair( Pelt::EthAddr( 0x021357aabbcc ), VlanId( 9 ) ) );
}

TEST( BridgingMacVlanPair, badTextIsRefused ) {
   Refusals::expectRefused< MacVlanPair >( " is not ",
                                           { "", "@", "02:13:57:aa:bb:cc", "02:13:57:aa:bb:cc@",
                                             "@10", "02:13:57:aa:bb@10", "02:13:57:aa:bb:cc@ten",
                                             "02:13:57:aa:bb:cc@10@", "02:13:57:aa:bb:cc@10@11",
                                             " 02:13:57:aa:bb:cc@10", "02:13:57:aa:bb:cc@10 " } );
   for( char const * text : { "02:13:57:aa:bb:cc@4095", "02:13:57:aa:bb:cc@65535" } ) {
      EXPECT_THROW( Kiv::fromText< MacVlanPair >( text ), Kiv::RangeException ) << text;
   }
}

} // namespace
