// SPDX-License-Identifier: Apache-2.0
// A chip that outlives its agent, and agents that die at any moment.
#include "Glim/Inspect.h"
#include "Glim/Segment.h"
#include "operator/Operator.h"

#include <chrono>
#include <map>
#include <random>

namespace HobaOperator {
namespace {

using HobaTests::expectIn;
using Kiv::Datum;

// What the agent told the chip: by table and key, the record, and how often that row was written.
struct Entry {
   std::string record;
   std::uint64_t writes;
   bool operator==( Entry const & ) const = default;
};
using Told = std::map< std::string, Entry >;

class RestartTest : public OperatorTest {
 protected:
   RestartTest() { setenv( "HOBA_GLIM_DIR", folder.path.c_str(), 1 ); }
   ~RestartTest() override { unsetenv( "HOBA_GLIM_DIR" ); }

   std::vector< std::string > arguments( std::string const & memory,
                                         std::string const & config ) const {
      std::vector< std::string > all{ "--socket", socket,          "--config",
                                      config,     "--chip-memory", memory };
      if( !chip.empty() ) {
         all.insert( all.end(), { "--sim", chip } );
      }
      return all;
   }
   // Configuration number `n`: most of it is the same in all.
   std::string configuration( unsigned n ) {
      std::ostringstream json;
      auto const each = [ & ]( char const * path, unsigned first, unsigned last, auto line ) {
         json << ",\n\"" << path << "\": {";
         for( auto i = first; i <= last; ++i ) {
            json << ( i == first ? "\n" : ",\n" ) << line( i );
         }
         json << " }";
      };
      auto const port = []( unsigned i ) { return "\"Ethernet" + std::to_string( i ) + "\": "; };
      auto const lag = []( unsigned i ) { return "\"Port-Channel" + std::to_string( i ) + "\""; };
      auto const level = [ n ]( unsigned i ) {
         auto const own = i % 8 == 0 ? 100 * n : 0;
         return R"({"broadcast": {"level": )" + std::to_string( 10 * i + own ) +
                R"(}, "multicast": {"level": )" + std::to_string( 5 + i ) + "}}";
      };
      json << "{ \"/verify/config\": {}";
      each( "/feeders/config/port", 1, 96,
            [ & ]( unsigned i ) { return port( i ) + R"({"speed": 10000})"; } );
      each( "/feeders/config/lag", 1, 4, [ & ]( unsigned i ) { return lag( i ) + ": {}"; } );
      each( "/feeders/config/vlan", 10, 17, [ & ]( unsigned i ) {
         return '"' + std::to_string( i ) + R"(": {"member": [)" + port( i + 20 ).substr( 0, 12 ) +
                ", " + lag( 1 + ( i + n ) % 4 ) + "]}";
      } );
      each( "/feeders/config/switchIntf", 28, 40 + n, [ & ]( unsigned i ) {
         return port( i ) + R"({"switchportMode": "switchportModeTrunk", "nativeVlan": 11})";
      } );
      each( "/lag/input/config/ethPhyIntfLagConfig", 1, 16,
            [ & ]( unsigned i ) { return port( i ) + lag( 1 + ( i + i % 5 * n ) % 4 ); } );
      each( "/bridging/stormControl/config/intfConfig", 17 + n, 80 + n,
            [ & ]( unsigned i ) { return port( i ) + level( i ); } );
      each( "/bridging/config/fdbConfig/10/configuredHost", 10, 9 + stations + 7 * n,
            [ & ]( unsigned i ) {
               return "\"02:00:00:00:00:" + std::to_string( i ) + R"(": {"intf": )" +
                      port( 17 + ( i % 9 ? i : i + n ) % 60 ).substr( 0, 12 ) + "}";
            } );
      each( "/bridging/stormControl/config/aggregateTcConfig", 0, 5 + n % 2, []( unsigned i ) {
         return '"' + std::to_string( i ) + R"(": {"level": {"level": )" +
                std::to_string( 100 + i ) + "}}";
      } );
      json << "\n}\n";
      return folder.file( "config" + std::to_string( n ), json.str() );
   }

   // Of all tables of the chip; rows that it found out by itself have no writes.
   static Told told( std::string const & memory ) {
      Told all;
      for( auto const & table : Glim::tableNames() ) {
         if( !table.starts_with( memory + '.' ) || table == memory + ".chip" ) {
            continue;
         }
         auto const dump = Glim::dumpTable( table );
         EXPECT_EQ( dump.odd + dump.unreadable, 0u ) << table;
         for( auto const & [ key, row ] : dump.rows ) {
            auto const writes = Kiv::fromDatum< std::uint64_t >( *row.find( "writes" ) );
            if( writes ) {
               all[ table.substr( memory.size() ) + ' ' + Kiv::datumText( key ) ] = {
                     Kiv::datumText( *row.find( "record" ) ), writes };
            }
         }
      }
      return all;
   }
   // What a chip is told that nothing was ever told before.
   Told toldAnew( std::string const & config ) {
      start( arguments( "reference", config ) );
      awaitWritten();
      stop();
      auto const all = told( "reference" );
      for( auto const & table : Glim::tableNames() ) {
         if( table.starts_with( "reference." ) ) {
            std::filesystem::remove( Glim::pathOf( table ) );
         }
      }
      return all;
   }
   // Kills agents in random moments of their first `longest` milliseconds, then lets one serve and stop.
   void killTimes( unsigned times, std::vector< std::string > const & with, double longest ) {
      for( unsigned n = 0; n != times; ++n ) {
         agent = agentProcess( with );
         std::this_thread::sleep_for(
               std::chrono::microseconds( static_cast< long >( random() % 1000 * longest ) ) );
         agent->signal( SIGKILL );
         EXPECT_EQ( agent->finish(), 128 + SIGKILL ) << agent->err();
      }
      start( with );
      awaitWritten();
      expectIn( ok( "verify" ), allAsTheyShouldBe );
      stop();
   }
   // Also what is on its way to a MAC table that answers later.
   void awaitWritten() {
      EXPECT_TRUE( eventually( [ this ] {
         auto const text = HobaTests::squeezed( ok( "show mac programmer" ) );
         return text.starts_with( "not in use" ) || ( text.find( " pending 0 " ) != text.npos &&
                                                      text.find( " in progress 0 " ) != text.npos );
      } ) );
   }
   void killAnywhere();

   std::string chip;      // its description
   unsigned stations = 0; // that are configured

   std::mt19937 random{ 10 };
};

// From configuration to configuration, killed on the way. Whatever stays the same was written once, what
// changed once more, what nobody wants any more is gone. HOBA_KILLS says how many agents die.
void
RestartTest::killAnywhere() {
   auto const * const asked = std::getenv( "HOBA_KILLS" );
   unsigned const kills = asked ? static_cast< unsigned >( std::atoi( asked ) ) : 16;
   stations = 60;
   auto const beginning = std::chrono::steady_clock::now();
   auto before = toldAnew( configuration( 0 ) );
   auto const serving =
         std::chrono::duration< double, std::milli >( std::chrono::steady_clock::now() - beginning )
               .count();
   ASSERT_GT( before.size(), 100u );
   Told expected = before; // each written once
   for( unsigned n = 0; n != 4; ++n ) {
      auto const config = configuration( n );
      auto const wanted = toldAnew( config );
      Told next;
      for( auto const & [ key, entry ] : wanted ) {
         auto const was = expected.find( key );
         bool const isThere = n != 0 && was != expected.end();
         next[ key ] = { entry.record, !isThere ? 1
                                       : was->second.record == entry.record
                                             ? was->second.writes
                                             : was->second.writes + 1 };
      }
      killTimes( kills / 4, arguments( "chip", config ), serving * 0.8 );
      auto const found = told( "chip" );
      for( auto const & [ key, entry ] : next ) {
         auto const there = found.find( key );
         ASSERT_NE( there, found.end() ) << n << key;
         EXPECT_EQ( there->second.record, entry.record ) << n << key;
         EXPECT_EQ( there->second.writes, entry.writes ) << n << key;
      }
      EXPECT_EQ( found.size(), next.size() );
      expected = next;
   }
}

TEST_F( RestartTest, killedAnywhereAnAgentRepeatsNothing ) { killAnywhere(); }

// Each command is in the chip, or it is not: nobody knows who was not answered.
TEST_F( RestartTest, killedAnywhereAnAgentReadsBack ) {
   chip = folder.file( "indirect.json",
                       R"({"mac": {"indirectAccess": true, "answersReordered": true,
                                   "hostTable": {"latency": 0.002}}})" );
   killAnywhere();
}

TEST_F( RestartTest, theChipGoesOn ) {
   auto const with = arguments( "chip", configuration( 0 ) );
   start( with );
   ok( "sim event learn Ethernet20 00:00:5e:00:53:01 1" );
   ok( "sim event link Ethernet21 down" );
   ok( "sim event link Ethernet2 down" ); // of a LAG, which it leaves
   ok( "sim drop Ethernet30 broadcast 100000000" );
   auto const drops = level( "Ethernet30 broadcast" );
   expectIn( ok( "show restarts" ), { "agent", "cold", "storm control", "running" } );
   expectIn( ok( "show tables" ), { "chip.stormControl.limit" } );
   agent->signal( SIGKILL );
   agent->finish();

   start( with );
   expectIn( ok( "show restarts" ), { "agent", "hitless", "none", "0", "running" } );
   expectIn( ok( "show mac" ), { "00:00:5e:00:53:01", "1 station" } );
   EXPECT_EQ( row( "show interfaces Ethernet21", "Ethernet21" ), "yes down 10 Gb/s no -" );
   EXPECT_EQ( level( "Ethernet30 broadcast" ), drops );
   expectIn( ok( "sim restart hitless" ), { "machines", "hitless", "none", "running" } );
   expectIn( ok( "show mac" ), "1 station" );
   // Only what was spoilt is mended.
   ok( "sim forget Ethernet40" );
   expectIn( ok( "sim restart hitless" ), { "machines", "hitless", "2: storm control 2" } );
   expectIn( ok( "sim restart cold" ), { "machines", "cold", "storm control" } );
   expectIn( ok( "verify" ), allAsTheyShouldBe );
   expectIn( ok( "show mac" ), "0 stations" );

   // Whose chip it is.
   auto second = with;
   second[ 1 ] = folder.path + "/other";
   expectOneLine( end( *agentProcess( second ) ), 1,
                  "chip memory \"chip\" is driven by another agent, process " );
   stop();
   auto const other =
         folder.file( "chip.json", R"({"stormControl": {"limitTable": {"capacity": 9}}})" );
   auto larger = with;
   larger.insert( larger.end(), { "--sim", other } );
   expectOneLine( end( *agentProcess( larger ) ), 1,
                  "stormControl.limit has room for any number of rows there, 9 rows expected" );
   auto cold = larger;
   cold.push_back( "--cold" );
   start( cold );
   std::filesystem::resize_file( Glim::pathOf( "chip.stormControl.limit" ), 4096 );
   expectOneLine( ctl( "sim restart cold" ), 1, "it was cut off while it was written" );
   expectIn( ok( "show restarts" ), { "machines", "cold", "failed: table " } );
   stop();
   expectOneLine(
         end( *agentProcess( with ) ), 1,
         "chip memory \"chip\" cannot be gone on with: table \"chip.stormControl.limit\": " );
   // Cold once: what begins anew by itself goes on.
   for( auto const * flag : { "--cold", "--cold=true" } ) {
      cold = with;
      cold.push_back( flag );
      start( cold );
      expectIn( ok( "show restarts" ), { "cold" } );
      ok( "sim event parity slice0 L2_TABLE 17 fatal" );
      EXPECT_TRUE( eventually(
            [ & ] { return ctl( "show restarts" ).out.find( "hitless" ) != std::string::npos; } ) );
      agent->signal( SIGKILL );
      agent->finish();
   }
}

} // namespace
} // namespace HobaOperator
