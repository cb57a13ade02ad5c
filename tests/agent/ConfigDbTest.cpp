// SPDX-License-Identifier: Apache-2.0
// What an operator's file becomes, and what the operator is told about the rest.

#include "agent/import/ConfigDb.h"
#include "Helpers.h"
#include "Tessera/Database.h"
#include "agent/common/Json.h"
#include "agent/features/Features.h"
#include "chips/sim/SimChip.h"

#include <algorithm>

namespace {

using namespace Bridging::StormControl;
using Import::Report;
using Kiv::Datum;

using Lines = std::vector< std::string >;

using eth = Pelt::EthIntfId;
using lag = Pelt::PortChannelIntfId;

Lines
allLines( Report const & report ) {
   Lines all;
   std::ranges::transform( report.lines, std::back_inserter( all ), &Import::ReportLine::text );
   return all;
}

class ConfigDbTest : public testing::Test {
 protected:
   Report import( Datum const & file ) const { return Import::importConfiguration( file, tables ); }
   Report importText( std::string_view text ) const {
      return import( HobaAgent::parseJson( text ) );
   }
   // The lines of one kind.
   static Lines lines( Report report, Import::LineKind kind ) {
      std::erase_if( report.lines, [ & ]( auto const & line ) { return line.kind != kind; } );
      return allLines( report );
   }
   // All that is configured.
   std::string configured() const {
      return HobaAgent::jsonText( database.get( "/", Tessera::Scope::configuration ) );
   }

   Tessera::Database database;
   HobaAgent::Commands commands;
   HobaAgent::Features features{ database, commands, Kiv::make< HobaSim::Chip >(),
                                 []( std::string const & ) {} };
   Import::Tables & tables = features.imports().tables();
   Kiv::Ptr< Feeders::Config > const feeders = features.board().feederConfig;
   Kiv::Ptr< Lag::Input::Config > const lagInput = features.board().lagInputConfig;
};

constexpr std::string_view wholeFile = R"({
   "PORT_STORM_CONTROL": {
      "Ethernet0|broadcast": { "kbps": "10000" },
      "PortChannel0003|unknown-unicast": { "kbps": 20000 },
      "Ethernet0|unknown-multicast": { "kbps": "30000" }
   },
   "ACL_RULE": { "A|1": {}, "A|2": {} },
   "PORT": {
      "Ethernet0": { "speed": "40000", "admin_status": "up", "lanes": "65", "mtu": "9100" },
      "Ethernet4": { "speed": "11100", "admin_status": "down", "lanes": "66" },
      "Ethernet8": { "NULL": "NULL" }
   },
   "PORTCHANNEL": {
      "PortChannel0003": { "admin_status": "down", "min_links": "2", "fallback": "True",
                           "mode": "trunk" },
      "PortChannel11001": { "admin_status": "up", "min_links": "1025" }
   },
   "PORTCHANNEL_MEMBER": { "PortChannel3|Ethernet8": {} },
   "VLAN": { "Vlan100": { "vlanid": "100", "admin_status": "up" } },
   "VLAN_MEMBER": {
      "Vlan100|Ethernet0": { "tagging_mode": "untagged" },
      "Vlan100|PortChannel0003": { "tagging_mode": "untagged" }
   },
   "PBH_TABLE": { "t": { "interface_list": [ "Ethernet0" ] } }
})";

TEST_F( ConfigDbTest, aFileBecomesConfiguration ) {
   // clang-format off
   std::pair< char const *, char const * > const expected[] = {
      { "/feeders/config/port/Ethernet0", R"({"speed":40000,"enabled":true,"linkUp":true})" },
      { "/feeders/config/port/Ethernet4", R"({"speed":0,"enabled":false,"linkUp":true})" },
      { "/feeders/config/port/Ethernet8", R"({"speed":0,"enabled":true,"linkUp":true})" },
      { "/feeders/config/lag/Port-Channel3", R"({"enabled":false,"minLinks":2,"kind":"lagTypeLacp",)"
                                     R"("lacpPartner":true,"lacpFallback":true})" },
      { "/lag/input/config", R"({"ethPhyIntfLagConfig":{"Ethernet8":"Port-Channel3"}})" },
      { "/feeders/config/vlan/100/member", R"(["Ethernet0","Port-Channel3"])" },
      { "/feeders/config/switchIntf", R"({"Port-Channel3":{"switchportMode":"switchportModeTrunk",)"
                               R"("nativeVlan":100,"enableLearning":true},)"
                               R"("Ethernet0":{"switchportMode":"switchportModeAccess",)"
                               R"("nativeVlan":100,"enableLearning":true}})" },
      { "/bridging/stormControl/config/intfConfig/Ethernet0/broadcast",
        R"({"mode":"meteringBps","level":0,"rate":10000,"unit":"unitKbps"})" },
      { "/bridging/stormControl/config/intfConfig/Ethernet0/uucast/level", "10000" }, // no limit
      { "/bridging/stormControl/config/intfConfig/Port-Channel3/uucast/rate", "20000" },
   };
   // clang-format on
   for( auto const * when : { "first", "again" } ) {
      importText( wholeFile );
      for( auto const & [ path, json ] : expected ) {
         EXPECT_EQ( HobaAgent::jsonText( database.get( path ) ), json ) << when;
      }
      EXPECT_EQ( feeders->port().size() + feeders->lag().size(), 3u + 2u );
   }
}

