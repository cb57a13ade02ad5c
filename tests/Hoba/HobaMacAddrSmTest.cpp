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

TEST_F( MacAddrSmTest, peersHostsFollowStateAndCount ) {
   start();
   auto const told = [ & ]( Pelt::IntfId intf, std::uint32_t moves, bool promote = false ) {
      Mlag::HostEntry entry;
      entry.macEntry = pair( 1 );
      entry.intf = intf;
      entry.moves = Mox::Seqno32( moves );
      entry.lastMoveTime = 5;
      entry.promote = promote;
      peerHosts->hostEntryIs( entry );
      settle();
   };
   data->lagToPortConfigIs( po1, {} );
   data->lagToPortIs( po1, { { et1 } } );
   told( po1, 2 );
   EXPECT_EQ( host( pair( 1 ) ), "-" ); // no MLAG
   EXPECT_EQ( sm->withheld( pair( 1 ) ).obstacle, Hoba::macObstaclePeerIntf );
   mlag->stateIs( Mlag::mlagActive );
   mlag->mlagIntfIs( po1, Mlag::mlagIntfActiveFull );
   settle();
   EXPECT_EQ( host( pair( 1 ) ), "Port-Channel1 peerDynamicMac 2" );
   EXPECT_TRUE( sm->withheld().empty() );
   // Another count alone is nothing for the hardware.
   helper->take();
   told( po1, 3 );
   EXPECT_EQ( host( pair( 1 ) ), "Port-Channel1 peerDynamicMac 3" );
   EXPECT_EQ( helper->take(), Strings{} );
   learn( pair( 1 ), et2 );
   EXPECT_EQ( host( pair( 1 ) ), "Ethernet2 learnedDynamicMac 4" );
   EXPECT_EQ( row( pair( 1 ) ), "Ethernet2 learnedDynamicMac ages" );
   told( po1, 5 );
   EXPECT_EQ( host( pair( 1 ) ), "Port-Channel1 peerDynamicMac 5" );
   EXPECT_EQ( reason( pair( 1 ) ), "Using peer dynamic entry" );
   mlag->mlagIntfIs( po1, Mlag::mlagIntfInactive );
   settle();
   EXPECT_EQ( host( pair( 1 ) ), "-" );
   EXPECT_EQ( row( pair( 1 ) ), "-" );
   // On the peer link nothing is learnt while there is a peer.
   mlag->peerLinkIntfIs( et2 );
   settle();
   EXPECT_FALSE( chip->mac()->learnsOn( et2, vlan10 ) );
   mlag->stateIs( Mlag::mlagDisabled );
   settle();
   EXPECT_TRUE( chip->mac()->learnsOn( et2, vlan10 ) );
}

