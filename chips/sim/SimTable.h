// SPDX-License-Identifier: Apache-2.0
#pragma once

// The tables of the simulated chip: finite, now and then busy, sometimes wrong, and there when the
// agent comes back. Everything that a unit of the chip is told, learns or counts stands in such tables.
//
//    class StormUnit : public Unit {
//       KIV_ENTITY( HobaSim::StormUnit, HobaSim::Unit );
//       SIM_TABLE( StormKey, StormLimit, limit );   // what the agent tells the chip
//       SIM_STATE( StormKey, std::uint64_t, drop ); // what the chip finds out and counts by itself
//     public:
//       explicit StormUnit( Kiv::String const & name = {}, Memory const & memory = {} )
//             : Unit( name, memory ) {}
//    };
//
// Each line is an attribute of its unit, like a KIV_COLLECTION: it is read, listed and watched, and
// who writes it through the state database spoils what the chip holds. What there is for each:
//
//    limit()                       the rows: find( key ), has( key ), size(), empty(), and a walk in the order
//                                  of the keys, which is the same in every run; each( use ) does not sort
//    limit( key ), limitHas( key ) a copy of the record, a default one for what is not there; never sorts
//    limitWrites( key )            how often the agent wrote this very row; 0 if the chip made it
//
//    limitIs( key, record )        the chip's own doing, or somebody's who spoils it: no fault, no latency,
//                                  and no write of the agent's. False, and nothing has changed, if the row
//                                  would be a new one for which there is no room.
//    limitDel( key ), limitDelAll()
//
//    limitProgram( key, record )   the agent's doing. Writes what differs from what the chip holds, and
//    limitClear( key )             nothing else; either way the row is claimed (below). Returns what came of
//                                  it, see TableResult.
//    limitClaim( key )             the row is claimed: what the agent wants of it is on its way
//    limitMustProgram( key, record ), limitMustClear( key )
//                                  the same for helpers: throw TableRefused for what the chip refused
//
//    limitHasRoomFor( keys )       whether new rows with all of these keys fit, before any is written
//
//    limitTable()                  the entity with its properties, faults and counters: SimTable
//
// *Latency.* What the agent writes lands later if the table says so, in order. Until then the table
// reads as before, but what is to be written is compared with what was accepted last. What has not
// landed when the process ends is lost: who starts next compares with what is there.
//
// *Claims.* beginPass() marks the rows as not asked for; Program and Clear claim theirs, changed or not;
// sweep() takes away what nobody claimed. Of what the chip finds out by itself (SIM_STATE), only rows
// that the agent wrote are marked; not those whose record says bool isChips() const: it is the chip's own now.
//
// Keys and records must be trivially copyable, keys without unused bytes: text is a `Name`.

#include "Glim/RecordTypes.h"
#include "Glim/RowWalk.h"
#include "Glim/Shape.h"
#include "Glim/Table.h"
#include "Kiv/Clock.h"
#include "Kiv/Datum.h"
#include "Kiv/Entity.h"
#include "Kiv/HashMap.h"
#include "Kiv/Value.h"

#include <algorithm>
#include <array>
#include <compare>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace HobaSim {

// Throws Kiv::ParseError for a text that is longer, or has a zero in it.
void checkText( std::string_view text, std::size_t maxLength );

// A short text in a table.
template< std::size_t bytes >
class FixedText {
 public:
   static constexpr std::size_t maxLength = bytes - 1;

   FixedText() = default;
   // Throws Kiv::ParseError as checkText().
   explicit FixedText( std::string_view text ) {
      checkText( text, maxLength );
      std::copy( text.begin(), text.end(), text_.begin() );
   }

   // Memory that was damaged may have no end of it.
   std::string_view view() const {
      return { text_.data(), static_cast< std::size_t >(
                                   std::find( text_.begin(), text_.end(), 0 ) - text_.begin() ) };
   }
   Kiv::String text() const { return Kiv::String( view() ); }
   bool empty() const { return text_[ 0 ] == 0; }

   bool operator==( FixedText const & ) const = default;
   auto operator<=>( FixedText const & ) const = default;
   std::size_t hash() const { return Kiv::hashText( view() ); }
   void print( std::string & out ) const { out += view(); }
   static FixedText parse( std::string_view text ) { return FixedText( text ); }

