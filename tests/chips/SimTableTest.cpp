// SPDX-License-Identifier: Apache-2.0

// One table of the simulated chip against a model, whatever is done to it: faults, latency, passes,
// restarts, and processes that are killed.

#include "chips/sim/SimTable.h"
#include "Kiv/ClockDriver.h"
#include "Kiv/Reflect.h"
#include "platform/GlimFolder.h"
#include "platform/GlimProcesses.h"

#include <cstring>
#include <random>
#include <set>

namespace SimTableTests {

using namespace HobaSim;
using Key = std::uint64_t;

struct Record {
   KIV_VALUE( SimTableTests::Record );
   KIV_FIELD( std::uint32_t, value, 0 );
   KIV_FIELD( bool, flag, false );
};

class TestUnit : public Unit {
   KIV_ENTITY( SimTableTests::TestUnit, HobaSim::Unit );
   SIM_TABLE( Key, Record, told );
   SIM_STATE( Name, std::uint64_t, found );

 public:
   explicit TestUnit( Memory const & memory = {} ) : Unit( "unit", memory ) {}
};

} // namespace SimTableTests

KIV_DEFINE( SimTableTests::TestUnit );

namespace SimTableTests {

using Random = std::mt19937_64;

// What stands in a table, with the number of writes of each row.
struct Held {
   Record record;
   std::uint64_t writes = 0;
   bool operator==( Held const & ) const = default;
};
using HeldRows = std::map< Key, Held >;

HeldRows
heldOf( TestUnit const & unit ) {
   HeldRows rows;
   Key last = 0;
   for( auto const & [ key, record ] : unit.told() ) {
      EXPECT_TRUE( rows.empty() || last < key ) << "in the order of the keys";
      rows[ last = key ] = { record, unit.toldWrites( key ) };
   }
   EXPECT_EQ( unit.told().size(), rows.size() );
   EXPECT_EQ( unit.toldTable()->rows(), rows.size() );
   return rows;
}

// What a table is to do, in so many words.
class Model {
 public:
   struct Change {
      Kiv::Seconds due;
      Key key;
      std::optional< Record > record;
      bool wrong;
   };

   TableResult write( Key key, std::optional< Record > const & record ) {
      unclaimed.erase( key );
      if( record ? accepted.contains( key ) && accepted[ key ] == *record
                 : !accepted.contains( key ) ) {
         ++unchanged;
         return tableUnchanged;
      }
      bool const isNew = record && !accepted.contains( key );
      for( auto const kind : { tableBusy, tableFailed } ) {
         if( strikes( kind ) ) {
            return kind;
         }
      }
      if( isNew && ( strikes( tableFull ) || ( capacity && accepted.size() >= capacity ) ) ) {
         return tableFull;
      }
      bool const isWrong = record && strikes( tableParity );
      ++writes;
      accept( key, record, isWrong );
      return isWrong ? tableParity : tableWritten;
   }
   // The chip's own doing, with no record to take the row away.
   bool spoil( Key key, std::optional< Record > const & record ) {
      bool const awaited = std::any_of( queue.begin(), queue.end(),
                                        [ & ]( auto const & c ) { return c.key == key; } );
      if( record ) {
         if( !awaited && !rows.contains( key ) && capacity && accepted.size() >= capacity ) {
            return false;
         }
         rows[ key ].record = *record;
      } else {
         rows.erase( key );
      }
      if( !awaited ) {
         set( accepted, key, record );
      }
      return true;
   }
   void beginPass() {
      unclaimed.clear();
      for( auto const & [ key, record ] : accepted ) {
         unclaimed.insert( key );
      }
   }
   void sweep() {
      for( auto const key : std::exchange( unclaimed, {} ) ) {
         if( accepted.contains( key ) ) {
            ++swept;
            accept( key, std::nullopt, false );
         }
      }
   }
   void timeIs( Kiv::Seconds time ) {
      now = time;
      while( !queue.empty() && queue.front().due <= now ) {
         land( queue.front() );
         queue.pop_front();
      }
   }
   // What has not landed is lost.
   void lose() {
      queue.clear();
      unclaimed.clear();
      accepted.clear();
      for( auto const & [ key, held ] : rows ) {
         accepted[ key ] = held.record;
      }
   }

