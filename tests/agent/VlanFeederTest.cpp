// SPDX-License-Identifier: Apache-2.0
// Ports, LAGs, VLANs and modes come and go in any order. After every step a model that looks at the
// configuration alone says what the status, the membership and the tables of the chip must be, and
// which rows of the chip may have been written.

#include "agent/feeders/VlanFeeder.h"
#include "Kiv/ClockDriver.h"
#include "agent/feeders/LagFeeder.h"
#include "agent/feeders/PortFeeder.h"
#include "chips/sim/SimVlan.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Bridging::VlanSet;
using Intf = Pelt::IntfId;
using eth = Pelt::EthIntfId;
using lag = Pelt::PortChannelIntfId;

// Everything that the chip holds, as text by table and key.
using Rows = std::map< std::string, std::string >;

class VlanFeederTest : public testing::TestWithParam< unsigned > {
 protected:
   VlanFeederTest() {
      Kiv::ClockDriver::ambientIs( driver );
      begin();
   }
   ~VlanFeederTest() override { end(); }

   void begin() {
      data = Kiv::make< Hoba::HobaCommonSmData >( "test" );
      data->vlanHelperIs( Kiv::make< HobaSim::VlanHelper >( unit, data, membership ) );
      ports = Feeders::PortFeeder::PortFeederIs( data, config, dir, chipPorts );
      lags = Feeders::LagFeeder::LagFeederIs( data, config, lagInput, dir );
      vlans = Feeders::VlanFeeder::VlanFeederIs( data, config, lagInput, membership );
      for( auto const & [ port, tpids ] : tpidsAsked ) {
         data->portVlanTpidDataIs( port, tpids );
      }
      ports->initializedIs( true );
      lags->initializedIs( true );
      vlans->initializedIs( true );
   }
   void end() {
      Hoba::letGo( vlans );
      Hoba::letGo( lags );
      Hoba::letGo( ports );
      data->cleanup();
   }

   // ---- The model

   bool exists( Intf intf ) const {
      return eth::isEthIntfId( intf ) ? config->portHas( eth( intf ) )
                                      : config->lagHas( lag( intf ) );
   }
   Hoba::VlanTagging wanted( Intf intf, VlanId vlan ) const {
      auto const asked = config->vlan( vlan );
      auto const inLag = lagInput->ethPhyIntfLagConfig( intf );
      if( !asked || !asked->active() || !exists( intf ) || ( inLag && exists( inLag ) ) ) {
         return Hoba::vlanNotCarried;
      }
      auto const intfConfig = config->switchIntf( intf );
      bool const isNative = ( intfConfig ? intfConfig->nativeVlan().value() : 1 ) == vlan.value();
      bool isCarried = isNative;
      if( intfConfig && intfConfig->switchportMode() != Bridging::switchportModeAccess ) {
         isCarried = intfConfig->switchportMode() == Bridging::switchportModeTrunk &&
                     asked->memberHas( intf );
      }
      return !isCarried ? Hoba::vlanNotCarried : isNative ? Hoba::vlanUntagged : Hoba::vlanTagged;
   }
   Rows wantedRows() const {
      Rows rows;
      for( auto const vlan : allVlans ) {
         if( auto const asked = config->vlan( vlan ); asked && asked->active() ) {
            rows[ "vlan " + Kiv::toText( vlan ) ] = "true";
         }
         for( auto const intf : allIntfs ) {
            auto const how = wanted( intf, vlan );
            if( how != Hoba::vlanNotCarried ) {
               rows[ "member " + Kiv::toText( HobaSim::VlanMember( vlan, intf ) ) ] =
                     Kiv::toText( how );
            }
            if( how == Hoba::vlanUntagged ) {
               rows[ "native " + Kiv::toText( intf ) ] = Kiv::toText( vlan );
            }
         }
      }
      for( auto const & [ port, tpids ] : tpidsAsked ) {
         if( exists( port ) ) {
            rows[ "tpid " + Kiv::toText( port ) ] = Kiv::toText( tpids );
         }
      }
      return rows;
   }
   Rows chipRows() const {
      Rows rows;
      auto const add = [ & ]( std::string const & table, auto const & view ) {
         for( auto const & row : view ) {
            rows[ table + ' ' + Kiv::toText( row.key ) ] = Kiv::toText( row.value );
         }
      };
      add( "vlan", unit->vlan() );
      add( "member", unit->member() );
      add( "native", unit->native() );
      add( "tpid", unit->tpid() );
      return rows;
   }
   void check( std::string const & step ) const {
      SCOPED_TRACE( step );
      EXPECT_EQ( chipRows(), wantedRows() );
      EXPECT_EQ( data->vlanHelper()->verify(), "" );
      EXPECT_EQ( data->vlanStatus().size(), config->vlan().size() );
      std::size_t carriers = 0;
      for( auto const intf : allIntfs ) {
         carriers += membership->intfHas( intf ) ? 1 : 0;
         for( auto const vlan : allVlans ) {
            auto const how = wanted( intf, vlan );
            EXPECT_EQ( membership->intf( intf ).tagging( vlan ), how )
                  << Kiv::toText( intf ) << ' ' << vlan.value();
            auto const status = data->vlanStatus( vlan );
            ASSERT_EQ( status != nullptr, config->vlanHas( vlan ) ) << vlan.value();
            EXPECT_EQ( status && status->intfHas( intf ), how != Hoba::vlanNotCarried )
                  << Kiv::toText( intf ) << ' ' << vlan.value();
            EXPECT_EQ( status && status->active(), status && config->vlan( vlan )->active() );
         }
      }
      EXPECT_EQ( membership->intf().size(), carriers );
   }
   static std::uint64_t differences( Rows const & before, Rows const & after ) {
      std::uint64_t count = 0;
      for( auto const & [ from, to ] : { std::pair( &before, &after ), { &after, &before } } ) {
         for( auto const & [ key, value ] : *from ) {
            // What changed is counted where it came from.
            count += !to->contains( key ) || ( from == &before && to->at( key ) != value ) ? 1 : 0;
         }
      }
      return count;
   }

