// SPDX-License-Identifier: Apache-2.0
// `hobactl show tables` as an operator has it: no agent, tables of processes that may be dead.
#include "Glim/Segment.h"
#include "Glim/Table.h"
#include "Helpers.h"
#include "agent/common/Json.h"
#include "platform/GlimFolder.h"
#include "platform/GlimProcesses.h"
#include "types/HobaTypes.h"

#include <map>

namespace Hobactl {

struct Fec {
   KIV_VALUE( Hobactl::Fec );
   KIV_FIELD( std::uint32_t, hwId, 0 );
   KIV_FIELD( std::uint16_t, weight, 0 );
};

namespace {

using Bridging::MacVlanPair;
using HobaTests::expectIn;
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
         auto const row = HobaTests::squeezed( line );
         auto const end = std::min( row.find( ' ' ), row.size() );
         found[ row.substr( 0, end ) ] = row.substr( std::min( end + 1, row.size() ) );
      }
      return found;
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
   auto const reads = []( std::string const & name ) {
      return [ = ]( auto const & ready ) {
         Reader reader( "macs", { .reader = name } );
         reader.attach();
         reader.poll( []( MacVlanPair const & ) {} );
         ready();
         ::pause();
      };
   };
   Victim first( reads( "first" ) ), second( reads( "second" ) );
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
   expectIn( detail, { "types: Bridging::MacVlanPair -> HobaTypes::MacAddressTableEntry\n",
                       "rows: 3, in ", ", dead; number 1 of", "lifetime: goes when",
                       "changes: 3; the last 65536 ", "first" } );
   EXPECT_EQ( detail.find( "second" ), detail.npos );
   auto const report = json( "show tables macs" );
   EXPECT_EQ( *report.find( "writer" ), Datum( "dead" ) );
   EXPECT_EQ( *report.find( "rows" ), Datum( 3 ) );
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
   expectIn( dump, { "Ethernet1", "Ethernet2", "Ethernet3" } );
   expectIn( ok( "--json show tables --dump macs" ),
             { "\"form\": \"typed\"", "\"key\": \"00:00:5e:00:53:03@10\"",
               "\"intf\": \"Ethernet3\"" } );

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
   std::filesystem::copy( Glim::pathOf( "fecs" ), Glim::pathOf( "cut" ) );
   std::filesystem::resize_file( Glim::pathOf( "cut" ), 5000 );
   std::ofstream( Glim::pathOf( "noise" ) ) << std::string( 9000, 'x' );
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

   for( auto const & [ words, error ] : std::map< std::string, std::string >{
              { "show tables --dump noise", "hobactl: table \"noise\": it is no table\n" },
              { "show tables fec", "did you mean \"fecs\"?\n" },
              { "show tables --dump ../fecs", "hobactl: there is no table \"../fecs\" in " },
              { "show tables --dump", "usage: show tables [NAME], show tables --dump NAME\n" },
              { "show tables --dump=", "the name of a table is missing; usage: " },
              { "show tables fecs noise", "there is no use for \"noise\"; usage: " },
              // Everything else is the agent's, and there is none.
              { "show mac", folder.path },
              { "show", "; show tables needs no agent\n" },
        } ) {
      auto const result = tool( words );
      EXPECT_EQ( result.status, 1 ) << words;
      EXPECT_EQ( std::count( result.text.begin(), result.text.end(), '\n' ), 1 ) << result.text;
      expectIn( result.text, error );
   }
   expectIn( ok( "help show tables" ), "show tables --dump NAME" );
   EXPECT_EQ( ok( "complete --command show" ), "tables\n" );
   EXPECT_EQ( ok( "complete --command 'show tables'" ), "cut\nfecs\nnoise\n" );
}

} // namespace
} // namespace Hobactl
