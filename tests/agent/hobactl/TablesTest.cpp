// SPDX-License-Identifier: Apache-2.0
// `hobactl show tables` as an operator has it: no agent, tables of processes that may be dead.
#include "Glim/Segment.h"
#include "Glim/Table.h"
#include "agent/common/Json.h"
#include "platform/GlimFolder.h"
#include "platform/GlimProcesses.h"
#include "types/HobaTypes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Hobactl {

struct Fec {
   KIV_VALUE( Hobactl::Fec );
   KIV_FIELD( std::uint32_t, hwId, 0 );
   KIV_FIELD( std::uint16_t, weight, 0 );
};

namespace {

using Bridging::MacVlanPair;
using Kiv::Datum;
using Entry = HobaTypes::MacAddressTableEntry;
using GlimTests::Victim;
using Writer = Glim::TableWriter< MacVlanPair, Entry >;
using Reader = Glim::TableReader< MacVlanPair, Entry >;

MacVlanPair
host( std::uint64_t number ) {
   return MacVlanPair( Pelt::EthAddr( 0x00005e005300 + number ), Bridging::VlanId( 10 ) );
}

class TablesTest : public testing::Test {
 protected:
   struct Result {
      int status = 0;
      std::string text; // what it said, on either output
   };
   Result tool( std::string const & words ) const {
      auto const line = "HOBA_SOCKET=" + folder.path + "/none " HOBACTL_PATH " " + words + " 2>&1";
      auto * const pipe = ::popen( line.c_str(), "r" );
      Result result;
      for( int c = 0; ( c = std::fgetc( pipe ) ) != EOF; ) {
         result.text += static_cast< char >( c );
      }
      result.status = WEXITSTATUS( ::pclose( pipe ) );
      return result;
   }
   std::string ok( std::string const & words ) const {
      auto const result = tool( words );
      EXPECT_EQ( result.status, 0 ) << result.text;
      return result.text;
   }
   Datum json( std::string const & words ) const {
      return HobaAgent::parseJson( ok( "--json " + words ) );
   }
   // By their first words, with single spaces.
   std::map< std::string, std::string > lines( std::string const & words ) const {
      std::map< std::string, std::string > found;
      std::istringstream in( ok( words ) );
      for( std::string line; std::getline( in, line ); ) {
         std::istringstream row( line );
         std::string first, rest;
         row >> first;
         for( std::string word; row >> word; ) {
            rest += ( rest.empty() ? "" : " " ) + word;
         }
         found[ first ] = rest;
      }
      return found;
   }
   static void file( std::string const & table, std::string const & content ) {
      std::ofstream( Glim::pathOf( table ), std::ios::binary ) << content;
   }
   static void expectIn( std::string const & text, std::string const & part ) {
      EXPECT_NE( text.find( part ), text.npos ) << text << "expected: " << part;
   }