   HeldRows rows;
   std::map< Key, Record > accepted;
   std::deque< Change > queue;
   std::set< Key > unclaimed;
   std::map< TableResult, unsigned > next;
   std::uint64_t capacity = 0, writes = 0, unchanged = 0, swept = 0, wrong = 0;
   Kiv::Seconds latency = 0, now = 0;

 private:
   template< class Map >
   static void set( Map & map, Key key, std::optional< Record > const & record ) {
      record ? void( map[ key ] = *record ) : void( map.erase( key ) );
   }
   bool strikes( TableResult kind ) { return next[ kind ] && next[ kind ]--; }
   void accept( Key key, std::optional< Record > const & record, bool isWrong ) {
      set( accepted, key, record );
      auto const due = queue.empty() ? now + latency : std::max( now + latency, queue.back().due );
      Change const change{ due, key, record, isWrong };
      latency == 0 && queue.empty() ? land( change ) : queue.push_back( change );
   }
   void land( Change const & change ) {
      if( change.record ) {
         auto & held = rows[ change.key ];
         held = { *change.record, held.writes + 1 };
      } else {
         rows.erase( change.key );
      }
      wrong += change.wrong;
   }
};

class Differential {
 public:
   Differential( std::uint64_t seed, Memory const & memory ) : random_( seed ), memory_( memory ) {
      Kiv::ClockDriver::ambientIs( driver_ );
      open();
   }

   void step() {
      auto const key = pick( 12 );
      Record const record{ static_cast< std::uint32_t >( pick( 3 ) ), pick( 2 ) == 0 };
      auto & control = *unit_->toldTable();
      switch( pick( 16 ) ) {
      case 0:
         unit_->beginPass();
         return model_.beginPass();
      case 1:
         unit_->sweep();
         return model_.sweep();
      case 2:
         control.latencyIs( model_.latency = static_cast< double >( pick( 3 ) ) );
         return;
      case 3:
         control.capacityIs( model_.capacity = pick( 12 ) );
         return;
      case 4: {
         auto const kind = static_cast< TableResult >( tableParity + pick( 4 ) );
         control.faultIs( kind, { 0, model_.next[ kind ] = static_cast< unsigned >( pick( 4 ) ) } );
         return;
      }
      case 5:
         driver_.advance( 1 );
         return model_.timeIs( driver_.now() );
      case 6:
         return pick( 10 ) == 0 ? restart() : void();
      case 7:
         EXPECT_EQ( unit_->toldIs( key, record ), model_.spoil( key, record ) );
         return;
      case 8:
         unit_->toldDel( key );
         model_.spoil( key, std::nullopt );
         return;
      case 9:
      case 10:
         EXPECT_EQ( unit_->toldClear( key ), model_.write( key, std::nullopt ) );
         return;
      default:
         EXPECT_EQ( unit_->toldProgram( key, record ), model_.write( key, record ) );
      }
   }

   void check() const {
      EXPECT_EQ( heldOf( *unit_ ), model_.rows );
      auto const & control = *unit_->toldTable();
      EXPECT_EQ( ( std::vector{ unit_->writes(), control.unchanged(), unit_->swept(), wrong_ } ),
                 ( std::vector{ model_.writes, model_.unchanged, model_.swept, model_.wrong } ) );
   }

 private:
   std::uint64_t pick( std::uint64_t below ) { return random_() % below; }
   void open() {
      unit_ = Kiv::make< TestUnit >( memory_ );
      unit_->parityErrorIs( [ this ]( Kiv::String const & memory, std::uint32_t ) {
         EXPECT_EQ( memory, "unit.told" );
         ++wrong_;
      } );
   }
   // With what memory there is; or, all the same for private memory, a chip without power.
   void restart() {
      if( memory_.name.empty() ) {
         unit_->reset();
         model_.rows.clear();
      } else {
         unit_ = nullptr;
         open();
         model_.writes = model_.unchanged = model_.swept = model_.latency = model_.capacity = 0;
         model_.next.clear();
      }
      model_.lose();
   }

