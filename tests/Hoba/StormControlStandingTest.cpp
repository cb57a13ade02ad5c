// SPDX-License-Identifier: Apache-2.0

// Storm control when something goes wrong meanwhile: watchers that remove who was called, hardware
// that refuses, and other agents that do things in another order than ours.

#include "StormControlTest.h"

namespace {

using namespace HobaTest;

class StormControlStandingTest : public HobaFixture {};

// Ethernet1 with levels of its own beside Port-Channel1 and its member Ethernet2.
void
startWithLevels( StormWorld & one ) {
   for( auto port : { et1, et2 } ) {
      one.portIs( port, speed10Gbps );
   }
   one.memberIs( et2, po1 );
   for( auto intf : { et1, po1 } ) {
      one.levelIs( intf, bc, percent( 100 ) );
      one.levelIs( intf, mc, percent( 200 ) );
   }
   one.start();
}

// ---- Calls from outside

using StatusWatcher = Watcher< IntfStatus, IntfStatus::broadcastAttr >;
using ReportWatcher = Watcher< Hoba::VerifyData, Hoba::VerifyData::cliVerifyOutputAttr >;

TEST_F( StormControlStandingTest, watchersMayRemoveWhoWasCalled ) {
   using Call = void ( * )( Hoba::StormControlSm & );
   Call const calls[] = { []( auto & sm ) { sm.enable( et1 ); },
                          []( auto & sm ) { sm.enable( po1 ); },
                          []( auto & sm ) { sm.disable( et1 ), sm.enable( et1 ); },
                          []( auto & sm ) { sm.initializedIs( false ), sm.initializedIs( true ); },
                          []( auto & sm ) { sm.handleVerify(); } };
   for( auto const & call : calls ) {
      for( bool wholeMachine : { false, true } ) {
         SCOPED_TRACE( std::to_string( &call - calls ) + ( wholeMachine ? ", machine" : "" ) );
         StormWorld one;
         startWithLevels( one );
         // Whatever the call does, the status changes.
         one.status->intfStatus( et1 )->broadcastIs( {} );
         one.status->intfStatus( po1 )->broadcastIs( {} );
         one.data->verifyData()->initVerifyData( 7 );
         auto const ofPort = Hoba::smIs< StatusWatcher >( one.status->intfStatus( et1 ) );
         auto const ofLag = Hoba::smIs< StatusWatcher >( one.status->intfStatus( po1 ) );
         auto const ofReport = Hoba::smIs< ReportWatcher >( one.data->verifyData() );
         ofPort->then = ofLag->then = ofReport->then = [ & ] {
            if( wholeMachine ) {
               one.sm = nullptr;
            } else {
               one.config->intfConfigDel( et1 );
               one.config->intfConfigDel( po1 );
            }
         };
         call( *one.sm );
         EXPECT_GT( ofPort->changes + ofLag->changes + ofReport->changes, 0u );
         EXPECT_TRUE( wholeMachine || one.outcome() == "" ) << one.outcome();
      }
   }
}

TEST_F( StormControlStandingTest, whatIsWantedChangesWhileItIsProgrammed ) {
   StormWorld world;
   world.portIs( et1, speed10Gbps );
   world.levelIs( et1, bc, percent( 100 ) );
   world.start();
   auto const watcher =
         Hoba::smIs< Watcher< Hoba::StormControlSm, Hoba::StormControlSm::heldAttr > >(
               Kiv::Ptr< Hoba::StormControlSm const >( world.sm ) );
   bool done = false;
   auto const onceThen = [ & ]( Hoba::LevelType levelType, std::uint32_t level ) {
      done = false;
      watcher->then = [ &, levelType, level ] {
         if( !std::exchange( done, true ) ) {
            world.levelIs( et1, levelType, percent( level ) );
         }
      };
   };
   onceThen( at, 10000 );
   world.levelIs( et1, at, percent( 500 ) );
   EXPECT_EQ( world.outcome(), world.freshOutcome() );
   // It goes, and comes again on the way.
   world.levelIs( et1, mc, percent( 100 ) );
   onceThen( mc, 300 );
   world.config->intfConfigDel( et1 );
   EXPECT_EQ( world.outcome(), world.freshOutcome() );
   // Also while its status is made.
   auto const ofStatus = Hoba::smIs< Watcher< Status, Status::intfStatusAttr > >( world.status );
   world.status->intfStatusDel( et1 );
   ofStatus->then = [ & ] { world.levelIs( et1, mc, percent( 10000 ) ); };
   world.levelIs( et1, mc, percent( 200 ) );
   EXPECT_EQ( world.outcome(), world.freshOutcome() );
}

TEST_F( StormControlStandingTest, configurationMayChangeInTheMiddleOfAReport ) {
   StormWorld world;
   world.portIs( et1, speed10Gbps );
   world.levelIs( et1, bc, percent( 100 ) );
   world.start();
   auto const watcher = Hoba::smIs< StatusWatcher >( world.status->intfStatus( et1 ) );
   // What is reported behind it is not what it was.
   watcher->then = [ & ] { world.levelIs( et1, mc, percent( 300 ) ); };
   world.data->intfDel( et1 );
   EXPECT_EQ( watcher->changes, 1u );
   EXPECT_EQ( world.levelStatus( et1, mc ).state, intfNotPresent );
   watcher->then = nullptr;
   world.data->intfIs( et1, true );
   // Nothing is reported any more: the all-traffic level takes others along in one report.
   auto const before = watcher->changes;
   watcher->then = [ & ] { world.config->intfConfigDel( et1 ); };
   world.levelIs( et1, at, percent( 500 ) );
   EXPECT_EQ( watcher->changes, before + 1 );
   EXPECT_EQ( world.outcome(), "" );
}

TEST_F( StormControlStandingTest, aPortThatIsToldAgainHasNotComeBack ) {
   StormWorld world;
   world.portIs( et1, speed10Gbps );
   world.start();
   world.data->intfIs( et1, false );
   EXPECT_EQ( world.helper->take(), Strings{} );
}

// ---- Hardware that refuses

// What happens to Ethernet1.
using Act = void ( * )( StormWorld & );
auto constexpr join = []( StormWorld & one ) { one.memberIs( et1, po1 ); };
auto constexpr leave = []( StormWorld & one ) { one.memberDel( et1 ); };
auto constexpr unplug = []( StormWorld & one ) { one.data->intfDel( et1 ); };
auto constexpr plug = []( StormWorld & one ) { one.data->intfIs( et1, true ); };
auto constexpr unlist = []( StormWorld & one ) { one.lagPortDel( po1, et1 ); };
auto constexpr list = []( StormWorld & one ) { one.lagPortIs( po1, et1 ); };
auto constexpr inactive = []( StormWorld & one ) { one.activeIs( et1, false ); };
auto constexpr active = []( StormWorld & one ) { one.activeIs( et1, true ); };
auto constexpr unconfigure = []( StormWorld & one ) { one.config->intfConfigDel( et1 ); };
auto constexpr unconfigureLag = []( StormWorld & one ) { one.config->intfConfigDel( po1 ); };
auto constexpr limitAll = []( StormWorld & one ) { one.levelIs( et1, at, percent( 500 ) ); };
auto constexpr configure = []( StormWorld & one ) {
   auto const config = Kiv::make< IntfConfig >( et1 );
   config->broadcastIs( percent( 100 ) );
   config->multicastIs( percent( 200 ) );
   one.config->intfConfigIs( et1, config );
};
auto constexpr refuseNoMore = []( StormWorld & one ) { one.helper->throwAt = 0; };

struct Steps {
   char const * what;
   std::vector< Act > before;
   std::vector< Act > refused; // one of its calls
};
Steps const stepsOfEt1[] = {
      { "configured", { unconfigure }, { configure } },
      { "configured and removed", { unconfigure }, { configure, refuseNoMore, unconfigure } },
      { "removed", {}, { unconfigure } },
      { "LAG removed", { join }, { unconfigureLag } },
      { "all-traffic level", {}, { limitAll } },
      { "joins", {}, { join } },
      { "joins without levels", { unconfigure }, { join } },
      { "leaves", { join }, { leave } },
      { "leaves without levels", { unconfigure, join }, { leave } },
      { "is away from the LAG's list for a moment", { join }, { unlist, list } },
      { "comes back", { unplug }, { plug } },
      { "member comes back", { join, unplug }, { plug } },
      { "inactive for a moment", {}, { inactive, active } },
      { "inactive", {}, { inactive } },
      { "left after a first pass that failed",
        { unconfigure },
        { configure, refuseNoMore, join, leave } },
};

// One call is refused, each in its turn. Whatever was under way: as soon as the ports change their
// speed everything is as on a fresh machine, or verification says of what it is not.
TEST_F( StormControlStandingTest, oneRefusedCallIsMadeUpForOrFound ) {
   for( auto const & row : stepsOfEt1 ) {
      for( unsigned n = 1;; ++n ) {
         SCOPED_TRACE( std::string( row.what ) + ", call " + std::to_string( n ) );
         StormWorld one;
         one.unit().dynamicLogicalPortsIs( true );
         startWithLevels( one );
         for( auto const act : row.before ) {
            act( one );
         }
         one.helper->throwAt = n;
         for( auto const act : row.refused ) {
            act( one );
         }
         if( one.helper->throwAt != 0 || failures() == 0 ) {
            one.helper->throwAt = 0;
            EXPECT_GT( n, 2u );
            break; // there are no more calls
         }
         EXPECT_EQ( one.status->intfStatus().size(), one.config->intfConfig().size() );
         for( auto speed : { speed1Gbps, speed10Gbps } ) {
            one.speedIs( et1, speed );
            one.speedIs( et2, speed );
         }
         auto const found = one.mismatches();
         EXPECT_EQ( one.outcome() == one.freshOutcome(), found.empty() )
               << one.outcome() << one.freshOutcome() << testing::PrintToString( found )
               << "is what was found";
      }
   }
}

// ---- What the simulation of the whole switch does not come past

struct Deed {
   char const * what;
   Act act;
};
Deed const deeds[] = {
      { "joins, the LAG first",
        []( auto & one ) { list( one ), one.data->portToLagIs( et1, po1 ); } },
      { "joins by half", []( auto & one ) { one.data->portToLagIs( et1, po1 ); } },
      { "is listed only", list },
      { "joins", join },
      { "leaves, the LAG first",
        []( auto & one ) { unlist( one ), one.data->portToLagDel( et1 ); } },
      { "leaves", leave },
      { "goes to another LAG",
        []( auto & one ) { one.memberIs( et1, Pelt::IntfId( "Port-Channel2" ) ); } },
      { "has another configuration", configure },
      { "is not configured", unconfigure },
      { "LAG is not configured", unconfigureLag },
      { "is unplugged", unplug },
      { "is plugged", plug },
      { "is told again",
        []( auto & one ) { one.data->intfHas( et1 ) ? one.data->intfIs( et1, false ) : void(); } },
      { "loses its status for a while",
        []( auto & one ) {
           one.dir->ethPhyIntfStatusDel( et1 );
           one.activeIs( et1, true );
           one.speedIs( et1, speed1Gbps );
        } },
      { "has another status",
        []( auto & one ) {
           auto const status = Kiv::make< Interface::EthPhyIntfStatus >( et1 );
           status->speedIs( speed1Gbps );
           status->activeIs( true );
           one.dir->ethPhyIntfStatusIs( et1, status );
        } },
      { "inactive", inactive },
      { "active", active },
      { "all", limitAll },
      { "is programmed again", []( auto & one ) { one.sm->enable( et1 ); } },
      { "traffic class and burst are others",
        []( auto & one ) {
           auto const trafficClass = Kiv::make< AggregateTcConfig >( std::uint16_t( 1 ) );
           trafficClass->levelIs( percent( 300 ) );
           one.config->aggregateTcConfigIs( 1, trafficClass );
           auto const burst = Kiv::make< BurstConfig >( "b" );
           burst->burstTimeIs( 42 );
           one.config->burstConfigIs( "b", burst );
        } },
      { "the machine pauses",
        []( auto & one ) {
           one.sm->initializedIs( false );
           one.config->intfConfigDel( et1 );
           one.levelIs( po1, mc, percent( 400 ) );
           one.sm->initializedIs( true );
           one.chip->sweep();
        } },
};

// Any two of them: all is as a fresh machine makes it.
TEST_F( StormControlStandingTest, historyLeavesNoTrace ) {
   for( auto const & first : deeds ) {
      for( auto const & second : deeds ) {
         StormWorld one;
         one.unit().dynamicLogicalPortsIs( ( &first - deeds ) % 2 );
         startWithLevels( one );
         for( auto const * deed : { &first, &second } ) {
            deed->act( one );
            ASSERT_EQ( one.outcome(), one.freshOutcome() )
                  << first.what << ", " << second.what << ": after " << deed->what;
         }
      }
   }
}

// What people read of it.
TEST_F( StormControlStandingTest, traceTexts ) {
   Traces traces( "HobaStormControlSm" );
   StormWorld one;
   one.status->intfStatusIs( et3 );
   one.config->intfConfigIs( Pelt::IntfId( "Ethernet4" ) );
   startWithLevels( one );
   auto constexpr verify = []( StormWorld & world ) { world.mismatches(); };
   for( Act const act : std::vector< Act >{ verify, inactive, join, verify, unconfigureLag, verify,
                                            leave, unconfigure, join, leave, configure } ) {
      act( one );
   }
   join( one );
   one.levelIs( po1, bc, percent( 300 ) );
   leave( one );
   one.config->burstConfigIs( "b" )->burstTimeIs( 42 );
   one.unit().dynamicLogicalPortsIs( true );
   active( one );
   inactive( one );
   driver.advance( 6 );
   auto const messages = traces.take();
   for( std::string const text :
        { "Removing orphaned status for Ethernet3",
          "Creating status for Ethernet1",
          "Deleting status for Ethernet1",
          "No status found, returning....",
          "Setting Ethernet1 broadcast level threshold to "
          "Value('Bridging::StormControl::Threshold', "
          "** {'mode': meteringPercent, 'level': 100, 'rate': 0, 'unit': unitPercent})",
          "Platform doesn't support DLP, returning....",
          "Ethernet1: Interface has become active, reprogram storm control",
          "Ethernet1: Interface has become inactive, clear storm control",
          "Interface doesn't exists in platform, skip initializing the sm",
          "Port-Channel1 updated. Reapplying config",
          "Port-Channel1 removed. Disabling reactor",
          "Disabling storm control on Ethernet1 because it is part of a lag, and lag config takes "
          "precedence",
          "Applying config to Ethernet1 because it left a lag",
          "Port-Channel1 config exists, reapplying config",
          "Updating levels for lag Port-Channel1",
          "Port-Channel1 is a LAG, verify individual interfaces",
          "Ethernet1: Verify storm-control config matches the LAG's config and not the individual "
          "config",
          "Ethernet1: There is no LAG storm-control config, make sure storm-control is disabled",
          "Ethernet1 is not part of a LAG, verify its individual config",
          "Ethernet1 uucastDrop: 0 broadcastDrop: 0 multicastDrop: 0 allDrop: 0",
          "b burstTime: 42" } ) {
      EXPECT_NE( std::ranges::find( messages, text ), messages.end() ) << text;
   }
}

// ---- The period

TEST_F( StormControlStandingTest, periodHasALowerBound ) {
   auto const config = Kiv::make< Config >();
   auto const & period = *Config::kivType().reflection()->attribute( "period" );
   std::pair< Kiv::Datum, char const * > const rows[] = {
         // what it becomes, or the error
         { 0.1, "0.1" },
         { 7, "7" },
         { 0, "0" },
         { -3, "-3" },
         { 1e-9, "1e-09 is not a period: at least 0.1 seconds, or 0 for none" },
         { 0.09, "0.09 is not a period: at least 0.1 seconds, or 0 for none" },
         { "2.5", "\"2.5\" is not a number" },
   };
   for( auto const & row : rows ) {
      auto const error = thrown< Kiv::Exception >( [ & ] { period.set( *config, row.first ); } );
      EXPECT_EQ( error.empty() ? Kiv::datumText( period.get( *config ) ) : error, row.second );
   }
   EXPECT_EQ( period.shape, Kiv::DatumShape::number );
   EXPECT_THROW( config->periodIs( 1e-9 ), Kiv::RangeException );
}

} // namespace