   GlimTests::Folder folder;
};

TEST_F( TablesTest, writerAndReadersThatDie ) {
   EXPECT_EQ( ok( "show tables" ), "no tables in " + folder.path + "\n" );
   EXPECT_EQ( json( "show tables" ), Datum( Datum::Array{} ) );
   Victim writer( []( auto const & ready ) {
      Writer table( "macs" );
      for( std::uint64_t i : { 3, 1, 2 } ) {
         table.is( host( i ), { host( i ), Pelt::IntfId( "Ethernet" + std::to_string( i ) ),
                                Bridging::learnedDynamicMac, 0, 2.5, true, false } );
      }
      table.commit();
      ready();
      ::pause();
   } );
   auto const reads = []( std::string const & name, bool polls ) {
      return [ = ]( auto const & ready ) {
         Reader reader( "macs", { .reader = name } );
         reader.attach();
         if( polls ) {
            reader.poll( []( MacVlanPair const & ) {} );
         }
         ready();
         ::pause();
      };
   };
   Victim first( reads( "first", true ) ), second( reads( "second", false ) );
   auto const pid = std::to_string( writer.pid );
   auto line = lines( "show tables" )[ "macs" ];
   EXPECT_TRUE( line.starts_with( "3 " + pid + " running 2 0 " ) ) << line;
   EXPECT_TRUE( line.ends_with( " s ago" ) ) << line;
   expectIn( ok( "show tables macs" ), "second  " + std::to_string( second.pid ) );

   writer.kill();
   second.kill();
   line = lines( "show tables" )[ "macs" ];
   EXPECT_TRUE( line.starts_with( "3 " + pid + " dead 1 0 " ) ) << line;
   auto const detail = ok( "show tables macs" );
   for( auto const * part : { "types: Bridging::MacVlanPair -> HobaTypes::MacAddressTableEntry\n",
                              "rows: 3, in ", ", dead; number 1 of", "lifetime: goes when",
                              "changes: 3; the last 65536 ", "READER", "first" } ) {
      expectIn( detail, part );
   }
   EXPECT_EQ( detail.find( "second" ), detail.npos );
   auto const report = json( "show tables macs" );
   EXPECT_EQ( *report.find( "writer" ), Datum( "dead" ) );
   EXPECT_EQ( Kiv::integerFrom( *report.find( "rows" ), std::int64_t( 0 ), std::int64_t( 9 ) ), 3 );
   EXPECT_EQ( report.find( "readers" )->as< Datum::Array >()->size(), 1u );

   auto const dump = ok( "show tables --dump macs" );
   EXPECT_EQ( ok( "show tables --dump=macs" ), dump );
   EXPECT_EQ( ok( "show tables macs --dump" ), dump );
   auto rows = lines( "show tables --dump macs" );
   EXPECT_EQ( rows.size(), 5u ) << dump;
   EXPECT_EQ( rows[ "KEY" ],
              "macEntry intf entryType tunnelId learnTime learnedInHardware agedInHardware" );
   EXPECT_EQ( rows[ "00:00:5e:00:53:02@10" ],
              "00:00:5e:00:53:02@10 Ethernet2 learnedDynamicMac 0 2.5 true false" );
   EXPECT_LT( dump.find( "Ethernet1" ), dump.find( "Ethernet2" ) );
   auto const all = json( "show tables --dump macs" );
   EXPECT_EQ( *all.find( "form" ), Datum( "typed" ) );
   auto const & row = all.find( "rows" )->as< Datum::Array >()->at( 2 );
   EXPECT_EQ( *row.find( "key" ), Datum( "00:00:5e:00:53:03@10" ) );
   EXPECT_EQ( *row.find( "record" )->find( "intf" ), Datum( "Ethernet3" ) );

   Writer next( "macs" );
   EXPECT_EQ( next.rows(), 3u );
   EXPECT_TRUE( lines( "show tables" )[ "macs" ].starts_with( "3 " + std::to_string( ::getpid() ) +
                                                              " running 1 " ) );
   next.quiescedIs( true );
   EXPECT_TRUE( lines( "show tables" )[ "macs" ].ends_with( " quiesced" ) );
}

TEST_F( TablesTest, whatIsNoTableAndWhatIsUnknown ) {
   Glim::TableWriter< std::uint32_t, Fec > fecs( "fecs", { .lifetime = Glim::Lifetime::stays } );
   fecs.is( 12, { 700, 3 } );
   std::ifstream in( Glim::pathOf( "fecs" ), std::ios::binary );
   std::string const bytes( std::istreambuf_iterator< char >( in ), {} );
   file( "cut", bytes.substr( 0, 5000 ) );
   file( "noise", std::string( 9000, '\x5a' ) );
   auto found = lines( "show tables" );
   EXPECT_TRUE( found[ "fecs" ].ends_with( " never" ) ) << found[ "fecs" ];
   EXPECT_TRUE( found[ "noise" ].ends_with( " it is no table" ) ) << found[ "noise" ];
   expectIn( found[ "cut" ], " it is cut off: 5000 bytes, of " );
   expectIn( ok( "show tables noise" ), "fault: it is no table\n" );
   EXPECT_EQ( *json( "show tables noise" ).find( "fault" ), Datum( "it is no table" ) );

   auto rows = lines( "show tables --dump fecs" );
   EXPECT_EQ( rows[ "KEY" ], "hwId weight" );
   EXPECT_EQ( rows[ "12" ], "700 3" );
   expectIn( rows[ "the" ], "types u32 -> Hobactl::Fec are not known here" );

   struct Case {
      char const * words;
      char const * error;
   };
   for( auto const & each : {
              Case{ "show tables --dump noise", "hobactl: table \"noise\": it is no table\n" },
              Case{ "show tables fec", "did you mean \"fecs\"?\n" },
              Case{ "show tables --dump ../fecs", "hobactl: there is no table \"../fecs\" in " },
              Case{ "show tables --dump", "usage: show tables [NAME], show tables --dump NAME\n" },
              Case{ "show tables --dump=", "the name of a table is missing; usage: " },
              Case{ "show tables fecs noise", "there is no use for \"noise\"; usage: " },
              // Everything else is the agent's, and there is none.
              Case{ "show mac", folder.path.c_str() },
              Case{ "show", "; show tables needs no agent\n" },
        } ) {
      auto const result = tool( each.words );
      EXPECT_EQ( result.status, 1 ) << each.words;
      EXPECT_EQ( std::count( result.text.begin(), result.text.end(), '\n' ), 1 ) << result.text;
      expectIn( result.text, each.error );
   }
   expectIn( ok( "help show tables" ), "show tables --dump NAME" );
   EXPECT_EQ( ok( "complete --command show" ), "tables\n" );
   EXPECT_EQ( ok( "complete --command 'show tables'" ), "cut\nfecs\nnoise\n" );
}

} // namespace
} // namespace Hobactl
