// SPDX-License-Identifier: Apache-2.0
// What an operator's file becomes, and what the operator is told about the rest.
//
// The cases here are this project's own. Where a folder of collected configurations lies beside
// the source tree (../shared/inputs), its files are read in addition.

#include "agent/import/ConfigDb.h"
#include "agent/common/Json.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <optional>

namespace {

using namespace Bridging::StormControl;
using Import::ConfigDbImport;
using Kiv::Datum;

Pelt::EthIntfId
eth( unsigned number ) {
   return Pelt::EthIntfId( number );
}

Pelt::PortChannelIntfId
lag( unsigned number ) {
   return Pelt::PortChannelIntfId( number );
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
   static std::vector< std::string > lines( ConfigDbImport const & import, Import::LineKind kind ) {
      std::vector< std::string > texts;
      for( auto const & line : import.report ) {
         if( line.kind == kind ) {
            texts.push_back( line.text() );
         }
      }
      return texts;
   }

   Import::ConfigDbTargets const targets{ Kiv::make< Feeders::Config >(),
                                          Kiv::make< Lag::Input::Config >(),
                                          Kiv::make< Bridging::StormControl::Config >(),
                                          Kiv::make< Hoba::HobaCommonSmData >( "test" ) };
};

using Lines = std::vector< std::string >;

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
   for( auto const * when : { "first", "again" } ) {
      SCOPED_TRACE( when );
      import.apply();
      auto const & feeders = *targets.feeders;
      ASSERT_EQ( feeders.port().size(), 3u );
      EXPECT_EQ( feeders.port( eth( 0 ) )->speed().value(), 40000u );
      EXPECT_TRUE( feeders.port( eth( 0 ) )->enabled() );
      EXPECT_EQ( feeders.port( eth( 4 ) )->speed().value(), 0u );
      EXPECT_FALSE( feeders.port( eth( 4 ) )->enabled() );
      EXPECT_TRUE( feeders.port( eth( 8 ) )->enabled() );
      EXPECT_EQ( feeders.port( eth( 0 ) )->vlan(), Bridging::VlanId( 100 ) );
      ASSERT_EQ( feeders.lag().size(), 2u );
      auto const po3 = feeders.lag( lag( 3 ) );
      EXPECT_EQ( po3->minLinks(), 2u );
      EXPECT_EQ( po3->kind(), HobaTypes::lagTypeLacp );
      EXPECT_TRUE( po3->lacpFallback() );
      EXPECT_FALSE( po3->enabled() );
      EXPECT_EQ( targets.lagInput->ethPhyIntfLagConfig().size(), 1u );
      EXPECT_EQ( targets.lagInput->ethPhyIntfLagConfig( eth( 8 ) ), lag( 3 ) );
      auto const vlan = targets.commonSmData->vlanStatus( Bridging::VlanId( 100 ) );
      ASSERT_TRUE( vlan );
      EXPECT_TRUE( vlan->active() );
      EXPECT_TRUE( vlan->intfHas( eth( 0 ) ) && vlan->intfHas( lag( 3 ) ) );
      auto const & storm = *targets.stormControl;
      ASSERT_EQ( storm.intfConfig().size(), 2u );
      EXPECT_EQ( storm.intfConfig( eth( 0 ) )->broadcast(),
                 ( Threshold{ meteringBps, 0, 10000, unitKbps } ) );
      EXPECT_TRUE( storm.intfConfig( eth( 0 ) )->uucast().isDefault() );
      EXPECT_EQ( storm.intfConfig( lag( 3 ) )->uucast().rateKbps(), 20000u );
   }
}

