// SPDX-License-Identifier: Apache-2.0

// The shared context, and the life of a machine on it.

#include "HobaTest.h"

#include "Hoba/HobaPercent.h"
#include "Hoba/HobaVerifySm.h"
#include "Kiv/Exception.h"
#include "Kiv/Reflect.h"

#include <stdexcept>

namespace HobaTest {

class Context : public Hoba::HobaCommonSmData {
   KIV_ENTITY( HobaTest::Context, Hoba::HobaCommonSmData );

 public:
   using HobaCommonSmData::HobaCommonSmData;
   void handleMlagPeerLinkPort( Pelt::IntfId intf ) override {
      heard.push_back( Kiv::toText( intf ) );
   }
   Strings heard;
};

KIV_DEFINE( HobaTest::Context );

} // namespace HobaTest

namespace {

using namespace HobaTest;

class HobaCommonTest : public HobaFixture {
 protected:
   ~HobaCommonTest() override { data->cleanup(); }
   Kiv::Ptr< Context > data = Kiv::make< Context >( "agent" );
};

TEST_F( HobaCommonTest, attributesInOrderWithTheirDefaults ) {
   std::pair< char const *, char const * > const expected[] = {
         { "operationalMode", "operationalModeDefault" },
         { "vlanHelper", "none" },
         { "intf", "{}" },
         { "minIntfs", "0" },
         { "unusedIntf", "{}" },
         { "cpuIntf", "{}" },
         { "multiEncapIntf", "[]" },
         { "intfEncapServiceIntf", "none" },
         { "mlagPeerLinkPort", "{}" },
         { "mlagIntfPort", "{}" },
         { "lagToPortConfig", "{}" },
         { "lagToFeatureSet", "{}" },
         { "portToLag", "{}" },
         { "lagToPort", "{}" },
         { "lagToLagType", "{}" },
         { "lagInLacpFallbackIndividualMode", "{}" },
         { "keepStaticMacOnDisabledIntf", "false" },
         { "enforceVlanMembershipForStaticMac", "false" },
         { "virtualMacWithMask", "00:00:00:00:00:00/ff:ff:ff:ff:ff:ff" },
         { "peerRouterMac", "00:00:00:00:00:00" },
         { "internalVlan", "{}" },
         { "vlanStatus", "[]" },
         { "encapVlan", "{}" },
         { "portVlanTpidData", "{}" },
         { "cliConfig", "none" },
         { "mirrorSessionNameToId", "{}" },
         { "mirrorSessionNameToEgressId", "{}" },
         { "freeMirrorSession", "[]" },
         { "isFabricSlice", "false" },
         { "parityEvent", "{}" },
         { "verifyData", "none" },
         { "verifySm", "none" },
         { "vlanIntf", "{}" },
         { "ziplineLevels", nullptr },
         { "vellFastBoot", "false" },
         { "vellRenice", "false" },
         { "vellReniceValue", "5" },
         { "hitlessAgentRestartSupported", "true" },
         { "pfcWatchdogDropActionSupported", "false" },
         { "dlpEnabled", "false" },
         { "initialized", "false" },
   };
   auto const & attributes = Hoba::HobaCommonSmData::kivType().reflection()->attributes();
   ASSERT_GE( attributes.size(), std::size( expected ) );
   for( std::size_t n = 0; n != std::size( expected ); ++n ) {
      EXPECT_STREQ( attributes[ n ]->id.name, expected[ n ].first );
      if( expected[ n ].second ) {
         EXPECT_EQ( Kiv::datumText( attributes[ n ]->get( *data ) ), expected[ n ].second )
               << expected[ n ].first;
      }
   }
   EXPECT_FALSE( data->inLag( Pelt::IntfId( "Ethernet1" ) ) );
   data->portToLagIs( Pelt::IntfId( "Ethernet1" ), Pelt::IntfId( "Port-Channel1" ) );
   EXPECT_TRUE( data->inLag( Pelt::IntfId( "Ethernet1" ) ) );
}

TEST_F( HobaCommonTest, ziplineLevelsPrintAllFieldsInOrder ) {
   EXPECT_EQ( Kiv::toText( data->ziplineLevels() ),
              "Value('Hoba::ZiplineLevels', ** {'hobaVrfRootSm': 1, 'hobaRoutingStatusSm': 1, "
              "'hobaL3FeatureConfigSm': 1, 'hobaArpSm': 2, 'hobaIp6NeighborSm': 2, "
              "'hobaResilientEcmpSm': 3, 'hobaIp6ResilientEcmpSm': 4, "
              "'hobaResilientEcmpDedupingSm': 5, 'hobaResilientEcmpDedupingSchedulerSm': 5, "
              "'hobaAdjDependencySm': 5, 'hobaSubIntfSm': 8, 'hobaIntfStatusSm': 6, "
              "'hobaL2AdjHelper': 6, 'hobaPwSm': 6, 'hobaL3AdjStatusSm': 4, "
              "'hobaVxlanTunnelFibSm': 8})" );
   Hoba::ZiplineLevels levels;
   levels.hobaVxlanTunnelFibSm = 7;
   EXPECT_NE( levels, data->ziplineLevels() );
}

TEST_F( HobaCommonTest, valuesWithBounds ) {
   char const * const text =
         "Hoba::Percent::value < Hoba::Percent::min or > Hoba::Percent::max not allowed";
   EXPECT_EQ( Hoba::Percent( 100 ).value(), 100 );
   for( int wrong : { -1, 101, 356 } ) {
      try {
         Hoba::Percent percent( wrong );
         ADD_FAILURE() << wrong;
      } catch( Kiv::RangeException const & exception ) {
         EXPECT_STREQ( exception.what(), text );
      }
   }
   // A memory's name may have colons in it; neither part may be missing.
   Hoba::ParityEvent::Key const key{ "Fap0", "L2:TABLE", 7 };
   EXPECT_EQ( Kiv::toText( key ), "Fap0:L2:TABLE:7" );
   EXPECT_EQ( Hoba::ParityEvent::Key::parse( "Fap0:L2:TABLE:7" ), key );
   for( auto const * wrong : { "", "a", "a:1", "a:b:x", "a:b:" } ) {
      EXPECT_THROW( Hoba::ParityEvent::Key::parse( wrong ), Kiv::ParseError ) << wrong;
   }
}

// ---- A machine that says what happens to it

struct Journal {
   Strings lines;
   Strings take() { return std::exchange( lines, {} ); }
};

class WatcherSm : public Hoba::HobaBaseSm {
 public:
   static Kiv::Ptr< WatcherSm > WatcherSmIs( Kiv::Ptr< Hoba::HobaCommonSmData > const & data,
                                             Journal & journal ) {
      auto sm = Kiv::make< WatcherSm >( data, journal );
      sm->hasNotificationActiveIs( true );
      return sm;
   }
   KIV_TYPE( WatcherSm );