TEST_F( ConfigDbTest, theReportNamesEverything ) {
   auto const report = importText( wholeFile );
   // clang-format off
   EXPECT_EQ( lines( report, Import::imported ), ( Lines{
         "PORT|Ethernet0: port Ethernet0, up, speed 40000 Mb/s",
         "PORT|Ethernet4: port Ethernet4, down, speed unknown",
         "PORT|Ethernet8: port Ethernet8, up, speed unknown",
         "PORTCHANNEL|PortChannel0003: LACP LAG Port-Channel3, down, min links 2, with fallback, "
         "trunk",
         "PORTCHANNEL|PortChannel11001: LACP LAG Port-Channel11001, up, min links 1025",
         "PORTCHANNEL_MEMBER|PortChannel3|Ethernet8: Ethernet8 in Port-Channel3",
         "VLAN|Vlan100: VLAN 100, up",
         "VLAN_MEMBER|Vlan100|Ethernet0: Ethernet0 carries VLAN 100, untagged",
         "VLAN_MEMBER|Vlan100|PortChannel0003: Port-Channel3 carries VLAN 100, untagged",
         "PORT_STORM_CONTROL|Ethernet0|broadcast: Ethernet0 lets in 10000 kbps of broadcast",
         "PORT_STORM_CONTROL|PortChannel0003|unknown-unicast: "
         "Port-Channel3 lets in 20000 kbps of unknown-unicast" } ) );
   EXPECT_EQ( lines( report, Import::remark ), ( Lines{
         "PORT|Ethernet4: speed 11100 Mb/s is not an Ethernet speed; taken as unknown",
         "PORT|Ethernet8: no admin_status; taken as up",
         "PORTCHANNEL|PortChannel11001: min_links 1025 is more than the 1024 that files of this "
         "shape may ask for",
         "PORTCHANNEL|PortChannel11001: the names of files of this shape end at PortChannel9999"
         } ) );
   EXPECT_EQ( lines( report, Import::refused ), Lines{
         "PORT_STORM_CONTROL|Ethernet0|unknown-multicast: unknown-multicast is not a level of this "
         "system" } );
   EXPECT_EQ( lines( report, Import::notImported ), ( Lines{
         "PORT: no such attribute here: lanes (2 rows), mtu (1 row)",
         "ACL_RULE|A|1: no such feature here", "ACL_RULE|A|2: no such feature here",
         "PBH_TABLE|t: no such feature here" } ) );
   // clang-format on
   EXPECT_EQ( report.summary(), "11 rows imported, 1 refused, 4 remarks, 3 not imported" );
}

// Some files have their rows side by side, "TABLE|key", all of them or a few.
TEST_F( ConfigDbTest, rowsMayStandByThemselves ) {
   auto const file = HobaAgent::parseJson( wholeFile );
   import( file ); // of what is there nothing need be assumed
   auto const expected = allLines( import( file ) );
   for( std::ptrdiff_t const few : { 0, 1, 2, 100 } ) {
      Datum::Object flat;
      for( auto const & [ table, rows ] : *file.as< Datum::Object >() ) {
         auto const & all = *rows.as< Datum::Object >();
         auto const rest = all.begin() + std::min( few, std::ssize( all ) );
         if( few ) {
            flat.emplace_back( table, Datum::Object( all.begin(), rest ) );
         }
         for( auto row = rest; row != all.end(); ++row ) {
            flat.emplace_back( table + '|' + row->first, row->second );
         }
      }
      EXPECT_EQ( allLines( import( flat ) ), expected ) << few;
   }
   EXPECT_EQ( allLines( importText( R"({ "PORT|Ethernet9": { "admin_status": "up" },
                                         "PORT": { "Ethernet9": {} }, "PORT|": 7 })" ) ),
              ( Lines{ "PORT|Ethernet9: port Ethernet9, up, speed unknown",
                       "PORT|Ethernet9: Ethernet9 is in this table already, as Ethernet9",
                       "PORT: a number is not a row: an object of fields is expected" } ) );
}

TEST_F( ConfigDbTest, theDigestIsShortWhateverTheFileHolds ) {
   Datum ports( Datum::Object{} ), rules( Datum::Object{} );
   for( int i = 0; i != 1000; ++i ) {
      auto const n = std::to_string( i );
      ports.add( "Ethernet" + n, Datum::Object{ { "speed", "x" + n } } );
      rules.add( "A|" + n, Datum::Object{} );
   }
   std::string const wide( 10'000'000, 'E' );
   Datum::Object file{ { "PORT", ports },
                       { "PORTCHANNEL", Datum::Object{ { wide, Datum::Object{} } } },
                       { "ACL_RULE", rules },
                       { wide, Datum::Object{} } };
   auto const report = import( file );
   EXPECT_EQ( lines( report, Import::refused ).size(), 1001u ) << "every row is in the report";
   EXPECT_EQ( lines( report, Import::notImported ).size(), 1001u );
   Lines expected{ "ACL_RULE: 1000 rows not imported: no such feature here",
                   std::string( 100, 'E' ) + "...: no such feature here" };
   for( std::string const n : { "0", "1", "2", "3", "4" } ) {
      expected.push_back( "PORT|Ethernet" + n + ": speed: \"x" + n +
                          "\" is not a number from 0 to 4294967295" );
   }
   expected.push_back(
         "PORT: 995 more rows refused, each for a reason of its own: see hobactl show import" );
   auto digest = report.digest();
   EXPECT_TRUE( digest.back().starts_with( "PORTCHANNEL|" + std::string( 100, 'E' ) + "...: " ) );
   digest.pop_back();
   EXPECT_EQ( digest, expected );
   EXPECT_EQ( report.digest( "PORT" ), Lines( expected.begin() + 2, expected.end() ) );
   for( auto const & line : allLines( report ) ) {
      EXPECT_LT( line.size(), 400u );
   }
   // What is the same is said once, and the rest counted.
   EXPECT_EQ( importText( R"({ "VLAN": { "Vlan3": { "a\nb": 1 }, "Vlan2": {} } })" ).digest(),
              ( Lines{ "VLAN: no such attribute here: a?b (1 row)",
                       "VLAN|Vlan3: no admin_status; taken as up (and 1 more row of VLAN)" } ) );
   for( int i = 0; i != 100; ++i ) {
      file.emplace_back( "T" + std::to_string( i ), Datum::Object{} );
   }
   EXPECT_EQ( import( file ).digest().size(), 60u + 1 + 7 );
}

