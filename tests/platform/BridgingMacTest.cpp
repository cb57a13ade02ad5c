// SPDX-License-Identifier: Apache-2.0
#include "Bridging/EntryType.h"
#include "Bridging/MacVlanPair.h"

#include "Refusal.h"

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
   Row const rows[] = { { entryTypeUnknown, 0, "" },       { learnedDynamicMac, 1, "" },
                        { learnedRemoteMac, 2, "R" },      { configuredDynamicMac, 3, "OD" },
                        { configuredStaticMac, 4, "O" },   { configuredRemoteMac, 5, "RO" },
                        { receivedRemoteMac, 6, "RC" },    { authenticatedMac, 7, "" },
                        { peerDynamicMac, 8, "PD" },       { peerStaticMac, 9, "P" },
                        { peerAuthenticatedMac, 10, "P" }, { peerLearnedRemoteMac, 11, "RPD" },
                        { peerStaticRemoteMac, 12, "RP" }, { peerReceivedRemoteMac, 13, "RPC" },
                        { peerEvpnRemoteMac, 14, "RPD" },  { EntryType( 15 ), 15, "" },
                        { EntryType( 19 ), 19, "" },       { evpnDynamicRemoteMac, 20, "RD" },
                        { evpnStaticRemoteMac, 21, "R" },  { evpnIntfDynamicMac, 22, "D" },
                        { EntryType( 255 ), 255, "" } };
   for( Row const & row : rows ) {
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
   EXPECT_EQ( Refusals::refusal( [] { VlanIdOrNone( 4095 ); } ),
              "Bridging::VlanIdOrNone::value > 4094 not allowed" );
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
