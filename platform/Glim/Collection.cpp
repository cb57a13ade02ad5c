// SPDX-License-Identifier: Apache-2.0
#include "Glim/Collection.h"

namespace Glim {

CollectionControl::~CollectionControl() {
   if( status_ != notAttached ) {
      auto & loop = Loop::instance();
      loop.unlisten( bell_ );
      loop.del( *this );
   }
}

void
CollectionControl::notWriter() const {
   throw Error( std::string( name_ ) + ": it cannot be written: it is " +
                ( reader_ ? "a reader of table \"" + table_ + "\"" : "not attached to a table" ) );
}

void
CollectionControl::checkDetached() const {
   if( status_ != notAttached ) {
      throw Error( std::string( name_ ) + ": it is attached to table \"" + table_ +
                   "\" already; detach it first" );
   }
}

// ---- Writers

void
CollectionControl::attachWriter( std::string const & table, WriterOptions const & options ) {
   checkDetached();
   auto & loop = Loop::instance();
   auto const made = makeWriter( table, options );
   Kiv::Dispatch::Frame frame;
   loop.add( *this );
   writer_ = made;
   table_ = table;
   made->commitHookIs( hook_ );
   status_ = writingTable;
   notify( CollectionEvent::mountStatus );
   if( writer_ == made ) {
      beginAll();
      while( writer_ == made && ( untold() || left() ) ) {
         if( untold() == 0 ) {
            takeSome( Loop::keysPerTurn );
         }
         tellNext();
      }
   }
}

// The writer is dirty until its hook has run, so that what the hook writes wakes nobody.
void
CollectionControl::commit() {
   if( !dirty_ || committing_ ) {
      return;
   }
   Kiv::Dispatch::Frame frame;
   struct Committing {
      explicit Committing( bool & theFlag ) : flag( theFlag ) { flag = true; }
      ~Committing() { flag = false; }
      bool & flag;
   } const committing( committing_ );
   auto const mine = writer_;
   mine->commit();
   if( writer_ == mine ) {
      dirty_ = false;
   }
}

void
CollectionControl::commitHookIs( std::function< void() > hook ) {
   hook_ = std::move( hook );
   if( writer_ ) {
      writer_->commitHookIs( hook_ );
   }
}

void
CollectionControl::quiescedIs( bool quiesced ) {
   checkWriter();
   writer_->quiescedIs( quiesced );
   Loop::instance().wake(); // readers here
   if( quiesced_ != quiesced ) {
      quiesced_ = quiesced;
      notify( CollectionEvent::quiesced );
   }
}

// ---- Readers

void
CollectionControl::attachReader( std::string const & table, ReaderOptions const & options ) {
   checkDetached();
   auto & loop = Loop::instance();
   auto const made = makeReader( table, options );
   Kiv::Dispatch::Frame frame;
   loop.add( *this );
   reader_ = made;
   table_ = table;
   private_ = options.privateMemory;
   status_ = awaitingTable;
   if( !tryMount() ) {
      notify( CollectionEvent::mountStatus );
   }
}

// Whether it told that the mount status changed.
bool
CollectionControl::tryMount() {
   auto next = awaitingTable;
   fault_.clear();
   damaged_ = false;
   try {
      if( reader_->attach() ) {
         bell_ = private_ ? 0 : Loop::instance().listen( reader_->mapHeader() );
         next = readingTable;
         fresh_ = true;
      }
   } catch( Error const & error ) {
      reader_->detach();
      fault_ = error.what();
      next = tableUnreadable;
   }
   if( next == status_ ) {
      return false;
   }
   status_ = next;
   notify( CollectionEvent::mountStatus );
   return true;
}

// The reader has lost its table, and looks for it from now on.
void
CollectionControl::unmount( MountStatus next ) {
   Loop::instance().unlisten( bell_ );
   bell_ = 0;
   reader_->detach();
   forgetUntold();
   damaged_ = false;
   status_ = next;
   auto const mine = reader_;
   if( next == awaitingTable ) {
      Loop::instance().wake(); // the next one may be there already
   }
   notify( CollectionEvent::mountStatus );
   if( quiesced_ && reader_ == mine ) {
      quiesced_ = false;
      notify( CollectionEvent::quiesced );
   }
}

void
CollectionControl::damaged( Error const & error ) const {
   damaged_ = true;
   fault_ = error.what();
   Loop::instance().wake();
}

void
CollectionControl::tell( std::uint64_t most ) {
   Kiv::Dispatch::Frame frame;
   auto const mine = reader_;
   if( mine && waits() ) {
      tryMount();
   }
   if( reader_ != mine || ( mine && ( status_ != readingTable || !look( most ) ) ) ) {
      return;
   }
   // A writer has something left only if a handler threw when it attached.
   if( writer_ && untold() == 0 && left() ) {
      takeSome( most );
   }
   // Whoever detaches leaves nothing to be told.
   for( ; most != 0 && untold() && reader_ == mine; --most ) {
      tellNext();
   }
}

// Takes what there is to tell. Whether the reader still has its table, after all who heard of it.
bool
CollectionControl::look( std::uint64_t most ) {
   auto const mine = reader_;
   auto result = Poll::nothing;
   bool quiesced = false;
   try {
      if( !damaged_ && untold() == 0 ) {
         // Changes do not hold up the rows of a resynchronisation, nor these the changes.
         result = takeChanges( left() ? most / 2 : most );
         if( result == Poll::resynchronise ) {
            beginAll();
         }
         if( result != Poll::gone && left() ) {
            takeSome( most - untold() );
         }
      }
      quiesced = mine->quiesced();
   } catch( Error const & error ) {
      damaged( error );
   }
   if( damaged_ || result == Poll::gone ) {
      unmount( damaged_ ? tableUnreadable : awaitingTable );
      return false;
   }
   auto const still = [ & ] { return reader_ == mine && status_ == readingTable; };
   if( quiesced != quiesced_ ) {
      quiesced_ = quiesced;
      notify( CollectionEvent::quiesced );
   }
   if( still() && result == Poll::resynchronise && !std::exchange( fresh_, false ) ) {
      ++resyncs_;
      notify( CollectionEvent::resynchronise );
   }
   return still();
}

// ---- Both

void
CollectionControl::detach() {
   if( status_ == notAttached ) {
      return;
   }
   Kiv::Dispatch::Frame frame;
   auto & loop = Loop::instance();
   loop.unlisten( std::exchange( bell_, 0 ) );
   loop.del( *this );
   forgetUntold();
   if( writer_ ) {
      // Whoever attaches next tells what has gone since.
      seeAll();
      loop.wake(); // readers here
   }
   // A writer that is in the middle of its commit is closed after it.
   writer_.reset();
   reader_.reset();
   table_.clear();
   fault_.clear();
   dirty_ = damaged_ = quiesced_ = false;
   status_ = notAttached;
   notify( CollectionEvent::mountStatus );
}

std::uint64_t
CollectionControl::rows() const {
   return writer_ ? writer_->rows() : reader_ ? reader_->rows() : 0;
}

std::uint64_t
CollectionControl::behind() const {
   return untold() + ( reader_ ? reader_->behind() : 0 );
}

bool
CollectionControl::hasMore() const {
   return mounted() && ( damaged_ || behind() != 0 || left() != 0 );
}

} // namespace Glim
