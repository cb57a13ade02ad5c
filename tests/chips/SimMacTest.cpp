// SPDX-License-Identifier: Apache-2.0

// What the simulated chip reports: stations that it learns from frames, links, parity errors.

#include "Kiv/Exception.h"
#include "chips/SimEventsFixture.h"
#include "chips/sim/SimEventQueueSm.h"
#include "chips/sim/SimLagSm.h"
#include "chips/sim/SimMacHelper.h"
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
   HostRow row;
   row.byChip = row.ages = true;
   row.intf = Pelt::IntfId( "Vlan10" );
   mac.hostIs( pair( 0, 10 ), row );
   row.intf = et1;
   mac.hostIs( { Pelt::EthAddr::broadcast(), VlanId( 10 ) }, row );
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

// Entries of all makers, each step with what the chip reports of it.
class MacHelperTest : public SimMacTest {
 protected:
   using Status = Hoba::MacProgramStatus;
   Status add( unsigned last, Pelt::IntfId intf, Bridging::EntryType type, bool ages = false ) {
      return helper->addHost( { pair( last, 10 ), intf, type, Bridging::dropModeNone, ages } );
   }
   Status addRemote( unsigned last, std::uint32_t nextHop ) {
      HobaHelper::RemoteHost host;
      host.macEntry = pair( last, 10 );
      host.intf = Pelt::IntfId( "Vxlan1" );
      host.entryType = Bridging::evpnDynamicRemoteMac;
      host.nextHopId = nextHop;
      return helper->addRemoteHost( host );
   }
   // The events as "+2 Ethernet1" and "-2 Ethernet1".
   Texts reports() {
      Texts texts;
      for( auto const & member : queue->event() ) {
         auto const & event = member.value;
         bool const isLearn = event.eventType == Hoba::HobaEvent::eventTypeMacAddressLearned;
         texts.push_back( ( isLearn ? "+" : "-" ) +
                          Kiv::toText( event.host.addr().value() & 0xff ) + ' ' +
                          Kiv::toText( event.port ) );
      }
      queue->eventDelAll();
      return texts;
   }
   struct Row {
      char const * what;
      std::function< int() > step;
      int expected;
      Texts reported = {};
   };
   void run( std::vector< Row > const & rows ) {
      for( auto const & row : rows ) {
         SCOPED_TRACE( row.what );
         EXPECT_EQ( row.step(), row.expected );
         EXPECT_EQ( reports(), row.reported );
      }
   }
   Kiv::Ptr< MacHelper > const helper = Kiv::make< MacHelper >( chip->mac(), context );
};

