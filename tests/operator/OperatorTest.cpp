// SPDX-License-Identifier: Apache-2.0
// The agent and hobactl as an operator has them: real processes, a real socket.
#include "agent/common/Json.h"
#include "agent/common/Socket.h"
#include "operator/Process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <thread>

#include <sys/socket.h>
#include <sys/stat.h>

namespace HobaOperator {
namespace {

using Kiv::Datum;

struct Result {
   int status;
   std::string out, err;
};

std::string const examples = HOBA_SOURCE_DIR "/examples";
std::string const levels = "/bridging/stormControl/config/intfConfig/";

class OperatorTest : public testing::Test {
 protected:
   OperatorTest() {
      char name[] = "/tmp/hoba-operator-XXXXXX";
      directory = mkdtemp( name );
      socket = directory + "/socket";
   }
   ~OperatorTest() override {
      agent.reset();
      std::filesystem::remove_all( directory );
   }

   std::string file( std::string const & name, std::string_view content ) {
      std::ofstream( directory + "/" + name ) << content;
      return directory + "/" + name;
   }

   std::unique_ptr< Process > agentProcess( std::vector< std::string > arguments ) {
      arguments.insert( arguments.begin(), HOBA_AGENT_PATH );
      return std::make_unique< Process >( arguments,
                                          std::vector< std::string >{ "HOBA_SOCKET=" + socket } );
   }
   void start( std::vector< std::string > const & arguments ) {
      agent = agentProcess( arguments );
      ASSERT_TRUE( agent->says( "hoba-agent: serving at " + socket + "\n" ) ) << agent->err();
   }
   void startExample() {
      start( { "--config", examples + "/storm-control.json", "--sim", examples + "/chip.json" } );
   }

   // Words are separated by spaces; `last` is one more, which may have spaces.
   std::unique_ptr< Process > tool( std::string const & words, std::string const & last = {} ) {
      std::vector< std::string > arguments{ HOBACTL_PATH };
      std::istringstream in( words );
      for( std::string word; in >> word; ) {
         arguments.push_back( word );
      }
      if( !last.empty() ) {
         arguments.push_back( last );
      }
      return std::make_unique< Process >( arguments,
                                          std::vector< std::string >{ "HOBA_SOCKET=" + socket } );
   }
   static Result end( Process & process ) {
      auto const status = process.finish();
      return { status, process.out(), process.err() };
   }
   Result ctl( std::string const & words, std::string const & last = {} ) {
      return end( *tool( words, last ) );
   }
   // The output of a command that must succeed.
   std::string ok( std::string const & words, std::string const & last = {} ) {
      auto const result = ctl( words, last );
      EXPECT_EQ( result.status, 0 ) << words << ": " << result.err;
      EXPECT_EQ( result.err, "" ) << words;
      return result.out;
   }
   static void expectOneLine( Result const & result, int status, std::string const & text ) {
      EXPECT_EQ( result.status, status ) << text;
      EXPECT_EQ( std::count( result.err.begin(), result.err.end(), '\n' ), 1 ) << result.err;
      EXPECT_NE( result.err.find( text ), std::string::npos ) << result.err << "expected: " << text;
   }

   // What stands behind `head` in the line of the answer that begins with it, with single spaces.
   std::string row( std::string const & words, std::string const & head ) {
      std::istringstream lines( ok( words ) );
      for( std::string line; std::getline( lines, line ); ) {
         std::istringstream in( line );
         std::string text;
         for( std::string word; in >> word; ) {
            text += ( text.empty() ? "" : " " ) + word;
         }
         if( text.starts_with( head + " " ) ) {
            return text.substr( head.size() + 1 );
         }
      }
      return "";
   }
   std::string level( std::string const & intf, std::string const & name ) {
      return row( "show storm-control " + intf, intf + " " + name );
   }

   HobaAgent::Fd client() { return HobaAgent::connectTo( socket ); }
   // False when the agent hung up.
   static bool put( HobaAgent::Fd const & fd, std::string_view text ) {
      while( !text.empty() ) {
         auto const count = send( fd.get(), text.data(), text.size(), MSG_NOSIGNAL );
         if( count <= 0 ) {
            return false;
         }
         text.remove_prefix( static_cast< std::size_t >( count ) );
      }
      return true;
   }
   static std::string answer( HobaAgent::Fd const & fd ) {
      timeval limit{ patience.count(), 0 };
      setsockopt( fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit );
      std::string line;
      for( char c = 0; c != '\n' && recv( fd.get(), &c, 1, 0 ) == 1; ) {
         line += c;
      }
      return line;
   }

