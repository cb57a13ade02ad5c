// SPDX-License-Identifier: Apache-2.0
#pragma once

// Shared tables as attributes of entities:
//
//    class FecToHwFecIdTable : public Kiv::Entity {
//       KIV_ENTITY( Hoba::FecToHwFecIdTable );
//       GLIM_COLLECTION( FecToHwFecId, FecId, key, hwFecId );
//       ...
//
// declares a collection of records that carry their key in the member `key`:
//
//    hwFecId( key )          a copy of the record; a default one if it is not there
//    hwFecIdHas( key )
//    hwFecIdForEach( use )   use( key, record ) for every row, in the order of the keys. `use` may
//                            do anything: write, delete, detach. The keys are copied first.
//    hwFecIdIs( record )     inserts or replaces
//    hwFecIdDel( key )
//    hwFecIdDelAll()
//    hwFecIdNotify( key )    tells of a key whose record did not change
//    hwFecIdControl()        the control object: CollectionControl below
//    hwFecIdMountStatus(), hwFecIdQuiesced(), hwFecIdResyncs()
//                            attributes of their own, read only; reactors hear of their changes
//    hwFecIdNotifyMountStatus(), hwFecIdNotifyQuiesced( bool ), hwFecIdNotifyResynchronise()
//                            virtual: called when these changed, they tell the reactors
//
// An entity has the writer of a table, or a reader, or nothing yet: what is not attached is empty.
// Writing takes a writer: otherwise it throws Error, and nothing has changed.
//
// Reactors name hwFecIdAttr in their handlers, as with any keyed attribute. Their first pass walks
// the rows that are there. Afterwards handlers run with each changed key, in order:
//  - at the writer inside of the write, if it changed anything, and for all rows of a table that
//    was there already when the writer attached;
//  - at a reader from the event loop (Loop.h), for all rows when it attached, then for what
//    changed.
// All rows: in the order of their keys. Where rows stand in a table is another in every run, and
// nothing that is done here follows from it.
//
// A reader that fell too far behind is told to resynchronise. Handlers then run for every row that
// is there, and for every key that this program has seen there before and that is gone, a part in
// each turn of the event loop, and for what changes meanwhile. The turns before those only gather the
// keys. So a machine whose handler does
// nothing but read the state of its key is right again by itself. The same happens when the reader
// attaches again, to the next table of that name or to another. While there is none handlers hear
// the mount status and nothing else: whether rows of a peer that restarts are to be forgotten is
// for them to decide.
//
// What that costs, at readers only: the collection remembers each key that was read (found there,
// or visited by a walk) until it has told that the key changed. That is a hash set of keys, and one
// look into it for each read that finds its row. Who reads millions of rows and needs no
// notification uses a TableReader.
//
// Tables are written and read in the thread of the event loop. Readers of a private table hear of
// what a collection writes there; what somebody else writes waits for the loop's next turn.

#include "Glim/KeySet.h"
#include "Glim/Loop.h"
#include "Glim/RowWalk.h"
#include "Glim/SortedKeys.h"
#include "Glim/Table.h"
#include "Kiv/Entity.h"

#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <vector>

namespace Glim {

KIV_ENUM( MountStatus, std::uint8_t, notAttached, awaitingTable, tableUnreadable, readingTable,
          writingTable );

enum class CollectionEvent { changed, mountStatus, quiesced, resynchronise };

// What a collection does whatever its rows are.
class CollectionControl {
 public:
   CollectionControl( CollectionControl const & ) = delete;
   CollectionControl & operator=( CollectionControl const & ) = delete;

   // Writes that table from now on. Throws Error as TableWriter, and if it is attached already.
   void attachWriter( std::string const & table, WriterOptions const & options = {} );
   // Reads that table from now on, or from when it appears. Throws Error if the name is none, and
   // if it is attached already; a table that cannot be read is a mount status, and is tried again.
   void attachReader( std::string const & table, ReaderOptions const & options = {} );
   // A writer closes its table. Nothing if not attached.
   void detach();

   MountStatus const & mountStatus() const { return status_; }
   // Rows can be read.
   bool mounted() const { return status_ == readingTable || status_ == writingTable; }
   // Empty while not attached.
   std::string const & table() const { return table_; }
   // Why the table is unreadable; empty if it is not.
   std::string const & fault() const { return fault_; }

   // Of a writer. The event loop commits once a turn, so that commit() is for who cannot wait. The
   // hook runs first in every commit that has something to commit; it may be set at any time.
   void commit();
   void commitHookIs( std::function< void() > hook );
   // Asks the readers to rest, or to go on: they are told. Throws Error without a writer.
   void quiescedIs( bool quiesced );

