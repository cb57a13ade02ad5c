// SPDX-License-Identifier: Apache-2.0
// The features of the agent together: what others see of their machines, and what becomes of the chip
// when these go and come back.

#include "agent/features/Features.h"
#include "Helpers.h"
#include "Hoba/HobaCliCallback.h"
#include "Hoba/HobaEventQueueSm.h"
#include "Kiv/ClockDriver.h"
#include "Kiv/Datum.h"
#include "agent/Commands.h"
#include "agent/features/Feature.h"
#include "chips/sim/SimChip.h"

namespace HobaAgent {
namespace {

using Kiv::String;

class FeaturesTest : public testing::Test {
 protected:
   FeaturesTest() {
      Kiv::ClockDriver::ambientIs( driver );
      features = std::make_unique< Features >( database, commands, chip, []( String const & ) {} );
   }

   // Ports 1 to 8, two LAGs, levels, and a client of stations.
   void configure() {
      for( unsigned n = 1; n <= 8; ++n ) {
         portIs( n );
         set( "/bridging/stormControl/config/intfConfig/Ethernet" + std::to_string( n ) +
                    "/broadcast/level",
              100 * n );
      }
      for( auto const * lag : { "Port-Channel1", "Port-Channel2" } ) {
         board().feederConfig->lagIs( Pelt::PortChannelIntfId::parse( lag ) );
         set( String( "/bridging/stormControl/config/intfConfig/" ) + lag + "/multicast/level",
              250 );
      }
      lagIs( 1, "Port-Channel1" );
      lagIs( 2, "Port-Channel1" );
      set( "/bridging/stormControl/config/aggregateTcConfig/3/level/level", 700 );
      clientIs( "dot1x" );
   }
   void start() {
      features->start( cold );
      driver.run();
   }
   void portIs( unsigned n ) {
      board().feederConfig->portIs( Pelt::EthIntfId( n ) )->speedIs( Interface::EthMbps( 10000 ) );
   }
   void lagIs( unsigned n, char const * lag ) {
      board().lagInputConfig->ethPhyIntfLagConfigIs( Pelt::EthIntfId( n ),
                                                     Pelt::PortChannelIntfId::parse( lag ) );
   }
   void clientIs( String const & name ) {
      auto const client = board().feederConfig->nonAgingClientIs( name );
      client->enableIs( true );
      client->macEntriesIs( { Bridging::MacVlanPair::parse( "00:00:5e:00:53:01@10" ), port } );
   }
   Board & board() { return features->board(); }
   void set( String const & path, Kiv::Datum const & value ) { database.set( path, value ); }
   String at( String const & path ) { return Kiv::datumText( database.get( path ) ); }
   String ask( String const & command ) {
      Kiv::Datum request( Kiv::Datum::Object{} );
      request.add( "command", command );
      return Kiv::datumText( commands.run( request ) );
   }
   // What the chip was told.
   String told() {
      String text;
      for( auto const * table :
           { "stormControl/limit", "stormControl/bcastSkip", "stormControl/trafficClass",
             "stormControl/burstTime", "trunk/lag", "vlan/vlan", "vlan/member", "vlan/native" } ) {
         text += at( String( "/sim/chip/" ) + table ) + '\n';
      }
      return text;
   }
   // Restarts, and returns how often the chip was written.
   std::uint64_t writesOf( RestartKind kind ) {
      auto const before = chip->writes();
      ask( kind == hitless ? "sim restart hitless" : "sim restart cold" );
      driver.run();
      return chip->writes() - before;
   }

