// SPDX-License-Identifier: Apache-2.0
#include "agent/import/ConfigDb.h"

#include "Kiv/Utf8.h"
#include "agent/import/ConfigDbRow.h"

#include <algorithm>

namespace Import {

namespace {

using Object = Kiv::Datum::Object;

// A table of the file. Rows may stand in an object under its name, or by themselves under the
// table's name and theirs with a bar between.
struct Table {
   Kiv::String name;
   Kiv::Datum const * odd = nullptr; // what stands under its name where an object is expected
   std::vector< std::pair< Kiv::String, Kiv::Datum const * > > rows = {}; // key, fields
};

// In the order in which the file names them first.
std::vector< Table >
tablesOf( Object const & file ) {
   std::vector< Table > tables;
   Kiv::HashMap< Kiv::String, std::size_t > places;
   auto const tableOf = [ & ]( Kiv::String const & name ) -> Table & {
      auto const * place = places.find( name );
      if( !place ) {
         places.insertOrAssign( name, tables.size() );
         return tables.emplace_back( Table{ name } );
      }
      return tables[ *place ];
   };
   for( auto const & [ name, value ] : file ) {
      if( auto const bar = name.find( '|' ); bar != name.npos ) {
         tableOf( name.substr( 0, bar ) ).rows.emplace_back( name.substr( bar + 1 ), &value );
         continue;
      }
      auto & table = tableOf( name );
      if( auto const * rows = value.as< Object >() ) {
         for( auto const & [ key, fields ] : *rows ) {
            table.rows.emplace_back( key, &fields );
         }
      } else {
         table.odd = &value;
      }
   }
   return tables;
}

// "a, b, c and 31 more"
Kiv::String
someOf( std::vector< Kiv::String > const & names, std::size_t most ) {
   Kiv::String text;
   for( std::size_t i = 0; i != std::min( names.size(), most ); ++i ) {
      text += ( i ? ", " : "" ) + names[ i ];
   }
   return text +
          ( names.size() > most ? " and " + Kiv::toText( names.size() - most ) + " more" : "" );
}

TableMapper const *
mapperOf( std::string_view table ) {
   auto const & mappers = tableMappers();
   auto const found = std::ranges::find( mappers, table, &TableMapper::table );
   return found == mappers.end() ? nullptr : &*found;
}

// One import while it is made.
class Importer {
 public:
   explicit Importer( ConfigDbTargets const & targets ) : model_( targets ) {}

   ConfigDbImport run( std::vector< Table > const & tables ) {
      for( auto const & mapper : tableMappers() ) {
         auto const table = std::ranges::find( tables, mapper.table, &Table::name );
         if( table != tables.end() ) {
            importTable( mapper, *table );
         }
      }
      for( auto const & table : tables ) {
         if( !mapperOf( table.name ) ) {
            leaveTable( table );
         }
      }
      return std::move( import_ );
   }

 private:
   void line( LineKind kind, std::string_view table, Kiv::String const & key,
              std::string_view what ) {
      import_.report.push_back(
            { kind, Kiv::String( table ), key, Kiv::excerpt( what, maxWhat ) } );
   }

   void importTable( TableMapper const & mapper, Table const & table ) {
      if( table.odd ) {
         line( refused, mapper.table, {},
               Kiv::String( table.odd->shape() ) +
                     " is not a table: an object of rows is expected" );
      }
      Row::Taken taken;
      Unread unread;
      for( auto const & [ key, fields ] : table.rows ) {
         try {
            importRow( mapper, key, *fields, taken, unread );
         } catch( Kiv::ParseError const & error ) {
            line( refused, mapper.table, key, error.what() );
         } catch( Kiv::RangeException const & error ) {
            line( refused, mapper.table, key, error.reason() );
         }
      }
      std::vector< Kiv::String > fields;
      for( auto const & [ field, count ] : unread ) {
         fields.push_back( Kiv::excerpt( field ) + " (" + counted( count, "row" ) + ')' );
      }
      if( !fields.empty() ) {
         line( notImported, mapper.table, {}, "no such attribute here: " + someOf( fields, 40 ) );
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

   void leaveTable( Table const & table ) {
      if( table.odd ) {
         line( notImported, table.name, {},
               "no such feature here, and " + Kiv::String( table.odd->shape() ) +
                     " is not a table" );
      }
      for( auto const & [ key, fields ] : table.rows ) {
         line( notImported, table.name, key, noFeature );
      }
      if( !table.odd && table.rows.empty() ) {
         line( notImported, table.name, {}, noFeature );
      }
   }

   static constexpr std::size_t maxWhat = 2000;
   static constexpr std::string_view noFeature = "no such feature here";

   Model model_;
   ConfigDbImport import_;
};

} // namespace

void
ConfigDbImport::apply() const {
   for( auto const & operation : operations ) {
      operation.apply();
   }
}

std::size_t
ConfigDbImport::count( LineKind kind ) const {
   return static_cast< std::size_t >( std::ranges::count( report, kind, &ReportLine::kind ) );
}

ConfigDbImport
importConfigDb( Kiv::Datum const & file, ConfigDbTargets const & targets ) {
   auto const * object = file.as< Object >();
   if( !object ) {
      Kiv::wrongShape( file, "a configuration: an object of tables is expected" );
   }
   auto const tables = tablesOf( *object );
   if( std::ranges::none_of( tables, mapperOf, &Table::name ) ) {
      std::vector< Kiv::String > known, found;
      for( auto const & mapper : tableMappers() ) {
         known.emplace_back( mapper.table );
      }
      for( auto const & table : tables ) {
         found.push_back( Kiv::excerpt( table.name ) );
      }
      throw Kiv::ParseError(
            "not a configuration with a table that is known here: expected one of " +
            someOf( known, known.size() ) + "; there " +
            ( found.empty() ? "is nothing" : "are " + someOf( found, 5 ) ) );
   }
   return Importer( targets ).run( tables );
}

} // namespace Import