// Each file is whole but for one row, which is refused for the reason given; the rows around it are
// taken.
TEST_F( ConfigDbTest, aBadRowIsRefusedAlone ) {
   std::string const others = R"({ "PORT": { "Ethernet1": {}, "Ethernet2": {} },
         "PORTCHANNEL": { "PortChannel3": {}, "PortChannel4": {} }, "VLAN": { "Vlan5": {} },
         "PORTCHANNEL_MEMBER": { "PortChannel3|Ethernet1": {} }, ")";
   struct Case {
      std::string row;
      char const * why; // its beginning
      char const * fields = "{}";
   };
   // clang-format off
   Case const cases[] = {
      { "PORT|Vlan7", "\"Vlan7\" is not the name of an Ethernet interface" },
      { "PORT|", "\"\" is not the name of an Ethernet interface" },
      { "PORT|Ethernet01", "Ethernet1 is in this table already, as Ethernet1" },
      { "PORT|Ethernet9", "speed: \"4294967296\" is not a number", R"({"speed":"4294967296"})" },
      { "PORT|Ethernet9", "speed: a list is not a string", R"({"speed":["10000"]})" },
      { "PORT|Ethernet9", "admin_status: \"on\" is not up or down", R"({"admin_status":"on"})" },
      { "PORT|Ethernet9", "a list is not a row: an object of fields is expected", "[]" },
      { "PORTCHANNEL|Ethernet9", "\"Ethernet9\" is not the name of a port channel" },
      { "PORTCHANNEL|PortChannel0003", "Port-Channel3 is in this table already, as PortChannel3" },
      { "PORTCHANNEL|PortChannel9", "min_links: \"65536\" is not a", R"({"min_links":"65536"})" },
      { "PORTCHANNEL_MEMBER|PortChannel4",
        "\"PortChannel4\" is not a key of the form PortChannel<n>|Ethernet<n>" },
      { "PORTCHANNEL_MEMBER|PortChannel4|Ethernet9",
        "Ethernet9 is neither in this system nor in a row of PORT that was taken" },
      { "PORTCHANNEL_MEMBER|PortChannel9|Ethernet2",
        "PortChannel9 is neither in this system nor in a row of PORTCHANNEL that was taken" },
      { "PORTCHANNEL_MEMBER|PortChannel4|Ethernet1", "Ethernet1 is a member of Port-Channel3" },
      { "PORTCHANNEL_MEMBER|PortChannel0003|Ethernet1",
        "Port-Channel3|Ethernet1 is in this table already, as PortChannel3|Ethernet1" },
      { "VLAN|Vlan4095", "4095 is not a number from 1 to 4094" },
      { "VLAN|Vlan7", "vlanid: 8 is not the number of Vlan7", R"({"vlanid":"8"})" },
      { "VLAN_MEMBER|Vlan9|Ethernet2", "Vlan9 is neither in this system nor in a row of VLAN" },
      { "VLAN_MEMBER|Vlan5|Ethernet1", "Ethernet1 is a member of Port-Channel3, which carries" },
      { "VLAN_MEMBER|Vlan5", "\"Vlan5\" is not a key of the form Vlan<n>|<port or LAG>" },
      { "VLAN_MEMBER|Vlan5|Ethernet2", "tagging_mode: \"both\" is not tagged or untagged",
        R"({"tagging_mode":"both"})" },
      { "PORT_STORM_CONTROL|Ethernet9|broadcast",
        "Ethernet9 is neither in this system nor in a row of PORT or PORTCHANNEL that was taken" },
      { "PORT_STORM_CONTROL|Vlan5|broadcast", "Vlan5 is neither in this system" },
      { "PORT_STORM_CONTROL|Ethernet1|xyz", "storm_type: \"xyz\" is not one of broadcast, un" },
      { "PORT_STORM_CONTROL|Ethernet1|broadcast|x",
        "\"Ethernet1|broadcast|x\" is not a key of the form <port or LAG>|<storm_type>" },
      { "PORT_STORM_CONTROL|Ethernet1|broadcast", "the field kbps is missing" },
      { "PORT_STORM_CONTROL|Ethernet1|broadcast", "kbps: \"0.5\" is not a", R"({"kbps":0.5})" },
   };
   // clang-format on
   importText( others + "OTHER|x\": {} }" );
   auto const without = configured();
   for( auto const & c : cases ) {
      SCOPED_TRACE( c.row + ' ' + c.fields );
      auto const report = importText( others + c.row + "\": " + c.fields + " }" );
      auto const refused = lines( report, Import::refused );
      ASSERT_EQ( refused.size(), 1u );
      auto const row = c.row == "PORT|" ? "PORT" : c.row;
      EXPECT_TRUE( refused[ 0 ].starts_with( row + ": " + c.why ) ) << refused[ 0 ];
      EXPECT_EQ( report.count( Import::imported ), 6u );
      EXPECT_EQ( configured(), without );
   }
}

