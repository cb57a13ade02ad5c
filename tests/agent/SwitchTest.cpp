// SPDX-License-Identifier: Apache-2.0
// The machines of the switch as others see them: in the state database, and when they have ended.

#include "agent/features/Switch.h"
#include "Hoba/HobaCliCallback.h"
#include "Kiv/ClockDriver.h"
#include "Kiv/Datum.h"

#include <gtest/gtest.h>

namespace {

using Kiv::String;

class SwitchTest : public testing::Test {
 protected:
   SwitchTest() {
      Kiv::ClockDriver::ambientIs( driver );
      sw = std::make_unique< HobaAgent::Switch >();
      sw->mount( database );
      sw->feederConfig->portIs( Pelt::EthIntfId( 1 ) )->speedIs( Interface::EthMbps( 10000 ) );
      sw->feederConfig->lagIs( Pelt::PortChannelIntfId( 1 ) );
      sw->lagInputConfig->ethPhyIntfLagConfigIs( port, Pelt::PortChannelIntfId( 1 ) );
      clientIs( "dot1x" );
      sw->start( database );
      driver.run();
   }

   void clientIs( String const & name ) {
      auto const client = sw->feederConfig->nonAgingClientIs( name );
      client->enableIs( true );
      client->macEntriesIs( { Bridging::MacVlanPair::parse( "00:00:5e:00:53:01@10" ), port } );
   }
   String at( String const & path ) { return Kiv::datumText( database.get( path ) ); }

   Pelt::IntfId const port{ "Ethernet1" };
   Kiv::VirtualDriver driver{ 100 };
   Tessera::Database database;
   std::unique_ptr< HobaAgent::Switch > sw;
};

TEST_F( SwitchTest, machinesAreShownAndNeitherWrittenNorSaved ) {
   sw->chip->parity()->correctionTimeIs( 5 );
   sw->chip->parity()->raise( "slice0", "L2_TABLE", 17 );
   driver.run();
   struct Row {
      char const * path;
      char const * text;
   };
   for( auto const & [ path, text ] :
        { Row{ "events/running", "true" }, Row{ "verify/initialized", "true" },
          Row{ "lagFeeder/configuredLag/Ethernet1", "Port-Channel1" },
          Row{ "nonAging/configSm/dot1x/held", "[\"00:00:5e:00:53:01@10\"]" },
          Row{ "parity/paritySliceSm/slice0/held", "[\"slice0:L2_TABLE:17\"]" },
          Row{ "parityHelper/due", "{\"slice0:L2_TABLE:17\": 105}" } } ) {
      EXPECT_EQ( at( String( "/hoba/machines/" ) + path ), text ) << path;
   }
   EXPECT_THROW( database.set( "/hoba/machines/events/enabled", false ), Tessera::Error );
   EXPECT_THROW( database.del( "/hoba/machines/nonAging/configSm/dot1x" ), Tessera::Error );
   auto const saved = database.get( "/", Tessera::Scope::configuration );
   EXPECT_EQ( Kiv::datumText( saved ).find( "machines" ), String::npos );
   database.apply( saved );
   sw->unmount( database );
   EXPECT_TRUE( database.mounts().empty() );
}

TEST_F( SwitchTest, aMachineThatEndedDoesNothingWhoeverHoldsIt ) {
   // The database goes on holding all of it.
   auto const feederConfig = sw->feederConfig;
   auto const stormControlConfig = sw->stormControlConfig;
   auto const context = sw->context;
   auto const chip = sw->chip;
   auto const queue = sw->eventQueue;
   auto const parityQueue = sw->parityEventQueue;
   auto const verifyConfig = sw->verifyConfig;
   auto const verifyData = context->verifyData();
   auto const events = Kiv::Ptr( &sw->eventSm() );
   unsigned heard = 0;
   database.watch( "/hoba/machines", [ & ]( auto const &, auto const & ) { ++heard; } );
   clientIs( "dhcp" );
   EXPECT_GT( heard, 0u );

   sw.reset();
   heard = 0;
   auto const before = at( "/hoba/machines" ) + at( "/hoba/nonAging" ) + at( "/hoba/common" ) +
                       at( "/bridging/stormControl/status" ) + at( "/interface/status" ) +
                       at( "/verify/status" );
   feederConfig->portIs( Pelt::EthIntfId( 2 ) );
   feederConfig->port( Pelt::EthIntfId( 1 ) )->linkUpIs( false );
   feederConfig->lagDel( Pelt::PortChannelIntfId( 1 ) );
   feederConfig->nonAgingClientDel( "dot1x" );
   stormControlConfig->intfConfigIs( port );
   queue->eventIs( queue->nextIndexInc( 1 ), {} );
   parityQueue->eventIs( parityQueue->nextIndexInc( 1 ), {} );
   chip->parity()->raise( "slice1", "L2_TABLE", 3 );
   verifyConfig->cookieIs( 7 );
   verifyData->doRequestVerify();
   events->enabledIs( false );
   events->enabledIs( true );
   heard = 0; // of that
   driver.runUntilIdle( 10 );
   EXPECT_EQ( at( "/hoba/machines" ) + at( "/hoba/nonAging" ) + at( "/hoba/common" ) +
                    at( "/bridging/stormControl/status" ) + at( "/interface/status" ) +
                    at( "/verify/status" ),
              before );
   EXPECT_EQ( heard, 0u );
   EXPECT_EQ( queue->event().size() + parityQueue->event().size(), 2u );
   EXPECT_EQ( Hoba::CliCallback::find( "VerifyAgentCli" ), nullptr );
   for( auto const & path : database.mounts() ) {
      database.unmount( path );
   }
}

} // namespace