   Random random_;
   Memory const memory_;
   Kiv::VirtualDriver driver_;
   Kiv::Ptr< TestUnit > unit_;
   std::uint64_t wrong_ = 0;
   Model model_;
};

TEST( SimTable, behavesAsTheModel ) {
   GlimTests::Folder const folder;
   for( std::uint64_t seed = 1; seed <= 60 && !testing::Test::HasFailure(); ++seed ) {
      Memory memory;
      memory.name = seed % 2 ? "" : "memory" + std::to_string( seed );
      Differential table( seed, memory );
      for( unsigned step = 1; step <= 600 && !testing::Test::HasFailure(); ++step ) {
         SCOPED_TRACE( "seed " + std::to_string( seed ) + ", step " + std::to_string( step ) );
         table.step();
         table.check();
      }
   }
}

// The n-th of a sequence of writes that is the same for everybody.
void
write( std::uint64_t seed, std::uint64_t n, auto const & use ) {
   Random random( seed * 1'000'003 + n );
   auto const key = random() % 200;
   auto const value = static_cast< std::uint32_t >( random() % 4 );
   use( key, value ? std::optional( Record{ value, true } ) : std::nullopt );
}

// Each write has happened, or it has not.
TEST( SimTable, survivesTheDeathOfItsWriter ) {
   GlimTests::Folder const folder;
   Memory memory;
   memory.name = "mortal";
   Model model;
   for( std::uint64_t seed = 1; seed <= 40 && !testing::Test::HasFailure(); ++seed ) {
      SCOPED_TRACE( seed );
      GlimTests::Shared< GlimTests::Report > report;
      GlimTests::Shared< std::atomic< std::uint64_t > > written;
      {
         GlimTests::Child child( *report, [ & ] {
            TestUnit unit( memory );
            for( std::uint64_t n = 0;; *written = ++n ) {
               write( seed, n, [ & ]( Key key, auto const & record ) {
                  record ? unit.toldProgram( key, *record ) : unit.toldClear( key );
               } );
            }
         } );
         auto const enough = 1 + Random( seed )() % 5000;
         while( *written < enough && !report->failed ) {
            ::usleep( 50 );
         }
         child.kill();
      }
      ASSERT_FALSE( report->failed ) << report->text;
      auto const apply = [ & ]( Key key, auto const & record ) { model.write( key, record ); };
      for( std::uint64_t n = 0; n != *written; ++n ) {
         write( seed, n, apply );
      }
      auto const found = heldOf( *Kiv::make< TestUnit >( memory ) );
      if( found != model.rows ) {
         write( seed, *written, apply ); // it was killed behind it
      }
      EXPECT_TRUE( found == model.rows ) << *written;
   }
}

// Whoever fills it, and in whatever order: each bucket takes so many rows, and then others have room.
TEST( SimTable, buckets ) {
   auto const filled = []( TestUnit & unit, bool backwards ) {
      unit.toldTable()->capacityIs( 64 );
      unit.toldTable()->bucketSizeIs( 4 );
      std::set< Key > refused;
      for( Key n = 0; n != 1000; ++n ) {
         auto const key = backwards ? 999 - n : n;
         if( unit.toldProgram( key, {} ) == tableFull ) {
            refused.insert( key );
         }
      }
      return refused;
   };
   auto const one = Kiv::make< TestUnit >(), other = Kiv::make< TestUnit >();
   auto const refused = filled( *one, false );
   EXPECT_EQ( refused, filled( *other, false ) );
   EXPECT_EQ( one->told().size(), 64u );
   EXPECT_LT( *refused.begin(), 40u ) << "long before the table is full";
   EXPECT_GT( one->toldTable()->bucketFull(), 0u );
   other->reset();
   EXPECT_NE( refused, filled( *other, true ) );
   EXPECT_EQ( other->told().size(), 64u );
   // A row that goes makes room in its bucket, and nowhere else.
   one->toldDel( heldOf( *one ).begin()->first );
   std::size_t found = 0;
   for( auto const key : refused ) {
      found += one->toldIs( key, {} ) ? 1 : 0;
   }
   EXPECT_EQ( found, 1u );
}

TEST( SimTable, chancesFollowTheSeed ) {
   auto const results = []( std::uint64_t seed ) {
      auto const unit = Kiv::make< TestUnit >();
      unit->toldTable()->seedIs( seed );
      unit->toldTable()->faultIs( tableBusy, { 0.25, 0 } );
      std::vector< TableResult > all;
      for( Key key = 0; key != 1000; ++key ) {
         all.push_back( unit->toldProgram( key, {} ) );
      }
      auto const busy = unit->toldTable()->refused( tableBusy );
      EXPECT_EQ( busy, static_cast< unsigned >( std::count( all.begin(), all.end(), tableBusy ) ) );
      EXPECT_TRUE( busy > 200 && busy < 300 ) << busy;
      return all;
   };
   EXPECT_EQ( results( 7 ), results( 7 ) );
   EXPECT_NE( results( 7 ), results( 8 ) );
}

// What the chip found by itself is nobody's to ask for; what the agent added to it is.
TEST( SimTable, sweepLeavesWhatTheChipFound ) {
   auto const unit = Kiv::make< TestUnit >();
   unit->foundIs( Name( "own" ), 1 );
   unit->foundProgram( Name( "agent's" ), 2 );
   unit->foundProgram( Name( "moved" ), 3 );
   unit->foundProgram( Name( "kept" ), 3 );
   unit->foundIs( Name( "moved" ), 4 );
   unit->beginPass();
   unit->foundIs( Name( "late" ), 5 );
   EXPECT_EQ( unit->foundProgram( Name( "kept" ), 3 ), tableUnchanged );
   unit->sweep();
   EXPECT_EQ( Kiv::toText( unit->kivType().reflection()->attribute( "found" )->keys( *unit ) ),
              "[kept, late, own]" );
   EXPECT_EQ( unit->swept(), 2u );
   EXPECT_EQ( unit->writes(), 3u );
}

// By name, as the state database does it.
TEST( SimTable, isSpoiltFromOutsideAndSaysWhy ) {
   auto const unit = Kiv::make< TestUnit >();
   auto const & told = *unit->kivType().reflection()->attribute( "told" );
   unit->toldTable()->capacityIs( 1 );
   told.setMember( *unit, "7", Kiv::toDatum( Record{ 1, true } ) );
   EXPECT_EQ( unit->told( 7 ), ( Record{ 1, true } ) );
   EXPECT_THROW( told.setMember( *unit, "8", Kiv::toDatum( Record{} ) ), Kiv::ParseError );
   EXPECT_TRUE( told.delMember( *unit, "7" ) );
   EXPECT_EQ( unit->writes(), 0u );
   unit->toldMustProgram( 1, {} );
   EXPECT_EQ( HobaTests::errorOf< TableRefused >( [ & ] { unit->toldMustProgram( 2, {} ); } ),
              "table unit.told, row 2: full" );
   unit->toldTable()->faultIs( tableBusy, { 1, 0 } );
   EXPECT_EQ( HobaTests::errorOf< TableRefused >( [ & ] { unit->toldMustClear( 1 ); } ),
              "table unit.told, row 1: busy" );
   auto const & fault = *SimTable::kivType().reflection()->attribute( "fault" );
   EXPECT_THROW( fault.checkMember( "busy", Kiv::toDatum( TableFault{ 1.5, 0 } ) ),
                 Kiv::RangeException );
   EXPECT_EQ( Name( Kiv::String( 47, 'x' ) ).text().size(), 47u );
   EXPECT_THROW( Name( Kiv::String( 48, 'x' ) ), Kiv::ParseError );
   Name endless; // as damaged memory may have it
   std::memset( static_cast< void * >( &endless ), 'x', sizeof endless );
   EXPECT_EQ( endless.text().size(), sizeof endless );
}

} // namespace SimTableTests
