// SPDX-License-Identifier: Apache-2.0

// Stations that never age: whose wishes count, and what is left when a client goes.

#include "HobaTest.h"

#include "Hoba/HobaNonAgingMacSm.h"
#include "Kiv/Exception.h"

#include <random>

namespace {

using namespace HobaTest;
using Hoba::NonAgingConfig;
using Entry = HobaTypes::MacAddressTableEntry;
using Pair = Bridging::MacVlanPair;

Pair
station( unsigned number ) {
   return { Pelt::EthAddr( 0x00005e005300 + number ), Bridging::VlanId( 10 ) };
}

// Somebody who listens to the status, and may do anything there and then.
class Listener : public Hoba::HobaBaseSm {
 public:
   KIV_TYPE( Listener );
   explicit Listener( Kiv::Ptr< Hoba::NonAgingStatus > const & status ) : HobaBaseSm( nullptr ) {
      statusIs( status );
   }
   std::function< void() > onChange;
   // The stations that were told, and the flag as that of nobody.
   std::multiset< Pair > told;

 private:
   void handleEnabled() { handleEntry( {} ); }
   void handleEntry( Pair const & pair ) {
      told.insert( pair );
      happens( onChange );
   }
   class KivStatus : public Kiv::Reactor< KivStatus, Hoba::NonAgingStatus const, Listener > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::onChange< Hoba::NonAgingStatus::enabledAttr, &Listener::handleEnabled >(),
            Kiv::onChange< Hoba::NonAgingStatus::macEntriesAttr, &Listener::handleEntry >() );
   };
   KIV_REACTOR( KivStatus, status );
};

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
                         "NonAgingConfigDirSm::publishEntry, Deleting NonAging Entry from "
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

// Anything happens in any order, also from inside the notifications of the status; what must come
// of it is worked out anew from the directory each time.
class NonAgingRandomTest : public NonAgingTest, public testing::WithParamInterface< unsigned > {
 protected:
   unsigned pick( unsigned choices ) { return static_cast< unsigned >( random() % choices ); }
   NonAgingConfig * config( std::string const & name ) {
      return dynamic_cast< NonAgingConfig * >( dir->entry( name ).get() );
   }
   // Of another one, and one station more, or exactly so.
   Kiv::Ptr< NonAgingConfig > copyOf( NonAgingConfig const * other, unsigned number ) {
      auto const client = made.emplace_back( Kiv::make< NonAgingConfig >( "copy" ) );
      client->enableIs( other ? other->enable() : pick( 4 ) != 0 );
      if( other ) {
         for( auto const & [ pair, record ] : other->macEntries() ) {
            client->macEntriesIs( record );
         }
      }
      if( pick( 2 ) ) {
         client->macEntriesIs( entry( number ) );
      }
      return client;
   }
   void step() {
      auto const name = "client" + std::to_string( pick( 3 ) );
      auto const number = pick( 6 );
      auto const kind = pick( 12 );
      if( kind == 0 ) {
         dir->entryIs( name, copyOf( config( name ), number ) );
      } else if( kind == 1 ) {
         dir->entryDel( name );
      } else if( kind == 2 ) {
         dir->entryIs( name, Kiv::make< Kiv::Dir >( name ) );
      } else if( kind == 3 && pick( 4 ) == 0 ) {
         sm = nullptr;
      } else if( kind == 4 && pick( 2 ) && sm ) {
         Kiv::Ptr( sm )->initializedIs( !sm->initialized() );
      } else if( !made.empty() ) {
         // Those that are in the directory, and some that are so no more.
         auto const recent = std::min< std::size_t >( 5, made.size() );
         change( name, *made[ made.size() - 1 - pick( recent ) ], number );
      }
   }
   void change( std::string const & name, NonAgingConfig & client, unsigned number ) {
      auto const kind = pick( 9 );
      if( kind == 0 ) {
         client.macEntriesDelAll();
      } else if( kind == 1 ) {
         dir->entryIs( name, &client );
      } else if( kind < 4 ) {
         client.enableIs( !client.enable() );
      } else if( kind < 6 ) {
         client.macEntriesDel( station( number ) );
      } else {
         client.macEntriesIs( entry( number, "Ethernet" + std::to_string( 1 + pick( 3 ) ) ) );
      }
   }
   void check() {
      std::map< Pair, std::vector< Entry > > wanted;
      bool enabled = false;
      for( auto const & [ name, entity ] : dir->entry() ) {
         if( auto const * client = config( name ); client && client->enable() ) {
            enabled = true;
            for( auto const & [ pair, record ] : client->macEntries() ) {
               wanted[ pair ].push_back( record );
            }
         }
      }
      EXPECT_EQ( status->enabled(), enabled );
      EXPECT_EQ( status->macEntries().size(), wanted.size() );
      EXPECT_EQ( sm->macEntriesRef().size(), wanted.size() );
      for( auto const & [ pair, records ] : wanted ) {
         EXPECT_EQ( sm->macEntriesRef( pair ), records.size() ) << Kiv::toText( pair );
         EXPECT_TRUE( std::count( records.begin(), records.end(), status->macEntries( pair ) ) )
               << "nobody's record stands for " << Kiv::toText( pair );
      }
   }

   std::vector< Kiv::Ptr< NonAgingConfig > > made;
   std::mt19937 random{ GetParam() };
};

// With the odd seeds nothing nests, and the status tells each difference once, and nothing else: also
// when clients are replaced, and when the machine is made anew.
TEST_P( NonAgingRandomTest, theStatusIsTheUnionOfTheClients ) {
   bool const nests = GetParam() % 2 == 0;
   auto const listener = Hoba::smIs< Listener >( status );
   unsigned depth = 0;
   unsigned checks = 0;
   listener->onChange = [ & ] {
      if( nests && depth < 3 && pick( 5 ) == 0 ) {
         ++depth;
         step();
         --depth;
      }
   };
   for( unsigned i = 0; i < 5000 && !HasFailure(); ++i ) {
      SCOPED_TRACE( "step " + std::to_string( i ) );
      auto const enabled = status->enabled();
      auto const before = mapOf( status->macEntries() );
      listener->told.clear();
      // One or the other: each of them is one change.
      if( sm ) {
         step();
      } else {
         sm = Hoba::NonAgingConfigDirSm::NonAgingConfigDirSmIs( data, dir, status );
         Kiv::Ptr( sm )->initializedIs( true );
      }
      auto changed = changedKeys( before, mapOf( status->macEntries() ) );
      if( status->enabled() != enabled ) {
         changed.insert( Pair{} );
      }
      EXPECT_TRUE( nests ||
                   listener->told == ( std::multiset< Pair >( changed.begin(), changed.end() ) ) );
      if( sm && sm->initialized() ) {
         ++checks;
         check();
      }
   }
   EXPECT_TRUE( HasFailure() || checks > 2000 ) << checks;
   listener->onChange = nullptr;
}

INSTANTIATE_TEST_SUITE_P( Seeds, NonAgingRandomTest, testing::Range( 1u, 13u ) );

} // namespace
