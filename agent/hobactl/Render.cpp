// SPDX-License-Identifier: Apache-2.0
#include "agent/hobactl/Render.h"

#include "agent/common/Json.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <sys/ioctl.h>
#include <unistd.h>

namespace Hobactl {

using Kiv::Datum;

namespace {

std::string
visible( std::string_view text ) {
   constexpr char hex[] = "0123456789abcdef";
   std::string out;
   for( char c : text ) {
      auto byte = static_cast< unsigned char >( c );
      if( byte < 0x20 || byte == 0x7f ) {
         out += { '\\', 'x', hex[ byte >> 4 ], hex[ byte & 15 ] };
      } else {
         out += c;
      }
   }
   return out;
}

bool
isStructure( Datum const & value ) {
   return value.as< Datum::Array >() || value.as< Datum::Object >();
}

bool
isEmpty( Datum const & value ) {
   auto const * array = value.as< Datum::Array >();
   auto const * object = value.as< Datum::Object >();
   return ( array && array->empty() ) || ( object && object->empty() );
}

void renderTree( std::string & out, Datum const & value, std::size_t indent );

void
renderMember( std::string & out, std::string const & label, Datum const & value,
              std::size_t indent ) {
   out.append( indent, ' ' );
   out += label;
   if( isStructure( value ) && !isEmpty( value ) ) {
      out += '\n';
      renderTree( out, value, indent + 2 );
   } else {
      out += ' ';
      out += oneLine( value );
      out += '\n';
   }
}

void
renderTree( std::string & out, Datum const & value, std::size_t indent ) {
   if( auto const * object = value.as< Datum::Object >() ) {
      for( auto const & [ name, member ] : *object ) {
         renderMember( out, visible( name ) + ":", member, indent );
      }
   } else if( auto const * array = value.as< Datum::Array >() ) {
      for( auto const & element : *array ) {
         renderMember( out, "-", element, indent );
      }
   }
}

Kiv::String
textOf( Datum const & object, std::string_view name ) {
   auto const * value = object.find( name );
   return value ? oneLine( *value ) : Kiv::String();
}

Kiv::Seconds
timeOf( Datum const & object ) {
   auto const * time = object.find( "time" );
   auto const * real = time ? time->as< double >() : nullptr;
   auto const * whole = time ? time->as< std::int64_t >() : nullptr;
   return real ? *real : whole ? static_cast< double >( *whole ) : 0;
}

} // namespace

std::string
oneLine( Datum const & value ) {
   if( auto const * text = value.as< Kiv::String >() ) {
      return visible( *text );
   }
   return value.isNull() ? "none" : HobaAgent::jsonText( value );
}

std::string
render( Datum const & answer, Style const & style ) {
   if( isTable( answer ) ) {
      return renderTable( answer, style );
   }
   if( answer.isNull() ) {
      return {};
   }
   std::string out;
   if( isStructure( answer ) && !isEmpty( answer ) ) {
      renderTree( out, answer, 0 );
   } else if( !isStructure( answer ) ) {
      out = oneLine( answer ) + "\n";
   }
   return out;
}

Style
terminalStyle() {
   Style style;
   if( !isatty( STDOUT_FILENO ) ) {
      return style;
   }
   auto const * plain = std::getenv( "NO_COLOR" );
   style.colour = !( plain && *plain );
   style.width = 80;
   winsize size{};
   auto const * columns = std::getenv( "COLUMNS" );
   if( columns && std::atoi( columns ) > 0 ) {
      style.width = static_cast< std::size_t >( std::atoi( columns ) );
   } else if( ioctl( STDOUT_FILENO, TIOCGWINSZ, &size ) == 0 && size.ws_col > 0 ) {
      style.width = size.ws_col;
   }
   return style;
}

std::string
timeText( Kiv::Seconds sinceEpoch ) {
   if( !( std::abs( sinceEpoch ) < 1e11 ) ) {
      return "no time";
   }
   auto whole = static_cast< std::time_t >( std::floor( sinceEpoch ) );
   auto micro = static_cast< long >( ( sinceEpoch - static_cast< double >( whole ) ) * 1e6 );
   std::tm parts{};
   gmtime_r( &whole, &parts );
   char text[ 64 ];
   auto length = std::strftime( text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts );
   std::snprintf( text + length, sizeof text - length, ".%06ld", micro );
   return text;
}

std::string
recordLine( Datum const & record ) {
   return timeText( timeOf( record ) ) + " " + textOf( record, "handle" ) + " " +
          textOf( record, "level" ) + " " + textOf( record, "function" ) + ":" +
          textOf( record, "line" ) + " " + textOf( record, "message" ) + "\n";
}

std::string
changeLine( Datum const & event ) {
   auto const * value = event.find( "value" );
   return timeText( timeOf( event ) ) + " " + textOf( event, "path" ) +
          ( value ? " = " + oneLine( *value ) : " deleted" ) + "\n";
}

} // namespace Hobactl