TEST_F( MacAddrSmTest, remoteHostsWaitForTheirNextHops ) {
   start();
   L2Rib::ObjTuple const one{ L2Rib::objDest, 1 }, two{ L2Rib::objDest, 2 },
         both{ L2Rib::objLoadBalance, 1 };
   auto const dest = [ & ]( L2Rib::ObjTuple tuple, std::uint32_t nextHop,
                            L2Rib::DestKind kind = L2Rib::destTunnel ) {
      L2Rib::Dest is;
      is.objTuple = tuple;
      is.kind = kind;
      is.intf = vx1;
      is.tunnelGroup = tuple.id;
      is.nextHopId = nextHop;
      ribDests->destIs( is );
      settle();
   };
   auto const resolve = [ & ]( L2Rib::ObjTuple tuple, L2Rib::Source source = L2Rib::sourceBgp ) {
      L2Rib::Host is;
      is.macEntry = pair( 1 );
      is.objTuple = tuple;
      is.source = source;
      ribHosts->hostIs( is );
      settle();
   };
   auto const waitsFor = [ & ] { return Kiv::toText( sm->withheld( pair( 1 ) ).obstacle ); };
   auto const uses = [ & ]( std::uint32_t nextHop ) {
      return rmac->nextHopIdRefcountTable()->refcount( nextHop );
   };
   resolve( one, L2Rib::sourceMlag );
   EXPECT_EQ( waitsFor(), "source" );
   resolve( one );
   EXPECT_EQ( waitsFor(), "VNI" );
   vnis->vniIs( vlan10, Vxlan::Vni( 10010 ) );
   settle();
   EXPECT_EQ( waitsFor(), "RIB object" );
   dest( one, L2Rib::nextHopUnresolved );
   EXPECT_EQ( waitsFor(), "next hop" );
   dest( one, 7 );
   EXPECT_EQ( waitsFor(), "hardware id" );
   hwIds->hwIdIs( one, 700 );
   settle();
   EXPECT_EQ( host( pair( 1 ) ), "Vxlan1 evpnDynamicRemoteMac 0" );
   EXPECT_EQ( helper->take(), ( Strings{ "remote 02:00:00:00:00:01@10 7 700" } ) );
   EXPECT_EQ( uses( 7 ), 1u );
   EXPECT_EQ( rmac->remoteHost()->remoteMac( pair( 1 ) ).l2RibObjTuple, one );
   // While another next hop is worked out, it stays, and follows the one that it has.
   dest( two, L2Rib::nextHopUnresolved );
   resolve( two );
   hwIds->hwIdIs( one, 701 );
   settle();
   EXPECT_EQ( helper->take(), ( Strings{ "remote 02:00:00:00:00:01@10 7 701" } ) );
   resolve( one );
   // While the next hop is worked out anew, it stays; over others it goes on.
   dest( one, L2Rib::nextHopUnresolved );
   EXPECT_EQ( host( pair( 1 ) ), "Vxlan1 evpnDynamicRemoteMac 0" );
   auto moved = ribHosts->host( pair( 1 ) );
   moved.lastMoveTime = 3; // and the next hop with it
   ribHosts->hostIs( moved );
   dest( one, 8 );
   EXPECT_EQ( uses( 7 ) * 10 + uses( 8 ), 1u );
   dest( two, 9 );
   L2Rib::LoadBalance balance;
   balance.objTuple = both;
   balance.dest = { two, one };
   balance.nextHopId = 20;
   ribBalances->loadBalanceIs( balance );
   hwIds->hwIdIs( both, 2000 );
   resolve( both );
   EXPECT_EQ( uses( 20 ), 1u );
   EXPECT_EQ( rmac->vlanRefcountTable()->refcount( vlan10 ), 1u );
   dest( two, 9, L2Rib::destDrop ); // what it hangs on by another
   EXPECT_EQ( waitsFor(), "drop next hop" );
   EXPECT_EQ( host( pair( 1 ) ) + row( pair( 1 ) ), "--" );
   EXPECT_EQ( rmac->nextHopIdRefcountTable()->refcount().size(), 0u );
   dest( two, 9 );
   hwIds->hwIdDel( both );
   settle();
   EXPECT_EQ( waitsFor(), "hardware id" );
   hwIds->hwIdIs( both, 2001 );
   settle();
   // A station that is seen here is here.
   learn( pair( 1 ), et1 );
   EXPECT_EQ( host( pair( 1 ) ), "Ethernet1 learnedDynamicMac 1" );
   EXPECT_EQ( row( pair( 1 ) ), "Ethernet1 learnedDynamicMac ages" );
   EXPECT_EQ( rmac->remoteHostStatus()->remoteHostStatus().size(), 0u );
   EXPECT_EQ( rmac->vlanRefcountTable()->refcount( vlan10 ), 0u );
}

TEST_F( MacAddrSmTest, remoteHostsBeyondTheLimitWait ) {
   chip->mac()->maxRemoteMacsIs( 1 );
   vnis->vniIs( vlan10, Vxlan::Vni( 10010 ) );
   vxlan->vxlanConfigIs( vx1 );
   auto const overlay = vxlan->vxlanConfig( vx1 );
   overlay->remoteHostIs( { pair( 1 ), 5 } );
   overlay->remoteHostIs( { pair( 2 ), 5 } );
   start();
   EXPECT_EQ( host( pair( 1 ) ) + host( pair( 2 ) ), "Vxlan1 configuredRemoteMac 0-" );
   EXPECT_EQ( sm->withheld( pair( 2 ) ).obstacle, Hoba::macObstacleRemoteLimit );
   overlay->remoteHostDel( pair( 1 ) );
   pass( 2 );
   EXPECT_EQ( host( pair( 1 ) ) + host( pair( 2 ) ), "-Vxlan1 configuredRemoteMac 0" );
   // The tunnel says where a station is; a controller's client believes the controller alone.
   rmac->tunnelLearnEvent()->eventIs( { { pair( 3 ).addr(), Vxlan::Vni( 10010 ) }, vx1, 6, 3 } );
   settle();
   EXPECT_EQ( sm->withheld( pair( 3 ) ).obstacle, Hoba::macObstacleRemoteLimit );
   overlay->remoteHostDel( pair( 2 ) );
   pass( 2 );
   EXPECT_EQ( host( pair( 3 ) ), "Vxlan1 learnedRemoteMac 0" );
   overlay->controllerClientIs( true );
   settle();
   EXPECT_EQ( host( pair( 3 ) ), "-" );
   rmac->receivedRemoteHost()->remoteHostIs( { pair( 3 ), vx1, 7, Mox::Seqno32( 4 ) } );
   settle();
   EXPECT_EQ( host( pair( 3 ) ), "Vxlan1 receivedRemoteMac 4" );
   overlay->controllerClientIs( false );
   rmac->flushRequest()->requestIs( { {}, Hoba::SwTunnelGroupId( 6 ) } );
   settle();
   EXPECT_TRUE( rmac->flushRequest()->request().empty() );
   // Its agent restarts: what it does not tell yet stays.
   rmac->bootStatus()->remoteMacsReadyIs( false );
   rmac->receivedRemoteHost()->remoteHostDel( pair( 3 ) );
   rmac->tunnelLearnEvent()->eventDelAll();
   settle();
   EXPECT_EQ( host( pair( 3 ) ), "Vxlan1 receivedRemoteMac 4" );
   rmac->bootStatus()->remoteMacsReadyIs( true );
   settle();
   EXPECT_EQ( host( pair( 3 ) ), "-" );
}

