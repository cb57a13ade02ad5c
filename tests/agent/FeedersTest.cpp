// SPDX-License-Identifier: Apache-2.0
// The feeders write what the machines of the library read. What state they leave, whatever the order in which
// they were told, the simulation of the whole switch finds out; here is the order in which they write it, and
// what cannot be configured from outside.

#include "Kiv/Reflect.h"
#include "Tessera/Database.h"
#include "agent/feeders/LagFeeder.h"
#include "agent/feeders/PortFeeder.h"

#include <gtest/gtest.h>


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
   }

   void start() {
      ports->initializedIs( true );
      lags->initializedIs( true );
   }

   void inLag( unsigned port, unsigned number ) {
      lagInput->ethPhyIntfLagConfigIs( eth( port ), lag( number ) );
   }
   Ports configured( unsigned number ) const { return data->lagToPortConfig( lag( number ) ).port; }
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
