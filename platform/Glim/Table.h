// SPDX-License-Identifier: Apache-2.0
#pragma once

// Tables that processes of one switch share: keyed records, written by one process and read by any
// number of others, without locks.
//
//    Glim::TableWriter< FecId, FecToHwFecId > writer( "hwFecId", { .lifetime = Glim::Lifetime::stays } );
//    writer.is( fecId, record );      // readers can read it at once
//    writer.commit();                 // readers that sleep wake up
//
//    Glim::TableReader< FecId, FecToHwFecId > reader( "hwFecId" );
//    if( reader.attach() ) { reader.get( fecId, record ); }
//    reader.poll( [ & ]( FecId const & key ) { ... } );   // what changed, in order
//
// One writer: a second one is refused. When a writer dies, in the middle of whatever, its table stays
// as it is, readers go on reading, and the next writer completes what had been begun. What is()
// returned from has happened; what it was killed in has happened wholly or not at all.
//
// Readers are told which keys changed, each change in order, deletions too; what the key has by then
// is for them to read. A reader that falls more than the table's number of changes behind is told to
// resynchronise: it reads everything again, and nothing is skipped silently.
//
// Writers and readers are for one thread each; any number of them in any number of processes.

#include "Glim/TableReaderCore.h"
#include "Glim/TableWriterCore.h"
#include "Glim/Words.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace Glim {

// Calls use( i ) for each of n words; without a loop where they are few, which they mostly are.
template< std::size_t n, class Use >
void
eachWord( Use const & use ) {
   if constexpr( n <= 16 ) {
      [ & ]< std::size_t... i >( std::index_sequence< i... > ) {
         ( use( i ), ... );
      }( std::make_index_sequence< n >{} );
   } else {
      for( std::size_t i = 0; i != n; ++i ) {
         use( i );
      }
   }
}

// The other side may be at them: never more than a word at a time, and the order is the caller's.
template< std::size_t n >
[[gnu::always_inline]] inline void
loadWords( std::array< std::uint64_t, n > & words, Layout::Word const * from ) {
   eachWord< n >( [ & ]( std::size_t i ) {
      words[ i ] = from[ i ].load( std::memory_order_relaxed );
   } );
}
template< std::size_t n >
void
storeWords( Layout::Word * to, std::array< std::uint64_t, n > const & words ) {
   eachWord< n >( [ & ]( std::size_t i ) {
      to[ i ].store( words[ i ], std::memory_order_relaxed );
   } );
}
template< std::size_t n >
[[gnu::always_inline]] inline bool
equalWords( Layout::Word const * there, std::array< std::uint64_t, n > const & words ) {
   std::uint64_t different = 0;
   eachWord< n >( [ & ]( std::size_t i ) {
      different |= there[ i ].load( std::memory_order_relaxed ) ^ words[ i ];
   } );
   return different == 0;
}

template< class Key, class Record >
struct TableShape {
   static constexpr std::size_t keyWords = Layout::wordsOf( sizeof( Key ) );
   static constexpr std::size_t recordWords = Layout::wordsOf( sizeof( Record ) );
   static constexpr std::size_t slotBytes = Layout::slotBytesOf( sizeof( Key ), sizeof( Record ) );

   static Layout::Word * keyOf( Layout::Word * slot ) { return slot + 1; }
   static Layout::Word * recordOf( Layout::Word * slot ) { return slot + 1 + keyWords; }
   static std::uint64_t hashOf( Layout::Seed const & seed, WordsOf< Key > const & key ) {
      return Layout::hashOf( seed, key.data(), keyWords );
   }
};

template< TableKey Key, TableRecord Record >
class TableWriter : public TableWriterCore {
   using Shape = TableShape< Key, Record >;

 public:
   // Makes the table, or goes on with the one that is there. Throws Error as TableWriterCore.
   explicit TableWriter( std::string const & table, WriterOptions const & options = {} )
         : TableWriterCore( table, schemaOf< Key, Record >(), options ) {}

   // Inserts or replaces; returns whether that changed anything. What changes nothing tells nobody.
   // Throws Error when there is no memory for one more row: the table is as it was then.
   bool is( Key const & key, Record const & record ) {
      auto const keyWords = toWords( key );
      auto const recordWords = toWords( record );
      auto found = find( keyWords );
      if( found.there ) {
         if( equalWords( Shape::recordOf( found.slot ), recordWords ) ) {
            return false;
         }
      } else if( full() && makeRoom() ) {
         found = find( keyWords );
      }
      put( found, keyWords, recordWords );
      return true;
   }