TEST_F( MacAddrSmTest, portsThatAskForAProofIgnoreWhatIsLearnt ) {
   start();
   learn( pair( 1 ), et1 );
   dot1x->enabledIs( true );
   dot1x->intfStatusIs( et1 );
   settle();
   EXPECT_EQ( host( pair( 1 ) ), "-" ); // not authorized: nothing is learnt
   EXPECT_FALSE( chip->mac()->learnsOn( et1, vlan10 ) );
   dot1x->intfStatus( et1 )->portAuthStateIs( Dot1x::portAuthorized );
   settle();
   learn( pair( 1 ), et1 );
   EXPECT_EQ( host( pair( 1 ) ), "Ethernet1 learnedDynamicMac 0" );
   dot1x->intfStatus( et1 )->hostModeIs( Dot1x::singleHost );
   settle();
   EXPECT_EQ( host( pair( 1 ) ), "-" );
   EXPECT_EQ( row( pair( 1 ) ), "Ethernet1 learnedDynamicMac ages" ); // until it ages
   EXPECT_EQ( sm->withheld( pair( 1 ) ).obstacle, Hoba::macObstacleDot1x );
   dot1xHosts->hostEntryIs( { pair( 1 ), et1, 5 } );
   settle();
   EXPECT_EQ( host( pair( 1 ) ), "Ethernet1 authenticatedMac 0" );
   dot1xHosts->hostEntryDel( pair( 1 ) );
   dot1x->enabledIs( false );
   settle();
   EXPECT_EQ( host( pair( 1 ) ), "-" );
   learn( pair( 1 ), et1 );
   EXPECT_EQ( host( pair( 1 ) ), "Ethernet1 learnedDynamicMac 0" );
   // A server that failed is the CPU's until it is seen again.
   pass( 1 );
   failed->failedServerIs( pair( 1 ), et1 );
   settle();
   EXPECT_EQ( host( pair( 1 ) ), "Cpu configuredDynamicMac 0" );
   pass( 1 );
   learn( pair( 1 ), et2 );
   EXPECT_EQ( host( pair( 1 ) ), "Ethernet2 learnedDynamicMac 1" );
   failed->failedServerDel( pair( 1 ) );
   settle();
   EXPECT_EQ( host( pair( 1 ) ), "Ethernet2 learnedDynamicMac 1" );
}

TEST_F( MacAddrSmTest, flushesExactlyWhatIsAsked ) {
   start();
   requests->agentIs( "cli" );
   auto const asked = requests->agent( "cli" );
   data->lagToPortConfigIs( po1, {} );
   data->lagToPortIs( po1, { { Pelt::IntfId( "Ethernet3" ) } } );
   struct Case {
      Bridging::HostTableFlushRequest what;
      char const * left; // of the stations 1 to 6, without the static one
   };
   Bridging::VlanIdOrNone const any, in10( std::uint16_t( 10 ) ), in20( std::uint16_t( 20 ) );
   auto const addr = pair( 1 ).addr();
   Case const cases[] = {
         { { any, {}, addr }, "23456" },    // in all VLANs: 1 and its like are the same address
         { { in20, et1, addr }, "123456" }, // the interface counts for nothing, nor is it there
         { { any, et1, {} }, "3456" },
         { { in20, et1, {} }, "13456" },
         { { any, Pelt::IntfId( "Ethernet1.5" ), {} }, "3456" },
         { { any, po1, {} }, "12346" },
         { { any, Pelt::IntfId( "Port-Channel9" ), {} }, "123456" },
         { { any, Pelt::IntfId( "Ethernet99" ), {} }, "123456" },
         { { in10, {}, {} }, "2" },
         { { any, {}, {} }, "" } };
   for( auto const & each : cases ) {
      for( unsigned i : { 1, 3, 4 } ) {
         learn( pair( i ), i == 1 ? et1 : et2 );
      }
      learn( pair( 2, 20 ), et1 );
      learn( pair( 5 ), po1 );
      learn( pair( 6 ), et2 );
      configure( pair( 7 ), et1 );
      asked->requestIs( "1", each.what );
      settle();
      EXPECT_TRUE( replies->agent( "cli" )->reply( "1" ) );
      asked->requestDel( "1" );
      settle();
      EXPECT_FALSE( replies->agent( "cli" )->replyHas( "1" ) );
      std::string left;
      for( unsigned i = 1; i <= 6; ++i ) {
         auto const station = i == 2 ? pair( i, 20 ) : pair( i );
         EXPECT_EQ( host( station ) == "-", row( station ) == "-" );
         left += host( station ) == "-" ? "" : std::to_string( i );
      }
      EXPECT_EQ( left, each.left );
      EXPECT_EQ( host( pair( 7 ) ), "Ethernet1 configuredStaticMac 0" );
   }
   // Several full ones are one; a request that is made again in one turn is a new one.
   auto const before = chip->mac()->count( HobaSim::macFlushes );
   asked->requestIs( "a", {} );
   asked->requestIs( "b", {} );
   asked->requestDel( "b" );
   asked->requestIs( "b", {} );
   settle();
   EXPECT_EQ( chip->mac()->count( HobaSim::macFlushes ) - before, 1u );
   EXPECT_TRUE( replies->agent( "cli" )->reply( "b" ) );
   asked->requestDel( "b" );
   asked->requestIs( "b", { any, et1, {} } );
   EXPECT_FALSE( replies->agent( "cli" )->replyHas( "b" ) );
   requests->agentDel( "cli" );
   settle();
   EXPECT_FALSE( replies->agent( "cli" ) );
}

