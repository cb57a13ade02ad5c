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
   void handleMlagPeerLinkPort( Pelt::IntfId ) override { ++heard; }
   unsigned heard = 0;
};

KIV_DEFINE( HobaTest::Context );

} // namespace HobaTest

namespace {

using namespace HobaTest;

class HobaCommonTest : public HobaFixture {
 protected:
   ~HobaCommonTest() override { data->cleanup(); }
   Kiv::Ptr< Hoba::HobaCommonSmData > context() { return data; }
   Kiv::Ptr< Context > data = Kiv::make< Context >( "agent" );
};

TEST_F( HobaCommonTest, whatIsNotEmptyToBeginWith ) {
   std::set< std::string > const empty = { "none", "{}", "[]", "0", "false", "00:00:00:00:00:00" };
   Strings found;
   for( auto const * attribute : Hoba::HobaCommonSmData::kivType().reflection()->attributes() ) {
      auto const value = Kiv::datumText( attribute->get( *data ) );
      if( !empty.contains( value ) && attribute->id.name != std::string( "ziplineLevels" ) ) {
         found.push_back( attribute->id.name + ( " " + value ) );
      }
   }
   EXPECT_EQ( found, ( Strings{ "operationalMode operationalModeDefault",
                                "virtualMacWithMask 00:00:00:00:00:00/ff:ff:ff:ff:ff:ff",
                                "vellReniceValue 5", "hitlessAgentRestartSupported true",
                                "yieldTimeSlice 0.01" } ) );
   data->portToLagIs( Pelt::IntfId( "Ethernet1" ), Pelt::IntfId( "Port-Channel1" ) );
   EXPECT_TRUE( data->inLag( Pelt::IntfId( "Ethernet1" ) ) );
   EXPECT_FALSE( data->inLag( Pelt::IntfId( "Ethernet2" ) ) );
}

TEST_F( HobaCommonTest, valuesWithBounds ) {
   EXPECT_EQ( Hoba::Percent( 100 ).value(), 100 );
   for( int wrong : { -1, 101, 356 } ) {
      EXPECT_EQ( thrown< Kiv::RangeException >( [ & ] { Hoba::Percent{ wrong }; } ),
                 "Hoba::Percent::value < Hoba::Percent::min or > Hoba::Percent::max not allowed" );
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

class WatcherSm : public Hoba::HobaBaseSm {
 public:
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
      lines.push_back( line );
      if( line == thenAt ) {
         then();
      }
   }
   void enlist( std::uint16_t vlan ) {
      vlanIs( vlan, commonSmData()->vlanStatusIs( Bridging::VlanId( vlan ) ) );
   }
   Strings take() { return std::exchange( lines, {} ); }

   Strings lines;
   std::string thenAt;
   std::function< void() > then = [] { throw std::runtime_error( "the chip refused" ); };

 protected:
   explicit WatcherSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & data ) : HobaBaseSm( data ) {
      contextIs( data );
   }

 private:
   void handleMinIntfs() { say( "minIntfs" ); }
   void handlePeer( Pelt::IntfId const & intf ) { say( "peer " + Kiv::toText( intf ) ); }
   class KivContext : public Kiv::Reactor< KivContext, Hoba::HobaCommonSmData const, WatcherSm > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::On< Hoba::HobaCommonSmData::minIntfsAttr, &WatcherSm::handleMinIntfs >(),
            Kiv::On< Hoba::HobaCommonSmData::mlagPeerLinkPortAttr, &WatcherSm::handlePeer >() );
   };
   class KivVlan
         : public Kiv::Reactor< KivVlan, Hoba::VlanStatus const, WatcherSm, std::uint16_t > {
    public:
      void handleActive() { owner().say( "vlan " + notifier()->name() ); }
      void handlePorts() { owner().say( "ports of " + notifier()->name() ); }
      void handleInitialized() override {
         owner().say( "first pass of " + notifier()->name() );
         initializedIs( true );
      }
      static constexpr auto handlers =
            Kiv::handlers( Kiv::On< Hoba::VlanStatus::activeAttr, &KivVlan::handleActive >(),
                           Kiv::OnAny< &KivVlan::handlePorts, Hoba::VlanStatus::intfAttr >() );
   };
   KIV_REACTOR( KivContext, context );
   KIV_REACTORS( std::uint16_t, KivVlan, vlan );
};