   // ---- The steps

   unsigned pick( std::size_t choices ) { return static_cast< unsigned >( random() % choices ); }
   VlanId anyVlan() { return allVlans[ pick( allVlans.size() ) ]; }
   Intf anyIntf() { return allIntfs[ pick( allIntfs.size() ) ]; }
   eth anyPort() { return eth( pick( 5 ) + 1 ); }
   lag anyLag() { return lag( pick( 2 ) + 1 ); }

   Kiv::Ptr< Bridging::SwitchIntfConfig > intfConfigOf( Intf intf ) {
      auto const asked = config->switchIntf( intf );
      return asked ? asked : config->switchIntfIs( intf );
   }
   void toggleMember( Feeders::VlanConfig & vlan, Intf intf ) {
      vlan.memberHas( intf ) ? vlan.memberDel( intf ) : vlan.memberIs( intf );
   }
   void replaceVlan( VlanId vlan ) {
      auto const other = Kiv::make< Feeders::VlanConfig >( vlan );
      for( auto const intf : allIntfs ) {
         if( pick( 2 ) ) {
            other->memberIs( intf );
         }
      }
      config->vlanIs( vlan, other );
   }
   std::string step() {
      auto const vlan = anyVlan();
      auto const intf = anyIntf();
      auto const port = anyPort();
      auto const what = pick( 17 );
      switch( what ) {
      case 0:
         config->portHas( port ) ? config->portDel( port ) : void( config->portIs( port ) );
         break;
      case 1:
         if( auto const there = config->port( port ) ) {
            there->enabledIs( !there->enabled() );
         }
         break;
      case 2: {
         auto const which = anyLag();
         config->lagHas( which ) ? config->lagDel( which ) : void( config->lagIs( which ) );
         break;
      }
      case 3:
         lagInput->ethPhyIntfLagConfigIs( port, anyLag() );
         break;
      case 4:
         lagInput->ethPhyIntfLagConfigDel( port );
         break;
      case 5:
         config->vlanHas( vlan ) ? config->vlanDel( vlan ) : void( config->vlanIs( vlan ) );
         break;
      case 6:
         if( auto const there = config->vlan( vlan ) ) {
            there->activeIs( !there->active() );
         }
         break;
      case 7:
         replaceVlan( vlan );
         break;
      case 8:
         config->switchIntfDel( intf );
         break;
      case 9:
         intfConfigOf( intf )->nativeVlanIs( VlanIdOrNone( pick( 2 ) ? vlan.value() : 0 ) );
         break;
      case 10:
         intfConfigOf( intf )->switchportModeIs( Bridging::SwitchportMode( pick( 3 ) ) );
         break;
      case 11: {
         Hoba::HobaPortVlanTpidData const tpids{ std::uint16_t( 0x88a8 + pick( 2 ) ), 0x8100 };
         pick( 2 ) ? void( tpidsAsked[ port ] = tpids ) : void( tpidsAsked.erase( port ) );
         tpidsAsked.contains( port ) ? data->portVlanTpidDataIs( port, tpids )
                                     : data->portVlanTpidDataDel( port );
         break;
      }
      case 12:
         intfConfigOf( intf )->switchportModeIs( Bridging::switchportModeTrunk );
         break;
      default:
         if( auto const there = config->vlan( vlan ) ) {
            toggleMember( *there, intf );
         }
      }
      return "kind " + std::to_string( what ) + ", " + Kiv::toText( port ) + ", " +
             Kiv::toText( intf ) + ", VLAN " + Kiv::toText( vlan );
   }