   bool const & quiesced() const { return quiesced_; }
   std::uint64_t rows() const;
   // Of a reader: changes that it has still to tell, and how often it was told to resynchronise
   // because it fell behind.
   std::uint64_t behind() const;
   std::uint64_t const & resyncs() const { return resyncs_; }

 protected:
   using Heard = void( Kiv::Entity & entity, CollectionEvent event, void const * key );
   CollectionControl( Kiv::Entity & entity, Heard * heard, char const * name )
         : entity_( entity ), heard_( heard ), name_( name ) {}
   virtual ~CollectionControl();

   virtual std::shared_ptr< TableWriterCore > makeWriter( std::string const & table,
                                                          WriterOptions const & options ) = 0;
   virtual std::shared_ptr< TableReaderCore > makeReader( std::string const & table,
                                                          ReaderOptions const & options ) = 0;
   // A reader takes up to so many changes, to be told.
   virtual Poll takeChanges( std::uint64_t most ) = 0;
   // All rows are to be told, and what was seen and is gone, instead of what has not been told.
   virtual void beginAll() = 0;
   // Takes up to so many keys of those.
   virtual void takeSome( std::uint64_t most ) = 0;
   // What of those has not been taken, or not told that it is gone: 0 if it is all over.
   virtual std::uint64_t left() const = 0;
   // Remembers all rows as seen.
   virtual void seeAll() = 0;
   // How many keys have been taken and not been told; tells the next.
   virtual std::size_t untold() const = 0;
   virtual void tellNext() = 0;
   virtual void forgetUntold() = 0;

   void notify( CollectionEvent event, void const * key = nullptr ) {
      heard_( entity_, event, key );
   }
   // Throws Error without a writer.
   void checkWriter() const {
      if( !writer_ ) [[unlikely]] {
         notWriter();
      }
   }
   // To be committed in this turn of the event loop.
   void wrote() {
      if( !dirty_ ) {
         dirty_ = true;
         Loop::instance().wake();
      }
   }
   // A reader's table turned out to be damaged in the middle of a read, which finds nothing then.
   void damaged( Error const & error ) const;

   // What runs while they are looked at may detach: who calls out holds a copy.
   std::shared_ptr< TableWriterCore > writer_;
   std::shared_ptr< TableReaderCore > reader_;

 private:
   friend class Loop;
   // For the event loop: a reader tells up to so many keys.
   void tell( std::uint64_t most );
   bool hasMore() const;
   bool waits() const { return status_ == awaitingTable || status_ == tableUnreadable; }

   [[noreturn]] void notWriter() const;
   void checkDetached() const;
   bool tryMount();
   void unmount( MountStatus next );
   bool look( std::uint64_t most );

   Kiv::Entity & entity_;
   Heard * const heard_;
   char const * const name_;
   std::string table_;
   mutable std::string fault_;
   mutable bool damaged_ = false;
   std::function< void() > hook_;
   MountStatus status_ = notAttached;
   bool quiesced_ = false;
   bool dirty_ = false;
   bool committing_ = false;
   bool private_ = false;
   bool fresh_ = false; // the reader has not told anything since it found its table
   std::uint64_t resyncs_ = 0;
   std::uint64_t bell_ = 0; // that the event loop listens to; 0 if none
};

// The storage behind the accessors: const, it looks like Kiv's keyed collections.
template< TableKey KeyT, TableRecord RecordT >
class Collection final : public CollectionControl {
   using Writer = TableWriter< KeyT, RecordT >;
   using Reader = TableReader< KeyT, RecordT >;
   // Looking at a slot costs that much less than telling a key.
   static constexpr std::uint64_t slotsPerKey = 64;

 public:
   using key_type = KeyT;
   struct Member {
      KeyT key;
      RecordT value;
   };

   Collection( Kiv::Entity & entity, Heard * heard, char const * name )
         : CollectionControl( entity, heard, name ) {}

   std::optional< RecordT > find( KeyT const & key ) const {
      std::optional< RecordT > record( std::in_place );
      if( !read( [ & ]( auto & table ) { return table.get( key, *record ); } ) ) {
         return std::nullopt;
      }
      saw( key );
      return record;
   }
   RecordT get( KeyT const & key ) const {
      auto record = find( key );
      return record ? *record : RecordT();
   }
   bool has( KeyT const & key ) const {
      bool const there = read( [ & ]( auto & table ) { return table.has( key ); } );
      if( there ) {
         saw( key );
      }
      return there;
   }
   std::size_t size() const { return static_cast< std::size_t >( rows() ); }