TEST_F( ConfigDbTest, rowsMayReferToWhatIsThere ) {
   feeders->portIs( eth( 1 ) );
   feeders->portIs( eth( 2 ) );
   feeders->lagIs( lag( 3 ) );
   feeders->lagIs( lag( 4 ) );
   lagInput->ethPhyIntfLagConfigIs( eth( 1 ), lag( 3 ) );
   auto const report = importText( R"({
      "PORTCHANNEL_MEMBER": { "PortChannel4|Ethernet1": {}, "PortChannel3|Ethernet1": {},
                              "PortChannel4|Ethernet2": {} },
      "PORT_STORM_CONTROL": { "Ethernet2|broadcast": { "kbps": "0" } }
   })" );
   EXPECT_EQ( lines( report, Import::refused ),
              Lines{ "PORTCHANNEL_MEMBER|PortChannel4|Ethernet1: Ethernet1 is a member of "
                     "Port-Channel3 already" } );
   EXPECT_EQ( report.count( Import::imported ), 3u );
}

TEST_F( ConfigDbTest, pairsOfSwitchesOverlaysAndGateways ) {
   auto const report = importText( R"({
      "PORTCHANNEL": { "PortChannel1": { "admin_status": "up" }, "PortChannel2": { "admin_status": "up" } },
      "VLAN": { "Vlan10": { "admin_status": "up" }, "Vlan20": { "admin_status": "up" } },
      "MCLAG_DOMAIN": { "5": { "peer_link": "PortChannel1" }, "6": {}, "4096": {} },
      "MCLAG_INTERFACE": { "5|PortChannel2": { "if_type": "PortChannel" }, "5|PortChannel1": {},
                           "6|PortChannel2": {}, "5|PortChannel3": {} },
      "VXLAN_TUNNEL": { "vtep7": {}, "tunnel": {}, "vtep07": {}, "vtep99999": {} },
      "VXLAN_TUNNEL_MAP": { "vtep7|map_1000_Vlan10": { "vlan": "Vlan10", "vni": "1000" },
                            "tunnel|a": { "vlan": "Vlan20", "vni": "1000" },
                            "tunnel|b": { "vlan": "Vlan30", "vni": "1001" },
                            "vtep8|c": { "vlan": "Vlan20", "vni": "1001" },
                            "tunnel|d": { "vlan": "Vlan20", "vni": "0" } },
      "SAG": { "GLOBAL": { "gateway_mac": "00:00:5e:00:53:fe" }, "Vlan30": {}, "IP": {},
               "Vlan20": { "gateway_mac": "01:00:5e:00:00:01" } }
   })" );
   EXPECT_EQ(
         lines( report, Import::refused ),
         ( Lines{ "MCLAG_DOMAIN|6: domain 5 is there, and a switch is in one",
                  "MCLAG_DOMAIN|4096: \"4096\" is not a number from 1 to 4095",
                  "MCLAG_INTERFACE|5|PortChannel1: Port-Channel1 is the link to the peer",
                  "MCLAG_INTERFACE|6|PortChannel2: 6 is neither in this system nor in a row of "
                  "MCLAG_DOMAIN that was taken",
                  "MCLAG_INTERFACE|5|PortChannel3: PortChannel3 is neither in this system nor in "
                  "a row of PORTCHANNEL that was taken",
                  "SAG|Vlan30: Vlan30 is neither in this system nor in a row of VLAN that was "
                  "taken",
                  "SAG|IP: \"IP\" is not GLOBAL or Vlan<n>",
                  "SAG|Vlan20: gateway_mac: 01:00:5e:00:00:01 is no station's address",
                  "VXLAN_TUNNEL|vtep07: Vxlan7 is in this table already, as vtep7",
                  "VXLAN_TUNNEL|vtep99999: 99999 is no number of an interface name \"Vxlan...\": a "
                  "number from 0 to 65535 is expected",
                  "VXLAN_TUNNEL_MAP|tunnel|a: vni: 1000 is taken by Vxlan7|map_1000_Vlan10",
                  "VXLAN_TUNNEL_MAP|tunnel|b: vlan: Vlan30 is neither in this system nor in a "
                  "row of VLAN that was taken",
                  "VXLAN_TUNNEL_MAP|vtep8|c: vtep8 is neither in this system nor in a row of "
                  "VXLAN_TUNNEL that was taken",
                  "VXLAN_TUNNEL_MAP|tunnel|d: vni: 0 is not a number from 1 to 16777215" } ) );
   auto const at = [ this ]( char const * path ) {
      return HobaAgent::jsonText( database.get( path ) );
   };
   EXPECT_EQ( at( "/mlag/status/peerLinkIntf" ), "\"Port-Channel1\"" );
   EXPECT_EQ( at( "/mlag/status/mlagIntf" ), R"({"Port-Channel2":"mlagIntfActiveFull"})" );
   EXPECT_EQ( at( "/vxlan/config/vxlanConfig/Vxlan7/vlanVni" ), R"({"10":1000})" );
   EXPECT_EQ( database.entries( "/hoba/routerMac/routerMac" ).size(), 3u ); // in VLAN 1, too
   // What others refer to stays, until these are gone.
   auto const del = []( std::string const & row ) {
      return "{ \"" + row + R"(": {}, "OP": "DEL" })";
   };
   auto const gone = importText(
         '[' + del( "VXLAN_TUNNEL:vtep7" ) + ',' + del( "VLAN:Vlan10" ) + ',' +
         del( "MCLAG_DOMAIN:5" ) + ',' + del( "PORTCHANNEL:PortChannel1" ) + ',' +
         del( "VXLAN_TUNNEL_MAP:vtep7:map_1000_Vlan10" ) + ',' + del( "VXLAN_TUNNEL:vtep7" ) + ',' +
         del( "MCLAG_INTERFACE:5:PortChannel2" ) + ',' + del( "MCLAG_DOMAIN:5" ) + ',' +
         del( "PORTCHANNEL:PortChannel1" ) + ',' + del( "SAG:GLOBAL" ) + ']' );
   EXPECT_EQ(
         lines( gone, Import::refused ),
         ( Lines{ "VXLAN_TUNNEL:vtep7: VXLAN_TUNNEL_MAP|Vxlan7|map_1000_Vlan10 refers to it, so "
                  "it stays",
                  "VLAN:Vlan10: VXLAN_TUNNEL_MAP|Vxlan7|map_1000_Vlan10 refers to it, so it stays",
                  "MCLAG_DOMAIN:5: MCLAG_INTERFACE|5|Port-Channel2 refers to it, so it stays",
                  "PORTCHANNEL:PortChannel1: MCLAG_DOMAIN|5 refers to it, so it stays",
                  "SAG:GLOBAL: rows of SAG cannot be deleted" } ) );
   EXPECT_EQ( at( "/mlag/status/state" ), "\"mlagDisabled\"" );
}

