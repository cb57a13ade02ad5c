// SPDX-License-Identifier: Apache-2.0
// What feeders make of bridging, MLAG and the overlay, in whatever order it is said; also what a machine finds
// that begins on what another one left.

#include "Kiv/ClockDriver.h"
#include "Kiv/Datum.h"
#include "agent/feeders/BridgingFeeder.h"
#include "agent/feeders/FlushClient.h"
#include "agent/feeders/MlagFeeder.h"
#include "agent/feeders/OverlayFeeder.h"

#include <gtest/gtest.h>

namespace {

using Bridging::VlanId;
using eth = Pelt::EthIntfId;
using lag = Pelt::PortChannelIntfId;
using L2Rib::ObjTuple;

class BridgingFeedersTest : public testing::Test {
 protected:
   BridgingFeedersTest() {
      Kiv::ClockDriver::ambientIs( driver );
      evpnMac->remoteMacControl().attachWriter( "evpnMac", { .privateMemory = true } );
      begin();
   }
   ~BridgingFeedersTest() override { end(); }

   void begin() {
      data = Kiv::make< Hoba::HobaCommonSmData >( "test" );
      data->lagToPortConfigIs( lag( 1 ), { { eth( 1 ), eth( 2 ) } } );
      data->lagToPortConfigIs( lag( 2 ), { { eth( 3 ) } } );
      data->vlanStatusIs( VlanId( 10 ) )->activeIs( true );
      data->vlanStatus( VlanId( 10 ) )->intfIs( eth( 4 ) );
      bridging =
            Feeders::BridgingFeeder::BridgingFeederIs( data, config, vlans, switchIntfs, ports );
      mlag = Feeders::MlagFeeder::MlagFeederIs( data, mlagStatus );
      overlay = Feeders::OverlayFeeder::OverlayFeederIs(
            data, Feeders::OverlayFeeder::Inputs{ config, vxlan, dests, balances },
            Feeders::OverlayFeeder::Outputs{ vnis, evpnMac, hwIds } );
      client = Feeders::FlushClient::FlushClientIs( data, requests, replies );
      bridging->initializedIs( true );
      mlag->initializedIs( true );
      overlay->initializedIs( true );
      client->initializedIs( true );
   }
   void end() {
      Hoba::letGo( client );
      Hoba::letGo( overlay );
      Hoba::letGo( mlag );
      Hoba::letGo( bridging );
      data->cleanup();
   }
   // The ports of the peer link, and of shared LAGs.
   std::string marks() const {
      std::string text;
      for( unsigned n = 1; n <= 5; ++n ) {
         text += data->mlagPeerLinkPortHas( eth( n ) ) ? 'p'
                 : data->mlagIntfPortHas( eth( n ) )   ? 'm'
                                                       : '-';
      }
      return text;
   }