 private:
   std::array< char, bytes > text_{}; // zeroes behind the end
};
using Name = FixedText< 48 >;

// What came of a write.
KIV_ENUM(
      TableResult, std::uint8_t, tableWritten = 0 KIV_SHOWN( "written" ),
      tableUnchanged KIV_SHOWN( "unchanged" ), // the chip held that already
      tableParity KIV_SHOWN( "parity" ), // written, and found wrong: the chip raised a parity error
      // Refused, nothing has changed:
      tableBusy KIV_SHOWN( "busy" ), tableFull KIV_SHOWN( "full" ),
      tableFailed KIV_SHOWN( "failed" ) );

constexpr bool
isRefusal( TableResult result ) {
   return result >= tableBusy;
}

// A helper's write that the chip refused. The text says which table and row, and why.
class TableRefused : public Kiv::Exception {
 public:
   using Exception::Exception;
};

// When a fault strikes: in each of the next so many writes, and by chance in any.
struct TableFault {
   KIV_VALUE( HobaSim::TableFault );
   // 0 to 1.
   KIV_FIELD( double, chance, 0 );
   KIV_FIELD( std::uint32_t, next, 0 );

   // Throws Kiv::RangeException.
   void check() const;
};

// Chance, the same in each run: begun anew by another seed.
class FaultDice {
 public:
   // From 0 to 1, which is not drawn.
   double draw( std::uint64_t seed );
   // Whether the fault strikes now. What is left of its plan goes to `store`, if that is another one then.
   template< class Store >
   bool strikes( TableFault plan, std::uint64_t seed, Store const & store ) {
      if( plan.next ) {
         --plan.next;
         store( plan );
         return true;
      }
      return plan.chance > 0 && draw( seed ) < plan.chance;
   }

 private:
   std::optional< std::uint64_t > begunSeed_;
   std::uint64_t random_ = 0;
};

// Where the tables of a chip are.
struct Memory {
   // In shared memory of that name, where they outlive the process: the table "<name>.<unit>.<attribute>"
   // of Glim/Table.h. Empty: the process's own, and gone with their unit.
   Kiv::String name = {};
   // Begin empty, whatever is there, be it damaged or of another shape.
   bool cold = false;
   // All tables must be there: one that is not is a fault.
   bool whole = false;
};

// The properties of a table, its faults, and what has happened to it in this process.
class SimTable : public Kiv::Entity {
   KIV_ENTITY( HobaSim::SimTable );
   // How many rows there is room for; 0: any number. Lowering it takes none away.
   KIV_ATTRIBUTE( std::uint64_t, capacity, 0 );
   // So many rows share a hash bucket, and find room nowhere else; 0: the rows go anywhere. There are
   // capacity / bucketSize buckets, one at least.
   KIV_ATTRIBUTE( std::uint32_t, bucketSize, 0 );
   // How long it takes until a write has landed.
   KIV_ATTRIBUTE( Kiv::Seconds, latency, 0 );
   // Of the chances of all faults. Setting it begins their sequence anew.
   KIV_ATTRIBUTE( std::uint64_t, seed, 1 );
   // tableBusy, tableFailed, tableParity; tableFull strikes what would be a new row.
   KIV_COLLECTION( TableResult, TableFault, fault );

   KIV_RULED( std::uint64_t, rows, 0 );
   // The agent's changes that are on their way.
   KIV_RULED( std::uint64_t, landing, 0 );
   // The agent's: changes that the chip took, and what it held already.
   KIV_COUNTER( std::uint64_t, writes );
   KIV_COUNTER( std::uint64_t, unchanged );
   KIV_COUNTERS( TableResult, std::uint64_t, refused );
   KIV_COUNTER( std::uint64_t, swept );
   // How often a bucket had no room though the table had; also among `refused`, unless the chip itself
   // wanted it.
   KIV_COUNTER( std::uint64_t, bucketFull );

 public:
   // `tableName` is "<unit>.<attribute>".
   explicit SimTable( Kiv::String const & tableName = {} ) : Entity( tableName ) {}

   // Whether the fault strikes the write at hand.
   bool strikes( TableResult kind );

