// SPDX-License-Identifier: Apache-2.0
#include "agent/hobactl/Render.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace Hobactl {

using Kiv::Datum;

namespace {

constexpr std::size_t gap = 2;

enum class CellKind { empty, number, text };

struct Cell {
   std::string text;
   CellKind kind = CellKind::empty;
};

struct Column {
   std::size_t width = 0;
   std::size_t narrowest = 0; // its longest word
   bool right = false;        // all its cells are numbers
};

// Columns on the terminal: characters, not bytes. (Wide characters do not occur in names here.)
std::size_t
columnsOf( std::string_view text ) {
   return static_cast< std::size_t >( std::count_if( text.begin(), text.end(), []( char c ) {
      return ( static_cast< unsigned char >( c ) & 0xc0 ) != 0x80;
   } ) );
}

std::size_t
marginOf( std::string_view text ) {
   return std::min( text.find_first_not_of( ' ' ), text.size() );
}

// `text` in lines of at most `width`, broken at spaces only; the indentation of the first line is
// kept in the others.
std::vector< std::string >
wrapped( std::string_view text, std::size_t width ) {
   std::vector< std::string > lines;
   std::string const margin( marginOf( text ), ' ' );
   std::string line( text.substr( 0, text.find( ' ', margin.size() ) ) );
   auto columns = columnsOf( line );
   for( auto at = line.size(); at != text.size(); ) {
      auto const end = std::min( text.find( ' ', at + 1 ), text.size() );
      auto const word = text.substr( at, end - at ); // with the space in front
      auto const more = columnsOf( word );
      if( columns + more <= width ) {
         line += word;
         columns += more;
      } else if( word.size() > 1 ) {
         lines.push_back( line );
         line = margin + std::string( word.substr( 1 ) );
         columns = margin.size() + more - 1;
      }
      at = end;
   }
   lines.push_back( line );
   return lines;
}

// The width of the widest line when `text` is wrapped as narrow as can be.
std::size_t
longestWord( std::string_view text ) {
   std::size_t longest = 0;
   for( auto const & line : wrapped( text, 0 ) ) {
      longest = std::max( longest, columnsOf( line ) );
   }
   return longest;
}

// Shrinks the widest columns until all fit, or none can give way any more: the table runs over then.
void
fit( std::vector< Column > & columns, std::size_t available ) {
   auto total = std::accumulate(
         columns.begin(), columns.end(), columns.empty() ? 0 : gap * ( columns.size() - 1 ),
         []( std::size_t sum, Column const & column ) { return sum + column.width; } );
   for( ; total > available; --total ) {
      Column * widest = nullptr;
      for( auto & column : columns ) {
         if( column.width > column.narrowest && ( !widest || column.width > widest->width ) ) {
            widest = &column;
         }
      }
      if( !widest ) {
         return;
      }
      --widest->width;
   }
}

std::string
padded( std::string const & text, std::size_t width, bool right, bool last ) {
   auto columns = columnsOf( text );
   std::string space( columns < width ? width - columns : 0, ' ' );
   return right ? space + text : last ? text : text + space;
}

void
appendRow( std::string & out, std::vector< Cell > const & row,
           std::vector< Column > const & columns ) {
   std::vector< std::vector< std::string > > cells;
   std::size_t height = 1;
   for( std::size_t i = 0; i != row.size(); ++i ) {
      cells.push_back( wrapped( row[ i ].text, columns[ i ].width ) );
      height = std::max( height, cells.back().size() );
   }
   for( std::size_t line = 0; line != height; ++line ) {
      std::string text;
      for( std::size_t i = 0; i != row.size(); ++i ) {
         auto const & piece = line < cells[ i ].size() ? cells[ i ][ line ] : std::string();
         text += i ? std::string( gap, ' ' ) : "";
         text += padded( piece, columns[ i ].width, columns[ i ].right, i + 1 == row.size() );
      }
      text.erase( text.find_last_not_of( ' ' ) + 1 );
      out += text + "\n";
   }
}

// What people read in place of the value; null if it is the value itself.
Datum const *
wordsFor( Datum const * words, Datum const & column, Datum const & value ) {
   auto const * name = column.as< Kiv::String >();
   auto const * text = value.as< Kiv::String >();
   auto const * ofColumn = words && name && text ? words->find( *name ) : nullptr;
   return ofColumn ? ofColumn->find( *text ) : nullptr;
}

std::vector< Cell >
cellsOf( Datum const & row, Datum::Array const & names, Datum const * words ) {
   std::vector< Cell > cells( names.size() );
   if( auto const * values = row.as< Datum::Array >() ) {
      for( std::size_t i = 0; i != std::min( names.size(), values->size() ); ++i ) {
         auto const * inWords = wordsFor( words, names[ i ], ( *values )[ i ] );
         auto const & value = inWords ? *inWords : ( *values )[ i ];
         bool number =
               value.as< std::int64_t >() || value.as< std::uint64_t >() || value.as< double >();
         cells[ i ] = { value.isNull() ? "-" : oneLine( value ), value.isNull() ? CellKind::empty
                                                                 : number       ? CellKind::number
                                                                                : CellKind::text };
      }
   }
   return cells;
}

std::vector< Column >
columnsFor( std::vector< Cell > const & header, std::vector< std::vector< Cell > > const & rows ) {
   std::vector< Column > columns;
   for( std::size_t i = 0; i != header.size(); ++i ) {
      bool numbers = false, texts = false;
      auto width = columnsOf( header[ i ].text ), narrowest = longestWord( header[ i ].text );
      for( auto const & row : rows ) {
         width = std::max( width, columnsOf( row[ i ].text ) );
         narrowest = std::max( narrowest, longestWord( row[ i ].text ) );
         numbers = numbers || row[ i ].kind == CellKind::number;
         texts = texts || row[ i ].kind == CellKind::text;
      }
      columns.push_back( { width, narrowest, numbers && !texts } );
   }
   return columns;
}

} // namespace

bool
isTable( Datum const & answer ) {
   auto const * columns = answer.find( "columns" );
   auto const * rows = answer.find( "rows" );
   return columns && rows && columns->as< Datum::Array >() && rows->as< Datum::Array >();
}

std::string
renderTable( Datum const & table, Style const & style ) {
   auto const & names = *table.find( "columns" )->as< Datum::Array >();
   auto const * words = table.find( "words" );
   auto const header = cellsOf( names, names, nullptr );
   std::vector< std::vector< Cell > > rows;
   for( auto const & row : *table.find( "rows" )->as< Datum::Array >() ) {
      rows.push_back( cellsOf( row, names, words ) );
   }
   auto columns = columnsFor( header, rows );
   if( style.width ) {
      fit( columns, style.width );
   }
   std::string out;
   if( !columns.empty() ) {
      std::string heading;
      appendRow( heading, header, columns );
      out += style.colour ? "\033[1m" + heading.substr( 0, heading.size() - 1 ) + "\033[0m\n"
                          : heading;
   }
   for( auto const & row : rows ) {
      appendRow( out, row, columns );
   }
   auto const * notes = table.find( "notes" );
   if( auto const * lines = notes ? notes->as< Datum::Array >() : nullptr ) {
      for( auto const & line : *lines ) {
         out += oneLine( line ) + "\n";
      }
   }
   return out;
}

} // namespace Hobactl