   std::string directory, socket;
   std::unique_ptr< Process > agent;
};

TEST_F( OperatorTest, levelsFollowConfigurationSpeedAndMembership ) {
   startExample();
   struct Step {
      char const * command; // what the operator does; none for the start
      char const * intf;
      char const * name;
      char const * line; // threshold, speed, rate, chip, drops, state
   };
   for( auto const & step : std::vector< Step >{
              { "", "Ethernet1", "broadcast", "2.50% 10 Gb/s 250000 250000 kbps 0 programmed" },
              { "", "Ethernet2", "broadcast", "1.00% 25 Gb/s - - 0 superseded by all" },
              { "", "Ethernet7", "broadcast", "2.50% unknown - - 0 speed unknown" },
              { "", "Port-Channel2", "broadcast", "10.00% unknown - - 0 no active member" },
              { "set /bridging/stormControl/config/intfConfig/Ethernet1/broadcast/level 300",
                "Ethernet1", "broadcast", "3.00% 10 Gb/s 300000 300000 kbps 0 programmed" },
              { "sim speed Ethernet1 25000", "Ethernet1", "broadcast",
                "3.00% 25 Gb/s 750000 750000 kbps 0 programmed" },
              { "sim lag Ethernet1 Port-Channel2", "Ethernet1", "multicast",
                "5.00% 25 Gb/s - - 0 member of Port-Channel2" },
              { "", "Port-Channel2", "broadcast",
                "10.00% 25 Gb/s 2500000 1 x 2500000 kbps 0 programmed" },
              { "sim lag Ethernet1 none", "Ethernet1", "broadcast",
                "3.00% 25 Gb/s 750000 750000 kbps 0 programmed" },
              { "set /bridging/stormControl/config/intfConfig/Ethernet1/all/level 1000",
                "Ethernet1", "broadcast", "3.00% 25 Gb/s - - 0 superseded by all" },
              { "", "Ethernet1", "all", "10.00% 25 Gb/s 2500000 2500000 kbps 0 programmed" },
              { "set /bridging/stormControl/config/intfConfig/Ethernet1/all/level 10000",
                "Ethernet1", "broadcast", "3.00% 25 Gb/s 750000 750000 kbps 0 programmed" },
              { "", "Ethernet1", "all", "" },
              { "set /bridging/stormControl/config/intfConfig/Ethernet1/broadcast "
                R"({"mode":"meteringBps","level":0,"rate":70000,"unit":"unitKbps"})",
                "Ethernet1", "broadcast", "70000 kbps 25 Gb/s 70000 70000 kbps 0 programmed" },
              { "set /bridging/stormControl/config/intfConfig/Port-Channel1/broadcast "
                R"({"mode":"meteringBps","level":0,"rate":2,"unit":"unitMbps"})",
                "Port-Channel1", "broadcast", "2 Mbps 11 Gb/s 4000 2 x 2000 kbps 0 programmed" },
              { "set /sim/chip/stormControl/ppsMetering true", "Ethernet1", "uucast", "" },
              { "set /bridging/stormControl/config/intfConfig/Ethernet1/uucast "
                R"({"mode":"meteringPps","level":0,"rate":300,"unit":"unitPps"})",
                "Ethernet1", "uucast", "300 pps 25 Gb/s - 300 pps 0 programmed" },
              { "del /bridging/stormControl/config/intfConfig/Ethernet5", "Ethernet5", "uucast",
                "" },
        } ) {
      if( *step.command ) {
         EXPECT_EQ( ok( step.command ), "" );
      }
      EXPECT_EQ( level( step.intf, step.name ), step.line ) << step.command;
   }
   EXPECT_NE( ok( "show interfaces Ethernet4" ).find( "Port-Channel1" ), std::string::npos );
   EXPECT_NE( ok( "show lag" ).find( "Ethernet3, Ethernet4" ), std::string::npos );
}

TEST_F( OperatorTest, dropsVerificationAndChanges ) {
   startExample();
   auto watch = tool( "watch " + levels );
   // A change until the watch has seen one: hobactl does not tell when the watch stands.
   ASSERT_TRUE( eventually( [ &, n = 1 ]() mutable {
      ok( "set " + levels + "Ethernet6/multicast/level " + std::to_string( n++ ) );
      return watch->out().find( "Ethernet6" ) != std::string::npos ||
             ( n % 8 == 0 && watch->says( "Ethernet6" ) );
   } ) ) << watch->err();
   EXPECT_NE( watch->out().find( "Ethernet6/multicast" ), std::string::npos ) << watch->out();

   ok( "set /bridging/stormControl/config/period 0.1" ); // the counters are read that often
   auto const told = ok( "sim drop Ethernet1 broadcast 1000000" );
   std::string const dropped = told.substr( 8, told.find( " of " ) - 8 );
   EXPECT_GT( std::stoul( dropped ), 0u ) << told;
   // The agent reads the counters of the chip now and then.
   EXPECT_TRUE( eventually( [ & ] {
      return level( "Ethernet1", "broadcast" ) ==
             "2.50% 10 Gb/s 250000 250000 kbps " + dropped + " programmed";
   } ) );

   EXPECT_NE( ok( "verify" ).find( "all as they should be" ), std::string::npos );
   ok( "sim forget Ethernet1" );
   auto const spoiled = ctl( "verify" );
   EXPECT_EQ( spoiled.status, 3 );
   EXPECT_NE( spoiled.out.find( "MISMATCH: 1 of " ), std::string::npos ) << spoiled.out;
   EXPECT_NE( spoiled.out.find( "no limit found" ), std::string::npos ) << spoiled.out;
   auto const json = ctl( "verify --json" );
   EXPECT_EQ( json.status, 3 );
   EXPECT_EQ( *HobaAgent::parseJson( json.out ).find( "mismatches" ), Datum( 1 ) ) << json.out;
}

// Frames of 60 octets in a capture: to anybody, from `source`, without a tag.
std::string
captureOf( std::vector< std::string > const & sources ) {
   std::string text;
   auto const number = [ & ]( std::uint32_t value ) {
      text.append( reinterpret_cast< char const * >( &value ), sizeof value );
   };
   for( auto const word : { 0xa1b2c3d4u, 0x00040002u, 0u, 0u, 65535u, 1u } ) {
      number( word );
   }
   for( auto const & source : sources ) {
      for( auto const word : { 1u, 0u, 60u, 60u } ) {
         number( word );
      }
      text += std::string( 6, '\xff' ) + source + std::string( 48, '\0' );
   }
   return text;
}

TEST_F( OperatorTest, whatTheChipReportsIsAppliedAndCounted ) {
   startExample();
   // Links: the port takes part no more, and says why.
   ok( "sim event link Ethernet2 down remote" );
   EXPECT_EQ( row( "show interfaces", "Ethernet2 yes" ), "down 25 Gb/s no -" );
   EXPECT_NE( ok( "get /hoba/portStatus/portStatus/Ethernet2" ).find( "faultRemote" ), std::string::npos );
   ok( "sim event link Ethernet2 up" );
   EXPECT_EQ( row( "show interfaces", "Ethernet2 yes" ), "up 25 Gb/s yes -" );
   // Stations, from a capture: one comes twice, one is a group, and the last frame is cut off.
   auto const capture = captureOf( { "\x02hosta", "\x02hostb", "\x03group", "\x02hosta",
                                     "\x02"
                                     "cut  " } );
   auto const name = file( "cut.pcap", capture.substr( 0, capture.size() - 10 ) );
   expectOneLine( ctl( "sim pcap " + name + " --port Ethernet1 --vlan 30" ), 1, "after 4 frames" );
   EXPECT_EQ( row( "show mac", "02:68:6f:73:74:61 30" ).substr( 0, 9 ), "Ethernet1" );
   EXPECT_NE( ok( "show mac" ).find( "2 stations\n" ), std::string::npos ) << ok( "show mac" );
   EXPECT_NE( ok( "show mac" ).find( "1 of 4 frames (1 group source" ), std::string::npos );
   // A flood is one wake-up; what is held waits.
   ok( "sim event hold" );
   EXPECT_EQ( ok( "sim event flood Ethernet3 100000" ), "100000 events are waiting\n" );
   EXPECT_EQ( row( "show events", "events state" ), "running, held" );
   EXPECT_EQ( row( "show events", "events waiting" ), "100000" );
   auto const wakeUps = std::stoi( row( "show events", "events wake-ups" ) );
   ok( "sim event release" );
   EXPECT_EQ( row( "show events", "events waiting" ), "0" );
   EXPECT_EQ( row( "show events", "events most waiting at once" ), "100000" );
   EXPECT_EQ( row( "show events", "events wake-ups" ), std::to_string( wakeUps + 1 ) );
   EXPECT_EQ( row( "show events", "events handled: port" ), "100002" );
   // A station where there is no interface: the chip has no such port.
   for( auto const * intf : { "Ethernet99", "Port-Channel77", "Vlan5" } ) {
      expectOneLine( ctl( std::string( "sim event learn " ) + intf + " 02:00:00:00:00:01 30" ), 1,
                     intf );
   }
   EXPECT_EQ( row( "show mac", "02:00:00:00:00:01" ), "" );
   // A station on a LAG that is not there.
   ok( "sim event station static-mac-address Port-Channel77 00:00:5e:00:53:01 30" );
   EXPECT_EQ( row( "show events", "events aged instead: learnt on a deleted LAG" ), "1" );
   // And on one whose only member is down.
   ok( "sim lag Ethernet3 Port-Channel77" );
   ok( "sim link Ethernet3 down" );
   ok( "sim event station static-mac-address Port-Channel77 02:00:00:00:00:01 30" );
   EXPECT_EQ( row( "show events", "events aged instead: learnt on a LAG without active members" ),
              "1" );
}

TEST_F( OperatorTest, parityErrorsAndStationsThatNeverAge ) {
   startExample();
   ok( "set /sim/chip/parity/correctionTime 1000" );
   ok( "sim event parity slice1 VLAN_TABLE 3" );
   EXPECT_EQ( row( "show parity", "slice1 VLAN_TABLE" ).substr( 0, 3 ), "3 1" );
   ok( "sim event parity slice1 VLAN_TABLE 9 reset" );
   EXPECT_EQ( row( "show parity", "slice1 VLAN_TABLE" ), "" ) << "a reset takes all of them";
   ok( "set /sim/chip/parity/correctionTime 0.05" );
   ok( "sim event parity slice0 L2_TABLE 17" );
   for( int tries = 0; tries != 100 && row( "show parity", "slice0" ) != ""; ++tries ) {
      std::this_thread::sleep_for( std::chrono::milliseconds( 50 ) );
   }
   auto const logs = ok( "logs" );
   for( auto const * text : { "HARDWARE_PERR_CORRECTABLE", "HARDWARE_PERR_CORRECTED",
                              "Parity error entry 9 in memory VLAN_TABLE on slice1 corrected" } ) {
      EXPECT_NE( logs.find( text ), std::string::npos ) << text << " in\n" << logs;
   }

   auto const client = [ & ]( std::string const & name, std::string const & intf ) {
      std::string const host = "00:00:5e:00:53:01@10";
      ok( "set /feeders/config/nonAgingClient/" + name + "/enable true" );
      ok( "set /feeders/config/nonAgingClient/" + name + "/macEntries/" + host,
          R"({ "intf": ")" + intf + R"(" })" );
   };
   client( "dot1x", "Ethernet1" );
   client( "dhcp", "Ethernet2" );
   auto const host = "00:00:5e:00:53:01 10";
   EXPECT_EQ( row( "show mac non-aging", host ), "Ethernet2 unknown 2 dot1x, dhcp" );
   EXPECT_NE( ok( "get /hoba/machines/nonAging/configSm/dhcp" ).find( "00:00:5e:00:53:01@10" ),
              std::string::npos );
   ok( "del /feeders/config/nonAgingClient/dhcp" );
   EXPECT_EQ( row( "show mac non-aging", host ), "Ethernet1 unknown 1 dot1x" );
   // What can be no station is refused, and a station nowhere told.
   for( auto const * none :
        { "01:00:5e:00:00:01@10", "02:00:00:00:00:02@0", "00:00:00:00:00:00@10" } ) {
      expectOneLine(
            ctl( "set /feeders/config/nonAgingClient/dot1x/macEntries/" + std::string( none ),
                 R"({ "intf": "Ethernet1" })" ),
            1, "the address of one station, in a VLAN" );
   }
   client( "dot1x", "Ethernet99" );
   EXPECT_NE( ok( "show mac non-aging" )
                    .find( "00:00:5e:00:53:01@10 is behind Ethernet99, which is not" ),
              std::string::npos );
   ok( "set /feeders/config/nonAgingClient/dot1x/enable false" );
   EXPECT_NE( ok( "show mac non-aging" ).find( "non-aging is disabled; 0 stations" ),
              std::string::npos );
}

TEST_F( OperatorTest, tracesTellWhy ) {
   startExample();
   EXPECT_NE( ok( "trace --tree" ).find( "recording is off" ), std::string::npos );
   ok( "trace --tree on" );
   ok( "set " + levels + "Ethernet1/broadcast/level 300" );
   auto const tree = ok( "trace --tree" );
   std::size_t at = 0;
   for( auto const * part : { "input", "IntfConfig(Ethernet1).broadcast", "handler", "hook",
                              "setHwRate", "HobaSim::StormPort(Ethernet1)", "programmed" } ) {
      at = tree.find( part, at );
      ASSERT_NE( at, std::string::npos ) << part << " in:\n" << tree;
   }
   // What trace viewers ask of a file: a list of complete events, each with name and times.
   ok( "trace --export " + directory + "/why.json" );
   std::ostringstream text;
   text << std::ifstream( directory + "/why.json" ).rdbuf();
   auto const exported = HobaAgent::parseJson( text.str() );
   auto const * list = exported.find( "traceEvents" );
   ASSERT_TRUE( list && list->as< Datum::Array >() );
   EXPECT_GE( list->as< Datum::Array >()->size(), 5u );
   std::set< std::string > names;
   for( auto const & event : *list->as< Datum::Array >() ) {
      bool const isName = *event.find( "ph" ) == Datum( "M" );
      for( auto const * name : { "name", "ph", "ts", "dur", "pid", "tid" } ) {
         EXPECT_TRUE( event.find( name ) || isName ) << name;
      }
      names.insert( *event.find( "name" )->as< std::string >() );
   }
   for( auto const * name : { "process_name", "thread_name", "set", "IntfConfig.broadcast",
                              "KivIntfConfig::handleLevel", "setHwRate" } ) {
      EXPECT_TRUE( names.count( name ) ) << name;
   }
   EXPECT_NE( ok( "trace --handles" ).find( "HobaStormControlSm" ), std::string::npos );
   EXPECT_NE( ok( "logs catalogue" ).find( "HARDWARE_VERIFY_AGENT_FAILED" ), std::string::npos );
   EXPECT_NE( ok( "types" ).find( "Bridging::StormControl::IntfConfig" ), std::string::npos );
   for( auto const * command :
        { "show storm-control", "show storm-control-traffic-classes", "show interfaces", "show lag",
          "show vlan", "show mac", "show version", "show import", "logs", "logs catalogue", "types",
          "verify", "help", "trace", "get /", "list /", "trace --tree", "trace --handles" } ) {
      auto const json = ok( std::string( "--json " ) + command );
      EXPECT_NO_THROW( HobaAgent::parseJson( json ) ) << command << ": " << json;
   }
}

TEST_F( OperatorTest, badInputIsRefusedInOneLineAndChangesNothing ) {
   startExample();
   auto const before = ok( "get --configuration /" );
   auto const malformed = file( "malformed.json", "{\n \"a\": [1,\n }\n" );
   auto const pipe = directory + "/pipe";
   ASSERT_EQ( mkfifo( pipe.c_str(), 0600 ), 0 );
   auto const oneBad =
         file( "bad.json", R"({"/feeders/config":{"port":{"Ethernet9":{"speed":1000}}},
      "/bridging/stormControl/config":{"intfConfig":{"Ethernet1":{"broadcast":{"level":7}},
                                                     "Ethernet9":{"broadcast":{"level":"x"}}}}})" );
   struct Row {
      std::string command, last;
      int status;
      std::string error;
   };
   for( auto const & row : std::vector< Row >{
              { "", "", 2, "hobactl: " },
              { "frobnicate", "", 2, "unknown command \"frobnicate\"" },
              { "shwo lag", "", 2, "did you mean \"show lag\"?" },
              { "get --bogus", "", 2, "--bogus" },
              { "--timeout x get", "", 2, "--timeout" },
              { "set /a", "", 2, "value is required" },
              { "show strom", "", 1, "unknown command \"show strom\"" },
              { "show lag extra", "", 1, "usage: show lag" },
              { "show mac vlan=4095", "", 1, "vlan: 4095 is not a number from 1 to 4094" },
              { "show vlan 0", "", 1, "vlan: 0 is not a number from 1 to 4094" },
              { "show mac port=Ethernet77", "", 1, "Ethernet77 is not a port or LAG of this" },
              { "show vlan 7", "", 1, "VLAN 7 is not one of this switch" },
              { "set /feeders/config/port/Ethernet1/vlan 4095", "", 1,
                "/vlan: 4095 is not a number from 1 to 4094" },
              { "show storm-control Foo", "", 1, "\"Foo\" is not an interface name" },
              { "sim link Ethernet1 sideways", "", 1, "state: \"sideways\" is not up or down" },
              { "sim event flood Ethernet1 0", "", 1, "count: \"0\" is not a number from 1" },
              { "sim speed Ethernet77 1000", "", 1, "Ethernet77 is not a port" },
              { "sim speed Ethernet1 -4", "", 1, "mbps: \"-4\"" },
              { "sim speed Ethernet1 7", "", 1, "mbps: 7 Mb/s is not a speed of Ethernet" },
              { "set /feeders/config/port/Ethernet1/speed 7", "", 1, "7 Mb/s is not a speed" },
              { "set /bridging/stormControl/config/aggregateTcConfig/300/level/level 5", "", 1,
                "aggregateTcConfig/300: \"300\" is not a traffic class of this chip" },
              { "set /bridging/stormControl/config/period inf", "", 1, "period: " },
              { "sim event parity pipe9 L2 1 fatal", "", 1, "\"pipe9\" is not a slice" },
              { "set /feeders/config/nonAgingClient/%FF/enable true", "", 1,
                "/feeders/config/nonAgingClient/%FF/enable: is not UTF-8" },
              { "watch /nope", "", 1, "/nope: no such path" },
              { "watch " + levels + "Ethernet9/broadcast/levle", "", 1, "did you mean \"level\"?" },
              { "get --configuration /sim/chip", "", 1, "/sim/chip: is no configuration" },
              { "get /nope", "", 1, "/nope: no such path" },
              { "get /bridging/stormControl/confg", "", 1, "did you mean \"config\"?" },
              { "set " + levels + "Ethernet1/brodcast 1", "", 1, "did you mean \"broadcast\"?" },
              { "set " + levels + "Ethernet1/broadcast/level abc", "", 1, "not a whole number" },
              { "set " + levels + "Ethernet1/broadcast/level -5", "", 1, "not a whole number" },
              { "set " + levels + "Ethernet1/broadcast/level 4294967296", "", 1, "4294967295" },
              { "set " + levels + "Ethernet1/broadcast/level 10001", "", 1, "from 0 to 10000" },
              { "set /bridging/stormControl/config/period 1e-9", "", 1,
                "/bridging/stormControl/config/period: 1e-09 is not a period: at least 0.1" },
              { "set " + levels + "Ethernet1", R"({"broadcast":{"level":7},"all":5})", 1, "all" },
              { "set " + levels + "Ethernet1", "{\"a\":", 2, "value: line 1, column " },
              { "set " + levels + "Ether/broadcast/level 1", "", 1, "\"Ether\" is not" },
              { "set /bridging/stormControl/status/x 1", "", 1, "no such attribute" },
              { "del /bridging/stormControl/config", "", 1, "cannot be deleted" },
              { "apply /nonexistent", "", 1, "/nonexistent: No such file" },
              { "apply", malformed, 1, malformed + ":3:2: " },
              { "apply", pipe, 1, pipe + ": is not a regular file" },
              { "apply", oneBad, 1, "Ethernet9/broadcast: level: \"x\"" },
              { "trace --enable HobaCommon=12", "", 1, "levels: \"12\"" },
              { "trace --export /nonexistent/x", "", 1, "/nonexistent/x: No such file" },
              { "--socket /nonexistent/s get", "", 1, "no agent answers here" },
        } ) {
      auto const result = ctl( row.command, row.last );
      expectOneLine( result, row.status, row.error );
      EXPECT_TRUE( result.err.starts_with( "hobactl: " ) ) << result.err;
      EXPECT_EQ( result.out, "" ) << row.command;
   }
   EXPECT_EQ( ok( "get --configuration /" ), before );