 private:
   FaultDice dice_;
};

class Unit;

enum class TableKind { told, found };

// What a table does whatever its rows are.
class RowsBase {
 public:
   RowsBase( RowsBase const & ) = delete;
   RowsBase & operator=( RowsBase const & ) = delete;

   Kiv::Ptr< SimTable > const & control() const { return control_; }
   // "<unit>.<attribute>"
   Kiv::String const & name() const { return control_->name(); }
   // Changes of the rows by whomsoever since the table was made, in this process or a former one.
   virtual std::uint64_t changes() const = 0;
   // Whether all that was written has landed.
   bool isSettled() const { return due_.empty(); }
   // How many new rows there is room for, if their buckets have any.
   std::uint64_t room() const;
   // The latency is somebody else's matter: what is written from now on lands at once, unless something is
   // on its way still.
   void landsAtOnceIs( bool landsAtOnce ) { landsAtOnce_ = landsAtOnce; }

   virtual void beginPass() = 0;
   virtual void sweep() = 0;
   // Every row goes, and what has not landed; properties, faults and counters of writes stay.
   virtual void reset() = 0;

 protected:
   using Heard = void( Kiv::Entity & unit, void const * key );
   RowsBase( Unit & unit, TableKind kind, char const * attribute, Heard * heard );
   virtual ~RowsBase();

   // ---- for rows of any type

   virtual void eachHash( std::function< void( std::uint64_t ) > const & use ) const = 0;
   // Lets the first change that waits land.
   virtual void landNext() = 0;

   static std::uint64_t hashOf( std::uint64_t const * words, std::size_t count );
   // In the table's memory, as parity errors name it.
   static std::uint32_t indexOf( std::uint64_t hash ) { return static_cast< std::uint32_t >( hash ); }
   // Whether there is room for a new row, and counts a full bucket.
   bool hasRoom( std::uint64_t hash );
   // Whether there is room for all of these together.
   bool hasRoomForAll( std::vector< std::uint64_t > const & hashes );
   // What the chip says to a write before it looks closer; tableWritten if nothing is against it.
   TableResult judge( bool isNewRow, std::uint64_t hash );
   TableResult counted( TableResult result );
   void accepted( std::uint64_t hash, bool was, bool is );
   void recount();
   void foundWrong( std::uint64_t hash );
   bool landsLater() const {
      return ( control_->latency() > 0 && !landsAtOnce_ ) || !due_.empty();
   }
   // One more change waits to land.
   void waits();
   void waitsNot();
   void tell( void const * key );
   [[noreturn]] void refused( TableResult result, Kiv::String const & key ) const;
   // Where the rows are; nothing for memory of the process's own, before there is a row.
   Glim::WriterOptions options() const;
   Kiv::String glimName() const;
   bool isShared() const;
   void checkThere() const;

   TableKind const kind_;
   bool const isCold_;

 private:
   class Landing;
   std::uint64_t buckets() const;
   // The same; what is in each of them is counted.
   std::uint64_t countedBuckets();
   void land();

   Unit & unit_;
   Heard * const heard_;
   char const * const attribute_;
   Kiv::Ptr< SimTable > const control_;
   std::uint64_t accepted_ = 0; // rows, when all has landed
   // How many of those are in each bucket that has any, of so many; counted when it is asked for.
   Kiv::HashMap< std::uint64_t, std::uint64_t > inBucket_;
   std::uint64_t countedBuckets_ = 0;
   std::deque< Kiv::Seconds > due_;
   bool landsAtOnce_ = false;
   std::unique_ptr< Landing > landing_;
};

// A unit of the chip: its tables register with it.
class Unit : public Kiv::Entity {
   KIV_ENTITY( HobaSim::Unit );

 public:
   // Takes what a table found wrong in its memory "<unit>.<attribute>".
   using ParityError = std::function< void( Kiv::String const & memory, std::uint32_t index ) >;

   // Throws Glim::Error when a table cannot be made, or gone on with.
   explicit Unit( Kiv::String const & unitName = {}, Memory const & memory = {} );

   std::vector< RowsBase * > const & tables() const { return tables_; }
   Memory const & memory() const { return memory_; }
   void parityErrorIs( ParityError parityError ) { parityError_ = std::move( parityError ); }

