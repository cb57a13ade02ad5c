// SPDX-License-Identifier: Apache-2.0

// Stations that never age: whose wishes count, and what is left when a client goes.

#include "HobaUnionTest.h"

#include "Hoba/HobaNonAgingMacSm.h"
#include "Kiv/Exception.h"

namespace {

using namespace HobaTest;
using Hoba::NonAgingConfig;
using Entry = HobaTypes::MacAddressTableEntry;
using Pair = Bridging::MacVlanPair;

Pair
station( unsigned number ) {
   return { Pelt::EthAddr( 0x00005e005300 + number ), Bridging::VlanId( 10 ) };
}

class NonAgingTest : public ContextFixture {
 protected:
   void start() {
      sm = Hoba::NonAgingConfigDirSm::NonAgingConfigDirSmIs( data, dir, status );
      sm->initializedIs( true );
   }
   Kiv::Ptr< NonAgingConfig > clientIs( std::string const & name, bool enable = true ) {
      auto const client = Kiv::make< NonAgingConfig >( name );
      client->enableIs( enable );
      dir->entryIs( name, client );
      return client;
   }
   static Entry entry( unsigned number, std::string const & intf = "Ethernet1" ) {
      return { station( number ), Pelt::IntfId( intf ) };
   }
   // "on: 1 Ethernet1 x2, 7 Ethernet2 x1": stations, and how many clients hold each.
   std::string merged() {
      std::map< std::uint64_t, std::string > entries;
      for( auto const & [ pair, record ] : status->macEntries() ) {
         auto const number = pair.addr().value() & 0xff;
         EXPECT_EQ( pair, record.macEntry );
         entries[ number ] = " " + std::to_string( number ) + ' ' + Kiv::toText( record.intf ) +
                             " x" + std::to_string( sm->macEntriesRef( pair ) );
      }
      EXPECT_EQ( sm->macEntriesRef().size(), entries.size() );
      std::string text = status->enabled() ? "on:" : "off:";
      for( auto const & [ number, part ] : entries ) {
         text += part;
      }
      return text;
   }

