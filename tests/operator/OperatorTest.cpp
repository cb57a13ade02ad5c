// SPDX-License-Identifier: Apache-2.0
// The agent and hobactl as an operator has them: real processes, a real socket.
#include "operator/Operator.h"
#include "Helpers.h"
#include "agent/common/Json.h"
#include "agent/common/Socket.h"

#include <sys/socket.h>
#include <sys/stat.h>

namespace HobaOperator {
namespace {

using HobaTests::expectIn;
using Kiv::Datum;

TEST_F( OperatorTest, levelsFollowConfigurationSpeedAndMembership ) {
   startExample();
   struct Step {
      char const * command; // what the operator does, if anything
      char const * level;
      char const * line; // threshold, speed, rate, chip, drops, state
   };
   // clang-format off
   Step const steps[] = {
      { "", "Ethernet1 broadcast", "2.50% 10 Gb/s 250000 250000 kbps 0 programmed" },
      { "", "Ethernet2 broadcast", "1.00% 25 Gb/s - - 0 superseded by all" },
      { "", "Ethernet7 broadcast", "2.50% unknown - - 0 speed unknown" },
      { "", "Port-Channel2 broadcast", "10.00% unknown - - 0 no active member" },
      { "set ~/Ethernet1/broadcast/level 300",
        "Ethernet1 broadcast", "3.00% 10 Gb/s 300000 300000 kbps 0 programmed" },
      { "sim speed Ethernet1 25000",
        "Ethernet1 broadcast", "3.00% 25 Gb/s 750000 750000 kbps 0 programmed" },
      { "sim lag Ethernet1 Port-Channel2",
        "Ethernet1 multicast", "5.00% 25 Gb/s - - 0 member of Port-Channel2" },
      { "", "Port-Channel2 broadcast", "10.00% 25 Gb/s 2500000 1 x 2500000 kbps 0 programmed" },
      { "sim lag Ethernet1 none",
        "Ethernet1 broadcast", "3.00% 25 Gb/s 750000 750000 kbps 0 programmed" },
      { "set ~/Ethernet1/all/level 1000",
        "Ethernet1 all", "10.00% 25 Gb/s 2500000 2500000 kbps 0 programmed" },
      { "", "Ethernet1 broadcast", "3.00% 25 Gb/s - - 0 superseded by all" },
      { "set ~/Ethernet1/all/level 10000",
        "Ethernet1 broadcast", "3.00% 25 Gb/s 750000 750000 kbps 0 programmed" },
      { "", "Ethernet1 all", "" },
      { R"(set ~/Ethernet1/broadcast {"mode":"meteringBps","rate":70000,"unit":"unitKbps"})",
        "Ethernet1 broadcast", "70000 kbps 25 Gb/s 70000 70000 kbps 0 programmed" },
      { R"(set ~/Port-Channel1/broadcast {"mode":"meteringBps","rate":2,"unit":"unitMbps"})",
        "Port-Channel1 broadcast", "2 Mbps 11 Gb/s 4000 2 x 2000 kbps 0 programmed" },
      { "set /sim/chip/stormControl/ppsMetering true", "Ethernet1 uucast", "" },
      { R"(set ~/Ethernet1/uucast {"mode":"meteringPps","rate":300,"unit":"unitPps"})",
        "Ethernet1 uucast", "300 pps 25 Gb/s - 300 pps 0 programmed" },
      { "del ~/Ethernet5", "Ethernet5 uucast", "" },
   };
   // clang-format on
   for( auto const & [ command, name, line ] : steps ) {
      EXPECT_EQ( *command ? ok( command ) : "", "" );
      EXPECT_EQ( level( name ), line ) << command;
   }
   expectIn( ok( "show interfaces Ethernet4" ), "Port-Channel1" );
   expectIn( ok( "show lag" ), "Ethernet3, Ethernet4" );
}

TEST_F( OperatorTest, dropsVerificationAndChanges ) {
   startExample();
   auto watch = tool( "watch ~/" );
   // A change until the watch has seen one: hobactl does not tell when the watch stands.
   EXPECT_TRUE( eventually( [ &, n = 1 ]() mutable {
      ok( "set ~/Ethernet6/multicast/level " + std::to_string( n++ ) );
      return watch->out().find( "Ethernet6/multicast" ) != std::string::npos;
   } ) ) << watch->err();

   ok( "set /bridging/stormControl/config/period 0.1" ); // the counters are read that often
   auto const told = ok( "sim drop Ethernet1 broadcast 1000000" );
   std::string const dropped = told.substr( 8, told.find( " of " ) - 8 );
   EXPECT_GT( std::stoul( dropped ), 0u ) << told;
   EXPECT_TRUE( eventually( [ & ] {
      return level( "Ethernet1 broadcast" ) ==
             "2.50% 10 Gb/s 250000 250000 kbps " + dropped + " programmed";
   } ) );

   expectIn( ok( "verify" ), allAsTheyShouldBe );
   ok( "sim forget Ethernet1" );
   auto const spoiled = ctl( "verify" ), json = ctl( "verify --json" );
   EXPECT_EQ( spoiled.status, 3 );
   expectIn( spoiled.out, { "no limit found", "MISMATCH: 1 of " } );
   EXPECT_EQ( json.status, 3 );
   EXPECT_EQ( *HobaAgent::parseJson( json.out ).find( "mismatches" ), Datum( 1 ) ) << json.out;
}

// Frames of 60 octets in a capture: to anybody, from `source`, without a tag.
std::string
captureOf( std::initializer_list< std::string > sources ) {
   std::string text;
   auto const add = [ & ]( std::initializer_list< std::uint32_t > words ) {
      text.append( reinterpret_cast< char const * >( words.begin() ), 4 * words.size() );
   };
   add( { 0xa1b2c3d4, 0x00040002, 0, 0, 65535, 1 } );
   for( auto const & source : sources ) {
      add( { 1, 0, 60, 60 } );
      text += std::string( 6, '\xff' ) + source + std::string( 48, '\0' );
   }
   return text;
}

TEST_F( OperatorTest, whatTheChipReportsIsAppliedAndCounted ) {
   startExample();
   // Links: the port takes part no more, and says why.
   ok( "sim event link Ethernet2 down remote" );
   EXPECT_EQ( row( "show interfaces", "Ethernet2 yes" ), "down 25 Gb/s no -" );
   expectIn( ok( "get /hoba/portStatus/portStatus/Ethernet2" ), "faultRemote" );
   ok( "sim event link Ethernet2 up" );
   EXPECT_EQ( row( "show interfaces", "Ethernet2 yes" ), "up 25 Gb/s yes -" );
   // Stations, from a capture: one comes twice, one is a group, and the last frame is cut off.
   auto const capture =
         captureOf( { "\2hosta", "\2hostb", "\3group", "\2hosta", std::string( "\2cutof" ) } );
   auto const name = folder.file( "cut.pcap", capture.substr( 0, capture.size() - 10 ) );
   ok( "set /feeders/config/vlan/30 {}" );
   ok( "set /feeders/config/switchIntf/Ethernet1/nativeVlan 30" );
   expectOneLine( ctl( "sim pcap " + name + " --port Ethernet1" ), 1, "after 4 frames" );
   EXPECT_TRUE( row( "show mac", "02:68:6f:73:74:61 30" ).starts_with( "Ethernet1 " ) );
   expectIn( ok( "show mac reported" ), { "2 stations\n", "1 of 4 frames (1 group source" } );
   // A flood is one wake-up; what is held waits.
   ok( "sim event hold" );
   EXPECT_EQ( ok( "sim event flood Ethernet3 100000" ), "100000 events are waiting\n" );
   auto const events = [ & ]( std::string const & head ) {
      return row( "show events", "events " + head );
   };
   EXPECT_EQ( events( "state" ), "running, held" );
   EXPECT_EQ( events( "waiting" ), "100000" );
   auto const wakeUps = std::stoi( events( "wake-ups" ) );
   ok( "sim event release" );
   EXPECT_EQ( events( "waiting" ), "0" );
   EXPECT_EQ( events( "most waiting at once" ), "100000" );
   EXPECT_EQ( events( "wake-ups" ), std::to_string( wakeUps + 1 ) );
   EXPECT_EQ( events( "handled: port" ), "100002" );
   // A station where there is no interface: the chip has no such port.
   for( std::string const intf : { "Ethernet99", "Port-Channel77", "Vlan5" } ) {
      expectOneLine( ctl( "sim event learn " + intf + " 02:00:00:00:00:01 30" ), 1, intf );
   }
   EXPECT_EQ( row( "show mac", "02:00:00:00:00:01" ), "" );
   // A station on a LAG that is not there, and on one whose only member is down.
   auto const onLag = "sim event station static-mac-address Port-Channel77 02:00:00:00:00:01 30";
   ok( onLag );
   EXPECT_EQ( events( "aged instead: learnt on a deleted LAG" ), "1" );
   ok( "sim lag Ethernet3 Port-Channel77" );
   ok( "sim link Ethernet3 down" );
   ok( onLag );
   EXPECT_EQ( events( "aged instead: learnt on a LAG without active members" ), "1" );
}

TEST_F( OperatorTest, parityErrors ) {
   startExample();
   ok( "set /sim/chip/parity/correctionTime 1000" );
   ok( "sim event parity slice1 VLAN_TABLE 3" );
   EXPECT_TRUE( row( "show parity", "slice1 VLAN_TABLE" ).starts_with( "3 1" ) );
   ok( "sim event parity slice1 VLAN_TABLE 9 reset" );
   EXPECT_EQ( row( "show parity", "slice1 VLAN_TABLE" ), "" ) << "a reset takes all of them";
   ok( "set /sim/chip/parity/correctionTime 0.05" );
   ok( "sim event parity slice0 L2_TABLE 17" );
   EXPECT_TRUE( eventually( [ & ] { return row( "show parity", "slice0" ).empty(); } ) );
   auto const logs = ok( "logs" );
   expectIn( logs, "HARDWARE_PERR_CORRECTABLE" );
   expectIn( logs, "Parity error entry 9 in memory VLAN_TABLE on slice1 corrected" );
}

TEST_F( OperatorTest, stationsThatNeverAge ) {
   startExample();
   auto const station = [ & ]( char const * client, char const * host, std::string const & intf ) {
      std::string const path = std::string( "set /feeders/config/nonAgingClient/" ) + client;
      ok( path + "/enable true" );
      return ctl( path + "/macEntries/" + host + " {\"intf\":\"" + intf + "\"}" );
   };
   auto const host = "00:00:5e:00:53:01@10";
   auto const stations = [ & ] { return row( "show mac non-aging", "00:00:5e:00:53:01 10" ); };
   station( "dot1x", host, "Ethernet1" );
   station( "dhcp", host, "Ethernet2" );
   EXPECT_EQ( stations(), "Ethernet2 unknown 2 dot1x, dhcp" );
   EXPECT_NE( ok( "get /hoba/machines/nonAging/configSm/dhcp" ).find( host ), std::string::npos );
   ok( "del /feeders/config/nonAgingClient/dhcp" );
   EXPECT_EQ( stations(), "Ethernet1 unknown 1 dot1x" );
   // What can be no station is refused, and a station nowhere told.
   for( auto const * none :
        { "01:00:5e:00:00:01@10", "02:00:00:00:00:02@0", "00:00:00:00:00:00@10" } ) {
      expectOneLine( station( "dot1x", none, "Ethernet1" ), 1,
                     "the address of one station, in a VLAN" );
   }
   station( "dot1x", host, "Ethernet99" );
   expectIn( ok( "show mac non-aging" ),
             "00:00:5e:00:53:01@10 is behind Ethernet99, which is not" );
   ok( "set /feeders/config/nonAgingClient/dot1x/enable false" );
   expectIn( ok( "show mac non-aging" ), "non-aging is disabled; 0 stations" );
}

TEST_F( OperatorTest, tracesTellWhy ) {
   startExample();
   expectIn( ok( "trace --tree" ), "recording is off" );
   ok( "trace --tree on" );
   ok( "set ~/Ethernet1/broadcast/level 300" );
   expectIn( ok( "trace --tree" ), { "input", "IntfConfig(Ethernet1).broadcast", "handler", "hook",
                                     "setHwRate", "HobaSim::StormUnit(stormControl).limit[Ethernet1:broadcast]", "programmed" } );
   auto const why = folder.path + "/why.json";
   ok( "trace --export " + why );
   auto const exported = HobaAgent::parseJson( contentOf( why ) );
   EXPECT_GE( exported.find( "traceEvents" )->as< Datum::Array >()->size(), 5u );
   expectIn( ok( "trace --handles" ), "HobaStormControlSm" );
   expectIn( ok( "logs catalogue" ), "HARDWARE_VERIFY_AGENT_FAILED" );
   expectIn( ok( "types" ), "Bridging::StormControl::IntfConfig" );
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
   auto const malformed = folder.file( "malformed.json", "{\n \"a\": [1,\n }\n" );
   auto const pipe = folder.path + "/pipe";
   ASSERT_EQ( mkfifo( pipe.c_str(), 0600 ), 0 );
   auto const oneBad =
         folder.file( "bad.json", R"({"/feeders/config":{"port":{"Ethernet9":{"speed":1000}}},
      "/bridging/stormControl/config":{"intfConfig":{"Ethernet1":{"broadcast":{"level":7}},
                                                     "Ethernet9":{"broadcast":{"level":"x"}}}}})" );
   struct Row {
      std::string command, last, error;
   };
   // clang-format off
   for( auto const & row : std::vector< Row >{
         { "show strom", "", "unknown command \"show strom\"" },
         { "show lag extra", "", "usage: show lag" },
         { "show mac vlan=4095", "", "vlan: 4095 is not a number from 1 to 4094" },
         { "show mac port=Ethernet77", "", "Ethernet77 is not a port or LAG of this" },
         { "show vlan 7", "", "VLAN 7 is not one of this switch" },
         { "show storm-control Foo", "", "\"Foo\" is not an interface name" },
         { "sim link Ethernet1 sideways", "", "state: \"sideways\" is not up or down" },
         { "sim event flood Ethernet1 0", "", "count: \"0\" is not a number from 1" },
         { "sim event parity pipe9 L2 1 fatal", "", "\"pipe9\" is not a slice" },
         { "sim speed Ethernet77 1000", "", "Ethernet77 is not a port" },
         { "sim speed Ethernet1 7", "", "mbps: 7 Mb/s is not a speed of Ethernet" },
         { "set /feeders/config/port/Ethernet1/speed 7", "", "7 Mb/s is not a speed" },
         { "set /feeders/config/switchIntf/Ethernet1/nativeVlan 4095", "",
           "/nativeVlan: 4095 is not a number" },
         { "set /feeders/config/nonAgingClient/%FF/enable true", "", "/%FF/enable: is not UTF-8" },
         { "set /bridging/stormControl/config/aggregateTcConfig/300/level/level 5", "",
           "aggregateTcConfig/300: \"300\" is not a traffic class of this chip" },
         { "set /bridging/stormControl/config/period inf", "", "period: " },
         { "set /bridging/stormControl/config/period 1e-9", "",
           "/bridging/stormControl/config/period: 1e-09 is not a period: at least 0.1" },
         { "set /bridging/stormControl/status/x 1", "", "no such attribute" },
         { "set ~/Ethernet1/broadcast/level -5", "", "not a whole number" },
         { "set ~/Ethernet1/broadcast/level 10001", "", "from 0 to 10000" },
         { "set ~/Ethernet1", R"({"broadcast":{"level":7},"all":5})", "all" },
         { "del /bridging/stormControl/config", "", "cannot be deleted" },
         { "watch /nope", "", "/nope: no such path" },
         { "watch ~/Ethernet9/broadcast/levle", "", "did you mean \"level\"?" },
         { "get --configuration /sim/chip", "", "/sim/chip: is no configuration" },
         { "get /bridging/stormControl/confg", "", "did you mean \"config\"?" },
         { "apply", malformed, malformed + ":3:2: " },
         { "apply", pipe, pipe + ": is not a regular file" },
         { "apply", oneBad, "Ethernet9/broadcast: level: \"x\"" },
         { "trace --enable HobaCommon=12", "", "levels: \"12\"" },
         { "trace --export /nonexistent/x", "", "/nonexistent/x: No such file" } } ) {
      // clang-format on
      auto const result = ctl( row.command, row.last );
      expectOneLine( result, 1, row.error );
      EXPECT_TRUE( result.err.starts_with( "hobactl: " ) ) << result.err;
      EXPECT_EQ( result.out, "" ) << row.command;
   }
   EXPECT_EQ( ok( "get --configuration /" ), before );

