// SPDX-License-Identifier: Apache-2.0
// The feeders write what the machines of the library read, so what counts is the state that they
// leave, whatever the order in which they were told, and the order in which they write it.

#include "Hoba/HobaHelper.h"
#include "Kiv/Reflect.h"
#include "agent/feeders/LagFeeder.h"
#include "agent/feeders/PortFeeder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace {

using Hoba::HobaCommonSmData;
using Ports = std::vector< Pelt::IntfId >;

Pelt::EthIntfId
eth( unsigned number ) {
   return Pelt::EthIntfId( number );
}

Pelt::PortChannelIntfId
lag( unsigned number ) {
   return Pelt::PortChannelIntfId( number );
}

// Writes down the changes of an entity's attributes, in order, and asks a question at each.
class Listener : public Kiv::PtrInterface::NotifieeConst {
 public:
   using Check = std::function< void( std::string_view attribute, Pelt::IntfId key ) >;

   Listener( Kiv::Entity const & entity, Check check ) : check_( std::move( check ) ) {
      watch( &entity );
      isRegisteredNotifieeIs( true );
      hasNotificationActiveIs( true );
   }
   KIV_TYPE( Listener );
   void onAttribute( Kiv::AttributeId const & attribute, void const * key ) override {
      auto const intf = key ? *static_cast< Pelt::IntfId const * >( key ) : Pelt::IntfId();
      check_( attribute.name, intf );
   }

 private:
   Check check_;
};