   // Removes; returns whether it was there.
   bool del( Key const & key ) {
      auto const keyWords = toWords( key );
      auto const found = find( keyWords );
      if( found.there ) {
         journalIs( found, Layout::operationDel, keyWords, {} );
         auto const word = found.slot->load( std::memory_order_relaxed );
         found.slot->store( word | Layout::writing, std::memory_order_release );
         std::atomic_thread_fence( std::memory_order_release );
         found.slot->store( ( word & ~( Layout::live | Layout::writing ) ) + Layout::oneVersion,
                            std::memory_order_release );
         rowsIs( rows() - 1 );
         lowerReach( keyWords, found.index );
         announce( keyWords );
      }
      return found.there;
   }

   // In the order of the keys.
   void delAll() {
      std::vector< Key > keys;
      keys.reserve( rows() );
      forEach( [ & ]( Key const & key, Record const & ) { keys.push_back( key ); } );
      std::sort( keys.begin(), keys.end(), KeyBefore() );
      for( auto const & key : keys ) {
         del( key );
      }
   }

   // Tells readers that something about the key changed, though the record did not.
   void notify( Key const & key ) { announce( toWords( key ) ); }

   // Whether it is there; `record` is left alone otherwise.
   bool get( Key const & key, Record & record ) const {
      auto const found = const_cast< TableWriter * >( this )->find( toWords( key ) );
      if( found.there ) {
         WordsOf< Record > words;
         loadWords( words, Shape::recordOf( found.slot ) );
         fromWords( record, words );
      }
      return found.there;
   }
   bool has( Key const & key ) const {
      return const_cast< TableWriter * >( this )->find( toWords( key ) ).there;
   }

   // Every row, in an order that is another in every run: who acts by it sorts first. `use` may
   // write and delete rows that are there; it must not insert others, nor commit, for which the rows
   // may have to move.
   template< class Use >
   void forEach( Use && use ) const {
      for( std::uint64_t i = 0; i != slots(); ++i ) {
         auto * const slot = slotAt( i, Shape::slotBytes );
         if( slot->load( std::memory_order_relaxed ) & Layout::live ) {
            WordsOf< Key > keyWords;
            WordsOf< Record > recordWords;
            loadWords( keyWords, Shape::keyOf( slot ) );
            loadWords( recordWords, Shape::recordOf( slot ) );
            Key key;
            Record record;
            fromWords( key, keyWords );
            fromWords( record, recordWords );
            use( key, record );
         }
      }
   }

 private:
   struct Found {
      Layout::Word * slot = nullptr;
      std::uint64_t index = 0;
      bool there = false;
   };

   // The slot of the key, or the one that it would get: some are free. Mostly it is at home.
   Found find( WordsOf< Key > const & key ) {
      auto const home = Shape::hashOf( seed(), key ) >> shift();
      auto * const slot = slotAt( home, Shape::slotBytes );
      auto const word = slot->load( std::memory_order_relaxed );
      if( word & Layout::live && equalWords( Shape::keyOf( slot ), key ) ) {
         return { slot, home, true };
      }
      return findBehind( home, word, key );
   }

   [[gnu::noinline]] Found findBehind( std::uint64_t home, std::uint64_t homeWord,
                                       WordsOf< Key > const & key ) {
      Found place;
      if( !( homeWord & Layout::live ) ) {
         place = { slotAt( home, Shape::slotBytes ), home, false };
      }
      for( std::uint64_t seen = 1; seen < Layout::searchOf( homeWord, slots() ) || !place.slot;
           ++seen ) {
         auto const i = ( home + seen ) & ( slots() - 1 );
         auto * const slot = slotAt( i, Shape::slotBytes );
         if( slot->load( std::memory_order_relaxed ) & Layout::live ) {
            if( equalWords( Shape::keyOf( slot ), key ) ) {
               return { slot, i, true };
            }
         } else if( !place.slot ) {
            place = { slot, i, false };
         }
      }
      return place;
   }

   // How far a slot is from where the search for the key begins.
   struct Reach {
      Layout::Word & home;
      std::uint64_t word, distance;
   };
   Reach reachFrom( WordsOf< Key > const & key, std::uint64_t index ) const {
      auto const home = Shape::hashOf( seed(), key ) >> shift();
      auto & word = *slotAt( home, Shape::slotBytes );
      return { word, word.load( std::memory_order_relaxed ), ( index - home ) & ( slots() - 1 ) };
   }

   // Before a row is put there.
   [[gnu::noinline]] void raiseReach( WordsOf< Key > const & key, std::uint64_t index ) {
      auto const [ home, word, distance ] = reachFrom( key, index );
      if( distance > Layout::reachOf( word ) ) {
         home.store( Layout::withReach( word, distance ), std::memory_order_release );
      }
   }

   // After the row that was there has gone.
   void lowerReach( WordsOf< Key > const & key, std::uint64_t index ) {
      auto const [ home, word, distance ] = reachFrom( key, index );
      auto left = Layout::reachOf( word );
      if( distance != left || left == 0 || left == Layout::maxReach ) {
         return;
      }
      do {
         --left;
      } while( left != 0 && !isFrom( index - distance, left ) );
      home.store( Layout::withReach( word, left ), std::memory_order_release );
   }