   // Of all tables.
   bool isSettled() const;
   std::uint64_t writes() const;
   std::uint64_t swept() const;
   void beginPass();
   void sweep();
   void reset();

 protected:
   // A row has changed, by whomsoever: called before those who watch it hear of it.
   virtual void rowChanged( Kiv::AttributeId const & /*attribute*/, void const * /*key*/ ) {}

 private:
   friend class RowsBase;

   bool const isShared_;
   Memory const memory_; // of a name, also where it is not shared
   std::vector< RowsBase * > tables_;
   ParityError parityError_;
};

// A record as the chip has it.
template< class Record >
struct Row {
   KIV_VALUE( Row );
   KIV_FIELD( Record, record );
   // How often the agent wrote this very row: one change with the record, so a row that says the same as
   // before was not touched.
   KIV_FIELD( std::uint64_t, writes, 0 );
};

// The rows of one table.
template< class KeyT, class RecordT >
class Rows final : public RowsBase {
   using Stored = Row< RecordT >;
   static_assert( Glim::TableKey< KeyT >, "trivially copyable, and without unused bytes" );
   static_assert( Glim::TableRecord< Stored >, "trivially copyable, of fields or plain types" );

 public:
   using key_type = KeyT;
   struct Member {
      KeyT key;
      RecordT value;
   };

   Rows( Unit & unit, TableKind kind, char const * attribute, Heard * heard )
         : RowsBase( unit, kind, attribute, heard ) {
      if( isShared() ) {
         open();
         auto const shape = Glim::Shape::parse( Glim::shapeOf< Stored >(), sizeof( Stored ) );
         writer_->forEach( [ & ]( KeyT const & key, Stored const & stored ) {
            if( shape && !shape->isPossible( reinterpret_cast< char const * >( &stored ) ) ) {
               throw Glim::Error( "table \"" + glimName() + "\": its rows are damaged" );
            }
            accepted( hashOf( key ), false, true );
         } );
         control()->rowsIs( writer_->rows() );
      }
   }

   std::optional< RecordT > find( KeyT const & key ) const {
      Stored stored;
      return read( key, stored ) ? std::optional( stored.record ) : std::nullopt;
   }
   RecordT get( KeyT const & key ) const {
      Stored stored;
      read( key, stored );
      return stored.record;
   }
   bool has( KeyT const & key ) const { return writer_ && writer_->has( key ); }
   // What is there when all that is on its way has landed: what the agent's writes are compared with.
   std::optional< RecordT > acceptedOf( KeyT const & key ) const {
      if( !waiting_.empty() ) {
         if( auto const found = waiting_.find( key ); found != waiting_.end() ) {
            return found->second.record;
         }
      }
      return find( key );
   }
   std::uint64_t writesOf( KeyT const & key ) const {
      Stored stored;
      read( key, stored );
      return stored.writes;
   }
   std::size_t size() const { return writer_ ? static_cast< std::size_t >( writer_->rows() ) : 0; }
   bool empty() const { return size() == 0; }

   using Walk = Glim::RowWalk< Rows, Member >;
   Walk begin() const { return Walk( *this, sortedKeys() ); }
   std::default_sentinel_t end() const { return {}; }

   // use( key, record ) for every row, in an order that is another in every run: who acts by it sorts
   // first. `use` must not write to the table.
   template< class Use >
   void each( Use && use ) const {
      if( writer_ ) {
         writer_->forEach(
               [ & ]( KeyT const & key, Stored const & stored ) { use( key, stored.record ); } );
      }
   }

   // use( key, record ) for every row that is there when all that is on its way has landed; as each().
   template< class Use >
   void eachAccepted( Use && use ) const {
      each( [ & ]( KeyT const & key, RecordT const & record ) {
         if( !waiting_.contains( key ) ) {
            use( key, record );
         }
      } );
      for( auto const & [ key, last ] : waiting_ ) {
         if( last.record ) {
            use( key, *last.record );
         }
      }
   }
   // Whether the agent can write new rows with all of these keys, unless a fault strikes.
   bool hasRoomFor( std::vector< KeyT > const & newKeys ) {
      std::vector< std::uint64_t > hashes;
      for( auto const & key : newKeys ) {
         hashes.push_back( hashOf( key ) );
      }
      return hasRoomForAll( hashes );
   }