TEST_F( MacAddrSmTest, aFullTableIsSaidOnceAndFilledWhenThereIsRoom ) {
   start();
   chip->mac()->hostTable()->capacityIs( 2 );
   learn( pair( 1 ), et1 );
   learn( pair( 2 ), et1 );
   configure( pair( 3 ), et1 );
   configure( pair( 4 ), et2, Bridging::configuredDynamicMac );
   EXPECT_EQ( host( pair( 3 ) ), "- pending" );
   auto const logged = [] {
      return std::ranges::count(
            Hoba::logEntries(), std::string( "ETH_MACADDRBANKFULL" ),
            []( auto const & entry ) { return std::string( entry.message->name ); } );
   };
   auto const first = logged();
   pass( 5 );
   configure( pair( 3 ), et2 ); // decided anew, it is still the same that was logged
   pass( 5 );
   EXPECT_EQ( logged(), first );
   EXPECT_EQ( sm->explain( pair( 3 ) ).pending->refusal, Hoba::macProgramFull );
   chip->mac()->age( pair( 1 ) ); // the hardware makes room by itself
   pass( 2 );
   EXPECT_EQ( host( pair( 4 ) ), "Ethernet2 configuredDynamicMac 0" );
   EXPECT_EQ( host( pair( 3 ) ), "- pending" );
   unconfigure( pair( 4 ) );
   pass( 2 );
   EXPECT_EQ( host( pair( 3 ) ), "Ethernet2 configuredStaticMac 1" );
   EXPECT_TRUE( sm->updateList().empty() && sm->refusedList().empty() );
}

// Whoever hears of a change may change everything; a hook that throws has changed nothing.
TEST_F( MacAddrSmTest, holdsWhateverHappensInTheMiddle ) {
   start();
   helper->before = [] { throw Kiv::Exception( "the bus is gone" ); };
   configure( pair( 1 ), et1 );
   EXPECT_EQ( host( pair( 1 ) ), "- pending" );
   EXPECT_EQ( failures(), 1u );
   // What could not be flushed is where it was, and nobody waits for it.
   learn( pair( 3 ), et2 );
   requests->agentIs( "cli" );
   requests->agent( "cli" )->requestIs( "1", {} );
   settle();
   EXPECT_TRUE( replies->agent( "cli" )->reply( "1" ) );
   EXPECT_EQ( host( pair( 3 ) ) + row( pair( 3 ) ),
              "Ethernet2 learnedDynamicMac 0Ethernet2 learnedDynamicMac ages" );
   EXPECT_EQ( failures(), 1u );
   helper->before = [ & ] {
      helper->before = nullptr;
      config->fdbConfig( vlan10 )->configuredHostDel( pair( 1 ).addr() );
   };
   pass( 1 );
   EXPECT_EQ( host( pair( 1 ) ), "-" );
   EXPECT_EQ( row( pair( 1 ) ), "-" );
   helper->before = [ & ] { Hoba::letGo( sm ); };
   configure( pair( 2 ), et1 );
   EXPECT_FALSE( sm );
}