   Kiv::VirtualDriver driver{ 100 };
   std::mt19937 random{ GetParam() };
   std::vector< VlanId > const allVlans{ VlanId( 1 ), VlanId( 2 ), VlanId( 3 ), VlanId( 7 ),
                                         VlanId( 4094 ) };
   std::vector< Intf > allIntfs{ eth( 1 ), eth( 2 ), eth( 3 ), eth( 4 ),
                                 eth( 5 ), lag( 1 ), lag( 2 ) };
   std::map< Intf, Hoba::HobaPortVlanTpidData > tpidsAsked;

   Kiv::Ptr< Feeders::Config > const config = Kiv::make< Feeders::Config >();
   Kiv::Ptr< Lag::Input::Config > const lagInput = Kiv::make< Lag::Input::Config >();
   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const dir =
         Kiv::make< Interface::AllEthPhyIntfStatusDir >();
   Kiv::Ptr< HobaTypes::HobaPortStatusDir > const chipPorts =
         Kiv::make< HobaTypes::HobaPortStatusDir >();
   Kiv::Ptr< Hoba::PortVlanMembership > const membership = Kiv::make< Hoba::PortVlanMembership >();
   Kiv::Ptr< HobaSim::VlanUnit > const unit = Kiv::make< HobaSim::VlanUnit >( "vlan" );
   Kiv::Ptr< Hoba::HobaCommonSmData > data;
   Kiv::Ptr< Feeders::PortFeeder > ports;
   Kiv::Ptr< Feeders::LagFeeder > lags;
   Kiv::Ptr< Feeders::VlanFeeder > vlans;
};

INSTANTIATE_TEST_SUITE_P( Seeds, VlanFeederTest, testing::Range( 0u, 12u ) );

// One step writes exactly the rows that differ: what stays wanted is neither withdrawn nor written again.
TEST_P( VlanFeederTest, whateverTheOrder ) {
   for( unsigned n = 0; n != 400 && !HasFailure(); ++n ) {
      auto const before = chipRows();
      auto const writes = unit->writes();
      auto const text = step();
      check( "step " + std::to_string( n ) + ": " + text );
      EXPECT_EQ( unit->writes() - writes, differences( before, chipRows() ) ) << text;
      if( n % 50 == 49 ) {
         // A restart under the running chip, on a new context.
         auto const held = unit->writes();
         end();
         begin();
         unit->sweep();
         check( "restart" );
         EXPECT_EQ( unit->writes(), held );
         EXPECT_EQ( unit->swept(), 0u );
      }
   }
}

// What changed while nobody was there is brought in line, and swept where nobody asks for it.
TEST_P( VlanFeederTest, aRestartWithAnotherConfiguration ) {
   for( unsigned n = 0; n != 60; ++n ) {
      step();
   }
   end();
   auto const held = chipRows();
   auto const writes = unit->writes();
   for( unsigned n = 0; n != 60; ++n ) {
      step();
   }
   begin();
   unit->sweep();
   check( "after the restart" );
   EXPECT_EQ( unit->writes() - writes + unit->swept(), differences( held, chipRows() ) );
}