   void handleInitialized() override {
      say( initialized() ? "initialized" : "not initialized" );
      reactorsInitialize();
   }
   void hasNotificationActiveIs( bool active ) override {
      HobaBaseSm::hasNotificationActiveIs( active );
      say( active ? "machine done" : "machine off" );
   }
   void say( std::string const & line ) {
      journal_.lines.push_back( line );
      if( line == throwAt ) {
         throw std::runtime_error( "the chip refused" );
      }
   }
   std::string throwAt;
   void enlist( std::uint16_t vlan ) {
      vlanIs( vlan, commonSmData()->vlanStatusIs( Bridging::VlanId( vlan ) ) );
   }
   bool deleteOwnReactor = false;

 protected:
   WatcherSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & data, Journal & journal )
         : HobaBaseSm( data ), journal_( journal ) {
      bogusAcsdIs( data );
   }

 private:
   void handleMinIntfs() { say( "minIntfs" ); }
   void handleMlagPeerLinkPort( Pelt::IntfId const & intf ) {
      say( "peer " + Kiv::toText( intf ) );
   }

   // Tells what the machine's own state is at the moment in which the reactor's changes.
   template< class R >
   static void tell( R const & reactor, std::string const & what ) {
      auto & sm = reactor.owner();
      sm.say( what + ( sm.hasNotificationActive() ? " active" : " silent" ) +
              ( sm.kivMarkedForDeletion() ? " marked" : "" ) );
   }