   Pelt::IntfId const port{ "Ethernet1" };
   Kiv::VirtualDriver driver{ 100 };
   Tessera::Database database;
   Commands commands;
   Kiv::Ptr< HobaSim::Chip > chip = Kiv::make< HobaSim::Chip >();
   std::unique_ptr< Features > features;
};

TEST_F( FeaturesTest, machinesAreShownAndNeitherWrittenNorSaved ) {
   configure();
   start();
   chip->parity()->correctionTimeIs( 5 );
   chip->parity()->raise( "slice0", "L2_TABLE", 17 );
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
   features.reset();
   EXPECT_TRUE( database.mounts().empty() );
}

TEST_F( FeaturesTest, whatHasEndedDoesNothingWhoeverHoldsIt ) {
   configure();
   start();
   // What was mounted goes on being held.
   std::vector< std::pair< String, Kiv::Ptr< Kiv::Entity > > > held;
   for( auto const & path : database.mounts() ) {
      held.emplace_back( path, database.entity( path ) );
   }
   auto const verifyData = board().context()->verifyData();
   auto const events = board().find< Hoba::EventQueueSm >();
   features.reset();

   for( auto const & [ path, entity ] : held ) {
      database.mount( path, entity, Tessera::Access::writable );
   }
   auto const states = [ this ] {
      return at( "/hoba/machines" ) + at( "/hoba/nonAging" ) + at( "/hoba/common" ) +
             at( "/bridging/stormControl/status" ) + at( "/interface/status" ) +
             at( "/verify/status" ) + told();
   };
   auto const before = states();
   set( "/feeders/config/port/Ethernet9/speed", 10000 );
   set( "/feeders/config/port/Ethernet1/linkUp", false );
   database.del( "/feeders/config/lag/Port-Channel1" );
   database.del( "/feeders/config/nonAgingClient/dot1x" );
   set( "/bridging/stormControl/config/intfConfig/Ethernet3/broadcast/level", 9 );
   chip->events()->linkEvent( port, Interface::linkDown );
   chip->parity()->raise( "slice1", "L2_TABLE", 3 );
   set( "/verify/config/cookie", 7 );
   verifyData->doRequestVerify();
   driver.runUntilIdle( 10 );
   EXPECT_EQ( states(), before );
   events->enabledIs( false );
   events->enabledIs( true );
   driver.runUntilIdle( 10 );
   EXPECT_EQ( Hoba::CliCallback::find( "VerifyAgentCli" ), nullptr );
   for( auto const & path : database.mounts() ) {
      database.unmount( path );
   }
}

TEST_F( FeaturesTest, stationsThatCameAndWentMeanwhile ) {
   configure();
   start();
   auto const learn = [ this ]( char const * addr ) {
      chip->mac()->learn( Pelt::EthIntfId( 3 ), Pelt::EthAddr::parse( addr ),
                          Bridging::VlanId( 10 ) );
   };
   learn( "00:00:5e:00:53:11" );
   learn( "00:00:5e:00:53:12" );
   driver.run();
   features->stop();
   chip->mac()->hostDel( Bridging::MacVlanPair::parse( "00:00:5e:00:53:11@10" ) );
   learn( "00:00:5e:00:53:13" );
   chip->events()->linkEvent( port, Interface::linkDown );
   EXPECT_THROW( ask( "show lag" ), Kiv::Exception );
   features->start( hitless );
   driver.run();
   auto const stations = ask( "show mac" );
   HobaTests::expectIn( stations, { "00:00:5e:00:53:12", "00:00:5e:00:53:13", "2 stations" } );
   EXPECT_EQ( at( "/interface/status/ethPhyIntfStatus/Ethernet1/linkStatus" ), "linkDown" );
}

// Of more stations than one turn holds the machines hear bit by bit; until then their first pass goes on.
TEST_F( FeaturesTest, manyStationsFollowInTurns ) {
   configure();
   start();
   features->stop();
   for( unsigned last = 0; last != 3 * HobaSim::MacUnit::slice; ++last ) {
      chip->mac()->learn( Pelt::EthIntfId( 3 ), Pelt::EthAddr( 0x020000000000 + last ),
                          Bridging::VlanId( 10 ) );
   }
   features->start( hitless );
   HobaTests::expectIn( ask( "show mac reported" ), "2048 stations" );
   HobaTests::expectIn( ask( "show restarts" ), "in its first pass" );
   driver.advance( 0 );
   HobaTests::expectIn( ask( "show mac reported" ), "6144 stations" );
   EXPECT_FALSE( ask( "show restarts" ).find( "in its first pass" ) != Kiv::String::npos );
   // And all go while nobody listens.
   features->stop();
   chip->mac()->hostDelAll();
   features->start( hitless );
   HobaTests::expectIn( ask( "show mac reported" ), "4096 stations" );
   driver.advance( 0 );
   HobaTests::expectIn( ask( "show mac reported" ), "0 stations" );
}

// What a machine could not ask for stays with the chip until a start in which nothing fails.
TEST_F( FeaturesTest, nothingIsSweptWhenAStepFailed ) {
   configure();
   start();
   auto const before = told();
   set( "/sim/chip/stormControl/limit/Ethernet77:all",
        Kiv::Datum( Kiv::Datum::Object{ { "limited", true } } ) );
   chip->stormControl()->forget( Pelt::EthIntfId( 5 ) );
   set( "/sim/chip/stormControl/limitTable/fault/busy/next", 1 );
   EXPECT_EQ( writesOf( hitless ), 0u );
   HobaTests::expectIn( told(), "Ethernet77:all" );
   HobaTests::expectIn( ask( "show restarts" ), "not swept, since 1 step failed" );
   EXPECT_EQ( writesOf( hitless ), 1u );
   EXPECT_EQ( told(), before );
}

// No traffic is sent to a port whose link is down, not for a moment; nor for ever to one that the chip
// would not take out of its LAG at first.
TEST_F( FeaturesTest, lagMembersWhoseLinkIsDown ) {
   configure();
   start();
   chip->trunk()->lagTable()->faultIs( HobaSim::tableBusy, { 0, 2 } );
   chip->events()->linkEvent( port, Interface::linkDown );
   driver.advance( 1 );
   EXPECT_TRUE( chip->trunk()->lagHas( port ) );
   driver.advance( 1 );
   EXPECT_EQ( at( "/sim/chip/trunk/lag" ), R"({"Ethernet2": "Port-Channel1"})" );
   // An agent that knows nothing of the links but what the chip reports.
   auto const before = told();
   auto const writes = chip->writes();
   features.reset();
   Commands others;
   features = std::make_unique< Features >( database, others, chip, []( String const & ) {} );
   configure();
   features->start( hitless );
   driver.run();
   EXPECT_EQ( chip->writes(), writes );
   EXPECT_EQ( told(), before );
   features.reset();
}

TEST_F( FeaturesTest, aStartThatFailsLeavesNothingAndMayBeRepeated ) {
   configure();
   start();
   auto const before = told();
   features->stop();
   database.mount( "/hoba/machines/stormControl", Kiv::make< Feeders::Config >(),
                   Tessera::Access::status );
   EXPECT_THROW( ask( "sim restart hitless" ), Kiv::Exception );
   EXPECT_EQ( told(), before );
   EXPECT_THROW( ask( "show events" ), Kiv::Exception );
   database.del( "/feeders/config/nonAgingClient/dot1x" ); // while nobody listens
   HobaTests::expectIn( ask( "show restarts" ), { "failed: ", "/hoba/machines/stormControl" } );
   database.unmount( "/hoba/machines/stormControl" );
   EXPECT_EQ( writesOf( hitless ), 0u );
   EXPECT_EQ( told(), before );
   HobaTests::expectIn( ask( "show mac non-aging" ), "0 stations" );
}

// Asks for what it wants the chip to hold when its first pass is said to go on.
class SlowFeature : public Feature {
 public:
   explicit SlowFeature( Board & board ) : Feature( board, "slow" ) { latest = this; }
   void start() override { firstPassGoesOn(); }
   void ask() {
      board().chip->trunk()->lagProgram( Pelt::EthIntfId( 1 ), Pelt::PortChannelIntfId( 1 ) );
      firstPassIsOver();
   }
   static inline SlowFeature * latest = nullptr;
};

TEST_F( FeaturesTest, nothingIsSweptBeforeTheLastFirstPassIsOver ) {
   features.reset();
   for( unsigned n : { 1u, 2u } ) {
      chip->trunk()->lagProgram( Pelt::EthIntfId( n ), Pelt::PortChannelIntfId( 1 ) );
   }
   MakeFeature const slow[] = { []( Board & board ) -> std::unique_ptr< Feature > {
      return std::make_unique< SlowFeature >( board );
   } };
   Commands others;
   features = std::make_unique< Features >(
         database, others, chip, []( String const & ) {}, slow );
   auto const shown = [ this ] { return Kiv::datumText( features->restarts().show( 1 ) ); };
   features->start( hitless );
   HobaTests::expectIn( shown(), "in its first pass" );
   features->stop();
   HobaTests::expectIn( shown(), "ended in its first pass" );
   features->start( hitless );
   EXPECT_EQ( chip->trunk()->lag().size(), 2u );
   SlowFeature::latest->ask();
   HobaTests::expectIn( shown(), { "none", "1", "running" } );
   EXPECT_TRUE( chip->trunk()->lagHas( Pelt::EthIntfId( 1 ) ) );
   EXPECT_EQ( chip->trunk()->lag().size(), 1u );
   features.reset();
}

} // namespace
} // namespace HobaAgent