   // Of the key, as indexOf().
   std::uint32_t indexOfKey( KeyT const & key ) const { return indexOf( hashOf( key ) ); }
   // Whose rows have that index in the parity errors of the table, in their order.
   std::vector< KeyT > keysAt( std::uint32_t index ) const {
      std::vector< KeyT > keys;
      each( [ & ]( KeyT const & key, RecordT const & ) {
         if( indexOf( hashOf( key ) ) == index ) {
            keys.push_back( key );
         }
      } );
      std::sort( keys.begin(), keys.end(), Glim::KeyBefore() );
      return keys;
   }

   bool is( KeyT key, RecordT const & record ) {
      Stored stored;
      bool const was = read( key, stored );
      if( was && same( stored.record, record ) ) {
         return true;
      }
      bool const awaited = waiting_.contains( key );
      if( !was && !awaited && !hasRoom( hashOf( key ) ) ) {
         return false;
      }
      put( key, { record, stored.writes } );
      if( !awaited ) {
         accepted( hashOf( key ), was, true );
      }
      tell( &key );
      return true;
   }
   void del( KeyT key ) {
      if( take( key ) ) {
         if( !waiting_.contains( key ) ) {
            accepted( hashOf( key ), true, false );
         }
         tell( &key );
      }
   }
   void delAll() {
      Kiv::Dispatch::Frame frame;
      for( auto const & key : sortedKeys() ) {
         del( key );
      }
   }

   void claim( KeyT const & key ) { unclaimed_.erase( key ); }
   TableResult program( KeyT key, RecordT const & record ) {
      claim( key );
      auto const held = acceptedOf( key );
      if( held && same( *held, record ) ) {
         return counted( tableUnchanged );
      }
      auto result = judge( !held, hashOf( key ) );
      if( !isRefusal( result ) ) {
         bool const wrong = control()->strikes( tableParity );
         change( key, record, held.has_value(), wrong );
         result = wrong ? tableParity : tableWritten;
      }
      return counted( result );
   }
   TableResult clear( KeyT key ) {
      claim( key );
      if( !acceptedOf( key ) ) {
         return counted( tableUnchanged );
      }
      auto const result = judge( false, hashOf( key ) );
      if( !isRefusal( result ) ) {
         change( key, std::nullopt, true, false );
      }
      return counted( result );
   }
   void mustProgram( KeyT const & key, RecordT const & record ) {
      if( auto const result = program( key, record ); isRefusal( result ) ) {
         refused( result, Kiv::toText( key ) );
      }
   }
   void mustClear( KeyT const & key ) {
      if( auto const result = clear( key ); isRefusal( result ) ) {
         refused( result, Kiv::toText( key ) );
      }
   }

   std::uint64_t changes() const override { return writer_ ? writer_->changes() : 0; }
   void beginPass() override {
      if( waiting_.empty() && begunAsOf_ == changes() && begunWith_ == unclaimed_.size() ) {
         return; // nobody has asked for anything since
      }
      unclaimed_.clear();
      if( writer_ ) {
         writer_->forEach( [ this ]( KeyT const & key, Stored const & stored ) {
            if( ( kind_ == TableKind::told || !isChips( stored ) ) && !waiting_.contains( key ) ) {
               unclaimed_.insert( key );
            }
         } );
      }
      for( auto const & [ key, last ] : waiting_ ) {
         if( last.record ) {
            unclaimed_.insert( key );
         }
      }
      begunAsOf_ = changes();
      begunWith_ = unclaimed_.size();
   }
   // No fault strikes: it is said when all has been written that was to be.
   void sweep() override {
      Kiv::Dispatch::Frame frame;
      auto keys = Kiv::keysOf( std::exchange( unclaimed_, {} ) );
      std::sort( keys.begin(), keys.end(), Glim::KeyBefore() );
      for( auto const & key : keys ) {
         // The chip may have made it anew meanwhile.
         Stored stored;
         bool const isNobodys = kind_ == TableKind::found && !waiting_.contains( key ) &&
                                ( !read( key, stored ) || isChips( stored ) );
         if( !isNobodys && acceptedOf( key ) ) {
            change( key, std::nullopt, true, false );
            control()->sweptInc( 1 );
         }
      }
      if( writer_ ) {
         writer_->commit(); // memory that a large table no longer needs goes back
      }
   }
   void reset() override {
      while( !queue_.empty() ) {
         settled( queue_.front().key );
         queue_.pop_front();
         waitsNot();
      }
      unclaimed_.clear();
      recount();
      delAll();
      if( writer_ ) {
         writer_->commit();
      }
   }