   // Starts that fail say so in one line as well, and leave no socket of their own.
   auto const other = directory + "/other";
   for( auto const & row : std::vector< Row >{
              { "--config", oneBad, 1, oneBad + ": " + levels + "Ethernet9/broadcast: level: " },
              { "--config", malformed, 1, malformed + ":3:2: " },
              { "--sim", malformed, 1, malformed + ":3:2: " },
              { "--config-db", "/nonexistent", 1, "/nonexistent: No such file" },
              { "--config-db", file( "routes.json", R"({"192.0.2.0/24":[]})" ), 1,
                "a table that is known here" },
              { "--config", pipe, 1, pipe + ": is not a regular file" },
              { "--sim", "/dev/zero", 1, "/dev/zero: is not a regular file" },
              { "--config", "", 2, "--config: the name of a file is expected" },
              { "--bogus", "x", 2, "--bogus" },
              { "--socket", socket, 1, "another agent answers here" },
              { "--socket", malformed, 1, "not a socket" },
        } ) {
      std::vector< std::string > arguments{ row.command, row.last };
      if( row.command != "--socket" ) {
         arguments.insert( arguments.end(), { "--socket", other } );
      }
      auto const result = end( *agentProcess( arguments ) );
      expectOneLine( result, row.status, row.error );
      EXPECT_FALSE( std::filesystem::exists( other ) ) << row.error;
   }
   EXPECT_EQ( ok( "get --configuration /" ), before );
}

TEST_F( OperatorTest, anImportNamesBrokenRowsAndGoesOn ) {
   auto const own = file( "config_db.json", R"({
      "PORT": { "Ethernet0": { "speed": "10000" }, "Ethernet4": { "speed": "fast" } },
      "PORTCHANNEL": { "PortChannel1": { "min_links": "1" } },
      "PORTCHANNEL_MEMBER": { "PortChannel9|Ethernet0": {} },
      "PORT_STORM_CONTROL": { "Ethernet0|broadcast": { "kbps": "1000" } },
      "PORT_STORM_CONTROL|Ethernet0|bogus": { "kbps": "1000" },
      "ACL_RULE": { "A|1": {}, "A|2": {} } })" );
   std::vector< std::string > files{ own };
   auto const sample = HOBA_SOURCE_DIR "/../shared/inputs/sonic-config/sample_config_db.json";
   if( std::filesystem::exists( sample ) ) {
      files.push_back( sample );
   }
   for( auto const & each : files ) {
      start( { "--config-db", each } );
      EXPECT_NE( agent->out().find( " rows imported, " ), std::string::npos ) << agent->out();
      EXPECT_NE( ok( "show interfaces Ethernet0" ).find( "Ethernet0" ), std::string::npos );
      if( each == own ) {
         for( auto const * row :
              { "PORT|Ethernet4: speed: \"fast\"", "PORTCHANNEL_MEMBER|PortChannel9|Ethernet0: ",
                "PORT_STORM_CONTROL|Ethernet0|bogus: " } ) {
            EXPECT_NE( agent->out().find( row ), std::string::npos ) << agent->out();
         }
         EXPECT_EQ( level( "Ethernet0", "broadcast" ),
                    "1000 kbps 10 Gb/s - - 0 metering mode not supported" );
         EXPECT_NE( agent->out().find( "ACL_RULE: 2 rows not imported: " ), std::string::npos );
         EXPECT_EQ( row( "show import", "ACL_RULE|A|2" ), "not imported no such feature here" );
      }
      EXPECT_NE( ok( "verify" ).find( "all as they should be" ), std::string::npos );
      agent->signal( SIGTERM );
      EXPECT_EQ( agent->finish(), 0 ) << agent->err();
   }
}

