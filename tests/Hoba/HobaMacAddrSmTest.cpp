// SPDX-License-Identifier: Apache-2.0

// Where stations are, by all who say so.

#include "MacTest.h"

namespace {

using namespace HobaTest;

class MacAddrSmTest : public MacFixture {};

TEST_F( MacAddrSmTest, learnsMovesAgesAndFollowsTheOperator ) {
   start();
   learn( pair( 1 ), et1 );
   EXPECT_EQ( host( pair( 1 ) ), "Ethernet1 learnedDynamicMac 0" );
   learn( pair( 1 ), et2 );
   EXPECT_EQ( host( pair( 1 ) ), "Ethernet2 learnedDynamicMac 1" );
   EXPECT_EQ( helper->take(), Strings{} );
   chip->mac()->age( pair( 1 ) );
   settle();
   EXPECT_EQ( host( pair( 1 ) ), "-" );
   learn( pair( 1 ), et2 );
   configure( pair( 1 ), et1 );
   EXPECT_EQ( host( pair( 1 ) ), "Ethernet1 configuredStaticMac 1" );
   EXPECT_EQ( row( pair( 1 ) ), "Ethernet1 configuredStaticMac" );
   EXPECT_FALSE( macTable->macEntryHas( pair( 1 ) ) );
   EXPECT_EQ( reason( pair( 1 ) ), "Entry is static" );
   unconfigure( pair( 1 ) );
   EXPECT_EQ( host( pair( 1 ) ), "-" );
   EXPECT_EQ( row( pair( 1 ) ), "-" );
   // A dynamic one stays until the station is seen elsewhere.
   configure( pair( 1 ), et1, Bridging::configuredDynamicMac, driver.now() );
   EXPECT_EQ( row( pair( 1 ) ), "Ethernet1 configuredDynamicMac" );
   EXPECT_TRUE( dynamicHosts->hostHas( pair( 1 ) ) );
   pass( 1 );
   learn( pair( 1 ), et2 );
   EXPECT_EQ( host( pair( 1 ) ), "Ethernet2 learnedDynamicMac 1" );
   EXPECT_EQ( row( pair( 1 ) ), "Ethernet2 learnedDynamicMac ages" );
   EXPECT_FALSE( dynamicHosts->hostHas( pair( 1 ) ) );
   chip->mac()->age( pair( 1 ) );
   settle();
   EXPECT_EQ( host( pair( 1 ) ), "Ethernet1 configuredDynamicMac 2" );
}

} // namespace