// Many interfaces have their turn in slices, while things go on changing.
TEST_P( VlanFeederTest, inSlices ) {
   for( unsigned number = 6; number != 60; ++number ) {
      allIntfs.push_back( eth( number ) );
      config->portIs( eth( number ) );
   }
   data->yieldTimeSliceIs( 0 );
   for( unsigned n = 0; n != 40; ++n ) {
      config->vlan( VlanId( 1 ) ) ? config->vlanDel( VlanId( 1 ) )
                                  : void( replaceVlan( VlanId( 1 ) ) );
      EXPECT_FALSE( vlans->waiting().empty() );
      step();
      if( pick( 2 ) ) {
         driver.advance( 0 );
      }
   }
   EXPECT_TRUE( driver.runUntilIdle( 10 ) );
   EXPECT_TRUE( vlans->waiting().empty() && vlans->leaving().empty() );
   check( "in the end" );
}

// What is on its way to a slow chip is no mismatch; what is lost is one.
TEST_P( VlanFeederTest, aSlowChip ) {
   for( auto * table : unit->tables() ) {
      table->control()->latencyIs( 0.1 );
   }
   data->handleInitialized();
   config->portIs( eth( 1 ) );
   EXPECT_TRUE( unit->member().empty() );
   EXPECT_EQ( data->vlanHelper()->verify(), "" );
   EXPECT_TRUE( data->verifyData()->retryVerify() );
   for( unsigned n = 0; n != 40; ++n ) {
      step();
      driver.advance( 0.03 );
   }
   driver.advance( 1 );
   check( "landed" );
   unit->memberIs( { VlanId( 9 ), eth( 9 ) }, Hoba::vlanTagged );
   EXPECT_EQ( data->vlanHelper()->verify(),
              "VLAN member 9@Ethernet9: nothing expected, vlanTagged found" );
}

// A chip that refuses is asked again, and none of it counts as carried meanwhile.
TEST_P( VlanFeederTest, aChipThatRefuses ) {
   auto const failures = Kiv::Dispatch::failures;
   auto const faultsAre = [ & ]( double chance ) {
      for( auto * table : unit->tables() ) {
         table->control()->seedIs( GetParam() + 1 );
         table->control()->faultIs( HobaSim::tableBusy, { chance, 0 } );
         table->control()->faultIs( HobaSim::tableFull, { chance, 0 } );
      }
   };
   for( unsigned round = 0; round != 10; ++round ) {
      faultsAre( 0.3 );
      for( unsigned n = 0; n != 20; ++n ) {
         step();
         driver.advance( 0.4 );
         for( auto const & [ intf, carries ] : membership->intf() ) {
            if( !vlans->refusedIntfHas( intf ) ) {
               for( auto const vlan : carries.carried() ) {
                  EXPECT_EQ( unit->member( { vlan, intf } ), carries.tagging( vlan ) );
               }
            }
         }
      }
      faultsAre( 0 );
      driver.advance( 2 );
      check( "round " + std::to_string( round ) );
      EXPECT_TRUE( vlans->refusedIntf().empty() && vlans->refusedVlan().empty() );
   }
   EXPECT_GT( Kiv::Dispatch::failures, failures );

   // Rows of a former agent that another one may not change at first, and then wants no more.
   lagInput->ethPhyIntfLagConfigDel( eth( 1 ) );
   config->portIs( eth( 1 ) );
   config->vlanIs( VlanId( 2 ), Kiv::make< Feeders::VlanConfig >( VlanId( 2 ) ) );
   config->vlan( VlanId( 2 ) )->memberIs( eth( 1 ) );
   intfConfigOf( eth( 1 ) )->switchportModeIs( Bridging::switchportModeTrunk );
   intfConfigOf( eth( 1 ) )->nativeVlanIs( VlanIdOrNone() );
   tpidsAsked[ eth( 1 ) ] = { 0x88a8, 0x8100 };
   data->portVlanTpidDataIs( eth( 1 ), tpidsAsked[ eth( 1 ) ] );
   check( "before" );
   end();
   intfConfigOf( eth( 1 ) )->nativeVlanIs( VlanIdOrNone( 2 ) );
   tpidsAsked[ eth( 1 ) ] = { 0x9100, 0x8100 };
   faultsAre( 1 );
   begin();
   unit->sweep();
   config->vlan( VlanId( 2 ) )->memberDel( eth( 1 ) );
   tpidsAsked.clear();
   data->portVlanTpidDataDelAll();
   faultsAre( 0 );
   driver.advance( 2 );
   check( "after" );
}

} // namespace
