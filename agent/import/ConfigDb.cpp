// SPDX-License-Identifier: Apache-2.0
#include "agent/import/ConfigDb.h"

#include "agent/import/ConfigDbRow.h"

#include <algorithm>

namespace Import {

namespace {

using Object = Kiv::Datum::Object;

Kiv::String
counted( std::size_t count, Kiv::String const & one ) {
   return Kiv::toText( count ) + ' ' + one + ( count == 1 ? "" : "s" );
}

// One import while it is made.
class Importer {
 public:
   explicit Importer( ConfigDbTargets const & targets ) : model_( targets ) {}

   ConfigDbImport run( Object const & file ) {
      for( auto const & mapper : tableMappers() ) {
         for( auto const & [ name, table ] : file ) {
            if( name == mapper.table ) {
               importTable( mapper, table );
            }
         }
      }
      for( auto const & [ name, table ] : file ) {
         auto isName = [ &table = name ]( TableMapper const & mapper ) {
            return mapper.table == table;
         };
         if( std::ranges::none_of( tableMappers(), isName ) ) {
            leaveTable( name, table );
         }
      }
      return std::move( import_ );
   }

 private:
   void line( LineKind kind, std::string_view table, Kiv::String const & key, Kiv::String what ) {
      import_.report.push_back( { kind, Kiv::String( table ), key, std::move( what ) } );
   }

   void importTable( TableMapper const & mapper, Kiv::Datum const & table ) {
      auto const * rows = table.as< Object >();
      if( !rows ) {
         line( refused, mapper.table, {},
               Kiv::String( table.shape() ) + " is not a table: an object of rows is expected" );
         return;
      }
      Row::Taken taken;
      Unread unread;
      for( auto const & [ key, fields ] : *rows ) {
         try {
            importRow( mapper, key, fields, taken, unread );
         } catch( Kiv::ParseError const & error ) {
            line( refused, mapper.table, key, error.what() );
         } catch( Kiv::RangeException const & error ) {
            line( refused, mapper.table, key, error.what() );
         }
      }
      Kiv::String fields;
      for( auto const & [ field, count ] : unread ) {
         fields += ( fields.empty() ? "" : ", " ) + field + " (" + counted( count, "row" ) + ')';
      }
      if( !fields.empty() ) {
         line( notImported, mapper.table, {}, "no such attribute here: " + fields );
      }
   }

   // By field: how many of the rows taken have it.
   using Unread = Kiv::HashMap< Kiv::String, std::size_t >;

   void importRow( TableMapper const & mapper, Kiv::String const & key, Kiv::Datum const & fields,
                   Row::Taken & taken, Unread & unread ) {
      Row row( key, fields, taken );
      mapper.map( row, model_ );
      taken.insertOrAssign( row.identity(), key );
      line( imported, mapper.table, key, row.operation().text );
      for( auto const & what : row.remarks() ) {
         line( remark, mapper.table, key, what );
      }
      import_.operations.push_back( row.operation() );
      for( auto const & field : row.unreadFields() ) {
         auto const * count = unread.find( field );
         unread.insertOrAssign( field, ( count ? *count : 0 ) + 1 );
      }
   }

   void leaveTable( Kiv::String const & name, Kiv::Datum const & table ) {
      auto const * rows = table.as< Object >();
      line( notImported, name, {},
            ( rows ? counted( rows->size(), "row" ) : Kiv::String( table.shape() ) ) +
                  " not imported: no such feature here" );
   }

   Model model_;
   ConfigDbImport import_;
};

} // namespace

Kiv::String
ReportLine::text() const {
   auto text = table + ( key.empty() ? "" : "|" ) + key + ": " + what;
   std::ranges::replace_if(
         text, []( char c ) { return static_cast< unsigned char >( c ) < ' '; }, '?' );
   return text;
}

void
ConfigDbImport::apply() const {
   for( auto const & operation : operations ) {
      operation.apply();
   }
}

bool
ConfigDbImport::accepted( std::string_view table, std::string_view key ) const {
   return std::ranges::any_of( report, [ & ]( ReportLine const & line ) {
      return line.kind == imported && line.table == table && line.key == key;
   } );
}

Kiv::String const *
ConfigDbImport::refusal( std::string_view table, std::string_view key ) const {
   for( auto const & line : report ) {
      if( line.kind == refused && line.table == table && line.key == key ) {
         return &line.what;
      }
   }
   return nullptr;
}

std::size_t
ConfigDbImport::count( LineKind kind ) const {
   return static_cast< std::size_t >( std::ranges::count( report, kind, &ReportLine::kind ) );
}

Kiv::String
ConfigDbImport::summary() const {
   return counted( count( imported ), "row" ) + " imported, " + Kiv::toText( count( refused ) ) +
          " refused, " + counted( count( remark ), "remark" ) + ", " +
          Kiv::toText( count( notImported ) ) + " tables not imported or not whole";
}

ConfigDbImport
importConfigDb( Kiv::Datum const & file, ConfigDbTargets const & targets ) {
   auto const * tables = file.as< Object >();
   if( !tables ) {
      Kiv::wrongShape( file, "a configuration: an object of tables is expected" );
   }
   return Importer( targets ).run( *tables );
}

} // namespace Import