TEST_F( MacHelperTest, learntAndWritten ) {
   using namespace Bridging;
   run( {
         { "learnt", [ & ] { return learn( et1, 1 ); }, learnNew, { "+1 Ethernet1" } },
         { "the same said by software", [ & ] { return add( 1, et1, learnedDynamicMac, true ); },
           Hoba::macProgramSuccess },
         { "stays the chip's", [ & ] { return learn( et2, 1 ); }, learnMove, { "+1 Ethernet2" } },
         { "written over by a bound one",
           [ & ] { return add( 1, et1, configuredStaticMac ); },
           Hoba::macProgramSuccess,
           { "-1 Ethernet2" } },
         { "seen elsewhere", [ & ] { return learn( et2, 1 ); }, learnBound },
         { "now of the peer", [ & ] { return add( 1, et1, peerDynamicMac ); },
           Hoba::macProgramSuccess },
         { "seen elsewhere",
           [ & ] { return learn( et2, 1 ); },
           learnElsewhere,
           { "+1 Ethernet2" } },
         { "again", [ & ] { return learn( et2, 1 ); }, learnElsewhere },
         { "and is back", [ & ] { return learn( et1, 1 ); }, learnElsewhere, { "+1 Ethernet1" } },
         { "and is not", [ & ] { return learn( et2, 1 ); }, learnElsewhere, { "+1 Ethernet2" } },
         { "software believes it", [ & ] { return add( 1, et2, learnedDynamicMac, true ); },
           Hoba::macProgramSuccess },
         { "a hit", [ & ] { return learn( et2, 1 ); }, learnHit },
         { "removed",
           [ & ] { return helper->removeHost( pair( 1, 10 ) ); },
           Hoba::macProgramSuccess,
           { "-1 Ethernet2" } },
         { "not there", [ & ] { return helper->removeHost( pair( 1, 10 ) ); },
           Hoba::macProgramSuccess },
         { "another of the peer's", [ & ] { return add( 2, et1, peerDynamicMac ); },
           Hoba::macProgramSuccess },
         { "seen", [ & ] { return learn( et2, 2 ); }, learnElsewhere, { "+2 Ethernet2" } },
         { "bound",
           [ & ] { return add( 2, et1, peerStaticMac ); },
           Hoba::macProgramSuccess,
           { "-2 Ethernet2" } },
         { "its own removal is no news", [ & ] { return helper->removeHost( pair( 2, 10 ) ); },
           Hoba::macProgramSuccess },
         { "learning off", [ & ] { return helper->enableLearning( et1, false ); }, true },
         { "on the port", [ & ] { return learn( et1, 3 ); }, learnOff },
         { "elsewhere", [ & ] { return learn( et2, 3 ); }, learnNew, { "+3 Ethernet2" } },
         { "off in the VLAN", [ & ] { return helper->enableLearningOnVlan( VlanId( 10 ), false ); },
           true },
         { "a hit all the same", [ & ] { return learn( et2, 3 ); }, learnHit },
         { "no move", [ & ] { return learn( et1, 3 ); }, learnOff },
         { "none new", [ & ] { return learn( et2, 4 ); }, learnOff },
   } );
   EXPECT_EQ( helper->verifyLearning( et1, true ),
              "learning on Ethernet1: on expected, off found" );
   helper->removeLag( et1 );
   helper->handleVlanDelete( VlanId( 10 ) );
   EXPECT_EQ( helper->verifyLearning( et1, true ) +
                    helper->verifyLearningOnVlan( VlanId( 10 ), true ),
              "" );
   // What is reported again is what stands, each station once.
   add( 5, et1, peerDynamicMac );
   add( 6, et2, learnedDynamicMac, true );
   learn( et2, 5 );
   reports();
   chip->reportingIs( true );
   EXPECT_EQ( reports(), ( Texts{ "+3 Ethernet2", "+5 Ethernet2", "+6 Ethernet2" } ) );
}

