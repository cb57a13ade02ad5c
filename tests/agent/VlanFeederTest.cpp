// SPDX-License-Identifier: Apache-2.0
// What the simulation of the whole switch does not get to see of VLANs: many interfaces at a time, TPIDs,
// and a first pass that the chip refuses.

#include "agent/feeders/VlanFeeder.h"
#include "Kiv/ClockDriver.h"
#include "agent/feeders/LagFeeder.h"
#include "agent/feeders/PortFeeder.h"
#include "chips/sim/SimVlan.h"

#include <gtest/gtest.h>

#include <map>

namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using eth = Pelt::EthIntfId;
using Tpids = Hoba::HobaPortVlanTpidData;

class VlanFeederTest : public testing::Test {
 protected:
   VlanFeederTest() {
      Kiv::ClockDriver::ambientIs( driver );
      begin();
   }
   ~VlanFeederTest() override { end(); }

   void begin() {
      data = Kiv::make< Hoba::HobaCommonSmData >( "test" );
      data->vlanHelperIs( Kiv::make< HobaSim::VlanHelper >( unit, data, membership ) );
      ports = Feeders::PortFeeder::PortFeederIs( data, config, dir, chipPorts );
      lags = Feeders::LagFeeder::LagFeederIs( data, config, lagInput, dir );
      vlans = Feeders::VlanFeeder::VlanFeederIs( data, config, lagInput, membership );
      for( auto const & [ port, tpids ] : tpidsAsked ) {
         data->portVlanTpidDataIs( port, tpids );
      }
      ports->initializedIs( true );
      lags->initializedIs( true );
      vlans->initializedIs( true );
   }
   void end() {
      Hoba::letGo( vlans );
      Hoba::letGo( lags );
      Hoba::letGo( ports );
      data->cleanup();
   }
   // All is told and published, and a first pass would make nothing else of it.
   void expectComplete() {
      EXPECT_EQ( data->vlanHelper()->verify(), "" );
      EXPECT_TRUE( vlans->refusedIntf().empty() && vlans->refusedVlan().empty() );
      EXPECT_TRUE( vlans->waiting().empty() && vlans->leaving().empty() );
      auto const held = unit->writes(), swept = unit->swept();
      end();
      begin();
      unit->sweep();
      EXPECT_EQ( unit->writes(), held );
      EXPECT_EQ( unit->swept(), swept );
   }
   void tpidsAre( eth port, std::optional< Tpids > tpids ) {
      if( tpids ) {
         tpidsAsked[ port ] = *tpids;
         data->portVlanTpidDataIs( port, *tpids );
      } else {
         tpidsAsked.erase( port );
         data->portVlanTpidDataDel( port );
      }
   }
   // Nothing is written to the chip, or everything.
   void chipRefuses( bool refuses ) {
      for( auto * table : unit->tables() ) {
         table->control()->faultIs( HobaSim::tableBusy, { refuses ? 1.0 : 0.0, 0 } );
      }
   }

   Kiv::VirtualDriver driver{ 100 };
   std::map< eth, Tpids > tpidsAsked;
   Kiv::Ptr< Feeders::Config > const config = Kiv::make< Feeders::Config >();
   Kiv::Ptr< Lag::Input::Config > const lagInput = Kiv::make< Lag::Input::Config >();
   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const dir =
         Kiv::make< Interface::AllEthPhyIntfStatusDir >();
   Kiv::Ptr< HobaTypes::HobaPortStatusDir > const chipPorts =
         Kiv::make< HobaTypes::HobaPortStatusDir >();
   Kiv::Ptr< Hoba::PortVlanMembership > const membership = Kiv::make< Hoba::PortVlanMembership >();
   Kiv::Ptr< HobaSim::VlanUnit > const unit = Kiv::make< HobaSim::VlanUnit >( "vlan" );
   Kiv::Ptr< Hoba::HobaCommonSmData > data;
   Kiv::Ptr< Feeders::PortFeeder > ports;
   Kiv::Ptr< Feeders::LagFeeder > lags;
   Kiv::Ptr< Feeders::VlanFeeder > vlans;
};

