// SPDX-License-Identifier: Apache-2.0
#include "agent/import/ConfigDb.h"

#include "Kiv/Utf8.h"

#include <algorithm>
#include <map>

namespace Import {

namespace {

using Object = Kiv::Datum::Object;
using Array = Kiv::Datum::Array;

constexpr std::size_t maxWhat = 2000;
constexpr std::string_view opName = "OP";

// A table of a file in which all rows hold at once. Rows may stand in an object under its name, or by
// themselves under the table's name and theirs with a bar between.
struct FileTable {
   Kiv::String name;
   Kiv::Datum const * odd = nullptr; // what stands under its name where an object is expected
   std::vector< std::pair< Kiv::String, Kiv::Datum const * > > rows = {}; // key, fields
};

// In the order in which the file names them first.
std::vector< FileTable >
tablesOf( Object const & file ) {
   std::vector< FileTable > tables;
   Kiv::HashMap< Kiv::String, std::size_t > places;
   auto const tableOf = [ & ]( Kiv::String const & name ) -> FileTable & {
      auto const * place = places.find( name );
      if( !place ) {
         places.insertOrAssign( name, tables.size() );
         return tables.emplace_back( FileTable{ name } );
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

// One element of a file of operations.
struct Operation {
   Kiv::String const & name; // of the row
   Kiv::Datum const * fields;
   Kiv::Datum const * op;
};

Operation
partsOf( Kiv::Datum const & operation ) {
   auto const * members = operation.as< Object >();
   if( !members ) {
      Kiv::wrongShape( operation, "an operation: an object of one row and OP is expected" );
   }
   Kiv::Datum const * op = operation.find( opName );
   std::vector< Kiv::String > names;
   Object::value_type const * row = nullptr;
   for( auto const & member : *members ) {
      if( &member.second != op ) {
         names.push_back( Kiv::excerpt( member.first ) );
         row = &member;
      }
   }
   if( names.size() != 1 ) {
      throw Kiv::ParseError( names.empty() ? "there is no row"
                                           : "one operation is about one row; there are " +
                                                   someOf( names, 5 ) );
   }
   if( !op ) {
      throw Kiv::ParseError( "OP is missing, SET or DEL" );
   }
   return { row->first, &row->second, op };
}

bool
isSet( Kiv::Datum const & op ) {
   auto const * word = op.as< Kiv::String >();
   bool const set = word && *word == "SET";
   if( !set && !( word && *word == "DEL" ) ) {
      Kiv::inPlace( opName, [ & ] { Kiv::wrongShape( op, "SET or DEL" ); } );
   }
   return set;
}

constexpr std::string_view noFeature = "no such feature here";
constexpr std::string_view noAttribute = "no such attribute here: ";

// One import while it is made.
class Importer {
 public:
   Importer( Tables const & tables, Report & report ) : tables_( tables ), report_( report ) {}

   void take( std::vector< FileTable > const & file ) {
      for( auto const & table : tables_.all() ) {
         auto const found = std::ranges::find( file, table.name, &FileTable::name );
         if( found != file.end() ) {
            takeTable( table, *found );
         }
      }
      for( auto const & table : file ) {
         if( !tables_.find( table.name ) ) {
            leaveTable( table );
         }
      }
   }

   void take( Array const & operations ) {
      UnreadByTable unread;
      for( std::size_t i = 0; i != operations.size(); ++i ) {
         Line const line{ "operation", Key( Kiv::toText( i + 1 ), ' ' ) };
         refusing( line, [ & ] { takeOperation( operations[ i ], unread ); } );
      }
      for( auto const & table : tables_.all() ) {
         tellUnread( table.name, unread[ table.name ] );
      }
   }

 private:
   // What lines are about.
   struct Line {
      std::string_view table;
      Key key = Key( {} );
   };
   // By field: how many of the rows taken have it.
   using Unread = Kiv::HashMap< Kiv::String, std::size_t >;
   using UnreadByTable = std::map< std::string_view, Unread >;

   void line( LineKind kind, Line const & about, std::string_view what ) {
      report_.lines.push_back( { kind, Kiv::String( about.table ), about.key.text(),
                                 Kiv::excerpt( what, maxWhat ), about.key.separator() } );
   }

   template< class Take >
   void refusing( Line const & about, Take const & take ) {
      try {
         take();
      } catch( Kiv::RangeException const & error ) {
         line( refused, about, error.reason() );
      } catch( Kiv::Exception const & error ) {
         line( refused, about, error.what() );
      }
   }

   void takeTable( Table const & table, FileTable const & file ) {
      if( file.odd ) {
         line( refused, { table.name },
               Kiv::String( file.odd->shape() ) +
                     " is not a table: an object of rows is expected" );
      }
      Row::Taken taken;
      Unread unread;
      for( auto const & [ name, fields ] : file.rows ) {
         Line const about{ table.name, Key( name ) };
         refusing( about, [ &, &content = *fields ] {
            Row row( tables_, table.name, about.key, content );
            row.takenIs( &taken );
            takeRow( table, row, about, unread );
            taken.insertOrAssign( row.identity(), about.key.text() );
         } );
      }
      tellUnread( table.name, unread );
   }

   void takeRow( Table const & table, Row & row, Line const & about, Unread & unread ) {
      tables_.map( table, row );
      if( row.identity().empty() ) {
         row.identityIs( about.key.text() );
      }
      auto const fields = row.unreadFields();
      if( table.strict && !fields.empty() ) {
         throw Kiv::ParseError( Kiv::String( noAttribute ) + someOf( fields, 5 ) );
      }
      row.apply();
      line( imported, about, row.what() );
      for( auto const & what : row.remarks() ) {
         line( remark, about, what );
      }
      for( auto const & field : fields ) {
         ++*unread.tryEmplace( field, std::size_t( 0 ) ).value;
      }
   }

   void tellUnread( std::string_view table, Unread const & unread ) {
      std::vector< Kiv::String > fields;
      for( auto const & [ field, count ] : unread ) {
         fields.push_back( Kiv::excerpt( field ) + " (" + counted( count, "row" ) + ')' );
      }
      if( !fields.empty() ) {
         line( notImported, { table }, Kiv::String( noAttribute ) + someOf( fields, 40 ) );
      }
   }

   void leaveTable( FileTable const & table ) {
      if( table.odd ) {
         line( notImported, { table.name },
               Kiv::String( noFeature ) + ", and " + Kiv::String( table.odd->shape() ) +
                     " is not a table" );
      }
      for( auto const & [ key, fields ] : table.rows ) {
         line( notImported, { table.name, Key( key ) }, noFeature );
      }
      if( !table.odd && table.rows.empty() ) {
         line( notImported, { table.name }, noFeature );
      }
   }

   void takeOperation( Kiv::Datum const & operation, UnreadByTable & unread ) {
      auto const [ name, fields, op ] = partsOf( operation );
      auto const end = name.find_first_of( ":|" );
      if( end == name.npos ) {
         Kiv::parseFailed( name, "the name of a row: TABLE:key is expected" );
      }
      std::string_view const tableName = std::string_view( name ).substr( 0, end );
      auto const * table = tableOf( tableName );
      Line const about{ table ? table->name : tableName,
                        Key( name.substr( end + 1 ), name[ end ] ) };
      refusing( about, [ &, &content = *fields, &word = *op ] {
         bool const set = isSet( word );
         if( !table ) {
            line( notImported, about, noFeature );
            return;
         }
         Row row( tables_, table->name, about.key, content );
         if( set ) {
            takeRow( *table, row, about, unread[ table->name ] );
         } else {
            removeRow( *table, row, about );
         }
      } );
   }

   // The names of tables in files of operations may have an ending of their own.
   Table const * tableOf( std::string_view name ) const {
      constexpr std::string_view ending = "_TABLE";
      auto const * table = tables_.find( name );
      return table || !name.ends_with( ending )
                   ? table
                   : tables_.find( name.substr( 0, name.size() - ending.size() ) );
   }

   void removeRow( Table const & table, Row & row, Line const & about ) {
      if( !table.del ) {
         throw Kiv::ParseError( "rows of " + Kiv::String( table.name ) + " cannot be deleted" );
      }
      if( !tables_.has( table.name, about.key ) ) {
         throw Kiv::ParseError( "there is none to delete" );
      }
      if( auto const user = tables_.referrer( table.name, about.key ); !user.empty() ) {
         throw Kiv::ParseError( user + " refers to it, so it stays" );
      }
      tables_.del( table, row );
      row.apply();
      line( removed, about, row.what() );
   }

   Tables const & tables_;
   Report & report_;
};

} // namespace

Report
importConfiguration( Kiv::Datum const & file, Tables const & tables ) {
   Report report;
   Importer importer( tables, report );
   if( auto const * operations = file.as< Array >() ) {
      importer.take( *operations );
      return report;
   }
   auto const * object = file.as< Object >();
   if( !object ) {
      Kiv::wrongShape(
            file, "a configuration: an object of tables, or a list of operations, is expected" );
   }
   auto const found = tablesOf( *object );
   if( std::ranges::none_of( found,
                             [ & ]( auto const & table ) { return tables.find( table.name ); } ) ) {
      std::vector< Kiv::String > known, there;
      for( auto const & table : tables.all() ) {
         known.emplace_back( table.name );
      }
      for( auto const & table : found ) {
         there.push_back( Kiv::excerpt( table.name ) );
      }
      throw Kiv::ParseError(
            "not a configuration with a table that is known here: expected one of " +
            someOf( known, known.size() ) + "; there " +
            ( there.empty() ? "is nothing" : "are " + someOf( there, 5 ) ) );
   }
   importer.take( found );
   return report;
}

} // namespace Import
