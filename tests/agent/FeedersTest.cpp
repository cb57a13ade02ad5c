// SPDX-License-Identifier: Apache-2.0
// The feeders write what the machines of the library read, so what counts is the state that they
// leave, whatever the order in which they were told, and the order in which they write it.

#include "Hoba/HobaHelper.h"
#include "Kiv/Reflect.h"
#include "Tessera/Database.h"
#include "agent/feeders/LagFeeder.h"
#include "agent/feeders/PortFeeder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace {

using Hoba::HobaCommonSmData;
using Ports = std::vector< Pelt::IntfId >;
using Texts = std::vector< std::string >;
using eth = Pelt::EthIntfId;
using lag = Pelt::PortChannelIntfId;

class FeedersTest : public testing::Test {
 protected:
   FeedersTest() {
      database.mount( "/data", data, Tessera::Access::status );
      database.mount( "/dir", dir, Tessera::Access::status );
      ports = Feeders::PortFeeder::PortFeederIs( data, config, dir, chipPorts );
      lags = Feeders::LagFeeder::LagFeederIs( data, config, lagInput, dir );
      // Whoever hears of a change finds every member of a LAG in portToLag.
      watch( [ this ]( std::string const & ) {
         for( auto const & [ lagId, list ] : data->lagToPort() ) {
            for( auto const port : list.port ) {
               EXPECT_EQ( data->portToLag( port ), lagId ) << Kiv::toText( port );
            }
         }
      } );
   }

   void start() {
      ports->initializedIs( true );
      lags->initializedIs( true );
   }

   void inLag( unsigned port, unsigned number ) {
      lagInput->ethPhyIntfLagConfigIs( eth( port ), lag( number ) );
   }
   Ports configured( unsigned number ) const { return data->lagToPortConfig( lag( number ) ).port; }
   Ports active( unsigned number ) const { return data->lagToPort( lag( number ) ).port; }

   // Nothing is in portToLag that is in no LAG.
   void expectBothWays() const {
      std::size_t members = 0;
      for( auto const & [ lagId, list ] : data->lagToPort() ) {
         members += list.port.size();
      }
      EXPECT_EQ( data->portToLag().size(), members );
   }
   // Calls `note` with the path of everything that changes, while it does.
   template< class Note >
   void watch( Note note ) {
      database.watch( "/", [ = ]( auto const & path, auto const & ) { note( path.text() ); } );
   }

   Tessera::Database database;
   Kiv::Ptr< HobaCommonSmData > const data = Kiv::make< HobaCommonSmData >( "test" );
   Kiv::Ptr< Feeders::Config > const config = Kiv::make< Feeders::Config >();
   Kiv::Ptr< Lag::Input::Config > const lagInput = Kiv::make< Lag::Input::Config >();
   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const dir =
         Kiv::make< Interface::AllEthPhyIntfStatusDir >();
   Kiv::Ptr< HobaTypes::HobaPortStatusDir > const chipPorts =
         Kiv::make< HobaTypes::HobaPortStatusDir >();
   Kiv::Ptr< Feeders::PortFeeder > ports;
   Kiv::Ptr< Feeders::LagFeeder > lags;
};

TEST_F( FeedersTest, portsFollowTheirConfiguration ) {
   config->portIs( eth( 1 ) )->speedIs( Interface::EthMbps( 10000 ) );
   EXPECT_TRUE( data->intf().empty() ) << "before the owner says so";
   start();
   EXPECT_TRUE( data->cpuIntf( Hoba::CpuPortName() ) );
   struct Row {
      std::uint32_t speed;
      bool enabled, linkUp;
      std::tuple< Interface::EthSpeed, Interface::LinkStatus, bool > outcome; // and active
   };
   auto const port = config->port( eth( 1 ) );
   auto const status = dir->ethPhyIntfStatus( eth( 1 ) );
   ASSERT_TRUE( status );
   for( auto const & row :
        { Row{ 10000, true, true, { Interface::speed10Gbps, Interface::linkUp, true } },
          Row{ 0, true, false, { Interface::speedUnknown, Interface::linkDown, false } },
          Row{ 2500, false, true, { Interface::speed2500Mbps, Interface::linkUp, false } } } ) {
      port->speedIs( Interface::EthMbps( row.speed ) );
      port->enabledIs( row.enabled );
      port->linkUpIs( row.linkUp );
      EXPECT_EQ( std::tuple( status->speed(), status->linkStatus(), status->active() ),
                 row.outcome );
      EXPECT_TRUE( data->intf( eth( 1 ) ) ) << "a port that is down is there";
   }
   // The chip has a say in the link, while the cable is plugged in.
   port->enabledIs( true );
   auto const reported = chipPorts->portStatus( eth( 1 ) );
   ASSERT_TRUE( reported );
   for( auto const link : { Interface::linkDown, Interface::linkUp } ) {
      reported->linkStatusIs( link );
      EXPECT_EQ( status->linkStatus(), link );
      EXPECT_EQ( status->active(), link == Interface::linkUp );
   }
   port->linkUpIs( false );
   EXPECT_EQ( status->linkStatus(), Interface::linkDown );
   config->portDel( eth( 1 ) );
   EXPECT_TRUE( chipPorts->portStatus().empty() );
}

