// SPDX-License-Identifier: Apache-2.0
#include "agent/hobactl/Render.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace Hobactl {

using Kiv::Datum;

namespace {

constexpr std::size_t gap = 2;
constexpr std::size_t narrowest = 8; // columns are not made narrower than this to fit

enum class CellKind { empty, number, text };

struct Cell {
   std::string text;
   CellKind kind = CellKind::empty;
};

struct Column {
   std::size_t width = 0;
   bool right = false; // all its cells are numbers
};

// Columns on the terminal: characters, not bytes. (Wide characters do not occur in names here.)
std::size_t
columnsOf( std::string_view text ) {
   return static_cast< std::size_t >( std::count_if( text.begin(), text.end(), []( char c ) {
      return ( static_cast< unsigned char >( c ) & 0xc0 ) != 0x80;
   } ) );
}

// The bytes of the first `columns` characters.
std::size_t
bytesOf( std::string_view text, std::size_t columns ) {
   std::size_t bytes = 0;
   while( bytes != text.size() ) {
      bool begins = ( static_cast< unsigned char >( text[ bytes ] ) & 0xc0 ) != 0x80;
      if( begins && columns-- == 0 ) {
         break;
      }
      ++bytes;
   }
   return bytes;
}

// `text` in lines of at most `width`, broken at spaces where there are some; the indentation of the
// first line is kept in the others.
std::vector< std::string >
wrapped( std::string_view text, std::size_t width ) {
   std::vector< std::string > lines;
   auto indent = std::min( text.find_first_not_of( ' ' ), text.size() );
   if( indent * 2 > width ) {
      indent = 0;
   }
   std::string const margin( indent, ' ' );
   while( columnsOf( text ) > width ) {
      auto cut = bytesOf( text, width );
      auto space = text.rfind( ' ', cut );
      if( space != std::string_view::npos && space > indent ) {
         cut = space;
      }
      lines.emplace_back( text.substr( 0, cut ) );
      text.remove_prefix(
            std::min( std::max( text.find_first_not_of( ' ', cut ), cut ), text.size() ) );
      if( indent ) {
         // The rest is looked at with its margin in front.
         auto rest = margin + std::string( text );
         auto more = wrapped( rest, width );
         lines.insert( lines.end(), more.begin(), more.end() );
         return lines;
      }
   }
   lines.emplace_back( text );
   return lines;
}

// Shrinks the widest columns until all fit, or none can give way any more.
void
fit( std::vector< Column > & columns, std::size_t available ) {
   if( columns.empty() ) {
      return;
   }
   auto total = [ & ] {
      return std::accumulate(
            columns.begin(), columns.end(), gap * ( columns.size() - 1 ),
            []( std::size_t sum, Column const & column ) { return sum + column.width; } );
   };
   auto narrower = []( Column const & a, Column const & b ) { return a.width < b.width; };
   while( total() > available ) {
      auto widest = std::max_element( columns.begin(), columns.end(), narrower );
      if( widest->width <= narrowest ) {
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
      cells.push_back( wrapped( row[ i ].text, std::max< std::size_t >( columns[ i ].width, 1 ) ) );
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

std::vector< Cell >
cellsOf( Datum const & row, std::size_t count ) {
   std::vector< Cell > cells( count );
   if( auto const * values = row.as< Datum::Array >() ) {
      for( std::size_t i = 0; i != std::min( count, values->size() ); ++i ) {
         auto const & value = ( *values )[ i ];
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
      auto width = columnsOf( header[ i ].text );
      for( auto const & row : rows ) {
         width = std::max( width, columnsOf( row[ i ].text ) );
         numbers = numbers || row[ i ].kind == CellKind::number;
         texts = texts || row[ i ].kind == CellKind::text;
      }
      columns.push_back( { width, numbers && !texts } );
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
   auto const header = cellsOf( names, names.size() );
   std::vector< std::vector< Cell > > rows;
   for( auto const & row : *table.find( "rows" )->as< Datum::Array >() ) {
      rows.push_back( cellsOf( row, names.size() ) );
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
