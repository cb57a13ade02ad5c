// SPDX-License-Identifier: Apache-2.0
#pragma once

// The MAC address table on the simulated chip, with everything that says where stations are.

#include "Hoba/HobaMacAddrSm.h"
#include "HobaTest.h"
#include "chips/sim/SimEventQueueSm.h"
#include "chips/sim/SimMacHelper.h"

namespace HobaTest {

// The operations that were called, in short, beside what the chip does.
class RecordingMacHelper : public HobaSim::MacHelper {
 public:
   using MacHelper::MacHelper;
   Strings take() { return std::exchange( calls, {} ); }

   Hoba::MacProgramStatus doAddHost( HobaHelper::Host const & host ) override {
      calls.push_back( "add " + Kiv::toText( host.macEntry ) + ' ' + Kiv::toText( host.intf ) +
                       ' ' + Kiv::toText( host.entryType ) + ( host.ages ? " ages" : "" ) );
      happens( before );
      return MacHelper::doAddHost( host );
   }
   Hoba::MacProgramStatus addRemoteHost( HobaHelper::RemoteHost const & host ) override {
      calls.push_back( "remote " + Kiv::toText( host.macEntry ) + ' ' +
                       Kiv::toText( host.nextHopId ) + ' ' + Kiv::toText( host.hwId ) );
      return MacHelper::addRemoteHost( host );
   }
   Hoba::MacProgramStatus removeHost( Bridging::MacVlanPair host ) override {
      calls.push_back( "remove " + Kiv::toText( host ) );
      return MacHelper::removeHost( host );
   }
   void flushAll() override {
      happens( before );
      MacHelper::flushAll();
   }

   Strings calls;
   std::function< void() > before;
};

class MacFixture : public ContextFixture {
 protected:
   using Pair = Bridging::MacVlanPair;

   MacFixture() {
      for( unsigned port = 1; port <= 4; ++port ) {
         data->intfIs( Pelt::EthIntfId( port ), true );
      }
      in.macTable = macTable;
      in.bridgingConfig = config;
      in.switchIntfConfigDir = switchIntfs;
      in.vlanConfigDir = vlans;
      in.ethPhyIntfConfigDir = ethConfig;
      in.ethPhyIntfStatusDir = ethStatus;
      in.portVlanMembership = membership;
      in.mlagStatus = mlag;
      in.mlagHostTable = peerHosts;
      in.l2RibHostOutput = ribHosts;
      in.l2RibDestOutput = ribDests;
      in.l2RibLoadBalanceOutput = ribBalances;
      in.objTupleToHwId = hwIds;
      in.swTunnelGroupIdMap = groups;
      in.evpnMacTable = evpn;
      in.vxlanConfigDir = vxlan;
      in.vlanVniMap = vnis;
      in.routerMacTable = routerMacs;
      in.dot1xStatus = dot1x;
      in.dot1xHostTable = dot1xHosts;
      in.nonAgingStatus = nonAging;
      in.fsfStatus = failed;
      in.flushRequestDir = requests;
      in.bridgingStatus = status;
      in.dynamicHostStatus = dynamicHosts;
      in.flushReplyDir = replies;
      in.rmacInfoDir = rmac;
      config->fdbConfigIs( vlan10 );
      rmac->remoteHost()->remoteMacControl().attachWriter( "remote", { .privateMemory = true } );
      evpn->remoteMacControl().attachWriter( "evpn", { .privateMemory = true } );
   }
   ~MacFixture() override { stop(); }

   void start() {
      events = HobaSim::ChipEventQueueSm::ChipEventQueueSmIs(
            data, queue, Kiv::make< HobaTypes::HobaPortStatusDir >(), chip );
      events->macTableIs( macTable );
      events->runningIs( true );
      events->initializedIs( true );
      settle();
      for( auto const & station : Kiv::keysOf( macTable->macEntry() ) ) {
         if( !chip->mac()->isLearnt( station ) ) {
            macTable->macEntryDel( station );
         }
      }
      sm = Hoba::MacAddrSm::MacAddrSmIs( data, helper, in );
      sm->initializedIs( true );
      settle();
   }
   void stop() {
      if( events ) {
         events->cleanup();
      }
      Hoba::letGo( sm );
      Hoba::letGo( events );
   }
   // What is due now is done; time does not pass.
   void settle() {
      while( driver.run() ) {
      }
   }
   void pass( Kiv::Seconds seconds ) { driver.advance( seconds ); }