   Kiv::VirtualDriver driver{ 100 };
   Kiv::Ptr< Hoba::HobaCommonSmData > data;
   Kiv::Ptr< Feeders::Config > const config = Kiv::make< Feeders::Config >();
   Kiv::Ptr< Bridging::VlanConfigDir > const vlans = Kiv::make< Bridging::VlanConfigDir >();
   Kiv::Ptr< Bridging::SwitchIntfConfigDir > const switchIntfs =
         Kiv::make< Bridging::SwitchIntfConfigDir >();
   Kiv::Ptr< Interface::EthPhyIntfConfigDir > const ports =
         Kiv::make< Interface::EthPhyIntfConfigDir >();
   Kiv::Ptr< Mlag::Status > const mlagStatus = Kiv::make< Mlag::Status >();
   Kiv::Ptr< Vxlan::VxlanConfigDir > const vxlan = Kiv::make< Vxlan::VxlanConfigDir >();
   Kiv::Ptr< L2Rib::DestOutput > const dests = Kiv::make< L2Rib::DestOutput >();
   Kiv::Ptr< L2Rib::LoadBalanceOutput > const balances = Kiv::make< L2Rib::LoadBalanceOutput >();
   Kiv::Ptr< Vxlan::VlanVniMap > const vnis = Kiv::make< Vxlan::VlanVniMap >();
   Kiv::Ptr< HobaTypes::RemoteMacTable > const evpnMac = Kiv::make< HobaTypes::RemoteMacTable >();
   Kiv::Ptr< Hoba::ObjTupleToHwId > const hwIds = Kiv::make< Hoba::ObjTupleToHwId >();
   Kiv::Ptr< Bridging::AllHostTableFlushRequestDir > const requests =
         Kiv::make< Bridging::AllHostTableFlushRequestDir >();
   Kiv::Ptr< Bridging::AllHostTableFlushReplyDir > const replies =
         Kiv::make< Bridging::AllHostTableFlushReplyDir >();
   Kiv::Ptr< Feeders::BridgingFeeder > bridging;
   Kiv::Ptr< Feeders::MlagFeeder > mlag;
   Kiv::Ptr< Feeders::OverlayFeeder > overlay;
   Kiv::Ptr< Feeders::FlushClient > client;
};

TEST_F( BridgingFeedersTest, vlansAndInterfaces ) {
   auto const vlan = vlans->vlanConfig( VlanId( 10 ) );
   ASSERT_TRUE( vlan && vlan->intfHas( eth( 4 ) ) && vlan->macLearning() );
   config->vlanIs( VlanId( 10 ) )->macLearningIs( false );
   config->vlan( VlanId( 10 ) )->primaryVlanIs( Bridging::VlanIdOrNone( 7 ) );
   data->vlanStatus( VlanId( 10 ) )->intfDel( eth( 4 ) );
   data->vlanStatus( VlanId( 10 ) )->intfIs( eth( 5 ) );
   EXPECT_FALSE( vlan->macLearning() || vlan->intfHas( eth( 4 ) ) );
   EXPECT_TRUE( vlan->intfHas( eth( 5 ) ) && vlan->primaryVlan().value() == 7 );
   config->vlanDel( VlanId( 10 ) );
   EXPECT_TRUE( vlan->macLearning() && vlan->primaryVlan().value() == 0 );
   data->vlanStatus( VlanId( 10 ) )->activeIs( false );
   EXPECT_FALSE( vlans->vlanConfigHas( VlanId( 10 ) ) );
   config->portIs( eth( 1 ) )->enabledIs( false );
   auto const asked = config->switchIntfIs( eth( 1 ) );
   EXPECT_FALSE( ports->ethPhyIntfConfig( eth( 1 ) )->enabled() );
   EXPECT_EQ( switchIntfs->switchIntfConfig( eth( 1 ) ), asked );
   // What goes while no machine runs is gone for the next one.
   end();
   config->portDel( eth( 1 ) );
   config->switchIntfDel( eth( 1 ) );
   begin();
   EXPECT_TRUE( ports->ethPhyIntfConfig().empty() && switchIntfs->switchIntfConfig().empty() );
}

TEST_F( BridgingFeedersTest, portsOfPeerLinkAndSharedLags ) {
   mlagStatus->peerLinkIntfIs( lag( 1 ) );
   mlagStatus->mlagIntfIs( lag( 2 ), Mlag::mlagIntfInactive );
   EXPECT_EQ( marks(), "-----" );
   mlagStatus->stateIs( Mlag::mlagInactive );
   EXPECT_EQ( marks(), "ppm--" );
   data->lagToPortConfigIs( lag( 1 ), { { eth( 2 ), eth( 4 ) } } );
   data->lagToPortConfigIs( lag( 2 ), { { eth( 3 ), eth( 1 ) } } );
   EXPECT_EQ( marks(), "mpmp-" );
   mlagStatus->peerLinkIntfIs( eth( 5 ) );
   mlagStatus->mlagIntfIs( lag( 2 ), Mlag::mlagIntfDisabled );
   EXPECT_EQ( marks(), "----p" );
   mlagStatus->mlagIntfIs( lag( 2 ), Mlag::mlagIntfActiveFull );
   data->lagToPortConfigDel( lag( 2 ) );
   mlagStatus->peerLinkIntfIs( lag( 1 ) );
   EXPECT_EQ( marks(), "-p-p-" );
   end();
   begin();
   EXPECT_EQ( marks(), "ppm--" );
   mlagStatus->stateIs( Mlag::mlagDisabled );
   EXPECT_EQ( marks(), "-----" );
}

TEST_F( BridgingFeedersTest, vnisStationsAndNextHops ) {
   auto const vni = [ this ] {
      return vnis->vniHas( VlanId( 10 ) ) ? vnis->vni( VlanId( 10 ) ).value() : 0;
   };
   vxlan->vxlanConfigIs( Pelt::VxlanIntfId( 2 ) )->vlanVniIs( VlanId( 10 ), Vxlan::Vni( 2000 ) );
   vxlan->vxlanConfigIs( Pelt::VxlanIntfId( 1 ) )->vlanVniIs( VlanId( 10 ), Vxlan::Vni( 1000 ) );
   EXPECT_EQ( vni(), 1000u );
   vxlan->vxlanConfigDel( Pelt::VxlanIntfId( 1 ) );
   EXPECT_EQ( vni(), 2000u );
   HobaTypes::RemoteMacAddressTableEntry station;
   station.macEntry = Bridging::MacVlanPair::parse( "00:00:5e:00:53:01@10" );
   config->evpnMacIs( station );
   EXPECT_TRUE( evpnMac->remoteMacHas( station.macEntry ) );

   // Ids come late, at once, other ones, or never.
   ObjTuple const late{ L2Rib::objDest, 17 }, balance{ L2Rib::objLoadBalance, 17 },
         never{ L2Rib::objDest, 18 };
   config->hwIdDelayIs( 5 );
   config->hwIdIs( never, 0 );
   for( auto const & next : { late, never } ) {
      L2Rib::Dest dest;
      dest.objTuple = next;
      dests->destIs( dest );
   }
   driver.advance( 4 );
   EXPECT_TRUE( hwIds->hwId().empty() && overlay->dueHas( late ) && !overlay->dueHas( never ) );
   driver.advance( 1 );
   EXPECT_TRUE( hwIds->hwIdHas( late ) && overlay->due().empty() );
   config->hwIdDelayIs( 0 );
   L2Rib::LoadBalance several;
   several.objTuple = balance;
   balances->loadBalanceIs( several );
   EXPECT_TRUE( hwIds->hwIdHas( balance ) && hwIds->hwId( balance ) != hwIds->hwId( late ) );
   config->hwIdIs( late, 99 );
   EXPECT_EQ( hwIds->hwId( late ), 99u );
   config->hwIdDel( never );
   EXPECT_TRUE( hwIds->hwIdHas( never ) );

   end();
   vxlan->vxlanConfigDel( Pelt::VxlanIntfId( 2 ) );
   config->evpnMacDel( station.macEntry );
   dests->destDel( late );
   begin();
   EXPECT_EQ( vni(), 0u );
   EXPECT_FALSE( evpnMac->remoteMacHas( station.macEntry ) || hwIds->hwIdHas( late ) );
   EXPECT_EQ( hwIds->hwId().size(), 2u );
}

TEST_F( BridgingFeedersTest, requestsGoWhenTheyAreAnswered ) {
   auto const first = client->ask( {} ), second = client->ask( {} );
   auto const mine = requests->agent( "cli" );
   replies->agentIs( "other" )->replyIs( first, true );
   EXPECT_EQ( mine->request().size(), 2u );
   replies->agentIs( "cli" )->replyIs( first, true );
   EXPECT_TRUE( !mine->requestHas( first ) && mine->requestHas( second ) );
   // An answer that came while nobody listened; and no key is used twice while its answer stands.
   end();
   replies->agent( "cli" )->replyIs( second, true );
   begin();
   EXPECT_FALSE( mine->requestHas( second ) );
   EXPECT_EQ( client->ask( {} ), "3" );
}

} // namespace