TEST_F( MacHelperTest, roomAndFaults ) {
   using namespace Bridging;
   auto const table = mac.hostTable();
   mac.maxRemoteMacsIs( 1 );
   run( {
         { "remote", [ & ] { return addRemote( 1, 5 ); }, Hoba::macProgramSuccess },
         { "again", [ & ] { return addRemote( 1, 6 ); }, Hoba::macProgramSuccess },
         { "too many", [ & ] { return addRemote( 2, 5 ); }, Hoba::macProgramFull },
         { "room for two",
           [ & ] {
              table->capacityIs( 2 );
              return learn( et1, 3 );
           },
           learnNew,
           { "+3 Ethernet1" } },
         { "full for frames", [ & ] { return learn( et1, 4 ); }, learnFull },
         { "and for software", [ & ] { return add( 4, et1, peerDynamicMac ); },
           Hoba::macProgramFull },
         { "but not in place",
           [ & ] { return add( 3, et1, peerDynamicMac ); },
           Hoba::macProgramSuccess,
           { "-3 Ethernet1" } },
         { "busy",
           [ & ] {
              table->faultIs( tableBusy, { .next = 1 } );
              return addRemote( 1, 7 );
           },
           Hoba::macProgramBusy },
         { "wrong",
           [ & ] {
              table->faultIs( tableParity, { .next = 1 } );
              return addRemote( 1, 7 );
           },
           Hoba::macProgramParityError },
   } );
   EXPECT_EQ( helper->numRemoteHost(), 1u );
   HobaHelper::RemoteHost wanted;
   wanted.macEntry = pair( 1, 10 );
   EXPECT_EQ(
         helper->verifyRemoteHost( wanted ),
         "02:00:00:00:00:01@10: nothing expected, behind Vxlan1, evpnDynamicRemoteMac, next hop 7 "
         "found" );
   // The row is the one that its parity error names.
   auto const error = parity.error().begin()->key.key();
   EXPECT_EQ( helper->handleParityEvent( { "slice0", "mac.seen", error.index } ), Stations{} );
   EXPECT_EQ( helper->handleParityEvent( error ), Stations{ pair( 1, 10 ) } );
   EXPECT_EQ( helper->verifyRemoteHost( wanted ) + helper->verifyNumRemoteHost( 0 ), "" );
   EXPECT_EQ( addRemote( 1, 7 ), Hoba::macProgramSuccess );
   // What is learnt before a write has landed is written over, and gone.
   table->latencyIs( 1 );
   helper->removeHost( pair( 3, 10 ) );
   driver.advance( 1 );
   EXPECT_EQ( add( 3, et2, peerStaticMac ), Hoba::macProgramInProgress );
   EXPECT_EQ( learn( et1, 3 ), learnNew );
   EXPECT_EQ( helper->handleVerify( { pair( 3, 10 ), et2 } ), "" ) << "not yet";
   driver.advance( 1 );
   EXPECT_EQ( reports(), ( Texts{ "+3 Ethernet1", "-3 Ethernet1" } ) );
   // Hitless: what software wrote is to be asked for again; what the chip learnt, or got back as learnt, is not.
   table->latencyIs( 0 );
   table->capacityIs( 0 );
   learn( et1, 8 );
   add( 9, et1, learnedDynamicMac, true );
   reports();
   helper->hwInit();
   addRemote( 1, 7 );
   learn( et1, 9 );
   chip->sweep();
   EXPECT_EQ( reports(), Texts{} );
   EXPECT_EQ( helper->showL2TableAll(),
              "02:00:00:00:00:01@10 behind Vxlan1, evpnDynamicRemoteMac, next hop 7\n"
              "02:00:00:00:00:08@10 behind Ethernet1, learnedDynamicMac, ages, learnt by the chip\n"
              "02:00:00:00:00:09@10 behind Ethernet1, learnedDynamicMac, ages\n" );
}