   static Pair pair( unsigned last, unsigned vlan = 10 ) {
      return { Pelt::EthAddr( 0x020000000000 + last ), Bridging::VlanId( vlan ) };
   }
   void learn( Pair host, Pelt::IntfId port ) {
      chip->mac()->learn( port, host.addr(), Bridging::VlanId( host.vlanId().value() ) );
      settle();
   }
   // "Ethernet1 learnedDynamicMac 0", and what of it is not done; "-" for a station that there is not.
   std::string host( Pair host ) const {
      auto const * found = sm->fdb().find( host );
      auto text = found ? Kiv::toText( found->intf ) + ' ' + Kiv::toText( found->entryType ) + ' ' +
                                Kiv::toText( found->moves )
                        : std::string( "-" );
      return text + ( sm->updateListHas( host ) || sm->refusedListHas( host ) ? " pending" : "" );
   }
   // What the chip has: "Ethernet1 learnedDynamicMac ages".
   std::string row( Pair host ) const {
      auto const found = chip->mac()->entry( host );
      return found ? Kiv::toText( found->intf ) + ' ' + Kiv::toText( found->entryType ) +
                           ( found->ages ? " ages" : "" )
                   : std::string( "-" );
   }
   std::string reason( Pair host ) const {
      return std::string( Hoba::macReasonText( sm->explain( host ).verdict.reason ) );
   }
   void configure( Pair host, Pelt::IntfId intf,
                   Bridging::EntryType type = Bridging::configuredStaticMac,
                   Kiv::Seconds since = 0 ) {
      Bridging::ConfiguredHost configured;
      configured.address = host.addr();
      configured.intf = intf;
      configured.entryType = type;
      configured.since = since;
      config->fdbConfig( Bridging::VlanId( host.vlanId().value() ) )
            ->configuredHostIs( configured );
      settle();
   }
   void unconfigure( Pair host ) {
      config->fdbConfig( Bridging::VlanId( host.vlanId().value() ) )
            ->configuredHostDel( host.addr() );
      settle();
   }

   Bridging::VlanId const vlan10{ 10 };
   Pelt::IntfId const et1{ "Ethernet1" }, et2{ "Ethernet2" }, po1{ "Port-Channel1" };
   Pelt::VxlanIntfId const vx1{ 1 };
   Kiv::Ptr< HobaSim::Chip > chip = Kiv::make< HobaSim::Chip >();
   Kiv::Ptr< RecordingMacHelper > helper = Kiv::make< RecordingMacHelper >( chip->mac(), data );
   Kiv::Ptr< Hoba::HobaEventQueue > queue = Hoba::HobaEventQueue::HobaEventQueueIs( "events" );
   Kiv::Ptr< Hoba::EventQueueSm > events;
   Kiv::Ptr< Hoba::MacAddrSm > sm;
   Hoba::MacAddrInputs in;
   Kiv::Ptr< HobaTypes::MacTable > macTable = Kiv::make< HobaTypes::MacTable >();
   Kiv::Ptr< Bridging::Config > config = Kiv::make< Bridging::Config >();
   Kiv::Ptr< Bridging::SwitchIntfConfigDir > switchIntfs =
         Kiv::make< Bridging::SwitchIntfConfigDir >();
   Kiv::Ptr< Bridging::VlanConfigDir > vlans = Kiv::make< Bridging::VlanConfigDir >();
   Kiv::Ptr< Interface::EthPhyIntfConfigDir > ethConfig =
         Kiv::make< Interface::EthPhyIntfConfigDir >();
   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > ethStatus =
         Kiv::make< Interface::AllEthPhyIntfStatusDir >( "status" );
   Kiv::Ptr< Hoba::PortVlanMembership > membership = Kiv::make< Hoba::PortVlanMembership >();
   Kiv::Ptr< Mlag::Status > mlag = Kiv::make< Mlag::Status >();
   Kiv::Ptr< Mlag::HostTable > peerHosts = Kiv::make< Mlag::HostTable >();
   Kiv::Ptr< L2Rib::HostOutput > ribHosts = Kiv::make< L2Rib::HostOutput >();
   Kiv::Ptr< L2Rib::DestOutput > ribDests = Kiv::make< L2Rib::DestOutput >();
   Kiv::Ptr< L2Rib::LoadBalanceOutput > ribBalances = Kiv::make< L2Rib::LoadBalanceOutput >();
   Kiv::Ptr< Hoba::ObjTupleToHwId > hwIds = Kiv::make< Hoba::ObjTupleToHwId >();
   Kiv::Ptr< Hoba::SwTunnelGroupIdMap > groups = Kiv::make< Hoba::SwTunnelGroupIdMap >();
   Kiv::Ptr< HobaTypes::RemoteMacTable > evpn = Kiv::make< HobaTypes::RemoteMacTable >();
   Kiv::Ptr< Vxlan::VxlanConfigDir > vxlan = Kiv::make< Vxlan::VxlanConfigDir >();
   Kiv::Ptr< Vxlan::VlanVniMap > vnis = Kiv::make< Vxlan::VlanVniMap >();
   Kiv::Ptr< HobaTypes::RouterMacTable > routerMacs = Kiv::make< HobaTypes::RouterMacTable >();
   Kiv::Ptr< Dot1x::Status > dot1x = Kiv::make< Dot1x::Status >();
   Kiv::Ptr< Dot1x::HostTable > dot1xHosts = Kiv::make< Dot1x::HostTable >();
   Kiv::Ptr< Hoba::NonAgingStatus > nonAging = Kiv::make< Hoba::NonAgingStatus >();
   Kiv::Ptr< FastServerFailover::Status > failed = Kiv::make< FastServerFailover::Status >();
   Kiv::Ptr< Bridging::AllHostTableFlushRequestDir > requests =
         Kiv::make< Bridging::AllHostTableFlushRequestDir >();
   Kiv::Ptr< Bridging::Status > status = Kiv::make< Bridging::Status >();
   Kiv::Ptr< Bridging::DynamicHostStatus > dynamicHosts =
         Kiv::make< Bridging::DynamicHostStatus >();
   Kiv::Ptr< Bridging::AllHostTableFlushReplyDir > replies =
         Kiv::make< Bridging::AllHostTableFlushReplyDir >();
   Kiv::Ptr< HobaTypes::RemoteMacInfoDir > rmac = Kiv::make< HobaTypes::RemoteMacInfoDir >();
};

} // namespace HobaTest