 private:
   struct Change {
      KeyT key;
      std::optional< RecordT > record; // none: the row goes
      bool wrong = false;              // when it has landed
   };
   // What was accepted last for a key whose changes have not all landed.
   struct Last {
      std::optional< RecordT > record;
      std::size_t changes = 0;
   };

   // Of what the chip finds out: software did not write it, or the record says that it is the chip's all the same.
   static bool isChips( Stored const & stored ) {
      if constexpr( requires { stored.record.isChips(); } ) {
         return !stored.writes || stored.record.isChips();
      } else {
         return !stored.writes;
      }
   }
   static bool same( RecordT const & a, RecordT const & b ) {
      return Glim::toWords( a ) == Glim::toWords( b );
   }
   static std::uint64_t hashOf( KeyT const & key ) {
      auto const words = Glim::toWords( key );
      return RowsBase::hashOf( words.data(), words.size() );
   }

   bool read( KeyT const & key, Stored & stored ) const {
      return writer_ && writer_->get( key, stored );
   }
   std::vector< KeyT > sortedKeys() const {
      std::vector< KeyT > keys;
      keys.reserve( size() );
      each( [ & ]( KeyT const & key, RecordT const & ) { keys.push_back( key ); } );
      std::sort( keys.begin(), keys.end(), Glim::KeyBefore() );
      return keys;
   }
   void eachHash( std::function< void( std::uint64_t ) > const & use ) const override {
      eachAccepted( [ & ]( KeyT const & key, RecordT const & ) { use( hashOf( key ) ); } );
   }

   void open() {
      checkThere();
      static_cast< void >( isEnrolled_ );
      writer_ = std::make_unique< Glim::TableWriter< KeyT, Stored > >( glimName(), options() );
      if( isCold_ ) {
         writer_->delAll();
         writer_->commit();
      }
   }
   void put( KeyT const & key, Stored const & stored ) {
      if( !writer_ ) {
         open();
      }
      writer_->is( key, stored );
      control()->rowsIs( writer_->rows() );
   }
   bool take( KeyT const & key ) {
      bool const was = writer_ && writer_->del( key );
      if( was ) {
         control()->rowsIs( writer_->rows() );
      }
      return was;
   }

   // A change by the agent, now or later.
   void change( KeyT const & key, std::optional< RecordT > const & record, bool was, bool wrong ) {
      Kiv::Dispatch::Frame frame;
      bool const later = landsLater();
      if( later ) {
         queue_.push_back( { key, record, wrong } );
         auto & last = waiting_[ key ];
         last.record = record;
         ++last.changes;
         waits();
      } else {
         store( key, record );
      }
      accepted( hashOf( key ), was, record.has_value() );
      if( !later ) {
         landed( key, wrong );
      }
   }
   void store( KeyT const & key, std::optional< RecordT > const & record ) {
      if( record ) {
         Stored stored;
         read( key, stored );
         put( key, { *record, stored.writes + 1 } );
      } else {
         take( key );
      }
   }
   void landed( KeyT key, bool wrong ) {
      tell( &key );
      if( wrong ) {
         foundWrong( hashOf( key ) );
      }
   }
   void landNext() override {
      auto const next = queue_.front();
      queue_.pop_front();
      settled( next.key );
      store( next.key, next.record );
      landed( next.key, next.wrong );
   }
   // One change less waits for the key.
   void settled( KeyT const & key ) {
      auto const found = waiting_.find( key );
      if( --found->second.changes == 0 ) {
         waiting_.erase( found );
      }
   }

   // So that tools which know tables by name only can show it.
   static inline bool const isEnrolled_ = Glim::enrolRecordType< KeyT, Stored >();

