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

TEST_F( SimMacTest, learnsMovesAndAges ) {
   EXPECT_EQ(
         ( Learnings{ learn( et1, 1 ), learn( et1, 1 ), learn( et1, 1, 20 ), learn( et2, 1 ) } ),
         ( Learnings{ learnNew, learnHit, learnNew, learnMove } ) );
   EXPECT_EQ( events(), ( Texts{ "MacAddressLearned fpPort Ethernet1 02:00:00:00:00:01@10",
                                 "MacAddressLearned fpPort Ethernet1 02:00:00:00:00:01@20",
                                 "MacAddressLearned fpPort Ethernet2 02:00:00:00:00:01@10" } ) );
   EXPECT_EQ( mac.host( pair( 1, 10 ) ), et2 );

   // Behind a member of a LAG is behind the LAG.
   context->portToLagIs( et2, po7 );
   auto machine = ChipLagSm::ChipLagSmIs( context, chip->trunk() );
   machine->initializedIs( true );
   machine = nullptr; // the chip knows it without an agent
   EXPECT_EQ( ( Learnings{ learn( et2, 1 ), learn( po7, 1 ) } ),
              ( Learnings{ learnMove, learnHit } ) );
   mac.age( pair( 1, 10 ) );
   EXPECT_EQ( events(),
              ( Texts{ "MacAddressLearned trunkPort Port-Channel7 02:00:00:00:00:01@10",
                       "MacAddressAged trunkPort Port-Channel7 02:00:00:00:00:01@10" } ) );
   EXPECT_THROW( mac.age( pair( 1, 10 ) ), Kiv::ParseError );
   EXPECT_THROW( learn( Pelt::IntfId( "Ethernet1.5" ), 2 ), Kiv::ParseError );
   EXPECT_EQ( events(), Texts{} );
   EXPECT_EQ( ( Counts{ mac.host().size(), mac.count( macLearnt ), mac.count( macMoved ),
                        mac.count( macHits ), mac.count( macAged ) } ),
              ( Counts{ 1, 2, 2, 2, 1 } ) );
}

TEST_F( SimMacTest, refusesWhatIsNoStationAndWhatHasNoRoom ) {
   mac.hostTable()->capacityIs( 1 );
   VlanId const vlan( 10 );
   EXPECT_EQ( ( Learnings{ learn( et1, 1 ), learn( et1, 2 ), learn( et2, 1 ),
                           mac.learn( et1, Pelt::EthAddr::broadcast(), vlan ),
                           mac.learn( et1, Pelt::EthAddr( 0x01005e000001 ), vlan ),
                           mac.learn( et1, Pelt::EthAddr(), vlan ) } ),
              ( Learnings{ learnNew, learnFull, learnMove, learnGroup, learnGroup, learnZero } ) );
   mac.hostTable()->capacityIs( 2 );
   EXPECT_EQ( learn( et1, 2 ), learnNew );
   EXPECT_EQ( events().size(), 3u );
   EXPECT_EQ( ( Counts{ mac.count( macTableFull ), mac.count( macGroupSourceRefused ),
                        mac.count( macZeroSourceRefused ) } ),
              ( Counts{ 1, 2, 1 } ) );
}

TEST_F( SimMacTest, eventsOnCommand ) {
   using Hoba::HobaEvent;
   unit.linkEvent( et1, Interface::linkDown, HobaTypes::faultRemote );
   unit.autonegEvent( et2, Interface::autonegFailed );
   unit.autonegEvent( et2, Interface::autonegSuccess, { 96, true, false } );
   EXPECT_EQ( queue->event( 1 ).linkStatus, Interface::linkDown );
   EXPECT_EQ( queue->event( 1 ).faultType, HobaTypes::faultRemote );
   EXPECT_EQ( queue->event( 3 ).advert.speeds, 96u );
   unit.stationEvent( HobaEvent::eventTypePeerMacAddressLearned, pair( 3, 5 ),
                      Pelt::IntfId( "Vxlan1" ) );
   EXPECT_EQ( events(), ( Texts{ "Port fpPort Ethernet1 00:00:00:00:00:00@0",
                                 "AutonegFailed fpPort Ethernet2 00:00:00:00:00:00@0",
                                 "AutonegSuccess fpPort Ethernet2 00:00:00:00:00:00@0",
                                 "PeerMacAddressLearned vxlanPort Vxlan1 02:00:00:00:00:03@5" } ) );
   EXPECT_THROW( unit.linkEvent( po7, Interface::linkUp ), Kiv::ParseError );
   EXPECT_THROW( unit.autonegEvent( et1, Interface::autonegUnknown ), Kiv::ParseError );
   EXPECT_THROW( unit.stationEvent( HobaEvent::eventTypePort, pair( 3, 5 ), et1 ),
                 Kiv::ParseError );
   EXPECT_THROW( unit.stationEvent( HobaEvent::eventTypeStaticMacAddress, {}, et1 ),
                 Kiv::ParseError );
   EXPECT_EQ( events(), Texts{} );
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
