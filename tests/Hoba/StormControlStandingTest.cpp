// SPDX-License-Identifier: Apache-2.0

// Storm control: what stands in the chip depends on the configuration, not on how it came about;
// and callers from outside are safe from whoever watches.

#include "HobaTest.h"

#include "Kiv/Exception.h"
#include "Kiv/Reflect.h"

namespace {

using namespace HobaTest;
using namespace Bridging::StormControl;
using Hoba::levelTypeAll;
using Hoba::levelTypeBroadcast;
using Hoba::levelTypeMulticast;
using Hoba::levelTypeUUcast;
using Interface::speed100Gbps;
using Interface::speed10Gbps;
using Interface::speed1Gbps;

Pelt::IntfId const et1{ "Ethernet1" };
Pelt::IntfId const et2{ "Ethernet2" };
Pelt::IntfId const po1{ "Port-Channel1" };

class StormControlStandingTest : public HobaFixture {
 protected:
   std::string platformVerdict() {
      return world.helper->verifyPlatformStormControl( *world.config, *world.status );
   }
   StormWorld world;
};

// ---- One configuration, one state of the chip

// Written one after the other on Ethernet1, at 10 Gb/s unless the row says otherwise.
struct Write {
   Hoba::LevelType levelType;
   std::uint32_t level;
};
struct History {
   char const * what;
   std::vector< Write > writes;
   // "held; skip; states of broadcast, multicast, unknown unicast, all"
   char const * outcome;
   bool restartedBefore = false; // the last write
};

auto constexpr bc = levelTypeBroadcast;
auto constexpr mc = levelTypeMulticast;
auto constexpr uu = levelTypeUUcast;
auto constexpr at = levelTypeAll;

History const histories[] = {
      { "covered after the all-traffic level",
        { { at, 500 }, { bc, 100 }, { uu, 200 } },
        "all 500000; no skip; supersededByAll notConfigured supersededByAll programmed" },
      { "covered before it",
        { { bc, 100 }, { uu, 200 }, { at, 500 } },
        "all 500000; no skip; supersededByAll notConfigured supersededByAll programmed" },
      { "an older limit goes on covering behind a refused zero",
        { { bc, 100 }, { at, 500 }, { at, 0 }, { bc, 150 } },
        "all 500000; no skip; supersededByAll notConfigured notConfigured zeroRateNotSupported" },
      { "and gives way to the default",
        { { bc, 100 }, { at, 500 }, { at, 0 }, { at, 10000 } },
        "broadcast 100000; no skip; programmed notConfigured notConfigured notConfigured" },
      { "one that never stood covers nothing",
        { { bc, 100 }, { at, 0 }, { bc, 150 } },
        "broadcast 150000; no skip; programmed notConfigured notConfigured zeroRateNotSupported" },
      { "nor one that stood before the chip was initialized",
        { { bc, 100 }, { at, 500 }, { at, 0 }, { bc, 150 } },
        "broadcast 150000; no skip; programmed notConfigured notConfigured zeroRateNotSupported",
        true },
      { "a refused zero under the all-traffic level is covered as well",
        { { bc, 100 }, { at, 500 }, { bc, 0 } },
        "all 500000; no skip; supersededByAll notConfigured notConfigured programmed" },
      { "in either order",
        { { bc, 0 }, { at, 500 } },
        "all 500000; no skip; supersededByAll notConfigured notConfigured programmed" },
      { "a refused multicast zero is no default for the skip rule",
        { { mc, 300 }, { mc, 0 }, { bc, 100 } },
        "broadcast 100000, multicast 300000; skip; "
        "programmed zeroRateNotSupported notConfigured notConfigured" },
      { "nor is a refused all-traffic zero",
        { { mc, 300 }, { at, 500 }, { at, 0 }, { mc, 200 } },
        "multicast 200000, all 500000; no skip; "
        "notConfigured programmed notConfigured zeroRateNotSupported" },
};

TEST_F( StormControlStandingTest, configurationDecidesNotHistory ) {
   for( auto const & row : histories ) {
      for( bool lag : { false, true } ) {
         SCOPED_TRACE( std::string( row.what ) + ( lag ? ", LAG" : "" ) );
         StormWorld one;
         auto const intf = lag ? po1 : et1;
         one.portIs( et1, speed10Gbps );
         if( lag ) {
            one.memberIs( et1, po1 );
         }
         one.start();
         for( auto const & write : row.writes ) {
            if( row.restartedBefore && &write == &row.writes.back() ) {
               one.sm->initializedIs( false );
               one.sm->initializedIs( true );
            }
            one.helper->take();
            one.levelIs( intf, write.levelType, percent( write.level ) );
            if( write.level == 0 && write.levelType != bc ) {
               EXPECT_EQ( one.helper->take(), Strings{} ) << "a refused zero changes nothing";
            }
         }
         auto const outcome = [ & ] {
            auto text = one.held( et1 );
            for( std::string const of = " of Port-Channel1"; text.find( of ) != text.npos; ) {
               text.erase( text.find( of ), of.size() );
            }
            text += one.unit().bcastSkipHas( intf ) ? "; skip;" : "; no skip;";
            for( auto levelType : { bc, mc, uu, at } ) {
               text += " " + Kiv::toText( one.levelStatus( intf, levelType ).state );
            }
            return text;
         };
         EXPECT_EQ( outcome(), row.outcome );
         one.sm->enable( intf );
         one.speedIs( et1, Interface::speedUnknown );
         one.speedIs( et1, speed10Gbps );
         EXPECT_EQ( outcome(), row.outcome ) << "again, and after its speed was not known";
         auto const verify = one.data->verifyData();
         verify->initVerifyData( 7 );
         verify->verifyInc( 1 );
         for( auto const & [ key, text ] : verify->cliVerifyOutput() ) {
            EXPECT_TRUE( text.ends_with( ": \"ok\" }," ) ) << text;
         }
      }
   }
}

// The members of a LAG are covered one by one.
TEST_F( StormControlStandingTest, whatIsWantedChangesWhileItIsProgrammed ) {
   world.portIs( et1, speed10Gbps );
   world.levelIs( et1, bc, percent( 100 ) );
   world.start();
   auto const watcher =
         Hoba::smIs< Watcher< Hoba::StormControlSm, Hoba::StormControlSm::heldAttr > >(
               Kiv::Ptr< Hoba::StormControlSm const >( world.sm ) );
   auto const onceThen = [ & ]( Hoba::LevelType levelType, std::uint32_t level ) {
      watcher->then = [ =, this, done = false ]() mutable {
         if( !std::exchange( done, true ) ) {
            world.levelIs( et1, levelType, percent( level ) );
         }
      };
   };
   onceThen( at, 10000 );
   world.levelIs( et1, at, percent( 500 ) );
   EXPECT_EQ( world.held( et1 ), "broadcast 100000" );
   // It goes, and comes again on the way.
   world.levelIs( et1, mc, percent( 100 ) );
   onceThen( mc, 300 );
   world.config->intfConfigDel( et1 );
   EXPECT_EQ( world.held( et1 ), "multicast 300000" );
   EXPECT_EQ( world.levelStatus( et1, mc ).rate, 300'000u );
   EXPECT_EQ( platformVerdict(), "" );
   // Also while its status is made.
   auto const ofStatus =
         Hoba::smIs< Watcher< StormControl::Status, StormControl::Status::intfStatusAttr > >(
               Kiv::Ptr< StormControl::Status const >( world.status ) );
   world.status->intfStatusDel( et1 );
   ofStatus->then = [ & ] { world.levelIs( et1, mc, percent( 10000 ) ); };
   world.levelIs( et1, mc, percent( 200 ) );
   EXPECT_EQ( world.levelStatus( et1, mc ).state, StormControl::notConfigured );
}

TEST_F( StormControlStandingTest, newMemberHasNoOlderLimit ) {
   world.portIs( et1, speed10Gbps );
   world.portIs( et2, speed1Gbps );
   world.memberIs( et1, po1 );
   world.levelIs( po1, levelTypeBroadcast, percent( 100 ) );
   world.levelIs( po1, levelTypeAll, percent( 500 ) );
   world.start();
   world.levelIs( po1, levelTypeAll, percent( 0 ) );
   world.memberIs( et2, po1 );
   EXPECT_EQ( world.held( et1 ), "all 500000 of Port-Channel1" );
   EXPECT_EQ( world.held( et2 ), "broadcast 10000 of Port-Channel1" );
   auto const broadcast = world.levelStatus( po1, levelTypeBroadcast );
   EXPECT_EQ( broadcast.state, programmed );
   EXPECT_EQ( broadcast.rate, 10'000u ) << "of the member that is not covered";
   EXPECT_EQ( world.levelStatus( po1, levelTypeAll ).rate, 500'000u );
   // Who leaves takes his share along, at once.
   world.data->portToLagDel( et1 );
   EXPECT_EQ( world.levelStatus( po1, levelTypeAll ).rate, 0u );
   EXPECT_EQ( world.status->intfStatus( po1 )->speed(), 1'000'000u );
   world.data->portToLagDel( et2 );
   EXPECT_EQ( world.levelStatus( po1, levelTypeBroadcast ).state, lagHasNoMember );
}

TEST_F( StormControlStandingTest, whoLeavesALagTakesHisShareAlongWithoutALimitToo ) {
   world.portIs( et1, speed10Gbps );
   world.portIs( et2, Interface::speedUnknown );
   world.memberIs( et1, po1 );
   world.config->intfConfigIs( po1 );
   world.start();
   EXPECT_EQ( world.status->intfStatus( po1 )->speed(), 10'000'000u );
   world.data->portToLagDel( et1 );
   EXPECT_EQ( world.status->intfStatus( po1 )->speed(), 0u ) << "no level is limited";
   world.memberIs( et2, po1 );
   world.levelIs( po1, levelTypeBroadcast, percent( 100 ) );
   EXPECT_EQ( world.levelStatus( po1, levelTypeBroadcast ).state, LevelState::speedUnknown );
   world.data->portToLagDel( et2 );
   EXPECT_EQ( world.levelStatus( po1, levelTypeBroadcast ).state, lagHasNoMember );
}

// ---- Ports that come back

TEST_F( StormControlStandingTest, portThatComesBackIsClear ) {
   for( bool lag : { false, true } ) {
      SCOPED_TRACE( lag );
      StormWorld one;
      auto const intf = lag ? po1 : et1;
      one.portIs( et1, speed10Gbps );
      one.levelIs( intf, levelTypeBroadcast, percent( 250 ) );
      one.levelIs( intf, levelTypeMulticast, percent( 300 ) );
      if( lag ) {
         one.memberIs( et1, po1 );
      }
      one.start();
      one.data->intfDel( et1 );
      one.config->intfConfigDel( intf );
      EXPECT_NE( one.held( et1 ), "nothing" ) << "nobody can program a port that is not there";
      auto const verdict = one.helper->verifyPlatformStormControl( *one.config, *one.status );
      EXPECT_TRUE( verdict.starts_with( "Ethernet1 broadcast: 250000 kbps of " ) ) << verdict;
      one.data->intfIs( et1, true );
      EXPECT_EQ( one.held( et1 ), "nothing" );
      EXPECT_FALSE( one.unit().bcastSkipHas( et1 ) );
      EXPECT_EQ( one.helper->verifyPlatformStormControl( *one.config, *one.status ), "" );
   }
   // With a configuration that leaves alone what stands.
   world.portIs( et1, speed10Gbps );
   world.levelIs( et1, levelTypeBroadcast, percent( 250 ) );
   world.start();
   world.data->intfDel( et1 );
   EXPECT_EQ( world.status->intfStatus( et1 )->speed(), 0u );
   world.levelIs( et1, levelTypeBroadcast, percent( 0 ) );
   world.data->intfIs( et1, true );
   EXPECT_EQ( world.held( et1 ), "nothing" );
   // What is said twice of a port that is there clears nothing.
   world.levelIs( et1, levelTypeBroadcast, percent( 100 ) );
   world.helper->take();
   world.data->intfIs( et1, false );
   EXPECT_EQ( world.helper->take(), Strings{} );
}

// ---- The status of interfaces whose levels wait

TEST_F( StormControlStandingTest, speedInTheStatusFollowsThePort ) {
   world.unit().dynamicLogicalPortsIs( true );
   world.portIs( et1, speed10Gbps );
   world.memberIs( et1, po1 );
   world.levelIs( et1, levelTypeBroadcast, percent( 250 ) );
   world.levelIs( po1, levelTypeBroadcast, percent( 500 ) );
   world.start();
   auto const speeds = [ & ] {
      return std::pair( world.status->intfStatus( et1 )->speed(),
                        world.status->intfStatus( po1 )->speed() );
   };
   using Speeds = std::pair< std::uint64_t, std::uint64_t >;
   world.speedIs( et1, speed1Gbps );
   EXPECT_EQ( speeds(), Speeds( 1'000'000, 1'000'000 ) );
   world.activeIs( et1, false );
   world.speedIs( et1, speed100Gbps );
   EXPECT_EQ( speeds(), Speeds( 100'000'000, 0 ) );
   world.memberDel( et1 );
   world.speedIs( et1, speed10Gbps );
   EXPECT_EQ( speeds(), Speeds( 10'000'000, 0 ) );
   world.memberIs( et1, po1 );
   world.dir->ethPhyIntfStatusDel( et1 );
   EXPECT_EQ( speeds(), Speeds( 0, 0 ) );
   world.memberDel( et1 );
   EXPECT_EQ( speeds(), Speeds( 0, 0 ) );
}

// ---- Calls from outside

using StatusWatcher = Watcher< IntfStatus, IntfStatus::broadcastAttr >;
using ReportWatcher = Watcher< Hoba::VerifyData, Hoba::VerifyData::cliVerifyOutputAttr >;

TEST_F( StormControlStandingTest, watchersMayRemoveWhoWasCalled ) {
   using Call = void ( * )( Hoba::StormControlSm & );
   Call const calls[] = { []( auto & sm ) { sm.enable( et1 ); },
                          []( auto & sm ) { sm.enable( po1 ); },
                          []( auto & sm ) { sm.disable( et1 ), sm.enable( et1 ); },
                          []( auto & sm ) { sm.intfConfig( et1 )->applyConfig(); },
                          []( auto & sm ) { sm.intfConfig( et1 )->updateLevel( bc ); },
                          []( auto & sm ) { sm.initializedIs( false ), sm.initializedIs( true ); },
                          []( auto & sm ) { sm.handleVerify(); } };
   for( auto const & call : calls ) {
      for( bool wholeMachine : { false, true } ) {
         SCOPED_TRACE( std::to_string( &call - calls ) + ( wholeMachine ? ", machine" : "" ) );
         StormWorld one;
         one.portIs( et1, speed10Gbps );
         one.portIs( et2, speed10Gbps );
         one.memberIs( et2, po1 );
         for( auto intf : { et1, po1 } ) {
            one.levelIs( intf, levelTypeBroadcast, percent( 100 ) );
            one.levelIs( intf, levelTypeMulticast, percent( 200 ) );
         }
         one.start();
         // Whatever the call does, the status changes.
         one.status->intfStatus( et1 )->broadcastIs( {} );
         one.status->intfStatus( po1 )->broadcastIs( {} );
         one.data->verifyData()->initVerifyData( 7 );
         auto const remove = [ & ] {
            if( wholeMachine ) {
               one.sm = nullptr;
            } else {
               one.config->intfConfigDel( et1 );
               one.config->intfConfigDel( po1 );
            }
         };
         auto const ofPort = Hoba::smIs< StatusWatcher >( one.status->intfStatus( et1 ) );
         auto const ofLag = Hoba::smIs< StatusWatcher >( one.status->intfStatus( po1 ) );
         auto const ofReport = Hoba::smIs< ReportWatcher >( one.data->verifyData() );
         ofPort->then = ofLag->then = ofReport->then = remove;
         call( *one.sm );
         EXPECT_GT( ofPort->changes + ofLag->changes + ofReport->changes, 0u );
         if( !wholeMachine ) {
            EXPECT_EQ( one.held( et1 ), "nothing" );
            EXPECT_EQ( one.held( et2 ), "nothing" );
            EXPECT_EQ( one.unit().bcastSkip().size(), 0u );
            EXPECT_EQ( one.status->intfStatus().size(), 0u ) << "nothing that is configured";
         }
      }
   }
}

// ---- Hardware that refuses

// What verification finds; empty when it is content.
std::string
verdictOf( StormWorld & world ) {
   auto const verify = world.data->verifyData();
   verify->initVerifyData( 7 );
   verify->verifyInc( 1 );
   std::string verdict;
   for( auto const & [ item, text ] : verify->cliVerifyOutput() ) {
      verdict += text.ends_with( ": \"ok\" }," ) ? "" : text;
   }
   verify->resetVerifyData();
   return verdict;
}

// All that the machine made of the configuration.
std::string
outcomeOf( StormWorld & world ) {
   std::string outcome;
   for( auto intf : { et1, et2, po1 } ) {
      outcome += Kiv::toText( intf ) + ": " + world.held( intf ) +
                 ( world.unit().bcastSkipHas( intf ) ? ", skip" : "" );
      if( auto const status = world.status->intfStatus( intf ) ) {
         for( auto const & level : { status->broadcast(), status->multicast(), status->all() } ) {
            outcome += ", " + Kiv::toText( level.rate ) + ' ' + Kiv::toText( level.state );
         }
      }
      outcome += '\n';
   }
   return outcome;
}

// What happens to Ethernet1, which has levels of its own beside Port-Channel1 and its member Ethernet2.
struct Step {
   char const * what;
   void ( *prepare )( StormWorld & );
   void ( *step )( StormWorld & );
};
auto constexpr asItIs = []( StormWorld & ) {};
auto constexpr join = []( StormWorld & one ) { one.memberIs( et1, po1 ); };
auto constexpr leave = []( StormWorld & one ) { one.memberDel( et1 ); };
auto constexpr unplug = []( StormWorld & one ) { one.data->intfDel( et1 ); };
auto constexpr plug = []( StormWorld & one ) { one.data->intfIs( et1, true ); };
auto constexpr unconfigure = []( StormWorld & one ) { one.config->intfConfigDel( et1 ); };
auto constexpr unconfigureLag = []( StormWorld & one ) { one.config->intfConfigDel( po1 ); };
auto constexpr configure = []( StormWorld & one ) {
   auto const config = Kiv::make< IntfConfig >( et1 );
   config->broadcastIs( percent( 100 ) );
   config->multicastIs( percent( 200 ) );
   one.config->intfConfigIs( et1, config );
};
Step const stepsOfEt1[] = {
      { "configured", unconfigure, configure },
      { "configured and removed", unconfigure,
        []( StormWorld & one ) {
           configure( one );
           one.helper->throwAt = 0;
           unconfigure( one );
        } },
      { "removed", asItIs, unconfigure },
      { "LAG removed", join, unconfigureLag },
      { "all-traffic level", asItIs,
        []( StormWorld & one ) { one.levelIs( et1, levelTypeAll, percent( 500 ) ); } },
      { "joins", asItIs, join },
      { "joins without levels", unconfigure, join },
      { "leaves", join, leave },
      { "leaves without levels",
        []( StormWorld & one ) {
           unconfigure( one );
           join( one );
        },
        leave },
      { "is away from the LAG's list for a moment", join,
        []( StormWorld & one ) {
           one.lagPortDel( po1, et1 );
           one.lagPortIs( po1, et1 );
        } },
      { "comes back", unplug, plug },
      { "member comes back",
        []( StormWorld & one ) {
           join( one );
           unplug( one );
        },
        plug },
      { "inactive for a moment", asItIs,
        []( StormWorld & one ) {
           one.activeIs( et1, false );
           one.activeIs( et1, true );
        } },
      { "inactive", asItIs, []( StormWorld & one ) { one.activeIs( et1, false ); } },
      { "left after a first pass that failed", unconfigure,
        []( StormWorld & one ) {
           configure( one );
           one.helper->throwAt = 0;
           join( one );
           leave( one );
        } },
};

void
startWithLevels( StormWorld & one ) {
   one.unit().dynamicLogicalPortsIs( true );
   for( auto port : { et1, et2 } ) {
      one.portIs( port, speed10Gbps );
   }
   one.memberIs( et2, po1 );
   for( auto intf : { et1, po1 } ) {
      one.levelIs( intf, levelTypeBroadcast, percent( 100 ) );
      one.levelIs( intf, levelTypeMulticast, percent( 200 ) );
   }
   one.start();
}

// A fresh machine and a fresh chip on the same configuration.
void
startAfresh( StormWorld & one ) {
   one.sm = nullptr;
   one.chip = Kiv::make< HobaSim::Chip >();
   one.unit().dynamicLogicalPortsIs( true );
   one.helper = Kiv::make< RecordingStormHelper >( one.chip->stormControl() );
   one.status = Kiv::make< Status >();
   one.start();
}

// One call is refused, each in its turn. Whatever was under way: as soon as the ports change their
// speed everything is as on a fresh machine, or verification says of what it is not.
TEST_F( StormControlStandingTest, oneRefusedCallIsMadeUpForOrFound ) {
   for( auto const & row : stepsOfEt1 ) {
      for( unsigned n = 1;; ++n ) {
         SCOPED_TRACE( std::string( row.what ) + ", call " + std::to_string( n ) );
         StormWorld one;
         startWithLevels( one );
         row.prepare( one );
         one.helper->throwAt = n;
         row.step( one );
         if( one.helper->throwAt != 0 || failures() == 0 ) {
            one.helper->throwAt = 0;
            EXPECT_GT( n, 2u );
            break; // there are no more calls
         }
         for( auto const & [ intf, reactor ] : one.sm->intfConfig() ) {
            EXPECT_TRUE( one.config->intfConfigHas( intf ) ) << "out of force";
         }
         EXPECT_EQ( one.status->intfStatus().size(), one.config->intfConfig().size() );
         for( auto speed : { speed1Gbps, speed10Gbps } ) {
            one.speedIs( et1, speed );
            one.speedIs( et2, speed );
         }
         auto const verdict = verdictOf( one );
         auto const outcome = outcomeOf( one );
         startAfresh( one );
         auto const fresh = outcomeOf( one );
         EXPECT_EQ( outcome == fresh, verdict.empty() )
               << outcome << fresh << verdict << "is what was found";
      }
   }
}

// ---- The period

TEST_F( StormControlStandingTest, periodHasALowerBound ) {
   auto const & info = *Config::kivType().reflection()->attribute( "period" );
   struct Row {
      Kiv::Datum value;
      char const * error; // or what it becomes
   };
   Row const rows[] = {
         { 0.1, "0.1" },
         { 7, "7" },
         { 0, "0" },
         { -3, "-3" },
         { 1e-9, "1e-09 is not a period: at least 0.1 seconds, or 0 for none" },
         { 0.09, "0.09 is not a period: at least 0.1 seconds, or 0 for none" },
         { "2.5", "\"2.5\" is not a number" },
   };
   for( auto const & row : rows ) {
      std::string outcome;
      try {
         info.set( *world.config, row.value );
         outcome = Kiv::datumText( info.get( *world.config ) );
      } catch( Kiv::Exception const & error ) {
         outcome = error.what();
      }
      EXPECT_EQ( outcome, row.error );
   }
   EXPECT_EQ( info.shape, Kiv::DatumShape::number );
   EXPECT_THROW( world.config->periodIs( 1e-9 ), Kiv::RangeException );
}

} // namespace