   // Starts that fail say so in one line as well, and leave no socket of their own.
   auto const other = folder.path + "/other";
   auto const routes = folder.file( "routes.json", R"({"192.0.2.0/24":[]})" );
   // clang-format off
   for( auto const & row :
        { Row{ "--config", oneBad, oneBad + ": " + levels + "Ethernet9/broadcast: level: " },
          Row{ "--config", malformed, malformed + ":3:2: " },
          Row{ "--config", pipe, pipe + ": is not a regular file" },
          Row{ "--config", "", "--config: a name is expected" },
          Row{ "--sim", malformed, malformed + ":3:2: " },
          Row{ "--sim", "/dev/zero", "/dev/zero: is not a regular file" },
          Row{ "--config-db", "/nonexistent", "/nonexistent: No such file" },
          Row{ "--config-db", routes, "a table that is known here" },
          Row{ "--bogus", "x", "--bogus" }, Row{ "--socket", socket, "another agent answers here" },
          Row{ "--socket", malformed, "not a socket" } } ) {
      std::vector< std::string > arguments{ row.command, row.last };
      if( row.command != "--socket" ) {
         arguments.insert( arguments.end(), { "--socket", other } );
      }
      bool const commandLine = row.command == "--bogus" || row.last.empty();
      expectOneLine( end( *agentProcess( arguments ) ), commandLine ? 2 : 1, row.error );
      EXPECT_FALSE( std::filesystem::exists( other ) ) << row.error;
   }
   EXPECT_EQ( ok( "get --configuration /" ), before );
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
          "set /feeders/config/port[Ethernet9/1]/speed 40000", "set ~/Ethernet1/uucast/level 50",
          "set /bridging/stormControl/config/burstConfig[a/b]/burstTime 7",
          "set /bridging/stormControl/config/period 60",
          "set /feeders/config/nonAgingClient/dot1x/enable true",
          "set /feeders/config/nonAgingClient/dot1x/macEntries/02:00:00:00:00:01@10/intf Ethernet1",
          "set /sim/chip/stormControl/ppsMetering true", "del ~/Ethernet6" } ) {
      ok( change );
   }
   auto const configuration = ok( "--json get --configuration /" );
   EXPECT_EQ( configuration.find( "machines" ), std::string::npos );
   auto const saved = folder.file( "saved.json", configuration );
   auto const before = switchNow();
   ok( "apply", saved );
   EXPECT_EQ( switchNow(), before ) << "nothing to do";
   stop();
   auto const chip = R"({ "stormControl": { "bpsMetering": true, "zeroRate": true } })";
   start( { "--config", saved, "--sim", folder.file( "chip.json", chip ) } );
   EXPECT_EQ( switchNow(), before );
   EXPECT_EQ( ok( "get /sim/chip/stormControl/zeroRate" ), "true\n" ) << "the chip is --sim's";
   EXPECT_EQ( ok( "get /sim/chip/stormControl/ppsMetering" ), "false\n" );
}

