// SPDX-License-Identifier: Apache-2.0

// The chip's memory: what a chip finds there when it comes back, and what it must not go on with.

#include "chips/sim/SimChip.h"
#include "Kiv/ClockDriver.h"
#include "Kiv/Reflect.h"
#include "platform/GlimFolder.h"

#include <cstring>
#include <fstream>

namespace {

using namespace HobaSim;
using GlimTests::errorOf;

Pelt::IntfId const et1{ "Ethernet1" };
Pelt::IntfId const et2{ "Ethernet2" };
Pelt::IntfId const po1{ "Port-Channel1" };

class SimChipTest : public testing::Test {
 protected:
   SimChipTest() { Kiv::ClockDriver::ambientIs( driver ); }

   Kiv::Ptr< Chip > open( bool cold = false ) const {
      auto const chip = Kiv::make< Chip >( "sim", Memory{ "m", cold } );
      chip->checkCapacities();
      return chip;
   }
   // Something in each unit.
   static void fill( Chip & chip ) {
      chip.stormControl()->limitProgram( { et1, Hoba::levelTypeAll },
                                         { true, 5, Bridging::StormControl::unitKbps, et1 } );
      chip.stormControl()->burstTimeProgram( Name( "short" ), 50 );
      chip.stormControl()->inject( et1, Hoba::levelTypeBroadcast, 1'000'000, 100, 1 );
      chip.events()->linkEvent( et1, Interface::linkDown, HobaTypes::faultRemote );
      chip.events()->autonegEvent( et2, Interface::autonegSuccess, { 96, true, false } );
      chip.trunk()->lagProgram( et2, po1 );
      chip.mac()->learn( et2, Pelt::EthAddr( 0x020000000001 ), Bridging::VlanId( 10 ) );
      chip.parity()->raise( "slice1", "L2", 7 );
   }
   // All rows of all units.
   static Kiv::String textOf( Chip & chip ) {
      Kiv::String text;
      for( auto const * part : chip.kivType().reflection()->attributes() ) {
         auto * const unit = part->child( chip, "" );
         for( auto const * attribute : unit->fwkType().reflection()->attributes() ) {
            if( attribute->id.kind == Kiv::AttributeKind::map ) {
               text += Kiv::String( attribute->id.name ) + ' ' +
                       Kiv::datumText( attribute->get( *unit ) ) + '\n';
            }
         }
      }
      return text;
   }
   static std::string pathOf( std::string const & table ) { return Glim::pathOf( table ); }