// What the operator configured, and nothing of the chip: saved and loaded again it is the same switch.
TEST_F( OperatorTest, savedConfigurationGivesTheSameSwitch ) {
   startExample();
   auto const switchNow = [ & ] {
      std::string all;
      for( auto const * command :
           { "get --configuration /", "show storm-control", "show storm-control-traffic-classes",
             "show interfaces", "show lag", "show mac non-aging" } ) {
         all += ok( command );
      }
      return all;
   };
   for( auto const * change :
        { "sim lag Ethernet5 Port-Channel2", "sim link Ethernet3 down",
          "set /feeders/config/lag/Port-Channel1/minLinks 1",
          "set /feeders/config/port[Ethernet9/1]/speed 40000",
          "set /bridging/stormControl/config/intfConfig/Ethernet1/uucast/level 50",
          "set /bridging/stormControl/config/burstConfig[a/b]/burstTime 7",
          "set /bridging/stormControl/config/period 60",
          "set /feeders/config/nonAgingClient/dot1x/enable true",
          "set /sim/chip/stormControl/ppsMetering true",
          "del /bridging/stormControl/config/intfConfig/Ethernet6" } ) {
      ok( change );
   }
   ok( "set /feeders/config/nonAgingClient/dot1x/macEntries/02:00:00:00:00:01@10",
       R"({ "intf": "Ethernet1" })" );
   auto const configuration = ok( "--json get --configuration /" );
   EXPECT_EQ( configuration.find( "machines" ), std::string::npos );
   auto const saved = file( "saved.json", configuration );
   auto const before = switchNow();
   ok( "apply", saved );
   EXPECT_EQ( switchNow(), before ) << "nothing to do";
   agent->signal( SIGTERM );
   EXPECT_EQ( agent->finish(), 0 );
   start( { "--config", saved, "--sim",
            file( "chip.json",
                  R"({ "stormControl": { "bpsMetering": true, "zeroRate": true } })" ) } );
   EXPECT_EQ( switchNow(), before );
   EXPECT_EQ( ok( "get /sim/chip/stormControl/zeroRate" ), "true\n" ) << "the chip is --sim's";
   EXPECT_EQ( ok( "get /sim/chip/stormControl/ppsMetering" ), "false\n" );
}