TEST_F( ConfigDbTest, theReportNamesEverything ) {
   auto const import = checkText( wholeFile );
   EXPECT_EQ( lines( import, Import::imported ),
              ( Lines{ "PORT|Ethernet0: port Ethernet0, up, speed 40000 Mb/s",
                       "PORT|Ethernet4: port Ethernet4, down, speed unknown",
                       "PORT|Ethernet8: port Ethernet8, up, speed unknown",
                       "PORTCHANNEL|PortChannel0003: LACP LAG Port-Channel3, down, min links 2, "
                       "with fallback",
                       "PORTCHANNEL|PortChannel11001: LACP LAG Port-Channel11001, up, min links "
                       "1025",
                       "PORTCHANNEL_MEMBER|PortChannel3|Ethernet8: Ethernet8 in Port-Channel3",
                       "VLAN|Vlan100: VLAN 100, up",
                       "VLAN_MEMBER|Vlan100|Ethernet0: Ethernet0 carries VLAN 100, untagged",
                       "VLAN_MEMBER|Vlan100|PortChannel0003: Port-Channel3 carries VLAN 100",
                       "PORT_STORM_CONTROL|Ethernet0|broadcast: Ethernet0 lets in 10000 kbps of "
                       "broadcast",
                       "PORT_STORM_CONTROL|PortChannel0003|unknown-unicast: Port-Channel3 lets in "
                       "20000 kbps of unknown-unicast" } ) );
   EXPECT_EQ(
         lines( import, Import::remark ),
         ( Lines{
               "PORT|Ethernet4: speed 11100 Mb/s is not an Ethernet speed; taken as unknown",
               "PORT|Ethernet8: no admin_status; taken as up",
               "PORTCHANNEL|PortChannel11001: min_links 1025 is more than the 1024 that files of "
               "this shape may ask for",
               "PORTCHANNEL|PortChannel11001: the names of files of this shape end at "
               "PortChannel9999" } ) );
   EXPECT_EQ( lines( import, Import::refused ),
              Lines{ "PORT_STORM_CONTROL|Ethernet0|unknown-multicast: unknown-multicast is not a "
                     "level of this system" } );
   EXPECT_EQ( lines( import, Import::notImported ),
              ( Lines{ "PORT: no such attribute here: lanes (2 rows), mtu (1 row)",
                       "VLAN_MEMBER: no such attribute here: tagging_mode (1 row)",
                       "ACL_RULE|A|1: no such feature here", "ACL_RULE|A|2: no such feature here",
                       "PBH_TABLE|t: no such feature here" } ) );
   EXPECT_EQ( import.summary(), "11 rows imported, 1 refused, 4 remarks, 3 not imported" );
   EXPECT_TRUE( import.accepted( "PORT", "Ethernet4" ) );
   EXPECT_FALSE( import.accepted( "PORT", "Ethernet5" ) );
   EXPECT_FALSE( import.clean() );
   EXPECT_TRUE( checkText( R"({ "PORT": { "Ethernet1": { "admin_status": "up" } } })" ).clean() );
}

Lines
allLines( ConfigDbImport const & import ) {
   Lines all;
   std::ranges::transform( import.report, std::back_inserter( all ), &Import::ReportLine::text );
   return all;
}

