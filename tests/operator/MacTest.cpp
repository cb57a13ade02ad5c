// SPDX-License-Identifier: Apache-2.0
// Stations as an operator sees them, asks after them, brings them and has them forgotten.
#include "operator/Operator.h"

namespace HobaOperator {
namespace {

using HobaTests::expectIn;

class MacTest : public OperatorTest {
 protected:
   void startWith( std::string const & more = {} ) {
      start( { "--config", folder.file( "config.json", R"({ "/feeders/config": {
         "port": { "Ethernet1": {}, "Ethernet2": {}, "Ethernet3": {}, "Ethernet4": {}, "Ethernet5": {} },
         "lag": { "Port-Channel1": {} }, "vlan": { "10": {} } },
         "/lag/input/config": { "ethPhyIntfLagConfig": { "Ethernet5": "Port-Channel1" } })" +
                                                             more + " }" ) } );
   }
   static std::string text( std::string const & answer ) { return HobaTests::squeezed( answer ); }
};

TEST_F( MacTest, whoClaimsAStationAndWhatItWaitsFor ) {
   startWith( R"(, "/vxlan/config/vxlanConfig/Vxlan1": { "vlanVni": { "10": 1000 } },
      "/feeders/config/hwId": { "dest:17": 0 },
      "/mlag/status": { "state": "mlagActive", "peerLinkIntf": "Ethernet4" } )" );
   ok( "sim event learn Ethernet1 02:00:00:00:00:01 10" );
   ok( "sim event learn Ethernet5 02:00:00:00:00:02 10" );
   EXPECT_TRUE(
         row( "show mac", "02:00:00:00:00:01 10 Ethernet1" ).starts_with( "learned dynamic 0 " ) );
   for( auto const * only : { "port=Ethernet5", "port=Port-Channel1", "mac=02:00:00:00:00:02" } ) {
      expectIn( text( ok( std::string( "show mac " ) + only ) ),
                { "02:00:00:00:00:02 10 Port-Channel1", " 1 station ", "in all: 2 stations" } );
   }
   EXPECT_EQ( row( "show vlan", "10 active" ), "2 - -" );
   // An operator's word against a report, and against the peer's.
   ok( "set /bridging/config/fdbConfig/10/configuredHost/02:00:00:00:00:01",
       R"({"intf":"Ethernet3"})" );
   ok( "set /mlag/hostTable/hostEntry/02:00:00:00:00:01@10", R"({"intf":"Ethernet4"})" );
   expectIn( text( ok( "explain mac 02:00:00:00:00:01 10" ) ),
             { "fdbConfig Ethernet3 configured static 4097",
               "nothing is to be done: Entry is static", "in force: Ethernet3, configured static",
               "the chip holds: Ethernet3, written as" } );
   expectIn( text( ok( "show mac type=configured-static" ) ),
             { "02:00:00:00:00:01 10 Ethernet3", " 1 station " } );
   expectIn( text( ok( "show mac moves" ) ),
             { "Ethernet1 Ethernet3", "moved most: 02:00:00:00:00:01@10 (1)" } );
   // Behind the overlay, until the hardware has its next hop.
   ok( "set /l2rib/destOutput/dest/dest:17", R"({"intf":"Vxlan1","tunnelGroup":5,"nextHopId":9})" );
   ok( "set /l2rib/hostOutput/host/02:00:00:00:00:03@10", R"({"objTuple":"dest:17"})" );
   expectIn( text( ok( "show mac pending" ) ),
             { "02:00:00:00:00:03 10 hardware id", "1 change 1 for hardware id" } );
   expectIn( text( ok( "explain mac 02:00:00:00:00:03 10" ) ),
             { "l2Rib has no say: hwId missing", "in force: nothing", "withheld since" } );
   ok( "set /feeders/config/hwId/dest:17 4711" );
   expectIn( text( ok( "explain mac 02:00:00:00:00:03 10" ) ),
             { "in force: Vxlan1", "next hop 9 with hardware id 4711" } );
   expectIn( ok( "show mac pending" ), "0 changes\n" );
   expectIn( ok( "explain mac 02:00:00:00:00:09 10" ), "02:00:00:00:00:09@10: nobody claims it\n" );
   // What was set is kept by who saves it, and requests are not.
   expectIn( ok( "get --configuration /" ),
             { "dest:17: 4711", "peerLinkIntf: Ethernet4", "configuredHost" } );
   EXPECT_EQ( ok( "get --configuration /" ).find( "flush" ), std::string::npos );
   expectIn( ok( "verify" ), allAsTheyShouldBe );
}