TEST_F( ConfigDbTest, whatIsNoTableIsSaid ) {
   std::string const known = "not a configuration with a table that is known here: expected one of "
                             "PORT, PORTCHANNEL, PORTCHANNEL_MEMBER, VLAN, VLAN_MEMBER, "
                             "MCLAG_DOMAIN, MCLAG_INTERFACE, SAG, VXLAN_TUNNEL, VXLAN_TUNNEL_MAP, "
                             "PORT_STORM_CONTROL; there ";
   for( auto const & [ text, error ] : std::vector< std::pair< std::string, std::string > >{
              { "null", "nothing is not a configuration: an object of tables, or a list of "
                        "operations, is expected" },
              { "{}", known + "is nothing" },
              { R"({ "PORT_TABLE": {}, "PORT:Ethernet0": {}, "PORT_TABLE|Ethernet0": {} })",
                known + "are PORT_TABLE, PORT:Ethernet0" },
              { R"({ "192.0.2.0/26": [], "b": 1, "c": 1, "d": 1, "e": 1, "f": 1, "g": 1 })",
                known + "are 192.0.2.0/26, b, c, d, e and 2 more" } } ) {
      EXPECT_EQ(
            HobaTests::errorOf< Kiv::ParseError >( [ &, &json = text ] { importText( json ); } ),
            error );
   }
   EXPECT_EQ( allLines( importText( R"({ "PORT": [ 1 ], "NOTES": "none", "ODD\nNAME": {},
                                        "VLAN": { "Vlan1": { "admin_status": "up" } } })" ) ),
              ( Lines{ "PORT: a list is not a table: an object of rows is expected",
                       "VLAN|Vlan1: VLAN 1, up",
                       "NOTES: no such feature here, and a string is not a table",
                       "ODD?NAME: no such feature here" } ) );
}