class FeedersTest : public testing::Test {
 protected:
   FeedersTest() {
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
   Ports active( unsigned number ) const { return data->lagToPort( lag( number ) ).port; }

   // portToLag and lagToPort say the same.
   void expectBothWays() const {
      std::size_t members = 0;
      for( auto const & [ lagId, list ] : data->lagToPort() ) {
         members += list.port.size();
         for( auto const port : list.port ) {
            EXPECT_EQ( data->portToLag( port ), lagId ) << Kiv::toText( port );
         }
      }
      EXPECT_EQ( data->portToLag().size(), members );
   }

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
      bool enabled;
      bool linkUp;
      Interface::EthSpeed expectedSpeed;
      Interface::LinkStatus expectedLink;
      bool expectedActive;
   };
   auto const port = config->port( eth( 1 ) );
   auto const status = dir->ethPhyIntfStatus( eth( 1 ) );
   ASSERT_TRUE( status );
   for( auto const & row :
        { Row{ 10000, true, true, Interface::speed10Gbps, Interface::linkUp, true },
          Row{ 0, true, false, Interface::speedUnknown, Interface::linkDown, false },
          Row{ 2500, false, true, Interface::speed2500Mbps, Interface::linkUp, false } } ) {
      SCOPED_TRACE( row.speed );
      port->speedIs( Interface::EthMbps( row.speed ) );
      port->enabledIs( row.enabled );
      port->linkUpIs( row.linkUp );
      EXPECT_EQ( status->speed(), row.expectedSpeed );
      EXPECT_EQ( status->linkStatus(), row.expectedLink );
      EXPECT_EQ( status->active(), row.expectedActive );
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
   std::vector< std::string > log;
   auto note = [ & ]( std::string_view attribute, Pelt::IntfId intf ) {
      auto const status = dir->ethPhyIntfStatus( intf );
      log.push_back( std::string( attribute ) + ( data->intfHas( intf ) ? " there" : " gone" ) +
                     ( !status            ? ", unknown"
                       : status->active() ? ", active"
                                          : ", inactive" ) );
   };
   auto const onDir = Kiv::make< Listener >( *dir, note );
   auto const onData = Kiv::make< Listener >( *data, note );
   config->portIs( eth( 1 ) );
   config->portDel( eth( 1 ) );
   EXPECT_EQ( log, ( std::vector< std::string >{ "ethPhyIntfStatus gone, active",
                                                 "intf there, active", "intf gone, inactive",
                                                 "ethPhyIntfStatus gone, unknown" } ) );
}

// The same facts, told in every order: before the start, after it, and halfway.
TEST_F( FeedersTest, theOrderOfTellingDoesNotMatter ) {
   std::vector< std::function< void() > > facts = {
         [ & ] { config->portIs( eth( 1 ) ); },
         [ & ] { config->portIs( eth( 2 ) )->linkUpIs( false ); },
         [ & ] { config->lagIs( lag( 7 ) )->kindIs( HobaTypes::lagTypeLacp ); },
         [ & ] { inLag( 1, 7 ); },
         [ & ] { inLag( 2, 7 ); },
         [ & ] { ports->initializedIs( true ); },
         [ & ] { lags->initializedIs( true ); },
   };
   std::vector< std::size_t > order = { 0, 1, 2, 3, 4, 5, 6 };
   do {
      SCOPED_TRACE( Kiv::toText( order ) );
      for( auto const fact : order ) {
         facts[ fact ]();
      }
      auto members = configured( 7 );
      std::ranges::sort( members );
      ASSERT_EQ( members, ( Ports{ eth( 1 ), eth( 2 ) } ) );
      ASSERT_EQ( active( 7 ), Ports{ eth( 1 ) } );
      ASSERT_EQ( data->portToLag( eth( 1 ) ), lag( 7 ) );
      ASSERT_FALSE( data->inLag( eth( 2 ) ) );
      ASSERT_EQ( data->lagToLagType( lag( 7 ) ), HobaTypes::lagTypeLacp );

      // Back to nothing, in the same order.
      std::vector< std::function< void() > > const undo = {
            [ & ] { config->portDel( eth( 1 ) ); },
            [ & ] { config->portDel( eth( 2 ) ); },
            [ & ] { config->lagDel( lag( 7 ) ); },
            [ & ] { lagInput->ethPhyIntfLagConfigDel( eth( 1 ) ); },
            [ & ] { lagInput->ethPhyIntfLagConfigDel( eth( 2 ) ); },
      };
      for( auto const fact : order ) {
         if( fact < undo.size() ) {
            undo[ fact ]();
         }
      }
      ASSERT_TRUE( data->intf().empty() && dir->ethPhyIntfStatus().empty() );
      ASSERT_TRUE( data->lagToPortConfig().empty() && data->lagToPort().empty() );
      ASSERT_TRUE( data->portToLag().empty() && data->lagToLagType().empty() );
      ports->initializedIs( false );
      lags->initializedIs( false );
   } while( std::ranges::next_permutation( order ).found );
}

TEST_F( FeedersTest, membersStandInTheOrderInWhichTheyJoined ) {
   start();
   config->lagIs( lag( 7 ) );
   for( unsigned port : { 1u, 2u, 3u } ) {
      config->portIs( eth( port ) );
      inLag( port, 7 );
   }
   EXPECT_EQ( active( 7 ), ( Ports{ eth( 1 ), eth( 2 ), eth( 3 ) } ) );
   config->port( eth( 1 ) )->enabledIs( false );
   EXPECT_EQ( active( 7 ), ( Ports{ eth( 2 ), eth( 3 ) } ) );
   config->port( eth( 1 ) )->enabledIs( true );
   EXPECT_EQ( active( 7 ), ( Ports{ eth( 2 ), eth( 3 ), eth( 1 ) } ) );
   EXPECT_EQ( configured( 7 ), ( Ports{ eth( 1 ), eth( 2 ), eth( 3 ) } ) );
   expectBothWays();
}

TEST_F( FeedersTest, aLagHasMembersWhileItMay ) {
   start();
   auto const po = config->lagIs( lag( 7 ) );
   for( unsigned port : { 1u, 2u } ) {
      config->portIs( eth( port ) );
      inLag( port, 7 );
   }
   Ports const both{ eth( 1 ), eth( 2 ) };
   struct Row {
      char const * what;
      std::function< void() > change;
      Ports expected;
      bool individual;
   };
   for( auto const & row : {
              Row{ "as many as asked for", [ & ] { po->minLinksIs( 2 ); }, both, false },
              Row{ "one more", [ & ] { po->minLinksIs( 3 ); }, {}, false },
              Row{ "again", [ & ] { po->minLinksIs( 2 ); }, both, false },
              Row{ "a cable out",
                   [ & ] { config->port( eth( 2 ) )->linkUpIs( false ); },
                   {},
                   false },
              Row{ "no minimum", [ & ] { po->minLinksIs( 0 ); }, { eth( 1 ) }, false },
              Row{ "cable in", [ & ] { config->port( eth( 2 ) )->linkUpIs( true ); }, both, false },
              Row{ "disabled", [ & ] { po->enabledIs( false ); }, {}, false },
              Row{ "enabled", [ & ] { po->enabledIs( true ); }, both, false },
              Row{ "static needs no partner", [ & ] { po->lacpPartnerIs( false ); }, both, false },
              Row{ "LACP does", [ & ] { po->kindIs( HobaTypes::lagTypeLacp ); }, {}, false },
              Row{ "fallback", [ & ] { po->lacpFallbackIs( true ); }, {}, true },
              Row{ "partner", [ & ] { po->lacpPartnerIs( true ); }, both, false },
        } ) {
      SCOPED_TRACE( row.what );
      row.change();
      EXPECT_EQ( active( 7 ), row.expected );
      EXPECT_EQ( data->lagInLacpFallbackIndividualMode( lag( 7 ) ), row.individual );
      EXPECT_EQ( configured( 7 ), both );
      expectBothWays();
   }
}

// Whoever hears of a change finds every member of a LAG in portToLag.
TEST_F( FeedersTest, portToLagComesFirstAndGoesLast ) {
   start();
   std::vector< std::string > log;
   auto const listener =
         Kiv::make< Listener >( *data, [ & ]( std::string_view attribute, Pelt::IntfId key ) {
            if( attribute == "portToLag" || attribute == "lagToPort" ) {
               log.push_back( std::string( attribute ) + ' ' + Kiv::toText( key ) );
               for( auto const & [ lagId, list ] : data->lagToPort() ) {
                  for( auto const port : list.port ) {
                     EXPECT_EQ( data->portToLag( port ), lagId );
                  }
               }
            }
         } );
   auto expectLog = [ & ]( char const * what, std::vector< std::string > const & expected ) {
      EXPECT_EQ( log, expected ) << what;
      log.clear();
   };
   std::string const po7 = "lagToPort Port-Channel7", po8 = "lagToPort Port-Channel8";
   std::string const eth1 = "portToLag Ethernet1", eth2 = "portToLag Ethernet2";
   for( unsigned port : { 1u, 2u } ) {
      config->portIs( eth( port ) );
      inLag( port, 7 );
   }
   config->lagIs( lag( 8 ) );
   expectLog( "no such LAG yet", { po8 } );
   config->lagIs( lag( 7 ) );
   expectLog( "appears", { po7, eth1, eth2, po7 } );
   inLag( 1, 8 );
   expectLog( "moves", { po7, eth1, eth1, po8 } );
   config->lag( lag( 7 ) )->minLinksIs( 2 );
   expectLog( "too few", { po7, eth2 } );
   inLag( 1, 7 );
   expectLog( "comes back", { po8, eth1, eth2, eth1, po7 } );
   config->portDel( eth( 2 ) );
   expectLog( "port removed", { po7, eth2, eth1 } );
   config->lag( lag( 7 ) )->minLinksIs( 0 );
   log.clear();
   config->lagDel( lag( 7 ) );
   expectLog( "LAG removed", { po7, eth1, po7 } );
   EXPECT_TRUE( data->portToLag().empty() );
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