TEST_F( OperatorTest, hostileClientsDoNotDisturb ) {
   startExample();
   std::vector< HobaAgent::Fd > idle;
   for( auto const & [ text, error ] : std::vector< std::pair< std::string, std::string > >{
              { std::string( 9 * 1024 * 1024, 'x' ) + "\n", "longer than" },
              { std::string( "\0\xff\xfe\x01garbage\n", 12 ), "not JSON" },
              { std::string( 1000, '[' ) + "\n", "not JSON" },
        } ) {
      auto const fd = client();
      put( fd, text );
      EXPECT_NE( answer( fd ).find( error ), std::string::npos ) << error;
   }
   put( client(), R"({"command":"get","pa)" ); // half a line, and gone
   // One that watches and never reads, while changes flood it.
   auto const deaf = client();
   put( deaf, "{\"command\":\"watch\",\"path\":\"/\"}\n" );
   auto const busy = client();
   for( int n = 0; n != 2000; ++n ) {
      put( busy, R"({"command":"set","path":")" + levels +
                       R"(Ethernet1/broadcast/level","text":")" + std::to_string( 1 + n % 99 ) +
                       "\"}\n" );
      ASSERT_NE( answer( busy ).find( "\"ok\":true" ), std::string::npos );
   }
   // As many as come: the operator finds room, and who was idle for the longest is told why he goes.
   for( int n = 0; n != 80; ++n ) {
      idle.push_back( client() );
   }
   ok( "show lag" );
   EXPECT_NE( answer( idle.front() ).find( "idle the longest" ), std::string::npos );
   idle.clear();
   EXPECT_NE( level( "Ethernet1", "broadcast" ), "" );
   EXPECT_NE( ok( "verify" ).find( "all as they should be" ), std::string::npos );
}