   // Whether a row stands so far from there whose search begins there.
   bool isFrom( std::uint64_t home, std::uint64_t distance ) const {
      auto const index = ( home + distance ) & ( slots() - 1 );
      auto * const slot = slotAt( index, Shape::slotBytes );
      WordsOf< Key > key;
      loadWords( key, Shape::keyOf( slot ) );
      return slot->load( std::memory_order_relaxed ) & Layout::live &&
             reachFrom( key, index ).distance == distance;
   }

   void put( Found const & found, WordsOf< Key > const & key, WordsOf< Record > const & record ) {
      if( !found.there ) [[unlikely]] {
         raiseReach( key, found.index );
      }
      journalIs( found, Layout::operationPut, key, record );
      auto const word = found.slot->load( std::memory_order_relaxed );
      // The journal before it, the content behind it.
      found.slot->store( word | Layout::writing, std::memory_order_release );
      std::atomic_thread_fence( std::memory_order_release );
      storeWords( Shape::keyOf( found.slot ), key );
      storeWords( Shape::recordOf( found.slot ), record );
      found.slot->store( ( word | Layout::live ) + Layout::oneVersion, std::memory_order_release );
      if( !found.there ) {
         rowsIs( rows() + 1 );
      }
      announce( key );
   }

   void journalIs( Found const & found, Layout::Operation operation, WordsOf< Key > const & key,
                   WordsOf< Record > const & record ) {
      auto & entry = journal();
      auto const sequence = entry.sequence.load( std::memory_order_relaxed );
      entry.sequence.store( sequence + 1, std::memory_order_relaxed );
      std::atomic_thread_fence( std::memory_order_release );
      entry.epoch.store( epoch(), std::memory_order_relaxed );
      entry.slot.store( found.index, std::memory_order_relaxed );
      entry.operation.store( operation, std::memory_order_relaxed );
      entry.change.store( changes(), std::memory_order_relaxed );
      auto * const words = reinterpret_cast< Layout::Word * >( &entry + 1 );
      storeWords( words, key );
      storeWords( words + Shape::keyWords, record );
      entry.sequence.store( sequence + 2, std::memory_order_release );
   }

   void announce( WordsOf< Key > const & key ) {
      auto const change = beginChange();
      storeWords( changeAt( change, 8 * Shape::keyWords ), key );
      endChange( change );
   }
};

template< TableKey Key, TableRecord Record >
class TableReader : public TableReaderCore {
   using Shape = TableShape< Key, Record >;

 public:
   // Attaches to nothing yet. Throws Error for a name that is none.
   explicit TableReader( std::string const & table, ReaderOptions const & options = {} )
         : TableReaderCore( table, schemaOf< Key, Record >(), options ) {}

   // Whether the row is there; `record` is left alone otherwise. False while not attached. Throws
   // Error when the table was cut off under the reader's feet.
   bool get( Key const & key, Record & record ) {
      auto const keyWords = toWords( key );
      WordsOf< Record > recordWords;
      if( !find( keyWords, recordWords ) ) {
         return false;
      }
      fromWords( record, recordWords );
      return true;
   }
   bool has( Key const & key ) {
      WordsOf< Record > recordWords;
      return find( toWords( key ), recordWords );
   }

   // Every row, in an order that is another in every run: each that is there from the beginning of
   // the walk to its end at least once (twice only if the table grew or shrank meanwhile). Throws as
   // get().
   template< class Use >
   void forEach( Use && use ) {
      if( !attached() ) {
         return;
      }
      auto walk = beginWalk();
      while( goOn( walk ) ) {
         WordsOf< Key > keyWords;
         WordsOf< Record > recordWords;
         if( copy( walk.slot, walk.index, walk.epoch, keyWords, recordWords ) == Copied::row &&
             stillThere( walk ) ) {
            Key key;
            Record record;
            fromWords( key, keyWords );
            fromWords( record, recordWords );
            use( key, record );
         }
      }
   }