// A table that is written by commands, each of which is executed after 0.1 s.
TEST_F( MacHelperTest, throughThePipeline ) {
   auto const wheel = Kiv::make< Mox::TimerWheel >();
   mac.writtenIndirectlyIs( true );
   mac.hostTable()->latencyIs( 0.1 );
   auto programmer = MacProgrammer::MacProgrammerIs( wheel, chip->mac() );
   auto const through = Kiv::make< MacHelper >( chip->mac(), context, programmer );
   programmer->handleInitialized();
   auto const write = [ & ]( unsigned last, Pelt::IntfId intf, bool ages = true ) {
      through->addHost( { pair( last, 10 ), intf, Bridging::configuredDynamicMac,
                          Bridging::dropModeNone, ages } );
   };
   auto const at = [ & ]( unsigned last ) {
      auto const row = mac.entry( pair( last, 10 ) );
      return row ? Kiv::toText( row->intf ) : Kiv::String( "-" );
   };
   auto accepted = [ &, before = std::uint64_t( 0 ) ]() mutable {
      return programmer->accepted() - std::exchange( before, programmer->accepted() );
   };
   write( 1, et1 );
   write( 2, et1, false );
   EXPECT_EQ( at( 1 ), "-" );
   driver.advance( 1 );
   EXPECT_EQ( at( 1 ) + at( 2 ), "Ethernet1Ethernet1" );
   EXPECT_EQ( accepted(), 2u );
   // What is there, and of which nothing is on its way, is not written.
   write( 1, et1 );
   through->removeHost( pair( 9, 10 ) );
   EXPECT_EQ( accepted(), 0u );
   // A flush is: what is written after it stays, and what the chip was busy with before it does not come back.
   mac.hostTable()->faultIs( tableBusy, { 0, 1 } );
   write( 3, et2 );
   driver.advance( 0.05 );
   through->flushAll();
   write( 1, et1 );
   EXPECT_EQ( accepted(), 4u ) << "with the removal";
   driver.advance( 2 );
   EXPECT_EQ( at( 1 ) + at( 2 ) + at( 3 ), "Ethernet1Ethernet1-" );
   programmer->suspendPendingIs( true );
   write( 6, et2 );
   through->flushVlan( VlanId( 10 ) );
   write( 1, et1 );
   EXPECT_EQ( accepted(), 3u ) << "it is written before";
   mac.hostTable()->faultIs( tableBusy, { 0, 1 } );
   programmer->suspendPendingIs( false );
   driver.advance( 2 );
   EXPECT_EQ( at( 1 ) + at( 6 ), "Ethernet1-" ) << "it was busy, and is tried again behind";
   // The sweep spares what is on its way.
   chip->beginPass();
   write( 2, et2, false );
   chip->sweep();
   EXPECT_EQ( at( 1 ) + at( 2 ), "-Ethernet1" );
   driver.advance( 1 );
   EXPECT_EQ( at( 2 ), "Ethernet2" );
   // A flush that was done, and is never answered, hides no mismatch.
   mac.silenceIs( { 0, 1 } );
   through->flushVlanPort( {}, et2 );
   driver.advance( 2 );
   EXPECT_TRUE( programmer->hasFlush() );
   EXPECT_NE( through->handleVerify( { pair( 6, 10 ), et2, Bridging::configuredDynamicMac,
                                       Bridging::dropModeNone, true } ),
              "" );
   // A driver that ends has its flush done, but not that. What it wrote and was not executed is lost to the next one.
   write( 4, et1 );
   write( 6, et2 );
   driver.advance( 1 );
   auto const last = programmer->lastTransactionId();
   through->flushVlanPort( {}, et1 );
   write( 2, et1, false );
   driver.run();
   Hoba::letGo( programmer );
   EXPECT_EQ( at( 4 ) + at( 6 ), "-Ethernet2" );
   programmer = MacProgrammer::MacProgrammerIs( wheel, chip->mac() );
   EXPECT_GT( programmer->lastTransactionId(), last + 1 );
   driver.advance( 1 );
   EXPECT_EQ( at( 2 ), "Ethernet2" );
   EXPECT_EQ( programmer->unknownAnswers(), 0u );
   // As learnt it is written when those who hear of reports had time for that.
   mac.intfLearningMustClear( et1 );
   learn( et1, 5 );
   programmer->handleInitialized();
   programmer->write( pair( 5, 10 ), [ & ] {
      HostRow row;
      row.intf = et2;
      row.entryType = Bridging::learnedDynamicMac;
      return row;
   }() );
   driver.advance( 0.15 );
   EXPECT_EQ( at( 5 ), "Ethernet1" );
   driver.advance( 1 );
   EXPECT_EQ( at( 5 ), "Ethernet2" );
}