TEST_F( OperatorTest, crowdsDoNotDisturb ) {
   startExample();
   std::vector< HobaAgent::Fd > crowd( 80 );
   for( auto & each : crowd ) {
      each = HobaAgent::connectTo( socket );
   }
   ok( "show lag" ); // finds room, and who was idle for the longest was told why he went
   std::string told( 200, ' ' );
   EXPECT_GT( recv( crowd[ 0 ].get(), told.data(), told.size(), 0 ), 0 );
   expectIn( told, "idle the longest" );
}

// Ports in no order, a LAG with an active member, VLANs; and rows that are broken or have no place.
char const * const imported = R"({
      "PORT": { "Ethernet10": { "speed": "10000", "admin_status": "up" },
                "Ethernet2": { "speed": "10000" }, "Ethernet1": { "speed": "10000" },
                "Ethernet4": { "speed": "fast" } },
      "PORTCHANNEL": { "PortChannel10": {}, "PortChannel9": {} },
      "PORTCHANNEL_MEMBER": { "PortChannel10|Ethernet10": {} },
      "VLAN": { "Vlan30": {}, "Vlan4": {} },
      "VLAN_MEMBER": { "Vlan30|PortChannel10": {}, "Vlan30|Ethernet1": {},
                       "Vlan30|Ethernet2": { "tagging_mode": "untagged" } },
      "PORT_STORM_CONTROL": { "Ethernet2|broadcast": { "kbps": "1000" } },
      "PORT_STORM_CONTROL|Ethernet2|bogus": { "kbps": "1000" },
      "ACL_RULE": { "A|1": {}, "A|2": {} } })";