// Each operation of one file, and the line that is said of it.
TEST_F( ConfigDbTest, operationsAreTakenInTheirOrder ) {
   auto const before = configured();
   std::pair< char const *, char const * > const operations[] = {
         { R"("PORT_TABLE:Ethernet1": { "admin_status": "up" }, "OP": "SET")",
           "PORT:Ethernet1: port Ethernet1, up, speed unknown" },
         { R"("PORT|Ethernet2": { "admin_status": "up", "mode": "trunk" }, "OP": "SET")",
           "PORT|Ethernet2: port Ethernet2, up, speed unknown, trunk" },
         { R"("OP": "SET", "PORTCHANNEL:PortChannel0003": { "admin_status": "up" })",
           "PORTCHANNEL:PortChannel0003: LACP LAG Port-Channel3, up, min links 0" },
         { R"("PORTCHANNEL_MEMBER:PortChannel3:Ethernet1": { "NULL": "NULL" }, "OP": "SET")",
           "PORTCHANNEL_MEMBER:PortChannel3:Ethernet1: Ethernet1 in Port-Channel3" },
         { R"("VLAN:Vlan5": { "admin_status": "up" }, "OP": "SET")", "VLAN:Vlan5: VLAN 5, up" },
         { R"("VLAN_MEMBER:Vlan5:PortChannel3": { "tagging_mode": "tagged" }, "OP": "SET")",
           "VLAN_MEMBER:Vlan5:PortChannel3: Port-Channel3 carries VLAN 5" },
         { R"("PORT_STORM_CONTROL:Ethernet2:broadcast": { "kbps": "7" }, "OP": "SET")",
           "PORT_STORM_CONTROL:Ethernet2:broadcast: Ethernet2 lets in 7 kbps of broadcast" },
         // What others refer to stays.
         { R"("PORT:Ethernet1": {}, "OP": "DEL")",
           "PORT:Ethernet1: PORTCHANNEL_MEMBER|Port-Channel3|Ethernet1 refers to it, so it stays" },
         { R"("PORT:Ethernet2": {}, "OP": "DEL")",
           "PORT:Ethernet2: PORT_STORM_CONTROL|Ethernet2|broadcast refers to it, so it stays" },
         { R"("PORTCHANNEL:PortChannel3": {}, "OP": "DEL")",
           "PORTCHANNEL:PortChannel3: PORTCHANNEL_MEMBER|Port-Channel3|Ethernet1 refers to it, "
           "so it stays" },
         { R"("VLAN:Vlan5": {}, "OP": "DEL")",
           "VLAN:Vlan5: VLAN_MEMBER|Vlan5|Port-Channel3 refers to it, so it stays" },
         // What is not there, or no operation.
         { R"("PORT:Ethernet9": {}, "OP": "DEL")", "PORT:Ethernet9: there is none to delete" },
         { R"("PORT:": {}, "OP": "DEL")", "PORT: \"\" is not the name of an Ethernet interface" },
         { R"("PORT_STORM_CONTROL:Ethernet1:broadcast": {}, "OP": "DEL")",
           "PORT_STORM_CONTROL:Ethernet1:broadcast: there is none to delete" },
         { R"("VLAN_MEMBER:Vlan5:Ethernet2": {}, "OP": "DEL")",
           "VLAN_MEMBER:Vlan5:Ethernet2: there is none to delete" },
         { R"("PORTCHANNEL_MEMBER:PortChannel4:Ethernet1": {}, "OP": "DEL")",
           "PORTCHANNEL_MEMBER:PortChannel4:Ethernet1: there is none to delete" },
         { R"("VLAN_MEMBER:Vlan5:Ethernet2:7": {}, "OP": "SET")",
           "VLAN_MEMBER:Vlan5:Ethernet2:7: \"Ethernet2:7\" is not an interface name: \"/\", "
           "\".\" or the end of the name is expected after \"Ethernet2\"" },
         { R"("PORT:Ethernet2": [], "OP": "DEL")",
           "PORT:Ethernet2: a list is not a row: an object of fields is expected" },
         { R"("PORT:Ethernet2": {}, "OP": "set")",
           "PORT:Ethernet2: OP: \"set\" is not SET or DEL" },
         { R"("PORT:Ethernet2": {}, "OP": 1)", "PORT:Ethernet2: OP: a number is not SET or DEL" },
         { R"("ACL_RULE_TABLE:a:b": {}, "OP": "DEL")", "ACL_RULE_TABLE:a:b: no such feature here" },
         { R"("PORT:Ethernet2": {})", "operation 22: OP is missing, SET or DEL" },
         { R"("OP": "SET")", "operation 23: there is no row" },
         { R"("PORT:Ethernet2": {}, "VLAN:Vlan5": {}, "OP": "DEL")",
           "operation 24: one operation is about one row; there are PORT:Ethernet2, VLAN:Vlan5" },
         { R"("PORT": {}, "OP": "DEL")",
           "operation 25: \"PORT\" is not the name of a row: TABLE:key is expected" },
         // From the last to the first, and once more.
         { R"("PORT_STORM_CONTROL:Ethernet2:broadcast": { "kbps": "8" }, "OP": "DEL")",
           "PORT_STORM_CONTROL:Ethernet2:broadcast: limit of broadcast on Ethernet2" },
         { R"("VLAN_MEMBER:Vlan5:PortChannel0003": {}, "OP": "DEL")",
           "VLAN_MEMBER:Vlan5:PortChannel0003: VLAN 5 on Port-Channel3" },
         { R"("PORTCHANNEL_MEMBER:PortChannel3:Ethernet1": {}, "OP": "DEL")",
           "PORTCHANNEL_MEMBER:PortChannel3:Ethernet1: Ethernet1 in Port-Channel3" },
         { R"("VLAN:Vlan5": {}, "OP": "DEL")", "VLAN:Vlan5: VLAN 5" },
         { R"("LAG_TABLE:PortChannel3": {}, "OP": "DEL")",
           "LAG_TABLE:PortChannel3: no such feature here" },
         { R"("PORTCHANNEL:PortChannel3": {}, "OP": "DEL")",
           "PORTCHANNEL:PortChannel3: LAG Port-Channel3, its switchport mode" },
         { R"("PORT:Ethernet2": {}, "OP": "DEL")",
           "PORT:Ethernet2: port Ethernet2, its switchport mode" },
         { R"("PORT:Ethernet1": {}, "OP": "DEL")", "PORT:Ethernet1: port Ethernet1" },
         { R"("PORT:Ethernet1": { "admin_status": "down" }, "OP": "SET")",
           "PORT:Ethernet1: port Ethernet1, down, speed unknown" },
         // What a row does not say stays.
         { R"("PORT:Ethernet1": { "speed": "10000" }, "OP": "SET")",
           "PORT:Ethernet1: port Ethernet1, down, speed 10000 Mb/s" },
         { R"("PORT:Ethernet1": { "admin_status": "up" }, "OP": "SET")",
           "PORT:Ethernet1: port Ethernet1, up, speed 10000 Mb/s" },
         { R"("PORT:Ethernet1": {}, "OP": "DEL")", "PORT:Ethernet1: port Ethernet1" },
   };
   std::string file = "[ ";
   Lines expected;
   for( auto const & [ operation, line ] : operations ) {
      file += "{ " + std::string( operation ) + " }, ";
      expected.push_back( line );
   }
   auto const report = importText( file + "7 ]" );
   expected.push_back( "operation 38: a number is not an operation: an object of one row and OP "
                       "is expected" );
   EXPECT_EQ( allLines( report ), expected );
   EXPECT_EQ( configured(), before );
   EXPECT_EQ( report.summary(),
              "10 rows imported, 8 removed, 18 refused, 0 remarks, 2 not imported" );
   EXPECT_EQ( importText( "[]" ).summary(),
              "0 rows imported, 0 refused, 0 remarks, 0 not imported" );
}

