// SPDX-License-Identifier: Apache-2.0
// What an operator's file becomes, and what the operator is told about the rest.

#include "agent/import/ConfigDb.h"
#include "Helpers.h"
#include "Tessera/Database.h"
#include "agent/common/Json.h"

#include <algorithm>

namespace {

using namespace Bridging::StormControl;
using Import::ConfigDbImport;
using Kiv::Datum;

using Lines = std::vector< std::string >;

using eth = Pelt::EthIntfId;
using lag = Pelt::PortChannelIntfId;

Lines
allLines( ConfigDbImport const & import ) {
   Lines all;
   std::ranges::transform( import.report, std::back_inserter( all ), &Import::ReportLine::text );
   return all;
}

class ConfigDbTest : public testing::Test {
 protected:
   ConfigDbImport check( Datum const & file ) const {
      return Import::importConfigDb( file, targets );
   }
   ConfigDbImport checkText( std::string_view text ) const {
      return check( HobaAgent::parseJson( text ) );
   }
   // The lines of one kind.
   static Lines lines( ConfigDbImport import, Import::LineKind kind ) {
      std::erase_if( import.report, [ & ]( auto const & line ) { return line.kind != kind; } );
      return allLines( import );
   }

   Import::ConfigDbTargets const targets{ Kiv::make< Feeders::Config >(),
                                          Kiv::make< Lag::Input::Config >(),
                                          Kiv::make< Bridging::StormControl::Config >(),
                                          Kiv::make< Hoba::HobaCommonSmData >( "test" ) };
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
      "PortChannel0003": { "admin_status": "down", "min_links": "2", "fallback": "True" },
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
   auto const import = checkText( wholeFile );
   EXPECT_TRUE( targets.feeders->port().empty() ) << "checking changes nothing";
   Tessera::Database database;
   database.mount( "/switch", targets.feeders, Tessera::Access::configuration );
   database.mount( "/members", targets.lagInput, Tessera::Access::configuration );
   database.mount( "/storm", targets.stormControl, Tessera::Access::configuration );
   database.mount( "/context", targets.commonSmData, Tessera::Access::configuration );
   // clang-format off
   std::pair< char const *, char const * > const configured[] = {
      { "/switch/port/Ethernet0", R"({"speed":40000,"enabled":true,"linkUp":true})" },
      { "/switch/port/Ethernet4", R"({"speed":0,"enabled":false,"linkUp":true})" },
      { "/switch/port/Ethernet8", R"({"speed":0,"enabled":true,"linkUp":true})" },
      { "/switch/lag/Port-Channel3", R"({"enabled":false,"minLinks":2,"kind":"lagTypeLacp",)"
                                     R"("lacpPartner":true,"lacpFallback":true})" },
      { "/members", R"({"ethPhyIntfLagConfig":{"Ethernet8":"Port-Channel3"}})" },
      { "/switch/vlan/100", R"({"active":true,"member":["Ethernet0","Port-Channel3"]})" },
      { "/switch/switchIntf", R"({"Ethernet0":{"switchportMode":"switchportModeTrunk",)"
                              R"("nativeVlan":100},"Port-Channel3":{"switchportMode":)"
                              R"("switchportModeTrunk","nativeVlan":0}})" },
      { "/context/vlanStatus", R"({"100":{"active":true,"intf":["Ethernet0","Port-Channel3"]}})" },
      { "/storm/intfConfig/Ethernet0/broadcast",
        R"({"mode":"meteringBps","level":0,"rate":10000,"unit":"unitKbps"})" },
      { "/storm/intfConfig/Ethernet0/uucast/level", "10000" }, // no limit
      { "/storm/intfConfig/Port-Channel3/uucast/rate", "20000" },
   };
   // clang-format on
   for( auto const * when : { "first", "again" } ) {
      import.apply();
      for( auto const & [ path, json ] : configured ) {
         EXPECT_EQ( HobaAgent::jsonText( database.get( path ) ), json ) << when;
      }
      EXPECT_EQ( targets.feeders->port().size() + targets.feeders->lag().size() +
                       targets.stormControl->intfConfig().size(),
                 3u + 2u + 2u );
   }
}

TEST_F( ConfigDbTest, theReportNamesEverything ) {
   auto const import = checkText( wholeFile );
   // clang-format off
   EXPECT_EQ( lines( import, Import::imported ), ( Lines{
         "PORT|Ethernet0: port Ethernet0, up, speed 40000 Mb/s",
         "PORT|Ethernet4: port Ethernet4, down, speed unknown",
         "PORT|Ethernet8: port Ethernet8, up, speed unknown",
         "PORTCHANNEL|PortChannel0003: LACP LAG Port-Channel3, down, min links 2, with fallback",
         "PORTCHANNEL|PortChannel11001: LACP LAG Port-Channel11001, up, min links 1025",
         "PORTCHANNEL_MEMBER|PortChannel3|Ethernet8: Ethernet8 in Port-Channel3",
         "VLAN|Vlan100: VLAN 100, up",
         "VLAN_MEMBER|Vlan100|Ethernet0: Ethernet0 carries VLAN 100, untagged",
         "VLAN_MEMBER|Vlan100|PortChannel0003: Port-Channel3 carries VLAN 100",
         "PORT_STORM_CONTROL|Ethernet0|broadcast: Ethernet0 lets in 10000 kbps of broadcast",
         "PORT_STORM_CONTROL|PortChannel0003|unknown-unicast: "
         "Port-Channel3 lets in 20000 kbps of unknown-unicast" } ) );
   EXPECT_EQ( lines( import, Import::remark ), ( Lines{
         "PORT|Ethernet4: speed 11100 Mb/s is not an Ethernet speed; taken as unknown",
         "PORT|Ethernet8: no admin_status; taken as up",
         "PORTCHANNEL|PortChannel11001: min_links 1025 is more than the 1024 that files of this "
         "shape may ask for",
         "PORTCHANNEL|PortChannel11001: the names of files of this shape end at PortChannel9999"
         } ) );
   EXPECT_EQ( lines( import, Import::refused ), Lines{
         "PORT_STORM_CONTROL|Ethernet0|unknown-multicast: unknown-multicast is not a level of this "
         "system" } );
   EXPECT_EQ( lines( import, Import::notImported ), ( Lines{
         "PORT: no such attribute here: lanes (2 rows), mtu (1 row)",
         "VLAN_MEMBER: no such attribute here: tagging_mode (1 row)",
         "ACL_RULE|A|1: no such feature here", "ACL_RULE|A|2: no such feature here",
         "PBH_TABLE|t: no such feature here" } ) );
   // clang-format on
   EXPECT_EQ( import.summary(), "11 rows imported, 1 refused, 4 remarks, 3 not imported" );
}

// Some files have their rows side by side, "TABLE|key", all of them or a few.
TEST_F( ConfigDbTest, rowsMayStandByThemselves ) {
   auto const file = HobaAgent::parseJson( wholeFile );
   auto const expected = allLines( check( file ) );
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
      EXPECT_EQ( allLines( check( flat ) ), expected ) << few;
   }
   EXPECT_EQ( allLines( checkText( R"({ "PORT|Ethernet0": { "admin_status": "up" },
                                        "PORT": { "Ethernet0": {} }, "PORT|": 7 })" ) ),
              ( Lines{ "PORT|Ethernet0: port Ethernet0, up, speed unknown",
                       "PORT|Ethernet0: Ethernet0 is in this table already, as Ethernet0",
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
   auto const import = check( file );
   EXPECT_EQ( lines( import, Import::refused ).size(), 1001u ) << "every row is in the report";
   EXPECT_EQ( lines( import, Import::notImported ).size(), 1001u );
   Lines expected{ "ACL_RULE: 1000 rows not imported: no such feature here",
                   std::string( 100, 'E' ) + "...: no such feature here" };
   for( std::string const n : { "0", "1", "2", "3", "4" } ) {
      expected.push_back( "PORT|Ethernet" + n + ": speed: \"x" + n +
                          "\" is not a number from 0 to 4294967295" );
   }
   expected.push_back(
         "PORT: 995 more rows refused, each for a reason of its own: see hobactl show import" );
   auto digest = import.digest();
   EXPECT_TRUE( digest.back().starts_with( "PORTCHANNEL|" + std::string( 100, 'E' ) + "...: " ) );
   digest.pop_back();
   EXPECT_EQ( digest, expected );
   EXPECT_EQ( import.digest( "PORT" ), Lines( expected.begin() + 2, expected.end() ) );
   for( auto const & line : allLines( import ) ) {
      EXPECT_LT( line.size(), 400u );
   }
   // What is the same is said once, and the rest counted.
   EXPECT_EQ( checkText( R"({ "VLAN": { "Vlan1": { "a\nb": 1 }, "Vlan2": {} } })" ).digest(),
              ( Lines{ "VLAN: no such attribute here: a?b (1 row)",
                       "VLAN|Vlan1: no admin_status; taken as up (and 1 more row of VLAN)" } ) );
   for( int i = 0; i != 100; ++i ) {
      file.emplace_back( "T" + std::to_string( i ), Datum::Object{} );
   }
   EXPECT_EQ( check( file ).digest().size(), 60u + 1 + 7 );
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
   for( auto const & c : cases ) {
      SCOPED_TRACE( c.row + ' ' + c.fields );
      auto const import = checkText( others + c.row + "\": " + c.fields + " }" );
      auto const refused = lines( import, Import::refused );
      ASSERT_EQ( refused.size(), 1u );
      auto const row = c.row == "PORT|" ? "PORT" : c.row;
      EXPECT_TRUE( refused[ 0 ].starts_with( row + ": " + c.why ) ) << refused[ 0 ];
      EXPECT_EQ( import.count( Import::imported ), 6u );
      import.apply();
      EXPECT_TRUE( targets.stormControl->intfConfig().empty() );
   }
}

TEST_F( ConfigDbTest, rowsMayReferToWhatIsThere ) {
   targets.feeders->portIs( eth( 1 ) );
   targets.feeders->portIs( eth( 2 ) );
   targets.feeders->lagIs( lag( 3 ) );
   targets.feeders->lagIs( lag( 4 ) );
   targets.lagInput->ethPhyIntfLagConfigIs( eth( 1 ), lag( 3 ) );
   auto const import = checkText( R"({
      "PORTCHANNEL_MEMBER": { "PortChannel4|Ethernet1": {}, "PortChannel3|Ethernet1": {},
                              "PortChannel4|Ethernet2": {} },
      "PORT_STORM_CONTROL": { "Ethernet2|broadcast": { "kbps": "0" } }
   })" );
   EXPECT_EQ( lines( import, Import::refused ),
              Lines{ "PORTCHANNEL_MEMBER|PortChannel4|Ethernet1: Ethernet1 is a member of "
                     "Port-Channel3 already" } );
   EXPECT_EQ( import.count( Import::imported ), 3u );
}

TEST_F( ConfigDbTest, whatIsNoTableIsSaid ) {
   std::string const known = "not a configuration with a table that is known here: expected one of "
                             "PORT, PORTCHANNEL, PORTCHANNEL_MEMBER, VLAN, VLAN_MEMBER, "
                             "PORT_STORM_CONTROL; there ";
   for( auto const & [ text, error ] : std::vector< std::pair< std::string, std::string > >{
              { "[]", "a list is not a configuration: an object of tables is expected" },
              { "null", "nothing is not a configuration: an object of tables is expected" },
              { "{}", known + "is nothing" },
              { R"({ "PORT_TABLE": {}, "PORT:Ethernet0": {}, "PORT_TABLE|Ethernet0": {} })",
                known + "are PORT_TABLE, PORT:Ethernet0" },
              { R"({ "192.0.2.0/26": [], "b": 1, "c": 1, "d": 1, "e": 1, "f": 1, "g": 1 })",
                known + "are 192.0.2.0/26, b, c, d, e and 2 more" } } ) {
      EXPECT_EQ(
            HobaTests::errorOf< Kiv::ParseError >( [ &, &json = text ] { checkText( json ); } ),
            error );
   }
   EXPECT_EQ( allLines( checkText( R"({ "PORT": [ 1 ], "NOTES": "none", "ODD\nNAME": {},
                                        "VLAN": { "Vlan1": { "admin_status": "up" } } })" ) ),
              ( Lines{ "PORT: a list is not a table: an object of rows is expected",
                       "VLAN|Vlan1: VLAN 1, up",
                       "NOTES: no such feature here, and a string is not a table",
                       "ODD?NAME: no such feature here" } ) );
}

} // namespace
