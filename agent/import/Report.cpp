// SPDX-License-Identifier: Apache-2.0
#include "agent/import/Report.h"

#include "Kiv/Utf8.h"

#include <algorithm>

// Files may hold anything, and any number of anything: what is printed of them is bounded, in length
// and in lines.

namespace Import {

namespace {

// How many different things are said of the rows of one table.
constexpr std::size_t mostOfTable = 5;
// How many tables are named that have no place here.
constexpr std::size_t mostTables = 60;

// What is said of rows of one table.
struct Saying {
   ReportLine const * first;
   std::size_t rows;
};

// Of one kind and one table.
struct Sayings {
   std::vector< Saying > different = {};
   Kiv::HashMap< Kiv::String, std::size_t > places = {}; // by what is said, in `different`
};

Kiv::String
sayingText( Saying const & saying ) {
   auto const & line = *saying.first;
   if( line.kind == notImported && !line.key.empty() ) {
      return Kiv::excerpt( line.table ) + ": " + counted( saying.rows, "row" ) +
             " not imported: " + line.what;
   }
   return line.text() + ( saying.rows == 1 ? ""
                                           : " (and " + counted( saying.rows - 1, "more row" ) +
                                                   " of " + Kiv::excerpt( line.table ) + ")" );
}

void
addDigest( std::vector< ReportLine > const & report, LineKind kind, std::string_view only,
           std::vector< Kiv::String > & lines ) {
   Kiv::HashMap< Kiv::String, Sayings > tables;
   for( auto const & line : report ) {
      if( line.kind != kind || ( !only.empty() && line.table != only ) ) {
         continue;
      }
      if( !tables.has( line.table ) ) {
         tables.insertOrAssign( line.table, Sayings{} );
      }
      auto & sayings = *tables.find( line.table );
      if( auto const * place = sayings.places.find( line.what ) ) {
         ++sayings.different[ *place ].rows;
      } else {
         sayings.places.insertOrAssign( line.what, sayings.different.size() );
         sayings.different.push_back( { &line, 1 } );
      }
   }
   std::size_t left = mostTables;
   for( auto const & [ table, sayings ] : tables ) {
      if( left-- == 0 ) {
         lines.push_back( counted( tables.size() - mostTables, "more table" ) +
                          ": see hobactl show import" );
         return;
      }
      std::size_t rows = 0;
      for( std::size_t i = 0; i != sayings.different.size(); ++i ) {
         if( i < mostOfTable ) {
            lines.push_back( sayingText( sayings.different[ i ] ) );
         } else {
            rows += sayings.different[ i ].rows;
         }
      }
      if( rows ) {
         lines.push_back( Kiv::excerpt( table ) + ": " + counted( rows, "more row" ) + ' ' +
                          Kiv::toText( kind ) +
                          ", each for a reason of its own: see hobactl show import" );
      }
   }
}

} // namespace

Kiv::String
counted( std::size_t count, std::string_view one ) {
   return Kiv::toText( count ) + ' ' + Kiv::String( one ) + ( count == 1 ? "" : "s" );
}

Kiv::String
ReportLine::row() const {
   return Kiv::excerpt( table ) + ( key.empty() ? "" : separator + Kiv::excerpt( key ) );
}

std::size_t
Report::count( LineKind kind ) const {
   return static_cast< std::size_t >( std::ranges::count( lines, kind, &ReportLine::kind ) );
}

Kiv::String
Report::summary() const {
   auto const rowsLeft = std::ranges::count_if( lines, []( ReportLine const & line ) {
      return line.kind == notImported && !line.key.empty();
   } );
   auto const gone = count( removed );
   return counted( count( imported ), "row" ) + " imported, " +
          ( gone ? Kiv::toText( gone ) + " removed, " : "" ) + Kiv::toText( count( refused ) ) +
          " refused, " + counted( count( remark ), "remark" ) + ", " + Kiv::toText( rowsLeft ) +
          " not imported";
}

std::vector< Kiv::String >
Report::digest( std::string_view table ) const {
   std::vector< Kiv::String > digest;
   for( auto kind : { notImported, remark, refused } ) {
      addDigest( lines, kind, table, digest );
   }
   return digest;
}

} // namespace Import