   Kiv::Ptr< Kiv::Dir > dir = Kiv::make< Kiv::Dir >( "nonAging" );
   Kiv::Ptr< Hoba::NonAgingStatus > status = Kiv::make< Hoba::NonAgingStatus >();
   Kiv::Ptr< Hoba::NonAgingConfigDirSm > sm;
};

TEST_F( NonAgingTest, whatIsTraced ) {
   auto const client = clientIs( "client" );
   client->macEntriesIs( entry( 1 ) );
   start();
   EXPECT_EQ( merged(), "on: 1 Ethernet1 x1" ) << "found there, and counted once";
   Traces traces( "HobaNonAgingMacSm" );
   client->macEntriesDel( station( 1 ) );
   client->enableIs( false );
   auto const pair = Kiv::toText( station( 1 ) );
   EXPECT_EQ( traces.take(),
              ( Strings{ "NonAgingConfigSm::delNonAgingEntry client, Non Aging Entry Key: " + pair,
                         "NonAgingConfigDirSm::publish, Deleting NonAging Entry from "
                         "configDirSmstatus Key:" +
                               pair,
                         "NonAgingConfigSm::handleEnable client, Config:false" } ) );
   EXPECT_EQ( merged(), "off:" );
}

TEST_F( NonAgingTest, theRecordWrittenLastStandsAmongThoseWhoHoldIt ) {
   start();
   auto const a = clientIs( "a" );
   auto const b = clientIs( "b" );
   auto const c = clientIs( "c" );
   a->macEntriesIs( entry( 1, "Ethernet1" ) );
   b->macEntriesIs( entry( 1, "Ethernet2" ) );
   c->macEntriesIs( entry( 1, "Ethernet3" ) );
   EXPECT_EQ( merged(), "on: 1 Ethernet3 x3" );
   a->macEntriesIs( entry( 1, "Ethernet4" ) );
   EXPECT_EQ( merged(), "on: 1 Ethernet4 x3" ) << "a changed entry is no second one";
   b->enableIs( false );
   EXPECT_EQ( merged(), "on: 1 Ethernet4 x2" );
   a->macEntriesDelAll();
   EXPECT_EQ( merged(), "on: 1 Ethernet3 x1" );
   b->macEntriesIs( entry( 1, "Ethernet5" ) ); // while it asks for nothing
   EXPECT_EQ( merged(), "on: 1 Ethernet3 x1" );
   b->enableIs( true );
   EXPECT_EQ( merged(), "on: 1 Ethernet5 x2" );
   dir->entryDel( "b" );
   EXPECT_EQ( merged(), "on: 1 Ethernet3 x1" );
}

TEST_F( NonAgingTest, whatCanBeNoStationIsNotTaken ) {
   auto const client = clientIs( "client" );
   start();
   Traces traces( "HobaNonAgingMacSm" );
   for( auto const & none :
        { Pair( Pelt::EthAddr( 0x01005e000001 ), Bridging::VlanId( 10 ) ),
          Pair( Pelt::EthAddr(), Bridging::VlanId( 10 ) ),
          Pair( Pelt::EthAddr( 0x020000000001 ), Bridging::VlanIdOrNone() ) } ) {
      client->macEntriesIs( { none, Pelt::IntfId( "Ethernet1" ) } );
      EXPECT_EQ( traces.take(),
                 Strings{ "NonAgingConfigSm::follow client lists what is no station: " +
                          Kiv::toText( none ) } );
   }
   EXPECT_EQ( merged(), "on:" );
   client->macEntriesDelAll();
   EXPECT_EQ( merged(), "on:" );
}

TEST_F( NonAgingTest, anUninitializedMachineStandsStill ) {
   status->enabledIs( true );
   status->macEntriesIs( entry( 9, "Ethernet9" ) ); // of a former machine
   auto const client = clientIs( "client" );
   client->macEntriesIs( entry( 1 ) );
   clientIs( "other" );
   sm = Hoba::NonAgingConfigDirSm::NonAgingConfigDirSmIs( data, dir, status );
   client->macEntriesIs( entry( 2 ) );
   dir->entryDel( "other" );
   EXPECT_TRUE( status->enabled() && status->macEntries().size() == 1 );
   EXPECT_TRUE( sm->macEntriesRef().empty() );
   EXPECT_THROW( sm->configSm( "client" )->handleMacEntries(), Kiv::Exception );
   EXPECT_THROW( sm->configSm( "client" )->handleMacEntries( station( 1 ) ), Kiv::Exception );
   EXPECT_THROW( sm->macEntriesRefDec( station( 1 ), 1 ), Kiv::Exception );
   sm->initializedIs( true );
   auto const first = "on: 1 Ethernet1 x1 2 Ethernet1 x1";
   EXPECT_EQ( merged(), first );
   sm->initializedIs( false );
   client->macEntriesDel( station( 1 ) );
   client->macEntriesIs( entry( 2, "Ethernet2" ) );
   EXPECT_EQ( merged(), first );
   sm->initializedIs( true );
   EXPECT_EQ( merged(), "on: 2 Ethernet2 x1" );
   sm->initializedIs( false );
   dir->entryDel( "client" );
   EXPECT_EQ( merged(), "off:" ) << "who goes releases at once";
}

TEST_F( NonAgingTest, clientsAreSilencedAndMarkedWithTheMachine ) {
   auto const config = clientIs( "two" );
   config->macEntriesIs( entry( 1 ) );
   start();
   sm->configSmIs( "one", config );
   EXPECT_EQ( merged(), "on: 1 Ethernet1 x2" );
   auto const machine = Kiv::Ptr( sm->configSm( "one" ) );
   sm->configSmIs( "one", config );
   EXPECT_EQ( machine, sm->configSm( "one" ) );
   sm->configSmIs( "one", nullptr );
   EXPECT_TRUE( machine->kivMarkedForDeletion() );
   machine->doCleanUp();
   machine->handleMacEntries( station( 1 ) );
   EXPECT_EQ( merged(), "on: 1 Ethernet1 x1" );
   sm->hasNotificationActiveIs( false );
   config->macEntriesIs( entry( 2 ) );
   sm->hasNotificationActiveIs( true );
   config->macEntriesIs( entry( 3 ) );
   auto const left = "on: 1 Ethernet1 x1 3 Ethernet1 x1";
   EXPECT_EQ( merged(), left );
   sm->kivDoZombieReactors( true );
   config->enableIs( false );
   sm->configSmIs( "three", Kiv::make< NonAgingConfig >( "three" ) );
   EXPECT_EQ( sm->configSm( "three" ), nullptr );
   sm->configSmDelAll();
   EXPECT_EQ( merged(), left ) << "a machine that is marked leaves the status alone";
}

// Who looks at what the machines remember removes the client, or lists something else.
TEST_F( NonAgingTest, claimsHoldingsAndCountsGoTogether ) {
   for( bool ofCounts : { true, false } ) {
      for( bool removes : { true, false } ) {
         SCOPED_TRACE( std::to_string( ofCounts ) + std::to_string( removes ) );
         auto const client = clientIs( "client" );
         start();
         auto const counts = Hoba::smIs<
               Watcher< Hoba::NonAgingConfigDirSm, Hoba::NonAgingConfigDirSm::macEntriesRefAttr > >(
               sm );
         auto const holdings =
               Hoba::smIs< Watcher< Hoba::NonAgingConfigSm, Hoba::NonAgingConfigSm::heldAttr > >(
                     Kiv::Ptr< Hoba::NonAgingConfigSm const >( sm->configSm( "client" ) ) );
         bool done = false;
         auto const once = [ & ] {
            if( std::exchange( done, true ) ) {
               return;
            }
            if( removes ) {
               dir->entryDel( "client" );
            } else {
               client->macEntriesDel( station( 1 ) );
               client->macEntriesIs( entry( 1 ) );
            }
         };
         ( ofCounts ? counts->then : holdings->then ) = once;
         client->macEntriesIs( entry( 1 ) );
         EXPECT_EQ( merged(), removes ? "off:" : "on: 1 Ethernet1 x1" );
         client->macEntriesDel( station( 1 ) );
         EXPECT_EQ( merged(), removes ? "off:" : "on:" );
         sm = nullptr;
      }
   }
}

// The status is the union; that it is enabled stands there as a station of nobody.
class NonAgingUnion : public NonAgingTest, public Random {
 public:
   using Entity = NonAgingConfig;
   using Key = Pair;
   using Value = Entry;
   static constexpr bool beginsAtOnce = true;