   void is( KeyT key, RecordT const & record ) {
      checkWriter();
      if( writer().is( key, record ) ) {
         wrote();
         notify( CollectionEvent::changed, &key );
      }
   }
   void del( KeyT key ) {
      checkWriter();
      if( writer().del( key ) ) {
         wrote();
         notify( CollectionEvent::changed, &key );
      }
   }
   void touch( KeyT key ) {
      checkWriter();
      writer().notify( key );
      wrote();
      notify( CollectionEvent::changed, &key );
   }
   // What handlers insert meanwhile stays; when one of them detaches, so does the rest.
   void delAll() {
      checkWriter();
      Kiv::Dispatch::Frame frame;
      auto const mine = writer_;
      for( auto const & key : allKeys() ) {
         if( writer_ != mine ) {
            return;
         }
         del( key );
      }
   }

   using Walk = RowWalk< Collection, Member >;
   Walk begin() const { return Walk( *this, allKeys() ); }
   std::default_sentinel_t end() const { return {}; }

   template< class Use >
   void forEach( Use && use ) const {
      Kiv::Dispatch::Frame frame;
      for( auto const & [ key, record ] : *this ) {
         use( key, record );
      }
   }

 private:
   Writer & writer() const { return static_cast< Writer & >( *writer_ ); }
   Reader & reader() const { return static_cast< Reader & >( *reader_ ); }

   template< class Read >
   bool read( Read && from ) const {
      if( writer_ ) {
         return from( writer() );
      }
      try {
         return reader_ && from( reader() );
      } catch( Error const & error ) {
         damaged( error );
         return false;
      }
   }
   void saw( KeyT const & key ) const {
      if( reader_ ) {
         seen_.insert( key );
      }
   }

   std::vector< KeyT > allKeys() const {
      std::vector< KeyT > keys;
      keys.reserve( size() );
      read( [ & ]( auto & table ) {
         table.forEach( [ & ]( KeyT const & key, RecordT const & ) { keys.push_back( key ); } );
         return true;
      } );
      std::sort( keys.begin(), keys.end(), KeyBefore() );
      keys.erase( std::unique( keys.begin(), keys.end() ), keys.end() );
      return keys;
   }

   std::shared_ptr< TableWriterCore > makeWriter( std::string const & table,
                                                  WriterOptions const & options ) override {
      return std::make_shared< Writer >( table, options );
   }
   std::shared_ptr< TableReaderCore > makeReader( std::string const & table,
                                                  ReaderOptions const & options ) override {
      return std::make_shared< Reader >( table, options );
   }
   Poll takeChanges( std::uint64_t most ) override {
      return reader().poll( [ & ]( KeyT const & key ) { untold_.push_back( key ); }, most );
   }
   // What is told after the rows that are there has not been told with them, so it is gone.
   void beginAll() override {
      // Who falls behind again before he has gathered all gathers more in a turn, and in the end all:
      // so it comes to an end. The keys go on behind the last that was told.
      auto const pace = reader_ && gathering() ? 4 * pace_ : 1;
      auto gathered = std::move( gathered_ );
      forgetUntold();
      pace_ = pace;
      before_.merge( seen_ );
      if( reader_ ) {
         gathered.restart();
         gathered_ = std::move( gathered );
         walk_ = reader().beginning();
      } else {
         untold_ = allKeys();
      }
   }
   void takeSome( std::uint64_t most ) override {
      if( walk_.left ) {
         bool const atOnce = walk_.next == 0;
         reader().forSome( walk_, slotsPerKey * pace_ * most,
                           [ & ]( KeyT const & key ) { gathered_.add( key ); } );
         gatheredAt_ = walk_.left || atOnce ? 0 : reader().told() + reader().behind();
      } else if( gathered_.size() == 0 ) {
         meanwhile_ = {};
         before_.some( most, [ & ]( KeyT const & key ) { untold_.push_back( key ); } );
      }
      for( ; most != 0 && gathered_.size() != 0 && !gathering(); --most ) {
         auto const key = gathered_.take();
         if( !meanwhile_.has( key ) ) {
            untold_.push_back( key );
         }
      }
   }
   // Whether a row that changes now is among the gathered ones depends on where it stands. So all that
   // changes until they are complete is told first, and not once more with them.
   bool gathering() const { return walk_.left != 0 || reader().told() < gatheredAt_; }
   std::uint64_t left() const override {
      return mounted() ? walk_.left + gathered_.size() + before_.size() : 0;
   }
   void seeAll() override {
      for( auto const & key : allKeys() ) {
         seen_.insert( key );
      }
   }
   std::size_t untold() const override { return untold_.size() - nextUntold_; }
   void tellNext() override {
      KeyT const key = untold_[ nextUntold_++ ];
      if( nextUntold_ == untold_.size() ) {
         clearUntold();
      }
      seen_.erase( key );
      before_.erase( key );
      if( reader_ && gathering() ) {
         meanwhile_.insert( key );
      }
      notify( CollectionEvent::changed, &key );
   }
   void forgetUntold() override {
      walk_ = {};
      gathered_.clear();
      gatheredAt_ = 0;
      pace_ = 1;
      meanwhile_ = {};
      clearUntold();
   }
   // The memory of a long list goes, that of a turn's stays.
   void clearUntold() {
      untold_.clear();
      nextUntold_ = 0;
      if( untold_.capacity() > 4 * Loop::keysPerTurn ) {
         untold_.shrink_to_fit();
      }
   }