// What is claimed is kept, with its counts and times, and told once more; the rest goes.
TEST_F( MacAddrSmTest, theNextMachineGoesOn ) {
   start();
   learn( pair( 1 ), et1 );
   learn( pair( 1 ), et2 );
   learn( pair( 2 ), et1 );
   configure( pair( 3 ), et1 );
   configure( pair( 4 ), et1 );
   HobaTypes::MacAddressTableEntry never;
   never.macEntry = pair( 2 );
   nonAging->macEntriesIs( never );
   nonAging->enabledIs( true );
   settle();
   EXPECT_EQ( row( pair( 2 ) ), "Ethernet1 learnedDynamicMac" );
   stop();
   unconfigure( pair( 4 ) );
   chip->mac()->age( pair( 1 ) );
   learn( pair( 5 ), et1 );
   helper->take();
   auto const writes = chip->writes();
   chip->beginPass();
   start();
   chip->sweep();
   EXPECT_EQ( host( pair( 2 ) ) + row( pair( 2 ) ),
              "Ethernet1 learnedDynamicMac 0Ethernet1 learnedDynamicMac" );
   EXPECT_EQ( host( pair( 3 ) ) + row( pair( 3 ) ),
              "Ethernet1 configuredStaticMac 0Ethernet1 configuredStaticMac" );
   EXPECT_EQ( host( pair( 1 ) ) + host( pair( 4 ) ) + row( pair( 4 ) ), "---" );
   EXPECT_EQ( host( pair( 5 ) ), "Ethernet1 learnedDynamicMac 0" );
   EXPECT_EQ( chip->writes() - writes, 1u ); // the one that nobody wants goes
   EXPECT_TRUE( sm->firstPassDone() );
   // It ages again when nobody asks for that any more.
   nonAging->macEntriesDel( pair( 2 ) );
   settle();
   EXPECT_EQ( row( pair( 2 ) ), "Ethernet1 learnedDynamicMac ages" );
}

TEST_F( MacAddrSmTest, theRestOfWhatIsSaidCountsToo ) {
   start();
   Traces learning( "HobaMacLearning" ), machine( "HobaMacStation" );
   // Routers' addresses, also against what the operator says.
   routerMacs->routerMacIs( { pair( 1 ), Pelt::CpuIntfId() } );
   configure( pair( 1 ), et1 );
   EXPECT_EQ( host( pair( 1 ) ), "Cpu configuredStaticMac 0" );
   EXPECT_EQ( sm->explain( pair( 1 ) ).candidates.front().rule, Hoba::macRuleRank );
   // What can be no station; interfaces that are not there, or not enabled.
   auto const group = Pair( Pelt::EthAddr( 0x030000000001 ), vlan10 );
   configure( group, et1 );
   EXPECT_EQ( sm->withheld( group ).obstacle, Hoba::macObstacleGroupAddress );
   configure( pair( 2 ), Pelt::IntfId( "Ethernet9" ) );
   EXPECT_EQ( sm->withheld( pair( 2 ) ).obstacle, Hoba::macObstacleNoIntf );
   data->intfIs( Pelt::EthIntfId( 9 ), true );
   settle();
   EXPECT_EQ( host( pair( 2 ) ), "Ethernet9 configuredStaticMac 0" );
   ethConfig->ethPhyIntfConfigIs( Pelt::EthIntfId( 9 ) );
   ethConfig->ethPhyIntfConfig( Pelt::EthIntfId( 9 ) )->enabledIs( false );
   settle();
   EXPECT_EQ( host( pair( 2 ) ), "-" );
   // Learning by port and VLAN; not by the interface of a VLAN. What does not learn forgets.
   for( auto const intf : { et1, Pelt::IntfId( "Vlan10" ) } ) {
      switchIntfs->switchIntfConfigIs( intf );
   }
   learn( pair( 3 ), et1 );
   switchIntfs->switchIntfConfig( et1 )->enableLearningIs( false );
   switchIntfs->switchIntfConfig( Pelt::IntfId( "Vlan10" ) )->enableLearningIs( false );
   settle();
   EXPECT_EQ( host( pair( 3 ) ), "-" );
   EXPECT_EQ( sm->portLearning().size(), 1u );
   learn( pair( 4 ), et2 );
   vlans->vlanConfigIs( vlan10 );
   vlans->vlanConfig( vlan10 )->macLearningIs( false );
   settle();
   EXPECT_EQ( host( pair( 4 ) ), "-" );
   vlans->vlanConfig( vlan10 )->macLearningIs( true );
   // A secondary VLAN that the overlay carries learns nothing.
   learn( pair( 4 ), et2 );
   vnis->vniIs( vlan10, Vxlan::Vni( 10010 ) );
   vlans->vlanConfig( vlan10 )->primaryVlanIs( Bridging::VlanIdOrNone( std::uint16_t( 11 ) ) );
   settle();
   EXPECT_EQ( host( pair( 4 ) ), "-" );
   EXPECT_EQ( sm->withheld( pair( 4 ) ).obstacle, Hoba::macObstacleSecondaryVlan );
   vlans->vlanConfigDel( vlan10 );
   settle();
   EXPECT_TRUE( sm->withheld().empty() || !sm->withheldHas( pair( 4 ) ) );
   // The chip's own settings.
   config->hostAgingTimeIs( 20 );
   config->sourceMacInvalidIs( true );
   EXPECT_EQ( chip->mac()->setting( HobaSim::macAgingTime ), 20 );
   EXPECT_EQ( chip->mac()->setting( HobaSim::macSourceInvalid ), 1 );
   learn( pair( 5 ), et2 );
   EXPECT_EQ( host( pair( 5 ) ), "Ethernet2 learnedDynamicMac 0" );
   pass( 40 );
   EXPECT_EQ( host( pair( 5 ) ), "-" );
   // With fast redirection the peer's remote stations are nobody else's business.
   mlag->stateIs( Mlag::mlagActive );
   Mlag::HostEntry told;
   told.macEntry = pair( 6 );
   told.intf = vx1;
   told.entryType = Bridging::peerLearnedRemoteMac;
   told.tunnelGroup = 3;
   peerHosts->hostEntryIs( told );
   settle();
   EXPECT_TRUE( rmac->remoteHost()->remoteMacHas( pair( 6 ) ) );
   mlag->fastMacRedirectionEnabledIs( true );
   settle();
   EXPECT_EQ( host( pair( 6 ) ), "Vxlan1 peerLearnedRemoteMac 0" );
   EXPECT_FALSE( rmac->remoteHost()->remoteMacHas( pair( 6 ) ) );
   auto const said = [ & ]( Strings const & texts, char const * part ) {
      return std::ranges::any_of(
            texts, [ & ]( auto const & text ) { return text.find( part ) != text.npos; } );
   };
   EXPECT_TRUE( said( learning.take(),
                      "is vlan interface. MAC learning control feature is not supported" ) );
   EXPECT_TRUE( said( machine.take(), "collision of static entry " ) );
}