// Of frames without a tag there is one truth: the native VLAN.
TEST_F( ConfigDbTest, membersOfVlans ) {
   importText( R"({ "PORT": { "Ethernet1": {} }, "VLAN": { "Vlan5": {}, "Vlan6": {} } })" );
   auto const refused = [ & ]( std::string const & what ) {
      auto const all = lines( importText( "[ { " + what + " } ]" ), Import::refused );
      return all.empty() ? "" : all[ 0 ].substr( all[ 0 ].find( ": " ) + 2 );
   };
   // What is done, what it is refused for, and what becomes of the port.
   struct Step {
      char const * operation;
      char const * refused;
      Bridging::SwitchportMode mode;
      std::uint16_t native;
   };
   using namespace Bridging;
   for( auto const & [ operation, why, mode, native ] : {
              Step{ R"("VLAN_MEMBER:Vlan5:Ethernet1": { "tagging_mode": "untagged" }, "OP": "SET")",
                    "", switchportModeAccess, 5 },
              Step{ R"("VLAN_MEMBER:Vlan5:Ethernet1": {}, "OP": "SET")", "", switchportModeAccess,
                    5 },
              Step{ R"("VLAN_MEMBER:Vlan6:Ethernet1": { "tagging_mode": "untagged" }, "OP": "SET")",
                    "Ethernet1 carries VLAN 5 untagged already", switchportModeAccess, 5 },
              Step{ R"("VLAN_MEMBER:Vlan6:Ethernet1": {}, "OP": "SET")", "", switchportModeTrunk,
                    5 },
              // A mode that could not carry them is not taken.
              Step{ R"("PORT:Ethernet1": { "mode": "access" }, "OP": "SET")", "",
                    switchportModeTrunk, 5 },
              Step{ R"("VLAN_MEMBER:Vlan5:Ethernet1": { "tagging_mode": "tagged" }, "OP": "SET")",
                    "", switchportModeTrunk, 0 },
              Step{ R"("VLAN_MEMBER:Vlan6:Ethernet1": { "tagging_mode": "untagged" }, "OP": "SET")",
                    "", switchportModeTrunk, 6 },
              Step{ R"("VLAN_MEMBER:Vlan5:Ethernet1": {}, "OP": "DEL")", "", switchportModeTrunk,
                    6 },
              Step{ R"("PORT:Ethernet1": { "mode": "access" }, "OP": "SET")", "",
                    switchportModeAccess, 6 },
              Step{ R"("VLAN_MEMBER:Vlan6:Ethernet1": {}, "OP": "DEL")", "", switchportModeAccess,
                    0 },
              Step{ R"("PORT:Ethernet1": { "mode": "routed" }, "OP": "SET")", "",
                    switchportModeRouted, 0 },
              Step{ R"("VLAN_MEMBER:Vlan6:Ethernet1": {}, "OP": "SET")",
                    "Ethernet1 is routed, and carries no VLAN", switchportModeRouted, 0 },
        } ) {
      SCOPED_TRACE( operation );
      EXPECT_EQ( refused( operation ), why );
      EXPECT_EQ( feeders->switchportMode( eth( 1 ) ), mode );
      EXPECT_EQ( feeders->nativeVlan( eth( 1 ) ).value(), native );
   }
}