   // A walk in parts, for who must not be held up by a large table.
   struct Place {
      std::uint64_t epoch = 0;
      std::uint64_t next = 0;
      std::uint64_t left = 0; // slots to be visited; 0: the walk is over
   };
   // Where every row that is there from now on has still to be visited.
   Place beginning() {
      if( attached() && epochNow() != epoch() ) {
         refresh();
      }
      return { epoch(), 0, attached() ? slots() : 0 };
   }
   // Calls use( key ) for the rows in the next slots, at most so many. Each row that is there from
   // the beginning to the end is visited, some twice if the table grew or shrank. Throws as get().
   template< class Use >
   void forSome( Place & place, std::uint64_t mostSlots, Use && use ) {
      for( ; attached() && place.left && mostSlots; --mostSlots ) {
         if( epochNow() != epoch() ) {
            refresh();
         }
         if( place.epoch != epoch() ) {
            place = { epoch(), 0, slots() };
         }
         WordsOf< Key > keyWords;
         WordsOf< Record > recordWords;
         auto const copied = copy( slotAt( place.next, Shape::slotBytes ), place.next, place.epoch,
                                   keyWords, recordWords );
         // Else the memory may have become another region's.
         if( !moved() ) {
            ++place.next;
            --place.left;
            if( copied == Copied::row ) {
               Key key;
               fromWords( key, keyWords );
               use( key );
            }
         }
      }
      checkNotLost();
   }

   // Calls onChange( key ) for what changed since the last time, in order, at most `most` times.
   // Returns what the reader has to do besides; see Poll. Throws as get().
   template< class OnChange >
   Poll poll( OnChange && onChange, std::uint64_t most = ~std::uint64_t( 0 ) ) {
      std::array< WordsOf< Key >, 64 > batch;
      auto result = beginPoll();
      // onChange() may detach.
      while( result != Poll::resynchronise && result != Poll::gone && most && attached() ) {
         auto const count = std::min< std::uint64_t >( { waiting(), batch.size(), most } );
         if( count == 0 ) {
            break;
         }
         for( std::uint64_t i = 0; i != count; ++i ) {
            loadWords( batch[ i ], changeAt( cursor() + i, 8 * Shape::keyWords ) );
         }
         if( !takeChanges( count ) ) {
            return resynchronise();
         }
         result = Poll::changed;
         most -= count;
         for( std::uint64_t i = 0; i != count; ++i ) {
            Key key;
            fromWords( key, batch[ i ] );
            onChange( key );
         }
      }
      return result;
   }

 private:
   bool find( WordsOf< Key > const & key, WordsOf< Record > & record ) {
      while( attached() ) {
         if( epochNow() != epoch() ) [[unlikely]] {
            refresh();
            continue;
         }
         auto const found = probe( key, record );
         // The memory may have become another region's meanwhile.
         if( !moved() ) [[likely]] {
            if( !found ) {
               checkNotLost();
            }
            return found;
         }
      }
      return false;
   }

   bool probe( WordsOf< Key > const & key, WordsOf< Record > & record ) {
      auto i = Shape::hashOf( seed(), key ) >> shift();
      auto * slot = slotAt( i, Shape::slotBytes );
      auto word = slot->load( std::memory_order_acquire );
      std::uint64_t tries = 0;
      auto const homeWord = word;
      for( std::uint64_t seen = 0;; ) {
         if( ( word & ( Layout::live | Layout::writing ) ) == Layout::live ) [[likely]] {
            if( equalWords( Shape::keyOf( slot ), key ) ) {
               loadWords( record, Shape::recordOf( slot ) );
               std::atomic_thread_fence( std::memory_order_acquire );
               if( slot->load( std::memory_order_relaxed ) == word ) [[likely]] {
                  return true;
               }
               word = slot->load( std::memory_order_acquire );
               continue;
            }
         } else if( word & Layout::writing ) {
            WordsOf< Key > there;
            auto const copied = copyJournal( slot, word, i, epoch(), loading( there, record ) );
            if( copied == Copied::again ) {
               retry( tries );
               if( epochNow() != epoch() ) {
                  return false; // this may be another region's slot, of a writer that died in it
               }
               word = slot->load( std::memory_order_acquire );
               continue;
            }
            if( copied == Copied::row && there == key ) {
               return true;
            }
         }
         if( ++seen == Layout::searchOf( homeWord, slots() ) ) {
            return false;
         }
         i = ( i + 1 ) & ( slots() - 1 );
         slot = slotAt( i, Shape::slotBytes );
         word = slot->load( std::memory_order_acquire );
      }
   }

   static auto loading( WordsOf< Key > & key, WordsOf< Record > & record ) {
      return [ & ]( Layout::Word const * words ) {
         loadWords( key, words );
         loadWords( record, words + Shape::keyWords );
      };
   }

   // What is in the slot.
   Copied copy( Layout::Word * slot, std::uint64_t index, std::uint64_t ofEpoch,
                WordsOf< Key > & key, WordsOf< Record > & record ) {
      std::uint64_t tries = 0;
      while( true ) {
         auto const copied = copyOnce( slot, index, ofEpoch, loading( key, record ) );
         if( copied != Copied::again ) [[likely]] {
            return copied;
         }
         // A region that was replaced meanwhile has no rows any more.
         if( header().region[ ofEpoch % 2 ].epoch.load( std::memory_order_acquire ) != ofEpoch ) {
            return Copied::none;
         }
         retry( tries );
      }
   }
};

} // namespace Glim