TEST_F( MacTest, forgottenOnRequest ) {
   startWith();
   for( auto const * station :
        { "Ethernet1 02:00:00:00:00:01 10", "Ethernet2 02:00:00:00:00:02 10",
          "Ethernet2 02:00:00:00:00:03 1", "Ethernet3 02:00:00:00:00:04 1" } ) {
      ok( std::string( "sim event learn " ) + station );
   }
   auto const left = [ this ]( char const * stations ) {
      return eventually( [ & ] {
         return ok( "show mac" ).find( std::string( "\n" ) + stations ) != std::string::npos;
      } );
   };
   for( auto const & [ words, stations ] :
        std::initializer_list< std::pair< char const *, char const * > >{
              { "clear mac vlan=10 port=Ethernet2", "3 stations\n" },
              { "clear mac mac=02:00:00:00:00:03", "2 stations\n" },
              { "clear mac port=Ethernet3", "1 station\n" },
              { "clear mac", "0 stations\n" } } ) {
      ok( words );
      EXPECT_TRUE( left( stations ) ) << words;
   }
   expectIn( ok( "show mac flush" ), { "0 requests\n", "4 answered" } );
   // Another agent's stands until that agent takes it away.
   ok( "set /bridging/flush/request/agent/stp/request/one", R"({"intf":"Ethernet77"})" );
   EXPECT_TRUE( eventually(
         [ this ] { return row( "show mac flush", "stp one" ) == "- Ethernet77 - answered -"; } ) );
   ok( "del /bridging/flush/request/agent/stp/request/one" );
   expectIn( ok( "show mac flush" ), "0 requests\n" );
   for( auto const & [ words, error ] :
        std::initializer_list< std::pair< char const *, char const * > >{
              { "clear mac mac=00:00:00:00:00:00", "mac: 00:00:00:00:00:00 is no station's" },
              { "clear mac port=Ethernet77", "Ethernet77 is not a port or LAG" },
              { "clear mac port=Ethernet5",
                "port: Ethernet5 is an active member of Port-Channel1" },
              { "clear mac vlan=4095", "vlan: 4095 is not a number" },
              { "clear mac mac=02:00:00:00:00:01 port=Ethernet1",
                "port: a station is forgotten wherever" },
              { "show mac type=odd", "type: \"odd\" is not one of " },
              { "explain mac 02:00:00:00:00:01 0", "vlan: 0 is not a number" } } ) {
      expectOneLine( ctl( words ), 1, error );
   }
}

// A table that answers later: what is on its way, waits for room, has failed, or is not answered.
TEST_F( MacTest, whatIsOnItsWayToTheChip ) {
   startWith();
   expectIn( ok( "show mac programmer" ), "not in use: the MAC table is written directly" );
   for( auto const & [ words, error ] :
        std::initializer_list< std::pair< char const *, char const * > >{
              { "sim mac-table mode=late", "mode: \"late\" is not direct or indirect" },
              { "sim mac-table latency=-1", "latency: \"-1\" is not seconds, 0 or more" },
              { "sim mac-table busy=often", "busy: \"often\" is not how many of the next writes" },
              { "sim mac-table full=1.5", "full: \"1.5\" is not how many of the next writes" },
              { "set /hoba/machines/macProgrammer/updateDelay 1", "no such path" } } ) {
      expectOneLine( ctl( words ), 1, error );
   }
   expectIn( text( ok( "sim mac-table mode=indirect" ) ),
             { "mode indirect", "holds from the next restart" } );
   ok( "sim restart hitless" );
   expectIn( text( ok( "sim mac-table parity=1" ) ),
             { "parity the next 1", "WARNING: a parity answer stops the agent" } );
   ok( "sim mac-table parity=0 capacity=2 silent=1" );
   auto const configure = [ this ]( std::string const & station ) {
      ok( "set /bridging/config/fdbConfig/10/configuredHost/02:00:00:00:00:0" + station,
          R"({"intf":"Ethernet3"})" );
   };
   auto const has = [ this ]( std::string const & words, std::string const & what ) {
      return eventually( [ & ] { return text( ok( words ) ).find( what ) != std::string::npos; } );
   };
   configure( "1" );
   EXPECT_TRUE( has( "explain mac 02:00:00:00:00:01 10", "addHost not answered for" ) );
   ok( "sim mac-table failed=1" );
   configure( "2" );
   EXPECT_TRUE( has( "show mac mac=02:00:00:00:00:02", "no, addHost failed after 1 try" ) );
   configure( "3" );
   EXPECT_TRUE( has( "show mac mac=02:00:00:00:00:03", " 0 s ago yes 1 station" ) );
   configure( "4" );
   EXPECT_TRUE( has( "explain mac 02:00:00:00:00:04 10",
                     "addHost waits for room: 1 try so far, the next in" ) );
   EXPECT_TRUE( has( "show mac programmer", "overflow 1 1 " ) );
   expectIn( text( ok( "show mac programmer" ) ),
             { "4 accepted: 1 succeeded, 1 failed, 0 superseded; 0 retried, 1 stalled, 0 answers "
               "of unknown transactions",
               "overflow delay 5 s, next try in", "1 not answered: addHost 02:00:00:00:00:01@10",
               "1 failed, and not asked for anew: addHost 02:00:00:00:00:02@10" } );
   expectIn( text( ok( "show mac pending" ) ),
             { "3 changes", "1 for room in the chip", "1 for somebody to ask anew",
               "1 for the chip's answer" } );
   expectIn( ctl( "verify" ).out, "02:00:00:00:00:02@10: behind Ethernet3" );
   ok( "set /hoba/machines/macProgrammer/suspendPending true" );
   expectIn( ok( "show mac programmer" ), "suspended: nothing is written" );
   expectOneLine( ctl( "del /hoba/machines/macProgrammer/overflowAddrOp/02:00:00:00:00:04@10" ), 1,
                  "overflowAddrOp cannot be written by member" );
   // Who begins anew reads back, and writes what is not there.
   ok( "sim mac-table capacity=0" );
   ok( "sim restart hitless" );
   EXPECT_TRUE( has( "show mac programmer", "2 accepted: 2 succeeded" ) );
   expectIn( ok( "verify" ), allAsTheyShouldBe );
}