 protected:
   NonAgingUnion() {
      flag->then = entries->then = [ this ] { told(); };
   }
   virtual void told() = 0;
   virtual void nested() = 0;
   Kiv::Ptr< Entity > entityIs( Entity const * like ) {
      auto const client = Kiv::make< Entity >( "client" );
      client->enableIs( like ? like->enable() : pick( 4 ) != 0 );
      for( auto const & [ pair, record ] : ( like ? *like : *client ).macEntries() ) {
         client->macEntriesIs( record );
      }
      if( pick( 2 ) ) {
         change( *client );
      }
      return client;
   }
   void change( Entity & client ) {
      auto const what = pick( 8 );
      auto const record = entry( pick( 6 ), "Ethernet" + std::to_string( 1 + pick( 3 ) ) );
      what == 0  ? client.macEntriesDelAll()
      : what < 3 ? client.enableIs( !client.enable() )
      : what < 5 ? client.macEntriesDel( record.macEntry )
                 : client.macEntriesIs( record );
   }
   void changeMachine() {
      if( auto const machine = Kiv::Ptr( sm ); machine && pick( 2 ) ) {
         machine->initializedIs( !machine->initialized() );
      } else if( pick( 2 ) ) {
         auto const before = published();
         sm = nullptr;
         EXPECT_EQ( published(), before );
      }
   }
   bool inStep() const { return sm && sm->initialized(); }
   std::map< Key, Value > published() const {
      auto records = mapOf( status->macEntries() );
      if( status->enabled() ) {
         records[ {} ] = {};
      }
      return records;
   }
   static std::map< Key, Value > listed( Entity const & client ) {
      auto records = client.enable() ? mapOf( client.macEntries() ) : std::map< Key, Value >();
      if( client.enable() ) {
         records[ {} ] = {};
      }
      return records;
   }
   void check( std::size_t, auto wanted ) const {
      wanted.erase( Pair{} );
      EXPECT_EQ( sm->macEntriesRef().size(), wanted.size() );
      for( auto const & [ pair, records ] : wanted ) {
         EXPECT_EQ( sm->macEntriesRef( pair ), records.size() ) << Kiv::toText( pair );
      }
   }

 private:
   using Status = Hoba::NonAgingStatus;
   Kiv::Ptr< Watcher< Status, Status::enabledAttr > > flag =
         Hoba::smIs< Watcher< Status, Status::enabledAttr > >( status );
   Kiv::Ptr< Watcher< Status, Status::macEntriesAttr > > entries =
         Hoba::smIs< Watcher< Status, Status::macEntriesAttr > >( status );
};

using NonAgingUnionTest = UnionTest< NonAgingUnion >;

TEST_P( NonAgingUnionTest, theStatusIsTheUnionOfTheClients ) { live( 5000 ); }

INSTANTIATE_TEST_SUITE_P( Seeds, NonAgingUnionTest, testing::Range( 1u, 13u ) );

} // namespace