// Many interfaces have their turn in slices, while things go on changing.
TEST_F( VlanFeederTest, inSlices ) {
   for( unsigned number = 1; number != 60; ++number ) {
      config->portIs( eth( number ) );
   }
   auto const other = config->vlanIs( VlanId( 2 ) );
   data->yieldTimeSliceIs( 0 );
   for( unsigned n = 0; n != 40; ++n ) {
      auto const port = eth( n + 1 );
      config->vlanHas( VlanId( 1 ) ) ? config->vlanDel( VlanId( 1 ) )
                                     : void( config->vlanIs( VlanId( 1 ) ) );
      EXPECT_FALSE( vlans->waiting().empty() );
      other->memberIs( port );
      other->activeIs( n % 3 != 2 );
      config->switchIntfIs( port )->switchportModeIs( Bridging::switchportModeTrunk );
      n % 5 ? lagInput->ethPhyIntfLagConfigDel( port ) : config->portDel( eth( n + 2 ) );
      if( n % 2 ) {
         driver.advance( 0 );
      }
   }
   EXPECT_TRUE( driver.runUntilIdle( 10 ) );
   EXPECT_EQ( membership->intf().size(), 51u );
   EXPECT_EQ( data->vlanStatus( VlanId( 2 ) )->intf().size(), 32u );
   expectComplete();
}

TEST_F( VlanFeederTest, tpids ) {
   Tpids const provider{ 0x88a8, 0x8100 }, other{ 0x9100, 0x8100 };
   auto const held = [ this ] { return unit->tpid( eth( 1 ) ).tpid; };
   tpidsAre( eth( 1 ), provider );
   EXPECT_TRUE( unit->tpid().empty() ) << "there is no such port yet";
   config->portIs( eth( 1 ) );
   EXPECT_EQ( held(), 0x88a8 );
   expectComplete();
   chipRefuses( true );
   tpidsAre( eth( 1 ), other );
   EXPECT_TRUE( vlans->refusedIntfHas( eth( 1 ) ) );
   chipRefuses( false );
   driver.advance( Feeders::VlanFeeder::retryDelay );
   EXPECT_EQ( held(), 0x9100 );
   expectComplete();
   chipRefuses( true );
   config->portDel( eth( 1 ) );
   chipRefuses( false );
   driver.advance( Feeders::VlanFeeder::retryDelay );
   EXPECT_TRUE( unit->tpid().empty() );
   expectComplete();
   config->portIs( eth( 1 ) );
   tpidsAre( eth( 1 ), {} );
   EXPECT_TRUE( unit->tpid().empty() );
   expectComplete();
}

// Rows of a former agent that another one may not change at first, and then wants no more: not even a
// restart takes these away.
TEST_F( VlanFeederTest, aFirstPassThatIsRefused ) {
   auto const failures = Kiv::Dispatch::failures;
   config->portIs( eth( 1 ) );
   config->vlanIs( VlanId( 2 ) )->memberIs( eth( 1 ) );
   auto const intf = config->switchIntfIs( eth( 1 ) );
   intf->switchportModeIs( Bridging::switchportModeTrunk );
   intf->nativeVlanIs( VlanIdOrNone() );
   tpidsAre( eth( 1 ), Tpids{ 0x88a8, 0x8100 } );
   expectComplete();
   end();
   intf->nativeVlanIs( VlanIdOrNone( 2 ) );
   tpidsAsked[ eth( 1 ) ] = { 0x9100, 0x8100 };
   chipRefuses( true );
   begin();
   unit->sweep();
   EXPECT_GT( Kiv::Dispatch::failures, failures );
   EXPECT_FALSE( membership->intfHas( eth( 1 ) ) ) << "what is refused is not published";
   config->vlan( VlanId( 2 ) )->memberDel( eth( 1 ) );
   tpidsAre( eth( 1 ), {} );
   chipRefuses( false );
   driver.advance( 2 );
   EXPECT_TRUE( unit->member().empty() && unit->native().empty() && unit->tpid().empty() );
   expectComplete();
}

// Behind many that the chip has no room for, one that it would not let go of has its turn.
TEST_F( VlanFeederTest, whatIsRefusedForLongKeepsNobodyWaiting ) {
   config->vlanIs( VlanId( 2 ) );
   unit->vlanTable()->capacityIs( unit->vlan().size() );
   for( std::uint16_t n = 0; n != 100; ++n ) {
      config->vlanIs( VlanId( 1000 + n ) );
   }
   chipRefuses( true );
   config->vlanDel( VlanId( 2 ) );
   chipRefuses( false );
   for( int n = 0; n != 3; ++n ) {
      driver.advance( Feeders::VlanFeeder::retryDelay );
   }
   EXPECT_FALSE( unit->vlanHas( VlanId( 2 ) ) );
   EXPECT_EQ( vlans->refusedVlan().size(), 99u );
}

} // namespace
