// SPDX-License-Identifier: Apache-2.0
#include "Glim/Inspect.h"

#include "Glim/ReaderFile.h"
#include "Glim/RecordTypes.h"
#include "Glim/Shape.h"
#include "Glim/TableView.h"

#include <algorithm>
#include <optional>
#include <tuple>
#include <unistd.h>

namespace Glim {

using Kiv::Datum;

namespace {

WriterState
writerStateOf( Layout::Header const & header ) {
   switch( header.state.load() ) {
   case Layout::stateClosed:
      return WriterState::stopped;
   case Layout::stateRemoved:
      return WriterState::removed;
   default:
      return processRuns( header.writerPid.load(), header.writerStart.load() )
                   ? WriterState::running
                   : WriterState::dead;
   }
}

std::vector< TableReport::Reader >
readersOf( std::string const & table, Layout::Header const & now, std::uint64_t capacity ) {
   std::vector< TableReport::Reader > readers;
   for( auto const & content : ReaderFile::all( table ) ) {
      // Read after the cursor, so that it is not before it; a reader of a former table of that name
      // may be anywhere.
      auto const head = now.changeHead.load( std::memory_order_acquire );
      auto const behind = head >= content.cursor ? head - content.cursor : 0;
      readers.push_back(
            { content.reader, content.pid, behind, content.resyncs, behind > capacity } );
   }
   std::stable_sort( readers.begin(), readers.end(), []( auto const & a, auto const & b ) {
      return std::tie( a.name, a.pid ) < std::tie( b.name, b.pid );
   } );
   return readers;
}

void
fill( TableReport & report, TableView & view ) {
   auto const & header = view.header();
   report.foreign = report.user != ::geteuid() && report.user != 0;
   report.keyType = header.keyType;
   report.recordType = header.recordType;
   report.schema = header.schema;
   report.rows = header.rows.load();
   report.slots = view.slots();
   report.writer = writerStateOf( header );
   report.writerPid = header.writerPid.load();
   report.writers = header.writers.load();
   report.quiesced = header.state.load() == Layout::stateQuiesced;
   report.stays = header.stays != 0;
   report.capacity = header.changes;
   report.committed = static_cast< double >( header.committed.load() ) / 1e9;
   report.changes = header.changeHead.load();
   report.readers = readersOf( report.table, view.headerNow(), report.capacity );
   if( report.writer == WriterState::dead ) {
      // It may have died between a row and its number.
      auto const rows = view.rows( false );
      report.rows = rows.count;
      if( rows.unreadable ) {
         report.fault =
               "its rows are damaged: " + std::to_string( rows.unreadable ) + " cannot be read";
      }
   }
}

} // namespace

TableReport
inspect( std::string const & table ) {
   TableView view( table );
   TableReport report;
   report.table = table;
   report.user = view.status().st_uid;
   report.fileBytes = static_cast< std::uint64_t >( view.status().st_size );
   report.memoryBytes = static_cast< std::uint64_t >( view.status().st_blocks ) * 512;
   report.fault = view.fault();
   if( report.fault.empty() ) {
      try {
         fill( report, view );
      } catch( Error const & ) {
         report.fault = view.fault();
      }
   }
   return report;
}

// ---- Rows

namespace {

// Rows of one table as data.
class Printer {
 public:
   explicit Printer( TableView const & view )
         : keyBytes_( view.header().keyBytes ), recordBytes_( view.header().recordBytes ),
           keyWords_( view.keyWords() ),
           type_( recordTypeOf( view.header(),
                                static_cast< std::uint64_t >( view.status().st_size ) ) ) {
      std::string_view const text = type_ ? type_->schema.text.c_str() : view.header().schema;
      if( auto const arrow = text.find( " -> " ); arrow != text.npos ) {
         key_ = Shape::parse( text.substr( 0, arrow ), keyBytes_ );
         record_ = Shape::parse( text.substr( arrow + 4 ), recordBytes_ );
      }
   }

   TableDump::Form form() const {
      return type_             ? TableDump::Form::typed
             : key_ && record_ ? TableDump::Form::shaped
                               : TableDump::Form::bytes;
   }

   bool before( std::uint64_t const * a, std::uint64_t const * b ) const {
      if( type_ && type_->before ) {
         return type_->before( a, b );
      }
      return std::lexicographical_compare( a, a + keyWords_, b, b + keyWords_ );
   }

   std::pair< Datum, Datum > print( std::uint64_t const * row, std::uint64_t & odd ) const {
      auto const * const key = reinterpret_cast< char const * >( row );
      auto const * const record = reinterpret_cast< char const * >( row + keyWords_ );
      bool const shaped = key_ && record_;
      if( !type_ && shaped ) {
         return { key_->datum( key ), record_->datum( record ) };
      }
      try {
         if( type_ && shaped && key_->isPossible( key ) && record_->isPossible( record ) ) {
            return { type_->keyDatum( key ), type_->recordDatum( record ) };
         }
      } catch( Kiv::Exception const & ) {
      }
      odd += type_ != nullptr;
      return { hexOf( key, keyBytes_ ), hexOf( record, recordBytes_ ) };
   }

 private:
   std::size_t const keyBytes_, recordBytes_, keyWords_;
   RecordType const * const type_;
   std::optional< Shape > key_, record_;
};

} // namespace

TableDump
dumpTable( std::string const & table ) {
   TableView view( table );
   if( !view.fault().empty() ) {
      throw Error( "table \"" + table + "\": " + view.fault() );
   }
   Printer const printer( view );
   TableDump dump;
   dump.form = printer.form();
   dump.keyType = view.header().keyType;
   dump.recordType = view.header().recordType;
   auto const rows = view.rows( true );
   dump.unreadable = rows.unreadable;
   auto const each = view.keyWords() + view.recordWords();
   std::vector< std::uint64_t const * > order;
   for( std::uint64_t i = 0; i != rows.count; ++i ) {
      order.push_back( rows.words.data() + i * each );
   }
   std::stable_sort( order.begin(), order.end(),
                     [ & ]( auto const * a, auto const * b ) { return printer.before( a, b ); } );
   for( auto const * row : order ) {
      dump.rows.push_back( printer.print( row, dump.odd ) );
   }
   return dump;
}

} // namespace Glim
