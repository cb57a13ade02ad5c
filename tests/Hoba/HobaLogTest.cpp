// SPDX-License-Identifier: Apache-2.0

// System log messages: formats are checked where they are used, and what was emitted is kept.

#include "HobaTest.h"

#include "Hoba/HobaLog.h"

#include <algorithm>

namespace {

using namespace HobaTest;

HOBA_LOG_MESSAGE( TEST_FULL, 4, "%u of %s are in use: %d%%", "The table is nearly full.",
                  "Remove entries." );

static_assert( Hoba::logFormatFits<>( "100%%" ) );
static_assert( Hoba::logFormatFits< std::string, int >( "%s %d" ) );
static_assert( Hoba::logFormatFits< int >( "%s" ) );
static_assert( !Hoba::logFormatFits< std::string >( "%u" ) );
static_assert( !Hoba::logFormatFits< int >( "nothing" ) );
static_assert( !Hoba::logFormatFits<>( "%s" ) );
static_assert( !Hoba::logFormatFits< int >( "%x" ) );
static_assert( !Hoba::logFormatFits< int >( "%" ) );

class HobaLogTest : public HobaFixture {};

TEST_F( HobaLogTest, catalogueListsEveryMessageByName ) {
   auto const catalogue = Hoba::logCatalogue();
   auto named = [ & ]( std::string_view name ) {
      return std::find_if( catalogue.begin(), catalogue.end(),
                           [ & ]( auto const * message ) { return name == message->name; } );
   };
   ASSERT_NE( named( "TEST_FULL" ), catalogue.end() );
   EXPECT_EQ( ( *named( "TEST_FULL" ) )->severity, 4 );
   EXPECT_NE( named( "HARDWARE_VERIFY_AGENT_FAILED" ), catalogue.end() );
   EXPECT_LT( named( "HARDWARE_VERIFY_AGENT_FAILED" ), named( "TEST_FULL" ) );
}

TEST_F( HobaLogTest, entriesAreFormattedKeptAndHandedOn ) {
   static Strings sunk;
   sunk.clear();
   Hoba::logSinkIs( []( Hoba::LogEntry const & entry ) {
      sunk.push_back( entry.text );
      if( sunk.size() == 1 ) {
         Hoba::hobaLog< TEST_FULL >( 2, "acl %s", -1 ); // a sink may log
      }
   } );
   driver.advance( 5 );
   Hoba::hobaLog< TEST_FULL >( 7u, Pelt::IntfId( "Ethernet1" ), 70 );
   Hoba::logSinkIs( nullptr );
   EXPECT_EQ( sunk,
              ( Strings{ "7 of Ethernet1 are in use: 70%", "2 of acl %s are in use: -1%" } ) );
   auto const last = Hoba::logEntries().back();
   EXPECT_EQ( last.text, sunk[ 1 ] );
   EXPECT_EQ( last.time, 105 );
   for( int n = 0; n != 1500; ++n ) {
      Hoba::hobaLog< TEST_FULL >( n, "", 0 );
   }
   auto const & entries = Hoba::logEntries();
   ASSERT_EQ( entries.size(), 1000u );
   EXPECT_EQ( entries.back().sequence, last.sequence + 1500 );
   EXPECT_EQ( entries.front().sequence, last.sequence + 501 );
   EXPECT_EQ( entries.front().text, "500 of  are in use: 0%" );
}

} // namespace