// Some files have their rows side by side, "TABLE|key", all of them or a few.
TEST_F( ConfigDbTest, rowsMayStandByThemselves ) {
   auto const file = HobaAgent::parseJson( wholeFile );
   auto const expected = allLines( check( file ) );
   for( std::size_t const few : { 0, 1, 2, 100 } ) {
      Datum::Object flat;
      for( auto const & [ table, rows ] : *file.as< Datum::Object >() ) {
         Datum rest( Datum::Object{} );
         auto const & all = *rows.as< Datum::Object >();
         for( std::size_t i = 0; i != all.size(); ++i ) {
            if( i < few ) {
               rest.add( all[ i ].first, all[ i ].second );
            } else {
               if( i == few && few != 0 ) {
                  flat.emplace_back( table, rest );
               }
               flat.emplace_back( table + '|' + all[ i ].first, all[ i ].second );
            }
         }
         if( few >= all.size() ) {
            flat.emplace_back( table, rest );
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
   auto const bad = []( std::string const & speed ) {
      return Datum( Datum::Object{ { "speed", speed } } );
   };
   for( int i = 0; i != 1000; ++i ) {
      auto const n = std::to_string( i );
      ports.add( "Ethernet" + n, bad( "x" + n ) );
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
   Lines const expected{
         "ACL_RULE: 1000 rows not imported: no such feature here",
         std::string( 100, 'E' ) + "...: no such feature here",
         "PORT|Ethernet0: speed: \"x0\" is not a number from 0 to 4294967295",
         "PORT|Ethernet1: speed: \"x1\" is not a number from 0 to 4294967295",
         "PORT|Ethernet2: speed: \"x2\" is not a number from 0 to 4294967295",
         "PORT|Ethernet3: speed: \"x3\" is not a number from 0 to 4294967295",
         "PORT|Ethernet4: speed: \"x4\" is not a number from 0 to 4294967295",
         "PORT: 995 more rows refused, each for a reason of its own: see hobactl show import" };
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
   struct Case {
      char const * table;
      char const * key;
      char const * fields;
      char const * why;
   };
   constexpr Case cases[] = {
         { "PORT", "Vlan7", "{}", "\"Vlan7\" is not the name of an Ethernet interface" },
         { "PORT", "", "{}", "\"\" is not the name of an Ethernet interface" },
         { "PORT", "Ethernet01", "{}", "Ethernet1 is in this table already, as Ethernet1" },
         { "PORT", "Ethernet9", R"({ "speed": "fast" })",
           "speed: \"fast\" is not a number from 0 to 4294967295" },
         { "PORT", "Ethernet9", R"({ "speed": "4294967296" })",
           "speed: \"4294967296\" is not a number from 0 to 4294967295" },
         { "PORT", "Ethernet9", R"({ "speed": [ "10000" ] })", "speed: a list is not a string" },
         { "PORT", "Ethernet9", R"({ "admin_status": "on" })",
           "admin_status: \"on\" is not up or down" },
         { "PORT", "Ethernet9", "[]", "a list is not a row: an object of fields is expected" },
         { "PORTCHANNEL", "Ethernet9", "{}", "\"Ethernet9\" is not the name of a port channel" },
         { "PORTCHANNEL", "PortChannel0003", "{}",
           "Port-Channel3 is in this table already, as PortChannel3" },
         { "PORTCHANNEL", "PortChannel9", R"({ "min_links": "65536" })",
           "min_links: \"65536\" is not a number from 0 to 65535" },
         { "PORTCHANNEL_MEMBER", "PortChannel4", "{}",
           "\"PortChannel4\" is not a key of the form PortChannel<n>|Ethernet<n>" },
         { "PORTCHANNEL_MEMBER", "PortChannel4|Ethernet9", "{}",
           "Ethernet9 is neither in this system nor in a row of PORT that was taken" },
         { "PORTCHANNEL_MEMBER", "PortChannel9|Ethernet2", "{}",
           "PortChannel9 is neither in this system nor in a row of PORTCHANNEL that was taken" },
         { "PORTCHANNEL_MEMBER", "PortChannel4|Ethernet1", "{}",
           "Ethernet1 is a member of Port-Channel3 already" },
         { "PORTCHANNEL_MEMBER", "PortChannel0003|Ethernet1", "{}",
           "Port-Channel3|Ethernet1 is in this table already, as PortChannel3|Ethernet1" },
         { "VLAN", "Vlan4095", "{}", "4095 is not a number from 1 to 4094" },
         { "VLAN", "Vlan7", R"({ "vlanid": "8" })", "vlanid: 8 is not the number of Vlan7" },
         { "VLAN_MEMBER", "Vlan9|Ethernet2", "{}",
           "Vlan9 is neither in this system nor in a row of VLAN that was taken" },
         { "VLAN_MEMBER", "Vlan5|Ethernet1", "{}",
           "Ethernet1 is a member of Port-Channel3, which carries VLANs in its place" },
         { "VLAN_MEMBER", "Vlan5|Ethernet2", R"({ "tagging_mode": "both" })",
           "tagging_mode: \"both\" is not tagged or untagged" },
         { "PORT_STORM_CONTROL", "Ethernet9|broadcast", R"({ "kbps": "1" })",
           "Ethernet9 is neither in this system nor in a row of PORT or PORTCHANNEL that was "
           "taken" },
         { "PORT_STORM_CONTROL", "Vlan5|broadcast", R"({ "kbps": "1" })",
           "Vlan5 is neither in this system nor in a row of PORT or PORTCHANNEL that was taken" },
         { "PORT_STORM_CONTROL", "Ethernet1|xyz", R"({ "kbps": "1" })",
           "storm_type: \"xyz\" is not one of broadcast, unknown-unicast" },
         { "PORT_STORM_CONTROL", "Ethernet1|broadcast|x", R"({ "kbps": "1" })",
           "\"Ethernet1|broadcast|x\" is not a key of the form <port or LAG>|<storm_type>" },
         { "PORT_STORM_CONTROL", "Ethernet1|broadcast", "{}", "the field kbps is missing" },
         { "PORT_STORM_CONTROL", "Ethernet1|broadcast", R"({ "kbps": "-1" })",
           "kbps: \"-1\" is not a number from 0 to 4294967295" },
         { "PORT_STORM_CONTROL", "Ethernet1|broadcast", R"({ "kbps": 0.5 })",
           "kbps: \"0.5\" is not a number from 0 to 4294967295" },
   };
   for( auto const & c : cases ) {
      SCOPED_TRACE( std::string( c.table ) + '|' + c.key + ' ' + c.fields );
      Datum::Object file;
      for( auto const & [ table, key ] : { std::pair{ "PORT", "Ethernet1" },
                                           { "PORT", "Ethernet2" },
                                           { "PORTCHANNEL", "PortChannel3" },
                                           { "PORTCHANNEL", "PortChannel4" },
                                           { "PORTCHANNEL_MEMBER", "PortChannel3|Ethernet1" },
                                           { "VLAN", "Vlan5" },
                                           { "PORT_STORM_CONTROL", "" } } ) {
         if( file.empty() || file.back().first != table ) {
            file.emplace_back( table, Datum::Object{} );
         }
         if( *key ) {
            file.back().second.add( key, Datum::Object{} );
         }
      }
      file.emplace_back( "VLAN_MEMBER", Datum::Object{} );
      auto const table = std::ranges::find( file, c.table, &Datum::Object::value_type::first );
      ASSERT_NE( table, file.end() );
      table->second.add( c.key, HobaAgent::parseJson( c.fields ) );
      auto const import = check( file );
      EXPECT_FALSE( import.accepted( c.table, c.key ) );
      auto const * why = import.refusal( c.table, c.key );
      ASSERT_TRUE( why );
      EXPECT_EQ( why->substr( 0, std::string_view( c.why ).size() ), c.why );
      EXPECT_EQ( import.count( Import::refused ), 1u );
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
              { "7", "a number is not a configuration: an object of tables is expected" },
              { "null", "nothing is not a configuration: an object of tables is expected" },
              { "{}", known + "is nothing" },
              { R"({ "PORT_TABLE": {}, "PORT:Ethernet0": {}, "PORT_TABLE|Ethernet0": {} })",
                known + "are PORT_TABLE, PORT:Ethernet0" },
              { R"({ "192.0.2.0/26": [], "b": 1, "c": 1, "d": 1, "e": 1, "f": 1, "g": 1 })",
                known + "are 192.0.2.0/26, b, c, d, e and 2 more" } } ) {
      try {
         checkText( text );
         ADD_FAILURE() << text;
      } catch( Kiv::ParseError const & refusal ) {
         EXPECT_EQ( std::string( refusal.what() ), error );
      }
   }
   EXPECT_EQ( allLines( checkText( R"({ "PORT": [ 1 ], "NOTES": "none", "ODD\nNAME": {},
                                        "VLAN": { "Vlan1": { "admin_status": "up" } } })" ) ),
              ( Lines{ "PORT: a list is not a table: an object of rows is expected",
                       "VLAN|Vlan1: VLAN 1, up",
                       "NOTES: no such feature here, and a string is not a table",
                       "ODD?NAME: no such feature here" } ) );
}

// ---- Cases that somebody else wrote, where they are at hand

std::optional< Datum >
collected( std::string const & file ) {
   std::ifstream in( std::string( HOBA_SOURCE_DIR ) + "/../shared/inputs/" + file );
   if( !in ) {
      return std::nullopt;
   }
   return HobaAgent::parseJson( std::string( std::istreambuf_iterator< char >( in ),
                                             std::istreambuf_iterator< char >() ) );
}

// The first member of an object whose name ends so, however deep.
Datum const *
endingIn( Datum const & datum, std::string_view end ) {
   if( auto const * object = datum.as< Datum::Object >() ) {
      for( auto const & [ name, value ] : *object ) {
         if( name.ends_with( end ) ) {
            return &value;
         }
         if( auto const * found = endingIn( value, end ) ) {
            return found;
         }
      }
   }
   return nullptr;
}

// A list of rows that hold their keys as fields, as a table.
Datum
tableOf( Datum const * list, std::vector< std::string > const & keyFields ) {
   Datum table( Datum::Object{} );
   for( auto const & row : list ? *list->as< Datum::Array >() : Datum::Array() ) {
      std::string key;
      Datum fields( Datum::Object{} );
      for( auto const & [ name, value ] : *row.as< Datum::Object >() ) {
         if( std::ranges::find( keyFields, name ) == keyFields.end() ) {
            fields.add( name, value );
         }
      }
      for( auto const & field : keyFields ) {
         key += ( key.empty() ? "" : "|" ) + *row.find( field )->as< Kiv::String >();
      }
      table.add( key, fields );
   }
   return table;
}

TEST_F( ConfigDbTest, collectedStormControlCases ) {
   auto const cases = collected( "yang-vectors/storm_control.input.json" );
   auto const expectations = collected( "yang-vectors/storm_control.expect.json" );
   if( !cases || !expectations ) {
      return;
   }
   auto const & all = *expectations->as< Datum::Object >();
   EXPECT_FALSE( all.empty() );
   for( auto const & [ name, expected ] : all ) {
      SCOPED_TRACE( name );
      auto const * input = cases->find( name );
      ASSERT_TRUE( input );
      auto const storm =
            tableOf( endingIn( *input, "PORT_STORM_CONTROL_LIST" ), { "ifname", "storm_type" } );
      auto const import = check(
            Datum::Object{ { "PORT", tableOf( endingIn( *input, "PORT_LIST" ), { "name" } ) },
                           { "PORT_STORM_CONTROL", storm } } );
      auto const & key = storm.as< Datum::Object >()->front().first;
      bool const hasLevel = !key.ends_with( "|unknown-multicast" );
      EXPECT_EQ( import.accepted( "PORT_STORM_CONTROL", key ),
                 hasLevel && !expected.find( "eStrKey" ) );
      if( auto const * refusal = import.refusal( "PORT_STORM_CONTROL", key ) ) {
         auto const * culprit = expected.find( "eStr" );
         auto const expectedText =
               culprit ? *culprit->as< Datum::Array >()->front().as< Kiv::String >()
                       : Kiv::String( "not a level of this system" );
         EXPECT_NE( refusal->find( expectedText ), refusal->npos ) << *refusal;
      }
   }
}

// The file has 41 ports, most of them with a speed that Ethernet does not have.
TEST_F( ConfigDbTest, collectedConfiguration ) {
   auto const file = collected( "sonic-config/sample_config_db.json" );
   if( !file ) {
      return;
   }
   auto const import = check( *file );
   import.apply();
   for( auto const & [ table, rows ] : *file->as< Datum::Object >() ) {
      auto const named = [ &name = table ]( auto const & line ) { return line.table == name; };
      EXPECT_TRUE( std::ranges::any_of( import.report, named ) ) << table;
   }
   EXPECT_EQ( targets.feeders->port().size(), 41u );
   EXPECT_EQ( targets.lagInput->ethPhyIntfLagConfig().size(), 5u );
   EXPECT_EQ( lines( import, Import::refused ).size(), 1u );
}

} // namespace
