// SPDX-License-Identifier: Apache-2.0

// What the simulated chip reports: stations that it learns from frames, links, parity errors.

#include "Kiv/Exception.h"
#include "chips/SimEventsFixture.h"
#include "chips/sim/SimEventQueueSm.h"
#include "chips/sim/SimLagSm.h"
#include "chips/sim/SimParityHelperSm.h"

namespace {

using namespace HobaSim;
using Bridging::VlanId;
using Texts = std::vector< Kiv::String >;
using Counts = std::vector< std::uint64_t >;

using Learnings = std::vector< Learning >;

class SimMacTest : public SimEventsFixture {
 protected:
   static Bridging::MacVlanPair pair( unsigned last, unsigned vlan ) {
      return { Pelt::EthAddr( 0x020000000000 + last ), VlanId( vlan ) };
   }
   Learning learn( Pelt::IntfId port, unsigned last, unsigned vlan = 10 ) {
      return mac.learn( port, Pelt::EthAddr( 0x020000000000 + last ), VlanId( vlan ) );
   }
   EventUnit & unit = *chip->events();
   ParityUnit & parity = *chip->parity();
   Pelt::IntfId const po7{ "Port-Channel7" };
};

// What it does with what it is given, the simulation of the whole switch sees.
TEST_F( SimMacTest, refusesWhatCannotBe ) {
   using Hoba::HobaEvent;
   context->portToLagIs( et2, po7 );
   auto machine = ChipLagSm::ChipLagSmIs( context, chip->trunk() );
   machine->initializedIs( true );
   machine = nullptr; // the chip knows of the LAG without an agent
   EXPECT_EQ( ( Learnings{ learn( et2, 1 ), learn( po7, 1 ), learn( et1, 1 ) } ),
              ( Learnings{ learnNew, learnHit, learnMove } ) );
   unit.stationEvent( HobaEvent::eventTypePeerMacAddressLearned, pair( 3, 5 ),
                      Pelt::IntfId( "Vxlan1" ) );
   EXPECT_EQ( events(), ( Texts{ "MacAddressLearned trunkPort Port-Channel7 02:00:00:00:00:01@10",
                                 "MacAddressLearned fpPort Ethernet1 02:00:00:00:00:01@10",
                                 "PeerMacAddressLearned vxlanPort Vxlan1 02:00:00:00:00:03@5" } ) );
   EXPECT_THROW( mac.age( pair( 2, 10 ) ), Kiv::ParseError );
   EXPECT_THROW( learn( Pelt::IntfId( "Ethernet1.5" ), 2 ), Kiv::ParseError );
   EXPECT_THROW( unit.linkEvent( po7, Interface::linkUp ), Kiv::ParseError );
   EXPECT_THROW( unit.autonegEvent( et1, Interface::autonegUnknown ), Kiv::ParseError );
   EXPECT_THROW( unit.stationEvent( HobaEvent::eventTypePort, pair( 3, 5 ), et1 ),
                 Kiv::ParseError );
   EXPECT_THROW( unit.stationEvent( HobaEvent::eventTypeStaticMacAddress, {}, et1 ),
                 Kiv::ParseError );
   EXPECT_EQ( events(), Texts{} );
   EXPECT_EQ( mac.count( macLearnt ) + mac.count( macMoved ) + mac.count( macHits ), 3u );
}

// A chip keeps to itself what it finds while it must not report; asked to, it begins with all of that.
TEST_F( SimMacTest, reportsWhatItHoldsOnceItMay ) {
   chip->reportingIs( false );
   learn( et1, 1 );
   learn( et1, 2 );
   learn( et2, 1 );
   learn( et2, 3 );
   mac.age( pair( 3, 10 ) );
   // What somebody wrote there, and no chip learns, keeps nothing else from being told.
   mac.hostIs( pair( 0, 10 ), Pelt::IntfId( "Vlan10" ) );
   mac.hostIs( { Pelt::EthAddr::broadcast(), VlanId( 10 ) }, et1 );
   unit.linkEvent( et1, Interface::linkUp );
   unit.linkEvent( et1, Interface::linkDown, HobaTypes::faultLocal );
   unit.autonegEvent( et2, Interface::autonegFailed );
   auto const machine = ChipEventQueueSm::ChipEventQueueSmIs( context, queue, nullptr, chip );
   machine->initializedIs( true );
   EXPECT_EQ( events(), Texts{} );
   for( unsigned times = 0; times != 2; ++times ) { // also after a restart
      machine->runningIs( true );
      EXPECT_EQ( queue->event().first()->value.faultType, HobaTypes::faultLocal );
      EXPECT_EQ( events(), ( Texts{ "Port fpPort Ethernet1 00:00:00:00:00:00@0",
                                    "AutonegFailed fpPort Ethernet2 00:00:00:00:00:00@0",
                                    "MacAddressLearned fpPort Ethernet2 02:00:00:00:00:01@10",
                                    "MacAddressLearned fpPort Ethernet1 02:00:00:00:00:02@10" } ) );
      EXPECT_EQ( learn( et1, 2 ), learnHit );
      machine->runningIs( false );
   }
   learn( et1, 4 );
   EXPECT_EQ( events(), Texts{} );

   // Errors of memories, too.
   parity.raise( "slice0", "L2", 5 );
   auto const helper = ChipParityHelperSm::ChipParityHelperSmIs( context, chip->parity() );
   driver.advance( 100 );
   EXPECT_EQ( parity.status( "slice0" )->parityEvent().size(), 1u );
   helper->hwInit();
   driver.advance( parity.correctionTime() );
   EXPECT_EQ( parity.status( "slice0" )->parityEvent().size(), 0u );
   EXPECT_EQ( parity.count( parityCountCorrected ), 1u );
}

TEST_F( SimMacTest, parityErrors ) {
   auto const before = Hoba::parityEventsWithoutMachine();
   parity.raise( "slice0", "L2:entry", 5 );
   driver.timeIs( 107 );
   parity.raise( "slice0", "L2:entry", 5, Hoba::parityNeedsReset );
   parity.raise( "slice0", "L2:entry", 6, Hoba::parityFatal );
   parity.raise( "slice1", "L2:entry", 5 );
   Hoba::ParityEvent::Key const key{ "slice0", "L2:entry", 5 };
   EXPECT_EQ( parity.status( "slice0" )->parityEvent( key ), ( Hoba::ParityEvent{ key, 107, 2 } ) );
   EXPECT_EQ( Hoba::parityEventsWithoutMachine() - before, 4u );
   EXPECT_THROW( parity.raise( "other", "L2", 1, Hoba::parityFatal ), Kiv::ParseError );
   parity.sliceNameIs( "a:b" );
   parity.sliceNameIs( "other" );
   EXPECT_THROW( parity.raise( "a:b", "L2", 1 ), Kiv::ParseError );
   EXPECT_THROW( parity.raise( "slice0", "", 1 ), Kiv::ParseError );
   EXPECT_THROW( parity.raise( "slice0", Kiv::String( 32, 'x' ), 1 ), Kiv::ParseError );
   parity.slices()->entryIs( "other", Kiv::make< Kiv::Dir >( "other" ) );
   EXPECT_THROW( parity.raise( "other", "L2", 1 ), Kiv::ParseError );
   EXPECT_EQ( Hoba::parityEventsWithoutMachine() - before, 4u );

   EXPECT_TRUE( parity.corrected( key ) );
   EXPECT_FALSE( parity.corrected( key ) );
   EXPECT_EQ( parity.reset( "slice0" ), 1u );
   EXPECT_EQ( parity.reset( "slice2" ), 0u );
   EXPECT_EQ( parity.status( "slice1" )->parityEvent().size(), 1u );
   EXPECT_EQ( ( Counts{ parity.count( parityCountCorrectable ),
                        parity.count( parityCountNeedsReset ), parity.count( parityCountFatal ) } ),
              ( Counts{ 2, 1, 1 } ) );
}

} // namespace