// The hardware forgets no station that software wrote never to age: also one that may age by now.
TEST_F( MacAddrSmTest, flushesWhatNeverAgedToo ) {
   start();
   learn( pair( 1 ), et1 );
   HobaTypes::MacAddressTableEntry never;
   never.macEntry = pair( 1 );
   nonAging->macEntriesIs( never );
   nonAging->enabledIs( true );
   settle();
   data->intfDel( et1 );
   nonAging->enabledIs( false );
   settle();
   EXPECT_EQ( host( pair( 1 ) ) + row( pair( 1 ) ), "--" );
}

// What was gathered and decided before counts no more; what happened in between does.
TEST_F( MacAddrSmTest, aMachineThatIsInitializedAgainBeginsAnew ) {
   start();
   learn( pair( 1 ), et1 );
   dot1xHosts->hostEntryIs( { pair( 2 ), et1, 5 } ); // decided, and not done
   EXPECT_EQ( host( pair( 2 ) ), "- pending" );
   failed->failedServerIs( pair( 1 ), et1 ); // what was learnt has lost
   sm->initializedIs( false );
   dot1xHosts->hostEntryDel( pair( 2 ) );
   failed->failedServerDel( pair( 1 ) );
   sm->initializedIs( true );
   settle();
   EXPECT_EQ( host( pair( 1 ) ), "Ethernet1 learnedDynamicMac 0" );
   EXPECT_EQ( host( pair( 2 ) ) + row( pair( 2 ) ), "--" );
   EXPECT_TRUE( sm->firstPassDone() );
   EXPECT_EQ( sm->hostsBehind( et1 ).size() * 10 + sm->hostsBehind( Pelt::CpuIntfId() ).size(),
              10u );
}

// Of a flush that is ended in one of its own visits nothing is left, and its request is answered by the next.
TEST_F( MacAddrSmTest, aFlushMayEndTheMachineThatDoesIt ) {
   start();
   requests->agentIs( "cli" );
   for( unsigned i = 1; i <= 40; ++i ) {
      learn( pair( i ), et1 );
   }
   using Status = Watcher< Bridging::FdbStatus, Bridging::FdbStatus::learnedHostAttr >;
   auto const watcher = Hoba::smIs< Status >( status->fdbStatus( vlan10 ) );
   watcher->then = [ & ] {
      watcher->then = nullptr;
      sm->initializedIs( false );
      sm->initializedIs( true );
   };
   requests->agent( "cli" )->requestIs( "1", { {}, et1, {} } );
   settle();
   EXPECT_TRUE( replies->agent( "cli" )->reply( "1" ) );
   EXPECT_EQ( sm->fdb().size() + sm->flushes().requests().size(), 0u );
}