   class KivVlan
         : public Kiv::Reactor< KivVlan, Hoba::VlanStatus const, WatcherSm, std::uint16_t > {
    public:
      void handleActive() {
         owner().say( "vlan " + notifier()->name() );
         if( owner().deleteOwnReactor ) {
            owner().vlanDel( key() );
         }
      }
      void handlePorts() { owner().say( "ports of " + notifier()->name() ); }
      void handleInitialized() override {
         owner().say( "first pass of " + notifier()->name() );
         initializedIs( true );
      }
      void hasNotificationActiveIs( bool active ) override {
         if( active != hasNotificationActive() ) {
            tell( *this, "vlan " + Kiv::toText( key() ) + ( active ? " on" : " off" ) );
         }
         Reactor::hasNotificationActiveIs( active );
      }
      void kivDoZombieReactors( bool marked ) override {
         tell( *this, "vlan " + Kiv::toText( key() ) + " marked" );
         Reactor::kivDoZombieReactors( marked );
      }
      static constexpr auto handlers =
            Kiv::handlers( Kiv::on< Hoba::VlanStatus::activeAttr, &KivVlan::handleActive >(),
                           Kiv::onAny< &KivVlan::handlePorts, Hoba::VlanStatus::intfAttr >() );
   };
   class KivBogusAcsd
         : public Kiv::Reactor< KivBogusAcsd, Hoba::HobaCommonSmData const, WatcherSm > {
    public:
      void hasNotificationActiveIs( bool active ) override {
         if( active != hasNotificationActive() ) {
            tell( *this, std::string( "context" ) + ( active ? " on" : " off" ) );
         }
         Reactor::hasNotificationActiveIs( active );
      }
      void kivDoZombieReactors( bool marked ) override {
         tell( *this, "context marked" );
         Reactor::kivDoZombieReactors( marked );
      }
      static constexpr auto handlers = Kiv::handlers(
            Kiv::on< Hoba::HobaCommonSmData::minIntfsAttr, &WatcherSm::handleMinIntfs >(),
            Kiv::on< Hoba::HobaCommonSmData::mlagPeerLinkPortAttr,
                     &WatcherSm::handleMlagPeerLinkPort >() );
   };

   Journal & journal_;
   KIV_REACTORS( std::uint16_t, KivVlan, vlan );
   KIV_REACTOR( KivBogusAcsd, bogusAcsd );
};

TEST_F( HobaCommonTest, everySetOfAPeerLinkPortIsHeardByTheContext ) {
   Journal journal;
   auto const sm = WatcherSm::WatcherSmIs( data, journal );
   journal.take();
   Pelt::IntfId const et1( "Ethernet1" );
   data->mlagPeerLinkPortIs( et1, true );
   data->mlagPeerLinkPortIs( et1, true );
   EXPECT_EQ( data->heard, ( Strings{ "Ethernet1", "Ethernet1" } ) );
   EXPECT_EQ( journal.take(), Strings{ "peer Ethernet1" } ) << "reactors hear changes only";
   data->mlagPeerLinkPortIs( et1, false );
   data->mlagPeerLinkPortDel( et1 );
   EXPECT_EQ( data->heard.size(), 3u ) << "a removal sets nothing";
   EXPECT_EQ( journal.take(), ( Strings{ "peer Ethernet1", "peer Ethernet1" } ) );
}

TEST_F( HobaCommonTest, lifeOfAMachine ) {
   Journal journal;
   auto sm = WatcherSm::WatcherSmIs( data, journal );
   // The constructor synchronises; the factory lets notifications in, last.
   EXPECT_EQ( journal.take(), ( Strings{ "minIntfs", "context on active", "machine done" } ) );
   sm->enlist( 7 );
   sm->enlist( 9 );
   // Keyed reactors synchronise, and wait for the machine's first pass.
   EXPECT_EQ( journal.take(), ( Strings{ "vlan 7 on active", "vlan 7", "ports of 7",
                                         "vlan 9 on active", "vlan 9", "ports of 9" } ) );
   sm->enlist( 7 );
   EXPECT_EQ( journal.take(), Strings{} ) << "watched already";

   sm->initializedIs( true );
   sm->initializedIs( true );
   EXPECT_EQ( journal.take(), ( Strings{ "initialized", "first pass of 7", "first pass of 9" } ) );
   sm->initializedIs( false );
   EXPECT_EQ( journal.take(), Strings{ "not initialized" } );
   sm->initializedIs( true );
   EXPECT_EQ( journal.take(), Strings{ "initialized" } );
   sm->enlist( 5 );
   EXPECT_EQ( journal.take(),
              ( Strings{ "vlan 5 on active", "vlan 5", "ports of 5", "first pass of 5" } ) );

   // The machine itself first, then its reactors in field order.
   sm->hasNotificationActiveIs( false );
   EXPECT_EQ( journal.take(),
              ( Strings{ "vlan 7 off silent", "vlan 9 off silent", "vlan 5 off silent",
                         "context off silent", "machine off" } ) );
   data->minIntfsIs( 3 );
   data->vlanStatus( Bridging::VlanId( 7 ) )->activeIs( true );
   EXPECT_EQ( journal.take(), Strings{} );
   sm->hasNotificationActiveIs( true );
   journal.take();
   data->minIntfsIs( 4 );
   EXPECT_EQ( journal.take(), Strings{ "minIntfs" } );

   // The reactors first, the machine's own mark last.
   sm->kivDoZombieReactors( true );
   EXPECT_EQ( journal.take(), ( Strings{ "vlan 7 marked active", "vlan 9 marked active",
                                         "vlan 5 marked active", "context marked active" } ) );
   EXPECT_TRUE( sm->kivMarkedForDeletion() );
   data->minIntfsIs( 5 );
   data->vlanStatus( Bridging::VlanId( 9 ) )->activeIs( true );
   sm->kivDoZombieReactors( true );
   EXPECT_EQ( journal.take(), Strings{} );
}