// A table whose rows have a list, and may have nothing that is not known.
TEST_F( ConfigDbTest, strictTablesAndLists ) {
   std::string taken;
   tables.add( { .name = "GROUP",
                 .refersTo = { { "PORT" }, { "PORTCHANNEL" }, { "ELSEWHERE" } },
                 .strict = true,
                 .map = [ & ]( Import::Row & row ) {
                    auto const ports = row.list( "ports", [ & ]( std::string const & name ) {
                       return row.existing< Pelt::IntfId >( name, { "PORT", "PORTCHANNEL" } );
                    } );
                    auto const level = row.value< std::uint16_t >( "level" );
                    auto const text = ports ? Kiv::toText( *ports ) : "none";
                    row.operationIs( "group", [ &, text ] { taken = text; } );
                    row.remark( level ? "level " + Kiv::toText( *level ) : "no level" );
                 } } );
   importText( R"({ "PORT": { "Ethernet1": {} }, "PORTCHANNEL": { "PortChannel2": {} } })" );
   std::string const missing = " is neither in this system nor in a row of PORT or PORTCHANNEL "
                               "that was taken";
   for( auto const & [ fields, becomes, refusal ] : std::vector< std::array< std::string, 3 > >{
              { R"("ports": [ "Ethernet1", "PortChannel2" ])", "[Ethernet1, Port-Channel2]", "" },
              { R"("ports": "Ethernet1,PortChannel0002", "level": 7)", "[Ethernet1, Port-Channel2]",
                "" },
              { R"("ports": "")", "[]", "" },
              { R"("ports": [])", "[]", "" },
              { R"("NULL": "NULL")", "none", "" },
              { R"("ports": "Ethernet1,Ethernet9")", "", "ports[1]: Ethernet9" + missing },
              { R"("ports": "Ethernet1,")", "", "ports[1]: \"\"" + missing },
              { R"("ports": [ "Ethernet1", {} ])", "", "ports[1]: an object is not a string" },
              { R"("ports": [ "Ethernet1", "eth0" ])", "",
                "ports[1]: \"eth0\" is not an interface name: " },
              { R"("ports": {})", "", "ports: an object is not a string" },
              { R"("level": "65536")", "", "level: \"65536\" is not a number from 0 to 65535" },
              { R"("level": "1", "Level": "1", "x": 2)", "", "no such attribute here: Level, x" },
        } ) {
      SCOPED_TRACE( fields );
      taken.clear();
      auto const report = importText( R"({ "GROUP": { "a": { )" + fields + " } } }" );
      EXPECT_EQ( taken, becomes );
      auto const refused = lines( report, Import::refused );
      ASSERT_EQ( refused.size(), refusal.empty() ? 0u : 1u );
      EXPECT_TRUE( refusal.empty() || refused[ 0 ].starts_with( "GROUP|a: " + refusal ) )
            << refused[ 0 ];
   }
   EXPECT_EQ( lines( importText( R"({ "GROUP|a": {}, "GROUP": { "a": {} } })" ), Import::refused ),
              Lines{ "GROUP|a: a is in this table already, as a" } );
   // Mistakes of whoever adds tables.
   using HobaTests::errorOf;
   auto const add = [ & ]( char const * name ) {
      return errorOf< Kiv::Exception >( [ & ] { tables.add( { .name = name, .map = {} } ); } );
   };
   EXPECT_EQ( add( "VLAN" ), "table VLAN is added twice" );
   EXPECT_EQ( add( "ELSEWHERE" ), "table GROUP refers to ELSEWHERE, which is added later" );
   EXPECT_EQ( errorOf< Kiv::Exception >( [ & ] {
                 tables.addFields( { .table = "PORT", .refersTo = { { "VLAN" } }, .map = {} } );
              } ),
              "fields of PORT refer to VLAN, which is added later" );
   tables.add( { .name = "LAST", .map = []( Import::Row & row ) {
                   row.existing< Pelt::IntfId >( "Ethernet1", { "PORT" } );
                } } );
   EXPECT_THROW( importText( R"({ "LAST": { "a": {} } })" ), std::logic_error );
}

TEST_F( ConfigDbTest, whatIsNoConfigurationChangesNothing ) {
   HobaTests::Folder const folder;
   auto const run = [ & ]( char const * command, std::string const & file = {} ) {
      Datum::Object request{ { "command", command } };
      if( !file.empty() ) {
         request.emplace_back( "file", file );
      }
      return HobaAgent::jsonText( commands.run( request ) );
   };
   auto const good = folder.file( "good", R"([ { "PORT:Ethernet1": {}, "OP": "DEL" },
                                               { "LINKS:a": {}, "OP": "SET" } ])" );
   EXPECT_EQ( run( "import", good ),
              R"(["LINKS: 1 row not imported: no such feature here",)"
              R"("PORT:Ethernet1: there is none to delete",)"
              R"("0 rows imported, 1 refused, 0 remarks, 1 not imported"])" );
   auto const shown = run( "show import" );
   EXPECT_NE( shown.find( R"(["PORT:Ethernet1","refused","there is none to delete"])" ),
              shown.npos );
   for( auto const & [ content, error ] : std::vector< std::pair< std::string, std::string > >{
              { R"({ "PORT": { "Ethernet1": {} })", ":1:30: " },
              { "7", ": a number is not a configuration: an object of tables, or" },
              { "{}", ": not a configuration with a table that is known here: " } } ) {
      auto const file = folder.file( "bad", content );
      auto const text = HobaTests::errorOf< Kiv::Exception >( [ & ] { run( "import", file ); } );
      EXPECT_TRUE( text.starts_with( file + error ) ) << text;
      EXPECT_EQ( run( "show import" ), shown );
   }
   auto const nowhere = folder.path + "/nowhere";
   EXPECT_EQ( HobaTests::errorOf< Kiv::Exception >( [ & ] { run( "import", nowhere ); } ),
              nowhere + ": No such file or directory" );
}

} // namespace
