// SPDX-License-Identifier: Apache-2.0

// A machine per child, by any key, on two entities: who comes, stays, adopts, releases and goes, and
// what happens to those who do it to each other.

#include "Hoba/HobaSmMap.h"
#include "HobaTest.h"
#include "Kiv/Reflect.h"
#include "Tessera/Database.h"

namespace {

using namespace HobaTest;

class OwnerSm;

// Holds a share of what the owner counts.
class ShareSm : public Hoba::HobaBaseSm {
   HOBA_MACHINE( ShareSm );

 public:
   void handleNotificationActive() override;
   void handleInitialized() override;
   void takeOver( ShareSm & former );
   void release();
   void say( std::string const & what );

   OwnerSm & owner;
   bool holds = false;

 protected:
   ShareSm( std::uint16_t key, OwnerSm & theOwner );
};

Kiv::Ptr< ShareSm > shareSmFactory( std::uint16_t const & key, Kiv::Ptr< Kiv::Dir const > const &,
                                    Kiv::Ptr< Kiv::Dir > const &, OwnerSm & owner );
Kiv::Ptr< ShareSm > lastingSmFactory( std::uint16_t const & key, Kiv::Ptr< Kiv::Dir > const &,
                                      OwnerSm & owner );

class OwnerSm : public Hoba::HobaBaseSm {
   HOBA_MACHINE( OwnerSm );
   KIV_REFCOUNTS( std::uint16_t, shares );
   HOBA_SMS( shareSmFactory, shareSm, Hoba::TakesOver< &ShareSm::takeOver >,
             Hoba::LastWord< &ShareSm::release > );
   HOBA_SMS( lastingSmFactory, lastingSm, Hoba::LastWordAlsoWithOwner< &ShareSm::release > );

 public:
   Strings take() { return std::exchange( said, {} ); }
   void act( std::string const & text ) {
      if( auto const action = then.find( text ); action != then.end() ) {
         std::exchange( action->second, [] {} )();
      }
   }

   Strings said;
   std::map< std::string, std::function< void() > > then;

 protected:
   explicit OwnerSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & data ) : HobaBaseSm( data ) {}
   void handleInitialized() override {
      initialized() ? reactorsInitialize() : reactorsUninitialize();
   }
};

ShareSm::ShareSm( std::uint16_t key, OwnerSm & theOwner )
      : HobaBaseSm( theOwner.commonSmData(), std::to_string( key ) ), owner( theOwner ) {}

void
ShareSm::say( std::string const & what ) {
   auto const text = what + ' ' + name();
   owner.said.push_back( text );
   owner.act( text );
}

void
ShareSm::handleNotificationActive() {
   owner.act( "hears " + name() );
}

void
ShareSm::takeOver( ShareSm & ) {
   owner.act( "takes over " + name() );
}

void
ShareSm::handleInitialized() {
   if( initialized() && !std::exchange( holds, true ) ) {
      owner.sharesInc( static_cast< std::uint16_t >( std::stoi( name() ) ) );
      say( "holds" );
   }
}

void
ShareSm::release() {
   if( std::exchange( holds, false ) ) {
      owner.sharesDec( static_cast< std::uint16_t >( std::stoi( name() ) ) );
   }
   say( "releases" );
}

Kiv::Ptr< ShareSm >
shareSmFactory( std::uint16_t const & key, Kiv::Ptr< Kiv::Dir const > const &,
                Kiv::Ptr< Kiv::Dir > const &, OwnerSm & owner ) {
   owner.act( "makes " + std::to_string( key ) );
   return key ? Kiv::make< ShareSm >( key, owner ) : nullptr;
}
Kiv::Ptr< ShareSm >
lastingSmFactory( std::uint16_t const & key, Kiv::Ptr< Kiv::Dir > const &, OwnerSm & owner ) {
   return ShareSm::ShareSmIs( key, owner );
}

} // namespace

KIV_DEFINE( ShareSm );
KIV_DEFINE( OwnerSm );

namespace {

class HobaSmMap : public HobaFixture {
 protected:
   HobaSmMap() { owner->initializedIs( true ); }