TEST_F( HobaCommonTest, everySetOfAPeerLinkPortIsHeardByTheContext ) {
   auto const sm = Hoba::smIs< WatcherSm >( context() );
   sm->take();
   Pelt::IntfId const et1( "Ethernet1" );
   data->mlagPeerLinkPortIs( et1, true );
   data->mlagPeerLinkPortIs( et1, true );
   EXPECT_EQ( data->heard, 2u );
   EXPECT_EQ( sm->take(), Strings{ "peer Ethernet1" } ) << "reactors hear changes only";
   data->mlagPeerLinkPortIs( et1, false );
   data->mlagPeerLinkPortDel( et1 );
   EXPECT_EQ( data->heard, 3u ) << "a removal sets nothing";
   EXPECT_EQ( sm->take(), ( Strings{ "peer Ethernet1", "peer Ethernet1" } ) );
}

TEST_F( HobaCommonTest, lifeOfAMachine ) {
   auto const sm = Hoba::smIs< WatcherSm >( context() );
   // The constructor synchronises; the factory lets notifications in, last.
   EXPECT_EQ( sm->take(), ( Strings{ "minIntfs", "machine done" } ) );
   sm->enlist( 7 );
   sm->enlist( 9 );
   // Keyed reactors synchronise, and wait for the machine's first pass.
   EXPECT_EQ( sm->take(), ( Strings{ "vlan 7", "ports of 7", "vlan 9", "ports of 9" } ) );
   sm->enlist( 7 );
   EXPECT_EQ( sm->take(), Strings{} ) << "watched already";
   sm->initializedIs( true );
   sm->initializedIs( true );
   EXPECT_EQ( sm->take(), ( Strings{ "initialized", "first pass of 7", "first pass of 9" } ) );
   sm->initializedIs( false );
   EXPECT_EQ( sm->take(), Strings{ "not initialized" } );
   sm->initializedIs( true );
   EXPECT_EQ( sm->take(), Strings{ "initialized" } );
   sm->enlist( 5 );
   EXPECT_EQ( sm->take(), ( Strings{ "vlan 5", "ports of 5", "first pass of 5" } ) );

   auto const change = [ & ] {
      data->minIntfsIs( data->minIntfs() + 1 );
      auto const vlan = data->vlanStatus( Bridging::VlanId( 7 ) );
      vlan->activeIs( !vlan->active() );
      return sm->take();
   };
   EXPECT_EQ( change(), ( Strings{ "minIntfs", "vlan 7" } ) );
   sm->hasNotificationActiveIs( false );
   EXPECT_EQ( change(), Strings{ "machine off" } );
   sm->hasNotificationActiveIs( true );
   EXPECT_EQ( change(), ( Strings{ "machine done", "minIntfs", "vlan 7" } ) );
   sm->kivDoZombieReactors( true );
   EXPECT_TRUE( sm->kivMarkedForDeletion() );
   EXPECT_EQ( change(), Strings{} );
}