// Ports in no order, a LAG with an active member, VLANs.
char const * const vlanSwitch = R"({
      "PORT": { "Ethernet10": { "speed": "10000", "admin_status": "up" },
                "Ethernet2": { "speed": "10000", "admin_status": "up" },
                "Ethernet1": { "speed": "10000", "admin_status": "up" } },
      "PORTCHANNEL": { "PortChannel10": {}, "PortChannel9": {} },
      "PORTCHANNEL_MEMBER": { "PortChannel10|Ethernet10": {} },
      "VLAN": { "Vlan30": {}, "Vlan4": {} },
      "VLAN_MEMBER": { "Vlan30|PortChannel10": { "tagging_mode": "tagged" },
                       "Vlan30|Ethernet2": { "tagging_mode": "untagged" },
                       "Vlan30|Ethernet1": { "tagging_mode": "tagged" } } })";

TEST_F( OperatorTest, showsInterfacesVlansAndStationsInTheirOrder ) {
   start( { "--config-db", file( "config_db.json", vlanSwitch ) } );
   auto const expectInOrder = [ & ]( std::string const & words,
                                     std::initializer_list< char const * > parts ) {
      auto const text = ok( words );
      std::size_t at = 0;
      for( auto const * part : parts ) {
         at = text.find( part, at );
         ASSERT_NE( at, std::string::npos ) << part << " in:\n" << text;
      }
   };
   expectInOrder( "show interfaces",
                  { "Ethernet1 ", "Ethernet2 ", "Ethernet10 ", "3 ports, 3 up\n" } );
   expectInOrder( "show lag", { "Port-Channel9 ", "Port-Channel10 ", "2 LAGs\n" } );
   ok( "sim event learn Ethernet10 00:00:5e:00:53:01 30" );
   ok( "sim event learn Ethernet2 00:00:5e:00:53:02 30" );
   EXPECT_EQ( row( "show vlan", "4 active" ), "0 - -" );
   EXPECT_EQ( row( "show vlan 30", "30 active" ), "2 Ethernet2 Ethernet1, Port-Channel10" );
   expectInOrder( "show vlan", { "\n   4", "\n  30", "\n2 VLANs\n" } );
   // Stations behind a member are behind its LAG, and found by either; by address, too.
   for( auto const * words : { "show mac port=Ethernet10", "show mac port=Port-Channel10",
                               "show mac mac=00:00:5e:00:53:01" } ) {
      EXPECT_EQ( row( words, "00:00:5e:00:53:01 30" ).substr( 0, 31 ),
                 "Port-Channel10 learned dynamic " );
      expectInOrder( words, { "\n1 station\n" } );
   }
   EXPECT_EQ( row( "show mac port=Ethernet2", "00:00:5e:00:53:01 30" ), "" );
   // People read words; programs find the enumerator.
   EXPECT_NE( ok( "--json show mac" ).find( "\"learnedDynamicMac\"" ), std::string::npos );
   EXPECT_EQ( row( "show version", "version:" ) + "\n", ok( "--version" ).substr( 8 ) );
   EXPECT_NE( row( "show version", "uptime:" ), "" );
}