TEST_F( MacTest, tablesOfOtherSwitches ) {
   startWith();
   auto const file =
         folder.file( "a.txt", "  vlan   mac address     type    learn     age   ports\n"
                               "*  10  0200.0000.0001   dynamic  Yes   0   Te3/3\n"
                               "*  10  0200.0000.0002   dynamic  Yes   0   Gi4/6\n"
                               "*  20  0200.0000.0003    static  No    -   Router\n"
                               "*  20  0300.0000.0003    static  No    -   Te3/3,Gi4/6\n"
                               "*  21  0300.0000.0003    static  No    -   Te3/3\n" );
   expectIn( text( ok( "sim macs " + file ) ),
             { "configured 1 - -", "learnt 2 - -",
               "refused 2 a group's address is no station's line 5: 0300.0000.0003 in VLAN 20",
               "Te3/3 is Ethernet1, Gi4/6 is Ethernet2" } );
   // The same ports again, and others.
   expectIn( text( ok( "sim macs " + file ) ), { "configured already 1", "known 2" } );
   expectIn( text( ok( "sim macs " + file + " ports=Ethernet3" ) ),
             { "moved 2", "Te3/3 is Ethernet3" } );
   EXPECT_TRUE(
         row( "show mac", "02:00:00:00:00:02 10 Ethernet4" ).starts_with( "learned dynamic 1 " ) );
   EXPECT_TRUE(
         row( "show mac", "02:00:00:00:00:03 20 Cpu" ).starts_with( "configured static 0 " ) );
   auto const fdb = folder.file( "fdb.json", R"([ { "FDB_TABLE:Vlan9:02-00-00-00-00-09": {
         "port": "Ethernet0", "type": "dynamic" }, "OP": "SET" } ])" );
   expectIn( text( ok( "sim macs " + fdb ) ), { "learnt 1", "Ethernet0 is Ethernet1" } );
   for( auto const & [ words, error ] :
        std::initializer_list< std::pair< std::string, char const * > >{
              { "sim macs " + file + " ports=Ethernet4",
                "more ports than the 1 of this switch from Ethernet4 on" },
              { "sim macs " + file + " ports=Ethernet9", "ports: Ethernet9 is not a port" },
              { "sim macs " + folder.file( "none", "nothing\n" ), "not a MAC table" },
              { "sim macs " + folder.file( "bad.json", "[ {" ), "line 1, column 4" },
              { "import " + file, "a MAC table is no configuration: sim macs takes it" },
              { "import " + fdb, "a MAC table is no configuration: sim macs takes it" } } ) {
      expectOneLine( ctl( words ), 1, error );
   }
   ok( "sim restart hitless" );
   EXPECT_TRUE(
         row( "show mac", "02:00:00:00:00:02 10 Ethernet4" ).starts_with( "learned dynamic 1 " ) );
}

} // namespace
} // namespace HobaOperator