TEST_F( HobaCommonTest, reactorThatDeletesItselfSynchronisesNoFurther ) {
   Journal journal;
   auto const sm = WatcherSm::WatcherSmIs( data, journal );
   sm->initializedIs( true );
   sm->deleteOwnReactor = true;
   journal.take();
   sm->enlist( 7 );
   EXPECT_EQ( journal.take(), ( Strings{ "vlan 7 on active", "vlan 7", "vlan 7 marked active",
                                         "vlan 7 off active" } ) );
   data->vlanStatus( Bridging::VlanId( 7 ) )->activeIs( true );
   EXPECT_EQ( journal.take(), Strings{} );
}

TEST_F( HobaCommonTest, whatThrowsFailsAlone ) {
   Journal journal, another;
   auto sm = WatcherSm::WatcherSmIs( data, journal );
   auto const next = WatcherSm::WatcherSmIs( data, another );
   sm->enlist( 7 );
   sm->enlist( 9 );
   journal.take();

   // A beginning that throws has not begun, and may be repeated; an ending that throws has ended.
   using Told = Watcher< Hoba::HobaBaseSm, Hoba::HobaBaseSm::initializedAttr >;
   auto told = Hoba::smIs< Told >( Kiv::Ptr< Hoba::HobaBaseSm const >( sm ) );
   sm->throwAt = "initialized";
   EXPECT_THROW( sm->initializedIs( true ), std::runtime_error );
   EXPECT_FALSE( sm->initialized() );
   EXPECT_THROW( sm->initializedIs( true ), std::runtime_error );
   sm->throwAt.clear();
   journal.take();
   sm->initializedIs( true );
   Strings const begins{ "initialized", "first pass of 7", "first pass of 9" };
   EXPECT_EQ( journal.take(), begins );
   sm->throwAt = "not initialized";
   EXPECT_THROW( sm->initializedIs( false ), std::runtime_error );
   EXPECT_FALSE( sm->initialized() || sm->vlan( 7 )->initialized() );
   EXPECT_EQ( told->changes, 2u ) << "begun, and ended";
   told = nullptr;
   journal.take();
   EXPECT_EQ( failures(), 0u ) << "whoever calls sees it himself";

   // A first pass that throws: the other reactors have theirs, and it has another.
   sm->throwAt = "first pass of 7";
   sm->initializedIs( true );
   EXPECT_EQ( journal.take(), begins );
   EXPECT_TRUE( sm->initialized() );
   EXPECT_FALSE( sm->vlan( 7 )->initialized() );
   EXPECT_EQ( failures(), 1u );
   sm->throwAt.clear();
   auto const vlan7 = data->vlanStatus( Bridging::VlanId( 7 ) );
   vlan7->activeIs( true );
   EXPECT_EQ( journal.take(), ( Strings{ "first pass of 7", "vlan 7" } ) );
   vlan7->activeIs( false );
   EXPECT_EQ( journal.take(), Strings{ "vlan 7" } );

   // A handler: others hear of the same write, and the writer of none of it. The log says why.
   sm->throwAt = "minIntfs";
   another.take();
   data->minIntfsIs( 3 );
   EXPECT_EQ( another.take(), Strings{ "minIntfs" } );
   EXPECT_EQ( failures(), 1u );
   auto const & entry = Hoba::logEntries().back();
   EXPECT_STREQ( entry.message->name, "HOBA_STEP_FAILED" );
   EXPECT_NE( entry.text.find( " on agent failed: the chip refused" ), std::string::npos )
         << entry.text;
}