TEST_F( FeedersTest, aPortIsKnownCompleteAndLeavesOutOfService ) {
   start();
   Texts log;
   watch( [ & ]( std::string const & path ) {
      if( path.starts_with( "/data/intf/" ) || path == "/dir/ethPhyIntfStatus/Ethernet1" ) {
         auto const status = dir->ethPhyIntfStatus( eth( 1 ) );
         log.push_back( path + ( data->intfHas( eth( 1 ) ) ? " there" : " gone" ) +
                        ( !status            ? ", unknown"
                          : status->active() ? ", active"
                                             : ", inactive" ) );
      }
   } );
   config->portIs( eth( 1 ) );
   config->portDel( eth( 1 ) );
   EXPECT_EQ( log,
              ( Texts{ "/dir/ethPhyIntfStatus/Ethernet1 gone, active",
                       "/data/intf/Ethernet1 there, active", "/data/intf/Ethernet1 gone, inactive",
                       "/dir/ethPhyIntfStatus/Ethernet1 gone, unknown" } ) );
}

// The same facts, told in every order: before the start, after it, and halfway.
TEST_F( FeedersTest, theOrderOfTellingDoesNotMatter ) {
   using Step = std::function< void() >;
   auto const stays = [] {};
   // Each of them, and what takes it back.
   std::vector< std::pair< Step, Step > > const facts = {
         { [ & ] { config->portIs( eth( 1 ) ); }, [ & ] { config->portDel( eth( 1 ) ); } },
         { [ & ] { config->portIs( eth( 2 ) )->linkUpIs( false ); },
           [ & ] { config->portDel( eth( 2 ) ); } },
         { [ & ] { config->lagIs( lag( 7 ) )->kindIs( HobaTypes::lagTypeLacp ); },
           [ & ] { config->lagDel( lag( 7 ) ); } },
         { [ & ] { inLag( 1, 7 ); }, [ & ] { lagInput->ethPhyIntfLagConfigDel( eth( 1 ) ); } },
         { [ & ] { inLag( 2, 7 ); }, [ & ] { lagInput->ethPhyIntfLagConfigDel( eth( 2 ) ); } },
         { [ & ] { ports->initializedIs( true ); }, stays },
         { [ & ] { lags->initializedIs( true ); }, stays },
   };
   std::vector< std::size_t > order = { 0, 1, 2, 3, 4, 5, 6 };
   do {
      SCOPED_TRACE( Kiv::toText( order ) );
      for( auto const fact : order ) {
         facts[ fact ].first();
      }
      auto all = configured( 7 );
      std::ranges::sort( all );
      ASSERT_EQ( all, ( Ports{ eth( 1 ), eth( 2 ) } ) );
      ASSERT_EQ( active( 7 ), Ports{ eth( 1 ) } );
      expectBothWays();
      ASSERT_EQ( data->lagToLagType( lag( 7 ) ), HobaTypes::lagTypeLacp );
      // Back to nothing, in the same order.
      for( auto const fact : order ) {
         facts[ fact ].second();
      }
      ASSERT_TRUE( data->intf().empty() && dir->ethPhyIntfStatus().empty() );
      ASSERT_TRUE( data->lagToPortConfig().empty() && data->lagToPort().empty() );
      ASSERT_TRUE( data->portToLag().empty() && data->lagToLagType().empty() );
      ports->initializedIs( false );
      lags->initializedIs( false );
   } while( std::ranges::next_permutation( order ).found );
}

