// SPDX-License-Identifier: Apache-2.0
#include "agent/hobactl/Tables.h"

#include "Glim/Inspect.h"
#include "Glim/RecordTypes.h"
#include "Glim/Segment.h"
#include "Tessera/Suggest.h"
#include "agent/common/Json.h"
#include "chips/sim/SimChip.h"
#include "types/HobaTypes.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

#include <pwd.h>

// What this tool prints as the agent does; tables of other types it prints by their shape.
GLIM_RECORD( Bridging::MacVlanPair, HobaTypes::MacAddressTableEntry );
// The tables of a simulated chip enrol theirs, once its units are linked in.
[[maybe_unused]] static auto const & chipTables = HobaSim::Chip::kivType();

namespace Hobactl {

using Glim::TableDump;
using Glim::TableReport;
using Glim::WriterState;
using Kiv::Datum;

namespace {

constexpr char const usage[] = "usage: show tables [NAME], show tables --dump NAME";

// ---- For people

std::string
sizeText( std::uint64_t bytes ) {
   constexpr std::array units{ "KiB", "MiB", "GiB", "TiB" };
   if( bytes < 1024 ) {
      return std::to_string( bytes ) + " B";
   }
   auto size = static_cast< double >( bytes ) / 1024;
   std::size_t unit = 0;
   for( ; size >= 1023.95 && unit + 1 != units.size(); ++unit ) {
      size /= 1024;
   }
   char text[ 32 ];
   std::snprintf( text, sizeof text, size < 10 ? "%.1f %s" : "%.0f %s", size, units[ unit ] );
   return text;
}

Kiv::Seconds
now() {
   return std::chrono::duration< Kiv::Seconds >(
                std::chrono::system_clock::now().time_since_epoch() )
         .count();
}

// "12 s ago"; the time itself if it is yet to come.
std::string
agoText( Kiv::Seconds time ) {
   struct Unit {
      Kiv::Seconds below, length;
      char const * name;
   };
   constexpr std::array units{ Unit{ 120, 1, " s" }, Unit{ 7200, 60, " min" },
                               Unit{ 172800, 3600, " h" }, Unit{ 1e99, 86400, " d" } };
   auto const age = now() - time;
   if( time == 0 ) {
      return "never";
   }
   if( age < 0 ) {
      return timeText( time );
   }
   auto const unit = std::find_if( units.begin(), units.end(),
                                   [ & ]( Unit const & u ) { return age < u.below; } );
   return std::to_string( static_cast< std::uint64_t >( age / unit->length ) ) + unit->name +
          " ago";
}

std::string
userText( std::uint32_t user ) {
   auto const * const entry = ::getpwuid( user );
   return entry ? std::string( entry->pw_name ) + " (" + std::to_string( user ) + ")"
                : std::to_string( user );
}

char const *
nameOf( WriterState state ) {
   switch( state ) {
   case WriterState::running:
      return "running";
   case WriterState::dead:
      return "dead";
   case WriterState::stopped:
      return "stopped";
   case WriterState::removed:
      break;
   }
   return "removed";
}

char const *
nameOf( TableDump::Form form ) {
   switch( form ) {
   case TableDump::Form::typed:
      return "typed";
   case TableDump::Form::shaped:
      return "shaped";
   case TableDump::Form::bytes:
      break;
   }
   return "bytes";
}

// A report without a writer's state is one of which only the file is known.
bool
isKnown( TableReport const & report ) {
   return !report.schema.empty();
}

std::string
noteOf( TableReport const & report ) {
   if( !report.fault.empty() ) {
      return report.fault;
   }
   if( report.foreign ) {
      return "belongs to user " + userText( report.user ) + "; this user's programs refuse it";
   }
   return report.quiesced ? "quiesced" : "";
}

Datum
textOrNone( std::string const & text ) {
   return text.empty() ? Datum() : Datum( text );
}

// The column of whoever is farthest behind.
Datum
behindOf( TableReport const & report ) {
   auto const farthest =
         std::max_element( report.readers.begin(), report.readers.end(),
                           []( auto const & a, auto const & b ) { return a.behind < b.behind; } );
   return farthest == report.readers.end() ? Datum() : Datum( farthest->behind );
}

Datum
lineOf( TableReport const & report ) {
   if( !isKnown( report ) ) {
      return Datum::Array{ report.table,    {}, {}, {}, {}, sizeText( report.memoryBytes ), {},
                           noteOf( report ) };
   }
   return Datum::Array{ report.table,
                        report.rows,
                        std::to_string( report.writerPid ) + " " + nameOf( report.writer ),
                        report.readers.size(),
                        behindOf( report ),
                        sizeText( report.memoryBytes ),
                        agoText( report.committed ),
                        noteOf( report ) };
}

Datum
tableOf( Datum::Array columns, Datum::Array rows ) {
   Datum table( Datum::Object{} );
   table.add( "columns", std::move( columns ) );
   table.add( "rows", std::move( rows ) );
   return table;
}

std::string
listText( std::vector< TableReport > const & reports, Style const & style ) {
   if( reports.empty() ) {
      return "no tables in " + Glim::folder() + "\n";
   }
   Datum::Array rows;
   for( auto const & report : reports ) {
      rows.push_back( lineOf( report ) );
   }
   auto table =
         tableOf( { "TABLE", "ROWS", "WRITER", "READERS", "BEHIND", "MEMORY", "COMMIT", "NOTE" },
                  std::move( rows ) );
   table.add( "notes", Datum::Array{ Datum( std::to_string( reports.size() ) +
                                            ( reports.size() == 1 ? " table" : " tables" ) ) } );
   return renderTable( table, style );
}

std::string
readersText( TableReport const & report, Style const & style ) {
   if( report.readers.empty() ) {
      return "readers: none\n";
   }
   Datum::Array rows;
   for( auto const & reader : report.readers ) {
      rows.push_back(
            Datum::Array{ reader.name, reader.pid, reader.behind, reader.resyncs,
                          reader.lost ? "too far behind: will read everything again" : "" } );
   }
   return "\n" + renderTable( tableOf( { "READER", "PID", "BEHIND", "RESYNCS", "NOTE" },
                                       std::move( rows ) ),
                              style );
}

std::string
detailText( TableReport const & report, Style const & style ) {
   Datum all( Datum::Object{} );
   all.add( "table", report.table );
   if( auto const note = noteOf( report ); !note.empty() ) {
      all.add( report.fault.empty() ? "note" : "fault", note );
   }
   all.add( "file", Glim::pathOf( report.table ) + ", of user " + userText( report.user ) );
   all.add( "memory",
            sizeText( report.memoryBytes ) + ", of a file of " + sizeText( report.fileBytes ) );
   if( !isKnown( report ) ) {
      return render( all, style );
   }
   all.add( "types", report.keyType + " -> " + report.recordType );
   all.add( "shape", report.schema );
   all.add( "rows",
            std::to_string( report.rows ) + ", in " + std::to_string( report.slots ) + " slots" );
   all.add( "writer", "process " + std::to_string( report.writerPid ) + ", " +
                            nameOf( report.writer ) + "; number " +
                            std::to_string( report.writers ) + " of this table's" );
   all.add( "lifetime",
            report.stays ? "stays when its writer stops" : "goes when its writer stops" );
   all.add( "changes", std::to_string( report.changes ) + "; the last " +
                             std::to_string( report.capacity ) + " are remembered" );
   all.add( "last commit", report.committed == 0 ? "never"
                                                 : timeText( report.committed ) + " (" +
                                                         agoText( report.committed ) + ")" );
   return render( all, style ) + readersText( report, style );
}

// ---- For programs

Datum
datumOf( TableReport::Reader const & reader ) {
   Datum datum( Datum::Object{} );
   datum.add( "reader", reader.name );
   datum.add( "pid", reader.pid );
   datum.add( "behind", reader.behind );
   datum.add( "resyncs", reader.resyncs );
   datum.add( "lost", reader.lost );
   return datum;
}

Datum
datumOf( TableReport const & report ) {
   Datum datum( Datum::Object{} );
   datum.add( "table", report.table );
   datum.add( "fault", textOrNone( report.fault ) );
   datum.add( "user", report.user );
   datum.add( "fileBytes", report.fileBytes );
   datum.add( "memoryBytes", report.memoryBytes );
   if( !isKnown( report ) ) {
      return datum;
   }
   datum.add( "foreign", report.foreign );
   datum.add( "keyType", report.keyType );
   datum.add( "recordType", report.recordType );
   datum.add( "schema", report.schema );
   datum.add( "rows", report.rows );
   datum.add( "slots", report.slots );
   datum.add( "writer", nameOf( report.writer ) );
   datum.add( "writerPid", report.writerPid );
   datum.add( "writers", report.writers );
   datum.add( "quiesced", report.quiesced );
   datum.add( "stays", report.stays );
   datum.add( "changes", report.changes );
   datum.add( "capacity", report.capacity );
   datum.add( "committed", report.committed == 0 ? Datum() : Datum( report.committed ) );
   Datum::Array readers;
   for( auto const & reader : report.readers ) {
      readers.push_back( datumOf( reader ) );
   }
   datum.add( "readers", std::move( readers ) );
   return datum;
}

// ---- Rows

Datum
datumOf( std::string const & table, TableDump const & dump ) {
   Datum::Array rows;
   for( auto const & [ key, record ] : dump.rows ) {
      rows.push_back( Datum::Object{ { "key", key }, { "record", record } } );
   }
   Datum datum( Datum::Object{} );
   datum.add( "table", table );
   datum.add( "keyType", dump.keyType );
   datum.add( "recordType", dump.recordType );
   datum.add( "form", nameOf( dump.form ) );
   datum.add( "odd", dump.odd );
   datum.add( "unreadable", dump.unreadable );
   datum.add( "rows", std::move( rows ) );
   return datum;
}

// The columns of keys, or of records: one a field, or one for all.
class Columns {
 public:
   Columns( std::string name, Datum const * example ) {
      auto const * const fields = example ? example->as< Datum::Object >() : nullptr;
      for( std::size_t i = 0; fields && i != fields->size(); ++i ) {
         names_.push_back( ( *fields )[ i ].first );
      }
      isStructure_ = !names_.empty();
      if( !isStructure_ ) {
         names_.push_back( std::move( name ) );
      }
   }
   void addHeadings( Datum::Array & row ) const {
      row.insert( row.end(), names_.begin(), names_.end() );
   }
   // What is of another form, because it is no such value, stands in the first.
   void addCells( Datum::Array & row, Datum const & value ) const {
      bool const fits = isStructure_ && value.as< Datum::Object >();
      for( auto const & name : names_ ) {
         auto const * const cell = fits                     ? value.find( name )
                                   : name == names_.front() ? &value
                                                            : nullptr;
         row.push_back( cell ? *cell : Datum() );
      }
   }