   GlimTests::Folder const folder;
   Kiv::VirtualDriver driver{ 100 };
};

// The MAC table ages, flushes and remembers on where its process ended.
TEST_F( SimChipTest, macTableGoesOn ) {
   auto const station = []( unsigned last ) {
      return Bridging::MacVlanPair( Pelt::EthAddr( 0x020000000000 + last ),
                                    Bridging::VlanId( 10 ) );
   };
   auto chip = open();
   auto const learn = [ & ]( Pelt::IntfId port, unsigned last ) {
      return chip->mac()->learn( port, station( last ).addr(), Bridging::VlanId( 10 ) );
   };
   chip->mac()->settingProgram( macAgingTime, 20 );
   learn( et1, 1 );
   learn( et2, 2 );
   HostRow row;
   row.intf = et1;
   chip->mac()->write( station( 3 ), row );
   row.intf = Pelt::IntfId( "Vxlan1" );
   chip->mac()->write( station( 4 ), row );
   EXPECT_EQ( learn( et2, 3 ), learnElsewhere );
   chip->mac()->flushIn( { et1, 0 } );
   chip = nullptr;
   driver.timeIs( 500 );

   chip = open();
   auto & mac = *chip->mac();
   EXPECT_FALSE( mac.entry( station( 1 ) ) );
   EXPECT_TRUE( mac.isLearnt( station( 2 ) ) && mac.isLearnt( station( 3 ) ) );
   EXPECT_EQ( mac.remoteHosts(), 1u );
   EXPECT_EQ( mac.host().size(), 4u );
   driver.advanceTo( 515 );
   EXPECT_EQ( mac.host().size(), 3u );
   EXPECT_TRUE( mac.flush().empty() );
   learn( et2, 3 );
   driver.advanceTo( 525 );
   EXPECT_FALSE( mac.isLearnt( station( 2 ) ) );
   EXPECT_TRUE( mac.isLearnt( station( 3 ) ) );
   driver.advanceTo( 530 );
   EXPECT_FALSE( mac.isLearnt( station( 3 ) ) );
   EXPECT_EQ( mac.host().size(), 2u );
}

TEST_F( SimChipTest, comesBackAsItWas ) {
   auto chip = open();
   auto const empty = textOf( *chip );
   fill( *chip );
   auto const full = textOf( *chip );
   chip = nullptr;

   chip = open();
   EXPECT_EQ( textOf( *chip ), full );
   EXPECT_EQ( chip->mac()->host().begin()->value.intf, po1 );
   Hoba::ParityEvent::Key const key{ "slice1", "L2", 7 };
   EXPECT_EQ( chip->parity()->status( "slice1" )->parityEvent( key ).count, 1u );
   // The rows are claimed by whom they are for; what nobody asks for again goes, and no more.
   chip->beginPass();
   chip->stormControl()->burstTimeProgram( Name( "short" ), 50 );
   chip->trunk()->lagProgram( et2, po1 );
   EXPECT_EQ( chip->writes(), 0u );
   EXPECT_EQ( chip->stormControl()->burstTimeWrites( Name( "short" ) ), 1u );
   chip->sweep();
   EXPECT_EQ( chip->swept(), 1u );
   EXPECT_TRUE( chip->stormControl()->limit().empty() );
   EXPECT_EQ( chip->mac()->host().size(), 1u );
   EXPECT_TRUE( chip->parity()->corrected( key ) );
   EXPECT_EQ( chip->parity()->status( "slice1" )->parityEvent().size(), 0u );

   chip->reset();
   EXPECT_EQ( textOf( *chip ), empty );
   fill( *chip );
   chip = nullptr;
   EXPECT_EQ( textOf( *open( true ) ), empty );
   // Chips without a memory have each their own.
   auto const one = Kiv::make< Chip >(), other = Kiv::make< Chip >();
   fill( *one );
   EXPECT_EQ( textOf( *other ), empty );
}

// A table found wrong in a row says so where the other errors are.
TEST_F( SimChipTest, foundWrong ) {
   auto const chip = Kiv::make< Chip >();
   chip->trunk()->lagTable()->faultIs( tableParity, { 0, 1 } );
   chip->parity()->sliceNameDelAll();
   for( auto const & slice :
        { Kiv::String( "a\0b", 3 ), Kiv::String( "a:b" ), Kiv::String( "slice0" ) } ) {
      chip->parity()->sliceNameIs( slice ); // the last one can have an error
   }
   chip->trunk()->lagMustProgram( et1, po1 );
   chip->trunk()->lagMustProgram( et2, po1 );
   auto const slice = chip->parity()->status( "slice0" );
   ASSERT_TRUE( slice );
   ASSERT_EQ( slice->parityEvent().size(), 1u );
   EXPECT_EQ( slice->parityEvent().first()->key.memory, "trunk.lag" );
   EXPECT_EQ( chip->trunk()->lag( et1 ), po1 );
}

struct Damage {
   char const * name;
   void ( *done )();
   std::vector< std::string_view > line;
};

void
shapeIs( Kiv::String const & row, TableShape const & shape ) {
   Glim::TableWriter< Name, TableShape >( "m.chip" ).is( Name( row ), shape );
}

// One line, which names the memory; what is there stays as it is, and who begins cold begins.
TEST_F( SimChipTest, isNotGoneOnWith ) {
   Damage const damages[] = {
         { "cut off",
           [] { std::filesystem::resize_file( pathOf( "m.mac.host" ), 100 ); },
           { "chip memory \"m\"", "\"m.mac.host\"", "it is cut off: 100 bytes" } },
         { "noise",
           [] { std::ofstream( pathOf( "m.chip" ) ) << std::string( 20'000, 'x' ); },
           { "chip memory \"m\"", "\"m.chip\"", "it is no table" } },
         { "gone",
           [] { std::filesystem::remove( pathOf( "m.trunk.lag" ) ); },
           { "chip memory \"m\"", "\"m.trunk.lag\"", "it is not there" } },
         { "other rows",
           [] {
              Glim::TableWriter< Name, bool >(
                    "m.trunk.lag", { .lifetime = Glim::Lifetime::stays, .replace = true } );
           },
           { "chip memory \"m\"", "\"m.trunk.lag\"", "its rows are", "expected" } },
         { "neither true nor false",
           [] {
              Glim::TableWriter< StormKey, Row< StormLimit > > table( "m.stormControl.limit" );
              Row< StormLimit > row;
              std::memset( static_cast< void * >( &row.record.limited ), 2, 1 );
              table.is( { et1, 0 }, row );
           },
           { "chip memory \"m\"", "\"m.stormControl.limit\": its rows are damaged" } },
         { "other version",
           [] {
              shapeIs( "layout", { 99, 0, 0 } );
           },
           { "chip memory \"m\" is of version 99, expected 1" } },
         { "other capacity",
           [] {
              shapeIs( "mac.host", { 1, 5, 4 } );
           },
           { "chip memory \"m\" is that of a chip with other capacities: mac.host has room for "
             "5 rows in buckets of 4 there, 131072 rows expected" } },
   };
   auto const copy = std::filesystem::path( folder.path ) / "copy";
   auto const eachFile = [ & ]( auto const & use ) {
      for( auto const & file : folder.files() ) {
         if( file != "copy" ) {
            use( std::filesystem::path( folder.path ) / file );
         }
      }
   };
   for( auto const & damage : damages ) {
      SCOPED_TRACE( damage.name );
      fill( *open( true ) );
      auto const before = textOf( *open() );
      std::filesystem::create_directory( copy );
      eachFile( [ & ]( auto const & file ) {
         std::filesystem::copy_file( file, copy / file.filename() );
      } );
      damage.done();
      for( unsigned times = 0; times != 2; ++times ) {
         auto const line = errorOf< Glim::Error >( [ & ] { open(); } );
         EXPECT_EQ( line.find( '\n' ), line.npos );
         for( auto const part : damage.line ) {
            EXPECT_NE( line.find( part ), line.npos ) << part << " in: " << line;
         }
      }
      // As it was: with what was spoilt put right, it is there.
      for( auto const * spoilt :
           { "m.mac.host", "m.trunk.lag", "m.chip", "m.stormControl.limit" } ) {
         auto const file = std::filesystem::path( pathOf( spoilt ) );
         std::filesystem::remove( file );
         std::filesystem::rename( copy / file.filename(), file );
      }
      std::filesystem::remove_all( copy );
      EXPECT_EQ( textOf( *open() ), before );
      damage.done();
      auto const cold = open( true );
      EXPECT_TRUE( cold->mac()->host().empty() );
   }
   for( auto const * name : { "a/b", "-m", "a-name-that-is-longer-than-any-has-to-be" } ) {
      auto const line = errorOf< Glim::Error >( [ & ] { Chip( "sim", Memory{ name } ); } );
      EXPECT_TRUE( line.starts_with( Kiv::String( "\"" ) + name + "\" is no name of a chip" ) )
            << line;
   }
   auto const driven = open();
   for( bool const cold : { false, true } ) {
      EXPECT_EQ( errorOf< Glim::Error >( [ & ] { open( cold ); } ),
                 "chip memory \"m\" is driven by another agent, process " +
                       std::to_string( ::getpid() ) );
   }
}

} // namespace