TEST_F( OperatorTest, showsInItsOrderWhatWasImported ) {
   start( { "--config-db", folder.file( "config_db.json", imported ) } );
   expectIn( agent->out(), { "ACL_RULE: 2 rows not imported: ", "PORT|Ethernet4: speed: \"fast\"",
                             "PORT_STORM_CONTROL|Ethernet2|bogus: ", " rows imported, " } );
   EXPECT_EQ( row( "show import", "ACL_RULE|A|2" ), "not imported no such feature here" );
   EXPECT_EQ( level( "Ethernet2 broadcast" ),
              "1000 kbps 10 Gb/s - - 0 metering mode not supported" );
   expectIn( ok( "verify" ), allAsTheyShouldBe );
   expectIn( ok( "show interfaces" ),
             { "Ethernet1 ", "Ethernet2 ", "Ethernet10 ", "3 ports, 3 up\n" } );
   expectIn( ok( "show lag" ), { "Port-Channel9 ", "Port-Channel10 ", "2 LAGs\n" } );
   ok( "sim event learn Ethernet10 00:00:5e:00:53:01 30" );
   ok( "sim event learn Ethernet2 00:00:5e:00:53:02 30" );
   EXPECT_EQ( row( "show vlan", "4 active" ), "0 - -" );
   EXPECT_EQ( row( "show vlan 30", "30 active" ), "2 Ethernet2 Ethernet1, Port-Channel10" );
   expectIn( ok( "show vlan" ), { "\n   1", "\n   4", "\n  30", "\n3 VLANs\n" } );
   // Stations behind a member are behind its LAG, and found by either; by address, too.
   for( auto const * words : { "show mac port=Ethernet10", "show mac port=Port-Channel10",
                               "show mac mac=00:00:5e:00:53:01" } ) {
      EXPECT_TRUE(
            row( words, "00:00:5e:00:53:01 30" ).starts_with( "Port-Channel10 learned dynamic " ) );
      expectIn( ok( words ), "\n1 station\n" );
   }
   EXPECT_EQ( row( "show mac port=Ethernet2", "00:00:5e:00:53:01 30" ), "" );
   // People read words; programs find the enumerator.
   expectIn( ok( "--json show mac" ), "\"learnedDynamicMac\"" );
   EXPECT_EQ( row( "show version", "version:" ) + "\n", ok( "--version" ).substr( 8 ) );
   EXPECT_NE( row( "show version", "uptime:" ), "" );
}