   // Keys that were found since they were told last; of those, the ones that were found before the
   // present resynchronisation, as long as it has not told them.
   mutable KeySet< KeyT > seen_;
   KeySet< KeyT > before_;
   // Of that resynchronisation: the walk that gathers the keys of all rows, what it has gathered, the
   // number of the change up to which it did, and the keys that were told of changes meanwhile.
   typename Reader::Place walk_;
   SortedKeys< KeyT > gathered_;
   std::uint64_t gatheredAt_ = 0;
   std::uint64_t pace_ = 1; // of the walk
   KeySet< KeyT > meanwhile_;
   std::vector< KeyT > untold_;
   std::size_t nextUntold_ = 0;
};

} // namespace Glim

// An attribute that the collection keeps: it is read here, and written nowhere else.
#define GLIM_STATUS_( T, attr, from )                                                              \
   static constexpr ::Kiv::Attribute< KivSelf, void, T, ::Kiv::AttributeKind::scalar,              \
                                      KIV_COUNT_NOW >                                              \
         attr##Attr{ #attr };                                                                      \
   static constexpr auto const & kivAttribute( KIV_POSITION( attr ) ) { return attr##Attr; }       \
   static auto const & kivGet( KIV_POSITION( attr ), KivSelf const & self ) { return self.from; }  \
   T attr() const { return from; }                                                                 \
   KIV_NEXT( attr );

// The records' type, the type of their key, the member that holds it, and the collection's name.
#define GLIM_COLLECTION( Record, Key, keyMember, attr )                                            \
 private:                                                                                          \
   static void attr##Heard_( ::Kiv::Entity & kivEntity, ::Glim::CollectionEvent kivEvent,          \
                             void const * kivKey ) {                                               \
      auto & kivSelf = static_cast< KivSelf & >( kivEntity );                                      \
      switch( kivEvent ) {                                                                         \
      case ::Glim::CollectionEvent::changed:                                                       \
         return kivSelf.kivChanged( attr##Attr, kivKey );                                          \
      case ::Glim::CollectionEvent::mountStatus:                                                   \
         return kivSelf.attr##NotifyMountStatus();                                                 \
      case ::Glim::CollectionEvent::quiesced:                                                      \
         return kivSelf.attr##NotifyQuiesced( kivSelf.attr##_.quiesced() );                        \
      case ::Glim::CollectionEvent::resynchronise:                                                 \
         return kivSelf.attr##NotifyResynchronise();                                               \
      }                                                                                            \
   }                                                                                               \
   ::Glim::Collection< Key, Record > attr##_{ *this, &KivSelf::attr##Heard_, #attr };              \
                                                                                                   \
 public:                                                                                           \
   KIV_DESCRIBE( table, Key, Record, attr )                                                        \
   KIV_NEXT( attr );                                                                               \
   GLIM_STATUS_( ::Glim::MountStatus, attr##MountStatus, attr##_.mountStatus() )                   \
   GLIM_STATUS_( bool, attr##Quiesced, attr##_.quiesced() )                                        \
   GLIM_STATUS_( ::std::uint64_t, attr##Resyncs, attr##_.resyncs() )                               \
   Record attr( Key const & key ) const { return attr##_.get( key ); }                             \
   bool attr##Has( Key const & key ) const { return attr##_.has( key ); }                          \
   template< class KivUse >                                                                        \
   void attr##ForEach( KivUse && use ) const {                                                     \
      attr##_.forEach( use );                                                                      \
   }                                                                                               \
   void attr##Is( Record const & record ) { attr##_.is( record.keyMember, record ); }              \
   void attr##Del( Key const & key ) { attr##_.del( key ); }                                       \
   void attr##DelAll() { attr##_.delAll(); }                                                       \
   void attr##Notify( Key const & key ) { attr##_.touch( key ); }                                  \
   ::Glim::CollectionControl & attr##Control() { return attr##_; }                                 \
   ::Glim::CollectionControl const & attr##Control() const { return attr##_; }                     \
   virtual void attr##NotifyMountStatus() { this->kivChanged( attr##MountStatusAttr ); }           \
   virtual void attr##NotifyQuiesced( bool ) { this->kivChanged( attr##QuiescedAttr ); }           \
   virtual void attr##NotifyResynchronise() { this->kivChanged( attr##ResyncsAttr ); }             \
   static_assert( true )