// They stand in the order in which they joined.
TEST_F( FeedersTest, aLagHasMembersWhileItMay ) {
   start();
   auto const po = config->lagIs( lag( 7 ) );
   for( unsigned port : { 1u, 2u } ) {
      config->portIs( eth( port ) );
      inLag( port, 7 );
   }
   config->lagIs( lag( 8 ) );
   Ports const one{ eth( 1 ) }, two{ eth( 2 ) }, both{ eth( 1 ), eth( 2 ) },
         turned{ eth( 2 ), eth( 1 ) };
   auto const cable = [ & ]( unsigned number, bool in ) {
      config->port( eth( number ) )->linkUpIs( in );
   };
   struct Row {
      char const * what;
      std::function< void() > change;
      Ports expected;
      bool individual = false;
      Ports configured = { eth( 1 ), eth( 2 ) };
   };
   // clang-format off
   for( auto const & row : {
           Row{ "as many as asked for", [ & ] { po->minLinksIs( 2 ); }, both },
           Row{ "one more", [ & ] { po->minLinksIs( 3 ); }, {} },
           Row{ "again", [ & ] { po->minLinksIs( 2 ); }, both },
           Row{ "a cable out", [ & ] { cable( 2, false ); }, {} },
           Row{ "no minimum", [ & ] { po->minLinksIs( 0 ); }, one },
           Row{ "cable in", [ & ] { cable( 2, true ); }, both },
           Row{ "disabled", [ & ] { po->enabledIs( false ); }, {} },
           Row{ "enabled", [ & ] { po->enabledIs( true ); }, both },
           Row{ "static needs no partner", [ & ] { po->lacpPartnerIs( false ); }, both },
           Row{ "LACP does", [ & ] { po->kindIs( HobaTypes::lagTypeLacp ); }, {} },
           Row{ "fallback", [ & ] { po->lacpFallbackIs( true ); }, {}, true },
           Row{ "partner", [ & ] { po->lacpPartnerIs( true ); }, both },
           Row{ "the first one leaves", [ & ] { cable( 1, false ); }, two },
           Row{ "and is the last", [ & ] { cable( 1, true ); }, turned },
           Row{ "one moves", [ & ] { inLag( 1, 8 ); }, two, false, two },
           Row{ "too few", [ & ] { po->minLinksIs( 2 ); }, {}, false, two },
           Row{ "it comes back", [ & ] { inLag( 1, 7 ); }, turned, false, turned },
           Row{ "a port is gone", [ & ] { config->portDel( eth( 2 ) ); }, {}, false, one },
           Row{ "which is enough", [ & ] { po->minLinksIs( 1 ); }, one, false, one },
           Row{ "the LAG is gone", [ & ] { config->lagDel( lag( 7 ) ); }, {}, false, {} },
        } ) {
      // clang-format on
      SCOPED_TRACE( row.what );
      row.change();
      EXPECT_EQ( active( 7 ), row.expected );
      EXPECT_EQ( data->lagInLacpFallbackIndividualMode( lag( 7 ) ), row.individual );
      EXPECT_EQ( configured( 7 ), row.configured );
      expectBothWays();
   }
}

TEST_F( FeedersTest, whatDoesNotExistIsIgnored ) {
   start();
   inLag( 1, 7 );
   lagInput->ethPhyIntfLagConfigIs( Pelt::IntfId( "Vlan5" ), lag( 7 ) );
   lagInput->ethPhyIntfLagConfigIs( eth( 2 ), eth( 1 ) );
   config->lagIs( lag( 7 ) );
   config->portIs( eth( 2 ) );
   EXPECT_TRUE( configured( 7 ).empty() );
   EXPECT_TRUE( data->lagToPortHas( lag( 7 ) ) );
   EXPECT_EQ( data->lagToPort().size(), 1u );
   // By the name of another kind of interface there is no port at all.
   auto const & port = *Feeders::Config::kivType().reflection()->attributes().front();
   EXPECT_THROW( port.makeChild( *config, "Port-Channel7" ), Kiv::ParseError );
   EXPECT_EQ( config->port().size(), 1u );
}

} // namespace