// It keeps its place: also in the hardware, and when the next machine sweeps that.
TEST_F( MacAddrSmTest, whatWaitsForItsNextHopOutlivesTheMachine ) {
   start();
   L2Rib::ObjTuple const one{ L2Rib::objDest, 1 };
   L2Rib::Dest dest;
   dest.objTuple = one;
   dest.intf = vx1;
   dest.tunnelGroup = 1;
   dest.nextHopId = 7;
   ribDests->destIs( dest );
   hwIds->hwIdIs( one, 700 );
   vnis->vniIs( vlan10, Vxlan::Vni( 10010 ) );
   L2Rib::Host is;
   is.macEntry = pair( 1 );
   is.objTuple = one;
   ribHosts->hostIs( is );
   settle();
   dest.nextHopId = L2Rib::nextHopUnresolved;
   ribDests->destIs( dest );
   settle();
   auto const before = row( pair( 1 ) );
   helper->take();
   stop();
   chip->beginPass();
   start();
   chip->sweep();
   pass( 5 );
   EXPECT_EQ( row( pair( 1 ) ), before );
   EXPECT_EQ( host( pair( 1 ) ), "Vxlan1 evpnDynamicRemoteMac 0" );
   EXPECT_EQ( sm->verifyHost( *sm->currentEntry( pair( 1 ) ) ), "" );
   EXPECT_EQ( helper->take().size(), 1u );
   EXPECT_EQ( rmac->nextHopIdRefcountTable()->refcount( 7 ), 1u );
}

// Whatever others write: no station, no type, no interface.
TEST_F( MacAddrSmTest, claimsThatAreNoneAreRefused ) {
   start();
   mlag->stateIs( Mlag::mlagActive );
   Mlag::HostEntry peer;
   peer.macEntry = pair( 1 ); // behind no interface, as the peer link that there is not
   peerHosts->hostEntryIs( peer );
   L2Rib::Host unknown;
   unknown.macEntry = pair( 2 );
   unknown.entryType = Bridging::entryTypeUnknown;
   ribHosts->hostIs( unknown );
   unknown.macEntry = pair( 3 );
   unknown.entryType = Bridging::learnedDynamicMac;
   ribHosts->hostIs( unknown );
   Pair const all( Pelt::EthAddr( 0x030000000000 ), vlan10 ), zero( Pelt::EthAddr(), vlan10 );
   routerMacs->routerMacIs( { all } );
   dot1xHosts->hostEntryIs( { zero, et1, 5 } );
   HobaTypes::MacAddressTableEntry record;
   record.macEntry = pair( 4 );
   record.entryType = Bridging::learnedDynamicMac;
   macTable->macEntryIs( record );
   settle();
   EXPECT_EQ( sm->fdb().size(), 0u );
   EXPECT_EQ( sm->withheld().size(), 6u );
   EXPECT_TRUE( sm->updateList().empty() && sm->refusedList().empty() );
}

// Many that there is no room for are tried again in slices, each once.
TEST_F( MacAddrSmTest, retriesComeInSlices ) {
   start();
   chip->mac()->hostTable()->capacityIs( 1 );
   sm->macModifyBacklogQuantumIs( 10 );
   for( unsigned i = 1; i <= 95; ++i ) {
      dot1xHosts->hostEntryIs( { pair( i ), et1, 5 } );
   }
   settle();
   EXPECT_EQ( sm->refusedList().size(), 94u );
   helper->take();
   pass( 1 );
   EXPECT_EQ( helper->take().size(), 94u );
   sm->macModifyBacklogQuantumIs( 0 ); // one at a time
   dot1xHosts->hostEntryDelAll();
   pass( 2 );
   EXPECT_TRUE( sm->fdb().size() == 0 && sm->refusedList().empty() && sm->updateList().empty() );
}

// What the owner of the machine, or of its context, can switch.
TEST_F( MacAddrSmTest, goesByItsSwitches ) {
   start();
   sm->deferMacTableUpdateIs( true );
   sm->macTableReviewQuantaIs( 1 );
   sm->lazyFdbStatusDeletionIs( true );
   for( unsigned i = 1; i <= 3; ++i ) {
      chip->mac()->learn( et1, pair( i ).addr(), vlan10 );
   }
   while( macTable->macEntry().size() < 3 && driver.run() ) {
   }
   EXPECT_LT( sm->fdb().size(), 3u );
   settle();
   EXPECT_EQ( sm->fdb().size(), 3u );
   EXPECT_TRUE( sm->macTableUpdateList().empty() );
   for( unsigned i = 1; i <= 3; ++i ) {
      chip->mac()->age( pair( i ) );
   }
   settle();
   EXPECT_TRUE( sm->fdb().size() == 0 && status->fdbStatusHas( vlan10 ) );
   auto const port = ethConfig->ethPhyIntfConfigIs( et1 );
   port->enabledIs( false );
   configure( pair( 1 ), et1 );
   EXPECT_EQ( host( pair( 1 ) ), "-" );
   data->keepStaticMacOnDisabledIntfIs( true );
   configure( pair( 2 ), et1 );
   EXPECT_EQ( host( pair( 2 ) ), "Ethernet1 configuredStaticMac 0" );
}