   Kiv::Ptr< Kiv::Dir > one = Kiv::make< Kiv::Dir >( "one" );
   Kiv::Ptr< Kiv::Dir > two = Kiv::make< Kiv::Dir >( "two" );
   Kiv::Ptr< Hoba::HobaCommonSmData > data = Kiv::make< Hoba::HobaCommonSmData >( "context" );
   Kiv::Ptr< OwnerSm > owner = OwnerSm::OwnerSmIs( data );
};

TEST_F( HobaSmMap, theNewOneAdoptsBeforeTheFormerOneReleases ) {
   Watcher< OwnerSm, OwnerSm::sharesAttr > * watcher = nullptr;
   auto const watch = Hoba::smIs< Watcher< OwnerSm, OwnerSm::sharesAttr > >(
         Kiv::Ptr< OwnerSm const >( owner ) );
   watcher = watch.get();
   owner->shareSmIs( 7, one, two );
   Kiv::Ptr< ShareSm > const first( owner->shareSm( 7 ) );
   owner->shareSmIs( 7, one, two );
   EXPECT_EQ( owner->shareSm( 7 ), first.get() ) << "the same entities keep it";
   EXPECT_EQ( owner->take(), Strings{ "holds 7" } );
   // Another second entity.
   owner->shareSmIs( 7, one, one );
   EXPECT_NE( owner->shareSm( 7 ), first.get() );
   EXPECT_TRUE( first->kivMarkedForDeletion() );
   EXPECT_EQ( owner->take(), ( Strings{ "holds 7", "releases 7" } ) );
   EXPECT_EQ( owner->shares( 7 ), 1u );
   EXPECT_EQ( watcher->changes, 3u ) << "1, 2, 1: never gone";
   // Any of the entities null.
   owner->shareSmIs( 7, one, nullptr );
   EXPECT_EQ( owner->shareSm( 7 ), nullptr );
   EXPECT_FALSE( owner->sharesHas( 7 ) );
   EXPECT_THROW( owner->sharesDec( 7 ), Kiv::Exception );
   EXPECT_EQ( owner->take(), Strings{ "releases 7" } );
}

TEST_F( HobaSmMap, machinesDoItToEachOther ) {
   // Replaced, removed, and the owner dropped, while one begins; made again by the last word.
   owner->then[ "holds 1" ] = [ & ] { owner->shareSmIs( 1, two, two ); };
   owner->shareSmIs( 1, one, one );
   EXPECT_EQ( owner->take(), ( Strings{ "holds 1", "holds 1", "releases 1" } ) );
   EXPECT_EQ( owner->shares( 1 ), 1u );
   owner->then[ "holds 2" ] = [ & ] { owner->shareSmDelAll(); };
   owner->shareSmIs( 2, one, one );
   EXPECT_TRUE( owner->shareSm().empty() );
   EXPECT_TRUE( owner->shares().empty() );
   owner->shareSmIs( 3, one, one );
   owner->take();
   owner->then[ "releases 3" ] = [ & ] { owner->shareSmIs( 3, one, two ); };
   owner->shareSmDel( 3 );
   EXPECT_EQ( owner->take(), ( Strings{ "releases 3", "holds 3" } ) );
   EXPECT_EQ( owner->shares( 3 ), 1u );
   // One that throws keeps nobody from anything.
   owner->then[ "holds 4" ] = [] { throw std::runtime_error( "4" ); };
   owner->then[ "releases 3" ] = [] { throw std::runtime_error( "3" ); };
   owner->shareSmIs( 4, one, one );
   owner->shareSmDelAll();
   EXPECT_TRUE( owner->shareSm().empty() );
   EXPECT_EQ( failures(), 2u );
   owner->then[ "holds 5" ] = [ gone = &owner ] { *gone = nullptr; };
   owner->shareSmIs( 5, one, one );
   EXPECT_EQ( owner, nullptr );
}

TEST_F( HobaSmMap, machinesThatCannotBeMadeOrCannotTakeOver ) {
   owner->shareSmIs( 0, one, one );
   EXPECT_EQ( owner->shareSm().size(), 0u );
   owner->shareSmIs( 1, one, one );
   owner->then[ "makes 1" ] = [] { throw std::runtime_error( "1" ); };
   EXPECT_THROW( owner->shareSmIs( 1, two, two ), std::runtime_error );
   EXPECT_EQ( owner->shareSm( 1 ), nullptr ) << "what the former one stood for is gone";
   owner->shareSmIs( 1, two, two );
   owner->then[ "takes over 1" ] = [] { throw std::runtime_error( "1" ); };
   owner->shareSmIs( 1, one, two );
   EXPECT_EQ( owner->take(),
              ( Strings{ "holds 1", "releases 1", "holds 1", "holds 1", "releases 1" } ) );
   EXPECT_TRUE( owner->shareSm( 1 )->hasNotificationActive() );
   EXPECT_EQ( failures(), 1u );
}

TEST_F( HobaSmMap, theOwnerGoesOrFallsSilentInTheMiddle ) {
   for( std::uint16_t key : { 1, 2 } ) {
      owner->shareSmIs( key, one, one );
   }
   owner->hasNotificationActiveIs( false );
   owner->then[ "hears 1" ] = [ & ] { owner->hasNotificationActiveIs( false ); };
   owner->hasNotificationActiveIs( true );
   EXPECT_FALSE( owner->shareSm( 2 )->hasNotificationActive() );
   owner->take();
   // Let go of, but held, while a machine is made, or begins in the place of another.
   for( auto const & [ when, said ] :
        std::map< std::string, Strings >{ { "makes 1", {} }, { "takes over 2", { "holds 1" } } } ) {
      auto const held = OwnerSm::OwnerSmIs( data );
      held->initializedIs( true );
      held->shareSmIs( 2, one, one );
      held->take();
      held->then[ when ] = [ gone = held ]() mutable { Hoba::letGo( gone ); };
      held->shareSmIs( 1, one, one );
      held->shareSmIs( 2, two, two );
      EXPECT_EQ( held->take(), said ) << when;
      for( auto const & [ key, sm ] : held->shareSm() ) {
         EXPECT_TRUE( sm->kivMarkedForDeletion() ) << when;
      }
   }
}

TEST_F( HobaSmMap, whoHasALastWordWithTheOwner ) {
   owner->shareSmIs( 1, one, one );
   owner->lastingSmIs( 2, one );
   Kiv::Ptr< ShareSm > const mortal( owner->shareSm( 1 ) );
   Kiv::Ptr< ShareSm > const lasting( owner->lastingSm( 2 ) );
   owner->take();
   auto const held = owner;
   Hoba::letGo( owner );
   EXPECT_EQ( held->take(), Strings{ "releases 2" } );
   EXPECT_TRUE( mortal->kivMarkedForDeletion() && lasting->kivMarkedForDeletion() );
   EXPECT_EQ( held->shares( 1 ), 1u ) << "left for the next machine to adopt";
   held->shareSmIs( 3, one, one );
   held->lastingSmIs( 3, one );
   EXPECT_EQ( held->take(), Strings{} ) << "a marked machine makes no more of them";
   EXPECT_TRUE( held->lastingSm().empty() );
}

TEST_F( HobaSmMap, machinesAreShownWithTheirOwner ) {
   Tessera::Database database;
   std::vector< std::string > changed;
   database.mount( "/owner", owner, Tessera::Access::status );
   database.watch( "/owner", [ & ]( Tessera::Path const & path, auto const & ) {
      changed.push_back( path.text() );
   } );
   owner->shareSmIs( 7, one, two );
   EXPECT_EQ( Kiv::datumText( database.get( "/owner" ) ),
              "{\"initialized\": true, \"shares\": {\"7\": 1}, "
              "\"shareSm\": {\"7\": {\"initialized\": true}}, \"lastingSm\": {}}" );
   EXPECT_THROW( database.del( "/owner/shareSm/7" ), Tessera::Error );
   owner->shareSmDel( 7 );
   EXPECT_EQ( changed, ( Strings{ "/owner/shares/7", "/owner/shareSm/7", "/owner/shares/7",
                                  "/owner/shareSm/7" } ) );
}

} // namespace