// A chip of which one port's counters cannot be read.
class BrokenCounters : public RecordingStormHelper {
 public:
   using RecordingStormHelper::RecordingStormHelper;
   std::uint64_t getBcastDropCnt( Pelt::IntfId intf ) const override {
      if( intf == Pelt::IntfId( "Ethernet1" ) ) {
         throw std::runtime_error( "bus error" );
      }
      return ++read;
   }
   mutable unsigned read = 0;
};

TEST_F( HobaCommonTest, oneCounterThatCannotBeReadStopsNoOther ) {
   StormWorld world;
   auto const helper = Kiv::make< BrokenCounters >( world.chip->stormControl() );
   world.helper = helper;
   for( auto const * port : { "Ethernet1", "Ethernet2" } ) {
      Pelt::IntfId const intf( port );
      world.portIs( intf, Interface::speed10Gbps );
      world.levelIs( intf, Hoba::levelTypeBroadcast, percent( 100 ) );
   }
   world.start();
   driver.advance( 3 * world.config->period() );
   EXPECT_EQ( failures(), 3u );
   EXPECT_EQ( helper->read, 3u );
   EXPECT_EQ( world.status->intfStatus( Pelt::IntfId( "Ethernet2" ) )->broadcastDrop(), 3u );
   EXPECT_EQ( world.status->intfStatus( Pelt::IntfId( "Ethernet1" ) )->broadcastDrop(), 0u );
   EXPECT_NE( lastLogged().find( "on Ethernet1 failed: bus error" ), std::string::npos );
}

// Drops the last pointer to itself in its first pass.
class Fleeting : public Hoba::HobaBaseSm {
 public:
   KIV_TYPE( Fleeting );
   void handleInitialized() override {
      *holder = nullptr;
      seen = initialized();
   }
   Kiv::Ptr< Fleeting > * holder = nullptr;
   bool seen = false;

 protected:
   explicit Fleeting( Kiv::Ptr< Hoba::HobaCommonSmData > const & context )
         : HobaBaseSm( context ) {}
};

TEST_F( HobaCommonTest, machineDroppedInItsFirstPass ) {
   Kiv::Ptr< Hoba::HobaCommonSmData > const context = data;
   auto sm = Hoba::smIs< Fleeting >( context );
   sm->holder = &sm;
   sm->initializedIs( true );
   EXPECT_EQ( sm, nullptr );

   auto const base = Hoba::HobaBaseSm::HobaBaseSmIs( data );
   base->initializedIs( true );
   EXPECT_TRUE( base->initialized() && base->hasNotificationActive() );
   EXPECT_EQ( base->commonSmData(), data );
}

// ---- The context becomes complete

class Order : public Kiv::PtrInterface::NotifieeConst {
 public:
   KIV_TYPE( Order );
   explicit Order( Kiv::Entity const * entity ) {
      watch( entity );
      hasNotificationActiveIs( true );
   }
   void onAttribute( Kiv::AttributeId const & id, void const * ) override {
      heard.push_back( id.name );
   }
   Strings heard;
};

TEST_F( HobaCommonTest, contextIsCompleteLast ) {
   Traces traces( "HobaCommon" );
   auto const order = Kiv::make< Order >( data.get() );
   EXPECT_EQ( data->verifyData(), nullptr );
   data->handleInitialized();
   EXPECT_EQ( order->heard, ( Strings{ "verifyData", "verifySm", "initialized" } ) );
   EXPECT_EQ( traces.take(), Strings{ "void Hoba::HobaCommonSmData::handleInitialized()" } );
   EXPECT_EQ( data->verifyData()->name(), "verify" );
   EXPECT_EQ( data->verifyData()->verifyRequired()->name(), "vr" );
   EXPECT_TRUE( Kiv::dynamicCast< Hoba::VerifySm >( data->verifySm() )->initialized() );
   data->handleInitialized();
   EXPECT_EQ( order->heard.size(), 3u ) << "again changes nothing";
}

} // namespace