// Orders in which something was said, lost and taken back before anybody had looked again.
TEST_F( MacAddrSmTest, whatIsOnItsWayIsNotForgotten ) {
   start();
   vnis->vniIs( vlan10, Vxlan::Vni( 10010 ) );
   vxlan->vxlanConfigIs( vx1 );
   requests->agentIs( "cli" );
   HobaTypes::MacAddressTableEntry never;
   never.macEntry = pair( 1 );
   nonAging->enabledIs( true );
   nonAging->macEntriesIs( never );
   learn( pair( 1 ), et1 );
   // It ages again, which is still to be written when the hardware is told to flush.
   nonAging->macEntriesDel( pair( 1 ) );
   data->intfDel( et1 );
   settle();
   EXPECT_EQ( host( pair( 1 ) ) + row( pair( 1 ) ), "--" );
   data->intfIs( et1, true );
   // Pending, and flushed; pending, and its interface goes.
   rmac->tunnelLearnEvent()->eventIs( { { pair( 2 ).addr(), Vxlan::Vni( 10010 ) }, vx1, 7, 0 } );
   EXPECT_TRUE( sm->updateListHas( pair( 2 ) ) );
   requests->agent( "cli" )->requestIs( "1", {} );
   vxlan->vxlanConfig( vx1 )->remoteHostIs( { pair( 3 ), 7 } );
   vxlan->vxlanConfigDel( vx1 );
   settle();
   EXPECT_EQ( host( pair( 2 ) ) + host( pair( 3 ) ), "--" );
   // Refused, and flushed.
   chip->mac()->hostTable()->faultIs( HobaSim::tableBusy, { .next = 1 } );
   rmac->tunnelLearnEvent()->eventIs( { { pair( 6 ).addr(), Vxlan::Vni( 10010 ) }, vx1, 7, 0 } );
   settle();
   EXPECT_TRUE( sm->refusedListHas( pair( 6 ) ) );
   requests->agent( "cli" )->requestIs( "2", {} );
   pass( 3 );
   EXPECT_EQ( host( pair( 6 ) ), "-" );
   // There is no room for it after all: it is where it was, also for whoever looks behind the interface.
   learn( pair( 5 ), et2 );
   vxlan->vxlanConfigIs( vx1 );
   vxlan->vxlanConfig( vx1 )->remoteHostIs( { pair( 5 ), 7 } );
   chip->mac()->maxRemoteMacsIs( 0 );
   settle();
   EXPECT_FALSE( sm->hostsBehind( vx1 ).has( pair( 5 ) ) );
   EXPECT_EQ( sm->withheld( pair( 5 ) ).obstacle, Hoba::macObstacleRemoteLimit );
}

// What the hardware learns behind the overlay is neither programmed nor counted, and moves and ages by itself.
TEST_F( MacAddrSmTest, stationsTheHardwareLearnsBehindTheOverlayAreItsOwn ) {
   start();
   vnis->vniIs( vlan10, Vxlan::Vni( 10010 ) );
   learn( pair( 1 ), vx1 );
   learn( pair( 1 ), Pelt::VxlanIntfId( 2 ) );
   EXPECT_EQ( host( pair( 1 ) ), "Vxlan2 learnedRemoteMac 1" );
   EXPECT_TRUE( rmac->remoteHost()->remoteMacHas( pair( 1 ) ) );
   EXPECT_EQ( rmac->remoteHostStatus()->remoteHostStatus().size(), 0u );
   EXPECT_EQ( sm->verifyHost( *sm->fdb().entry( pair( 1 ) ) ), "" );
   EXPECT_EQ( helper->take(), Strings{} );
   // Written once, it still ages.
   pass( 1 );
   configure( pair( 1 ), et1, Bridging::configuredDynamicMac, driver.now() );
   pass( 1 );
   learn( pair( 1 ), vx1 );
   EXPECT_EQ( row( pair( 1 ) ), "Vxlan1 learnedRemoteMac ages" );
   EXPECT_EQ( rmac->remoteHostStatus()->remoteHostStatus().size(), 1u );
   unconfigure( pair( 1 ) );
   chip->mac()->age( pair( 1 ) );
   settle();
   EXPECT_EQ( host( pair( 1 ) ) + row( pair( 1 ) ), "--" );
   EXPECT_EQ( rmac->vlanRefcountTable()->refcount( vlan10 ), 0u );
}

} // namespace