 private:
   std::vector< std::string > names_;
   bool isStructure_ = false;
};

Datum::Array
notesOf( TableDump const & dump ) {
   Datum::Array notes;
   auto const types = "the types " + dump.keyType + " -> " + dump.recordType;
   if( dump.form == TableDump::Form::shaped ) {
      notes.emplace_back( types + " are not known here: shown by the shape that the table gives" );
   } else if( dump.form == TableDump::Form::bytes ) {
      notes.emplace_back( types + " are not known here: shown as bytes" );
   }
   if( dump.odd ) {
      notes.emplace_back( std::to_string( dump.odd ) +
                          " rows are no values of these types: shown as bytes" );
   }
   if( dump.unreadable ) {
      notes.emplace_back( std::to_string( dump.unreadable ) + " rows are damaged: left out" );
   }
   notes.emplace_back( std::to_string( dump.rows.size() ) +
                       ( dump.rows.size() == 1 ? " row" : " rows" ) );
   return notes;
}

std::string
dumpText( TableDump const & dump, Style const & style ) {
   Datum const *key = nullptr, *record = nullptr;
   for( auto const & row : dump.rows ) {
      if( !record || row.second.as< Datum::Object >() ) {
         key = &row.first;
         record = &row.second;
         if( record->as< Datum::Object >() ) {
            break;
         }
      }
   }
   Columns const keys( "KEY", key ), records( "RECORD", record );
   Datum::Array headings, rows;
   keys.addHeadings( headings );
   records.addHeadings( headings );
   for( auto const & row : dump.rows ) {
      Datum::Array cells;
      keys.addCells( cells, row.first );
      records.addCells( cells, row.second );
      rows.emplace_back( std::move( cells ) );
   }
   auto table = tableOf( std::move( headings ), std::move( rows ) );
   table.add( "notes", notesOf( dump ) );
   return renderTable( table, style );
}

// ---- The words

struct Asked {
   std::string table; // all when empty
   bool dump = false;
};

// --dump NAME has become dump=NAME on its way here, and --dump behind everything the word dump.
Asked
parse( std::vector< std::string > const & words ) {
   Asked asked;
   for( auto word = words.begin() + 1; word != words.end(); ++word ) {
      bool const dumps = word->starts_with( "dump=" );
      if( asked.table.empty() && dumps ) {
         asked = { word->substr( 5 ), true };
      } else if( asked.table.empty() ) {
         asked.table = word->substr( word->starts_with( "name=" ) ? 5 : 0 );
      } else if( *word == "dump" && !asked.dump ) {
         asked.dump = true;
      } else {
         throw Kiv::ParseError( "there is no use for \"" + *word + "\"; " + usage );
      }
      if( asked.table.empty() ) {
         throw Kiv::ParseError( std::string( "the name of a table is missing; " ) + usage );
      }
   }
   return asked;
}

// Errors about names say what there is instead.
void
checkIsThere( std::string const & table ) {
   auto const names = Glim::tableNames();
   if( std::find( names.begin(), names.end(), table ) == names.end() ) {
      throw Kiv::Exception( "there is no table \"" + table + "\" in " + Glim::folder() + "; " +
                            ( table == "dump" ? usage : Tessera::suggestion( table, names ) ) );
   }
}

std::vector< TableReport >
allReports() {
   std::vector< TableReport > reports;
   for( auto const & name : Glim::tableNames() ) {
      try {
         reports.push_back( Glim::inspect( name ) );
      } catch( Kiv::Exception const & ) {
         // It went meanwhile.
      }
   }
   return reports;
}

} // namespace

bool
isAboutTables( std::vector< std::string > const & words ) {
   return !words.empty() && words.front() == "tables";
}

void
showTables( std::vector< std::string > const & words, bool json, Style const & style,
            std::ostream & out ) {
   auto const asked = parse( words );
   auto const answer = [ & ]( auto const & toDatum, auto const & toText ) {
      out << ( json ? HobaAgent::jsonText( toDatum(), 2 ) + "\n" : toText() );
   };
   if( asked.table.empty() ) {
      auto const reports = allReports();
      answer(
            [ & ] {
               Datum::Array list;
               for( auto const & report : reports ) {
                  list.push_back( datumOf( report ) );
               }
               return Datum( std::move( list ) );
            },
            [ & ] { return listText( reports, style ); } );
      return;
   }
   checkIsThere( asked.table );
   if( asked.dump ) {
      auto const dump = Glim::dumpTable( asked.table );
      answer( [ & ] { return datumOf( asked.table, dump ); },
              [ & ] { return dumpText( dump, style ); } );
   } else {
      auto const report = Glim::inspect( asked.table );
      answer( [ & ] { return datumOf( report ); }, [ & ] { return detailText( report, style ); } );
   }
}

std::vector< std::string >
nextWordsForTables( std::string const & words ) {
   return words == "show"          ? std::vector< std::string >{ "tables" }
          : words == "show tables" ? Glim::tableNames()
                                   : std::vector< std::string >{};
}

Datum
withHelpForTables( Datum const & help ) {
   auto const * const there = help.find( "rows" );
   auto const * const rows = there ? there->as< Datum::Array >() : nullptr;
   auto all = rows ? *rows : Datum::Array();
   all.emplace_back( Datum::Array{ "show tables [NAME]",
                                   "The shared tables, also when no agent runs; all about one" } );
   all.emplace_back( Datum::Array{ "show tables --dump NAME", "The rows of a shared table" } );
   return tableOf( { "COMMAND", "DOES" }, std::move( all ) );
}

} // namespace Hobactl