// A beginning that throws has not begun, and may be repeated; an ending that throws has ended. A
// first pass that throws: the other reactors have theirs, and it has another.
TEST_F( HobaCommonTest, whatThrowsFailsAlone ) {
   auto const sm = Hoba::smIs< WatcherSm >( context() );
   sm->enlist( 7 );
   sm->enlist( 9 );
   using Told = Watcher< Hoba::HobaBaseSm, Hoba::HobaBaseSm::initializedAttr >;
   auto const told = Hoba::smIs< Told >( Kiv::Ptr< Hoba::HobaBaseSm const >( sm ) );
   for( bool const begins : { true, false } ) {
      sm->thenAt = begins ? "initialized" : "not initialized";
      EXPECT_THROW( sm->initializedIs( begins ), std::runtime_error );
      EXPECT_FALSE( sm->initialized() || sm->vlan( 7 )->initialized() );
      sm->thenAt = begins ? "" : "first pass of 7";
      sm->take();
      EXPECT_EQ( failures(), 0u ) << "whoever calls sees it himself";
      sm->initializedIs( true );
      EXPECT_EQ( sm->take(), ( Strings{ "initialized", "first pass of 7", "first pass of 9" } ) );
   }
   EXPECT_TRUE( sm->initialized() && !sm->vlan( 7 )->initialized() );
   EXPECT_EQ( told->changes, 3u ) << "begun, ended, begun";
   EXPECT_EQ( failures(), 1u );
   sm->thenAt.clear();
   auto const vlan7 = data->vlanStatus( Bridging::VlanId( 7 ) );
   vlan7->activeIs( true );
   vlan7->activeIs( false );
   EXPECT_EQ( sm->take(), ( Strings{ "first pass of 7", "vlan 7", "vlan 7" } ) );
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
   Pelt::IntfId const et1( "Ethernet1" ), et2( "Ethernet2" );
   for( auto const intf : { et1, et2 } ) {
      world.portIs( intf, Interface::speed10Gbps );
      world.levelIs( intf, Hoba::levelTypeBroadcast, percent( 100 ) );
   }
   world.start();
   driver.advance( 3 * world.config->period() );
   EXPECT_EQ( failures(), 3u );
   EXPECT_EQ( helper->read, 3u );
   EXPECT_EQ( world.status->intfStatus( et2 )->broadcastDrop(), 3u );
   EXPECT_EQ( world.status->intfStatus( et1 )->broadcastDrop(), 0u );
   EXPECT_STREQ( Hoba::logEntries().back().message->name, "HOBA_STEP_FAILED" );
   EXPECT_TRUE( has( lastLogged(), "on Ethernet1 failed: bus error" ) );
}

TEST_F( HobaCommonTest, machineDroppedInItsFirstPass ) {
   auto sm = Hoba::smIs< WatcherSm >( context() );
   sm->thenAt = "initialized";
   sm->then = [ & ] { sm = nullptr; };
   sm->initializedIs( true );
   EXPECT_EQ( sm, nullptr );

   auto const base = Hoba::HobaBaseSm::HobaBaseSmIs( data );
   base->initializedIs( true );
   EXPECT_TRUE( base->initialized() && base->hasNotificationActive() );
   EXPECT_EQ( base->commonSmData(), data );
}

TEST_F( HobaCommonTest, contextIsCompleteLast ) {
   using Completion = Watcher< Hoba::HobaCommonSmData, Hoba::HobaCommonSmData::initializedAttr >;
   Traces traces( "HobaCommon" );
   auto const watcher = Hoba::smIs< Completion >( context() );
   watcher->then = [ & ] { EXPECT_TRUE( data->verifyData() && data->verifySm() ); };
   EXPECT_EQ( data->verifyData(), nullptr );
   data->handleInitialized();
   EXPECT_EQ( traces.take(), Strings{ "void Hoba::HobaCommonSmData::handleInitialized()" } );
   EXPECT_EQ( data->verifyData()->name(), "verify" );
   EXPECT_EQ( data->verifyData()->verifyRequired()->name(), "vr" );
   auto const sm = data->verifySm();
   EXPECT_TRUE( Kiv::dynamicCast< Hoba::VerifySm >( sm )->initialized() );
   data->handleInitialized();
   EXPECT_EQ( watcher->changes, 1u ) << "again changes nothing";
   EXPECT_EQ( data->verifySm(), sm );
}

} // namespace