// What bash offers when the line is typed so far.
TEST_F( OperatorTest, theShellCompletesInterfaces ) {
   start( { "--config-db", file( "config_db.json", vlanSwitch ) } );
   auto const script = HOBA_SOURCE_DIR "/agent/hobactl/completion/hobactl.bash";
   for( auto const & [ line, offered ] : std::vector< std::pair< std::string, std::string > >{
              { "hobactl sim link Eth", "Ethernet1 Ethernet2 Ethernet10 " },
              { "hobactl show mac port=Port", "Port-Channel9 Port-Channel10 " },
              { "hobactl show mac v", "vlan= " },
              { "hobactl show v", "version vlan " },
              { "hobactl --json sim link Ethernet1", "Ethernet1 Ethernet10 " },
              { "hobactl get /feeders/config/port/Ethernet2/v",
                "/feeders/config/port/Ethernet2/vlan " },
              { "hobactl sho", "show " },
        } ) {
      std::filesystem::path const tools( HOBACTL_PATH );
      Process bash( { "/bin/bash", "-c",
                      "PATH=" + tools.parent_path().string() + ":$PATH; source " + script +
                            "; COMP_LINE='" + line +
                            "' COMP_POINT=" + std::to_string( line.size() ) +
                            "; _hobactl; printf '%s ' \"${COMPREPLY[@]}\"" },
                    { "HOBA_SOCKET=" + socket, "PATH=/usr/bin:/bin" } );
      auto const result = end( bash );
      EXPECT_EQ( result.out, offered ) << line << result.err;
   }
}