// What bash offers when the line is typed so far.
TEST_F( OperatorTest, theShellCompletesInterfaces ) {
   start( { "--config-db", folder.file( "config_db.json", imported ) } );
   auto const tools = std::filesystem::path( HOBACTL_PATH ).parent_path().string();
   // clang-format off
   for( auto const & [ line, offered ] : std::initializer_list< std::array< std::string, 2 > >{
           { "hobactl sim link Eth", "Ethernet1 Ethernet2 Ethernet10 " },
           { "hobactl show mac port=Port", "Port-Channel9 Port-Channel10 " },
           { "hobactl show mac v", "vlan= " },
           { "hobactl show v", "version vlan " },
           { "hobactl --json sim link Ethernet1", "Ethernet1 Ethernet10 " },
           { "hobactl get /feeders/config/port/Ethernet2/s",
             "/feeders/config/port/Ethernet2/speed " },
           { "hobactl sho", "show " } } ) {
      // clang-format on
      auto const script = "PATH=" + tools +
                          ":$PATH; source " HOBA_SOURCE_DIR
                          "/agent/hobactl/completion/hobactl.bash; COMP_LINE='" +
                          line + "' COMP_POINT=" + std::to_string( line.size() ) +
                          "; _hobactl; printf '%s ' \"${COMPREPLY[@]}\"";
      auto const result = end( *run( { "/bin/bash", "-c", script } ) );
      EXPECT_EQ( result.out, offered ) << line << result.err;
   }
}

TEST_F( OperatorTest, signalsStopItCleanly ) {
   for( int number : { SIGTERM, SIGINT } ) {
      startExample();
      auto watch = tool( "watch /" );
      stop( number );
      expectOneLine( end( *watch ), 1, "agent" );
   }
   // Also while it still reads what was handed in. The file may be too short for a fast machine,
   // on which it then serves before the signal comes.
   std::string text = R"({"PORT":{"Ethernet0":{})";
   std::size_t rows = 1, wanted = 50'000;
   do {
      ASSERT_LT( wanted *= 2, 1'000'000u ) << "it goes on until it serves";
      for( ; rows != wanted; ++rows ) {
         text += ",\"Ethernet" + std::to_string( rows ) + "\":{\"speed\":\"x\"}";
      }
      agent = agentProcess( { "--config-db", folder.file( "large.json", text + "}}" ) } );
      ASSERT_TRUE( eventually( [ & ] { return std::filesystem::exists( socket ); } ) );
      stop();
   } while( agent->out().find( "serving" ) != std::string::npos );
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