   std::unique_ptr< Glim::TableWriter< KeyT, Stored > > writer_;
   Kiv::HashSet< KeyT > unclaimed_;
   // When the pass began.
   std::uint64_t begunAsOf_ = 0;
   std::size_t begunWith_ = 0;
   std::deque< Change > queue_;
   std::map< KeyT, Last, Glim::KeyBefore > waiting_;
};

} // namespace HobaSim

#define SIM_TABLE( Key, Record, attr ) SIM_ROWS_( Key, Record, attr, told )
#define SIM_STATE( Key, Record, attr ) SIM_ROWS_( Key, Record, attr, found )

#define SIM_ROWS_( Key, Record, attr, kindOf )                                                     \
 private:                                                                                          \
   static void attr##Heard_( ::Kiv::Entity & kivEntity, void const * kivKey ) {                    \
      auto & kivSelf = static_cast< KivSelf & >( kivEntity );                                      \
      kivSelf.rowChanged( attr##Attr, kivKey );                                                    \
      kivSelf.kivChanged( attr##Attr, kivKey );                                                    \
   }                                                                                               \
   ::HobaSim::Rows< Key, Record > attr##_{ *this, ::HobaSim::TableKind::kindOf, #attr,             \
                                           &KivSelf::attr##Heard_ };                               \
                                                                                                   \
 public:                                                                                           \
   KIV_DESCRIBE( map, Key, Record, attr )                                                          \
   ::HobaSim::Rows< Key, Record > const & attr() const { return attr##_; }                         \
   Record attr( Key const & key ) const { return attr##_.get( key ); }                             \
   bool attr##Has( Key const & key ) const { return attr##_.has( key ); }                          \
   bool attr##HasRoomFor( ::std::vector< Key > const & keys ) { return attr##_.hasRoomFor( keys ); }\
   ::std::uint64_t attr##Writes( Key const & key ) const { return attr##_.writesOf( key ); }       \
   bool attr##Is( Key const & key, Record const & record ) { return attr##_.is( key, record ); }   \
   void attr##Del( Key const & key ) { attr##_.del( key ); }                                       \
   void attr##DelAll() { attr##_.delAll(); }                                                       \
   ::HobaSim::TableResult attr##Program( Key const & key, Record const & record ) {                \
      return attr##_.program( key, record );                                                       \
   }                                                                                               \
   void attr##Claim( Key const & key ) { attr##_.claim( key ); }                                   \
   ::HobaSim::TableResult attr##Clear( Key const & key ) { return attr##_.clear( key ); }          \
   void attr##MustProgram( Key const & key, Record const & record ) {                              \
      attr##_.mustProgram( key, record );                                                          \
   }                                                                                               \
   void attr##MustClear( Key const & key ) { attr##_.mustClear( key ); }                           \
   static void kivErase( KIV_POSITION( attr ), KivSelf & self, Key const & key ) {                 \
      self.attr##Del( key );                                                                       \
   }                                                                                               \
   static void kivPut( KIV_POSITION( attr ), KivSelf & self, Key const & key,                      \
                       Record const & record ) {                                                   \
      if( !self.attr##Is( key, record ) ) {                                                        \
         ::Kiv::parseFailed( ::Kiv::toText( key ), "a row for which the table has room" );         \
      }                                                                                            \
   }                                                                                               \
   KIV_NEXT( attr );                                                                               \
   SIM_CONTROL_( attr, attr##Table )

#define SIM_CONTROL_( attr, table )                                                                \
   static constexpr ::Kiv::Attribute< KivSelf, void, ::HobaSim::SimTable,                          \
                                      ::Kiv::AttributeKind::child, KIV_COUNT_NOW >                 \
         table##Attr{ #table };                                                                    \
   static constexpr auto const & kivAttribute( KIV_POSITION( table ) ) { return table##Attr; }     \
   static auto const & kivGet( KIV_POSITION( table ), KivSelf const & self ) {                     \
      return self.attr##_.control();                                                               \
   }                                                                                               \
   static auto kivChild( KIV_POSITION( table ), KivSelf & self ) { return self.table(); }          \
   ::Kiv::Ptr< ::HobaSim::SimTable > const & table() const { return attr##_.control(); }           \
   KIV_NEXT( table )