TEST_F( OperatorTest, signalsStopItCleanly ) {
   for( int number : { SIGTERM, SIGINT } ) {
      startExample();
      auto watch = tool( "watch /" );
      agent->signal( number );
      EXPECT_EQ( agent->finish(), 0 ) << agent->err();
      EXPECT_EQ( agent->err(), "" );
      EXPECT_FALSE( std::filesystem::exists( socket ) );
      expectOneLine( end( *watch ), 1, "agent" );
   }
   // Also while it still reads what was handed in. The file may be too short for a fast machine,
   // on which it then serves before the signal comes.
   for( std::size_t rows = 100'000; rows != 0; rows *= 2 ) {
      std::string text = R"({"PORT":{"Ethernet0":{})";
      for( std::size_t n = 1; n != rows; ++n ) {
         text += ",\"Ethernet" + std::to_string( n ) + "\":{\"speed\":\"x\"}";
      }
      agent = agentProcess( { "--config-db", file( "large.json", text + "}}" ) } );
      ASSERT_TRUE( eventually( [ & ] { return std::filesystem::exists( socket ); } ) );
      agent->signal( SIGTERM );
      EXPECT_EQ( agent->finish(), 0 ) << agent->err();
      EXPECT_FALSE( std::filesystem::exists( socket ) );
      if( agent->out().find( "serving" ) == std::string::npos ) {
         break;
      }
      ASSERT_LT( rows, 1'000'000u ) << "it goes on until it serves";
   }
   // After a death without farewell the socket is stale, and in nobody's way.
   startExample();
   agent->signal( SIGKILL );
   EXPECT_EQ( agent->finish(), 128 + SIGKILL );
   EXPECT_TRUE( std::filesystem::exists( socket ) );
   startExample();
   ok( "show lag" );
}

} // namespace
} // namespace HobaOperator