TEST_F( MacHelperTest, agesByTheClock ) {
   using namespace Bridging;
   learn( et1, 1 );
   driver.advance( 5 );
   helper->configureAgingTime( 20 ); // sweeps at 115, 125, 135 ...
   learn( et1, 2 );
   add( 3, et1, peerDynamicMac, true );
   add( 4, et1, peerDynamicMac );
   learn( et2, 4 );
   add( 5, et1, configuredStaticMac );
   reports();
   driver.advance( 11 ); // 116
   EXPECT_EQ( reports(), Texts{} );
   learn( et1, 2 );
   driver.advance( 8 ); // 124
   helper->configureAgingTime( 20 );
   EXPECT_EQ( reports(), Texts{} );
   driver.advance( 1 ); // 125
   EXPECT_EQ( reports(), ( Texts{ "-1 Ethernet1", "-3 Ethernet1", "-4 Ethernet2" } ) );
   driver.timeIs( 158 ); // late: one sweep for all that were missed
   driver.run();
   driver.run();
   EXPECT_EQ( reports(), Texts{ "-2 Ethernet1" } );
   learn( et1, 6 );
   driver.advance( 12 ); // 165
   EXPECT_EQ( reports(), Texts{ "+6 Ethernet1" } );
   helper->configureAgingTime( 0 );
   driver.advance( 1000 );
   EXPECT_EQ( reports(), Texts{} );
   EXPECT_EQ( mac.host().size(), 3u );
   EXPECT_THROW( mac.age( pair( 5, 10 ) ), Kiv::ParseError ) << "it does not age";
}

// Each row: what is flushed, and who of 1 and 2 behind Ethernet1, in VLAN 10 and 20, of 3 behind Ethernet2 in
// VLAN 10, and of 4, seen there, goes.
TEST_F( MacHelperTest, flushes ) {
   using namespace Bridging;
   VlanIdOrNone const none, ten( 10 );
   std::pair< std::function< void() >, Texts > const rows[] = {
         { [ & ] { helper->flushAll(); },
           { "-1 Ethernet1", "-2 Ethernet1", "-3 Ethernet2", "-4 Ethernet2" } },
         { [ & ] { helper->flushVlan( VlanId( 10 ) ); },
           { "-1 Ethernet1", "-3 Ethernet2", "-4 Ethernet2" } },
         { [ & ] { helper->flushVlanPort( none, et1 ); }, { "-1 Ethernet1", "-2 Ethernet1" } },
         { [ & ] { helper->flushVlanPort( ten, et1 ); }, { "-1 Ethernet1" } },
         { [ & ] { helper->flushVlanLag( none, et2 ); }, { "-3 Ethernet2", "-4 Ethernet2" } },
         { [ & ] { helper->flushVlanLag( none, po7 ); }, {} },
   };
   add( 4, et1, peerDynamicMac );
   add( 5, et1, configuredStaticMac );
   for( auto const & [ flush, gone ] : rows ) {
      learn( et1, 1 );
      learn( et1, 2, 20 );
      learn( et2, 3 );
      learn( et2, 4 );
      reports();
      flush();
      EXPECT_EQ( bool( mac.entry( pair( 1, 10 ) ) ),
                 std::find( gone.begin(), gone.end(), "-1 Ethernet1" ) == gone.end() );
      driver.run();
      EXPECT_EQ( reports(), gone );
      EXPECT_TRUE( mac.flush().empty() );
   }
   // In turns: what comes meanwhile stays, and is reported behind what went.
   for( unsigned last = 0; last != 3 * MacUnit::slice; ++last ) {
      mac.learn( et1, Pelt::EthAddr( 0x020000010000 + last ), VlanId( 10 ) );
   }
   learn( et1, 1 );
   reports();
   helper->flushVlan( VlanId( 10 ) );
   driver.run();
   EXPECT_EQ( reports().size(), MacUnit::slice );
   EXPECT_EQ( mac.learn( et1, Pelt::EthAddr( 0x020000010000 ), VlanId( 10 ) ), learnNew );
   EXPECT_EQ( learn( et2, 1 ), learnNew );
   EXPECT_EQ( add( 1, et2, peerDynamicMac, true ), Hoba::macProgramSuccess );
   driver.advance( 0 );
   EXPECT_EQ( mac.entry( pair( 1, 10 ) )->entryType, peerDynamicMac );
   EXPECT_EQ( mac.count( macFlushed ), 12u + 3 * MacUnit::slice + 3 );
   EXPECT_TRUE( mac.entry( { Pelt::EthAddr( 0x020000010000 ), VlanId( 10 ) } ) );
   EXPECT_EQ( mac.flush().size() + mac.host().size(), 5u );
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
